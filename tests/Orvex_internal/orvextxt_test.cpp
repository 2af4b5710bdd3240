// Tests of the script interpreter: real scripts written into temporary
// files, run by OrvexTxt against DejaVu Sans on a real engine client, their
// effects checked through the engine, the client list and the result
// globals, and their messages byte for byte on the stream they belong to.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/orvextxt.h"
#include "support/test_support.h"

namespace {

const char* kDejaVu = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// One run as the driver sets it up: a "NONE" head, "DEFAULT" current, the
// script in a temporary folder (include files beside it), both streams
// captured. The engine is shut down and the list freed afterwards.
struct ScriptHost {
  testsupport::TempDir dir;
  NAMED_STATE* states = nullptr;
  NAMED_STATE* currns = nullptr;
  FS_STATE* sp = nullptr;
  std::string out, err;

  void write(const std::string& name, const std::string& text) {
    FILE* f = fopen(dir.file(name).c_str(), "w");
    fputs(text.c_str(), f);
    fclose(f);
  }

  void start(FS_LONG heap = 5290000) {
    states = new_named_state("NONE", nullptr, 0);
    currns = states;
    init_and_set_DEFAULT_client(&sp, states, &currns, heap, 0, DISPLAY_NONE,
                                nullptr);
  }

  // Runs `text` (with "@" replaced by the folder) on the current client.
  void script(const std::string& text, FS_USHORT displayType = DISPLAY_NONE,
              FILE* psFp = nullptr, bool capture = true) {
    if (states == nullptr) start();
    std::string t = text;
    for (size_t at; (at = t.find('@')) != std::string::npos;)
      t.replace(at, 1, dir.path());
    write("main.scr", t);
    std::string path = dir.file("main.scr");
    FILE* fp = fopen(path.c_str(), "r");
    err_FD = 0;
    if (capture) {
      testing::internal::CaptureStdout();
      testing::internal::CaptureStderr();
    }
    OrvexTxt(fp, path.c_str(), 0, displayType, "", psFp, sp, states, currns,
             dir.path().c_str(), 0, 0, kDejaVu, 0);
    if (capture) {
      fflush(stdout);
      err = testing::internal::GetCapturedStderr();
      out = testing::internal::GetCapturedStdout();
    }
    fclose(fp);
  }

  // A run expected to end the process: the death test reads stderr itself.
  void die(const std::string& text, FS_USHORT displayType = DISPLAY_NONE) {
    script(text, displayType, nullptr, false);
  }

