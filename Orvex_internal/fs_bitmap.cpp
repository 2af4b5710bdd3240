// The bitmap scan converter. make_bitmap draws the outline's lines into the
// server's transition lists (rows, and columns for dropout control), then
// nzw_runs fills the non-zero runs of each row with byte masks and
// y_dropouts adds the thin vertical runs; construct_bitmap applies the
// effects and trims, get_bitmap adds the cache. Called by the glyph request
// pipeline.
#include "Orvex_internal/fs_bitmap.h"

#include <stdio.h>
#include <string.h>

#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_effects.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_line.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_sbit.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_tlist.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

// Bit 7 is a byte's leftmost pixel: Lmask keeps a pixel and those right of
// it, Rmask a pixel and those left of it.
const FS_BYTE Lmask[8] = {0xFF, 0x7F, 0x3F, 0x1F, 0x0F, 0x07, 0x03, 0x01};
const FS_BYTE Rmask[8] = {0x80, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC, 0xFE, 0xFF};
const FS_BYTE fs_mask[8] = {0x80, 0x40, 0x20, 0x10, 0x08, 0x04, 0x02, 0x01};

const FS_LONG MAX_SIDE = 16384;

FS_LONG floor_px(FS_FIXED v) { return (FS_LONG)((FS_INT64)v >> 16); }
FS_LONG ceil_px(FS_FIXED v) { return (FS_LONG)(((FS_INT64)v + 0xFFFF) >> 16); }

FS_LONG current_lpm(FS_STATE* state) {
  FS_LONG lpm = state->lpm;
  if (lpm == 0 && state->cur_sfnt && state->cur_sfnt->senv)
    lpm = state->cur_sfnt->senv->yppm;
  return lpm;
}

// Pixel boldness of small stroke sizes: asked by 0x200, or by a font of
// font flag 64 below 27 pixels per em without a bold flag.
bool pixel_bold(FS_STATE* state) {
  if (state->flags & FLAGS_ADD_WEIGHT) return true;
  LFNT* lfnt = state->cur_lfnt;
  return lfnt != nullptr && (lfnt->fontflags & FONTFLAG_STIK_64) &&
         current_lpm(state) < 27 &&
         (state->flags & (FLAGS_REGULARBOLD | FLAGS_FRACTBOLD)) == 0;
}

FS_SHORT bold_width(FS_STATE* state) {
  SFNT* sfnt = state->cur_sfnt;
  return sfnt && sfnt->senv ? sfnt->senv->bold_width : 0;
}

bool in_short(FS_LONG v) { return v > -32768 && v < 32767; }

// The image effects on a finished bitmap, first match only: emboss (4),
// engrave (8), a hollow outline at 1 (16) or 2 (32) pixels, or at the
// outline width (0x1C0), filled unless 0x80. A failed effect leaves the
// map with us: it is freed and the heap's error stands.
FS_BITMAP* bitmap_effects(FS_STATE* state, FS_BITMAP* b) {
  FS_ULONG f = state->flags;
  FS_BITMAP* r = b;
  if (f & FLAGS_EMBOSSED)
    r = emboss_bitmap(b);
  else if (f & FLAGS_ENGRAVED)
    r = engrave_bitmap(b);
  else if (f & FLAGS_OUTLINED_1PIXEL)
    r = outline_bitmap(state, b, 1, 0);
  else if (f & FLAGS_OUTLINED_2PIXEL)
    r = outline_bitmap(state, b, 2, 0);
  else if (f & (FLAGS_OUTLINED_FILLED | FLAGS_OUTLINED_UNFILLED | FLAGS_OUTLINED_SOFT))
    r = outline_bitmap(state, b, state->outline_width,
                       (f & FLAGS_OUTLINED_UNFILLED) == 0);
  if (r == nullptr) FSS_free(state, b);
  return r;
}

// Sets pixels c0 to c1 - 1 of a row, 0 <= c0 < c1.
void fill_span(FS_BYTE* row, FS_LONG c0, FS_LONG c1) {
  FS_LONG b0 = c0 >> 3, b1 = (c1 - 1) >> 3;
  if (b0 == b1) {
    row[b0] |= (FS_BYTE)(Lmask[c0 & 7] & Rmask[(c1 - 1) & 7]);
    return;
  }
  row[b0] |= Lmask[c0 & 7];
  FS_LONG n = b1 - b0 - 1;
  if (n > 8) {
    memset(row + b0 + 1, 0xFF, (size_t)n);
  } else {
    for (FS_LONG k = b0 + 1; k < b1; k++) row[k] = 0xFF;
  }
  row[b1] |= Rmask[(c1 - 1) & 7];
}

