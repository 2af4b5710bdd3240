// Distance-field glue: the client's renderer instance and contrast values,
// the `adfh` table, and the glyph calls that render a scaled outline through
// the distance-field renderer into engine graymaps.
#include "Orvex_internal/adf.h"

#include <stddef.h>
#include <string.h>

#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_effects.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_fixed.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_sbit.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const FS_ULONG kAdfhVersion1 = 0x00015000;
const FS_ULONG kAdfhVersion2 = 0x00020000;
const FS_ULONG kSubpixelEffects = 0x1FC | FLAGS_SOFTENED | FLAGS_ADD_WEIGHT;
const FS_ULONG kOutlineEffects = 0xBC;  // emboss, engrave, 1- or 2-pixel outline
const FS_USHORT kHeaderBytes = (FS_USHORT)offsetof(FS_BITMAP, bits);

// Bounded big-endian reads of the `adfh` table: false past its end.
struct Adfh {
  const FS_BYTE* p;
  FS_ULONG n;
  bool u16(FS_ULONG off, FS_USHORT* v) const {
    if (off > n || n - off < 2) return false;
    *v = get_u16(p + off);
    return true;
  }
  bool s32(FS_ULONG off, FS_LONG* v) const {
    if (off > n || n - off < 4) return false;
    *v = get_s32(p + off);
    return true;
  }
};

// The table of `ttf` with its version checked: false when absent or cut
// before the version, and with 441 for an unknown version.
bool open_adfh(FS_STATE* state, const TTF* ttf, Adfh* t, FS_ULONG* version) {
  if (ttf == nullptr || ttf->adfh == nullptr) return false;
  *t = {ttf->adfh, ttf->adfh_size};
  FS_LONG v = 0;
  if (!t->s32(0, &v)) return false;
  *version = (FS_ULONG)v;
  if (*version != kAdfhVersion1 && *version != kAdfhVersion2) {
    state->error = ERR_FORMAT_NOT_SUPPORTED;
    return false;
  }
  return true;
}

TTF* current_ttf(FS_STATE* state) {
  return state->cur_lfnt ? (TTF*)state->cur_lfnt->fnt : nullptr;
}

TFNT* current_tfnt(FS_STATE* state) {
  TYPESET* ts = &state->cur_typeset;
  if (ts->tfntarray == nullptr || state->cur_font >= ts->capacity) return nullptr;
  return &ts->tfntarray[state->cur_font];
}

FS_SHORT round_px(FS_FIXED v) { return (FS_SHORT)((v + 32768) >> 16); }

// An empty map of header size: only the advance.
FS_GRAYMAP* empty_graymap(FS_STATE* state, FS_FIXED dx, FS_FIXED dy) {
  FS_GRAYMAP* g = (FS_GRAYMAP*)FSS_calloc(state, sizeof(FS_GRAYMAP));
  if (g == nullptr) return nullptr;
  g->size = (FS_LONG)sizeof(FS_GRAYMAP);
  g->dx = dx;
  g->dy = dy;
  bool both = dx != 0 && dy != 0;
  g->i_dx = both ? 0 : round_px(dx);
  g->i_dy = both ? 0 : round_px(dy);
  g->bitsPerPixel = 8;
  return g;
}

// A map of width x height with bpl bytes a row, its advance set.
FS_GRAYMAP* new_graymap(FS_STATE* state, FS_LONG width, FS_LONG height,
                        FS_LONG bpl, FS_FIXED dx, FS_FIXED dy) {
  FS_LONG size = kHeaderBytes + bpl * height;
  if (size < (FS_LONG)sizeof(FS_GRAYMAP)) size = (FS_LONG)sizeof(FS_GRAYMAP);
  FS_GRAYMAP* g = (FS_GRAYMAP*)FSS_calloc(state, (FS_ULONG)size);
  if (g == nullptr) return nullptr;
  g->size = size;
  g->width = (FS_SHORT)width;
  g->height = (FS_SHORT)height;
  g->bpl = (FS_SHORT)bpl;
  g->dx = dx;
  g->dy = dy;
  return g;
}

// The advance of a map from an image box: pen-snapped scales when the
// outline maker asked for grid fitting; whole pixels only for an advance
// along one axis.
void set_advance(FS_STATE* state, FS_GRAYMAP* g, FS_FIXED dx, FS_FIXED dy,
                 const ADFTypesetAttrs* ta) {
  if (state->adfGridFitType != 0 && dx != 0 && dy != 0) {
    dx = varmul_64(dx, ta->adjFUToPixelScaleX, 16) + ta->gridAlgnAdjX;
    dy = varmul_64(dy, ta->adjFUToPixelScaleY, 16) + ta->gridAlgnAdjY;
  }
  g->dx = dx;
  g->dy = dy;
  bool both = dx != 0 && dy != 0;
  g->i_dx = both ? 0 : round_px(dx);
  g->i_dy = both ? 0 : round_px(dy);
}

