// The glyph request pipeline: scale and style setters and the glyph calls
// of a client. Every glyph call runs one skeleton (map the code, ready the
// scaled font, measure the reference lines once, resolve the type) and then
// hands over to one rasteriser's getter, which answers through the cache.
#include "Orvex_internal/fs_request.h"

#include "Orvex_internal/adf.h"

#include <string.h>

#include "Orvex_internal/fs_bitmap.h"
#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cff.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_fio.h"
#include "Orvex_internal/fs_fixed.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glue.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_metrics.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_sbit.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const FS_ULONG kHeadFlagHintedAdvance = 16;  // head.flags: hints move advances
const FS_SHORT kRefLinesMeasured = 52;       // ref_lines slot set once measured

FS_LONG fail(FS_STATE* state, FS_ULONG err) {
  state->error = err;
  return (FS_LONG)err;
}

TTF* current_ttf(FS_STATE* state) {
  return state->cur_lfnt ? (TTF*)state->cur_lfnt->fnt : nullptr;
}

bool is_stroke_font(const LFNT* lfnt) {
  return lfnt != nullptr && (lfnt->fontflags & FONTFLAG_STROKE) != 0;
}

// Skeleton steps 1 and 2: the glyph index of `id` in the component that
// serves it, with that component's scaled font ready. False with `error`.
bool map_and_check(FS_STATE* state, FS_ULONG id, FS_USHORT* index) {
  *index = map_char(state, id, 0);
  if (state->error != 0) return false;
  return check_sfnt(state) == 0;
}

// Skeleton step 3: the reference lines, once per scaled font of an outline
// font. `need_outlines` asks for the glyf or CFF test as well.
void ensure_ref_lines(FS_STATE* state, bool need_outlines) {
  LFNT* lfnt = state->cur_lfnt;
  SFNT* sfnt = state->cur_sfnt;
  TTF* ttf = current_ttf(state);
  if (lfnt == nullptr || sfnt == nullptr || ttf == nullptr) return;
  if (need_outlines && ttf->glyf_size == 0 && ttf->cff == nullptr) return;
  if (is_stroke_font(lfnt) || lfnt->fnt_type == FNT_TYPE_NO_SCALER) return;
  if (sfnt->ref_lines[kRefLinesMeasured] != 0) return;
  FS_ULONG error = state->error;
  get_ref_lines(state);
  state->error = error;
}

// The getter of one rasteriser; a type of no class ends here with 519.
FS_GLYPHMAP* get_by_rasterizer(FS_STATE* state, FS_ULONG id, FS_USHORT index,
                               FS_USHORT type, FS_USHORT rasterizer,
                               FS_SHORT phasex, FS_SHORT phasey) {
  switch (rasterizer) {
    case RASTER_GRAYMAP:
      return get_graymap(state, id, index, type, phasex, phasey);
    case RASTER_BITMAP:
      return get_bitmap(state, id, index, type);
    case RASTER_ADF:
      return get_ADF_graymap(state, id, index, type, phasex, phasey);
    case RASTER_DISTANCE_FIELD:
      return get_distance_field(state, id, index, phasex, phasey);
    default:
      if (state->error == 0) state->error = ERR_BAD_TYPE;
      return nullptr;
  }
}

FS_GLYPHMAP* get_glyphmap_at(FS_STATE* state, FS_ULONG id, FS_USHORT type,
                             FS_SHORT phasex, FS_SHORT phasey,
                             bool need_outlines) {
  FS_USHORT index;
  if (!map_and_check(state, id, &index)) return nullptr;
  ensure_ref_lines(state, need_outlines);
  FS_USHORT rasterizer = 0;
  resolve_glyphmap_type(state, &type, &rasterizer);
  if (rasterizer == RASTER_BITMAP) phasex = phasey = 0;
  return get_by_rasterizer(state, id, index, type, rasterizer, phasex, phasey);
}

// The first present of `order`'s bits in `type`, else `fallback`.
FS_USHORT first_bit(FS_USHORT type, const FS_USHORT* order, int n,
                    FS_USHORT fallback) {
  for (int i = 0; i < n; i++)
    if (type & order[i]) return order[i];
  return fallback;
}

// Keeps an advance in the cache; the cache then holds its only reference.
// A failure to keep it is no error of the request.
void cache_advance(FS_STATE* state, FS_USHORT index, FS_USHORT type,
                   FS_SHORT i_dx, FS_SHORT i_dy, FS_FIXED dx, FS_FIXED dy) {
  FS_ULONG error = state->error;
  FS_ADVANCE* a = (FS_ADVANCE*)FSS_malloc(state, sizeof(FS_ADVANCE));
  if (a != nullptr) {
    a->cache_ptr = nullptr;
    a->size = (FS_LONG)sizeof(FS_ADVANCE);
    a->i_dx = i_dx;
    a->i_dy = i_dy;
    a->dx = dx;
    a->dy = dy;
    save_advance_to_cache(state, index, type, a);
    FSS_free_char(state, a);
  }
  state->error = error;
}

