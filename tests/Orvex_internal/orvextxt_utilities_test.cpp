// Tests of the script interpreter's helpers: token readers over real script
// files, glyph sets, path substitution, the heap pre-scan and the tables.
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
  explicit Script(const std::string& text) : path(dir.file("s.scr")) {
    testsupport::writeBytes(path, text);
    fp = fopen(path.c_str(), "rb");
  }
  ~Script() { fclose(fp); }
};

// Captures one stream around `run`; which is 1 (stdout) or 2 (stderr).
template <typename Run>
std::string captured(int which, Run run) {
  which == 1 ? testing::internal::CaptureStdout()
             : testing::internal::CaptureStderr();
  run();
  fflush(stdout);
  return which == 1 ? testing::internal::GetCapturedStdout()
                    : testing::internal::GetCapturedStderr();
}

std::vector<FS_LONG> glyphList(const FS_LONG* g) {
  std::vector<FS_LONG> v;
  for (int i = 0; g[i] >= 0; i++) v.push_back(g[i]);
  return v;
}

// Readers: 's' get_string, 'S' GetString, 'c' get_command, 'r' get_remainder,
// 'g' one raw byte; each given a buffer of `size`.
TEST(ScriptTokens, ReadersSplitWordsAsTheScriptLanguageDoes) {
  typedef std::pair<char, const char*> Read;
  const struct { const char* text; int size; std::vector<Read> reads; const char* why; } rows[] = {
      {"  alpha\tbeta\r\n\n gamma", 16,
       {{'s', "alpha"}, {'s', "beta"}, {'s', "gamma"}, {'s', ""}},
       "blanks, tabs and line ends separate words; the end gives \"\""},
      {"abcdefghij next", 5, {{'s', "abcd"}, {'s', "efgh"}, {'s', "ij"}},
       "a long word is cut at the buffer and its rest reads next"},
      {"20-7f\"", 16, {{'S', "20"}, {'g', "-"}, {'S', "7f"}, {'g', "\""}},
       "GetString stops before a dash and a quote"},
      {"ppm#size 12 heapsize 5\n#\nnext # x\nlast", 256,
       {{'c', "ppm#size 12 heapsize 5"}, {'c', "#"}, {'c', "next"},
        {'c', "# x"}, {'c', "last"}},
       "a word holding '#' swallows the rest of its line only"},
      {" GRAYMAP | EDGE2 and more\nnext", 10, {{'r', " GRAYMAP "}, {'s', "next"}},
       "the remainder keeps what fits and consumes the line"},
  };
  for (const auto& row : rows) {
    Script s(row.text);
    for (const Read& r : row.reads) {
      std::vector<char> w(row.size, 'Z');
      switch (r.first) {
        case 's': get_string(s.fp, w.data(), row.size); break;
        case 'S': GetString(s.fp, w.data(), row.size); break;
        case 'c': get_command(s.fp, w.data(), row.size); break;
        case 'r': get_remainder(s.fp, w.data(), row.size); break;
        default: w[0] = (char)getc(s.fp), w[1] = 0;
      }
      EXPECT_STREQ(w.data(), r.second) << row.why;
    }
  }
  Script s("alpha");
  char w[16];
  EXPECT_EQ(get_string(s.fp, w, 16), 5);  // the word's length, then EOF
  EXPECT_EQ(get_string(s.fp, w, 16), EOF);
}

TEST(ScriptTokens, HexSwitchesAndRequestedTypes) {
  Script s("1fF oN off ONE");
  EXPECT_EQ(get_hex(s.fp), 0x1ff);
  for (int want : {1, 0, 0}) EXPECT_EQ(get_boolean(s.fp), want);
  // GRAYMAP 4 | EDGE2 512 | bitmap 1 = 517; unknown words add nothing.
  Script t("graymap|EDGE2 \t bitmap foo\nGRAYMAP8 EDGE8 EDGE\n");
  EXPECT_EQ(get_requested_type(t.fp), 517);
  EXPECT_EQ(get_requested_type(t.fp), 8 + 2048 + 1024);
}

TEST(ScriptTokens, QuotedNamesIncludeNamesAndTheirMessages) {
  Script s("\"Deja Vu\" nope \"open");
  char w[8];
  EXPECT_EQ(captured(2, [&] {
              EXPECT_EQ(get_font(s.fp, w, 8), 0);
              EXPECT_STREQ(w, "Deja Vu");
              EXPECT_EQ(get_client(s.fp, w, 8), 1);
              get_string(s.fp, w, 8);  // the unquoted word stays to be read
              EXPECT_STREQ(w, "nope");
              EXPECT_EQ(get_font(s.fp, w, 8), 1);  // no closing quote
              EXPECT_STREQ(w, "open");
            }),
            "*** get_client: expecting a \"\n*** get_font: expecting a \"\n");

  Script t("\"$ORVEX_ROOT/a.scr\" \"c.scr");
  char p[64];
  EXPECT_EQ(captured(2, [&] {
              EXPECT_EQ(get_include_file_name(t.fp, p, 64, "/root"), 0);
              EXPECT_STREQ(p, "/root/a.scr");
              EXPECT_EQ(get_include_file_name(t.fp, p, 64, "/root"), 1);
            }),
            "*** get_include_file_name: expecting \"\n");
}

