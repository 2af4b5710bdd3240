// fontvec as a person runs it: the real binary on packaged fonts, built fonts
// and the measurement fixtures; its subcommands, output formats and exit codes.
#include <gtest/gtest.h>

#include <png.h>
#include <stdio.h>

#include <algorithm>

#include <filesystem>
#include <string>
#include <vector>

#include "support/glyf_font.h"
#include "support/ltt_builder.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"
#include "support/zrp3_encoder.h"

using testsupport::runFontvec;
using testsupport::ToolRun;
namespace fs = std::filesystem;

namespace {

#define DEJAVU "/usr/share/fonts/truetype/dejavu/"
#define SANS DEJAVU "DejaVuSans.ttf"
#define MONO "/usr/share/fonts/truetype/liberation2/LiberationMono-Regular.ttf"
#define TERMINUS "/usr/share/fonts/opentype/terminus/terminus-normal.otb"

// Fonts built in a folder "@" stands for (no Script.scr: a bad --config too).
// two.ttf: the minimal glyf font, its (3,1) format-0 map sends c to c & 1;
// roman.ttf: its map moved to (1,0); pair.ttc: it and a 7-glyph CFF font;
// t.ttf: 1000 units, glyph 1 a triangle (0,0) (100,0) off (50,100), glyph 2
// two of them 200 units apart, all advancing 500.
struct Built {
  testsupport::TempDir dir;
  Built() {
    auto put = [&](const char* name, const sfnt::Bytes& b) {
      testsupport::writeBytes(dir.file(name), sfnt::asString(b));
    };
    sfnt::Font glyf = sfnt::minimalGlyfFont(), roman = glyf;
    sfnt::Font cff = sfnt::minimalCffFont(7);
    cff.set("head", sfnt::head(2048, -5, -6, 70, 80));
    sfnt::Bytes cmap = *glyf.find("cmap");
    sfnt::putU16(cmap, 4, 1);
    sfnt::putU16(cmap, 6, 0);
    put("two.ttf", sfnt::build(glyf));
    put("roman.ttf", sfnt::build(roman.set("cmap", cmap)));
    put("pair.ttc", sfnt::buildCollection({glyf, cff}));
    std::vector<sfnt::Bytes> glyphs = {
        {}, glyffont::triangle(),
        glyffont::composite({{0x2, 1, 0, 0}, {0x2, 1, 200, 0}})};
    put("t.ttf", sfnt::build(glyffont::font(glyphs)));
    // cvt.ttf: t.ttf with control values 1000 and -500 and a `prep` that
    // writes 640 (10 pixels) into entry 1; panic.ttf: a `prep` of ENDF.
    sfnt::Font programs = glyffont::font(glyphs);
    sfnt::Bytes cvt, maxp = *programs.find("maxp");
    sfnt::u16(cvt, 1000);
    sfnt::u16(cvt, (uint32_t)-500);
    glyffont::setPrograms(programs, {}, {0xB0, 1, 0xB8, 0x02, 0x80, 0x44}, cvt,
                          maxp, 0, 0);
    put("cvt.ttf", sfnt::build(programs));
    glyffont::setPrograms(programs, {}, {0x2D}, cvt, maxp, 0, 0);
    put("panic.ttf", sfnt::build(programs));
    // link.ltt: Liberation Serif for U+0000 to U+03FF, then DejaVu Sans,
    // drawn 2.5% bold and one pixel larger from 10 ppem.
    testsupport::LttSpec link = testsupport::linkedSet({0, 1});
    link.components[1].keys.insert(link.components[1].keys.end(), {"bold=1", "boldpercent=2.5"});
    link.components[1].adjustments = {{10, 256, 0}};
    put("link.ltt", link.build());
  }
  std::string args(std::string text) const {
    for (size_t at; (at = text.find('@')) != std::string::npos;)
      text.replace(at, 1, dir.path());
    return text;
  }
};

std::string fixtureImages(const char* font) {
  return testsupport::fixturesDir() + "/" + font + "/Images";
}

int count(const std::string& text, char c) {
  int n = 0;
  for (char x : text) n += x == c;
  return n;
}

// One run and what it must show. Empty strings and -1 leave a part
// unpinned, but a failing run's `out` is always compared whole.
struct Row {
  std::string args;
  int status;
  std::string out = "", starts = "";
  std::vector<std::string> has = {};
  int lines = -1;
  std::string errHas = "";
};

TEST(Fontvec, SubcommandsPrintTheirLinesAndExitCodes) {
  REQUIRE_FIXTURES();
  Built built;
  const std::string serif = fixtureImages("LiberationSerif");
  const Row rows[] = {
      // info: what the loader read, "key: value".
      {"info @/pair.ttc", 0,
       "faces: 2\nglyphs: 2\nunits_per_em: 1000\nbbox: -10 -200 600 800\n"
       "ascender: 800\ndescender: -200\noutlines: glyf\n"
       "family: Test\nstyle: Regular\nfull_name: Test Sans\n"},
      {"info --index 1 @/pair.ttc", 0,
       "faces: 2\nglyphs: 7\nunits_per_em: 2048\nbbox: -5 -6 70 80\n"
       "ascender: 800\ndescender: -200\noutlines: CFF\n"
       "family: Test\nstyle: Regular\nfull_name: Test Sans\n"},
      // macStyle 3: bold and italic.
      {"info " DEJAVU "DejaVuSerif-BoldItalic.ttf", 0, "", "",
       {"family: DejaVu Serif\nstyle: Bold Italic\nfull_name: DejaVu Serif Bold Italic\n"}},
      // The format-0 kern pairs: 16 is the hyphen, 36 "A", 37 "B", 42 "G".
      {"info " SANS " --kern", 0, "", "16 36 -45\n16 37 -73\n16 42 75\n", {}, 2727},
      {"info " DEJAVU "DejaVuSansMono.ttf --kern", 0, "", "", {}, 0},  // no kern
      {"info --index 2 @/pair.ttc", 1, "", "", {}, -1,
       "error 404: face index beyond the collection"},
      {"info", 2}, {"info a.ttf b.ttf", 2}, {"info --index x a.ttf", 2},
      {"info --bogus a.ttf", 2}, {"info --kern --cmap a.ttf", 2},
      // info --cvt: the control values after the programs, 26.6: 1000 and
      // -500 units of 1000 are 768 and -384 at 12 ppem, and `prep` wrote
      // 640; below 2 ppem it does not run (64 and -32 at 1 ppem).
      {"info @/cvt.ttf --ppem 12 --cvt", 0, "0 768\n1 640\n"},
      {"info @/cvt.ttf --ppem 1 --cvt", 0, "0 64\n1 -32\n"},
      {"info " SANS " --ppem 12 --gs", 0, "", "minimum_distance: 64\n",
       {"\ndelta_base: 9\ndelta_shift: 3\nround_state: 2\ninstruct_control: 0\n"}, 7},
      {"info @/panic.ttf --ppem 12 --gs", 1, "", "", {}, -1, "error 416"},
      {"info --cvt a.ttf", 2}, {"info --ppem 12 a.ttf", 2},
      {"info --ppem 0 --gs a.ttf", 2}, {"info --ppem 12 --gs --cvt a.ttf", 2},
      // info --cmap: "U+XXXX GLYPH" per mapped code, as libfreetype counts them.
      {"info " SANS " --cmap", 0, "", "U+0020 3\nU+0021 4\n",
       {"\nU+0041 36\n", "\nU+0416 939\n", "\nU+10300 5373\n"}, 5918},
      {"info @/two.ttf --cmap", 0, "", "U+0001 1\nU+0003 1\n", {"\nU+00FF 1\n"}, 128},
      {"info @/roman.ttf --cmap", 1, "", "", {}, -1, "no Unicode character map"},
      // A linked font: its head and component blocks; its map and glyphs
      // through the set, DejaVu Sans numbered from 2602.
      {"info @/link.ltt", 0,
       "linked: 6\nname: Linked Three\nsubfamily: Regular\ncomponents: 2\n"
       "metric_component: 0\n"
       "component 0: Liberation Serif LiberationSerif-Regular.ttf start=0 glyphs=2602 "
       "icons=0 bmp=0x1:0x0 bold=0 italic=0 adjustments=0\n"
       "component 1: DejaVu Sans DejaVuSans.ttf start=2602 glyphs=6253 icons=0 "
       "bmp=0xFFFFFFFF:0xFFFFFFFF bold=2.5 italic=0 adjustments=1\n"},
      {"info @/link.ltt --cmap", 0, "", "U+0020 3\n",
       {"\nU+0416 3541\n", "\nU+10300 7975\n"}},
      {"glyph @/link.ltt --char U+0416 --ppem 12 --points", 0, "", "", {"\ncomponent: 1\n"}},
      {"glyph @/link.ltt --glyph 36 --ppem 12 --points", 0, "", "", {"\ncomponent: 0\n"}},
      {"glyph @/link.ltt --glyph 8855 --ppem 12 --points", 1},  // past the last range
      // glyph --points: 10 ppem at 1000 units is 0.64 26.6 units per font unit.
      {"glyph @/t.ttf --glyph 1 --ppem 10 --points --hints", 0,
       "0 0 on\n64 0 on\n32 64 off\nadvance: 320\n"},
      {"glyph @/t.ttf --glyph 2 --ppem 10 --points --no-hints", 0,
       "0 0 on\n64 0 on\n32 64 off\n\n128 0 on\n192 0 on\n160 64 off\n"
       "advance: 320\n"},
      {"glyph @/t.ttf --glyph 0 --ppem 13 --points", 0, "advance: 448\n"},  // 6.5 -> 7
      // "A" (through the map, glyph 36): contours of 3 and 8 points and a
      // blank line; 1401 units at 12 ppem are 8.2 pixels, 8.
      {"glyph " SANS " --char U+0041 --ppem 12 --points", 0, "", "", {"\nadvance: 512\n"}, 13},
      {"glyph " SANS " --glyph 60000 --ppem 12 --points", 1},
      {"glyph /nonexistent.ttf --glyph 1 --ppem 12", 1},
      {"glyph " SANS " --ppem 12", 2}, {"glyph " SANS " --glyph 1", 2},
      {"glyph " SANS " --glyph 1 --ppem 0", 2},
      {"glyph " SANS " --char 41 --ppem 12", 2},
      {"glyph " SANS " --char U+41 --glyph 36 --ppem 12", 2},
      {"glyph " SANS " --char U+0020 --ppem 12 --png @/space.png", 0, "0 0 0 0\n"},
      {"glyph " SANS " --char U+0041 --ppem 12 --points --png @/a.png", 2},
      {"glyph " SANS " --char U+0041 --ppem 12 --png /no/such/dir/a.png", 1},
      // --bitmap: 'l' at 16 ppem unhinted is x 97..189, y 0..778 in 26.6: centres x 2.5, y 0.5..11.5.
      {"glyph " SANS " --char U+006C --ppem 16 --bitmap --text --dropout --no-hints", 0,
       "2 11 1 12\n#\n#\n#\n#\n#\n#\n#\n#\n#\n#\n#\n#\n"},
      // The autohinter on that 'l': one stem, 143 wide 92, 146 aligned
      // (97 -> 128 is 31 away, 189 -> 192 3). Forced, the Latin path
      // boosts it first (x-height +1/8 px, 1.5%): the stem 98..192, its top
      // on the flat capitals' line (778 -> 768), the advance 4.51 px -> 5.
      {"glyph " SANS " --char U+006C --ppem 16 --strokes", 0, "x 143 92 0 778 146\n"},
      {"glyph " SANS " --char U+006C --ppem 16 --points --force-autohint", 0,
       "98 768 on\n192 768 on\n192 0 on\n98 0 on\nadvance: 320\n"},
      {"glyph " SANS " --char U+006C --ppem 16 --strokes --points", 2},
      // The reference lines at 24 ppem (the same pinned in the engine's
      // tests); --reflines takes no glyph, --no-autohint no forcing.
      {"glyph " SANS " --ppem 24 --reflines", 0,
       "0 1120\n1 1140\n2 840\n3 860\n4 0\n5 -22\n6 128\n7 192\n51 -15\nsuitable: 1\n"},
      {"glyph " SANS " --char U+006C --ppem 24 --reflines", 2},
      {"glyph " SANS " --char U+006C --ppem 16 --points --force-autohint --no-autohint", 2},
      {"glyph " SANS " --char U+006C --ppem 16 --points --force-autohint --no-hints", 2},
      {"glyph " SANS " --char U+0020 --ppem 12 --bitmap --png @/space1.png", 0, "0 0 0 0\n"},
      {"glyph " SANS " --char U+0041 --ppem 12 --bitmap", 2}, {"glyph " SANS " --char U+0041 --ppem 12 --text", 2},
      {"glyph " SANS " --char U+0041 --ppem 12 --bitmap --text --png @/a.png", 2},
      // That 'l' in a style: a hollow ring one pixel out, or one pixel
      // bolder on the left (5% of 16 ppem rounds to 1); refused values.
      {"glyph " SANS " --char U+006C --ppem 16 --bitmap --text --dropout --no-hints --effect outline1", 0,
       "1 12 3 14\n.#.\n#.#\n#.#\n#.#\n#.#\n#.#\n#.#\n#.#\n#.#\n#.#\n#.#\n#.#\n#.#\n.#.\n"},
      {"glyph " SANS " --char U+006C --ppem 16 --bitmap --text --dropout --no-hints --bold 5 --pixel-bold", 0,
       "1 11 2 12\n##\n##\n##\n##\n##\n##\n##\n##\n##\n##\n##\n##\n"},
      {"glyph " SANS " --char U+0041 --ppem 12 --png @/b.png --bold 101", 1, "", "", {}, -1, "error 613"},
      {"glyph " SANS " --char U+0041 --ppem 12 --png @/b.png --effect outline --outline-width 11", 1, "", "", {}, -1, "error 614"},
      {"glyph " SANS " --char U+0041 --ppem 12 --png @/b.png --opacity 10.00002", 1, "", "", {}, -1, "error 615"},
      {"glyph " SANS " --char U+0041 --ppem 12 --png @/b.png --effect shadow", 2},
      {"glyph " SANS " --char U+0041 --ppem 12 --png @/b.png --pixel-bold", 2},
      {"glyph " SANS " --char U+0041 --ppem 12 --points --soften", 2},
      // Strikes: Terminus draws only its own, and is invalid by its directory.
      {"info " TERMINUS " --strikes", 0, "", "12 12 1 1 0 1325 2\n14 14 1 1 0 1325 2\n", {}, 9},
      {"info " TERMINUS, 0, "", "", {"\noutlines: none\n"}},
      {"glyph " TERMINUS " --char U+0041 --ppem 16 --png @/t.png --type bitmap", 0, "0 12 8 16 embedded\n"},
      {"glyph " SANS " --char U+0041 --ppem 16 --type gray4", 2}, {"validate", 2},
      {"validate " SANS " " TERMINUS, 1,
       SANS ": valid\n" TERMINUS ": invalid (error 448: table directory inconsistent)\n"},
      // glyph --adf and --distance-field: the box, then the contrast in
      // force (the client's defaults or --csm) or the field's cut-off
      // (0.16 * 24 + 1).
      {"glyph " SANS " --char U+0041 --ppem 24 --no-hints --adf --png @/adf.png", 0,
       "-1 17 18 19\ncsm: 0.39999 -0.56000 1.00000\n"},
      {"glyph " SANS " --char U+0041 --ppem 24 --adf --csm 0.5,-0.5,1 --png @/adf2.png", 0, "",
       "", {"\ncsm: 0.50000 -0.50000 1.00000\n"}, 2},
      {"glyph " SANS " --char U+0041 --ppem 24 --no-hints --distance-field --png @/df.png", 0,
       "-5 20 25 25\ncutoff: 4.84009\n"},
      {"glyph " SANS " --char U+0020 --ppem 24 --adf --png @/adfspace.png", 0, "", "0 0 0 0\n"},
      {"glyph " SANS " --glyph 60000 --ppem 24 --adf --png @/x.png", 1},
      {"glyph " SANS " --char U+0041 --ppem 24 --csm 0.5,-0.5,1 --png @/x.png", 2},
      {"glyph " SANS " --char U+0041 --ppem 24 --adf --csm 0.5,-0.5 --png @/x.png", 2},
      {"glyph " SANS " --char U+0041 --ppem 24 --adf --points", 2},
      // measure FOLDER: the library's line, and its refusals.
      {"measure @/absent", 1, "", "", {}, -1, "not a folder"},
      {"measure @", 1, "", "", {}, -1, "Error=8\n"},  // no pictures
      {"measure", 2}, {"measure --bogus @", 2}, {"measure a b", 2},
      {"measure --format xml " + serif, 2}, {"measure --format", 2},
      {"no-such-command", 1},  // a first word that is no command is a font
      {"--bogus-option", 2},
      {"--help", 0, "", "", {"usage: fontvec", "measure", "info FONT [--index N]"}},
      // fontvec FONT: a refused configuration and format.
      {"--config @ " SANS, 1, "", "", {}, -1, "no Script.scr"},
      {"--format xml " SANS, 2},
  };
  std::string errFile = built.dir.file("err.txt");
  for (const Row& row : rows) {
    std::string args = built.args(row.args);
    ToolRun r = runFontvec(args, errFile);
    std::string err = testsupport::readBytes(errFile);
    EXPECT_EQ(r.status, row.status) << args << "\n" << err;
    if (row.status != 0 || !row.out.empty()) { EXPECT_EQ(r.out, row.out) << args; }
    EXPECT_EQ(r.out.rfind(row.starts, 0), 0u) << args;
    for (const std::string& part : row.has)
      EXPECT_NE(r.out.find(part), std::string::npos) << args << ": " << part;
    if (row.lines >= 0) { EXPECT_EQ(count(r.out, '\n'), row.lines) << args; }
    EXPECT_NE(err.find(row.errHas), std::string::npos) << args << ": " << err;
  }
}

// A linked font whose first component, also its metric one, is DejaVu Sans
// for U+0000 to U+03FF: every glyph the renderer draws comes from it, so the
// vector is DejaVu Sans's own.
// The distance-field PNGs read back: the printed size, ink dark on white;
// the distance map's far outside white, its inside past the middle grey.
TEST(Fontvec, DistanceFieldPngsReadBack) {
  testsupport::TempDir dir;
  for (const char* kind : {"--adf", "--distance-field"}) {
    std::string png = dir.file("g.png");
    ToolRun r = runFontvec("glyph " SANS " --char U+0041 --ppem 24 --no-hints " + (kind + (" --png " + png)));
    int w = 0, h = 0;
    ASSERT_EQ(sscanf(r.out.c_str(), "%*d %*d %d %d", &w, &h) + r.status, 2) << kind;
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&image, png.c_str())) << kind;
    std::vector<png_byte> px((size_t)(w * h));
    ASSERT_TRUE((image.format = PNG_FORMAT_GRAY, (int)image.width == w) && (int)image.height == h && png_image_finish_read(&image, nullptr, px.data(), 0, nullptr));
    auto range = std::minmax_element(px.begin(), px.end());  // white around, ink (a field past 128) within
    EXPECT_TRUE(*range.second == 255 && *range.first < (kind[2] == 'a' ? 1 : 127)) << kind;
  }
}

