// Image effects on finished glyph maps: relief, outlines, softening and
// pixel emboldening. Called by the bitmap and graymap scan converters at
// the end of a glyph; calls only the engine heap.
#include "Orvex_internal/fs_effects.h"

#include <string.h>

#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const FS_LONG MAP_HEADER = 40;  // the record up to its pixels
const FS_LONG MAX_SIDE = 32767;

FS_SHORT bold_width(FS_STATE* state) {
  SFNT* sfnt = state->cur_sfnt;
  return sfnt && sfnt->senv ? sfnt->senv->bold_width : 0;
}

FS_LONG row_bytes(FS_LONG bits_per_pixel, FS_LONG width) {
  return (bits_per_pixel * width + 7) >> 3;
}

// A zeroed map of `w` by `h` with the source's header: advance, type and
// depth; `lo_x` and `hi_y` moved out by the margins. Sides beyond 16 bits
// can't be held: null with 201, as any other failed allocation.
FS_GLYPHMAP* new_map_like(FS_STATE* state, const FS_GLYPHMAP* src, FS_LONG w,
                          FS_LONG h, FS_LONG left, FS_LONG top) {
  if (w < 0 || h < 0 || w > MAX_SIDE || h > MAX_SIDE ||
      src->lo_x - left < -32768 || src->hi_y + top > 32767) {
    state->error = ERR_MALLOC_FAIL;
    return nullptr;
  }
  FS_SHORT bpp = src->bitsPerPixel > 0 ? src->bitsPerPixel : 1;
  FS_LONG bpl = row_bytes(bpp, w);
  FS_LONG size = MAP_HEADER + bpl * h;
  FS_GLYPHMAP* m = (FS_GLYPHMAP*)FSS_calloc(
      state, (FS_ULONG)(size < (FS_LONG)sizeof(FS_GLYPHMAP) ? sizeof(FS_GLYPHMAP) : size));
  if (m == nullptr) return nullptr;
  m->size = size;
  m->lo_x = (FS_SHORT)(src->lo_x - left);
  m->hi_y = (FS_SHORT)(src->hi_y + top);
  m->i_dx = src->i_dx;
  m->i_dy = src->i_dy;
  m->dx = src->dx;
  m->dy = src->dy;
  m->width = (FS_SHORT)w;
  m->height = (FS_SHORT)h;
  m->bpl = (FS_SHORT)bpl;
  m->bitsPerPixel = src->bitsPerPixel;
  m->type = src->type;
  return m;
}

bool empty_map(const FS_GLYPHMAP* m) { return m->width <= 0 || m->height <= 0; }

/* ---- 1-bit rows, a byte at a time ---- */

// Byte j of a row moved one pixel left: each pixel takes its right
// neighbour (beyond the row's end, clear).
inline FS_BYTE shl1(const FS_BYTE* row, FS_LONG j, FS_LONG bpl) {
  return (FS_BYTE)((row[j] << 1) | (j + 1 < bpl ? row[j + 1] >> 7 : 0));
}
// Byte j of a row moved one pixel right: each pixel takes its left
// neighbour.
inline FS_BYTE shr1(const FS_BYTE* row, FS_LONG j) {
  return (FS_BYTE)((row[j] >> 1) | (j > 0 ? row[j - 1] << 7 : 0));
}

// The mask of the last byte's real pixels.
FS_BYTE last_byte_mask(FS_LONG width) {
  return (FS_BYTE)(0xFF00 >> (((width - 1) & 7) + 1));
}

// Grows each run of a row one pixel towards the left (`left`) or right:
// a clear pixel is set when its neighbour on that side's opposite is set
// and its neighbour on the growing side is clear. Works on the row as it
// was, so in-place order doesn't matter, and keeps the padding clear.
void bold_bit_row(FS_BYTE* row, FS_LONG bpl, FS_LONG width, bool left) {
  FS_BYTE prev = 0;  // the unchanged byte before j
  for (FS_LONG j = 0; j < bpl; j++) {
    FS_BYTE cur = row[j];
    FS_BYTE next = j + 1 < bpl ? row[j + 1] : 0;
    FS_BYTE from_right = (FS_BYTE)((cur << 1) | (next >> 7));
    FS_BYTE from_left = (FS_BYTE)((cur >> 1) | (prev << 7));
    row[j] = left ? (FS_BYTE)(cur | (from_right & ~from_left))
                  : (FS_BYTE)(cur | (from_left & ~from_right));
    prev = cur;
  }
  if (bpl > 0) row[bpl - 1] &= last_byte_mask(width);
}

