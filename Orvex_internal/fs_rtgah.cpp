// The real-time gray autohinter (see fs_rtgah.h). Coordinates are 26.6;
// "along" is the axis of work, "across" the other one. The hinted arrays
// are x, y, the scaled ones ox, oy.
#include "Orvex_internal/fs_rtgah.h"

#include <string.h>

#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_state.h"
#include "Orvex_internal/fs_ttf.h"

namespace {

typedef fnt_LocalGraphicStateType GS;

// One axis of the glyph element.
struct Axis {
  F26DOT6 *h, *s;    // hinted and scaled, along
  F26DOT6 *oh, *os;  // hinted and scaled, across
  FS_BYTE mask;      // the touched flag of this axis
};

Axis axis_of(int xy, fnt_ElementType* el) {
  if (xy == 'x') return Axis{el->x, el->ox, el->y, el->oy, XMOVED};
  return Axis{el->y, el->oy, el->x, el->ox, YMOVED};
}

inline F26DOT6 abs26(F26DOT6 v) { return v < 0 ? -v : v; }
inline F26DOT6 round26(F26DOT6 v) { return (v + 32) & -64; }
inline F26DOT6 min26(F26DOT6 a, F26DOT6 b) { return a < b ? a : b; }
inline F26DOT6 max26(F26DOT6 a, F26DOT6 b) { return a > b ? a : b; }

// Contour c's first and last point, clipped to the element; false for an
// empty or broken contour.
bool contour(fnt_ElementType* el, int c, int* sp, int* ep) {
  *sp = el->sp[c];
  *ep = el->ep[c];
  if (*ep >= el->np) *ep = el->np - 1;
  return *sp >= 0 && *sp <= *ep;
}

PLIST* new_plist(FS_USHORT pt, PLIST* list, PLIST* pool, int* cursor,
                 int plistMax) {
  if (*cursor >= plistMax) return nullptr;
  PLIST* n = &pool[(*cursor)++];
  n->pt = pt;
  n->next = list;
  return n;
}

// A copy of `list`, or false when the pool ran out.
bool copy_plist(PLIST* list, PLIST** out, PLIST* pool, int* cursor,
                int plistMax) {
  *out = nullptr;
  for (PLIST* p = list; p != nullptr; p = p->next) {
    PLIST* n = new_plist(p->pt, *out, pool, cursor, plistMax);
    if (n == nullptr) return false;
    *out = n;
  }
  return true;
}

// Links list q in front of p.
PLIST* add_to_plist(PLIST* p, PLIST* q) {
  if (q == nullptr) return p;
  PLIST* t = q;
  while (t->next != nullptr) t = t->next;
  t->next = p;
  return q;
}

void set_piece(const Axis& a, const PIECE& pc, F26DOT6 v) {
  a.h[pc.p0] = a.s[pc.p0] = v;
  a.h[pc.p1] = a.s[pc.p1] = v;
  for (PLIST* p = pc.pts; p != nullptr; p = p->next) a.h[p->pt] = a.s[p->pt] = v;
}

inline F26DOT6 level(const Axis& a, const PIECE& pc) {
  return (F26DOT6)(((FS_INT64)a.s[pc.p0] + a.s[pc.p1]) / 2);
}

int pieces_common(int xy, PIECE* pieces, fnt_ElementType* el, PLIST* pool,
                  int* cursor, int plistMax, bool cjk) {
  Axis a = axis_of(xy, el);
  int n = 0;
  for (int c = 0; c < el->nc && n < RTGAH_MAX_PIECES; c++) {
    int sp, ep;
    if (!contour(el, c, &sp, &ep) || ep == sp) continue;
    int len = ep - sp + 1;
    int off = abs26(a.s[ep] - a.s[sp]) <= 3 ? len - 1 : 0;
    int k = 0;
    while (k < len && n < RTGAH_MAX_PIECES) {
      int s = sp + (off + k) % len;
      int j = k;
      while (j + 1 < len && abs26(a.s[sp + (off + j + 1) % len] - a.s[s]) <= 3) j++;
      if (j > k) {
        PIECE& pc = pieces[n];
        pc.p0 = (FS_USHORT)s;
        pc.p1 = (FS_USHORT)(sp + (off + j) % len);
        pc.c = (FS_SHORT)c;
        pc.d = a.os[pc.p1] > a.os[pc.p0] ? 1 : -1;
        pc.pts = nullptr;
        bool take = !cjk || abs26(a.s[pc.p1] - a.s[pc.p0]) * 22 <
                                abs26(a.os[pc.p1] - a.os[pc.p0]);
        if (take) {
          for (int m = j - 1; m > k; m--) {
            PLIST* q = new_plist((FS_USHORT)(sp + (off + m) % len), pc.pts, pool,
                                 cursor, plistMax);
            if (q == nullptr) break;
            pc.pts = q;
          }
          if (!cjk) set_piece(a, pc, level(a, pc));
          n++;
        }
      }
      k = j + 1;
    }
  }
  if (n == RTGAH_MAX_PIECES) n--;
  for (int i = 1; i < n; i++) {
    PIECE t = pieces[i];
    int j = i;
    while (j > 0 && a.s[pieces[j - 1].p0] > a.s[t.p0]) pieces[j] = pieces[j - 1], j--;
    pieces[j] = t;
  }
  if (!cjk)
    for (int i = 0; i < n; i++)
      for (int j = i + 1; j < n && a.s[pieces[j].p0] - a.s[pieces[i].p0] <= 8; j++)
        set_piece(a, pieces[j], a.s[pieces[i].p0]);
  return n;
}

// Whether pieces pi, pj overlap along the other axis; their extents.
void extent(const Axis& a, const PIECE& p, F26DOT6* lo, F26DOT6* hi) {
  *lo = min26(a.os[p.p0], a.os[p.p1]);
  *hi = max26(a.os[p.p0], a.os[p.p1]);
}

// The points of one edge (two ends of each of two merged strokes) sorted
// across: the extremes stay ends, the inner two join the list.
void merge_edge(const Axis& a, FS_USHORT* q0, FS_USHORT* q1, FS_USHORT r0,
                FS_USHORT r1, PLIST** list, PLIST* other, PLIST* pool,
                int* cursor, int plistMax) {
  FS_USHORT p[4] = {*q0, *q1, r0, r1};
  for (int i = 1; i < 4; i++)
    for (int j = i; j > 0 && a.os[p[j - 1]] > a.os[p[j]]; j--) {
      FS_USHORT t = p[j];
      p[j] = p[j - 1];
      p[j - 1] = t;
    }
  *q0 = p[0];
  *q1 = p[3];
  *list = add_to_plist(*list, other);
  for (int i = 1; i <= 2; i++) {
    PLIST* n = new_plist(p[i], *list, pool, cursor, plistMax);
    if (n != nullptr) *list = n;
  }
}

int strokes_common(int xy, int num_pieces, PIECE* pieces, STROKE* strokes,
                   fnt_ElementType* el, F26DOT6 max_sw, PLIST* pool,
                   int* cursor, int plistMax, bool cjk) {
  Axis a = axis_of(xy, el);
  if (el->np <= 0) return 0;
  int dir = xy == 'x' ? 1 : -1;
  int left = 0;
  for (int i = 1; i < el->np; i++)
    if (el->ox[i] < el->ox[left]) left = i;
  for (int c = 0; c < el->nc; c++) {
    int sp, ep;
    if (contour(el, c, &sp, &ep) && left >= sp && left <= ep) {
      if (!is_contour_clockwise(c, el)) dir = -dir;
      break;
    }
  }
  int n = 0;
  for (int i = 0; i < num_pieces && n < RTGAH_MAX_STROKES; i++) {
    const PIECE& pi = pieces[i];
    if (pi.d != dir) continue;
    F26DOT6 ci = level(a, pi), ilo, ihi;
    extent(a, pi, &ilo, &ihi);
    for (int j = i + 1; j < num_pieces && n < RTGAH_MAX_STROKES; j++) {
      const PIECE& pj = pieces[j];
      F26DOT6 cj = level(a, pj);
      if (cj - ci > max_sw) break;
      if (pj.d != -dir) continue;
      F26DOT6 jlo, jhi;
      extent(a, pj, &jlo, &jhi);
      F26DOT6 ov = min26(ihi, jhi) - max26(ilo, jlo);
      if (ov <= 0 || ov < ((cj - ci) >> 3)) continue;
      STROKE& s = strokes[n];
      s.p0 = pi.p0, s.p1 = pi.p1, s.p2 = pj.p0, s.p3 = pj.p1;
      s.min = min26(ilo, jlo);
      s.max = max26(ihi, jhi);
      if (!copy_plist(pi.pts, &s.e1, pool, cursor, plistMax) ||
          !copy_plist(pj.pts, &s.e2, pool, cursor, plistMax))
        return 0;
      s.raw_center = s.adj_center = (F26DOT6)(((FS_INT64)ci + cj) / 2);
      s.width = cj - ci;
      n++;
    }
  }
  for (int i = 1; i < n; i++) {
    STROKE t = strokes[i];
    int j = i;
    while (j > 0 && strokes[j - 1].raw_center > t.raw_center) strokes[j] = strokes[j - 1], j--;
    strokes[j] = t;
  }
  // Collinear pieces of one stem.
  for (int i = 0; i < n; i++) {
    STROKE& s = strokes[i];
    if (s.width == RTGAH_DELETED) continue;
    for (int j = i + 1; j < n && strokes[j].raw_center == s.raw_center; j++) {
      STROKE& t = strokes[j];
      if (t.width != s.width) continue;
      merge_edge(a, &s.p0, &s.p1, t.p0, t.p1, &s.e1, t.e1, pool, cursor, plistMax);
      merge_edge(a, &s.p2, &s.p3, t.p2, t.p3, &s.e2, t.e2, pool, cursor, plistMax);
      s.min = min26(s.min, t.min);
      s.max = max26(s.max, t.max);
      t.width = RTGAH_DELETED;
    }
  }
  // Strokes sharing an edge: the shorter goes.
  for (int i = 0; i < n; i++)
    for (int j = i + 1; j < n; j++) {
      STROKE& s = strokes[i];
      STROKE& t = strokes[j];
      if (s.width == RTGAH_DELETED) break;
      if (t.width == RTGAH_DELETED || t.width == s.width) continue;
      const FS_USHORT se[2][2] = {{s.p0, s.p1}, {s.p2, s.p3}};
      const FS_USHORT te[2][2] = {{t.p0, t.p1}, {t.p2, t.p3}};
      bool shared = false;
      for (int u = 0; u < 2 && !shared; u++)
        for (int v = 0; v < 2 && !shared; v++) {
          if (a.s[se[u][0]] != a.s[te[v][0]]) continue;
          F26DOT6 lo = max26(min26(a.os[se[u][0]], a.os[se[u][1]]),
                             min26(a.os[te[v][0]], a.os[te[v][1]]));
          F26DOT6 hi = min26(max26(a.os[se[u][0]], a.os[se[u][1]]),
                             max26(a.os[te[v][0]], a.os[te[v][1]]));
          shared = lo < hi;
        }
      if (!shared) continue;
      if (pstroke_length(s.p0, s.p1, s.p2, s.p3, a.os) <
          pstroke_length(t.p0, t.p1, t.p2, t.p3, a.os))
        s.width = RTGAH_DELETED;
      else
        t.width = RTGAH_DELETED;
    }
  int m = 0;
  for (int i = 0; i < n; i++)
    if (strokes[i].width != RTGAH_DELETED) strokes[m++] = strokes[i];
  (void)cjk;
  return m;
}

/* ---- Outline adjustment ---- */

void touch(const Axis& a, fnt_ElementType* el, int p, F26DOT6 v) {
  if (el->f[p] & a.mask) return;
  a.h[p] = v;
  el->f[p] |= a.mask;
}

int adjust_outline_1(const Axis& a, int n, STROKE* strokes, fnt_ElementType* el) {
  for (int i = 0; i < n; i++)
    if (strokes[i].adj_center == strokes[i].raw_center)
      strokes[i].adj_center = simple_alignment(strokes[i].adj_center, strokes[i].width);
  for (int i = 0; i < n; i++) {
    STROKE& s = strokes[i];
    if ((el->f[s.p0] | el->f[s.p1] | el->f[s.p2] | el->f[s.p3]) & a.mask) continue;
    F26DOT6 lo = s.adj_center - s.width / 2, hi = s.adj_center + s.width / 2;
    touch(a, el, s.p0, lo);
    touch(a, el, s.p1, lo);
    for (PLIST* p = s.e1; p != nullptr; p = p->next) touch(a, el, p->pt, lo);
    touch(a, el, s.p2, hi);
    touch(a, el, s.p3, hi);
    for (PLIST* p = s.e2; p != nullptr; p = p->next) touch(a, el, p->pt, hi);
  }
  return n;
}

void sort_strokes(STROKE* strokes, int n) {
  for (int i = 1; i < n; i++) {
    STROKE t = strokes[i];
    int j = i;
    while (j > 0 && strokes[j - 1].raw_center > t.raw_center) strokes[j] = strokes[j - 1], j--;
    strokes[j] = t;
  }
}

int adjust_outline_2(const Axis& a, int n, STROKE* strokes, fnt_ElementType* el) {
  if (el->np <= 0) return n;
  int lo = 0, hi = 0;
  F26DOT6 amin = a.os[0], amax = a.os[0];
  for (int i = 1; i < el->np; i++) {
    amin = min26(amin, a.os[i]);
    amax = max26(amax, a.os[i]);
    bool t = (el->f[i] & a.mask) != 0;
    if (a.s[i] < a.s[lo] || (a.s[i] == a.s[lo] && t && !(el->f[lo] & a.mask))) lo = i;
    if (a.s[i] > a.s[hi] || (a.s[i] == a.s[hi] && t && !(el->f[hi] & a.mask))) hi = i;
  }
  int pts[2] = {lo, hi};
  for (int k = 0; k < 2; k++) {
    STROKE& s = strokes[n++];
    s.p0 = s.p1 = s.p2 = s.p3 = (FS_USHORT)pts[k];
    s.e1 = s.e2 = nullptr;
    s.raw_center = a.s[pts[k]];
    s.adj_center = a.h[pts[k]];
    s.width = 1;
    s.min = amin;
    s.max = amax;
  }
  sort_strokes(strokes, n);
  return n;
}

int get_edges(const Axis& a, int n, const STROKE* strokes, EDGE* edges) {
  int m = 0;
  for (int i = 0; i < n; i++) {
    const STROKE& s = strokes[i];
    edges[m++] = EDGE{s.p0, 0, a.s[s.p0], s.min, s.max};
    if (s.p2 != s.p0) edges[m++] = EDGE{s.p2, 0, a.s[s.p2], s.min, s.max};
  }
  for (int i = 1; i < m; i++) {
    EDGE t = edges[i];
    int j = i;
    while (j > 0 && edges[j - 1].x > t.x) edges[j] = edges[j - 1], j--;
    edges[j] = t;
  }
  return m;
}

// The edge at or above (dir +1) or below (-1) `v` of least cost: the
// distance along plus the distance outside its extent across; -1 if none.
int find_above_below_1(const EDGE* e, int m, F26DOT6 v, F26DOT6 across, int dir) {
  int lo = 0, hi = m;  // first edge with x >= v
  while (lo < hi) {
    int mid = (lo + hi) / 2;
    if (e[mid].x < v) lo = mid + 1; else hi = mid;
  }
  int best = -1;
  FS_INT64 cost = 0;
  int i = dir > 0 ? lo : lo;
  if (dir < 0) {
    while (i < m && e[i].x <= v) i++;  // the last edge with x <= v is i - 1
    i--;
  }
  for (; i >= 0 && i < m; i += dir) {
    FS_INT64 along = dir > 0 ? (FS_INT64)e[i].x - v : (FS_INT64)v - e[i].x;
    if (best >= 0 && along >= cost) break;
    FS_INT64 out = across < e[i].y0 ? (FS_INT64)e[i].y0 - across
                   : across > e[i].y1 ? (FS_INT64)across - e[i].y1 : 0;
    if (best < 0 || along + out < cost) best = i, cost = along + out;
  }
  return best;
}

int adjust_outline_3(const Axis& a, int n, STROKE* strokes, fnt_ElementType* el,
                     EDGE* edges) {
  int m = get_edges(a, n, strokes, edges);
  if (m == 0) return n;
  for (int c = 0; c < el->nc; c++) {
    int sp, ep;
    if (!contour(el, c, &sp, &ep) || sp == ep) continue;
    int pb = -1, pa = -1;
    FS_FIXED slope = 0;
    for (int cur = sp; cur <= ep; cur++) {
      if (el->f[cur] & a.mask) continue;
      int prev = cur == sp ? ep : cur - 1, next = cur == ep ? sp : cur + 1;
      F26DOT6 vp = a.s[prev], v = a.s[cur], vn = a.s[next];
      if (!((vp <= v && vn < v) || (v <= vp && v < vn))) continue;
      int ab = find_above_below_1(edges, m, v, a.os[cur], 1);
      int be = find_above_below_1(edges, m, v, a.os[cur], -1);
      if (ab < 0 || be < 0) continue;
      int A = edges[ab].pt, B = edges[be].pt;
      if (v == a.s[B] || a.h[A] == a.h[B] || a.s[A] == a.s[B]) {
        a.h[cur] = a.h[B];
      } else {
        if (A != pa || B != pb) {
          slope = vardiv_64(a.h[A] - a.h[B], a.s[A] - a.s[B], 16);
          pa = A, pb = B;
        }
        a.h[cur] = a.h[B] + varmul_64(v - a.s[B], slope, 16);
      }
      el->f[cur] |= a.mask;
    }
  }
  return n;
}

int adjust_outline_3_CJK(const Axis& a, int n, STROKE* strokes, fnt_ElementType* el) {
  for (int c = 0; c < el->nc; c++) {
    int sp, ep;
    if (!contour(el, c, &sp, &ep)) continue;
    int lo = sp, hi = sp;
    for (int i = sp + 1; i <= ep; i++) {
      if (a.s[i] < a.s[lo]) lo = i;
      if (a.s[i] > a.s[hi]) hi = i;
    }
    int pts[2] = {lo, hi};
    for (int k = 0; k < 2; k++) {
      int p = pts[k];
      if (el->f[p] & a.mask) continue;
      F26DOT6 v = a.s[p], w = a.os[p];
      int b = -1;
      for (int i = n - 1; i >= 0; i--)
        if (a.s[strokes[i].p0] <= v && w >= strokes[i].min && w <= strokes[i].max) {
          b = i;
          break;
        }
      if (b < 0) continue;
      int t = -1;
      for (int i = b; i < n; i++)
        if (a.s[strokes[i].p2] >= v && w >= strokes[i].min && w <= strokes[i].max) {
          t = i;
          break;
        }
      if (t < 0) continue;
      int B = strokes[b].p0, T = strokes[t].p2;
      F26DOT6 ds = a.s[T] - a.s[B], dh = a.h[T] - a.h[B], dv = v - a.s[B];
      a.h[p] = (ds == 0 || dh == 0 || dv == 0) ? a.h[B] : a.h[B] + muldiv_64(dv, dh, ds);
      el->f[p] |= a.mask;
    }
  }
  return n;
}

// Every cubic contour ends on a copy of its start: the two stay together.
void adjust_outline_cff(fnt_ElementType* el) {
  for (int c = 0; c < el->nc; c++) {
    int sp, ep;
    if (!contour(el, c, &sp, &ep) || ep == sp) continue;
    if (el->y[ep] != el->y[ep - 1])
      el->y[ep] = el->y[sp];
    else
      el->y[sp] = el->y[ep];
  }
}

/* ---- Collisions ---- */

inline F26DOT6 bottom(const STROKE& s) { return s.adj_center - s.width / 2; }
inline F26DOT6 top(const STROKE& s) { return s.adj_center + s.width / 2; }

FS_BOOLEAN strokes_overlap(const STROKE* a, const STROKE* b) {
  if (a->max < b->min || b->max < a->min) return 0;
  F26DOT6 h = min26(a->width, b->width) / 2;
  if (min26(b->max - a->min, a->max - b->min) >= h) return 1;
  return min26(bottom(*a) - top(*b), bottom(*b) - top(*a)) >= h;
}

struct Collide {
  STROKE* strokes;
  int n;
  F26DOT6 glyph_lo, glyph_hi;
  int depth;
};

bool tied(const STROKE& s, const STROKE& b) {
  if (abs26(s.raw_center - b.raw_center) <= 15) return true;
  const FS_USHORT sp[4] = {s.p0, s.p1, s.p2, s.p3};
  const FS_USHORT bp[4] = {b.p0, b.p1, b.p2, b.p3};
  for (int i = 0; i < 4; i++)
    for (int j = 0; j < 4; j++)
      if (sp[i] == bp[j]) return true;
  return false;
}

bool can_move(Collide* k, int a, int b, int dir);

// Moves stroke `s` one step away from `o` (down for dir -1, up for +1).
bool can_move_2(Collide* k, int s, int o, int dir) {
  STROKE* st = k->strokes;
  if (k->n == 0) return false;
  if (dir < 0 && st[s].raw_center == st[0].raw_center) return false;
  if (dir > 0 && st[s].raw_center == st[k->n - 1].raw_center) return false;
  STROKE& m = st[s];
  F26DOT6 saved = m.adj_center, half = (m.width + 1) / 2;
  F26DOT6 bot = m.adj_center - half, tp = bot + m.width;
  F26DOT6 step;
  if (dir < 0)
    step = abs26(tp - round26(tp)) <= 2 ? (bot & 63) : (tp & 63);
  else
    step = abs26(bot - round26(bot)) <= 2 ? ((64 - (tp & 63)) & 63) : ((64 - (bot & 63)) & 63);
  m.adj_center += dir * step;
  bool close = dir < 0 ? strokes_too_close(&m, &st[o]) : strokes_too_close(&st[o], &m);
  if (step == 0 || close) m.adj_center = saved + dir * 64;
  if (abs26(m.adj_center - m.raw_center) > 96 || bottom(m) < (k->glyph_lo & -64) ||
      top(m) > round26(k->glyph_hi + 31)) {
    m.adj_center = saved;
    return false;
  }
  if (k->depth > RTGAH_MAX_STROKES) return true;
  for (int i = dir < 0 ? s - 1 : s + 1; i >= 0 && i < k->n; i += dir) {
    const STROKE* lo = dir < 0 ? &st[i] : &m;
    const STROKE* hi = dir < 0 ? &m : &st[i];
    if (strokes_overlap(lo, hi) && strokes_too_close(lo, hi)) {
      int o2 = s;
      k->depth++;
      bool ok = dir < 0 ? can_move(k, i, o2, -1) : can_move(k, o2, i, 1);
      k->depth--;
      if (!ok) {
        m.adj_center = saved;
        return false;
      }
    }
  }
  return true;
}

// dir -1: a and what is tied to it move down; +1: b and its ties move up.
bool can_move(Collide* k, int a, int b, int dir) {
  F26DOT6 saved[RTGAH_STROKE_ROOM];
  for (int i = 0; i < k->n; i++) saved[i] = k->strokes[i].adj_center;
  int mover = dir < 0 ? a : b, other = dir < 0 ? b : a;
  STROKE ref = k->strokes[mover];
  for (int i = 0; i < k->n; i++) {
    if (i == other || !(i == mover || tied(k->strokes[i], ref))) continue;
    if (!can_move_2(k, i, other, dir)) {
      for (int j = 0; j < k->n; j++) k->strokes[j].adj_center = saved[j];
      return false;
    }
  }
  return true;
}

}  // namespace

