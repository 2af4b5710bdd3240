// Character mapping. First the subtable readers, one per format, on the raw
// big-endian bytes; each checks that its arrays lie inside the table before
// it reads them, and reads single words through checked readers. Then the
// inverse mapping, the subtable directory, and the mapping on a loaded font.
#include "Orvex_internal/fs_cmap.h"

#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_ttf.h"

namespace {

const FS_ULONG kNotMapped = 0xFFFF;  // inverse mapping: no code
const FS_ULONG kLargestUnrolledRange = 16384;
const FS_ULONG kFormat8Groups = 8208;  // behind the 8192-byte is32 array
const FS_ULONG kFormat12Groups = 16;
const FS_ULONG kGroupBytes = 12;

// True when n bytes at `at` lie inside the avail bytes of a subtable.
inline bool fits(FS_ULONG avail, FS_UINT64 at, FS_UINT64 n) {
  return at + n <= avail;
}

// Checked readers: 0 for a word that does not lie inside.
inline FS_USHORT u16_at(const FS_BYTE* sub, FS_ULONG avail, FS_UINT64 at) {
  return fits(avail, at, 2) ? get_u16(sub + at) : 0;
}
inline FS_ULONG u32_at(const FS_BYTE* sub, FS_ULONG avail, FS_UINT64 at) {
  return fits(avail, at, 4) ? get_u32(sub + at) : 0;
}
inline FS_ULONG u24(const FS_BYTE* p) {
  return ((FS_ULONG)p[0] << 16) | ((FS_ULONG)p[1] << 8) | (FS_ULONG)p[2];
}

inline bool is_power_of_two(FS_ULONG v) { return v != 0 && (v & (v - 1)) == 0; }

// The position of the first key not below `id` among n keys of `stride`
// bytes from `keys`, read by read(p). The search the stored header words
// drive: range = 1 << selector, halved when it equals n; start at 0, or at
// n - range - 1 when key(range) is below id; then halving steps jump forward
// while the key before the step's end is below id. A linear scan ends it. A
// range that is no power of two, or is not below n, goes straight to the
// scan. Returns n when every key is below id. The steps walk a key pointer
// rather than an index, so that each costs one load and one compare.
template <FS_ULONG stride, typename Read>
inline FS_ULONG search_keys(const FS_BYTE* keys, FS_ULONG n, FS_ULONG range,
                            FS_ULONG id, Read read) {
  if (range == n) range >>= 1;
  const FS_BYTE* p = keys;
  if (is_power_of_two(range) && range < n && range <= kLargestUnrolledRange) {
    if (read(keys + stride * range) < id) p = keys + stride * (n - range - 1);
    // bytes = stride * step, step halving from range / 2 down to 1.
    for (FS_ULONG bytes = stride * (range >> 1); bytes >= stride; bytes >>= 1) {
      if (read(p + bytes - stride) < id) {
        p += bytes;
        // A real branch: the loads of the steps go ahead on the predicted
        // path, where a conditional move waits for each load in turn.
        __asm__ volatile("");
      }
    }
  }
  FS_ULONG pos = (FS_ULONG)(p - keys) / stride;
  while (pos < n && read(keys + stride * pos) < id) pos++;
  return pos;
}

inline FS_ULONG read_u16(const FS_BYTE* p) { return get_u16(p); }
inline FS_ULONG read_u32(const FS_BYTE* p) { return get_u32(p); }

// The largest power of two not above n (0 for 0): the range a search of
// groups starts from, as no header word stores it.
inline FS_ULONG largest_power_of_two(FS_ULONG n) {
  return n == 0 ? 0 : (FS_ULONG)1 << (31 - __builtin_clz(n));
}

// Format 4's layout: segCount and the byte offsets of its four arrays.
struct Segments4 {
  FS_ULONG count;
  FS_ULONG ends, starts, deltas, rangeOffsets;
};

// The segment arrays of a format 4 subtable, or false when they do not fit.
bool segments_4(const FS_BYTE* sub, FS_ULONG avail, Segments4* s) {
  if (sub == nullptr || !fits(avail, 0, 14)) return false;
  s->count = get_u16(sub + 6) / 2;
  s->ends = 14;
  s->starts = 16 + 2 * s->count;
  s->deltas = s->starts + 2 * s->count;
  s->rangeOffsets = s->deltas + 2 * s->count;
  return fits(avail, s->rangeOffsets, 2 * (FS_UINT64)s->count);
}

// The layout of a format 8 or 12 subtable: group count and where groups
// begin, or false when they do not fit.
bool groups_at(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG first,
               FS_ULONG* count) {
  if (sub == nullptr || !fits(avail, first - 4, 4)) return false;
  *count = get_u32(sub + first - 4);
  return fits(avail, first, (FS_UINT64)kGroupBytes * *count);
}

// The glyph of `id` among n > 0 groups that lie inside their subtable, and
// in *found the group searched out.
inline FS_USHORT search_groups(const FS_BYTE* groups, FS_ULONG n, FS_ULONG id,
                               FS_ULONG* found) {
  FS_ULONG pos = search_keys<kGroupBytes>(groups + 4, n, largest_power_of_two(n),
                                          id, read_u32);
  if (pos >= n) pos = n - 1;  // the forward scan stops at the last group
  *found = pos;
  const FS_BYTE* g = groups + kGroupBytes * pos;
  FS_ULONG start = get_u32(g), end = get_u32(g + 4);
  if (id < start || id > end) return 0;
  return (FS_USHORT)(get_u32(g + 8) + (id - start));
}

inline FS_USHORT map_groups(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG first,
                            FS_ULONG id) {
  FS_ULONG n = 0;
  if (!groups_at(sub, avail, first, &n) || n == 0) return 0;
  FS_ULONG pos = 0;
  return search_groups(sub + first, n, id, &pos);
}

// Makes the font's remembered groups describe the subtable at `offset`
// when it is a grouped one whose groups lie inside the table; false when it
// is not, and the memory is left as it was.
bool remember_groups(TTF* ttf, const FS_BYTE* cmap, FS_ULONG length,
                     FS_ULONG offset) {
  if (cmap == nullptr || !fits(length, offset, 2)) return false;
  const FS_BYTE* sub = cmap + offset;
  FS_ULONG avail = length - offset, n = 0;
  FS_USHORT format = get_u16(sub);
  FS_ULONG first = format == 12 ? kFormat12Groups
                   : format == 8 ? kFormat8Groups
                                 : 0;
  if (first == 0 || !groups_at(sub, avail, first, &n) || n == 0) return false;
  TTF_CMAP_GROUPS* m = &ttf->cmap_groups;
  m->cmap = cmap;
  m->cmap_length = length;
  m->offset = offset;
  m->groups = sub + first;
  m->count = n;
  m->last = 0;
  m->ascending = 1;
  for (FS_ULONG i = 0; i < n && m->ascending; i++) {
    const FS_BYTE* g = m->groups + kGroupBytes * i;
    if (get_u32(g) > get_u32(g + 4) ||
        (i + 1 < n && get_u32(g + 4) >= get_u32(g + kGroupBytes)))
      m->ascending = 0;
  }
  return true;
}

// The subtable at `offset` with the bytes behind it, or null when it leaves
// no room for its format word.
const FS_BYTE* subtable_at(const FS_BYTE* cmap, FS_ULONG length,
                           FS_ULONG offset, FS_ULONG* avail) {
  if (cmap == nullptr || !fits(length, offset, 2)) return nullptr;
  *avail = length - offset;
  return cmap + offset;
}

const FS_ULONG kGlyphIndexInput = 0x4000;  // flag: ids are glyph indices
const FS_USHORT kNoCmap = 0xFFFF;

// The loaded font's data, loading it when the ladder has unloaded it. Null
// with the error when it can't be had.
TTF* loaded_ttf(FS_STATE* state, LFNT* lfnt) {
  if (lfnt->fnt == nullptr && load_fnt(state, lfnt) != 0) return nullptr;
  if (lfnt->fnt == nullptr) {
    state->error = ERR_FONT_NOT_LOADED;
    return nullptr;
  }
  return (TTF*)lfnt->fnt;
}

// The component `tfnt` becomes the one the last mapping chose.
void set_current(FS_STATE* state, FS_USHORT index, TFNT* tfnt) {
  state->cur_font = index;
  state->cur_lfnt = tfnt->cfnt ? tfnt->cfnt->lfnt : nullptr;
  state->cur_sfnt = tfnt->sfnt;
}

inline FS_BOOLEAN in_range(const UniRange& upc, FS_ULONG id) {
  if (upc.range1 >= 0xFFFFFFFE && upc.range2 >= 0xFFFFFFFE) return 1;
  FS_ULONG block = (id & 0xFFFF) >> 10;
  if (block < 32) return (upc.range1 >> block) & 1;
  if (block < 64) return (upc.range2 >> (block - 32)) & 1;
  return 1;
}

// The plane's coverage mask of a component; planes without one admit all.
inline FS_BOOLEAN covers(const CFNT* cfnt, FS_ULONG id) {
  switch (id & 0xF0000) {
    case 0x00000: return in_range(cfnt->bmp, id);
    case 0x10000: return in_range(cfnt->smp, id);
    case 0x20000: return in_range(cfnt->sip, id);
    case 0xE0000: return in_range(cfnt->ssp, id);
    default: return 1;
  }
}

bool is_unicode_cmap(FS_USHORT platform, FS_USHORT encoding) {
  return platform == 3 && (encoding == 1 || encoding == 10);
}

// Glyph-index mode: `id` counts through the components' glyphs in the set's
// numbering; the component whose range holds it answers.
FS_USHORT map_glyph_index(FS_STATE* state, FNTSET* set, FS_ULONG id) {
  TFNT* tfnts = state->cur_typeset.tfntarray;
  for (FS_USHORT i = 0; i < set->num_fonts; i++) {
    TFNT* tfnt = &tfnts[i];
    if (tfnt->cfnt == nullptr || tfnt->cfnt->lfnt == nullptr) return 0;
    if (tfnt->cmap_offset == 0 &&
        map_font(state, tfnt, state->platform, state->encoding) != 0)
      return 0;
    FS_LONG index = (FS_LONG)id - (FS_LONG)tfnt->cfnt->start_index;
    if (index < 0) break;
    TTF* ttf = loaded_ttf(state, tfnt->cfnt->lfnt);
    if (ttf == nullptr) {
      // A component that can't be loaded keeps its range in the set's
      // numbering: codes past it go on to the next component.
      if (i + 1 < set->num_fonts && tfnts[i + 1].cfnt != nullptr &&
          id >= tfnts[i + 1].cfnt->start_index)
        continue;
      return 0;
    }
    if ((FS_ULONG)index < ttf->maxp->numGlyphs) {
      set_current(state, i, tfnt);
      state->error = SUCCESS;
      return (FS_USHORT)index;
    }
  }
  state->error = ERR_BAD_GLYF_INDEX;
  return 0;
}

// The seven Unicode pairs, in the order a substitute is chosen.
const FS_USHORT kSubstitutions[7][2] = {{3, 10}, {0, 6}, {0, 4}, {3, 1},
                                        {0, 3},  {0, 1}, {0, 0}};

}  // namespace

