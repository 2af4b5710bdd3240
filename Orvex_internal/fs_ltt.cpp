// Linked fonts: reads a linked font file, from a file or a memory image, into
// an FsLtt (head block, component blocks, size adjustment and group type
// tables), answers the record's accessors, and resolves where each
// component's font lies. Every read is bounded: a text block is read whole
// into a terminated buffer and parsed line by line within it, and binary
// tables are read at their offsets only when they lie inside the source.
#include "Orvex_internal/fs_ltt.h"

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const FILECHAR kMagic[] = "LTT\n";
const FS_USHORT kMaxLegal = 9;

FS_LONG fail(FS_STATE* state, FS_ULONG code) {
  if (state != nullptr) state->error = code;
  return (FS_LONG)code;
}

/* ---- Where the bytes come from ---- */

// A linked font's bytes: an open file, or a memory image of `size` bytes
// (0: unknown, the caller vouching for the offsets).
struct Source {
  FS_STATE* state;
  FS_FILE* fp;
  const FS_BYTE* mem;
  FS_ULONG size;
};

// Reads `n` bytes at `offset` into `buf`. 106 when they aren't all there.
FS_LONG source_read(Source* src, FS_UINT64 offset, FS_ULONG n, void* buf) {
  if (n == 0) return 0;
  if (src->fp == nullptr) {
    if (src->size != 0 && (offset > src->size || n > src->size - offset))
      return fail(src->state, ERR_FILE_READ);
    memcpy(buf, src->mem + offset, n);
    return 0;
  }
  if (offset > 0x7FFFFFFF) return fail(src->state, ERR_FILE_READ);
  if (FS_seek(src->state, src->fp, (FS_LONG)offset, SEEK_SET) != 0)
    return fail(src->state, ERR_FILE_READ);  // beyond what the file holds
  if (FS_read(src->state, src->fp, (FS_BYTE*)buf, n) != (FS_LONG)n)
    return fail(src->state, ERR_FILE_READ);
  return 0;
}

/* ---- Lines of a block ---- */

// The unread rest of a text block.
struct Lines {
  const FILECHAR* p;
  const FILECHAR* end;
};

// The next whole line (without its newline). False when no newline is left:
// the block ends there.
bool next_line(Lines* l, const FILECHAR** start, size_t* len) {
  const FILECHAR* nl =
      l->p < l->end ? (const FILECHAR*)memchr(l->p, '\n', (size_t)(l->end - l->p))
                    : nullptr;
  if (nl == nullptr) {
    l->p = l->end;
    return false;
  }
  *start = l->p;
  *len = (size_t)(nl - l->p);
  l->p = nl + 1;
  return true;
}

// A number in C notation (decimal, 0x hex, 0 octal) from a line's text; 0
// when the text holds none.
FS_UINT64 line_number(const FILECHAR* s, size_t len) {
  char text[64];
  if (len >= sizeof text) len = sizeof text - 1;
  memcpy(text, s, len);
  text[len] = 0;
  return (FS_UINT64)strtoull(text, nullptr, 0);
}

// The next line as a number, 0 without one.
FS_UINT64 take_number(Lines* l) {
  const FILECHAR* s;
  size_t len;
  return next_line(l, &s, &len) ? line_number(s, len) : 0;
}

// A heap copy of `len` bytes of text; 201 when the heap refuses.
FS_LONG new_string(FS_STATE* state, const FILECHAR* s, size_t len,
                   FILECHAR** out) {
  FILECHAR* copy = (FILECHAR*)FSS_malloc(state, (FS_ULONG)len + 1);
  if (copy == nullptr) return fail(state, ERR_MALLOC_FAIL);
  memcpy(copy, s, len);
  copy[len] = 0;
  *out = copy;
  return 0;
}

// The next line as a new string into *out (null when the block has no line
// left). 0 or 201.
FS_LONG take_string(FS_STATE* state, Lines* l, FILECHAR** out) {
  *out = nullptr;
  const FILECHAR* s;
  size_t len;
  if (!next_line(l, &s, &len)) return 0;
  return new_string(state, s, len, out);
}

/* ---- Key lines ---- */

enum KeyKind { kString, kLong, kShort, kFlag, kFixed, kAddress };

