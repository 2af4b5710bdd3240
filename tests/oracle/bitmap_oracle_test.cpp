// Differential check of the 1-bit scan converter against libfreetype's mono
// rasteriser, a test-only oracle, on the same unhinted outlines: every glyph
// of two packaged fonts at every size from 12 to 72 pixels per em (under a
// sanitizer every seventh glyph). The oracle renders over the engine's
// untrimmed box with high precision. Each pixel where the two differ is
// measured against the exact outline (curves sampled every 1/8 pixel):
// - without dropout control (the oracle ignoring dropouts), no differing
//   pixel farther than (1 + lpm / 16) / 64 pixel from the outline, the
//   engine's flatness at the size; on glyphs of straight lines only, none
//   farther than 1/1024 pixel: the two differ only where a centre lies on an
//   edge, which libfreetype counts and the engine counts by ends; at least
//   70% of the glyphs identical;
// - with flag 1 (the oracle's smart dropouts without stubs), none farther
//   than half a pixel, and of the pixels that dropout control adds, at least
//   70% added by the oracle's as well, and the reverse.
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H
#include <gtest/gtest.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "Orvex_internal/fs_bitmap.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_ttf.h"
#include "support/scaled_font.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
const unsigned kGlyphStride = 7;
#else
const unsigned kGlyphStride = 1;
#endif

const char* const kFonts[] = {
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
    "/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf"};

// The outline in libfreetype's form, 26.6 (implied midpoints, which carry
// half a 26.6 unit, rounded), moved by (-ox, -oy) whole pixels; and the
// exact outline as line pieces in pixels, curves sampled every 1/8 pixel.
struct Shapes {
  std::vector<FT_Vector> pts;
  std::vector<char> tags;
  std::vector<short> ends;
  std::vector<double> seg;  // x0 y0 x1 y1 per piece
  bool straight = true;

  explicit Shapes(const FS_OUTLINE* o) {
    long p = 0;
    double cx = 0, cy = 0, sx = 0, sy = 0;
    auto X = [&](long i) { return o->x[i] / 65536.0; };
    auto Y = [&](long i) { return o->y[i] / 65536.0; };
    auto piece = [&](double x, double y) {
      seg.insert(seg.end(), {cx, cy, x, y});
      cx = x;
      cy = y;
    };
    auto add = [&](char tag) {
      pts.push_back({(FT_Pos)((o->x[p] + 512) >> 10), (FT_Pos)((o->y[p] + 512) >> 10)});
      tags.push_back(tag);
      p++;
    };
    for (int k = 0; k < o->num; k++) {
      int t = o->type[k] & 0x7F;
      if (t == FS_MOVETO) {
        if (!pts.empty()) {
          ends.push_back((short)(pts.size() - 1));
          piece(sx, sy);
        }
        cx = sx = X(p);
        cy = sy = Y(p);
        add(FT_CURVE_TAG_ON);
      } else if (t == FS_LINETO) {
        piece(X(p), Y(p));
        add(FT_CURVE_TAG_ON);
      } else {
        straight = false;
        int n = t == FS_QUADTO ? 2 : 3;
        double px[4] = {cx, X(p), X(p + 1), n == 3 ? X(p + 2) : 0};
        double py[4] = {cy, Y(p), Y(p + 1), n == 3 ? Y(p + 2) : 0};
        double len = 0;
        for (int i = 0; i < n; i++) len += hypot(px[i + 1] - px[i], py[i + 1] - py[i]);
        int steps = (int)(len * 8) + 1;
        for (int s = 1; s <= steps; s++) {
          double u = (double)s / steps, v = 1 - u, x, y;
          if (n == 2) {
            x = v * v * px[0] + 2 * u * v * px[1] + u * u * px[2];
            y = v * v * py[0] + 2 * u * v * py[1] + u * u * py[2];
          } else {
            x = v * v * v * px[0] + 3 * u * v * v * px[1] + 3 * u * u * v * px[2] + u * u * u * px[3];
            y = v * v * v * py[0] + 3 * u * v * v * py[1] + 3 * u * u * v * py[2] + u * u * u * py[3];
          }
          piece(x, y);
        }
        add(n == 2 ? FT_CURVE_TAG_CONIC : FT_CURVE_TAG_CUBIC);
        if (n == 3) add(FT_CURVE_TAG_CUBIC);
        add(FT_CURVE_TAG_ON);
      }
    }
    if (!pts.empty()) {
      ends.push_back((short)(pts.size() - 1));
      piece(sx, sy);
    }
  }

