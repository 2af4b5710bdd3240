// Font metrics services: FONT_METRICS, line spacing from `VDMX`, `OS/2` and
// `hhea`, sizes that fit a height, `hdmx` widths and design-unit glyph
// metrics. The `VDMX` and `hdmx` tables stay in the file and are read at each
// question, always within the table's stated length.
#include "Orvex_internal/fs_metrics.h"

#include <string.h>

#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glue.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

FS_LONG fail(FS_STATE* state, FS_LONG error) {
  state->error = (FS_ULONG)error;
  return error;
}

bool has_sfnt_tables(const LFNT* lfnt) {
  return lfnt->fnt_type == FNT_TYPE_TTF || lfnt->fnt_type == FNT_TYPE_TTC ||
         lfnt->fnt_type == FNT_TYPE_CFF;
}

// The loaded record of `lfnt`, loading it when needed; null with the error.
TTF* loaded_ttf(FS_STATE* state, LFNT* lfnt) {
  if (lfnt == nullptr) {
    fail(state, ERR_NO_CURRENT_LFNT);
    return nullptr;
  }
  if (lfnt->fnt_type == FNT_TYPE_NO_SCALER) {
    fail(state, ERR_FORMAT_NOT_SUPPORTED);
    return nullptr;
  }
  if (scaler_load_font(state, lfnt) != 0) return nullptr;
  return (TTF*)lfnt->fnt;
}

// A whole table of a loaded font in a heap block, with its length; null with
// 405 when absent (or a read error).
FS_BYTE* read_table(FS_STATE* state, TTF* ttf, FS_ULONG tag, FS_ULONG* len) {
  FS_ULONG off = 0;
  *len = 0;
  if (!get_ttf_table_info(state, ttf, tag, &off, len)) return nullptr;
  if (*len == 0) {
    fail(state, ERR_TABLE_NOT_FOUND);
    return nullptr;
  }
  return (FS_BYTE*)ttf_read(state, ttf, off, *len);
}

bool fits(FS_ULONG len, FS_UINT64 at, FS_UINT64 n) { return at + n <= len; }

FS_FIXED scaled(FS_LONG value, FS_FIXED emSize, FS_USHORT upem) {
  return muldiv_64(value, emSize, upem);
}

void copy_name(FILECHAR* to, const FILECHAR* from, size_t max) {
  size_t n = strnlen(from, max);
  memcpy(to, from, n);
  to[n] = '\0';
}

// Rounds 16.16 pixels to whole pixels, halves away from zero.
FS_LONG round_pixels(FS_FIXED v) {
  return v < 0 ? -((-v + 0x8000) >> 16) : (v + 0x8000) >> 16;
}

}  // namespace

/* ---- The whole-font record ---- */

FS_LONG ttf_font_metrics(FS_STATE* state, LFNT* lfnt, FONT_METRICS* fm,
                         FS_ULONG ttcIndex) {
  TTF_MAXP maxp;
  TTF_HEAD head;
  TTF_HHEA hhea;
  TTF_OS2 os2;
  memset(&os2, 0, sizeof os2);
  if (LFNT_get_table_structure(state, lfnt, TAG_maxp, &maxp) != 0 ||
      LFNT_get_table_structure(state, lfnt, TAG_head, &head) != 0 ||
      LFNT_get_table_structure(state, lfnt, TAG_hhea, &hhea) != 0)
    return (FS_LONG)state->error;
  if (LFNT_get_table_structure(state, lfnt, TAG_OS2, &os2) != 0) {
    if (state->error != ERR_TABLE_NOT_FOUND) return (FS_LONG)state->error;
    state->error = SUCCESS;
  }
  TTF* ttf = (TTF*)lfnt->fnt;

  fm->unitsPerEm = head.unitsPerEm;
  fm->metricsResolution = head.unitsPerEm;
  fm->head_macStyle = head.macStyle;
  fm->font_bbox = {head.xMin, head.yMin, head.xMax, head.yMax};
  fm->os2_win_ascent = (FS_SHORT)os2.usWinAscent;
  fm->os2_win_descent = (FS_SHORT)os2.usWinDescent;
  fm->os2_ascent = os2.sTypoAscender;
  fm->os2_descent = os2.sTypoDescender;
  fm->os2_fsSelection = os2.fsSelection;
  fm->os2_leading = (FS_USHORT)os2.sTypoLineGap;
  fm->embedding_bits = os2.fsType;
  fm->hhea_ascent = hhea.yAscender;
  fm->hhea_descent = hhea.yDescender;
  fm->hhea_leading = (FS_USHORT)hhea.yLineGap;
  fm->numGlyphs = maxp.numGlyphs;
  fm->numIcons = 0;

  FS_ULONG flags = lfnt->fontflags;
  bool cff = (flags & FONTFLAG_CFF) != 0 || lfnt->fnt_type == FNT_TYPE_CFF;
  fm->font_type = cff ? FONT_TYPE_CFF : FONT_TYPE_TTF;
  if (flags & FONTFLAG_STROKE) fm->font_type |= FONT_TYPE_STIK;
  if (flags & (FONTFLAG_CCC | FONTFLAG_DDD))
    fm->font_type |= FONT_TYPE_PRIVATE_ENCODING;
  if (flags & FONTFLAG_COMPRESSED) fm->font_type |= FONT_TYPE_COMPRESSED;
  if (ttf->ttc_header != nullptr) {
    fm->font_type |= FONT_TYPE_TTC;
    fm->numFontsInTTC = ttf->ttc_header->numFonts;
    fm->indexInTTC = ttcIndex;
  }

  // The cmap directory: version, count, then 8-byte records.
  const FS_BYTE* cmap = (const FS_BYTE*)ttf->cmap;
  FS_ULONG clen = ttf->cmap_length;
  if (cmap != nullptr && clen >= 4) {
    FS_ULONG n = get_u16(cmap + 2);
    if (n > (FS_ULONG)FM_MAX_CMAP_TABLES) n = FM_MAX_CMAP_TABLES;
    FS_USHORT kept = 0;
    for (FS_ULONG i = 0; i < n && fits(clen, 4 + 8 * i, 8); i++) {
      const FS_BYTE* rec = cmap + 4 + 8 * i;
      fm->mappings[kept++] = {get_u16(rec), get_u16(rec + 2), get_u32(rec + 4)};
    }
    fm->num_cmap_tables = kept;
  }

  // A fresh read of the names; without them the fields stay empty.
  TTF_NAME* names = get_name(state, ttf);
  if (names != nullptr) {
    copy_name(fm->font_name, names->font_name, 49);
    copy_name(fm->font_family_name, names->font_family_name, 49);
    copy_name(fm->copyright, names->copyright, 2047);
    FSS_free(state, names);
  }
  state->error = SUCCESS;
  return 0;
}