// Component depth and cache kind of an ADF type; 0 for others.
int type_bits(FS_USHORT type) {
  switch (type) {
    case FS_MAP_EDGE_GRAYMAP4: return 4;
    case FS_MAP_EDGE_GRAYMAP8: return 8;
    case FS_MAP_EDGE_GRAYMAP2: return 2;
    case FS_MAP_ADF_4: return 4;
    case FS_MAP_ADF_8: return 8;
    case FS_MAP_ADF_4B: return 4;
    case FS_MAP_ADF_8B: return 8;
    default: return 0;
  }
}

FS_USHORT cache_kind(FS_USHORT type) {
  switch (type) {
    case FS_MAP_EDGE_GRAYMAP4: return 32537;
    case FS_MAP_EDGE_GRAYMAP2: return 32533;
    case FS_MAP_ADF_4: return 32507;
    case FS_MAP_ADF_8: return 32503;
    case FS_MAP_ADF_4B: return 32497;
    case FS_MAP_ADF_8B: return 32491;
    default: return 32531;
  }
}

// The display mode of a type and the type it renders as.
ADF_U32 display_mode(FS_USHORT* type) {
  FS_ULONG t = *type & ~(FS_ULONG)FS_MAP_RASTER_ICON;
  ADF_U32 mode = ADF_REND_MODE_GREY;
  if ((t & 0xFFFF00FF) || (t & 0x0F00)) {
    t %= 4096;
  } else if (t > 4095) {
    mode = (t & (FS_MAP_ADF_4 | FS_MAP_ADF_8)) ? ADF_REND_MODE_HSTRIPES
                                              : ADF_REND_MODE_VSTRIPES;
    t &= 0xF000;
  }
  *type = (FS_USHORT)t;
  return mode;
}

// Path, glyph and density image of an outline in one display mode. Null
// with *g holding the empty map (no points) or the error.
ADFImage* render_outline(FS_STATE* state, FS_OUTLINE* outl, FS_ULONG id,
                         ADF_U32 mode, FS_GRAYMAP** g, FS_FIXED* dx,
                         FS_FIXED* dy, ADFRenderImageAttrs* ria,
                         ADFTypesetAttrs* ta) {
  *g = nullptr;
  ADFPath* path = make_ADF_path(state, outl, id, g, dx, dy);
  if (path == nullptr) return nullptr;
  ADFGlyph* c = make_ADF_char(state, path);
  if (c == nullptr) return nullptr;
  ria->displayMode = mode;
  return make_ADF_density_image(state, c, ria, ta);
}

// Whether the client's or the component's boldness applies.
bool emboldened(FS_STATE* state) {
  TFNT* t = current_tfnt(state);
  return state->bold_pct != 0 || (t && t->cfnt && t->cfnt->bold_pct != 0);
}

// Whether a stroke font's dots are stretched: without boldness unless the
// font's flags 0x100 or 0x40 say otherwise; with it, only where the
// strokes get pixel boldness (added weight, or small sizes of a 64-unit
// stroke font) and no outline effect is on.
bool extend_dots(FS_STATE* state) {
  FS_ULONG ff = state->cur_lfnt->fontflags;
  if (!emboldened(state)) return !(ff & (FONTFLAG_ADFH | FONTFLAG_STIK_64));
  if (state->flags & kOutlineEffects) return false;
  return (state->flags & FLAGS_ADD_WEIGHT) || ((ff & FONTFLAG_STIK_64) && state->lpm < 27);
}

// Effects that refuse sub-pixel types, and whose presence keeps a strike
// glyph's map in the cache.
bool effects_on(FS_STATE* state) { return (state->flags & kSubpixelEffects) != 0; }

// The font's own gray glyph for an ADF `type`, when a strike of a font of
// the TrueType family serves: emboldened by its own pixel rule and given
// the client's effects; kept under `kind` if the font is a file or effects
// are on. A colour glyph goes to the icon cache as it is. Null with the
// error of a refused strike glyph, or with 0 when none serves.
FS_GRAYMAP* embedded_ADF_graymap(FS_STATE* state, FS_USHORT index, FS_USHORT type,
                                 FS_USHORT kind, FS_SHORT phase) {
  LFNT* lfnt = state->cur_lfnt;
  FS_GRAYMAP* g = get_embedded_graymap(state, state->cur_sfnt, index, type);
  if (g == nullptr) return nullptr;
  if (g->bitsPerPixel == 32) {
    save_raster_icon_to_cache(state, index, g);
    return g;
  }
  FS_GRAYMAP* bold = pixelbold_embedded_graymap(state, g);
  if (bold == nullptr) FSS_free(state, g);  // a failed effect leaves the map here
  g = bold ? apply_image_effects(state, bold) : nullptr;
  if (g == nullptr) {
    if (state->error == 0) state->error = ERR_MALLOC_FAIL;
    return nullptr;
  }
  if (lfnt->path != nullptr || effects_on(state)) save_to_cache(state, kind, index, phase, g);
  return g;
}

