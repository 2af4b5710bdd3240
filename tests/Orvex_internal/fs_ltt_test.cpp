// The linked font reader on files written by the test-side builder. Every
// case is read from a file and from memory, to the same result, and leaves
// the heap at its start figure.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_ltt.h"
#include "engine_fixture.h"
#include "support/ltt_builder.h"
#include "support/test_support.h"

using namespace testsupport;

namespace {

// Two components: the first covering U+0000 to U+001F with 5 icons.
LttSpec twoBlocks(int version, const std::function<void(LttSpec&)>& edit = nullptr) {
  LttSpec s;
  s.version = version;
  s.components.resize(2);
  s.components[0].bmp1 = "0x1", s.components[0].bmp2 = "0x0";
  s.components[0].numGlyphs = 100, s.components[0].numIcons = 5;
  s.components[1].numGlyphs = 200;
  if (edit) edit(s);
  return s;
}

struct LttRead : ::testing::Test {
  void expectRead(const char* why, const Bytes& bytes, FS_LONG error, const std::function<void(FsLtt&)>& check = nullptr,
                  bool adjustments = false) {
    SCOPED_TRACE(why);
    FS_ULONG start = engine.used();
    writeBytes(dir.file("f.ltt"), sfnt::asString(bytes));
    for (bool fromFile : {false, true}) {
      FsLtt l;
      FsLtt_init(&l, &engine.st);
      FS_FILE* fp = fromFile ? FS_open(&engine.st, dir.file("f.ltt").c_str()) : nullptr;
      EXPECT_EQ(fromFile ? FsLtt_read(&l, fp, adjustments)
                         : FsLtt_load(&l, bytes.data(), (FS_ULONG)bytes.size(), adjustments),
                error) << (fromFile ? "file" : "memory");
      if (fp) FS_close(&engine.st, fp);
      if (error == 0 && check) check(l);
      EXPECT_TRUE(error == 0 || l.components == nullptr);
      FsLtt_done(&l);
      EXPECT_EQ(engine.used(), start);
    }
  }
  enginetest::Engine engine{4u << 20};
  TempDir dir;
};

TEST_F(LttRead, VersionsHeadsAndRefusals) {
  for (int v : {0, 1, 3, 4, 5, 6, 7, 8}) {
    // From version 7 the head is 1024 bytes: a key past its first 512 is read.
    LttSpec s = twoBlocks(v, [v](LttSpec& s) {
      if (v > 1) s.legal = {"one", "two"};
      if (v >= 7) s.headKeys = {"x" + std::string(470, '.')};
      s.headKeys.push_back("maxp_offset=77");
    });
    expectRead(std::to_string(v).c_str(), s.build(), 0, [v](FsLtt& l) {
      // Two legal lines only with a count line (from 2); maxp forced behind
      // the last block below 6; the icons line from 4; no subfamily given.
      EXPECT_EQ(std::vector<long>({l.version, l.numLegal, (long)l.maxp_off, l.components[0].numIcons,
                                   (long)l.components[0].bmp.range1, l.components[1].numGlyphs}),
                std::vector<long>({v ? v : 1, v > 1 ? 2 : 1, v < 6 ? 512 + 2 * 512 : 77, v >= 4 ? 5 : 0, 1, 200}));
      EXPECT_EQ(std::string(FsLtt_getName(&l)) + "/" + FsLtt_getSubfamilyName(&l), "Linked/Regular");
    });
  }
  auto cut = [](int version, size_t n) { Bytes b = twoBlocks(version).build(); b.resize(n); return b; };
  Bytes magic = twoBlocks(6).build();
  magic[3] = 'X';
  const struct { const char* why; Bytes bytes; FS_LONG error; } rows[] = {
      {"version 9", twoBlocks(9).build(), (FS_LONG)LTT_ERR_VERSION},
      {"LTTX", magic, (FS_LONG)LTT_ERR_MAGIC},
      {"legal count 0", twoBlocks(6, [](LttSpec& s) { s.legalCount = 0; }).build(), ERR_LTT_LEGAL},
      {"legal count 10", twoBlocks(6, [](LttSpec& s) { s.legalCount = 10; }).build(), ERR_LTT_LEGAL},
      {"no components", twoBlocks(6, [](LttSpec& s) { s.components.clear(); }).build(), ERR_LTT_NO_COMPONENTS},
      {"cut inside the head", cut(6, 300), ERR_FILE_READ},
      {"cut inside a 1024 head's second half", cut(7, 700), ERR_FILE_READ},
      {"cut inside the last block", cut(6, 1400), ERR_FILE_READ},
  };
  for (const auto& r : rows) expectRead(r.why, r.bytes, r.error);
}

TEST_F(LttRead, KeyLines) {
  // A repeated string key replaces, an unknown key is passed over, a last
  // line without its newline ends the block unread. Decimal fixed point:
  // 12.5 = 12 << 16 + (5 << 16 + 5) / 10; 0.3333333 = 19661 + 1966 + 197 +
  // 20 + 2 + 0 + 0, each digit rounded alone (exact: 21845); -0.5 the
  // magnitude, then the sign; an eighth digit is ignored.
  expectRead("keys", twoBlocks(6, [](LttSpec& s) {
               s.headKeys = {"subfamily=Bold", "colour=red", "subfamily=Italic",
                             "fileversion=2.5", "fileversion=3"};
               s.components[0].keys = {"bold=1", "boldpercent=12.5", "italicangle=0.3333333"};
               s.components[1].keys = {"boldpercent=-0.5", "italicangle=1.000000049",
                                       "ttcindex=4", "groupprimary=9"};
               s.terminateHead = s.components[1].terminate = false;
             }).build(), 0, [](FsLtt& l) {
    EXPECT_STREQ(FsLtt_getSubfamilyName(&l), "Italic");
    EXPECT_STREQ(FsLtt_getFileVersion(&l), "2.5");
    const FsLttComponent* c = l.components;
    EXPECT_EQ(std::vector<long>({c[0].boldPercent, c[0].italicAngle, c[1].boldPercent,
                                 c[1].italicAngle, (long)c[1].ttcIndex, c[1].group}),
              std::vector<long>({819200, 21846, -32768, 65536, 4, 0}));
    EXPECT_TRUE(FsLttComponent_isBold(&c[0]) && !FsLttComponent_isBold(&c[1]));
  });
  // Every numeric key of both tables, 300 in decimal, hex and octal.
  const char* const kKeys =
      "name_offset name_size maxp_offset os/2_offset head_offset hhea_offset vhea_offset "
      "post_offset cmap_offset cmap_size kern_offset kern_size ot_gdef_offset ot_gdef_size "
      "ot_gsub_offset ot_gsub_size ot_gpos_offset ot_gpos_size grouptypesoffset "
      "grouptypescount | ttcindex targetmemptr targetoffset targetlength embeddedoffset "
      "embeddedsize bold italic groupprimary plane1range1 plane1range2 plane2range1 "
      "plane2range2 plane14range1 plane14range2 adjustmentsoffset adjustmentscount";
  for (const char* form : {"300", "0x12C", "0454"}) {
    LttSpec s = twoBlocks(7);
    std::istringstream keys(kKeys);
    std::vector<std::string>* to = &s.headKeys;  // then, after "|", the component's
    for (std::string k; keys >> k;)
      if (k == "|") to = &s.components[1].keys;
      else to->push_back(k + "=" + form);
    s.components[1].keys.insert(s.components[1].keys.end(), {"targetcallbackID=id7", "targetdirectory=../fonts"});
    expectRead(form, s.build(), 0, [](FsLtt& l) {
      const FsLttComponent& c = l.components[1];
      const FS_ULONG got[] = {
          l.ttf_name.offset, l.ttf_name.size, l.maxp_off, l.os_2_off, l.head_off, l.hhea_off,
          l.vhea_off, l.post_off, l.cmap.offset, l.cmap.size, l.kern.offset, l.kern.size,
          l.gdef.offset, l.gdef.size, l.gsub.offset, l.gsub.size, l.gpos.offset, l.gpos.size,
          l.groupTypesOffset, l.numGroupTypes, c.ttcIndex, (FS_ULONG)(uintptr_t)c.targetPtr,
          c.targetOff, c.targetLen, c.fontOffset, c.fontSize, c.group, c.smp.range1,
          c.smp.range2, c.sip.range1, c.sip.range2, c.ssp.range1, c.ssp.range2,
          c.adjustmentsOffset, c.numAdjustments};
      for (size_t i = 0; i < sizeof got / sizeof got[0]; i++) EXPECT_EQ(got[i], 300u) << i;
      EXPECT_TRUE(c.bold + c.italic == 2 && std::string(c.targetCId) == "id7" && std::string(c.targetDir) == "../fonts");
    });
  }
}

TEST_F(LttRead, AdjustmentAndGroupLookUps) {
  LttSpec s = twoBlocks(6);
  s.components[0].adjustments = {{10, 256, 1}, {20, -128, 2}, {30, 0, 0}};
  s.groups = {1, 7, 3, 9};
  Bytes bytes = s.build();
  expectRead("loaded", bytes, 0, [](FsLtt& l) {
    const struct { FS_USHORT size, ppem; FS_SHORT scale, shift; FS_USHORT max; } rows[] = {
        {5, 0, 0, 0, 9},          // below the first record: none, up to its size - 1
        {10, 10, 256, 1, 19},     // on a record
        {15, 10, 256, 1, 19},     // between records
        {20, 20, -128, 2, 29},    // on the middle one
        {40, 30, 0, 0, 0xFFFF}};  // above the last
    for (const auto& r : rows) {
      FsPPemAdjust adj = {r.size, 77, 77};
      FS_USHORT max = 0;
      EXPECT_EQ(FsLttComponent_getAdjustmentAndRange(&l.components[0], &adj, &max), 0);
      EXPECT_EQ(std::vector<int>({adj.ppem, adj.scale, adj.shift, max}),
                std::vector<int>({r.ppem, r.scale, r.shift, r.max})) << r.size;
    }
    for (FS_USHORT g : {0, 1, 2, 3, 5})  // group 0, hits, misses
      EXPECT_EQ(FsLtt_getGroupType(&l, g), g == 1 ? 7 : g == 3 ? 9 : 0) << g;
  }, true);
  expectRead("records not loaded", bytes, 0, [](FsLtt& l) {
    FsPPemAdjust adj = {12, 0, 0};
    FS_USHORT max = 0;
    EXPECT_EQ(FsLttComponent_getAdjustmentAndRange(&l.components[0], &adj, &max), ERR_BAD_ARGUMENT);
  });
  expectRead("a table cut short", Bytes(bytes.begin(), bytes.end() - 2), ERR_FILE_READ, nullptr, true);
}

}  // namespace
