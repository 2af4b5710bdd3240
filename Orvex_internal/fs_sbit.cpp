// Embedded bitmaps: the resident bitmap location records, read once at load,
// and the per-glyph lookup that serves a strike's glyph ahead of any outline
// work. Called by the bitmap and graymap getters and the advance; reads the
// font through the container's bounded read path.
#include "Orvex_internal/fs_sbit.h"

#include <stddef.h>
#include <string.h>

#include "Orvex_internal/fs_bitmap.h"
#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const FS_ULONG kSizeTableBytes = 48;
const FS_ULONG kIndexEntryBytes = 8;

void read_line_metrics(FS_CURSOR* c, SBIT_LINE_METRICS* m) {
  m->ascender = cursor_s8(c);
  m->descender = cursor_s8(c);
  m->widthMax = cursor_u8(c);
  m->caretSlopeNumerator = cursor_s8(c);
  m->caretSlopeDenominator = cursor_s8(c);
  m->caretOffset = cursor_s8(c);
  m->minOriginSB = cursor_s8(c);
  m->minAdvanceSB = cursor_s8(c);
  m->maxBeforeBL = cursor_s8(c);
  m->minAfterBL = cursor_s8(c);
  m->pad1 = cursor_s8(c);
  m->pad2 = cursor_s8(c);
}

void read_size_table(FS_CURSOR* c, BITMAP_SIZE_TABLE* t) {
  t->indexSubTableArrayOffset = cursor_u32(c);
  t->indexTablesSize = cursor_u32(c);
  t->numberOfIndexSubTables = cursor_u32(c);
  t->colorRef = cursor_u32(c);
  read_line_metrics(c, &t->hori);
  read_line_metrics(c, &t->vert);
  t->startGlyphIndex = cursor_u16(c);
  t->endGlyphIndex = cursor_u16(c);
  t->ppemX = cursor_u8(c);
  t->ppemY = cursor_u8(c);
  t->bitDepth = cursor_u8(c);
  t->flags = cursor_s8(c);
}

// The strike's index subtable array, read whole from the table's bytes.
bool read_index_array(FS_STATE* state, const FS_BYTE* table, FS_ULONG len,
                      BITMAP_SIZE_TABLE_ARRAY* a) {
  FS_ULONG n = a->bst.numberOfIndexSubTables;
  FS_ULONG at = a->bst.indexSubTableArrayOffset;
  if (n == 0) return true;
  if (at > len || n > (len - at) / kIndexEntryBytes) {
    state->error = ERR_EBLC;
    return false;
  }
  a->ist = (INDEX_SUB_TABLE*)FSS_calloc(state, n * sizeof(INDEX_SUB_TABLE));
  if (a->ist == nullptr) return false;
  FS_CURSOR c = cursor_at(table, len, at);
  for (FS_ULONG i = 0; i < n; i++) {
    a->ist[i].firstGlyphIndex = cursor_u16(&c);
    a->ist[i].lastGlyphIndex = cursor_u16(&c);
    a->ist[i].additionalOffsetToIndexSubtable = cursor_u32(&c);
  }
  return true;
}

}  // namespace

TTF_EBLC_PARTIAL* get_EBLC_partial(FS_STATE* state, TTF* ttf) {
  FS_ULONG len = 0;
  FS_ULONG tag = ttf->isCBLC ? TAG_CBLC : TAG_EBLC;
  if (!get_ttf_table_info(state, ttf, tag, nullptr, &len)) return nullptr;
  FS_BYTE* table = (FS_BYTE*)ttf_read(state, ttf, ttf->eblc_offset, len);
  if (table == nullptr) {
    if (state->error == 0) state->error = ERR_EBLC;
    return nullptr;
  }
  FS_CURSOR c = cursor_at(table, len);
  FS_FIXED version = cursor_s32(&c);
  FS_ULONG numSizes = cursor_u32(&c);
  if (numSizes == 0 || len < 8 || numSizes > (len - 8) / kSizeTableBytes) {
    FSS_free(state, table);
    state->error = ERR_EBLC;
    return nullptr;
  }
  TTF_EBLC_PARTIAL* p =
      (TTF_EBLC_PARTIAL*)FSS_calloc(state, sizeof(TTF_EBLC_PARTIAL));
  if (p != nullptr) {
    p->version = version;
    p->bsta = (BITMAP_SIZE_TABLE_ARRAY*)FSS_calloc(
        state, numSizes * sizeof(BITMAP_SIZE_TABLE_ARRAY));
  }
  if (p == nullptr || p->bsta == nullptr) {
    FS_ULONG error = state->error;
    FSS_free(state, p);
    FSS_free(state, table);
    state->error = error;
    return nullptr;
  }
  p->numSizes = numSizes;
  p->eblc_length = len;
  FS_ULONG dataTag = ttf->isCBLC ? TAG_CBDT : TAG_EBDT;
  if (!get_ttf_table_info(state, ttf, dataTag, &p->ebdt_offset,
                          &p->ebdt_length)) {
    p->ebdt_offset = p->ebdt_length = 0;
  }
  for (FS_ULONG i = 0; i < numSizes; i++) {
    FS_CURSOR s = cursor_at(table, len, 8 + kSizeTableBytes * i);
    read_size_table(&s, &p->bsta[i].bst);
    if (!read_index_array(state, table, len, &p->bsta[i])) {
      FS_ULONG error = state->error;
      delete_EBLC_partial(state, p);
      FSS_free(state, table);
      state->error = error;
      return nullptr;
    }
  }
  FSS_free(state, table);
  state->error = SUCCESS;
  return p;
}

