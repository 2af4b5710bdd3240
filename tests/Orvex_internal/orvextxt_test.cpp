// Tests of the script interpreter: real scripts written into temporary
// files, run by OrvexTxt against DejaVu Sans on a real engine client, their
// effects checked through the engine, the client list and the result
// globals, and their messages byte for byte on the stream they belong to.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/orvextxt.h"
#include "support/test_support.h"

namespace {

const char* kDejaVu = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
#define UNKNOWN_FONT "The function <FS_set_font> returned 301\n"

// One run as the driver sets it up: a "NONE" head, "DEFAULT" current, the
// script in a temporary folder (include files beside it, "@" in a script
// stands for that folder), both streams captured unless the run is to end
// the process. The engine is shut down and the list freed afterwards.
struct ScriptHost {
  testsupport::TempDir dir;
  NAMED_STATE* states = nullptr;
  NAMED_STATE* currns = nullptr;
  FS_STATE* sp = nullptr;
  std::string out, err;

  void write(const std::string& name, const std::string& text) {
    testsupport::writeBytes(dir.file(name), text);
  }
  void start(FS_LONG heap = 5290000) {
    states = currns = new_named_state("NONE", nullptr, 0);
    init_and_set_DEFAULT_client(&sp, states, &currns, heap, 0, DISPLAY_NONE,
                                nullptr);
  }
  void script(const std::string& text, FS_USHORT displayType = DISPLAY_NONE,
              FILE* psFp = nullptr, bool capture = true) {
    if (states == nullptr) start();
    std::string t = text;
    for (size_t at; (at = t.find('@')) != std::string::npos;)
      t.replace(at, 1, dir.path());
    write("main.scr", t);
    std::string path = dir.file("main.scr"), page = dir.file("page.png");
    FILE* fp = fopen(path.c_str(), "r");
    err_FD = 0;
    if (capture) {
      testing::internal::CaptureStdout();
      testing::internal::CaptureStderr();
    }
    OrvexTxt(fp, path.c_str(), 0, displayType, page.c_str(), psFp, sp, states,
             currns, dir.path().c_str(), 0, 0, kDejaVu, 0);
    if (capture) {
      fflush(stdout);
      err = testing::internal::GetCapturedStderr();
      out = testing::internal::GetCapturedStdout();
    }
    fclose(fp);
  }
  NAMED_STATE* entry(const char* name) { return find_named_state(states, name); }