FS_GRAYMAP* draw_distance_field(FS_STATE* state, FS_OUTLINE* outl, FS_ULONG id,
                                FS_USHORT type) {
  (void)type;
  return make_distance_field(state, outl, id);
}

}  // namespace

/* ---- Instance and contrast values ---- */

FS_LONG startADF(FS_STATE* state) {
  state->libInst = ADFInitSystem(state);
  if (state->libInst == nullptr) return (FS_LONG)state->error;
  FS_set_csm(state, 26214, -36700, 65536);
  FS_set_csm_adjustments(state, 0, 0, 0, 0);
  return 0;
}

void stopADF(FS_STATE* state) {
  ADFTermSystem(state->libInst);
  state->libInst = nullptr;
}

FS_LONG FS_set_csm(FS_STATE* state, ADF_F32 insideCutoff,
                   ADF_F32 outsideCutoff, ADF_F32 gamma) {
  state->insideCutoff = insideCutoff;
  state->outsideCutoff = outsideCutoff;
  state->gamma = gamma;
  state->error = 0;
  return 0;
}

FS_LONG FS_get_csm(FS_STATE* state, FS_ULONG index, ADF_F32* insideCutoff,
                   ADF_F32* outsideCutoff, ADF_F32* gamma) {
  if (insideCutoff == nullptr || outsideCutoff == nullptr || gamma == nullptr) {
    state->error = ERR_BAD_ARGUMENT;
    return ERR_BAD_ARGUMENT;
  }
  state->error = 0;
  TTF* ttf = current_ttf(state);
  if (!(state->flags & FLAGS_DEFAULT_CSM_ON) && ttf != nullptr) {
    ADFRenderAttrs a;
    adfSetDefaultRenderAttrs(&a);
    adfGetCSMValues(state, ttf, index, &a);
    *insideCutoff = a.insideCutoff;
    *outsideCutoff = a.outsideCutoff;
    *gamma = a.gamma;
  } else {
    *insideCutoff = state->insideCutoff;
    *outsideCutoff = state->outsideCutoff;
    *gamma = state->gamma;
  }
  return 0;
}

FS_LONG FS_set_csm_adjustments(FS_STATE* state, ADF_F32 sharpnessOffset,
                               ADF_F32 sharpnessSlope, ADF_F32 thicknessOffset,
                               ADF_F32 thicknessSlope) {
  state->sharpnessOffset = sharpnessOffset;
  state->sharpnessSlope = sharpnessSlope;
  state->thicknessOffset = thicknessOffset;
  state->thicknessSlope = thicknessSlope;
  ADF_F32 s = sharpnessOffset + (ADF_F32)state->lpm * sharpnessSlope;
  ADF_F32 t = thicknessOffset + (ADF_F32)state->lpm * thicknessSlope;
  state->insideCutoffAdj = -(t + s);
  state->outsideCutoffAdj = s - t;
  state->error = 0;
  return 0;
}

FS_LONG FS_get_csm_adjustments(FS_STATE* state, ADF_F32* sharpnessOffset,
                               ADF_F32* sharpnessSlope,
                               ADF_F32* thicknessOffset,
                               ADF_F32* thicknessSlope) {
  if (!sharpnessOffset || !sharpnessSlope || !thicknessOffset || !thicknessSlope) {
    state->error = ERR_BAD_ARGUMENT;
    return ERR_BAD_ARGUMENT;
  }
  *sharpnessOffset = state->sharpnessOffset;
  *sharpnessSlope = state->sharpnessSlope;
  *thicknessOffset = state->thicknessOffset;
  *thicknessSlope = state->thicknessSlope;
  state->error = 0;
  return 0;
}

/* ---- The adfh table ---- */