void delete_EBLC_partial(FS_STATE* state, TTF_EBLC_PARTIAL* p) {
  if (p == nullptr) return;
  if (p->bsta != nullptr)
    for (FS_ULONG i = 0; i < p->numSizes; i++) FSS_free(state, p->bsta[i].ist);
  FSS_free(state, p->bsta);
  FSS_free(state, p);
}

/* ---- Per-glyph strike lookup ---- */

namespace {

const FS_ULONG kStrikeHorizontal = 1;
const FS_ULONG kStrikeVertical = 2;
const FS_ULONG kStrikeBold = 4;
const FS_ULONG kStrikeItalic = 8;
const FS_SHORT kColourDepth = 32;
const int kMaxCompositeDepth = 8;  // composites nest no deeper
const FS_ULONG kMaxCompositeParts = 1024;  // nor hold more parts in all

// A glyph's metrics in the strike, big form (small metrics fill one
// direction).
struct SBIT_METRICS {
  FS_BYTE height, width;
  FS_TINY bearingX, bearingY;
  FS_BYTE advance;
};

// Where one glyph's image lies in the data table, and how to read it.
struct SBIT_LOCATION {
  FS_ULONG offset, length;  // from the data table's start
  FS_USHORT imageFormat;
  FS_BOOLEAN has_metrics;   // index formats 2 and 5 carry them
  SBIT_METRICS metrics;
};

// What one lookup asks of a strike.
struct SBIT_REQUEST {
  TTF* ttf;
  TTF_EBLC_PARTIAL* p;
  const BITMAP_SIZE_TABLE_ARRAY* strike;
  FS_BOOLEAN png_ok;  // colour images may be served
  FS_BOOLEAN vertical;
  int level;          // composite nesting
  FS_ULONG* parts;    // composite parts still allowed in this lookup
};

// Reads n bytes at `at` of the location table, or of the data table, into
// `buf`. False with 407 when they don't all lie in the table.
bool read_table_bytes(FS_STATE* state, TTF* ttf, FS_ULONG table,
                      FS_ULONG table_len, FS_ULONG at, FS_ULONG n,
                      FS_BYTE* buf) {
  if (at > table_len || n > table_len - at) {
    state->error = ERR_BAD_GLYF_FORMAT;
    return false;
  }
  ttf_read_buf(state, ttf, table + at, n, buf);
  if (state->error != 0) return false;
  return true;
}

bool read_eblc(FS_STATE* state, const SBIT_REQUEST* r, FS_ULONG at, FS_ULONG n,
               FS_BYTE* buf) {
  return read_table_bytes(state, r->ttf, r->ttf->eblc_offset,
                          r->p->eblc_length, at, n, buf);
}

void small_metrics(const FS_BYTE* b, SBIT_METRICS* m) {
  m->height = b[0];
  m->width = b[1];
  m->bearingX = (FS_TINY)b[2];
  m->bearingY = (FS_TINY)b[3];
  m->advance = b[4];
}

// Big metrics in the strike's direction: horizontal, or vertical under
// vertical layout.
void big_metrics(const FS_BYTE* b, bool vertical, SBIT_METRICS* m) {
  m->height = b[0];
  m->width = b[1];
  const FS_BYTE* d = vertical ? b + 5 : b + 2;
  m->bearingX = (FS_TINY)d[0];
  m->bearingY = (FS_TINY)d[1];
  m->advance = d[2];
}

// Binary search of a sorted glyph id list of n 16-bit ids (stride bytes
// apart) read from the location table; the glyph's place, or -1.
FS_LONG find_in_ids(const FS_BYTE* ids, FS_ULONG n, FS_ULONG stride,
                    FS_USHORT gIndex) {
  FS_LONG lo = 0, hi = (FS_LONG)n - 1;
  while (lo <= hi) {
    FS_LONG mid = (lo + hi) / 2;
    FS_USHORT g = get_u16(ids + (FS_ULONG)mid * stride);
    if (g == gIndex) return mid;
    if (g < gIndex) lo = mid + 1;
    else hi = mid - 1;
  }
  return -1;
}

// Reads a list of n records of `stride` bytes at `at` into a heap copy.
FS_BYTE* read_list(FS_STATE* state, const SBIT_REQUEST* r, FS_ULONG at,
                   FS_ULONG n, FS_ULONG stride) {
  FS_ULONG len = r->p->eblc_length;
  if (at > len || n > (len - at) / stride) {
    state->error = ERR_BAD_GLYF_FORMAT;
    return nullptr;
  }
  if (n == 0) return nullptr;
  FS_BYTE* list = (FS_BYTE*)FSS_malloc(state, n * stride);
  if (list == nullptr) return nullptr;
  ttf_read_buf(state, r->ttf, r->ttf->eblc_offset + at, n * stride, list);
  if (state->error != 0) {
    FS_ULONG err = state->error;
    FSS_free(state, list);
    state->error = err;
    return nullptr;
  }
  return list;
}

}  // namespace

