// Outline extraction and emboldening: from the key's glyph element to an
// FS_OUTLINE in 16.16 pixels, with advance, vertical and rotated layout,
// and the one-sided shift that makes a glyph bold. Called by the glyph
// request pipeline and the scan converters.
#include "Orvex_internal/fs_outline.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "Orvex_internal/adf.h"
#include "Orvex_internal/fs_cff.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glue.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

FS_LONG types_room(FS_LONG n_types) { return (n_types + 3) & ~3; }

// 26.6 to 16.16 by a shift of 10, and a sum of two to 16.16 halved by a
// shift of 9; done unsigned, so that negative values shift as bits.
FS_FIXED f26_to_fixed(FS_LONG v) { return (FS_FIXED)((FS_ULONG)v << 10); }
FS_FIXED f26_sum_half(FS_LONG a, FS_LONG b) { return (FS_FIXED)((FS_ULONG)(a + b) << 9); }

// Lays out the arrays behind the header of an outline block.
void place_arrays(FS_OUTLINE* o, FS_LONG n_types, FS_LONG n_points) {
  FS_BYTE* base = (FS_BYTE*)o + FS_OUTLINE_HEADER;
  o->type = base;
  o->x = (FS_FIXED*)(base + types_room(n_types));
  o->y = o->x + n_points;
}

// The pixels per em that boldness and layout are measured in.
FS_LONG outline_lpm(FS_STATE* state, SFNT* sfnt) {
  if (state->lpm != 0) return state->lpm;
  if (sfnt != nullptr && sfnt->senv != nullptr) return sfnt->senv->yppm;
  return 0;
}

// The component record of the current font, or null.
CFNT* current_cfnt(FS_STATE* state) {
  TYPESET* ts = &state->cur_typeset;
  if (ts->tfntarray == nullptr || state->cur_font >= ts->capacity)
    return nullptr;
  return ts->tfntarray[state->cur_font].cfnt;
}

// Collects elements either to count them or to write them.
struct Emitter {
  FS_OUTLINE* o;  // null: count only
  FS_LONG types = 0;
  FS_LONG points = 0;
  void point(FS_FIXED x, FS_FIXED y) {
    if (o != nullptr) {
      o->x[points] = x;
      o->y[points] = y;
    }
    points++;
  }
  void code(FS_BYTE t) {
    if (o != nullptr) o->type[types] = t;
    types++;
  }
  void move(FS_FIXED x, FS_FIXED y) { code(FS_MOVETO); point(x, y); }
  void line(FS_FIXED x, FS_FIXED y) { code(FS_LINETO); point(x, y); }
  void quad(FS_FIXED cx, FS_FIXED cy, FS_FIXED x, FS_FIXED y) {
    code(FS_QUADTO);
    point(cx, cy);
    point(x, y);
  }
  void cube(FS_FIXED ax, FS_FIXED ay, FS_FIXED bx, FS_FIXED by, FS_FIXED x,
            FS_FIXED y) {
    code(FS_CUBETO);
    point(ax, ay);
    point(bx, by);
    point(x, y);
  }
};

// One TrueType contour: the on/off-curve walk of fill_outline.
struct QuadWalk {
  Emitter* e;
  bool pending = false;
  FS_FIXED px = 0, py = 0;  // the pending off-curve point
  void take(FS_FIXED x, FS_FIXED y, bool on) {
    if (on) {
      if (pending)
        e->quad(px, py, x, y);
      else
        e->line(x, y);
      pending = false;
    } else {
      if (pending) {
        // Two off-curve points imply the on-curve point halfway.
        FS_FIXED mx = (FS_FIXED)(((FS_INT64)px + x) >> 1);
        FS_FIXED my = (FS_FIXED)(((FS_INT64)py + y) >> 1);
        e->quad(px, py, mx, my);
      }
      px = x;
      py = y;
      pending = true;
    }
  }
};