TEST(Fontvec, ALinkedFontGivesTheVectorOfTheComponentThatDrawsIt) {
  testsupport::TempDir dir;
  testsupport::LttSpec link = testsupport::linkedSet({1, 0});
  std::swap(link.components[0].bmp1, link.components[1].bmp1);
  std::swap(link.components[0].bmp2, link.components[1].bmp2);
  std::string err = dir.file("err.txt");
  ToolRun linked = runFontvec(link.write(dir.file("sans.ltt")), err);
  EXPECT_EQ(linked.status, 0) << testsupport::readBytes(err);
  ToolRun own = runFontvec(SANS, err);
  EXPECT_EQ(count(linked.out, ','), 57);
  EXPECT_EQ(linked.out, own.out);
}

TEST(Fontvec, MeasureGivesTheLibraryLineInEveryLayout) {
  REQUIRE_FIXTURES();
  std::string folder = fixtureImages("LiberationSerif");
  std::string line = runFontvec("measure " + folder).out;
  EXPECT_EQ(count(line, ','), 57);  // one line of 58 values
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  std::string sum = runFontvec("measure --checksum " + folder).out;
  EXPECT_EQ(sum.substr(sum.find(',') + 1), line);
  // 58 lines "index name value" in the frozen order, with the line's digits.
  std::string last = line.substr(line.rfind(',') + 1);  // with the line feed
  std::string names = runFontvec("measure --names " + folder).out;
  EXPECT_EQ(count(names, '\n'), 58);
  EXPECT_NE(names.find("\n57 FlareStemNess " + last), std::string::npos);
  std::string csv = runFontvec("measure --format csv " + folder).out;
  EXPECT_EQ(csv.substr(csv.find('\n') + 1), line);  // after the names header
  std::string json = runFontvec("measure --checksum --format json " + folder).out;
  EXPECT_EQ(json.substr(0, 13), "{\"checksum\": ");
  last.pop_back();
  EXPECT_NE(json.find("\"FlareStemNess\": " + last + "}\n"), std::string::npos);
}

