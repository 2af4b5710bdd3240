// The graymap scan converter: exact area coverage without sub-scanlines.
// Each line piece inside one pixel cell records the signed area to its
// right and its signed height; one sweep along a row sums them. Work goes
// band by band through the server's fixed RASTER record, then the map is
// trimmed and cut to 8, 4 or 2 bits. Called by the glyph request pipeline.
#include "Orvex_internal/fs_graymap.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_effects.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_sbit.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const FS_FIXED ONE = 65536;
const FS_LONG GRAYMAP_HEADER = 40;  // the record up to its pixels

FS_FIXED floor_px(FS_FIXED v) { return v & (FS_FIXED)0xFFFF0000; }
FS_FIXED ceil_px(FS_FIXED v) {
  return (FS_FIXED)(((FS_INT64)v + 0xFFFF) & ~(FS_INT64)0xFFFF);
}
FS_FIXED fabs_(FS_FIXED v) { return v < 0 ? -v : v; }

// The x of the segment at height y, and the y at column edge x. A vertical
// segment's x needs no division: the quotient is 0.
FS_FIXED x_at(FS_FIXED x0, FS_FIXED y0, FS_FIXED x1, FS_FIXED y1, FS_FIXED y) {
  if (x1 == x0) return x0;
  return (FS_FIXED)(x0 + ((FS_INT64)(y - y0) * (x1 - x0)) / (y1 - y0));
}
FS_FIXED y_at(FS_FIXED x0, FS_FIXED y0, FS_FIXED x1, FS_FIXED y1, FS_FIXED x) {
  return (FS_FIXED)(y0 + ((FS_INT64)(x - x0) * (y1 - y0)) / (x1 - x0));
}

// Whether the pixels of the map get a spare column for pixel boldness.
bool pixel_bold(FS_STATE* state) {
  if (state->flags & FLAGS_ADD_WEIGHT) return true;
  LFNT* lfnt = state->cur_lfnt;
  FS_LONG lpm = state->lpm;
  if (lpm == 0 && state->cur_sfnt && state->cur_sfnt->senv)
    lpm = state->cur_sfnt->senv->yppm;
  return lfnt != nullptr && (lfnt->fontflags & FONTFLAG_STIK_64) && lpm < 27 &&
         (state->flags & (FLAGS_REGULARBOLD | FLAGS_FRACTBOLD)) == 0;
}

FS_SHORT bold_width(FS_STATE* state) {
  SFNT* sfnt = state->cur_sfnt;
  return sfnt && sfnt->senv ? sfnt->senv->bold_width : 0;
}

}  // namespace

FS_GRAYMAP* new_graymap_8(FS_STATE* state, FS_OUTLINE* outl) {
  FS_LONG lo_x = floor_px(outl->lo_x) >> 16, hi_x = ceil_px(outl->hi_x) >> 16;
  FS_LONG lo_y = floor_px(outl->lo_y) >> 16, hi_y = ceil_px(outl->hi_y) >> 16;
  if (pixel_bold(state)) {
    FS_SHORT bw = bold_width(state);
    if (bw != 0) lo_x--;
    if (bw > 1) hi_x++;
  }
  FS_LONG width = hi_x - lo_x, height = hi_y - lo_y;
  // An outline a glyph program threw further than 16.16 reaches (its
  // ceiling wrapped) or spread wider than the record's 16-bit sides is a
  // map no heap holds: refused as the heap refuses one.
  if (width < 0 || height < 0 || width > 32767 || height > 32767) {
    state->error = ERR_MALLOC_FAIL;
    return nullptr;
  }
  FS_LONG size = GRAYMAP_HEADER + width * height;
  FS_GRAYMAP* g = (FS_GRAYMAP*)FSS_calloc(state, (FS_ULONG)(size < 48 ? 48 : size));
  if (g == nullptr) return nullptr;
  g->size = size;
  g->lo_x = (FS_SHORT)lo_x;
  g->hi_y = (FS_SHORT)(hi_y - 1);
  g->width = (FS_SHORT)width;
  g->height = (FS_SHORT)height;
  g->bpl = (FS_SHORT)width;
  g->bitsPerPixel = 8;
  g->type = 8;
  g->i_dx = outl->i_dx;
  g->i_dy = outl->i_dy;
  g->dx = outl->dx;
  g->dy = outl->dy;
  return g;
}

FS_LONG arc_length(FS_OUTLINE* outl) {
  FS_INT64 sum = 0;
  const FS_FIXED* x = outl->x;
  const FS_FIXED* y = outl->y;
  const int n = outl->np;
  // Differences in 64 bits: points a glyph program moved far apart lie
  // further from each other than 16.16 holds.
  for (int i = 1; i < n; i++) {
    FS_INT64 dx = (FS_INT64)x[i] - x[i - 1], dy = (FS_INT64)y[i] - y[i - 1];
    sum += (dx < 0 ? -dx : dx) + (dy < 0 ? -dy : dy);
  }
  return (FS_LONG)(sum >> 16);
}

