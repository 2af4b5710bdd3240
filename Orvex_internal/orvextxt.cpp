// The script interpreter OrvexTxt: reads a script command by command, keeps
// the display state, and drives the font engine with it. Called by the render
// driver (and by itself for `include`); calls the engine's client calls and
// the display types (PostScript stand-in; PNG pages join at marked seams).
#include "Orvex_internal/orvextxt.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

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
#include "Orvex_internal/fs_xmalloc.h"

char ImagePath[12800];
int err_FD = 0;
int GlyphCreationError = 0;
double stdDevAdv = 0.0;
char CurentFontName[1024];
int CopyImageLocally = 0;

int create_images_from_font(const char* script_folder,
                            const char* font_file_loc, double* std_dev) {
  // The render driver isn't wired to the interpreter yet: every run reports
  // failure, so the front door answers "Error=-1" rather than measuring
  // pictures nobody drew.
  (void)script_folder;
  (void)font_file_loc;
  if (std_dev != nullptr) *std_dev = 0.0;
  return 0;
}

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
  char image_path[256];
  char command[256];
  char arg[256];
  char sub_path[256];
  FONT_METRICS fm;
};

// Seams of the PNG display type: pages are opened and closed here once the
// page writer exists. Until then an open page is only a flag, so that the
// commands that depend on it behave as they will.
void png_open_page(DisplayState* d, int width, int height) {
  (void)width;
  (void)height;
  d->png_created = 1;
}
void png_close_page(DisplayState* d) { d->png_created = 0; }

// Seam of FS_validate_font, which the font validation unit will provide:
// until it is built the call answers the engine's "not defined" error.
FS_LONG engine_unsupported(FS_STATE* sp) {
  sp->error = ERR_FORMAT_NOT_SUPPORTED;
  return sp->error;
}

struct ShowKind {
  FS_USHORT type;
  int showString, phased, fake, from_line;
};

ShowKind show_kind(const char* word) {
  ShowKind k = {1, 0, 0, 0, 0};
  char w[256];
  snprintf(w, sizeof w, "%s", word);
  if (strncmp(w, "show_string", 11) == 0) {
    k.showString = 1;
    snprintf(w, sizeof w, "show%s", word + 11);
  }
  if (!strcmp(w, "show_type")) k.from_line = 1;
  else if (!strcmp(w, "show_gray_2bit")) k.type = 2;
  else if (!strcmp(w, "show_gray") || !strcmp(w, "show_gray_4bit")) k.type = 4;
  else if (!strcmp(w, "show_gray_8bit")) k.type = 8;
  else if (!strcmp(w, "show_fake")) k.type = 8, k.fake = 1;
  else if (!strcmp(w, "show_phased")) k.phased = 1;
  else if (!strcmp(w, "show_gray_adf") || !strcmp(w, "show_gray_adf_4bit"))
    k.type = 1024;
  else if (!strcmp(w, "show_gray_adf_2bit")) k.type = 512;
  else if (!strcmp(w, "show_gray_adf_8bit")) k.type = 2048;
  else if (!strcmp(w, "show_distancefield")) k.type = 128;
  return k;
}

// Seam of the PNG display type's drawing: a glyph map laid on the open page
// with its ink corner at (left, top). Placing glyphs on pages is the page
// unit's work; until it is built nothing is drawn.
void png_draw_glyph(DisplayState* d, int left, int top, FS_GLYPHMAP* gmap,
                    const unsigned char* foreground) {
  (void)d;
  (void)left;
  (void)top;
  (void)gmap;
  (void)foreground;
}

// The advance spread of one get_advance pass over N codes: a mean absolute
// deviation of whole pixels that leaves the last glyph out of the sum; both
// are settled behaviour and results depend on them.
struct AdvanceSpread {
  double* arr = nullptr;
  double mean = 0;
};

bool is_variation_selector(FS_LONG code) {
  return (code >= 917760 && code <= 917999) ||
         (code >= 65024 && code <= 65039) || (code >= 6155 && code <= 6157);
}