TEST(Fontvec, FontFilesGiveVectorsInEveryLayoutAndKeptPictures) {
  for (const char* font : {SANS, MONO}) ASSERT_TRUE(fs::exists(font)) << font;
  testsupport::TempDir dir;
  std::string err = dir.file("err.txt"), keep = dir.file("kept");
  ToolRun line = runFontvec(MONO " --keep-images " + keep, err);
  EXPECT_EQ(line.status, 0) << testsupport::readBytes(err);
  EXPECT_EQ(count(line.out, ','), 57);  // 58 values
  EXPECT_TRUE(fs::exists(keep + "/font.png"));
  std::string first = line.out.substr(0, line.out.find(','));
  ToolRun names = runFontvec(MONO " --names", err);
  EXPECT_EQ(names.out.rfind("0 AvgGreyVal " + first + "\n", 0), 0u) << names.out;
  ToolRun json = runFontvec("--format json " MONO, err);
  EXPECT_EQ(json.out.rfind("{\"file\": \"" MONO "\", \"AvgGreyVal\": " + first, 0), 0u)
      << json.out;
  // csv: a header, then one row per font with its file name first.
  std::string csv = runFontvec("--format csv " SANS " " MONO, err).out;
  EXPECT_EQ(csv.rfind("file,AvgGreyVal,", 0), 0u) << csv;
  EXPECT_NE(csv.find("\nDejaVuSans.ttf,"), std::string::npos) << csv;
  EXPECT_NE(csv.find("\nLiberationMono-Regular.ttf,"), std::string::npos) << csv;

  // A failing font is reported and the run goes on.
  std::string bad = dir.file("not-a-font.ttf");
  testsupport::writeBytes(bad, "plain text, no font");
  ToolRun r = runFontvec(bad + " " SANS " /no/such.ttf", err);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(count(r.out, '\n'), 1);  // the good font's line only
  std::string e = testsupport::readBytes(err);
  for (std::string part : {bad + ": Error=-1", std::string("/no/such.ttf: Error="),
                           std::string("2 of 3 fonts failed")})
    EXPECT_NE(e.find(part), std::string::npos) << e;
}

