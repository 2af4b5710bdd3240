// The TrueType container loader: the read path for font data, the directory
// lookups, and load_ttf, whose steps follow one another below in the order
// the load runs them. Header tables are decoded field by field from their
// bytes into native records; large tables stay in file byte order.
#include "Orvex_internal/fs_ttf.h"

#include <string.h>

#include "Orvex_internal/fs_cff.h"
#include "Orvex_internal/fs_decomp.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_sbit.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const FS_ULONG kUnknownLength = 0xFFFFFFFF;
const FS_ULONG kSfntHeaderBytes = 12;
const FS_ULONG kDirEntryBytes = 16;
const FS_ULONG kMaxAlignedCmapSubtables = 20;

bool is_memory_font(const TTF* ttf) { return ttf->memptr != nullptr; }

// A plain font in memory lends its tables in place instead of copying them.
bool is_plain_memory_font(const TTF* ttf) {
  return ttf->memptr != nullptr && ttf->decomp == nullptr;
}

// How many of `size` bytes at `offset` lie inside the font's data.
FS_ULONG bytes_inside(const TTF* ttf, FS_ULONG offset, FS_ULONG size) {
  if (offset >= ttf->avail_length) return 0;
  FS_ULONG room = ttf->avail_length - offset;
  return size < room ? size : room;
}

// Reads what lies inside the data into p, returning the count; the caller
// decides what to do with a short count. Only a failed seek is an error.
FS_ULONG read_inside(FS_STATE* state, TTF* ttf, FS_ULONG offset,
                     FS_ULONG size, FS_BYTE* p) {
  FS_ULONG have = bytes_inside(ttf, offset, size);
  if (have == 0) return 0;
  if (is_memory_font(ttf)) {
    memcpy(p, ttf->memptr + ttf->data_offset + offset, have);
    return have;
  }
  FS_UINT64 at = (FS_UINT64)ttf->data_offset + offset;
  if (at > 0x7FFFFFFF) {
    state->error = ERR_FILE_SEEK;
    return 0;
  }
  if (FS_seek(state, ttf->fp, (FS_LONG)at, SEEK_SET) != 0) return 0;
  FS_LONG got = FS_read(state, ttf->fp, p, have);
  state->error = SUCCESS;  // a short read gives zeros, not an error
  return got > 0 ? (FS_ULONG)got : 0;
}

// The bytes of the font from its start to where data ends: the caller's
// length, bounded by what the file holds.
FS_ULONG file_length_from(FS_STATE* state, TTF* ttf) {
  if (FS_seek(state, ttf->fp, 0, SEEK_END) != 0) return 0;
  long size = ftell(ttf->fp);
  state->error = SUCCESS;
  if (size < 0 || (FS_UINT64)size <= ttf->data_offset) return 0;
  FS_UINT64 avail = (FS_UINT64)size - ttf->data_offset;
  if (avail > 0xFFFFFFFE) avail = 0xFFFFFFFE;
  if (ttf->data_length != 0 && ttf->data_length < avail)
    avail = ttf->data_length;
  return (FS_ULONG)avail;
}

// Frees what the refused load holds; the cause stays in `error`.
TTF* refuse(FS_STATE* state, TTF* ttf) {
  FS_ULONG cause = state->error;
  unload_ttf(state, ttf);
  state->error = cause;
  return nullptr;
}

// An optional table's miss leaves 405 behind; the load forgets it here.
void forgive_miss(FS_STATE* state) {
  if (state->error == ERR_TABLE_NOT_FOUND) state->error = SUCCESS;
}

/* ---- Decoding the header tables ---- */

void decode_head(const FS_BYTE* raw, FS_ULONG len, TTF_HEAD* h) {
  FS_CURSOR c = cursor_at(raw, len);
  h->version = cursor_s32(&c);
  h->fontRevision = cursor_s32(&c);
  h->checkSumAdjustment = cursor_u32(&c);
  h->magicNumber = cursor_u32(&c);
  h->flags = cursor_u16(&c);
  h->unitsPerEm = cursor_u16(&c);
  h->created[0] = cursor_u32(&c);
  h->created[1] = cursor_u32(&c);
  h->modified[0] = cursor_u32(&c);
  h->modified[1] = cursor_u32(&c);
  h->xMin = cursor_s16(&c);
  h->yMin = cursor_s16(&c);
  h->xMax = cursor_s16(&c);
  h->yMax = cursor_s16(&c);
  h->macStyle = cursor_u16(&c);
  h->lowestRecPPEM = cursor_u16(&c);
  h->fontDirectionHint = cursor_s16(&c);
  h->indexToLocFormat = cursor_s16(&c);
  h->glyphDataFormat = cursor_s16(&c);
}

void decode_hhea(const FS_BYTE* raw, FS_ULONG len, TTF_HHEA* h) {
  FS_CURSOR c = cursor_at(raw, len);
  h->version = cursor_s32(&c);
  h->yAscender = cursor_s16(&c);
  h->yDescender = cursor_s16(&c);
  h->yLineGap = cursor_s16(&c);
  h->advanceWidthMax = cursor_u16(&c);
  h->minLeftSideBearing = cursor_s16(&c);
  h->minRightSideBearing = cursor_s16(&c);
  h->xMaxExtent = cursor_s16(&c);
  h->horizontalCaretSlopeNumerator = cursor_s16(&c);
  h->horizontalCaretSlopeDenominator = cursor_s16(&c);
  h->caretOffset = cursor_s16(&c);
  for (FS_SHORT& r : h->reserved) r = cursor_s16(&c);
  h->metricDataFormat = cursor_s16(&c);
  h->numberOfHMetrics = cursor_u16(&c);
}

