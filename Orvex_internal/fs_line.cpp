// Line and curve drawing of the bitmap scan converter. A line samples the
// pixel-row centres it spans and inserts each crossing, packed with its
// direction, into the row's sorted list; the contour-turn state catches a
// contour that turns back within one pixel on a row. Curves are halved
// recursively, their depth fixed before the recursion starts.
#include "Orvex_internal/fs_line.h"

#include "Orvex_internal/fs_fixed.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_tlist.h"

namespace {

const FS_INT64 HALF = 0x8000;

// Whether two crossings, each a packed value and its row, are a turn back:
// opposite directions on one row in one rounded pixel column.
bool turns_back(FS_FIXED a, FS_SHORT ay, FS_FIXED b, FS_SHORT by) {
  if (crossing_up(a) == crossing_up(b) || ay != by) return false;
  FS_SHORT ca = (FS_SHORT)(((FS_INT64)crossing_x(a) + HALF) >> 16);
  FS_SHORT cb = (FS_SHORT)(((FS_INT64)crossing_x(b) + HALF) >> 16);
  return ca == cb;
}

// The line's first crossing along the contour (A) and its last (B) enter
// the turn state.
void turn_state(TLIST* list, FS_FIXED a, FS_SHORT ay, FS_FIXED b, FS_SHORT by) {
  if (list->hph_flag == 0) {
    list->hph_loopstartz = a;
    list->hph_loopstarty = ay;
    list->hph_prevz = b;
    list->hph_prevy = by;
    list->hph_flag = 1;
  } else if (list->hph_flag == 2) {
    list->hph_prevz = b;
    list->hph_prevy = by;
    list->hph_flag = 3;
  } else if (turns_back(list->hph_prevz, list->hph_prevy, a, ay)) {
    remove_tran(list->hph_prevz, list->hph_prevy, list);
    remove_tran(a, ay, list);
    // The loop's first crossing is gone too when it was the previous one.
    if (list->hph_flag == 1) list->hph_loopstarty = (FS_SHORT)(list->max + 1);
    list->hph_flag = 2;
  } else {
    list->hph_prevz = b;
    list->hph_prevy = by;
    list->hph_flag = 3;
  }
}

// The flatness bound of curves: lpm / 1024 pixels in 16.16. A client
// without a size yet takes its scaled font's; never below 1 pixel per em,
// so that the depth search ends.
FS_FIXED flatness(FS_STATE* state) {
  FS_LONG lpm = state->lpm;
  if (lpm == 0 && state->cur_sfnt && state->cur_sfnt->senv)
    lpm = state->cur_sfnt->senv->yppm;
  if (lpm < 1) lpm = 1;
  return (FS_FIXED)(lpm << 6);
}

FS_FIXED mid(FS_FIXED a, FS_FIXED b) { return (FS_FIXED)(((FS_INT64)a + b) >> 1); }

// The difference a - b, held within 32 bits.
FS_FIXED diff(FS_FIXED a, FS_FIXED b) {
  FS_INT64 d = (FS_INT64)a - b;
  if (d > FS_SATURATED) return FS_SATURATED;
  if (d < -FS_SATURATED) return -FS_SATURATED;
  return (FS_FIXED)d;
}

void draw(FS_STATE* state, FS_FIXED x0, FS_FIXED y0, FS_FIXED x1, FS_FIXED y1) {
  state->server->line(state, x0, y0, x1, y1);
}

}  // namespace

void line_simple(FS_STATE* state, FS_FIXED x0, FS_FIXED y0, FS_FIXED x1,
                 FS_FIXED y1) {
  if (y0 == y1 || state->error != 0) return;
  TLIST* list = state->server->tlist;
  FS_LONG up = y1 > y0;
  FS_FIXED xl = up ? x0 : x1, yl = up ? y0 : y1;
  FS_FIXED xh = up ? x1 : x0, yh = up ? y1 : y0;
  // Row centres from the lowest at or above yl to the highest below yh.
  FS_INT64 first = (((FS_INT64)yl + 0x7FFF) & ~(FS_INT64)0xFFFF) + HALF;
  FS_INT64 r0 = first >> 16;
  FS_INT64 r1 = ((FS_INT64)yh - 0x8001) >> 16;
  // Only the list's rows are drawn.
  FS_INT64 top = list->max, bottom = (FS_INT64)list->max - list->num + 1;
  if (r1 > top) r1 = top;
  if (r0 < bottom) {
    r0 = bottom;
    first = (bottom << 16) + HALF;
  }
  if (r0 > r1) return;
  FS_INT64 dx = (FS_INT64)xh - xl, dy = (FS_INT64)yh - yl;
  FS_FIXED x, slope = 0;
  if (dx == 0) {
    x = xl;
  } else if (r0 == r1) {
    x = (FS_FIXED)(xl + (FS_INT64)muldiv_64((FS_LONG)(first - yl), (FS_LONG)dx,
                                            (FS_LONG)dy));
  } else {
    slope = vardiv_64((FS_LONG)dx, (FS_LONG)dy, 16);
    x = (FS_FIXED)(xl + (FS_INT64)varmul_64((FS_LONG)(first - yl), slope, 16));
  }
  FS_FIXED v = pack_crossing(x, up);
  FS_FIXED step = (FS_FIXED)((FS_ULONG)slope * 2u);
  FS_FIXED v0 = v;
  for (FS_INT64 r = r0;; r++) {
    if (append_tlist(state, v, (FS_SHORT)r, list) != 0) return;
    if (r == r1) break;
    v = (FS_FIXED)((FS_ULONG)v + (FS_ULONG)step);
  }
  // Along the contour an up line meets its lowest row first.
  if (up)
    turn_state(list, v0, (FS_SHORT)r0, v, (FS_SHORT)r1);
  else
    turn_state(list, v, (FS_SHORT)r1, v0, (FS_SHORT)r0);
}

