// The linked font reader on files written by the test-side builder: head and
// block sizes by version, counts, key lines in every number form, decimal
// fixed-point values, size adjustment and group look-ups, and the refusals.
// Every case is read twice, from a file and from memory, to the same result.
#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_ltt.h"
#include "engine_fixture.h"
#include "support/ltt_builder.h"
#include "support/test_support.h"

using testsupport::Bytes;
using testsupport::LttComponentSpec;
using testsupport::LttSpec;

namespace {

LttSpec twoComponents(int version) {
  LttSpec s;
  s.version = version;
  LttComponentSpec a{"Alpha", "a.ttf", "0x1", "0x0", 100, 5, {}, {}, {}, true};
  LttComponentSpec b{"Beta", "b.ttf", "0xFFFFFFFF", "0xFFFFFFFF", 200, 0, {}, {}, {}, true};
  s.components = {a, b};
  return s;
}

Bytes bytesOf(const LttSpec& s) {
  bool ok = false;
  Bytes b = s.build(&ok);
  EXPECT_TRUE(ok) << "a block overflows";
  return b;
}

class LttRead : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(engine.started);
    start = engine.used();
  }
  // Reads `bytes` from a file and from memory; both must give `error`, and
  // `check` sees each result. The heap is back at its start afterwards.
  void expectRead(const char* why, const Bytes& bytes, bool adjustments,
                  FS_LONG error, const std::function<void(FsLtt&)>& check) {
    SCOPED_TRACE(why);
    std::string path = dir.file("f.ltt");
    testsupport::writeFileBytes(path, bytes);
    for (int fromFile = 0; fromFile < 2; fromFile++) {
      FsLtt ltt;
      FsLtt_init(&ltt, &engine.st);
      FS_LONG err;
      if (fromFile) {
        FS_FILE* fp = FS_open(&engine.st, path.c_str());
        err = FsLtt_read(&ltt, fp, adjustments);
        FS_close(&engine.st, fp);
      } else {
        err = FsLtt_load(&ltt, bytes.data(), (FS_ULONG)bytes.size(), adjustments);
      }
      EXPECT_EQ(err, error) << (fromFile ? "file" : "memory");
      if (err == 0 && check) check(ltt);
      if (err != 0) {
        EXPECT_EQ(ltt.components, nullptr);
      }
      FsLtt_done(&ltt);
      EXPECT_EQ(engine.used(), start);
    }
  }
  enginetest::Engine engine{4u << 20};
  testsupport::TempDir dir;
  FS_ULONG start = 0;
};