/* ---- packed gray pixels, one path per depth ---- */

template <int BPP>
struct Depth;
template <>
struct Depth<8> {
  static const int top = 255, quarter = 16;
  static int get(const FS_BYTE* row, FS_LONG c) { return row[c]; }
  static void put(FS_BYTE* row, FS_LONG c, int v) { row[c] = (FS_BYTE)v; }
};
template <>
struct Depth<4> {
  static const int top = 15, quarter = 4;
  static int get(const FS_BYTE* row, FS_LONG c) {
    return (row[c >> 1] >> ((~c & 1) << 2)) & 15;
  }
  static void put(FS_BYTE* row, FS_LONG c, int v) {
    int s = (int)((~c & 1) << 2);
    row[c >> 1] = (FS_BYTE)((row[c >> 1] & ~(15 << s)) | (v << s));
  }
};
template <>
struct Depth<2> {
  static const int top = 3, quarter = 2;
  static int get(const FS_BYTE* row, FS_LONG c) {
    return (row[c >> 2] >> ((3 - (c & 3)) << 1)) & 3;
  }
  static void put(FS_BYTE* row, FS_LONG c, int v) {
    int s = (int)((3 - (c & 3)) << 1);
    row[c >> 2] = (FS_BYTE)((row[c >> 2] & ~(3 << s)) | (v << s));
  }
};

int top_level(FS_SHORT bpp) { return bpp == 8 ? 255 : bpp == 2 ? 3 : 15; }

// Relief at one depth: each pixel less its neighbour one row and one
// column towards (dir -1) the top left, or (dir +1) the bottom right,
// floored at 0. Walking away from that neighbour keeps it unchanged until
// it is read.
template <int BPP>
void relief_graymap(FS_GRAYMAP* g, int dir) {
  typedef Depth<BPP> D;
  FS_LONG w = g->width, h = g->height, bpl = g->bpl;
  if (dir < 0) {
    for (FS_LONG r = h - 1; r >= 1; r--) {
      FS_BYTE* row = g->bits + r * bpl;
      const FS_BYTE* up = row - bpl;
      for (FS_LONG c = w - 1; c >= 1; c--) {
        int v = D::get(row, c) - D::get(up, c - 1);
        D::put(row, c, v > 0 ? v : 0);
      }
    }
  } else {
    for (FS_LONG r = 0; r + 1 < h; r++) {
      FS_BYTE* row = g->bits + r * bpl;
      const FS_BYTE* down = row + bpl;
      for (FS_LONG c = 0; c + 1 < w; c++) {
        int v = D::get(row, c) - D::get(down, c + 1);
        D::put(row, c, v > 0 ? v : 0);
      }
    }
  }
}

FS_GRAYMAP* relief(FS_GRAYMAP* g, int dir) {
  if (g == nullptr) return nullptr;
  if (g->width < 2 || g->height < 2) return g;
  switch (g->bitsPerPixel) {
    case 8: relief_graymap<8>(g, dir); break;
    case 4: relief_graymap<4>(g, dir); break;
    case 2: relief_graymap<2>(g, dir); break;
    default: break;
  }
  return g;
}

/* ---- pixel emboldening of graymaps ---- */

