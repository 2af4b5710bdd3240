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
  STROKE strokes[RTGAH_MAX_STROKES + 2];
  PLIST plist[RTGAH_MAX_PLIST];
  EDGE edges[2 * (RTGAH_MAX_STROKES + 2)];
  F26DOT6 xmin[RTGAH_MAX_CONTOURS], ymin[RTGAH_MAX_CONTOURS];
  F26DOT6 xmax[RTGAH_MAX_CONTOURS], ymax[RTGAH_MAX_CONTOURS];
};

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

#endif