struct KeyRow {
  const char* key;
  KeyKind kind;
  size_t field;  // offset of the field in the record
};

#define HEAD(f) offsetof(FsLtt, f)
const KeyRow kHeadKeys[] = {
    {"subfamily=", kString, HEAD(subfamilyName)},
    {"fileversion=", kString, HEAD(fileversion)},
    {"name_offset=", kLong, HEAD(ttf_name.offset)},
    {"name_size=", kLong, HEAD(ttf_name.size)},
    {"maxp_offset=", kLong, HEAD(maxp_off)},
    {"os/2_offset=", kLong, HEAD(os_2_off)},
    {"head_offset=", kLong, HEAD(head_off)},
    {"hhea_offset=", kLong, HEAD(hhea_off)},
    {"vhea_offset=", kLong, HEAD(vhea_off)},
    {"post_offset=", kLong, HEAD(post_off)},
    {"cmap_offset=", kLong, HEAD(cmap.offset)},
    {"cmap_size=", kLong, HEAD(cmap.size)},
    {"kern_offset=", kLong, HEAD(kern.offset)},
    {"kern_size=", kLong, HEAD(kern.size)},
    {"ot_gdef_offset=", kLong, HEAD(gdef.offset)},
    {"ot_gdef_size=", kLong, HEAD(gdef.size)},
    {"ot_gsub_offset=", kLong, HEAD(gsub.offset)},
    {"ot_gsub_size=", kLong, HEAD(gsub.size)},
    {"ot_gpos_offset=", kLong, HEAD(gpos.offset)},
    {"ot_gpos_size=", kLong, HEAD(gpos.size)},
    {"grouptypesoffset=", kLong, HEAD(groupTypesOffset)},
    {"grouptypescount=", kShort, HEAD(numGroupTypes)},
};
#undef HEAD

#define COMP(f) offsetof(FsLttComponent, f)
const KeyRow kComponentKeys[] = {
    {"ttcindex=", kLong, COMP(ttcIndex)},
    {"targetcallbackID=", kString, COMP(targetCId)},
    {"targetdirectory=", kString, COMP(targetDir)},
    {"targetmemptr=", kAddress, COMP(targetPtr)},
    {"targetoffset=", kLong, COMP(targetOff)},
    {"targetlength=", kLong, COMP(targetLen)},
    {"embeddedoffset=", kLong, COMP(fontOffset)},
    {"embeddedsize=", kLong, COMP(fontSize)},
    {"bold=", kFlag, COMP(bold)},
    {"italic=", kFlag, COMP(italic)},
    {"boldpercent=", kFixed, COMP(boldPercent)},
    {"italicangle=", kFixed, COMP(italicAngle)},
    {"groupprimary=", kShort, COMP(group)},
    {"plane1range1=", kLong, COMP(smp.range1)},
    {"plane1range2=", kLong, COMP(smp.range2)},
    {"plane2range1=", kLong, COMP(sip.range1)},
    {"plane2range2=", kLong, COMP(sip.range2)},
    {"plane14range1=", kLong, COMP(ssp.range1)},
    {"plane14range2=", kLong, COMP(ssp.range2)},
    {"adjustmentsoffset=", kLong, COMP(adjustmentsOffset)},
    {"adjustmentscount=", kShort, COMP(numAdjustments)},
};
#undef COMP

// Stores the value of one key line into its field of `record`. 0 or 201.
FS_LONG store_key(FS_STATE* state, const KeyRow& row, void* record,
                  const FILECHAR* value, size_t len) {
  char* field = (char*)record + row.field;
  switch (row.kind) {
    case kString: {
      FILECHAR* copy;
      if (new_string(state, value, len, &copy) != 0) return ERR_MALLOC_FAIL;
      FSS_free(state, *(FILECHAR**)field);  // a repeated key replaces
      *(FILECHAR**)field = copy;
      return 0;
    }
    case kLong: *(FS_ULONG*)field = (FS_ULONG)line_number(value, len); return 0;
    case kShort: *(FS_USHORT*)field = (FS_USHORT)line_number(value, len); return 0;
    case kFlag: *(FS_BOOLEAN*)field = line_number(value, len) != 0; return 0;
    case kAddress:
      *(FS_BYTE**)field = (FS_BYTE*)(uintptr_t)line_number(value, len);
      return 0;
    case kFixed: {
      char text[64];
      size_t n = len < sizeof text - 1 ? len : sizeof text - 1;
      memcpy(text, value, n);
      text[n] = 0;
      *(FS_FIXED*)field = strtoFS_FIXED(text, nullptr);
      return 0;
    }
  }
  return 0;
}