/* ---- Scripts ---- */

namespace {

struct CodeBlock {
  FS_ULONG first, last;
  FS_USHORT script;
};

// Latin first: the first block holding a code decides.
const CodeBlock kBlocks[] = {
    {0x20, 0x7F, 1},      {0x80, 0x17F, 1},     {0x180, 0x24F, 1},    {0x250, 0x2AF, 1},
    {0x1D00, 0x1D7F, 1},  {0x1E00, 0x1EFF, 1},  {0x2C60, 0x2C7F, 1},  {0xA720, 0xA7FF, 1},
    {0xFB00, 0xFB06, 1},  {0x370, 0x3FF, 2},    {0x1F00, 0x1FFF, 2},  {0x2C80, 0x2CFF, 2},
    {0x400, 0x4FF, 3},    {0x500, 0x52F, 3},    {0x2DE0, 0x2DFF, 3},  {0xA640, 0xA69F, 3},
    {0x590, 0x5FF, 4},    {0xFB1D, 0xFB4F, 4},  {0x600, 0x6FF, 5},    {0x750, 0x77F, 5},
    {0xFB50, 0xFDFF, 5},  {0xFE70, 0xFEFF, 5},  {0xAC00, 0xD7AF, 6},  {0x2E80, 0x2FD5, 7},
    {0x31C0, 0x31EF, 7},  {0x3400, 0x4DBF, 7},  {0x4E00, 0x9FFF, 7},  {0xF900, 0xF9FF, 7},
    {0x900, 0x97F, 8},    {0x980, 0x9FF, 9},    {0xA00, 0xA7F, 10},   {0xC00, 0xC7F, 11},
    {0xC80, 0xCFF, 12},   {0xD00, 0xD7F, 13},   {0xB80, 0xBFF, 14},   {0xB00, 0xB7F, 15},
    {0xD80, 0xDFF, 16},   {0xE00, 0xE7F, 17},   {0x1780, 0x17FF, 18}, {0xA80, 0xAFF, 19},
};

// The OS/2 range bits that name a script: range (1 to 3) and mask.
struct RangeTest {
  int range;
  FS_ULONG mask;
  FS_USHORT script;
};

const RangeTest kRangeTests[] = {
    {1, 1u << 11, 4},    {1, 1u << 13, 5},    {2, 1u << 31, 5},   {3, 1u << 3, 5},
    {2, 0x1100000, 6},   {2, 0x28C10000, 7},  {1, 1u << 15, 8},   {1, 1u << 16, 9},
    {1, 1u << 17, 10},   {1, 1u << 21, 11},   {1, 1u << 22, 12},  {1, 1u << 23, 13},
    {1, 1u << 20, 14},   {1, 1u << 19, 15},   {3, 1u << 9, 16},   {1, 1u << 24, 17},
    {3, 1u << 16, 18},   {1, 1u << 18, 19},
};

}  // namespace