namespace {

#define FS_ALWAYS_INLINE inline __attribute__((always_inline))

// The raster's cell store as one line's cutting sees it, held in locals so
// that recording a cell does not reread the raster after every store: the
// cells, the row lists, the count of pieces so far, the band's top row and
// the line's direction. The count goes back to the raster when the line is
// done.
struct CellStore {
  THANG* thangs;
  THANG** rows;
  FS_LONG next;
  FS_LONG top;
  FS_LONG dir;
  bool clip;  // more than one band: segments are cut to the band
  FS_FIXED band_ymin, band_ymax;
};

FS_ALWAYS_INLINE CellStore cell_store(RASTER* r) {
  CellStore c = {r->thangs, r->rows,          r->next_thang, r->top,
                 r->dir,    r->num_bands > 1, r->band_ymin,  r->band_ymax};
  return c;
}

// What the raster keeps of a cell store when the cutting stops.
FS_ALWAYS_INLINE void put_back(RASTER* r, const CellStore& s) {
  r->next_thang = s.next;
  r->dir = s.dir;
}

// add_thang's work on a cell store. `in_row` promises a piece no taller
// than a pixel, as the line cutter's are: then the area is the rounded
// product alone, which equals w for a full-height piece and h for a piece
// centred on a column edge, so the two tests fall away.
template <bool in_row = false>
FS_ALWAYS_INLINE int store_piece(CellStore& s, FS_FIXED x0, FS_FIXED y0,
                                 FS_FIXED x1, FS_FIXED y1) {
  if (s.next > RASTER_THANGS - 1) return 0;
  FS_LONG y = (FS_LONG)(((FS_INT64)y0 + y1) >> 17);
  FS_LONG row = s.top - y;
  if (row < 0 || row > RASTER_ROWS - 1) return 1;
  FS_FIXED h = y1 - y0;
  FS_FIXED mid = (FS_FIXED)(((FS_INT64)x0 + x1) / 2);
  FS_FIXED w = ONE - (mid & 0xFFFF);
  FS_FIXED a;
  if (in_row)
    a = (FS_FIXED)(((FS_INT64)h * w + 32768) >> 16);
  else if (h >= ONE)
    a = w;
  else if (w >= ONE)
    a = h;
  else
    a = (FS_FIXED)(((FS_INT64)h * w + 32768) >> 16);
  THANG* t = &s.thangs[s.next++];
  t->x = (FS_SHORT)(((FS_INT64)x0 + x1) >> 17);
  t->y = (FS_SHORT)y;
  t->a = s.dir > 0 ? a : -a;
  t->f = s.dir > 0 ? h : -h;
  t->next = s.rows[row];
  s.rows[row] = t;
  return 1;
}

}  // namespace

int add_thang(RASTER* r, FS_FIXED x0, FS_FIXED y0, FS_FIXED x1, FS_FIXED y1) {
  CellStore s = cell_store(r);
  int kept = store_piece(s, x0, y0, x1, y1);
  put_back(r, s);
  return kept;
}

namespace {

// One piece inside a single row: split at column edges.
FS_ALWAYS_INLINE int row_piece(CellStore& s, FS_FIXED X0, FS_FIXED Y0,
                               FS_FIXED X1, FS_FIXED Y1, FS_FIXED xa,
                               FS_FIXED ya, FS_FIXED xb, FS_FIXED yb) {
  while (true) {
    if (xb > xa) {
      FS_FIXED edge = floor_px(xa) + ONE;
      if (xb <= edge) break;
      FS_FIXED ye = y_at(X0, Y0, X1, Y1, edge);
      if (ye < ya) ye = ya;
      if (ye > yb) ye = yb;
      if (ye > ya && !store_piece<true>(s, xa, ya, edge, ye)) return 0;
      xa = edge;
      ya = ye;
    } else if (xb < xa) {
      FS_FIXED edge = floor_px(xa - 1);
      if (xb >= edge) break;
      FS_FIXED ye = y_at(X0, Y0, X1, Y1, edge);
      if (ye < ya) ye = ya;
      if (ye > yb) ye = yb;
      if (ye > ya && !store_piece<true>(s, xa, ya, edge, ye)) return 0;
      xa = edge;
      ya = ye;
    } else {
      break;
    }
  }
  if (yb > ya) return store_piece<true>(s, xa, ya, xb, yb);
  return 1;
}

// do_line's work on a cell store.
FS_ALWAYS_INLINE int line_cells(CellStore& s, FS_FIXED x0, FS_FIXED y0,
                                FS_FIXED x1, FS_FIXED y1) {
  if (y0 == y1) return 1;  // a horizontal edge has no height
  if (y0 < y1) {
    s.dir = 1;
  } else {
    s.dir = -1;
    FS_FIXED t = x0;
    x0 = x1;
    x1 = t;
    t = y0;
    y0 = y1;
    y1 = t;
  }
  const FS_FIXED X0 = x0, Y0 = y0, X1 = x1, Y1 = y1;
  if (s.clip) {
    if (y1 <= s.band_ymin || y0 >= s.band_ymax) return 1;
    if (y0 < s.band_ymin) {
      x0 = x_at(X0, Y0, X1, Y1, s.band_ymin);
      y0 = s.band_ymin;
    }
    if (y1 > s.band_ymax) {
      x1 = x_at(X0, Y0, X1, Y1, s.band_ymax);
      y1 = s.band_ymax;
    }
  }
  // Row by row, each row's piece then column by column.
  while (y0 < y1) {
    FS_FIXED edge = floor_px(y0) + ONE;
    FS_FIXED ye = y1 < edge ? y1 : edge;
    FS_FIXED xe = ye == y1 ? x1 : x_at(X0, Y0, X1, Y1, ye);
    if (!row_piece(s, X0, Y0, X1, Y1, x0, y0, xe, ye)) return 0;
    x0 = xe;
    y0 = ye;
  }
  return 1;
}

}  // namespace