TEST(OrvexRoot, EveryFormIsReplacedInPlaceUntilTheBufferIsFull) {
  const struct { size_t size; const char *path, *root; int result; const char *want, *printed; }
      rows[] = {
      {64, "$ORVEX_ROOT/x/$(ORVEX_ROOT)/$ORVEX_ROOT", "/r", 0, "/r/x//r//r", ""},
      // Each replacement adds one to 25: 26 and a terminator fit 27, 27 don't.
      {27, "$ORVEX_ROOT/a/$ORVEX_ROOT", "/abcdefghijk", 1,
       "/abcdefghijk/a/$ORVEX_ROOT",
       "Error substituting $ORVEX_ROOT in path: storage length exceeded"},
      {16, "$(ORVEX_ROOT)/b", "/0123456789abc", 1, "$(ORVEX_ROOT)/b",
       "Error substituting $(ORVEX_ROOT) in path: storage length exceeded"},
  };
  for (const auto& row : rows) {
    std::vector<char> p(row.size);
    strcpy(p.data(), row.path);
    EXPECT_EQ(captured(1, [&] {
                EXPECT_EQ(substitute_ORVEX_ROOT(p.data(), (int)row.size, row.root),
                          row.result);
              }),
              row.printed);
    EXPECT_STREQ(p.data(), row.want);
  }
}

TEST(GlyphSets, QuotedHexCodesAndInclusiveRanges) {
  const struct {
    const char* text;
    int count;
    std::vector<FS_LONG> codes;  // empty: only the ends are checked
    const char *next, *printed;  // next: the word the script is left at
  } rows[] = {
      {"\"41 61-63\t20 \n 7E-7e\" next", 6,
       {0x41, 0x61, 0x62, 0x63, 0x20, 0x7e}, "next", ""},
      // 0-FFFF is 65536 codes, exactly the room; the rest adds nothing.
      {"\"0-FFFF 10000-1FFFF 41\" after", 65536, {}, "after", ""},
      // No quote: a warning, nothing read, the list left as it was.
      {"41 42", 0, {0x30}, nullptr, "*** glyphset ... expecting a \"\n"},
      {"   \n", 1, {0}, "", ""},  // end of file: code 0
  };
  for (const auto& row : rows) {
    Script s(row.text);
    std::vector<FS_LONG> g(65538, 99);
    g[0] = 0x30, g[1] = -1;
    EXPECT_EQ(captured(2, [&] { EXPECT_EQ(get_glyphset(s.fp, g.data()), row.count); }),
              row.printed);
    if (!row.codes.empty()) {
      EXPECT_EQ(glyphList(g.data()), row.codes) << row.text;
    } else {
      EXPECT_EQ(g[0], 0);
      EXPECT_EQ(g[65535], 0xFFFF);
      EXPECT_EQ(g[65536], -1);
    }
    char w[8];
    get_string(s.fp, w, 8);
    if (row.next) { EXPECT_STREQ(w, row.next) << row.text; }
  }
  Script s("\"Ab c\" \"\"");  // string sets: each byte a code
  std::vector<FS_LONG> g(65538, 99);
  EXPECT_EQ(get_glyphset_string(s.fp, g.data(), 256), 4);
  EXPECT_EQ(glyphList(g.data()), (std::vector<FS_LONG>{'A', 'b', ' ', 'c'}));
  EXPECT_EQ(get_glyphset_string(s.fp, g.data(), 256), 0);
  EXPECT_EQ(g[0], -1);
}

TEST(GlyphSets, FileOfUtf16UnitsInEitherByteOrder) {
  testsupport::TempDir dir;
  const struct { std::string bytes; std::vector<FS_LONG> codes; } rows[] = {
      // BOM, 'A', CR, LF, U+00E9: CR and LF dropped.
      {std::string("\xFF\xFE\x41\0\x0D\0\x0A\0\xE9\0", 10), {0x41, 0xE9}},
      {std::string("\xFE\xFF\0\x41\0\x0A\x20\xAC", 8), {0x41, 0x20AC}},
  };
  std::vector<FS_LONG> g(65538, 99);
  for (const auto& row : rows) {
    testsupport::writeBytes(dir.file("set.txt"), row.bytes);
    EXPECT_EQ(get_glyphset_from_file(dir.file("set.txt").c_str(), g.data()), 2);
    EXPECT_EQ(glyphList(g.data()), row.codes);
  }
  EXPECT_EQ(captured(2, [&] {
              EXPECT_EQ(get_glyphset_from_file(dir.file("none").c_str(), g.data()), -1);
            }),
            "Error: Cannot open glyphset file '" + dir.file("none") + "'\n");
}