/* ---- Subtable readers ---- */

FS_USHORT map_char_0(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG id) {
  if (sub == nullptr || id > 255 || !fits(avail, 6 + id, 1)) return 0;
  return sub[6 + id];
}

FS_USHORT map_char_2(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG id) {
  FS_ULONG subHeader = 518 + 2 * ((id >> 8) & 0xFF);
  if (sub == nullptr || !fits(avail, subHeader, 8)) return 0;
  const FS_BYTE* h = sub + subHeader;
  FS_LONG index = (FS_LONG)(id & 0xFF) - (FS_LONG)get_u16(h);
  if (index < 0 || index >= (FS_LONG)get_u16(h + 2)) return 0;
  FS_ULONG word = get_u16(h + 6) / 2 + 3 + (FS_ULONG)index;
  FS_USHORT glyph = u16_at(sub, avail, subHeader + 2 * (FS_UINT64)word);
  if (glyph != 0) glyph = (FS_USHORT)(glyph + get_u16(h + 4));
  return glyph;
}

namespace {

// The readers of the formats fonts ship, kept inlinable so that the mapping
// on a loaded font runs without a call per layer.
inline FS_USHORT segments_glyph(const FS_BYTE* sub, FS_ULONG avail,
                                FS_ULONG id) {
  Segments4 s;
  if (!segments_4(sub, avail, &s) || s.count == 0) return 0;
  FS_ULONG selector = get_u16(sub + 10);
  FS_ULONG range = selector < 16 ? 1u << selector : 0;
  const FS_BYTE* ends = sub + s.ends;
  FS_ULONG pos = search_keys<2>(ends, s.count, range, id, read_u16);
  if (pos >= s.count) return 0;
  FS_ULONG start = get_u16(sub + s.starts + 2 * pos);
  if (start > id) return 0;
  if (pos == s.count - 1 && start == 0xFFFF && get_u16(ends + 2 * pos) == 0xFFFF)
    return 0;
  FS_USHORT delta = get_u16(sub + s.deltas + 2 * pos);
  FS_ULONG rangeOffsetAt = s.rangeOffsets + 2 * pos;
  FS_ULONG rangeOffset = get_u16(sub + rangeOffsetAt);
  if (rangeOffset <= 1) return (FS_USHORT)(id + delta);
  FS_UINT64 at = rangeOffsetAt + 2 * ((FS_UINT64)rangeOffset / 2 + (id - start));
  FS_USHORT glyph = u16_at(sub, avail, at);
  if (glyph != 0) glyph = (FS_USHORT)(glyph + delta);
  return glyph;
}

}  // namespace