int do_line(RASTER* r, FS_FIXED x0, FS_FIXED y0, FS_FIXED x1, FS_FIXED y1) {
  CellStore s = cell_store(r);
  int kept = line_cells(s, x0, y0, x1, y1);
  put_back(r, s);
  return kept;
}

namespace {

// The gray level of a coverage sum: its magnitude in 256ths, at most 255.
inline FS_BYTE gray_of(FS_FIXED v) {
  FS_FIXED gray = fabs_(v) >> 8;
  return (FS_BYTE)(gray > 255 ? 255 : gray);
}

// Widest map whose rows are swept through the occupied-column mask below;
// wider ones take every column in turn.
const FS_LONG kMaskedWidth = 4096;
typedef unsigned long long ColumnMask;
const FS_LONG kMaskBits = 64;

// Sets n pixels to one level: short runs, the common case between two
// edges, without a call.
inline void fill_run(FS_BYTE* p, FS_BYTE level, FS_LONG n) {
  if (n > 16) {
    memset(p, level, (size_t)n);
  } else if (n >= 8) {
    FS_UINT64 v = 0x0101010101010101ull * level;
    memcpy(p, &v, 8);
    memcpy(p + n - 8, &v, 8);
  } else {
    for (FS_LONG i = 0; i < n; i++) p[i] = level;
  }
}

// One row's sweep over every column from cmin to cmax.
void sweep_columns(FS_FIXED* __restrict areas, FS_FIXED* __restrict nexts,
                   FS_BYTE* __restrict out, FS_LONG cmin, FS_LONG cmax) {
  FS_FIXED carry = 0;
  for (FS_LONG c = cmin; c <= cmax; c++) {
    FS_FIXED v = areas[c] + carry;
    if (v != 0) out[c] = gray_of(v);
    carry += nexts[c];
    areas[c] = 0;
    nexts[c] = 0;
  }
}

// The same sweep when only the columns in `mask` (`words` words) hold
// cells: between two of them the sum is the carry alone, so the run gets one
// gray level (and is left as it is when the carry is 0, as it is left of
// the first). The sweep ends at the last occupied column, or at `end` when
// a cell lay beyond the map's right edge (else `end` is -1). The mask comes
// back cleared.
void sweep_masked(FS_FIXED* __restrict areas, FS_FIXED* __restrict nexts,
                  FS_BYTE* __restrict out, ColumnMask* __restrict mask,
                  FS_LONG words, FS_LONG end) {
  FS_FIXED carry = 0;
  FS_LONG next = 0;  // the first column not yet swept
  for (FS_LONG w = 0; w < words; w++) {
    ColumnMask bits = mask[w];
    if (bits == 0) continue;
    mask[w] = 0;
    do {
      FS_LONG c = w * kMaskBits + __builtin_ctzll(bits);
      bits &= bits - 1;
      if (carry != 0 && c > next) fill_run(out + next, gray_of(carry), c - next);
      FS_FIXED v = areas[c] + carry;
      if (v != 0) out[c] = gray_of(v);
      carry += nexts[c];
      areas[c] = 0;
      nexts[c] = 0;
      next = c + 1;
    } while (bits != 0);
  }
  if (carry != 0 && end >= next) fill_run(out + next, gray_of(carry), end + 1 - next);
}

}  // namespace

void do_band(RASTER* r) {
  FS_GRAYMAP* g = r->gmap;
  FS_LONG nrows = (r->band_ymax - r->band_ymin) >> 16;
  if (nrows >= RASTER_ROWS) return;
  FS_FIXED* areas = r->areas;
  FS_FIXED* nexts = r->nexts;
  const FS_LONG width = g->width, height = g->height, lo_x = g->lo_x;
  const bool masked = width <= kMaskedWidth;
  const FS_LONG words = (width + kMaskBits - 1) / kMaskBits;
  ColumnMask mask[kMaskedWidth / kMaskBits];
  if (masked) memset(mask, 0, sizeof(ColumnMask) * (size_t)words);
  for (FS_LONG row = 1; row <= nrows; row++) {
    FS_LONG gy = g->hi_y - (r->top - row);
    THANG* t = r->rows[row];
    if (t == nullptr || gy < 0 || gy >= height) continue;
    // Cells by column; one left of the map counts in its first column, one
    // right of it is dropped but carries the sweep to the right edge.
    FS_BYTE* out = g->bits + gy * g->bpl;
    if (masked) {
      bool beyond = false;
      for (; t != nullptr; t = t->next) {
        FS_LONG c = t->x - lo_x;
        if (c < 0) c = 0;
        if (c >= width) {
          beyond = true;
          continue;
        }
        areas[c] += t->a;
        nexts[c] += t->f;
        mask[(FS_ULONG)c / kMaskBits] |= (ColumnMask)1 << ((FS_ULONG)c % kMaskBits);
      }
      sweep_masked(areas, nexts, out, mask, words, beyond ? width - 1 : -1);
      continue;
    }
    FS_LONG cmin = 0x7FFFFFFF, cmax = -1;
    for (; t != nullptr; t = t->next) {
      FS_LONG c = t->x - lo_x;
      if (c < 0) c = 0;  // from here on c is not negative
      if (c < cmin) cmin = c;
      if (c > cmax) cmax = c;
      if (c >= width) continue;
      areas[c] += t->a;
      nexts[c] += t->f;
    }
    if (cmax >= width) cmax = width - 1;
    if (cmin > cmax) continue;
    sweep_columns(areas, nexts, out, cmin, cmax);
  }
}