// One show family command (steps 1 to 19 of a show). Returns true when the
// activation must return at once.
bool run_show(DisplayState* d, FS_STATE* sp, FS_USHORT displayType,
              FILE* psFp, const ShowKind& k, FS_USHORT type) {
  auto fails = [&](const char* who, bool clears) -> bool {
    report_error(sp, displayType, psFp, who, d->ignore_err);
    if (sp->error == 0) return false;
    err_FD = (int)sp->error;
    if (!d->ignore_err) return true;
    if (clears) sp->error = 0;
    return false;
  };
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
  if (sp->error != 0) {
    // An error here ends the command; ignored, it clears and the script
    // goes on.
    return fails("FS_set_scale", true);
  }

  if (d->hint_reporting) {
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

  FSS_set_cmap(sp, d->cmap[0], d->cmap[1]);
  if (fails("FS_set_cmap", false)) return true;

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
  } else if (fails("FS_set_flags", true)) {
    return true;
  }

  const double DEG = 0.017453292519943295;
  double L = (d->yppm + 2) * d->mag;
  d->lf_x = (FS_FIXED)(int)(-sin(d->rot * DEG) * L * 65536.0 + 0.5);
  d->lf_y = (FS_FIXED)(int)(cos(d->rot * DEG) * L * 65536.0 + 0.5);
  FS_FIXED xStart = d->fx, yStart = d->fy;

  if (d->vertical) {
    static const FS_ULONG vflag[4] = {0, FLAGS_VERTICAL_ON,
                                      FLAGS_VERTICAL_ROTATE_RIGHT_ON,
                                      FLAGS_VERTICAL_ROTATE_LEFT_ON};
    FS_set_flags(sp, vflag[d->vertical]);
    d->kerning = 0;  // stays off afterwards
    d->rightleft = 0;
    FS_FIXED t = d->lf_x;
    d->lf_x = -d->lf_y;
    d->lf_y = t;
  } else {
    FS_set_flags(sp, ~FLAGS_VERTICAL_ON);
  }

  int len = 0;
  while (d->glyphs[len] >= 0) len++;
  FS_GLYPHMAP** list = nullptr;
  if (k.showString) {
    std::unique_ptr<FS_ULONG[]> codes(new FS_ULONG[len > 0 ? len : 1]);
    for (int i = 0; i < len; i++) codes[i] = (FS_ULONG)d->glyphs[i];
    if (timer->isOn) startTimer(timer);
    FS_get_string(sp, (FS_ULONG)len, codes.get(), type, &list);
    if (timer->isOn) stopTimer(timer);
    if (fails("FS_get_string", true)) return true;
    if (list != nullptr) {
      timer->nglyphs += len;
      for (int i = 0; i < len; i++)
        if (list[i] != nullptr)
          timer->npixels += (FS_LONG)list[i]->width * list[i]->height;
    }
  }

  FS_FIXED page_width = (FS_FIXED)d->image_width << 16;
  FS_FIXED page_height = (FS_FIXED)d->image_height << 16;
  memset(d->glyphsIndex, 0, sizeof d->glyphsIndex);
  d->glyphsIndex[0] = -1;
  const unsigned char* foreground =
      (d->effects == 64 || d->effects == 256) ? d->outl_color : d->fg_color;
  int pos_x = 0, pos_y = 0;
  AdvanceSpread spread;

  int i = 0;
  for (; d->glyphs[i] >= 0; i++) {
    FS_ULONG code = (FS_ULONG)d->glyphs[i];
    FS_GLYPHMAP* gmap = nullptr;
    FS_SHORT i_adx = 0, i_ady = 0;
    FS_FIXED adx = 0, ady = 0;
    if (d->testInverseMapChar) {
      FS_USHORT gi = FSS_map_char(sp, code);
      FSS_inverse_map_char(sp, gi);
      sp->error = 0;
      continue;
    }
    if (k.showString && list != nullptr) {
      gmap = list[i];
    } else {
      if (d->get_advance) {
        if (i == 0) {
          free(spread.arr);
          spread.arr = (double*)calloc((size_t)len, sizeof(double));
          spread.mean = 0;
          stdDevAdv = 0;
        }
        FSS_get_advance(sp, code, type, &i_adx, &i_ady, &adx, &ady);
        report_error(sp, displayType, psFp, "FS_get_advance", d->ignore_err);
        FS_ULONG adv_err = sp->error;
        if (spread.arr != nullptr) spread.arr[i] = adx / 65536.0;
        spread.mean += adx / 65536.0;
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
          if (!d->ignore_err) {
            free(spread.arr);
            return true;
          }
          sp->error = 0;
        }
      }
      if (timer->isOn) startTimer(timer);
      if (k.phased) {
        // The pen's fraction goes in the type position by design of this
        // tool; a whole-pixel pen asks for type 0.
        gmap = FSS_get_phased(sp, code, (FS_USHORT)(d->fx & 0xFFFF), 0, 0);
        if (timer->isOn) stopTimer(timer);
        if (fails("FS_get_phased", true)) {
          free(spread.arr);
          return true;
        }
      } else if (is_variation_selector(d->glyphs[i]) && i > 0) {
        FS_ULONG previous = (FS_ULONG)d->glyphs[i - 1];
        FS_USHORT glyphvariant = FSS_map_char_variant(sp, previous, code);
        if (fails("FS_map_char_variant", true)) {
          free(spread.arr);
          return true;
        }
        if (glyphvariant == 0) {
          glyphvariant = FSS_map_char(sp, previous);
          if (fails("FS_map_char", true)) {
            free(spread.arr);
            return true;
          }
        }
        FS_set_flags(sp, FLAGS_CMAP_OFF);
        gmap = FSS_get_glyphmap(sp, glyphvariant, type);
        FS_ULONG e = sp->error;
        FS_set_flags(sp, ~FLAGS_CMAP_OFF);
        sp->error = e;
        if (timer->isOn) stopTimer(timer);
      } else {
        gmap = FSS_get_glyphmap(sp, code, type);
        FS_ULONG e = sp->error;
        d->glyphsIndex[i] = map_char(sp, code, 0);
        sp->error = e;
        if (timer->isOn) stopTimer(timer);
        if (fails("FS_get_glyphmap", true)) {
          free(spread.arr);
          return true;
        }
        if (gmap != nullptr && d->get_advance) {
          if (gmap->i_dx != i_adx) gmap->i_dx = i_adx;
          if (gmap->i_dy != i_ady) gmap->i_dy = i_ady;
          if (gmap->dx != adx) gmap->dx = adx;
          if (gmap->dy != ady) gmap->dy = ady;
        }
        if (gmap != nullptr && (d->get_csm || d->get_csm_adjustments)) {
          ADF_F32 a, b, c;
          FS_get_csm(sp, &a, &b, &c);  // read, printed nowhere
        }
      }
      if (gmap != nullptr && timer->isOn) {
        timer->nglyphs++;
        timer->npixels += (FS_LONG)gmap->width * gmap->height;
      }
    }
    if (gmap == nullptr) continue;

    FS_FIXED dx, dy;
    if (!d->kerning && (gmap->i_dx != 0 || gmap->i_dy != 0)) {
      dx = (FS_FIXED)(int)(gmap->i_dx * 65536.0 * d->mag + 0.5);
      dy = (FS_FIXED)(int)(gmap->i_dy * 65536.0 * d->mag + 0.5);
    } else {
      dx = (FS_FIXED)(int)(gmap->dx * d->mag + 0.5);
      dy = (FS_FIXED)(int)(gmap->dy * d->mag + 0.5);
    }
    if (d->linearSpace)
      dx = (FS_FIXED)(int)((d->linearSpace + gmap->i_dx) * 65536.0 * d->mag +
                           0.5);
    if (d->rightleft) {
      d->fx -= dx;
      d->fy += dy;
    }
    if (d->wraptext) {
      if (d->fx < 0 ||
          d->fx + ((FS_FIXED)(gmap->lo_x + gmap->width) << 16) >= page_width) {
        d->fx = xStart + d->lf_x;
        d->fy += d->lf_y;
      }
      if (d->fy + ((FS_FIXED)d->yppm << 15) >= page_height) {
        d->fx = xStart;
        d->fy = yStart;
        if (displayType == DISPLAY_PNG) {
          png_close_page(d);
          png_open_page(d, d->image_width, d->image_height);
        }
      }
    }

    pos_x = d->fx >> 16;
    pos_y = d->fy >> 16;
    if (k.fake && gmap->bitsPerPixel != 1) {
      // The measuring pass: nothing is drawn, the pen moves all the same.
      if (len == 1) {
        d->t_height = gmap->height + 5;
        d->t_width = gmap->width + 5;
      } else {
        // A string page: a baseline low enough for the tallest glyph plus
        // 5, a bottom 25 below the lowest ink, a right edge 105 beyond the
        // last glyph. Only the first string of an activation takes the
        // 50-pixel lead-in, as t_width isn't reset by a real pass.
        if (d->t_width == 0) {
          pos_x = 50 - gmap->lo_x;
          d->fx = (FS_FIXED)pos_x << 16;
        }
        if (gmap->hi_y + 5 > pos_y) {
          d->t_height += gmap->hi_y + 5 - pos_y;
          pos_y = gmap->hi_y + 5;
          d->fy = (FS_FIXED)pos_y << 16;
          d->new_pos_y = d->fy;
        }
        if (gmap->height + pos_y - gmap->hi_y >= d->t_height)
          d->t_height = gmap->height + pos_y - gmap->hi_y + 25;
        d->t_width = gmap->width + gmap->lo_x + pos_x + 105;
      }
    } else if (displayType == DISPLAY_PS) {
      if (gmap->bitsPerPixel == 1)
        ps_bitmap(psFp, (long)d->fx, (long)d->fy, gmap->width, gmap->height);
      else
        ps_graymap(psFp, (long)d->fx, (long)d->fy, gmap->width, gmap->height,
                   gmap->bitsPerPixel);
    } else if (displayType == DISPLAY_PNG) {
      if (gmap->bitsPerPixel == 1) {
        png_draw_glyph(d, pos_x, pos_y, gmap, foreground);
      } else {
        int left, top;
        if (len == 1) {
          // The ink's corner lands at pixel (2, 2).
          left = 2 - gmap->lo_x;
          top = gmap->hi_y + 2;
        } else {
          if (i == 0) {
            pos_x = 50 - gmap->lo_x;
            d->fx = (FS_FIXED)pos_x << 16;
          }
          left = pos_x;
          top = pos_y;
        }
        png_draw_glyph(d, left, top, gmap, foreground);
        d->new_pos_y = 0;
        d->t_height = 0;
      }
    }

    if (!d->rightleft) {
      d->fx += dx;
      d->fy += dy * d->signs[d->vertical];
    }
    if (d->kerning && d->glyphs[i + 1] >= 0) {
      FS_FIXED kx = 0, ky = 0;
      FSS_get_kerning(sp, code, (FS_ULONG)d->glyphs[i + 1], &kx, &ky);
      d->fx += (FS_FIXED)(int)(kx * d->mag + 0.5);
      d->fy += (FS_FIXED)(int)(ky * d->mag + 0.5) * d->signs[d->vertical];
    }
    if (!(k.showString && list != nullptr)) FSS_free_char(sp, gmap);
  }
  free(spread.arr);
  d->glyphsIndex[i] = -1;

  // A set whose final run of one glyph index is longer than 10 repeats
  // counts as a failed glyph set (typically the missing glyph).
  int run = 0;
  for (int j = 1; j < i; j++) run = d->glyphsIndex[j] == d->glyphsIndex[j - 1] ? run + 1 : 0;
  if (run > 10) GlyphCreationError++;

  if (k.fake) {
    if (d->png_created) png_close_page(d);
    if (d->t_height < 1 || d->t_width <= 0) {
      err_FD = 402;
      if (!d->ignore_err) {
        if (k.showString && list != nullptr) FSS_free(sp, list);
        return true;
      }
    } else if (d->get_advance) {
      if (k.showString && list != nullptr) FSS_free(sp, list);
      return false;
    } else if (displayType == DISPLAY_PNG) {
      png_open_page(d, d->t_width, d->t_height);
    }
  }
  if (k.showString && list != nullptr) {
    for (int j = 0; j < len; j++)
      if (list[j] != nullptr) FSS_free_char(sp, list[j]);
    FSS_free(sp, list);
  }
  d->fx = xStart + d->lf_x;
  d->fy = yStart + d->lf_y;
  return false;
}

}  // namespace

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
  FS_STATE*& sp = FS_state_ptr;
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

  // The rule after an engine call: report, keep the error in err_FD, and
  // tell the caller to return unless errors are ignored; a clearing call
  // then takes the error back off the client.
  auto fails = [&](const char* who, bool clears) -> bool {
    if (sp == nullptr) return false;
    report_error(sp, displayType, psFp, who, d->ignore_err);
    if (sp->error == 0) return false;
    err_FD = (int)sp->error;
    if (!d->ignore_err) return true;
    if (clears) sp->error = 0;
    return false;
  };
  // An engine command without a current client (after `endclient`): the
  // engine's null-argument error, by the same rule.
  auto no_client = [&](const char* who) -> bool {
    if (sp != nullptr) return false;
    printf("The function <%s> returned %ld\n", who, (long)ERR_BAD_ARGUMENT);
    err_FD = ERR_BAD_ARGUMENT;
    return true;
  };