void walk_ttf(fnt_ElementType* el, FS_BOOLEAN filled, Emitter* e) {
  for (FS_SHORT c = 0; c < el->nc; c++) {
    FS_LONG s = el->sp[c], t = el->ep[c];
    if (s >= t) continue;  // a single point leaves no element
    auto X = [&](FS_LONG i) { return f26_to_fixed(el->x[i]); };
    auto Y = [&](FS_LONG i) { return f26_to_fixed(el->y[i]); };
    bool on0 = (el->onCurve[s] & 1) != 0;
    bool on1 = (el->onCurve[s + 1] & 1) != 0;
    FS_FIXED fx, fy;
    FS_LONG k, closing = -1;
    if (on0) {
      fx = X(s);
      fy = Y(s);
      k = s + 1;
    } else if (on1) {
      fx = X(s + 1);
      fy = Y(s + 1);
      k = s + 2;
      closing = s;
    } else {
      fx = f26_sum_half(el->x[s], el->x[s + 1]);
      fy = f26_sum_half(el->y[s], el->y[s + 1]);
      k = s + 1;
      closing = s;
    }
    e->move(fx, fy);
    QuadWalk w;
    w.e = e;
    for (FS_LONG i = k; i <= t; i++) w.take(X(i), Y(i), (el->onCurve[i] & 1) != 0);
    bool close = filled || (el->onCurve[t] & 1) == 0;
    if (!close) continue;  // a stroke skeleton keeps its open ends
    if (closing >= 0) w.take(X(closing), Y(closing), false);
    // Back to the first point exactly, so that no rounding gap is left.
    w.take(fx, fy, true);
  }
}

void walk_cff(fnt_ElementType* el, Emitter* e) {
  for (FS_SHORT c = 0; c < el->nc; c++) {
    FS_LONG s = el->sp[c], t = el->ep[c];
    if (s >= t) continue;
    auto X = [&](FS_LONG i) { return f26_to_fixed(el->x[i]); };
    auto Y = [&](FS_LONG i) { return f26_to_fixed(el->y[i]); };
    e->move(X(s), Y(s));
    FS_LONG i = s + 1;
    while (i <= t + 1) {
      FS_LONG j = i > t ? s : i;  // the closing element ends at the start
      if (el->onCurve[j] & 1) {
        e->line(X(j), Y(j));
        i++;
      } else {
        // Three points: two controls and the end, wrapping to the start.
        FS_LONG a = j, b = i + 1 > t ? s + (i + 1 - t - 1) : i + 1;
        FS_LONG d = i + 2 > t ? s + (i + 2 - t - 1) : i + 2;
        e->cube(X(a), Y(a), X(b), Y(b), X(d), Y(d));
        i += 3;
      }
      if (j == s) break;
    }
  }
}

}  // namespace

FS_OUTLINE* setup_outline(FS_STATE* state, FS_SHORT nc, FS_LONG n_types,
                          FS_LONG n_points) {
  FS_LONG size = FS_OUTLINE_HEADER + types_room(n_types) + 8 * n_points;
  FS_OUTLINE* o = (FS_OUTLINE*)FSS_calloc(state, (FS_ULONG)size);
  if (o == nullptr) return nullptr;
  o->size = size;
  o->nc = nc;
  o->num = (FS_SHORT)n_types;
  o->np = (FS_SHORT)n_points;
  place_arrays(o, n_types, n_points);
  return o;
}

FS_OUTLINE* copy_outline(FS_STATE* state, FS_OUTLINE* o, FS_BOOLEAN user_mem) {
  if (o == nullptr) return nullptr;
  FS_OUTLINE* c = user_mem ? (FS_OUTLINE*)malloc((size_t)o->size)
                           : (FS_OUTLINE*)FSS_malloc(state, (FS_ULONG)o->size);
  if (c == nullptr) {
    state->error = ERR_MALLOC_FAIL;
    return nullptr;
  }
  memcpy(c, o, (size_t)o->size);
  c->cache_ptr = nullptr;
  place_arrays(c, o->num, o->np);
  return c;
}

void shift_outline(FS_OUTLINE* o, FS_SHORT cspx, FS_SHORT cspy) {
  if (o == nullptr || (cspx == 0 && cspy == 0)) return;
  FS_FIXED sx = cspx * 0x4000, sy = -cspy * 0x4000;
  for (FS_SHORT i = 0; i < o->np; i++) {
    o->x[i] += sx;
    o->y[i] += sy;
  }
  o->lo_x += sx;
  o->hi_x += sx;
  o->lo_y += sy;
  o->hi_y += sy;
}