FS_USHORT script_of_code(FS_ULONG code) {
  for (const CodeBlock& b : kBlocks)
    if (code >= b.first && code <= b.last) return b.script;
  return 0;
}

FS_USHORT script_of_ranges(FS_ULONG range1, FS_ULONG range2, FS_ULONG range3) {
  const FS_ULONG ranges[3] = {range1, range2, range3};
  FS_USHORT script = 0;
  int count = 0;
  for (const RangeTest& t : kRangeTests) {
    if (!(ranges[t.range - 1] & t.mask)) continue;
    if (script != t.script) count++;  // a script counts once
    script = t.script;
  }
  return count == 1 ? script : 0;
}

FS_USHORT which_script(FS_STATE* state, LFNT* lfnt, FS_ULONG index,
                       FS_ULONG* unicode) {
  *unicode = 0xFFFF;
  if (lfnt == nullptr) return 0xFFFF;
  FS_ULONG error = state->error;
  if (lfnt->fnt == nullptr) load_fnt(state, lfnt);  // unloaded by the ladder
  state->error = error;
  TTF* ttf = (TTF*)lfnt->fnt;
  if (ttf == nullptr || ttf->cmap == nullptr) return 0xFFFF;
  const FS_BYTE* cmap = (const FS_BYTE*)ttf->cmap;
  FS_ULONG offset = offset_to_cmap(cmap, ttf->cmap_length, 3, 1);
  if (offset == 0) offset = offset_to_cmap(cmap, ttf->cmap_length, 3, 10);
  if (offset == 0) return 0xFFFF;
  const FS_BYTE* sub = cmap + offset;
  FS_ULONG avail = ttf->cmap_length - offset;
  FS_ULONG code = 0xFFFF;
  switch (get_u16(sub)) {
    case 4: code = inverse_map_char_4(sub, avail, index); break;
    case 12: code = inverse_map_char_12(sub, avail, index); break;
    default: break;
  }
  *unicode = code;
  if (code != 0xFFFF && !(code >= 0xE000 && code <= 0xF8FF))
    return script_of_code(code);
  const TTF_OS2* os2 = ttf->os2;
  if (os2 == nullptr) return 0;
  return script_of_ranges(os2->ulUnicodeRange1, os2->ulUnicodeRange2,
                          os2->ulUnicodeRange3);
}