FS_LONG FSS_font_metrics(FS_STATE* state, FONT_METRICS* fm) {
  state->error = SUCCESS;
  if (fm == nullptr) return fail(state, ERR_BAD_ARGUMENT);
  memset(fm, 0, sizeof *fm);
  FNTSET* set = state->cur_typeset.fntset;
  if (set == nullptr || set->metric_font == nullptr)
    return fail(state, ERR_NO_CURRENT_FONT);
  LFNT* lfnt = set->metric_font;
  if (!has_sfnt_tables(lfnt)) return fail(state, ERR_FONT_TYPE_UNSUPPORTED);
  if (scaler_load_font(state, lfnt) != 0) return (FS_LONG)state->error;
  FS_ULONG index = lfnt->fnt_type == FNT_TYPE_TTC ? lfnt->index : 0;
  return ttf_font_metrics(state, lfnt, fm, index);
}

/* ---- Header tables as records ---- */

FS_LONG LFNT_get_table_structure(FS_STATE* state, LFNT* lfnt, FS_ULONG tag,
                                 void* structure) {
  state->error = SUCCESS;
  if (structure == nullptr) return fail(state, ERR_BAD_ARGUMENT);
  TTF* ttf = loaded_ttf(state, lfnt);
  if (ttf == nullptr) return (FS_LONG)state->error;
  const void* from = nullptr;
  size_t size = 0;
  switch (tag) {
    case TAG_head: from = ttf->head; size = sizeof(TTF_HEAD); break;
    case TAG_hhea: from = ttf->hhea; size = sizeof(TTF_HHEA); break;
    case TAG_vhea: from = ttf->vhea; size = sizeof(TTF_VHEA); break;
    case TAG_maxp: from = ttf->maxp; size = sizeof(TTF_MAXP); break;
    case TAG_OS2: from = ttf->os2; size = sizeof(TTF_OS2); break;
    default: return fail(state, ERR_BAD_ARGUMENT);
  }
  if (from == nullptr) return fail(state, ERR_TABLE_NOT_FOUND);
  memcpy(structure, from, size);
  return 0;
}

FS_LONG FNTSET_get_table_structure(FS_STATE* state, FNTSET* fntset,
                                   FS_ULONG tag, void* structure) {
  if (fntset == nullptr || fntset->metric_font == nullptr)
    return fail(state, ERR_NO_CURRENT_FONT);
  return LFNT_get_table_structure(state, fntset->metric_font, tag, structure);
}

FS_LONG FSS_get_table_structure(FS_STATE* state, FS_ULONG tag,
                                void* structure) {
  return FNTSET_get_table_structure(state, state->cur_typeset.fntset, tag,
                                    structure);
}

/* ---- Line spacing ---- */

void TTF_calc_ascender_descender_leading(const TTF_OS2* os2,
                                         const TTF_HHEA* hhea,
                                         const TTF_HEAD* head, FS_FIXED emSize,
                                         FS_FIXED* ascender,
                                         FS_FIXED* descender,
                                         FS_FIXED* leading,
                                         FS_USHORT* source) {
  FS_USHORT upem = head->unitsPerEm;
  FS_LONG asc, desc, lead;
  if (os2 != nullptr && (os2->usWinAscent != 0 || os2->usWinDescent != 0)) {
    asc = os2->usWinAscent;
    desc = os2->usWinDescent;
    lead = (FS_LONG)hhea->yAscender - hhea->yDescender + hhea->yLineGap -
           (asc + desc);
    if (lead < 0) lead = 0;
    *source = FsAscDescLeadSource_WIN_MAC_COMPAT;
  } else {
    asc = hhea->yAscender;
    desc = -(FS_LONG)hhea->yDescender;
    lead = hhea->yLineGap;
    *source = FsAscDescLeadSource_TTF_HHEA;
  }
  *ascender = scaled(asc, emSize, upem);
  *descender = scaled(desc, emSize, upem);
  *leading = scaled(lead, emSize, upem);
}