FS_USHORT map_char_4(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG id) {
  return segments_glyph(sub, avail, id);
}

FS_USHORT map_char_5(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG id) {
  if (sub == nullptr || !fits(avail, 0, 14)) return 0;
  FS_ULONG n = get_u16(sub + 6) / 2;
  FS_ULONG lengths = 14 + 2 * n, words = lengths + n;
  if (n == 0 || !fits(avail, words, 2 * (FS_UINT64)n)) return 0;
  FS_ULONG selector = get_u16(sub + 10);
  FS_ULONG range = selector < 16 ? 1u << selector : 0;
  const FS_BYTE* ends = sub + 14;
  FS_ULONG pos = search_keys<2>(ends, n, range, id, read_u16);
  if (pos >= n) return 0;
  FS_LONG end = get_u16(ends + 2 * pos);
  FS_LONG v = (FS_TINY)sub[lengths + pos];
  FS_ULONG wordAt = words + 2 * pos;
  FS_USHORT word = get_u16(sub + wordAt);
  if (v >= 1) {
    if ((FS_LONG)id < end - v + 1) return 0;
    return (FS_USHORT)(id + word);
  }
  FS_LONG start = end + v + 1;
  if ((FS_LONG)id < start) return 0;
  FS_UINT64 at = wordAt + 2 * ((FS_UINT64)word / 2 + ((FS_LONG)id - start));
  return u16_at(sub, avail, at);
}

