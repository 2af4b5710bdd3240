// Tests of the script interpreter: real scripts run by OrvexTxt against
// DejaVu Sans on a real engine client; their effects, pages and messages.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/orvextxt.h"
#include "image_operations/image_access.h"
#include "support/test_support.h"

namespace {

const char* kDejaVu = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
#define UNKNOWN_FONT "The function <FS_set_font> returned 301\n"

// One run as the driver sets it up ("NONE" head, "DEFAULT" current) in a
// temporary font folder "@" stands for; streams captured unless it is fatal.
struct ScriptHost {
  testsupport::TempDir dir;
  std::string images = dir.mkdir("Images");
  NAMED_STATE* states = nullptr;
  NAMED_STATE* currns = nullptr;
  FS_STATE* sp = nullptr;
  std::string out, err;

  void write(const std::string& name, const std::string& text) {
    testsupport::writeBytes(dir.file(name), text);
  }
  void start(FS_LONG heap = 5290000) {
    snprintf(ImagePath, sizeof ImagePath, "%s", dir.path().c_str());
    ImageCount = 0;
    states = currns = new_named_state("NONE", nullptr, 0);
    init_and_set_DEFAULT_client(&sp, states, &currns, heap, 0, DISPLAY_NONE, nullptr);
  }
  void script(const std::string& text, FS_USHORT display = DISPLAY_NONE,
              FILE* psFp = nullptr, bool capture = true) {
    if (states == nullptr) start();
    std::string t = text;
    for (size_t at; (at = t.find('@')) != std::string::npos;) t.replace(at, 1, dir.path());
    write("main.scr", t);
    std::string path = dir.file("main.scr"), page = image("font.png");
    FILE* fp = fopen(path.c_str(), "r");
    err_FD = 0;
    if (capture) testing::internal::CaptureStdout(), testing::internal::CaptureStderr();
    OrvexTxt(fp, path.c_str(), 0, display, page.c_str(), psFp, sp, states, currns,
             dir.path().c_str(), 0, 0, kDejaVu, 0);
    if (capture) {
      fflush(stdout);
      err = testing::internal::GetCapturedStderr();
      out = testing::internal::GetCapturedStdout();
    }
    fclose(fp);
  }
  NAMED_STATE* entry(const char* name) { return find_named_state(states, name); }
  std::string image(const std::string& name) { return images + "/" + name; }
  bool exists(const std::string& name) { return access(image(name).c_str(), F_OK) == 0; }

