// Compressed fonts. The `zrp3` table maps the uncompressed font onto blocks
// of the image; a raw block is served in place, a token block is decoded from
// the access unit that holds the asked position, through a few kept spans of
// decoded bytes so that the next glyph, a composite's components and their
// metrics cost no second decoding. Fragments of `glyf` are converted from the
// compact spline form back to standard glyphs. Every read of the image is
// bounded by the image; damaged data gives 1030 or 407.
#include "Orvex_internal/fs_decomp.h"

#include <string.h>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const FS_ULONG kTagTtcf = FS_MAKE_TAG('t', 't', 'c', 'f');
const FS_ULONG kTagTrue = FS_MAKE_TAG('t', 'r', 'u', 'e');
const FS_ULONG kTagOtto = FS_MAKE_TAG('O', 'T', 'T', 'O');
const FS_ULONG kTagZrp3 = FS_MAKE_TAG('z', 'r', 'p', '3');
const FS_ULONG kTagHead = FS_MAKE_TAG('h', 'e', 'a', 'd');
const FS_ULONG kTokenMagic = FS_MAKE_TAG('R', 'A', 'C', 3);
const FS_ULONG kTableBits = 10;
const FS_ULONG kTableSize = 1 << kTableBits;
const FS_ULONG kZrpFixedBytes = 20;
const FS_ULONG kZrpEntryBytes = 14;

bool accepted_version(FS_ULONG v) {
  return v == 0x00010000 || v == 0x00020000 || v == kTagTrue || v == kTagOtto;
}

// Whether n bytes at `at` lie inside `length` bytes.
bool inside(FS_UINT64 length, FS_UINT64 at, FS_UINT64 n) {
  return at <= length && n <= length - at;
}

template <typename T>
T* fail_null(FS_STATE* state, FS_ULONG error) {
  state->error = error;
  return nullptr;
}

// The next n (1 to 32) bits without moving on.
inline FS_ULONG bitio_peek(const BITIO* b, FS_ULONG n) {
  FS_UINT64 byte = b->pos >> 3;
  unsigned shift = (unsigned)(b->pos & 7);
  if (n <= 24 && byte + 4 <= b->size)
    return (get_u32(b->data + byte) << shift) >> (32 - n);
  FS_UINT64 w = 0;
  if (byte + 8 <= b->size) {
    const FS_BYTE* p = b->data + byte;
    for (int i = 0; i < 8; i++) w = (w << 8) | p[i];
  } else {
    for (FS_UINT64 i = 0; i < 8; i++)
      w = (w << 8) | (byte + i < b->size ? b->data[byte + i] : 0);
  }
  return (FS_ULONG)((w << shift) >> (64 - n));
}

// A big-endian number of `width` (0 to 4) bytes.
FS_ULONG get_uw(const FS_BYTE* p, FS_ULONG width) {
  FS_ULONG v = 0;
  for (FS_ULONG i = 0; i < width; i++) v = (v << 8) | p[i];
  return v;
}

}  // namespace

/* ---- Bit reader ---- */

void QSX_BITIO_Create(BITIO* bio, const FS_BYTE* data, FS_ULONG size) {
  bio->data = data;
  bio->size = data ? size : 0;
  bio->pos = 0;
}

FS_ULONG QSX_BITIO_ReadValue(BITIO* bio, FS_LONG numberOfBits) {
  if (numberOfBits <= 0) return 0;
  if (numberOfBits > 32) numberOfBits = 32;
  FS_ULONG v = bitio_peek(bio, (FS_ULONG)numberOfBits);
  bio->pos += (FS_ULONG)numberOfBits;
  return v;
}

FS_ULONG QSX_BITIO_Read8(BITIO* bio) { return QSX_BITIO_ReadValue(bio, 8); }
FS_ULONG QSX_BITIO_Read32(BITIO* bio) { return QSX_BITIO_ReadValue(bio, 32); }

/* ---- Token blocks ---- */

namespace {

// The group arrays and the offsets of a block header, after the checks
// that make decoding safe: groups ascend in length and in code, each group's
// codes fit its length, all codes name a token, every token lies inside the
// dictionary and is at least a byte long.
bool read_token_header(FS_CURSOR* c, QSX_RA_DECOMP* d, FS_STATE* state) {
  d->unCompressedByteCount = cursor_u32(c);
  d->num_tokens = cursor_u32(c);
  if (d->num_tokens == 0 || !cursor_has(c, d->num_tokens)) return false;
  d->lengths = cursor_take(c, d->num_tokens);
  FS_ULONG w = cursor_u8(c);
  if (w > 4) return false;
  const FS_BYTE* offs = nullptr;
  if (w != 0) {
    if ((FS_UINT64)w * d->num_tokens > c->size - c->pos) return false;
    offs = cursor_take(c, w * d->num_tokens);
  }
  d->string_len = cursor_u32(c);
  if (!cursor_has(c, d->string_len)) return false;
  d->string = cursor_take(c, d->string_len);
  d->num_groups = cursor_u8(c);
  if (c->overrun || d->num_groups == 0) return false;
  d->offsets = (FS_ULONG*)FSS_malloc(state, 4 * d->num_tokens);
  d->firsts = (FS_ULONG*)FSS_malloc(state, 3 * 4 * d->num_groups + d->num_groups);
  if (d->offsets == nullptr || d->firsts == nullptr) return false;
  d->lasts = d->firsts + d->num_groups;
  d->tokens = d->lasts + d->num_groups;
  d->bits = (FS_BYTE*)(d->tokens + d->num_groups);
  FS_UINT64 run = 0;
  for (FS_ULONG t = 0; t < d->num_tokens; t++) {
    FS_ULONG len = d->lengths[t];
    FS_UINT64 off = w ? get_uw(offs + w * t, w) : run;
    if (len == 0 || off + len > d->string_len) return false;
    d->offsets[t] = (FS_ULONG)off;
    run += len;
  }
  cursor_bytes(c, d->bits, d->num_groups);
  for (FS_ULONG g = 0; g < d->num_groups; g++) d->firsts[g] = cursor_u32(c);
  for (FS_ULONG g = 0; g < d->num_groups; g++) d->lasts[g] = cursor_u32(c);
  if (c->overrun) return false;
  FS_UINT64 count = 0;
  d->slowGroup = d->num_groups;
  for (FS_ULONG g = 0; g < d->num_groups; g++) {
    FS_ULONG b = d->bits[g];
    if (b == 0 || b > 32 || (g > 0 && b <= d->bits[g - 1])) return false;
    if (d->firsts[g] > d->lasts[g]) return false;
    if (b < 32 && d->lasts[g] >> b) return false;
    // A longer group's codes, cut to the shorter length, lie past it.
    if (g > 0 && (d->firsts[g] >> (b - d->bits[g - 1])) <= d->lasts[g - 1])
      return false;
    if (b > kTableBits && d->slowGroup == d->num_groups) d->slowGroup = g;
    d->tokens[g] = (FS_ULONG)count;
    count += (FS_UINT64)d->lasts[g] - d->firsts[g] + 1;
  }
  if (count > d->num_tokens) return false;
  d->numMarks = cursor_u32(c);
  if ((FS_UINT64)d->numMarks * 5 > c->size - c->pos) return false;
  d->bitMarks = cursor_take(c, 4 * d->numMarks);
  d->deltaBytes = cursor_take(c, d->numMarks);
  d->token_offset = cursor_u32(c);
  if (c->overrun || d->token_offset > c->size) return false;
  QSX_BITIO_Create(&d->bio, c->data + d->token_offset,
                   c->size - d->token_offset);
  return true;
}

}  // namespace