FS_USHORT map_char_6(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG id) {
  if (sub == nullptr || !fits(avail, 0, 10)) return 0;
  FS_ULONG first = get_u16(sub + 6), count = get_u16(sub + 8);
  if (id < first || id - first >= count) return 0;
  return u16_at(sub, avail, 10 + 2 * (FS_UINT64)(id - first));
}

FS_USHORT map_char_8(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG id) {
  return map_groups(sub, avail, kFormat8Groups, id);
}

FS_USHORT map_char_12(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG id) {
  return map_groups(sub, avail, kFormat12Groups, id);
}

FS_USHORT map_char_14(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG id,
                      FS_ULONG varSelector) {
  if (sub == nullptr || !fits(avail, 0, 10)) return 0;
  FS_ULONG records = get_u32(sub + 6);
  if (!fits(avail, 10, 11 * (FS_UINT64)records)) return 0;
  FS_ULONG nonDefault = 0;
  bool found = false;
  for (FS_ULONG i = 0; i < records && !found; i++) {
    const FS_BYTE* r = sub + 10 + 11 * i;
    if (u24(r) == varSelector) {
      nonDefault = get_u32(r + 7);
      found = true;
    }
  }
  if (nonDefault == 0 || !fits(avail, nonDefault, 4)) return 0;
  FS_ULONG mappings = get_u32(sub + nonDefault);
  if (!fits(avail, (FS_UINT64)nonDefault + 4, 5 * (FS_UINT64)mappings))
    return 0;
  for (FS_ULONG i = 0; i < mappings; i++) {
    const FS_BYTE* m = sub + nonDefault + 4 + 5 * i;
    FS_ULONG unicode = u24(m);
    if (unicode > id) return 0;
    if (unicode == id) return get_u16(m + 3);
  }
  return 0;
}

FS_USHORT cmap_subtable_format(const FS_BYTE* cmap, FS_ULONG length,
                               FS_ULONG offset) {
  FS_ULONG avail = 0;
  const FS_BYTE* sub = subtable_at(cmap, length, offset, &avail);
  return sub ? get_u16(sub) : 0xFFFF;
}

namespace {

inline FS_USHORT subtable_glyph(const FS_BYTE* cmap, FS_ULONG length,
                                FS_ULONG offset, FS_ULONG id,
                                FS_ULONG varSelector, FS_BOOLEAN* bad_code) {
  if (bad_code) *bad_code = 0;
  FS_ULONG avail = 0;
  const FS_BYTE* sub = subtable_at(cmap, length, offset, &avail);
  if (sub == nullptr) return 0;
  FS_USHORT format = get_u16(sub);
  if (id >= 0x10000 && format < 8) {
    if (bad_code) *bad_code = 1;
    return 0;
  }
  switch (format) {
    case 0: return map_char_0(sub, avail, id);
    case 2: return map_char_2(sub, avail, id);
    case 4: return segments_glyph(sub, avail, id);
    case 5: return map_char_5(sub, avail, id);
    case 6: return map_char_6(sub, avail, id);
    case 8: return map_char_8(sub, avail, id);
    case 12: return map_groups(sub, avail, kFormat12Groups, id);
    case 14: return map_char_14(sub, avail, id, varSelector);
    default: return 0;
  }
}

}  // namespace

FS_USHORT cmap_map_subtable(const FS_BYTE* cmap, FS_ULONG length,
                            FS_ULONG offset, FS_ULONG id, FS_ULONG varSelector,
                            FS_BOOLEAN* bad_code) {
  return subtable_glyph(cmap, length, offset, id, varSelector, bad_code);
}

/* ---- Inverse mapping ---- */

FS_ULONG inverse_map_char_4(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG gi) {
  if (gi == 0 || sub == nullptr) return 0;
  Segments4 s;
  if (!segments_4(sub, avail, &s)) return kNotMapped;
  for (FS_ULONG i = 0; i < s.count; i++) {
    FS_ULONG start = get_u16(sub + s.starts + 2 * i);
    FS_ULONG end = get_u16(sub + s.ends + 2 * i);
    if (start == 0xFFFF) return kNotMapped;
    FS_USHORT delta = get_u16(sub + s.deltas + 2 * i);
    FS_ULONG rangeOffsetAt = s.rangeOffsets + 2 * i;
    FS_ULONG rangeOffset = get_u16(sub + rangeOffsetAt);
    if (rangeOffset <= 1) {  // the forward rule's id + idDelta
      FS_ULONG code = (FS_USHORT)(gi - delta);
      if (code >= start && code <= end) return code;
      continue;
    }
    // The segment's glyph words as the forward rule reads them: the first
    // that gives gi names the code.
    FS_UINT64 first = rangeOffsetAt + 2 * ((FS_UINT64)rangeOffset / 2);
    for (FS_ULONG code = start; code <= end; code++) {
      FS_UINT64 at = first + 2 * (FS_UINT64)(code - start);
      if (!fits(avail, at, 2)) break;
      FS_USHORT word = get_u16(sub + at);
      if (word != 0 && (FS_USHORT)(word + delta) == gi) return code;
    }
  }
  return kNotMapped;
}