void adfGetCSMValues(FS_STATE* state, const TTF* ttf, FS_ULONG glyph_index,
                     ADFRenderAttrs* attrs) {
  attrs->insideCutoff = state->insideCutoff;
  attrs->outsideCutoff = state->outsideCutoff;
  attrs->gamma = state->gamma;
  Adfh t;
  FS_ULONG version;
  FS_USHORT ranges = 0;
  if (!open_adfh(state, ttf, &t, &version) || !t.u16(4, &ranges) || ranges == 0)
    return;
  FS_ULONG entries = 8 + 4 * (FS_ULONG)ranges;
  FS_USHORT offset = 0;
  bool found = false;
  for (FS_ULONG i = 0; i < ranges && !found; i++) {
    FS_USHORT end;
    if (!t.u16(8 + 4 * i, &end) || !t.u16(10 + 4 * i, &offset)) return;
    found = end >= glyph_index;
  }
  if (!found) return;
  FS_ULONG at = entries + offset;
  FS_USHORT records;
  if (!t.u16(at, &records)) return;
  for (FS_ULONG r = 0; r < records; r++) {
    FS_ULONG rec = at + 2 + 14 * r;
    FS_USHORT size;
    FS_LONG in, out, gamma;
    if (!t.u16(rec, &size) || !t.s32(rec + 2, &in) || !t.s32(rec + 6, &out) ||
        !t.s32(rec + 10, &gamma))
      return;
    if (size > state->lpm) return;
    attrs->insideCutoff = in;
    attrs->outsideCutoff = out;
    attrs->gamma = gamma;
  }
}

FS_LONG searchNoCenterList(const FS_BYTE* noCenterPtr, FS_ULONG numNoCenter,
                           FS_ULONG id) {
  if (noCenterPtr == nullptr || numNoCenter == 0) return 0;
  FS_ULONG lo = 0, hi = numNoCenter - 1;
  if (numNoCenter >= 32) {
    int selector = 0;
    while (selector < 16 && (2UL << selector) <= numNoCenter) selector++;
    for (int i = 0; i < selector; i++) {
      FS_ULONG mid = (lo + hi) >> 1;
      if (get_u16(noCenterPtr + 2 * mid) <= id)
        lo = mid;
      else
        hi = mid;
    }
  }
  for (FS_ULONG i = lo; i <= hi; i++) {
    FS_ULONG v = get_u16(noCenterPtr + 2 * i);
    if (v == id) return 1;
    if (v > id) return 0;
  }
  return 0;
}

void adfGetEdgeHintData(FS_STATE* state, const TTF* ttf, FS_ULONG glyph_index,
                        FS_LONG* EdgeHintType, FS_LONG* noCenter,
                        FS_LONG* cvtstart, FS_LONG* numylines,
                        FS_LONG* isrighttoleft) {
  *EdgeHintType = *noCenter = *cvtstart = *numylines = *isrighttoleft = 0;
  Adfh t;
  FS_ULONG version;
  if (!open_adfh(state, ttf, &t, &version)) return;
  FS_USHORT ranges = 0, entryBytes = 0, numNoCenter = 0, numAlz = 0;
  if (!t.u16(4, &ranges) || !t.u16(6, &entryBytes)) return;
  FS_ULONG pos = 8 + 4 * (FS_ULONG)ranges + entryBytes;
  if (!t.u16(pos, &numNoCenter)) return;
  FS_ULONG list = pos + 2;
  // Entries past the end are absent: the list is cut to what is there.
  FS_ULONG have = list <= t.n ? (t.n - list) / 2 : 0;
  FS_ULONG listCount = numNoCenter < have ? numNoCenter : have;
  pos = list + 2 * (FS_ULONG)numNoCenter;
  FS_USHORT start = 65535, zone = 0;
  if (t.u16(pos, &numAlz)) {
    for (FS_ULONG i = 0; i < numAlz; i++) {
      FS_USHORT s, e, ix;
      FS_ULONG at = pos + 2 + 6 * i;
      if (!t.u16(at, &s) || !t.u16(at + 2, &e) || !t.u16(at + 4, &ix)) break;
      if (e >= glyph_index) {
        start = s;
        zone = ix;
        break;
      }
    }
  }
  FS_LONG nc = searchNoCenterList(t.p + list, listCount, glyph_index);
  if (version == kAdfhVersion1) {
    if (start <= glyph_index) {
      *EdgeHintType = 0;
    } else {
      *EdgeHintType = 3;
      *noCenter = nc;
    }
    return;
  }
  if (zone == 65535 || start > glyph_index) {
    *EdgeHintType = 3;
    *noCenter = nc;
    return;
  }
  *EdgeHintType = 4;
  FS_ULONG recs = pos + 2 + 6 * (FS_ULONG)numAlz;
  FS_USHORT count = 0;
  if (!t.u16(recs, &count)) return;
  FS_LONG n = (FS_SHORT)count;
  FS_LONG ix = zone > n ? 0 : zone;
  FS_ULONG at = recs + 2 + 8 * (FS_ULONG)ix;
  FS_USHORT a = 0, b = 0, c = 0;
  if (!t.u16(at, &a) || !t.u16(at + 2, &b) || !t.u16(at + 4, &c)) return;
  *cvtstart = (FS_SHORT)a;
  *numylines = (FS_SHORT)b;
  *isrighttoleft = (FS_SHORT)c;
}