QSX_RA_DECOMP* QSX_RA_DECOMP_Create(FS_STATE* state, const FS_BYTE* data,
                                    FS_ULONG avail) {
  state->error = SUCCESS;
  if (data == nullptr || avail < 8 || get_u32(data) != kTokenMagic)
    return fail_null<QSX_RA_DECOMP>(state, ERR_DECOMP_STREAM);
  FS_ULONG size = get_u32(data + 4);
  if (size > avail) return fail_null<QSX_RA_DECOMP>(state, ERR_DECOMP_STREAM);
  QSX_RA_DECOMP* d = (QSX_RA_DECOMP*)FSS_calloc(state, sizeof(QSX_RA_DECOMP));
  if (d == nullptr) return nullptr;
  FS_CURSOR c = cursor_at(data, size, 8);
  if (!read_token_header(&c, d, state)) {
    FS_ULONG error = state->error ? state->error : (FS_ULONG)ERR_DECOMP_STREAM;
    QSX_RA_DECOMP_Destroy(state, d);
    return fail_null<QSX_RA_DECOMP>(state, error);
  }
  return d;
}

void QSX_RA_DECOMP_Destroy(FS_STATE* state, QSX_RA_DECOMP* d) {
  if (d == nullptr) return;
  FS_ULONG error = state->error;
  FSS_free(state, d->offsets);
  FSS_free(state, d->firsts);
  FSS_free(state, d->token_num_table);
  for (int i = 0; i < QSX_SPANS; i++) FSS_free(state, d->spans[i].bytes);
  FSS_free(state, d);
  state->error = error;
}

FS_LONG build_token_table(FS_STATE* state, QSX_RA_DECOMP* d) {
  FS_ULONG* num = (FS_ULONG*)FSS_malloc(state, kTableSize * 5);
  if (num == nullptr) return ERR_MALLOC_FAIL;
  FS_BYTE* len = (FS_BYTE*)(num + kTableSize);
  memset(len, 0, kTableSize);
  memset(num, 0, kTableSize * 4);
  for (FS_ULONG g = 0; g < d->slowGroup; g++) {
    FS_ULONG b = d->bits[g], span = 1u << (kTableBits - b);
    for (FS_UINT64 code = d->firsts[g]; code <= d->lasts[g]; code++) {
      FS_ULONG token = d->tokens[g] + (FS_ULONG)(code - d->firsts[g]);
      FS_ULONG slot = (FS_ULONG)code << (kTableBits - b);
      for (FS_ULONG i = 0; i < span; i++) {
        num[slot + i] = token;
        len[slot + i] = (FS_BYTE)b;
      }
    }
  }
  d->token_num_table = num;
  d->token_bits_table = len;
  return 0;
}

FS_LONG get_next_token(FS_STATE* state, QSX_RA_DECOMP* d) {
  d->next = bitio_peek(&d->bio, kTableBits);
  FS_ULONG b = d->token_bits_table[d->next];
  if (b != 0) {
    d->bio.pos += b;
    return (FS_LONG)d->token_num_table[d->next];
  }
  // A long code: binary search of the groups past the table.
  FS_ULONG L = d->bits[d->num_groups - 1];
  FS_ULONG code = bitio_peek(&d->bio, L);
  FS_LONG lo = (FS_LONG)d->slowGroup, hi = (FS_LONG)d->num_groups - 1;
  while (lo <= hi) {
    FS_LONG g = (lo + hi) / 2;
    FS_ULONG c = code >> (L - d->bits[g]);
    if (c < d->firsts[g]) {
      hi = g - 1;
    } else if (c > d->lasts[g]) {
      lo = g + 1;
    } else {
      d->bio.pos += d->bits[g];
      return (FS_LONG)(c - d->firsts[g] + d->tokens[g]);
    }
  }
  state->error = ERR_DECOMP_STREAM;
  return -1;
}

const FS_BYTE* ReadSymbol(QSX_RA_DECOMP* d, FS_ULONG token, FS_ULONG* length) {
  *length = d->lengths[token];
  return d->string + d->offsets[token];
}

