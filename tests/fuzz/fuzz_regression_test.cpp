// The fuzzers' and the damaged-font campaign's findings, minimised, run
// through the same exercises as the fuzz targets (fuzz/fuzz_engine.h): each
// is refused with its error or drawn, never read or written outside its
// memory (the sanitizer build checks that). And fonts claiming enormous
// counts stay within a few times the engine's heap budget.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "Orvex_internal/fs_err.h"
#include "fuzz/delta_stream_font.h"
#include "fuzz/fuzz_engine.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"

namespace {

const char kDejaVuSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
const FS_USHORT kSizes[2] = {12, 72};

enum Exercise { INFO, CMAPS, GLYPHS, DELTAS };

FS_ULONG run(Exercise e, const sfnt::Bytes& b) {
  FS_USHORT ppem;
  sfnt::Bytes font;
  switch (e) {
    case INFO: return fuzz::fontInfo(b.data(), b.size());
    case CMAPS: return fuzz::characterMaps(b.data(), b.size());
    case DELTAS:  // the bytes as the delta-stream target takes them
      font = fuzz::deltaStreamFont(b.data(), b.size(), &ppem);
      return fuzz::glyphs(font.data(), font.size(), &ppem, 1, 0, 0, 'a');
    default: return fuzz::glyphs(b.data(), b.size(), kSizes, 2, 3, 36, 'g');
  }
}

TEST(FuzzFindings, EachMinimisedInputIsRefusedOrDrawnWithItsError) {
  struct Row {
    const char* file;  // under tests/data/fuzz/
    Exercise exercise;
    FS_ULONG error;
    const char* why;
  } rows[] = {
      {"two-bytes.ttf", INFO, ERR_NOT_A_TTF,
       "memory shorter than the 3 type bytes: refused before they are read"},
      {"two-bytes.ttf", GLYPHS, ERR_NOT_A_TTF, "the same through the glyph requests"},
      {"unconverted-directory.otf", INFO, ERR_TABLE_NOT_FOUND,
       "59 entries stay unconverted: a byte-reversed `CFF ` tag with a far offset "
       "found nothing instead of being read from memory unchecked"},
      {"far-points.deltas", DELTAS, ERR_BAD_GLYF_INDEX,
       "a stream's 512-pixel steps throw points 30,000 pixels apart: the arc "
       "length sums in 64 bits and the gray map, wider than 16 bits, is "
       "refused (201) instead of sweeping a negative width; the first error "
       "is the font's lack of an 'a'"},
  };
  for (const Row& r : rows) {
    std::string path = std::string(FONTVEC_TEST_DATA "/fuzz/") + r.file;
    sfnt::Bytes b = sfnt::asBytes(testsupport::readBytes(path));
    ASSERT_FALSE(b.empty()) << "missing " << path;
    EXPECT_EQ(run(r.exercise, b), r.error) << r.file << ": " << r.why;
  }
}

// Findings of whole runs, `fontvec FONT` with the shipped script or one of
// the findings': the error text the run ends with (a sanitizer's report
// would end the renderer instead).
TEST(FuzzFindings, WholeRunsEndWithTheirErrorText) {
  const std::string data = FONTVEC_TEST_DATA "/fuzz/";
  struct Row {
    std::string font;
    const char* script;  // under tests/data/fuzz/, null for the shipped one
    const char* text;
    const char* why;
  } rows[] = {
      {data + "huge-advances.ttf", nullptr, "Error=-1",
       "advances of 0xFFFF units carried the pen past 32767 pixels: it wraps"},
      {kDejaVuSans, "wide-bearing.scr", "Error=8",
       "'.' at 2000 pixels per em starts its ink 214 pixels right of its origin: "
       "the string's pen starts left of the page"},
      {kDejaVuSans, "far-moveto.scr", "Error=8",
       "moveto 444444444444444: the pen's 16.16 wraps (under clang's UBSan the "
       "product overflowed)"},
  };
  testsupport::TempDir dir;
  for (const Row& r : rows) {
    std::string args = r.font;
    if (r.script != nullptr) {
      testsupport::writeBytes(dir.file("Script.scr"), testsupport::readBytes(data + r.script));
      args += " --config " + dir.file("");
    }
    testsupport::ToolRun run = testsupport::runFontvec(args, dir.file("err"));
    EXPECT_EQ(run.status, 1) << r.font;
    EXPECT_EQ(testsupport::readBytes(dir.file("err")), r.font + ": " + r.text + "\n")
        << r.font << ": " << r.why;
  }
}

// DejaVu Sans with the 16-bit field at `field` of table `tag` set to `v`.
sfnt::Bytes claiming(const sfnt::Bytes& font, const char* tag, size_t field,
                     uint32_t v, bool wide = false) {
  sfnt::Bytes b = font;
  size_t at = sfnt::getU32(b, sfnt::entryOf(b, tag) + 8) + field;
  if (wide) sfnt::putU32(b, at, v);
  else sfnt::putU16(b, at, v);
  return b;
}

// The data segment the process may grow by (a few engine heap budgets),
// applied in a child so that the suite's own memory is not limited. The
// sanitizers reserve their shadow memory as data, so there the child runs
// unlimited and the sanitizer's own checks stand in.
bool withinBudget(Exercise e, const sfnt::Bytes& b, FS_ULONG* error) {
  int fds[2];
  if (pipe(fds) != 0) return false;
  pid_t pid = fork();
  if (pid == 0) {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    long dataKb = 0;
    FILE* f = fopen("/proc/self/status", "r");
    char line[256];
    while (f != NULL && fgets(line, sizeof line, f))
      if (sscanf(line, "VmData: %ld", &dataKb) == 1) break;
    if (f != NULL) fclose(f);
    struct rlimit lim;
    lim.rlim_cur = lim.rlim_max = (rlim_t)dataKb * 1024 + 4 * (rlim_t)fuzz::kHeap;
    setrlimit(RLIMIT_DATA, &lim);
#endif
    FS_ULONG e2 = run(e, b);
    ssize_t w = write(fds[1], &e2, sizeof e2);
    _exit(w == (ssize_t)sizeof e2 ? 0 : 1);
  }
  close(fds[1]);
  bool got = read(fds[0], error, sizeof *error) == (ssize_t)sizeof *error;
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  return got && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(FuzzFindings, EnormousClaimsStayWithinAFewHeapBudgets) {
  sfnt::Bytes font = sfnt::asBytes(testsupport::readBytes(kDejaVuSans));
  ASSERT_FALSE(font.empty()) << "missing " << kDejaVuSans;
  // Each claim is drawn (0) within the budget, or refused by its error.
  struct Row {
    sfnt::Bytes bytes;
    Exercise exercise;
    FS_ULONG error;
    const char* why;
  } rows[] = {
      {claiming(font, "maxp", 4, 0xFFFF), GLYPHS, 0, "65535 glyphs claimed"},
      {claiming(font, "maxp", 6, 0xFFFF), GLYPHS, 0, "65535 points a glyph"},
      {claiming(font, "maxp", 16, 0xFFFF), GLYPHS, 0, "65535 twilight points"},
      {claiming(font, "maxp", 18, 0xFFFF), GLYPHS, 0, "65535 storage places"},
      {claiming(font, "maxp", 20, 0xFFFF), GLYPHS, 0, "65535 function definitions"},
      {claiming(font, "maxp", 24, 0xFFFF), GLYPHS, 0, "65535 stack elements"},
      {claiming(font, "cmap", 2, 0xFFFF), CMAPS, ERR_UNICODE_CMAP_NEEDED,
       "65535 encoding records: the records beyond the table are none"},
      {claiming(font, "loca", 16, 0x7FFFFFFF, true), GLYPHS, 0,
       "glyph 3 ending 2 GiB on: cut at the table's end"},
  };
  for (const Row& r : rows) {
    FS_ULONG error = 0;
    EXPECT_TRUE(withinBudget(r.exercise, r.bytes, &error)) << r.why;
    EXPECT_EQ(error, r.error) << r.why;
  }
}

}  // namespace