void round_advance(FS_FIXED dx, FS_FIXED dy, FS_SHORT* i_dx, FS_SHORT* i_dy) {
  if (dx != 0 && dy != 0) return;
  *i_dx = (FS_SHORT)((dx + 32768) >> 16);
  *i_dy = (FS_SHORT)((dy + 32768) >> 16);
}

// The advance of the glyph's outline, made at the size and style asked.
void get_outline_advance(FS_STATE* state, FS_USHORT index, FS_ULONG id,
                         FS_USHORT type, FS_SHORT* i_dx, FS_SHORT* i_dy,
                         FS_FIXED* dx, FS_FIXED* dy) {
  FS_ULONG flags = state->flags;
  ensure_ref_lines(state, false);
  if (type & FS_MAP_BITMAP)
    state->flags &= ~FLAGS_GRAYSCALE;
  else
    state->flags |= FLAGS_GRAYSCALE;
  FS_OUTLINE* o = find_or_make_outline(state, state->cur_lfnt, state->cur_sfnt,
                                       id, index);
  state->flags = flags;
  if (o == nullptr) return;
  *dx = o->dx;
  *dy = o->dy;
  SENV* senv = state->cur_sfnt->senv;
  adjust_advance(state, senv, o->num == 0, dx, dy);
  if (type > 511) {  // distance-field pen snapping moves the advance too
    FS_FIXED ax = 0, ay = 0;
    get_ADF_adjustments(state, o, id, &ax, &ay);
    *dx += ax;
    *dy += ay;
  }
  *i_dx = o->i_dx ? (FS_SHORT)((*dx + 32768) >> 16) : 0;
  *i_dy = o->i_dy ? (FS_SHORT)((*dy + 32768) >> 16) : 0;
  FSS_free_char(state, o);
}

// Takes the four advance values of a found map or advance record and gives
// the record back.
template <typename R>
void take_advance(FS_STATE* state, R* r, FS_SHORT* i_dx, FS_SHORT* i_dy,
                  FS_FIXED* dx, FS_FIXED* dy) {
  *i_dx = r->i_dx;
  *i_dy = r->i_dy;
  *dx = r->dx;
  *dy = r->dy;
  FSS_free_char(state, r);
}

}  // namespace

/* ---- Scale ---- */

FS_LONG CFNT_get_adjustments(FS_STATE* state, FNTSET* fntset, CFNT* cfnt,
                             FS_FIXED yppm, FS_PPEM_ADJUST* a) {
  memset(a, 0, sizeof *a);
  if (cfnt == nullptr || cfnt->numAdjust == 0 || fntset == nullptr) return 0;
  FS_ULONG bytes = (FS_ULONG)cfnt->numAdjust * 6;
  FS_BYTE* buffer = nullptr;
  const FS_BYTE* records = nullptr;
  if (fntset->memptr != nullptr) {
    // An image of known length bounds the records.
    if (fntset->data_length != 0 &&
        ((FS_UINT64)cfnt->adjOffset + bytes > fntset->data_length))
      return fail(state, ERR_FILE_READ);
    records = fntset->memptr + fntset->data_offset + cfnt->adjOffset;
  } else {
    FS_FILE* fp = FS_open(state, fntset->path);
    if (fp == nullptr) return (FS_LONG)state->error;
    buffer = (FS_BYTE*)FSS_malloc(state, bytes);
    FS_LONG err = buffer == nullptr ? (FS_LONG)state->error : 0;
    if (err == 0) err = FS_seek(state, fp, (FS_LONG)cfnt->adjOffset, SEEK_SET);
    if (err == 0 && FS_read(state, fp, buffer, bytes) != (FS_LONG)bytes)
      err = state->error ? (FS_LONG)state->error : ERR_FILE_READ;
    FS_close(state, fp);
    if (err != 0) {
      FSS_free(state, buffer);
      return fail(state, (FS_ULONG)err);
    }
    records = buffer;
  }
  for (FS_USHORT i = 0; i < cfnt->numAdjust; i++) {
    const FS_BYTE* r = records + 6 * i;
    FS_USHORT ppem = get_u16(r);
    if (((FS_FIXED)ppem << 16) > yppm) break;
    a->ppem = ppem;
    a->scale = get_s16(r + 2);
    a->shift = get_s16(r + 4);
    if (((FS_FIXED)ppem << 16) == yppm) break;
  }
  FSS_free(state, buffer);
  state->error = 0;
  return 0;
}

FS_FIXED adjustment_scale_factor(FS_SHORT scale, FS_FIXED yppm) {
  return vardiv_64(yppm + (FS_LONG)scale * 256, yppm, 16);
}