namespace {

// Largest span of decoded bytes a block keeps.
const FS_ULONG kSpanLimit = 4096;
// Room behind a span's end for the last symbol, which may pass it.
const FS_ULONG kSymbolRoom = 256;

// Decodes into span `s` until it reaches `end`, from its end and the stream
// position there. False with 1030 for a damaged stream.
bool extend_span(FS_STATE* state, QSX_RA_DECOMP* d, QSX_SPAN* s,
                 FS_UINT64 end) {
  d->bio.pos = s->bit;
  FS_BYTE* span = s->bytes;
  FS_ULONG len = s->len;
  const FS_BYTE* lengths = d->lengths;
  while (s->start + len < end) {
    FS_ULONG token;
    FS_ULONG next = bitio_peek(&d->bio, kTableBits);
    FS_ULONG b = d->token_bits_table[next];
    if (b != 0) {
      d->bio.pos += b;
      token = d->token_num_table[next];
    } else {
      FS_LONG t = get_next_token(state, d);
      if (t < 0) return false;
      token = (FS_ULONG)t;
    }
    FS_ULONG n = lengths[token];
    const FS_BYTE* sym = d->string + d->offsets[token];
    if (n <= 8) {
      for (FS_ULONG i = 0; i < n; i++) span[len + i] = sym[i];
    } else {
      memcpy(span + len, sym, n);
    }
    len += n;
  }
  s->len = len;
  s->bit = d->bio.pos;
  return true;
}

// Bytes [position, position + count) of the block, read through the kept
// spans: from one that holds them, decoded on from the end of one they
// start in (the next glyph, the next metrics), else decoded afresh from the
// unit's mark into the span unused longest. Null when the fragment does not
// go this way (longer than a span, past the block's content) or on failure,
// which *failed tells (1030, 201).
const FS_BYTE* span_view(FS_STATE* state, QSX_RA_DECOMP* d, FS_ULONG position,
                         FS_ULONG count, FS_USHORT interval, bool* failed) {
  *failed = false;
  FS_UINT64 end = (FS_UINT64)position + count;
  if (interval == 0 || end > d->unCompressedByteCount) return nullptr;
  FS_ULONG unit = position / interval;
  if (unit >= d->numMarks) return nullptr;
  FS_UINT64 p = (FS_UINT64)unit * interval;
  FS_ULONG delta = d->deltaBytes[unit];
  *failed = true;
  if (delta > p) return fail_null<const FS_BYTE>(state, ERR_DECOMP_STREAM);
  p -= delta;
  if (d->token_num_table == nullptr && build_token_table(state, d) != 0)
    return nullptr;
  d->spanClock++;
  QSX_SPAN* resume = nullptr;
  QSX_SPAN* oldest = &d->spans[0];
  for (int i = 0; i < QSX_SPANS; i++) {
    QSX_SPAN* s = &d->spans[i];
    if (s->used < oldest->used) oldest = s;
    if (s->len == 0 || position < s->start) continue;
    FS_UINT64 spanEnd = (FS_UINT64)s->start + s->len;
    if (end <= spanEnd) {
      s->used = d->spanClock;
      *failed = false;
      return s->bytes + (position - s->start);
    }
    if (position <= spanEnd && end - position <= kSpanLimit / 2) resume = s;
  }
  QSX_SPAN* s = resume ? resume : oldest;
  if (!resume && end - p > kSpanLimit) {
    *failed = false;
    return nullptr;
  }
  if (s->bytes == nullptr) {
    s->bytes = (FS_BYTE*)FSS_malloc(state, kSpanLimit + kSymbolRoom);
    if (s->bytes == nullptr) return nullptr;
    s->len = 0;
  }
  s->used = d->spanClock;
  if (resume && end - s->start > kSpanLimit) {
    // Keep what lies from the fragment's start on.
    FS_ULONG drop = position - s->start;
    memmove(s->bytes, s->bytes + drop, s->len - drop);
    s->start = position;
    s->len -= drop;
  }
  if (!resume) {
    s->start = (FS_ULONG)p;
    s->len = 0;
    s->bit = get_u32(d->bitMarks + 4 * unit);
  }
  if (!extend_span(state, d, s, end)) {
    s->len = 0;
    return nullptr;
  }
  *failed = false;
  return s->bytes + (position - s->start);
}

}  // namespace

void* QSX_RA_GetFragmentPtr(FS_STATE* state, QSX_RA_DECOMP* d,
                            FS_ULONG position, FS_ULONG* byteCountPtr,
                            FS_USHORT byteCacheInterval) {
  state->error = SUCCESS;
  FS_ULONG count = *byteCountPtr;
  if (count == 0) return nullptr;
  if (d->token_num_table == nullptr && build_token_table(state, d) != 0)
    return nullptr;
  FS_BYTE* out = (FS_BYTE*)FSS_malloc(state, count);
  if (out == nullptr) return nullptr;
  bool failed = false;
  const FS_BYTE* view =
      span_view(state, d, position, count, byteCacheInterval, &failed);
  if (view != nullptr || failed) {
    if (view != nullptr) memcpy(out, view, count);
    else FSS_free(state, out);
    return view != nullptr ? out : nullptr;
  }
  // A long fragment, or one past the block's content, decoded on its own.
  memset(out, 0, count);
  if (position >= d->unCompressedByteCount || byteCacheInterval == 0)
    return out;
  FS_ULONG unit = position / byteCacheInterval;
  if (unit >= d->numMarks) return out;
  FS_UINT64 p = (FS_UINT64)unit * byteCacheInterval;
  FS_ULONG delta = d->deltaBytes[unit];
  if (delta > p) {
    FSS_free(state, out);
    return fail_null<void>(state, ERR_DECOMP_STREAM);
  }
  p -= delta;
  FS_UINT64 end = (FS_UINT64)position + count;
  if (end > d->unCompressedByteCount) end = d->unCompressedByteCount;
  d->bio.pos = get_u32(d->bitMarks + 4 * unit);
  while (p < end) {
    FS_LONG token = get_next_token(state, d);
    if (token < 0) {
      FSS_free(state, out);
      return nullptr;
    }
    FS_ULONG len;
    const FS_BYTE* sym = ReadSymbol(d, (FS_ULONG)token, &len);
    if (p + len > position) {
      FS_UINT64 from = p < position ? position : p;
      FS_UINT64 to = p + len < end ? p + len : end;
      memcpy(out + (from - position), sym + (from - p), (size_t)(to - from));
    }
    p += len;
  }
  return out;
}

/* ---- The compressed font ---- */

FS_ULONG findZRPtable(const FS_BYTE* sfnt, FS_ULONG length) {
  if (!inside(length, 0, 12)) return 0;
  FS_ULONG numTables = get_u16(sfnt + 4);
  for (FS_ULONG i = 0; i < numTables; i++) {
    FS_ULONG at = 12 + 16 * i;
    if (!inside(length, at, 16)) return 0;
    if (get_u32(sfnt + at) == kTagZrp3) return at;
  }
  return 0;
}