FS_ULONG inverse_map_char_12(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG gi) {
  FS_ULONG n = 0;
  if (!groups_at(sub, avail, kFormat12Groups, &n) || n == 0) return kNotMapped;
  const FS_BYTE* groups = sub + kFormat12Groups;
  auto holds = [&](FS_ULONG i, FS_ULONG* code) {
    const FS_BYTE* g = groups + kGroupBytes * i;
    FS_ULONG start = get_u32(g), end = get_u32(g + 4), glyph = get_u32(g + 8);
    if (end < start || gi < glyph || gi - glyph > end - start) return false;
    *code = gi - glyph + start;
    return true;
  };
  // The last group starting at or below gi, when groups go in glyph order.
  FS_ULONG pos = search_keys<kGroupBytes>(groups + 8, n, largest_power_of_two(n),
                                          gi + 1, read_u32);
  FS_ULONG code = 0;
  for (FS_ULONG i = pos ? pos - 1 : 0; i < n; i++)
    if (holds(i, &code)) return code;
  for (FS_ULONG i = 0; i < n; i++)
    if (holds(i, &code)) return code;
  return kNotMapped;
}

/* ---- The subtable directory ---- */

FS_ULONG offset_to_cmap(const FS_BYTE* cmap, FS_ULONG length,
                        FS_USHORT platform, FS_USHORT encoding) {
  if (cmap == nullptr || !fits(length, 0, 4)) return 0;
  FS_ULONG n = get_u16(cmap + 2);
  for (FS_ULONG i = 0; i < n && fits(length, 4 + 8 * i, 8); i++) {
    const FS_BYTE* r = cmap + 4 + 8 * i;
    if (get_u16(r) != platform || get_u16(r + 2) != encoding) continue;
    FS_ULONG offset = get_u32(r + 4);
    return fits(length, offset, 2) ? offset : 0;
  }
  return 0;
}

FS_ULONG GetEncodingSubstitution(const FS_BYTE* cmap, FS_ULONG length,
                                 FS_USHORT platform, FS_USHORT encoding,
                                 FS_USHORT* used_platform,
                                 FS_USHORT* used_encoding) {
  bool unicodePair = false;
  for (const FS_USHORT* pair : kSubstitutions)
    if (pair[0] == platform && pair[1] == encoding) unicodePair = true;
  if (!unicodePair) return 0;
  for (const FS_USHORT* pair : kSubstitutions) {
    FS_ULONG offset = offset_to_cmap(cmap, length, pair[0], pair[1]);
    if (offset != 0) {
      if (used_platform) *used_platform = pair[0];
      if (used_encoding) *used_encoding = pair[1];
      return offset;
    }
  }
  return 0;
}

void cmap_code_ranges(const FS_BYTE* cmap, FS_ULONG length, FS_ULONG offset,
                      void (*visit)(void* ctx, FS_ULONG first, FS_ULONG last),
                      void* ctx) {
  FS_ULONG avail = 0;
  const FS_BYTE* sub = subtable_at(cmap, length, offset, &avail);
  if (sub == nullptr) return;
  switch (get_u16(sub)) {
    case 0:
      visit(ctx, 0, 255);
      break;
    case 2:
      for (FS_ULONG high = 0; high < 256; high++) {
        FS_ULONG at = 518 + 2 * high;
        if (!fits(avail, at, 8)) break;
        FS_ULONG first = get_u16(sub + at), count = get_u16(sub + at + 2);
        if (count == 0 || first > 255) continue;
        FS_ULONG last = first + count - 1 > 255 ? 255 : first + count - 1;
        visit(ctx, (high << 8) | first, (high << 8) | last);
      }
      break;
    case 4: {
      Segments4 s;
      if (!segments_4(sub, avail, &s)) break;
      for (FS_ULONG i = 0; i < s.count; i++) {
        FS_ULONG start = get_u16(sub + s.starts + 2 * i);
        FS_ULONG end = get_u16(sub + s.ends + 2 * i);
        if (start <= end) visit(ctx, start, end);
      }
      break;
    }
    case 5: {
      FS_ULONG n = fits(avail, 0, 14) ? get_u16(sub + 6) / 2 : 0;
      if (!fits(avail, 14 + 3 * n, 2 * (FS_UINT64)n)) break;
      for (FS_ULONG i = 0; i < n; i++) {
        FS_LONG end = get_u16(sub + 14 + 2 * i);
        FS_LONG v = (FS_TINY)sub[14 + 2 * n + i];
        FS_LONG start = v >= 1 ? end - v + 1 : end + v + 1;
        if (start < 0) start = 0;
        if (start <= end) visit(ctx, (FS_ULONG)start, (FS_ULONG)end);
      }
      break;
    }
    case 6: {
      if (!fits(avail, 0, 10)) break;
      FS_ULONG first = get_u16(sub + 6), count = get_u16(sub + 8);
      FS_ULONG last = first + count - 1 > 0xFFFF ? 0xFFFF : first + count - 1;
      if (count != 0) visit(ctx, first, last);
      break;
    }
    case 8:
    case 12: {
      FS_ULONG first = get_u16(sub) == 8 ? kFormat8Groups : kFormat12Groups;
      FS_ULONG n = 0;
      if (!groups_at(sub, avail, first, &n)) break;
      for (FS_ULONG i = 0; i < n; i++) {
        const FS_BYTE* g = sub + first + kGroupBytes * i;
        if (get_u32(g) <= get_u32(g + 4)) visit(ctx, get_u32(g), get_u32(g + 4));
      }
      break;
    }
    default:
      break;
  }
}