FS_LONG LFNT_get_ascender_descender_leading(FS_STATE* state, LFNT* lfnt,
                                            FS_FIXED emSize,
                                            FS_FIXED* ascender,
                                            FS_FIXED* descender,
                                            FS_FIXED* leading,
                                            FS_USHORT* source) {
  state->error = SUCCESS;
  if (lfnt == nullptr) return fail(state, ERR_NO_CURRENT_LFNT);
  if (!has_sfnt_tables(lfnt)) return fail(state, ERR_FONT_TYPE_UNSUPPORTED);
  TTF* ttf = loaded_ttf(state, lfnt);
  if (ttf == nullptr) return (FS_LONG)state->error;
  if (ttf->head == nullptr || ttf->hhea == nullptr)
    return fail(state, ERR_TABLE_NOT_FOUND);

  FS_USHORT ppem = (FS_USHORT)((emSize + 0x8000) >> 16);
  FS_SHORT yMax = 0, yMin = 0;
  if (LFNT_get_vdmx_pair(state, lfnt, ppem, ppem, &yMax, &yMin) == 0) {
    *ascender = (FS_FIXED)yMax * 65536;
    *descender = -((FS_FIXED)yMin * 65536);
    FS_LONG gap = ttf->os2 ? ttf->os2->sTypoLineGap : ttf->hhea->yLineGap;
    *leading = scaled(gap, emSize, ttf->head->unitsPerEm);
    *source = FsAscDescLeadSource_VDMX_TABLE;
  } else {
    state->error = SUCCESS;
    TTF_calc_ascender_descender_leading(ttf->os2, ttf->hhea, ttf->head, emSize,
                                        ascender, descender, leading, source);
  }
  if (lfnt->fontflags & FONTFLAG_STROKE) {
    FS_FIXED half = varmul_64(emSize, state->stroke_pct, 16) >> 1;
    *ascender += half;
    *descender += half;
  }
  return 0;
}

FS_LONG FSS_get_ascender_descender_leading(FS_STATE* state,
                                           FS_FIXED* ascender,
                                           FS_FIXED* descender,
                                           FS_FIXED* leading,
                                           FS_USHORT* source) {
  state->error = SUCCESS;
  *ascender = *descender = *leading = 0;
  *source = FsAscDescLeadSource_UNKNOWN;
  FNTSET* set = state->cur_typeset.fntset;
  if (set == nullptr) return fail(state, ERR_NO_CURRENT_FONT);
  if (state->scale[0] == 0 && state->scale[1] == 0 && state->scale[2] == 0 &&
      state->scale[3] == 0)
    return 0;
  TFNT* tfnts = state->cur_typeset.tfntarray;
  if (tfnts == nullptr) return fail(state, ERR_NO_TFNT);

  const FS_FIXED kStart = -10000 * 65536;
  *ascender = *descender = *leading = kStart;
  FS_USHORT count = set->num_fonts < state->cur_typeset.capacity
                        ? set->num_fonts
                        : state->cur_typeset.capacity;
  for (FS_USHORT i = 0; i < count; i++) {
    TFNT* tfnt = &tfnts[i];
    if (tfnt->cfnt == nullptr || tfnt->sfnt == nullptr)
      return fail(state, ERR_NO_CURRENT_SFNT);
    state->cur_font = i;
    state->cur_lfnt = tfnt->cfnt->lfnt;
    state->cur_sfnt = tfnt->sfnt;
    if (check_sfnt(state) != 0) return (FS_LONG)state->error;
    SENV* senv = tfnt->sfnt->senv;
    if (senv == nullptr) return fail(state, ERR_NO_SENV);
    FS_FIXED a, d, l;
    FS_USHORT src;
    if (LFNT_get_ascender_descender_leading(state, tfnt->cfnt->lfnt,
                                            (FS_FIXED)senv->yppm << 16, &a, &d,
                                            &l, &src) != 0)
      return (FS_LONG)state->error;
    FS_FIXED shift = (FS_FIXED)tfnt->sfnt->vertical_shift * 65536;
    a += shift;
    d -= shift;
    int taken = 0;
    if (a > *ascender) { *ascender = a; taken++; }
    if (d > *descender) { *descender = d; taken++; }
    if (l > *leading) { *leading = l; taken++; }
    if (*source == FsAscDescLeadSource_UNKNOWN || taken == 3)
      *source = src;
    else if (taken > 0 && src != *source)
      *source = FsAscDescLeadSource_FONTSET_MIXED;
  }
  return 0;
}