namespace {

// The unit size of a token block's entry.
FS_USHORT unit_of(const QSX_ROM_BLOCK* b) {
  return b->isCompressed == 1 ? 128 : b->isCompressed;
}

// Reads the `zrp3` table at `zrp` (`zlen` bytes) of the image into `decomp`
// and makes the decoders of the token blocks. False with the error set.
bool read_zrp3(FS_STATE* state, QSX_RA_TT_Decomp* t, const FS_BYTE* zrp,
               FS_ULONG zlen) {
  if (zlen < kZrpFixedBytes) return false;
  t->headerLength = get_u16(zrp);
  t->cmpSize = get_u32(zrp + 2);
  t->uncmpSize = get_u32(zrp + 6);
  t->glyf_OffsetStart = get_u32(zrp + 10);
  t->glyf_OffsetEnd = get_u32(zrp + 14);
  FS_ULONG n = get_u16(zrp + 18);
  if (n == 0 || !inside(zlen, t->headerLength, (FS_UINT64)n * kZrpEntryBytes))
    return false;
  t->tc.rb = (QSX_ROM_BLOCK*)FSS_calloc(state, n * sizeof(QSX_ROM_BLOCK));
  if (t->tc.rb == nullptr) return false;
  t->tc.numEntries = n;
  FS_ULONG image = (FS_ULONG)(t->cmpEnd - t->cmpStart);
  for (FS_ULONG i = 0; i < n; i++) {
    const FS_BYTE* e = zrp + t->headerLength + kZrpEntryBytes * i;
    QSX_ROM_BLOCK* b = &t->tc.rb[i];
    b->start = get_u32(e);
    b->length = get_u32(e + 4);
    b->cmpStart = get_u32(e + 8);
    b->isCompressed = get_u16(e + 12);
    // The blocks tile the uncompressed font in order, and their stored
    // forms follow one another in the image.
    const QSX_ROM_BLOCK* prev = i > 0 ? &t->tc.rb[i - 1] : nullptr;
    if (b->start != (prev ? prev->start + prev->length : 0) ||
        (FS_UINT64)b->start + b->length > t->uncmpSize)
      return false;
    if (b->cmpStart > image || (prev && b->cmpStart <= prev->cmpStart))
      return false;
    if (b->isCompressed == 0) {
      if (b->length > image - b->cmpStart) return false;
      continue;
    }
    b->decomp = QSX_RA_DECOMP_Create(state, t->cmpStart + b->cmpStart,
                                     image - b->cmpStart);
    if (b->decomp == nullptr) return false;
    FS_ULONG unit = unit_of(b);
    if (b->decomp->unCompressedByteCount != b->length ||
        b->decomp->numMarks < b->length / unit + (b->length % unit != 0))
      return false;
  }
  const QSX_ROM_BLOCK* last = &t->tc.rb[n - 1];
  return last->start + last->length == t->uncmpSize &&
         t->glyf_OffsetStart <= t->glyf_OffsetEnd &&
         t->glyf_OffsetEnd <= t->uncmpSize;
}

// Whether the font's `head.glyphDataFormat` names a compact glyph format.
bool compact_glyph_format(FS_STATE* state, QSX_RA_TT_Decomp* t,
                          const FS_BYTE* sfnt, FS_ULONG length) {
  FS_ULONG numTables = get_u16(sfnt + 4);
  for (FS_ULONG i = 0; i < numTables && inside(length, 12 + 16 * i, 16); i++) {
    const FS_BYTE* e = sfnt + 12 + 16 * i;
    if (get_u32(e) != kTagHead || get_u32(e + 12) < 54) continue;
    FS_ULONG n = 2;
    void* f = QSX_RA_Get_TTF_FragmentPtr(state, t, get_u32(e + 8) + 52, &n);
    if (f == nullptr) return false;
    FS_SHORT format = get_s16((const FS_BYTE*)f);
    QSX_RA_ReleaseTTF_Fragment(state, t, f);
    return (format >= 0x0200 && format <= 0x02FF) ||
           (format >= 0x0400 && format <= 0x07FF && format != 0x0600 &&
            format != 0x0601);
  }
  return false;
}

}  // namespace

QSX_RA_TT_Decomp* QSX_RA_TT_Create(FS_STATE* state, FS_BYTE* data,
                                   FS_ULONG length) {
  state->error = SUCCESS;
  FS_ULONG limit = length ? length : 0xFFFFFFFF;
  if (data == nullptr || !inside(limit, 0, 12))
    return fail_null<QSX_RA_TT_Decomp>(state, ERR_NOT_A_TTF);
  FS_ULONG header = 0;
  FS_ULONG version = get_u32(data);
  if (version == kTagTtcf) {
    // The first member stands for the collection.
    if (!inside(limit, 0, 16))
      return fail_null<QSX_RA_TT_Decomp>(state, ERR_NOT_A_TTF);
    header = get_u32(data + 12);
    if (!inside(limit, header, 12))
      return fail_null<QSX_RA_TT_Decomp>(state, ERR_NOT_A_TTF);
    version = get_u32(data + header);
  }
  if (!accepted_version(version))
    return fail_null<QSX_RA_TT_Decomp>(state, ERR_NOT_A_TTF);
  FS_ULONG at = findZRPtable(data + header, limit - header);
  if (at == 0) return nullptr;  // a plain font
  const FS_BYTE* entry = data + header + at;
  FS_ULONG zoff = get_u32(entry + 8), zlen = get_u32(entry + 12);
  if (!inside(limit, zoff, zlen))
    return fail_null<QSX_RA_TT_Decomp>(state, ERR_DECOMP_STREAM);
  QSX_RA_TT_Decomp* t =
      (QSX_RA_TT_Decomp*)FSS_calloc(state, sizeof(QSX_RA_TT_Decomp));
  if (t == nullptr) return nullptr;
  t->cmpStart = data;
  t->cmpEnd = data + (zlen >= 6 && get_u32(data + zoff + 2) < limit
                          ? get_u32(data + zoff + 2)
                          : limit);
  // The directory and the `zrp3` table must read alike in the image and in
  // the uncompressed font: a leading raw block stored where it stands.
  bool ok = read_zrp3(state, t, data + zoff, zlen) &&
            t->cmpEnd - t->cmpStart >= (FS_LONG)(zoff + zlen) &&
            t->tc.rb[0].isCompressed == 0 && t->tc.rb[0].cmpStart == 0 &&
            t->tc.rb[0].length >= zoff + zlen;
  if (ok) {
    state->error = SUCCESS;
    t->compactGlyphs = compact_glyph_format(state, t, data + header,
                                            limit - header);
    ok = state->error == SUCCESS;
  }
  if (!ok) {
    FS_ULONG error = state->error ? state->error : (FS_ULONG)ERR_DECOMP_STREAM;
    QSX_RA_TT_Destroy(state, t);
    return fail_null<QSX_RA_TT_Decomp>(state, error);
  }
  return t;
}