void rtgah_data_init(RTGAH_DATA* r) {
  r->RTGAHPieces = r->pieces;
  r->RTGAHStrokes = r->strokes;
  r->RTGAHStrokesPlist = r->plist;
  r->RTGAHEdges = r->edges;
  r->RTGAHXmin = r->xmin;
  r->RTGAHYmin = r->ymin;
  r->RTGAHXmax = r->xmax;
  r->RTGAHYmax = r->ymax;
}

F26DOT6 simple_alignment(F26DOT6 center, F26DOT6 width) {
  F26DOT6 half = width >> 1;
  F26DOT6 v0 = center - half, v1 = center + half;
  F26DOT6 d0 = round26(v0) - v0, d1 = round26(v1) - v1;
  return center + (abs26(d0) < abs26(d1) ? d0 : d1);
}

F26DOT6 pstroke_length(int p0, int p1, int p2, int p3, const F26DOT6* v) {
  return (abs26(v[p1] - v[p0]) + abs26(v[p3] - v[p2])) / 2;
}

FS_BOOLEAN is_contour_clockwise(int c, fnt_ElementType* el) {
  int sp, ep;
  if (c < 0 || c >= el->nc || !contour(el, c, &sp, &ep)) return 0;
  FS_INT64 area = 0;
  for (int i = sp; i <= ep; i++) {
    int j = i == ep ? sp : i + 1;
    area += (FS_INT64)el->ox[i] * el->oy[j] - (FS_INT64)el->ox[j] * el->oy[i];
  }
  return area < 0;
}

void non_corner_extrema(fnt_ElementType* el) {
  for (int c = 0; c < el->nc; c++) {
    int sp, ep;
    if (!contour(el, c, &sp, &ep) || ep == sp) continue;
    int ext[4] = {sp, sp, sp, sp};  // max x, min x, max y, min y
    for (int i = sp + 1; i <= ep; i++) {
      if (el->ox[i] > el->ox[ext[0]]) ext[0] = i;
      if (el->ox[i] < el->ox[ext[1]]) ext[1] = i;
      if (el->oy[i] > el->oy[ext[2]]) ext[2] = i;
      if (el->oy[i] < el->oy[ext[3]]) ext[3] = i;
    }
    for (int k = 0; k < 4; k++) {
      Axis a = axis_of(k < 2 ? 'x' : 'y', el);
      int e = ext[k];
      int nb[2] = {e == sp ? ep : e - 1, e == ep ? sp : e + 1};
      if (el->onCurve[e] && (el->onCurve[nb[0]] || el->onCurve[nb[1]])) continue;
      if (a.s[nb[0]] == a.s[e] || a.s[nb[1]] == a.s[e]) continue;
      for (int q = 0; q < 2; q++) {
        int n = nb[q];
        if (abs26(a.s[n] - a.s[e]) * 22 < abs26(a.os[n] - a.os[e]))
          a.s[n] = a.h[n] = a.s[e];
      }
    }
  }
}

int find_pieces(int xy, PIECE* pieces, fnt_ElementType* el, PLIST* pplist,
                int* cursor, int plistMax) {
  return pieces_common(xy, pieces, el, pplist, cursor, plistMax, false);
}

int find_pieces_CJK(int xy, PIECE* pieces, fnt_ElementType* el,
                    PLIST* pplist, int* cursor, int plistMax) {
  return pieces_common(xy, pieces, el, pplist, cursor, plistMax, true);
}

int find_strokes(int xy, int num_pieces, PIECE* pieces, STROKE* strokes,
                 fnt_ElementType* el, F26DOT6 max_sw, PLIST* pplist,
                 int* cursor, int plistMax) {
  return strokes_common(xy, num_pieces, pieces, strokes, el, max_sw, pplist,
                        cursor, plistMax, false);
}

int find_strokes_CJK(int xy, int num_pieces, PIECE* pieces, STROKE* strokes,
                     fnt_ElementType* el, F26DOT6 max_sw, PLIST* pplist,
                     int* cursor, int plistMax) {
  return strokes_common(xy, num_pieces, pieces, strokes, el, max_sw, pplist,
                        cursor, plistMax, true);
}

int adjust_outline(int xy, int script, int num_strokes, STROKE* strokes,
                   fnt_ElementType* el, GS* gs) {
  Axis a = axis_of(xy, el);
  RTGAH_DATA* r = (RTGAH_DATA*)gs->globalGS->rtgah_data;
  int n = adjust_outline_1(a, num_strokes, strokes, el);
  n = adjust_outline_2(a, n, strokes, el);
  if (script == 7) {
    n = adjust_outline_3_CJK(a, n, strokes, el);
    if (xy == 'y' && r != nullptr && (r->fnt_type == 7 || (r->fontflags & 32)))
      adjust_outline_cff(el);
  } else {
    n = adjust_outline_3(a, n, strokes, el, r != nullptr ? r->edges : nullptr);
  }
  return n;
}

FS_BOOLEAN strokes_too_close(const STROKE* a, const STROKE* b) {
  F26DOT6 t = top(*a), bt = bottom(*b);
  if (t > bt) return 1;
  F26DOT6 gap = bt - t, fa = t & 63, fb = bt & 63;
  if (fa == 0 && fb == 0) return gap < 64;
  if ((t >> 6) == (bt >> 6) || fa == 0 || fb == 0) return gap < 48;
  if ((bt >> 6) == (t >> 6) + 1) return fb < 48 && fa > 16 && (fb < 40 || fa > 24);
  return 0;
}

