// The compressed-font decoder against an independent encoder
// (support/zrp3_encoder.h) on DejaVu Sans and Liberation Serif: every byte
// of the uncompressed font through raw and token blocks of two unit sizes,
// every converted glyph against its source, the engine's points on the
// compressed font against those on the source, hand-worked compact numbers
// and codes, loans and refusals, and a sweep of damaged images.
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cmath>
#include <map>
#include <random>
#include <set>

#include "Orvex_internal/fs_decomp.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_tableptr.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_font.h"
#include "support/glyf_font.h"
#include "support/scaled_font.h"
#include "support/test_support.h"
#include "support/zrp3_encoder.h"

namespace {

using sfnt::Bytes;

#if defined(__SANITIZE_ADDRESS__)
const int kStride = 7;  // every 7th glyph under the sanitizer
#else
const int kStride = 1;
#endif

const char kSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
const char kSerif[] = "/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf";

sfnt::Font source(const char* path) {
  std::string bytes = testsupport::readBytes(path);
  EXPECT_FALSE(bytes.empty()) << path << " is missing";
  return sfnt::read(sfnt::asBytes(bytes));
}

// The compressed images, made once.
const zrp3::Compressed& image(const char* path, uint32_t unit) {
  static std::map<std::pair<std::string, uint32_t>, zrp3::Compressed> made;
  auto key = std::make_pair(std::string(path), unit);
  if (!made.count(key)) made[key] = zrp3::compress(source(path), unit);
  return made[key];
}

struct Decoder {
  Decoder() { EXPECT_EQ(FSS_init(&st, 64u << 20), 0); }
  ~Decoder() { FSS_exit(&st); }
  FS_STATE st;
};

// What the decoder reads at (position, count), or "error N".
Bytes readAt(FS_STATE* st, QSX_RA_TT_Decomp* t, FS_ULONG at, FS_ULONG n) {
  FS_ULONG got = n;
  FS_BYTE* p = (FS_BYTE*)QSX_RA_Get_TTF_FragmentPtr(st, t, at, &got);
  if (p == nullptr) return Bytes();
  Bytes b(p, p + got);
  QSX_RA_ReleaseTTF_Fragment(st, t, p);
  return b;
}

// The uncompressed bytes of (position, count): zeros past the block.
Bytes expected(const zrp3::Compressed& c, size_t at, size_t n) {
  size_t end = c.plain.size();
  for (const zrp3::Block& b : c.blocks)
    if (b.start <= at) end = b.start + b.length;
  Bytes out(n, 0);
  for (size_t i = 0; i < n && at + i < end; i++) out[i] = c.plain[at + i];
  return out;
}

TEST(Decomp, FragmentsEqualTheUncompressedFontAtUnitsEdgesAndRandomPlaces) {
  for (const char* path : {kSans, kSerif}) {
    for (uint32_t unit : {128u, 64u}) {
      SCOPED_TRACE(std::string(path) + " unit " + std::to_string(unit));
      const zrp3::Compressed& c = image(path, unit);
      // Long codes take the search past the 10-bit table, and symbols that
      // straddle units are decoded from the unit before.
      EXPECT_GT(c.tokens.longestCode, 10);
      EXPECT_GT(c.tokens.straddles, 500);
      Decoder d;
      QSX_RA_TT_Decomp* t = QSX_RA_TT_Create(&d.st, (FS_BYTE*)c.image.data(),
                                             (FS_ULONG)c.image.size());
      ASSERT_NE(t, nullptr) << d.st.error;
      t->compactGlyphs = 1;  // bytes as stored, not converted glyphs
      EXPECT_EQ(QSX_RA_TT_getUncompressedFileSize(t), c.plain.size());
      size_t bad = 0, reads = 0;
      auto check = [&](size_t at, size_t n) {
        reads++;
        if (readAt(&d.st, t, (FS_ULONG)at, (FS_ULONG)n) != expected(c, at, n) && bad++ < 5)
          ADD_FAILURE() << "at " << at << " count " << n;
      };
      for (size_t at = 0; at < c.plain.size(); at += unit * kStride) {
        check(at, unit);
        if (at >= 5) check(at - 5, 11);  // across the unit's edge
      }
      std::mt19937 rng(unit);
      for (int i = 0; i < 2000 / kStride; i++)
        check(rng() % c.plain.size(), 1 + rng() % 4096);
      EXPECT_EQ(bad, 0u) << "of " << reads;
      QSX_RA_TT_Destroy(&d.st, t);
    }
  }
}

// A converted glyph against its source: contours, on-curve flags, points,
// box, composite records; instructions push the same values, then the same
// bytes.
void expectSameGlyph(const Bytes& got, const Bytes& want, int glyph) {
  SCOPED_TRACE("glyph " + std::to_string(glyph));
  ASSERT_GE(got.size(), 10u);
  EXPECT_TRUE(std::equal(got.begin(), got.begin() + 10, want.begin()));
  size_t gi, wi, gn, wn;
  if (zrp3::s16(want, 0) < 0) {
    bool gInstr, wInstr;
    size_t gEnd = zrp3::compositeEnd(got, &gInstr), wEnd = zrp3::compositeEnd(want, &wInstr);
    ASSERT_EQ(Bytes(got.begin(), got.begin() + gEnd), Bytes(want.begin(), want.begin() + wEnd));
    if (!wInstr) return;
    gi = gEnd + 2, gn = sfnt::getU16(got, gEnd), wi = wEnd + 2, wn = sfnt::getU16(want, wEnd);
  } else {
    zrp3::Simple g = zrp3::parseSimple(got), w = zrp3::parseSimple(want);
    EXPECT_EQ(g.ends, w.ends);
    EXPECT_EQ(g.on, w.on);
    EXPECT_EQ(g.x, w.x);
    EXPECT_EQ(g.y, w.y);
    gi = g.instrAt, gn = g.instrLen, wi = w.instrAt, wn = w.instrLen;
  }
  std::vector<int> gv, wv;
  Bytes gr, wr;
  zrp3::splitPushes(got.data() + gi, gn, gv, gr);
  zrp3::splitPushes(want.data() + wi, wn, wv, wr);
  EXPECT_EQ(gv, wv);
  EXPECT_EQ(gr, wr);
}

TEST(Decomp, ConvertedGlyphsAreTheSourceGlyphs) {
  // The spline form keeps the stored box where it is not the points' box.
  EXPECT_EQ(image(kSans, 128).boxesKept, 18);
  for (const char* path : {kSans, kSerif}) {
    const zrp3::Compressed& c = image(path, 128);
    std::vector<Bytes> want = zrp3::glyphsOf(source(path));
    Decoder d;
    QSX_RA_TT_Decomp* t = QSX_RA_TT_Create(&d.st, (FS_BYTE*)c.image.data(), (FS_ULONG)c.image.size());
    ASSERT_NE(t, nullptr);
    sfnt::Font plain = sfnt::read(c.plain);
    const Bytes& loca = *plain.find("loca");
    for (size_t g = 0; g < want.size() && !HasFailure(); g += kStride) {
      uint32_t a = sfnt::getU32(loca, 4 * g), b = sfnt::getU32(loca, 4 * g + 4);
      if (a != b) expectSameGlyph(readAt(&d.st, t, c.glyfStart + a, b - a), want[g], (int)g);
    }
    QSX_RA_TT_Destroy(&d.st, t);
    EXPECT_EQ(FS_get_heap_used(&d.st), 3024u);
  }
}

// The engine's unhinted points and phantom places of every glyph of `a` and
// `b` at `ppem`, equal; `places` of the 8 phantom places are compared.
void expectSamePoints(testsupport::ScaledFont& a, testsupport::ScaledFont& b, int ppem,
                      int places = 8) {
  ASSERT_EQ(a.setPpem(ppem), 0);
  ASSERT_EQ(b.setPpem(ppem), 0);
  int n = a.key()->maxp->numGlyphs, bad = 0;
  for (int g = 0; g < n && bad < 5; g += kStride) {
    FS_LONG ea = a.fetch(g), eb = b.fetch(g);
    fnt_ElementType *x = a.element(), *y = b.element();
    bool same = ea == 0 && eb == 0 && x->np == y->np && x->nc == y->nc;
    for (int i = 0; same && i < x->nc; i++) same = x->ep[i] == y->ep[i];
    for (int i = 0; same && i < x->np; i++)
      same = x->x[i] == y->x[i] && x->y[i] == y->y[i] && x->onCurve[i] == y->onCurve[i];
    for (int i = 0; same && i < places; i++)
      same = x->x[x->np + i] == y->x[y->np + i] && x->y[x->np + i] == y->y[y->np + i];
    if (!same) ADD_FAILURE() << "glyph " << g << " at " << ppem << " ppem", bad++;
  }
}

TEST(Decomp, CompressedFontsDrawTheSourcePoints) {
  for (const char* path : {kSans, kSerif}) {
    testsupport::ScaledFont plain, packed;
    plain.setFont(path);
    packed.setFont("", image(path, 64).image);
    for (int ppem : {12, 24, 72}) expectSamePoints(plain, packed, ppem);
  }
}

// DejaVu Sans at 128 units per em: points and boxes scaled and rounded,
// instructions dropped, each left side bearing its glyph's xMin, so that its
// advances fit a byte.
sfnt::Font sansAt128() {
  sfnt::Font f = source(kSans);
  auto div16 = [](int v) { return (int)lround(v / 16.0); };
  std::vector<Bytes> glyphs = zrp3::glyphsOf(f);
  std::vector<int> xMins;
  for (Bytes& g : glyphs) {
    Bytes out;
    if (g.empty()) {
    } else if (zrp3::s16(g, 0) >= 0) {
      zrp3::Simple s = zrp3::parseSimple(g);
      std::vector<glyffont::Pt> pts;
      for (size_t i = 0; i < s.x.size(); i++) pts.push_back({div16(s.x[i]), div16(s.y[i]), s.on[i]});
      out = glyffont::simple(s.ends, pts);
    } else {
      bool instr;
      size_t end = zrp3::compositeEnd(g, &instr);
      sfnt::u16(out, 0xFFFF);
      for (int k = 0; k < 4; k++) sfnt::u16(out, (uint32_t)div16(zrp3::s16(g, 2 + 2 * k)));
      for (size_t p = 10; p < end;) {
        uint32_t fl = sfnt::getU16(g, p);
        int a = (fl & 1) ? zrp3::s16(g, p + 4) : (int8_t)g[p + 4];
        int b = (fl & 1) ? zrp3::s16(g, p + 6) : (int8_t)g[p + 5];
        size_t q = p + ((fl & 1) ? 8 : 6);
        size_t scales = (fl & 8) ? 2 : (fl & 0x40) ? 4 : (fl & 0x80) ? 8 : 0;
        sfnt::u16(out, (fl | 1) & ~0x300u), sfnt::u16(out, sfnt::getU16(g, p + 2));
        sfnt::u16(out, (uint32_t)div16(a)), sfnt::u16(out, (uint32_t)div16(b));
        out.insert(out.end(), g.begin() + q, g.begin() + q + scales);
        p = q + scales;
      }
    }
    xMins.push_back(out.size() >= 10 ? zrp3::s16(out, 2) : 0);
    g = out;
  }
  zrp3::setGlyphs(f, glyphs);
  const Bytes& hmtx = *f.find("hmtx");
  uint32_t nlong = sfnt::getU16(*f.find("hhea"), 34);
  Bytes scaled;
  for (uint32_t i = 0; i < glyphs.size(); i++) {
    if (i < nlong) sfnt::u16(scaled, (uint32_t)div16(sfnt::getU16(hmtx, 4 * i)));
    sfnt::u16(scaled, (uint32_t)xMins[i]);
  }
  Bytes head = *f.find("head");
  sfnt::putU16(head, 18, 128);
  for (const char* t : {"fpgm", "prep", "cvt ", "hdmx", "VDMX", "LTSH"}) f.remove(t);
  return f.set("hmtx", scaled).set("head", head);
}

TEST(Compact, CompactFontsDrawTheSourcePoints) {
  sfnt::Font sans = source(kSans), small = sansAt128();
  struct Row { const sfnt::Font* src; uint32_t format; bool compressed; const char* why; };
  const Row rows[] = {
      {&sans, 0x0202, false, "ccc with the use-my-metrics bit"},
      {&sans, 0x0201, false, "ccc version 7: minimum advance, 10-bit scales"},
      {&sans, 0x0200, false, "ccc: 16-bit advances, 10-bit scales"},
      {&small, 0x0500, false, "ddd: advances in a byte"},
      {&sans, 0x0202, true, "ccc compressed: glyph data passes unconverted"},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.why);
    sfnt::Font packed = zrp3::pack(*r.src, r.format);
    if (r.format == 0x0500) {  // advances in a byte: the largest is 240
      const Bytes& hmtx = *packed.find("hmtx");
      EXPECT_EQ(*std::max_element(hmtx.begin() + 2, hmtx.begin() + 2 + hmtx[0]), 240);
    }
    testsupport::ScaledFont plain, compact;
    plain.setFont("", sfnt::build(*r.src));
    compact.setFont("", r.compressed ? zrp3::compress(packed, 128, false).image : sfnt::build(packed));
    // The box reads as 0, so of the phantom places only the advance's four
    // (left, right and their middles) stand where the source has them.
    for (int ppem : {12, 24, 72}) expectSamePoints(plain, compact, ppem, 4);
  }
}