/* ---- Render attributes ---- */

void adfSetDefaultRenderAttrs(ADFRenderAttrs* a) {
  memset(a, 0, sizeof(*a));
  a->dpi = 72;
  a->scaleX = a->scaleY = 65536;
  a->gamma = 1;  // replaced before any render
}

void adfCopyRenderAttrs(const ADFRenderAttrs* from, ADFRenderAttrs* to) {
  *to = *from;
}

void adfComputeTypographicScaling(FS_STATE* state, SFNT* sfnt,
                                  ADFRenderAttrs* attrs) {
  FS_FIXED xppm = 0, yppm = 0, tan_s = 0;
  FS_LONG err = get_scale_inputs(sfnt->user_scale, &xppm, &yppm, &tan_s);
  if (err != 0) {
    state->error = (FS_ULONG)err;
    return;
  }
  attrs->pointSize = yppm;
  attrs->rotationAngle = 0;
}

/* ---- Stages ---- */

ADFPath* make_ADF_path(FS_STATE* state, FS_OUTLINE* outl, FS_ULONG id,
                       FS_GRAYMAP** g, FS_FIXED* scaled_dx,
                       FS_FIXED* scaled_dy) {
  *scaled_dx = outl->dx;
  *scaled_dy = outl->dy;
  if (outl->np <= 0 || outl->num <= 0) {
    *g = empty_graymap(state, outl->dx, outl->dy);
    return nullptr;
  }
  FS_ULONG n = (FS_ULONG)outl->num;
  ADFPath* path = (ADFPath*)ADFCalloc(state->libInst,
                                      sizeof(ADFPath) + n * sizeof(ADFPenCmd));
  if (path == nullptr) return nullptr;
  path->penCmds = (ADFPenCmd*)(path + 1);
  path->fontUnitsPerEM = (ADF_F32)state->lpm << 16;
  path->charCode = id;
  path->numContours = (ADF_U32)(outl->nc > 0 ? outl->nc : 0);
  path->numPenCmds = (ADF_U32)n;
  LFNT* lfnt = state->cur_lfnt;
  bool stroke = lfnt && (lfnt->fontflags & FONTFLAG_STROKE) &&
                !(outl->type[0] & FS_OUTLINE_FILLED);
  if (stroke) {
    path->pathType = ADF_PATH_STROKE;
    ADF_F32 w = (ADF_F32)state->stroke_pct * state->lpm;
    if (state->flags & kOutlineEffects) {
      if (w < 65536) w = 65536;
      w = (w + 32768) & ~0xFFFF;
    }
    path->pathWidth = w;
  }
  // Half a stroke width, to 1/64 pixel: a dot of a stroke font is drawn as
  // a vertical bar of one stroke width.
  const FS_FIXED ext = stroke && extend_dots(state)
      ? (FS_FIXED)((((FS_INT64)state->lpm * state->stroke_pct + 512) >> 10) / 2 * 1024)
      : 0;
  ADFPenCmd* move = nullptr;
  FS_FIXED move_x = 0, move_y = 0;
  FS_LONG pt = 0;
  const FS_LONG np = outl->np;
  bool first = true;
  for (FS_ULONG i = 0; i < n; i++) {
    ADFPenCmd* c = &path->penCmds[i];
    c->opCode = outl->type[i] & 3;
    FS_LONG need = c->opCode == 2 ? 2 : c->opCode == 3 ? 3 : 1;
    if (pt + need > np) {  // element codes beyond the points: cut here
      path->numPenCmds = (ADF_U32)i;
      break;
    }
    if (c->opCode == ADF_CURVETO) {
      c->cx = outl->x[pt], c->cy = outl->y[pt], pt++;
    } else if (c->opCode == ADF_CUBICTO) {
      c->cx = outl->x[pt], c->cy = outl->y[pt], pt++;
      c->cx2 = outl->x[pt], c->cy2 = outl->y[pt], pt++;
    }
    c->x = outl->x[pt], c->y = outl->y[pt], pt++;
    if (c->opCode == ADF_MOVETO) {
      move = c, move_x = c->x, move_y = c->y;
    } else if (ext != 0 && outl->type[i] == FS_LINETO && move != nullptr &&
               c->x == move_x && c->y == move_y) {
      move->y = move_y - ext;
      c->y = move_y + ext;
      if (move->y < path->glyphMinY) path->glyphMinY = move->y;
    }
    if (first) {
      path->glyphMinX = path->glyphMaxX = c->x;
      path->glyphMinY = path->glyphMaxY = c->y;
      first = false;
    }
    if (c->x < path->glyphMinX) path->glyphMinX = c->x;
    if (c->x > path->glyphMaxX) path->glyphMaxX = c->x;
    if (c->y < path->glyphMinY) path->glyphMinY = c->y;
    if (c->y > path->glyphMaxY) path->glyphMaxY = c->y;
  }
  if (path->numPenCmds == 0) {
    ADFFree(state->libInst, path);
    *g = empty_graymap(state, outl->dx, outl->dy);
    return nullptr;
  }
  return path;
}