void count_points(fnt_ElementType* el, FS_BOOLEAN filled, FS_LONG* n_types,
                  FS_LONG* n_points) {
  Emitter e;
  e.o = nullptr;
  walk_ttf(el, filled, &e);
  *n_types = e.types;
  *n_points = e.points;
}

void count_points_cff(fnt_ElementType* el, FS_LONG* n_types,
                      FS_LONG* n_points) {
  Emitter e;
  e.o = nullptr;
  walk_cff(el, &e);
  *n_types = e.types;
  *n_points = e.points;
}

void fill_outline(fnt_ElementType* el, FS_BOOLEAN filled, FS_OUTLINE* o) {
  Emitter e;
  e.o = o;
  walk_ttf(el, filled, &e);
  o->num = (FS_SHORT)e.types;
  o->np = (FS_SHORT)e.points;
  o->nc = el->nc;
  if (filled && e.types > 0) o->type[0] |= 0x80;
}

void fill_outline_cff(fnt_ElementType* el, FS_OUTLINE* o) {
  Emitter e;
  e.o = o;
  walk_cff(el, &e);
  o->num = (FS_SHORT)e.types;
  o->np = (FS_SHORT)e.points;
  o->nc = el->nc;
  if (e.types > 0) o->type[0] |= 0x80;
}

void set_bbox(int n_points, FS_OUTLINE* o) {
  if (n_points <= 0) {
    o->lo_x = o->hi_x = o->lo_y = o->hi_y = 0;
    return;
  }
  FS_FIXED lx = o->x[0], hx = o->x[0], ly = o->y[0], hy = o->y[0];
  for (int i = 1; i < n_points; i++) {
    if (o->x[i] < lx) lx = o->x[i];
    if (o->x[i] > hx) hx = o->x[i];
    if (o->y[i] < ly) ly = o->y[i];
    if (o->y[i] > hy) hy = o->y[i];
  }
  o->lo_x = lx;
  o->hi_x = hx;
  o->lo_y = ly;
  o->hi_y = hy;
}

namespace {

// Half the ascender plus half the descender in whole pixels, 16.16: the
// line that rotated layout turns about.
FS_FIXED rotation_mid(FS_STATE* state, FS_LONG lpm) {
  LFNT* lfnt = state->cur_lfnt;
  TTF* ttf = lfnt ? (TTF*)lfnt->fnt : nullptr;
  if (ttf == nullptr || ttf->hhea == nullptr || ttf->head == nullptr ||
      ttf->head->unitsPerEm == 0)
    return 0;
  FS_INT64 units = ttf->hhea->yAscender / 2 + ttf->hhea->yDescender / 2;
  FS_INT64 mid = units * lpm * 65536 / ttf->head->unitsPerEm;
  return (FS_FIXED)(mid & ~(FS_INT64)0xFFFF);
}

void rotate_points(FS_OUTLINE* o, FS_FIXED mid, bool left) {
  for (FS_SHORT i = 0; i < o->np; i++) {
    FS_FIXED x = o->x[i], y = o->y[i] - mid;
    o->x[i] = left ? y : -y;
    o->y[i] = left ? -x : x;
  }
  set_bbox(o->np, o);
}

// The bold vector's whole-pixel rounding.
FS_SHORT round_pixels(FS_FIXED v) { return (FS_SHORT)((v + 0x8000) >> 16); }

}  // namespace