// The key lines to the end of the block, each matched against the table's
// keys in order; an unknown line is passed over. 0 or 201.
template <size_t N>
FS_LONG read_keys(FS_STATE* state, Lines* l, const KeyRow (&keys)[N],
                  void* record) {
  const FILECHAR* s;
  size_t len;
  while (next_line(l, &s, &len)) {
    for (const KeyRow& row : keys) {
      size_t klen = strlen(row.key);
      if (len >= klen && memcmp(s, row.key, klen) == 0) {
        if (store_key(state, row, record, s + klen, len - klen) != 0)
          return fail(state, ERR_MALLOC_FAIL);
        break;
      }
    }
  }
  return 0;
}

size_t head_size(FS_USHORT version) {
  return version >= 7 ? LTT_BIG_HEAD : LTT_BLOCK;
}

// The head, the component blocks and the tables behind them.
FS_LONG read_all(FsLtt* ltt, Source* src, FS_BOOLEAN loadAdjustments) {
  FS_STATE* state = ltt->fsState;
  FILECHAR head[LTT_BIG_HEAD + 1];
  if (source_read(src, 0, LTT_BLOCK, head) != 0) return ERR_FILE_READ;
  head[LTT_BLOCK] = 0;
  FS_USHORT version = 0;
  FS_LONG err = FsLtt_versionFromBuffer(head, &version);
  if (err != 0) return fail(state, (FS_ULONG)err);
  size_t size = head_size(version);
  if (size > LTT_BLOCK &&
      source_read(src, LTT_BLOCK, (FS_ULONG)(size - LTT_BLOCK), head + LTT_BLOCK) != 0)
    return ERR_FILE_READ;
  head[size] = 0;
  err = FsLtt_headFromBuffer(ltt, head, size);
  if (err != 0) return err;

  ltt->components = (FsLttComponent*)FSS_calloc(
      state, (FS_ULONG)ltt->numComponents * sizeof(FsLttComponent));
  if (ltt->components == nullptr) return fail(state, ERR_MALLOC_FAIL);
  ltt->capacityComponents = ltt->numComponents;
  FILECHAR block[LTT_BLOCK + 1];
  for (FS_USHORT i = 0; i < ltt->numComponents; i++) {
    if (source_read(src, (FS_UINT64)size + (FS_UINT64)i * LTT_BLOCK, LTT_BLOCK,
                    block) != 0)
      return ERR_FILE_READ;
    block[LTT_BLOCK] = 0;
    err = FsLttComponent_fromBuffer(&ltt->components[i], ltt, block);
    if (err != 0) return err;
  }

  for (FS_USHORT i = 0; loadAdjustments && i < ltt->numComponents; i++) {
    FsLttComponent* c = &ltt->components[i];
    if (c->numAdjustments == 0) continue;
    FS_ULONG bytes = (FS_ULONG)c->numAdjustments * 6;
    FS_BYTE* raw = (FS_BYTE*)FSS_malloc(state, bytes);
    c->adjustments = (FsPPemAdjust*)FSS_malloc(
        state, (FS_ULONG)c->numAdjustments * sizeof(FsPPemAdjust));
    if (raw == nullptr || c->adjustments == nullptr) {
      FSS_free(state, raw);
      return fail(state, ERR_MALLOC_FAIL);
    }
    err = source_read(src, c->adjustmentsOffset, bytes, raw);
    for (FS_USHORT k = 0; err == 0 && k < c->numAdjustments; k++)
      FsPPemAdjust_fromBuffer(&c->adjustments[k], raw + 6 * k);
    FSS_free(state, raw);
    if (err != 0) return fail(state, ERR_FILE_READ);
    c->adjustmentsCapacity = c->numAdjustments;
  }

  if (ltt->numGroupTypes != 0) {
    FS_ULONG bytes = (FS_ULONG)ltt->numGroupTypes * 4;
    FS_BYTE* raw = (FS_BYTE*)FSS_malloc(state, bytes);
    ltt->groupTypes = (FsGroupType*)FSS_malloc(
        state, (FS_ULONG)ltt->numGroupTypes * sizeof(FsGroupType));
    if (raw == nullptr || ltt->groupTypes == nullptr) {
      FSS_free(state, raw);
      return fail(state, ERR_MALLOC_FAIL);
    }
    err = source_read(src, ltt->groupTypesOffset, bytes, raw);
    for (FS_USHORT k = 0; err == 0 && k < ltt->numGroupTypes; k++)
      FsGroupType_fromBuffer(&ltt->groupTypes[k], raw + 4 * k);
    FSS_free(state, raw);
    if (err != 0) return fail(state, ERR_FILE_READ);
    ltt->groupTypesCapacity = ltt->numGroupTypes;
  }
  return fail(state, SUCCESS);
}