ADFGlyph* make_ADF_char(FS_STATE* state, ADFPath* adfPath) {
  ADFGlyph* c = ADFGenerateADF(state->libInst, adfPath);
  ADFFree(state->libInst, adfPath);
  return c;
}

ADFImage* make_ADF_density_image(FS_STATE* state, ADFGlyph* c,
                                 ADFRenderImageAttrs* imageAttrs,
                                 ADFTypesetAttrs* typesetAttrs) {
  ADFRenderAttrs a;
  TFNT* tfnt = current_tfnt(state);
  if (tfnt != nullptr)
    adfCopyRenderAttrs(&tfnt->adfRenderAttrs, &a);
  else
    adfSetDefaultRenderAttrs(&a);
  if (a.pointSize == 0) a.pointSize = (ADF_F32)state->lpm << 16;
  if (state->flags & FLAGS_DEFAULT_CSM_ON) {
    a.insideCutoff = state->insideCutoff + state->insideCutoffAdj;
    a.outsideCutoff = state->outsideCutoff + state->outsideCutoffAdj;
    a.gamma = state->gamma;
  }
  if (a.insideCutoff < a.outsideCutoff) {
    if (a.outsideCutoff >= 0)
      a.insideCutoff = a.outsideCutoff = 0;
    else
      a.insideCutoff = a.outsideCutoff;
  }
  a.displayMode = imageAttrs->displayMode;
  a.gridFitType = state->adfGridFitType;
  ADFRenderGlyphData rgd;
  ADFRenderSetup(c, &a, &rgd, imageAttrs, typesetAttrs);
  ADF_U16 kind = a.displayMode == ADF_REND_MODE_GREY ? ADF_IMAGE_TYPE_GREY
                                                     : ADF_IMAGE_TYPE_RGBA;
  ADFImage* image = ADFCreateImage(state->libInst, kind, imageAttrs->imageW,
                                   imageAttrs->imageH, 0);
  if (image != nullptr) ADFRenderGlyph(state->libInst, c, &rgd, image);
  ADFDestroyADF(state->libInst, c);
  return image;
}

FS_GRAYMAP* convert_to_graymap(FS_STATE* state, ADFImage* di,
                               FS_FIXED scaled_dx, FS_FIXED scaled_dy,
                               const ADFRenderImageAttrs* ria,
                               const ADFTypesetAttrs* ta, FS_USHORT type) {
  int bits = type_bits(type);
  if (bits == 0) bits = 8;
  FS_LONG comps = di->type == ADF_IMAGE_TYPE_RGBA ? 4 : 1;
  FS_LONG w = di->w, h = di->h;
  FS_LONG bpl = (w * comps * bits + 7) / 8;
  if (bpl > 0x7FFF || w > 0x7FFF || h > 0x7FFF) {  // beyond the map record
    state->error = ERR_MALLOC_FAIL;
    return nullptr;
  }
  FS_GRAYMAP* g = new_graymap(state, w, h, bpl, 0, 0);
  if (g == nullptr) return nullptr;
  g->bitsPerPixel = (FS_SHORT)(bits * comps);
  g->type = type;
  g->lo_x = (FS_SHORT)ria->imageOriginX;
  g->hi_y = (FS_SHORT)(h + ria->imageOriginY);
  set_advance(state, g, scaled_dx, scaled_dy, ta);
  FS_LONG samples = w * comps;
  for (FS_LONG r = 0; r < h; r++) {
    const ADF_U8* src = di->base + (h - 1 - r) * samples;
    FS_BYTE* dst = g->bits + r * bpl;
    for (FS_LONG s = 0; s < samples; s++) {
      FS_BYTE v = src[s];
      if (bits == 8) {
        dst[s] = v;
      } else if (bits == 4) {
        dst[s >> 1] |= (FS_BYTE)((v >> 4) << ((s & 1) ? 0 : 4));
      } else {
        dst[s >> 2] |= (FS_BYTE)((v >> 6) << (6 - 2 * (s & 3)));
      }
    }
  }
  return g;
}