TEST(GlyphSets, AllMappedCodesOfARealFont) {
  FS_STATE st;
  ASSERT_EQ(FSS_init(&st, 5290000), 0);
  char name[256];
  ASSERT_EQ(FSS_load_font(&st, kDejaVu, nullptr, 0, 256, name), 0) << kDejaVu;
  ASSERT_EQ(FSS_set_font(&st, name), 0);
  std::vector<FS_LONG> g(65538, 99);
  // No (7,7) subtable: the set fails with 402, the walk at its first code.
  const FS_USHORT ucs4[2] = {7, 7};
  EXPECT_EQ(captured(2, [&] { EXPECT_EQ(get_glyphset_all(&st, ucs4, g.data()), 1); }),
            " Cannot set cmap for glyphset_all command, error = 402\n"
            " Error in glyphset_all setting ID = 1, error = 402\n");
  EXPECT_EQ(glyphList(g.data()), (std::vector<FS_LONG>{0}));

  const FS_USHORT uni[2] = {3, 1};
  int n = get_glyphset_all(&st, uni, g.data());
  EXPECT_GT(n, 3000);  // DejaVu Sans maps thousands of BMP codes
  EXPECT_EQ(g[0], 0);  // always first, whether mapped or not
  EXPECT_EQ(g[n], -1);
  for (int i = 1; i < n; i++) EXPECT_LT(g[i - 1], g[i]);
  FSS_exit(&st);
}

TEST(HeapPrescan, FirstHeapCommandWinsAndZeroMeansTheDefault) {
  const struct { const char* text; int heap, external; } rows[] = {
      {"path\nppm 12\n", 5290000, 0},
      {"# heapsize 99 in a comment\nheapsize 7000000\nheapsize 8\n", 7000000, 0},
      {"heapsize 0\nheapsize 9000000\n", 5290000, 0},
      {"font \"x\" external_heapsize 6000000\n", 6000000, 1},
  };
  testsupport::TempDir dir;
  std::string p = dir.file("h.scr");
  int ext = 0;
  for (const auto& row : rows) {
    testsupport::writeBytes(p, row.text);
    ext = 0;
    EXPECT_EQ(get_heapsize_only(p.c_str(), &ext), row.heap) << row.text;
    EXPECT_EQ(ext, row.external) << row.text;
  }
  std::string missing = dir.file("missing");
  EXPECT_EQ(captured(1, [&] { EXPECT_EQ(get_heapsize_only(missing.c_str(), &ext), 1); }),
            "unable to open '" + missing + "'\n");
  EXPECT_EQ(captured(2, [&] { EXPECT_EQ(get_heapsize_only(nullptr, &ext), 0); }),
            "*** get_heasize_from_sequence_file: bad file pointer\n");
}

TEST(NamedClientsDeathTest, ExternalHeapIsFatalInThisBuild) {
  EXPECT_EXIT(new_FS_STATE_and_FS_init(5290000, 1),
              testing::ExitedWithCode(255),
              "^Do not use external_heapsize command without FS_INT_MEM "
              "defined.\n$");
}

TEST(LoadedToRam, LoadsOnceAndRemembersFailures) {
  testsupport::TempDir dir;
  std::string p = dir.file("f.bin"), missing = dir.file("none");
  testsupport::writeBytes(p, "12345");
  LOADED_TO_RAM* loaded = nullptr;
  long size = 0;
  void* a = get_ram_address(&loaded, p.c_str(), &size);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(size, 5);
  EXPECT_EQ(memcmp(a, "12345", 5), 0);
  remove(p.c_str());  // the list answers without the file now
  EXPECT_EQ(get_ram_address(&loaded, p.c_str(), &size), a);
  EXPECT_EQ(size, 5);
  EXPECT_EQ(get_ram_address(&loaded, missing.c_str(), &size), nullptr);
  EXPECT_EQ(size, 0);
  free_loaded_to_ram(&loaded);
  EXPECT_EQ(loaded, nullptr);
}

// Every reader over mutated scripts with heap buffers of exact size (the
// sanitizer build catches an overrun), each run ending at end of file.
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
    for (int e = 0, edits = 1 + rng() % 6; e < edits; e++) {
      size_t at = t.empty() ? 0 : rng() % t.size();
      switch (rng() % 5) {
        case 0: t.resize(at); break;
        case 1: t.insert(at, std::string(1 + rng() % 400, 'x')); break;
        case 2: t.insert(at, "\""); break;
        case 3: t.insert(at, "#"); break;
        default: t.insert(at, std::string(1, (char)(rng() % 256))); break;
      }
    }
    testsupport::writeBytes(p, t);
    FILE* f = fopen(p.c_str(), "rb");
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