void decode_vhea(const FS_BYTE* raw, FS_ULONG len, TTF_VHEA* h) {
  FS_CURSOR c = cursor_at(raw, len);
  h->version = cursor_s32(&c);
  h->ascent = cursor_s16(&c);
  h->descent = cursor_s16(&c);
  h->lineGap = cursor_s16(&c);
  h->advanceHeightMax = cursor_u16(&c);
  h->minTopSideBearing = cursor_s16(&c);
  h->minBottomSideBearing = cursor_s16(&c);
  h->yMaxExtent = cursor_s16(&c);
  h->caretSlopeRise = cursor_s16(&c);
  h->caretSlopeRun = cursor_s16(&c);
  h->caretOffset = cursor_s16(&c);
  for (FS_SHORT& r : h->reserved) r = cursor_s16(&c);
  h->metricDataFormat = cursor_s16(&c);
  h->numOfLongVerMetrics = cursor_u16(&c);
}

void decode_maxp(const FS_BYTE* raw, FS_ULONG len, TTF_MAXP* m) {
  FS_CURSOR c = cursor_at(raw, len);
  m->version = cursor_s32(&c);
  m->numGlyphs = cursor_u16(&c);
  m->maxPoints = cursor_u16(&c);
  m->maxContours = cursor_u16(&c);
  m->maxCompositePoints = cursor_u16(&c);
  m->maxCompositeContours = cursor_u16(&c);
  m->maxElements = cursor_u16(&c);
  m->maxTwilightPoints = cursor_u16(&c);
  m->maxStorage = cursor_u16(&c);
  m->maxFunctionDefs = cursor_u16(&c);
  m->maxInstructionDefs = cursor_u16(&c);
  m->maxStackElements = cursor_u16(&c);
  m->maxSizeOfInstructions = cursor_u16(&c);
  m->maxComponentElements = cursor_u16(&c);
  m->maxComponentDepth = cursor_u16(&c);
}

// Reads a required table whole and decodes it into a new native record.
// Null with 405 when absent, or with the heap's or read's error.
template <typename Record>
Record* read_header_table(FS_STATE* state, TTF* ttf, FS_ULONG tag,
                          void (*decode)(const FS_BYTE*, FS_ULONG, Record*)) {
  FS_ULONG off = 0, len = 0;
  if (!get_ttf_table_info(state, ttf, tag, &off, &len)) return nullptr;
  FS_BYTE* raw = (FS_BYTE*)ttf_read(state, ttf, off, len);
  if (raw == nullptr && len != 0) return nullptr;
  Record* record = (Record*)FSS_calloc(state, sizeof(Record));
  if (record != nullptr) decode(raw, raw ? len : 0, record);
  FS_ULONG error = state->error;
  FSS_free(state, raw);
  state->error = error;
  return record;
}

// Whether swap_ttf_header converts this header. The count is read as the
// version says the header stands (a version already in native order means a
// converted header); a count above 50 leaves the header as it is.
bool header_converts(const FS_BYTE* raw) {
  FS_ULONG nativeVersion = get_u32_host(raw);
  bool asItStands = nativeVersion == 0x00010000 ||
                    nativeVersion == 0x00020000 || nativeVersion == TAG_true;
  FS_ULONG count = asItStands ? get_u16_host(raw + 4) : get_u16(raw + 4);
  return count <= TTF_MAX_DIR_ENTRIES;
}

/* ---- The load's steps, in order ---- */

// The font's source, and how much data it has.
bool open_source(FS_STATE* state, TTF* ttf, FILECHAR* path, FS_BYTE* memptr) {
  if (memptr != nullptr) {
    ttf->memptr = memptr;
    ttf->avail_length = ttf->data_length ? ttf->data_length : kUnknownLength;
    ttf->decomp = QSX_RA_TT_Create(state, memptr + ttf->data_offset,
                                   ttf->data_length);
    // A compressed font's tables lie in its uncompressed extent.
    if (ttf->decomp != nullptr)
      ttf->avail_length = QSX_RA_TT_getUncompressedFileSize(
          (QSX_RA_TT_Decomp*)ttf->decomp);
    return state->error == SUCCESS;
  }
  ttf->path = path;
  ttf->fp = FS_open(state, path);
  if (ttf->fp == nullptr) return false;
  ttf->avail_length = file_length_from(state, ttf);
  return state->error == SUCCESS;
}

// A compressed font can only be used from memory.
bool refuse_compressed_file(FS_STATE* state, TTF* ttf) {
  if (is_memory_font(ttf)) return true;
  int compressed = is_zrp3(state, ttf);
  if (state->error) return false;
  if (compressed) {
    state->error = ERR_COMPRESSED_FROM_FILE;
    return false;
  }
  return true;
}

// The collection header, when there is one, gives this member's
// place.
bool read_collection_header(FS_STATE* state, TTF* ttf, FS_ULONG index) {
  FS_BYTE head[16];
  ttf_read_buf(state, ttf, 0, sizeof head, head);
  if (state->error) return false;
  if (get_u32(head) != TAG_ttcf) {
    ttf->ttf_offset = 0;
    return true;
  }
  FS_ULONG numFonts = get_u32(head + 8);
  if (numFonts <= index) {
    state->error = ERR_TTC_BAD_INDEX;
    return false;
  }
  FS_UINT64 bytes = 12 + 4 * (FS_UINT64)numFonts;
  if (bytes > ttf->avail_length) {  // offsets beyond the data
    state->error = ERR_TABLE_DIR;
    return false;
  }
  FS_BYTE* raw = (FS_BYTE*)ttf_read(state, ttf, 0, (FS_ULONG)bytes);
  if (raw == nullptr) return false;
  TTC_HEADER* ttc = (TTC_HEADER*)FSS_calloc(
      state, sizeof(TTC_HEADER) + numFonts * sizeof(FS_ULONG));
  if (ttc == nullptr) {
    FSS_free(state, raw);
    state->error = ERR_MALLOC_FAIL;
    return false;
  }
  ttc->tag = get_u32(raw);
  ttc->version = get_s32(raw + 4);
  ttc->numFonts = numFonts;
  ttc->offsets = (FS_ULONG*)(ttc + 1);
  for (FS_ULONG i = 0; i < numFonts; i++)
    ttc->offsets[i] = get_u32(raw + 12 + 4 * i);
  FSS_free(state, raw);
  ttf->ttc_header = ttc;
  ttf->ttf_offset = ttc->offsets[index];
  return true;
}

