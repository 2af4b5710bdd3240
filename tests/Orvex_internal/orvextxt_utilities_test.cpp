// Tests of the script interpreter's helpers: token readers over real script
// files, glyph sets, path substitution, the heap pre-scan, the client list,
// fonts in memory, the scale matrix and the res table; and a fuzz-style run
// of every reader over mutated scripts with buffers of exact size.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/orvextxt_utilities.h"
#include "support/test_support.h"

namespace {

const char* kDejaVu = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// A script file in a temporary folder, open for reading.
struct Script {
  testsupport::TempDir dir;
  std::string path;
  FILE* fp = nullptr;
  explicit Script(const std::string& text) {
    path = dir.file("s.scr");
    FILE* w = fopen(path.c_str(), "wb");
    fwrite(text.data(), 1, text.size(), w);
    fclose(w);
    fp = fopen(path.c_str(), "rb");
  }
  ~Script() {
    if (fp) fclose(fp);
  }
};

TEST(ScriptTokens, WordsSplitOnBlanksTabsAndLineEnds) {
  Script s("  alpha\tbeta\r\n\n gamma");
  char w[16];
  EXPECT_EQ(get_string(s.fp, w, 16), 5);
  EXPECT_STREQ(w, "alpha");
  get_string(s.fp, w, 16);
  EXPECT_STREQ(w, "beta");
  get_string(s.fp, w, 16);
  EXPECT_STREQ(w, "gamma");
  EXPECT_EQ(get_string(s.fp, w, 16), EOF);
  EXPECT_STREQ(w, "");
}

TEST(ScriptTokens, LongWordIsCutAtTheBufferAndItsRestReadsNext) {
  Script s("abcdefghij next");
  char w[5];
  get_string(s.fp, w, 5);
  EXPECT_STREQ(w, "abcd");
  get_string(s.fp, w, 5);
  EXPECT_STREQ(w, "efgh");
  get_string(s.fp, w, 5);
  EXPECT_STREQ(w, "ij");
}

TEST(ScriptTokens, GetStringStopsBeforeDashAndQuote) {
  Script s("20-7f\"");
  char w[16];
  GetString(s.fp, w, 16);
  EXPECT_STREQ(w, "20");
  EXPECT_EQ(getc(s.fp), '-');
  GetString(s.fp, w, 16);
  EXPECT_STREQ(w, "7f");
  EXPECT_EQ(getc(s.fp), '"');
}

TEST(ScriptTokens, CommentWordSwallowsTheRestOfItsLineOnly) {
  Script s("ppm#size 12 heapsize 5\n#\nnext # x\nlast");
  char w[256];
  get_command(s.fp, w, 256);
  EXPECT_STREQ(w, "ppm#size 12 heapsize 5");
  get_command(s.fp, w, 256);
  EXPECT_STREQ(w, "#");
  get_command(s.fp, w, 256);
  EXPECT_STREQ(w, "next");
  get_command(s.fp, w, 256);
  EXPECT_STREQ(w, "# x");
  get_command(s.fp, w, 256);
  EXPECT_STREQ(w, "last");
}

TEST(ScriptTokens, RemainderKeepsWhatFitsAndConsumesTheLine) {
  Script s(" GRAYMAP | EDGE2 and more\nnext");
  char w[10];
  get_remainder(s.fp, w, 10);
  EXPECT_STREQ(w, " GRAYMAP ");
  get_string(s.fp, w, 10);
  EXPECT_STREQ(w, "next");
}

TEST(ScriptTokens, NumbersAndSwitches) {
  Script s("42 -3.5 1fF on ON oN off ONE O");
  EXPECT_EQ(get_int(s.fp), 42);
  EXPECT_DOUBLE_EQ(get_double(s.fp), -3.5);
  EXPECT_EQ(get_hex(s.fp), 0x1ff);
  EXPECT_EQ(get_boolean(s.fp), 1);
  EXPECT_EQ(get_boolean(s.fp), 1);
  EXPECT_EQ(get_boolean(s.fp), 1);
  EXPECT_EQ(get_boolean(s.fp), 0);
  EXPECT_EQ(get_boolean(s.fp), 0);
  EXPECT_EQ(get_boolean(s.fp), 0);
}

TEST(ScriptTokens, QuotedNamesAndTheirMessages) {
  Script s("\"Deja Vu\" nope \"open");
  char w[8];
  testing::internal::CaptureStderr();
  EXPECT_EQ(get_font(s.fp, w, 8), 0);
  EXPECT_STREQ(w, "Deja Vu");
  EXPECT_EQ(get_client(s.fp, w, 8), 1);
  get_string(s.fp, w, 8);  // the word without quotes stays for the next read
  EXPECT_STREQ(w, "nope");
  EXPECT_EQ(get_font(s.fp, w, 8), 1);  // no closing quote before the end
  EXPECT_STREQ(w, "open");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "*** get_client: expecting a \"\n*** get_font: expecting a \"\n");
}