namespace {

// The server's raster, made at first use, with `areas` at least `width`.
RASTER* get_raster(FS_STATE* state, FS_LONG width) {
  FS_SERVER* server = state->server;
  RASTER* r = server->raster;
  if (r == nullptr) {
    r = (RASTER*)FSS_calloc(state, sizeof(RASTER));
    if (r == nullptr) return nullptr;
    r->areasize = 0;
    server->raster = r;
  }
  r->ref_count++;  // the ladder spares it from here on
  FS_LONG want = width > 50 ? width : 50;
  if (r->areasize < want || r->areas == nullptr) {
    FS_FIXED* a = (FS_FIXED*)FSS_calloc(state, (FS_ULONG)(8 * want));
    if (a == nullptr) {
      r->ref_count--;
      return nullptr;
    }
    FSS_free(state, r->areas);
    r->areas = a;
    r->areasize = want;
  }
  r->nexts = r->areas + r->areasize;
  return r;
}

// Walks the outline's elements for one band. 1 done, 0 store full, -1 the
// curve stack overflowed.
int walk_elements(RASTER* r, CellStore& cells, FS_OUTLINE* o, FS_FIXED err) {
  FS_FIXED cx = 0, cy = 0;
  FS_LONG p = 0;
  FS_FIXED lo = r->band_ymin, hi = r->band_ymax;
  // All points below the band or all above it; the first point decides
  // at once for nearly every element.
  auto misses = [&](FS_FIXED a, FS_FIXED b, FS_FIXED c, FS_FIXED d) {
    if (a < lo) return b < lo && c < lo && d < lo;
    return a > hi && b > hi && c > hi && d > hi;
  };
  // A curve at least 64 units (1/1024 pixel) above the band's foot and not
  // above its top has no piece that misses the band: every piece lies
  // within the curve's y range, less at most 3 units per halving (they
  // truncate), and the stack allows fewer than 8 halvings.
  auto within = [&](FS_FIXED a, FS_FIXED b, FS_FIXED c, FS_FIXED d) {
    FS_FIXED mn = a < b ? a : b, mx = a < b ? b : a;
    if (c < mn) mn = c;
    if (c > mx) mx = c;
    if (d < mn) mn = d;
    if (d > mx) mx = d;
    return (FS_INT64)mn - 64 >= lo && mx <= hi;
  };
  static const int kPoints[4] = {1, 1, 2, 3};
  for (FS_SHORT k = 0; k < o->num; k++) {
    int t = o->type[k] & 0x7F;
    // An element whose points would run past the arrays ends the walk.
    if (p + (t < 4 ? kPoints[t] : 1) > o->np) break;
    if (t == FS_MOVETO) {
      cx = o->x[p];
      cy = o->y[p];
      p++;
    } else if (t == FS_LINETO) {
      FS_FIXED x = o->x[p], y = o->y[p];
      p++;
      if (!misses(cy, y, y, y) && !line_cells(cells, cx, cy, x, y)) return 0;
      cx = x;
      cy = y;
    } else if (t == FS_QUADTO) {
      // Subdivision, first half first. The piece at hand stays in
      // registers and only second halves wait on the stack: `depth` counts
      // the words below the piece at hand, as though both halves had been
      // pushed and the first popped, so the stack limits fall where they
      // would.
      FS_FIXED* s = r->stack = r->stack_base;
      FS_FIXED x0 = cx, y0 = cy, x1 = o->x[p], y1 = o->y[p];
      FS_FIXED x2 = o->x[p + 1], y2 = o->y[p + 1];
      FS_LONG depth = 0;
      cx = x2;
      cy = y2;
      p += 2;
      const bool inside = within(y0, y1, y2, y2);
      while (true) {
        if (inside || !misses(y0, y1, y2, y2)) {
          FS_FIXED ax = (x0 >> 1) + (x1 >> 1), ay = (y0 >> 1) + (y1 >> 1);
          FS_FIXED bx = (x1 >> 1) + (x2 >> 1), by = (y1 >> 1) + (y2 >> 1);
          FS_FIXED mx = (ax >> 1) + (bx >> 1), my = (ay >> 1) + (by >> 1);
          FS_FIXED ddx = fabs_(x1 - mx), ddy = fabs_(y1 - my);
          FS_FIXED d = ddx > ddy ? ddx + ((ddy * 3) >> 3) : ddy + ((ddx * 3) >> 3);
          if (d >= err && depth < RASTER_STACK) {
            if (depth + 12 > RASTER_STACK) return -1;
            FS_FIXED* h = s + depth;  // the second half waits
            h[0] = mx; h[1] = my; h[2] = bx; h[3] = by; h[4] = x2; h[5] = y2;
            depth += 6;
            x1 = ax; y1 = ay; x2 = mx; y2 = my;
            continue;
          }
          if (!line_cells(cells, x0, y0, x2, y2)) return 0;
        }
        if (depth == 0) break;
        depth -= 6;
        const FS_FIXED* q = s + depth;
        x0 = q[0]; y0 = q[1]; x1 = q[2]; y1 = q[3]; x2 = q[4]; y2 = q[5];
      }
    } else if (t == FS_CUBETO) {
      // As the quadratic, 8 words a piece.
      FS_FIXED* s = r->stack = r->stack_base;
      FS_FIXED x0 = cx, y0 = cy, x1 = o->x[p], y1 = o->y[p];
      FS_FIXED x2 = o->x[p + 1], y2 = o->y[p + 1], x3 = o->x[p + 2], y3 = o->y[p + 2];
      FS_LONG depth = 0;
      cx = x3;
      cy = y3;
      p += 3;
      const bool inside = within(y0, y1, y2, y3);
      while (true) {
        if (inside || !misses(y0, y1, y2, y3)) {
          FS_FIXED ax = (x0 >> 1) + (x1 >> 1), ay = (y0 >> 1) + (y1 >> 1);
          FS_FIXED bx = (x1 >> 1) + (x2 >> 1), by = (y1 >> 1) + (y2 >> 1);
          FS_FIXED cx2 = (x2 >> 1) + (x3 >> 1), cy2 = (y2 >> 1) + (y3 >> 1);
          FS_FIXED dx = (ax >> 1) + (bx >> 1), dy = (ay >> 1) + (by >> 1);
          FS_FIXED ex = (bx >> 1) + (cx2 >> 1), ey = (by >> 1) + (cy2 >> 1);
          FS_FIXED fx = (dx >> 1) + (ex >> 1), fy = (dy >> 1) + (ey >> 1);
          FS_FIXED d1 = DistanceNorm(x1 - dx, y1 - dy);
          FS_FIXED d2 = DistanceNorm(x2 - ex, y2 - ey);
          FS_FIXED d = d1 > d2 ? d1 : d2;
          if (d >= err && depth < RASTER_STACK) {
            if (depth + 16 > RASTER_STACK) return -1;
            FS_FIXED* h = s + depth;
            h[0] = fx; h[1] = fy; h[2] = ex; h[3] = ey;
            h[4] = cx2; h[5] = cy2; h[6] = x3; h[7] = y3;
            depth += 8;
            x1 = ax; y1 = ay; x2 = dx; y2 = dy; x3 = fx; y3 = fy;
            continue;
          }
          if (!line_cells(cells, x0, y0, x3, y3)) return 0;
        }
        if (depth == 0) break;
        depth -= 8;
        const FS_FIXED* q = s + depth;
        x0 = q[0]; y0 = q[1]; x1 = q[2]; y1 = q[3];
        x2 = q[4]; y2 = q[5]; x3 = q[6]; y3 = q[7];
      }
    } else {
      // Any other code ends nothing and draws nothing: it acts as a move.
      if (p < o->np) {
        cx = o->x[p];
        cy = o->y[p];
        p++;
      }
    }
  }
  return 1;
}

int walk_band(RASTER* r, FS_OUTLINE* o, FS_FIXED err) {
  CellStore cells = cell_store(r);
  int result = walk_elements(r, cells, o, err);
  put_back(r, cells);
  return result;
}

// The image effects, in order: pixel boldness of small stroke sizes (at
// 8 bits, or 2 when the map was cut first), emboss or engrave, one outline
// (1 pixel, 2 pixels, the outline width, or soft) with the client's
// opacity, then softening by a filter that widens with the size. A failed
// effect leaves the map with us: it is freed and the heap's error stands.
FS_GRAYMAP* image_effects(FS_STATE* state, FS_GRAYMAP* g);
FS_GRAYMAP* graymap_effects(FS_STATE* state, FS_GRAYMAP* g) {
  if (pixel_bold(state) && bold_width(state) != 0)
    g = g->bitsPerPixel == 2 ? pixelbold_graymap2(state, g) : pixelbold_graymap8(state, g);
  return g == nullptr ? nullptr : image_effects(state, g);
}

// The effects after pixel boldness.
FS_GRAYMAP* image_effects(FS_STATE* state, FS_GRAYMAP* g) {
  FS_ULONG f = state->flags;
  if (f & FLAGS_EMBOSSED)
    emboss_graymap(g);
  else if (f & FLAGS_ENGRAVED)
    engrave_graymap(g);
  FS_FIXED op = state->outline_opacity;
  FS_GRAYMAP* r = g;
  if (f & FLAGS_OUTLINED_1PIXEL)
    r = outline_graymap(state, g, 1, op);
  else if (f & FLAGS_OUTLINED_2PIXEL)
    r = outline_graymap(state, g, 2, op);
  else if (f & (FLAGS_OUTLINED_FILLED | FLAGS_OUTLINED_UNFILLED))
    r = outline_graymap(state, g, state->outline_width, op);
  else if (f & FLAGS_OUTLINED_SOFT)
    r = soft_outline_graymap(state, g, state->outline_width, op);
  if (r == nullptr) {
    FSS_free(state, g);
    return nullptr;
  }
  g = r;
  if (f & FLAGS_SOFTENED) {
    FS_LONG lpm = state->lpm;
    if (lpm == 0 && state->cur_sfnt && state->cur_sfnt->senv)
      lpm = state->cur_sfnt->senv->yppm;
    int k = lpm <= 16 ? 1 : lpm <= 25 ? 2 : 3;
    r = Soften(state, k, k, g);
    if (r == nullptr) {
      FSS_free(state, g);
      return nullptr;
    }
    g = r;
  }
  return g;
}

// The depth an empty glyph's record reports.
FS_SHORT empty_depth(FS_USHORT type) {
  if (type & 8) return 8;
  if (type & 2) return 2;
  return 4;
}

}  // namespace