FS_OUTLINE* extract_outline(FS_STATE* state, fsg_SplineKey* key) {
  fnt_ElementType* el = fsg_glyph_element(key);
  SFNT* sfnt = key->sfnt;
  LFNT* lfnt = sfnt ? sfnt->lfnt : nullptr;
  FS_ULONG fontflags = lfnt ? lfnt->fontflags : 0;
  bool stroke = (fontflags & FONTFLAG_STROKE) != 0;
  FS_LONG n = el->nc > 0 ? el->ep[el->nc - 1] + 1 : 0;
  if (n > 0 && (stroke || (fontflags & FONTFLAG_COMPRESSED)))
    el->onCurve[0] |= state->outl_char;
  bool is_stik = stroke && el->nc > 0 && (el->onCurve[0] & 0x80) == 0;
  bool filled = !stroke || (n > 0 && (el->onCurve[0] & 0x80) != 0);
  bool cff = lfnt && (lfnt->fnt_type == FNT_TYPE_CFF ||
                      (fontflags & FONTFLAG_CFF) != 0);

  FS_OUTLINE* o;
  bool too_few = n < (is_stik ? 2 : 3);
  if (too_few) {
    o = setup_outline(state, 0, 0, 0);
    if (o == nullptr) return nullptr;
  } else {
    FS_LONG nt, np;
    if (cff)
      count_points_cff(el, &nt, &np);
    else
      count_points(el, filled, &nt, &np);
    o = setup_outline(state, el->nc, nt, np);
    if (o == nullptr) return nullptr;
    if (cff)
      fill_outline_cff(el, o);
    else
      fill_outline(el, filled, o);
    set_bbox(o->np, o);
  }
  o->outl_flag = state->any_hints;

  // Advance and layout from the phantom places behind the last point.
  FS_LONG p = n;
  F26DOT6* x = el->x;
  F26DOT6* y = el->y;
  FS_LONG lpm = outline_lpm(state, sfnt);
  FS_FIXED dx, dy;
  if (state->flags & FLAGS_VERTICAL_ON) {
    dx = f26_to_fixed(x[p + 2] - x[p + 3]);
    dy = f26_to_fixed(y[p + 3] - y[p + 2]);
    FS_FIXED ox = f26_to_fixed(x[p + 2]) & (FS_FIXED)0xFFFF0000;
    FS_FIXED oy = f26_to_fixed(y[p + 2]) & (FS_FIXED)0xFFFF0000;
    for (FS_SHORT i = 0; i < o->np; i++) {
      o->x[i] -= ox;
      o->y[i] -= oy;
    }
    if (!too_few) {
      o->lo_x -= ox;
      o->hi_x -= ox;
      o->lo_y -= oy;
      o->hi_y -= oy;
    }
  } else if (state->flags & FLAGS_VERTICAL_ROTATE_LEFT_ON) {
    dx = f26_to_fixed(y[p + 1] - y[p]);
    dy = f26_to_fixed(x[p + 1] - x[p]);
    if (!too_few) rotate_points(o, rotation_mid(state, lpm), true);
  } else if (state->flags & FLAGS_VERTICAL_ROTATE_RIGHT_ON) {
    dx = f26_to_fixed(y[p] - y[p + 1]);
    dy = f26_to_fixed(x[p] - x[p + 1]);
    if (!too_few) rotate_points(o, rotation_mid(state, lpm), false);
  } else {
    F26DOT6 x0 = x[p], x1 = x[p + 1];
    bool vanilla = sfnt && sfnt->senv && sfnt->senv->vanilla;
    if (!(state->flags & FLAGS_NO_HINTS) && vanilla) {
      x0 = (x0 + 32) & -64;
      x1 = (x1 + 32) & -64;
    }
    dx = f26_to_fixed(x1 - x0);
    dy = f26_to_fixed(y[p + 1] - y[p]);
  }
  o->dx = dx;
  o->dy = dy;
  o->i_dx = round_pixels(dx);
  o->i_dy = round_pixels(dy);
  if (dx != 0 && dy != 0) o->i_dx = o->i_dy = 0;

  // Boldness.
  CFNT* cfnt = current_cfnt(state);
  FS_FIXED bold = state->bold_pct + (cfnt ? cfnt->bold_pct : 0);
  if (bold != 0 && !is_stik && !(state->flags & FLAGS_ADD_WEIGHT)) {
    if (too_few) {
      FS_FIXED total = bold * lpm;
      FS_FIXED b = (FS_FIXED)(((FS_INT64)total + 0x8000) >> 16);
      FIXED_VECTOR u = {sfnt ? sfnt->user_scale[0] : 65536,
                        sfnt ? sfnt->user_scale[2] : 0};
      fixed_norm(&u);
      FS_FIXED sx = u.x * b, sy = u.y * b;
      o->dx += sx;
      o->dy += sy;
      if (o->i_dx) o->i_dx += round_pixels(sx);
      if (o->i_dy) o->i_dy += round_pixels(sy);
    } else {
      FS_LONG nt, np;
      FS_OUTLINE* b = embolden_outline(state, o, &nt, &np);
      if (b != o) {
        FSS_free(state, o);
        o = b;  // null on failure, with the error where there is one
      }
    }
  }
  return o;
}