FS_BOOLEAN can_thin_strokes(STROKE* a, STROKE* b) {
  STROKE sa = *a, sb = *b;
  bool ca = a->width >= 55, cb = b->width >= 55;
  if (!ca && !cb) return 0;
  if (ca) a->width = (7 * a->width + 4) >> 3, a->adj_center = simple_alignment(a->raw_center, a->width);
  if (cb) b->width = (7 * b->width + 4) >> 3, b->adj_center = simple_alignment(b->raw_center, b->width);
  if (!strokes_too_close(a, b)) return 1;
  *a = sa;
  *b = sb;
  return 0;
}

void no_collisions(int xy, int n, STROKE* strokes, fnt_ElementType* el) {
  Axis ax = axis_of(xy, el);
  Collide k{strokes, n, 0, 0, 0};
  if (el->np > 0) {
    k.glyph_lo = k.glyph_hi = ax.s[0];
    for (int i = 1; i < el->np; i++) {
      k.glyph_lo = min26(k.glyph_lo, ax.s[i]);
      k.glyph_hi = max26(k.glyph_hi, ax.s[i]);
    }
  }
  for (int i = 0; i < n; i++)
    strokes[i].adj_center = simple_alignment(strokes[i].raw_center, strokes[i].width);
  for (int a = 0; a < n; a++)
    for (int b = a + 1; b < n; b++) {
      STROKE* sa = &strokes[a];
      STROKE* sb = &strokes[b];
      if (sa->max < sb->min || sb->max < sa->min) continue;
      if (bottom(*sb) - top(*sa) >= 129) continue;
      if (!strokes_overlap(sa, sb) || !strokes_too_close(sa, sb)) continue;
      if (!can_move(&k, a, b, 1) && !can_move(&k, a, b, -1)) can_thin_strokes(sa, sb);
    }
}

/* ---- Reference lines by script ---- */

namespace {

inline bool near31(F26DOT6 a, F26DOT6 b) { return abs26(a - b) <= 31; }
inline F26DOT6 stroke_top(const STROKE& s) { return s.raw_center + s.width / 2; }
inline F26DOT6 stroke_bottom(const STROKE& s) { return s.raw_center - s.width / 2; }
const F26DOT6 kNoLine = 0x7FFFFFFF;  // a CJK slot no letter measured

// The contour holding point i, or -1.
int contour_of(fnt_ElementType* el, int i) {
  for (int c = 0; c < el->nc; c++) {
    int sp, ep;
    if (contour(el, c, &sp, &ep) && i >= sp && i <= ep) return c;
  }
  return -1;
}

// Appends a zero-width stroke at point pt (its y scaled), its edge list all
// other points of exactly that y, across from lo to hi; false when full.
bool add_flat_stroke(STROKE* strokes, int* n, fnt_ElementType* el, int pt, F26DOT6 lo,
                     F26DOT6 hi, PLIST* pool, int* cursor, int plistMax) {
  if (*n >= RTGAH_STROKE_ROOM - 2) return false;
  STROKE& s = strokes[(*n)++];
  s.p0 = s.p1 = s.p2 = s.p3 = (FS_USHORT)pt;
  s.raw_center = s.adj_center = el->oy[pt];
  s.width = 0;
  s.min = lo, s.max = hi;
  s.e1 = s.e2 = nullptr;
  for (int i = 0; i < el->np; i++) {
    if (i == pt || el->oy[i] != el->oy[pt]) continue;
    PLIST* q = new_plist((FS_USHORT)i, s.e1, pool, cursor, plistMax);
    if (q == nullptr) break;
    s.e1 = q;
  }
  return true;
}

bool covers(const STROKE& s, F26DOT6 v) {
  return v >= s.raw_center - s.width / 2 - 1 && v <= s.raw_center + s.width / 2 + 1;
}

// Moves every point of `list` (a dot's contour) by dx, dy, touched in both.
void move_contour(fnt_ElementType* el, int sp, int ep, F26DOT6 dx, F26DOT6 dy) {
  for (int i = sp; i <= ep; i++) {
    el->x[i] += dx;
    el->y[i] += dy;
    el->f[i] |= XMOVED | YMOVED;
  }
}

// Stroke centres from their points' hinted places along `h`.
void refresh_strokes(STROKE* strokes, int n, const F26DOT6* h, bool width) {
  for (int i = 0; i < n; i++) {
    STROKE& s = strokes[i];
    s.raw_center = s.adj_center = (F26DOT6)(((FS_INT64)h[s.p0] + h[s.p2]) / 2);
    if (width) s.width = h[s.p2] - h[s.p0];
  }
}

}  // namespace

void round_ref_lines(const F26DOT6* ref, F26DOT6* rrl) {
  for (int i = 0; i < 56; i++) rrl[i] = ref[i] == kNoLine ? kNoLine : round26(ref[i]);
  if (!(ref[1] - ref[0] >= 44 && ref[4] - ref[5] >= 44)) {
    rrl[1] = rrl[0];
    rrl[2] = rrl[3];
    rrl[5] = rrl[4];
  }
}

int local_extrema(int i, fnt_ElementType* el) {
  int c = contour_of(el, i), sp, ep;
  if (c < 0 || !contour(el, c, &sp, &ep) || sp == ep) return 0;
  int len = ep - sp + 1;
  F26DOT6 v = el->oy[i];
  int below = 0, above = 0;
  for (int dir = -1; dir <= 1; dir += 2) {
    int k = i;
    for (int step = 1; step < len; step++) {
      k = sp + ((k - sp + dir + len) % len);
      if (el->oy[k] == v) continue;
      (el->oy[k] < v ? below : above)++;
      break;
    }
  }
  if (below == 2) return 1;
  if (above == 2) return -1;
  return 0;
}

int latin_ref_lines(int n, STROKE* strokes, const F26DOT6* ref, fnt_ElementType* el,
                    PLIST* pool, int* cursor, int plistMax) {
  if (el->np <= 0) return n;
  F26DOT6 rrl[56];
  round_ref_lines(ref, rrl);
  F26DOT6 xlo = el->ox[0], xhi = el->ox[0];
  int top = 0, bottom = 0, xh = -1, base = -1;
  for (int i = 0; i < el->np; i++) {
    xlo = min26(xlo, el->ox[i]);
    xhi = max26(xhi, el->ox[i]);
    if (el->oy[i] > el->oy[top]) top = i;
    if (el->oy[i] < el->oy[bottom]) bottom = i;
    if (abs26(el->oy[i] - ref[2]) <= 3 && local_extrema(i, el) == 1) xh = i;
    if (abs26(el->oy[i] - ref[4]) <= 3 && local_extrema(i, el) == -1) base = i;
  }
  // The top is sought from the last stroke down, the others from the first
  // up; the base only when it is not the bottom's level.
  const int pts[4] = {top, bottom, xh, base};
  for (int k = 0; k < 4; k++) {
    int pt = pts[k];
    if (pt < 0 || (k == 3 && el->oy[pt] == el->oy[bottom])) continue;
    bool found = false;
    for (int i = 0; i < n && !found; i++) found = covers(strokes[k == 0 ? n - 1 - i : i], el->oy[pt]);
    if (!found) add_flat_stroke(strokes, &n, el, pt, xlo, xhi, pool, cursor, plistMax);
  }
  for (int i = 0; i < n; i++) {
    STROKE& s = strokes[i];
    F26DOT6 hi = stroke_top(s), lo = stroke_bottom(s), w2 = s.width / 2;
    if (near31(hi, ref[0])) s.adj_center = rrl[0] - w2;
    else if (near31(hi, ref[1])) s.adj_center = rrl[1] - w2;
    // With no small letters measured the x-height line is 0 and matches
    // nothing.
    else if (ref[2] != 0 && abs26(hi - ref[2]) <= 47) s.adj_center = rrl[2] - w2;
    else if (abs26(hi - ref[3]) <= 47) s.adj_center = rrl[3] - w2;
    else if (abs26(lo - ref[4]) <= 47) s.adj_center = rrl[4] + w2;
    else if (abs26(lo - ref[3]) <= 47) s.adj_center = rrl[3] + w2;
  }
  return n;
}