void QSX_RA_TT_Destroy(FS_STATE* state, QSX_RA_TT_Decomp* t) {
  if (t == nullptr) return;
  FS_ULONG error = state->error;
  for (FS_ULONG i = 0; t->tc.rb != nullptr && i < t->tc.numEntries; i++)
    QSX_RA_DECOMP_Destroy(state, t->tc.rb[i].decomp);
  FSS_free(state, t->tc.rb);
  FSS_free(state, t);
  state->error = error;
}

FS_ULONG QSX_RA_TT_getUncompressedFileSize(QSX_RA_TT_Decomp* t) {
  return t ? t->uncmpSize : 0;
}

bool QSX_RA_TT_InImage(const QSX_RA_TT_Decomp* t, const void* p) {
  const FS_BYTE* b = (const FS_BYTE*)p;
  return t != nullptr && b >= t->cmpStart && b < t->cmpEnd;
}

void* QSX_RA_Get_TTF_FragmentPtr(FS_STATE* state, QSX_RA_TT_Decomp* t,
                                 FS_ULONG position, FS_ULONG* byteCountPtr) {
  state->error = SUCCESS;
  FS_ULONG count = *byteCountPtr;
  if (count == 0 || t == nullptr) return nullptr;
  // The last block whose start is at or below the position.
  FS_LONG lo = 0, hi = (FS_LONG)t->tc.numEntries - 1, found = -1;
  while (lo <= hi) {
    FS_LONG mid = (lo + hi) / 2;
    if (t->tc.rb[mid].start <= position) {
      found = mid;
      lo = mid + 1;
    } else {
      hi = mid - 1;
    }
  }
  FS_ULONG within = 0;  // bytes of the fragment inside its block
  const QSX_ROM_BLOCK* b = found >= 0 ? &t->tc.rb[found] : nullptr;
  FS_ULONG off = b ? position - b->start : 0;
  if (b != nullptr && off < b->length)
    within = b->length - off < count ? b->length - off : count;
  bool convert = !t->compactGlyphs && position >= t->glyf_OffsetStart &&
                 position < t->glyf_OffsetEnd;
  if (within == count && b->isCompressed != 0 && convert) {
    // A glyph converted straight from the decoded span.
    bool failed = false;
    const FS_BYTE* view =
        span_view(state, b->decomp, off, count, unit_of(b), &failed);
    if (failed) return nullptr;
    if (view != nullptr) {
      FS_ULONG newLength = 0;
      FS_BYTE* glyph = QSX_TTC_GetTTFGlyphMemory(state, view, count, &newLength);
      if (glyph != nullptr) *byteCountPtr = newLength;
      return glyph;
    }
  }
  FS_BYTE* frag = nullptr;
  if (within > 0 && b->isCompressed == 0) {
    FS_ULONG image = (FS_ULONG)(t->cmpEnd - t->cmpStart);
    FS_UINT64 src = (FS_UINT64)b->cmpStart + off;
    FS_ULONG have = src >= image ? 0 : (FS_ULONG)(image - src);
    if (have >= count && within == count) {
      frag = t->cmpStart + src;  // lent in place
    } else {
      frag = (FS_BYTE*)FSS_malloc(state, count);
      if (frag == nullptr) return nullptr;
      memset(frag, 0, count);
      if (have > 0) memcpy(frag, t->cmpStart + src, have < within ? have : within);
    }
  } else if (within > 0) {
    frag = (FS_BYTE*)QSX_RA_GetFragmentPtr(state, b->decomp, off, &count,
                                           unit_of(b));
    if (frag == nullptr) return nullptr;
    memset(frag + within, 0, count - within);
  } else {
    frag = (FS_BYTE*)FSS_malloc(state, count);
    if (frag == nullptr) return nullptr;
    memset(frag, 0, count);
  }
  if (convert) {
    FS_ULONG newLength = 0;
    FS_BYTE* glyph = QSX_TTC_GetTTFGlyphMemory(state, frag, count, &newLength);
    FS_ULONG error = state->error;
    QSX_RA_ReleaseTTF_Fragment(state, t, frag);
    state->error = error;
    if (glyph == nullptr) return nullptr;
    *byteCountPtr = newLength;
    return glyph;
  }
  return frag;
}

void QSX_RA_CopyTTF_Fragment(FS_STATE* state, QSX_RA_TT_Decomp* t,
                             FS_ULONG position, FS_ULONG count, FS_BYTE* dest) {
  state->error = SUCCESS;
  if (count == 0) return;
  // Outside `glyf` (whose fragments may be converted) a fragment wholly in
  // one block is copied without a buffer of its own.
  bool convert = !t->compactGlyphs && position + (FS_UINT64)count > t->glyf_OffsetStart &&
                 position < t->glyf_OffsetEnd;
  FS_LONG lo = 0, hi = (FS_LONG)t->tc.numEntries - 1, found = -1;
  while (lo <= hi) {
    FS_LONG mid = (lo + hi) / 2;
    if (t->tc.rb[mid].start <= position) found = mid, lo = mid + 1;
    else hi = mid - 1;
  }
  const QSX_ROM_BLOCK* b = found >= 0 ? &t->tc.rb[found] : nullptr;
  if (!convert && b != nullptr && position - b->start < b->length &&
      b->length - (position - b->start) >= count) {
    FS_ULONG off = position - b->start;
    if (b->isCompressed == 0) {  // raw blocks lie wholly in the image
      memcpy(dest, t->cmpStart + b->cmpStart + off, count);
      return;
    }
    bool failed = false;
    const FS_BYTE* view = span_view(state, b->decomp, off, count, unit_of(b), &failed);
    if (view != nullptr) {
      memcpy(dest, view, count);
      return;
    }
    if (failed) {
      memset(dest, 0, count);
      return;
    }
  }
  FS_ULONG got = count;
  void* f = QSX_RA_Get_TTF_FragmentPtr(state, t, position, &got);
  if (f == nullptr) {
    memset(dest, 0, count);
    return;
  }
  memcpy(dest, f, got < count ? got : count);
  if (got < count) memset(dest + got, 0, count - got);
  QSX_RA_ReleaseTTF_Fragment(state, t, f);
}