FS_GRAYMAP* make_graymap(FS_STATE* state, FS_OUTLINE* outl, FS_USHORT gmaptype) {
  if (outl == nullptr) {
    state->error = ERR_BAD_ARGUMENT;
    return nullptr;
  }
  if (outl->num == 0 || outl->np == 0) {
    FS_GRAYMAP* g = (FS_GRAYMAP*)FSS_calloc(state, sizeof(FS_GRAYMAP));
    if (g == nullptr) return nullptr;
    g->size = GRAYMAP_HEADER;
    g->i_dx = outl->i_dx;
    g->i_dy = outl->i_dy;
    g->dx = outl->dx;
    g->dy = outl->dy;
    g->bitsPerPixel = empty_depth(gmaptype);
    g->type = gmaptype;
    return g;
  }
  // Stroke skeletons are expanded to a filled outline by the stroke-font
  // unit before they get here; this converter takes filled outlines.

  FS_LONG lpm = state->lpm;
  if (lpm == 0 && state->cur_sfnt && state->cur_sfnt->senv)
    lpm = state->cur_sfnt->senv->yppm;
  FS_FIXED err = lpm < 16 ? 2048 : lpm > 64 ? 8192 : lpm * 128;

  FS_GRAYMAP* g = new_graymap_8(state, outl);
  if (g == nullptr) return nullptr;
  RASTER* r = get_raster(state, g->width);
  if (r == nullptr) {
    FSS_free(state, g);
    return nullptr;
  }
  r->gmap = g;

  FS_LONG height = g->height;
  FS_LONG bands = arc_length(outl) / 512 + 1;
  if (height + 2 * bands >= bands * 256) bands = (2 * bands + height) / 256 + 1;
  bool doubled = false;
  while (true) {
    r->num_bands = bands;
    FS_FIXED h = (FS_FIXED)(((FS_INT64)outl->hi_y - outl->lo_y) / bands);
    int result = 1;
    for (FS_LONG i = 0; i < bands && result == 1; i++) {
      r->band_ymin = floor_px((FS_FIXED)(outl->lo_y + (FS_INT64)i * h));
      r->band_ymax = ceil_px(i == bands - 1 ? outl->hi_y : r->band_ymin + h);
      r->top = r->band_ymax >> 16;
      // Only the band's rows, 1 to its height, are summed: the lists of
      // the rows below (a piece may still land there) are never read.
      FS_LONG used = (r->band_ymax - r->band_ymin) >> 16;
      memset(r->rows, 0, sizeof(THANG*) * (size_t)(used < RASTER_ROWS ? used + 1 : RASTER_ROWS));
      r->next_thang = 0;
      result = walk_band(r, outl, err);
      if (result == 1) do_band(r);
    }
    if (result == 1) break;
    bool fail = result < 0;
    if (!fail) {
      // The cell store ran full: more bands, or once they outnumber the
      // rows, a coarser flatness.
      if (doubled && bands > height) {
        err += 8192;
        fail = err > 32768;
      } else {
        bands *= 2;
        doubled = true;
      }
    }
    if (fail) {
      FSS_free(state, g);
      r->gmap = nullptr;
      r->ref_count--;
      state->error = ERR_STACK_OVERFLOW;
      return nullptr;
    }
    // Areas may hold a partial row of the failed band.
    memset(r->areas, 0, (size_t)r->areasize * 8);
    memset(g->bits, 0, (size_t)(g->bpl * g->height));
  }
  r->gmap = nullptr;
  r->ref_count--;

  bool two_bit = (gmaptype & 0x202) != 0 && (gmaptype & 0x404) == 0;
  if (two_bit) {
    g = trim_convert(state, g, gmaptype);
    if (g == nullptr) return nullptr;
  }
  g = graymap_effects(state, g);
  if (g == nullptr) return nullptr;
  if (!two_bit) g = trim_convert(state, g, gmaptype);
  if (g != nullptr) state->error = 0;
  return g;
}