int latin_accents(const F26DOT6* ref, int n, STROKE* strokes, fnt_ElementType* el,
                  PLIST* pool, int* cursor, int plistMax) {
  int nc = el->nc < RTGAH_MAX_CONTOURS ? el->nc : RTGAH_MAX_CONTOURS;
  if (nc <= 0) return n;
  // Per contour: its ends, extreme points (x min, x max, y min, y max) in
  // the scaled arrays, orientation.
  int sp[RTGAH_MAX_CONTOURS], ep[RTGAH_MAX_CONTOURS], ext[RTGAH_MAX_CONTOURS][4];
  bool cw[RTGAH_MAX_CONTOURS], ok[RTGAH_MAX_CONTOURS];
  int left = -1, base = -1;
  for (int c = 0; c < nc; c++) {
    ok[c] = contour(el, c, &sp[c], &ep[c]);
    if (!ok[c]) continue;
    int* e = ext[c];
    e[0] = e[1] = e[2] = e[3] = sp[c];
    for (int i = sp[c] + 1; i <= ep[c]; i++) {
      if (el->ox[i] < el->ox[e[0]]) e[0] = i;
      if (el->ox[i] > el->ox[e[1]]) e[1] = i;
      if (el->oy[i] < el->oy[e[2]]) e[2] = i;
      if (el->oy[i] > el->oy[e[3]]) e[3] = i;
    }
    cw[c] = is_contour_clockwise(c, el) != 0;
    if (left < 0 || el->ox[e[0]] < el->ox[ext[left][0]]) left = c;
    if (base < 0 || el->oy[e[3]] - el->oy[e[2]] > el->oy[ext[base][3]] - el->oy[ext[base][2]])
      base = c;
  }
  if (base < 0) return n;
  F26DOT6 old_top = el->oy[ext[base][3]];
  if (ref[2] - 32 > old_top || el->oy[ext[base][2]] > ref[4] + 32) return n;
  bool accent[RTGAH_MAX_CONTOURS];
  int num_accents = 0;
  F26DOT6 old_ymin = 0, old_ymax = 0;
  for (int c = 0; c < nc; c++) {
    accent[c] = false;
    if (!ok[c] || sp[c] == ep[c] || cw[c] != cw[left]) continue;
    const int* e = ext[c];
    if (el->oy[e[2]] < old_top) continue;
    bool inside = false;
    for (int d = 0; d < nc && !inside; d++) {
      if (d == c || !ok[d]) continue;
      const int* o = ext[d];
      inside = el->ox[e[0]] >= el->ox[o[0]] && el->ox[e[1]] <= el->ox[o[1]] &&
               el->oy[e[2]] >= el->oy[o[2]] && el->oy[e[3]] <= el->oy[o[3]];
    }
    if (inside) continue;
    accent[c] = true;
    old_ymin = num_accents ? min26(old_ymin, el->oy[e[2]]) : el->oy[e[2]];
    old_ymax = num_accents ? max26(old_ymax, el->oy[e[3]]) : el->oy[e[3]];
    num_accents++;
  }
  if (num_accents == 0) return n;
  F26DOT6 new_top = 0;
  bool found = false;
  for (int i = 0; i < n && !found; i++)
    if (abs26(stroke_top(strokes[i]) - old_top) <= 15) {
      found = true;
      new_top = strokes[i].adj_center + strokes[i].width / 2;
    }
  if (!found) {
    int t = ext[base][3];
    F26DOT6 lo = el->ox[ext[base][0]], hi = el->ox[ext[base][1]];
    new_top = round26(old_top);
    if (add_flat_stroke(strokes, &n, el, t, lo, hi, pool, cursor, plistMax))
      strokes[n - 1].adj_center = new_top;
  }
  F26DOT6 dy = round26(old_ymin - old_top);
  if (dy == 0) dy = 64;
  F26DOT6 new_ymin = new_top + dy;
  F26DOT6 h = old_ymax - old_ymin;
  if (h == 0) return n;
  F26DOT6 new_h = h >= 65 && h <= 128 ? 128 : h;
  FS_FIXED scale = vardiv_64(new_h, h, 16);
  for (int c = 0; c < nc; c++) {
    if (!accent[c]) continue;
    for (int i = sp[c]; i <= ep[c]; i++) {
      el->y[i] = new_ymin + varmul_64(el->oy[i] - old_ymin, scale, 16);
      el->f[i] |= YMOVED;
    }
    // A narrow mark whose sides no stem placed sits in a pixel's middle.
    const int* e = ext[c];
    if (el->nc > 2 && !((el->f[e[0]] | el->f[e[1]]) & XMOVED) &&
        el->x[e[1]] - el->x[e[0]] < 128) {
      F26DOT6 m = (F26DOT6)(((FS_INT64)el->x[e[0]] + el->x[e[1]]) / 2);
      F26DOT6 dx = (m & -64) + 32 - m;
      for (int i = sp[c]; i <= ep[c]; i++) el->x[i] += dx;
    }
  }
  for (int i = 0; i < n; i++) {
    STROKE& s = strokes[i];
    if (s.raw_center <= old_top) continue;
    s.raw_center = s.adj_center = (F26DOT6)(((FS_INT64)el->y[s.p0] + el->y[s.p2]) / 2);
    s.width = el->y[s.p2] - el->y[s.p0];
  }
  // The scaled arrays take over the hinted places: the y pass goes on from
  // the marks' new ones.
  for (int i = 0; i < el->np; i++) el->ox[i] = el->x[i], el->oy[i] = el->y[i];
  return n;
}

void latin_side_bearings(int n, STROKE* strokes, const F26DOT6* ref, fnt_ElementType* el) {
  if (n <= 0 || el->np <= 0 || ref[6] + ref[7] > 128) return;
  int np = el->np;
  F26DOT6 L = el->x[0], M = el->x[0];
  for (int i = 1; i < np; i++) L = min26(L, el->x[i]), M = max26(M, el->x[i]);
  const STROKE& first = strokes[0];
  bool single = near31(first.adj_center, strokes[n - 1].adj_center);
  const STROKE& last = single ? first : strokes[n - 1];
  F26DOT6 left = first.adj_center - first.width / 2, right = last.adj_center + last.width / 2;
  F26DOT6 R = el->x[np + 1], lsb6 = ref[6], rsb7 = ref[7];
  if (single) {
    F26DOT6 shift = 0;
    if (left - L <= M - right && left - L < 64 && abs26(lsb6 - left) <= 64)
      shift = lsb6 - left;
    else if (M - right <= left - L && M - right < 64 && abs26(rsb7 + right - R) <= 64)
      shift = R - rsb7 - right;
    if (shift == 0) return;
    for (int i = 0; i < np; i++) el->x[i] += shift, el->ox[i] += shift;
    for (int i = 0; i < n; i++) strokes[i].raw_center += shift, strokes[i].adj_center += shift;
    return;
  }
  F26DOT6 new_left = (left - L < 64 && abs26(lsb6 - left) <= 72) ? lsb6 : left;
  F26DOT6 new_right = (M - right < 64 && abs26(rsb7 + right - R) <= 72) ? R - rsb7 : right;
  if (new_left == left && new_right == right) return;
  FS_FIXED k = right == left ? 0x10000 : vardiv_64(new_right - new_left, right - left, 16);
  for (int i = 0; i < np; i++) {
    F26DOT6 v = el->x[i];
    if (v < left) v += new_left - left;
    else if (v > right) v += new_right - right;
    else v = new_left + varmul_64(v - left, k, 16);
    el->x[i] = el->ox[i] = v;
  }
  refresh_strokes(strokes, n, el->x, false);
}

void snap_top_bottom(F26DOT6 top, int n, STROKE* strokes) {
  for (int i = 0; i < n; i++)
    if (abs26(stroke_top(strokes[i]) - top) <= 63)
      strokes[i].adj_center = round26(top) - strokes[i].width / 2;
}

void Telugu_ref_lines(const F26DOT6* rl, int n, STROKE* strokes) {
  for (int i = 0; i < n; i++) {
    STROKE& s = strokes[i];
    F26DOT6 w2 = s.width / 2, t = stroke_top(s), b = stroke_bottom(s);
    if (near31(t, rl[0])) s.adj_center = round26(rl[0]) - w2;
    if (near31(b, rl[1])) s.adj_center = round26(rl[1]) + w2;
  }
}

void Arabic_ref_lines(const F26DOT6* rl, int n, STROKE* strokes) {
  for (int i = 0; i < n; i++)
    if (near31(stroke_bottom(strokes[i]), rl[0]))
      strokes[i].adj_center = round26(rl[0]) + strokes[i].width / 2;
}