  // The oracle's mono map of the outline over the box of `b`, flags added.
  std::vector<unsigned char> render(FT_Library lib, const FS_BITMAP* b, int flags) {
    std::vector<FT_Vector> moved(pts);
    long ox = b->lo_x, oy = b->hi_y - b->height + 1;
    for (FT_Vector& v : moved) v.x -= ox * 64, v.y -= oy * 64;
    FT_Outline ft;
    ft.n_points = (short)moved.size();
    ft.n_contours = (short)ends.size();
    ft.points = moved.data();
    ft.tags = tags.data();
    ft.contours = ends.data();
    ft.flags = FT_OUTLINE_HIGH_PRECISION | flags;
    std::vector<unsigned char> buf((size_t)b->bpl * b->height);
    FT_Bitmap bm;
    memset(&bm, 0, sizeof bm);
    bm.rows = (unsigned)b->height;
    bm.width = (unsigned)b->width;
    bm.pitch = b->bpl;
    bm.buffer = buf.data();
    bm.num_grays = 2;
    bm.pixel_mode = FT_PIXEL_MODE_MONO;
    EXPECT_EQ(0, FT_Outline_Get_Bitmap(lib, &ft, &bm));
    return buf;
  }

  // The distance in pixels from the centre of pixel (x, y) to the outline.
  double distance(long x, long y) const {
    double px = x + 0.5, py = y + 0.5, best = 1e9;
    for (size_t i = 0; i < seg.size(); i += 4) {
      double ax = seg[i], ay = seg[i + 1], dx = seg[i + 2] - ax, dy = seg[i + 3] - ay;
      double l2 = dx * dx + dy * dy;
      double u = l2 > 0 ? ((px - ax) * dx + (py - ay) * dy) / l2 : 0;
      u = u < 0 ? 0 : u > 1 ? 1 : u;
      double d = hypot(px - ax - u * dx, py - ay - u * dy);
      if (d < best) best = d;
    }
    return best;
  }
};

bool bit(const std::vector<unsigned char>& m, const FS_BITMAP* b, long r, long c) {
  return (m[(size_t)(r * b->bpl + (c >> 3))] >> (7 - (c & 7))) & 1;
}

struct Tally {
  long glyphs = 0, identical = 0, straight = 0, straightIdentical = 0;
  long ours = 0, theirs = 0, shared = 0;  // pixels dropout control adds
  double worstPlain = 0, worstDropout = 0, worstStraight = 0;
  std::string worstPlainAt = "-";
};

}  // namespace