// The sfnt header and its directory, converted.
bool read_table_directory(FS_STATE* state, TTF* ttf, FS_BOOLEAN validate) {
  FS_BYTE first[kSfntHeaderBytes];
  ttf_read_buf(state, ttf, ttf->ttf_offset, sizeof first, first);
  if (state->error) return false;
  FS_ULONG numTables = get_u16(first + 4);
  if (validate && (numTables == 0 || numTables > TTF_MAX_DIR_ENTRIES)) {
    state->error = ERR_TABLE_DIR;
    return false;
  }
  FS_ULONG bytes = kSfntHeaderBytes + kDirEntryBytes * numTables;
  FS_BYTE* raw = (FS_BYTE*)ttf_read(state, ttf, ttf->ttf_offset, bytes);
  if (raw == nullptr) return false;
  TTF_HEADER* header = (TTF_HEADER*)FSS_calloc(
      state, sizeof(TTF_HEADER) + numTables * sizeof(TTF_DIR));
  if (header == nullptr) {
    FSS_free(state, raw);
    state->error = ERR_MALLOC_FAIL;
    return false;
  }
  header->tables = (TTF_DIR*)(header + 1);
  ttf->dir_entries = swap_ttf_header(raw, bytes, header, numTables);
  ttf->dir_native = header_converts(raw);
  ttf->ttf_header = header;
  FSS_free(state, raw);
  state->error = SUCCESS;
  if (validate && ttf->decomp == nullptr && !verifyTableDir(state, ttf))
    return false;
  return true;
}

// Not in the directory checks of validation, but always made: a table that
// reaches beyond the font's data is refused, so that no later reader walks
// a table the file doesn't hold. (An unconverted directory finds nothing.)
bool tables_inside_data(FS_STATE* state, TTF* ttf) {
  if (ttf->avail_length == kUnknownLength) return true;
  TTF_HEADER* h = ttf->ttf_header;
  if (!ttf->dir_native) return true;
  for (FS_ULONG i = 0; i < ttf->dir_entries; i++) {
    FS_UINT64 end = (FS_UINT64)h->tables[i].offset + h->tables[i].length;
    if (end > ttf->avail_length) {
      state->error = ERR_TABLE_DIR;
      return false;
    }
  }
  return true;
}

// A CFF font's `maxp` is synthesised around its glyph count. A
// version other than 0.5 is recorded as 453 and left for the next
// allocation to clear: it is tolerated.
bool synthesise_cff_maxp(FS_STATE* state, TTF* ttf) {
  ttf->maxp = (TTF_MAXP*)FSS_calloc(state, sizeof(TTF_MAXP));
  if (ttf->maxp == nullptr) return false;
  FS_ULONG off = 0;
  if (!get_ttf_table_info(state, ttf, TAG_maxp, &off, nullptr)) return false;
  FS_BYTE* raw = (FS_BYTE*)ttf_read(state, ttf, off, 6);
  if (raw == nullptr) return false;
  ttf->maxp->numGlyphs = get_u16(raw + 4);
  ttf->maxp->maxContours = 64;
  ttf->maxp->maxPoints = 256;
  ttf->maxp->maxSizeOfInstructions = 3;
  bool wrongVersion = get_u32(raw) != 0x00005000;
  FSS_free(state, raw);
  if (wrongVersion) state->error = ERR_MAXP_VERSION;
  return true;
}

// A `glyf` font's outline tables and its `maxp`.
bool load_glyf_tables(FS_STATE* state, TTF* ttf, FS_BYTE fnt_type) {
  // A type-7 font without a usable `CFF ` keeps the CFF loader's code: 405
  // for no table, 458 to 461 for one that doesn't parse.
  if (fnt_type == FNT_TYPE_OTT) return false;
  FS_ULONG off = 0, len = 0;
  if (get_ttf_table_info(state, ttf, TAG_glyf, &off, &len)) {
    ttf->glyf_offset = off;
    ttf->glyf_size = len;
  }
  forgive_miss(state);
  if (get_ttf_table_info(state, ttf, TAG_loca, &off, &len)) {
    if (is_plain_memory_font(ttf)) {
      ttf->loca =
          len ? (FS_ULONG*)(ttf->memptr + ttf->data_offset + off) : nullptr;
    } else {
      ttf->loca = (FS_ULONG*)ttf_read(state, ttf, off, len);
      if (ttf->loca == nullptr && state->error) return false;
    }
  }
  forgive_miss(state);
  ttf->maxp = read_header_table(state, ttf, TAG_maxp, decode_maxp);
  if (ttf->maxp == nullptr) return false;
  if (ttf->maxp->version != 0x00010000) {
    state->error = ERR_MAXP_VERSION_TT;
    return false;
  }
  return true;
}

// `head`, with its magic number.
bool load_head(FS_STATE* state, TTF* ttf) {
  ttf->head = read_header_table(state, ttf, TAG_head, decode_head);
  if (ttf->head == nullptr) return false;
  if (ttf->head->magicNumber != TTF_HEAD_MAGIC) {
    state->error = ERR_NOT_A_TTF;
    return false;
  }
  return true;
}

enum GlyphFormat { kOrdinary, kCcc, kDdd };

// The engine's compact formats by `head.glyphDataFormat`.
GlyphFormat classify_glyph_format(FS_SHORT format) {
  if ((format >= 0x0200 && format <= 0x02FF) ||
      (format >= 0x0400 && format <= 0x04FF) ||
      (format >= 0x0602 && format <= 0x06FF))
    return kCcc;
  if ((format >= 0x0500 && format <= 0x05FF) ||
      (format >= 0x0700 && format <= 0x07FF))
    return kDdd;
  return kOrdinary;
}

// The metrics headers; `hmtx` required, `vmtx` with its `vhea`.
bool load_metrics_headers(FS_STATE* state, TTF* ttf) {
  ttf->hhea = read_header_table(state, ttf, TAG_hhea, decode_hhea);
  if (ttf->hhea == nullptr) return false;
  if (!get_ttf_table_info(state, ttf, TAG_hmtx, &ttf->hmtx_offset, nullptr))
    return false;
  if (!get_ttf_table_info(state, ttf, TAG_vmtx, &ttf->vmtx_offset, nullptr)) {
    forgive_miss(state);
    return true;
  }
  ttf->vhea = read_header_table(state, ttf, TAG_vhea, decode_vhea);
  return ttf->vhea != nullptr;
}