// One row of a gray map seen from its left (pass 1) or from its right
// (pass 2, `mirror`): logical pixel i is physical i or width - 1 - i.
template <int BPP>
struct BoldRow {
  typedef Depth<BPP> D;
  FS_BYTE* bits;
  FS_LONG bpl, w, h, r;
  bool mirror;
  FS_LONG phys(FS_LONG i) const { return mirror ? w - 1 - i : i; }
  int get(FS_LONG i) const { return D::get(bits + r * bpl, phys(i)); }
  void put(FS_LONG i, int v) { D::put(bits + r * bpl, phys(i), v); }
  // A physical pixel of another row; outside the row it reads 0.
  int at(FS_LONG row, FS_LONG c) const {
    return c < 0 || c >= w ? 0 : D::get(bits + row * bpl, c);
  }
  // The first zero after logical pixel c, or the width.
  FS_LONG end_after(FS_LONG c) const {
    FS_LONG e = c + 1;
    while (e < w && get(e) != 0) e++;
    return e;
  }
  // The darkest pixel of s to e - 1 (the first met on a tie), when it is
  // above a quarter, pulls the pixels up to it one place outwards and
  // becomes full black.
  void pull(FS_LONG s, FS_LONG e) {
    FS_LONG m = s;
    int best = get(s);
    for (FS_LONG i = s + 1; i < e; i++)
      if (get(i) > best) best = get(i), m = i;
    if (best <= D::quarter) return;
    for (FS_LONG i = s; i <= m; i++) put(i - 1, get(i));
    put(m, D::top);
  }
  // The one-pixel gap before the run at logical `col` closes on a
  // diagonal's notch. The rows above and below are tested at the physical
  // offsets col - 2, col - 1 and col, and pixel col - 1 is written, in both
  // passes; in the mirror pass that pixel lies on the run's far side. The
  // literal 12 stands at every depth (at 2 bits it never passes).
  void gap(FS_LONG col, int left2, int cur) {
    if (r < 1 || r > h - 2) return;
    FS_LONG c = phys(col);
    if (left2 >= 12 && cur == D::top && at(r - 1, c - 2) == 0 &&
        at(r - 1, c) == D::top && at(r + 1, c - 2) == 0 &&
        at(r + 1, c - 1) == 0 && at(r + 1, c) == D::top && c - 1 >= 0)
      D::put(bits + r * bpl, c - 1, D::top);
  }
  void run() {
    if (w >= 2 && get(0) == 0 && get(1) != 0) pull(1, end_after(1));
    for (FS_LONG col = 2; col < w;) {
      int left2 = get(col - 2), left1 = get(col - 1), cur = get(col);
      if (left1 != 0 || cur == 0) {
        col++;
        continue;
      }
      FS_LONG end = end_after(col);
      if (left2 != 0)
        gap(col, left2, cur);
      else
        pull(col, end);
      col = end + 1;
    }
  }
};

template <int BPP>
FS_GRAYMAP* pixelbold_graymap(FS_STATE* state, FS_GRAYMAP* g) {
  FS_SHORT bw = bold_width(state);
  if (g == nullptr || bw == 0 || empty_map(g)) return g;
  for (int pass = 0; pass < (bw >= 2 ? 2 : 1); pass++)
    for (FS_LONG r = 0; r < g->height; r++) {
      BoldRow<BPP> row = {g->bits, g->bpl, g->width, g->height, r, pass == 1};
      row.run();
    }
  return g;
}

/* ---- softening ---- */

struct Filter {
  int taps;
  int v[5];
};
// Parts of 256. f0 sums to 240, f2 to 260 and f4 to 275: a solid area
// comes out a little lighter or darker, as these filters have always done.
const Filter kFilters[5] = {{5, {48, 48, 48, 48, 48}},
                            {3, {25, 206, 25}},
                            {3, {34, 192, 34}},
                            {3, {51, 154, 51}},
                            {3, {65, 145, 65}}};

template <int BPP>
void soften_passes(const FS_GRAYMAP* old, FS_GRAYMAP* g, const Filter& fh,
                   const Filter& fv) {
  typedef Depth<BPP> D;
  FS_LONG dx = fh.taps / 2, dy = fv.taps / 2;
  FS_LONG w = old->width, nw = g->width, nh = g->height;
  // Across, into rows dy onwards: output column c is centred on source
  // column c - dx.
  for (FS_LONG r = 0; r < old->height; r++) {
    const FS_BYTE* src = old->bits + r * old->bpl;
    FS_BYTE* dst = g->bits + (r + dy) * g->bpl;
    for (FS_LONG c = 0; c < nw; c++) {
      int sum = 0;
      if (dx == 0) {
        sum = D::get(src, c) << 8;
      } else {
        for (int t = 0; t < fh.taps; t++) {
          FS_LONG s = c - 2 * dx + t;
          if (s >= 0 && s < w) sum += fh.v[t] * D::get(src, s);
        }
        sum += 128;
      }
      int v = sum >> 8;
      D::put(dst, c, v > D::top ? D::top : v);
    }
  }
  if (dy == 0) return;
  // Down, in place: the levels of the rows above, already overwritten, are
  // kept in `saved`; rows below are still unchanged.
  for (FS_LONG c = 0; c < nw; c++) {
    int saved[2] = {0, 0};  // rows r - 2 and r - 1 as they were
    for (FS_LONG r = 0; r < nh; r++) {
      int orig = D::get(g->bits + r * g->bpl, c);
      int sum = 128;
      for (int t = 0; t < fv.taps; t++) {
        FS_LONG s = r - dy + t;
        int v;
        if (s < 0 || s >= nh) continue;
        if (s < r)
          v = saved[2 - (r - s)];
        else if (s == r)
          v = orig;
        else
          v = D::get(g->bits + s * g->bpl, c);
        sum += fv.v[t] * v;
      }
      int v = sum >> 8;
      D::put(g->bits + r * g->bpl, c, v > D::top ? D::top : v);
      saved[0] = saved[1];
      saved[1] = orig;
    }
  }
}

