// The real-time gray autohinter (see fs_rtgah.h). Coordinates are 26.6;
// "along" is the axis of work, "across" the other one. The hinted arrays
// are x, y, the scaled ones ox, oy.
#include "Orvex_internal/fs_rtgah.h"

#include <string.h>

#include "Orvex_internal/fs_state.h"

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
  F26DOT6 saved[RTGAH_MAX_STROKES + 2];
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

// Seams for the script step: the Latin side bearings and the dot of i and
// j (x), the reference-line step (y), and the dots of scripts 4 and 5.
// Script 0 uses none; each does nothing until its script is built.
void rtgah_latin_x_seam(GS*, RTGAH_DATA*, STROKE*, int) {}
void rtgah_script_step_seam(GS*, RTGAH_DATA*, STROKE*, int) {}
void rtgah_multi_dot_seam(GS*, RTGAH_DATA*) {}

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
  bool multi_dot = script == 4 || script == 5;
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
    if (latin) rtgah_latin_x_seam(gs, r, strokes, n);
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
  rtgah_script_step_seam(gs, r, strokes, n);
  if (collisions) no_collisions('y', n, strokes, el);
  adjust_outline('y', script, n, strokes, el, gs);
  if (!cjk) {
    gs->opCode = 0;
    fnt_IUP(gs);
    if (r->fnt_type == 7 || (r->fontflags & 32)) adjust_outline_cff(el);
  }
  gs->opCode = op;
  if (multi_dot) rtgah_multi_dot_seam(gs, r);
  memcpy(ref, saved, sizeof saved);
}
