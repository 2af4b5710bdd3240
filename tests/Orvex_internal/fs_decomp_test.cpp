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
  zrp3::Compressed& c = made[{path, unit}];
  if (c.image.empty()) c = zrp3::compress(source(path), unit);
  return c;
}

// A state, and the decoder of `image` when one is given.
struct Decoder {
  explicit Decoder(const Bytes* image = nullptr) {
    EXPECT_EQ(FSS_init(&st, 64u << 20), 0);
    if (image) t = QSX_RA_TT_Create(&st, (FS_BYTE*)image->data(), (FS_ULONG)image->size());
  }
  ~Decoder() { QSX_RA_TT_Destroy(&st, t), FSS_exit(&st); }
  // What the decoder reads at (position, count); empty on an error.
  Bytes read(size_t at, size_t n) {
    FS_ULONG got = (FS_ULONG)n;
    FS_BYTE* p = (FS_BYTE*)QSX_RA_Get_TTF_FragmentPtr(&st, t, (FS_ULONG)at, &got);
    Bytes b(p, p ? p + got : p);
    if (p) QSX_RA_ReleaseTTF_Fragment(&st, t, p);
    return b;
  }
  FS_STATE st;
  QSX_RA_TT_Decomp* t = nullptr;
};

// The uncompressed bytes of (position, count): zeros past the block.
Bytes expected(const zrp3::Compressed& c, size_t at, size_t n) {
  size_t end = c.plain.size();
  for (const zrp3::Block& b : c.blocks) end = b.start <= at ? b.start + b.length : end;
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
      EXPECT_TRUE(c.tokens.longestCode > 10 && c.tokens.straddles > 500) << c.tokens.longestCode << " " << c.tokens.straddles;
      Decoder d(&c.image);
      ASSERT_NE(d.t, nullptr) << d.st.error;
      d.t->compactGlyphs = 1;  // bytes as stored, not converted glyphs
      EXPECT_EQ(QSX_RA_TT_getUncompressedFileSize(d.t), c.plain.size());
      size_t bad = 0, reads = 0;
      auto check = [&](size_t at, size_t n) {
        if (reads++, d.read(at, n) != expected(c, at, n) && bad++ < 5)
          ADD_FAILURE() << "at " << at << " count " << n;
      };
      for (size_t at = 0; at < c.plain.size(); at += unit * kStride) {
        check(at, unit);
        if (at >= 5) check(at - 5, 11);  // across the unit's edge
      }
      std::mt19937 rng(unit);
      for (int i = 0; i < 2000 / kStride; i++) check(rng() % c.plain.size(), 1 + rng() % 4096);
      EXPECT_EQ(bad, 0u) << "of " << reads;
    }
  }
}