TEST(Compact, StandardTablesOfACompactFontAreNotLent) {
  Bytes font = sfnt::build(zrp3::pack(source(kSans), 0x0202));
  Decoder d;
  char name[64];
  ASSERT_EQ(FSS_load_font(&d.st, nullptr, font.data(), 0, sizeof name, name), 0);
  ASSERT_EQ(FSS_set_font(&d.st, name), 0);
  for (const char* tag : {"loca", "hmtx", "glyf"}) {
    EXPECT_EQ(FSS_get_table(&d.st, sfnt::tagOf(tag), TABLE_LEND, nullptr), nullptr);
    EXPECT_EQ(d.st.error, (FS_ULONG)ERR_TABLE_NOT_STANDARD) << tag;
  }
}

TEST(Decomp, CompactNumbersAndPointCodesByHand) {
  struct Row { Bytes in; int want; const char* why; };
  const Row ushorts[] = {{{253, 1, 0}, 256, "a word"}, {{255, 7}, 260, "253 on"},
                         {{254, 0}, 506, "506 on"}, {{252}, 252, "itself"}};
  for (const Row& r : ushorts) {
    FS_CURSOR c = cursor_at(r.in.data(), (FS_ULONG)r.in.size());
    EXPECT_EQ(Read255UShort(&c), r.want) << r.why;
  }
  const Row shorts[] = {{{250, 4}, -5, "negative"}, {{251, 1}, 1275, "(4 << 8) + 1 + 250"},
                        {{253, 0xFF, 0xFE}, -2, "a signed word"}, {{249}, 249, "itself"},
                        {{255, 0}, 250, "250 on"}};
  for (const Row& r : shorts) {
    FS_CURSOR c = cursor_at(r.in.data(), (FS_ULONG)r.in.size());
    EXPECT_EQ(Read255Short(&c), r.want) << r.why;
  }
  // One-point glyphs in spline form: the point code, then its bytes.
  struct Point { Bytes code; int x, y; const char* why; };
  const Point points[] = {
      {{20, 0x23}, -3, -4, "4+4 bits plus 1, both negative"},
      {{84, 0x10, 0x20}, -17, -33, "8+8 bits plus 1"},
      {{120, 0x12, 0x34, 0x56}, -291, -1110, "12+12 bits"},
      {{23, 0x00}, 1, 1, "fourth of its four: both positive"},
      {{119, 0x00, 0x00}, 513, 513, "k = 8: bases 1 + 256 x 2"},
      {{3, 0x05}, 0, 261, "y only, base 256, positive"},
      {{10, 0x07}, -7, 0, "x only, negative"}};
  for (const Point& p : points) {
    Bytes spline = {0, 1, 1};  // one contour of one point
    spline.push_back(p.code[0]);
    spline.insert(spline.end(), p.code.begin() + 1, p.code.end());
    spline.insert(spline.end(), {0, 0});  // no pushes, no code
    Decoder d;
    FS_ULONG n = 0;
    FS_BYTE* g = QSX_TTC_GetTTFGlyphMemory(&d.st, spline.data(), (FS_ULONG)spline.size(), &n);
    ASSERT_NE(g, nullptr) << p.why;
    zrp3::Simple s = zrp3::parseSimple(Bytes(g, g + n));
    EXPECT_EQ(s.x, std::vector<int>{p.x}) << p.why;
    EXPECT_EQ(s.y, std::vector<int>{p.y}) << p.why;
    FSS_free(&d.st, g);
  }
}