// Finds gIndex in the index subtable at `sub` (from the location table's
// start) of format indexFormat: 1 with its location, 0 when the subtable
// doesn't hold it, -1 with the error (429 for an unknown format, 407 for
// one that doesn't fit its table).
int process_format(FS_STATE* state, const SBIT_REQUEST* r,
                   const INDEX_SUB_TABLE* ist, FS_ULONG sub,
                   FS_USHORT indexFormat, FS_ULONG imageDataOffset,
                   FS_USHORT gIndex, SBIT_LOCATION* loc) {
  FS_ULONG body = sub + 8;
  FS_ULONG k = (FS_ULONG)(gIndex - ist->firstGlyphIndex);
  FS_BYTE b[16];
  FS_ULONG start = 0, end = 0;
  loc->has_metrics = 0;
  switch (indexFormat) {
    case 1:
    case 3: {
      FS_ULONG w = indexFormat == 1 ? 4 : 2;
      if (!read_eblc(state, r, body + k * w, 2 * w, b)) return -1;
      start = w == 4 ? get_u32(b) : get_u16(b);
      end = w == 4 ? get_u32(b + 4) : get_u16(b + 2);
      break;
    }
    case 2: {
      if (!read_eblc(state, r, body, 12, b)) return -1;
      FS_ULONG size = get_u32(b);
      big_metrics(b + 4, r->vertical, &loc->metrics);
      loc->has_metrics = 1;
      if (size != 0 && k > 0xFFFFFFFFu / size) {
        state->error = ERR_BAD_GLYF_FORMAT;
        return -1;
      }
      start = k * size;
      end = start + size;
      if (end < start) {
        state->error = ERR_BAD_GLYF_FORMAT;
        return -1;
      }
      break;
    }
    case 4: {
      if (!read_eblc(state, r, body, 4, b)) return -1;
      FS_ULONG n = get_u32(b);
      if (n == 0) return 0;
      if (n >= 0xFFFFu) n = 0xFFFEu;
      FS_BYTE* pairs = read_list(state, r, body + 4, n + 1, 4);
      if (pairs == nullptr) return -1;
      FS_LONG at = find_in_ids(pairs, n, 4, gIndex);
      if (at >= 0) {
        start = get_u16(pairs + 4 * at + 2);
        end = get_u16(pairs + 4 * at + 6);
      }
      FSS_free(state, pairs);
      if (at < 0) return 0;
      break;
    }
    case 5: {
      if (!read_eblc(state, r, body, 16, b)) return -1;
      FS_ULONG size = get_u32(b);
      big_metrics(b + 4, r->vertical, &loc->metrics);
      loc->has_metrics = 1;
      FS_ULONG n = get_u32(b + 12);
      if (n == 0) return 0;
      if (n > 0xFFFFu) n = 0xFFFFu;
      FS_BYTE* ids = read_list(state, r, body + 16, n, 2);
      if (ids == nullptr) return -1;
      FS_LONG at = find_in_ids(ids, n, 2, gIndex);
      FSS_free(state, ids);
      if (at < 0) return 0;
      if (size != 0 && (FS_ULONG)at > 0xFFFFFFFFu / size - 1) {
        state->error = ERR_BAD_GLYF_FORMAT;
        return -1;
      }
      start = (FS_ULONG)at * size;
      end = start + size;
      break;
    }
    default:
      state->error = ERR_SBIT_FORMAT;
      return -1;
  }
  if (end <= start) return 0;  // no image for this glyph
  FS_ULONG off = imageDataOffset + start;
  if (off < start || off > r->p->ebdt_length ||
      end - start > r->p->ebdt_length - off) {
    state->error = ERR_BAD_GLYF_FORMAT;
    return -1;
  }
  loc->offset = off;
  loc->length = end - start;
  return 1;
}