namespace {

// Eight pixels at once, for the scans of an 8-bit map for its first and
// last pixels above 0.
inline FS_UINT64 eight_pixels(const FS_BYTE* p) {
  FS_UINT64 v;
  memcpy(&v, p, 8);
  return v;
}

// The first column of the row with a pixel above 0, or one where the byte
// scan is to go on from (the row's width when all are 0).
inline FS_LONG first_ink(const FS_BYTE* row, FS_LONG width) {
  FS_LONG x = 0;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  for (; x + 8 <= width; x += 8) {
    FS_UINT64 v = eight_pixels(row + x);
    if (v != 0) return x + __builtin_ctzll(v) / 8;
  }
#endif
  return x;
}

// The last column right of `floor` with a pixel above 0, or one from which
// the byte scan down to `floor` is to go on.
inline FS_LONG last_ink(const FS_BYTE* row, FS_LONG width, FS_LONG floor) {
  FS_LONG e = width - 1;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  for (; e - 7 > floor; e -= 8) {
    FS_UINT64 v = eight_pixels(row + e - 7);
    if (v != 0) return e - 7 + (63 - __builtin_clzll(v)) / 8;
  }
#endif
  return e;
}

// The 8-bit trim without a second map: the kept rows move up to the start
// of the pixels (each lands at or before where it stood), the record is
// rewritten as the exact one, the bytes behind the pixels up to the
// 48-byte minimum are cleared, and the block shrinks to the new size. The
// result is the record a fresh copy would be, byte for byte, at the heap
// cost of the copy. Null with 201 when the block can't be had (the map is
// freed).
FS_GRAYMAP* trim_in_place(FS_STATE* state, FS_GRAYMAP* gmap, FS_USHORT type,
                          FS_LONG r0, FS_LONG c0, FS_LONG w, FS_LONG h) {
  FS_LONG size = GRAYMAP_HEADER + w * h;
  FS_LONG block = size < 48 ? 48 : size;
  FS_LONG old_block = gmap->size < 48 ? 48 : gmap->size;
  if (r0 > 0 || c0 != 0 || w != gmap->bpl) {
    for (FS_LONG y = 0; y < h; y++)
      memmove(gmap->bits + y * w, gmap->bits + (y + r0) * gmap->bpl + c0, (size_t)w);
  }
  if (r0 >= 0) {
    gmap->lo_x = (FS_SHORT)(gmap->lo_x + c0);
    gmap->hi_y = (FS_SHORT)(gmap->hi_y - r0);
  }
  gmap->cache_ptr = nullptr;
  gmap->size = size;
  gmap->width = (FS_SHORT)w;
  gmap->height = (FS_SHORT)h;
  gmap->bpl = (FS_SHORT)w;
  gmap->bitsPerPixel = 8;
  gmap->type = type;
  if (size < block) memset((FS_BYTE*)gmap + size, 0, (size_t)(block - size));
  if (block < old_block) {
    FS_GRAYMAP* t = (FS_GRAYMAP*)FSS_realloc(state, gmap, (FS_ULONG)block);
    if (t == nullptr) {
      FSS_free(state, gmap);
      state->error = ERR_MALLOC_FAIL;
      return nullptr;
    }
    gmap = t;
  }
  return gmap;
}

}  // namespace

