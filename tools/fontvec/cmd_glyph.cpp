// fontvec glyph: one glyph's scaled points as the scaler leaves them,
// hinted by the font's programs unless --no-hints, in 26.6 units with the
// origin at the left phantom place (rounded to the grid when hinted, as the
// outline's extraction rounds it), and the rounded advance (a CFF glyph's
// contours in the engine's order: reversed, each closed on a point of its
// own, a cubic's two controls `off`); or with --png its map of the --type
// asked (8-bit gray by default) as a PNG; or with --bitmap its trimmed
// 1-bit map, as a 1-bit grey PNG or as text rows of '#' and '.'; or with
// --adf its 8-bit distance-field map (at the font's or --csm's contrast),
// or with --distance-field its distance map, as --png writes them; either map
// in a style (an image effect, softening, boldness) set through the
// client's setters. Starts a private engine client, adds and sets the font,
// sets the scale and the character map, and asks the glyph request calls
// for the advance and the points, or the map. With --memory the font is
// added from the file's bytes in memory.
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <png.h>

// The engine's client calls only.
#include "Orvex_internal/adf.h"
#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_metrics.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_rtgah.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_xmalloc.h"
#include "tools/fontvec/commands.h"
#include "tools/fontvec/glyph_draw.h"

namespace {

const FS_ULONG kGlyphHeap = 64u << 20;

bool parseNumber(const char* text, int base, unsigned long max,
                 unsigned long* out) {
  char* end = NULL;
  if (text[0] == '\0' || text[0] == '-') return false;
  unsigned long v = strtoul(text, &end, base);
  if (*end != '\0' || v > max) return false;
  *out = v;
  return true;
}

// Writes a graymap as an 8-bit grey PNG, ink dark on white. A map with no
// pixels becomes one white pixel, PNG having no empty image.
bool writeGraymapPng(const char* out, const FS_GRAYMAP* g) {
  bool blank = g->width <= 0 || g->height <= 0;
  png_uint_32 w = blank ? 1 : (png_uint_32)g->width;
  png_uint_32 h = blank ? 1 : (png_uint_32)g->height;
  return writeGreyPng(out, w, h, 8, [&](png_uint_32 y, png_bytep row) {
    for (png_uint_32 x = 0; x < w; x++)
      row[x] = (png_byte)(blank ? 255 : 255 - grayLevel(g, (int)x, (int)y));
  });
}

// Writes a 1-bit map as a 1-bit grey PNG, ink black on white. A map with
// no pixels becomes one white pixel.
bool writeBitmapPng(const char* out, const FS_BITMAP* b) {
  bool blank = b->width <= 0 || b->height <= 0;
  png_uint_32 w = blank ? 1 : (png_uint_32)b->width;
  png_uint_32 h = blank ? 1 : (png_uint_32)b->height;
  return writeGreyPng(out, w, h, 1, [&](png_uint_32 y, png_bytep row) {
    // Grey 1 is white: the engine's ink bits are inverted, the padding
    // stays white.
    for (png_uint_32 j = 0; j < (w + 7) / 8; j++)
      row[j] = (png_byte)(blank ? 0xFF : ~b->bits[y * (png_uint_32)b->bpl + j]);
  });
}

int engineError(const char* path, FS_STATE* st) {
  fontvec_error("%s: error %lu: %s", path, (unsigned long)st->error,
                FS_error_message(st->error));
  return 1;
}

// The points of `id` and its rounded advance, printed; 0 or 1.
int printPoints(FS_STATE* st, const char* path, FS_ULONG id) {
  FS_FIXED dx, dy;
  FS_SHORT idx, idy;
  if (FSS_get_advance(st, id, FS_MAP_GRAYMAP8, &idx, &idy, &dx, &dy) != 0)
    return engineError(path, st);
  FS_GLYPH_POINTS* pts = FSS_get_points(st, id);
  if (pts == NULL) return engineError(path, st);
  for (FS_SHORT c = 0; c < pts->nc; c++) {
    if (c > 0) printf("\n");
    for (FS_LONG p = pts->sp[c]; p <= pts->ep[c]; p++)
      printf("%ld %ld %s\n", (long)pts->x[p], (long)pts->y[p],
             pts->onCurve[p] ? "on" : "off");
  }
  FSS_free(st, pts);
  printf("advance: %ld\n", (long)idx * 64);
  // A linked font also names the component that drew the glyph.
  if (st->cur_typeset.fntset->num_fonts > 1 ||
      fontfile_type(st, path, NULL, 0) == FNT_TYPE_LINKED)
    printf("component: %u\n", (unsigned)st->cur_font);
  st->error = 0;
  return 0;
}

// The autohinter's stroke finders over the glyph's scaled points, as it
// sees them (rounded extremes flattened first): one line per stroke, the x
// pass then the y pass, `AXIS RAW WIDTH MIN MAX ALIGNED` in 26.6 from the
// left phantom place; 0 or 1.
int printStrokes(FS_STATE* st, const char* path, FS_ULONG id,
                 unsigned long ppem) {
  FS_GLYPH_POINTS* pts = FSS_get_points(st, id);
  if (pts == NULL) return engineError(path, st);
  FS_LONG np = pts->np;
  F26DOT6* xy = (F26DOT6*)calloc((size_t)np * 4 + 1, sizeof(F26DOT6));
  FS_BYTE* f = (FS_BYTE*)calloc((size_t)np + 1, 1);
  RTGAH_DATA* r = (RTGAH_DATA*)calloc(1, sizeof(RTGAH_DATA));
  fnt_ElementType el = {};
  el.x = xy, el.y = xy + np, el.ox = xy + 2 * np, el.oy = xy + 3 * np;
  memcpy(el.x, pts->x, (size_t)np * sizeof(F26DOT6));
  memcpy(el.y, pts->y, (size_t)np * sizeof(F26DOT6));
  memcpy(el.ox, pts->x, (size_t)np * sizeof(F26DOT6));
  memcpy(el.oy, pts->y, (size_t)np * sizeof(F26DOT6));
  el.onCurve = pts->onCurve, el.sp = pts->sp, el.ep = pts->ep, el.f = f;
  el.nc = pts->nc, el.np = (FS_SHORT)np;
  non_corner_extrema(&el);
  F26DOT6 max_sw = (F26DOT6)((ppem * 1408 + 50) / 100);
  const int kAxes[2] = {'x', 'y'};
  for (int xyc : kAxes) {
    int cursor = 0;
    int n = find_pieces(xyc, r->pieces, &el, r->plist, &cursor, RTGAH_MAX_PLIST);
    n = find_strokes(xyc, n, r->pieces, r->strokes, &el, max_sw, r->plist, &cursor,
                     RTGAH_MAX_PLIST);
    for (int i = 0; i < n; i++) {
      const STROKE& s = r->strokes[i];
      printf("%c %ld %ld %ld %ld %ld\n", xyc, (long)s.raw_center, (long)s.width,
             (long)s.min, (long)s.max, (long)simple_alignment(s.raw_center, s.width));
    }
  }
  free(r);
  free(f);
  free(xy);
  FSS_free(st, pts);
  st->error = 0;
  return 0;
}

// The scaled font's reference lines as the autohinter reads them: `SLOT
// VALUE` (26.6) for slots 0 to 7 and each later non-zero one up to 51,
// then `suitable: N`; 0 or 1.
int printRefLines(FS_STATE* st, const char* path) {
  map_char(st, 'H', 0);
  st->error = 0;
  if (check_sfnt(st) != 0 || st->cur_sfnt == NULL) return engineError(path, st);
  get_ref_lines(st);
  const F26DOT6* ref = st->cur_sfnt->ref_lines;
  for (int i = 0; i < 52; i++)
    if (i < 8 || ref[i] != 0) printf("%d %ld\n", i, (long)ref[i]);
  printf("suitable: %u\n", (unsigned)st->cur_sfnt->rtgah_suitable);
  st->error = 0;
  return 0;
}

// Writes a colour glyph's own PNG stream as it is.
bool writeIconPng(const char* out, const FS_GLYPHMAP* g) {
  FILE* fp = fopen(out, "wb");
  if (fp == NULL) return false;
  size_t n = g->size > 40 ? (size_t)(g->size - 40) : 0;
  bool ok = fwrite(g->bits, 1, n, fp) == n;
  return fclose(fp) == 0 && ok;
}

// The map of `id` of glyphmap type `type` written to `pngOut` (a colour
// glyph's own PNG, a 1-bit PNG for a bitmap, else grey), its box printed,
// with " embedded" for a strike's map; 0 or 1.
int writeGraymap(FS_STATE* st, const char* path, FS_ULONG id,
                 const char* pngOut, FS_USHORT type) {
  FS_GLYPHMAP* g = FSS_get_glyphmap(st, id, type);
  if (g == NULL) return engineError(path, st);
  int status = 0;
  bool written = g->bitsPerPixel == 32   ? writeIconPng(pngOut, g)
                 : g->bitsPerPixel == 1 ? writeBitmapPng(pngOut, g)
                                        : writeGraymapPng(pngOut, g);
  if (!written) {
    fontvec_error("%s: cannot write the PNG file", pngOut);
    status = 1;
  } else {
    printf("%d %d %d %d%s\n", g->lo_x, g->hi_y, g->width, g->height,
           g->embedded ? " embedded" : "");
  }
  FSS_free_char(st, g);
  return status;
}

// The trimmed 1-bit map of `id`: its box printed, then the PNG written to
// `pngOut`, or without one a row of '#' and '.' per pixel row; 0 or 1.
int writeBitmap(FS_STATE* st, const char* path, FS_ULONG id,
                const char* pngOut) {
  FS_GLYPHMAP* b = FSS_get_glyphmap(st, id, FS_MAP_BITMAP);
  if (b == NULL) return engineError(path, st);
  int status = 0;
  if (pngOut != NULL && !writeBitmapPng(pngOut, b)) {
    fontvec_error("%s: cannot write the PNG file", pngOut);
    status = 1;
  } else {
    printf("%d %d %d %d\n", b->lo_x, b->hi_y, b->width, b->height);
    for (int y = 0; pngOut == NULL && y < b->height; y++) {
      for (int x = 0; x < b->width; x++)
        putchar(b->bits[y * b->bpl + (x >> 3)] & (0x80 >> (x & 7)) ? '#' : '.');
      putchar('\n');
    }
  }
  FSS_free_char(st, b);
  return status;
}

// The distance-field map of `id` (type 0x800) or its distance map (type
// 0x80) written to `pngOut`; the box printed, then the contrast values in
// force for the glyph, or the distance map's cut-off. 0 or 1.
int writeAdf(FS_STATE* st, const char* path, FS_ULONG id, bool field,
             const char* pngOut) {
  FS_GLYPHMAP* g = FSS_get_glyphmap(st, id, field ? FS_MAP_DISTANCEFIELD
                                                  : FS_MAP_EDGE_GRAYMAP8);
  if (g == NULL) return engineError(path, st);
  int status = 0;
  if (!writeGraymapPng(pngOut, g)) {
    fontvec_error("%s: cannot write the PNG file", pngOut);
    status = 1;
  } else {
    printf("%d %d %d %d\n", g->lo_x, g->hi_y, g->width, g->height);
    if (field) {
      printf("cutoff: %.5f\n", ((double)st->lpm * 10486 + 65536) / 65536.0);
    } else {
      FS_ULONG index = (st->flags & FLAGS_CMAP_OFF) ? id : map_char(st, id, 0);
      ADF_F32 in = 0, out = 0, gamma = 0;
      FS_get_csm(st, index, &in, &out, &gamma);
      if (st->flags & FLAGS_DEFAULT_CSM_ON) {
        in += st->insideCutoffAdj;
        out += st->outsideCutoffAdj;
      }
      printf("csm: %.5f %.5f %.5f\n", in / 65536.0, out / 65536.0,
             gamma / 65536.0);
    }
  }
  st->error = 0;
  FSS_free_char(st, g);
  return status;
}

// Three decimal numbers separated by commas.
bool parseCsm(const char* text, double v[3]) {
  char buf[128];
  if (strlen(text) >= sizeof buf) return false;
  strcpy(buf, text);
  char* parts[3];
  char* p = buf;
  for (int k = 0; k < 3; k++) {
    parts[k] = p;
    char* comma = strchr(p, ',');
    if ((comma == NULL) != (k == 2)) return false;
    if (comma != NULL) *comma = '\0', p = comma + 1;
  }
  for (int k = 0; k < 3; k++) {
    char* end = NULL;
    v[k] = strtod(parts[k], &end);
    if (parts[k][0] == '\0' || *end != '\0' || !isfinite(v[k]) ||
        fabs(v[k]) > 32767.0)
      return false;
  }
  return true;
}

// The --effect words and their flags.
const struct {
  const char* word;
  FS_ULONG flag;
} kEffectWords[] = {{"emboss", FLAGS_EMBOSSED},
                    {"engrave", FLAGS_ENGRAVED},
                    {"outline1", FLAGS_OUTLINED_1PIXEL},
                    {"outline2", FLAGS_OUTLINED_2PIXEL},
                    {"outline", FLAGS_OUTLINED_FILLED},
                    {"outline-unfilled", FLAGS_OUTLINED_UNFILLED},
                    {"soft-outline", FLAGS_OUTLINED_SOFT}};

// A decimal number with nothing after it.
bool parseReal(const char* text, double* out) {
  char* end = NULL;
  double v = strtod(text, &end);
  if (text[0] == '\0' || *end != '\0' || !isfinite(v)) return false;
  *out = v;
  return true;
}

// The 16.16 value of `v`, held within the 32-bit range so that
// the setter sees an out-of-range value as such.
FS_FIXED toFixed(double v) {
  double f = floor(v * 65536.0 + 0.5);
  if (f > 2147483647.0) f = 2147483647.0;
  if (f < -2147483647.0) f = -2147483647.0;
  return (FS_FIXED)f;
}

// What the command line asks for.
struct GlyphRequest {
  const char* path = NULL;
  unsigned long glyph = 0, ppem = 0, index = 0, code = 0;
  bool haveGlyph = false, haveChar = false, points = false;
  bool bitmap = false, text = false, dropout = false, memory = false;
  bool hints = true, forceAutohint = false, strokes = false;
  bool noAutohint = false, reflines = false;
  bool adf = false, field = false, haveCsm = false;
  double csm[3] = {0, 0, 0};
  const char* pngOut = NULL;
  // The style: an effect flag (0 none), outline width and opacity as
  // given, softening, boldness in percent of the em and its pixel form.
  FS_ULONG effect = 0;
  unsigned long outlineWidth = 0;
  bool haveWidth = false, haveOpacity = false, haveBold = false;
  double opacity = 1.0, boldPct = 0.0;
  bool soften = false, pixelBold = false;
  FS_USHORT type = FS_MAP_GRAYMAP8;  // of --png without --bitmap
  bool haveType = false;
  bool styled() const {
    return effect != 0 || haveWidth || haveOpacity || soften || haveBold || pixelBold;
  }
};

// Sets the style through the client's setters; 0, or 1 after printing the
// refusal (613 boldness, 614 outline width, 615 opacity).
int setStyle(FS_STATE* st, const GlyphRequest& r) {
  if (r.haveBold && FS_set_bold_pct(st, toFixed(r.boldPct / 100.0)) != 0)
    return engineError("--bold", st);
  if (r.haveWidth &&
      FS_set_outline_width(st, (FS_USHORT)(r.outlineWidth > 0xFFFF ? 0xFFFF : r.outlineWidth)) != 0)
    return engineError("--outline-width", st);
  if (r.haveOpacity && FS_set_outline_opacity(st, toFixed(r.opacity)) != 0)
    return engineError("--opacity", st);
  if (r.effect != 0) FS_set_flags(st, r.effect);
  if (r.soften) FS_set_flags(st, FLAGS_SOFTENED);
  if (r.pixelBold) FS_set_flags(st, FLAGS_ADD_WEIGHT);
  return 0;
}

// The --type words and the glyphmap types they ask for.
const struct {
  const char* word;
  FS_USHORT type;
} kPngTypes[] = {{"bitmap", FS_MAP_BITMAP},
                 {"gray2", FS_MAP_GRAYMAP2},
                 {"gray4", FS_MAP_GRAYMAP4},
                 {"gray8", FS_MAP_GRAYMAP8},
                 {"icon", FS_MAP_GRAYMAP8 | FS_MAP_RASTER_ICON}};

// Reads the options; false on a usage error.
bool parseGlyphRequest(int argc, char** argv, GlyphRequest* r) {
  for (int i = 0; i < argc; i++) {
    const char* a = argv[i];
    if (strcmp(a, "--glyph") == 0 && i + 1 < argc) {
      if (!parseNumber(argv[++i], 10, 0xFFFF, &r->glyph)) return false;
      r->haveGlyph = true;
    } else if (strcmp(a, "--char") == 0 && i + 1 < argc) {
      const char* t = argv[++i];
      if (strncmp(t, "U+", 2) != 0 ||
          !parseNumber(t + 2, 16, 0x10FFFF, &r->code))
        return false;
      r->haveChar = true;
    } else if (strcmp(a, "--ppem") == 0 && i + 1 < argc) {
      if (!parseNumber(argv[++i], 10, 16383, &r->ppem) || r->ppem == 0)
        return false;
    } else if (strcmp(a, "--index") == 0 && i + 1 < argc) {
      if (!parseNumber(argv[++i], 10, 0xFFFFFFFFul, &r->index)) return false;
    } else if (strcmp(a, "--png") == 0 && i + 1 < argc) {
      r->pngOut = argv[++i];
    } else if (strcmp(a, "--type") == 0 && i + 1 < argc) {
      const char* w = argv[++i];
      r->haveType = false;
      for (const auto& t : kPngTypes)
        if (strcmp(w, t.word) == 0) r->type = t.type, r->haveType = true;
      if (!r->haveType) return false;
    } else if (strcmp(a, "--bitmap") == 0) {
      r->bitmap = true;
    } else if (strcmp(a, "--text") == 0) {
      r->text = true;
    } else if (strcmp(a, "--dropout") == 0) {
      r->dropout = true;
    } else if (strcmp(a, "--effect") == 0 && i + 1 < argc) {
      const char* w = argv[++i];
      r->effect = 0;
      for (const auto& e : kEffectWords)
        if (strcmp(w, e.word) == 0) r->effect = e.flag;
      if (r->effect == 0) return false;
    } else if (strcmp(a, "--outline-width") == 0 && i + 1 < argc) {
      if (!parseNumber(argv[++i], 10, 0xFFFFFFFFul, &r->outlineWidth)) return false;
      r->haveWidth = true;
    } else if (strcmp(a, "--opacity") == 0 && i + 1 < argc) {
      if (!parseReal(argv[++i], &r->opacity)) return false;
      r->haveOpacity = true;
    } else if (strcmp(a, "--bold") == 0 && i + 1 < argc) {
      if (!parseReal(argv[++i], &r->boldPct)) return false;
      r->haveBold = true;
    } else if (strcmp(a, "--soften") == 0) {
      r->soften = true;
    } else if (strcmp(a, "--pixel-bold") == 0) {
      r->pixelBold = true;
    } else if (strcmp(a, "--adf") == 0) {
      r->adf = true;
    } else if (strcmp(a, "--distance-field") == 0) {
      r->field = true;
    } else if (strcmp(a, "--csm") == 0 && i + 1 < argc) {
      if (!parseCsm(argv[++i], r->csm)) return false;
      r->haveCsm = true;
    } else if (strcmp(a, "--memory") == 0) {
      r->memory = true;
    } else if (strcmp(a, "--points") == 0) {
      r->points = true;
    } else if (strcmp(a, "--force-autohint") == 0) {
      r->forceAutohint = true;
    } else if (strcmp(a, "--no-autohint") == 0) {
      r->noAutohint = true;
    } else if (strcmp(a, "--reflines") == 0) {
      r->reflines = true;
    } else if (strcmp(a, "--strokes") == 0) {
      r->strokes = true;
    } else if (strcmp(a, "--no-hints") == 0) {
      r->hints = false;
    } else if (strcmp(a, "--hints") == 0) {
      r->hints = true;  // the default, as the renderer draws
    } else if ((a[0] == '-' && a[1] != '\0') || r->path != NULL) {
      return false;
    } else {
      r->path = a;
    }
  }
  // --bitmap takes exactly one of --png and --text; --text and --dropout
  // need --bitmap.
  if (r->bitmap && (r->pngOut != NULL) == r->text) return false;
  if (!r->bitmap && (r->text || r->dropout)) return false;
  if (r->haveType && (r->bitmap || r->pngOut == NULL)) return false;
  // A style needs a map; pixel boldness needs boldness.
  if (r->styled() && r->pngOut == NULL && !r->bitmap) return false;
  if (r->pixelBold && !r->haveBold) return false;
  // --strokes stands alone; --force-autohint wants hints and no bitmap.
  if (r->strokes && (r->points || r->pngOut != NULL || r->bitmap || r->forceAutohint))
    return false;
  if (r->forceAutohint && (!r->hints || r->bitmap || r->noAutohint)) return false;
  // --reflines takes the font and the size alone.
  if (r->reflines)
    return r->path != NULL && r->ppem != 0 && !r->haveGlyph && !r->haveChar &&
           !r->points && r->pngOut == NULL && !r->bitmap && !r->strokes &&
           !r->forceAutohint && !r->adf && !r->field && !r->styled();
  // A distance-field map is one of the two kinds, written to --png; the
  // contrast goes only with --adf.
  if (r->haveCsm && !r->adf) return false;
  if ((r->adf || r->field) &&
      (r->adf == r->field || r->pngOut == NULL || r->points || r->bitmap))
    return false;
  return r->path != NULL && r->ppem != 0 && r->haveGlyph != r->haveChar &&
         !(r->points && (r->pngOut != NULL || r->bitmap));
}

}  // namespace

