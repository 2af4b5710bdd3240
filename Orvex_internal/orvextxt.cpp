// The script interpreter OrvexTxt: reads a script command by command, keeps
// the display state, and drives the font engine with it. Called by the render
// driver (and by itself for `include`); calls the engine's client calls and
// the display types (PostScript stand-in; PNG pages join at marked seams).
// The language is one table of command words (kCommands): each row names its
// handlers, its arguments and whether it needs a client, and the script help
// is printed from the same rows. The show path is a sequence of named steps.
#include "Orvex_internal/orvextxt.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include "Orvex_internal/adf.h"
#include "Orvex_internal/display_png.h"
#include "Orvex_internal/display_postscript.h"
#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_kern.h"
#include "Orvex_internal/fs_metrics.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_validate.h"
#include "Orvex_internal/fs_xmalloc.h"

int err_FD = 0;
int GlyphCreationError = 0;
double stdDevAdv = 0.0;
char CurentFontName[1024];
int CopyImageLocally = 0;

namespace {

const FS_LONG GLYPH_SLOTS = 65538;

// The display state of one activation. It lives on the heap, not on the
// frame, so that host threads with small stacks can run nested scripts.
struct DisplayState {
  int xppm = 0, yppm = 0;
  int res = 600;
  double mag = 0.12;
  double rot = 0, skew = 0;
  double stroke = 3.0, bold = 0.0;
  int outline_width = 1;
  double outline_opacity = 1.0;
  double ADFinsideCutoff = 0.4, ADFoutsideCutoff = -0.56, ADFgamma = 1.0;
  double ADFsharpnessOffset = 0, ADFsharpnessSlope = 0;
  double ADFthicknessOffset = 0, ADFthicknessSlope = 0;
  int ADFmaz = 0, ADFuseDefaultCSM = 0;
  int hinting = 1;
  int hint_reporting = 0, autohinting = 0, y_autohinting = 0,
      force_autohinting = 0, kerning = 0, soften = 0, rightleft = 0,
      get_advance = 0, get_csm = 0, get_csm_adjustments = 0,
      testInverseMapChar = 0, reportType = 0, reportEmbedded = 0;
  int wraptext = 0;
  int linearSpace = 0;
  int vertical = 0;
  int boldtype = 0;
  FS_ULONG effects = 0;
  int image_width = 594, image_height = 764;
  int image_bitDepth = 8;
  int color_type = 0;
  unsigned char fg_color[3] = {0, 0, 0};
  unsigned char bg_color[3] = {255, 255, 255};
  unsigned char outl_color[3] = {255, 0, 0};
  FS_USHORT cmap[2] = {65535, 65535};
  FS_ULONG index = 0;
  FS_LONG glyphs[GLYPH_SLOTS];
  FS_LONG glyphsIndex[GLYPH_SLOTS];
  int signs[4] = {-1, 1, 1, 1};
  FS_FIXED fx = 0, fy = 0, lf_x = 0, lf_y = 0;
  int t_width = 0, t_height = 0, new_pos_y = 0;
  FS_BOOLEAN png_created = 0;
  int repeat_count = 0;
  fpos_t repeat_pos;
  FS_LONG heapsize = DEFAULT_HEAPSIZE;
  int initialized = 0;
  int cmd_ignore_err = 0, set_ignore_err = 0, ignore_err = 0;
  LOADED_TO_RAM* loaded = nullptr;
  TIMER timer;
  char image_path[IMAGE_PATH_SIZE];
  char command[256];
  char arg[256];
  char sub_path[256];
  FONT_METRICS fm;
  TsImagePNG pD = {};

  // An activation that returns with a page open (an engine error it may not
  // ignore) leaves that page's file unwritten, as it stood; its memory and
  // file handle are given back all the same.
  ~DisplayState() {
    if (!png_created) return;
    TsImagePNG_doneImage(&pD);
    TsImagePNG_finiPNG(&pD);
    if (pD.fp != nullptr) fclose(pD.fp);
  }
};

// Opens a PNG page of width by height under the name in image_path. With
// next_name the buffer then takes the name of the page after this one (the
// one-step lag of picture names); `image_size` pages keep the name.
void png_open_page(DisplayState* d, int width, int height,
                   bool next_name = true) {
  new_PNG_image(d->image_path, width, height, d->image_bitDepth,
                d->color_type, d->bg_color, &d->pD);
  d->png_created = 1;
  if (next_name) new_image_page(d->image_path);
}

// Writes the open page's file whole and releases it.
void png_close_page(DisplayState* d) {
  if (!d->png_created) return;
  TsImagePNG_writeImage(&d->pD);
  TsImagePNG_doneImage(&d->pD);
  TsImagePNG_finiPNG(&d->pD);
  fclose(d->pD.fp);
  d->pD.fp = nullptr;
  d->png_created = 0;
}

// Lays a glyph map on the open page with the pen at (x, y): its ink's
// corner goes to (x + lo_x, y - hi_y). 1-bit maps are bitmaps, all others
// but colour icons graymaps.
void png_draw_glyph(DisplayState* d, int x, int y, FS_GLYPHMAP* gmap,
                    const unsigned char* foreground) {
  if (!d->png_created) return;
  unsigned char* fg = const_cast<unsigned char*>(foreground);
  // A colour glyph's payload is its PNG stream, not rows: no writer of
  // those is built, so it leaves the page as it is.
  if (gmap->bitsPerPixel == 32) return;
  if (gmap->bitsPerPixel == 1)
    dump_bitmap_to_memory(&d->pD, x, y, gmap->lo_x, gmap->hi_y, gmap, fg);
  else
    dump_graymap_to_memory(&d->pD, x, y, gmap->lo_x, gmap->hi_y, gmap, fg);
}

// One activation of OrvexTxt: its arguments, its display state and the
// client in use, as every command handler sees them. `sp` and `currns` are
// the activation's own copies: a client change inside an included script
// ends with that script.
struct Activation {
  FILE* fp;
  const char* fname;
  FS_USHORT displayType;
  const char* iname;
  FILE* psFp;
  FS_STATE* sp;
  NAMED_STATE* states;
  NAMED_STATE* currns;
  const char* orvex_root;
  FS_ULONG load_fonts_to_ram;
  int use_external_heap;
  const char* fontPath;
  int fontIndexInTTC;
  DisplayState* d;
  long num[2];  // numbers a command reads before its client check