/* ---- the byte image of the graymap outlines ---- */

// The outline's rounds over a W by H byte image: a lit pixel goes to the
// top level, a dark one takes the largest of its four edge neighbours (odd
// k) or of all eight (even k), read from the copy of the round's start.
void grow_rounds(FS_BYTE* img, FS_BYTE* buf, FS_LONG W, FS_LONG H, int n,
                 int dpmax) {
  for (int k = n; k >= 1; k--) {
    memcpy(buf, img, (size_t)(W * H));
    for (FS_LONG r = 1; r + 1 < H; r++) {
      const FS_BYTE* up = buf + (r - 1) * W;
      const FS_BYTE* mid = buf + r * W;
      const FS_BYTE* dn = buf + (r + 1) * W;
      FS_BYTE* out = img + r * W;
      for (FS_LONG c = 1; c + 1 < W; c++) {
        if (mid[c] != 0) {
          out[c] = (FS_BYTE)dpmax;
          continue;
        }
        FS_BYTE m = up[c];
        if (dn[c] > m) m = dn[c];
        if (mid[c - 1] > m) m = mid[c - 1];
        if (mid[c + 1] > m) m = mid[c + 1];
        if ((k & 1) == 0) {
          if (up[c - 1] > m) m = up[c - 1];
          if (up[c + 1] > m) m = up[c + 1];
          if (dn[c - 1] > m) m = dn[c - 1];
          if (dn[c + 1] > m) m = dn[c + 1];
        }
        out[c] = m;
      }
    }
  }
}

// outline_graymap without giving up its source: null on failure.
FS_GRAYMAP* outline_keep(FS_STATE* state, FS_GRAYMAP* src, FS_USHORT n,
                         FS_FIXED opacity) {
  int dpmax = top_level(src->bitsPerPixel);
  FS_LONG m = (FS_LONG)n + 1;
  FS_LONG W = src->width + 2 * m, H = src->height + 2 * m;
  if (W > MAX_SIDE || H > MAX_SIDE) {
    state->error = ERR_MALLOC_FAIL;
    return nullptr;
  }
  FS_BYTE* img = GrowImage(state, src, m, m);
  if (img == nullptr) return nullptr;
  FS_BYTE* buf = (FS_BYTE*)FSS_malloc(state, (FS_ULONG)(W * H));
  if (buf == nullptr) {
    FSS_free(state, img);
    return nullptr;
  }
  grow_rounds(img, buf, W, H, n, dpmax);
  FSS_free(state, buf);
  if (state->flags & (FLAGS_OUTLINED_1PIXEL | FLAGS_OUTLINED_2PIXEL |
                      FLAGS_OUTLINED_UNFILLED))
    RemoveSourceImage(img, src, m, m);
  if (opacity < 65536) {
    // A table the heap can't give skips the step.
    FS_BYTE* table = (FS_BYTE*)FSS_malloc(state, 256);
    if (table != nullptr) {
      for (int i = 0; i < 256; i++)
        table[i] = (FS_BYTE)(((FS_INT64)(opacity < 0 ? 0 : opacity) * i) >> 16);
      for (FS_LONG i = 0; i < W * H; i++) img[i] = table[img[i]];
      FSS_free(state, table);
    }
  }
  FS_GRAYMAP* g = ImageToGraymap(state, img, src, (FS_ULONG)W, (FS_ULONG)H, n);
  FSS_free(state, img);
  return g;
}

// Soften without giving up its source: `old` itself for indices out of
// the table, null on failure.
FS_GRAYMAP* soften_keep(FS_STATE* state, int fx, int fy, FS_GRAYMAP* old) {
  if (fx < 0 || fy < 0 || fx > 4 || fy > 4) return old;
  const Filter& fh = kFilters[fx];
  const Filter& fv = kFilters[fy];
  FS_LONG dx = fh.taps / 2, dy = fv.taps / 2;
  FS_GRAYMAP* g = new_map_like(state, old, old->width + 2 * dx,
                               old->height + 2 * dy, dx, dy);
  if (g == nullptr) return nullptr;
  g->cache_ptr = nullptr;
  switch (old->bitsPerPixel) {
    case 8: soften_passes<8>(old, g, fh, fv); break;
    case 4: soften_passes<4>(old, g, fh, fv); break;
    case 2: soften_passes<2>(old, g, fh, fv); break;
    default: break;
  }
  return g;
}

