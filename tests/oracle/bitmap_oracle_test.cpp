// The 1-bit scan converter against libfreetype's mono rasteriser, a
// test-only oracle, on the same unhinted outlines: every glyph of two fonts
// at every size from 12 to 72 ppem (under a sanitizer every ninth), the
// oracle drawing over the engine's untrimmed box with high precision. Each
// pixel where they differ is measured against the exact outline (curves
// sampled every 1/8 pixel). Without dropout control (the oracle ignoring
// dropouts): none farther than the engine's flatness, (1 + lpm / 16) / 64
// pixel; on straight-line glyphs none farther than 1/1024 (centres on an
// edge, which libfreetype counts and the engine counts by ends); at least
// 70% of glyphs identical. With flag 1 (the oracle's smart dropouts without
// stubs): none farther than half a pixel, and of the pixels dropout control
// adds, at least 70% added by the oracle too, and the reverse.
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H
#include <gtest/gtest.h>
#include <math.h>

#include <vector>

#include "Orvex_internal/fs_bitmap.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_ttf.h"
#include "support/scaled_font.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
const unsigned kStride = 9;
#else
const unsigned kStride = 1;
#endif

// The outline for libfreetype (26.6, implied midpoints rounded) and as
// exact pieces x0 y0 x1 y1 in pixels.
struct Shape {
  std::vector<FT_Vector> pts;
  std::vector<char> tags;
  std::vector<short> ends;
  std::vector<double> seg;
  bool straight = true;
  explicit Shape(const FS_OUTLINE* o) {
    static const int kPoints[4] = {1, 1, 2, 3};
    double c[8];  // current point, then the element's points
    for (long k = 0, p = 0; k < o->num; k++) {
      int t = o->type[k] & 0x7F;
      if (t == FS_MOVETO && !pts.empty()) ends.push_back((short)(pts.size() - 1));
      for (int i = 0; i < kPoints[t]; i++, p++) {
        pts.push_back({(o->x[p] + 512) >> 10, (o->y[p] + 512) >> 10});
        tags.push_back(t < 2 || i == kPoints[t] - 1 ? FT_CURVE_TAG_ON
                       : t == 2                     ? FT_CURVE_TAG_CONIC
                                                    : FT_CURVE_TAG_CUBIC);
        c[2 + 2 * i] = o->x[p] / 65536.0, c[3 + 2 * i] = o->y[p] / 65536.0;
      }
      straight &= t < 2;
      int steps = t < 2 ? 1 : (int)(8 * (fabs(c[2] - c[0]) + fabs(c[3] - c[1]) +
                                         fabs(c[4] - c[2]) + fabs(c[5] - c[3]))) + 1;
      double x0 = c[0], y0 = c[1];  // c[0], c[1] follow the samples
      for (int s = 1; t > 0 && s <= steps; s++) {
        double u = (double)s / steps, v = 1 - u, w[4];
        if (t == 1)
          w[0] = v, w[1] = u, w[2] = w[3] = 0;
        else if (t == 2)
          w[0] = v * v, w[1] = 2 * u * v, w[2] = u * u, w[3] = 0;
        else
          w[0] = v * v * v, w[1] = 3 * u * v * v, w[2] = 3 * u * u * v, w[3] = u * u * u;
        double x = w[0] * x0, y = w[0] * y0;
        for (int i = 1; i < 4; i++) x += w[i] * c[2 * i], y += w[i] * c[2 * i + 1];
        seg.insert(seg.end(), {c[0], c[1], x, y});
        c[0] = x, c[1] = y;
      }
      if (t == 0) c[0] = c[2], c[1] = c[3];
    }
    ends.push_back((short)(pts.size() - 1));
  }
  // The oracle's mono map over the box of `b`.
  std::vector<unsigned char> render(FT_Library lib, const FS_BITMAP* b, int flags) {
    std::vector<FT_Vector> moved(pts);
    for (FT_Vector& v : moved) v.x -= b->lo_x * 64, v.y -= (b->hi_y - b->height + 1) * 64;
    FT_Outline ft = {(short)ends.size(), (short)moved.size(), moved.data(), tags.data(),
                     ends.data(), FT_OUTLINE_HIGH_PRECISION | flags};
    std::vector<unsigned char> buf((size_t)b->bpl * b->height);
    FT_Bitmap bm = {};
    bm.rows = (unsigned)b->height, bm.width = (unsigned)b->width, bm.pitch = b->bpl;
    bm.buffer = buf.data(), bm.num_grays = 2, bm.pixel_mode = FT_PIXEL_MODE_MONO;
    EXPECT_EQ(0, FT_Outline_Get_Bitmap(lib, &ft, &bm));
    return buf;
  }
  // From the centre of pixel (x, y) to the outline, in pixels.
  double distance(long x, long y) const {
    double px = x + 0.5, py = y + 0.5, best = 1e9;
    for (size_t i = 0; i < seg.size(); i += 4) {
      double dx = seg[i + 2] - seg[i], dy = seg[i + 3] - seg[i + 1], l2 = dx * dx + dy * dy;
      double u = l2 > 0 ? ((px - seg[i]) * dx + (py - seg[i + 1]) * dy) / l2 : 0;
      u = u < 0 ? 0 : u > 1 ? 1 : u;
      best = fmin(best, hypot(px - seg[i] - u * dx, py - seg[i + 1] - u * dy));
    }
    return best;
  }
};

}  // namespace