// The packing parameters that a compact font keeps at the front of
// `hmtx` and `vmtx`. Bytes of the `ddd` format are taken unsigned.
bool load_ccc_info(FS_STATE* state, TTF* ttf, GlyphFormat kind) {
  CCC_INFO& ci = ttf->ccc_info;
  FS_SHORT format = ttf->head->glyphDataFormat;
  ci.cccVersion7 = 0;
  ci.cccVersion8 = 0;
  if (format == 0x0202 || format == 0x0402 || format == 0x0602)
    ci.cccVersion8 = 1;
  else if (format != 0x0200 && format != 0x0400)
    ci.cccVersion7 = 1;
  ci.numBits_SF = (kind == kDdd || ci.cccVersion8) ? 16 : 10;

  FS_BYTE h[8], v[8];
  bool hasVmtx = ttf->vmtx_offset != 0;
  ttf_read_buf(state, ttf, ttf->hmtx_offset, sizeof h, h);
  if (state->error) return false;
  if (hasVmtx) {
    ttf_read_buf(state, ttf, ttf->vmtx_offset, sizeof v, v);
    if (state->error) return false;
  }
  if (kind == kDdd) {
    ci.minVal_LSB = h[0];
    ci.numBits_AW = h[1];
    if (hasVmtx) {
      ci.minVal_TSB = v[0];
      ci.numBits_AH = v[1];
    }
  } else {
    ci.minVal_LSB = get_s16(h);
    ci.numBits_LSB = get_s16(h + 2);
    if (ci.cccVersion7 || ci.cccVersion8) {
      ci.minVal_AW = get_s16(h + 4);
      ci.numBits_AW = get_s16(h + 6);
      if (hasVmtx) {
        ci.minVal_TSB = get_s16(v);
        ci.numBits_TSB = get_s16(v + 2);
        ci.minVal_AH = get_s16(v + 4);
        ci.numBits_AH = get_s16(v + 6);
      }
    }
  }
  ci.numBits_LOCA = numBitsNeeded(ttf->glyf_size + 1);
  ci.numBits_GLYF = (FS_ULONG)numBitsNeeded(ttf->maxp->maxComponentElements);
  return true;
}

// The whole `cmap`, in place for a plain memory font, moved to
// even offsets when a subtable stands at an odd one.
bool load_cmap(FS_STATE* state, TTF* ttf) {
  FS_ULONG off = 0, len = 0;
  if (!get_ttf_table_info(state, ttf, TAG_cmap, &off, &len)) return false;
  if (is_plain_memory_font(ttf)) {
    ttf->cmap = len ? (TTF_CMAP*)(ttf->memptr + ttf->data_offset + off)
                    : nullptr;
    ttf->own_cmap = 0;
  } else {
    ttf->cmap = (TTF_CMAP*)ttf_read(state, ttf, off, len);
    if (ttf->cmap == nullptr && state->error) return false;
    ttf->own_cmap = 1;
  }
  ttf->cmap_length = ttf->cmap ? len : 0;
  if (cmap_offsets_odd((const FS_BYTE*)ttf->cmap, ttf->cmap ? len : 0)) {
    state->error = (FS_ULONG)create_aligned_cmap_table(state, ttf, len);
    if (state->error) return false;
  }
  return true;
}

// Reads an optional table whole when it is there with a length; *len gets
// its length (0 when absent). False only on a read failure.
bool read_optional_table(FS_STATE* state, TTF* ttf, FS_ULONG tag,
                         FS_BYTE** out, FS_ULONG* len) {
  FS_ULONG off = 0;
  *len = 0;
  if (!get_ttf_table_info(state, ttf, tag, &off, len)) {
    forgive_miss(state);
    return true;
  }
  if (*len == 0) return true;
  *out = (FS_BYTE*)ttf_read(state, ttf, off, *len);
  return *out != nullptr;
}

// The hinting tables, read whole.
bool load_hinting_tables(FS_STATE* state, TTF* ttf) {
  FS_ULONG len = 0;
  FS_BYTE* cvt = nullptr;
  if (!read_optional_table(state, ttf, TAG_cvt, &cvt, &len)) return false;
  ttf->cvt = (FS_SHORT*)cvt;
  ttf->num_cvt = (FS_LONG)(len / 2);
  if (!read_optional_table(state, ttf, TAG_prep, &ttf->prep, &len))
    return false;
  ttf->num_prep = (FS_LONG)len;
  if (!read_optional_table(state, ttf, TAG_fpgm, &ttf->fpgm, &len))
    return false;
  ttf->num_fpgm = (FS_LONG)len;
  return true;
}

// Room for the interpreter's function and instruction definitions.
bool alloc_interpreter_defs(FS_STATE* state, TTF* ttf) {
  const FS_ULONG kDefBytes = 8;
  if (ttf->maxp->maxFunctionDefs != 0) {
    ttf->functionDefs =
        (fnt_funcDef*)FSS_malloc(state, ttf->maxp->maxFunctionDefs * kDefBytes);
    if (ttf->functionDefs == nullptr) return false;
  }
  if (ttf->maxp->maxInstructionDefs != 0) {
    ttf->instructionDefs = (fnt_instrDef*)FSS_malloc(
        state, ttf->maxp->maxInstructionDefs * kDefBytes);
    if (ttf->instructionDefs == nullptr) return false;
  }
  return true;
}