FS_LONG LFNT_get_vdmx_pair(FS_STATE* state, LFNT* lfnt, FS_USHORT xppm,
                           FS_USHORT yppm, FS_SHORT* yMax, FS_SHORT* yMin) {
  state->error = SUCCESS;
  if (lfnt != nullptr && lfnt->fnt_type == FNT_TYPE_NO_SCALER)
    return fail(state, ERR_FORMAT_NOT_SUPPORTED);
  TTF* ttf = loaded_ttf(state, lfnt);
  if (ttf == nullptr) return (FS_LONG)state->error;
  if (ttf->vdmx_offset == 0) return fail(state, ERR_TABLE_NOT_FOUND);
  FS_ULONG len = 0;
  FS_BYTE* t = read_table(state, ttf, TAG_VDMX, &len);
  if (t == nullptr) return (FS_LONG)state->error;

  FS_LONG err = ERR_VDMX_RATIO;
  FS_ULONG ratios = fits(len, 4, 2) ? get_u16(t + 4) : 0;
  FS_ULONG group = 0;
  bool matched = false;
  for (FS_ULONG i = 0; i < ratios && fits(len, 6 + 4 * i, 4); i++) {
    const FS_BYTE* r = t + 6 + 4 * i;
    FS_ULONG xr = r[1], ys = r[2], ye = r[3];
    if (xr == 0 && ys == 0 && ye == 0) {
      matched = true;
    } else if (xr == 0 || ys == 0 || ye == 0) {
      break;  // a ratio half given: 517
    } else {
      // yppm / xppm within ys / xr .. ye / xr, the remainders of the
      // divisions taken along.
      FS_UINT64 y = (FS_UINT64)yppm * xr;
      FS_UINT64 lo = (FS_UINT64)ys * xppm + y % ys;
      FS_UINT64 hi = (FS_UINT64)ye * xppm + y % ye;
      matched = y >= lo && y <= hi;
    }
    if (matched) {
      FS_UINT64 at = 6 + 4 * (FS_UINT64)ratios + 2 * (FS_UINT64)i;
      if (fits(len, at, 2)) group = get_u16(t + at);
      break;
    }
  }
  if (matched) {
    err = ERR_VDMX_RECORD;
    if (group != 0 && fits(len, group, 4)) {
      FS_ULONG recs = get_u16(t + group);
      FS_ULONG startsz = t[group + 2], endsz = t[group + 3];
      if (yppm >= startsz && yppm <= endsz) {
        for (FS_ULONG k = 0; k < recs && fits(len, group + 4 + 6 * k, 6); k++) {
          const FS_BYTE* e = t + group + 4 + 6 * k;
          FS_USHORT height = get_u16(e);
          if (height > yppm) break;
          if (height == yppm) {
            *yMax = get_s16(e + 2);
            *yMin = get_s16(e + 4);
            err = 0;
            break;
          }
        }
      }
    }
  }
  FSS_free(state, t);
  return err ? fail(state, err) : 0;
}

FS_LONG FSS_get_vdmx_pair(FS_STATE* state, FS_SHORT* yMax, FS_SHORT* yMin) {
  *yMax = *yMin = 0;
  FNTSET* set = state->cur_typeset.fntset;
  if (set == nullptr) return fail(state, ERR_NO_CURRENT_FONT);
  // The metric component: the one whose font is the set's metric font.
  TFNT* tfnt = nullptr;
  for (FS_USHORT i = 0; i < state->cur_typeset.capacity &&
                        state->cur_typeset.tfntarray != nullptr;
       i++) {
    TFNT* t = &state->cur_typeset.tfntarray[i];
    if (t->cfnt && t->cfnt->lfnt == set->metric_font) {
      tfnt = t;
      break;
    }
  }
  if (tfnt == nullptr) return fail(state, ERR_NO_TFNT);
  if (tfnt->sfnt == nullptr) return fail(state, ERR_NO_CURRENT_SFNT);
  state->cur_sfnt = tfnt->sfnt;
  state->cur_lfnt = tfnt->cfnt->lfnt;
  if (check_sfnt(state) != 0) return (FS_LONG)state->error;
  SENV* senv = tfnt->sfnt->senv;
  if (LFNT_get_vdmx_pair(state, tfnt->cfnt->lfnt, senv->xppm, senv->yppm,
                         yMax, yMin) != 0)
    return (FS_LONG)state->error;
  *yMax = (FS_SHORT)(*yMax + tfnt->sfnt->vertical_shift);
  *yMin = (FS_SHORT)(*yMin + tfnt->sfnt->vertical_shift);
  return 0;
}

/* ---- Widths and sizes ---- */