void line_dropout(FS_STATE* state, FS_FIXED x0, FS_FIXED y0, FS_FIXED x1,
                  FS_FIXED y1) {
  line_simple(state, x0, y0, x1, y1);
  FS_SERVER* server = state->server;
  TLIST* rows = server->tlist;
  server->tlist = server->drop;
  line_simple(state, y0, x0, y1, x1);
  server->tlist = rows;
}

void close_contour_turn(TLIST* list) {
  // After a removed pair the previous crossing is no longer on the list.
  if (list == nullptr || list->hph_flag != 3) return;
  if (turns_back(list->hph_prevz, list->hph_prevy, list->hph_loopstartz,
                 list->hph_loopstarty)) {
    remove_tran(list->hph_prevz, list->hph_prevy, list);
    remove_tran(list->hph_loopstartz, list->hph_loopstarty, list);
  }
}

void quad_divide(FS_STATE* state, FS_SHORT levels, FS_FIXED x0, FS_FIXED y0,
                 FS_FIXED x1, FS_FIXED y1, FS_FIXED x2, FS_FIXED y2) {
  FS_FIXED ax = mid(x0, x1), ay = mid(y0, y1);
  FS_FIXED bx = mid(x1, x2), by = mid(y1, y2);
  FS_FIXED mx = mid(ax, bx), my = mid(ay, by);
  if (levels <= 1) {
    draw(state, x0, y0, mx, my);
    draw(state, mx, my, x2, y2);
    return;
  }
  quad_divide(state, (FS_SHORT)(levels - 1), x0, y0, ax, ay, mx, my);
  quad_divide(state, (FS_SHORT)(levels - 1), mx, my, bx, by, x2, y2);
}

void cube_divide(FS_STATE* state, FS_SHORT levels, FS_FIXED x0, FS_FIXED y0,
                 FS_FIXED x1, FS_FIXED y1, FS_FIXED x2, FS_FIXED y2,
                 FS_FIXED x3, FS_FIXED y3) {
  FS_FIXED ax = mid(x0, x1), ay = mid(y0, y1);
  FS_FIXED bx = mid(x1, x2), by = mid(y1, y2);
  FS_FIXED cx = mid(x2, x3), cy = mid(y2, y3);
  FS_FIXED dx = mid(ax, bx), dy = mid(ay, by);
  FS_FIXED ex = mid(bx, cx), ey = mid(by, cy);
  FS_FIXED fx = mid(dx, ex), fy = mid(dy, ey);
  if (levels <= 1) {
    draw(state, x0, y0, fx, fy);
    draw(state, fx, fy, x3, y3);
    return;
  }
  cube_divide(state, (FS_SHORT)(levels - 1), x0, y0, ax, ay, dx, dy, fx, fy);
  cube_divide(state, (FS_SHORT)(levels - 1), fx, fy, ex, ey, cx, cy, x3, y3);
}

void FS_quad(FS_STATE* state, FS_FIXED x0, FS_FIXED y0, FS_FIXED x1,
             FS_FIXED y1, FS_FIXED x2, FS_FIXED y2) {
  // The chord's middle, rounded up by the +1 and then truncated.
  FS_FIXED mx = (FS_FIXED)(((FS_INT64)x0 + x2 + 1) / 2);
  FS_FIXED my = (FS_FIXED)(((FS_INT64)y0 + y2 + 1) / 2);
  FS_FIXED d = DistanceNorm(diff(x1, mx), diff(y1, my));
  FS_FIXED err = flatness(state);
  if (d <= err) {
    draw(state, x0, y0, x2, y2);
    return;
  }
  FS_SHORT levels = 0;
  while (d >= err) {
    levels++;
    d >>= 2;
  }
  quad_divide(state, levels, x0, y0, x1, y1, x2, y2);
}

void FS_cube(FS_STATE* state, FS_FIXED x0, FS_FIXED y0, FS_FIXED x1,
             FS_FIXED y1, FS_FIXED x2, FS_FIXED y2, FS_FIXED x3, FS_FIXED y3) {
  FS_INT64 cx = (FS_INT64)x3 - x0, cy = (FS_INT64)y3 - y0;
  FS_FIXED lx = (FS_FIXED)(x0 + cx / 3), ly = (FS_FIXED)(y0 + cy / 3);
  FS_FIXED rx = (FS_FIXED)(x0 + 2 * cx / 3), ry = (FS_FIXED)(y0 + 2 * cy / 3);
  FS_FIXED dL = DistanceNorm(diff(x1, lx), diff(y1, ly));
  FS_FIXED dR = DistanceNorm(diff(x2, rx), diff(y2, ry));
  FS_FIXED d = dL > dR ? dL : dR;
  FS_FIXED err = flatness(state);
  if (d <= err) {
    draw(state, x0, y0, x3, y3);
    return;
  }
  FS_SHORT levels = 0;
  while (d > err) {
    levels++;
    d >>= 2;
  }
  cube_divide(state, levels, x0, y0, x1, y1, x2, y2, x3, y3);
}
