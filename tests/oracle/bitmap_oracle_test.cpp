// The 1-bit scan converter against libfreetype's mono rasteriser (a test-only oracle, high precision)
// on the same unhinted points and box: every glyph of two fonts at 12 to 72 ppem (every ninth under a
// sanitizer), differing pixels' centres measured to the exact outline. Dropouts off on both sides: none
// beyond (1 + lpm/16)/64 px, 1/1024 px on straight-line glyphs (centre ties); 70% of glyphs identical.
// Flag 1 against smart dropouts without stubs: none beyond 1/2 px; 70% of either's added pixels shared.
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <vector>

#include "Orvex_internal/fs_bitmap.h"
#include "Orvex_internal/fs_ttf.h"
#include "oracle/ft_outline.h"
#include "oracle/oracle_fonts.h"
#include "support/scaled_font.h"

#if defined(__SANITIZE_ADDRESS__)
const unsigned kStride = 9;
#else
const unsigned kStride = 1;
#endif

// The outline's exact pieces x0 y0 x1 y1 in pixels, curves cut every 1/8 px or finer.
static std::vector<double> pieces(const FS_OUTLINE* o) {
  std::vector<double> seg;
  double c[8] = {};  // the current point, then the element's points
  for (long k = 0, p = 0; k < o->num; k++) {
    int t = o->type[k] & 0x7F, n = t ? t : 1;  // degree t, n points
    double len = 0, a = c[0], b = c[1];
    for (int i = 0; i < n; i++, p++) {
      c[2 + 2 * i] = o->x[p] / 65536.0, c[3 + 2 * i] = o->y[p] / 65536.0;
      len += fabs(c[2 + 2 * i] - c[2 * i]) + fabs(c[3 + 2 * i] - c[1 + 2 * i]);
    }
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
  return seg;
}

TEST(BitmapAgainstFreetype, EveryGlyphOfTwoFontsAtEverySizeFrom12To72) {
  FT_Library lib;
  ASSERT_EQ(0, FT_Init_FreeType(&lib));
  for (const char* path : {PACKAGED "dejavu/DejaVuSans.ttf", PACKAGED "liberation2/LiberationSerif-Regular.ttf"}) {
    long glyphs = 0, same = 0, ours = 0, theirs = 0, shared = 0, failures = 0;
    for (int ppem = 12; ppem <= 72; ppem++) {
      testsupport::ScaledFont f;
      f.setFont(path);
      ASSERT_EQ(0, f.setPpem(ppem)) << path;
      f.st.cur_lfnt = f.lfnt;
      for (unsigned gi = ppem % kStride; gi < f.key()->maxp->numGlyphs; gi += kStride) {
        f.st.flags = (f.st.flags | FLAGS_NO_HINTS) & ~FLAGS_THIN_STROKE;
        FS_OUTLINE* o = make_outline_ttf(&f.st, f.st.cur_sfnt, gi);  // make_bitmap(null) is null
        FS_BITMAP* m[2] = {make_bitmap(&f.st, o), (f.st.flags |= FLAGS_THIN_STROKE, make_bitmap(&f.st, o))};
        ASSERT_TRUE(m[0] && m[1] && f.st.error == 0) << path << " glyph " << gi;
        // The oracle's maps over the same box: dropouts ignored, then smart.
        oracle::FtOutline fo(o, m[0]->lo_x, m[0]->hi_y - m[0]->height + 1);
        std::vector<unsigned char> ft[2];
        for (int d = 0; d < 2 && m[0]->height > 0; d++) {
          ft[d].assign((size_t)m[0]->bpl * m[0]->height, 0);
          FT_Bitmap bm = {(unsigned)m[0]->height, (unsigned)m[0]->width, m[0]->bpl, ft[d].data(), 2,
                          FT_PIXEL_MODE_MONO, 0, 0};
          fo.ft.flags = FT_OUTLINE_HIGH_PRECISION | (d ? FT_OUTLINE_SMART_DROPOUTS : FT_OUTLINE_IGNORE_DROPOUTS);
          EXPECT_EQ(0, FT_Outline_Get_Bitmap(lib, &fo.ft, &bm));
        }
        glyphs += m[0]->height > 0;
        same += m[0]->height > 0 && memcmp(ft[0].data(), m[0]->bits, ft[0].size()) == 0;
        std::vector<double> seg = pieces(o);
        double limit[2] = {oracle::straight(o) ? 1.0 / 1024 : (1 + ppem / 16.0) / 64, 0.5};
        for (long i = 0; i < (long)ft[0].size() * 8; i++) {  // bit i of the map's bytes
          long r = i / 8 / m[0]->bpl, c = i % (8 * m[0]->bpl), at = i / 8, bit = 0x80 >> (i & 7);
          int e[2] = {!!(m[0]->bits[at] & bit), !!(m[1]->bits[at] & bit)};  // the engine's, the oracle's
          int x[2] = {!!(ft[0][at] & bit), !!(ft[1][at] & bit)};
          ours += e[1] > e[0], theirs += x[1] > x[0], shared += e[1] > e[0] && x[1] > x[0];
          for (int d = 0; d < 2; d++) {
            double px = m[0]->lo_x + c + 0.5, py = m[0]->hi_y - r + 0.5, dist = e[d] == x[d] ? 0 : 1e9;
            for (size_t j = 0; dist > 0 && j < seg.size(); j += 4) {  // the centre to the nearest piece
              double dx = seg[j + 2] - seg[j], dy = seg[j + 3] - seg[j + 1], l2 = dx * dx + dy * dy;
              double u = l2 > 0 ? fmin(1, fmax(0, ((px - seg[j]) * dx + (py - seg[j + 1]) * dy) / l2)) : 0;
              dist = fmin(dist, hypot(px - seg[j] - u * dx, py - seg[j + 1] - u * dy));
            }
            if (dist > limit[d] && failures++ < 20)
              ADD_FAILURE() << path << " " << ppem << " ppem glyph " << gi << " flag " << d << ": " << dist * 64;
          }
        }
        for (FS_BITMAP* b : m) FSS_free(&f.st, b);
        FSS_free(&f.st, o);
      }
    }
    printf("%s: %ld glyphs, %.1f%% identical; dropout pixels shared %.1f%% of ours, %.1f%% of libfreetype's\n",
           path, glyphs, 100.0 * same / glyphs, 100.0 * shared / ours, 100.0 * shared / theirs);
    EXPECT_GE(same, glyphs * 7 / 10) << path;
    EXPECT_GE(shared, ours * 7 / 10) << path;
    EXPECT_GE(shared, theirs * 7 / 10) << path;
  }
  FT_Done_FreeType(lib);
}
