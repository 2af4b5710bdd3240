// What the fuzz targets, the damaged-font campaign and the regression test
// run over untrusted font bytes: each exercise starts a private engine
// client on a small heap, adds the bytes as a font in memory (the length
// given, so that nothing is taken on trust), makes the reads of one family
// of client calls, ends the client and returns the first engine error it
// met (0 when every call succeeded). Nothing here judges the answers: the
// sanitizers and the time limits do.
#ifndef FUZZ_FUZZ_ENGINE_H
#define FUZZ_FUZZ_ENGINE_H

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cff.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_kern.h"
#include "Orvex_internal/fs_ltt.h"
#include "Orvex_internal/fs_metrics.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_sbit.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace fuzz {

// The engine's heap for one exercise: a font claiming more than this is
// refused by the budget, never by the machine.
const FS_ULONG kHeap = 16u << 20;

// The engine's type of the bytes as the tool's `info` reads it: a CFF
// OpenType font, a linked font, else a TrueType font or collection.
inline FS_BYTE fontType(const uint8_t* data, size_t size) {
  if (size >= 3 && memcmp(data, "OTT", 3) == 0) return FNT_TYPE_OTT;
  if (size >= 3 && memcmp(data, "LTT", 3) == 0) return FNT_TYPE_LINKED;
  return 0;
}

// One engine client with a copy of the bytes (the engine may keep and
// convert what it is given) added as its current font.
struct Client {
  FS_STATE st;
  bool up = false;
  bool added = false;
  FS_ULONG first = 0;  // the first error met
  FILECHAR name[256];
  FS_BYTE* bytes;
  size_t size;