// A new map of the metrics and depth, pixels clear; `embedded` 1.
FS_BITMAP* make_sbitmap(FS_STATE* state, const SBIT_METRICS* m, FS_SHORT depth,
                        FS_ULONG payload) {
  FS_LONG bpl = ((FS_LONG)m->width * depth + 7) / 8;
  FS_LONG bytes = depth == kColourDepth ? (FS_LONG)payload : bpl * m->height;
  FS_BITMAP* b = (FS_BITMAP*)FSS_calloc(state, (FS_ULONG)(BITMAP_HEADER + bytes + 1));
  if (b == nullptr) return nullptr;
  b->size = BITMAP_HEADER + bytes;
  b->lo_x = m->bearingX;
  b->hi_y = m->bearingY;
  b->width = m->width;
  b->height = m->height;
  b->bpl = (FS_SHORT)(depth == kColourDepth ? 0 : bpl);
  b->i_dx = m->advance;
  b->dx = (FS_FIXED)m->advance << 16;
  b->i_dy = 0;
  b->dy = 0;
  b->embedded = 1;
  b->bitsPerPixel = depth;
  b->type = 1;
  return b;
}

namespace {

// Pixel (x, y) of a map of depth d, 0 to 2^d - 1.
FS_BYTE pixel_at(const FS_BITMAP* b, FS_LONG x, FS_LONG y) {
  FS_LONG bit = x * b->bitsPerPixel;
  FS_BYTE byte = b->bits[y * b->bpl + (bit >> 3)];
  FS_LONG shift = 8 - b->bitsPerPixel - (bit & 7);
  return (FS_BYTE)((byte >> shift) & ((1 << b->bitsPerPixel) - 1));
}

// Reads the rows of an image: byte-aligned rows, or one bit stream of
// ceil(width x depth x height / 8) bytes.
void unpack_rows(FS_BITMAP* b, const FS_BYTE* data, bool bit_aligned) {
  FS_LONG depth = b->bitsPerPixel;
  FS_LONG rowbits = (FS_LONG)b->width * depth;
  if (!bit_aligned) {
    memcpy(b->bits, data, (size_t)(b->bpl * b->height));
  } else if ((rowbits & 7) == 0) {
    memcpy(b->bits, data, (size_t)(b->bpl * b->height));
  } else {
    // Each row starts `src` bits into the stream: its bytes are two stream
    // bytes shifted together.
    FS_ULONG need = ((FS_ULONG)rowbits * (FS_ULONG)b->height + 7) / 8;
    for (FS_LONG y = 0; y < b->height; y++) {
      FS_ULONG src = (FS_ULONG)(y * rowbits);
      FS_ULONG at = src >> 3, shift = src & 7;
      FS_BYTE* out = b->bits + y * b->bpl;
      for (FS_LONG j = 0; j < b->bpl; j++, at++) {
        FS_ULONG hi = at < need ? data[at] : 0, lo = at + 1 < need ? data[at + 1] : 0;
        out[j] = (FS_BYTE)((hi << shift) | (lo >> (8 - shift)));
      }
    }
  }
  // Bits right of the last pixel stay clear.
  if (rowbits & 7) {
    FS_BYTE keep = (FS_BYTE)(0xFF << (8 - (rowbits & 7)));
    for (FS_LONG y = 0; y < b->height; y++) b->bits[y * b->bpl + b->bpl - 1] &= keep;
  }
}

}  // namespace