#define NEED_CLIENT(who)                 \
  if (no_client(who)) {                  \
    if (!d->ignore_err) return;          \
    continue;                            \
  }
  auto fatal = [&](void) { exit(-1); };

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

    if (!strcmp(command, "include")) {
      char* name = d->arg;
      if (get_include_file_name(fp, name, 256, orvex_root)) {
        fprintf(stderr, "Malformed include statement check script...%s\n",
                name);
        fatal();
      }
      FILE* inc = fopen(name, "r");
      if (inc == nullptr) {
        printf("unable to open '%s'\n", name);
        fatal();
      }
      OrvexTxt(inc, name, 0, displayType, iname, psFp, sp, states, currns,
               orvex_root, load_fonts_to_ram, use_external_heap, "", 0);
      fclose(inc);
    } else if (!strcmp(command, "repeat_start")) {
      if (d->repeat_count != 0) {
        fprintf(stderr,
                "Nesting repeat_start commands is not supported! Check "
                "script...\n");
        fatal();
      }
      d->repeat_count = (int)get_int(fp);
      if (d->repeat_count != 0) fgetpos(fp, &d->repeat_pos);
    } else if (!strcmp(command, "repeat_end")) {
      // A count of n runs the body n + 1 times.
      if (d->repeat_count != 0) {
        d->repeat_count--;
        fsetpos(fp, &d->repeat_pos);
      }
    } else if (!strcmp(command, "newclient")) {
      char* name = d->arg;
      get_client(fp, name, 256);
      FS_LONG n = get_int(fp);
      d->initialized = 1;
      if (find_named_state(states, name) != nullptr) {
        fprintf(stderr,
                "The function <newclient>, client name '%s' already used\n",
                name);
        fatal();
      }
      if (currns == nullptr || !strcmp(currns->name, "NONE")) {
        FS_STATE* root = new_FS_STATE_and_FS_init(n, use_external_heap);
        report_error(root, displayType, psFp, "FS_init (newclient)", 0);
        append_named_state(states, name, root, 1);
        if (root->error != 0) {
          err_FD = (int)root->error;
          if (!d->ignore_err) return;
        }
      } else {
        FS_STATE* child = FSS_new_client(sp, (FS_ULONG)n);
        append_named_state(states, name, child, 0);
        if (fails("FS_new_client", true)) return;
      }
    } else if (!strcmp(command, "client")) {
      char* name = d->arg;
      get_client(fp, name, 256);
      NAMED_STATE* ns = find_named_state(states, name);
      if (ns == nullptr) {
        fprintf(stderr, "The function <client>, client name '%s' not found\n",
                name);
        fatal();
      }
      if (strcmp(ns->name, "NONE") != 0 && ns->state == nullptr) {
        fprintf(stderr, "The function <client>, client '%s' has been ended\n",
                name);
        if (!d->ignore_err) fatal();
      } else {
        currns = ns;
        sp = ns->state;
      }
    } else if (!strcmp(command, "endclient")) {
      if (currns == nullptr || !strcmp(currns->name, "NONE")) {
        fprintf(stderr,
                "The function <endclient>, illegal use with client 'NONE'\n");
        fatal();
      }
      if (currns->state != nullptr) {
        if (currns->ismaster) {
          FSS_exit(currns->state);
          free(currns->state);
          currns->state = nullptr;
        } else {
          FS_STATE throwaway;
          memset(&throwaway, 0, sizeof throwaway);
          throwaway.error = FSS_end_client(currns->state);
          report_error(&throwaway, displayType, psFp, "FS_end_client",
                       d->ignore_err);
          if (throwaway.error != 0) {
            err_FD = (int)throwaway.error;
            currns->state->error = 0;
          } else {
            currns->state = nullptr;
          }
        }
      }
      currns = states;
      sp = nullptr;
    } else if (!strcmp(command, "available_fonts")) {
      static const char* styles[] = {"PLAIN", "ITALIC", "BOLD", "BOLDITALIC",
                                     "ANY"};
      static const char* faces[] = {"PROPORTIONAL", "MONOSPACED", "ANY"};
      char style_word[64], face_word[64];
      get_string(fp, style_word, 64);
      get_string(fp, face_word, 64);
      int style = -1, face = -1;
      for (int i = 0; i < 5; i++)
        if (!strcmp(style_word, styles[i])) style = i;
      for (int i = 0; i < 3; i++)
        if (!strcmp(face_word, faces[i])) face = i;
      if (style < 0) {
        fprintf(stderr,
                "The function <available_fonts>, unrecognized style '%s'\n",
                style_word);
        fatal();
      }
      if (face < 0) {
        fprintf(stderr,
                "The function <available_fonts>, unrecognized face '%s'\n",
                face_word);
        fatal();
      }
      NEED_CLIENT("FS_get_available_fonts");
      FILECHAR* list = nullptr;
      FS_ULONG length = 0;
      FSS_get_available_fonts(sp, (FS_BYTE)style, (FS_BYTE)face, &list,
                              &length);
      if (fails("FS_get_available_fonts", true)) return;
      // The names are walked to their commas and printed nowhere.
      for (FS_ULONG i = 0; list != nullptr && i < length && list[i]; i++) {
      }
      if (list != nullptr) FSS_free(sp, list);
    } else if (!strcmp(command, "heapsize")) {
      FS_LONG size = get_int(fp);
      d->heapsize = size;
      if (!d->initialized) {
        // The pre-scan has started the engine with this size already.
        d->initialized = 1;
        continue;
      }
      if (currns == nullptr || strcmp(currns->name, "DEFAULT") != 0) {
        fprintf(stderr,
                "The function <heapsize> only valid for DEFAULT client\n");
        printf("%%%% The function <heapsize> only valid for DEFAULT client\n");
        fatal();
      }
      NEED_CLIENT("FS_init (heapsize)");
      FSS_exit(sp);
      FSS_init(sp, (FS_ULONG)size);
      if (fails("FS_init (heapsize)", false)) return;
    } else if (!strcmp(command, "external_heapsize")) {
      d->heapsize = get_int(fp);
      fprintf(stderr,
              "The function <external_heapsize> is only valid for builds "
              "with FS_INT_MEM defined\n");
      printf("%%%% The function <external_heapsize> is only valid for builds "
             "with FS_INT_MEM defined\n");
    } else if (!strcmp(command, "timer_start")) {
      enableTimer(&d->timer);
    } else if (!strcmp(command, "timer_stop")) {
      disableTimer(&d->timer);
    } else if (!strcmp(command, "timer_reset")) {
      resetTimer(&d->timer);
    } else if (!strcmp(command, "timer_report")) {
      reportTimer(&d->timer);
    } else if (!strcmp(command, "image_size")) {
      d->image_width = (int)get_int(fp);
      d->image_height = (int)get_int(fp);
      if (displayType == DISPLAY_PNG) {
        png_close_page(d);
        png_open_page(d, d->image_width, d->image_height);
      }
    } else if (!strcmp(command, "get_ppem_size")) {
      FS_USHORT height = (FS_USHORT)get_int(fp);
      FS_USHORT maxppem = (FS_USHORT)get_int(fp);
      NEED_CLIENT("FS_get_ppem_size");
      FSS_get_ppem_size(sp, height, maxppem);
      report_error(sp, displayType, psFp, "FS_get_ppem_size", 1);
      if (sp->error != 0) err_FD = (int)sp->error;
      sp->error = 0;
    } else if (!strcmp(command, "get_design_units")) {
      NEED_CLIENT("FS_get_design_units");
      FSS_get_design_units(sp);  // the value is dropped
      if (fails("FS_get_design_units", true)) return;
    } else if (!strcmp(command, "get_csm")) {
      d->get_csm = get_boolean(fp);
    } else if (!strcmp(command, "get_csm_adjustments")) {
      d->get_csm_adjustments = get_boolean(fp);
    } else if (!strcmp(command, "get_advance")) {
      d->get_advance = get_boolean(fp);
    } else if (!strcmp(command, "index")) {
      d->index = (FS_ULONG)get_int(fp);
    } else if (!strcmp(command, "font")) {
      char* name = d->arg;
      get_font(fp, name, 256);
      d->initialized = 1;
      d->ignore_err = d->set_ignore_err | d->cmd_ignore_err;
      NEED_CLIENT("FS_set_font");
      FSS_set_font(sp, name);
      if (fails("FS_set_font", true)) return;
    } else if (!strcmp(command, "path")) {
      d->initialized = 1;
      NEED_CLIENT("FS_load_font : path");
      const char* path = fontPath ? fontPath : "";
      long memsize = 0;
      FS_BYTE* memptr = nullptr;
      if (load_fonts_to_ram == 1 || strstr(path, ".a") != nullptr)
        memptr = (FS_BYTE*)get_ram_address(&d->loaded, path, &memsize);
      char font[256] = {0};
      FSS_load_font(sp, path, memptr, (FS_ULONG)fontIndexInTTC, 256, font);
      if (fails("FS_load_font : path", true)) return;
      FSS_set_font(sp, font);
      if (fails("FS_set_font : path", true)) return;
      memset(&d->fm, 0, sizeof d->fm);
      if (FSS_font_metrics(sp, &d->fm) == 0) {
        snprintf(CurentFontName, sizeof CurentFontName, "%s",
                 d->fm.font_name);
      }
      sp->error = 0;
      static const FS_USHORT prefs[8][2] = {{3, 10}, {0, 6}, {0, 4}, {3, 1},
                                            {1, 0},  {0, 3}, {0, 1}, {0, 0}};
      for (const auto& p : prefs) {
        if (FSS_set_cmap(sp, p[0], p[1]) == 0) {
          d->cmap[0] = p[0];
          d->cmap[1] = p[1];
          break;
        }
      }
      sp->error = 0;
      d->ignore_err = 0;
    } else if (!strcmp(command, "validate")) {
      char* path = d->arg;
      get_path(fp, path, 255, orvex_root, d->sub_path);
      long doffset = get_int(fp);
      long dlength = get_int(fp);
      (void)doffset;
      (void)dlength;
      NEED_CLIENT("FS_validate_font");
      long memsize = 0;
      if (load_fonts_to_ram == 1 || strstr(path, ".a") != nullptr)
        get_ram_address(&d->loaded, path, &memsize);
      engine_unsupported(sp);  // seam: FS_validate_font
      if (fails("FS_validate_font", true)) return;
    } else if (!strcmp(command, "remove_font")) {
      char* name = d->arg;
      get_font(fp, name, 256);
      NEED_CLIENT("FS_delete_font");
      FSS_delete_font(sp, name);
      if (fails("FS_delete_font", true)) return;
    } else if (!strcmp(command, "page")) {
      if (displayType == DISPLAY_PNG) {
        png_close_page(d);
        png_open_page(d, d->image_width, d->image_height);
      }
    } else if (!strcmp(command, "xppm")) {
      d->xppm = (int)get_int(fp);
    } else if (!strcmp(command, "yppm")) {
      d->yppm = (int)get_int(fp);
    } else if (!strcmp(command, "ppm")) {
      d->xppm = d->yppm = (int)get_int(fp);
    } else if (!strcmp(command, "rot")) {
      d->rot = get_double(fp);
    } else if (!strcmp(command, "skew")) {
      d->skew = get_double(fp);
    } else if (!strcmp(command, "cmap")) {
      d->cmap[0] = (FS_USHORT)get_int(fp);
      d->cmap[1] = (FS_USHORT)get_int(fp);
    } else if (!strcmp(command, "stroke")) {
      d->stroke = get_double(fp);
    } else if (!strcmp(command, "bold")) {
      d->bold = get_double(fp);
    } else if (!strcmp(command, "outline_width")) {
      d->outline_width = (int)get_int(fp);
    } else if (!strcmp(command, "outline_opacity")) {
      d->outline_opacity = get_double(fp);
    } else if (!strcmp(command, "adf_csm")) {
      d->ADFinsideCutoff = get_double(fp);
      d->ADFoutsideCutoff = get_double(fp);
      d->ADFgamma = get_double(fp);
    } else if (!strcmp(command, "adf_default_csm")) {
      d->ADFuseDefaultCSM = get_boolean(fp);
    } else if (!strcmp(command, "adf_maz")) {
      d->ADFmaz = get_boolean(fp);
    } else if (!strcmp(command, "adf_csm_adjustments")) {
      d->ADFsharpnessOffset = get_double(fp);
      d->ADFsharpnessSlope = get_double(fp);
      d->ADFthicknessOffset = get_double(fp);
      d->ADFthicknessSlope = get_double(fp);
    } else if (!strcmp(command, "hints")) {
      d->hinting = get_boolean(fp);
    } else if (!strcmp(command, "hint_reporting")) {
      d->hint_reporting = get_boolean(fp);
    } else if (!strcmp(command, "autohinting")) {
      d->autohinting = get_boolean(fp);
    } else if (!strcmp(command, "force_autohinting")) {
      d->force_autohinting = get_boolean(fp);
    } else if (!strcmp(command, "y_autohinting")) {
      d->y_autohinting = get_boolean(fp);
    } else if (!strcmp(command, "kerning")) {
      d->kerning = get_boolean(fp);
    } else if (!strcmp(command, "linear_space")) {
      d->linearSpace = (int)get_int(fp);
    } else if (!strcmp(command, "vertical")) {
      d->vertical = get_boolean(fp) ? 1 : 0;
    } else if (!strcmp(command, "vertical_right_rotated")) {
      d->vertical = get_boolean(fp) ? 2 : 0;
    } else if (!strcmp(command, "vertical_left_rotated")) {
      d->vertical = get_boolean(fp) ? 3 : 0;
    } else if (!strcmp(command, "soften")) {
      d->soften = get_boolean(fp);
    } else if (!strcmp(command, "rightleft")) {
      d->rightleft = get_boolean(fp);
    } else if (!strcmp(command, "fiab")) {
      fprintf(stderr, " FIAB no longer supported\n");
    } else if (!strcmp(command, "effects")) {
      char word[64];
      get_string(fp, word, 64);
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
    } else if (!strcmp(command, "regular_bold")) {
      d->boldtype = get_boolean(fp) ? 1 : 0;
    } else if (!strcmp(command, "fractional_bold")) {
      d->boldtype = get_boolean(fp) ? 2 : 0;
    } else if (!strcmp(command, "cjk_bold")) {
      d->boldtype = get_boolean(fp) ? 3 : 0;
    } else if (!strcmp(command, "default_bold")) {
      if (get_boolean(fp)) d->boldtype = 0;
    } else if (!strcmp(command, "glyphset")) {
      get_glyphset(fp, d->glyphs);
    } else if (!strcmp(command, "glyphset_all")) {
      NEED_CLIENT("FS_set_cmap");
      get_glyphset_all(sp, d->cmap, d->glyphs);
    } else if (!strcmp(command, "glyphset_file")) {
      char* path = d->arg;
      get_path(fp, path, 256, orvex_root, d->sub_path);
      if (d->cmap[0] == 65535 || d->cmap[1] == 65535) {
        fprintf(stderr,
                " Error: glyphset_file command should only be used with "
                "Unicode cmap\n");
        printf("%%%%  Error: glyphset_file command should only be used with "
               "Unicode cmap\n");
        fatal();
      }
      get_glyphset_from_file(path, d->glyphs);
    } else if (!strcmp(command, "glyphset_string")) {
      get_glyphset_string(fp, d->glyphs, 256);
    } else if (!strcmp(command, "wraptext")) {
      d->wraptext = get_boolean(fp);
    } else if (!strcmp(command, "moveto")) {
      long x = get_int(fp), y = get_int(fp);
      d->fx = (FS_FIXED)(x * 65536);
      d->fy = d->new_pos_y ? d->new_pos_y : (FS_FIXED)(y * 65536);
    } else if (!strcmp(command, "foreground_color") ||
               !strcmp(command, "background_color") ||
               !strcmp(command, "outline_color")) {
      unsigned char* c = command[0] == 'f'   ? d->fg_color
                         : command[0] == 'b' ? d->bg_color
                                             : d->outl_color;
      if (d->color_type != 0)
        fprintf(stderr,
                "WARNING: %s command only applies to color PNG output "
                "images\n",
                command);
      for (int i = 0; i < 3; i++) c[i] = (unsigned char)get_int(fp);
    } else if (!strcmp(command, "png_color_type")) {
      char word[16];
      get_string(fp, word, 16);
      if (!strcmp(word, "GRAY")) d->color_type = 1;
      else if (!strcmp(word, "COLOR")) d->color_type = 0;
      else fprintf(stderr, "INVALID PNG output image color type: %s\n", word);
      if (d->png_created)
        fprintf(stderr,
                "WARNING: PNG image was already created before "
                "png_color_type command\n");
    } else if (!strcmp(command, "res")) {
      d->res = (int)get_int(fp);
      if (!res_to_mag(d->res, &d->mag))
        fprintf(stderr, " bad resolution %d\n", d->res);
      if (displayType == DISPLAY_PNG && d->res != 72) {
        fprintf(stderr,
                "ERROR: res other than 72 encountered while using PNG "
                "output\n");
        fprintf(stderr,
                "       PNG output only works properly with 72 dpi "
                "resolution \n");
        fatal();
      }
    } else if (!strcmp(command, "continue_on_error")) {
      d->cmd_ignore_err = get_boolean(fp);
    } else if (!strcmp(command, "report_embedded")) {
      d->reportEmbedded = get_boolean(fp);
    } else if (!strcmp(command, "test_inverse_mapchar")) {
      d->testInverseMapChar = get_boolean(fp);
    } else if (!strncmp(command, "show", 4)) {
      ShowKind k = show_kind(command);
      FS_USHORT type = k.type;
      if (k.from_line) {
        type = get_requested_type(fp);
        d->reportType = 1;
      } else {
        d->reportType = 0;
      }
      d->ignore_err = d->set_ignore_err | d->cmd_ignore_err;
      if (displayType == DISPLAY_PNG && !d->png_created && !k.fake)
        png_open_page(d, d->image_width, d->image_height);
      NEED_CLIENT("FS_set_scale");
      if (run_show(d, sp, displayType, psFp, k, type)) return;
    }
    // Any other word is ignored without a message.
  }
#undef NEED_CLIENT

  if (d->repeat_count != 0)
    fprintf(stderr,
            "End of script reached without matching repeat_end command. "
            "Check Script...\n");
  if (d->png_created) png_close_page(d);
  free_loaded_to_ram(&d->loaded);
}