// The bitmap location table, colour first; each needs its data.
bool load_bitmap_location(FS_STATE* state, TTF* ttf) {
  FS_ULONG off = 0;
  FS_ULONG dataTag;
  if (get_ttf_table_info(state, ttf, TAG_CBLC, &off, nullptr)) {
    ttf->isCBLC = 1;
    dataTag = TAG_CBDT;
  } else if (get_ttf_table_info(state, ttf, TAG_EBLC, &off, nullptr)) {
    dataTag = TAG_EBDT;
  } else {
    forgive_miss(state);
    return true;
  }
  if (!get_ttf_table_info(state, ttf, dataTag, nullptr, nullptr)) return false;
  ttf->eblc_offset = off;
  ttf->ttf_EBLC_partial = get_EBLC_partial(state, ttf);
  return state->error == SUCCESS;
}

// Something to draw glyphs from. Refused with `error` left at 0.
bool has_glyph_source(FS_STATE* state, TTF* ttf) {
  if (ttf->eblc_offset != 0 || ttf->cff != nullptr) return true;
  if (ttf->glyf_size != 0 && ttf->loca != nullptr) return true;
  state->error = SUCCESS;
  return false;
}

// Offsets of on-demand tables, the small whole tables, and
// `nstk`, whose count word and the words it counts turn native.
bool load_optional_tables(FS_STATE* state, TTF* ttf) {
  if (!get_ttf_table_info(state, ttf, TAG_kern, &ttf->kern_offset, nullptr))
    forgive_miss(state);
  if (!get_ttf_table_info(state, ttf, TAG_Icon, &ttf->icon_offset, nullptr))
    forgive_miss(state);
  FS_ULONG len = 0;
  if (!read_optional_table(state, ttf, TAG_ADFH, &ttf->adfh, &len))
    return false;
  ttf->adfh_size = ttf->adfh ? len : 0;
  if (!read_optional_table(state, ttf, TAG_gasp, &ttf->gasp, &len))
    return false;
  FS_BYTE* nstk = nullptr;
  if (!read_optional_table(state, ttf, TAG_nstk, &nstk, &len)) return false;
  if (nstk != nullptr) {
    FS_ULONG words = len / 2;
    FS_ULONG count = words ? get_u16(nstk) : 0;
    for (FS_ULONG i = 0; i <= count && i < words; i++) {
      FS_USHORT value = get_u16(nstk + 2 * i);
      memcpy(nstk + 2 * i, &value, 2);
    }
    ttf->nstk = (FS_USHORT*)nstk;
  }
  return true;
}

// `OS/2` when there is one; `name` is required.
bool load_os2_and_name(FS_STATE* state, TTF* ttf) {
  ttf->os2 = get_os2_table(state, ttf);
  if (ttf->os2 == nullptr) {
    if (state->error != ERR_TABLE_NOT_FOUND) return false;
    forgive_miss(state);
  }
  ttf->name = get_name(state, ttf);
  return ttf->name != nullptr;
}

// Device metrics tables, by offset.
void load_device_metrics_offsets(FS_STATE* state, TTF* ttf) {
  if (!get_ttf_table_info(state, ttf, TAG_VDMX, &ttf->vdmx_offset, nullptr))
    forgive_miss(state);
  if (!get_ttf_table_info(state, ttf, TAG_hdmx, &ttf->hdmx_offset, nullptr))
    forgive_miss(state);
}

// Copies one name into a field of `size` characters, setting its flag when
// cut. `step` 2 takes the low byte of each 16-bit unit, 1 every byte.
void store_name(const FS_BYTE* s, FS_ULONG bytes, FS_ULONG step,
                FILECHAR* field, FS_ULONG size, FS_BOOLEAN* tooLong) {
  FS_ULONG chars = bytes / step;
  *tooLong = chars > size - 1;
  if (chars > size - 1) chars = size - 1;
  for (FS_ULONG i = 0; i < chars; i++)
    field[i] = (FILECHAR)s[i * step + (step - 1)];
  field[chars] = '\0';
}

// One pass over the name records of one platform and language. With
// `stopWhenFilled` it ends once the full name, family name and copyright are
// all filled.
void name_pass(const FS_BYTE* table, FS_ULONG len, FS_USHORT platform,
               FS_USHORT language, bool stopWhenFilled, TTF_NAME* name) {
  FS_CURSOR c = cursor_at(table, len);
  cursor_skip(&c, 2);
  FS_ULONG count = cursor_u16(&c);
  FS_ULONG storage = cursor_u16(&c);
  for (FS_ULONG i = 0; i < count && cursor_has(&c, 12); i++) {
    FS_USHORT platformID = cursor_u16(&c);
    cursor_skip(&c, 2);  // encoding: any
    FS_USHORT languageID = cursor_u16(&c);
    FS_USHORT nameID = cursor_u16(&c);
    FS_ULONG length = cursor_u16(&c);
    FS_ULONG offset = storage + cursor_u16(&c);
    if (platformID != platform || languageID != language) continue;
    // A string reaching beyond the table is taken as far as it goes.
    FS_ULONG have = offset < len ? len - offset : 0;
    if (length > have) length = have;
    const FS_BYTE* s = table + (offset < len ? offset : 0);
    FS_ULONG step = platform == 3 ? 2 : 1;
    switch (nameID) {
      case 0:
        store_name(s, length, step, name->copyright, TTF_COPYRIGHT_SIZE,
                   &name->copyright_too_long);
        break;
      case 1:
        store_name(s, length, step, name->font_family_name, TTF_NAME_SIZE,
                   &name->font_family_name_too_long);
        break;
      case 3:
        store_name(s, length, step, name->unique_name, TTF_NAME_SIZE,
                   &name->unique_name_too_long);
        break;
      case 4:
        store_name(s, length, step, name->font_name, TTF_NAME_SIZE,
                   &name->font_name_too_long);
        break;
      default:
        break;
    }
    if (stopWhenFilled && name->font_name[0] && name->font_family_name[0] &&
        name->copyright[0])
      return;
  }
}

void fill_not_found(FILECHAR* field) {
  if (field[0] == '\0') strcpy(field, "NOT FOUND");
}

}  // namespace

/* ---- The read path ---- */