void QSX_RA_ReleaseTTF_Fragment(FS_STATE* state, QSX_RA_TT_Decomp* t,
                                void* fragment) {
  if (fragment == nullptr || QSX_RA_TT_InImage(t, fragment)) return;
  FSS_free(state, fragment);
}

/* ---- The compact spline form ---- */

namespace {

// The rows follow a rule (see QSX_COORD_ENCODING): the bases of the short
// forms step by 256, those of the 4- and 8-bit pairs by 16 and 256, and the
// signs run (x -, y -), (x +, y -), (x -, y +), (x +, y +) in each four.
struct CoordTable {
  QSX_COORD_ENCODING rows[128];
  CoordTable() {
    for (int code = 0; code < 128; code++) {
      QSX_COORD_ENCODING& r = rows[code];
      int s = code >= 20 ? (code - 20) % 4 : 0;
      r.xIsNegative = (s & 1) == 0;
      r.yIsNegative = (s & 2) == 0;
      r.deltaX = r.deltaY = 0;
      if (code < 10) {
        r.byteCount = 2, r.xBits = 0, r.yBits = 8;
        r.deltaY = (FS_USHORT)(256 * (code / 2));
        r.xIsNegative = 0;
        r.yIsNegative = (code & 1) == 0;
      } else if (code < 20) {
        r.byteCount = 2, r.xBits = 8, r.yBits = 0;
        r.deltaX = (FS_USHORT)(256 * ((code - 10) / 2));
        r.xIsNegative = (code & 1) == 0;
        r.yIsNegative = 0;
      } else if (code < 84) {
        int k = (code - 20) / 4;
        r.byteCount = 2, r.xBits = 4, r.yBits = 4;
        r.deltaX = (FS_USHORT)(1 + 16 * (k / 4));
        r.deltaY = (FS_USHORT)(1 + 16 * (k % 4));
      } else if (code < 120) {
        int k = (code - 84) / 4;
        r.byteCount = 3, r.xBits = 8, r.yBits = 8;
        r.deltaX = (FS_USHORT)(1 + 256 * (k / 3));
        r.deltaY = (FS_USHORT)(1 + 256 * (k % 3));
      } else if (code < 124) {
        r.byteCount = 4, r.xBits = 12, r.yBits = 12;
      } else {
        r.byteCount = 5, r.xBits = 16, r.yBits = 16;
      }
    }
  }
};

const CoordTable kCoords;

}  // namespace

const QSX_COORD_ENCODING (&coordEncoding)[128] = kCoords.rows;

FS_USHORT Read255UShort(FS_CURSOR* c) {
  FS_BYTE code = cursor_u8(c);
  if (code == 253) return cursor_u16(c);
  if (code == 255) return (FS_USHORT)(cursor_u8(c) + 253);
  if (code == 254) return (FS_USHORT)(cursor_u8(c) + 506);
  return code;
}

FS_SHORT Read255Short(FS_CURSOR* c) {
  FS_BYTE code = cursor_u8(c);
  if (code < 250) return code;
  if (code == 250) return (FS_SHORT)(-(cursor_u8(c) + 1));
  if (code == 253) return cursor_s16(c);
  return (FS_SHORT)(((255 - code) << 8) + cursor_u8(c) + 250);
}

namespace {

// The glyph as the spline form gives it, on its way to standard `glyf`.
struct Glyph {
  FS_SHORT xmax, xmin, ymax, ymin;
  FS_SHORT numberOfContours;
  FS_ULONG numberOfPoints;
  FS_USHORT* endPoint;
  FS_LONG* x;
  FS_LONG* y;
  FS_BYTE* onCurve;
  FS_ULONG componentSize;  // bytes of composite records, kept as they stand
  const FS_BYTE* componentData;
  FS_ULONG pushCount;
  FS_LONG* pushData;
  FS_ULONG remainingCodeSize;
  const FS_BYTE* remainingCode;
  bool hasInstructions;
};

// A growing output of standard glyph bytes.
struct GlyphOut {
  FS_STATE* state;
  FS_BYTE* p;
  FS_ULONG size, used;
  bool failed;
};

bool AllocateGlyphSpace(GlyphOut* o, FS_ULONG more) {
  if (o->failed) return false;
  if (o->used + more <= o->size) return true;
  FS_ULONG size = o->size * 2 + more;
  FS_BYTE* p = (FS_BYTE*)FSS_realloc(o->state, o->p, size);
  if (p == nullptr) {
    o->failed = true;
    return false;
  }
  o->p = p;
  o->size = size;
  return true;
}

void out_u8(GlyphOut* o, FS_ULONG v) {
  if (AllocateGlyphSpace(o, 1)) o->p[o->used++] = (FS_BYTE)v;
}
void out_u16(GlyphOut* o, FS_ULONG v) {
  out_u8(o, v >> 8);
  out_u8(o, v);
}
void out_bytes(GlyphOut* o, const FS_BYTE* b, FS_ULONG n) {
  if (n == 0 || !AllocateGlyphSpace(o, n)) return;
  memcpy(o->p + o->used, b, n);
  o->used += n;
}

// Push instructions of a run of values, of bytes or of words.
void push_run(GlyphOut* o, const FS_LONG* v, FS_ULONG n, bool bytes) {
  if (n <= 8) {
    out_u8(o, (bytes ? 0xB0 : 0xB8) + n - 1);
  } else {
    out_u8(o, bytes ? 0x40 : 0x41);
    out_u8(o, n);
  }
  for (FS_ULONG i = 0; i < n; i++) {
    if (bytes)
      out_u8(o, (FS_ULONG)v[i]);
    else
      out_u16(o, (FS_ULONG)(FS_USHORT)v[i]);
  }
}

bool is_byte(FS_LONG v) { return v >= 0 && v <= 255; }

// TrueType push instructions for `values`: chunks of at most 255 values, a
// run of byte values (0 to 255) pushed with byte forms when it is long
// enough to pay for its own instruction (2 at a chunk's start or end, 3
// between word values), words otherwise.
void OptimizingPush(GlyphOut* o, const FS_LONG* values, FS_ULONG count) {
  for (FS_ULONG start = 0; start < count;) {
    FS_ULONG n = count - start < 255 ? count - start : 255;
    const FS_LONG* v = values + start;
    FS_ULONG i = 0;
    while (i < n) {
      FS_ULONG j = i;
      while (j < n && is_byte(v[j])) j++;
      if (j > i && j - i >= (i == 0 || j == n ? 2u : 3u)) {
        push_run(o, v + i, j - i, true);
        i = j;
        continue;
      }
      // Words up to the next byte run that pays for itself.
      FS_ULONG k = i + 1;
      while (k < n) {
        FS_ULONG r = k;
        while (r < n && is_byte(v[r])) r++;
        if (r > k && r - k >= (r == n ? 2u : 3u)) break;
        k = r > k ? r : k + 1;
      }
      push_run(o, v + i, k - i, false);
      i = k;
    }
    start += n;
  }
}

}  // namespace