  ~ScriptHost() {
    // Children first, the newest first (a child made later may be a
    // grandchild), then the roots this list owns.
    std::vector<NAMED_STATE*> children;
    for (NAMED_STATE* e = states; e != nullptr; e = e->next)
      if (!e->ismaster && e->state != nullptr) children.push_back(e);
    for (auto it = children.rbegin(); it != children.rend(); ++it)
      FSS_end_client((*it)->state);
    for (NAMED_STATE* e = states; e != nullptr; e = e->next)
      if (e->ismaster && e->state != nullptr) FSS_exit(e->state);
    remove_named_states(&states, &currns);
  }
};

// What a whole script run prints and leaves in err_FD. nullptr: the stream
// is not pinned by that row. `files` are written beside the script first.
struct RunRow {
  const char* script;
  const char* out;
  const char* err;
  int errFD;
  const char* why;
  FS_USHORT display = DISPLAY_NONE;
  std::vector<std::pair<const char*, const char*>> files = {};
};

TEST(ScriptRun, MessagesAndErrorCodeOfWholeScripts) {
  const RunRow rows[] = {
      {"# -font \"nope\"\nbanana 12 \"x\"\nppm#comment -font \"a\"\n", "", "",
       0, "unknown words and comments fall away"},
      {"font \"nope\"\nfont \"never\"\n", UNKNOWN_FONT, "", 301,
       "an engine error ends the run: the second font never ran"},
      {"path\n-font \"nope\"\nfont \"DejaVu Sans\"\nfont \"gone\"\n"
       "font \"never\"\n",
       UNKNOWN_FONT UNKNOWN_FONT, "", 301,
       "'-' lets one command's error pass, not the next one's"},
      {"continue_on_error ON\nfont \"a\"\nremove_font \"b\"\npath\n"
       "font \"DejaVu Sans\"\ncontinue_on_error off\nfont \"c\"\nfont \"d\"\n",
       UNKNOWN_FONT "The function <FS_delete_font> returned 301\n" UNKNOWN_FONT,
       "", 301, "continue_on_error goes on until it is turned off"},
      {"repeat_start 0\n-font \"x\"\nrepeat_end\n", UNKNOWN_FONT, "", -1,
       "repeat_start n runs the body n + 1 times: once for 0"},
      {"repeat_start 2\n-font \"x\"\nrepeat_end\n-font \"y\"\n",
       UNKNOWN_FONT UNKNOWN_FONT UNKNOWN_FONT UNKNOWN_FONT, "", -1,
       "three times for 2, then the command after the loop"},
      {"repeat_end\n-font \"x\"\nrepeat_end\n", UNKNOWN_FONT, "", -1,
       "a stray repeat_end does nothing"},
      {"repeat_start 3\n-font \"x\"\n", UNKNOWN_FONT,
       "End of script reached without matching repeat_end command. "
       "Check Script...\n",
       -1, "an open repeat_start is reported at the end"},
      {"path\ninclude \"@/inner.scr\"\nfont \"c\"\nfont \"d\"\n",
       UNKNOWN_FONT UNKNOWN_FONT UNKNOWN_FONT UNKNOWN_FONT, nullptr, 301,
       "included runs keep their own error handling but share the client: "
       "a and b pass in inner, t ends third, c ends the outer run",
       DISPLAY_NONE,
       {{"inner.scr",
         "continue_on_error ON\nfont \"a\"\n"
         "include \"$ORVEX_ROOT/third.scr\"\nfont \"b\"\n"},
        {"third.scr", "font \"DejaVu Sans\"\nfont \"t\"\nfont \"u\"\n"}}},
      {"newclient \"P\" 1000000\nclient \"P\"\nnewclient \"C\" 1000\n"
       "-endclient\n",
       "The function <FS_end_client> returned 508\n", nullptr, 508,
       "a parent with children is not ended"},
      {"res 123\nres 300\n", nullptr, " bad resolution 123\n", -1,
       "an unknown resolution is reported and ignored"},
      {"res 72\n", nullptr, "", -1, "72 dpi is the one PNG resolution",
       DISPLAY_PNG},
      {"fiab\neffects add_weight\nexternal_heapsize 10\n"
       "png_color_type GREY\npng_color_type GRAY\nforeground_color 1 2 3\n"
       "background_color 1 2 3\noutline_color 1 2 3\n",
       " The command effects add_weight is no longer supported\n"
       "%% The function <external_heapsize> is only valid for builds with "
       "FS_INT_MEM defined\n",
       " FIAB no longer supported\n"
       "The function <external_heapsize> is only valid for builds with "
       "FS_INT_MEM defined\n"
       "INVALID PNG output image color type: GREY\n"
       "WARNING: foreground_color command only applies to color PNG output "
       "images\n"
       "WARNING: background_color command only applies to color PNG output "
       "images\n"
       "WARNING: outline_color command only applies to color PNG output "
       "images\n",
       -1, "retired commands and warnings, each on its stream"},
      {"page\npng_color_type COLOR\n", nullptr,
       "WARNING: PNG image was already created before png_color_type "
       "command\n",
       -1, "the colour type comes too late once a page is open", DISPLAY_PNG},
      {"path\navailable_fonts ANY ANY\nglyphset_all\n", "", "", 0,
       "the font list is walked and freed"},
      {"ppm 12\n-show\nshow_gray\n",
       "The function <FS_set_scale> returned 305\n"
       "The function <FS_set_scale> returned 305\n",
       " no current font\n no current font\n", 305,
       "without a font the scale fails after the warning"},
      {"path\nppm 24\nglyphset_string \"\"\n-show_fake\n", "", nullptr, 402,
       "an empty string set makes the measuring pass fail"},
      {"path\nppm 24\nglyphset \"41\"\nshow_fake\nshow_gray_8bit\n"
       "glyphset_string \"Hello\"\nshow_fake\nshow_string_gray\n",
       "", "", 0, "real sets measure and draw without a message"},
  };
  for (const RunRow& row : rows) {
    ScriptHost r;
    for (const auto& f : row.files) r.write(f.first, f.second);
    r.script(row.script, row.display);
    if (row.out) { EXPECT_EQ(r.out, row.out) << row.why; }
    if (row.err) { EXPECT_EQ(r.err, row.err) << row.why; }
    if (row.errFD >= 0) { EXPECT_EQ(err_FD, row.errFD) << row.why; }
  }
}

// Scripts that end the process (exit 255) with their message on stderr.
TEST(ScriptRunDeathTest, ScriptFaultsEndTheProcessWithTheirMessage) {
  const struct {
    const char* script;
    FS_USHORT display;
    const char* message;  // a regular expression over stderr
  } rows[] = {
      {"repeat_start 1\nrepeat_start 1\n", DISPLAY_NONE,
       "Nesting repeat_start commands is not supported! Check script...\n"},
      {"include inner.scr\n", DISPLAY_NONE,
       "\\*\\*\\* get_include_file_name: expecting a \"\n"
       "Malformed include statement check script...\n"},
      {"include \"@/none.scr\"\n", DISPLAY_NONE, ""},
      {"newclient \"A\" 1000\nnewclient \"A\" 1000\n", DISPLAY_NONE,
       "^The function <newclient>, client name 'A' already used\n$"},
      {"client \"Z\"\n", DISPLAY_NONE,
       "^The function <client>, client name 'Z' not found\n$"},
      {"client \"NONE\"\nendclient\n", DISPLAY_NONE,
       "^The function <endclient>, illegal use with client 'NONE'\n$"},
      {"newclient \"A\" 1000\nclient \"A\"\nendclient\nclient \"A\"\n",
       DISPLAY_NONE, "^The function <client>, client 'A' has been ended\n$"},
      {"newclient \"A\" 1000\nclient \"A\"\nheapsize 9\n", DISPLAY_NONE,
       "^The function <heapsize> only valid for DEFAULT client\n$"},
      {"res 300\n", DISPLAY_PNG,
       "^ERROR: res other than 72 encountered while using PNG output\n"
       "       PNG output only works properly with 72 dpi resolution \n$"},
      {"available_fonts HEAVY ANY\n", DISPLAY_NONE,
       "^The function <available_fonts>, unrecognized style 'HEAVY'\n$"},
      {"available_fonts ANY WIDE\n", DISPLAY_NONE,
       "^The function <available_fonts>, unrecognized face 'WIDE'\n$"},
      {"glyphset_file set.txt\n", DISPLAY_NONE,
       "^ Error: glyphset_file command should only be used with Unicode "
       "cmap\n$"},
  };
  for (const auto& row : rows) {
    ScriptHost r;
    EXPECT_EXIT(r.script(row.script, row.display, nullptr, false),
                testing::ExitedWithCode(255), row.message)
        << row.script;
  }
}

TEST(ScriptRun, PathLoadsTheFontSetsItAndPicksTheFirstCmapOfTheList) {
  ScriptHost r;
  strcpy(CurentFontName, "");
  r.script("path /ignored/word.ttf\n");
  EXPECT_EQ(r.out + r.err, "");
  EXPECT_EQ(err_FD, 0);
  EXPECT_STREQ(CurentFontName, "DejaVu Sans");
  EXPECT_NE(r.sp->cur_typeset.fntset, nullptr);
  // DejaVu Sans has (3,1) and (3,10); (3,10) comes first in the list.
  FS_USHORT p = 0, e = 0;
  FSS_get_cmap(r.sp, &p, &e);
  EXPECT_EQ(p * 100 + e, 310);
}

TEST(ScriptErrors, WhatAnErrorLeavesInTheClientAndInErrFd) {
  ScriptHost r;
  r.script("font \"nope\"\n");
  EXPECT_EQ(r.sp->error, 301u);  // the ending error is not cleared
  // '-' cleared its error and kept the old font current.
  r.script("path\n-font \"nope\"\n");
  EXPECT_NE(r.sp->cur_typeset.fntset, nullptr);
  // Under continue_on_error a later success keeps the last failure.
  r.script("continue_on_error ON\nfont \"a\"\npath\n");
  EXPECT_EQ(err_FD, 301);
  EXPECT_EQ(r.sp->error, 0u);
}

TEST(ScriptClients, ChildAndRootClientsAreMadeSwitchedAndEnded) {
  ScriptHost r;
  r.script("newclient \"A\" 1000000\nclient \"NONE\"\n"
           "newclient \"R\" 2000000\nclient \"A\"\npath\n");
  NAMED_STATE* a = r.entry("A");
  NAMED_STATE* root = r.entry("R");
  ASSERT_TRUE(a != nullptr && root != nullptr);
  EXPECT_EQ(a->ismaster, 0);
  EXPECT_EQ(a->state->parent, r.sp);
  EXPECT_EQ(root->ismaster, 1);
  EXPECT_EQ(root->state->parent, nullptr);
  EXPECT_EQ(root->state->server->heap_size, 2000000u);
  EXPECT_NE(a->state->cur_typeset.fntset, nullptr);  // path ran on A
  EXPECT_EQ(r.sp->cur_typeset.fntset, nullptr);
  EXPECT_EQ(r.out, "");

  r.script("client \"A\"\nendclient\nclient \"R\"\nendclient\n");
  EXPECT_EQ(a->state, nullptr);
  EXPECT_EQ(root->state, nullptr);
  EXPECT_EQ(r.out, "");

  // An ended client with '-': the message, and the run goes on on DEFAULT.
  r.script("-client \"A\"\n-font \"x\"\n");
  EXPECT_EQ(r.err, "The function <client>, client 'A' has been ended\n");
  EXPECT_EQ(r.out, UNKNOWN_FONT);

  // The parent refused to end (508) keeps its client, its error cleared.
  r.script("newclient \"P\" 1000000\nclient \"P\"\nnewclient \"C\" 1000\n"
           "-endclient\n");
  ASSERT_NE(r.entry("P")->state, nullptr);
  EXPECT_EQ(r.entry("P")->state->error, 0u);

  // A client change inside an include ends with the included run.
  ScriptHost s;
  s.write("inner.scr", "newclient \"B\" 1000000\nclient \"B\"\n");
  s.script("include \"@/inner.scr\"\npath\n");
  ASSERT_NE(s.entry("B"), nullptr);
  EXPECT_EQ(s.entry("B")->state->cur_typeset.fntset, nullptr);
  EXPECT_NE(s.sp->cur_typeset.fntset, nullptr);  // path ran on DEFAULT
}

TEST(ScriptHeapsize, FirstHeapsizeOnlyMarksStartUpLaterOnesRestartDefault) {
  ScriptHost r;
  r.start(5290000);
  FS_STATE* before = r.sp;
  r.script("heapsize 7000000\n");
  EXPECT_EQ(r.sp->server->heap_size, 5290000u);  // the pre-scan's job
  r.script("-font \"x\"\nheapsize 7000000\n");
  EXPECT_EQ(r.sp, before);  // the same block, restarted
  EXPECT_EQ(r.sp->server->heap_size, 7000000u);
  EXPECT_EQ(r.sp->cur_typeset.fntset, nullptr);
  EXPECT_EQ(r.out, UNKNOWN_FONT);
}

TEST(ScriptShow, ZeroSizeReachesTheScaleAndTakesItsFailure) {
  ScriptHost r;
  r.script("path\nppm 0\nglyphset \"41\"\nshow_gray_8bit\nfont \"x\"\n");
  // The engine refuses the zero size (at the scale or at the first glyph)
  // and the run ends there, with one engine message.
  EXPECT_EQ(r.out.rfind("The function <FS_", 0), 0u);
  EXPECT_EQ(r.out.find('\n'), r.out.size() - 1);
  EXPECT_NE(err_FD, 0);
}

TEST(ScriptShow, TwelveTrailingMissingGlyphsCountAsAFailedSet) {
  ScriptHost r;
  GlyphCreationError = 0;
  // E000 to E00A: 11 private-use codes DejaVu Sans doesn't map, all glyph
  // 0: ten repeats, not more than 10.
  r.script("path\nppm 12\nglyphset \"41 E000-E00A\"\nshow_gray\n");
  EXPECT_EQ(GlyphCreationError, 0);
  EXPECT_EQ(err_FD, 0);
  // E000 to E00B: twelve, eleven repeats; counted once per show command.
  r.script("path\nppm 12\nglyphset \"E000-E00B\"\nshow_gray\nshow_gray_8bit\n");
  EXPECT_EQ(GlyphCreationError, 2);
  GlyphCreationError = 0;
}

TEST(ScriptShow, AdvancePassSetsTheSpreadWithoutTheLastGlyph) {
  ScriptHost r;
  stdDevAdv = -1;
  // Unhinted at 256 ppem DejaVu Sans (2048 units) advances are units / 8:
  // i 569 -> 71.125, m 1995 -> 249.375, W 2025 -> 253.125. Mean 191.2083;
  // |int(71.125 - mean)| = 120, |int(249.375 - mean)| = 58, W left out:
  // 178 / (3 * 191.2083) = 178 / 573.625.
  r.script("path\nhints OFF\nppm 256\nget_advance ON\nglyphset \"69 6D 57\"\n"
           "show_fake\n");
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(err_FD, 0);
  EXPECT_NEAR(stdDevAdv, 178.0 / 573.625, 1e-12);
  r.script("path\nppm 12\nget_advance ON\nglyphset \"41\"\nshow_fake\n");
  EXPECT_EQ(stdDevAdv, 0.0);  // one code: no spread
}

TEST(ScriptPostScript, HeaderAndALinePerGlyphOnThePostScriptStream) {
  ScriptHost r;
  testsupport::TempDir d;
  std::string ps = d.file("out.ps");
  FILE* psFp = fopen(ps.c_str(), "w");
  r.script("path\nppm 12\nglyphset \"41 42\"\nshow_gray\n", DISPLAY_PS, psFp);
  fclose(psFp);
  std::string text = testsupport::readBytes(ps);
  EXPECT_EQ(text.rfind("%!PS-Adobe-3.0\n", 0), 0u) << text;
  int lines = 0, glyphLines = 0;
  for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1) {
    lines++;
    glyphLines += text.compare(at, 19, "% graymap 4-bit at ") == 0;
  }
  EXPECT_EQ(glyphLines, 2);
  EXPECT_EQ(lines, 3);  // the header line and the two glyphs
}

// Mutations of a script that exercises the show path (truncations, long
// words, stray and unterminated quotes, comment marks, random bytes) run
// whole under continue_on_error. Commands that end the process on a script
// fault are left out of the base, and mutations can't spell them. The run
// must end at end of file, in the sanitizer build without a bad access.
TEST(ScriptFuzz, MutatedScriptsRunToTheirEnd) {
  const std::string base =
      "continue_on_error ON\npath\nppm 12\n-font \"Deja\"\n"
      "glyphset \"41-43 61\"\nshow_gray\nglyphset_string \"Hi\"\n-show_fake\n"
      "rot 10 skew 5\neffects emboss\nshow_gray_8bit\nkerning ON\n"
      "show_string_gray\n# note \"x\nmoveto 5 6\nshow_type GRAYMAP|EDGE\n"
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
