// Font validation: a verdict per file and face, the loader's refusal as the
// cause, linked fonts by their components, and nothing left added.
#include <dirent.h>
#include <strings.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_validate.h"
#include "Orvex_internal/fs_xmalloc.h"
#include "support/linked_font.h"
#include "support/sfnt_builder.h"
#include "support/strike_client.h"
#include "support/test_support.h"

namespace {

using testsupport::Bytes;
using testsupport::TempDir;

const char kDejaVu[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

void fontsUnder(const std::string& folder, std::vector<std::string>* out) {
  DIR* d = opendir(folder.c_str());
  while (dirent* e = d ? readdir(d) : nullptr) {
    std::string name = e->d_name, path = folder + "/" + name;
    if (name[0] == '.') continue;
    if (e->d_type == DT_DIR) fontsUnder(path, out);
    for (const char* end : {".ttf", ".otf", ".ttc", ".otb"})
      if (name.size() > 4 && strcasecmp(name.c_str() + name.size() - 4, end) == 0)
        out->push_back(path);
  }
  if (d) closedir(d);
}

TEST(FontValidation, EveryPackagedFaceIsValidButTerminusWithItsEmptyGlyf) {
  std::vector<std::string> files;
  fontsUnder("/usr/share/fonts/truetype", &files);
  fontsUnder("/usr/share/fonts/opentype", &files);
  FS_STATE st;
  ASSERT_EQ(FSS_init(&st, 64u << 20), 0);
  FS_ULONG start = FS_get_heap_used(&st);
  size_t faces = 0, terminus = 0;
  for (const std::string& f : files) {
    Bytes head(12, 0);
    FILE* fp = fopen(f.c_str(), "rb");
    ASSERT_NE(fp, nullptr) << f;
    ASSERT_EQ(fread(head.data(), 1, 12, fp), 12u) << f;
    fclose(fp);
    FS_ULONG n = sfnt::getU32(head, 0) == sfnt::tagOf("ttcf") ? sfnt::getU32(head, 8) : 1;
    for (FS_ULONG i = 0; i < n; i++, faces++) {
      bool ok = FS_validate_font(&st, f.c_str(), nullptr, i, 0, 0);
      // Terminus's empty glyf lies where its name table starts.
      bool isTerminus = f.find("/terminus/") != std::string::npos;
      terminus += isTerminus;
      EXPECT_EQ(ok, !isTerminus) << f << " face " << i;
      EXPECT_EQ(st.error, isTerminus ? (FS_ULONG)ERR_TABLE_DIR : 0u) << f << " face " << i;
    }
  }
  RecordProperty("faces", (int)faces);
  EXPECT_EQ(terminus, 4u);
  EXPECT_GT(faces, 300u);
  EXPECT_EQ(FS_get_heap_used(&st), start) << "validation leaves nothing behind";
  FSS_exit(&st);
}

// DejaVu Sans with its directory changed by `edit`.
Bytes dejaVuWith(void (*edit)(Bytes&)) {
  Bytes b = testsupport::fileBytes(kDejaVu);
  if (!b.empty()) edit(b);
  return b;
}

TEST(FontValidation, RefusalsOfHandMadeFiles) {
  TempDir dir;
  const struct {
    const char* why;
    Bytes bytes;  // written to a file; empty: the path is missing
    FS_ULONG error;
  } rows[] = {
      {"the font as shipped", dejaVuWith([](Bytes&) {}), 0},
      {"second table's entry moved onto the first table",
       dejaVuWith([](Bytes& b) { sfnt::putU32(b, 12 + 16 + 8, sfnt::getU32(b, 12 + 8) + 4); }),
       ERR_TABLE_DIR},
      {"numTables 0", dejaVuWith([](Bytes& b) { sfnt::putU16(b, 4, 0); }), ERR_TABLE_DIR},
      {"numTables 51", dejaVuWith([](Bytes& b) { sfnt::putU16(b, 4, 51); }), ERR_TABLE_DIR},
      {"a file starting 'P' is no sfnt", Bytes(64, 'P'), ERR_NOT_A_TTF},
      {"two bytes can't be typed", Bytes(2, 0), ERR_VALIDATE_ARGS},
      {"a missing file", Bytes(), ERR_VALIDATE_ARGS},
  };
  testsupport::StrikeClient c;
  FS_ULONG start = FS_get_heap_used(&c.st);
  for (const auto& r : rows) {
    SCOPED_TRACE(r.why);
    std::string path = dir.file("font.ttf");
    unlink(path.c_str());
    if (!r.bytes.empty()) testsupport::writeFileBytes(path, r.bytes);
    c.st.error = 12345;
    EXPECT_EQ(FS_validate_font(&c.st, path.c_str(), nullptr, 0, 0, 0), r.error == 0);
    EXPECT_EQ(c.st.error, r.error);
    if (r.bytes.size() < 3) continue;
    // The same bytes in memory, at an offset.
    Bytes mem(16, 0);
    mem.insert(mem.end(), r.bytes.begin(), r.bytes.end());
    EXPECT_EQ(FS_validate_font(&c.st, nullptr, mem.data(), 0, 16, (FS_ULONG)r.bytes.size()),
              r.error == 0);
    EXPECT_EQ(c.st.error, r.error);
  }
  EXPECT_FALSE(FS_validate_font(&c.st, nullptr, nullptr, 0, 0, 0));
  EXPECT_EQ(c.st.error, (FS_ULONG)ERR_VALIDATE_ARGS) << "no source";
  EXPECT_EQ(FS_get_heap_used(&c.st), start);
}

TEST(FontValidation, LinkedFontsByTheirComponents) {
  using namespace testsupport;
  TempDir dir;
  dir.mkdir("sub");
  ASSERT_EQ(symlink(kDejaVu, dir.file("sub/DejaVuSans.ttf").c_str()), 0);
  Bytes sans = fileBytes(kDejaVu);
  ASSERT_FALSE(sans.empty());
  LttSpec relative = linkedSet();
  relative.components[1].keys[0] = "targetdirectory=./sub";
  LttSpec truncated = linkedSet();
  truncated.components[1].keys.erase(truncated.components[1].keys.begin());
  truncated.components[1].embedded = Bytes(sans.begin(), sans.begin() + sans.size() / 2);
  LttSpec missing = linkedSet();
  missing.components[1].keys[0] = "targetdirectory=./nowhere";
  const struct {
    const char* why;
    LttSpec spec;
    FS_ULONG error;
  } rows[] = {
      {"three packaged fonts by absolute folders", linkedSet(), 0},
      {"a component in a folder under the linked font's own", relative, 0},
      {"an embedded component cut in half: its tables pass the end", truncated, ERR_TABLE_DIR},
      {"a component file that isn't there", missing, ERR_VALIDATE_ARGS},
  };
  StrikeClient c;
  FS_ULONG start = FS_get_heap_used(&c.st);
  for (const auto& r : rows) {
    SCOPED_TRACE(r.why);
    std::string path = dir.file("set.ltt");
    Bytes bytes = r.spec.build();
    writeFileBytes(path, bytes);
    EXPECT_EQ(FS_validate_font(&c.st, path.c_str(), nullptr, 0, 0, 0), r.error == 0);
    EXPECT_EQ(c.st.error, r.error);
  }
  EXPECT_FALSE(FSS_validate_ltt(&c.st, dir.file("none.ltt").c_str(), nullptr));
  EXPECT_EQ(c.st.error, (FS_ULONG)ERR_FILE_OPEN);
  EXPECT_EQ(FS_get_heap_used(&c.st), start);
}

}  // namespace