namespace {

FS_INT64 cross(FS_FIXED ax, FS_FIXED ay, FS_FIXED bx, FS_FIXED by) {
  return (FS_INT64)ax * by - (FS_INT64)ay * bx;
}

FS_FIXED fmul(FS_FIXED a, FS_FIXED b) {
  return (FS_FIXED)(((FS_INT64)a * b + 0x8000) >> 16);
}

// The cross product of the unit vector u with d normalised, 16.16, with
// magnitudes below a quarter counted as 0.
FS_FIXED side_of(const FIXED_VECTOR& u, FS_FIXED dx, FS_FIXED dy, int sign) {
  FIXED_VECTOR d = {dx, dy};
  if (dx == 0 && dy == 0) return 0;
  fixed_norm(&d);
  FS_FIXED c = (FS_FIXED)(cross(u.x, u.y, d.x, d.y) >> 16) * sign;
  if (c > -16384 && c < 16384) return 0;
  return c;
}

bool opposite(FS_FIXED a, FS_FIXED b) { return (a < 0 && b > 0) || (a > 0 && b < 0); }

// The emboldening walk over one outline: the source's elements are copied
// one by one, each displaced by the bold vector (vx, vy) on the side the
// contour runs; where a segment turns to the other side the walk steps
// across by the vector (a flip), so the outline grows by (vx, vy) in all.
struct Bolden {
  const FS_OUTLINE* o;
  FIXED_VECTOR u;        // the unit vector of the bold direction
  FS_FIXED vx, vy;       // the bold vector
  Emitter e;
  FS_FIXED cx = 0, cy = 0;  // the current point written
  int sign = 1, dir = 1, start_sign = 1;
  FS_LONG pi = 0;           // source point index
  FS_FIXED sx = 0, sy = 0;  // the source's current point

  void flip() {
    e.line(cx + vx * dir, cy + vy * dir);
    cx += vx * dir;
    cy += vy * dir;
    sign = -sign;
    dir = -dir;
  }

  // A contour's start: the side it starts on, by a rough look at the deltas
  // of the points with element indices as point indices, on purpose.
  void move(FS_SHORT k) {
    if (k > 0 && sign != start_sign) flip();
    sx = o->x[pi];
    sy = o->y[pi];
    pi++;
    sign = 1;
    for (FS_SHORT j = k + 1; j < o->num && (o->type[j] & 0x7F) != FS_MOVETO &&
                             j < o->np;
         j++) {
      FS_INT64 c = cross(vx, vy, o->x[j] - o->x[j - 1], o->y[j] - o->y[j - 1]);
      if (c != 0) {
        sign = c < 0 ? -1 : 1;
        break;
      }
    }
    dir = o->polarity ? sign * o->polarity : sign;
    start_sign = sign;
    cx = sx + (dir == -1 ? vx : 0);
    cy = sy + (dir == -1 ? vy : 0);
    e.move(cx, cy);
  }

  void line() {
    FS_FIXED dx = o->x[pi] - sx, dy = o->y[pi] - sy;
    if (cross(vx, vy, dx, dy) * sign < 0) flip();
    cx += dx;
    cy += dy;
    e.line(cx, cy);
    sx = o->x[pi];
    sy = o->y[pi];
    pi++;
  }

  // The sides of a curve's first and last legs, flipped first when the
  // curve starts on the other side.
  void curve_sides(FS_FIXED d0x, FS_FIXED d0y, FS_FIXED d1x, FS_FIXED d1y,
                   FS_FIXED* c0, FS_FIXED* c1) {
    *c0 = side_of(u, d0x, d0y, sign);
    *c1 = side_of(u, d1x, d1y, sign);
    if (*c0 < 0 || (*c0 == 0 && *c1 < 0)) {
      flip();
      *c0 = -*c0;
      *c1 = -*c1;
    }
  }