TEST(ScriptTokens, IncludeNameMessagesAndRootSubstitution) {
  Script s("\"$ORVEX_ROOT/a.scr\" b.scr \"c.scr");
  char w[64];
  testing::internal::CaptureStderr();
  EXPECT_EQ(get_include_file_name(s.fp, w, 64, "/root"), 0);
  EXPECT_STREQ(w, "/root/a.scr");
  EXPECT_EQ(get_include_file_name(s.fp, w, 64, "/root"), 1);
  get_string(s.fp, w, 64);
  EXPECT_EQ(get_include_file_name(s.fp, w, 64, "/root"), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "*** get_include_file_name: expecting a \"\n"
            "*** get_include_file_name: expecting \"\n");
}

TEST(ScriptTokens, RequestedTypeIsTheOrOfItsWords) {
  // GRAYMAP 4 | EDGE2 512 | bitmap 1 = 517; unknown words add nothing.
  Script s("graymap|EDGE2 \t bitmap foo\nGRAYMAP8 EDGE8 EDGE\n");
  EXPECT_EQ(get_requested_type(s.fp), 517);
  EXPECT_EQ(get_requested_type(s.fp), 8 + 2048 + 1024);
}

TEST(OrvexRoot, EveryFormIsReplacedInPlace) {
  char p[64] = "$ORVEX_ROOT/x/$(ORVEX_ROOT)/$ORVEX_ROOT";
  EXPECT_EQ(substitute_ORVEX_ROOT(p, 64, "/r"), 0);
  EXPECT_STREQ(p, "/r/x//r//r");
}

TEST(OrvexRoot, OverrunPrintsAndLeavesTheRest) {
  // "$ORVEX_ROOT/a/$ORVEX_ROOT" is 25 letters; each replacement by the 12
  // of the root adds one. The first gives 26 and a terminator, which fits a
  // buffer of 27; the second (27 and a terminator) does not.
  char p[27] = "$ORVEX_ROOT/a/$ORVEX_ROOT";
  testing::internal::CaptureStdout();
  EXPECT_EQ(substitute_ORVEX_ROOT(p, 27, "/abcdefghijk"), 1);
  fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Error substituting $ORVEX_ROOT in path: storage length exceeded");
  EXPECT_STREQ(p, "/abcdefghijk/a/$ORVEX_ROOT");

  char q[16] = "$(ORVEX_ROOT)/b";
  testing::internal::CaptureStdout();
  EXPECT_EQ(substitute_ORVEX_ROOT(q, 16, "/0123456789abc"), 1);
  fflush(stdout);
  EXPECT_EQ(
      testing::internal::GetCapturedStdout(),
      "Error substituting $(ORVEX_ROOT) in path: storage length exceeded");
  EXPECT_STREQ(q, "$(ORVEX_ROOT)/b");
}

