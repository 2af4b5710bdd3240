// The 1-bit scan converter against libfreetype's mono rasteriser (a test-only oracle) on the same
// unhinted points over the engine's untrimmed box, high precision: every glyph of two fonts at 12 to
// 72 ppem (every ninth under a sanitizer). A differing pixel's centre is measured to the exact outline
// (curves sampled every 1/8 px). Dropouts off on both sides: none beyond (1 + lpm/16)/64 px, or 1/1024
// px on straight-line glyphs (centre ties); 70% of glyphs identical. Flag 1 against smart dropouts
// without stubs: none beyond 1/2 px; 70% of the pixels either's dropout control adds, the other adds.
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <vector>

#include "Orvex_internal/fs_bitmap.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_ttf.h"
#include "oracle/oracle_fonts.h"
#include "support/scaled_font.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
const unsigned kStride = 9;
#else
const unsigned kStride = 1;
#endif

// The outline as libfreetype's (26.6, implied midpoints rounded) and as exact pieces x0 y0 x1 y1 (px).
struct Shape {
  std::vector<FT_Vector> pts;
  std::vector<char> tags;
  std::vector<short> ends;
  std::vector<double> seg;
  bool straight = true;
  explicit Shape(const FS_OUTLINE* o) {
    double c[8] = {};  // the current point, then the element's points
    for (long k = 0, p = 0; k < o->num; k++) {
      int t = o->type[k] & 0x7F, n = t ? t : 1;  // degree t, n points
      if (t == FS_MOVETO && !pts.empty()) ends.push_back((short)(pts.size() - 1));
      double len = 0, a = c[0], b = c[1];
      for (int i = 0; i < n; i++, p++) {
        pts.push_back({(o->x[p] + 512) >> 10, (o->y[p] + 512) >> 10});
        tags.push_back(t < 2 || i == n - 1 ? FT_CURVE_TAG_ON : t == 2 ? FT_CURVE_TAG_CONIC : FT_CURVE_TAG_CUBIC);
        c[2 + 2 * i] = o->x[p] / 65536.0, c[3 + 2 * i] = o->y[p] / 65536.0;
        len += fabs(c[2 + 2 * i] - c[2 * i]) + fabs(c[3 + 2 * i] - c[1 + 2 * i]);
      }
      straight &= t < 2;
      for (int s = 1, steps = t < 2 ? t : (int)(8 * len) + 1; s <= steps; s++) {
        double q[8], u = (double)s / steps;  // de Casteljau at u
        memcpy(q, c, sizeof q);
        for (int j = t; j > 0; j--)
          for (int i = 0; i < 2 * j; i++) q[i] += u * (q[i + 2] - q[i]);
        seg.insert(seg.end(), {a, b, q[0], q[1]});
        a = q[0], b = q[1];
      }
      c[0] = c[2 * n], c[1] = c[2 * n + 1];
    }
    ends.push_back((short)(pts.size() - 1));
  }
  // The oracle's maps over the box of `b`: dropouts ignored, then smart.
  void render(FT_Library lib, const FS_BITMAP* b, std::vector<unsigned char> ft[2]) {
    FT_Outline o = {(short)ends.size(), (short)pts.size(), pts.data(), tags.data(), ends.data(), 0};
    FT_Outline_Translate(&o, -64 * b->lo_x, -64 * (b->hi_y - b->height + 1));
    for (int d = 0; d < 2; d++) {
      ft[d].assign((size_t)b->bpl * b->height, 0);
      FT_Bitmap bm = {(unsigned)b->height, (unsigned)b->width, b->bpl, ft[d].data(), 2, FT_PIXEL_MODE_MONO, 0, nullptr};
      o.flags = FT_OUTLINE_HIGH_PRECISION | (d ? FT_OUTLINE_SMART_DROPOUTS : FT_OUTLINE_IGNORE_DROPOUTS);
      EXPECT_EQ(0, FT_Outline_Get_Bitmap(lib, &o, &bm));
    }
  }
  // From the centre of pixel (x, y) to the outline, in pixels.
  double distance(long x, long y) const {
    double px = x + 0.5, py = y + 0.5, best = 1e9;
    for (size_t i = 0; i < seg.size(); i += 4) {
      double dx = seg[i + 2] - seg[i], dy = seg[i + 3] - seg[i + 1], l2 = dx * dx + dy * dy;
      double u = l2 > 0 ? fmin(1, fmax(0, ((px - seg[i]) * dx + (py - seg[i + 1]) * dy) / l2)) : 0;
      best = fmin(best, hypot(px - seg[i] - u * dx, py - seg[i + 1] - u * dy));
    }
    return best;
  }
};

}  // namespace