// The lines fontvec itself writes on standard error (a font's error, the
// count of failures), without the renderer's messages, which children
// working at once may interleave.
std::string toolLines(const std::string& err) {
  std::string kept, line;
  for (char c : err) {
    line += c;
    if (c != '\n') continue;
    if (line.find(": Error=") != std::string::npos ||
        line.rfind("fontvec:", 0) == 0)
      kept += line;
    line.clear();
  }
  return kept;
}

// Fonts worked at once come out exactly as one at a time: every layout in
// input order, a failing font reported in its place on standard error, the
// same exit status. A --jobs that is no count of workers is refused.
TEST(Fontvec, JobsGiveTheOutputOfOneAtATime) {
  testsupport::TempDir dir;
  std::string bad = dir.file("not-a-font.ttf");
  testsupport::writeBytes(bad, "plain text, no font");
  const std::string fonts = std::string(MONO " ") + bad + " " SANS " " DEJAVU
                            "DejaVuSerif-Bold.ttf " DEJAVU "DejaVuSansMono.ttf";
  struct {
    std::string layout;
    const char* why;
  } rows[] = {
      {"", "lines in input order, the failing font reported between"},
      {"--format csv", "header once, rows in input order"},
      {"--format json", "one array, commas only between vectors"},
  };
  std::string errOne = dir.file("one.txt"), errTwo = dir.file("two.txt");
  for (const auto& row : rows) {
    ToolRun one = runFontvec(row.layout + " --jobs 1 " + fonts, errOne);
    ToolRun two = runFontvec(row.layout + " --jobs 2 " + fonts, errTwo);
    EXPECT_EQ(one.status, 1) << row.why;
    EXPECT_EQ(two.status, 1) << row.why;
    EXPECT_GE(count(one.out, '\n'), 4) << row.why << one.out;
    EXPECT_EQ(two.out, one.out) << row.why;
    EXPECT_EQ(toolLines(testsupport::readBytes(errTwo)),
              toolLines(testsupport::readBytes(errOne)))
        << row.why;
  }
  for (const char* jobs : {"0", "-2", "two", "2x", ""})
    EXPECT_EQ(runFontvec(std::string(SANS " --jobs '") + jobs + "'").status, 2)
        << "--jobs " << jobs;
}