TEST(OrvexRoot, PathWordKeepsTheRawWordToo) {
  Script s("$ORVEX_ROOT/set.txt rest");
  char path[64], sub[64];
  get_path(s.fp, path, 64, "/fonts", sub);
  EXPECT_STREQ(sub, "$ORVEX_ROOT/set.txt");
  EXPECT_STREQ(path, "/fonts/set.txt");
}

std::vector<FS_LONG> glyphList(const FS_LONG* g) {
  std::vector<FS_LONG> v;
  for (int i = 0; g[i] >= 0; i++) v.push_back(g[i]);
  return v;
}

TEST(GlyphSets, HexCodesAndInclusiveRanges) {
  Script s("\"41 61-63\t20 \n 7E-7e\" next");
  std::vector<FS_LONG> g(65538, 99);
  EXPECT_EQ(get_glyphset(s.fp, g.data()), 6);
  EXPECT_EQ(glyphList(g.data()),
            (std::vector<FS_LONG>{0x41, 0x61, 0x62, 0x63, 0x20, 0x7e}));
  EXPECT_EQ(g[6], -1);
  char w[8];
  get_string(s.fp, w, 8);
  EXPECT_STREQ(w, "next");
}

TEST(GlyphSets, CutAt65536CodesAndTheScriptStaysInStep) {
  // 0-FFFF is 65536 codes, exactly the room; the 10FFFF range after it and
  // 41 add nothing.
  Script s("\"0-FFFF 10000-1FFFF 41\" after");
  std::vector<FS_LONG> g(65538, 99);
  EXPECT_EQ(get_glyphset(s.fp, g.data()), 65536);
  EXPECT_EQ(g[0], 0);
  EXPECT_EQ(g[65535], 0xFFFF);
  EXPECT_EQ(g[65536], -1);
  char w[8];
  get_string(s.fp, w, 8);
  EXPECT_STREQ(w, "after");
}

TEST(GlyphSets, MissingQuoteWarnsAndEndOfFileGivesCodeZero) {
  Script s("41 42");
  std::vector<FS_LONG> g(65538, 7);
  g[0] = 0x30;
  g[1] = -1;
  testing::internal::CaptureStderr();
  EXPECT_EQ(get_glyphset(s.fp, g.data()), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "*** glyphset ... expecting a \"\n");
  EXPECT_EQ(glyphList(g.data()), (std::vector<FS_LONG>{0x30}));  // untouched

  Script e("   \n");
  EXPECT_EQ(get_glyphset(e.fp, g.data()), 1);
  EXPECT_EQ(glyphList(g.data()), (std::vector<FS_LONG>{0}));
}

TEST(GlyphSets, StringBytesBecomeCodes) {
  Script s("\"Ab c\" \"\"");
  std::vector<FS_LONG> g(65538, 99);
  EXPECT_EQ(get_glyphset_string(s.fp, g.data(), 256), 4);
  EXPECT_EQ(glyphList(g.data()), (std::vector<FS_LONG>{'A', 'b', ' ', 'c'}));
  EXPECT_EQ(get_glyphset_string(s.fp, g.data(), 256), 0);
  EXPECT_EQ(g[0], -1);
}