FS_LONG FSS_set_scale(FS_STATE* state, FS_FIXED s00, FS_FIXED s01,
                      FS_FIXED s10, FS_FIXED s11) {
  TYPESET* ts = &state->cur_typeset;
  FNTSET* fntset = ts->fntset;
  if (fntset == nullptr) return fail(state, ERR_NO_CURRENT_FONT);
  state->scale[0] = s00;
  state->scale[1] = s01;
  state->scale[2] = s10;
  state->scale[3] = s11;
  FS_FIXED in[4] = {s00, s01, s10, s11};
  // The scaler's own check passes a plain diagonal without looking at its
  // size: a zero or out-of-range diagonal is refused here.
  for (FS_FIXED v : in)
    if (v >= 0x40000000 || v <= -0x40000000) return fail(state, ERR_SCALE_LIMIT);
  FS_FIXED xppm = 0, yppm = 0, tan_s = 0;
  FS_LONG err = get_scale_inputs(in, &xppm, &yppm, &tan_s);
  if (err != 0) return fail(state, (FS_ULONG)err);
  if (xppm == 0 || yppm == 0) return fail(state, ERR_SCALE_DEGENERATE);
  state->lpm = (FS_USHORT)((yppm + 32768) >> 16);

  FS_USHORT count = fntset->num_fonts;
  if (count == 0) count = 1;
  for (FS_USHORT i = 0; i < count; i++) {
    if (ts->tfntarray == nullptr || i >= ts->capacity)
      return fail(state, ERR_NO_TFNT);
    TFNT* tfnt = &ts->tfntarray[i];
    CFNT* cfnt = tfnt->cfnt;
    if (cfnt == nullptr) return fail(state, ERR_NO_TFNT);
    FS_PPEM_ADJUST a;
    err = CFNT_get_adjustments(state, fntset, cfnt, yppm, &a);
    if (err != 0) return fail(state, (FS_ULONG)err);

    FS_FIXED s[4] = {s00, s01, s10, s11};
    if (a.scale != 0) {
      // The component draws a.scale (8.8) pixels larger than asked.
      FS_FIXED f = adjustment_scale_factor(a.scale, yppm);
      for (FS_FIXED& v : s) v = varmul_64(v, f, 16);
    }
    LFNT* lfnt = cfnt->lfnt;
    if (lfnt != nullptr && (lfnt->fontflags & FONTFLAG_STIK_64) && s[0] > 0 &&
        s[3] > 0 && s[1] == 0 && s[2] == 0) {
      // That stroke format only works on even whole sizes.
      for (int k = 0; k < 4; k += 3) {
        FS_FIXED v = s[k] >> 16;
        if (v & 1) v--;
        s[k] = v << 16;
      }
    }
    if (cfnt->italicize) {
      err = modify_scale(s, cfnt->italic_angle);
      if (err != 0) return fail(state, (FS_ULONG)err);
    }

    FS_FIXED bold = state->bold_pct + cfnt->bold_pct;
    bool stroke = is_stroke_font(lfnt);
    SFNT* prev = nullptr;
    SFNT* sfnt = state->server->scaled_fonts;
    for (; sfnt != nullptr; prev = sfnt, sfnt = sfnt->next) {
      if (sfnt->lfnt == lfnt && sfnt->user_scale[0] == s[0] &&
          sfnt->user_scale[1] == s[1] && sfnt->user_scale[2] == s[2] &&
          sfnt->user_scale[3] == s[3] && sfnt->vertical_shift == a.shift &&
          sfnt->bold_pct == bold &&
          (!stroke || sfnt->stroke_pct == state->stroke_pct))
        break;
    }
    if (sfnt != nullptr && prev != nullptr) {
      // Most recently used first.
      prev->next = sfnt->next;
      sfnt->next = state->server->scaled_fonts;
      state->server->scaled_fonts = sfnt;
    }
    if (sfnt == nullptr) {
      sfnt = (SFNT*)FSS_calloc(state, sizeof(SFNT));
      if (sfnt == nullptr) return (FS_LONG)state->error;
      sfnt->lfnt = lfnt;
      for (int k = 0; k < 4; k++) sfnt->user_scale[k] = s[k];
      sfnt->vertical_shift = a.shift;
      sfnt->bold_pct = bold;
      sfnt->stroke_pct = state->stroke_pct;
      sfnt->rtgah_suitable = 1;
      sfnt->next = state->server->scaled_fonts;
      state->server->scaled_fonts = sfnt;
    }
    if (tfnt->sfnt != nullptr && tfnt->sfnt->ref_count > 0)
      tfnt->sfnt->ref_count--;
    tfnt->sfnt = sfnt;
    sfnt->ref_count++;
    // The contrast adjustments follow the size; the component's
    // distance-field size comes from its scaled font.
    FS_set_csm_adjustments(state, state->sharpnessOffset, state->sharpnessSlope,
                           state->thicknessOffset, state->thicknessSlope);
    adfSetDefaultRenderAttrs(&tfnt->adfRenderAttrs);
    adfComputeTypographicScaling(state, sfnt, &tfnt->adfRenderAttrs);
    if (state->error != 0) return (FS_LONG)state->error;
    state->cur_font = i;
    state->cur_lfnt = lfnt;
    state->cur_sfnt = sfnt;
  }
  state->error = 0;
  return 0;
}