FS_GRAYMAP* trim_convert(FS_STATE* state, FS_GRAYMAP* gmap, FS_USHORT type) {
  if (gmap == nullptr || gmap->bitsPerPixel != 8) return gmap;
  int bits = (type & 0x404) ? 4 : (type & 0x202) ? 2 : 8;
  int blank = bits == 4 ? 15 : bits == 2 ? 63 : 0;
  FS_LONG r0 = -1, r1 = -1, c0 = 0x7FFF, c1 = -1;
  for (FS_LONG y = 0; y < gmap->height; y++) {
    const FS_BYTE* row = gmap->bits + y * gmap->bpl;
    // Only columns left of the box so far can move its left side, and
    // only columns right of it its right side.
    FS_LONG x = blank == 0 ? first_ink(row, gmap->width) : 0;
    while (x < gmap->width && row[x] <= blank) x++;
    if (x == gmap->width) continue;
    if (r0 < 0) r0 = y;
    r1 = y;
    if (x < c0) c0 = x;
    FS_LONG e = blank == 0 ? last_ink(row, gmap->width, c1) : gmap->width - 1;
    while (e > c1 && row[e] <= blank) e--;
    if (e > c1) c1 = e;
  }
  FS_LONG w = r0 < 0 ? 0 : c1 - c0 + 1, h = r0 < 0 ? 0 : r1 - r0 + 1;
  FS_LONG bpl = bits == 8 ? w : bits == 4 ? (w + 1) / 2 : (w + 3) / 4;
  FS_LONG size = GRAYMAP_HEADER + bpl * h;
  // Rows laid out forward, as the converter makes them, trim in place.
  if (bits == 8 && gmap->bpl >= gmap->width)
    return trim_in_place(state, gmap, type, r0, c0, w, h);
  FS_GRAYMAP* t = (FS_GRAYMAP*)FSS_calloc(state, (FS_ULONG)(size < 48 ? 48 : size));
  if (t == nullptr) {
    FSS_free(state, gmap);
    return nullptr;
  }
  memcpy(t, gmap, GRAYMAP_HEADER);
  t->cache_ptr = nullptr;
  t->size = size;
  t->width = (FS_SHORT)w;
  t->height = (FS_SHORT)h;
  t->bpl = (FS_SHORT)bpl;
  t->bitsPerPixel = (FS_SHORT)bits;
  t->type = type;
  if (r0 >= 0) {
    t->lo_x = (FS_SHORT)(gmap->lo_x + c0);
    t->hi_y = (FS_SHORT)(gmap->hi_y - r0);
  }
  for (FS_LONG y = 0; y < h; y++) {
    const FS_BYTE* src = gmap->bits + (y + r0) * gmap->bpl + c0;
    FS_BYTE* dst = t->bits + y * bpl;
    if (bits == 8) {
      memcpy(dst, src, (size_t)w);
    } else if (bits == 4) {
      for (FS_LONG x = 0; x < w; x++)
        dst[x >> 1] |= (FS_BYTE)((src[x] >> 4) << ((x & 1) ? 0 : 4));
    } else {
      for (FS_LONG x = 0; x < w; x++)
        dst[x >> 2] |= (FS_BYTE)((src[x] >> 6) << (6 - 2 * (x & 3)));
    }
  }
  FSS_free(state, gmap);
  return t;
}