// Scales every pixel by `opacity` (16.16), capped at the top level,
// through a table of the depth's levels.
template <int BPP>
void apply_levels(FS_GRAYMAP* g, const FS_BYTE* table) {
  typedef Depth<BPP> D;
  for (FS_LONG r = 0; r < g->height; r++) {
    FS_BYTE* row = g->bits + r * g->bpl;
    for (FS_LONG c = 0; c < g->width; c++) D::put(row, c, table[D::get(row, c)]);
  }
}

// The embedded emboldeners' common step: a map one or two columns wider,
// `lo_x` one less, with the rows moved one pixel right. Null with 201.
template <int BPP>
void copy_shifted(const FS_GLYPHMAP* src, FS_GLYPHMAP* dst) {
  typedef Depth<BPP> D;
  for (FS_LONG r = 0; r < src->height; r++)
    for (FS_LONG c = 0; c < src->width; c++)
      D::put(dst->bits + r * dst->bpl, c + 1, D::get(src->bits + r * src->bpl, c));
}

}  // namespace

/* ---- 1-bit maps ---- */

FS_BITMAP* engrave_bitmap(FS_BITMAP* bmap) {
  if (bmap == nullptr || empty_map(bmap)) return bmap;
  FS_LONG bpl = bmap->bpl;
  // Backwards, so the row above is still as it was when read.
  for (FS_LONG r = bmap->height - 1; r >= 1; r--) {
    FS_BYTE* row = bmap->bits + r * bpl;
    const FS_BYTE* up = row - bpl;
    for (FS_LONG j = bpl - 1; j >= 0; j--) row[j] &= (FS_BYTE)~shr1(up, j);
  }
  return bmap;
}

FS_BITMAP* emboss_bitmap(FS_BITMAP* bmap) {
  if (bmap == nullptr || empty_map(bmap)) return bmap;
  FS_LONG bpl = bmap->bpl;
  for (FS_LONG r = 0; r + 1 < bmap->height; r++) {
    FS_BYTE* row = bmap->bits + r * bpl;
    const FS_BYTE* down = row + bpl;
    for (FS_LONG j = 0; j < bpl; j++) row[j] &= (FS_BYTE)~shl1(down, j, bpl);
  }
  return bmap;
}

FS_BITMAP* grow_bitmap(FS_STATE* state, FS_BITMAP* src, int nRows, int nCols) {
  if (src == nullptr || nRows < 0 || nCols < 0) {
    state->error = ERR_BAD_ARGUMENT;
    return nullptr;
  }
  FS_LONG w = src->width > 0 ? src->width : 0, h = src->height > 0 ? src->height : 0;
  FS_BITMAP* dst = new_map_like(state, src, w + 2 * (FS_LONG)nCols,
                                h + 2 * (FS_LONG)nRows, nCols, nRows);
  if (dst == nullptr) return nullptr;
  dst->bitsPerPixel = 1;
  FS_LONG off = nCols >> 3, shift = nCols & 7;
  FS_LONG sbpl = row_bytes(1, w), dbpl = dst->bpl;
  for (FS_LONG r = 0; r < h; r++) {
    const FS_BYTE* s = src->bits + r * src->bpl;
    FS_BYTE* d = dst->bits + (r + nRows) * dbpl + off;
    if (shift == 0) {
      memcpy(d, s, (size_t)sbpl);
      continue;
    }
    // The byte past the row's end takes the bits shifted out, when the new
    // row has one; the bits that would fall beyond it are padding.
    for (FS_LONG j = 0; j < sbpl; j++) {
      d[j] |= (FS_BYTE)(s[j] >> shift);
      if (off + j + 1 < dbpl) d[j + 1] |= (FS_BYTE)(s[j] << (8 - shift));
    }
  }
  return dst;
}