TEST(BitmapAgainstFreetype, EveryGlyphOfTwoFontsAtEverySizeFrom12To72) {
  FT_Library lib;
  ASSERT_EQ(0, FT_Init_FreeType(&lib));
  for (const char* path : {PACKAGED "dejavu/DejaVuSans.ttf", PACKAGED "liberation2/LiberationSerif-Regular.ttf"}) {
    long glyphs = 0, same = 0, ours = 0, theirs = 0, shared = 0, failures = 0;
    double worst[2] = {0, 0};  // without and with dropout control
    for (int ppem = 12; ppem <= 72; ppem++) {
      testsupport::ScaledFont f;
      f.setFont(path);
      ASSERT_EQ(0, f.setPpem(ppem)) << path;
      f.st.cur_lfnt = f.lfnt;
      for (unsigned gi = ppem % kStride; gi < f.key()->maxp->numGlyphs; gi += kStride) {
        f.st.flags = (f.st.flags | FLAGS_NO_HINTS) & ~FLAGS_THIN_STROKE;
        FS_OUTLINE* o = make_outline_ttf(&f.st, f.st.cur_sfnt, gi);
        ASSERT_NE(nullptr, o) << path << " glyph " << gi;
        FS_BITMAP* m[2] = {make_bitmap(&f.st, o), (f.st.flags |= FLAGS_THIN_STROKE, make_bitmap(&f.st, o))};
        ASSERT_TRUE(m[0] && m[1] && f.st.error == 0) << path << " glyph " << gi;
        Shape s(o);
        std::vector<unsigned char> ft[2];
        if (m[0]->height > 0) s.render(lib, m[0], ft), glyphs++;
        same += m[0]->height > 0 && memcmp(ft[0].data(), m[0]->bits, ft[0].size()) == 0;
        double limit[2] = {s.straight ? 1.0 / 1024 : (1 + ppem / 16.0) / 64, 0.5};
        for (long i = 0; i < (long)ft[0].size() * 8; i++) {  // bit i of the map's bytes
          long r = i / 8 / m[0]->bpl, c = i % (8 * m[0]->bpl), at = i / 8, bit = 0x80 >> (i & 7);
          int e[2] = {!!(m[0]->bits[at] & bit), !!(m[1]->bits[at] & bit)};  // the engine's, the oracle's
          int x[2] = {!!(ft[0][at] & bit), !!(ft[1][at] & bit)};
          ours += e[1] > e[0], theirs += x[1] > x[0], shared += e[1] > e[0] && x[1] > x[0];
          for (int d = 0; d < 2; d++) {
            double dist = e[d] == x[d] ? 0 : s.distance(m[0]->lo_x + c, m[0]->hi_y - r);
            worst[d] = fmax(worst[d], dist);
            if (dist > limit[d] && failures++ < 20)
              ADD_FAILURE() << path << " " << ppem << " ppem glyph " << gi << " pixel " << c << "," << r
                            << " flag " << d << ": " << dist * 64 << "/64 px off";
          }
        }
        for (FS_BITMAP* b : m) FSS_free(&f.st, b);
        FSS_free(&f.st, o);
      }
    }
    printf("%s: %ld glyphs, %.1f%% identical; worst %.2f/64 px, %.3f px with flag 1; dropout pixels "
           "ours %ld, libfreetype's %ld, shared %.1f%% and %.1f%%\n", path, glyphs, 100.0 * same / glyphs,
           worst[0] * 64, worst[1], ours, theirs, 100.0 * shared / ours, 100.0 * shared / theirs);
    EXPECT_GE(same, glyphs * 7 / 10) << path;
    EXPECT_GE(shared, ours * 7 / 10) << path;
    EXPECT_GE(shared, theirs * 7 / 10) << path;
  }
  FT_Done_FreeType(lib);
}