  // The rule after an engine call: report, keep the error in err_FD, and
  // tell the caller to end the activation unless errors are ignored; a
  // clearing call then takes the error back off the client.
  bool fails(const char* who, bool clears) {
    if (sp == nullptr) return false;
    report_error(sp, displayType, psFp, who, d->ignore_err);
    if (sp->error == 0) return false;
    err_FD = (int)sp->error;
    if (!d->ignore_err) return true;
    if (clears) sp->error = 0;
    return false;
  }
  // An engine command without a current client (after `endclient`): the
  // engine's null-argument error, by the same rule. True when there is none.
  bool no_client(const char* who) {
    if (sp != nullptr) return false;
    printf("The function <%s> returned %ld\n", who, (long)ERR_BAD_ARGUMENT);
    err_FD = ERR_BAD_ARGUMENT;
    return true;
  }
};

// What a step tells its caller: go on, the command (or glyph) is complete,
// or the activation ends at once (an engine error it may not ignore).
enum Outcome { GO_ON, DONE, END };

[[noreturn]] void fatal() { exit(-1); }

// A row of the command table. `args` reads the command's arguments (and
// ends the process on a malformed one) before the client check; `run` does
// the work. `client` names the engine call reported when there is no
// client, null for a command that needs none; `report` names the engine
// call whose error the common rule takes after `run`, null when the handler
// reports itself. Store-only rows have no handlers: `store` puts what they
// read into their fields.
struct Command;
typedef Outcome (*Handler)(Activation& a, const Command& row);

// How a store-only row reads its value: one integer into every field
// (`ppm` into both sizes), one double per field in order, or ON/OFF as
// `value` or 0.
enum StoreKind { NO_STORE, STORE_INT, STORE_DOUBLE, STORE_SWITCH };

struct Command {
  const char* word;
  const char* usage;  // the arguments, as the script help shows them
  Handler args;
  Handler run;
  const char* client;
  const char* report;
  bool clears;
  StoreKind store;
  int value;  // STORE_SWITCH: the value for ON; show rows: the map type
  int flags;  // show rows: SHOW_*
  int DisplayState::*ints[2];
  double DisplayState::*doubles[4];
};

const int SHOW_FAKE = 1, SHOW_PHASED = 2, SHOW_TYPE_FROM_LINE = 4;

// Puts the value(s) a store-only row reads into its fields.
void store(Activation& a, const Command& row) {
  DisplayState* d = a.d;
  if (row.store == STORE_INT) {
    int v = (int)get_int(a.fp);
    for (auto field : row.ints)
      if (field != nullptr) d->*field = v;
  } else if (row.store == STORE_DOUBLE) {
    for (auto field : row.doubles)
      if (field != nullptr) d->*field = get_double(a.fp);
  } else if (row.store == STORE_SWITCH) {
    d->*row.ints[0] = get_boolean(a.fp) ? row.value : 0;
  }
}

// ---- The show path ---------------------------------------------------------

// What a show family word asks for: its map type and its variants.
struct ShowKind {
  FS_USHORT type;
  int showString, phased, fake, from_line;
};

ShowKind show_kind(const char* word);

// The advance spread of one get_advance pass over N codes: a mean absolute
// deviation of whole pixels that leaves the last glyph out of the sum; both
// are settled behaviour and results depend on them.
struct AdvanceSpread {
  double* arr = nullptr;
  double mean = 0;
  ~AdvanceSpread() { free(arr); }
};

// One show command under way: what its steps share.
struct Show {
  ShowKind k;
  FS_USHORT type;
  int len = 0;                    // codes in the glyph set
  FS_GLYPHMAP** list = nullptr;   // the string's maps (show_string)
  FS_FIXED xStart = 0, yStart = 0;
  FS_FIXED page_width = 0, page_height = 0;
  const unsigned char* foreground = nullptr;
  int pos_x = 0, pos_y = 0;
  AdvanceSpread spread;
  bool fromList() const { return k.showString && list != nullptr; }
};

bool is_variation_selector(FS_LONG code) {
  return (code >= 917760 && code <= 917999) ||
         (code >= 65024 && code <= 65039) || (code >= 6155 && code <= 6157);
}

// Steps 4 to 6: the scale and the stroke settings. An error here ends the
// command (DONE); ignored, it clears and the script goes on.
Outcome show_set_scale(Activation& a) {
  DisplayState* d = a.d;
  FS_STATE* sp = a.sp;
  TIMER* timer = &d->timer;
  if (sp->cur_typeset.fntset == nullptr) fprintf(stderr, " no current font\n");
  FS_FIXED scale[4];
  calc_matrix(d->xppm, d->yppm, d->rot, d->skew, scale);
  if (timer->isOn) startTimer(timer);
  FS_set_bold_pct(sp, (FS_FIXED)(int)(655.36 * d->bold));
  FS_set_outline_width(sp, (FS_USHORT)d->outline_width);
  FS_set_outline_opacity(sp, (FS_FIXED)(int)(65536.0 * d->outline_opacity));
  FS_set_stroke_pct(sp, (FS_FIXED)(int)(655.36 * d->stroke));
  FSS_set_scale(sp, scale[0], scale[1], scale[2], scale[3]);
  if (timer->isOn) stopTimer(timer);
  if (sp->error == 0) return GO_ON;
  return a.fails("FS_set_scale", true) ? END : DONE;
}

// Step 7: with hint_reporting, the first glyph of each component of the
// font set is fetched once, by glyph index, and let go.
void show_report_hints(Activation& a) {
  if (!a.d->hint_reporting) return;
  FS_STATE* sp = a.sp;
  FS_ULONG saved = sp->flags;
  sp->flags = 0;
  FS_set_flags(sp, FLAGS_CMAP_OFF);
  FNTSET* set = sp->cur_typeset.fntset;
  for (int c = 0; set != nullptr && c < set->num_fonts; c++) {
    FS_GLYPHMAP* g =
        FSS_get_glyphmap(sp, set->cfnt[c].start_index + 1, FS_MAP_GRAYMAP4);
    if (g != nullptr) FSS_free_char(sp, g);
  }
  sp->flags = saved;
  FS_set_flags(sp, ~FLAGS_CMAP_OFF);
}

// Step 8: the hinting and distance-field switches.
void show_push_switches(Activation& a) {
  DisplayState* d = a.d;
  FS_STATE* sp = a.sp;
  FS_set_flags(sp, d->hinting ? ~FLAGS_NO_HINTS : FLAGS_NO_HINTS);
  FS_set_flags(sp, d->autohinting ? ~FLAGS_NO_AUTOHINT : FLAGS_NO_AUTOHINT);
  FS_set_flags(sp, d->y_autohinting ? FLAGS_AUTOHINT_YONLY
                                    : ~FLAGS_AUTOHINT_YONLY);
  FS_set_flags(sp, d->force_autohinting ? FLAGS_FORCE_AUTOHINT
                                        : ~FLAGS_FORCE_AUTOHINT);
  FS_set_flags(sp, d->ADFmaz ? FLAGS_MAZ_ON : ~FLAGS_MAZ_ON);
  FS_set_csm(sp, (ADF_F32)(65536.0 * d->ADFinsideCutoff),
             (ADF_F32)(65536.0 * d->ADFoutsideCutoff),
             (ADF_F32)(65536.0 * d->ADFgamma));
  if (d->ADFsharpnessOffset != 0 || d->ADFsharpnessSlope != 0 ||
      d->ADFthicknessOffset != 0 || d->ADFthicknessSlope != 0)
    FS_set_csm_adjustments(sp, (ADF_F32)(65536.0 * d->ADFsharpnessOffset),
                           (ADF_F32)(65536.0 * d->ADFsharpnessSlope),
                           (ADF_F32)(65536.0 * d->ADFthicknessOffset),
                           (ADF_F32)(65536.0 * d->ADFthicknessSlope));
  FS_set_flags(sp, d->ADFuseDefaultCSM ? FLAGS_DEFAULT_CSM_ON
                                       : ~FLAGS_DEFAULT_CSM_ON);
}

// Steps 9 and 10: the character map (reported without clearing), then the
// effects, emboldening and softening flags.
Outcome show_push_map_and_effects(Activation& a) {
  DisplayState* d = a.d;
  FS_STATE* sp = a.sp;
  FSS_set_cmap(sp, d->cmap[0], d->cmap[1]);
  if (a.fails("FS_set_cmap", false)) return END;
  FS_set_flags(sp, d->effects);
  switch (d->boldtype) {
    case 1: FS_set_flags(sp, FLAGS_REGULARBOLD); break;
    case 2: FS_set_flags(sp, FLAGS_FRACTBOLD); break;
    case 3: FS_set_flags(sp, FLAGS_ADD_WEIGHT); break;
    default:
      FS_set_flags(sp, ~FLAGS_REGULARBOLD);
      FS_set_flags(sp, ~FLAGS_FRACTBOLD);
      FS_set_flags(sp, ~FLAGS_ADD_WEIGHT);
  }
  FS_set_flags(sp, d->soften ? FLAGS_SOFTENED : ~FLAGS_SOFTENED);
  if (sp->error == ERR_UNKNOWN_FLAG) {
    sp->error = 0;
    return GO_ON;
  }
  return a.fails("FS_set_flags", true) ? END : GO_ON;
}

// Steps 11 and 12: the line feed of this show, turned for vertical text,
// and the pen's start.
void show_line_feed(Activation& a, Show* s) {
  DisplayState* d = a.d;
  const double DEG = 0.017453292519943295;
  double L = (d->yppm + 2) * d->mag;
  d->lf_x = (FS_FIXED)(int)(-sin(d->rot * DEG) * L * 65536.0 + 0.5);
  d->lf_y = (FS_FIXED)(int)(cos(d->rot * DEG) * L * 65536.0 + 0.5);
  s->xStart = d->fx;
  s->yStart = d->fy;
  if (d->vertical) {
    static const FS_ULONG vflag[4] = {0, FLAGS_VERTICAL_ON,
                                      FLAGS_VERTICAL_ROTATE_RIGHT_ON,
                                      FLAGS_VERTICAL_ROTATE_LEFT_ON};
    FS_set_flags(a.sp, vflag[d->vertical]);
    d->kerning = 0;  // stays off afterwards
    d->rightleft = 0;
    FS_FIXED t = d->lf_x;
    d->lf_x = -d->lf_y;
    d->lf_y = t;
  } else {
    FS_set_flags(a.sp, ~FLAGS_VERTICAL_ON);
  }
}

// Step 13: counts the glyph set and, for show_string, fetches it whole.
Outcome show_get_string(Activation& a, Show* s) {
  DisplayState* d = a.d;
  TIMER* timer = &d->timer;
  while (d->glyphs[s->len] >= 0) s->len++;
  if (!s->k.showString) return GO_ON;
  int len = s->len;
  std::unique_ptr<FS_ULONG[]> codes(new FS_ULONG[len > 0 ? len : 1]);
  for (int i = 0; i < len; i++) codes[i] = (FS_ULONG)d->glyphs[i];
  if (timer->isOn) startTimer(timer);
  FS_get_string(a.sp, (FS_ULONG)len, codes.get(), s->type, &s->list);
  if (timer->isOn) stopTimer(timer);
  if (a.fails("FS_get_string", true)) return END;
  if (s->list != nullptr) {
    timer->nglyphs += len;
    for (int i = 0; i < len; i++)
      if (s->list[i] != nullptr)
        timer->npixels += (FS_LONG)s->list[i]->width * s->list[i]->height;
  }
  return GO_ON;
}

// Step 14: the page in 16.16, the cleared index list, the ink colour.
void show_prepare_page(Activation& a, Show* s) {
  DisplayState* d = a.d;
  s->page_width = (FS_FIXED)d->image_width << 16;
  s->page_height = (FS_FIXED)d->image_height << 16;
  memset(d->glyphsIndex, 0, sizeof d->glyphsIndex);
  d->glyphsIndex[0] = -1;
  s->foreground =
      (d->effects == 64 || d->effects == 256) ? d->outl_color : d->fg_color;
}

// Glyph step c: the advance of glyph i into the spread. The spread is
// closed at the last glyph: the mean, then the whole-pixel deviations of
// all glyphs but the last. The call's error is acted on only after that.
Outcome glyph_advance_pass(Activation& a, Show* s, int i, FS_ULONG code,
                           FS_SHORT* i_adx, FS_SHORT* i_ady, FS_FIXED* adx,
                           FS_FIXED* ady) {
  DisplayState* d = a.d;
  FS_STATE* sp = a.sp;
  AdvanceSpread& spread = s->spread;
  int len = s->len;
  if (i == 0) {
    free(spread.arr);
    spread.arr = (double*)calloc((size_t)len, sizeof(double));
    spread.mean = 0;
    stdDevAdv = 0;
  }
  FSS_get_advance(sp, code, s->type, i_adx, i_ady, adx, ady);
  report_error(sp, a.displayType, a.psFp, "FS_get_advance", d->ignore_err);
  FS_ULONG adv_err = sp->error;
  if (spread.arr != nullptr) spread.arr[i] = *adx / 65536.0;
  spread.mean += *adx / 65536.0;
  if (i == len - 1 && spread.arr != nullptr) {
    spread.mean /= len;
    for (int j = 0; j < len - 1; j++)
      stdDevAdv += abs((int)(spread.arr[j] - spread.mean));
    if (len - 1 != 0) stdDevAdv /= len * spread.mean;
    free(spread.arr);
    spread.arr = nullptr;
  }
  if (adv_err != 0) {
    err_FD = (int)adv_err;
    if (!d->ignore_err) return END;
    sp->error = 0;
  }
  return GO_ON;
}

// Glyph steps d to f: the map of code i by the phased call, as a variation
// of the code before it, or by the map request (which also records the
// glyph index). With get_advance the map takes the advance call's values.
Outcome glyph_request(Activation& a, Show* s, int i, FS_ULONG code,
                      FS_GLYPHMAP** out) {
  DisplayState* d = a.d;
  FS_STATE* sp = a.sp;
  TIMER* timer = &d->timer;
  FS_SHORT i_adx = 0, i_ady = 0;
  FS_FIXED adx = 0, ady = 0;
  if (d->get_advance &&
      glyph_advance_pass(a, s, i, code, &i_adx, &i_ady, &adx, &ady) == END)
    return END;
  FS_GLYPHMAP* gmap = nullptr;
  if (timer->isOn) startTimer(timer);
  if (s->k.phased) {
    // The pen's fraction goes in the type position by design of this
    // tool; a whole-pixel pen asks for type 0.
    gmap = FSS_get_phased(sp, code, (FS_USHORT)(d->fx & 0xFFFF), 0, 0);
    if (timer->isOn) stopTimer(timer);
    if (a.fails("FS_get_phased", true)) return END;
  } else if (is_variation_selector(d->glyphs[i]) && i > 0) {
    FS_ULONG previous = (FS_ULONG)d->glyphs[i - 1];
    FS_USHORT glyphvariant = FSS_map_char_variant(sp, previous, code);
    if (a.fails("FS_map_char_variant", true)) return END;
    if (glyphvariant == 0) {
      glyphvariant = FSS_map_char(sp, previous);
      if (a.fails("FS_map_char", true)) return END;
    }
    FS_set_flags(sp, FLAGS_CMAP_OFF);
    gmap = FSS_get_glyphmap(sp, glyphvariant, s->type);
    FS_ULONG e = sp->error;
    FS_set_flags(sp, ~FLAGS_CMAP_OFF);
    sp->error = e;
    if (timer->isOn) stopTimer(timer);
  } else {
    gmap = FSS_get_glyphmap(sp, code, s->type);
    FS_ULONG e = sp->error;
    d->glyphsIndex[i] = map_char(sp, code, 0);
    sp->error = e;
    if (timer->isOn) stopTimer(timer);
    if (a.fails("FS_get_glyphmap", true)) return END;
    if (gmap != nullptr && d->get_advance) {
      if (gmap->i_dx != i_adx) gmap->i_dx = i_adx;
      if (gmap->i_dy != i_ady) gmap->i_dy = i_ady;
      if (gmap->dx != adx) gmap->dx = adx;
      if (gmap->dy != ady) gmap->dy = ady;
    }
    if (gmap != nullptr && (d->get_csm || d->get_csm_adjustments)) {
      ADF_F32 c1, c2, c3;
      FS_get_csm(sp, d->glyphsIndex[i], &c1, &c2, &c3);  // read, printed nowhere
    }
  }
  if (gmap != nullptr && timer->isOn) {
    timer->nglyphs++;
    timer->npixels += (FS_LONG)gmap->width * gmap->height;
  }
  *out = gmap;
  return GO_ON;
}

// Glyph steps a to g: the map of glyph i, or null to skip it. With
// test_inverse_mapchar the code is only mapped there and back.
Outcome glyph_fetch(Activation& a, Show* s, int i, FS_GLYPHMAP** gmap) {
  FS_ULONG code = (FS_ULONG)a.d->glyphs[i];
  *gmap = nullptr;
  if (a.d->testInverseMapChar) {
    FS_USHORT gi = FSS_map_char(a.sp, code);
    FSS_inverse_map_char(a.sp, gi);
    a.sp->error = 0;
    return DONE;
  }
  if (s->fromList()) {
    *gmap = s->list[i];
    return GO_ON;
  }
  return glyph_request(a, s, i, code, gmap);
}

// Glyph step h: the pen's advance in 16.16: the integer advance unless
// kerning asks for the fractional one; linear_space adds whole pixels.
void glyph_pen_advance(const DisplayState* d, const FS_GLYPHMAP* gmap,
                       FS_FIXED* dx, FS_FIXED* dy) {
  if (!d->kerning && (gmap->i_dx != 0 || gmap->i_dy != 0)) {
    *dx = (FS_FIXED)(int)(gmap->i_dx * 65536.0 * d->mag + 0.5);
    *dy = (FS_FIXED)(int)(gmap->i_dy * 65536.0 * d->mag + 0.5);
  } else {
    *dx = (FS_FIXED)(int)(gmap->dx * d->mag + 0.5);
    *dy = (FS_FIXED)(int)(gmap->dy * d->mag + 0.5);
  }
  if (d->linearSpace)
    *dx = (FS_FIXED)(int)((d->linearSpace + gmap->i_dx) * 65536.0 * d->mag +
                          0.5);
}

// A pixel place as the pen's 16.16, wrapping: a place left of the page
// (a glyph whose ink starts far right of its origin) is negative.
FS_FIXED pen_at(int pixels) { return (FS_FIXED)((FS_ULONG)pixels << 16); }

// Glyph step j: past the page's right edge the pen takes a new line; past
// its bottom it goes back to the start, on a new page under PNG.
void glyph_wrap(Activation& a, Show* s, const FS_GLYPHMAP* gmap) {
  DisplayState* d = a.d;
  if (d->fx < 0 ||
      d->fx + pen_at(gmap->lo_x + gmap->width) >= s->page_width) {
    d->fx = s->xStart + d->lf_x;
    d->fy += d->lf_y;
  }
  if (d->fy + ((FS_FIXED)d->yppm << 15) >= s->page_height) {
    d->fx = s->xStart;
    d->fy = s->yStart;
    if (a.displayType == DISPLAY_PNG) {
      png_close_page(d);
      png_open_page(d, d->image_width, d->image_height);
    }
  }
}

// The measuring pass of one glyph: nothing is drawn, the pen moves all the
// same, and the page's extent grows to take the glyph.
void glyph_measure(DisplayState* d, Show* s, const FS_GLYPHMAP* gmap) {
  if (s->len == 1) {
    d->t_height = gmap->height + 5;
    d->t_width = gmap->width + 5;
    return;
  }
  // A string page: a baseline low enough for the tallest glyph plus 5, a
  // bottom 25 below the lowest ink, a right edge 105 beyond the last glyph.
  // Only the first string of an activation takes the 50-pixel lead-in, as
  // t_width isn't reset by a real pass.
  if (d->t_width == 0) {
    s->pos_x = 50 - gmap->lo_x;
    d->fx = pen_at(s->pos_x);
  }
  if (gmap->hi_y + 5 > s->pos_y) {
    d->t_height += gmap->hi_y + 5 - s->pos_y;
    s->pos_y = gmap->hi_y + 5;
    d->fy = pen_at(s->pos_y);
    d->new_pos_y = d->fy;
  }
  if (gmap->height + s->pos_y - gmap->hi_y >= d->t_height)
    d->t_height = gmap->height + s->pos_y - gmap->hi_y + 25;
  d->t_width = gmap->width + gmap->lo_x + s->pos_x + 105;
}

// Glyph step k under PNG: a bitmap at the pen; a graymap of a one-code set
// with its ink's corner at pixel (2, 2), of a string from column 50 on.
void glyph_draw_png(DisplayState* d, Show* s, int i, FS_GLYPHMAP* gmap) {
  if (gmap->bitsPerPixel == 1) {
    png_draw_glyph(d, s->pos_x, s->pos_y, gmap, s->foreground);
    return;
  }
  int left, top;
  if (s->len == 1) {
    // The ink's corner lands at pixel (2, 2).
    left = 2 - gmap->lo_x;
    top = gmap->hi_y + 2;
  } else {
    if (i == 0) {
      s->pos_x = 50 - gmap->lo_x;
      d->fx = pen_at(s->pos_x);
    }
    left = s->pos_x;
    top = s->pos_y;
  }
  png_draw_glyph(d, left, top, gmap, s->foreground);
  d->new_pos_y = 0;
  d->t_height = 0;
}

// Glyph step k: measure (show_fake), or draw on the display.
void glyph_place(Activation& a, Show* s, int i, FS_GLYPHMAP* gmap) {
  DisplayState* d = a.d;
  s->pos_x = d->fx >> 16;
  s->pos_y = d->fy >> 16;
  if (s->k.fake && gmap->bitsPerPixel != 1) {
    glyph_measure(d, s, gmap);
  } else if (a.displayType == DISPLAY_PS) {
    if (gmap->bitsPerPixel == 1)
      ps_bitmap(a.psFp, (long)d->fx, (long)d->fy, gmap->width, gmap->height);
    else
      ps_graymap(a.psFp, (long)d->fx, (long)d->fy, gmap->width, gmap->height,
                 gmap->bitsPerPixel);
  } else if (a.displayType == DISPLAY_PNG) {
    glyph_draw_png(d, s, i, gmap);
  }
}

// The pen moved by `by` times `sign` (1 or -1), wrapping as 16.16 in 32
// bits: a damaged font's advance may carry the pen past the range, off the
// page, and the next glyph then lands wherever the wrapped pen says.
FS_FIXED pen_step(FS_FIXED pen, FS_FIXED by, int sign) {
  FS_ULONG step = sign < 0 ? 0u - (FS_ULONG)by : (FS_ULONG)by;
  return (FS_FIXED)((FS_ULONG)pen + step);
}

// Glyph step l: the pen moves on by the advance and, with kerning, by the
// pair's kerning to the next code.
void glyph_move_pen(Activation& a, int i, FS_FIXED dx, FS_FIXED dy) {
  DisplayState* d = a.d;
  if (!d->rightleft) {
    d->fx = pen_step(d->fx, dx, 1);
    d->fy = pen_step(d->fy, dy, d->signs[d->vertical]);
  }
  if (d->kerning && d->glyphs[i + 1] >= 0) {
    FS_FIXED kx = 0, ky = 0;
    FSS_get_kerning(a.sp, (FS_ULONG)d->glyphs[i], (FS_ULONG)d->glyphs[i + 1],
                    &kx, &ky);
    d->fx = pen_step(d->fx, (FS_FIXED)(int)(kx * d->mag + 0.5), 1);
    d->fy = pen_step(d->fy, (FS_FIXED)(int)(ky * d->mag + 0.5), d->signs[d->vertical]);
  }
}

// Step 15, one glyph: fetch, advance, wrap, place, move the pen, let go.
Outcome show_glyph(Activation& a, Show* s, int i) {
  DisplayState* d = a.d;
  FS_GLYPHMAP* gmap = nullptr;
  Outcome fetched = glyph_fetch(a, s, i, &gmap);
  if (fetched != GO_ON) return fetched;
  if (gmap == nullptr) return DONE;  // skipped, pen unmoved
  FS_FIXED dx, dy;
  glyph_pen_advance(d, gmap, &dx, &dy);
  if (d->rightleft) {
    d->fx = pen_step(d->fx, dx, -1);
    d->fy = pen_step(d->fy, dy, 1);
  }
  if (d->wraptext) glyph_wrap(a, s, gmap);
  glyph_place(a, s, i, gmap);
  glyph_move_pen(a, i, dx, dy);
  if (!s->fromList()) FSS_free_char(a.sp, gmap);
  return GO_ON;
}

// Step 16: a set whose final run of one glyph index is longer than 10
// repeats counts as a failed glyph set (typically the missing glyph).
void show_check_glyph_set(DisplayState* d, int count) {
  d->glyphsIndex[count] = -1;
  int run = 0;
  for (int j = 1; j < count; j++) run = d->glyphsIndex[j] == d->glyphsIndex[j - 1] ? run + 1 : 0;
  if (run > 10) GlyphCreationError++;
}

// Step 17, show_fake only: the measured extent becomes the next page. An
// empty extent is error 402; under get_advance no page is made and the
// command ends here (DONE), before steps 18 and 19.
Outcome show_finish_fake(Activation& a, Show* s) {
  DisplayState* d = a.d;
  if (d->png_created) png_close_page(d);
  if (d->t_height < 1 || d->t_width <= 0) {
    err_FD = 402;
    if (d->ignore_err) return GO_ON;
    if (s->fromList()) FSS_free(a.sp, s->list);
    return END;
  }
  if (d->get_advance) {
    if (s->fromList()) FSS_free(a.sp, s->list);
    return DONE;
  }
  if (a.displayType == DISPLAY_PNG) png_open_page(d, d->t_width, d->t_height);
  return GO_ON;
}

// Steps 18 and 19: the string's maps go back, and the pen takes a new line.
void show_finish(Activation& a, Show* s) {
  DisplayState* d = a.d;
  if (s->fromList()) {
    for (int j = 0; j < s->len; j++)
      if (s->list[j] != nullptr) FSS_free_char(a.sp, s->list[j]);
    FSS_free(a.sp, s->list);
  }
  d->fx = s->xStart + d->lf_x;
  d->fy = s->yStart + d->lf_y;
}

// One show family command on the current client: steps 4 to 19 of a show,
// in order. END when the activation must return at once.
Outcome run_show(Activation& a, const ShowKind& k, FS_USHORT type) {
  Show s;
  s.k = k;
  s.type = type;
  Outcome o = show_set_scale(a);
  if (o != GO_ON) return o;
  show_report_hints(a);
  show_push_switches(a);
  if (show_push_map_and_effects(a) == END) return END;
  show_line_feed(a, &s);
  if (show_get_string(a, &s) == END) return END;
  show_prepare_page(a, &s);
  int i = 0;
  for (; a.d->glyphs[i] >= 0; i++)
    if (show_glyph(a, &s, i) == END) return END;
  show_check_glyph_set(a.d, i);
  if (k.fake && (o = show_finish_fake(a, &s)) != GO_ON) return o;
  show_finish(a, &s);
  return GO_ON;
}

// ---- Command handlers, in the order of the table ---------------------------

Outcome do_include(Activation& a, const Command&) {
  char* name = a.d->arg;
  if (get_include_file_name(a.fp, name, 256, a.orvex_root)) {
    fprintf(stderr, "Malformed include statement check script...%s\n", name);
    fatal();
  }
  FILE* inc = fopen(name, "r");
  if (inc == nullptr) {
    printf("unable to open '%s'\n", name);
    fatal();
  }
  OrvexTxt(inc, name, 0, a.displayType, a.iname, a.psFp, a.sp, a.states,
           a.currns, a.orvex_root, a.load_fonts_to_ram, a.use_external_heap,
           "", 0);
  fclose(inc);
  return GO_ON;
}

Outcome do_repeat_start(Activation& a, const Command&) {
  DisplayState* d = a.d;
  FILE* fp = a.fp;
  if (d->repeat_count != 0) {
    fprintf(stderr,
            "Nesting repeat_start commands is not supported! Check "
            "script...\n");
    fatal();
  }
  d->repeat_count = (int)get_int(fp);
  if (d->repeat_count != 0) fgetpos(fp, &d->repeat_pos);
  return GO_ON;
}

// A count of n runs the body n + 1 times.
Outcome do_repeat_end(Activation& a, const Command&) {
  if (a.d->repeat_count != 0) {
    a.d->repeat_count--;
    fsetpos(a.fp, &a.d->repeat_pos);
  }
  return GO_ON;
}

Outcome do_newclient(Activation& a, const Command&) {
  DisplayState* d = a.d;
  char* name = d->arg;
  get_client(a.fp, name, 256);
  FS_LONG n = get_int(a.fp);
  d->initialized = 1;
  if (find_named_state(a.states, name) != nullptr) {
    fprintf(stderr,
            "The function <newclient>, client name '%s' already used\n", name);
    fatal();
  }
  if (a.currns == nullptr || !strcmp(a.currns->name, "NONE")) {
    FS_STATE* root = new_FS_STATE_and_FS_init(n, a.use_external_heap);
    report_error(root, a.displayType, a.psFp, "FS_init (newclient)", 0);
    append_named_state(a.states, name, root, 1);
    if (root->error != 0) {
      err_FD = (int)root->error;
      if (!d->ignore_err) return END;
    }
    return GO_ON;
  }
  FS_STATE* child = FSS_new_client(a.sp, (FS_ULONG)n);
  append_named_state(a.states, name, child, 0);
  return a.fails("FS_new_client", true) ? END : GO_ON;
}

Outcome do_client(Activation& a, const Command&) {
  char* name = a.d->arg;
  get_client(a.fp, name, 256);
  NAMED_STATE* ns = find_named_state(a.states, name);
  if (ns == nullptr) {
    fprintf(stderr, "The function <client>, client name '%s' not found\n",
            name);
    fatal();
  }
  if (strcmp(ns->name, "NONE") != 0 && ns->state == nullptr) {
    fprintf(stderr, "The function <client>, client '%s' has been ended\n",
            name);
    if (!a.d->ignore_err) fatal();
  } else {
    a.currns = ns;
    a.sp = ns->state;
  }
  return GO_ON;
}

Outcome do_endclient(Activation& a, const Command&) {
  NAMED_STATE* ns = a.currns;
  if (ns == nullptr || !strcmp(ns->name, "NONE")) {
    fprintf(stderr,
            "The function <endclient>, illegal use with client 'NONE'\n");
    fatal();
  }
  if (ns->state != nullptr && ns->ismaster) {
    FSS_exit(ns->state);
    free(ns->state);
    ns->state = nullptr;
  } else if (ns->state != nullptr) {
    FS_STATE throwaway;
    memset(&throwaway, 0, sizeof throwaway);
    throwaway.error = FSS_end_client(ns->state);
    report_error(&throwaway, a.displayType, a.psFp, "FS_end_client",
                 a.d->ignore_err);
    if (throwaway.error != 0) {
      err_FD = (int)throwaway.error;
      ns->state->error = 0;
    } else {
      ns->state = nullptr;
    }
  }
  a.currns = a.states;
  a.sp = nullptr;
  return GO_ON;
}

// Index of `word` in `words`, or -1.
int word_index(const char* word, const char* const* words, int count) {
  int found = -1;
  for (int i = 0; i < count; i++)
    if (!strcmp(word, words[i])) found = i;
  return found;
}

Outcome read_available_fonts(Activation& a, const Command&) {
  static const char* styles[] = {"PLAIN", "ITALIC", "BOLD", "BOLDITALIC",
                                 "ANY"};
  static const char* faces[] = {"PROPORTIONAL", "MONOSPACED", "ANY"};
  char style_word[64], face_word[64];
  get_string(a.fp, style_word, 64);
  get_string(a.fp, face_word, 64);
  a.num[0] = word_index(style_word, styles, 5);
  a.num[1] = word_index(face_word, faces, 3);
  if (a.num[0] < 0) {
    fprintf(stderr, "The function <available_fonts>, unrecognized style '%s'\n",
            style_word);
    fatal();
  }
  if (a.num[1] < 0) {
    fprintf(stderr, "The function <available_fonts>, unrecognized face '%s'\n",
            face_word);
    fatal();
  }
  return GO_ON;
}

Outcome do_available_fonts(Activation& a, const Command&) {
  FILECHAR* list = nullptr;
  FS_ULONG length = 0;
  FSS_get_available_fonts(a.sp, (FS_BYTE)a.num[0], (FS_BYTE)a.num[1], &list,
                          &length);
  if (a.fails("FS_get_available_fonts", true)) return END;
  // The names are walked to their commas and printed nowhere.
  for (FS_ULONG i = 0; list != nullptr && i < length && list[i]; i++) {
  }
  if (list != nullptr) FSS_free(a.sp, list);
  return GO_ON;
}

// Before the engine is in use the pre-scan has started it with this size
// already: the first heapsize only marks the start-up as done.
Outcome read_heapsize(Activation& a, const Command&) {
  DisplayState* d = a.d;
  d->heapsize = get_int(a.fp);
  if (!d->initialized) {
    d->initialized = 1;
    return DONE;
  }
  if (a.currns == nullptr || strcmp(a.currns->name, "DEFAULT") != 0) {
    fprintf(stderr, "The function <heapsize> only valid for DEFAULT client\n");
    printf("%%%% The function <heapsize> only valid for DEFAULT client\n");
    fatal();
  }
  return GO_ON;
}

Outcome do_heapsize(Activation& a, const Command&) {
  FSS_exit(a.sp);
  FSS_init(a.sp, (FS_ULONG)a.d->heapsize);
  return GO_ON;
}

Outcome do_external_heapsize(Activation& a, const Command&) {
  a.d->heapsize = get_int(a.fp);
  fprintf(stderr,
          "The function <external_heapsize> is only valid for builds with "
          "FS_INT_MEM defined\n");
  printf("%%%% The function <external_heapsize> is only valid for builds "
         "with FS_INT_MEM defined\n");
  return GO_ON;
}

// timer_start, timer_stop, timer_reset, timer_report by the row's value.
Outcome do_timer(Activation& a, const Command& row) {
  TIMER* t = &a.d->timer;
  switch (row.value) {
    case 0: enableTimer(t); break;
    case 1: disableTimer(t); break;
    case 2: resetTimer(t); break;
    default: reportTimer(t);
  }
  return GO_ON;
}

// `page` and `image_size`: under PNG the open page closes and a new one
// opens; `image_size` (value 1) reads the new size first and keeps the
// page's name.
Outcome do_page(Activation& a, const Command& row) {
  DisplayState* d = a.d;
  if (row.value == 1) {
    d->image_width = (int)get_int(a.fp);
    d->image_height = (int)get_int(a.fp);
  }
  if (a.displayType == DISPLAY_PNG) {
    png_close_page(d);
    png_open_page(d, d->image_width, d->image_height, row.value != 1);
  }
  return GO_ON;
}

Outcome read_two_numbers(Activation& a, const Command&) {
  a.num[0] = get_int(a.fp);
  a.num[1] = get_int(a.fp);
  return GO_ON;
}

// The size's result is dropped; the error is reported as ignored and
// cleared.
Outcome do_get_ppem_size(Activation& a, const Command&) {
  FS_STATE* sp = a.sp;
  FSS_get_ppem_size(sp, (FS_USHORT)a.num[0], (FS_USHORT)a.num[1]);
  report_error(sp, a.displayType, a.psFp, "FS_get_ppem_size", 1);
  if (sp->error != 0) err_FD = (int)sp->error;
  sp->error = 0;
  return GO_ON;
}

Outcome do_get_design_units(Activation& a, const Command&) {
  FSS_get_design_units(a.sp);  // the value is dropped
  return GO_ON;
}

Outcome do_index(Activation& a, const Command&) {
  a.d->index = (FS_ULONG)get_int(a.fp);
  return GO_ON;
}

// `font` and `remove_font` read a quoted name; `font` also marks the
// engine as in use.
Outcome read_font_name(Activation& a, const Command& row) {
  DisplayState* d = a.d;
  get_font(a.fp, d->arg, 256);
  if (row.value == 1) {
    d->initialized = 1;
    d->ignore_err = d->set_ignore_err | d->cmd_ignore_err;
  }
  return GO_ON;
}

Outcome do_font(Activation& a, const Command&) {
  FSS_set_font(a.sp, a.d->arg);
  return GO_ON;
}

Outcome read_path(Activation& a, const Command&) {
  a.d->initialized = 1;
  return GO_ON;
}

// Picks the first character map of the preference list that the font
// accepts; none leaves `cmap` as it was.
void pick_cmap(Activation& a) {
  static const FS_USHORT prefs[8][2] = {{3, 10}, {0, 6}, {0, 4}, {3, 1},
                                        {1, 0},  {0, 3}, {0, 1}, {0, 0}};
  for (const auto& p : prefs) {
    if (FSS_set_cmap(a.sp, p[0], p[1]) == 0) {
      a.d->cmap[0] = p[0];
      a.d->cmap[1] = p[1];
      break;
    }
  }
  a.sp->error = 0;
}

// `path` loads the driver's font (the word takes no argument), sets it,
// keeps its name in CurentFontName and picks a character map.
Outcome do_path(Activation& a, const Command&) {
  DisplayState* d = a.d;
  FS_STATE* sp = a.sp;
  const char* path = a.fontPath ? a.fontPath : "";
  long memsize = 0;
  FS_BYTE* memptr = nullptr;
  if (a.load_fonts_to_ram == 1 || strstr(path, ".a") != nullptr)
    memptr = (FS_BYTE*)get_ram_address(&d->loaded, path, &memsize);
  char font[256] = {0};
  FSS_load_font(sp, path, memptr, (FS_ULONG)a.fontIndexInTTC, 256, font);
  if (a.fails("FS_load_font : path", true)) return END;
  FSS_set_font(sp, font);
  if (a.fails("FS_set_font : path", true)) return END;
  memset(&d->fm, 0, sizeof d->fm);
  if (FSS_font_metrics(sp, &d->fm) == 0)
    snprintf(CurentFontName, sizeof CurentFontName, "%s", d->fm.font_name);
  sp->error = 0;
  pick_cmap(a);
  d->ignore_err = 0;
  return GO_ON;
}

Outcome read_validate(Activation& a, const Command&) {
  get_path(a.fp, a.d->arg, 255, a.orvex_root, a.d->sub_path);
  a.num[0] = get_int(a.fp);  // offset and length go to the validator
  a.num[1] = get_int(a.fp);
  return GO_ON;
}

Outcome do_validate(Activation& a, const Command&) {
  const char* path = a.d->arg;
  long memsize = 0;
  FS_BYTE* memptr = nullptr;
  if (a.load_fonts_to_ram == 1 || strstr(path, ".a") != nullptr)
    memptr = (FS_BYTE*)get_ram_address(&a.d->loaded, path, &memsize);
  FS_validate_font(a.sp, path, memptr, a.d->index, (FS_ULONG)a.num[0],
                   (FS_ULONG)a.num[1]);
  return GO_ON;
}

Outcome do_remove_font(Activation& a, const Command&) {
  FSS_delete_font(a.sp, a.d->arg);
  return GO_ON;
}

Outcome do_cmap(Activation& a, const Command&) {
  a.d->cmap[0] = (FS_USHORT)get_int(a.fp);
  a.d->cmap[1] = (FS_USHORT)get_int(a.fp);
  return GO_ON;
}

Outcome do_fiab(Activation&, const Command&) {
  fprintf(stderr, " FIAB no longer supported\n");
  return GO_ON;
}

Outcome do_effects(Activation& a, const Command&) {
  DisplayState* d = a.d;
  char word[64];
  get_string(a.fp, word, 64);
  static const struct {
    const char* word;
    FS_ULONG flag;
  } table[] = {{"emboss", 4},          {"engrave", 8},
               {"outline", 16},        {"outline1pixel", 16},
               {"outline2pixel", 32},  {"outline_unfilled", 128},
               {"outline_filled", 64}, {"outline_soft", 256}};
  if (!strcmp(word, "add_weight")) {
    printf(" The command effects add_weight is no longer supported\n");
  } else {
    d->effects = ~(FS_ULONG)508;
    for (const auto& e : table)
      if (!strcmp(word, e.word)) d->effects = e.flag;
  }
  d->outline_width = 1;
  d->outline_opacity = 1.0;
  return GO_ON;
}

Outcome do_default_bold(Activation& a, const Command&) {
  if (get_boolean(a.fp)) a.d->boldtype = 0;
  return GO_ON;
}

Outcome do_glyphset(Activation& a, const Command&) {
  get_glyphset(a.fp, a.d->glyphs);
  return GO_ON;
}

Outcome do_glyphset_all(Activation& a, const Command&) {
  get_glyphset_all(a.sp, a.d->cmap, a.d->glyphs);
  return GO_ON;
}

Outcome do_glyphset_file(Activation& a, const Command&) {
  DisplayState* d = a.d;
  char* path = d->arg;
  get_path(a.fp, path, 256, a.orvex_root, d->sub_path);
  if (d->cmap[0] == 65535 || d->cmap[1] == 65535) {
    fprintf(stderr,
            " Error: glyphset_file command should only be used with "
            "Unicode cmap\n");
    printf("%%%%  Error: glyphset_file command should only be used with "
           "Unicode cmap\n");
    fatal();
  }
  get_glyphset_from_file(path, d->glyphs);
  return GO_ON;
}

Outcome do_glyphset_string(Activation& a, const Command&) {
  get_glyphset_string(a.fp, a.d->glyphs, 256);
  return GO_ON;
}

Outcome do_moveto(Activation& a, const Command&) {
  DisplayState* d = a.d;
  long x = get_int(a.fp), y = get_int(a.fp);
  // Wrapping as the pen's 16.16: a script may name any number.
  d->fx = (FS_FIXED)((unsigned long)x * 65536u);
  d->fy = d->new_pos_y ? d->new_pos_y : (FS_FIXED)((unsigned long)y * 65536u);
  return GO_ON;
}

// foreground_color, background_color, outline_color by the row's value.
Outcome do_color(Activation& a, const Command& row) {
  DisplayState* d = a.d;
  unsigned char* c = row.value == 0   ? d->fg_color
                     : row.value == 1 ? d->bg_color
                                      : d->outl_color;
  if (d->color_type != 0)
    fprintf(stderr,
            "WARNING: %s command only applies to color PNG output images\n",
            row.word);
  for (int i = 0; i < 3; i++) c[i] = (unsigned char)get_int(a.fp);
  return GO_ON;
}

Outcome do_png_color_type(Activation& a, const Command&) {
  DisplayState* d = a.d;
  char word[16];
  get_string(a.fp, word, 16);
  if (!strcmp(word, "GRAY")) d->color_type = 1;
  else if (!strcmp(word, "COLOR")) d->color_type = 0;
  else fprintf(stderr, "INVALID PNG output image color type: %s\n", word);
  if (d->png_created)
    fprintf(stderr,
            "WARNING: PNG image was already created before png_color_type "
            "command\n");
  return GO_ON;
}

Outcome do_res(Activation& a, const Command&) {
  DisplayState* d = a.d;
  d->res = (int)get_int(a.fp);
  if (!res_to_mag(d->res, &d->mag))
    fprintf(stderr, " bad resolution %d\n", d->res);
  if (a.displayType == DISPLAY_PNG && d->res != 72) {
    fprintf(stderr,
            "ERROR: res other than 72 encountered while using PNG output\n");
    fprintf(stderr,
            "       PNG output only works properly with 72 dpi resolution \n");
    fatal();
  }
  return GO_ON;
}

// Before the client check: the show's kind, the type (read from the line
// for show_type), and the first page under PNG.
Outcome read_show(Activation& a, const Command&) {
  DisplayState* d = a.d;
  ShowKind k = show_kind(d->command);
  if (k.from_line) {
    a.num[0] = get_requested_type(a.fp);
    d->reportType = 1;
  } else {
    a.num[0] = k.type;
    d->reportType = 0;
  }
  d->ignore_err = d->set_ignore_err | d->cmd_ignore_err;
  if (a.displayType == DISPLAY_PNG && !d->png_created && !k.fake)
    png_open_page(d, d->image_width, d->image_height);
  return GO_ON;
}

Outcome do_show(Activation& a, const Command&) {
  return run_show(a, show_kind(a.d->command), (FS_USHORT)a.num[0]);
}

// ---- The command table -------------------------------------------------

// A row with handlers. An engine command names its client check in
// `client`; `report` and `clears` give the common rule after `run`.
Command row(const char* word, const char* usage, Handler args, Handler run,
            const char* client = nullptr, const char* report = nullptr,
            bool clears = true, int value = 0) {
  Command c = {};
  c.word = word;
  c.usage = usage;
  c.args = args;
  c.run = run;
  c.client = client;
  c.report = report;
  c.clears = clears;
  c.value = value;
  return c;
}

// Store-only rows.
Command set_int(const char* word, int DisplayState::*f,
                int DisplayState::*g = nullptr) {
  Command c = row(word, "int", nullptr, nullptr);
  c.store = STORE_INT;
  c.ints[0] = f;
  c.ints[1] = g;
  return c;
}

Command set_double(const char* word, const char* usage, double DisplayState::*f,
                   double DisplayState::*g = nullptr,
                   double DisplayState::*h = nullptr,
                   double DisplayState::*i = nullptr) {
  Command c = row(word, usage, nullptr, nullptr);
  c.store = STORE_DOUBLE;
  c.doubles[0] = f;
  c.doubles[1] = g;
  c.doubles[2] = h;
  c.doubles[3] = i;
  return c;
}

Command set_switch(const char* word, int DisplayState::*f, int value = 1) {
  Command c = row(word, "ON|OFF", nullptr, nullptr);
  c.store = STORE_SWITCH;
  c.ints[0] = f;
  c.value = value;
  return c;
}

// A show family row: its map type and variant flags. Every show row needs a
// client, named by the scale setter that comes first.
Command show_row(const char* word, const char* usage, int type,
                 int flags = 0) {
  Command c = row(word, usage, read_show, do_show, "FS_set_scale");
  c.value = type;
  c.flags = flags;
  return c;
}

typedef DisplayState S;

// The script language: every command word, in the order of the design's
// command list. The script help is printed from these rows.
const Command kCommands[] = {
    row("include", "\"name\"", nullptr, do_include),
    row("repeat_start", "int", nullptr, do_repeat_start),
    row("repeat_end", "", nullptr, do_repeat_end),
    row("newclient", "\"name\" int", nullptr, do_newclient),
    row("client", "\"name\"", nullptr, do_client),
    row("endclient", "", nullptr, do_endclient),
    row("available_fonts",
        "PLAIN|ITALIC|BOLD|BOLDITALIC|ANY PROPORTIONAL|MONOSPACED|ANY",
        read_available_fonts, do_available_fonts, "FS_get_available_fonts"),
    row("heapsize", "int", read_heapsize, do_heapsize, "FS_init (heapsize)",
        "FS_init (heapsize)", false),
    row("external_heapsize", "int", nullptr, do_external_heapsize),
    row("timer_start", "", nullptr, do_timer, nullptr, nullptr, true, 0),
    row("timer_stop", "", nullptr, do_timer, nullptr, nullptr, true, 1),
    row("timer_reset", "", nullptr, do_timer, nullptr, nullptr, true, 2),
    row("timer_report", "", nullptr, do_timer, nullptr, nullptr, true, 3),
    row("image_size", "width height", nullptr, do_page, nullptr, nullptr,
        true, 1),
    row("get_ppem_size", "height maxppem", read_two_numbers, do_get_ppem_size,
        "FS_get_ppem_size"),
    row("get_design_units", "", nullptr, do_get_design_units,
        "FS_get_design_units", "FS_get_design_units"),
    set_switch("get_csm", &S::get_csm),
    set_switch("get_csm_adjustments", &S::get_csm_adjustments),
    set_switch("get_advance", &S::get_advance),
    row("index", "int", nullptr, do_index),
    row("font", "\"name\"", read_font_name, do_font, "FS_set_font",
        "FS_set_font", true, 1),
    row("path", "", read_path, do_path, "FS_load_font : path"),
    row("validate", "path offset length", read_validate, do_validate,
        "FS_validate_font", "FS_validate_font"),
    row("remove_font", "\"name\"", read_font_name, do_remove_font,
        "FS_delete_font", "FS_delete_font"),
    row("page", "", nullptr, do_page),
    set_int("xppm", &S::xppm),
    set_int("yppm", &S::yppm),
    set_int("ppm", &S::xppm, &S::yppm),
    set_double("rot", "double", &S::rot),
    set_double("skew", "double", &S::skew),
    row("cmap", "int int", nullptr, do_cmap),
    set_double("stroke", "double", &S::stroke),
    set_double("bold", "double", &S::bold),
    set_int("outline_width", &S::outline_width),
    set_double("outline_opacity", "double", &S::outline_opacity),
    set_double("adf_csm", "inside outside gamma", &S::ADFinsideCutoff,
               &S::ADFoutsideCutoff, &S::ADFgamma),
    set_switch("adf_default_csm", &S::ADFuseDefaultCSM),
    set_switch("adf_maz", &S::ADFmaz),
    set_double("adf_csm_adjustments",
               "sharpness_offset sharpness_slope thickness_offset "
               "thickness_slope",
               &S::ADFsharpnessOffset, &S::ADFsharpnessSlope,
               &S::ADFthicknessOffset, &S::ADFthicknessSlope),
    set_switch("hints", &S::hinting),
    set_switch("hint_reporting", &S::hint_reporting),
    set_switch("autohinting", &S::autohinting),
    set_switch("force_autohinting", &S::force_autohinting),
    set_switch("y_autohinting", &S::y_autohinting),
    set_switch("kerning", &S::kerning),
    set_int("linear_space", &S::linearSpace),
    set_switch("vertical", &S::vertical, 1),
    set_switch("vertical_right_rotated", &S::vertical, 2),
    set_switch("vertical_left_rotated", &S::vertical, 3),
    set_switch("soften", &S::soften),
    set_switch("rightleft", &S::rightleft),
    row("fiab", "", nullptr, do_fiab),
    row("effects",
        "emboss|engrave|outline|outline1pixel|outline2pixel|"
        "outline_unfilled|outline_filled|outline_soft|none",
        nullptr, do_effects),
    set_switch("regular_bold", &S::boldtype, 1),
    set_switch("fractional_bold", &S::boldtype, 2),
    set_switch("cjk_bold", &S::boldtype, 3),
    row("default_bold", "ON|OFF", nullptr, do_default_bold),
    row("glyphset", "\"hex hex-hex ...\"", nullptr, do_glyphset),
    row("glyphset_all", "", nullptr, do_glyphset_all, "FS_set_cmap"),
    row("glyphset_file", "path", nullptr, do_glyphset_file),
    row("glyphset_string", "\"text\"", nullptr, do_glyphset_string),
    set_switch("wraptext", &S::wraptext),
    row("moveto", "x y", nullptr, do_moveto),
    row("foreground_color", "R G B", nullptr, do_color, nullptr, nullptr,
        true, 0),
    row("background_color", "R G B", nullptr, do_color, nullptr, nullptr,
        true, 1),
    row("outline_color", "R G B", nullptr, do_color, nullptr, nullptr, true,
        2),
    row("png_color_type", "GRAY|COLOR", nullptr, do_png_color_type),
    row("res", "600|300|200|150|100|75|72|36", nullptr, do_res),
    set_switch("continue_on_error", &S::cmd_ignore_err),
    set_switch("report_embedded", &S::reportEmbedded),
    set_switch("test_inverse_mapchar", &S::testInverseMapChar),
    show_row("show", "", FS_MAP_BITMAP),
    show_row("show_type", "BITMAP|GRAYMAP|GRAYMAP2|GRAYMAP4|GRAYMAP8|EDGE|"
             "EDGE2|EDGE4|EDGE8 (the rest of the line)",
             FS_MAP_BITMAP, SHOW_TYPE_FROM_LINE),
    show_row("show_gray_2bit", "", FS_MAP_GRAYMAP2),
    show_row("show_gray", "", FS_MAP_GRAYMAP4),
    show_row("show_gray_4bit", "", FS_MAP_GRAYMAP4),
    show_row("show_gray_8bit", "", FS_MAP_GRAYMAP8),
    show_row("show_fake", "(measures the page of the next pass)",
             FS_MAP_GRAYMAP8, SHOW_FAKE),
    show_row("show_phased", "", FS_MAP_BITMAP, SHOW_PHASED),
    show_row("show_gray_adf", "", FS_MAP_EDGE_GRAYMAP4),
    show_row("show_gray_adf_4bit", "", FS_MAP_EDGE_GRAYMAP4),
    show_row("show_gray_adf_2bit", "", FS_MAP_EDGE_GRAYMAP2),
    show_row("show_gray_adf_8bit", "", FS_MAP_EDGE_GRAYMAP8),
    show_row("show_distancefield", "", FS_MAP_DISTANCEFIELD),
    show_row("show_string",
             "(and show_string_<suffix> for each show_<suffix> above: the "
             "set as one string)",
             FS_MAP_BITMAP),
};

const Command* find_command(const char* word) {
  for (const Command& c : kCommands)
    if (!strcmp(word, c.word)) return &c;
  return nullptr;
}

// A show family word: its own row; after a "show_string" prefix, the row of
// "show" and the rest, drawn as one string; any other word that begins with
// "show" draws as `show`.
ShowKind show_kind(const char* word) {
  ShowKind k = {1, 0, 0, 0, 0};
  char w[256];
  snprintf(w, sizeof w, "%s", word);
  if (strncmp(w, "show_string", 11) == 0) {
    k.showString = 1;
    snprintf(w, sizeof w, "show%s", word + 11);
  }
  const Command* c = find_command(w);
  if (c == nullptr || c->run != do_show) return k;
  k.type = (FS_USHORT)c->value;
  k.fake = (c->flags & SHOW_FAKE) != 0;
  k.phased = (c->flags & SHOW_PHASED) != 0;
  k.from_line = (c->flags & SHOW_TYPE_FROM_LINE) != 0;
  return k;
}

// The row of a script word, as the interpreter runs it.
const Command* command_row(const char* word) {
  const Command* c = find_command(word);
  if (c == nullptr && strncmp(word, "show", 4) == 0) c = find_command("show");
  return c;
}

// One command by the language's rules: its arguments, the client check,
// the handler, then the common error rule where the row names a report.
Outcome run_command(Activation& a, const Command& c) {
  DisplayState* d = a.d;
  Outcome o = c.args ? c.args(a, c) : GO_ON;
  if (o != GO_ON) return o;
  if (c.store != NO_STORE) store(a, c);
  if (c.client != nullptr && a.no_client(c.client))
    return d->ignore_err ? DONE : END;
  if (c.run != nullptr && (o = c.run(a, c)) != GO_ON) return o;
  if (c.report != nullptr && a.fails(c.report, c.clears)) return END;
  return GO_ON;
}

}  // namespace