TEST(GlyphSets, FileOfUtf16UnitsInEitherByteOrder) {
  testsupport::TempDir dir;
  std::string le = dir.file("le.txt"), be = dir.file("be.txt");
  // BOM, 'A', CR, LF, U+00E9: CR and LF dropped.
  const unsigned char l[] = {0xFF, 0xFE, 0x41, 0, 0x0D, 0, 0x0A, 0, 0xE9, 0};
  const unsigned char b[] = {0xFE, 0xFF, 0, 0x41, 0, 0x0A, 0x20, 0xAC};
  FILE* f = fopen(le.c_str(), "wb");
  fwrite(l, 1, sizeof l, f);
  fclose(f);
  f = fopen(be.c_str(), "wb");
  fwrite(b, 1, sizeof b, f);
  fclose(f);
  std::vector<FS_LONG> g(65538, 99);
  EXPECT_EQ(get_glyphset_from_file(le.c_str(), g.data()), 2);
  EXPECT_EQ(glyphList(g.data()), (std::vector<FS_LONG>{0x41, 0xE9}));
  EXPECT_EQ(get_glyphset_from_file(be.c_str(), g.data()), 2);
  EXPECT_EQ(glyphList(g.data()), (std::vector<FS_LONG>{0x41, 0x20AC}));

  testing::internal::CaptureStderr();
  EXPECT_EQ(get_glyphset_from_file(dir.file("none").c_str(), g.data()), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Error: Cannot open glyphset file '" + dir.file("none") + "'\n");
}

TEST(GlyphSets, AllMappedCodesOfARealFont) {
  FS_STATE st;
  ASSERT_EQ(FSS_init(&st, 5290000), 0);
  char name[256];
  ASSERT_EQ(FSS_load_font(&st, kDejaVu, nullptr, 0, 256, name), 0);
  ASSERT_EQ(FSS_set_font(&st, name), 0);
  std::vector<FS_LONG> g(65538, 99);

  // No font has a (7,7) subtable: the set fails with 402 and the
  // walk ends at its first code on the same error.
  const FS_USHORT ucs4[2] = {7, 7};
  testing::internal::CaptureStderr();
  EXPECT_EQ(get_glyphset_all(&st, ucs4, g.data()), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            " Cannot set cmap for glyphset_all command, error = 402\n"
            " Error in glyphset_all setting ID = 1, error = 402\n");
  EXPECT_EQ(glyphList(g.data()), (std::vector<FS_LONG>{0}));

  const FS_USHORT uni[2] = {3, 1};
  int n = get_glyphset_all(&st, uni, g.data());
  EXPECT_GT(n, 3000);  // DejaVu Sans maps thousands of BMP codes
  EXPECT_EQ(g[0], 0);  // always first, whether mapped or not
  EXPECT_EQ(g[n], -1);
  bool hasA = false, hasFFFF = false;
  for (int i = 1; i < n; i++) {
    EXPECT_LT(g[i - 1], g[i]);
    hasA |= g[i] == 'A';
    hasFFFF |= g[i] == 0xFFFF;
  }
  EXPECT_TRUE(hasA);
  EXPECT_FALSE(hasFFFF);
  FSS_exit(&st);
}

TEST(HeapPrescan, FirstHeapCommandWinsAndZeroMeansTheDefault) {
  testsupport::TempDir dir;
  auto run = [&](const std::string& text, int* ext) {
    std::string p = dir.file("h.scr");
    FILE* f = fopen(p.c_str(), "w");
    fputs(text.c_str(), f);
    fclose(f);
    return get_heapsize_only(p.c_str(), ext);
  };
  int ext = 0;
  EXPECT_EQ(run("path\nppm 12\n", &ext), 5290000);
  EXPECT_EQ(run("# heapsize 99 in a comment\nheapsize 7000000\nheapsize 8\n",
                &ext),
            7000000);
  EXPECT_EQ(ext, 0);
  EXPECT_EQ(run("heapsize 0\nheapsize 9000000\n", &ext), 5290000);
  EXPECT_EQ(run("font \"x\" external_heapsize 6000000\n", &ext), 6000000);
  EXPECT_EQ(ext, 1);

  testing::internal::CaptureStdout();
  EXPECT_EQ(get_heapsize_only(dir.file("missing").c_str(), &ext), 1);
  fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "unable to open '" + dir.file("missing") + "'\n");
  testing::internal::CaptureStderr();
  EXPECT_EQ(get_heapsize_only(nullptr, &ext), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "*** get_heasize_from_sequence_file: bad file pointer\n");
}