FS_GRAYMAP* trim_subpixel(FS_STATE* state, FS_GRAYMAP* gmap, FS_USHORT type) {
  (void)type;
  if (gmap == nullptr || (gmap->bitsPerPixel != 16 && gmap->bitsPerPixel != 32))
    return gmap;
  FS_LONG bpl = gmap->bpl, h = gmap->height;
  auto blank = [&](FS_LONG r) {
    for (FS_LONG i = 0; i < bpl; i++)
      if (gmap->bits[r * bpl + i] != 0) return false;
    return true;
  };
  FS_LONG top = 0, bottom = h;
  while (top < h && blank(top)) top++;
  while (bottom > top && blank(bottom - 1)) bottom--;
  if (top == 0 && bottom == h) return gmap;
  FS_LONG rows = bottom - top;
  FS_GRAYMAP* t = new_graymap(state, rows ? gmap->width : 0, rows, bpl,
                              gmap->dx, gmap->dy);
  if (t == nullptr) {
    state->error = 0;
    return gmap;
  }
  FS_LONG size = t->size;
  memcpy(t, gmap, kHeaderBytes);
  t->cache_ptr = nullptr;
  t->size = size;
  t->height = (FS_SHORT)rows;
  if (rows == 0) t->width = 0;
  t->hi_y = (FS_SHORT)(gmap->hi_y - top);
  memcpy(t->bits, gmap->bits + top * bpl, (size_t)(rows * bpl));
  FSS_free(state, gmap);
  return t;
}

FS_GRAYMAP* make_ADF_graymap(FS_STATE* state, FS_OUTLINE* outl, FS_ULONG id,
                             FS_USHORT type) {
  // Stroke skeletons would be fitted to the grid or expanded here; stroke
  // fonts are drawn from their outline as it is.
  FS_USHORT requested = (FS_USHORT)(type & ~FS_MAP_RASTER_ICON);
  FS_USHORT t = requested;
  ADF_U32 mode = display_mode(&t);
  FS_GRAYMAP* g = nullptr;
  FS_FIXED dx = 0, dy = 0;
  ADFRenderImageAttrs ria = {};
  ADFTypesetAttrs ta = {};
  ADFImage* di = render_outline(state, outl, id, mode, &g, &dx, &dy, &ria, &ta);
  if (di == nullptr) return g;
  if (t > 4095) {
    g = convert_to_graymap(state, di, dx, dy, &ria, &ta, t);
    ADFDestroyImage(state->libInst, di);
    return trim_subpixel(state, g, t);
  }
  g = convert_to_graymap(state, di, dx, dy, &ria, &ta, FS_MAP_EDGE_GRAYMAP8);
  ADFDestroyImage(state->libInst, di);
  if (g == nullptr) return nullptr;
  if (outl->i_dx == 0) g->i_dx = 0;
  if (outl->i_dy == 0) g->i_dy = 0;
  bool cut_early = t == FS_MAP_EDGE_GRAYMAP2;
  if (cut_early) {
    g = trim_convert(state, g, FS_MAP_EDGE_GRAYMAP2);
    if (g == nullptr) return nullptr;
  }
  g = apply_graymap_effects(state, g);
  if (g == nullptr) return nullptr;
  if (state->error != 0) {
    FSS_free(state, g);
    return nullptr;
  }
  if (cut_early) {
    g->type = t;
    return g;
  }
  if (t == 0xFE00) t = FS_MAP_EDGE_GRAYMAP4;
  FS_GRAYMAP* r = trim_convert(state, g, t);
  if (r != nullptr) r->type = t;
  return r;
}

/* ---- Glyph calls ---- */

FS_GRAYMAP* get_ADF_graymap(FS_STATE* state, FS_ULONG id, FS_USHORT index,
                            FS_USHORT type, FS_SHORT phasex, FS_SHORT phasey) {
  state->error = 0;
  if (type > 4095 && effects_on(state)) {
    state->error = ERR_ADF_TOO_LARGE;
    return nullptr;
  }
  TTF* ttf = current_ttf(state);
  TFNT* tfnt = current_tfnt(state);
  SFNT* sfnt = state->cur_sfnt;
  if (ttf == nullptr || tfnt == nullptr || sfnt == nullptr) {
    state->error = ERR_NO_CURRENT_SFNT;
    return nullptr;
  }
  FS_ULONG flags = state->flags;
  // A table the engine can't read leaves the client's values; that is no
  // error of the request.
  adfGetCSMValues(state, ttf, index, &tfnt->adfRenderAttrs);
  state->error = 0;
  tfnt->adfRenderAttrs.insideCutoff += state->insideCutoffAdj;
  tfnt->adfRenderAttrs.outsideCutoff += state->outsideCutoffAdj;
  state->flags |= FLAGS_GRAYSCALE;
  GraymapSteps steps = {cache_kind((FS_USHORT)(type & ~FS_MAP_RASTER_ICON)),
                        embedded_ADF_graymap, make_ADF_graymap, true};
  FS_GRAYMAP* g = get_cached_graymap(state, id, index, type, phasex, phasey, steps);
  if (g == nullptr && state->error == 0 && (ttf->glyf_size != 0 || ttf->cff != nullptr))
    state->error = ERR_MALLOC_FAIL;  // an outline or map that could not be made
  state->flags = flags;
  return g;
}