FS_LONG FSS_get_scale(FS_STATE* state, FS_FIXED* s00, FS_FIXED* s01,
                      FS_FIXED* s10, FS_FIXED* s11) {
  TYPESET* ts = &state->cur_typeset;
  if (ts->fntset == nullptr || ts->tfntarray == nullptr)
    return fail(state, ERR_NO_CURRENT_FONT);
  if (s00 == nullptr || s01 == nullptr || s10 == nullptr || s11 == nullptr)
    return fail(state, ERR_BAD_ARGUMENT);
  FS_USHORT i = state->cur_font < ts->capacity ? state->cur_font : 0;
  SFNT* sfnt = ts->tfntarray[i].sfnt;
  if (sfnt == nullptr) return fail(state, ERR_NO_CURRENT_SFNT);
  *s00 = sfnt->user_scale[0];
  *s01 = sfnt->user_scale[1];
  *s10 = sfnt->user_scale[2];
  *s11 = sfnt->user_scale[3];
  state->error = 0;
  return 0;
}

FS_USHORT FSS_get_design_units(FS_STATE* state) {
  FNTSET* fntset = state->cur_typeset.fntset;
  if (fntset == nullptr) {
    state->error = ERR_NO_CURRENT_FONT;
    return 0;
  }
  LFNT* lfnt = state->cur_lfnt ? state->cur_lfnt : fntset->metric_font;
  if (lfnt == nullptr || scaler_load_font(state, lfnt) != 0) {
    state->error = ERR_FONT_NOT_LOADED;
    return 0;
  }
  TTF* ttf = (TTF*)lfnt->fnt;
  if (ttf == nullptr || ttf->head == nullptr) {
    state->error = ERR_FONT_NOT_LOADED;
    return 0;
  }
  state->error = 0;
  return ttf->head->unitsPerEm;
}

FS_LONG FSS_get_gpos_scale(FS_STATE* state, FS_ULONG id, FS_USHORT* du,
                           FS_FIXED* s00, FS_FIXED* s01, FS_FIXED* s10,
                           FS_FIXED* s11, FS_USHORT* xppm, FS_USHORT* yppm,
                           FS_ULONG* idRangeStart, FS_ULONG* idRangeEnd) {
  if (du == nullptr || s00 == nullptr || s01 == nullptr || s10 == nullptr ||
      s11 == nullptr || xppm == nullptr || yppm == nullptr ||
      idRangeStart == nullptr || idRangeEnd == nullptr)
    return fail(state, ERR_BAD_ARGUMENT);
  FS_USHORT index;
  if (!map_and_check(state, id, &index)) return (FS_LONG)state->error;
  TTF* ttf = current_ttf(state);
  SFNT* sfnt = state->cur_sfnt;
  if (ttf == nullptr || ttf->head == nullptr || ttf->maxp == nullptr)
    return fail(state, ERR_FONT_NOT_LOADED);
  *du = ttf->head->unitsPerEm;
  *s00 = sfnt->user_scale[0];
  *s01 = sfnt->user_scale[1];
  *s10 = sfnt->user_scale[2];
  *s11 = sfnt->user_scale[3];
  *xppm = sfnt->senv->xppm;
  *yppm = sfnt->senv->yppm;
  FS_ULONG start =
      state->cur_typeset.tfntarray[state->cur_font].cfnt->start_index;
  *idRangeStart = start;
  *idRangeEnd = start + ttf->maxp->numGlyphs;
  state->error = 0;
  return 0;
}

/* ---- Style ---- */

FS_LONG FS_set_bold_pct(FS_STATE* state, FS_FIXED pct) {
  if (pct < 0 || pct > 65536) return fail(state, ERR_PCT_RANGE);
  state->bold_pct = pct;
  state->error = 0;
  return 0;
}

FS_LONG FS_set_stroke_pct(FS_STATE* state, FS_FIXED pct) {
  if (pct < 0 || pct > 32768) return fail(state, ERR_PCT_RANGE);
  state->stroke_pct = pct;
  state->error = 0;
  return 0;
}

FS_LONG FS_set_outline_width(FS_STATE* state, FS_USHORT width) {
  if (width < 1 || width > 10) return fail(state, ERR_OUTLINE_WIDTH_RANGE);
  state->outline_width = width;
  state->error = 0;
  return 0;
}

FS_LONG FS_set_outline_opacity(FS_STATE* state, FS_FIXED opacity) {
  if (opacity < 0 || opacity > 10 * 65536)
    return fail(state, ERR_OUTLINE_OPACITY_RANGE);
  state->outline_opacity = opacity;
  state->error = 0;
  return 0;
}

/* ---- Type resolution ---- */