void* ttf_read_ex(FS_STATE* state, TTF* ttf, FS_ULONG offset, FS_ULONG size,
                  FS_LONG* newSize) {
  if (newSize != nullptr) *newSize = 0;
  if (size == 0) return nullptr;
  FS_BYTE* buf = nullptr;
  if (ttf->decomp != nullptr) {
    QSX_RA_TT_Decomp* decomp = (QSX_RA_TT_Decomp*)ttf->decomp;
    FS_ULONG got = size;
    void* fragment = QSX_RA_Get_TTF_FragmentPtr(state, decomp, offset, &got);
    if (fragment == nullptr) {
      if (newSize != nullptr) *newSize = (FS_LONG)size;
      return nullptr;
    }
    if (got == size) {
      buf = (FS_BYTE*)FSS_malloc(state, size);
      if (buf != nullptr) memcpy(buf, fragment, size);
      QSX_RA_ReleaseTTF_Fragment(state, decomp, fragment);
    } else {
      buf = (FS_BYTE*)fragment;  // the caller frees it
      size = got;
    }
  } else {
    buf = (FS_BYTE*)FSS_malloc(state, size);
    if (buf != nullptr) {
      FS_ULONG got = read_inside(state, ttf, offset, size, buf);
      if (got < size) memset(buf, 0, size);  // a short read gives zeros
    }
  }
  if (buf == nullptr || state->error) {
    FSS_free(state, buf);
    return nullptr;
  }
  if (newSize != nullptr) *newSize = (FS_LONG)size;
  return buf;
}

void* ttf_read(FS_STATE* state, TTF* ttf, FS_ULONG offset, FS_ULONG size) {
  return ttf_read_ex(state, ttf, offset, size, nullptr);
}

void ttf_read_buf(FS_STATE* state, TTF* ttf, FS_ULONG offset, FS_ULONG size,
                  FS_BYTE* p) {
  if (size == 0) return;
  state->error = SUCCESS;
  if (ttf->decomp != nullptr) {
    QSX_RA_CopyTTF_Fragment(state, (QSX_RA_TT_Decomp*)ttf->decomp, offset,
                            size, p);
    return;
  }
  FS_ULONG got = read_inside(state, ttf, offset, size, p);
  memset(p + got, 0, size - got);  // only the unread tail
}

/* ---- The directory ---- */

int get_ttf_table_info(FS_STATE* state, TTF* ttf, FS_ULONG tag, FS_ULONG* off,
                       FS_ULONG* len) {
  if (off != nullptr) *off = 0;
  if (len != nullptr) *len = 0;
  TTF_HEADER* h = ttf != nullptr ? ttf->ttf_header : nullptr;
  // A directory of more than 50 entries stays unconverted and finds
  // nothing: its entries, read in host order, would otherwise name tables
  // anywhere, unchecked against the font's data.
  if (h != nullptr && ttf->dir_native) {
    for (FS_ULONG i = 0; i < ttf->dir_entries; i++) {
      if (h->tables[i].tag != tag) continue;
      if (off != nullptr) *off = h->tables[i].offset;
      if (len != nullptr) *len = h->tables[i].length;
      return 1;
    }
  }
  state->error = ERR_TABLE_NOT_FOUND;
  return 0;
}

void* get_ttf_table(FS_STATE* state, TTF* ttf, FS_ULONG tag) {
  FS_ULONG off = 0, len = 0;
  if (!get_ttf_table_info(state, ttf, tag, &off, &len)) return nullptr;
  return ttf_read(state, ttf, off, len);
}

int is_zrp3(FS_STATE* state, TTF* ttf) {
  FS_BYTE first[16];
  ttf_read_buf(state, ttf, 0, sizeof first, first);
  if (state->error) return 0;
  // A collection is judged by its first member, whatever member is asked.
  FS_ULONG header = get_u32(first) == TAG_ttcf ? get_u32(first + 12) : 0;
  FS_BYTE sfnt[kSfntHeaderBytes];
  ttf_read_buf(state, ttf, header, sizeof sfnt, sfnt);
  if (state->error) return 0;
  FS_ULONG version = get_u32(sfnt);
  if (version != 0x00010000 && version != TAG_true && version != TAG_OTTO) {
    state->error = ERR_NOT_A_TTF;
    return 0;
  }
  FS_ULONG numTables = get_u16(sfnt + 4);
  FS_ULONG bytes = kSfntHeaderBytes + kDirEntryBytes * numTables;
  FS_BYTE* dir = (FS_BYTE*)ttf_read(state, ttf, header, bytes);
  if (dir == nullptr) return 0;
  int found = 0;
  for (FS_ULONG i = 0; i < numTables && !found; i++)
    found = get_u32(dir + kSfntHeaderBytes + kDirEntryBytes * i) == TAG_zrp3;
  FSS_free(state, dir);
  return found;
}

FS_ULONG swap_ttf_header(const FS_BYTE* raw, FS_ULONG rawLength,
                         TTF_HEADER* out, FS_ULONG entries) {
  bool convert = header_converts(raw);
  FS_ULONG (*u32)(const FS_BYTE*) = convert ? get_u32 : get_u32_host;
  FS_USHORT (*u16)(const FS_BYTE*) = convert ? get_u16 : get_u16_host;

  out->version = (FS_FIXED)u32(raw);
  out->numTables = u16(raw + 4);
  out->searchRange = u16(raw + 6);
  out->entrySelector = u16(raw + 8);
  out->rangeShift = u16(raw + 10);
  FS_ULONG stand = rawLength > kSfntHeaderBytes
                       ? (rawLength - kSfntHeaderBytes) / kDirEntryBytes
                       : 0;
  FS_ULONG n = entries < stand ? entries : stand;
  for (FS_ULONG i = 0; i < n; i++) {
    const FS_BYTE* e = raw + kSfntHeaderBytes + kDirEntryBytes * i;
    out->tables[i].tag = u32(e);
    out->tables[i].checkSum = u32(e + 4);
    out->tables[i].offset = u32(e + 8);
    out->tables[i].length = u32(e + 12);
  }
  return n;
}