/* ---- On a loaded font ---- */

namespace {

inline FS_USHORT loaded_glyph(FS_STATE* state, TTF* ttf, FS_ULONG cmap_offset,
                              FS_ULONG id, FS_ULONG varSelector) {
  if (ttf != nullptr) {
    // A grouped subtable: the group of the code before first, when the
    // groups ascend; else the search, whose group is remembered.
    const FS_BYTE* cmap = (const FS_BYTE*)ttf->cmap;
    TTF_CMAP_GROUPS* m = &ttf->cmap_groups;
    if ((m->cmap == cmap && m->offset == cmap_offset &&
         m->cmap_length == ttf->cmap_length) ||
        remember_groups(ttf, cmap, ttf->cmap_length, cmap_offset)) {
      state->error = SUCCESS;
      if (m->ascending) {
        const FS_BYTE* g = m->groups + kGroupBytes * m->last;
        FS_ULONG start = get_u32(g);
        if (id >= start && id <= get_u32(g + 4))
          return (FS_USHORT)(get_u32(g + 8) + (id - start));
      }
      return search_groups(m->groups, m->count, id, &m->last);
    }
  }
  FS_BOOLEAN bad_code = 0;
  FS_USHORT glyph =
      ttf ? subtable_glyph((const FS_BYTE*)ttf->cmap, ttf->cmap_length,
                           cmap_offset, id, varSelector, &bad_code)
          : 0;
  state->error = bad_code ? ERR_BAD_GLYF_INDEX : SUCCESS;
  return glyph;
}

}  // namespace

FS_USHORT ttf_map_char(FS_STATE* state, TTF* ttf, FS_ULONG cmap_offset,
                       FS_ULONG id, FS_ULONG varSelector) {
  return loaded_glyph(state, ttf, cmap_offset, id, varSelector);
}

FS_BOOLEAN CFNT_charInRange(UniRange upc, FS_ULONG id) {
  return in_range(upc, id);
}

/* ---- The client's cmap over the current set ---- */

FS_ULONG LFNT_get_cmap_offset(FS_STATE* state, LFNT* lfnt, FS_USHORT platform,
                              FS_USHORT encoding) {
  state->error = SUCCESS;
  if (platform == kNoCmap && encoding == kNoCmap) return 0;
  if (lfnt == nullptr) {
    state->error = ERR_NO_CURRENT_LFNT;
    return 0;
  }
  TTF* ttf = loaded_ttf(state, lfnt);
  if (ttf == nullptr) return 0;
  FS_ULONG offset = offset_to_cmap((const FS_BYTE*)ttf->cmap, ttf->cmap_length,
                                   platform, encoding);
  if (offset == 0) state->error = ERR_CMAP_NOT_FOUND;
  return offset;
}

namespace {

inline FS_USHORT lfnt_glyph(FS_STATE* state, LFNT* lfnt, FS_ULONG cmap_offset,
                            FS_ULONG id, FS_ULONG varSelector) {
  if (cmap_offset == 0) {
    cmap_offset =
        LFNT_get_cmap_offset(state, lfnt, state->platform, state->encoding);
    if (cmap_offset == 0) return 0;
  }
  TTF* ttf = loaded_ttf(state, lfnt);
  if (ttf == nullptr) return 0;
  return loaded_glyph(state, ttf, cmap_offset, id, varSelector);
}

}  // namespace

FS_USHORT LFNT_map_char(FS_STATE* state, LFNT* lfnt, FS_ULONG cmap_offset,
                        FS_ULONG id, FS_ULONG varSelector) {
  return lfnt_glyph(state, lfnt, cmap_offset, id, varSelector);
}