void Indic_ref_lines_4(const F26DOT6* rl, int n, STROKE* strokes) {
  for (int i = 0; i < n; i++) {
    STROKE& s = strokes[i];
    F26DOT6 w2 = s.width / 2, t = stroke_top(s), b = stroke_bottom(s);
    // The upper line keeps its rounded distance from the lower one.
    if (near31(t, rl[1])) s.adj_center = round26(rl[1]) - w2;
    else if (near31(t, rl[0])) s.adj_center = round26(rl[1]) + round26(rl[0] - rl[1]) - w2;
    if (near31(b, rl[2])) s.adj_center = round26(rl[2]) + w2;
    else if (near31(b, rl[3])) s.adj_center = rl[2] - round26(rl[2] - rl[3]) + w2;
  }
}

void snap_top_bottom_4(const F26DOT6* rl, int n, STROKE* strokes, fnt_ElementType* el,
                       F26DOT6 ppm) {
  if (el->np <= 0) return;
  for (int i = 0; i < 4; i++)
    if (rl[i] == kNoLine) return;
  F26DOT6 gap_top = round26(rl[0] - rl[1]), gap_bottom = round26(rl[2] - rl[3]);
  if (ppm >= 897 && gap_top <= 0) gap_top = 64;
  if (ppm >= 897 && gap_bottom <= 0) gap_bottom = 64;
  F26DOT6 new_top = round26(rl[0] + 6 - rl[3]) + round26(rl[3]);  // rounds up a tie
  F26DOT6 new_inner_bottom = gap_bottom + round26(rl[3]);
  F26DOT6 new_inner_top = new_top - gap_top;
  F26DOT6 lo = el->oy[0], hi = el->oy[0];
  for (int i = 1; i < el->np; i++) lo = min26(lo, el->oy[i]), hi = max26(hi, el->oy[i]);
  if (lo == hi) return;
  F26DOT6 top_target = hi, bottom_target = lo;
  bool top_set = false, bottom_set = false;
  if (n > 0) {
    const STROKE& l = strokes[n - 1];
    const STROKE& f = strokes[0];
    F26DOT6 t = stroke_top(l), b = stroke_bottom(f);
    if (pstroke_length(l.p0, l.p1, l.p2, l.p3, el->ox) > ppm / 6 && abs26(t - hi) <= 47 &&
        near31(t, rl[1]))
      hi = t, top_target = new_inner_top, top_set = true;
    if (pstroke_length(f.p0, f.p1, f.p2, f.p3, el->ox) > ppm / 6 && abs26(b - lo) <= 15 &&
        near31(b, rl[2]))
      lo = b, bottom_target = new_inner_bottom, bottom_set = true;
  }
  if (!top_set && near31(hi, rl[0])) top_target = new_top, top_set = true;
  if (!bottom_set && near31(lo, rl[3])) bottom_target = round26(rl[3]), bottom_set = true;
  if (top_set || bottom_set) {
    FS_FIXED scale = vardiv_64(top_target - bottom_target, hi - lo, 16);
    for (int i = 0; i < el->np; i++)
      el->y[i] = bottom_target + varmul_64(el->oy[i] - lo, scale, 16);
    refresh_strokes(strokes, n, el->y, true);
  }
  if ((top_set && top_target == new_top) || (bottom_set && bottom_target == round26(rl[3]))) {
    for (int i = 0; i < n && near31(stroke_bottom(strokes[i]), rl[1]); i++)
      strokes[i].adj_center = new_inner_top + strokes[i].width / 2;
    for (int i = n - 1; i >= 0 && near31(stroke_top(strokes[i]), rl[1]); i--)
      strokes[i].adj_center = new_inner_top - strokes[i].width / 2;
  }
  for (int i = 0; i < el->np; i++) el->oy[i] = el->y[i];
}

FS_BOOLEAN visually_separate(F26DOT6 a, F26DOT6 b) {
  if (a >= b) return 0;
  F26DOT6 fa = a & 63, to_top = ((b & -64) + 64) - b;
  if ((a >> 6) == (b >> 6)) return !(fa > 15 || to_top > 15);
  if ((b >> 6) == (a >> 6) + 1) return !(fa > 31 || to_top > 31);
  return 1;
}

namespace {

// A dot of multi_dot: its contour, scaled box and centre, target centre.
struct BOOJUM {
  int sp, ep;
  F26DOT6 xmin, xmax, ymin, ymax;
  F26DOT6 oxc, oyc, xc, yc;
};

void move_dot(fnt_ElementType* el, BOOJUM& d, F26DOT6 dx, F26DOT6 dy) {
  move_contour(el, d.sp, d.ep, dx, dy);
  d.xc += dx;
  d.yc += dy;
}

// Shell sort of the dots by a key, increments 112, 48, 21, 7, 3, 1.
template <class Key>
void sort_dots(BOOJUM* d, int n, Key key) {
  static const int kSteps[6] = {112, 48, 21, 7, 3, 1};
  for (int h : kSteps)
    for (int i = h; i < n; i++) {
      BOOJUM t = d[i];
      int j = i;
      for (; j >= h && key(d[j - h]) > key(t); j -= h) d[j] = d[j - h];
      d[j] = t;
    }
}

}  // namespace

void multi_dot(fnt_ElementType* el) {
  BOOJUM dots[4];
  int n = 0;
  for (int c = 0; c < el->nc; c++) {
    int sp, ep;
    if (!contour(el, c, &sp, &ep) || sp == ep) continue;
    BOOJUM d = {sp, ep, el->ox[sp], el->ox[sp], el->oy[sp], el->oy[sp], 0, 0, 0, 0};
    bool touched = false;
    for (int i = sp; i <= ep; i++) {
      touched |= (el->f[i] & (XMOVED | YMOVED)) != 0;
      d.xmin = min26(d.xmin, el->ox[i]), d.xmax = max26(d.xmax, el->ox[i]);
      d.ymin = min26(d.ymin, el->oy[i]), d.ymax = max26(d.ymax, el->oy[i]);
    }
    if (touched || d.xmax - d.xmin >= 192 || d.ymax - d.ymin >= 192) continue;
    if (n == 4) return;  // four or more: nothing at all
    d.xc = d.oxc = (F26DOT6)(((FS_INT64)d.xmin + d.xmax) / 2);
    d.yc = d.oyc = (F26DOT6)(((FS_INT64)d.ymin + d.ymax) / 2);
    dots[n++] = d;
  }
  if (n == 0 || n == 4) return;
  for (int i = 0; i < n; i++)
    for (int j = i + 1; j < n; j++) {
      if (near31(dots[i].oxc, dots[j].oxc)) dots[j].xc = dots[i].xc;
      if (near31(dots[i].oyc, dots[j].oyc)) dots[j].yc = dots[i].yc;
    }
  for (int i = 0; i < n; i++) {
    BOOJUM& d = dots[i];
    d.xc = (d.xc & -64) + 32;
    d.yc = (d.yc & -64) + 32;
    for (int k = d.sp; k <= d.ep; k++) {
      el->x[k] = el->ox[k] + d.xc - d.oxc;
      el->y[k] = el->oy[k] + d.yc - d.oyc;
      el->f[k] |= XMOVED | YMOVED;
    }
  }
  if (n > 1) {
    // Hinted edges of a dot: its scaled box moved by the dot's move.
    sort_dots(dots, n, [](const BOOJUM& d) { return d.xmax; });
    for (int i = 0; i < n; i++)
      for (int j = i + 1; j < n; j++) {
        BOOJUM &a = dots[i], &b = dots[j];
        if (a.xmax >= b.xmin) continue;
        if (!visually_separate(a.xmax + a.xc - a.oxc, b.xmin + b.xc - b.oxc))
          move_dot(el, b, 64, 0);
      }
    sort_dots(dots, n, [](const BOOJUM& d) { return d.ymax; });
    for (int i = 0; i < n; i++)
      for (int j = i + 1; j < n; j++) {
        BOOJUM &a = dots[i], &b = dots[j];
        if (a.ymax >= b.ymin) continue;
        if (!visually_separate(a.ymax + a.yc - a.oyc, b.ymin + b.yc - b.oyc))
          move_dot(el, b, 0, 64);
      }
  }
  if (n == 3) {
    int apex = -1;
    F26DOT6 move = 0;
    for (int i = 0; i < 3; i++) {
      const BOOJUM &a = dots[(i + 1) % 3], &b = dots[(i + 2) % 3];
      F26DOT6 omean = (F26DOT6)(((FS_INT64)a.oxc + b.oxc) / 2);
      F26DOT6 mean = (F26DOT6)(((FS_INT64)a.xc + b.xc) / 2);
      if (!near31(dots[i].oxc, omean)) continue;
      if (dots[i].xc - mean >= 33) apex = i, move = -64;
      else if (mean - dots[i].xc > 32) apex = i, move = 64;
    }
    if (apex >= 0) move_dot(el, dots[apex], move, 0);
  }
}