FS_BITMAP* dilate_bitmap(FS_STATE* state, FS_BITMAP* src, int n) {
  // Eight spare columns a side keep every byte the rounds touch inside the
  // row, and the first and last bytes blank.
  FS_BITMAP* dst = grow_bitmap(state, src, n + 1, n + 8);
  if (dst == nullptr) return nullptr;
  FS_LONG bpl = dst->bpl, h = dst->height;
  FS_BYTE* work = (FS_BYTE*)FSS_calloc(state, (FS_ULONG)(bpl * h));
  if (work == nullptr) {
    FSS_free(state, dst);
    return nullptr;
  }
  for (int k = n; k >= 1; k--) {
    for (FS_LONG r = 1; r + 1 < h; r++) {
      const FS_BYTE* up = dst->bits + (r - 1) * bpl;
      const FS_BYTE* mid = up + bpl;
      const FS_BYTE* dn = mid + bpl;
      FS_BYTE* out = work + r * bpl;
      for (FS_LONG j = 1; j + 1 < bpl; j++) {
        FS_BYTE v = (FS_BYTE)(shl1(mid, j, bpl) | shr1(mid, j) | up[j] | dn[j]);
        if ((k & 1) == 0)
          v |= (FS_BYTE)(shl1(up, j, bpl) | shr1(up, j) | shl1(dn, j, bpl) | shr1(dn, j));
        out[j] = v;
      }
    }
    for (FS_LONG i = 0; i < bpl * h; i++) dst->bits[i] |= work[i];
  }
  FSS_free(state, work);
  return dst;
}

void remove_bitmap(FS_BITMAP* a, FS_BITMAP* b) {
  if (a == nullptr || b == nullptr || empty_map(a) || empty_map(b)) return;
  FS_LONG dx = (FS_LONG)b->lo_x - a->lo_x;  // b's column 0 in a's columns
  FS_LONG dy = (FS_LONG)a->hi_y - b->hi_y;  // b's row 0 in a's rows
  FS_LONG bbpl = b->bpl;
  FS_LONG bw = b->width;
  for (FS_LONG rb = 0; rb < b->height; rb++) {
    FS_LONG ra = rb + dy;
    if (ra < 0 || ra >= a->height) continue;
    const FS_BYTE* brow = b->bits + rb * bbpl;
    FS_BYTE* arow = a->bits + ra * a->bpl;
    // Byte j of a covers a's columns 8j to 8j + 7, which are b's columns
    // from 8j - dx: eight bits of b's row from there, blank outside it.
    for (FS_LONG j = 0; j < a->bpl; j++) {
      FS_LONG s = 8 * j - dx;
      if (s + 8 <= 0 || s >= bw) continue;
      FS_LONG q = s >> 3;  // floor
      FS_LONG sh = s - 8 * q;
      unsigned hi = (q >= 0 && q < bbpl) ? brow[q] : 0;
      unsigned lo = (q + 1 >= 0 && q + 1 < bbpl) ? brow[q + 1] : 0;
      FS_BYTE m = (FS_BYTE)(((hi << 8 | lo) << sh) >> 8);
      arow[j] &= (FS_BYTE)~m;
    }
  }
}

FS_BITMAP* outline_bitmap(FS_STATE* state, FS_BITMAP* src, FS_USHORT n,
                          FS_USHORT filled) {
  if (src == nullptr) return nullptr;
  if (src->width == 0 || src->height == 0) {
    src->lo_x = (FS_SHORT)n;
    src->hi_y = (FS_SHORT)-n;
    return src;
  }
  FS_BITMAP* dst = dilate_bitmap(state, src, n);
  if (dst == nullptr) return nullptr;
  if (!filled) remove_bitmap(dst, src);
  FSS_free_char(state, src);
  return dst;
}

FS_BITMAP* copy_bitmap(FS_STATE* state, FS_BITMAP* p) {
  if (p == nullptr) return nullptr;
  FS_LONG n = p->size < (FS_LONG)sizeof(FS_BITMAP) ? (FS_LONG)sizeof(FS_BITMAP) : p->size;
  FS_BITMAP* c = (FS_BITMAP*)FSS_malloc(state, (FS_ULONG)n);
  if (c == nullptr) return nullptr;
  memcpy(c, p, (size_t)p->size);
  c->cache_ptr = nullptr;
  return c;
}

FS_BITMAP* pixelbold_bitmap(FS_STATE* state, FS_BITMAP* bmap) {
  if (bmap == nullptr) return nullptr;
  FS_SHORT bw = bold_width(state);
  if (bw == 0 || empty_map(bmap)) return bmap;
  for (FS_LONG r = 0; r < bmap->height; r++) {
    FS_BYTE* row = bmap->bits + r * bmap->bpl;
    bold_bit_row(row, bmap->bpl, bmap->width, true);
    // A second pass, the mirror, however large the width.
    if (bw >= 2) bold_bit_row(row, bmap->bpl, bmap->width, false);
  }
  return bmap;
}

