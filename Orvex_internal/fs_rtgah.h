// The real-time gray autohinter: finds a glyph's stems (strokes, pairs of
// opposing straight pieces) from its scaled outline, puts their edges on
// the pixel grid, and moves the other points to follow, first along x,
// then along y. It runs as the engine's instruction AA with 11 on the
// stack over the glyph element. All working memory lives in RTGAH_DATA,
// allocated once with the scaled font's key; per glyph nothing is
// allocated, and a full node pool means no strokes, never a write past an
// array.
#ifndef ORVEX_INTERNAL_FS_RTGAH_H
#define ORVEX_INTERNAL_FS_RTGAH_H

#include "Orvex_internal/fs_fnt.h"

struct FS_STATE;
struct LFNT;

// A list of point numbers, its nodes from the pool of RTGAH_DATA.
struct PLIST {
  FS_USHORT pt;
  PLIST* next;
};

// A straight, nearly axis-parallel run of a contour.
struct PIECE {
  FS_USHORT p0, p1;  // end points
  FS_SHORT c;        // contour
  FS_SHORT d;        // +1 or -1: its direction along the other axis
  PLIST* pts;        // the points between
};

// A stem: a lower edge p0-p1 and an upper edge p2-p3.
struct STROKE {
  FS_USHORT p0, p1, p2, p3;
  PLIST* e1;  // further points of the lower edge
  PLIST* e2;  // of the upper edge
  F26DOT6 raw_center, adj_center, width;
  F26DOT6 min, max;  // extent along the other axis
};

// A positioned edge for interpolation.
struct EDGE {
  FS_USHORT pt, unused;
  F26DOT6 x, y0, y1;
};

const int RTGAH_MAX_PIECES = 128;
const int RTGAH_MAX_STROKES = 64;
const int RTGAH_MAX_PLIST = 2048;
const int RTGAH_MAX_CONTOURS = 32;
// Room for the strokes found, the reference-line and accent strokes the
// Latin step adds (five at most) and the two pseudo strokes.
const int RTGAH_STROKE_ROOM = RTGAH_MAX_STROKES + 8;
// A stroke marked for deletion.
const F26DOT6 RTGAH_DELETED = (F26DOT6)0x80000001u;

// The autohinter's state in the key's graphic state.
struct RTGAH_DATA {
  PIECE* RTGAHPieces;
  STROKE* RTGAHStrokes;
  PLIST* RTGAHStrokesPlist;
  EDGE* RTGAHEdges;
  F26DOT6 *RTGAHXmin, *RTGAHYmin, *RTGAHXmax, *RTGAHYmax;
  FS_ULONG fontflags, stateflags;
  FS_SHORT script;
  FS_USHORT unicode;
  F26DOT6 hi, lo;  // hinted top and bottom of the glyph
  FS_USHORT rtgah_suitable;
  FS_USHORT fnt_type;
  // The storage behind the pointers above.
  PIECE pieces[RTGAH_MAX_PIECES];
  STROKE strokes[RTGAH_STROKE_ROOM];
  PLIST plist[RTGAH_MAX_PLIST];
  EDGE edges[2 * RTGAH_STROKE_ROOM];
  F26DOT6 xmin[RTGAH_MAX_CONTOURS], ymin[RTGAH_MAX_CONTOURS];
  F26DOT6 xmax[RTGAH_MAX_CONTOURS], ymax[RTGAH_MAX_CONTOURS];
};

/* ---- Scripts ---- */

// Script numbers: 0 unknown, 1 Latin, 2 Greek, 3 Cyrillic, 4 Hebrew,
// 5 Arabic, 6 Hangul, 7 CJK, 8 Devanagari, 9 Bengali, 10 Gurmukhi,
// 11 Telugu, 12 Kannada, 13 Malayalam, 14 Tamil, 15 Oriya, 16 Sinhala,
// 17 Thai, 18 Khmer, 19 Gujarati.
// The script of Unicode value `code` by its block; 0 for an unlisted one.
FS_USHORT script_of_code(FS_ULONG code);
// The one script the OS/2 ranges name, or 0 when they name none or
// several (Latin, Greek and Cyrillic have no bit that counts).
FS_USHORT script_of_ranges(FS_ULONG range1, FS_ULONG range2, FS_ULONG range3);
// The script of glyph `index` (the font's own numbering) of `lfnt`, its
// Unicode value through the font's (3,1), else (3,10), cmap in *unicode
// (0xFFFF when none maps it). A value that maps to nothing or into the
// private use area takes the script of the font's OS/2 ranges (0 without
// OS/2). No Unicode cmap: 0xFFFF. Reads the font's tables only; the
// client's cmap and flags are not touched.
FS_USHORT which_script(FS_STATE* state, LFNT* lfnt, FS_ULONG index,
                       FS_ULONG* unicode);

// Points the working arrays at their storage.
void rtgah_data_init(RTGAH_DATA* r);

// Hints the glyph element gs->CE0 along x then y (see the file comment).
void rtgah(fnt_LocalGraphicStateType* gs);