FS_LONG read_from(FsLtt* ltt, Source* src, FS_BOOLEAN loadAdjustments) {
  FS_STATE* state = ltt->fsState;
  FsLtt_done(ltt);
  FS_LONG err = read_all(ltt, src, loadAdjustments);
  if (err != 0) {
    FsLtt_done(ltt);
    return fail(state, (FS_ULONG)err);
  }
  return 0;
}

}  // namespace

/* ---- Life cycle ---- */

void FsLtt_init(FsLtt* ltt, FS_STATE* state) {
  memset(ltt, 0, sizeof *ltt);
  ltt->fsState = state;
}

FsLtt* FsLtt_new(FS_STATE* state) {
  FsLtt* ltt = (FsLtt*)FSS_malloc(state, sizeof(FsLtt));
  if (ltt != nullptr) FsLtt_init(ltt, state);
  return ltt;
}

void FsLtt_done(FsLtt* ltt) {
  if (ltt == nullptr) return;
  FS_STATE* state = ltt->fsState;
  if (state == nullptr) return;
  for (FS_USHORT i = 0; ltt->legal != nullptr && i < ltt->numLegal; i++)
    FSS_free(state, ltt->legal[i]);
  FSS_free(state, ltt->legal);
  FSS_free(state, ltt->name);
  FSS_free(state, ltt->subfamilyName);
  FSS_free(state, ltt->fileversion);
  for (FS_USHORT i = 0; ltt->components != nullptr && i < ltt->capacityComponents;
       i++) {
    FsLttComponent* c = &ltt->components[i];
    FSS_free(state, c->fontName);
    FSS_free(state, c->fileName);
    FSS_free(state, c->targetCId);
    FSS_free(state, c->targetDir);
    FSS_free(state, c->adjustments);
    FSS_free(state, c->winPath);
  }
  FSS_free(state, ltt->components);
  FSS_free(state, ltt->groupTypes);
  FsLtt_init(ltt, state);
}

void FsLtt_delete(FsLtt* ltt) {
  if (ltt == nullptr) return;
  FS_STATE* state = ltt->fsState;
  FsLtt_done(ltt);
  FSS_free(state, ltt);
}

/* ---- Readers ---- */

FS_LONG FsLtt_versionFromBuffer(const FILECHAR* buffer, FS_USHORT* version) {
  if (memcmp(buffer, kMagic, 4) != 0) return (FS_LONG)LTT_ERR_MAGIC;
  Lines l = {buffer + 4, buffer + LTT_BLOCK};
  FS_UINT64 v = take_number(&l);
  if (v > LTT_MAX_VERSION) return (FS_LONG)LTT_ERR_VERSION;
  *version = v == 0 ? 1 : (FS_USHORT)v;  // version 0 reads as version 1
  return 0;
}

FS_LONG FsLtt_readHead(FsLtt* ltt, FS_FILE* fp, FILECHAR* buffer,
                       size_t* headSize) {
  Source src = {ltt->fsState, fp, nullptr, 0};
  if (source_read(&src, 0, LTT_BLOCK, buffer) != 0) return ERR_FILE_READ;
  buffer[LTT_BLOCK] = 0;
  FS_USHORT version = 0;
  FS_LONG err = FsLtt_versionFromBuffer(buffer, &version);
  if (err != 0) return fail(ltt->fsState, (FS_ULONG)err);
  *headSize = head_size(version);
  if (*headSize > LTT_BLOCK &&
      source_read(&src, LTT_BLOCK, LTT_BLOCK, buffer + LTT_BLOCK) != 0)
    return ERR_FILE_READ;
  buffer[*headSize] = 0;
  return 0;
}