FS_LONG map_font(FS_STATE* state, TFNT* tfnt, FS_USHORT platform,
                 FS_USHORT encoding) {
  TYPESET* typeset = &state->cur_typeset;
  if (typeset->fntset == nullptr || tfnt == nullptr) {
    state->error = ERR_NO_CURRENT_FONT;
    return ERR_NO_CURRENT_FONT;
  }
  state->platform = kNoCmap;
  state->encoding = kNoCmap;
  LFNT* lfnt = tfnt->cfnt ? tfnt->cfnt->lfnt : nullptr;
  FS_ULONG offset = LFNT_get_cmap_offset(state, lfnt, platform, encoding);
  if (state->error == ERR_CMAP_NOT_FOUND && platform != state->varPlatform &&
      encoding != state->varEncoding) {
    TTF* ttf = (TTF*)lfnt->fnt;
    offset = GetEncodingSubstitution((const FS_BYTE*)ttf->cmap,
                                     ttf->cmap_length, platform, encoding,
                                     nullptr, nullptr);
    if (offset != 0) state->error = SUCCESS;
  }
  tfnt->cmap_offset = offset;
  if (state->error != SUCCESS && typeset->capacity > 1)
    state->error = SUCCESS;  // another component may serve
  state->platform = platform;
  state->encoding = encoding;
  return (FS_LONG)state->error;
}

namespace {

inline __attribute__((always_inline)) FS_USHORT map_code(FS_STATE* state, FS_ULONG id,
                                                    FS_ULONG varSelector) {
  state->error = SUCCESS;
  FNTSET* set = state->cur_typeset.fntset;
  if (set == nullptr || state->cur_typeset.tfntarray == nullptr) {
    state->error = ERR_NO_CURRENT_FONT;
    return 0;
  }
  TFNT* tfnts = state->cur_typeset.tfntarray;
  FS_USHORT count = set->num_fonts;
  if (count > state->cur_typeset.capacity) count = state->cur_typeset.capacity;
  bool glyphIndexMode = (state->flags & kGlyphIndexInput) != 0 ||
                        (state->platform == kNoCmap && state->encoding == kNoCmap);
  if (glyphIndexMode) return map_glyph_index(state, set, id);
  // The cache answers for Unicode cmaps. U+0000 stays out of it: a fresh,
  // zeroed entry would read as a recorded miss of that code.
  bool fastPath = is_unicode_cmap(state->platform, state->encoding);
  for (FS_USHORT i = 0; i < count; i++) {
    TFNT* tfnt = &tfnts[i];
    LFNT* lfnt = tfnt->cfnt ? tfnt->cfnt->lfnt : nullptr;
    if (lfnt == nullptr) return 0;
    if (tfnt->cmap_offset == 0 &&
        map_font(state, tfnt, state->platform, state->encoding) != 0)
      return 0;
    // A component of a set without the subtable, or whose font can't be
    // loaded (map_font forgave it), can't serve: the next one may.
    if (tfnt->cmap_offset == 0 && count > 1) continue;
    FS_CMAP_CACHE* slot = nullptr;
    if (fastPath) {
      if (lfnt->cmap_cache != nullptr && id <= 0xFFFF && id != 0)
        slot = &lfnt->cmap_cache[(FS_USHORT)((FS_USHORT)id * 16807u) &
                                 lfnt->cmap_cache_mod];
      if (slot != nullptr && slot->unicode == id) {
        if (slot->index == 0) continue;  // a recorded miss
        set_current(state, i, tfnt);
        return slot->index;
      }
      if (!covers(tfnt->cfnt, id)) continue;
    }
    FS_USHORT glyph = lfnt_glyph(state, lfnt, tfnt->cmap_offset, id, varSelector);
    if (state->error == ERR_BAD_GLYF_INDEX || state->error == ERR_CMAP_NOT_FOUND) {
      state->error = SUCCESS;  // not in this component's subtable
      continue;
    }
    if (state->error != SUCCESS) return 0;
    if (slot != nullptr) {
      slot->unicode = (FS_USHORT)id;
      slot->index = glyph;
    }
    if (glyph != 0) {
      set_current(state, i, tfnt);
      return glyph;
    }
  }
  if (count > 0) set_current(state, 0, &tfnts[0]);
  state->error = SUCCESS;
  return 0;
}

}  // namespace

FS_USHORT map_char(FS_STATE* state, FS_ULONG id, FS_ULONG varSelector) {
  return map_code(state, id, varSelector);
}

/* ---- Client calls ---- */

FS_LONG FSS_set_cmap(FS_STATE* state, FS_USHORT platform, FS_USHORT encoding) {
  if (state->platform == platform && state->encoding == encoding) {
    state->error = SUCCESS;
    return 0;
  }
  TYPESET* typeset = &state->cur_typeset;
  for (FS_USHORT i = 0; i < typeset->capacity && typeset->tfntarray; i++)
    typeset->tfntarray[i].cmap_offset = 0;
  TFNT* first = typeset->capacity && typeset->fntset ? &typeset->tfntarray[0]
                                                     : nullptr;
  map_font(state, first, platform, encoding);
  state->platform = platform;
  state->encoding = encoding;
  return (FS_LONG)state->error;
}

FS_LONG FSS_get_cmap(FS_STATE* state, FS_USHORT* platform,
                     FS_USHORT* encoding) {
  if (platform == nullptr || encoding == nullptr) {
    state->error = ERR_BAD_ARGUMENT;
    return ERR_BAD_ARGUMENT;
  }
  *platform = state->platform;
  *encoding = state->encoding;
  state->error = SUCCESS;
  return 0;
}