// The next run of non-zero winding from node *k: its two crossings, *k
// moved past it. False when the row ends with the winding open.
bool next_run(const TLIST* list, FS_LONG* k, FS_FIXED* v0, FS_FIXED* v1) {
  const TNODE* nodes = list->nodes;
  *v0 = nodes[*k].value;
  FS_LONG w = crossing_up(*v0) ? 1 : -1;
  FS_LONG i = nodes[*k].next;
  while (i != -1) {
    FS_FIXED v = nodes[i].value;
    w += crossing_up(v) ? 1 : -1;
    i = nodes[i].next;
    if (w == 0) {
      *v1 = v;
      *k = i;
      return true;
    }
  }
  *k = -1;
  return false;
}

void set_pixel(FS_BITMAP* b, FS_LONG row, FS_LONG col) {
  if (row < 0 || row >= b->height || col < 0 || col >= b->width) return;
  b->bits[row * b->bpl + (col >> 3)] |= fs_mask[col & 7];
}

FS_BITMAP* fail(FS_STATE* state, FS_BITMAP* b, FS_ULONG err) {
  FSS_free(state, b);
  if (err != 0) state->error = err;
  return nullptr;
}

}  // namespace

FS_BITMAP* new_bitmap(FS_STATE* state, FS_OUTLINE* outl) {
  if (outl->num == 0 || outl->np == 0) {
    FS_BITMAP* b = (FS_BITMAP*)FSS_calloc(state, sizeof(FS_BITMAP));
    if (b == nullptr) return nullptr;
    b->size = BITMAP_HEADER;
    b->i_dx = outl->i_dx;
    b->i_dy = outl->i_dy;
    b->dx = outl->dx;
    b->dy = outl->dy;
    b->bitsPerPixel = 1;
    b->type = 1;
    return b;
  }
  FS_LONG lo_x = floor_px(outl->lo_x), hi_x = ceil_px(outl->hi_x);
  FS_LONG lo_y = floor_px(outl->lo_y), hi_y = ceil_px(outl->hi_y);
  // Stroke skeletons take their stroke's width on every side here once the
  // stroke-font unit draws them; no font this build loads has them.
  if (pixel_bold(state)) {
    FS_SHORT bw = bold_width(state);
    if (bw != 0) lo_x--;
    if (bw > 1) hi_x++;
  }
  FS_LONG width = hi_x - lo_x + 1, height = hi_y - lo_y + 1;
  if (width >= MAX_SIDE || height >= MAX_SIDE || width <= 0 || height <= 0)
    return nullptr;
  if (!in_short(lo_x) || !in_short(hi_x) || !in_short(lo_y) || !in_short(hi_y))
    return nullptr;
  FS_LONG bpl = (width + 7) / 8;
  FS_LONG size = BITMAP_HEADER + bpl * height;
  FS_BITMAP* b = (FS_BITMAP*)FSS_calloc(
      state, (FS_ULONG)(size < (FS_LONG)sizeof(FS_BITMAP) ? (FS_LONG)sizeof(FS_BITMAP) : size));
  if (b == nullptr) return nullptr;
  b->size = size;
  b->lo_x = (FS_SHORT)lo_x;
  b->hi_y = (FS_SHORT)hi_y;
  b->width = (FS_SHORT)width;
  b->height = (FS_SHORT)height;
  b->bpl = (FS_SHORT)bpl;
  b->bitsPerPixel = 1;
  b->type = 1;
  b->i_dx = outl->i_dx;
  b->i_dy = outl->i_dy;
  b->dx = outl->dx;
  b->dy = outl->dy;
  return b;
}