// A token block by hand: `lengths`, dictionary text, groups (bits, first,
// last), the stream's bits as text; unit 128 and one mark at bit 0.
Bytes handBlock(const Bytes& lengths, const std::string& text,
                const std::vector<std::array<uint32_t, 3>>& groups, const std::string& stream,
                uint32_t count) {
  Bytes b;
  sfnt::u32(b, sfnt::tagOf("RAC\3")), sfnt::u32(b, 0), sfnt::u32(b, count);
  sfnt::u32(b, (uint32_t)lengths.size());
  b.insert(b.end(), lengths.begin(), lengths.end());
  sfnt::u8(b, 0), sfnt::u32(b, (uint32_t)text.size());
  b.insert(b.end(), text.begin(), text.end());
  sfnt::u8(b, (uint32_t)groups.size());
  for (auto& g : groups) sfnt::u8(b, g[0]);
  for (auto& g : groups) sfnt::u32(b, g[1]);
  for (auto& g : groups) sfnt::u32(b, g[2]);
  sfnt::u32(b, 1), sfnt::u32(b, 0), sfnt::u8(b, 0);
  sfnt::u32(b, (uint32_t)b.size() + 4);
  zrp3::BitWriter w;
  for (char ch : stream) w.put(ch == '1', 1);
  b.insert(b.end(), w.out.begin(), w.out.end());
  sfnt::putU32(b, 4, (uint32_t)b.size());
  return b;
}