TEST_F(LttRead, VersionsCountsAndKeysReadAsTheFormatSays) {
  auto v = [](int version, std::function<void(LttSpec&)> edit = nullptr) {
    LttSpec s = twoComponents(version);
    if (edit) edit(s);
    return bytesOf(s);
  };
  // Tables lie behind the last block below version 6: 3 blocks of 512.
  const FS_ULONG kForced = 1536;
  // A key past the first 512 bytes of the head: read only in a 1024 head.
  auto late = [](LttSpec& s) {
    s.headKeys = {"x" + std::string(470, '.'), "fileversion=late", "maxp_offset=77"};
  };
  struct Row {
    const char* why;
    Bytes bytes;
    FS_LONG error;
    std::function<void(FsLtt&)> check;
  } rows[] = {
      {"version 1: one legal line, no count line, no icons line",
       v(1, [](LttSpec& s) { s.headKeys = {"maxp_offset=99"}; }), 0,
       [&](FsLtt& l) {
         EXPECT_EQ(l.version, 1);
         EXPECT_EQ(l.numLegal, 1);
         EXPECT_STREQ(l.legal[0], "Test linked font");
         EXPECT_STREQ(FsLtt_getName(&l), "Linked");
         EXPECT_EQ(l.maxp_off, kForced);
         EXPECT_EQ(l.components[0].numGlyphs, 100);
         EXPECT_EQ(l.components[0].numIcons, 0);
       }},
      {"version 0 reads as version 1", v(0), 0,
       [&](FsLtt& l) { EXPECT_EQ(l.version, 1); EXPECT_EQ(l.numLegal, 1); }},
      {"version 3: a count of legal lines, still no icons",
       v(3, [](LttSpec& s) { s.legal = {"one", "two"}; }), 0,
       [&](FsLtt& l) {
         EXPECT_EQ(l.numLegal, 2);
         EXPECT_STREQ(l.legal[1], "two");
         EXPECT_STREQ(FsLtt_getName(&l), "Linked");
         EXPECT_EQ(l.components[0].numIcons, 0);
         EXPECT_EQ(l.maxp_off, kForced);
       }},
      {"version 4: the icons line", v(4), 0,
       [&](FsLtt& l) {
         EXPECT_EQ(l.components[0].numIcons, 5);
         EXPECT_EQ(l.components[1].numGlyphs, 200);
         EXPECT_EQ(l.components[0].bmp.range1, 1u);
         EXPECT_EQ(l.components[1].bmp.range2, 0xFFFFFFFFu);
       }},
      {"version 5: maxp still forced", v(5, [](LttSpec& s) { s.headKeys = {"maxp_offset=99"}; }),
       0, [&](FsLtt& l) { EXPECT_EQ(l.maxp_off, kForced); }},
      {"version 6: a 512 head, maxp where the head says",
       v(6, [](LttSpec& s) { s.headKeys = {"maxp_offset=99"}; }), 0,
       [&](FsLtt& l) {
         EXPECT_EQ(l.maxp_off, 99u);
         EXPECT_STREQ(l.components[0].fontName, "Alpha");
         EXPECT_STREQ(l.components[1].fileName, "b.ttf");
       }},
      {"version 7: a 1024 head", v(7, late), 0,
       [&](FsLtt& l) {
         EXPECT_STREQ(FsLtt_getFileVersion(&l), "late");
         EXPECT_EQ(l.maxp_off, 77u);
         EXPECT_STREQ(l.components[0].fontName, "Alpha");
       }},
      {"version 8: a 1024 head", v(8, late), 0,
       [&](FsLtt& l) { EXPECT_STREQ(l.components[1].fontName, "Beta"); }},
      {"version 9", v(9), (FS_LONG)LTT_ERR_VERSION, nullptr},
      {"wrong magic", [&] { Bytes b = v(6); b[3] = 'X'; return b; }(),
       (FS_LONG)LTT_ERR_MAGIC, nullptr},
      {"legal count 0", v(6, [](LttSpec& s) { s.legalCount = 0; }), ERR_LTT_LEGAL, nullptr},
      {"legal count 10", v(6, [](LttSpec& s) { s.legalCount = 10; }), ERR_LTT_LEGAL, nullptr},
      {"no components", v(6, [](LttSpec& s) { s.components.clear(); }),
       ERR_LTT_NO_COMPONENTS, nullptr},
      {"cut inside the head", [&] { Bytes b = v(6); b.resize(300); return b; }(),
       ERR_FILE_READ, nullptr},
      {"cut inside the second half of a 1024 head",
       [&] { Bytes b = v(7); b.resize(700); return b; }(), ERR_FILE_READ, nullptr},
      {"cut inside the last block", [&] { Bytes b = v(6); b.resize(1400); return b; }(),
       ERR_FILE_READ, nullptr},
      {"a repeated string key replaces",
       v(6, [](LttSpec& s) { s.headKeys = {"subfamily=Bold", "subfamily=Italic"}; }), 0,
       [&](FsLtt& l) { EXPECT_STREQ(FsLtt_getSubfamilyName(&l), "Italic"); }},
      {"an unknown key is passed over",
       v(6, [](LttSpec& s) { s.headKeys = {"colour=red", "fileversion=2.5"}; }), 0,
       [&](FsLtt& l) { EXPECT_STREQ(FsLtt_getFileVersion(&l), "2.5"); }},
      {"a last line without its newline ends the block",
       v(6, [](LttSpec& s) {
         s.headKeys = {"subfamily=Bold", "fileversion=3"};
         s.terminateHead = false;
         s.components[1].keys = {"ttcindex=4", "groupprimary=9"};
         s.components[1].terminate = false;
       }), 0,
       [&](FsLtt& l) {
         EXPECT_STREQ(FsLtt_getSubfamilyName(&l), "Bold");
         EXPECT_EQ(FsLtt_getFileVersion(&l), nullptr);
         EXPECT_EQ(l.components[1].ttcIndex, 4u);
         EXPECT_EQ(l.components[1].group, 0);
       }},
      {"no subfamily is Regular", v(6), 0,
       [&](FsLtt& l) { EXPECT_STREQ(FsLtt_getSubfamilyName(&l), "Regular"); }},
      // 12.5: 12 << 16 + (5 << 16 + 5) / 10 = 786432 + 32768. 0.3333333:
      // 19661 + 1966 + 197 + 20 + 2 + 0 + 0, each digit rounded alone (the
      // exact value is 21845). -0.5: the magnitude, then the sign.
      {"decimal fixed-point values",
       v(6, [](LttSpec& s) {
         s.components[0].keys = {"bold=1", "boldpercent=12.5", "italic=0x1",
                                 "italicangle=0.3333333"};
         s.components[1].keys = {"boldpercent=-0.5", "italicangle=1.000000049"};
       }), 0,
       [&](FsLtt& l) {
         EXPECT_EQ(l.components[0].boldPercent, 819200);
         EXPECT_EQ(l.components[0].italicAngle, 21846);
         EXPECT_TRUE(FsLttComponent_isBold(&l.components[0]));
         EXPECT_TRUE(FsLttComponent_isItalic(&l.components[0]));
         EXPECT_EQ(l.components[1].boldPercent, -32768);
         EXPECT_EQ(l.components[1].italicAngle, 65536);  // the eighth digit is ignored
         EXPECT_FALSE(FsLttComponent_isBold(&l.components[1]));
       }},
  };
  for (const Row& r : rows) expectRead(r.why, r.bytes, false, r.error, r.check);
}