TEST(NamedClients, AppendFindAndRemove) {
  NAMED_STATE* states = new_named_state("NONE", nullptr, 0);
  NAMED_STATE* currns = states;
  FS_LONG err = 0;
  FS_STATE* sp = nullptr;
  testing::internal::CaptureStdout();
  err = init_and_set_DEFAULT_client(&sp, states, &currns, 5290000, 0, 2,
                                    nullptr);
  fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(err, 0);
  ASSERT_NE(sp, nullptr);
  EXPECT_STREQ(currns->name, "DEFAULT");
  EXPECT_EQ(currns->ismaster, 1);
  EXPECT_EQ(states->next, currns);
  append_named_state(states, "A", nullptr, 0);
  append_named_state(states, "A", nullptr, 0);
  EXPECT_EQ(find_named_state(states, "A"), states->next->next);
  EXPECT_EQ(find_named_state(states, "a"), nullptr);
  EXPECT_EQ(find_named_state(states, "NONE"), states);
  FSS_exit(sp);
  remove_named_states(&states, &currns);  // frees the DEFAULT block
  EXPECT_EQ(states, nullptr);
  EXPECT_EQ(currns, nullptr);
}

TEST(NamedClientsDeathTest, ExternalHeapIsFatalInThisBuild) {
  EXPECT_EXIT(new_FS_STATE_and_FS_init(5290000, 1),
              testing::ExitedWithCode(255),
              "^Do not use external_heapsize command without FS_INT_MEM "
              "defined.\n$");
}

TEST(LoadedToRam, LoadsOnceAndRemembersFailures) {
  testsupport::TempDir dir;
  std::string p = dir.file("f.bin");
  FILE* f = fopen(p.c_str(), "wb");
  fputs("12345", f);
  fclose(f);
  LOADED_TO_RAM* loaded = nullptr;
  long size = 0;
  void* a = get_ram_address(&loaded, p.c_str(), &size);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(size, 5);
  EXPECT_EQ(memcmp(a, "12345", 5), 0);
  remove(p.c_str());  // the list answers without the file now
  EXPECT_EQ(get_ram_address(&loaded, p.c_str(), &size), a);
  EXPECT_EQ(size, 5);
  std::string missing = dir.file("none");
  EXPECT_EQ(get_ram_address(&loaded, missing.c_str(), &size), nullptr);
  EXPECT_EQ(size, 0);
  ASSERT_NE(loaded, nullptr);
  EXPECT_STREQ(loaded->path, missing.c_str());  // newest first, kept
  EXPECT_EQ(loaded->addr, nullptr);
  free_loaded_to_ram(&loaded);
  EXPECT_EQ(loaded, nullptr);
}

TEST(Timers, CountersResetAndReportLines) {
  TIMER t;
  initTimer(&t);
  enableTimer(&t);
  EXPECT_EQ(t.isOn, 1);
  t.nglyphs = 3;
  t.npixels = 300;
  disableTimer(&t);
  t.duration = CLOCKS_PER_SEC;  // one second: 3 glyphs and 300 pixels a second
  testing::internal::CaptureStdout();
  reportTimer(&t);
  fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "%% Glyphs retrieved:  3\n%% Glyphs per second: 3.000000\n"
            "%% Pixels per second: 300.000000\n");
  resetTimer(&t);
  EXPECT_EQ(t.duration, 0u);
  EXPECT_EQ(t.nglyphs, 0);
  EXPECT_EQ(t.npixels, 0);
}

TEST(ScaleMatrix, SizeSkewAndRotationIn16Dot16) {
  FS_FIXED m[4];
  calc_matrix(12, 24, 0, 0, m);
  EXPECT_EQ(m[0], 12 << 16);
  EXPECT_EQ(m[1], 0);
  EXPECT_EQ(m[2], 0);
  EXPECT_EQ(m[3], 24 << 16);
  // skew 45: s01 = 24 * tan(45) = 24 (tan gives 0.9999999999999999).
  calc_matrix(12, 24, 0, 45, m);
  EXPECT_EQ(m[1], 24 << 16);
  // rot 90 of diag(12, 24): [cos -sin; sin cos] x S = [0 -24; 12 0]. The
  // +0.5 of -24 * 65536 gives -1572863.5, which int() cuts toward zero; the
  // cos(90) residue (6e-17 of a pixel) vanishes in the 0 entries.
  calc_matrix(12, 24, 90, 0, m);
  EXPECT_EQ(m[0], 0);
  EXPECT_EQ(m[1], -1572863);
  EXPECT_EQ(m[2], 12 << 16);
  EXPECT_EQ(m[3], 0);
}