namespace {

FS_BYTE* fail_glyph(FS_STATE* state, FS_ULONG error) {
  state->error = error;
  return nullptr;
}

// The push values and the remaining code: `pushCount`, the compressed push
// list (hops repeat the value two back), the code size, the code. False for
// a malformed list.
bool ReadAllCTFInstructions(FS_STATE* state, FS_CURSOR* c, Glyph* g,
                            FS_ULONG budget) {
  g->pushCount = Read255UShort(c);
  if (g->pushCount > 2 * budget + 2) return false;
  if (g->pushCount) {
    g->pushData = (FS_LONG*)FSS_malloc(state, 4 * g->pushCount);
    if (g->pushData == nullptr) return false;
  }
  FS_ULONG n = 0;
  while (n < g->pushCount && !c->overrun) {
    FS_BYTE b = c->pos < c->size ? c->data[c->pos] : 0;
    if (b == 251 || b == 252) {
      cursor_skip(c, 1);
      FS_ULONG adds = b == 251 ? 3 : 5;
      if (n < 2 || n + adds > g->pushCount) return false;
      FS_LONG A = g->pushData[n - 2];
      g->pushData[n++] = A;
      g->pushData[n++] = Read255Short(c);
      g->pushData[n++] = A;
      if (b == 252) {
        g->pushData[n++] = Read255Short(c);
        g->pushData[n++] = A;
      }
    } else if (b < 250) {
      cursor_skip(c, 1);
      g->pushData[n++] = b;
    } else {
      g->pushData[n++] = Read255Short(c);
    }
  }
  g->remainingCodeSize = Read255UShort(c);
  g->remainingCode = cursor_take(c, g->remainingCodeSize);
  return !c->overrun;
}

// The spline form's simple outline: point counts per contour, a code byte
// per point, then the points' bytes, as deltas from the last point.
bool ReadCTFSpline(FS_STATE* state, FS_CURSOR* c, Glyph* g) {
  FS_ULONG nc = (FS_ULONG)g->numberOfContours;
  if (nc > c->size) return false;
  // Contour ends and points in one allocation: a point takes at least its
  // code byte, so the bytes left bound the count.
  FS_ULONG room = c->size - c->pos;
  FS_ULONG n = room ? room : 1;
  g->x = (FS_LONG*)FSS_malloc(state, 9 * n + 2 * (nc ? nc : 1));
  if (g->x == nullptr) return false;
  g->y = g->x + n;
  g->endPoint = (FS_USHORT*)(g->y + n);
  g->onCurve = (FS_BYTE*)(g->endPoint + (nc ? nc : 1));
  FS_ULONG total = 0;
  for (FS_ULONG i = 0; i < nc; i++) {
    total += Read255UShort(c);
    if (total == 0 || total > 65535) return false;
    g->endPoint[i] = (FS_USHORT)(total - 1);
  }
  if (c->overrun || total > c->size - c->pos) return false;
  g->numberOfPoints = total;
  const FS_BYTE* codes = cursor_take(c, total);
  FS_INT64 x = 0, y = 0;
  for (FS_ULONG i = 0; i < total; i++) {
    const QSX_COORD_ENCODING& r = kCoords.rows[codes[i] & 0x7F];
    g->onCurve[i] = (codes[i] & 0x80) ? 0 : 1;
    FS_ULONG v = 0;
    for (FS_ULONG k = 1; k < r.byteCount; k++) v = (v << 8) | cursor_u8(c);
    FS_ULONG bits = 8 * (r.byteCount - 1u);
    FS_LONG dx = (FS_LONG)((v >> (bits - r.xBits)) & ((1u << r.xBits) - 1)) +
                 r.deltaX;
    FS_LONG dy = (FS_LONG)((v >> (bits - r.xBits - r.yBits)) &
                           ((1u << r.yBits) - 1)) + r.deltaY;
    x += r.xIsNegative ? -dx : dx;
    y += r.yIsNegative ? -dy : dy;
    // A standard glyph holds 16-bit coordinates.
    g->x[i] = (FS_SHORT)(FS_USHORT)(x & 0xFFFF);
    g->y[i] = (FS_SHORT)(FS_USHORT)(y & 0xFFFF);
  }
  return !c->overrun;
}

// The box of the points, as a standard glyph states it.
void SetBBox(Glyph* g) {
  g->xmin = g->xmax = g->ymin = g->ymax = 0;
  for (FS_ULONG i = 0; i < g->numberOfPoints; i++) {
    FS_SHORT x = (FS_SHORT)g->x[i], y = (FS_SHORT)g->y[i];
    if (i == 0 || x < g->xmin) g->xmin = x;
    if (i == 0 || x > g->xmax) g->xmax = x;
    if (i == 0 || y < g->ymin) g->ymin = y;
    if (i == 0 || y > g->ymax) g->ymax = y;
  }
}

// The composite records, words throughout as in `glyf`: they are copied as
// they stand. Any record's flag 0x100 means instructions follow.
bool read_components(FS_CURSOR* c, Glyph* g) {
  FS_ULONG from = c->pos;
  FS_USHORT flags;
  g->hasInstructions = false;
  do {
    flags = cursor_u16(c);
    cursor_skip(c, 2);                      // glyph index
    cursor_skip(c, (flags & 1) ? 4 : 2);    // arguments
    if (flags & 0x08) cursor_skip(c, 2);
    else if (flags & 0x40) cursor_skip(c, 4);
    else if (flags & 0x80) cursor_skip(c, 8);
    if (flags & 0x100) g->hasInstructions = true;
  } while ((flags & 0x20) && !c->overrun);
  g->componentData = c->data + from;
  g->componentSize = c->pos - from;
  return !c->overrun;
}

// Writes the point flags and coordinates of a simple glyph, with the short
// and same-value forms and repeats.
void write_points(GlyphOut* o, const Glyph* g) {
  FS_ULONG n = g->numberOfPoints;
  FS_BYTE* flags = nullptr;
  if (!AllocateGlyphSpace(o, n)) return;
  FS_ULONG flagsAt = o->used;
  FS_LONG px = 0, py = 0;
  FS_ULONG written = 0;
  FS_BYTE last = 0;
  FS_ULONG repeat = 0;
  for (FS_ULONG i = 0; i < n; i++) {
    FS_LONG dx = g->x[i] - px, dy = g->y[i] - py;
    px = g->x[i], py = g->y[i];
    FS_BYTE f = g->onCurve[i] ? 1 : 0;
    if (dx == 0) f |= 0x10;
    else if (dx >= -255 && dx <= 255) f |= 0x02 | (dx > 0 ? 0x10 : 0);
    if (dy == 0) f |= 0x20;
    else if (dy >= -255 && dy <= 255) f |= 0x04 | (dy > 0 ? 0x20 : 0);
    flags = o->p + flagsAt;
    if (i > 0 && f == last && repeat < 255) {
      if (repeat == 0) {
        flags[written - 1] |= 0x08;
        flags[written++] = 1;
        repeat = 1;
      } else {
        flags[written - 1] = (FS_BYTE)++repeat;
      }
    } else {
      flags[written++] = f;
      last = f;
      repeat = 0;
    }
  }
  o->used = flagsAt + written;
  for (int axis = 0; axis < 2; axis++) {
    const FS_LONG* v = axis ? g->y : g->x;
    FS_LONG prev = 0;
    for (FS_ULONG i = 0; i < n; i++) {
      FS_LONG d = v[i] - prev;
      prev = v[i];
      if (d == 0) continue;
      if (d >= -255 && d <= 255) out_u8(o, (FS_ULONG)(d < 0 ? -d : d));
      else out_u16(o, (FS_ULONG)(FS_USHORT)d);
    }
  }
}

// The standard `glyf` entry of `g`.
void QSX_Glyph_WriteTTFSpline(GlyphOut* o, const Glyph* g) {
  out_u16(o, (FS_ULONG)(FS_USHORT)g->numberOfContours);
  out_u16(o, (FS_ULONG)(FS_USHORT)g->xmin);
  out_u16(o, (FS_ULONG)(FS_USHORT)g->ymin);
  out_u16(o, (FS_ULONG)(FS_USHORT)g->xmax);
  out_u16(o, (FS_ULONG)(FS_USHORT)g->ymax);
  if (g->numberOfContours < 0) {
    out_bytes(o, g->componentData, g->componentSize);
  } else {
    for (FS_LONG i = 0; i < g->numberOfContours; i++)
      out_u16(o, g->endPoint[i]);
  }
  if (g->numberOfContours >= 0 || g->hasInstructions) {
    // The instructions' length goes in front of them once they are written.
    FS_ULONG at = o->used;
    out_u16(o, 0);
    OptimizingPush(o, g->pushData, g->pushCount);
    out_bytes(o, g->remainingCode, g->remainingCodeSize);
    FS_ULONG size = o->used - at - 2;
    if (size > 0xFFFF) o->failed = true;
    if (!o->failed) o->p[at] = (FS_BYTE)(size >> 8), o->p[at + 1] = (FS_BYTE)size;
  }
  if (g->numberOfContours >= 0) write_points(o, g);
}

void QSX_Glyph_Destroy(FS_STATE* state, Glyph* g) {
  FSS_free(state, g->x);
  FSS_free(state, g->pushData);
}

}  // namespace