// ORs component `c` into composite `b` with its top-left corner at (x, y)
// of the composite's box; pixels outside are dropped. The depths must
// agree (428).
bool merge_bitmap(FS_STATE* state, FS_BITMAP* b, const FS_BITMAP* c, FS_LONG x,
                  FS_LONG y) {
  if (c->bitsPerPixel != b->bitsPerPixel || b->bitsPerPixel == kColourDepth) {
    state->error = ERR_SBIT_MERGE;
    return false;
  }
  FS_LONG d = b->bitsPerPixel;
  for (FS_LONG r = 0; r < c->height; r++) {
    FS_LONG ty = y + r;
    if (ty < 0 || ty >= b->height) continue;
    for (FS_LONG col = 0; col < c->width; col++) {
      FS_LONG tx = x + col;
      if (tx < 0 || tx >= b->width) continue;
      FS_BYTE v = pixel_at(c, col, r);
      FS_BYTE old = pixel_at(b, tx, ty);
      if (v <= old) continue;
      FS_LONG bit = tx * d;
      FS_BYTE* p = b->bits + ty * b->bpl + (bit >> 3);
      FS_LONG shift = 8 - d - (bit & 7);
      FS_BYTE mask = (FS_BYTE)(((1 << d) - 1) << shift);
      *p = (FS_BYTE)((*p & ~mask) | (v << shift));
    }
  }
  return true;
}

FS_BITMAP* find_in_strike(FS_STATE* state, const SBIT_REQUEST* r,
                          FS_USHORT gIndex);

// A composite's parts: each component glyph of the same strike, laid at its
// offsets.
FS_BITMAP* make_comp(FS_STATE* state, const SBIT_REQUEST* r,
                     const SBIT_METRICS* m, const FS_BYTE* comps, FS_ULONG n) {
  if (r->level >= kMaxCompositeDepth) {
    state->error = ERR_SBIT_MERGE;
    return nullptr;
  }
  FS_BITMAP* b = make_sbitmap(state, m, r->strike->bst.bitDepth, 0);
  if (b == nullptr) return nullptr;
  SBIT_REQUEST sub = *r;
  sub.level++;
  for (FS_ULONG i = 0; i < n; i++) {
    const FS_BYTE* e = comps + 4 * i;
    if (*r->parts == 0) {  // a damaged composite naming parts without end
      FSS_free(state, b);
      state->error = ERR_SBIT_MERGE;
      return nullptr;
    }
    --*r->parts;
    FS_BITMAP* c = find_in_strike(state, &sub, get_u16(e));
    if (c == nullptr) {
      if (state->error == 0) continue;  // a missing part draws nothing
      FS_ULONG err = state->error;
      FSS_free(state, b);
      state->error = err;
      return nullptr;
    }
    bool ok = merge_bitmap(state, b, c, (FS_TINY)e[2], (FS_TINY)e[3]);
    FSS_free(state, c);
    if (!ok) {
      FSS_free(state, b);
      state->error = ERR_SBIT_MERGE;
      return nullptr;
    }
  }
  state->error = 0;
  return b;
}