TEST(ResTable, KnownResolutionsAndTheKeptOddEntries) {
  const int res[] = {600, 300, 200, 150, 100, 75, 72, 36};
  const double mag[] = {0.12, 0.24, 0.38, 0.48, 0.76, 0.96, 1.0, 2.0};
  for (int i = 0; i < 8; i++) {
    double m = -1;
    EXPECT_EQ(res_to_mag(res[i], &m), 1);
    EXPECT_DOUBLE_EQ(m, mag[i]) << res[i];
  }
  double m = 5.0;
  EXPECT_EQ(res_to_mag(96, &m), 0);
  EXPECT_EQ(m, 5.0);
}

// Mutations of a script: truncations, long words, stray and unterminated
// quotes, comment marks. Every reader runs over each with buffers of the
// exact size it is given (on the heap, so the sanitizer build catches an
// overrun), and must end at end of file.
TEST(ScriptTokensFuzz, NoReaderOverrunsOnMutatedScripts) {
  const std::string base =
      "heapsize 6000000\n# comment \"open\n-font \"DejaVu Sans\"\n"
      "glyphset \"41-5A 61 62-\"\nshow_type GRAYMAP|EDGE8\n"
      "include \"$ORVEX_ROOT/x.scr\"\nppm 12 rot -3.5 effects outline\n";
  std::mt19937 rng(1234);
  testsupport::TempDir dir;
  std::string p = dir.file("fuzz.scr");
  for (int round = 0; round < 300; round++) {
    std::string t = base;
    int edits = 1 + rng() % 6;
    for (int e = 0; e < edits; e++) {
      size_t at = t.empty() ? 0 : rng() % t.size();
      switch (rng() % 5) {
        case 0: t.resize(at); break;
        case 1: t.insert(at, std::string(1 + rng() % 400, 'x')); break;
        case 2: t.insert(at, "\""); break;
        case 3: t.insert(at, "#"); break;
        default: t.insert(at, std::string(1, (char)(rng() % 256))); break;
      }
    }
    FILE* f = fopen(p.c_str(), "wb");
    fwrite(t.data(), 1, t.size(), f);
    fclose(f);
    f = fopen(p.c_str(), "rb");
    std::vector<FS_LONG> glyphs(65538);
    int steps = 0;
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    while (dlb(f) != EOF && steps++ < 10000) {
      int len = 1 + rng() % 20;
      std::vector<char> buf(len, 'Z');
      char sub[24];
      int which = rng() % 11;
      switch (which) {
        case 0: get_string(f, buf.data(), len); break;
        case 1: GetString(f, buf.data(), len); break;
        case 2: get_remainder(f, buf.data(), len); break;
        case 3: get_command(f, buf.data(), len); break;
        case 4: get_font(f, buf.data(), len); break;
        case 5: get_include_file_name(f, buf.data(), len, "/a/long/root"); break;
        case 6: get_path(f, buf.data(), len, "/r", sub); break;
        case 7: get_glyphset(f, glyphs.data()); break;
        case 8: get_requested_type(f); break;
        case 9: get_hex(f); break;
        default: get_glyphset_string(f, glyphs.data(), len); break;
      }
      if (which <= 6) {  // the string readers leave a terminator in bounds
        EXPECT_NE(memchr(buf.data(), 0, len), nullptr) << which;
      }
    }
    fflush(stdout);
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    EXPECT_LT(steps, 10000) << "reader made no progress on round " << round;
    fclose(f);
  }
}

}  // namespace