FS_BITMAP* pixelbold_embedded_bitmap(FS_STATE* state, FS_BITMAP* bmap) {
  if (bmap == nullptr) return nullptr;
  FS_SHORT bw = bold_width(state);
  if (bw == 0) return bmap;
  FS_LONG w = bmap->width > 0 ? bmap->width : 0, h = bmap->height > 0 ? bmap->height : 0;
  FS_BITMAP* dst = new_map_like(state, bmap, w + (bw == 1 ? 1 : 2), h, 1, 0);
  if (dst == nullptr) return nullptr;
  dst->bitsPerPixel = 1;
  // Each row one pixel right, a blank column opening on the left.
  for (FS_LONG r = 0; r < h; r++) {
    const FS_BYTE* s = bmap->bits + r * bmap->bpl;
    FS_BYTE* d = dst->bits + r * dst->bpl;
    FS_LONG sbpl = row_bytes(1, w);
    for (FS_LONG j = 0; j < sbpl; j++) {
      d[j] |= (FS_BYTE)(s[j] >> 1);
      if (j + 1 < dst->bpl) d[j + 1] |= (FS_BYTE)(s[j] << 7);
    }
  }
  FSS_free_char(state, bmap);
  return pixelbold_bitmap(state, dst);
}

/* ---- graymaps ---- */

FS_GRAYMAP* engrave_graymap(FS_GRAYMAP* gmap) { return relief(gmap, -1); }

FS_GRAYMAP* emboss_graymap(FS_GRAYMAP* gmap) { return relief(gmap, +1); }

FS_BYTE* GrowImage(FS_STATE* state, FS_GRAYMAP* src, FS_LONG rows, FS_LONG cols) {
  FS_LONG w = src->width > 0 ? src->width : 0, h = src->height > 0 ? src->height : 0;
  FS_LONG W = w + 2 * cols, H = h + 2 * rows;
  FS_BYTE* img = (FS_BYTE*)FSS_calloc(state, (FS_ULONG)(W * H));
  if (img == nullptr) return nullptr;
  for (FS_LONG r = 0; r < h; r++) {
    const FS_BYTE* s = src->bits + r * src->bpl;
    FS_BYTE* d = img + (r + rows) * W + cols;
    switch (src->bitsPerPixel) {
      case 8: memcpy(d, s, (size_t)w); break;
      case 4: for (FS_LONG c = 0; c < w; c++) d[c] = (FS_BYTE)Depth<4>::get(s, c); break;
      case 2: for (FS_LONG c = 0; c < w; c++) d[c] = (FS_BYTE)Depth<2>::get(s, c); break;
      default: break;
    }
  }
  return img;
}

void RemoveSourceImage(FS_BYTE* dst, FS_GRAYMAP* src, FS_LONG rows, FS_LONG cols) {
  FS_LONG W = src->width + 2 * cols;
  for (FS_LONG r = 0; r < src->height; r++) {
    const FS_BYTE* s = src->bits + r * src->bpl;
    FS_BYTE* d = dst + (r + rows) * W + cols;
    switch (src->bitsPerPixel) {
      case 8: for (FS_LONG c = 0; c < src->width; c++) d[c] = (FS_BYTE)(d[c] - s[c]); break;
      case 4:
        for (FS_LONG c = 0; c < src->width; c++) d[c] = (FS_BYTE)(d[c] - Depth<4>::get(s, c));
        break;
      case 2:
        for (FS_LONG c = 0; c < src->width; c++) d[c] = (FS_BYTE)(d[c] - Depth<2>::get(s, c));
        break;
      default: break;
    }
  }
}

FS_GRAYMAP* ImageToGraymap(FS_STATE* state, FS_BYTE* image, FS_GRAYMAP* src,
                           FS_ULONG w, FS_ULONG h, FS_USHORT n) {
  FS_GRAYMAP* g = new_map_like(state, src, (FS_LONG)w, (FS_LONG)h, (FS_LONG)n + 1,
                               (FS_LONG)n + 1);
  if (g == nullptr) return nullptr;
  for (FS_ULONG r = 0; r < h; r++) {
    const FS_BYTE* s = image + r * w;
    FS_BYTE* d = g->bits + (FS_LONG)r * g->bpl;
    switch (g->bitsPerPixel) {
      case 8: memcpy(d, s, (size_t)w); break;
      case 4: for (FS_ULONG c = 0; c < w; c++) Depth<4>::put(d, (FS_LONG)c, s[c] & 15); break;
      case 2: for (FS_ULONG c = 0; c < w; c++) Depth<2>::put(d, (FS_LONG)c, s[c] & 3); break;
      default: break;
    }
  }
  return g;
}