FS_BITMAP* make_bitmap(FS_STATE* state, FS_OUTLINE* outl) {
  if (outl == nullptr) return nullptr;
  state->error = 0;
  FS_BITMAP* b = new_bitmap(state, outl);
  if (b == nullptr || b->height == 0) return b;
  // Stroke skeletons are drawn or expanded by the stroke-font unit before
  // they get here; this converter takes filled outlines.
  LFNT* lfnt = state->cur_lfnt;
  if (lfnt != nullptr && (lfnt->fontflags & FONTFLAG_STROKE) &&
      !(outl->type[0] & FS_OUTLINE_FILLED) && current_lpm(state) < 64)
    state->flags |= FLAGS_THIN_STROKE;

  FS_SERVER* server = state->server;
  TLIST* rows = new_tlist(state, server->tlist, b->hi_y, b->height);
  server->tlist = rows;
  if (rows == nullptr) return fail(state, b, ERR_MALLOC_FAIL);
  rows->ref_count++;
  rows->hph_flag = 0;
  server->line = line_simple;
  TLIST* cols = nullptr;
  if (state->flags & FLAGS_THIN_STROKE) {
    cols = new_tlist(state, server->drop, (FS_SHORT)(b->lo_x + b->width - 1),
                     b->width);
    server->drop = cols;
    if (cols == nullptr) {
      state->error = 0;  // the glyph renders without dropout control
    } else {
      cols->ref_count++;
      cols->hph_flag = 0;
      server->line = line_dropout;
    }
  }

  static const int kPoints[4] = {1, 1, 2, 3};
  FS_FIXED cx = 0, cy = 0;
  FS_LONG p = 0;
  const FS_FIXED* x = outl->x;
  const FS_FIXED* y = outl->y;
  for (FS_SHORT k = 0; k < outl->num && state->error == 0; k++) {
    int t = outl->type[k] & 0x7F;
    if (t > FS_CUBETO || p + kPoints[t] > outl->np) break;
    switch (t) {
      case FS_MOVETO:
        if (k > 0) {
          close_contour_turn(rows);
          close_contour_turn(cols);
        }
        rows->hph_flag = 0;
        if (cols) cols->hph_flag = 0;
        break;
      case FS_LINETO:
        server->line(state, cx, cy, x[p], y[p]);
        break;
      case FS_QUADTO:
        FS_quad(state, cx, cy, x[p], y[p], x[p + 1], y[p + 1]);
        break;
      default:
        FS_cube(state, cx, cy, x[p], y[p], x[p + 1], y[p + 1], x[p + 2], y[p + 2]);
        break;
    }
    p += kPoints[t];
    cx = x[p - 1];
    cy = y[p - 1];
  }
  close_contour_turn(rows);
  close_contour_turn(cols);
  rows->ref_count--;
  if (cols) cols->ref_count--;
  if (state->error != 0) return fail(state, b, 0);

  nzw_runs(state, b, rows);
  if (cols) y_dropouts(b, cols);
  if (pixel_bold(state) && bold_width(state) != 0) {
    b = pixelbold_bitmap(state, b);  // in place, never fails
  }
  b->embedded = 0;
  return b;
}

void nzw_runs(FS_STATE* state, FS_BITMAP* bmap, TLIST* list) {
  bool dropouts = (state->flags & FLAGS_THIN_STROKE) != 0;
  FS_LONG first = (FS_LONG)bmap->hi_y - list->max;  // map row of list row 0
  FS_LONG lo_x = bmap->lo_x, width = bmap->width;
  for (FS_LONG r = 0; r < list->num; r++) {
    FS_LONG k = list->indices[r];
    FS_LONG mr = first + r;
    FS_BYTE* row = bmap->bits + mr * bmap->bpl;
    bool inside = mr >= 0 && mr < bmap->height;
    while (k != -1) {
      FS_FIXED v0, v1;
      if (!next_run(list, &k, &v0, &v1)) {
        state->error = ERR_RASTER_OVERFLOW;  // an open contour
        break;
      }
      if (!inside) continue;
      FS_INT64 x0 = crossing_x(v0), x1 = crossing_x(v1);
      FS_INT64 c0 = ((x0 + 0x8000) >> 16) - lo_x, c1 = ((x1 + 0x8000) >> 16) - lo_x;
      if (c0 == c1) {
        if (dropouts) set_pixel(bmap, mr, (FS_LONG)(((x0 + x1) >> 1) >> 16) - lo_x);
        continue;
      }
      if (c0 < 0) c0 = 0;
      if (c1 > width) c1 = width;
      if (c0 < c1) fill_span(row, (FS_LONG)c0, (FS_LONG)c1);
    }
  }
}