TEST(BitmapAgainstFreetype, EveryGlyphOfTwoFontsAtEverySizeFrom12To72) {
  FT_Library lib;
  ASSERT_EQ(0, FT_Init_FreeType(&lib));
  for (const char* path : kFonts) {
    Tally t;
    long failures = 0;
    for (int ppem = 12; ppem <= 72; ppem++) {
      testsupport::ScaledFont f;
      ASSERT_TRUE(f.started);
      f.setFont(path);
      ASSERT_EQ(0, f.setPpem(ppem)) << path;
      f.st.cur_lfnt = f.lfnt;
      f.st.flags |= FLAGS_NO_HINTS;
      const double bound = (1 + ppem / 16.0) / 64;
      unsigned n = f.key()->maxp->numGlyphs;
      for (unsigned gi = ppem % kGlyphStride; gi < n; gi += kGlyphStride) {
        FS_OUTLINE* o = make_outline_ttf(&f.st, f.st.cur_sfnt, gi);
        ASSERT_NE(nullptr, o) << path << " glyph " << gi;
        if (o->num == 0) {
          FSS_free(&f.st, o);
          continue;
        }
        f.st.flags &= ~FLAGS_THIN_STROKE;
        FS_BITMAP* plain = make_bitmap(&f.st, o);
        ASSERT_EQ(0u, f.st.error) << path << " glyph " << gi;
        f.st.flags |= FLAGS_THIN_STROKE;
        FS_BITMAP* drop = make_bitmap(&f.st, o);
        f.st.flags &= ~FLAGS_THIN_STROKE;
        ASSERT_TRUE(plain && drop) << path << " glyph " << gi;
        Shapes s(o);
        std::vector<unsigned char> ft0 = s.render(lib, plain, FT_OUTLINE_IGNORE_DROPOUTS);
        std::vector<unsigned char> ft1 = s.render(lib, plain, FT_OUTLINE_SMART_DROPOUTS);
        std::vector<unsigned char> e0(plain->bits, plain->bits + ft0.size());
        std::vector<unsigned char> e1(drop->bits, drop->bits + ft0.size());
        std::string where = std::to_string(ppem) + " ppem glyph " + std::to_string(gi);
        t.glyphs++;
        if (s.straight) t.straight++;
        bool same = e0 == ft0;
        if (same) t.identical++;
        if (same && s.straight) t.straightIdentical++;
        long top = plain->hi_y;
        for (long r = 0; r < plain->height; r++) {
          for (long c = 0; c < plain->width; c++) {
            bool a0 = bit(e0, plain, r, c), b0 = bit(ft0, plain, r, c);
            bool a1 = bit(e1, plain, r, c), b1 = bit(ft1, plain, r, c);
            bool ours = a1 && !a0, theirs = b1 && !b0;
            t.ours += ours;
            t.theirs += theirs;
            t.shared += ours && theirs;
            if (a0 != b0) {
              double d = s.distance(plain->lo_x + c, top - r);
              double limit = s.straight ? 1.0 / 1024 : bound;
              if (s.straight && d > t.worstStraight) t.worstStraight = d;
              if (d > t.worstPlain) t.worstPlain = d, t.worstPlainAt = where;
              if (d > limit && failures++ < 20)
                ADD_FAILURE() << path << " " << where << ": pixel " << c << "," << r
                              << " without dropouts is " << d * 64 << "/64 px off";
            }
            if (a1 != b1) {
              double d = s.distance(plain->lo_x + c, top - r);
              if (d > t.worstDropout) t.worstDropout = d;
              if (d > 0.5 && failures++ < 20)
                ADD_FAILURE() << path << " " << where << ": pixel " << c << "," << r
                              << " with dropouts is " << d << " px off";
            }
          }
        }
        FSS_free(&f.st, plain);
        FSS_free(&f.st, drop);
        FSS_free(&f.st, o);
      }
    }
    double identical = (double)t.identical / t.glyphs;
    double oursShared = t.ours ? (double)t.shared / t.ours : 1;
    double theirsShared = t.theirs ? (double)t.shared / t.theirs : 1;
    printf("%s: %ld glyphs, %.1f%% identical without dropouts (straight: %ld, %.1f%%); "
           "worst %.2f/64 px (%s), straight %.5f px; with dropouts worst %.3f px; "
           "dropout pixels: ours %ld, libfreetype's %ld, shared %.1f%% and %.1f%%\n",
           path, t.glyphs, 100 * identical, t.straight,
           t.straight ? 100.0 * t.straightIdentical / t.straight : 0.0, t.worstPlain * 64,
           t.worstPlainAt.c_str(), t.worstStraight, t.worstDropout, t.ours, t.theirs,
           100 * oursShared, 100 * theirsShared);
    EXPECT_GE(identical, 0.70) << path;
    EXPECT_GE(oursShared, 0.70) << path;
    EXPECT_GE(theirsShared, 0.70) << path;
  }
  FT_Done_FreeType(lib);
}