FS_LONG SFNT_get_hdmx_width(FS_STATE* state, SFNT* sfnt, FS_ULONG index,
                            FS_BYTE* width) {
  *width = 0;
  state->error = SUCCESS;
  if (sfnt == nullptr) return fail(state, ERR_NO_CURRENT_SFNT);
  LFNT* lfnt = sfnt->lfnt;
  if (lfnt == nullptr) return fail(state, ERR_NO_CURRENT_LFNT);
  if (lfnt->fnt_type == FNT_TYPE_NO_SCALER)
    return fail(state, ERR_FORMAT_NOT_SUPPORTED);
  SENV* senv = sfnt->senv;
  if (senv == nullptr) return fail(state, ERR_NO_SENV);
  TTF* ttf = loaded_ttf(state, lfnt);
  if (ttf == nullptr) return (FS_LONG)state->error;
  FS_ULONG off = 0, len = 0;
  if (ttf->hdmx_offset == 0 ||
      !get_ttf_table_info(state, ttf, TAG_hdmx, &off, &len))
    return fail(state, ERR_TABLE_NOT_FOUND);

  if (senv->hdmx_group_offset == 0xFFFFFFFF) return fail(state, ERR_HDMX_RECORD);
  if (senv->hdmx_group_offset != 0) {
    FS_UINT64 at = (FS_UINT64)senv->hdmx_group_offset + 2 + index;
    if (at < (FS_UINT64)off + len)
      ttf_read_buf(state, ttf, (FS_ULONG)at, 1, width);
    return (FS_LONG)state->error;
  }

  FS_BYTE head[8];
  if (len < 8) return fail(state, ERR_HDMX_RECORD);
  ttf_read_buf(state, ttf, off, 8, head);
  if (state->error != SUCCESS) return (FS_LONG)state->error;
  FS_ULONG records = get_u16(head + 2);
  FS_ULONG size = get_u32(head + 4);
  if (index >= ttf->maxp->numGlyphs) return fail(state, ERR_BAD_GLYF_INDEX);
  for (FS_ULONG i = 0; i < records && size >= 2; i++) {
    FS_UINT64 rec = 8 + (FS_UINT64)size * i;
    if (rec + 2 + index >= len) break;
    FS_BYTE ppem = 0;
    ttf_read_buf(state, ttf, off + (FS_ULONG)rec, 1, &ppem);
    if (state->error != SUCCESS) return (FS_LONG)state->error;
    if (ppem > senv->xppm) break;
    if (ppem == senv->xppm) {
      ttf_read_buf(state, ttf, off + (FS_ULONG)rec + 2 + index, 1, width);
      senv->hdmx_group_offset = off + (FS_ULONG)rec;
      return (FS_LONG)state->error;
    }
  }
  senv->hdmx_group_offset = 0xFFFFFFFF;
  return fail(state, ERR_HDMX_RECORD);
}

FS_LONG FSS_get_glyph_metrics(FS_STATE* state, FS_ULONG index, FS_SHORT* lsb,
                              FS_USHORT* aw, FS_SHORT* tsb, FS_USHORT* ah) {
  *lsb = *tsb = 0;
  *aw = *ah = 0;
  if (state->cur_sfnt == nullptr) return fail(state, ERR_NO_CURRENT_SFNT);
  if (check_sfnt(state) != 0) return (FS_LONG)state->error;
  FS_ULONG start = 0;
  TYPESET* ts = &state->cur_typeset;
  if (ts->tfntarray != nullptr && state->cur_font < ts->capacity &&
      ts->tfntarray[state->cur_font].cfnt != nullptr)
    start = ts->tfntarray[state->cur_font].cfnt->start_index;
  fsg_SplineKey* key = (fsg_SplineKey*)state->cur_sfnt->senv->ttkey;
  TTF* ttf = (TTF*)state->cur_sfnt->lfnt->fnt;
  if (index < start || index - start >= ttf->maxp->numGlyphs) return 0;
  fsg_Metrics m;
  if (get_glyph_metrics(state, key, index - start, &m) != 0)
    return (FS_LONG)state->error;
  *lsb = (FS_SHORT)m.lsb;
  *aw = (FS_USHORT)m.aw;
  *tsb = (FS_SHORT)m.tsb;
  *ah = (FS_USHORT)m.ah;
  state->error = SUCCESS;
  return 0;
}

FS_LONG CFNT_get_font_height(FS_STATE* state, FNTSET* fntset, CFNT* cfnt,
                             FS_USHORT ppem, FS_LONG* ascent,
                             FS_LONG* descent) {
  *ascent = *descent = 0;
  if (cfnt == nullptr || cfnt->lfnt == nullptr)
    return fail(state, ERR_TABLE_NOT_FOUND);
  // The component's size adjustment: its whole pixels of scale make it a
  // larger size, its shift moves it up.
  FS_PPEM_ADJUST adj;
  FS_LONG err = CFNT_get_adjustments(state, fntset, cfnt, (FS_FIXED)ppem << 16, &adj);
  if (err != 0) return err;
  FS_LONG size = ppem;
  if (adj.scale != 0) size += adj.scale / 256;  // toward zero when negative
  if ((cfnt->lfnt->fontflags & FONTFLAG_STIK_64) && (size & 1)) size--;
  FS_FIXED a, d, l;
  FS_USHORT src;
  if (LFNT_get_ascender_descender_leading(state, cfnt->lfnt, size * 65536, &a,
                                          &d, &l, &src) != 0)
    return fail(state, ERR_TABLE_NOT_FOUND);
  *ascent = round_pixels(a);
  *descent = round_pixels(d);
  if (adj.shift != 0) {
    *ascent += adj.shift;
    *descent -= adj.shift;
  }
  return 0;
}