bool isScriptCommand(const char* word) {
  return word != nullptr && command_row(word) != nullptr;
}

const char* scriptCommandWord(int i) {
  int n = (int)(sizeof kCommands / sizeof kCommands[0]);
  return i >= 0 && i < n ? kCommands[i].word : nullptr;
}

void printScriptCommands(FILE* out) {
  fprintf(out,
          "Script commands, one a line with its arguments ('#' starts a "
          "comment; a leading '-' lets the command's engine error pass):\n");
  for (const Command& c : kCommands)
    fprintf(out, "  %s%s%s\n", c.word, c.usage[0] ? " " : "", c.usage);
}

void OrvexTxt(FILE* fp, const char* fname, FS_ULONG print_header,
              FS_USHORT displayType, const char* iname, FILE* psFp,
              FS_STATE* FS_state_ptr, NAMED_STATE* states,
              NAMED_STATE* currns, const char* orvex_root,
              FS_ULONG load_fonts_to_ram, int use_external_heap,
              const char* fontPath, int fontIndexInTTC) {
  std::unique_ptr<DisplayState> ds(new (std::nothrow) DisplayState());
  if (!ds) {
    fprintf(stderr, "The function <malloc> returned NULL\n");
    exit(-1);
  }
  DisplayState* d = ds.get();
  Activation a = {fp, fname, displayType, iname, psFp, FS_state_ptr, states,
                  currns, orvex_root, load_fonts_to_ram, use_external_heap,
                  fontPath, fontIndexInTTC, d, {0, 0}};
  d->glyphs[0] = -1;
  initTimer(&d->timer);
  snprintf(d->image_path, sizeof d->image_path, "%s", iname ? iname : "");
  if (displayType == DISPLAY_PS) {
    time_t now = time(nullptr);
    char timestr[64];
    snprintf(timestr, sizeof timestr, "%s", asctime(localtime(&now)));
    timestr[strcspn(timestr, "\n")] = 0;
    ps_header(psFp, print_header, fname, timestr);
  }
  if (displayType == DISPLAY_PNG) {
    d->res = 72;
    d->mag = 1.0;
    d->wraptext = 1;
  }

  for (;;) {
    d->set_ignore_err = 0;
    char* command = d->command;
    memset(command, 0, sizeof d->command);
    if (get_command(fp, command, 256) == EOF) break;
    if (command[0] == '-') {
      d->set_ignore_err = 1;
      memmove(command, command + 1, strlen(command));
    }
    d->ignore_err = d->set_ignore_err | d->cmd_ignore_err;
    if (command[0] == '#') continue;
    // Any other word is ignored without a message.
    const Command* c = command_row(command);
    if (c != nullptr && run_command(a, *c) == END) return;
  }

  if (d->repeat_count != 0)
    fprintf(stderr,
            "End of script reached without matching repeat_end command. "
            "Check Script...\n");
  if (d->png_created) png_close_page(d);
  free_loaded_to_ram(&d->loaded);
}