FS_LONG FS_set_cmap_variant(FS_STATE* state, FS_USHORT platform,
                            FS_USHORT encoding) {
  state->varPlatform = platform;
  state->varEncoding = encoding;
  state->error = SUCCESS;
  return 0;
}

FS_LONG FS_get_cmap_variant(FS_STATE* state, FS_USHORT* platform,
                            FS_USHORT* encoding) {
  if (platform == nullptr || encoding == nullptr) {
    state->error = ERR_BAD_ARGUMENT;
    return ERR_BAD_ARGUMENT;
  }
  *platform = state->varPlatform;
  *encoding = state->varEncoding;
  state->error = SUCCESS;
  return 0;
}

namespace {

// map_char through the client's cmap, in the set's numbering.
FS_USHORT map_in_set_numbering(FS_STATE* state, FS_ULONG id,
                               FS_ULONG varSelector) {
  FS_ULONG flags = state->flags;
  state->flags &= ~kGlyphIndexInput;
  FS_USHORT glyph = map_code(state, id, varSelector);
  if (state->error == SUCCESS)
    glyph = (FS_USHORT)(glyph + state->cur_typeset.tfntarray[state->cur_font]
                                    .cfnt->start_index);
  state->flags = flags;
  return glyph;
}

}  // namespace

FS_USHORT FSS_map_char(FS_STATE* state, FS_ULONG id) {
  return map_in_set_numbering(state, id, 0);
}

FS_USHORT FSS_map_char_variant(FS_STATE* state, FS_ULONG id,
                               FS_ULONG varSelector) {
  if (varSelector == 0) return FSS_map_char(state, id);
  FS_USHORT platform = state->platform, encoding = state->encoding;
  FS_USHORT glyph = 0;
  FS_ULONG error = (FS_ULONG)FSS_set_cmap(state, state->varPlatform,
                                          state->varEncoding);
  if (error == SUCCESS) {
    glyph = map_in_set_numbering(state, id, varSelector);
    error = state->error;
  } else if (error == ERR_CMAP_NOT_FOUND) {
    error = SUCCESS;  // no variation subtable: the plain mapping serves
  }
  FSS_set_cmap(state, platform, encoding);
  if (state->error == SUCCESS) state->error = error;
  return state->error == SUCCESS ? glyph : 0;
}

FS_ULONG FSS_inverse_map_char(FS_STATE* state, FS_ULONG gi) {
  return inverse_map_char(state, gi, nullptr);
}

/* ---- Inverse mapping on the current set ---- */

FS_ULONG inverse_map_char_tfnt(FS_STATE* state, FS_ULONG gi, TFNT* tfnt) {
  if (tfnt == nullptr || tfnt->cfnt == nullptr || tfnt->cfnt->lfnt == nullptr) {
    state->error = ERR_NO_CURRENT_LFNT;
    return kNotMapped;
  }
  if (gi <= tfnt->cfnt->start_index) {
    state->error = ERR_BAD_GLYF_INDEX;
    return kNotMapped;
  }
  if (tfnt->cmap_offset == 0)
    map_font(state, tfnt, state->platform, state->encoding);
  if (tfnt->cmap_offset == 0) {
    state->error = ERR_UNICODE_CMAP_NEEDED;
    return kNotMapped;
  }
  TTF* ttf = loaded_ttf(state, tfnt->cfnt->lfnt);
  if (ttf == nullptr) return kNotMapped;
  state->error = SUCCESS;
  FS_ULONG avail = 0;
  const FS_BYTE* sub = subtable_at((const FS_BYTE*)ttf->cmap, ttf->cmap_length,
                                   tfnt->cmap_offset, &avail);
  FS_ULONG local = gi - tfnt->cfnt->start_index;
  switch (sub ? get_u16(sub) : 0xFFFF) {
    case 4: return inverse_map_char_4(sub, avail, local);
    case 12: return inverse_map_char_12(sub, avail, local);
    default: return kNotMapped;
  }
}

FS_ULONG inverse_map_char(FS_STATE* state, FS_ULONG gi, TFNT* current_tfnt) {
  if (!is_unicode_cmap(state->platform, state->encoding)) return kNotMapped;
  FNTSET* set = state->cur_typeset.fntset;
  if (set == nullptr || state->cur_typeset.tfntarray == nullptr) {
    state->error = ERR_NO_CURRENT_FONT;
    return kNotMapped;
  }
  if (current_tfnt != nullptr) {
    FS_ULONG code = inverse_map_char_tfnt(state, gi, current_tfnt);
    return state->error == SUCCESS ? code : kNotMapped;
  }
  FS_USHORT count = set->num_fonts;
  if (count > state->cur_typeset.capacity) count = state->cur_typeset.capacity;
  for (FS_USHORT i = 0; i < count; i++) {
    FS_ULONG code =
        inverse_map_char_tfnt(state, gi, &state->cur_typeset.tfntarray[i]);
    if (state->error != SUCCESS) return kNotMapped;
    if (code != kNotMapped) return code;
  }
  return kNotMapped;
}