// Builds the glyph's map from its image record.
FS_BITMAP* process_image(FS_STATE* state, const SBIT_REQUEST* r,
                         const SBIT_LOCATION* loc) {
  FS_SHORT depth = r->strike->bst.bitDepth;
  FS_USHORT f = loc->imageFormat;
  bool png = f == 17 || f == 18 || f == 19;
  if ((depth == kColourDepth) != png || (png && !r->png_ok)) {
    state->error = ERR_SBIT_METRICS_2;
    return nullptr;
  }
  if ((f == 5 || f == 19) && !loc->has_metrics) {
    state->error = ERR_SBIT_METRICS;
    return nullptr;
  }
  if (depth != 1 && depth != 2 && depth != 4 && depth != 8 && !png) {
    state->error = ERR_SBIT_METRICS_2;
    return nullptr;
  }
  // Small images, nearly all, are read onto the stack.
  FS_BYTE local[512];
  FS_BYTE* data = local;
  if (loc->length <= sizeof local) {
    ttf_read_buf(state, r->ttf, r->p->ebdt_offset + loc->offset, loc->length, local);
    if (state->error != 0) return nullptr;
  } else {
    data = (FS_BYTE*)ttf_read(state, r->ttf, r->p->ebdt_offset + loc->offset, loc->length);
    if (data == nullptr) {
      if (state->error == 0) state->error = ERR_BAD_GLYF_FORMAT;
      return nullptr;
    }
  }
  FS_CURSOR c = cursor_at(data, loc->length);
  SBIT_METRICS m = loc->metrics;
  FS_BITMAP* b = nullptr;
  state->error = 0;
  switch (f) {
    case 1: case 2: case 8: case 17: {
      const FS_BYTE* h = cursor_take(&c, 5);
      if (h != nullptr) small_metrics(h, &m);
      if (f == 8) cursor_take(&c, 1);
      break;
    }
    case 6: case 7: case 9: case 18: {
      const FS_BYTE* h = cursor_take(&c, 8);
      if (h != nullptr) big_metrics(h, r->vertical, &m);
      break;
    }
    case 5: case 19:
      break;
    default:
      state->error = ERR_BAD_GLYF_FORMAT;
  }
  if (state->error == 0 && !c.overrun) {
    if (f == 8 || f == 9) {
      FS_ULONG n = cursor_u16(&c);
      const FS_BYTE* comps = cursor_take(&c, 4 * n);
      if (comps != nullptr) b = make_comp(state, r, &m, comps, n);
    } else if (png) {
      FS_ULONG n = cursor_u32(&c);
      const FS_BYTE* stream = cursor_take(&c, n);
      if (stream != nullptr && (b = make_sbitmap(state, &m, depth, n)) != nullptr)
        memcpy(b->bits, stream, n);
    } else {
      bool bit_aligned = f == 2 || f == 5 || f == 7;
      FS_ULONG rowbits = (FS_ULONG)m.width * (FS_ULONG)depth;
      FS_ULONG need = bit_aligned ? (rowbits * m.height + 7) / 8
                                  : (rowbits + 7) / 8 * m.height;
      const FS_BYTE* bits = cursor_take(&c, need);
      if (bits != nullptr && (b = make_sbitmap(state, &m, depth, 0)) != nullptr)
        unpack_rows(b, bits, bit_aligned);
    }
    if (b == nullptr && state->error == 0) state->error = ERR_BAD_GLYF_FORMAT;
  } else if (state->error == 0) {
    state->error = ERR_BAD_GLYF_FORMAT;
  }
  FS_ULONG err = state->error;
  if (data != local) FSS_free(state, data);
  state->error = err;
  return b;
}

// The glyph from one index subtable of the strike: null with error 0 when
// the subtable doesn't hold it.
FS_BITMAP* get_sbitmap_internal(FS_STATE* state, const SBIT_REQUEST* r,
                                const INDEX_SUB_TABLE* ist, FS_USHORT gIndex) {
  const BITMAP_SIZE_TABLE* bst = &r->strike->bst;
  FS_ULONG sub = bst->indexSubTableArrayOffset + ist->additionalOffsetToIndexSubtable;
  if (sub < ist->additionalOffsetToIndexSubtable) {
    state->error = ERR_BAD_GLYF_FORMAT;
    return nullptr;
  }
  FS_BYTE h[8];
  if (!read_eblc(state, r, sub, 8, h)) return nullptr;
  SBIT_LOCATION loc;
  memset(&loc, 0, sizeof loc);
  loc.imageFormat = get_u16(h + 2);
  FS_USHORT f = loc.imageFormat;
  if ((f == 17 || f == 18 || f == 19) && !r->png_ok) {
    state->error = ERR_SBIT_METRICS_2;
    return nullptr;
  }
  if (f == 1 || f == 2 || f == 8 || f == 17) {
    FS_ULONG need = r->vertical ? kStrikeVertical : kStrikeHorizontal;
    if (!((FS_BYTE)bst->flags & need)) {
      state->error = ERR_SBIT_METRICS;
      return nullptr;
    }
  }
  int found = process_format(state, r, ist, sub, get_u16(h), get_u32(h + 4),
                             gIndex, &loc);
  if (found <= 0) {
    if (found == 0) state->error = 0;
    return nullptr;
  }
  return process_image(state, r, &loc);
}