  // A quadratic that changes side is split where its tangent is parallel
  // to the bold vector, with a flip between the halves.
  void quad() {
    FS_FIXED d0x = o->x[pi] - sx, d0y = o->y[pi] - sy;
    FS_FIXED ex = o->x[pi + 1], ey = o->y[pi + 1];
    FS_FIXED d1x = ex - o->x[pi], d1y = ey - o->y[pi];
    FS_FIXED c0, c1;
    curve_sides(d0x, d0y, d1x, d1y, &c0, &c1);
    if (!opposite(c0, c1)) {
      e.quad(cx + d0x, cy + d0y, cx + d0x + d1x, cy + d0y + d1y);
      cx += d0x + d1x;
      cy += d0y + d1y;
    } else {
      FS_INT64 num = -cross(vx, vy, d0x, d0y);
      FS_INT64 den = cross(vx, vy, d1x - d0x, d1y - d0y);
      FS_FIXED tt = den != 0 ? (FS_FIXED)((num * 65536) / den) : 0x8000;
      FS_FIXED qx = cx + fmul(tt, d0x), qy = cy + fmul(tt, d0y);
      FS_FIXED t2 = fmul(tt, tt);
      FS_FIXED mx = cx + 2 * fmul(tt, d0x) + fmul(t2, d1x - d0x);
      FS_FIXED my = cy + 2 * fmul(tt, d0y) + fmul(t2, d1y - d0y);
      e.quad(qx, qy, mx, my);
      cx = mx;
      cy = my;
      flip();
      FS_FIXED fx = ex + (sign < 0 ? vx : 0), fy = ey + (sign < 0 ? vy : 0);
      e.quad(fx + fmul(tt - 65536, d1x), fy + fmul(tt - 65536, d1y), fx, fy);
      cx = fx;
      cy = fy;
    }
    sx = ex;
    sy = ey;
    pi += 2;
  }

  // A cubic that changes side crosses over whole: its end is displaced to
  // the other side without a flip segment.
  void cube() {
    FS_FIXED d0x = o->x[pi] - sx, d0y = o->y[pi] - sy;
    FS_FIXED mx = o->x[pi + 1] - o->x[pi], my = o->y[pi + 1] - o->y[pi];
    FS_FIXED ex = o->x[pi + 2], ey = o->y[pi + 2];
    FS_FIXED d1x = ex - o->x[pi + 1], d1y = ey - o->y[pi + 1];
    FS_FIXED c0, c1;
    curve_sides(d0x, d0y, d1x, d1y, &c0, &c1);
    if (opposite(c0, c1)) {
      FS_FIXED ax = cx + d0x, ay = cy + d0y;
      sign = -sign;
      dir = -dir;
      FS_FIXED fx = ex + (sign < 0 ? vx : 0), fy = ey + (sign < 0 ? vy : 0);
      e.cube(ax, ay, fx - d1x, fy - d1y, fx, fy);
      cx = fx;
      cy = fy;
    } else {
      e.cube(cx + d0x, cy + d0y, cx + d0x + mx, cy + d0y + my,
             cx + d0x + mx + d1x, cy + d0y + my + d1y);
      cx += d0x + mx + d1x;
      cy += d0y + my + d1y;
    }
    sx = ex;
    sy = ey;
    pi += 3;
  }