FS_LONG FsLtt_headFromBuffer(FsLtt* ltt, const FILECHAR* buffer,
                             size_t headSize) {
  FS_STATE* state = ltt->fsState;
  FS_LONG err = FsLtt_versionFromBuffer(buffer, &ltt->version);
  if (err != 0) return fail(state, (FS_ULONG)err);
  Lines l = {buffer + 4, buffer + headSize};
  take_number(&l);  // the version line, read above
  FS_UINT64 legal = 1;  // version 1 has one legal line and no count
  if (ltt->version > 1) legal = take_number(&l);
  if (legal == 0 || legal > kMaxLegal) return fail(state, ERR_LTT_LEGAL);
  ltt->legal = (FILECHAR**)FSS_calloc(state, (FS_ULONG)legal * sizeof(FILECHAR*));
  if (ltt->legal == nullptr) return fail(state, ERR_MALLOC_FAIL);
  ltt->numLegal = (FS_USHORT)legal;
  for (FS_USHORT i = 0; i < ltt->numLegal; i++)
    if (take_string(state, &l, &ltt->legal[i]) != 0) return ERR_MALLOC_FAIL;
  if (take_string(state, &l, &ltt->name) != 0) return ERR_MALLOC_FAIL;
  ltt->numComponents = (FS_USHORT)take_number(&l);
  ltt->mtrxComponent = (FS_USHORT)take_number(&l);
  if (read_keys(state, &l, kHeadKeys, ltt) != 0) return ERR_MALLOC_FAIL;
  // Before version 6 the font-set tables always follow the last block.
  if (ltt->version < 6)
    ltt->maxp_off = ((FS_ULONG)ltt->numComponents + 1) * LTT_BLOCK;
  if (ltt->numComponents == 0) return fail(state, ERR_LTT_NO_COMPONENTS);
  return fail(state, SUCCESS);
}

FS_LONG FsLttComponent_fromBuffer(FsLttComponent* c, FsLtt* ltt,
                                  const FILECHAR* buffer) {
  FS_STATE* state = ltt->fsState;
  c->ltt = ltt;
  Lines l = {buffer, buffer + LTT_BLOCK};
  if (take_string(state, &l, &c->fontName) != 0 ||
      take_string(state, &l, &c->fileName) != 0)
    return ERR_MALLOC_FAIL;
  c->bmp.range1 = (FS_ULONG)take_number(&l);
  c->bmp.range2 = (FS_ULONG)take_number(&l);
  c->numGlyphs = (FS_USHORT)take_number(&l);
  if (ltt->version > 3) c->numIcons = (FS_USHORT)take_number(&l);
  if (read_keys(state, &l, kComponentKeys, c) != 0) return ERR_MALLOC_FAIL;
  return fail(state, SUCCESS);
}

FS_LONG FsLttComponent_read(FsLttComponent* c, FsLtt* ltt, FS_FILE* fp) {
  FILECHAR block[LTT_BLOCK + 1];
  if (FS_read(ltt->fsState, fp, (FS_BYTE*)block, LTT_BLOCK) != (FS_LONG)LTT_BLOCK)
    return fail(ltt->fsState, ERR_FILE_READ);
  block[LTT_BLOCK] = 0;
  return FsLttComponent_fromBuffer(c, ltt, block);
}

void FsPPemAdjust_fromBuffer(FsPPemAdjust* adj, const FS_BYTE* buffer) {
  adj->ppem = get_u16(buffer);
  adj->scale = get_s16(buffer + 2);
  adj->shift = get_s16(buffer + 4);
}

void FsGroupType_fromBuffer(FsGroupType* g, const FS_BYTE* buffer) {
  g->group = get_u16(buffer);
  g->type = get_u16(buffer + 2);
}

FS_LONG FsLtt_read(FsLtt* ltt, FS_FILE* fp, FS_BOOLEAN loadAdjustments) {
  Source src = {ltt->fsState, fp, nullptr, 0};
  if (fp == nullptr) return fail(ltt->fsState, ERR_FILE_OPEN);
  return read_from(ltt, &src, loadAdjustments);
}