void resolve_glyphmap_type(FS_STATE* state, FS_USHORT* type,
                           FS_USHORT* rasterizer) {
  FS_USHORT t = *type;
  SENV* senv = state->cur_sfnt ? state->cur_sfnt->senv : nullptr;
  FS_BYTE rbv = senv ? senv->render_behavior : 0;
  int cls = 0;
  if (t > 511) cls |= 1;
  if (t & 14) cls |= 2;
  if (t & 1) cls |= 4;
  if (t & FS_MAP_DISTANCEFIELD) cls = 8;
  if (cls == 8) {
    *type = FS_MAP_DISTANCEFIELD;
    *rasterizer = RASTER_DISTANCE_FIELD;
    return;
  }
  // Where a bitmap competes, a size whose behaviour says no grid fit goes
  // unhinted; the client's flag keeps that change.
  if ((cls == 5 || cls == 6 || cls == 7) && !(state->flags & FLAGS_NO_HINTS) &&
      !(rbv & 1))
    state->flags |= FLAGS_NO_HINTS;
  FS_USHORT r = RASTER_NONE;
  switch (cls) {
    case 1: r = RASTER_ADF; break;
    case 2: r = RASTER_GRAYMAP; break;
    case 3: r = (rbv & 4) ? RASTER_ADF : RASTER_GRAYMAP; break;
    case 4: r = RASTER_BITMAP; break;
    case 5: r = (rbv & 2) ? RASTER_ADF : RASTER_BITMAP; break;
    case 6: r = (rbv & 2) ? RASTER_GRAYMAP : RASTER_BITMAP; break;
    case 7:
      r = (rbv & 2) && (rbv & 4) ? RASTER_ADF
          : (rbv & 2)            ? RASTER_GRAYMAP
                                 : RASTER_BITMAP;
      break;
    default: r = RASTER_NONE; break;
  }
  FS_USHORT keep = t & FS_MAP_RASTER_ICON;
  if (r == RASTER_BITMAP) {
    keep |= FS_MAP_BITMAP;
  } else if (r == RASTER_GRAYMAP) {
    static const FS_USHORT order[] = {FS_MAP_GRAYMAP4, FS_MAP_GRAYMAP8};
    keep |= first_bit(t, order, 2, FS_MAP_GRAYMAP2);
  } else if (r == RASTER_ADF) {
    static const FS_USHORT order[] = {
        FS_MAP_EDGE_GRAYMAP4, FS_MAP_EDGE_GRAYMAP8, FS_MAP_EDGE_GRAYMAP2,
        FS_MAP_ADF_8, FS_MAP_ADF_4, FS_MAP_ADF_8B, FS_MAP_ADF_4B};
    keep |= first_bit(t, order, 7, 0);
  }
  TTF* ttf = current_ttf(state);
  if (ttf == nullptr || !ttf->isCBLC) keep &= (FS_USHORT)~FS_MAP_RASTER_ICON;
  *type = keep;
  *rasterizer = r;
}

/* ---- Glyph calls ---- */

FS_GLYPHMAP* FSS_get_glyphmap(FS_STATE* state, FS_ULONG id, FS_USHORT type) {
  return get_glyphmap_at(state, id, type, 0, 0, true);
}

FS_GLYPHMAP* FSS_get_phased(FS_STATE* state, FS_ULONG id, FS_USHORT type,
                            FS_FIXED posx, FS_FIXED posy) {
  FS_SHORT phasex = (FS_SHORT)(((FS_ULONG)posx & 0xFFFF) >> 14);
  FS_SHORT phasey = (FS_SHORT)(((FS_ULONG)posy & 0xFFFF) >> 14);
  return get_glyphmap_at(state, id, type, phasex, phasey, false);
}

FS_GRAYMAP* FSS_get_graymap(FS_STATE* state, FS_ULONG id) {
  FS_USHORT index;
  if (!map_and_check(state, id, &index)) return nullptr;
  ensure_ref_lines(state, true);
  return get_graymap(state, id, index, FS_MAP_GRAYMAP4, 0, 0);
}

FS_BITMAP* FSS_get_bitmap(FS_STATE* state, FS_ULONG id) {
  FS_USHORT index;
  if (!map_and_check(state, id, &index)) return nullptr;
  return get_by_rasterizer(state, id, index, FS_MAP_BITMAP, RASTER_BITMAP, 0, 0);
}

FS_OUTLINE* FSS_get_outline(FS_STATE* state, FS_ULONG id) {
  FS_USHORT index;
  if (!map_and_check(state, id, &index)) return nullptr;
  ensure_ref_lines(state, true);
  return find_or_make_outline(state, state->cur_lfnt, state->cur_sfnt, id,
                              index);
}