// The piece and stroke finders along `xy` ('x' or 'y'). They use nodes of
// r's pool from *cursor. find_pieces snaps each run and near levels in the
// hinted and the scaled arrays; the _CJK finders snap nothing.
int find_pieces(int xy, PIECE* pieces, fnt_ElementType* el, PLIST* pplist,
                int* cursor, int plistMax);
int find_pieces_CJK(int xy, PIECE* pieces, fnt_ElementType* el,
                    PLIST* pplist, int* cursor, int plistMax);
int find_strokes(int xy, int num_pieces, PIECE* pieces, STROKE* strokes,
                 fnt_ElementType* el, F26DOT6 max_sw, PLIST* pplist,
                 int* cursor, int plistMax);
int find_strokes_CJK(int xy, int num_pieces, PIECE* pieces, STROKE* strokes,
                     fnt_ElementType* el, F26DOT6 max_sw, PLIST* pplist,
                     int* cursor, int plistMax);

// The centre moved so that the edge nearer a pixel boundary lies on it;
// on a tie the upper edge.
F26DOT6 simple_alignment(F26DOT6 center, F26DOT6 width);
// Turns rounded extremes into tiny flats the piece finder sees.
void non_corner_extrema(fnt_ElementType* el);
FS_BOOLEAN is_contour_clockwise(int c, fnt_ElementType* el);
// The mean length of the two edges along the other axis `v`.
F26DOT6 pstroke_length(int p0, int p1, int p2, int p3, const F26DOT6* v);
// Places the strokes' edges and moves the other extrema; returns the
// stroke count it leaves (two pseudo strokes more).
int adjust_outline(int xy, int script, int num_strokes, STROKE* strokes,
                   fnt_ElementType* el, fnt_LocalGraphicStateType* gs);
// Keeps hinted strokes from merging (scripts 6 and 7).
void no_collisions(int xy, int num_strokes, STROKE* strokes,
                   fnt_ElementType* el);
// With a below b: whether their hinted edges light pixels too close.
FS_BOOLEAN strokes_too_close(const STROKE* a, const STROKE* b);
FS_BOOLEAN can_thin_strokes(STROKE* a, STROKE* b);

/* ---- Reference lines by script ---- */

// Each of the 56 slots rounded to the pixel (a CJK slot no letter measured,
// 0x7FFFFFFF, stays); unless the round capital's
// top and bottom overshoot the flat ones by 44/64 or more, the overshoots
// (and the flat x-height) follow the flat lines: rrl[1] = rrl[0],
// rrl[2] = rrl[3], rrl[5] = rrl[4].
void round_ref_lines(const F26DOT6* ref_lines, F26DOT6* rrl);
// 1 when point i is a local maximum of the scaled y along its contour
// (points of equal y passed over), -1 a minimum, else 0.
int local_extrema(int i, fnt_ElementType* el);
// Latin y step: makes sure the glyph's top, bottom, x-height and base
// points have strokes (zero-width ones added), then moves strokes whose
// top or bottom lies near a reference line onto its rounded value.
// Returns the new stroke count.
int latin_ref_lines(int num_strokes, STROKE* strokes, const F26DOT6* ref_lines,
                    fnt_ElementType* el, PLIST* pplist, int* cursor, int plistMax);
// Marks above a base letter keep a whole-pixel gap over its hinted top; a
// mark 65 to 128 units tall becomes 128. Returns the new stroke count.
int latin_accents(const F26DOT6* ref_lines, int num_strokes, STROKE* strokes,
                  fnt_ElementType* el, PLIST* pplist, int* cursor, int plistMax);
// Latin x step: moves or stretches the glyph so that its outer stems keep
// the font's side-bearing steps (slots 6 and 7).
void latin_side_bearings(int num_strokes, STROKE* strokes, const F26DOT6* ref_lines,
                         fnt_ElementType* el);
// Strokes whose top lies within 63 of `top` take its rounded value.
void snap_top_bottom(F26DOT6 top, int num_strokes, STROKE* strokes);
// Hangul and CJK: stretches the glyph between its lines rl[0] (top),
// rl[1] (inner top), rl[2] (inner bottom), rl[3] (bottom); ppm in 26.6.
void snap_top_bottom_4(const F26DOT6* rl, int num_strokes, STROKE* strokes,
                       fnt_ElementType* el, F26DOT6 ppm);
// Two tops rl[0], rl[1] and two bottoms rl[2], rl[3]: the nearer line's
// rounded value, or the rounded distance from it.
void Indic_ref_lines_4(const F26DOT6* rl, int num_strokes, STROKE* strokes);
void Telugu_ref_lines(const F26DOT6* rl, int num_strokes, STROKE* strokes);
void Arabic_ref_lines(const F26DOT6* rl, int num_strokes, STROKE* strokes);
// Keeps up to three small untouched contours (dots) centred in pixels,
// distinct, and a triangle's apex over its base.
void multi_dot(fnt_ElementType* el);
// Whether hinted edges a < b light visibly separate pixels.
FS_BOOLEAN visually_separate(F26DOT6 a, F26DOT6 b);

#endif