namespace {

// Step 8's Latin part: the side bearings, then the dot of i or j stands
// over its stem.
void latin_x_step(RTGAH_DATA* r, const F26DOT6* ref, STROKE* strokes, int n,
                  fnt_ElementType* el) {
  latin_side_bearings(n, strokes, ref, el);
  if ((r->unicode != 105 && r->unicode != 106) || n < 2) return;
  int dot = 0;
  for (int i = 1; i < n; i++)
    if (strokes[i].max > strokes[dot].max) dot = i;
  int stem = -1;
  for (int i = 0; i < n; i++) {
    if (i == dot) continue;
    F26DOT6 d = strokes[i].raw_center - strokes[dot].raw_center;
    if (d < -15 || d > 15) continue;
    if (stem < 0 || abs26(d) < abs26(strokes[stem].raw_center - strokes[dot].raw_center))
      stem = i;
  }
  if (stem < 0) return;
  F26DOT6 c = simple_alignment(strokes[stem].raw_center, strokes[stem].width);
  strokes[stem].adj_center = strokes[dot].adj_center = c;
}

// Step 10: each script's reference lines; returns the stroke count.
int script_step(int script, bool latin, const F26DOT6* ref, STROKE* strokes, int n,
                fnt_ElementType* el, PLIST* pool, int* cursor, F26DOT6 ppm) {
  // Slots per script: the line routine's arguments, in its order.
  struct Row { int script; int kind; int slots[4]; };
  enum { kArabic, kSnap4, kSnap, kTelugu, kIndic4 };
  static const Row kRows[] = {
      {5, kArabic, {51}},          {6, kSnap4, {14, 12, 13, 15}},
      {7, kSnap4, {10, 8, 9, 11}}, {8, kSnap, {16}},
      {9, kSnap, {18}},            {10, kSnap, {20}},
      {11, kTelugu, {22, 23}},     {13, kIndic4, {24, 25, 27, 26}},
      {14, kIndic4, {28, 29, 31, 30}}, {15, kIndic4, {32, 33, 35, 34}},
      {16, kIndic4, {36, 37, 39, 38}}, {17, kIndic4, {36, 37, 39, 38}},
      {18, kIndic4, {44, 44, 46, 45}}, {19, kIndic4, {47, 48, 50, 49}},
  };
  if (script >= 1 && script <= 3) {
    if (!latin) return n;
    n = latin_ref_lines(n, strokes, ref, el, pool, cursor, RTGAH_MAX_PLIST);
    return latin_accents(ref, n, strokes, el, pool, cursor, RTGAH_MAX_PLIST);
  }
  for (const Row& row : kRows) {
    if (row.script != script) continue;
    F26DOT6 rl[4];
    for (int i = 0; i < 4; i++) rl[i] = ref[row.slots[i]];
    switch (row.kind) {
      case kArabic: Arabic_ref_lines(rl, n, strokes); break;
      case kSnap4: snap_top_bottom_4(rl, n, strokes, el, ppm); break;
      case kSnap: snap_top_bottom(rl[0], n, strokes); break;
      case kTelugu: Telugu_ref_lines(rl, n, strokes); break;
      default: Indic_ref_lines_4(rl, n, strokes); break;
    }
  }
  return n;
}

}  // namespace

void rtgah(GS* gs) {
  fnt_ElementType* el = gs->CE0;
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  RTGAH_DATA* r = (RTGAH_DATA*)g->rtgah_data;
  SFNT* sfnt = (SFNT*)g->sfnt;
  if (r == nullptr || sfnt == nullptr || el == nullptr || el->nc <= 0 || el->np <= 0) return;
  if (!(r->stateflags & 0x400000) || (r->fontflags & 2)) return;
  rtgah_data_init(r);
  F26DOT6* ref = sfnt->ref_lines;
  F26DOT6 saved[6];
  memcpy(saved, ref, sizeof saved);
  int script = r->script;
  bool is_italic = (r->fontflags & 512) != 0;
  bool collisions = script == 6 || script == 7;
  bool do_multi_dot = script == 4 || script == 5;
  bool latin = (script >= 1 && script <= 3) && ref[0] != 0;
  bool cjk = script == 7;
  FS_LONG ppem = g->pixelsPerEm;
  int np = el->np;
  if (latin && ppem <= 18 && ref[3] > 0) {
    FS_FIXED s = vardiv_64(ref[3] + 8, ref[3], 16);
    for (int i = 0; i < 6; i++)
      if (ref[i] > 0) ref[i] = varmul_64(ref[i], s, 16);
    for (int i = 0; i < np; i++) {
      el->x[i] = el->ox[i] = varmul_64(el->ox[i], s, 16);
      if (el->oy[i] > 0) el->y[i] = el->oy[i] = varmul_64(el->oy[i], s, 16);
    }
    el->ox[np + 1] = varmul_64(el->ox[np + 1], s, 16);
    el->x[np + 1] = round26(el->ox[np + 1]);
    if (((ref[2] + 32) ^ (ref[3] + 32)) > 63) ref[2] = ref[3];
    if (ref[0] - ref[2] < 128) ref[0] = ref[2] + 128;
  }
  non_corner_extrema(el);
  F26DOT6 max_sw = collisions ? (ppem * 640 + 50) / 100 : (ppem * 1408 + 50) / 100;
  STROKE* strokes = r->strokes;
  int cursor = 0, n = 0;
  if (!(is_italic && ref[7] != 0)) {
    int np_ = cjk ? find_pieces_CJK('x', r->pieces, el, r->plist, &cursor, RTGAH_MAX_PLIST)
                  : find_pieces('x', r->pieces, el, r->plist, &cursor, RTGAH_MAX_PLIST);
    n = cjk ? find_strokes_CJK('x', np_, r->pieces, strokes, el, max_sw, r->plist, &cursor,
                               RTGAH_MAX_PLIST)
            : find_strokes('x', np_, r->pieces, strokes, el, max_sw, r->plist, &cursor,
                           RTGAH_MAX_PLIST);
  }
  if (ref[7] == 0) {
    F26DOT6 c = 0, w = 0;
    int best = -1;
    for (int i = 0; i < n; i++)
      if (best < 0 || strokes[i].width < strokes[best].width) best = i;
    if (best >= 0) c = strokes[best].raw_center, w = strokes[best].width / 2;
    F26DOT6 L = el->x[np], R = el->x[np + 1];
    F26DOT6 lsb = c - w - L, rsb = R - (c + w);
    F26DOT6 S = (rsb + lsb + 32) & -64;
    F26DOT6 sa = (S / 2) & -64, sb = S - sa;
    if (sb < 64) sb = 64;
    ref[6] = sa;
    ref[7] = sb;
    if (np >= 51 && n >= 3) {
      r->rtgah_suitable = 0;
      memcpy(ref, saved, 6);
      return;
    }
  }
  FS_BYTE op = gs->opCode;
  if (!(r->stateflags & 0x2000000)) {
    if (latin) latin_x_step(r, ref, strokes, n, el);
    if (collisions) no_collisions('x', n, strokes, el);
    adjust_outline('x', script, n, strokes, el, gs);
    if (!cjk) {
      gs->opCode = 1;
      fnt_IUP(gs);
    }
  }
  cursor = 0;
  int npy = cjk ? find_pieces_CJK('y', r->pieces, el, r->plist, &cursor, RTGAH_MAX_PLIST)
                : find_pieces('y', r->pieces, el, r->plist, &cursor, RTGAH_MAX_PLIST);
  n = cjk ? find_strokes_CJK('y', npy, r->pieces, strokes, el, max_sw, r->plist, &cursor,
                             RTGAH_MAX_PLIST)
          : find_strokes('y', npy, r->pieces, strokes, el, max_sw, r->plist, &cursor,
                         RTGAH_MAX_PLIST);
  if (n > 0) {
    r->lo = simple_alignment(strokes[0].raw_center, strokes[0].width) - strokes[0].width / 2;
    r->hi = simple_alignment(strokes[n - 1].raw_center, strokes[n - 1].width) +
            strokes[n - 1].width / 2;
  }
  n = script_step(script, latin, ref, strokes, n, el, r->plist, &cursor, (F26DOT6)ppem << 6);
  if (collisions) no_collisions('y', n, strokes, el);
  adjust_outline('y', script, n, strokes, el, gs);
  if (!cjk) {
    gs->opCode = 0;
    fnt_IUP(gs);
    if (r->fnt_type == 7 || (r->fontflags & 32)) adjust_outline_cff(el);
  }
  gs->opCode = op;
  if (do_multi_dot) multi_dot(el);
  memcpy(ref, saved, sizeof saved);
}