TEST(Decomp, TokenBlocksByHand) {
  struct Row { Bytes block; std::string want; FS_ULONG error; const char* why; };
  const Row rows[] = {
      {handBlock({2, 1, 1}, "abab", {{1, 0, 0}, {2, 2, 3}}, "01110", 4), "abba", 0,
       "0: ab, 11: b, 10: a"},
      // Codes 0 (1 bit, "a") and 0b100000000000 (12 bits, "b"): the long one
      // is found by the search past the 10-bit table.
      {handBlock({1, 1}, "ab", {{1, 0, 0}, {12, 2048, 2048}}, "0" "100000000000" "0", 3), "aba",
       0, "a 12-bit code"},
      {handBlock({1, 1}, "ab", {{1, 0, 0}, {12, 2048, 2048}}, "0" "110000000000", 2), "",
       ERR_DECOMP_STREAM, "a code in no group"},
      {handBlock({1, 1}, "ab", {{2, 0, 0}, {1, 1, 1}}, "0", 1), "", ERR_DECOMP_STREAM,
       "groups out of order"},
      {handBlock({1, 0}, "ab", {{1, 0, 1}}, "0", 1), "", ERR_DECOMP_STREAM, "a token of 0 bytes"},
      {handBlock({1, 2}, "ab", {{1, 0, 1}}, "0", 1), "", ERR_DECOMP_STREAM,
       "a token past the dictionary"},
      {handBlock({1, 1}, "ab", {{1, 0, 2}}, "0", 1), "", ERR_DECOMP_STREAM,
       "more codes than tokens"},
  };
  for (const Row& r : rows) {
    Decoder d;
    QSX_RA_DECOMP* dec = QSX_RA_DECOMP_Create(&d.st, r.block.data(), (FS_ULONG)r.block.size());
    std::string got;
    if (dec != nullptr) {
      FS_ULONG n = (FS_ULONG)r.want.size() + 2;  // 2 bytes past the content: zeros
      FS_BYTE* p = (FS_BYTE*)QSX_RA_GetFragmentPtr(&d.st, dec, 0, &n, 128);
      if (p != nullptr) {
        got.assign((char*)p, r.want.size());
        EXPECT_EQ(p[r.want.size()] | p[r.want.size() + 1], 0) << r.why;
        FSS_free(&d.st, p);
      }
      QSX_RA_DECOMP_Destroy(&d.st, dec);
    }
    EXPECT_EQ(got, r.want) << r.why;
    EXPECT_EQ(d.st.error, r.error) << r.why;
    EXPECT_EQ(FS_get_heap_used(&d.st), 3024u) << r.why;
  }
}

