// fontvec info: what the engine's container loader reads from a font file,
// one "key: value" line each, then the names of the font's metrics record;
// with --cmap, the character map the renderer would choose, one "U+XXXX
// GLYPH" line per mapped code; with --kern, the font's kerning pairs, one
// "LEFT RIGHT VALUE" line each; with --cff, the CFF table's dicts and
// subroutines; with --strikes, one line per embedded bitmap strike; with
// --ppem N and --cvt, the control values after the font
// program and the control-value program ran at that size, one "INDEX
// VALUE" line each (26.6 integers), or with --gs the default graphic state
// they left, one "key: value" line each. With --memory the font is read
// into memory and added from there, the only way a compressed font loads;
// `info` then also names its blocks. Starts a private engine client, loads
// the face, prints, and ends the client.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cff.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_decomp.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_kern.h"
#include "Orvex_internal/fs_ltt.h"
#include "Orvex_internal/fs_metrics.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_sbit.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_ttf.h"
#include "tools/fontvec/commands.h"

namespace {

// Enough for the resident tables of any ordinary font.
const FS_ULONG kInfoHeap = 64u << 20;

// The font file's bytes with --memory, else null: the font is added from
// them instead of from the path.
FS_BYTE* gImage = NULL;
unsigned long gImageSize = 0;

FS_LONG loadFont(FS_STATE* state, const char* path, FS_ULONG index,
                 FS_ULONG nameLen, FILECHAR* name) {
  return FSS_load_font_with_offset(state, gImage ? NULL : path, gImage, index,
                                   0, (FS_ULONG)gImageSize, nameLen, name);
}

// The engine's type of a font file: 7 for a CFF OpenType font ("OTTO"), 2
// for a linked font ("LTT"), else 0.
FS_BYTE sfntType(const char* path) {
  FILE* f = fopen(path, "rb");
  if (f == NULL) return 0;
  char head[3] = {0, 0, 0};
  size_t n = fread(head, 1, sizeof head, f);
  fclose(f);
  if (n == 3 && memcmp(head, "LTT", 3) == 0) return FNT_TYPE_LINKED;
  return n == 3 && memcmp(head, "OTT", 3) == 0 ? FNT_TYPE_OTT : 0;
}

// A 16.16 value as a short decimal.
double fixedValue(FS_FIXED v) { return v / 65536.0; }

// What the linked font's head and component blocks say: version, names,
// counts, then one line per component with its place in the set's glyph
// numbering, its coverage of the first plane, synthetic style (0 when off)
// and its number of size adjustments.
int printLinkInfo(FS_STATE* state, const char* path) {
  FsLtt ltt;
  if (FSS_get_link_info(state, path, NULL, &ltt) != 0) {
    fontvec_error("%s: error %lu: %s", path, (unsigned long)state->error,
                  FS_error_message(state->error));
    FsLtt_done(&ltt);
    return 1;
  }
  printf("linked: %u\n", (unsigned)ltt.version);
  printf("name: %s\n", FsLtt_getName(&ltt) ? FsLtt_getName(&ltt) : "");
  printf("subfamily: %s\n", FsLtt_getSubfamilyName(&ltt));
  printf("components: %u\n", (unsigned)FsLtt_numComponents(&ltt));
  printf("metric_component: %u\n", (unsigned)ltt.mtrxComponent);
  unsigned long start = 0;
  for (FS_USHORT i = 0; i < FsLtt_numComponents(&ltt); i++) {
    const FsLttComponent* c = FsLtt_component(&ltt, i);
    printf("component %u: %s %s start=%lu glyphs=%u icons=%u bmp=0x%lX:0x%lX "
           "bold=%g italic=%g adjustments=%u\n",
           (unsigned)i, c->fontName ? c->fontName : "", c->fileName ? c->fileName : "",
           start & 0xFFFF, (unsigned)c->numGlyphs, (unsigned)c->numIcons,
           (unsigned long)c->bmp.range1, (unsigned long)c->bmp.range2,
           c->bold ? fixedValue(c->boldPercent) : 0.0,
           c->italic ? fixedValue(c->italicAngle) : 0.0, (unsigned)c->numAdjustments);
    start += (unsigned long)c->numGlyphs + c->numIcons;
  }
  FsLtt_done(&ltt);
  return 0;
}

bool parseIndex(const char* text, FS_ULONG* index) {
  char* end = NULL;
  unsigned long v = strtoul(text, &end, 10);
  if (text[0] == '\0' || text[0] == '-' || *end != '\0' || v > 0xFFFFFFFFul)
    return false;
  *index = (FS_ULONG)v;
  return true;
}

void printInfo(const TTF* ttf) {
  printf("faces: %lu\n", ttf->ttc_header
                             ? (unsigned long)ttf->ttc_header->numFonts
                             : 1ul);
  printf("glyphs: %u\n", (unsigned)ttf->maxp->numGlyphs);
  printf("units_per_em: %u\n", (unsigned)ttf->head->unitsPerEm);
  printf("bbox: %d %d %d %d\n", ttf->head->xMin, ttf->head->yMin,
         ttf->head->xMax, ttf->head->yMax);
  printf("ascender: %d\n", ttf->hhea->yAscender);
  printf("descender: %d\n", ttf->hhea->yDescender);
  printf("outlines: %s\n", ttf->cff                                 ? "CFF"
                          : ttf->glyf_size != 0 && ttf->loca != NULL ? "glyf"
                                                                     : "none");
  const QSX_RA_TT_Decomp* d = (const QSX_RA_TT_Decomp*)ttf->decomp;
  if (d != NULL) {
    unsigned long raw = 0, unit = 0;
    for (FS_ULONG i = 0; i < d->tc.numEntries; i++) {
      FS_USHORT c = d->tc.rb[i].isCompressed;
      if (c == 0) raw++;
      else if (unit == 0) unit = c == 1 ? 128 : c;
    }
    printf("compressed: %lu blocks, %lu raw, unit %lu\n",
           (unsigned long)d->tc.numEntries, raw, unit);
  }
  FS_USHORT format = (FS_USHORT)ttf->head->glyphDataFormat;
  if (ttf->ccc_info.numBits_LOCA != 0)
    printf("glyph_format: %s 0x%04X\n",
           (format >> 8) == 5 || (format >> 8) == 7 ? "ddd" : "ccc",
           (unsigned)format);
}

// One "PPEMX PPEMY DEPTH FLAGS START END SUBTABLES" line per strike of the
// font's bitmap location table; nothing for a font without strikes.
void printStrikes(const TTF* ttf) {
  const TTF_EBLC_PARTIAL* p = ttf->ttf_EBLC_partial;
  for (FS_ULONG i = 0; p != NULL && i < p->numSizes; i++) {
    const BITMAP_SIZE_TABLE* b = &p->bsta[i].bst;
    printf("%u %u %u %u %u %u %lu\n", (unsigned)b->ppemX, (unsigned)b->ppemY,
           (unsigned)b->bitDepth, (unsigned)(FS_BYTE)b->flags,
           (unsigned)b->startGlyphIndex, (unsigned)b->endGlyphIndex,
           (unsigned long)b->numberOfIndexSubTables);
  }
}

// The CFF table's top level: CID or not, font dicts, subroutine counts
// and the widths of the top Private dict, or of font dict 0. A font with
// `glyf` outlines is an error.
int printCff(FS_STATE* state, const char* path, TTF* ttf) {
  CFF_SUMMARY s;
  if (ttf->cff == NULL) {
    fontvec_error("%s: no CFF outlines in the font", path);
    return 1;
  }
  if (cff_summary(state, ttf, &s) != 0) {
    fontvec_error("%s: error %lu: %s", path, (unsigned long)state->error,
                  FS_error_message(state->error));
    return 1;
  }
  printf("cid: %s\n", s.cid ? "yes" : "no");
  printf("font_dicts: %lu\n", (unsigned long)s.font_dicts);
  printf("global_subrs: %lu\n", (unsigned long)s.global_subrs);
  printf("local_subrs: %lu\n", (unsigned long)s.local_subrs);
  printf("default_width: %ld\n", (long)s.default_width);
  printf("nominal_width: %ld\n", (long)s.nominal_width);
  return 0;
}

// The renderer's preference list of character maps, in its order.
const FS_USHORT kCmapPreference[][2] = {{3, 10}, {0, 6}, {0, 4}, {3, 1},
                                        {1, 0},  {0, 3}, {0, 1}, {0, 0}};
const FS_ULONG kLastUnicode = 0x10FFFF;

typedef std::vector<std::pair<FS_ULONG, FS_ULONG>> Ranges;

void addRange(void* ctx, FS_ULONG first, FS_ULONG last) {
  ((Ranges*)ctx)->push_back({first, last});
}

// Chooses the cmap as the renderer does and prints each mapped code of it in
// ascending order. Returns the exit code.
int printCmap(FS_STATE* state, const char* path, FS_ULONG index) {
  FILECHAR name[256];
  if (loadFont(state, path, index, sizeof name, name) != 0 ||
      FSS_set_font(state, name) != 0) {
    fontvec_error("%s: error %lu: %s", path, (unsigned long)state->error,
                  FS_error_message(state->error));
    return 1;
  }
  const FS_USHORT* chosen = NULL;
  for (const FS_USHORT* pair : kCmapPreference)
    if (FSS_set_cmap(state, pair[0], pair[1]) == 0) {
      chosen = pair;
      break;
    }
  if (chosen == NULL || (chosen[0] == 1 && chosen[1] == 0)) {
    fontvec_error("%s: no Unicode character map", path);
    return 1;
  }
  // The codes the chosen subtable of each component may map, sorted and
  // merged; a component that can't be loaded maps none.
  TYPESET* ts = &state->cur_typeset;
  Ranges ranges;
  for (FS_USHORT i = 0; i < ts->fntset->num_fonts; i++) {
    TFNT* tfnt = &ts->tfntarray[i];
    if (tfnt->cmap_offset == 0) map_font(state, tfnt, chosen[0], chosen[1]);
    TTF* ttf = (TTF*)tfnt->cfnt->lfnt->fnt;
    if (ttf != NULL && tfnt->cmap_offset != 0)
      cmap_code_ranges((const FS_BYTE*)ttf->cmap, ttf->cmap_length,
                       tfnt->cmap_offset, addRange, &ranges);
  }
  state->error = 0;
  std::sort(ranges.begin(), ranges.end());
  FS_ULONG next = 0;  // codes below it are printed
  for (const auto& r : ranges) {
    FS_ULONG last = std::min(r.second, kLastUnicode);
    for (FS_ULONG code = std::max(r.first, next); code <= last; code++) {
      FS_USHORT glyph = FSS_map_char(state, code);
      if (state->error != 0) {
        fontvec_error("%s: error %lu: %s", path, (unsigned long)state->error,
                      FS_error_message(state->error));
        return 1;
      }
      if (glyph != 0) printf("U+%04lX %u\n", (unsigned long)code, (unsigned)glyph);
    }
    next = std::max(next, last + 1);
  }
  FSS_delete_font(state, name);
  return 0;
}

// Adds the face to the client and makes it current; false after printing
// the engine's error.
bool addFont(FS_STATE* state, const char* path, FS_ULONG index,
             FILECHAR* name, FS_ULONG nameLen) {
  if (loadFont(state, path, index, nameLen, name) != 0 ||
      FSS_set_font(state, name) != 0) {
    fontvec_error("%s: error %lu: %s", path, (unsigned long)state->error,
                  FS_error_message(state->error));
    return false;
  }
  return true;
}

// The style the `head` macStyle bits name: bit 0 bold, bit 1 italic.
const char* styleName(FS_USHORT macStyle) {
  static const char* const kNames[] = {"Regular", "Bold", "Italic",
                                       "Bold Italic"};
  return kNames[macStyle & 3];
}

// The family, style and full name of the font's metrics record.
int printNames(FS_STATE* state, const char* path, FS_ULONG index) {
  FILECHAR name[256];
  if (!addFont(state, path, index, name, sizeof name)) return 1;
  FONT_METRICS fm;
  if (FSS_font_metrics(state, &fm) != 0) {
    fontvec_error("%s: error %lu: %s", path, (unsigned long)state->error,
                  FS_error_message(state->error));
    return 1;
  }
  printf("family: %s\n", fm.font_family_name);
  printf("style: %s\n", styleName(fm.head_macStyle));
  printf("full_name: %s\n", fm.font_name);
  FSS_delete_font(state, name);
  return 0;
}

// Every pair of the font's kerning subtable, in the table's order: glyph
// indices and the raw value in font units.
int printKerning(FS_STATE* state, const char* path, FS_ULONG index) {
  FILECHAR name[256];
  if (!addFont(state, path, index, name, sizeof name)) return 1;
  LFNT* lfnt = state->cur_typeset.fntset->metric_font;
  FS_ULONG count = kern_pair_count(state, lfnt);
  if (state->error != 0) {
    fontvec_error("%s: error %lu: %s", path, (unsigned long)state->error,
                  FS_error_message(state->error));
    return 1;
  }
  for (FS_ULONG i = 0; i < count; i++) {
    FS_USHORT left, right;
    FS_SHORT value;
    kern_pair(lfnt, i, &left, &right, &value);
    printf("%u %u %d\n", (unsigned)left, (unsigned)right, (int)value);
  }
  FSS_delete_font(state, name);
  return 0;
}

// The control values (--cvt) or the default graphic state (--gs) of the
// face scaled to `ppem`, once its programs have run.
int printPrograms(FS_STATE* state, const char* path, FS_ULONG index,
                  unsigned long ppem, bool cvt) {
  FILECHAR name[256];
  if (!addFont(state, path, index, name, sizeof name)) return 1;
  FS_FIXED s = (FS_FIXED)(ppem << 16);
  if (FSS_set_scale(state, s, 0, 0, s) != 0 || check_sfnt(state) != 0) {
    fontvec_error("%s: error %lu: %s", path, (unsigned long)state->error,
                  FS_error_message(state->error));
    return 1;
  }
  SFNT* sfnt = state->cur_sfnt;
  fsg_SplineKey* key =
      sfnt && sfnt->senv ? (fsg_SplineKey*)sfnt->senv->ttkey : NULL;
  if (key == NULL) {
    fontvec_error("%s: no TrueType scaler key", path);
    return 1;
  }
  fnt_GlobalGraphicStateType* g = &key->globalGS;
  if (cvt) {
    const F26DOT6* values =
        (const F26DOT6*)(key->memoryBases[3] + key->offset_controlValues);
    for (FS_LONG i = 0; i < key->cvtCount; i++)
      printf("%ld %ld\n", (long)i, (long)values[i]);
  } else {
    const fnt_ParameterBlock* pb = &g->defaultParBlock;
    printf("minimum_distance: %ld\n", (long)pb->minimumDistance);
    printf("cvt_cut_in: %ld\n", (long)pb->wTCI);
    printf("delta_base: %d\n", (int)pb->deltaBase);
    printf("delta_shift: %d\n", (int)pb->deltaShift);
    printf("round_state: %d\n", (int)pb->RoundValue);
    printf("instruct_control: %ld\n", (long)pb->instructControl);
    printf("scan_control: %ld\n", (long)pb->scanControl);
  }
  return 0;
}

bool parsePpem(const char* text, unsigned long* ppem) {
  char* end = NULL;
  unsigned long v = strtoul(text, &end, 10);
  if (text[0] == '\0' || text[0] == '-' || *end != '\0' || v < 1 || v > 16383)
    return false;
  *ppem = v;
  return true;
}

}  // namespace