FS_GRAYMAP* convert_to_distance_field(FS_STATE* state, ADFImage* di,
                                      FS_FIXED scaled_dx, FS_FIXED scaled_dy,
                                      const ADFRenderImageAttrs* ria,
                                      const ADFTypesetAttrs* ta) {
  FS_GRAYMAP* g = convert_to_graymap(state, di, scaled_dx, scaled_dy, ria, ta,
                                     FS_MAP_EDGE_GRAYMAP8);
  if (g != nullptr) g->type = 8;
  return g;
}

FS_GRAYMAP* make_distance_field(FS_STATE* state, FS_OUTLINE* outl, FS_ULONG id) {
  FS_GRAYMAP* g = nullptr;
  FS_FIXED dx = 0, dy = 0;
  ADFRenderImageAttrs ria = {};
  ADFTypesetAttrs ta = {};
  ADFImage* di = render_outline(state, outl, id, ADF_REND_MODE_GREY, &g, &dx,
                                &dy, &ria, &ta);
  if (di == nullptr) return g;
  g = convert_to_distance_field(state, di, dx, dy, &ria, &ta);
  ADFDestroyImage(state->libInst, di);
  return g;
}

FS_GRAYMAP* get_distance_field(FS_STATE* state, FS_ULONG id, FS_USHORT index,
                               FS_SHORT phasex, FS_SHORT phasey) {
  state->error = 0;
  SFNT* sfnt = state->cur_sfnt;
  if (sfnt == nullptr || current_ttf(state) == nullptr) {
    state->error = ERR_NO_CURRENT_SFNT;
    return nullptr;
  }
  ADF_F32 in = state->insideCutoff, out = state->outsideCutoff;
  ADF_F32 gamma = state->gamma;
  FS_ULONG flags = state->flags;
  ADF_F32 cutoff = (ADF_F32)state->lpm * 10486 + 65536;
  FS_set_csm(state, cutoff, -cutoff, 65536);
  state->flags |= FLAGS_DEFAULT_CSM_ON | FLAGS_GRAYSCALE;
  GraymapSteps steps = {32531, nullptr, draw_distance_field, false};
  FS_GRAYMAP* g = get_cached_graymap(state, id, index, FS_MAP_DISTANCEFIELD,
                                     phasex, phasey, steps);
  state->flags = flags;
  if (g == nullptr) {
    // The client's cut-offs keep the field's values.
    if (state->error == 0) state->error = ERR_MALLOC_FAIL;
    return nullptr;
  }
  FS_set_csm(state, in, out, gamma);
  return g;
}

void get_ADF_adjustments(FS_STATE* state, FS_OUTLINE* outl, FS_ULONG id,
                         FS_FIXED* adj_x, FS_FIXED* adj_y) {
  *adj_x = *adj_y = 0;
  if (state->adfGridFitType == 0 || outl == nullptr) return;
  // A stroke font's skeleton is measured as make_ADF_graymap draws it: the
  // same path, its dots stretched by the same boldness decision.
  FS_GRAYMAP* g = nullptr;
  FS_FIXED dx = 0, dy = 0;
  ADFPath* path = make_ADF_path(state, outl, id, &g, &dx, &dy);
  if (g != nullptr) FSS_free(state, g);
  if (path == nullptr) return;
  ADFGlyph* c = make_ADF_char(state, path);
  if (c == nullptr) return;
  ADFRenderAttrs a;
  TFNT* tfnt = current_tfnt(state);
  if (tfnt != nullptr)
    adfCopyRenderAttrs(&tfnt->adfRenderAttrs, &a);
  else
    adfSetDefaultRenderAttrs(&a);
  a.gridFitType = state->adfGridFitType;
  ADFRenderGlyphData rgd;
  ADFRenderImageAttrs ria;
  ADFTypesetAttrs ta;
  ADFRenderSetup(c, &a, &rgd, &ria, &ta);
  ADFDestroyADF(state->libInst, c);
  if (dx != 0 && dy != 0) {
    *adj_x = varmul_64(dx, ta.adjFUToPixelScaleX, 16) + ta.gridAlgnAdjX - dx;
    *adj_y = varmul_64(dy, ta.adjFUToPixelScaleY, 16) + ta.gridAlgnAdjY - dy;
  }
}