FS_USHORT FSS_get_ppem_size(FS_STATE* state, FS_USHORT pixel_height,
                            FS_USHORT max_ppem) {
  state->error = SUCCESS;
  FNTSET* set = state->cur_typeset.fntset;
  if (set == nullptr) {
    fail(state, ERR_NO_CURRENT_FONT);
    return max_ppem;
  }
  if (state->cur_typeset.tfntarray == nullptr) {
    fail(state, ERR_NO_TFNT);
    return 0;
  }
  FS_USHORT count = set->num_fonts < state->cur_typeset.capacity
                        ? set->num_fonts
                        : state->cur_typeset.capacity;
  FS_USHORT ppem = max_ppem;
  for (; ppem > 1; ppem--) {
    FS_LONG ascent = 0, descent = 0;
    for (FS_USHORT i = 0; i < count; i++) {
      FS_LONG a, d;
      if (CFNT_get_font_height(state, set, state->cur_typeset.tfntarray[i].cfnt,
                               ppem, &a, &d) != 0)
        return 0;
      if (a > ascent) ascent = a;
      if (d > descent) descent = d;
    }
    if (ascent + descent <= pixel_height) break;
  }
  return ppem;
}

/* ---- Reference lines ---- */

namespace {

const FS_ULONG kVerticalFlags = FLAGS_VERTICAL_ON |
                                FLAGS_VERTICAL_ROTATE_RIGHT_ON |
                                FLAGS_VERTICAL_ROTATE_LEFT_ON;
const int kMarkSlot = 52;
const int kUnitSlot = 7;

// The client state the measuring changes, put back on every way out.
struct SavedState {
  FS_USHORT platform, encoding;
  FS_ULONG flags, fontflags;
};

void restore(FS_STATE* state, LFNT* lfnt, const SavedState& saved) {
  FSS_set_cmap(state, saved.platform, saved.encoding);
  state->flags = saved.flags;
  lfnt->fontflags = saved.fontflags;
  state->error = SUCCESS;
}

// Bottom and top of the outline of character `code` in 26.6 pixels, from
// the outline's extent (16.16) shifted right by 10. False, with nothing
// changed, for a character the font lacks or whose outline fails.
bool measure(FS_STATE* state, FS_ULONG code, F26DOT6* lo, F26DOT6* hi) {
  FS_USHORT glyph = map_char(state, code, 0);
  if (state->error != SUCCESS || glyph == 0) {
    state->error = SUCCESS;
    return false;
  }
  FS_OUTLINE* o = internal_get_outline(state, code);
  if (o == nullptr) {
    state->error = SUCCESS;
    return false;
  }
  *lo = o->lo_y >> 10;
  *hi = o->hi_y >> 10;
  FSS_free_char(state, o);
  return true;
}

// The hinted trial's flags: gray fitting, hints on, the autohinter forced
// over the glyph as the reference-line pass asks.
const FS_ULONG kTrialOn = FLAGS_GRAYSCALE | FLAGS_FORCE_AUTOHINT | FLAGS_REF_LINE_PASS;

// The autohinter's record in the key of the current scaled font, or null.
RTGAH_DATA* current_rtgah(FS_STATE* state) {
  SENV* senv = state->cur_sfnt ? state->cur_sfnt->senv : nullptr;
  fsg_SplineKey* key = senv ? (fsg_SplineKey*)senv->ttkey : nullptr;
  return key ? &key->rtgah : nullptr;
}

// Character `code` through the autohinter (the trial flags set). 1 when the
// autohinter took hold of it, with its hinted top and bottom (the stroke
// extremes it aligned; 0x7FFFFFFF each when it found no stroke across y) in
// *hi and *lo; 0 when it did not take hold; -1 for a letter the font lacks.
int hinted_trial(FS_STATE* state, FS_ULONG code, F26DOT6* lo, F26DOT6* hi) {
  FS_USHORT glyph = map_char(state, code, 0);
  if (state->error != SUCCESS || glyph == 0 || check_sfnt(state) != 0) {
    state->error = SUCCESS;
    return -1;
  }
  RTGAH_DATA* r = current_rtgah(state);
  if (r != nullptr) r->hi = r->lo = 0x7FFFFFFF;
  FS_OUTLINE* o = internal_get_outline(state, code);
  if (o == nullptr) {
    state->error = SUCCESS;
    return -1;
  }
  bool hold = (o->outl_flag & 16) && state->cur_sfnt->rtgah_suitable != 0;
  FSS_free_char(state, o);
  r = current_rtgah(state);
  *hi = r ? r->hi : 0x7FFFFFFF;
  *lo = r ? r->lo : 0x7FFFFFFF;
  return hold ? 1 : 0;
}

// One alphabet's letters: its hinted test letter, and the letters in the
// roles of the first six slots: the flat capitals (slots 0 and 4), the round
// capital (1 and 5), the small letters that stand lowest (2) and the round
// small letter (3).
struct Alphabet {
  FS_ULONG test;
  FS_ULONG flat[5];
  int num_flat;
  FS_ULONG round_capital;
  FS_ULONG low[4];
  int num_low;
  FS_ULONG round_small;
};

const Alphabet kLatin = {'l', {'B', 'E', 'H', 'T', 'Z'}, 5, 'O',
                         {'w', 'x', 'y', 'z'}, 4, 'o'};
const Alphabet kCyrillic = {1048, {1045}, 1, 1054, {1083}, 1, 1086};
const Alphabet kGreek = {921, {917}, 1, 927, {960}, 1, 959};

// The lowest top and highest bottom over the letters of `codes`; untouched
// when the font has none of them. True when one was measured.
bool measure_inner(FS_STATE* state, const FS_ULONG* codes, int n,
                   F26DOT6* lowestTop, F26DOT6* highestBottom) {
  bool any = false;
  for (int i = 0; i < n; i++) {
    F26DOT6 lo, hi;
    if (!measure(state, codes[i], &lo, &hi)) continue;
    if (!any || hi < *lowestTop) *lowestTop = hi;
    if (!any || lo > *highestBottom) *highestBottom = lo;
    any = true;
  }
  return any;
}

// Slot 0 the flat capitals' lowest top, 4 their highest bottom; 1 and 5
// the round capital's top and bottom; 2 the lowest top of the small
// letters; 3 the round small letter's top.
void measure_alphabet(FS_STATE* state, const Alphabet& a, F26DOT6* r) {
  F26DOT6 lo, hi;
  measure_inner(state, a.flat, a.num_flat, &r[0], &r[4]);
  if (measure(state, a.round_capital, &lo, &hi)) {
    r[1] = hi;
    r[5] = lo;
  }
  F26DOT6 ignored = 0;
  measure_inner(state, a.low, a.num_low, &r[2], &ignored);
  if (measure(state, a.round_small, &lo, &hi)) r[3] = hi;
}

// A script measured by its letters, each giving a top and a bottom slot
// (-1: not kept), when a bit of one of the three ranges is on.
struct ScriptLetter {
  int range;  // 1, 2 or 3: ulUnicodeRange1..3
  FS_ULONG mask;
  FS_ULONG code;
  int top, bottom;
};

// In the order the scripts are measured.
const ScriptLetter kScriptLetters[] = {
    {2, 1u << 24, 0xD4F0, 12, 13},  // Hangul
    {2, 1u << 24, 0xAC00, 14, 15},
    {1, 0x8000, 0x093E, 16, 17},    // Devanagari
    {1, 0x10000, 0x0995, 18, 19},   // Bengali
    {1, 0x20000, 0x0A38, 20, 21},   // Gurmukhi
    {1, 0x40000, 0x0A9F, 47, 49},   // Gujarati
    {1, 0x40000, 0x0ABE, 48, -1},
    {1, 1u << 20, 0x0BB1, 28, -1},  // Tamil
    {1, 1u << 20, 0x0BAA, 29, 31},
    {1, 1u << 20, 0x0B95, -1, 30},
    {1, 1u << 21, 0x0C05, 22, 23},  // Telugu
    {1, 1u << 23, 0x0D20, 24, 26},  // Malayalam
    {1, 1u << 23, 0x0D1A, 25, 27},
    {1, 0x80000, 0x0B20, 32, 34},   // Oriya
    {1, 0x80000, 0x0B3E, 33, -1},
    {3, 0x200, 0x0DA7, -1, 38},     // Sinhala
    {1, 1u << 24, 0x0E01, 40, -1},  // Thai
    {1, 1u << 24, 0x0E40, 41, -1},
    {1, 1u << 24, 0x0E07, -1, 42},
    {1, 1u << 24, 0x0E1A, -1, 43},
    {3, 0x10000, 0x1791, 44, 45},   // Khmer
    {3, 0x10000, 0x1783, -1, 46},
};

bool is_indic_slot(int slot) {
  return (slot >= 16 && slot <= 39) || (slot >= 47 && slot <= 50);
}

// The CJK lines from the autohinter's hinted extremes: slots 8 and 9 the
// mean top and bottom of two ideographs, 10 and 11 those of a third; a
// pair none of whose letters gave a value is 0x7FFFFFFF. False when the
// trial letter shows the autohinter takes no hold of the font.
bool measure_cjk(FS_STATE* state, F26DOT6* r) {
  F26DOT6 lo, hi;
  if (hinted_trial(state, 0x4E28, &lo, &hi) == 0) return false;
  const FS_ULONG pairs[2][2] = {{0x9748, 0x9706}, {0x6797, 0}};
  for (int k = 0; k < 2; k++) {
    FS_INT64 top = 0, bottom = 0;
    int count = 0;
    for (FS_ULONG code : pairs[k]) {
      if (code == 0 || hinted_trial(state, code, &lo, &hi) != 1 || hi == 0x7FFFFFFF) continue;
      top += hi;
      bottom += lo;
      count++;
    }
    r[8 + 2 * k] = count ? (F26DOT6)(top / count) : 0x7FFFFFFF;
    r[9 + 2 * k] = count ? (F26DOT6)(bottom / count) : 0x7FFFFFFF;
  }
  return true;
}

}  // namespace