FS_BOUNDINGBOX* FSS_get_boundingbox(FS_STATE* state, FS_ULONG id,
                                    FS_USHORT type) {
  FS_USHORT index;
  if (!map_and_check(state, id, &index)) return nullptr;
  FS_USHORT rasterizer = 0;
  FS_USHORT asked = type;
  resolve_glyphmap_type(state, &type, &rasterizer);
  FS_BOUNDINGBOX* box = find_bbox_in_cache(state, index, type);
  if (box != nullptr) return box;
  state->error = 0;
  FS_GLYPHMAP* map = FSS_get_glyphmap(state, id, asked);
  if (map == nullptr) return nullptr;
  if (!map->embedded && (type & FS_MAP_RASTER_ICON)) {
    type &= (FS_USHORT)~FS_MAP_RASTER_ICON;
    box = find_bbox_in_cache(state, index, type);
    if (box != nullptr) {
      FSS_free_char(state, map);
      return box;
    }
  }
  box = (FS_BOUNDINGBOX*)FSS_malloc(state, sizeof(FS_BOUNDINGBOX));
  if (box == nullptr) {
    FS_ULONG err = state->error;
    FSS_free_char(state, map);
    state->error = err;
    return nullptr;
  }
  memcpy(box, map, 40);  // the header up to the pixel layout
  box->cache_ptr = nullptr;
  box->bpl = 0;
  box->embedded = map->embedded;
  box->bitsPerPixel = map->bitsPerPixel;
  box->type = map->type;
  box->bits[0] = 0;
  box->size = (FS_LONG)sizeof(FS_BOUNDINGBOX);
  save_bbox_to_cache(state, index, type, box);
  FSS_free_char(state, map);
  state->error = 0;
  return box;
}

FS_GLYPH_POINTS* FSS_get_points(FS_STATE* state, FS_ULONG id) {
  state->error = 0;
  FS_USHORT index;
  if (!map_and_check(state, id, &index)) return nullptr;
  // The autohinter reads the reference lines; measuring them may leave
  // another component current, so the glyph is mapped again.
  ensure_ref_lines(state, true);
  if (!map_and_check(state, id, &index)) return nullptr;
  SENV* senv = state->cur_sfnt->senv;
  if (senv == nullptr || senv->ttkey == nullptr) {
    fail(state, ERR_NO_SENV);
    return nullptr;
  }
  fsg_SplineKey* key = (fsg_SplineKey*)senv->ttkey;
  key->glyphIndex = index;
  LFNT* lfnt = state->cur_sfnt->lfnt;
  bool cff = lfnt && (lfnt->fnt_type == FNT_TYPE_CFF ||
                      (lfnt->fontflags & FONTFLAG_CFF));
  FS_BOOLEAN useHints = (state->flags & FLAGS_NO_HINTS) == 0;
  if ((cff ? cff_GridFit(state, key, useHints) : fsg_GridFit(state, key, useHints)) != 0)
    return nullptr;
  const fnt_ElementType* el = fsg_glyph_element(key);
  FS_LONG np = el->np, nc = el->nc;
  FS_ULONG size = (FS_ULONG)(sizeof(FS_GLYPH_POINTS) +
                             np * (2 * sizeof(F26DOT6) + 1) +
                             nc * 2 * sizeof(FS_SHORT));
  FS_GLYPH_POINTS* p = (FS_GLYPH_POINTS*)FSS_malloc(state, size);
  if (p == nullptr) return nullptr;
  p->nc = (FS_SHORT)nc;
  p->np = (FS_SHORT)np;
  p->x = (F26DOT6*)(p + 1);
  p->y = p->x + np;
  p->sp = (FS_SHORT*)(p->y + np);
  p->ep = p->sp + nc;
  p->onCurve = (FS_BYTE*)(p->ep + nc);
  // The left phantom point follows the glyph's own points; hinted under a
  // vanilla scale it is on the grid, as outline extraction rounds it.
  F26DOT6 ox = el->x[np], oy = el->y[np];
  if (useHints && senv->vanilla) ox = (ox + 32) & -64;
  for (FS_LONG i = 0; i < np; i++) {
    p->x[i] = el->x[i] - ox;
    p->y[i] = el->y[i] - oy;
    p->onCurve[i] = el->onCurve[i] ? 1 : 0;
  }
  for (FS_LONG c = 0; c < nc; c++) {
    p->sp[c] = el->sp[c];
    p->ep[c] = el->ep[c];
  }
  state->error = 0;
  return p;
}

void adjust_advance(FS_STATE* state, SENV* senv, FS_BOOLEAN space,
                    FS_FIXED* dx, FS_FIXED* dy) {
  LFNT* lfnt = state->cur_lfnt;
  if (!is_stroke_font(lfnt) || senv == nullptr) return;
  if (state->flags & FLAGS_ADD_WEIGHT) return;
  if ((lfnt->fontflags & FONTFLAG_STIK_64) && state->lpm < 27 &&
      !(state->flags & (FLAGS_REGULARBOLD | FLAGS_FRACTBOLD)))
    return;
  if (senv->bold_width == 0 || space) return;
  SFNT* sfnt = state->cur_sfnt;
  FIXED_VECTOR v = {sfnt->user_scale[0], sfnt->user_scale[2]};
  fixed_norm(&v);
  *dx += v.x * senv->bold_width;
  *dy += v.y * senv->bold_width;
}