  ~ScriptHost() {
    // Children newest first (a later one may be a grandchild), then the roots.
    std::vector<NAMED_STATE*> children;
    for (NAMED_STATE* e = states; e != nullptr; e = e->next)
      if (!e->ismaster && e->state != nullptr) children.push_back(e);
    for (auto it = children.rbegin(); it != children.rend(); ++it) FSS_end_client((*it)->state);
    for (NAMED_STATE* e = states; e != nullptr; e = e->next)
      if (e->ismaster && e->state != nullptr) FSS_exit(e->state);
    remove_named_states(&states, &currns);
    ImagePath[0] = 0;
    ImageCount = 0;
  }
};

// What a script prints and leaves in err_FD (nullptr, -1: not pinned).
struct RunRow {
  const char *script, *out, *err;
  int errFD;
  const char* why;
  FS_USHORT display = DISPLAY_NONE;
  const char* inner = nullptr;  // written beside the script as inner.scr
};

TEST(ScriptRun, MessagesAndErrorCodeOfWholeScripts) {
  const RunRow rows[] = {
      {"# -font \"nope\"\nbanana 12 \"x\"\nppm#comment -font \"a\"\n", "", "", 0,
       "unknown words and comments fall away"},
      {"font \"nope\"\nfont \"never\"\n", UNKNOWN_FONT, "", 301,
       "an engine error ends the run: the second font never ran"},
      {"path\n-font \"nope\"\nfont \"DejaVu Sans\"\nfont \"gone\"\nfont \"never\"\n",
       UNKNOWN_FONT UNKNOWN_FONT, "", 301, "'-' lets one command's error pass, not the next's"},
      {"continue_on_error ON\nfont \"a\"\nremove_font \"b\"\npath\nfont \"DejaVu Sans\"\n"
       "continue_on_error off\nfont \"c\"\nfont \"d\"\n",
       UNKNOWN_FONT "The function <FS_delete_font> returned 301\n" UNKNOWN_FONT, "", 301,
       "continue_on_error goes on until it is turned off"},
      {"continue_on_error ON\nfont \"a\"\npath\n", UNKNOWN_FONT, "", 301,
       "a later success keeps the last failure"},
      {"repeat_start 0\n-font \"x\"\nrepeat_end\n", UNKNOWN_FONT, "", -1,
       "repeat_start n runs the body n + 1 times: once for 0"},
      {"repeat_start 2\n-font \"x\"\nrepeat_end\n-font \"y\"\n",
       UNKNOWN_FONT UNKNOWN_FONT UNKNOWN_FONT UNKNOWN_FONT, "", -1,
       "three times for 2, then the command after the loop"},
      {"repeat_start 3\n-font \"x\"\n", UNKNOWN_FONT,
       "End of script reached without matching repeat_end command. Check Script...\n", -1,
       "an open repeat_start is reported at the end"},
      {"path\ninclude \"@/inner.scr\"\nfont \"c\"\nfont \"d\"\n",
       UNKNOWN_FONT UNKNOWN_FONT UNKNOWN_FONT, nullptr, 301,
       "an included run keeps its own error handling: a and b pass, c ends the run",
       DISPLAY_NONE, "continue_on_error ON\nfont \"a\"\nfont \"b\"\n"},
      {"newclient \"P\" 1000000\nclient \"P\"\nnewclient \"C\" 1000\n-endclient\n",
       "The function <FS_end_client> returned 508\n", nullptr, 508,
       "a parent with children is not ended"},
      {"res 123\nres 300\n", nullptr, " bad resolution 123\n", -1,
       "an unknown resolution is reported and ignored"},
      {"fiab\neffects add_weight\nexternal_heapsize 10\npng_color_type GREY\n"
       "png_color_type GRAY\nforeground_color 1 2 3\n",
       " The command effects add_weight is no longer supported\n"
       "%% The function <external_heapsize> is only valid for builds with FS_INT_MEM defined\n",
       " FIAB no longer supported\n"
       "The function <external_heapsize> is only valid for builds with FS_INT_MEM defined\n"
       "INVALID PNG output image color type: GREY\n"
       "WARNING: foreground_color command only applies to color PNG output images\n",
       -1, "retired commands and warnings, each on its stream"},
      {"page\npng_color_type COLOR\n", nullptr,
       "WARNING: PNG image was already created before png_color_type command\n", -1,
       "the colour type comes too late once a page is open", DISPLAY_PNG},
      {"path\navailable_fonts ANY ANY\nglyphset_all\n", "", "", 0,
       "the font list is walked and freed"},
      {"ppm 12\nshow_gray\n", "The function <FS_set_scale> returned 305\n",
       " no current font\n", 305,
       "without a font the scale fails after the warning"},
      {"validate /usr/share/fonts/opentype/terminus/terminus-normal.otb 0 0\n",
       "The function <FS_validate_font> returned 448\n", "", 448,
       "validation reports the loader's refusal: Terminus's empty glyf sits on its name"},
      {"validate /usr/share/fonts/truetype/dejavu/DejaVuSans.ttf 0 0\n", "", "", 0,
       "a valid font reports nothing"},
      {"path\nppm 24\nglyphset_string \"\"\n-show_fake\n", "", nullptr, 402,
       "an empty string set makes the measuring pass fail"},
  };
  for (const RunRow& row : rows) {
    ScriptHost r;
    if (row.inner) r.write("inner.scr", row.inner);
    r.script(row.script, row.display);
    if (row.out) { EXPECT_EQ(r.out, row.out) << row.why; }
    if (row.err) { EXPECT_EQ(r.err, row.err) << row.why; }
    if (row.errFD >= 0) { EXPECT_EQ(err_FD, row.errFD) << row.why; }
  }
}

// Scripts that end the process (exit 255) with their message on stderr.
TEST(ScriptRunDeathTest, ScriptFaultsEndTheProcessWithTheirMessage) {
  // message: a regular expression over stderr
  const struct { const char *script, *message; FS_USHORT display = DISPLAY_NONE; } rows[] = {
      {"repeat_start 1\nrepeat_start 1\n",
       "Nesting repeat_start commands is not supported! Check script...\n"},
      {"include inner.scr\n", "\\*\\*\\* get_include_file_name: expecting a \"\n"
                              "Malformed include statement check script...\n"},
      {"include \"@/none.scr\"\n", ""},
      {"newclient \"A\" 1000\nnewclient \"A\" 1000\n",
       "^The function <newclient>, client name 'A' already used\n$"},
      {"client \"Z\"\n", "^The function <client>, client name 'Z' not found\n$"},
      {"client \"NONE\"\nendclient\n",
       "^The function <endclient>, illegal use with client 'NONE'\n$"},
      {"newclient \"A\" 1000\nclient \"A\"\nendclient\nclient \"A\"\n",
       "^The function <client>, client 'A' has been ended\n$"},
      {"newclient \"A\" 1000\nclient \"A\"\nheapsize 9\n",
       "^The function <heapsize> only valid for DEFAULT client\n$"},
      {"res 300\n",
       "^ERROR: res other than 72 encountered while using PNG output\n"
       "       PNG output only works properly with 72 dpi resolution \n$",
       DISPLAY_PNG},
      {"available_fonts HEAVY ANY\n",
       "^The function <available_fonts>, unrecognized style 'HEAVY'\n$"},
      {"available_fonts ANY WIDE\n",
       "^The function <available_fonts>, unrecognized face 'WIDE'\n$"},
      {"glyphset_file set.txt\n",
       "^ Error: glyphset_file command should only be used with Unicode cmap\n$"},
  };
  for (const auto& row : rows) {
    ScriptHost r;
    EXPECT_EXIT(r.script(row.script, row.display, nullptr, false),
                testing::ExitedWithCode(255), row.message)
        << row.script;
  }
}

TEST(ScriptClients, ClientsAreMadeSwitchedEndedAndDefaultRestarted) {
  ScriptHost r;
  r.script("newclient \"A\" 1000000\nclient \"NONE\"\nnewclient \"R\" 2000000\n"
           "client \"A\"\npath /ignored/word.ttf\n");
  EXPECT_EQ(r.out + r.err, "");
  NAMED_STATE* a = r.entry("A");
  NAMED_STATE* root = r.entry("R");
  ASSERT_TRUE(a != nullptr && root != nullptr);
  EXPECT_EQ(a->state->parent, r.sp);  // made on DEFAULT: its child
  EXPECT_EQ(root->state->parent, nullptr);  // made on NONE: a root
  EXPECT_EQ(root->state->server->heap_size, 2000000u);
  EXPECT_EQ(r.sp->cur_typeset.fntset, nullptr);  // path ran on A
  // DejaVu Sans has (3,1) and (3,10); path picks (3,10), first in the list.
  FS_USHORT p = 0, e = 0;
  FSS_get_cmap(a->state, &p, &e);
  EXPECT_EQ(p * 100 + e, 310);
  r.script("client \"A\"\nendclient\nclient \"R\"\nendclient\n");
  EXPECT_EQ(a->state, nullptr);
  EXPECT_EQ(root->state, nullptr);
  // An ended client with '-': the message, and the run goes on on DEFAULT.
  r.script("-client \"A\"\n-font \"x\"\n");
  EXPECT_EQ(r.err, "The function <client>, client 'A' has been ended\n");
  EXPECT_EQ(r.out, UNKNOWN_FONT);

  // The first heapsize is the pre-scan's; later ones restart DEFAULT in place.
  ScriptHost h;
  h.start();
  FS_STATE* before = h.sp;
  h.script("heapsize 7000000\n");
  EXPECT_EQ(h.sp->server->heap_size, 5290000u);
  h.script("-font \"x\"\nheapsize 7000000\n");
  EXPECT_EQ(h.sp, before);
  EXPECT_EQ(h.sp->server->heap_size, 7000000u);
  EXPECT_EQ(h.out, UNKNOWN_FONT);
}

TEST(ScriptShow, TrailingRunsOfOneGlyphFailTheSetBeyondTenRepeats) {
  // E000 up are unmapped: all glyph 0. failed: GlyphCreationError, one a show.
  const struct { FS_USHORT display; const char* script; int failed; } rows[] = {
      {DISPLAY_NONE, "glyphset \"41 E000-E00A\"\nshow_gray\n", 0},  // 11: ten repeats
      {DISPLAY_NONE, "glyphset \"E000-E00B\"\nshow_gray\nshow_gray_8bit\n", 2},  // eleven
      {DISPLAY_PNG, "glyphset \"E000-E00A 41\"\nshow_gray_8bit\n", 0},  // a run of one
  };
  for (const auto& row : rows) {
    ScriptHost r;
    GlyphCreationError = 0;
    r.script(std::string("path\nppm 20\n") + row.script, row.display);
    EXPECT_EQ(GlyphCreationError, row.failed) << row.script;
    EXPECT_EQ(err_FD, 0);
  }
  GlyphCreationError = 0;
}

TEST(ScriptShow, AdvancePassSetsTheSpreadWithoutTheLastGlyph) {
  const struct { const char* script; double spread; } rows[] = {
      // Hinted at 20 ppem s, a, A are 10, 12, 14: (|10 - 12| + 0) / (3 * 12).
      {"ppm 20\nget_advance ON\nglyphset \"73 61 41\"\n", 2.0 / 36.0},
      {"ppm 12\nget_advance ON\nglyphset \"41\"\n", 0.0},  // one code
  };
  for (const auto& row : rows) {
    ScriptHost r;
    stdDevAdv = -1;
    r.script(std::string("path\n") + row.script + "show_fake\n", DISPLAY_PNG);
    EXPECT_EQ(err_FD, 0);
    EXPECT_NEAR(stdDevAdv, row.spread, 1e-12) << row.script;
    EXPECT_FALSE(r.exists("font.png"));  // the pass ends the command: no page
  }
}

// A page read with the measurement code's reader: size, ink box, margins.
struct Measured {
  int w = 0, h = 0, minX = 0, minY = 0, maxX = 0, maxY = 0, ink = 1;
  int right() const { return w - 1 - maxX; }
  int below() const { return h - 1 - maxY; }
};

Measured measure(const std::string& path) {
  Measured m;
  unsigned int w = 0, h = 0;
  unsigned int* px = ReadPngFile(path.c_str(), &w, &h, boBGRA);
  if (px == nullptr) return m;
  m.w = (int)w, m.h = (int)h;
  m.ink = getBoundingBox(px, &m.minX, &m.minY, &m.maxX, &m.maxY, m.w, m.h);
  free(px);
  return m;
}

TEST(ScriptPages, GlyphsAndStringsSitOnTheirMargins) {
  const struct {
    const char *glyphs, *draw;
    int minX, minY, right, below;  // -1: not pinned by the row
    const char* why;
    bool fake = true;  // sized by a show_fake pass
  } rows[] = {
      {"41", "show_gray_8bit\n", 2, 2, 3, 3,
       "a single glyph: its ink box at (2, 2) plus five in each direction"},
      {"70 48 69", "moveto 0 0\nshow_gray_8bit\n", 50, 5, 105, 25,
       "\"pHi\": a lead-in of 50, 25 rows under the lowest ink, 105 after the last"},
      // 'p' descends 426 units, 15 rows at 72 ppem: 25 - 15 = 10 rows stay.
      {"48 69 70", "moveto 0 0\nshow_gray_8bit\n", -1, 5, -1, 10,
       "\"Hip\": the bottom stays 25 below the baseline unless ink reaches it"},
      {"41", "show_gray_adf_8bit\n", 2, 2, 1, 1,
       "a distance-field glyph: its box, two pixels wider and taller, on the gray page"},
      // A's box and a ramp of 0.16 * 72 + 1 = 12.5 pixels around it, 73 square: too large for a measured page.
      {"41", "show_distancefield\n", 3, 2, 593 - 74, 763 - 74, "a distance map on the default page at (2, 2), its first column 0", false},
  };
  for (const auto& row : rows) {
    ScriptHost r;
    r.script(std::string("path\nppm 72\nglyphset \"") + row.glyphs + "\"\n" + (row.fake ? "show_fake\n" : "") +
                 row.draw, DISPLAY_PNG);
    ASSERT_EQ(err_FD, 0) << row.why;
    Measured m = measure(r.image("font.png"));
    ASSERT_EQ(m.ink, 0) << row.why;
    if (row.minX >= 0) { EXPECT_EQ(m.minX, row.minX) << row.why; }
    EXPECT_EQ(m.minY, row.minY) << row.why;
    if (row.right >= 0) { EXPECT_EQ(m.right(), row.right) << row.why; }
    EXPECT_EQ(m.below(), row.below) << row.why;
  }
}

TEST(ScriptPages, ShowDrawsOneBitGlyphsAtTheirPens) {
  // "Hi" at 24 ppem from the pen (10, 40): the page's ink is each type 1 map at pen + (lo_x, -hi_y).
  ScriptHost s;
  s.script("path\nppm 24\nglyphset \"48 69\"\nmoveto 10 40\nshow\n", DISPLAY_PNG);
  unsigned int w = 0, h = 0, *px = ReadPngFile(s.image("font.png").c_str(), &w, &h, boBGRA);
  ASSERT_TRUE(px != nullptr && err_FD == 0);
  std::vector<bool> want((size_t)w * h), got((size_t)w * h);
  for (size_t i = 0; i < got.size(); i++) got[i] = (px[i] & 0xFFFFFF) != 0xFFFFFF;
  free(px);
  FS_FIXED pen = 10 << 16;
  for (FS_ULONG code : {0x48ul, 0x69ul}) {
    FS_GLYPHMAP* g = FSS_get_glyphmap(s.sp, code, FS_MAP_BITMAP);
    ASSERT_TRUE(g != nullptr && g->bitsPerPixel == 1 && g->height > 10);
    for (int r = 0; r < g->height; r++)
      for (int c = 0; c < g->width; c++)
        if (g->bits[r * g->bpl + (c >> 3)] & (0x80 >> (c & 7)))
          want.at((size_t)((40 - g->hi_y + r) * w + (pen >> 16) + g->lo_x + c)) = true;
    pen += g->dx, FSS_free_char(s.sp, g);
  }
  EXPECT_TRUE(want == got);
}

TEST(ScriptPages, FilesFollowTheOneStepLagAndImageSizeReopensTheName) {
  // The second page opens font_b; image_size reopens the next name, font_s.
  ScriptHost s;
  s.script("path\nppm 20\nglyphset \"41\"\npage\nshow_gray_8bit\npage\n"
           "image_size 40 30\nmoveto 0 0\nshow_gray_8bit\n", DISPLAY_PNG);
  ASSERT_EQ(err_FD, 0);
  Measured b = measure(s.image("font_b.png")), small = measure(s.image("font_s.png"));
  EXPECT_EQ(b.w * 1000 + b.h, 594764);  // the default page
  EXPECT_EQ(b.ink, 1);  // blank: closed before anything was drawn
  EXPECT_EQ(small.w * 1000 + small.h, 40030);
  EXPECT_EQ(small.ink, 0);
  EXPECT_FALSE(s.exists("65-A.png"));
  EXPECT_EQ(ImageCount, 2);
}

// Mutated show scripts (no fatal commands) run whole under continue_on_error
// to their end, in the sanitizer build without a bad access.
TEST(ScriptFuzz, MutatedScriptsRunToTheirEnd) {
  const std::string base =
      "continue_on_error ON\npath\nppm 12\n-font \"Deja\"\nglyphset \"41-43 61\"\nshow_gray\n"
      "glyphset_string \"Hi\"\n-show_fake\nrot 10 skew 5\neffects emboss\nshow_gray_8bit\n"
      "kerning ON\nshow_string_gray\n# note \"x\nmoveto 5 6\nshow_type GRAYMAP|EDGE\n"
      "vertical ON\nshow_gray\n";
  std::mt19937 rng(4321);
  for (int round = 0; round < 60; round++) {
    std::string t = base;
    for (int e = 0, edits = 1 + rng() % 5; e < edits; e++) {
      size_t at = rng() % (t.size() + 1);
      switch (rng() % 5) {
        case 0: t.resize(at); break;
        case 1: t.insert(at, std::string(1 + rng() % 300, 'x')); break;
        case 2: t.insert(at, "\""); break;
        case 3: t.insert(at, "#"); break;
        default: {
          char c = (char)(rng() % 256);
          t.insert(at, std::string(1, c == '@' ? 'a' : c));
        }
      }
    }
    ScriptHost r;
    r.script(t);
    SUCCEED() << round;
  }
}

}  // namespace