FS_GRAYMAP* outline_graymap(FS_STATE* state, FS_GRAYMAP* src, FS_USHORT n,
                            FS_FIXED opacity) {
  if (src == nullptr) return nullptr;
  if (src->width == 0 || src->height == 0) return src;
  FS_GRAYMAP* g = outline_keep(state, src, n, opacity);
  if (g == nullptr) return nullptr;
  FSS_free_char(state, src);
  return g;
}

FS_GRAYMAP* soft_outline_graymap(FS_STATE* state, FS_GRAYMAP* gmap,
                                 FS_USHORT width, FS_FIXED opacity) {
  (void)opacity;  // the client's opacity is the one applied
  if (gmap == nullptr) return nullptr;
  FS_GRAYMAP* g = gmap;
  if (!empty_map(g)) {
    FS_GRAYMAP* o = outline_keep(state, g, width, 65536);
    if (o == nullptr) return nullptr;
    FS_GRAYMAP* s = soften_keep(state, 0, 0, o);
    if (s == nullptr) {
      FSS_free(state, o);
      return nullptr;
    }
    FSS_free(state, o);
    FSS_free_char(state, gmap);
    g = s;
  }
  FS_FIXED op = state->outline_opacity;
  if (op == 65536 || empty_map(g)) return g;
  int top = top_level(g->bitsPerPixel);
  FS_BYTE local[16];
  FS_BYTE* table = g->bitsPerPixel == 8 ? (FS_BYTE*)FSS_malloc(state, 256) : local;
  if (table == nullptr) return g;  // the map stays as it is
  for (int i = 0; i <= top; i++) {
    FS_INT64 v = ((FS_INT64)(op < 0 ? 0 : op) * i) >> 16;
    table[i] = (FS_BYTE)(v > top ? top : v);
  }
  switch (g->bitsPerPixel) {
    case 8: apply_levels<8>(g, table); break;
    case 4: apply_levels<4>(g, table); break;
    case 2: apply_levels<2>(g, table); break;
    default: break;
  }
  if (table != local) FSS_free(state, table);
  return g;
}

FS_GRAYMAP* Soften(FS_STATE* state, int fx, int fy, FS_GRAYMAP* old) {
  if (old == nullptr) return nullptr;
  FS_GRAYMAP* g = soften_keep(state, fx, fy, old);
  if (g != nullptr && g != old) FSS_free_char(state, old);
  return g;
}

FS_GRAYMAP* pixelbold_graymap2(FS_STATE* state, FS_GRAYMAP* gmap) {
  return pixelbold_graymap<2>(state, gmap);
}
FS_GRAYMAP* pixelbold_graymap4(FS_STATE* state, FS_GRAYMAP* gmap) {
  return pixelbold_graymap<4>(state, gmap);
}
FS_GRAYMAP* pixelbold_graymap8(FS_STATE* state, FS_GRAYMAP* gmap) {
  return pixelbold_graymap<8>(state, gmap);
}

FS_GRAYMAP* pixelbold_embedded_graymap(FS_STATE* state, FS_GRAYMAP* gmap) {
  if (gmap == nullptr) return nullptr;
  FS_SHORT bw = bold_width(state);
  if (bw == 0) return gmap;
  FS_LONG w = gmap->width > 0 ? gmap->width : 0, h = gmap->height > 0 ? gmap->height : 0;
  FS_GRAYMAP* dst = new_map_like(state, gmap, w + (bw == 1 ? 1 : 2), h, 1, 0);
  if (dst == nullptr) return nullptr;
  switch (gmap->bitsPerPixel) {
    case 8: copy_shifted<8>(gmap, dst); break;
    case 4: copy_shifted<4>(gmap, dst); break;
    case 2: copy_shifted<2>(gmap, dst); break;
    default: break;
  }
  FSS_free_char(state, gmap);
  switch (dst->bitsPerPixel) {
    case 8: return pixelbold_graymap8(state, dst);
    case 4: return pixelbold_graymap4(state, dst);
    case 2: return pixelbold_graymap2(state, dst);
    default: return dst;
  }
}