FS_LONG FSS_get_advance(FS_STATE* state, FS_ULONG id, FS_USHORT type,
                        FS_SHORT* i_dx, FS_SHORT* i_dy, FS_FIXED* dx,
                        FS_FIXED* dy) {
  if (i_dx == nullptr || i_dy == nullptr || dx == nullptr || dy == nullptr)
    return fail(state, ERR_BAD_ARGUMENT);
  *i_dx = *i_dy = 0;
  *dx = *dy = 0;
  state->error = 0;
  FS_USHORT index;
  if (!map_and_check(state, id, &index)) return (FS_LONG)state->error;
  SFNT* sfnt = state->cur_sfnt;
  SENV* senv = sfnt->senv;
  if (senv == nullptr) return fail(state, ERR_NO_SENV);
  LFNT* lfnt = state->cur_lfnt;
  TTF* ttf = current_ttf(state);
  if (ttf == nullptr) return fail(state, ERR_FONT_NOT_LOADED);

  // The linear advance serves when hints can't move it.
  if (senv->vanilla && lfnt->fnt_type != FNT_TYPE_NO_SCALER &&
      ttf->head != nullptr && !(ttf->head->flags & kHeadFlagHintedAdvance)) {
    FS_SHORT ix = 0, iy = 0;
    if (get_glyph_advance(state, (fsg_SplineKey*)senv->ttkey, index, dx, dy,
                          &ix, &iy) != 0)
      return (FS_LONG)state->error;
    if (!is_stroke_font(lfnt)) *dx += (FS_FIXED)senv->bold_width << 16;
  }
  if (*dx != 0 || *dy != 0) {
    adjust_advance(state, senv, 0, dx, dy);
    round_advance(*dx, *dy, i_dx, i_dy);
    state->error = 0;
    return 0;
  }

  // Otherwise the cheapest cached answer of the same size, type and style.
  if (ttf->isCBLC && (type & FS_MAP_RASTER_ICON)) {
    FS_ADVANCE* adv = find_advance_in_cache(state, index, type);
    if (adv != nullptr) {
      take_advance(state, adv, i_dx, i_dy, dx, dy);
      state->error = 0;
      return 0;
    }
    FS_BITMAP* icon = find_raster_icon_in_cache(state, index);
    if (icon == nullptr) icon = get_embedded_bitmap(state, sfnt, index, type);
    if (icon != nullptr) {
      take_advance(state, icon, i_dx, i_dy, dx, dy);
      FSS_free_char(state, icon);
      cache_advance(state, index, type, *i_dx, *i_dy, *dx, *dy);
      state->error = 0;
      return 0;
    }
  }
  type &= (FS_USHORT)~FS_MAP_RASTER_ICON;
  FS_ADVANCE* adv = find_advance_in_cache(state, index, type);
  if (adv != nullptr) {
    take_advance(state, adv, i_dx, i_dy, dx, dy);
    state->error = 0;
    return 0;
  }
  state->error = 0;
  bool found = false;
  if (type > 511) {
    FS_USHORT code = (type & FS_MAP_EDGE_GRAYMAP4)   ? 32537
                     : (type & FS_MAP_EDGE_GRAYMAP8) ? 32531
                     : (type & FS_MAP_EDGE_GRAYMAP2) ? 32533
                                                     : 0;
    FS_BITMAP* m = code ? (FS_BITMAP*)find_in_cache(state, code, index, 0)
                        : nullptr;
    if (m != nullptr) {
      take_advance(state, m, i_dx, i_dy, dx, dy);
      found = true;
    }
  }
  if (!found && (type & 14)) {
    FS_USHORT bit = (type & FS_MAP_GRAYMAP4)   ? FS_MAP_GRAYMAP4
                    : (type & FS_MAP_GRAYMAP8) ? FS_MAP_GRAYMAP8
                                               : FS_MAP_GRAYMAP2;
    FS_ULONG flags = state->flags;
    state->flags |= FLAGS_GRAYSCALE;
    FS_BITMAP* m = find_graymap_in_cache(state, index, bit, 0, 0);
    state->flags = flags;
    if (m != nullptr) {
      take_advance(state, m, i_dx, i_dy, dx, dy);
      found = true;
    }
  }
  if (!found && (type & FS_MAP_BITMAP)) {
    FS_ULONG flags = state->flags;
    state->flags &= ~FLAGS_GRAYSCALE;
    FS_BITMAP* m = find_bitmap_in_cache(state, index);
    state->flags = flags;
    if (m != nullptr) {
      take_advance(state, m, i_dx, i_dy, dx, dy);
      found = true;
    }
  }
  // The font's own strike glyph answers next, cached as the getters would.
  if (!found && (type & 14) && !(state->flags & 252)) {
    FS_BITMAP* m = get_embedded_graymap(state, sfnt, index, type);
    if (m != nullptr) {
      take_advance(state, m, i_dx, i_dy, dx, dy);
      FS_ULONG flags = state->flags;
      state->flags |= FLAGS_GRAYSCALE;
      save_graymap_to_cache(state, index, m, type, 0, 0);
      state->flags = flags;
      FSS_free_char(state, m);
      found = true;
    }
  }
  if (!found && (type & 15) == FS_MAP_BITMAP && type <= 511) {
    FS_BITMAP* m = get_embedded_bitmap(state, sfnt, index, type);
    if (m != nullptr) {
      take_advance(state, m, i_dx, i_dy, dx, dy);
      FS_ULONG flags = state->flags;
      state->flags &= ~FLAGS_GRAYSCALE;
      save_bitmap_to_cache(state, index, m);
      state->flags = flags;
      FSS_free_char(state, m);
      found = true;
    }
  }
  state->error = 0;
  if (!found) {
    if (!(state->flags & FLAGS_NO_HINTS) &&
        senv->hdmx_group_offset < 0xFFFFFFFFu) {
      FS_BYTE width = 0;
      if (SFNT_get_hdmx_width(state, sfnt, index, &width) == 0)
        *dx = (FS_FIXED)width * 65536 + ((FS_FIXED)senv->bold_width << 16);
      state->error = 0;
    }
    if (!(*dx != 0 && *dy != 0) && (ttf->glyf_size != 0 || ttf->cff != nullptr)) {
      get_outline_advance(state, index, id, type, i_dx, i_dy, dx, dy);
    } else {
      adjust_advance(state, senv, 0, dx, dy);
      round_advance(*dx, *dy, i_dx, i_dy);
    }
  }
  FS_ULONG err = state->error;
  cache_advance(state, index, type, *i_dx, *i_dy, *dx, *dy);
  return fail(state, err);
}