int verifyTableDir(FS_STATE* state, TTF* ttf) {
  TTF_HEADER* h = ttf->ttf_header;
  for (FS_ULONG i = 0; i < ttf->dir_entries; i++) {
    for (FS_ULONG j = 0; j < ttf->dir_entries; j++) {
      if (i == j) continue;
      FS_ULONG oi = h->tables[i].offset;
      FS_ULONG oj = h->tables[j].offset;
      FS_ULONG endj = oj + h->tables[j].length;  // 32-bit, wrapping
      if (oi >= oj && oi < endj) {
        state->error = ERR_TABLE_DIR;
        return 0;
      }
    }
  }
  return 1;
}

/* ---- cmap alignment ---- */

FS_BOOLEAN cmap_offsets_odd(const FS_BYTE* cmap, FS_ULONG len) {
  FS_CURSOR c = cursor_at(cmap, len);
  cursor_skip(&c, 2);
  FS_ULONG n = cursor_u16(&c);
  for (FS_ULONG i = 0; i < n && cursor_has(&c, 8); i++) {
    cursor_skip(&c, 4);
    if (cursor_u32(&c) & 1) return 1;
  }
  return 0;
}

FS_LONG create_aligned_cmap_table(FS_STATE* state, TTF* ttf, FS_ULONG len) {
  const FS_BYTE* old = (const FS_BYTE*)ttf->cmap;
  FS_ULONG n = len >= 4 ? get_u16(old + 2) : 0;
  if (n > kMaxAlignedCmapSubtables) return ERR_UNICODE_CMAP_NEEDED;
  // Offsets in directory order with a zero behind the last; records beyond
  // the table count as offset 0.
  FS_ULONG offset[kMaxAlignedCmapSubtables + 1] = {0};
  for (FS_ULONG i = 0; i < n; i++)
    offset[i] = 4 + 8 * i + 8 <= len ? get_u32(old + 4 + 8 * i + 4) : 0;
  // Sizes follow directory order, not file order; each is kept inside the
  // table.
  FS_ULONG size[kMaxAlignedCmapSubtables] = {0};
  for (FS_ULONG i = 0; i < n; i++) {
    FS_LONG s = (FS_LONG)(offset[i + 1] - offset[i]);
    if (s < 0) s = (FS_LONG)(len - offset[i]);
    FS_ULONG room = offset[i] < len ? len - offset[i] : 0;
    size[i] = s < 0 ? 0 : ((FS_ULONG)s < room ? (FS_ULONG)s : room);
  }
  FS_ULONG increment[kMaxAlignedCmapSubtables] = {0};
  for (FS_ULONG i = 0; i < n; i++) {
    for (FS_ULONG j = 0; j < n; j++)
      if (offset[j] < offset[i] && (size[j] & 1)) increment[i]++;
    if ((increment[i] + offset[i]) & 1) increment[i]++;
  }
  FS_ULONG total = len + n;
  FS_BYTE* copy = (FS_BYTE*)FSS_calloc(state, total);
  if (copy == nullptr) return ERR_MALLOC_FAIL;
  FS_ULONG head = 4 + 8 * n < len ? 4 + 8 * n : len;
  memcpy(copy, old, head);
  for (FS_ULONG i = 0; i < n; i++) {
    FS_ULONG to = offset[i] + increment[i];
    if (size[i] == 0 || to >= total) continue;
    FS_ULONG count = size[i] < total - to ? size[i] : total - to;
    memcpy(copy + to, old + offset[i], count);
  }
  for (FS_ULONG i = 0; i < n; i++)
    if (4 + 8 * i + 8 <= total)
      put_u32(copy + 4 + 8 * i + 4, offset[i] + increment[i]);
  if (ttf->own_cmap) FSS_free(state, ttf->cmap);
  ttf->cmap = (TTF_CMAP*)copy;
  ttf->own_cmap = 1;
  ttf->cmap_length = total;
  return SUCCESS;
}

/* ---- OS/2 and name ---- */

void get_os2(const FS_BYTE* table, FS_ULONG len, TTF_OS2* o) {
  FS_CURSOR c = cursor_at(table, len);
  o->version = cursor_u16(&c);
  if (len == 86) o->version = 1;
  if (len == 78) o->version = 0;
  o->xAvgCharWidth = cursor_s16(&c);
  o->usWeightClass = cursor_u16(&c);
  o->usWidthClass = cursor_u16(&c);
  o->fsType = cursor_u16(&c);
  o->ySubscriptXSize = cursor_s16(&c);
  o->ySubscriptYSize = cursor_s16(&c);
  o->ySubscriptXOffset = cursor_s16(&c);
  o->ySubscriptYOffset = cursor_s16(&c);
  o->ySuperscriptXSize = cursor_s16(&c);
  o->ySuperscriptYSize = cursor_s16(&c);
  o->ySuperscriptXOffset = cursor_s16(&c);
  o->ySuperscriptYOffset = cursor_s16(&c);
  o->yStrikeoutSize = cursor_s16(&c);
  o->yStrikeoutPosition = cursor_s16(&c);
  o->sFamilyClass = cursor_s16(&c);
  cursor_bytes(&c, o->panose, sizeof o->panose);
  o->ulUnicodeRange1 = cursor_u32(&c);
  o->ulUnicodeRange2 = cursor_u32(&c);
  o->ulUnicodeRange3 = cursor_u32(&c);
  o->ulUnicodeRange4 = cursor_u32(&c);
  cursor_bytes(&c, o->achVendID, sizeof o->achVendID);
  o->fsSelection = cursor_u16(&c);
  o->usFirstCharIndex = cursor_u16(&c);
  o->usLastCharIndex = cursor_u16(&c);
  o->sTypoAscender = cursor_s16(&c);
  o->sTypoDescender = cursor_s16(&c);
  o->sTypoLineGap = cursor_s16(&c);
  o->usWinAscent = cursor_u16(&c);
  o->usWinDescent = cursor_u16(&c);
  if (o->version == 0) return;
  o->ulCodePageRange1 = cursor_u32(&c);
  o->ulCodePageRange2 = cursor_u32(&c);
  if (o->version <= 1) return;
  o->sxHeight = cursor_s16(&c);
  o->sCapHeight = cursor_s16(&c);
  o->usDefaultChar = cursor_u16(&c);
  o->usBreakChar = cursor_u16(&c);
  o->usMaxContext = cursor_u16(&c);
}