// Every numeric key of both tables, written 300 in decimal, hex and octal.
TEST_F(LttRead, EveryNumericKeyTakesDecimalHexAndOctal) {
  const char* const kHead[] = {"name_offset", "name_size", "maxp_offset", "os/2_offset",
                               "head_offset", "hhea_offset", "vhea_offset", "post_offset",
                               "cmap_offset", "cmap_size", "kern_offset", "kern_size",
                               "ot_gdef_offset", "ot_gdef_size", "ot_gsub_offset",
                               "ot_gsub_size", "ot_gpos_offset", "ot_gpos_size",
                               "grouptypesoffset", "grouptypescount"};
  const char* const kComponent[] = {"ttcindex", "targetmemptr", "targetoffset", "targetlength",
                                    "embeddedoffset", "embeddedsize", "bold", "italic",
                                    "groupprimary", "plane1range1", "plane1range2",
                                    "plane2range1", "plane2range2", "plane14range1",
                                    "plane14range2", "adjustmentsoffset", "adjustmentscount"};
  for (const char* form : {"300", "0x12C", "0454"}) {
    LttSpec s = twoComponents(7);
    for (const char* k : kHead) s.headKeys.push_back(std::string(k) + "=" + form);
    for (const char* k : kComponent) s.components[1].keys.push_back(std::string(k) + "=" + form);
    s.components[1].keys.push_back("targetcallbackID=id7");
    s.components[1].keys.push_back("targetdirectory=../fonts");
    expectRead(form, bytesOf(s), false, 0, [](FsLtt& l) {
      const FS_ULONG head[] = {l.ttf_name.offset, l.ttf_name.size, l.maxp_off, l.os_2_off,
                               l.head_off, l.hhea_off, l.vhea_off, l.post_off,
                               l.cmap.offset, l.cmap.size, l.kern.offset, l.kern.size,
                               l.gdef.offset, l.gdef.size, l.gsub.offset, l.gsub.size,
                               l.gpos.offset, l.gpos.size, l.groupTypesOffset,
                               l.numGroupTypes};  // 1200 bytes of types at 300: in the file
      for (size_t i = 0; i < sizeof head / sizeof head[0]; i++)
        EXPECT_EQ(head[i], 300u) << "head key " << i;
      const FsLttComponent& c = l.components[1];
      const FS_ULONG comp[] = {c.ttcIndex, (FS_ULONG)(uintptr_t)c.targetPtr, c.targetOff,
                               c.targetLen, c.fontOffset, c.fontSize, c.group,
                               c.smp.range1, c.smp.range2, c.sip.range1, c.sip.range2,
                               c.ssp.range1, c.ssp.range2, c.adjustmentsOffset,
                               c.numAdjustments};
      for (size_t i = 0; i < sizeof comp / sizeof comp[0]; i++)
        EXPECT_EQ(comp[i], 300u) << "component key " << i;
      EXPECT_EQ(c.bold, 1);
      EXPECT_EQ(c.italic, 1);
      EXPECT_STREQ(c.targetCId, "id7");
      EXPECT_STREQ(c.targetDir, "../fonts");
      EXPECT_EQ(l.components[0].targetDir, nullptr);
    });
  }
}