  // Walks every element; false for elements out of order (no move first)
  // or of an unknown kind.
  bool walk() {
    for (FS_SHORT k = 0; k < o->num; k++) {
      FS_BYTE t = o->type[k] & 0x7F;
      if (t == FS_MOVETO) {
        move(k);
        continue;
      }
      if (k == 0) return false;
      if (t == FS_LINETO)
        line();
      else if (t == FS_QUADTO)
        quad();
      else if (t == FS_CUBETO)
        cube();
      else
        return false;
    }
    if (o->num > 0 && sign != start_sign) flip();
    return true;
  }
};

// The bold vector: the font's and the client's bold percentages of the
// em along the scale's x direction, whole pixels unless fractional bold is
// on. False when it rounds to nothing.
bool bold_vector(FS_STATE* state, FIXED_VECTOR* u, FS_FIXED* vx,
                 FS_FIXED* vy) {
  SFNT* sfnt = state->cur_sfnt;
  CFNT* cfnt = current_cfnt(state);
  FS_LONG lpm = outline_lpm(state, sfnt);
  FS_FIXED total = (FS_FIXED)((FS_INT64)(state->bold_pct + (cfnt ? cfnt->bold_pct : 0)) * lpm);
  *u = {sfnt ? sfnt->user_scale[0] : 65536, sfnt ? sfnt->user_scale[2] : 0};
  fixed_norm(u);
  if (state->flags & FLAGS_FRACTBOLD) {
    *vx = fmul(u->x, total);
    *vy = fmul(u->y, total);
    return true;
  }
  FS_LONG whole = (total + 0x8000) >> 16;
  if (whole == 0) return false;
  *vx = u->x * whole;
  *vy = u->y * whole;
  return true;
}

// The emboldened outline's header from the source's: its advance grows by
// the bold vector when it has one.
void bold_header(const FS_OUTLINE* o, FS_OUTLINE* b, const Bolden& w) {
  b->num = (FS_SHORT)w.e.types;
  b->np = (FS_SHORT)w.e.points;
  if (w.e.types > 0) b->type[0] |= 0x80;
  b->dx = o->dx;
  b->dy = o->dy;
  b->i_dx = o->i_dx;
  b->i_dy = o->i_dy;
  b->outl_flag = o->outl_flag;
  if (o->dx != 0 || o->dy != 0) {
    b->dx += w.vx;
    b->dy += w.vy;
    if (b->i_dx) b->i_dx += round_pixels(w.vx);
    if (b->i_dy) b->i_dy += round_pixels(w.vy);
  }
  set_bbox(b->np, b);
}

// Moves outline `b`, sized for more, into an exact record of `types`
// elements and `points` points. Null when out of memory (`b` freed).
FS_OUTLINE* exact_outline(FS_STATE* state, FS_OUTLINE* b, FS_LONG types,
                          FS_LONG points) {
  FS_OUTLINE* x = setup_outline(state, b->nc, types, points);
  if (x == nullptr) {
    FSS_free(state, b);
    return nullptr;
  }
  FS_OUTLINE keep = *x;
  memcpy(x, b, FS_OUTLINE_HEADER);
  x->size = keep.size;
  x->type = keep.type;
  x->x = keep.x;
  x->y = keep.y;
  memcpy(x->type, b->type, (size_t)types);
  memcpy(x->x, b->x, 4 * (size_t)points);
  memcpy(x->y, b->y, 4 * (size_t)points);
  FSS_free(state, b);
  return x;
}

}  // namespace

FS_OUTLINE* embolden_outline(FS_STATE* state, FS_OUTLINE* o, FS_LONG* n_types,
                             FS_LONG* n_points) {
  *n_types = o->num;
  *n_points = o->np;
  Bolden w;
  w.o = o;
  if (!bold_vector(state, &w.u, &w.vx, &w.vy)) return o;
  FS_OUTLINE* b = setup_outline(state, o->nc, 3 * o->num, 3 * o->np);
  if (b == nullptr) return nullptr;
  b->polarity = o->polarity;
  w.e.o = b;
  if (!w.walk()) {
    FSS_free(state, b);
    return nullptr;
  }
  bold_header(o, b, w);
  *n_types = w.e.types;
  *n_points = w.e.points;
  if (w.e.types < 3 * o->num || w.e.points < 3 * o->np)
    b = exact_outline(state, b, w.e.types, w.e.points);
  return b;
}