int fontvec_info(int argc, char** argv) {
  const char* path = NULL;
  FS_ULONG index = 0;
  bool cmap = false;
  bool kern = false;
  bool cff = false;
  bool memory = false;
  bool cvt = false;
  bool gs = false;
  bool strikes = false;
  unsigned long ppem = 0;
  for (int i = 0; i < argc; i++) {
    if (strcmp(argv[i], "--memory") == 0) {
      memory = true;
    } else if (strcmp(argv[i], "--cmap") == 0) {
      cmap = true;
    } else if (strcmp(argv[i], "--kern") == 0) {
      kern = true;
    } else if (strcmp(argv[i], "--cff") == 0) {
      cff = true;
    } else if (strcmp(argv[i], "--cvt") == 0) {
      cvt = true;
    } else if (strcmp(argv[i], "--gs") == 0) {
      gs = true;
    } else if (strcmp(argv[i], "--strikes") == 0) {
      strikes = true;
    } else if (strcmp(argv[i], "--ppem") == 0 && i + 1 < argc) {
      if (!parsePpem(argv[++i], &ppem)) return fontvec_usage("info");
    } else if (strcmp(argv[i], "--index") == 0 && i + 1 < argc) {
      if (!parseIndex(argv[++i], &index)) return fontvec_usage("info");
    } else if (argv[i][0] == '-' && argv[i][1] != '\0') {
      return fontvec_usage("info");
    } else if (path == NULL) {
      path = argv[i];
    } else {
      return fontvec_usage("info");
    }
  }
  if (path == NULL || (int)cmap + (int)kern + (int)cff + (int)cvt + (int)gs +
              (int)strikes > 1 ||
      (cvt || gs) != (ppem != 0))
    return fontvec_usage("info");

  if (memory && (gImage = fontvec_read_font(path, &gImageSize)) == NULL) {
    fontvec_error("%s: cannot read the file", path);
    return 1;
  }
  FS_STATE state;
  if (FSS_init(&state, kInfoHeap) != 0) {
    fontvec_error("the font engine did not start (error %lu: %s)",
                  (unsigned long)state.error, FS_error_message(state.error));
    free(gImage);
    return 1;
  }
  auto print = [&]() -> int {
    if (cmap) return printCmap(&state, path, index);
    if (cvt || gs) return printPrograms(&state, path, index, ppem, cvt);
    if (kern) return printKerning(&state, path, index);
    FS_BYTE type = sfntType(path);
    if (type == FNT_TYPE_LINKED && !cff && !strikes)
      return printLinkInfo(&state, path);
    TTF* ttf = load_ttf(&state, (FILECHAR*)path, gImage, index, 0,
                        (FS_ULONG)gImageSize, 0, type);
    if (ttf == NULL) {
      fontvec_error("%s: error %lu: %s", path, (unsigned long)state.error,
                    state.error ? FS_error_message(state.error)
                                : "no outlines nor bitmaps in the font");
      return 1;
    }
    if (cff) {
      int status = printCff(&state, path, ttf);
      unload_ttf(&state, ttf);
      return status;
    }
    if (strikes) {
      printStrikes(ttf);
      unload_ttf(&state, ttf);
      return 0;
    }
    printInfo(ttf);
    unload_ttf(&state, ttf);
    return printNames(&state, path, index);
  };
  int status = print();
  FSS_exit(&state);
  free(gImage);
  return status;
}