FS_LONG FsLtt_load(FsLtt* ltt, const FS_BYTE* mem, FS_ULONG size,
                   FS_BOOLEAN loadAdjustments) {
  Source src = {ltt->fsState, nullptr, mem, size};
  if (mem == nullptr) return fail(ltt->fsState, ERR_BAD_ARGUMENT);
  return read_from(ltt, &src, loadAdjustments);
}

/* ---- Text helpers ---- */

FILECHAR* strnltonewstr(FS_STATE* state, const FILECHAR* s, size_t n,
                        const FILECHAR** e) {
  if (e != nullptr) *e = s;
  Lines l = {s, s + n};
  const FILECHAR* start;
  size_t len;
  if (s == nullptr || !next_line(&l, &start, &len)) return nullptr;
  FILECHAR* copy = nullptr;
  if (new_string(state, start, len, &copy) != 0) return nullptr;
  if (e != nullptr) *e = l.p;
  return copy;
}

FS_FIXED strtoFS_FIXED(const FILECHAR* s, const FILECHAR** e) {
  const FILECHAR* p = s;
  while (*p == ' ' || *p == '\t') p++;
  bool negative = false;
  if (*p == '-' || *p == '+') negative = *p++ == '-';
  FS_UINT64 whole = 0;
  while (*p >= '0' && *p <= '9') {
    if (whole < 0x10000) whole = whole * 10 + (FS_UINT64)(*p - '0');
    p++;
  }
  FS_UINT64 magnitude = whole << 16;
  if (*p == '.') {
    p++;
    FS_UINT64 place = 1;
    for (int k = 1; *p >= '0' && *p <= '9'; k++, p++) {
      if (k > 7) continue;  // digits past the seventh are ignored
      place *= 10;
      FS_UINT64 d = (FS_UINT64)(*p - '0');
      magnitude += ((d << 16) + place / 2) / place;
    }
  }
  if (e != nullptr) *e = p;
  FS_LONG v = (FS_LONG)(FS_ULONG)magnitude;
  return negative ? (FS_FIXED)(0u - (FS_ULONG)v) : v;
}

/* ---- Accessors ---- */

const FILECHAR* FsLtt_getName(const FsLtt* ltt) { return ltt->name; }

const FILECHAR* FsLtt_getSubfamilyName(const FsLtt* ltt) {
  return ltt->subfamilyName != nullptr && ltt->subfamilyName[0] != 0
             ? ltt->subfamilyName
             : "Regular";
}

const FILECHAR* FsLtt_getFileVersion(const FsLtt* ltt) {
  return ltt->fileversion;
}

FS_USHORT FsLtt_numComponents(const FsLtt* ltt) { return ltt->numComponents; }

FsLttComponent* FsLtt_component(FsLtt* ltt, FS_USHORT n) {
  if (ltt->components == nullptr || n >= ltt->numComponents) return nullptr;
  return &ltt->components[n];
}

FsLttComponent* FsLtt_getMetric(FsLtt* ltt) {
  return FsLtt_component(ltt, ltt->mtrxComponent);
}

FS_USHORT FsLtt_getGroupType(const FsLtt* ltt, FS_USHORT group) {
  if (group == 0 || ltt->groupTypes == nullptr) return 0;
  for (FS_USHORT i = 0; i < ltt->numGroupTypes; i++) {
    if (ltt->groupTypes[i].group == group) return ltt->groupTypes[i].type;
    if (ltt->groupTypes[i].group > group) break;  // the table is sorted
  }
  return 0;
}

FS_BOOLEAN FsLttComponent_isBold(const FsLttComponent* c) { return c->bold; }
FS_BOOLEAN FsLttComponent_isItalic(const FsLttComponent* c) {
  return c->italic;
}
FS_USHORT FsLttComponent_numAdjustments(const FsLttComponent* c) {
  return c->numAdjustments;
}

FsPPemAdjust* FsLttComponent_getAdjustment(FsLttComponent* c, FS_USHORT n) {
  if (c->adjustments == nullptr || n >= c->numAdjustments) return nullptr;
  return &c->adjustments[n];
}