// A converted glyph against its source: both parsed by the test-side
// reader and written again as splines with their stored boxes, which says
// the same contours, on-curve flags, points, box and composite records, and
// instructions that push the same values, then end in the same bytes.
TEST(Decomp, ConvertedGlyphsAreTheSourceGlyphs) {
  // The spline form keeps the stored box where it is not the points' box.
  EXPECT_EQ(image(kSans, 128).boxesKept, 18);
  for (const char* path : {kSans, kSerif}) {
    const zrp3::Compressed& c = image(path, 128);
    std::vector<Bytes> want = zrp3::glyphsOf(source(path));
    Decoder d(&c.image);
    ASSERT_NE(d.t, nullptr);
    const Bytes loca = *sfnt::read(c.plain).find("loca");
    for (size_t g = 0; g < want.size() && !HasFailure(); g += kStride) {
      uint32_t a = sfnt::getU32(loca, 4 * g), b = sfnt::getU32(loca, 4 * g + 4);
      EXPECT_TRUE(a == b || zrp3::spline(d.read(c.glyfStart + a, b - a), true) == zrp3::spline(want[g], true))
          << "glyph " << g;
    }
    QSX_RA_TT_Destroy(&d.st, d.t), d.t = nullptr;
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
    if (!g.empty() && zrp3::s16(g, 0) >= 0) {
      zrp3::Simple s = zrp3::parseSimple(g);
      std::vector<glyffont::Pt> pts;
      for (size_t i = 0; i < s.x.size(); i++) pts.push_back({div16(s.x[i]), div16(s.y[i]), s.on[i]});
      out = glyffont::simple(s.ends, pts);
    } else if (!g.empty()) {
      bool instr;
      size_t end = zrp3::compositeEnd(g, &instr);
      sfnt::u16(out, 0xFFFF);
      for (int k = 0; k < 4; k++) sfnt::u16(out, (uint32_t)div16(zrp3::s16(g, 2 + 2 * k)));
      for (size_t p = 10, q; p < end; p += zrp3::recordSize(sfnt::getU16(g, p))) {
        uint32_t fl = sfnt::getU16(g, p), words = fl & 1;  // args as words, else bytes
        sfnt::u16(out, (fl | 1) & ~0x300u), sfnt::u16(out, sfnt::getU16(g, p + 2));
        for (int k = 0; k < 2; k++)
          sfnt::u16(out, (uint32_t)div16(words ? zrp3::s16(g, p + 4 + 2 * k) : (int8_t)g[p + 4 + k]));
        q = p + (words ? 8 : 6), out.insert(out.end(), g.begin() + q, g.begin() + p + zrp3::recordSize(fl));
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

TEST(Compact, CompressedAndCompactFontsDrawTheSourcePoints) {
  sfnt::Font small = sansAt128();
  struct Row { const char* path; uint32_t format; bool compressed; const char* why; };  // no path: `small`
  const Row rows[] = {
      {kSans, 0, true, "compressed, glyphs as splines"},
      {kSerif, 0, true, "compressed, glyphs as splines"},
      {kSans, 0x0202, false, "ccc with the use-my-metrics bit"},
      {kSans, 0x0201, false, "ccc version 7: minimum advance, 10-bit scales"},
      {kSans, 0x0200, false, "ccc: 16-bit advances, 10-bit scales"},
      {nullptr, 0x0500, false, "ddd: advances in a byte"},
      {kSans, 0x0202, true, "ccc compressed: glyph data passes unconverted"},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.why);
    sfnt::Font src = r.path ? source(r.path) : small, packed = r.format ? zrp3::pack(src, r.format) : src;
    if (r.format == 0x0500) {  // advances in a byte: the largest is 240
      const Bytes& hmtx = *packed.find("hmtx");
      EXPECT_EQ(*std::max_element(hmtx.begin() + 2, hmtx.begin() + 2 + hmtx[0]), 240);
    }
    testsupport::ScaledFont plain, compact;
    plain.setFont("", sfnt::build(src));
    compact.setFont("", !r.compressed ? sfnt::build(packed)
                        : r.format ? zrp3::compress(packed, 128, false).image : image(r.path, 64).image);
    // A compact glyph's box reads as 0, so of its phantom places only the
    // advance's four (left, right and their middles) stand where the
    // source has them.
    for (int ppem : {12, 24, 72}) expectSamePoints(plain, compact, ppem, r.format ? 4 : 8);
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
  struct Row { bool isShort; Bytes in; int want; const char* why; };
  const Row numbers[] = {
      {false, {253, 1, 0}, 256, "a word"}, {false, {255, 7}, 260, "253 on"},
      {false, {254, 0}, 506, "506 on"}, {false, {252}, 252, "itself"},
      {true, {250, 4}, -5, "negative"}, {true, {251, 1}, 1275, "(4 << 8) + 1 + 250"},
      {true, {253, 0xFF, 0xFE}, -2, "a signed word"}, {true, {249}, 249, "itself"},
      {true, {255, 0}, 250, "250 on"}};
  for (const Row& r : numbers) {
    FS_CURSOR c = cursor_at(r.in.data(), (FS_ULONG)r.in.size());
    EXPECT_EQ(r.isShort ? Read255Short(&c) : Read255UShort(&c), r.want) << r.why;
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
    Bytes spline = {0, 1, 1};  // one contour of one point, its code and bytes
    zrp3::append(spline, p.code), zrp3::append(spline, {0, 0});  // no pushes, no code
    Decoder d;
    FS_ULONG n = 0;
    FS_BYTE* g = QSX_TTC_GetTTFGlyphMemory(&d.st, spline.data(), (FS_ULONG)spline.size(), &n);
    ASSERT_NE(g, nullptr) << p.why;
    zrp3::Simple s = zrp3::parseSimple(Bytes(g, g + n));
    EXPECT_TRUE(s.x == std::vector<int>{p.x} && s.y == std::vector<int>{p.y}) << p.why;
    FSS_free(&d.st, g);
  }
}

// A token block by hand: `lengths`, dictionary text, groups (bits, first,
// last), the stream's bits as text; unit 128 and one mark at bit 0.
Bytes handBlock(const Bytes& lengths, const std::string& text,
                const std::vector<std::array<uint32_t, 3>>& groups, const std::string& stream,
                uint32_t count) {
  zrp3::Parts p;
  p.size = count, p.units = 1, p.lengths = lengths, p.text = sfnt::asBytes(text), p.marks = {0, 0, 0, 0}, p.deltas = {0};
  for (auto& g : groups) p.bits.push_back(g[0]), p.firsts.push_back(g[1]), p.lasts.push_back(g[2]);
  zrp3::BitWriter w;
  for (char ch : stream) w.put(ch == '1', 1);
  p.stream = w.out;
  return zrp3::blockBytes(p);
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
  testsupport::writeBytes(path, sfnt::asString(c.image));  // a compressed font by path: refused
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
    EXPECT_EQ(p >= c.image.data() && p < c.image.data() + c.image.size(), r.inPlace) << r.tag;
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
  sfnt::putU16(maxp, 4, 48), sfnt::putU16(hhea, 34, 48), src.set("maxp", maxp).set("hhea", hhea);
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
    size_t pick = rng() % 4, from = sfnt::getU32(c.plain, sfnt::entryOf(c.plain, "zrp3") + 8) + 20;
    size_t to = from + 14 * c.blocks.size();
    for (size_t i = 0; pick > 0 && i < c.blocks.size(); i++)
      if (c.blocks[i].start == sfnt::getU32(c.plain, sfnt::entryOf(c.plain, "glyf\0loca\0hmtx" + 5 * (pick - 1)) + 8))
        from = c.blocks[i].stored, to = i + 1 < c.blocks.size() ? c.blocks[i + 1].stored : img.size();
    for (int k = 1 + rng() % 3; k > 0; k--) img[from + rng() % (to - from)] ^= (uint8_t)(1 + rng() % 255);
    auto begun = std::chrono::steady_clock::now();
    FS_LONG load = 0;
    {
      Decoder d(&img);
      for (size_t at = 0; d.t && at < c.plain.size(); at += 1000) d.read(at, 1000);
      QSX_RA_TT_Destroy(&d.st, d.t), d.t = nullptr;
      TTF* ttf = load_ttf(&d.st, nullptr, img.data(), 0, 0, (FS_ULONG)img.size(), 0, 0);
      load = d.st.error;
      unload_ttf(&d.st, ttf);
      EXPECT_EQ(FS_get_heap_used(&d.st), 3024u) << "mutation " << m;
    }
    loads.insert((FS_ULONG)load);
    EXPECT_TRUE(load == 0 || load == ERR_NOT_A_TTF || load == ERR_DECOMP_STREAM) << load;
    testsupport::ScaledFont font;
    font.setFont("", img);
    ASSERT_TRUE(load != 0 || font.setPpem(24) == 0) << "mutation " << m;
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