TEST(Decomp, RefusalsAndLoans) {
  const zrp3::Compressed& c = image(kSans, 128);
  testsupport::TempDir dir;
  std::string path = dir.file("packed.ttf");
  testsupport::writeBytes(path, sfnt::asString(c.image));
  Decoder d;
  EXPECT_EQ(load_ttf(&d.st, (FILECHAR*)path.c_str(), nullptr, 0, 0, 0, 0, 0), nullptr);
  EXPECT_EQ(d.st.error, (FS_ULONG)ERR_COMPRESSED_FROM_FILE);
  char name[64];
  ASSERT_EQ(FSS_load_font(&d.st, nullptr, (FS_BYTE*)c.image.data(), 0, sizeof name, name), 0);
  ASSERT_EQ(FSS_set_font(&d.st, name), 0);
  sfnt::Font plain = sfnt::read(c.plain);
  struct Row { const char* tag; bool inPlace; };
  for (Row r : {Row{"OS/2", true}, Row{"post", false}, Row{"name", false}}) {
    FS_ULONG len = 0;
    FS_BYTE* p = FSS_get_table(&d.st, sfnt::tagOf(r.tag), TABLE_LEND, &len);
    ASSERT_NE(p, nullptr) << r.tag;
    bool inImage = p >= c.image.data() && p < c.image.data() + c.image.size();
    EXPECT_EQ(inImage, r.inPlace) << r.tag;
    EXPECT_EQ(Bytes(p, p + len), *plain.find(r.tag)) << r.tag;
    EXPECT_EQ(FSS_free_table(&d.st, p), 0);
  }
}

