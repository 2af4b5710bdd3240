// Font validation: a verdict per file and face with the loader's refusal as
// the cause, linked fonts by their components, and nothing left added.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_validate.h"
#include "support/ltt_builder.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"
#include "support/typeset_font.h"

namespace {

using namespace testsupport;

TEST(FontValidation, PackagedFacesHandMadeFilesAndLinkedFonts) {
  TypesetFont c;
  FS_ULONG start = FS_get_heap_used(&c.st), faces = 0, terminus = 0;
  for (const auto& e : std::filesystem::recursive_directory_iterator("/usr/share/fonts")) {
    std::string f = e.path(), end = f.substr(f.size() - 4);
    if (end != ".ttf" && end != ".otf" && end != ".ttc" && end != ".otb") continue;
    Bytes head = fileBytes(f);  // every face of a collection
    for (FS_ULONG i = 0, n = sfnt::getU32(head, 0) == sfnt::tagOf("ttcf") ? sfnt::getU32(head, 8) : 1; i < n; i++) {
      bool isTerminus = f.find("/terminus/") != std::string::npos;  // its empty glyf lies on name
      terminus += isTerminus, faces++;
      EXPECT_TRUE(FS_validate_font(&c.st, f.c_str(), nullptr, i, 0, 0) == !isTerminus &&
                  c.st.error == (isTerminus ? (FS_ULONG)ERR_TABLE_DIR : 0u)) << f << " " << i << " " << c.st.error;
    }
  }
  EXPECT_TRUE(terminus == 4 && faces > 300);
  TempDir dir;
  Bytes font = fileBytes(linkedPath(1)), overlap = font, none = font, many = font;
  sfnt::putU32(overlap, 12 + 16 + 8, sfnt::getU32(font, 12 + 8) + 4);  // table 2 inside table 1
  sfnt::putU16(none, 4, 0);
  sfnt::putU16(many, 4, 51);
  ASSERT_EQ(symlink(linkedPath(1).c_str(), dir.file(kLinkedFile[1]).c_str()), 0);
  LttSpec beside = linkedSet(), cut = linkedSet();
  beside.components[1].keys[0] = "targetdirectory=.";
  cut.components[1].keys.erase(cut.components[1].keys.begin());
  cut.components[1].embedded = Bytes(font.begin(), font.begin() + font.size() / 2);
  const struct { const char* why; Bytes bytes; FS_ULONG error; } rows[] = {
      {"overlapping tables", overlap, ERR_TABLE_DIR},
      {"numTables 0", none, ERR_TABLE_DIR},
      {"numTables 51", many, ERR_TABLE_DIR},
      {"a file starting 'P' is no sfnt", Bytes(64, 'P'), ERR_NOT_A_TTF},
      {"a missing file", Bytes(), ERR_VALIDATE_ARGS},
      {"linked: three packaged fonts by absolute folders", linkedSet().build(), 0},
      {"linked: a component beside the linked font", beside.build(), 0},
      {"linked: an embedded component cut in half", cut.build(), ERR_TABLE_DIR},
  };
  for (const auto& r : rows) {
    std::string path = dir.file("font.ttf");
    unlink(path.c_str());
    if (!r.bytes.empty()) writeBytes(path, sfnt::asString(r.bytes));
    EXPECT_TRUE(FS_validate_font(&c.st, path.c_str(), nullptr, 0, 0, 0) == (r.error == 0) && c.st.error == r.error)
        << r.why << " " << c.st.error;
  }
  EXPECT_TRUE(!FS_validate_font(&c.st, nullptr, nullptr, 0, 0, 0) && c.st.error == ERR_VALIDATE_ARGS) << "no source";
  EXPECT_EQ(FS_get_heap_used(&c.st), start) << "validation leaves nothing behind";
}

}  // namespace