void y_dropouts(FS_BITMAP* bmap, TLIST* list) {
  for (FS_LONG i = 0; i < list->num; i++) {
    FS_LONG col = (FS_LONG)list->max - i - bmap->lo_x;
    FS_LONG k = list->indices[i];
    while (k != -1) {
      FS_FIXED v0, v1;
      if (!next_run(list, &k, &v0, &v1)) break;
      FS_INT64 y0 = crossing_x(v0), y1 = crossing_x(v1);
      if (y1 - y0 >= 65537) continue;
      FS_INT64 mid = (y0 + y1) >> 1;
      set_pixel(bmap, (FS_LONG)(bmap->hi_y - (mid >> 16)), col);
    }
  }
}

FS_BITMAP* trim_bitmap(FS_STATE* state, FS_BITMAP* bmap) {
  if (bmap == nullptr || bmap->height == 0) return bmap;
  FS_LONG h = bmap->height, bpl = bmap->bpl;
  FS_LONG r0 = 0, r1 = h - 1;
  auto blank = [&](FS_LONG r) {
    const FS_BYTE* row = bmap->bits + r * bpl;
    for (FS_LONG j = 0; j < bpl; j++)
      if (row[j]) return false;
    return true;
  };
  while (r0 < h && blank(r0)) r0++;
  if (r0 == h) {
    // All blank: the advance stays, the pixels go.
    bmap->height = 0;
    bmap->width = 0;
    bmap->bpl = 0;
    bmap->size = BITMAP_HEADER;
    return bmap;
  }
  while (blank(r1)) r1--;
  // The columns: every row's ink ORed together.
  FS_BYTE any[MAX_SIDE / 8 + 1];
  memset(any, 0, (size_t)bpl);
  for (FS_LONG r = r0; r <= r1; r++) {
    const FS_BYTE* row = bmap->bits + r * bpl;
    for (FS_LONG j = 0; j < bpl; j++) any[j] |= row[j];
  }
  FS_LONG j0 = 0, j1 = bpl - 1;
  while (any[j0] == 0) j0++;
  while (any[j1] == 0) j1--;
  FS_LONG c0 = j0 * 8, c1 = j1 * 8 + 7;
  while (!(any[j0] & fs_mask[c0 & 7])) c0++;
  while (!(any[j1] & fs_mask[c1 & 7])) c1--;
  FS_LONG w = c1 - c0 + 1, nh = r1 - r0 + 1;
  if (w == bmap->width && nh == h) return bmap;
  FS_LONG nbpl = (w + 7) / 8;
  FS_LONG size = BITMAP_HEADER + nbpl * nh;
  FS_ULONG err = state->error;
  FS_BITMAP* t = (FS_BITMAP*)FSS_malloc(
      state, (FS_ULONG)(size < (FS_LONG)sizeof(FS_BITMAP) ? (FS_LONG)sizeof(FS_BITMAP) : size));
  state->error = err;
  if (t == nullptr) return bmap;  // forgiven: the map stays untrimmed
  memcpy(t, bmap, BITMAP_HEADER);
  t->cache_ptr = nullptr;
  t->size = size;
  t->lo_x = (FS_SHORT)(bmap->lo_x + c0);
  t->hi_y = (FS_SHORT)(bmap->hi_y - r0);
  t->width = (FS_SHORT)w;
  t->height = (FS_SHORT)nh;
  t->bpl = (FS_SHORT)nbpl;
  FS_LONG shift = c0 & 7, sb = c0 >> 3;
  for (FS_LONG r = 0; r < nh; r++) {
    const FS_BYTE* src = bmap->bits + (r + r0) * bpl + sb;
    FS_BYTE* dst = t->bits + r * nbpl;
    FS_LONG avail = bpl - sb;  // source bytes from sb to the row's end
    if (shift == 0) {
      memcpy(dst, src, (size_t)nbpl);
    } else {
      for (FS_LONG j = 0; j < nbpl; j++) {
        FS_BYTE lo = j + 1 < avail ? (FS_BYTE)(src[j + 1] >> (8 - shift)) : 0;
        dst[j] = (FS_BYTE)((src[j] << shift) | lo);
      }
    }
    // Nothing lies right of the last column in any row, so the row's
    // padding bits are already clear.
  }
  FSS_free(state, bmap);
  return t;
}