// The glyph from the first index subtable of the strike that holds it.
FS_BITMAP* find_in_strike(FS_STATE* state, const SBIT_REQUEST* r,
                          FS_USHORT gIndex) {
  const BITMAP_SIZE_TABLE_ARRAY* s = r->strike;
  state->error = 0;
  if (gIndex < s->bst.startGlyphIndex || gIndex > s->bst.endGlyphIndex)
    return nullptr;
  for (FS_ULONG i = 0; i < s->bst.numberOfIndexSubTables; i++) {
    const INDEX_SUB_TABLE* ist = &s->ist[i];
    if (gIndex < ist->firstGlyphIndex || gIndex > ist->lastGlyphIndex) continue;
    FS_BITMAP* b = get_sbitmap_internal(state, r, ist, gIndex);
    if (b != nullptr || state->error != 0) return b;
  }
  return nullptr;
}

void scale_sbitmap(FS_BITMAP* b, FS_SHORT ppemX, FS_SHORT ppemY, FS_SHORT xppm,
                   FS_SHORT yppm) {
  if (ppemX <= 0 || ppemY <= 0) return;
  FS_FIXED sx = (FS_FIXED)(((FS_LONG)xppm << 16) / ppemX);
  FS_FIXED sy = (FS_FIXED)(((FS_LONG)yppm << 16) / ppemY);
  auto scaled = [](FS_LONG v, FS_FIXED s) {
    return (FS_SHORT)(((int64_t)v * s + 32768) >> 16);
  };
  b->dx = (FS_FIXED)(((int64_t)b->dx * sx) >> 16);
  b->dy = (FS_FIXED)(((int64_t)b->dy * sy) >> 16);
  b->width = scaled(b->width, sx);
  b->height = scaled(b->height, sy);
  b->i_dx = scaled(b->i_dx, sx);
  b->i_dy = scaled(b->i_dy, sy);
  b->lo_x = scaled(b->lo_x, sx);
  b->hi_y = scaled(b->hi_y, sy);
}

namespace {

// The bold and italic a stroke font's style asks of a strike; false when
// its shear rules out every strike.
bool strike_wishes(FS_STATE* state, FS_ULONG* wish) {
  *wish = 0;
  SFNT* sfnt = state->cur_sfnt;
  if (sfnt == nullptr || sfnt->lfnt == nullptr ||
      !(sfnt->lfnt->fontflags & FONTFLAG_STROKE))
    return true;
  if (sfnt->stroke_pct > 5243) *wish |= kStrikeBold;
  FS_FIXED s01 = sfnt->user_scale[1], s11 = sfnt->user_scale[3];
  if (s01 != 0) {
    int64_t lo = (int64_t)s11 * 11556, hi = (int64_t)s11 * 16340;
    int64_t v = (int64_t)s01 << 16;
    if (v < lo || v > hi) return false;
    *wish |= kStrikeItalic;
  }
  return true;
}

bool depth_serves(FS_SHORT bpp, FS_SHORT depth) {
  switch (bpp) {
    case 1: case 2: case 4: case 8: return depth == bpp;
    case 6: case 7: case 9: case 13: return depth == bpp - SBIT_BPP_ICON;
    default: return false;
  }
}

}  // namespace