// Working folders are gone after a run, whether the font was worked, refused,
// or its child was ended by the renderer (a script fault), which then costs
// that font only.
TEST(Fontvec, WorkingFoldersAreRemovedWhateverEndsTheChild) {
  testsupport::TempDir dir;
  std::string scratch = dir.mkdir("scratch"), ends = dir.mkdir("ends");
  std::string bad = dir.file("not-a-font.ttf");
  testsupport::writeBytes(bad, "plain text, no font");
  testsupport::writeBytes(ends + "/Script.scr", "client \"Z\"\n");
  setenv("TMPDIR", scratch.c_str(), 1);
  ToolRun worked = runFontvec("--jobs 2 " SANS " " + bad + " " MONO);
  std::string err = dir.file("err.txt");
  ToolRun ended = runFontvec("--jobs 2 --config " + ends + " " SANS " " MONO, err);
  unsetenv("TMPDIR");
  EXPECT_EQ(worked.status, 1);
  EXPECT_EQ(count(worked.out, '\n'), 2) << worked.out;
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(count(testsupport::readBytes(err), '\n'), 5) << testsupport::readBytes(err);
  EXPECT_TRUE(fs::is_empty(scratch));
}

}  // namespace

namespace {

// A compressed DejaVu Sans and a compact (ccc) one, written to files: added
// from memory they answer as the source; by path the compressed one is 430.
TEST(FontvecMemory, CompressedAndCompactFontsLoadFromMemory) {
  sfnt::Font src = sfnt::read(sfnt::asBytes(testsupport::readBytes(SANS)));
  testsupport::TempDir dir;
  std::string packed = dir.file("packed.ttf"), compact = dir.file("compact.ttf");
  zrp3::Compressed c = zrp3::compress(src, 64);
  testsupport::writeBytes(packed, sfnt::asString(c.image));
  testsupport::writeBytes(compact, sfnt::asString(sfnt::build(zrp3::pack(src, 0x0202))));
  ToolRun info = runFontvec("info " + packed + " --memory");
  EXPECT_EQ(info.status, 0);
  EXPECT_NE(info.out.find("compressed: " + std::to_string(c.blocks.size()) +
                          " blocks, 2 raw, unit 64\n"), std::string::npos) << info.out;
  EXPECT_NE(runFontvec("info " + compact + " --memory").out.find("glyph_format: ccc 0x0202\n"),
            std::string::npos);
  std::string glyph = " --char U+0416 --ppem 24 --points";
  ToolRun plain = runFontvec(std::string("glyph ") + SANS + glyph);
  for (const std::string& f : {packed, compact}) {
    ToolRun got = runFontvec("glyph " + f + " --memory" + glyph);
    EXPECT_EQ(got.status, 0) << f;
    EXPECT_EQ(got.out, plain.out) << f;
  }
  std::string err = dir.file("err.txt");
  EXPECT_EQ(runFontvec("info " + packed, err).status, 1);
  EXPECT_NE(testsupport::readBytes(err).find("error 430"), std::string::npos);
  EXPECT_EQ(runFontvec(packed, err).status, 1);
}

}  // namespace