FS_BITMAP* construct_bitmap(FS_STATE* state, FS_FIXED* scale, FS_BOOLEAN vanilla,
                            FS_OUTLINE* outl) {
  FS_BITMAP* b = make_bitmap(state, outl);
  FSS_free(state, outl);
  if (b == nullptr) return nullptr;
  FS_ULONG err = state->error;
  if (err != 0 && err != ERR_RASTER_OVERFLOW) return fail(state, b, 0);
  b = bitmap_effects(state, b);
  if (b == nullptr) return nullptr;
  // A flipped axis leaves the spare row or column on the other side; the
  // shift pays it back.
  if (!vanilla && !b->embedded && scale != nullptr) {
    if (scale[3] < 0) b->hi_y++;
    if (scale[2] < 0) b->hi_y++;
    if (scale[1] < 0) b->lo_x++;
    if (scale[0] < 0) b->lo_x++;
  }
  b = trim_bitmap(state, b);
  state->error = err;
  return b;
}

FS_BITMAP* get_bitmap(FS_STATE* state, FS_ULONG id, FS_USHORT index,
                      FS_USHORT type) {
  FS_ULONG flags = state->flags;
  state->flags &= ~FLAGS_GRAYSCALE;  // bitmaps are never autohinted for gray
  FS_BITMAP* b = (type & FS_MAP_RASTER_ICON) ? find_raster_icon_in_cache(state, index)
                                             : find_bitmap_in_cache(state, index);
  if (b != nullptr) {
    state->flags = flags;
    state->error = 0;
    return b;
  }
  SFNT* sfnt = state->cur_sfnt;
  LFNT* lfnt = state->cur_lfnt;
  TTF* ttf = lfnt ? (TTF*)lfnt->fnt : nullptr;
  b = nullptr;
  if (lfnt != nullptr && lfnt->fnt_type <= FNT_TYPE_TTC && sfnt != nullptr) {
    b = get_embedded_bitmap(state, sfnt, index, type);
    if (b == nullptr && state->error != 0) {
      state->flags = flags;
      return nullptr;
    }
    if (b != nullptr && b->bitsPerPixel == 32) {
      // A colour glyph keeps its PNG stream and goes to the icon cache.
      save_raster_icon_to_cache(state, index, b);
      state->flags = flags;
      state->error = 0;
      return b;
    }
    if (b != nullptr) {
      b = bitmap_effects(state, b);
      if (b == nullptr) {
        state->flags = flags;
        return nullptr;
      }
    }
  }
  if (b == nullptr) {
    if (sfnt == nullptr) {
      state->flags = flags;
      state->error = ERR_NO_CURRENT_SFNT;
      return nullptr;
    }
    if (ttf != nullptr && ttf->glyf_size == 0 && ttf->cff == nullptr) {
      state->flags = flags;
      return nullptr;
    }
    FS_OUTLINE* o = find_or_make_outline(state, lfnt, sfnt, id, index);
    if (o == nullptr) {
      state->flags = flags;
      return nullptr;
    }
    b = construct_bitmap(state, sfnt->user_scale,
                         sfnt->senv ? sfnt->senv->vanilla : 1, o);
    if (b == nullptr) {
      state->flags = flags;
      return nullptr;
    }
  }
  FS_ULONG err = state->error;
  shift_map_vertically(sfnt, b);
  b->bitsPerPixel = 1;
  b->type = 1;
  // A partial map of an open contour is the caller's alone, so a repeat
  // reports the contour again.
  if (err == 0) save_bitmap_to_cache(state, index, b);
  state->flags = flags;
  state->error = err;
  return b;
}

void dump_bitmap(FS_BITMAP* b) {
  if (b == nullptr) {
    printf("bitmap: null\n");
    return;
  }
  printf("bitmap: lo_x %d hi_y %d width %d height %d bpl %d\n", b->lo_x, b->hi_y,
         b->width, b->height, b->bpl);
  for (FS_LONG r = 0; r < b->height; r++) {
    for (FS_LONG c = 0; c < b->width; c++)
      putchar(b->bits[r * b->bpl + (c >> 3)] & fs_mask[c & 7] ? '#' : '.');
    putchar('\n');
  }
}
