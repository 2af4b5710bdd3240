// The engine's glue to the distance-field renderer: the renderer instance of
// each client, the contrast (CSM) values a glyph is drawn with, chosen from
// the client's settings or the font's `adfh` table, and the glyph calls that
// turn a scaled outline into a distance-field graymap or a distance map.
#ifndef ORVEX_INTERNAL_ADF_H
#define ORVEX_INTERNAL_ADF_H

#include "Orvex_internal/adfrender.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_state.h"

struct TTF;

// Starts the renderer for a client and sets the contrast defaults: inside
// cut-off 0.4 (26214), outside -0.56 (-36700), gamma 1.0, adjustments 0.
// Returns 0 or 201 when the renderer instance can't be made.
FS_LONG startADF(FS_STATE* state);

// Stops the renderer for a client.
void stopADF(FS_STATE* state);

// The client's contrast values. Returns 0.
FS_LONG FS_set_csm(FS_STATE* state, ADF_F32 insideCutoff,
                   ADF_F32 outsideCutoff, ADF_F32 gamma);
// The values glyph `index` is drawn with: without FLAGS_DEFAULT_CSM_ON and
// with a TrueType font at hand, the font's `adfh` record for the size (an
// `adfh` of unknown version leaves 441 in `error`); otherwise the client's.
// 521 for a null output.
FS_LONG FS_get_csm(FS_STATE* state, FS_ULONG index, ADF_F32* insideCutoff,
                   ADF_F32* outsideCutoff, ADF_F32* gamma);
// Keeps the four inputs and derives the adjustments at the current size:
// with S = sharpnessOffset + lpm sharpnessSlope and T = thicknessOffset +
// lpm thicknessSlope, insideCutoffAdj = -(T + S), outsideCutoffAdj = S - T.
FS_LONG FS_set_csm_adjustments(FS_STATE* state, ADF_F32 sharpnessOffset,
                               ADF_F32 sharpnessSlope, ADF_F32 thicknessOffset,
                               ADF_F32 thicknessSlope);
FS_LONG FS_get_csm_adjustments(FS_STATE* state, ADF_F32* sharpnessOffset,
                               ADF_F32* sharpnessSlope,
                               ADF_F32* thicknessOffset,
                               ADF_F32* thicknessSlope);

// Fills the cut-offs and gamma of `attrs` for glyph `glyph_index` at the
// client's lpm: the client's values, replaced by the last `adfh` record of
// the glyph's range whose size is at or below lpm. An unknown version sets
// 441; data past the table's end counts as absent.
void adfGetCSMValues(FS_STATE* state, const TTF* ttf, FS_ULONG glyph_index,
                     ADFRenderAttrs* attrs);

// Edge-hinting selector of glyph `glyph_index` for the alignment-zone
// hinters. Every output is zeroed first; no `adfh` leaves them so; an
// unknown version sets 441.
void adfGetEdgeHintData(FS_STATE* state, const TTF* ttf, FS_ULONG glyph_index,
                        FS_LONG* EdgeHintType, FS_LONG* noCenter,
                        FS_LONG* cvtstart, FS_LONG* numylines,
                        FS_LONG* isrighttoleft);

// 1 if `id` is among the numNoCenter sorted big-endian glyph indices at
// noCenterPtr, else 0.
FS_LONG searchNoCenterList(const FS_BYTE* noCenterPtr, FS_ULONG numNoCenter,
                           FS_ULONG id);

void adfSetDefaultRenderAttrs(ADFRenderAttrs* attrs);
void adfCopyRenderAttrs(const ADFRenderAttrs* from, ADFRenderAttrs* to);
// pointSize from the scaled font's y size; no rotation. Errors go to the
// client.
void adfComputeTypographicScaling(FS_STATE* state, SFNT* sfnt,
                                  ADFRenderAttrs* attrs);

// The distance-field graymap of glyph `index` (character `id`) of the
// current scaled font, through the cache. Types: 0x200, 0x400, 0x800 grey
// at 2, 4 and 8 bits (trimmed as the gray maps); 0x1000, 0x2000 horizontal
// and 0x4000, 0x8000 vertical LCD stripes at 4 and 8 bits a component, four
// components a pixel (red, green, blue, the largest). A sub-pixel type with
// an effect flag is 462.
FS_GRAYMAP* get_ADF_graymap(FS_STATE* state, FS_ULONG id, FS_USHORT index,
                            FS_USHORT type, FS_SHORT phasex, FS_SHORT phasey);
FS_GRAYMAP* make_ADF_graymap(FS_STATE* state, FS_OUTLINE* outl, FS_ULONG id,
                             FS_USHORT type);

// The stages. make_ADF_path gives null for an outline without points and
// then leaves the empty map with its advance in *g; a stroke font's dot (a
// line back to its move) becomes a vertical bar of one stroke width unless
// boldness or an outline effect rules it out.
ADFPath* make_ADF_path(FS_STATE* state, FS_OUTLINE* outl, FS_ULONG id,
                       FS_GRAYMAP** g, FS_FIXED* scaled_dx,
                       FS_FIXED* scaled_dy);
ADFGlyph* make_ADF_char(FS_STATE* state, ADFPath* adfPath);
ADFImage* make_ADF_density_image(FS_STATE* state, ADFGlyph* c,
                                 ADFRenderImageAttrs* imageAttrs,
                                 ADFTypesetAttrs* typesetAttrs);
FS_GRAYMAP* convert_to_graymap(FS_STATE* state, ADFImage* di,
                               FS_FIXED scaled_dx, FS_FIXED scaled_dy,
                               const ADFRenderImageAttrs* imageAttrs,
                               const ADFTypesetAttrs* typesetAttrs,
                               FS_USHORT type);
FS_GRAYMAP* trim_subpixel(FS_STATE* state, FS_GRAYMAP* gmap, FS_USHORT type);

// The distance map of a glyph: one byte a sample (type 8, bpl = width,
// untrimmed), 0 at -C, 255 at +C, where C = lpm * 0.16 + 1.0 pixels. The
// client's cut-offs are left at (C, -C, 1.0).
FS_GRAYMAP* get_distance_field(FS_STATE* state, FS_ULONG id, FS_USHORT index,
                               FS_SHORT phasex, FS_SHORT phasey);
FS_GRAYMAP* make_distance_field(FS_STATE* state, FS_OUTLINE* outl, FS_ULONG id);
FS_GRAYMAP* convert_to_distance_field(FS_STATE* state, ADFImage* di,
                                      FS_FIXED scaled_dx, FS_FIXED scaled_dy,
                                      const ADFRenderImageAttrs* imageAttrs,
                                      const ADFTypesetAttrs* typesetAttrs);

// The advance correction of pen snapping (zero unless the outline maker
// chose a grid-fit type).
void get_ADF_adjustments(FS_STATE* state, FS_OUTLINE* outl, FS_ULONG id,
                         FS_FIXED* adj_x, FS_FIXED* adj_y);

#endif