FS_OUTLINE* make_outline_ttf(FS_STATE* state, SFNT* sfnt, FS_ULONG gIndex) {
  fsg_SplineKey* key = sfnt && sfnt->senv ? (fsg_SplineKey*)sfnt->senv->ttkey : nullptr;
  if (key == nullptr || key->maxp == nullptr) {
    // The reclaim ladder took the key: rebuild it from the stored scale.
    if (sfnt == nullptr) {
      state->error = ERR_NO_CURRENT_SFNT;
      return nullptr;
    }
    if (scale_font_ttf(state, sfnt, sfnt->user_scale[0], sfnt->user_scale[1],
                       sfnt->user_scale[2], sfnt->user_scale[3]) != 0)
      return nullptr;
    key = (fsg_SplineKey*)sfnt->senv->ttkey;
  }
  // The alignment-zone hinters' selector of this glyph, from the font's
  // `adfh` (all 0 without it), into the record the glyph program sees: grid
  // fit type, then no-centre, cvt start, y lines, right-to-left. The
  // client's MAZ flag forces type 3. An unknown version is no error of the
  // fetch: the grid fit starts with the error cleared.
  fnt_MAZData* maz = &key->globalGS.maz_data;
  adfGetEdgeHintData(state, sfnt->lfnt ? (TTF*)sfnt->lfnt->fnt : nullptr, gIndex,
                     &maz->gridFitType, &maz->alignment[0], &maz->alignment[1],
                     &maz->alignment[2], &maz->alignment[3]);
  if (state->flags & FLAGS_MAZ_ON) maz->gridFitType = 3;
  if (gIndex >= key->maxp->numGlyphs) gIndex = 0;
  key->glyphIndex = (FS_USHORT)gIndex;
  FS_BOOLEAN useHints = (state->flags & FLAGS_NO_HINTS) == 0;
  LFNT* lfnt = sfnt->lfnt;
  bool cff = lfnt && (lfnt->fnt_type == FNT_TYPE_CFF ||
                      (lfnt->fontflags & FONTFLAG_CFF));
  FS_LONG err = cff ? cff_GridFit(state, key, useHints)
                    : fsg_GridFit(state, key, useHints);
  if (err != 0) return nullptr;
  FS_OUTLINE* o = extract_outline(state, key);
  if (o == nullptr) return nullptr;
  if ((state->flags & FLAGS_RESERVED_BIT0) || cff || get_dropout_control(key))
    state->flags |= FLAGS_THIN_STROKE;  // dropout control wanted
  else
    state->flags &= ~FLAGS_THIN_STROKE;
  state->error = 0;
  return o;
}

FS_OUTLINE* find_or_make_outline(FS_STATE* state, LFNT* lfnt, SFNT* sfnt,
                                 FS_ULONG id, FS_ULONG index) {
  (void)id;  // stroke fonts take their reference-line choice from it
  (void)lfnt;  // stroke fonts take their code mapping from it
  FS_OUTLINE* o = make_outline_ttf(state, sfnt, index);
  if (o != nullptr) o->outl_flag = state->any_hints;
  state->adfGridFitType = (state->flags & FLAGS_MAZ_ON) || (o && (o->outl_flag & 8))
                              ? 3
                              : (o && (o->outl_flag & 4)) ? 4 : 0;
  return o;
}

FS_OUTLINE* internal_get_outline(FS_STATE* state, FS_ULONG id) {
  FS_USHORT index = map_char(state, id, 0);
  if (state->error != 0) return nullptr;
  if (check_sfnt(state) != 0) return nullptr;
  TTF* ttf = (TTF*)state->cur_lfnt->fnt;
  bool cff = (state->cur_lfnt->fontflags & FONTFLAG_CFF) ||
             state->cur_lfnt->fnt_type == FNT_TYPE_CFF;
  if (ttf == nullptr || (ttf->glyf_size == 0 && !cff)) {
    printf("Error: cannot generate outline. No glyf, loca or cff table found!\n");
    return nullptr;
  }
  // The reference lines the autohinters read are measured here once per
  // scaled font, when the metrics services provide them.
  return find_or_make_outline(state, state->cur_lfnt, state->cur_sfnt, id, index);
}

void dump_outline(FS_OUTLINE* o) {
  if (o == nullptr) {
    printf("outline: null\n");
    return;
  }
  printf("outline: nc %d np %d num %d box %.3f %.3f %.3f %.3f dx %.3f dy %.3f\n",
         o->nc, o->np, o->num, o->lo_x / 65536.0, o->lo_y / 65536.0,
         o->hi_x / 65536.0, o->hi_y / 65536.0, o->dx / 65536.0, o->dy / 65536.0);
  FS_LONG p = 0;
  static const int kPoints[4] = {1, 1, 2, 3};
  for (FS_SHORT k = 0; k < o->num; k++) {
    int t = o->type[k] & 0x7F;
    printf("  %d", t);
    for (int i = 0; i < (t < 4 ? kPoints[t] : 0) && p < o->np; i++, p++)
      printf(" (%.3f, %.3f)", o->x[p] / 65536.0, o->y[p] / 65536.0);
    printf("\n");
  }
}