  Client(const uint8_t* data, size_t n)
      : bytes((FS_BYTE*)malloc(n ? n : 1)), size(n) {
    memcpy(bytes, data, n);
    memset(&st, 0, sizeof st);
    up = FSS_init(&st, kHeap) == 0;
    note();
  }
  ~Client() {
    if (up) FSS_exit(&st);
    free(bytes);
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  // Keeps the client's error when it is the first; clears it.
  FS_ULONG note() {
    FS_ULONG e = (FS_ULONG)st.error;
    if (first == 0) first = e;
    st.error = 0;
    return e;
  }
  // Adds the bytes as face `index` and makes it current; false on a refusal.
  bool add(FS_ULONG index = 0) {
    // No bytes would be a length of 0, which the loader takes as unknown.
    if (!up || size == 0 || fontType(bytes, size) == FNT_TYPE_LINKED) return false;
    if (FSS_load_font_with_offset(&st, NULL, bytes, index, 0, (FS_ULONG)size,
                                  sizeof name, name) != 0) {
      note();
      return false;
    }
    added = true;
    if (FSS_set_font(&st, name) != 0) return note(), false;
    return true;
  }
};

// The renderer's order of character maps.
const FS_USHORT kCmapPreference[][2] = {{3, 10}, {0, 6}, {0, 4}, {3, 1},
                                        {1, 0},  {0, 3}, {0, 1}, {0, 0}};

// What `fontvec info` reads: the loader's record (faces, counts, header
// values, outlines, a compressed font's blocks), the CFF summary, the
// strikes, then the font added: its metrics record and kerning pairs.
inline FS_ULONG fontInfo(const uint8_t* data, size_t size) {
  Client c(data, size);
  if (!c.up || size == 0) return c.first;
  FS_BYTE type = fontType(data, size);
  if (type == FNT_TYPE_LINKED) {
    // A linked font's head and component blocks, with their adjustments;
    // its components name files, which are not opened here.
    FsLtt ltt;
    FsLtt_init(&ltt, &c.st);
    FsLtt_load(&ltt, c.bytes, (FS_ULONG)size, 1);
    c.note();
    FsLtt_done(&ltt);
    return c.first;
  }
  TTF* ttf = load_ttf(&c.st, NULL, c.bytes, 0, 0, (FS_ULONG)size, 0, type);
  c.note();
  volatile FS_ULONG sink = 0;
  if (ttf != NULL) {
    sink += ttf->maxp->numGlyphs + ttf->head->unitsPerEm + ttf->hhea->yAscender;
    if (ttf->ttc_header != NULL) sink += ttf->ttc_header->numFonts;
    const TTF_EBLC_PARTIAL* p = ttf->ttf_EBLC_partial;
    for (FS_ULONG i = 0; p != NULL && i < p->numSizes; i++)
      sink += p->bsta[i].bst.numberOfIndexSubTables;
    CFF_SUMMARY s;
    if (ttf->cff != NULL && cff_summary(&c.st, ttf, &s) == 0)
      sink += s.global_subrs + s.local_subrs;
    c.note();
    unload_ttf(&c.st, ttf);
  }
  // A collection's second member too, when the bytes say there is one.
  for (FS_ULONG index = 0; index < 2; index++) {
    Client f(data, size);
    if (!f.add(index)) {
      if (c.first == 0) c.first = f.first;
      break;
    }
    FONT_METRICS fm;
    memset(&fm, 0, sizeof fm);
    if (FSS_font_metrics(&f.st, &fm) == 0) sink += fm.numFontsInTTC;
    f.note();
    LFNT* lfnt = f.st.cur_typeset.fntset->metric_font;
    FS_ULONG count = kern_pair_count(&f.st, lfnt);
    if (f.note() == 0)
      for (FS_ULONG i = 0; i < count; i++) {
        FS_USHORT left, right;
        FS_SHORT value;
        kern_pair(lfnt, i, &left, &right, &value);
        sink += (FS_ULONG)value;
      }
    FS_FIXED dx, dy;
    FSS_get_kerning(&f.st, 1, 2, &dx, &dy);
    f.note();
    if (c.first == 0) c.first = f.first;
    if (fm.numFontsInTTC < 2) break;
  }
  (void)sink;
  return c.first;
}

inline void countRange(void* ctx, FS_ULONG, FS_ULONG) { ++*(FS_ULONG*)ctx; }

// Every (platform, encoding) pair the `cmap` table lists, its code ranges
// walked, chosen in turn and mapped over a sweep of codes: the first 1024, then one in 0x101 up to the
// end of Unicode and beyond it, and each with a variation selector.
inline FS_ULONG characterMaps(const uint8_t* data, size_t size) {
  Client c(data, size);
  if (!c.add()) return c.first;
  FS_USHORT pairs[32][2];
  int n = 0;
  Client t(data, size);  // the table read from a copy of its own
  TTF* ttf = t.up ? load_ttf(&t.st, NULL, t.bytes, 0, 0, (FS_ULONG)size, 0,
                             fontType(data, size))
                  : NULL;
  if (ttf != NULL && ttf->cmap != NULL && ttf->cmap_length >= 4) {
    const FS_BYTE* t = (const FS_BYTE*)ttf->cmap;
    FS_ULONG count = get_u16(t + 2);
    for (FS_ULONG i = 0; i < count && n < 32 && 4 + 8 * i + 8 <= ttf->cmap_length; i++) {
      pairs[n][0] = get_u16(t + 4 + 8 * i);
      pairs[n][1] = get_u16(t + 6 + 8 * i);
      n++;
      // The ranges `info --cmap` walks, from the record's own offset.
      FS_ULONG ranges = 0;
      cmap_code_ranges(t, ttf->cmap_length, get_u32(t + 8 + 8 * i), countRange, &ranges);
    }
  }
  unload_ttf(&t.st, ttf);
  for (const FS_USHORT* p : kCmapPreference)
    if (n < 32) pairs[n][0] = p[0], pairs[n][1] = p[1], n++;
  volatile FS_ULONG sink = 0;
  for (int k = 0; k < n; k++) {
    if (FSS_set_cmap(&c.st, pairs[k][0], pairs[k][1]) != 0) {
      c.note();
      continue;
    }
    for (FS_ULONG code = 0; code < 0x400; code++) sink += FSS_map_char(&c.st, code);
    for (FS_ULONG code = 0x400; code < 0x110200; code += 0x101)
      sink += FSS_map_char(&c.st, code);
    c.note();
    sink += FSS_map_char_variant(&c.st, 0x41, 0xFE00);
    sink += FSS_map_char_variant(&c.st, 0x4E00, 0xE0100);
    c.note();
  }
  (void)sink;
  return c.first;
}

// The glyph requests: at `sizes` pixels per em, hinted and unhinted, for
// the glyph of 'a', the character `code` and glyph indices `g1` and `g2`
// (each once): the advance, the points and one of the 1-bit map, the 8-bit
// graymap and the distance-field map, taken in turn. A glyph program may
// run a million instructions before the interpreter stops it, so each
// glyph is hinted no more often than that.
inline FS_ULONG glyphs(const uint8_t* data, size_t size, const FS_USHORT* sizes,
                       int numSizes, FS_ULONG g1, FS_ULONG g2, FS_ULONG code) {
  Client c(data, size);
  if (!c.add()) return c.first;
  for (const FS_USHORT* p : kCmapPreference)
    if (FSS_set_cmap(&c.st, p[0], p[1]) == 0) break;
  c.note();
  const FS_USHORT kTypes[] = {FS_MAP_GRAYMAP8, FS_MAP_BITMAP, FS_MAP_EDGE_GRAYMAP8};
  const FS_ULONG ids[4] = {'a', code, g1, g2};
  int turn = 0;
  for (int s = 0; s < numSizes; s++) {
    FS_FIXED scale = (FS_FIXED)sizes[s] << 16;
    for (int hints = 1; hints >= 0; hints--) {
      FS_set_flags(&c.st, hints ? ~FLAGS_NO_HINTS : FLAGS_NO_HINTS);
      if (FSS_set_scale(&c.st, scale, 0, 0, scale) != 0) {
        c.note();
        continue;
      }
      for (int k = 0; k < 4; k++) {
        if ((k == 1 && code == 'a') || (k == 3 && g2 == g1)) continue;
        FS_set_flags(&c.st, k < 2 ? ~FLAGS_CMAP_OFF : FLAGS_CMAP_OFF);
        FS_FIXED dx, dy;
        FS_SHORT idx, idy;
        FSS_get_advance(&c.st, ids[k], FS_MAP_GRAYMAP8, &idx, &idy, &dx, &dy);
        c.note();
        FS_GLYPH_POINTS* pts = FSS_get_points(&c.st, ids[k]);
        if (pts != NULL) FSS_free(&c.st, pts);
        c.note();
        FS_GLYPHMAP* g = FSS_get_glyphmap(&c.st, ids[k], kTypes[turn++ % 3]);
        if (g != NULL) FSS_free_char(&c.st, g);
        c.note();
      }
    }
  }
  return c.first;
}

}  // namespace fuzz

#endif