FS_GRAYMAP* copy_graymap(FS_STATE* state, FS_GRAYMAP* gmap) {
  if (gmap == nullptr) return nullptr;
  FS_LONG n = gmap->size < 48 ? 48 : gmap->size;
  FS_GRAYMAP* c = (FS_GRAYMAP*)FSS_malloc(state, (FS_ULONG)n);
  if (c == nullptr) return nullptr;
  memcpy(c, gmap, (size_t)gmap->size);
  c->cache_ptr = nullptr;
  return c;
}

FS_GRAYMAP* get_cached_graymap(FS_STATE* state, FS_ULONG id, FS_USHORT index,
                               FS_USHORT type, FS_SHORT phasex, FS_SHORT phasey,
                               const GraymapSteps& steps) {
  FS_SHORT phase = (FS_SHORT)((phasey << 4) | phasex);
  FS_GRAYMAP* g = (type & FS_MAP_RASTER_ICON) ? find_raster_icon_in_cache(state, index)
                                              : nullptr;
  if (g == nullptr) g = (FS_GRAYMAP*)find_in_cache(state, steps.kind, index, phase);
  if (g != nullptr) {
    state->error = 0;
    return g;
  }
  SFNT* sfnt = state->cur_sfnt;
  LFNT* lfnt = state->cur_lfnt;
  TTF* ttf = lfnt && lfnt->fnt_type <= FNT_TYPE_TTC ? (TTF*)lfnt->fnt : nullptr;
  if (steps.strike != nullptr && ttf != nullptr && sfnt != nullptr) {
    g = steps.strike(state, index, type, steps.kind, phase);
    if (g != nullptr) state->error = 0;
    if (g != nullptr || state->error != 0) return g;
  }
  if (sfnt == nullptr) {
    state->error = ERR_NO_CURRENT_SFNT;
    return nullptr;
  }
  // A font of strikes only draws nothing outside them.
  if (steps.strike != nullptr && ttf != nullptr && ttf->glyf_size == 0 && ttf->cff == nullptr)
    return nullptr;
  FS_OUTLINE* o = find_or_make_outline(state, lfnt, sfnt, id, index);
  if (o == nullptr) return nullptr;
  shift_outline(o, phasex, phasey);
  g = steps.draw(state, o, id, type);
  FSS_free(state, o);
  if (g == nullptr) return nullptr;
  if (steps.place) shift_map_vertically(sfnt, g);
  save_to_cache(state, steps.kind, index, phase, g);
  state->error = 0;
  return g;
}

namespace {

// The gray getter's strike step: the font's own gray glyph with the
// client's effects, kept; a colour glyph in the icon cache.
FS_GRAYMAP* strike_graymap(FS_STATE* state, FS_USHORT index, FS_USHORT type,
                           FS_USHORT kind, FS_SHORT phase) {
  FS_GRAYMAP* g = get_embedded_graymap(state, state->cur_sfnt, index, type);
  if (g == nullptr) return nullptr;
  if (g->bitsPerPixel == 32) {
    // A colour glyph keeps its PNG stream and goes to the icon cache.
    save_raster_icon_to_cache(state, index, g);
    return g;
  }
  g = graymap_effects(state, g);
  if (g != nullptr) save_to_cache(state, kind, index, phase, g);
  return g;
}

FS_GRAYMAP* draw_graymap(FS_STATE* state, FS_OUTLINE* outl, FS_ULONG id,
                         FS_USHORT type) {
  (void)id;
  return make_graymap(state, outl, type);
}

}  // namespace

FS_GRAYMAP* get_graymap(FS_STATE* state, FS_ULONG id, FS_USHORT index,
                        FS_USHORT type, FS_SHORT phasex, FS_SHORT phasey) {
  FS_ULONG flags = state->flags;
  state->flags |= FLAGS_GRAYSCALE;
  GraymapSteps steps = {graymap_code(type), strike_graymap, draw_graymap, true};
  FS_GRAYMAP* g = get_cached_graymap(state, id, index, type, phasex, phasey, steps);
  state->flags = flags;
  return g;
}

FS_GRAYMAP* apply_graymap_effects(FS_STATE* state, FS_GRAYMAP* g) {
  return graymap_effects(state, g);
}

FS_GRAYMAP* apply_image_effects(FS_STATE* state, FS_GRAYMAP* g) {
  return image_effects(state, g);
}

void dump_graymap(FS_GRAYMAP* g) {
  if (g == nullptr) {
    printf("graymap: null\n");
    return;
  }
  printf("graymap: lo_x %d hi_y %d width %d height %d bpl %d bits %d\n", g->lo_x,
         g->hi_y, g->width, g->height, g->bpl, g->bitsPerPixel);
  for (FS_LONG y = 0; y < g->height; y++) {
    for (FS_LONG x = 0; x < g->bpl; x++) printf("%02x", g->bits[y * g->bpl + x]);
    printf("\n");
  }
}