FS_BYTE* QSX_TTC_GetTTFGlyphMemory(FS_STATE* state, const FS_BYTE* spline,
                                   FS_ULONG oldLength, FS_ULONG* newLength) {
  *newLength = 0;
  state->error = SUCCESS;
  FS_CURSOR c = cursor_at(spline, oldLength);
  Glyph g;
  memset(&g, 0, sizeof g);
  g.numberOfContours = cursor_s16(&c);
  bool keepBox = g.numberOfContours < 0 || g.numberOfContours == 32767;
  if (g.numberOfContours == 32767) g.numberOfContours = cursor_s16(&c);
  if (keepBox) {
    g.xmin = cursor_s16(&c);
    g.ymin = cursor_s16(&c);
    g.xmax = cursor_s16(&c);
    g.ymax = cursor_s16(&c);
  }
  bool ok = !c.overrun;
  if (ok && g.numberOfContours < 0) {
    ok = read_components(&c, &g) &&
         (!g.hasInstructions || ReadAllCTFInstructions(state, &c, &g, oldLength));
  } else if (ok) {
    ok = ReadCTFSpline(state, &c, &g) &&
         ReadAllCTFInstructions(state, &c, &g, oldLength);
    if (ok && !keepBox) SetBBox(&g);
  }
  GlyphOut o = {state, nullptr, 0, 0, false};
  if (ok) {
    o.size = oldLength + oldLength / 2 + 16;
    o.p = (FS_BYTE*)FSS_malloc(state, o.size);
    o.failed = o.p == nullptr;
    if (!o.failed) QSX_Glyph_WriteTTFSpline(&o, &g);
  }
  QSX_Glyph_Destroy(state, &g);
  if (!ok || o.failed) {
    FSS_free(state, o.p);
    bool memory = !ok ? state->error == ERR_MALLOC_FAIL : true;
    return fail_glyph(state, memory ? (FS_ULONG)ERR_MALLOC_FAIL
                                    : (FS_ULONG)ERR_BAD_GLYF_FORMAT);
  }
  state->error = SUCCESS;
  *newLength = o.used;
  return o.p;
}
