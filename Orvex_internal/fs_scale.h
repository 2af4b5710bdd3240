// The scaler: prepares a scaled font (its SENV and fsg_SplineKey) for glyph
// work from the user's 2x2 scale, and checks and decomposes that scale.
// Called by the glyph request pipeline and font metrics; calls the TrueType
// glyph reader and grid fit (fs_glue), the container, heap and scratch space.
#ifndef ORVEX_INTERNAL_FS_SCALE_H
#define ORVEX_INTERNAL_FS_SCALE_H

#include "Orvex_internal/fs_cff.h"
#include "Orvex_internal/fs_fnt.h"
#include "Orvex_internal/fs_rtgah.h"
#include "Orvex_internal/fs_state.h"

struct TTF;
struct TTF_MAXP;
struct TTF_HEAD;

// Per scaled font.
struct SENV {
  FS_USHORT xppm, yppm;  // rounded
  FS_BOOLEAN vanilla;    // s00 > 0, s11 > 0, s01 = s10 = 0
  FS_ULONG hdmx_group_offset;
  FS_BYTE render_behavior;  // bit 1 gridfit, bit 2 gray, bit 4 distance field
  FS_SHORT stroke_width;
  FS_SHORT language;
  FS_FIXED cap_round, cap_square, x_round, x_square, base_round, base_square;
  FS_FIXED lsb, rsb;
  FS_SHORT bold_width;
  void* ttkey;  // the fsg_SplineKey
};

// Sets up `rec` to scale font units of an `em`-unit font by `scalar`
// (16.16 pixels per em) into 26.6.
void compute_scaling(scale_rec* rec, FS_FIXED scalar, FS_LONG em);

// One value through a scale_rec: font units in, 26.6 out.
F26DOT6 scale_value(const scale_rec* rec, FS_LONG v);

struct fsg_OffsetInfo {
  FS_ULONG x, y, ox, oy, oox, ooy, onCurve, sp, ep, f;
};

struct fsg_ElementInfo {
  FS_ULONG stackBaseOffset;
  fsg_OffsetInfo offsets[2];
  fnt_ElementType interpreterElements[2];  // 0 twilight, 1 glyph
};

// Metrics of the glyph being fetched, font units.
struct fsg_Metrics {
  FS_LONG lsb_x, lsb_y, rsb_x, rsb_y;
  FS_LONG lsb, aw;
  FS_LONG tsb_x, tsb_y, bsb_x, bsb_y;
  FS_LONG tsb, ah;
  FS_BOOLEAN useMyMetrics;
};

// Key states.
const FS_SHORT KEY_INITIALISED = 1;
const FS_SHORT KEY_SFNT_READY = 2;
const FS_SHORT KEY_TRANSFORM_READY = 4;

// The scaler's per-scaled-font key. A null `maxp` tells the scaler to
// rebuild the key from the scaled font's matrix (the reclaim ladder sets it
// when the font's data goes).
struct fsg_SplineKey {
  SFNT* sfnt;
  TTF_MAXP* maxp;
  FS_USHORT glyphIndex;        // the top glyph of the fetch under way
  FS_BYTE* memoryBases[4];     // 1 the key, 3 the private font space
  fsg_ElementInfo elementInfoRec;
  FS_USHORT emResolution;
  FS_FIXED fixedPointSize;
  FS_FIXED interpScalar, metricScalar;  // of the CVT's axis
  FS_FIXED interpScalarX, interpScalarY, metricScalarX, metricScalarY;
  scale_rec scaleX, scaleY, scaleCVT;
  FS_FIXED cvtStretchX, cvtStretchY;
  FS_FIXED currentTMatrix[3][3];  // what is left of the scale after scaleX/Y
  FS_BOOLEAN identityTransformation;
  FS_USHORT fontFlags;  // head.flags
  FS_FIXED pixelDiameter;
  FS_SHORT state;
  FS_ULONG scanControl;
  FS_ULONG offset_storage, offset_controlValues;
  FS_LONG cvtCount;
  FS_USHORT numberOf_LongHorMetrics;
  FS_USHORT max_contours, max_points;  // element room, phantoms not counted
  FS_USHORT max_twilight;
  FS_USHORT num_comps, num_contours, num_points;
  FS_BOOLEAN localTIsIdentity;
  FIXED_VECTOR tInfo;
  FS_BOOLEAN executePrePgm, executeFontPgm, read_programs;
  FS_BOOLEAN useMyMetrics;
  FS_USHORT programs_run;  // glyph programs of this fetch that had bytes
  fsg_Metrics metrics;  // of the top glyph
  FS_ULONG loca_length, hmtx_length, vmtx_length;
  FS_ULONG workspace_need, private_size;
  FS_FIXED user_scale[4];  // s00, s01, s10, s11
  CFF_DATA cffdata;        // the charstring interpreter's, for CFF fonts
  fnt_GlobalGraphicStateType globalGS;  // the instruction interpreter's
  RTGAH_DATA rtgah;  // the autohinter's, behind globalGS.rtgah_data
};

// Splits a scale into pixels per em along x and y (16.16, magnitudes) and
// the tangent of its shear. A non-diagonal scale with an entry of magnitude
// 0x40000000 or more is 502; a column of zeros or two parallel columns 503.
// Returns 0 or the error.
FS_LONG get_scale_inputs(FS_FIXED* scale, FS_FIXED* xppm, FS_FIXED* yppm,
                         FS_FIXED* tan_s);

// Italicises `scale` (s00, s01, s10, s11) by the tangent tan_i_a: the
// shear grows so that the combined slant is that of both. Returns 0 or the
// error of get_scale_inputs, leaving the scale unchanged then.
FS_LONG modify_scale(FS_FIXED* scale, FS_FIXED tan_i_a);

// Checks a scale against a font's box: clears FLAGS_LARGE_SCALE, gives 502
// for pixels per em below 1.0 or an entry or scaled box corner at 0x40000000
// or more, 304 without `head`, and sets FLAGS_LARGE_SCALE when a corner
// reaches 0x10000000. Returns 0 or the error, also in `error`.
FS_LONG check_scale(FS_STATE* state, TTF_HEAD* head, FS_FIXED s00,
                    FS_FIXED s01, FS_FIXED s10, FS_FIXED s11);

// Builds the scaled environment and key of a TrueType `sfnt` at the scale
// (s00, s01, s10, s11). Loads the font when needed. Returns 0, or the error
// (201, 304, 405, 502, 503, 436 for a font with no TrueType outlines), with
// nothing left allocated.
FS_LONG scale_font_ttf(FS_STATE* state, SFNT* sfnt, FS_FIXED s00, FS_FIXED s01,
                       FS_FIXED s10, FS_FIXED s11);

// Makes sure the client's current scaled font is ready for glyph work:
// 302 without one, 303 without its loaded font, 304 when that can't be
// loaded; builds a missing environment. Returns 0 or the error.
FS_LONG check_sfnt(FS_STATE* state);

// Works out the workspace and private space the key needs for its
// max_points, max_contours and max_twilight (workspace_need, private_size).
void fsg_size_key(fsg_SplineKey* key, TTF* ttf);

// Grows the server's workspace to the key's workspace_need; the old block
// and what it held go. Returns 0 or the heap's error.
FS_LONG fsg_grow_workspace(FS_STATE* state, fsg_SplineKey* key);

// Frees a key of a TrueType font with its private space. Accepts null.
void delete_key(FS_STATE* state, void* key);

// Loads a font's data through load_fnt when it is not loaded: 0, or the
// loader's error (304 when the loader gives none).
FS_LONG scaler_load_font(FS_STATE* state, LFNT* lfnt);

#endif