TEST(BitmapAgainstFreetype, EveryGlyphOfTwoFontsAtEverySizeFrom12To72) {
  FT_Library lib;
  ASSERT_EQ(0, FT_Init_FreeType(&lib));
  for (const char* path : {"/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
                           "/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf"}) {
    long glyphs = 0, same = 0, ours = 0, theirs = 0, shared = 0, failures = 0;
    double worst[2] = {0, 0};  // without and with dropout control
    for (int ppem = 12; ppem <= 72; ppem++) {
      testsupport::ScaledFont f;
      f.setFont(path);
      ASSERT_EQ(0, f.setPpem(ppem)) << path;
      f.st.cur_lfnt = f.lfnt;
      f.st.flags |= FLAGS_NO_HINTS;
      for (unsigned gi = ppem % kStride; gi < f.key()->maxp->numGlyphs; gi += kStride) {
        FS_OUTLINE* o = make_outline_ttf(&f.st, f.st.cur_sfnt, gi);
        ASSERT_NE(nullptr, o) << path << " glyph " << gi;
        FS_BITMAP* m[2] = {nullptr, nullptr};
        for (int d = 0; d < 2 && o->num > 0; d++) {
          f.st.flags = (f.st.flags & ~FLAGS_THIN_STROKE) | (d ? FLAGS_THIN_STROKE : 0);
          m[d] = make_bitmap(&f.st, o);
          ASSERT_TRUE(m[d] && f.st.error == 0) << path << " glyph " << gi;
        }
        if (m[0] != nullptr) {
          Shape s(o);
          std::vector<unsigned char> ft[2] = {s.render(lib, m[0], FT_OUTLINE_IGNORE_DROPOUTS),
                                              s.render(lib, m[0], FT_OUTLINE_SMART_DROPOUTS)};
          glyphs++;
          same += memcmp(ft[0].data(), m[0]->bits, ft[0].size()) == 0;
          double limit[2] = {s.straight ? 1.0 / 1024 : (1 + ppem / 16.0) / 64, 0.5};
          for (long r = 0; r < m[0]->height; r++)
            for (long c = 0; c < m[0]->width; c++) {
              size_t at = (size_t)(r * m[0]->bpl + (c >> 3));
              int bit = 0x80 >> (c & 7), e[2], o2[2];
              for (int d = 0; d < 2; d++) e[d] = !!(m[d]->bits[at] & bit), o2[d] = !!(ft[d][at] & bit);
              ours += e[1] > e[0], theirs += o2[1] > o2[0], shared += e[1] > e[0] && o2[1] > o2[0];
              for (int d = 0; d < 2; d++) {
                if (e[d] == o2[d]) continue;
                double dist = s.distance(m[0]->lo_x + c, m[0]->hi_y - r);
                worst[d] = fmax(worst[d], dist);
                if (dist > limit[d] && failures++ < 20)
                  ADD_FAILURE() << path << " " << ppem << " ppem glyph " << gi << " pixel " << c
                                << "," << r << (d ? " with" : " without") << " dropouts is "
                                << dist * 64 << "/64 px off";
              }
            }
        }
        for (FS_BITMAP* b : m) FSS_free(&f.st, b);
        FSS_free(&f.st, o);
      }
    }
    printf("%s: %ld glyphs, %.1f%% identical; worst %.2f/64 px without dropouts, %.3f px "
           "with; dropout pixels: ours %ld, libfreetype's %ld, shared %.1f%% and %.1f%%\n",
           path, glyphs, 100.0 * same / glyphs, worst[0] * 64, worst[1], ours, theirs,
           100.0 * shared / ours, 100.0 * shared / theirs);
    EXPECT_GE(same, glyphs * 7 / 10) << path;
    EXPECT_GE(shared, ours * 7 / 10) << path;
    EXPECT_GE(shared, theirs * 7 / 10) << path;
  }
  FT_Done_FreeType(lib);
}