void get_ref_lines(FS_STATE* state) {
  SFNT* sfnt = state->cur_sfnt;
  if (sfnt == nullptr || sfnt->ref_lines[kMarkSlot] != 0) return;
  LFNT* lfnt = sfnt->lfnt;
  F26DOT6* r = sfnt->ref_lines;
  memset(r, 0, sizeof sfnt->ref_lines);
  r[kMarkSlot] = 1;
  if (lfnt == nullptr) return;
  SavedState saved = {state->platform, state->encoding, state->flags,
                      lfnt->fontflags};

  // Only a text font is measured.
  TTF* ttf = loaded_ttf(state, lfnt);
  const TTF_OS2* os2 = ttf ? ttf->os2 : nullptr;
  if (os2 == nullptr || (os2->panose[0] >= 3 && os2->panose[0] <= 5)) {
    sfnt->rtgah_suitable = 0;
    restore(state, lfnt, saved);
    return;
  }
  FS_ULONG range1 = os2->ulUnicodeRange1 ? os2->ulUnicodeRange1 : 1;
  FS_ULONG range2 = os2->ulUnicodeRange2, range3 = os2->ulUnicodeRange3;

  if (FSS_set_cmap(state, 3, 1) != 0 && FSS_set_cmap(state, 3, 10) != 0) {
    restore(state, lfnt, saved);
    return;
  }
  state->flags &= ~(FLAGS_CMAP_OFF | kVerticalFlags | FLAGS_UNSUPPORTED);

  // One alphabet: its test letter through the autohinter (which sets the
  // side-bearing steps, slots 6 and 7, as the first glyph at this size),
  // then its letters plain.
  const Alphabet* alphabet = (range1 & 1)       ? &kLatin
                             : (range1 & 0x200) ? &kCyrillic
                             : (range1 & 0x80)  ? &kGreek
                                                : nullptr;
  if (alphabet != nullptr) {
    state->flags = (state->flags | kTrialOn) & ~FLAGS_NO_HINTS;
    F26DOT6 lo, hi;
    int held = hinted_trial(state, alphabet->test, &lo, &hi);
    state->flags &= ~FLAGS_REF_LINE_PASS;
    if (held == 0) {
      sfnt->rtgah_suitable = 0;
      restore(state, lfnt, saved);
      return;
    }
  }
  state->flags &= ~(FLAGS_GRAYSCALE | FLAGS_FORCE_AUTOHINT);
  state->flags |= FLAGS_NO_HINTS;
  if (alphabet != nullptr) measure_alphabet(state, *alphabet, r);
  if (r[kUnitSlot] == 0) r[kUnitSlot] = 64;

  // The order the design of an alphabet must show, else no measuring.
  if (!(r[1] >= r[0] && r[0] >= r[3] && r[3] >= r[2] && r[2] >= r[4] &&
        r[4] >= r[5])) {
    sfnt->rtgah_suitable = 0;
    restore(state, lfnt, saved);
    return;
  }

  // Nothing measured: the digits stand in, "7" for the flat top, "1" for
  // the flat bottom, "0" for the round ones; the small letters copy the
  // capitals.
  bool digitsOnly = false;
  if (r[0] == 0 && r[1] == 0) {
    F26DOT6 lo, hi;
    if (measure(state, '1', &lo, &hi)) r[4] = lo;
    if (measure(state, '7', &lo, &hi)) r[0] = hi;
    if (measure(state, '0', &lo, &hi)) {
      r[1] = hi;
      r[5] = lo;
    }
    r[2] = r[0];
    r[3] = r[1];
    digitsOnly = true;
  }

  // CJK through the autohinter's hinted extremes.
  if (range2 & (1u << 27)) {
    state->flags = (state->flags | kTrialOn) & ~FLAGS_NO_HINTS;
    bool held = measure_cjk(state, r);
    state->flags = (state->flags | FLAGS_NO_HINTS) &
                   ~(FLAGS_FORCE_AUTOHINT | FLAGS_REF_LINE_PASS);
    if (!held) {
      sfnt->rtgah_suitable = 0;
      restore(state, lfnt, saved);
      return;
    }
  }

  // Other scripts, plain.
  state->flags &= ~(FLAGS_GRAYSCALE | FLAGS_FORCE_AUTOHINT | FLAGS_REF_LINE_PASS);
  state->flags |= FLAGS_NO_HINTS;
  bool indic = false;
  for (const ScriptLetter& s : kScriptLetters) {
    FS_ULONG range = s.range == 1 ? range1 : s.range == 2 ? range2 : range3;
    if ((range & s.mask) == 0) continue;
    F26DOT6 lo, hi;
    if (!measure(state, s.code, &lo, &hi)) continue;
    if (s.top >= 0) r[s.top] = hi;
    if (s.bottom >= 0) r[s.bottom] = lo;
    if ((s.top >= 0 && hi != 0 && is_indic_slot(s.top)) ||
        (s.bottom >= 0 && lo != 0 && is_indic_slot(s.bottom)))
      indic = true;
  }
  if (r[47] < r[48]) {
    F26DOT6 t = r[47];
    r[47] = r[48];
    r[48] = t;
  }
  bool arabic = (range3 & 8) || (range1 & 0x2000) || (range2 & 0x80000000u);
  F26DOT6 lo, hi;
  if (arabic && measure(state, 0x062A, &lo, &hi)) r[51] = lo;

  restore(state, lfnt, saved);
  if (digitsOnly && !indic) sfnt->rtgah_suitable = 0;
}