FS_BITMAP* get_sbitmap(FS_STATE* state, TTF* ttf, FS_SHORT xppm, FS_SHORT yppm,
                       FS_USHORT gIndex, FS_SHORT bpp) {
  state->error = 0;
  TTF_EBLC_PARTIAL* p = ttf ? ttf->ttf_EBLC_partial : nullptr;
  if (p == nullptr || p->bsta == nullptr) return nullptr;
  FS_ULONG wish = 0;
  if (!strike_wishes(state, &wish)) return nullptr;
  FS_ULONG parts = kMaxCompositeParts;
  SBIT_REQUEST r = {ttf, p, nullptr, 0, (state->flags & FLAGS_VERTICAL_ON) != 0, 0, &parts};
  const BITMAP_SIZE_TABLE_ARRAY* near = nullptr;
  FS_LONG best_dx = 0x7FFFFFFF, best_dy = 0x7FFFFFFF;
  bool last_colour = false;
  for (FS_ULONG i = 0; i < p->numSizes; i++) {
    const BITMAP_SIZE_TABLE_ARRAY* s = &p->bsta[i];
    const BITMAP_SIZE_TABLE* bst = &s->bst;
    if (((FS_BYTE)bst->flags & (kStrikeBold | kStrikeItalic)) != wish) continue;
    bool colour = bst->bitDepth == kColourDepth;
    last_colour = colour;
    bool exact = bst->ppemX == xppm && bst->ppemY == yppm;
    bool png_ok = false;
    if (!colour) {
      if (!exact || !depth_serves(bpp, bst->bitDepth)) continue;
    } else if (bpp == 6 || bpp == 7 || bpp == 9 || bpp == 13 || bpp == 21) {
      png_ok = true;
    } else if (!(bpp == 16 && exact)) {
      continue;
    }
    if (gIndex < bst->startGlyphIndex || gIndex > bst->endGlyphIndex) continue;
    if (!exact) {
      FS_LONG ddx = bst->ppemX - xppm, ddy = bst->ppemY - yppm;
      if (ddx < 0) ddx = -ddx;
      if (ddy < 0) ddy = -ddy;
      if (ddx < best_dx && ddy < best_dy) {
        best_dx = ddx;
        best_dy = ddy;
        near = s;
      }
      continue;
    }
    r.strike = s;
    r.png_ok = png_ok;
    FS_BITMAP* b = find_in_strike(state, &r, gIndex);
    if (b != nullptr || state->error != 0) return b;
  }
  if (near == nullptr || !last_colour) return nullptr;
  r.strike = near;
  r.png_ok = 1;
  FS_BITMAP* b = find_in_strike(state, &r, gIndex);
  if (b != nullptr) scale_sbitmap(b, near->bst.ppemX, near->bst.ppemY, xppm, yppm);
  return b;
}

FS_BITMAP* get_embedded_thing(FS_STATE* state, SFNT* sfnt, FS_USHORT gIndex,
                              FS_SHORT bpp) {
  state->error = 0;
  if (sfnt == nullptr || sfnt->lfnt == nullptr || sfnt->senv == nullptr)
    return nullptr;
  LFNT* lfnt = sfnt->lfnt;
  TTF* ttf = (TTF*)lfnt->fnt;
  if (ttf == nullptr || ttf->eblc_offset == 0) return nullptr;
  const FS_FIXED* s = sfnt->user_scale;
  if (lfnt->fontflags & FONTFLAG_STROKE) {
    if (!(s[0] > 0 && s[2] == 0 && s[3] > 0)) return nullptr;
  } else {
    if (!sfnt->senv->vanilla) return nullptr;
    FS_LONG lpm = state->lpm != 0 ? state->lpm : sfnt->senv->yppm;
    if (state->flags & FLAGS_ADD_WEIGHT) {
      if (lpm >= 27) return nullptr;
    } else if (sfnt->bold_pct != 0 || state->bold_pct != 0 ||
               sfnt->senv->bold_width != 0) {
      return nullptr;
    }
  }
  FS_BITMAP* b = get_sbitmap(state, ttf, (FS_SHORT)sfnt->senv->xppm,
                             (FS_SHORT)sfnt->senv->yppm, gIndex, bpp);
  if (b != nullptr) b->embedded = 1;
  return b;
}

FS_BITMAP* get_embedded_bitmap(FS_STATE* state, SFNT* sfnt, FS_USHORT gindex,
                               FS_USHORT type) {
  FS_SHORT bpp = (type & FS_MAP_RASTER_ICON) ? 1 + SBIT_BPP_ICON : 1;
  return get_embedded_thing(state, sfnt, gindex, bpp);
}

FS_BITMAP* get_embedded_graymap(FS_STATE* state, SFNT* sfnt, FS_USHORT gindex,
                                FS_USHORT type) {
  FS_SHORT bpp;
  if (type & (FS_MAP_GRAYMAP4 | FS_MAP_EDGE_GRAYMAP4)) bpp = 4;
  else if (type & (FS_MAP_GRAYMAP8 | FS_MAP_EDGE_GRAYMAP8)) bpp = 8;
  else if (type & (FS_MAP_GRAYMAP2 | FS_MAP_EDGE_GRAYMAP2)) bpp = 2;
  else if (type & 0xF000) bpp = 16;
  else {
    state->error = 0;
    return nullptr;
  }
  if (type & FS_MAP_RASTER_ICON) bpp += SBIT_BPP_ICON;
  FS_BITMAP* g = get_embedded_thing(state, sfnt, gindex, bpp);
  if (g != nullptr) g->type = type;
  return g;
}