TEST_F(LttRead, AdjustmentAndGroupLookUps) {
  LttSpec s = twoComponents(6);
  s.components[0].adjustments = {{10, 256, 1}, {20, -128, 2}, {30, 0, 0}};
  s.groups = {{1, 7}, {3, 9}};
  Bytes bytes = bytesOf(s);
  expectRead("loaded", bytes, true, 0, [](FsLtt& l) {
    FsLttComponent* c = FsLtt_component(&l, 0);
    ASSERT_EQ(FsLttComponent_numAdjustments(c), 3);
    EXPECT_EQ(FsLttComponent_getAdjustment(c, 1)->scale, -128);
    EXPECT_EQ(FsLttComponent_getAdjustment(c, 3), nullptr);
    const struct { FS_USHORT size, ppem; FS_SHORT scale, shift; FS_USHORT max; const char* why; }
        rows[] = {
            {5, 0, 0, 0, 9, "below the first record: zero, up to its size - 1"},
            {10, 10, 256, 1, 19, "on a record"},
            {15, 10, 256, 1, 19, "between records"},
            {20, 20, -128, 2, 29, "on the middle record"},
            {40, 30, 0, 0, 0xFFFF, "above the last"},
        };
    for (const auto& r : rows) {
      FsPPemAdjust adj = {r.size, 77, 77};
      FS_USHORT max = 0;
      EXPECT_EQ(FsLttComponent_getAdjustmentAndRange(c, &adj, &max), 0) << r.why;
      EXPECT_EQ(adj.ppem, r.ppem) << r.why;
      EXPECT_EQ(adj.scale, r.scale) << r.why;
      EXPECT_EQ(adj.shift, r.shift) << r.why;
      EXPECT_EQ(max, r.max) << r.why;
    }
    const struct { FS_USHORT group, type; } groups[] = {{0, 0}, {1, 7}, {2, 0}, {3, 9}, {5, 0}};
    for (const auto& g : groups) EXPECT_EQ(FsLtt_getGroupType(&l, g.group), g.type) << g.group;
  });
  expectRead("records not loaded", bytes, false, 0, [](FsLtt& l) {
    FsPPemAdjust adj = {12, 0, 0};
    FS_USHORT max = 0;
    EXPECT_EQ(FsLttComponent_getAdjustmentAndRange(&l.components[0], &adj, &max),
              ERR_BAD_ARGUMENT);
    EXPECT_EQ(FsLtt_getGroupType(&l, 3), 9);  // group types are always read
  });
  Bytes cut(bytes.begin(), bytes.end() - 2);  // the group table's last bytes
  expectRead("a table cut short", cut, true, ERR_FILE_READ, nullptr);
}

TEST_F(LttRead, LineCopiesNeedTheirNewline) {
  const FILECHAR text[] = "first\nsecond";
  const FILECHAR* e = nullptr;
  FILECHAR* s = strnltonewstr(&engine.st, text, sizeof text - 1, &e);
  ASSERT_NE(s, nullptr);
  EXPECT_STREQ(s, "first");
  EXPECT_EQ(e, text + 6);
  FSS_free(&engine.st, s);
  EXPECT_EQ(strnltonewstr(&engine.st, e, 6, &e), nullptr);  // "second" has none
  EXPECT_EQ(e, text + 6);
  EXPECT_EQ(strnltonewstr(&engine.st, text, 3, &e), nullptr);  // not within 3 bytes
  EXPECT_EQ(engine.used(), start);
}

}  // namespace