int fontvec_glyph(int argc, char** argv) {
  GlyphRequest r;
  if (!parseGlyphRequest(argc, argv, &r)) return fontvec_usage("glyph");
  unsigned long imageSize = 0;
  FS_BYTE* image = NULL;
  if (r.memory && (image = fontvec_read_font(r.path, &imageSize)) == NULL) {
    fontvec_error("%s: cannot read the file", r.path);
    return 1;
  }
  FS_STATE st;
  if (FSS_init(&st, kGlyphHeap) != 0) {
    free(image);
    fontvec_error("the font engine did not start (error %lu: %s)",
                  (unsigned long)st.error, FS_error_message(st.error));
    return 1;
  }
  int status = 0;
  bool mapped = false;
  // The style comes first: the scale setter picks the scaled font by its
  // boldness.
  if (setStyle(&st, r) != 0) {
    status = 1;
  } else if (setUp(&st, r.path, image, imageSize, (FS_ULONG)r.index, r.ppem,
                   &mapped) != 0) {
    status = engineError(r.path, &st);
  } else if (!mapped) {
    fontvec_error("%s: no character map", r.path);
    status = 1;
  } else {
    // A --glyph number is a glyph index: the map is bypassed for it. An
    // unmapped character gives the font's missing-glyph shape, index 0.
    if (r.haveGlyph) FS_set_flags(&st, FLAGS_CMAP_OFF);
    FS_set_flags(&st, r.hints ? ~FLAGS_NO_HINTS : FLAGS_NO_HINTS);
    if (r.dropout) FS_set_flags(&st, FLAGS_RESERVED_BIT0);  // dropout control
    // Forced autohinting is for gray output: the points ask for it too.
    if (r.forceAutohint) FS_set_flags(&st, FLAGS_FORCE_AUTOHINT);
    // Glyphs without a program are autohinted as the shipped script has
    // them, unless --no-autohint; the points are those of a gray picture.
    FS_set_flags(&st, r.noAutohint ? FLAGS_NO_AUTOHINT : ~FLAGS_NO_AUTOHINT);
    if (r.points && r.hints) FS_set_flags(&st, FLAGS_GRAYSCALE);
    if (r.strokes) FS_set_flags(&st, FLAGS_NO_HINTS);
    if (r.haveCsm) {
      FS_set_csm(&st, toFixed(r.csm[0]), toFixed(r.csm[1]), toFixed(r.csm[2]));
      FS_set_flags(&st, FLAGS_DEFAULT_CSM_ON);
    }
    FS_ULONG id = r.haveChar ? (FS_ULONG)r.code : (FS_ULONG)r.glyph;
    status = r.reflines ? printRefLines(&st, r.path)
             : r.strokes ? printStrokes(&st, r.path, id, r.ppem)
             : (r.adf || r.field) ? writeAdf(&st, r.path, id, r.field, r.pngOut)
             : r.bitmap ? writeBitmap(&st, r.path, id, r.pngOut)
             : r.pngOut != NULL ? writeGraymap(&st, r.path, id, r.pngOut, r.type)
                                : printPoints(&st, r.path, id);
  }
  FSS_exit(&st);
  free(image);
  return status;
}