TTF_OS2* get_os2_table(FS_STATE* state, TTF* ttf) {
  FS_ULONG off = 0, len = 0;
  if (!get_ttf_table_info(state, ttf, TAG_OS2, &off, &len)) return nullptr;
  TTF_OS2* os2 = (TTF_OS2*)FSS_calloc(state, sizeof(TTF_OS2));
  if (os2 == nullptr) return nullptr;
  FS_BYTE* raw = (FS_BYTE*)ttf_read(state, ttf, off, len);
  if (raw == nullptr && state->error) {
    FS_ULONG error = state->error;
    FSS_free(state, os2);
    state->error = error;
    return nullptr;
  }
  get_os2(raw, raw ? len : 0, os2);
  FSS_free(state, raw);
  state->error = SUCCESS;
  return os2;
}

void get_abbreviated_name(const FS_BYTE* table, FS_ULONG len, TTF_NAME* name) {
  name_pass(table, len, 3, 1033, true, name);
  // Pass two fills what pass one left empty, and overwrites what it found
  // as well: it has no guard, and runs through all the records.
  if (!name->font_name[0] || !name->font_family_name[0] || !name->copyright[0])
    name_pass(table, len, 1, 0, false, name);
  fill_not_found(name->font_name);
  fill_not_found(name->font_family_name);
  fill_not_found(name->copyright);
}

TTF_NAME* get_name(FS_STATE* state, TTF* ttf) {
  FS_ULONG off = 0, len = 0;
  if (!get_ttf_table_info(state, ttf, TAG_name, &off, &len)) return nullptr;
  FS_BYTE* raw = (FS_BYTE*)ttf_read(state, ttf, off, len);
  if (raw == nullptr && state->error) return nullptr;
  TTF_NAME* name = (TTF_NAME*)FSS_calloc(state, sizeof(TTF_NAME));
  if (name != nullptr) get_abbreviated_name(raw, raw ? len : 0, name);
  FS_ULONG error = state->error;
  FSS_free(state, raw);
  state->error = error;
  return name;
}

FS_SHORT numBitsNeeded(FS_ULONG v) {
  FS_SHORT n = 0;
  for (; v != 0; v >>= 1) n++;
  return n;
}

/* ---- Loading and unloading ---- */

TTF* load_ttf(FS_STATE* state, FILECHAR* path, FS_BYTE* memptr, FS_ULONG index,
              FS_ULONG data_offset, FS_ULONG data_length, FS_BOOLEAN validate,
              FS_BYTE fnt_type) {
  TTF* ttf = (TTF*)FSS_calloc(state, sizeof(TTF));
  if (ttf == nullptr) return nullptr;
  ttf->data_offset = data_offset;
  ttf->data_length = data_length;

  if (!open_source(state, ttf, path, memptr)) return refuse(state, ttf);
  if (!refuse_compressed_file(state, ttf)) return refuse(state, ttf);
  if (!read_collection_header(state, ttf, index)) return refuse(state, ttf);
  if (!read_table_directory(state, ttf, validate)) return refuse(state, ttf);
  if (!tables_inside_data(state, ttf)) return refuse(state, ttf);

  ttf->cff = load_cff(state, ttf);
  if (ttf->cff != nullptr) {
    if (!synthesise_cff_maxp(state, ttf)) return refuse(state, ttf);
  } else {
    if (!load_glyf_tables(state, ttf, fnt_type)) return refuse(state, ttf);
  }
  if (!load_head(state, ttf)) return refuse(state, ttf);
  GlyphFormat kind = classify_glyph_format(ttf->head->glyphDataFormat);
  if (!load_metrics_headers(state, ttf)) return refuse(state, ttf);
  if (kind != kOrdinary && !load_ccc_info(state, ttf, kind))
    return refuse(state, ttf);
  if (!load_cmap(state, ttf)) return refuse(state, ttf);

  ttf->isFlintTablePresent =
      (FS_BOOLEAN)get_ttf_table_info(state, ttf, TAG_FLNT, nullptr, nullptr);
  forgive_miss(state);
  if (!load_hinting_tables(state, ttf)) return refuse(state, ttf);
  if (!alloc_interpreter_defs(state, ttf)) return refuse(state, ttf);
  if (!load_bitmap_location(state, ttf)) return refuse(state, ttf);
  if (!has_glyph_source(state, ttf)) return refuse(state, ttf);
  if (!load_optional_tables(state, ttf)) return refuse(state, ttf);
  if (!load_os2_and_name(state, ttf)) return refuse(state, ttf);
  load_device_metrics_offsets(state, ttf);
  state->error = SUCCESS;
  return ttf;
}

void unload_ttf(FS_STATE* state, TTF* ttf) {
  if (ttf == nullptr) return;
  FS_ULONG error = state->error;
  unload_cff(state, ttf->cff);
  FSS_free(state, ttf->gasp);
  FSS_free(state, ttf->adfh);
  FSS_free(state, ttf->instructionDefs);
  FSS_free(state, ttf->functionDefs);
  delete_EBLC_partial(state, ttf->ttf_EBLC_partial);
  FSS_free(state, ttf->nstk);
  FSS_free(state, ttf->name);
  FSS_free(state, ttf->os2);
  if (!is_plain_memory_font(ttf)) FSS_free(state, ttf->loca);
  FSS_free(state, ttf->cvt);
  FSS_free(state, ttf->fpgm);
  FSS_free(state, ttf->prep);
  if (ttf->own_cmap) FSS_free(state, ttf->cmap);
  FSS_free(state, ttf->maxp);
  FSS_free(state, ttf->vhea);
  FSS_free(state, ttf->hhea);
  FSS_free(state, ttf->head);
  FSS_free(state, ttf->ttf_header);
  FSS_free(state, ttf->ttc_header);
  if (ttf->fp != nullptr) FS_close(state, ttf->fp);
  QSX_RA_TT_Destroy(state, (QSX_RA_TT_Decomp*)ttf->decomp);
  FSS_free(state, ttf);
  state->error = error;
}