FS_LONG FsLttComponent_getAdjustmentAndRange(FsLttComponent* c,
                                             FsPPemAdjust* adj,
                                             FS_USHORT* maxppem) {
  FS_USHORT size = adj->ppem;
  memset(adj, 0, sizeof *adj);
  *maxppem = 0xFFFF;
  if (c->numAdjustments == 0) return 0;
  if (c->adjustments == nullptr) return (FS_LONG)ERR_BAD_ARGUMENT;
  FS_LONG found = -1;
  for (FS_USHORT i = 0; i < c->numAdjustments && c->adjustments[i].ppem <= size; i++)
    found = i;
  if (found < 0) {
    *maxppem = (FS_USHORT)(c->adjustments[0].ppem - 1);
    return 0;
  }
  *adj = c->adjustments[found];
  if (found + 1 < c->numAdjustments)
    *maxppem = (FS_USHORT)(c->adjustments[found + 1].ppem - 1);
  return 0;
}

/* ---- Component places ---- */

FS_LONG FS_callback_get_target(const FILECHAR* id, FS_BYTE** address,
                               FILECHAR* path, FS_ULONG pathLen,
                               FS_ULONG* offset, FS_ULONG* length) {
  (void)id;
  (void)address;
  (void)path;
  (void)pathLen;
  (void)offset;
  (void)length;
  return 0;
}

namespace {

// Appends `s` to the path, cutting the whole at 255 characters.
void append_cut(FILECHAR* path, const FILECHAR* s) {
  size_t used = strlen(path);
  size_t room = LTT_PATH_MAX - 1 - used;
  size_t n = strlen(s);
  if (n > room) n = room;
  memcpy(path + used, s, n);
  path[used + n] = 0;
}

bool ends_in_separator(const FILECHAR* s) {
  size_t n = strlen(s);
  return n > 0 && (s[n - 1] == '/' || s[n - 1] == '\\');
}

bool is_relative_folder(const FILECHAR* dir) {
  return strncmp(dir, "./", 2) == 0 || strncmp(dir, ".\\", 2) == 0 ||
         strncmp(dir, "../", 3) == 0 || strncmp(dir, "..\\", 3) == 0;
}

}  // namespace

FS_LONG FsLttComponent_place(FS_STATE* state, const FsLttComponent* c,
                             const FILECHAR* lttPath, FS_BYTE* lttMem,
                             FS_ULONG lttOffset, FsLttPlace* place) {
  memset(place, 0, sizeof *place);
  if (c->targetCId != nullptr) {
    FS_BYTE* address = nullptr;
    FS_LONG r = FS_callback_get_target(c->targetCId, &address, place->path,
                                       LTT_PATH_MAX, &place->offset,
                                       &place->length);
    place->path[LTT_PATH_MAX - 1] = 0;
    if (r != 0 || (address == nullptr && place->path[0] == 0))
      return fail(state, ERR_BAD_ARGUMENT);
    place->memptr = address;
    return 0;
  }
  if (c->targetDir != nullptr) {
    const FILECHAR* dir = c->targetDir;
    bool here = strcmp(dir, ".") == 0;
    if (here || is_relative_folder(dir)) {
      // The linked font's own folder: up to its last "/" or "\".
      FILECHAR base[LTT_PATH_MAX] = {0};
      append_cut(base, lttPath != nullptr ? lttPath : "");
      size_t folder = 0;
      for (size_t i = 0; base[i] != 0; i++)
        if (base[i] == '/' || base[i] == '\\') folder = i + 1;
      base[folder] = 0;
      append_cut(place->path, base);
      if (!here) append_cut(place->path, dir);
    } else {
      append_cut(place->path, dir);
    }
    if (!here && !ends_in_separator(place->path)) append_cut(place->path, "/");
    append_cut(place->path, c->fileName != nullptr ? c->fileName : "");
    place->offset = c->targetOff;
    place->length = c->targetLen;
    return 0;
  }
  if (c->targetPtr != nullptr) {
    place->memptr = c->targetPtr;
    place->offset = c->targetOff;
    place->length = c->targetLen;
    return 0;
  }
  // Inside the linked font itself.
  if (lttMem != nullptr) {
    place->memptr = lttMem;
  } else {
    append_cut(place->path, lttPath != nullptr ? lttPath : "");
  }
  place->offset = lttOffset + c->fontOffset;
  place->length = c->fontSize;
  return 0;
}