// Damaged images: the load gives 0 or 1030 (403 for a damaged `head`), each
// glyph its points or 406, 407, 418, 419, 1030, quickly; the decoder's
// allocations all go back.
TEST(Decomp, DamagedImagesAreRefusedOrDecodeToGlyphs) {
  sfnt::Font src = source(kSans);
  std::vector<Bytes> glyphs = zrp3::glyphsOf(src);
  glyphs.resize(48);  // a small font keeps the sweep quick
  zrp3::setGlyphs(src, glyphs);
  Bytes maxp = *src.find("maxp"), hhea = *src.find("hhea");
  sfnt::putU16(maxp, 4, 48), sfnt::putU16(hhea, 34, 48);
  src.set("maxp", maxp).set("hhea", hhea);
  for (const char* drop : {"GSUB", "GPOS", "GDEF", "kern", "fpgm", "prep", "cvt "}) src.remove(drop);
  zrp3::Compressed spline = zrp3::compress(src, 64);
  zrp3::Compressed packed = zrp3::compress(zrp3::pack(src, 0x0202), 128, false);
  std::mt19937 rng(38);
  std::set<FS_ULONG> loads, fetches;
  for (int m = 0; m < 1000; m++) {
    const zrp3::Compressed& c = m % 2 ? packed : spline;
    Bytes img = c.image;
    // Damage the `zrp3` entries, or the header and stream of the `glyf`,
    // `loca` or `hmtx` block.
    sfnt::Font f = sfnt::read(c.plain);
    size_t zrp = sfnt::getU32(c.plain, sfnt::entryOf(c.plain, "zrp3") + 8);
    size_t pick = rng() % 4;
    size_t from = zrp + 20, to = zrp + 20 + 14 * c.blocks.size();
    if (pick > 0) {
      const char* tags[] = {"glyf", "loca", "hmtx"};
      uint32_t start = sfnt::getU32(c.plain, sfnt::entryOf(c.plain, tags[pick - 1]) + 8);
      for (size_t i = 0; i < c.blocks.size(); i++)
        if (c.blocks[i].start == start) {
          from = sfnt::getU32(c.plain, zrp + 20 + 14 * i + 8);
          to = i + 1 < c.blocks.size() ? sfnt::getU32(c.plain, zrp + 20 + 14 * (i + 1) + 8)
                                      : img.size();
        }
    }
    for (int k = 1 + rng() % 3; k > 0; k--) img[from + rng() % (to - from)] ^= (uint8_t)(1 + rng() % 255);
    auto begun = std::chrono::steady_clock::now();
    FS_LONG load = 0;
    {
      Decoder d;
      QSX_RA_TT_Decomp* t = QSX_RA_TT_Create(&d.st, img.data(), (FS_ULONG)img.size());
      if (t != nullptr)
        for (size_t at = 0; at < c.plain.size(); at += 1000) readAt(&d.st, t, (FS_ULONG)at, 1000);
      QSX_RA_TT_Destroy(&d.st, t);
      TTF* ttf = load_ttf(&d.st, nullptr, img.data(), 0, 0, (FS_ULONG)img.size(), 0, 0);
      load = d.st.error;
      unload_ttf(&d.st, ttf);
      EXPECT_EQ(FS_get_heap_used(&d.st), 3024u) << "mutation " << m;
    }
    loads.insert((FS_ULONG)load);
    EXPECT_TRUE(load == 0 || load == ERR_NOT_A_TTF || load == ERR_DECOMP_STREAM) << load;
    testsupport::ScaledFont font;
    font.setFont("", img);
    if (load == 0) ASSERT_EQ(font.setPpem(24), 0);
    for (int g = 0; load == 0 && g < 48; g++) {
      FS_LONG e = font.fetch(g);
      fetches.insert((FS_ULONG)e);
      EXPECT_TRUE(e == 0 || e == ERR_BAD_GLYF_INDEX || e == ERR_BAD_GLYF_FORMAT ||
                  e == ERR_TOO_MANY_POINTS || e == ERR_TOO_MANY_CONTOURS || e == ERR_DECOMP_STREAM)
          << "mutation " << m << " glyph " << g << ": " << e;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(1));
  }
  // The damage reaches all the refusals.
  EXPECT_TRUE(loads.count(ERR_DECOMP_STREAM) && loads.count(0));
  EXPECT_TRUE(fetches.count(ERR_BAD_GLYF_FORMAT) && fetches.count(0));
}

}  // namespace