  NAMED_STATE* entry(const char* name) {
    return find_named_state(states, name);
  }

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

std::string dejavuName(FS_STATE* sp) {
  char name[256];
  FSS_font_name(sp, kDejaVu, nullptr, 0, 256, name);
  return name;
}

int count(const std::string& text, const std::string& what) {
  int n = 0;
  for (size_t at = 0; (at = text.find(what, at)) != std::string::npos;
       at += what.size())
    n++;
  return n;
}

const char* kUnknownFont = "The function <FS_set_font> returned 301\n";

TEST(ScriptRun, PathLoadsTheFontSetsItAndPicksTheFirstCmapOfTheList) {
  ScriptHost r;
  strcpy(CurentFontName, "");
  r.script("path /ignored/word.ttf\n");
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(err_FD, 0);
  EXPECT_STREQ(CurentFontName, "DejaVu Sans");
  EXPECT_NE(r.sp->cur_typeset.fntset, nullptr);
  // DejaVu Sans has (3,1) and (3,10); (3,10) comes first in the list.
  FS_USHORT p = 0, e = 0;
  FSS_get_cmap(r.sp, &p, &e);
  EXPECT_EQ(p, 3);
  EXPECT_EQ(e, 10);
}

TEST(ScriptRun, UnknownWordsAndCommentsFallAway) {
  ScriptHost r;
  r.script("# -font \"nope\"\nbanana 12 \"x\"\nppm#comment -font \"a\"\n");
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(err_FD, 0);
}

TEST(ScriptErrors, AnEngineErrorEndsTheRunUnlessIgnored) {
  ScriptHost r;
  r.script("font \"nope\"\nfont \"never\"\n");
  EXPECT_EQ(r.out, kUnknownFont);  // the second command never ran
  EXPECT_EQ(err_FD, 301);
  EXPECT_EQ(r.sp->error, 301u);  // not cleared on the return
}

TEST(ScriptErrors, DashIgnoresOneCommandOnlyAndErrFdStaysAfterSuccess) {
  ScriptHost r;
  r.start();
  std::string name = dejavuName(r.sp);
  r.script("path\n-font \"nope\"\nfont \"" + name +
           "\"\nfont \"gone\"\nfont \"never\"\n");
  EXPECT_EQ(r.out, std::string(kUnknownFont) + kUnknownFont);
  EXPECT_EQ(err_FD, 301);
  // The -font cleared its error and kept the old font current.
  EXPECT_NE(r.sp->cur_typeset.fntset, nullptr);
}

TEST(ScriptErrors, ContinueOnErrorKeepsGoingAndErrFdKeepsTheLastFailure) {
  ScriptHost r;
  r.start();
  std::string name = dejavuName(r.sp);
  r.script("continue_on_error ON\nfont \"a\"\nremove_font \"b\"\npath\n"
           "font \"" + name + "\"\ncontinue_on_error off\nfont \"c\"\n"
           "font \"d\"\n");
  EXPECT_EQ(r.out, std::string(kUnknownFont) +
                       "The function <FS_delete_font> returned 301\n" +
                       kUnknownFont);
  EXPECT_EQ(err_FD, 301);
  r.script("continue_on_error ON\nfont \"a\"\npath\n");
  EXPECT_EQ(err_FD, 301);  // a success later doesn't hide it
  EXPECT_EQ(r.sp->error, 0u);
}

TEST(ScriptRepeat, CountNRunsTheBodyNPlusOneTimes) {
  ScriptHost r;
  r.script("repeat_start 0\n-font \"x\"\nrepeat_end\n");
  EXPECT_EQ(count(r.out, kUnknownFont), 1);
  r.script("repeat_start 2\n-font \"x\"\nrepeat_end\n-font \"y\"\n");
  EXPECT_EQ(count(r.out, kUnknownFont), 4);  // 3 in the body, 1 after
  EXPECT_EQ(r.err, "");
}

TEST(ScriptRepeat, StrayEndDoesNothingAndAnOpenStartIsReported) {
  ScriptHost r;
  r.script("repeat_end\n-font \"x\"\nrepeat_end\n");
  EXPECT_EQ(count(r.out, kUnknownFont), 1);
  EXPECT_EQ(r.err, "");
  r.script("repeat_start 3\n-font \"x\"\n");
  EXPECT_EQ(count(r.out, kUnknownFont), 1);
  EXPECT_EQ(r.err,
            "End of script reached without matching repeat_end command. "
            "Check Script...\n");
}

TEST(ScriptRepeatDeathTest, NestingIsFatal) {
  ScriptHost r;
  EXPECT_EXIT(r.die("repeat_start 1\nrepeat_start 1\n"),
              testing::ExitedWithCode(255),
              "Nesting repeat_start commands is not supported! Check "
              "script...\n");
}

TEST(ScriptInclude, NestedRunsHaveTheirOwnDisplayStateButShareTheClient) {
  ScriptHost r;
  r.start();
  std::string name = dejavuName(r.sp);
  // inner.scr turns errors off for itself only and includes a third level
  // that uses the font the outer script loaded.
  r.write("inner.scr", "continue_on_error ON\nfont \"a\"\n"
                       "include \"$ORVEX_ROOT/third.scr\"\nfont \"b\"\n");
  r.write("third.scr", "font \"" + name + "\"\nfont \"t\"\nfont \"u\"\n");
  r.script("path\ninclude \"@/inner.scr\"\nfont \"c\"\nfont \"d\"\n");
  // a and b ignored in inner; t ends third's run; c ends the outer run,
  // whose continue_on_error was never set.
  EXPECT_EQ(count(r.out, kUnknownFont), 4);
  EXPECT_EQ(err_FD, 301);
}

TEST(ScriptInclude, AClientChangeInsideEndsWithTheIncludedRun) {
  ScriptHost r;
  r.write("inner.scr", "newclient \"B\" 1000000\nclient \"B\"\n");
  r.script("include \"@/inner.scr\"\npath\n");
  ASSERT_NE(r.entry("B"), nullptr);
  EXPECT_EQ(r.entry("B")->state->cur_typeset.fntset, nullptr);
  EXPECT_NE(r.sp->cur_typeset.fntset, nullptr);  // path ran on DEFAULT
}

TEST(ScriptIncludeDeathTest, MalformedOrMissingIncludesAreFatal) {
  ScriptHost r;
  EXPECT_EXIT(r.die("include inner.scr\n"), testing::ExitedWithCode(255),
              "\\*\\*\\* get_include_file_name: expecting a \"\n"
              "Malformed include statement check script...\n");
  EXPECT_EXIT(r.die("include \"@/none.scr\"\n"),
              testing::ExitedWithCode(255), "");
}

TEST(ScriptClients, ChildAndRootClientsAreMadeSwitchedAndEnded) {
  ScriptHost r;
  r.script("newclient \"A\" 1000000\nclient \"NONE\"\n"
           "newclient \"R\" 2000000\nclient \"A\"\npath\n");
  NAMED_STATE* a = r.entry("A");
  NAMED_STATE* root = r.entry("R");
  ASSERT_NE(a, nullptr);
  ASSERT_NE(root, nullptr);
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

  // Ended clients: with '-' the message and going on.
  r.script("-client \"A\"\n-font \"x\"\n");
  EXPECT_EQ(r.err, "The function <client>, client 'A' has been ended\n");
  EXPECT_EQ(r.out, kUnknownFont);  // still on DEFAULT
}

TEST(ScriptClients, EndingAParentWithChildrenReports508AndKeepsIt) {
  ScriptHost r;
  r.script("newclient \"P\" 1000000\nclient \"P\"\nnewclient \"C\" 1000\n"
           "-endclient\n");
  EXPECT_EQ(r.out, "The function <FS_end_client> returned 508\n");
  EXPECT_EQ(err_FD, 508);
  ASSERT_NE(r.entry("P")->state, nullptr);
  EXPECT_EQ(r.entry("P")->state->error, 0u);
}

TEST(ScriptClientsDeathTest, ClientFaultsEndTheProcess) {
  ScriptHost r;
  EXPECT_EXIT(r.die("newclient \"A\" 1000\nnewclient \"A\" 1000\n"),
              testing::ExitedWithCode(255),
              "^The function <newclient>, client name 'A' already used\n$");
  EXPECT_EXIT(r.die("client \"Z\"\n"), testing::ExitedWithCode(255),
              "^The function <client>, client name 'Z' not found\n$");
  EXPECT_EXIT(r.die("client \"NONE\"\nendclient\n"),
              testing::ExitedWithCode(255),
              "^The function <endclient>, illegal use with client 'NONE'\n$");
  EXPECT_EXIT(r.die("newclient \"A\" 1000\nclient \"A\"\nendclient\n"
                       "client \"A\"\n"),
              testing::ExitedWithCode(255),
              "^The function <client>, client 'A' has been ended\n$");
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
  EXPECT_EQ(r.out, kUnknownFont);
}

TEST(ScriptHeapsizeDeathTest, OnlyDefaultMayResize) {
  ScriptHost r;
  EXPECT_EXIT(r.die("newclient \"A\" 1000\nclient \"A\"\nheapsize 9\n"),
              testing::ExitedWithCode(255),
              "^The function <heapsize> only valid for DEFAULT client\n$");
}

TEST(ScriptRes, BadValuesKeepMagAndNon72IsFatalUnderPng) {
  ScriptHost r;
  r.script("res 123\nres 300\n");
  EXPECT_EQ(r.err, " bad resolution 123\n");
  r.script("res 72\n", DISPLAY_PNG);
  EXPECT_EQ(r.err, "");
  EXPECT_EXIT(r.die("res 300\n", DISPLAY_PNG), testing::ExitedWithCode(255),
              "^ERROR: res other than 72 encountered while using PNG output\n"
              "       PNG output only works properly with 72 dpi resolution "
              "\n$");
}

TEST(ScriptMessages, WarningsAndRetiredCommandsSayExactlyTheirText) {
  ScriptHost r;
  r.script("fiab\neffects add_weight\nexternal_heapsize 10\n"
           "png_color_type GREY\npng_color_type GRAY\n"
           "foreground_color 1 2 3\nbackground_color 1 2 3\n"
           "outline_color 1 2 3\n");
  EXPECT_EQ(r.err,
            " FIAB no longer supported\n"
            "The function <external_heapsize> is only valid for builds with "
            "FS_INT_MEM defined\n"
            "INVALID PNG output image color type: GREY\n"
            "WARNING: foreground_color command only applies to color PNG "
            "output images\n"
            "WARNING: background_color command only applies to color PNG "
            "output images\n"
            "WARNING: outline_color command only applies to color PNG output "
            "images\n");
  EXPECT_EQ(r.out,
            " The command effects add_weight is no longer supported\n"
            "%% The function <external_heapsize> is only valid for builds "
            "with FS_INT_MEM defined\n");
  r.script("page\npng_color_type COLOR\n", DISPLAY_PNG);
  EXPECT_EQ(r.err,
            "WARNING: PNG image was already created before png_color_type "
            "command\n");
}

TEST(ScriptMessagesDeathTest, BadAvailableFontsWordsAndGlyphsetFileCmap) {
  ScriptHost r;
  EXPECT_EXIT(r.die("available_fonts HEAVY ANY\n"),
              testing::ExitedWithCode(255),
              "^The function <available_fonts>, unrecognized style 'HEAVY'\n$");
  EXPECT_EXIT(r.die("available_fonts ANY WIDE\n"),
              testing::ExitedWithCode(255),
              "^The function <available_fonts>, unrecognized face 'WIDE'\n$");
  EXPECT_EXIT(r.die("glyphset_file set.txt\n"),
              testing::ExitedWithCode(255),
              "^ Error: glyphset_file command should only be used with "
              "Unicode cmap\n$");
}

TEST(ScriptRun, AvailableFontsWalksAndFreesTheList) {
  ScriptHost r;
  r.script("path\navailable_fonts ANY ANY\nglyphset_all\n");
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(err_FD, 0);
}

TEST(ScriptPostScript, HeaderOnThePostScriptStream) {
  ScriptHost r;
  testsupport::TempDir d;
  std::string ps = d.file("out.ps");
  FILE* psFp = fopen(ps.c_str(), "w");
  r.script("ppm 12\n", DISPLAY_PS, psFp);
  fclose(psFp);
  FILE* f = fopen(ps.c_str(), "r");
  char line[64] = {0};
  ASSERT_NE(fgets(line, sizeof line, f), nullptr);
  fclose(f);
  EXPECT_STREQ(line, "%!PS-Adobe-3.0\n");
}

}  // namespace

namespace {

TEST(ScriptShow, WithoutAFontTheScaleFailsAfterTheWarning) {
  ScriptHost r;
  r.script("ppm 12\n-show\nshow_gray\n");
  EXPECT_EQ(r.err, " no current font\n no current font\n");
  EXPECT_EQ(r.out, "The function <FS_set_scale> returned 305\n"
                   "The function <FS_set_scale> returned 305\n");
  EXPECT_EQ(err_FD, 305);
}

TEST(ScriptShow, ZeroSizeReachesTheScaleAndTakesItsFailure) {
  ScriptHost r;
  r.script("path\nppm 0\nglyphset \"41\"\nshow_gray_8bit\nfont \"x\"\n");
  // The engine refuses the zero size (at the scale or at the first glyph)
  // and the run ends there.
  EXPECT_EQ(r.out.rfind("The function <FS_", 0), 0u);
  EXPECT_EQ(count(r.out, "\n"), 1);
  EXPECT_NE(err_FD, 0);
}

TEST(ScriptShow, EmptyStringSetMakesTheMeasuringPassFailWith402) {
  ScriptHost r;
  r.script("path\nppm 24\nglyphset_string \"\"\n-show_fake\n");
  EXPECT_EQ(err_FD, 402);
  EXPECT_EQ(r.out, "");
  // A real set measures: 'A' alone gives its box plus 5 each way, no error.
  r.script("path\nppm 24\nglyphset \"41\"\nshow_fake\nshow_gray_8bit\n"
           "glyphset_string \"Hello\"\nshow_fake\nshow_string_gray\n");
  EXPECT_EQ(err_FD, 0);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "");
}

TEST(ScriptShow, TwelveTrailingMissingGlyphsCountAsAFailedSet) {
  ScriptHost r;
  GlyphCreationError = 0;
  // E000 to E00A: 11 private-use codes DejaVu Sans doesn't map, all glyph
  // 0: ten repeats, not more than 10.
  r.script("path\nppm 12\nglyphset \"41 E000-E00A\"\nshow_gray\n");
  EXPECT_EQ(GlyphCreationError, 0);
  EXPECT_EQ(err_FD, 0);
  // E000 to E00B: twelve, eleven repeats.
  r.script("path\nppm 12\nglyphset \"E000-E00B\"\nshow_gray\nshow_gray_8bit\n");
  EXPECT_EQ(GlyphCreationError, 2);  // once per show command
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
  // One code: the value is 0.
  r.script("path\nppm 12\nget_advance ON\nglyphset \"41\"\nshow_fake\n");
  EXPECT_EQ(stdDevAdv, 0.0);
}

TEST(ScriptShow, PostScriptStandInWritesALinePerGlyph) {
  ScriptHost r;
  testsupport::TempDir d;
  std::string ps = d.file("out.ps");
  FILE* psFp = fopen(ps.c_str(), "w");
  r.script("path\nppm 12\nglyphset \"41 42\"\nshow_gray\n", DISPLAY_PS, psFp);
  fclose(psFp);
  FILE* f = fopen(ps.c_str(), "r");
  int lines = 0, glyphLines = 0;
  char line[256];
  while (fgets(line, sizeof line, f)) {
    lines++;
    if (strncmp(line, "% graymap 4-bit at ", 19) == 0) glyphLines++;
  }
  fclose(f);
  EXPECT_EQ(glyphLines, 2);
  EXPECT_EQ(lines, 3);  // the header line and the two glyphs
}

}  // namespace

namespace {

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
    int edits = 1 + rng() % 5;
    for (int e = 0; e < edits; e++) {
      size_t at = rng() % (t.size() + 1);
      switch (rng() % 5) {
        case 0: t.resize(at); break;
        case 1: t.insert(at, std::string(1 + rng() % 300, 'x')); break;
        case 2: t.insert(at, "\""); break;
        case 3: t.insert(at, "#"); break;
        default: {
          char c = (char)(rng() % 256);
          if (c == '@') c = 'a';
          t.insert(at, std::string(1, c));
        }
      }
    }
    ScriptHost r;
    r.script(t);
    SUCCEED() << round;
  }
}

}  // namespace