/* ---- Strings ---- */

namespace {

// Moves an Arabic mark of a stroke font clear of the letter under it, from
// the font's private values at the end of its `cvt`. No font this build
// loads is a stroke font, so the maps pass unchanged.
void align_arabic_mark(FS_STATE* state, FS_ULONG previous, FS_ULONG current,
                       FS_GLYPHMAP* pre_map, FS_GLYPHMAP* map) {
  (void)previous;
  (void)current;
  (void)pre_map;
  (void)map;
  if (!is_stroke_font(state->cur_lfnt)) return;
}

}  // namespace

FS_LONG FS_get_string(FS_STATE* state, FS_ULONG len, const FS_ULONG* unicodes,
                      FS_USHORT type, FS_GLYPHMAP*** maparray) {
  if (maparray == nullptr) return fail(state, ERR_BAD_ARGUMENT);
  *maparray = nullptr;
  if (len == 0) {
    state->error = 0;
    return 0;
  }
  if (unicodes == nullptr) return fail(state, ERR_BAD_ARGUMENT);
  if (!(type & (1 | 2 | 4 | 8 | 1024))) return fail(state, ERR_BAD_TYPE);
  if (state->platform != 3 || (state->encoding != 1 && state->encoding != 10) ||
      (state->flags & FLAGS_CMAP_OFF))
    return fail(state, ERR_UNICODE_CMAP_NEEDED);
  FS_GLYPHMAP** maps =
      (FS_GLYPHMAP**)FSS_calloc(state, len * sizeof(FS_GLYPHMAP*));
  if (maps == nullptr) return (FS_LONG)state->error;
  FS_ULONG flags = state->flags;
  for (FS_ULONG i = 0; i < len; i++) {
    FS_GLYPHMAP* m = FSS_get_glyphmap(state, unicodes[i], type);
    if (m != nullptr && m->cache_ptr != nullptr) {
      // A private copy: aligning marks may change it.
      FS_GLYPHMAP* copy = (FS_GLYPHMAP*)FSS_malloc(state, (FS_ULONG)m->size);
      if (copy != nullptr) {
        memcpy(copy, m, (size_t)m->size);
        copy->cache_ptr = nullptr;
      }
      FS_ULONG err = state->error;
      FSS_free_char(state, m);
      state->error = err;
      m = copy;
    }
    if (m == nullptr || state->error != 0) {
      FS_ULONG err = state->error ? state->error : (FS_ULONG)ERR_BAD_TYPE;
      state->flags = flags;
      FSS_free_char(state, m);
      for (FS_ULONG k = 0; k < i; k++) FSS_free_char(state, maps[k]);
      FSS_free(state, maps);
      return fail(state, err);
    }
    maps[i] = m;
  }
  for (FS_ULONG i = 1; i < len; i++)
    align_arabic_mark(state, unicodes[i - 1], unicodes[i], maps[i - 1], maps[i]);
  state->flags = flags;
  state->error = 0;
  *maparray = maps;
  return 0;
}
