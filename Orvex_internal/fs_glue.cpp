// The TrueType glyph reader and grid fit. A glyph's bytes come from `glyf`
// through the container's read path and are decoded with a bounds-checked
// cursor; points go into the key's glyph element, each simple glyph with its
// 8 phantom places, scaled to 26.6 by the key's per-axis scaling.
// Components are loaded behind the points already there, each hinted by its
// own program, then transformed and moved as they return; a composite's
// program runs last over all of them.
#include "Orvex_internal/fs_glue.h"

#include <stddef.h>
#include <string.h>

#include "Orvex_internal/fs_decomp.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

FS_LONG fail(FS_STATE* state, FS_LONG error) {
  state->error = (FS_ULONG)error;
  return error;
}

TTF* key_ttf(fsg_SplineKey* key) {
  if (key->sfnt == nullptr || key->sfnt->lfnt == nullptr) return nullptr;
  return (TTF*)key->sfnt->lfnt->fnt;
}

bool compact_format(fsg_SplineKey* key) {
  return (key->sfnt->lfnt->fontflags & (FONTFLAG_CCC | FONTFLAG_DDD)) != 0;
}

// `n` bytes at `pos` of a table of `length` bytes at `table` (offsets from
// the font's start) into `out`; what lies beyond the table reads as zeros.
void read_table_bytes(FS_STATE* state, TTF* ttf, FS_ULONG table,
                      FS_ULONG length, FS_ULONG pos, FS_ULONG n, FS_BYTE* out) {
  memset(out, 0, n);
  if (pos >= length) return;
  FS_ULONG have = length - pos < n ? length - pos : n;
  FS_ULONG saved = state->error;
  ttf_read_buf(state, ttf, table + pos, have, out);
  state->error = saved;
}

FS_LONG fix_mul(FS_LONG a, FS_LONG b) { return varmul_64(a, b, 16); }

bool ddd_format(fsg_SplineKey* key) {
  return (key->sfnt->lfnt->fontflags & FONTFLAG_DDD) != 0;
}

// A field width of the compact formats' packing, kept to 0..32.
FS_ULONG bit_width(FS_LONG n) { return n < 0 ? 0 : n > 32 ? 32 : (FS_ULONG)n; }

// `n` bits at bit `pos` of a table (bits beyond it read as 0).
FS_ULONG read_table_bits(FS_STATE* state, TTF* ttf, FS_ULONG table,
                         FS_ULONG length, FS_UINT64 pos, FS_ULONG n) {
  if (n == 0 || (pos >> 3) >= length) return 0;
  FS_BYTE buf[8];
  read_table_bytes(state, ttf, table, length, (FS_ULONG)(pos >> 3), 8, buf);
  BITIO b;
  QSX_BITIO_Create(&b, buf, 8);
  b.pos = pos & 7;
  return QSX_BITIO_ReadValue(&b, (FS_LONG)n);
}

}  // namespace

FS_LONG fs_SetUpKey(FS_STATE* state, fsg_SplineKey* key) {
  const FS_SHORT needed =
      KEY_INITIALISED | KEY_SFNT_READY | KEY_TRANSFORM_READY;
  if ((key->state & needed) != needed || key->maxp == nullptr)
    return fail(state, ERR_KEY_STATE);
  FS_SERVER* server = state->server;
  if (server->workspace == nullptr ||
      (FS_ULONG)server->workspaceSize < key->workspace_need)
    return fail(state, ERR_KEY_STATE);
  FS_BYTE* p = server->workspace;
  fsg_ElementInfo* info = &key->elementInfoRec;
  FS_ULONG rooms[2] = {(FS_ULONG)key->max_twilight + 8,
                       (FS_ULONG)key->max_points + 8};
  FS_ULONG contours[2] = {1, (FS_ULONG)key->max_contours + 1};
  for (int e = 0; e < 2; e++) {
    fnt_ElementType* el = &info->interpreterElements[e];
    FS_ULONG n = rooms[e];
    el->x = (F26DOT6*)p, p += n * sizeof(F26DOT6);
    el->y = (F26DOT6*)p, p += n * sizeof(F26DOT6);
    el->ox = (F26DOT6*)p, p += n * sizeof(F26DOT6);
    el->oy = (F26DOT6*)p, p += n * sizeof(F26DOT6);
    el->oox = (FS_LONG*)p, p += n * sizeof(FS_LONG);
    el->ooy = (FS_LONG*)p, p += n * sizeof(FS_LONG);
    el->sp = (FS_SHORT*)p, p += contours[e] * sizeof(FS_SHORT);
    el->ep = (FS_SHORT*)p, p += contours[e] * sizeof(FS_SHORT);
    el->onCurve = p, p += n;
    el->f = p, p += n;
    p = server->workspace + (((p - server->workspace) + 7) & ~7);
    el->nc = 0;
    el->np = 0;
  }
  // The twilight zone is one contour over all its points, so that MIRP can
  // create points anywhere in it.
  fnt_ElementType* twilight = &info->interpreterElements[0];
  if (key->max_twilight > 0) {
    twilight->np = (FS_SHORT)key->max_twilight;
    twilight->nc = 1;
    twilight->sp[0] = 0;
    twilight->ep[0] = (FS_SHORT)(key->max_twilight - 1);
  }
  info->stackBaseOffset = (FS_ULONG)(p - server->workspace);
  return 0;
}

namespace {

// The 8 phantom places of a glyph in font units, behind its points.
void set_phantoms(fnt_ElementType* el, FS_LONG at, FS_LONG xMin, FS_LONG yMax,
                  const fsg_Metrics* m) {
  FS_LONG left = xMin - m->lsb;
  FS_LONG right = left + m->aw;
  FS_LONG* x = el->oox + at;
  FS_LONG* y = el->ooy + at;
  x[0] = x[4] = left;
  x[1] = right;
  x[5] = xMin;
  x[2] = x[3] = (x[0] + x[1]) / 2;
  x[6] = x[7] = (x[4] + x[5]) / 2;
  y[0] = y[1] = y[4] = y[5] = 0;
  y[2] = y[6] = m->ah;  // the vertical places come from the advance height
  y[3] = 2 * m->ah;
  y[7] = yMax;
}

// Scales points [from, from + n) from font units into ox/oy and copies them
// to x/y.
void scale_points(fsg_SplineKey* key, fnt_ElementType* el, FS_LONG from,
                  FS_LONG n) {
  for (FS_LONG i = from; i < from + n; i++) {
    el->ox[i] = el->x[i] = scale_value(&key->scaleX, el->oox[i]);
    el->oy[i] = el->y[i] = scale_value(&key->scaleY, el->ooy[i]);
  }
}

// The simple glyph `data` (its header read) into the element at its
// current end: contours, flags and coordinates as `glyf` stores them.
FS_LONG sfnt_UnfoldCurve(FS_STATE* state, fsg_SplineKey* key, FS_CURSOR* c,
                         FS_SHORT numberContours, fnt_ElementType* el,
                         FS_LONG* pointsOut, FS_ULONG* insPos,
                         FS_USHORT* insLength) {
  FS_LONG base = el->np;
  FS_LONG cbase = el->nc;
  if ((FS_LONG)numberContours > (FS_LONG)key->maxp->maxContours ||
      cbase + numberContours > key->max_contours)
    return fail(state, ERR_TOO_MANY_CONTOURS);
  FS_LONG prev = -1;
  for (FS_SHORT i = 0; i < numberContours; i++) {
    FS_LONG end = cursor_u16(c);
    if (c->overrun || end <= prev) return fail(state, ERR_BAD_GLYF_FORMAT);
    prev = end;
  }
  FS_LONG n = prev + 1;
  if (n > key->maxp->maxPoints || base + n + 8 > (FS_LONG)key->max_points + 8)
    return fail(state, ERR_TOO_MANY_POINTS);
  // Contour ends again, now that they are known to fit.
  c->pos -= 2 * (FS_ULONG)numberContours;
  for (FS_SHORT i = 0; i < numberContours; i++) {
    FS_LONG end = cursor_u16(c);
    el->sp[cbase + i] = (FS_SHORT)(i == 0 ? base : el->ep[cbase + i - 1] + 1);
    el->ep[cbase + i] = (FS_SHORT)(base + end);
  }
  *insLength = cursor_u16(c);
  *insPos = c->pos;
  cursor_skip(c, *insLength);  // the glyph's program, run once scaled

  FS_BYTE* f = el->f + base;
  for (FS_LONG i = 0; i < n && !c->overrun;) {
    FS_BYTE flag = cursor_u8(c);
    f[i++] = flag;
    if (flag & 8) {
      FS_LONG repeat = cursor_u8(c);
      if (repeat > n - i) return fail(state, ERR_BAD_GLYF_FORMAT);
      while (repeat-- > 0) f[i++] = flag;
    }
  }
  if (c->overrun) return fail(state, ERR_BAD_GLYF_FORMAT);
  FS_LONG v = 0;
  for (FS_LONG i = 0; i < n; i++) {
    FS_BYTE flag = f[i];
    if (flag & 2) {
      FS_LONG d = cursor_u8(c);
      v += (flag & 16) ? d : -d;
    } else if (!(flag & 16)) {
      v += cursor_s16(c);
    }
    el->oox[base + i] = v;
  }
  v = 0;
  for (FS_LONG i = 0; i < n; i++) {
    FS_BYTE flag = f[i];
    if (flag & 4) {
      FS_LONG d = cursor_u8(c);
      v += (flag & 32) ? d : -d;
    } else if (!(flag & 32)) {
      v += cursor_s16(c);
    }
    el->ooy[base + i] = v;
  }
  if (c->overrun) return fail(state, ERR_BAD_GLYF_FORMAT);
  for (FS_LONG i = 0; i < n; i++) {
    el->onCurve[base + i] = f[i] & 1;
    f[i] = 0;  // from here on the interpreter's touch flags
  }
  el->nc = (FS_SHORT)(cbase + numberContours);
  *pointsOut = n;
  return 0;
}

// x' = xx x + xy y, y' = yx x + yy y on points [from, to), in 16.16.
void transform_points(fnt_ElementType* el, FS_LONG from, FS_LONG to,
                      const fsg_Component* t) {
  for (FS_LONG i = from; i < to; i++) {
    F26DOT6 x = el->x[i], y = el->y[i];
    el->x[i] = el->ox[i] = fix_mul(x, t->xx) + fix_mul(y, t->xy);
    el->y[i] = el->oy[i] = fix_mul(x, t->yx) + fix_mul(y, t->yy);
  }
}

// A glyph's header. `ttf`: at least 10 bytes, the count and the box. The
// compact formats: a first bit of 1 is a composite, whose component count
// (`high`) takes `numBits_GLYF` bits and whose records follow bit-packed; a
// 0 bit is the top of a simple glyph's contour count, which stands with the
// rest of the glyph as in `glyf` but without the box (read as zeros).
struct CharData {
  FS_SHORT numberContours;
  FS_LONG xMin, yMax;
  FS_ULONG pos;  // bytes read
  bool compact, ddd, version8;
  BITIO bio;     // a compact composite's records
  FS_ULONG high; // components left
  FS_ULONG numBits_SF;
};

FS_LONG get_charData(fsg_SplineKey* key, const FS_BYTE* data, FS_ULONG length,
                     CharData* cd) {
  memset(cd, 0, sizeof *cd);
  cd->compact = compact_format(key);
  if (!cd->compact) {
    if (length < 10) return ERR_BAD_GLYF_FORMAT;
    cd->numberContours = get_s16(data);
    cd->xMin = get_s16(data + 2);
    cd->yMax = get_s16(data + 8);
    cd->pos = 10;
    return 0;
  }
  const CCC_INFO& ci = key_ttf(key)->ccc_info;
  cd->ddd = ddd_format(key);
  cd->version8 = ci.cccVersion8 != 0;
  cd->numBits_SF = bit_width(ci.numBits_SF);
  if (length < 2) return ERR_BAD_GLYF_FORMAT;
  QSX_BITIO_Create(&cd->bio, data, length);
  if (QSX_BITIO_ReadValue(&cd->bio, 1) == 0) {
    cd->numberContours = get_s16(data);
    cd->pos = 2;
    return 0;
  }
  cd->numberContours = -1;
  cd->high = QSX_BITIO_ReadValue(&cd->bio, (FS_LONG)bit_width((FS_LONG)ci.numBits_GLYF));
  return 0;
}

// One bit-packed component of a compact composite: args as words or bytes
// (always offsets), the grid rounding bit (`ccc`), the scale's kind (0 x and
// y, 10 none, 110 one, 111 two by two), the glyph index (16 bits, or for
// `ddd` as many as numGlyphs needs), the arguments, the scales of
// `numBits_SF` bits as the top of a 2.14 value, and for `ccc` version 8 the
// use-my-metrics bit. The composite's instruction bit and code follow the
// last component; the interpreter will read them there.
FS_LONG read_comp_parms_ccc(CharData* cd, fsg_SplineKey* key,
                            fsg_Component* comp) {
  BITIO* b = &cd->bio;
  memset(comp, 0, sizeof *comp);
  FS_USHORT flags = ARGS_ARE_XY_VALUES;
  if (QSX_BITIO_ReadValue(b, 1)) flags |= ARG_1_AND_2_ARE_WORDS;
  if (!cd->ddd && QSX_BITIO_ReadValue(b, 1)) flags |= ROUND_XY_TO_GRID;
  if (QSX_BITIO_ReadValue(b, 1) == 0)
    flags |= WE_HAVE_AN_X_AND_Y_SCALE;
  else if (QSX_BITIO_ReadValue(b, 1))
    flags |= QSX_BITIO_ReadValue(b, 1) ? WE_HAVE_A_TWO_BY_TWO : WE_HAVE_A_SCALE;
  if (cd->high > 0) cd->high--;
  if (cd->high != 0) flags |= MORE_COMPONENTS;
  FS_USHORT numGlyphs = key->maxp->numGlyphs;
  comp->index = (FS_USHORT)QSX_BITIO_ReadValue(
      b, cd->ddd ? (FS_LONG)numBitsNeeded(numGlyphs) : 16);
  if (flags & ARG_1_AND_2_ARE_WORDS) {
    comp->arg1 = (FS_SHORT)QSX_BITIO_ReadValue(b, 16);
    comp->arg2 = (FS_SHORT)QSX_BITIO_ReadValue(b, 16);
  } else {
    comp->arg1 = (FS_TINY)QSX_BITIO_ReadValue(b, 8);
    comp->arg2 = (FS_TINY)QSX_BITIO_ReadValue(b, 8);
  }
  FS_ULONG nb = cd->numBits_SF ? cd->numBits_SF : 16;
  if (nb > 16) nb = 16;
  auto scale = [&]() -> FS_FIXED {
    FS_SHORT v = (FS_SHORT)(FS_USHORT)(QSX_BITIO_ReadValue(b, (FS_LONG)nb) << (16 - nb));
    return (FS_FIXED)v * 4;
  };
  comp->xx = comp->yy = FIXED_ONE;
  if (flags & WE_HAVE_A_SCALE) {
    comp->xx = comp->yy = scale();
  } else if (flags & WE_HAVE_AN_X_AND_Y_SCALE) {
    comp->xx = scale();
    comp->yy = scale();
  } else if (flags & WE_HAVE_A_TWO_BY_TWO) {
    comp->xx = scale();
    comp->yx = scale();
    comp->xy = scale();
    comp->yy = scale();
  }
  if (!cd->ddd && cd->version8 && QSX_BITIO_ReadValue(b, 1))
    flags |= USE_MY_METRICS;
  comp->flags = flags;
  if (b->pos > (FS_UINT64)b->size * 8) return ERR_BAD_GLYF_FORMAT;
  if (comp->index >= numGlyphs) return ERR_BAD_GLYF_INDEX;
  return 0;
}

FS_LONG run_glyph_program(FS_STATE* state, fsg_SplineKey* key,
                          const FS_BYTE* pgm, FS_ULONG length, FS_BOOLEAN composite);

// The autohinter's program: push 11, AA.
const FS_BYTE kAutohintProgram[3] = {0xB0, 0x0B, 0x7F};

// Hints the glyph loaded last: points [base, np) of the glyph element, its
// contours from `cbase`, and the 8 phantom places behind. The interpreter
// sees them as a glyph of its own, numbered from 0. Before the program the
// left phantom place's x is rounded to the grid, and under a vanilla scale
// the right one's too. A composite's program takes the joined points'
// current places as its original outline, at a scale of 1. Returns 0 or
// 416; the element is as before but for the moved points.
FS_LONG do_hints(FS_STATE* state, fsg_SplineKey* key, FS_LONG base,
                 FS_LONG cbase, const FS_BYTE* pgm, FS_ULONG length,
                 FS_BOOLEAN composite) {
  fnt_ElementType* el = fsg_glyph_element(key);
  FS_LONG np = el->np - base, nc = el->nc - cbase;
  F26DOT6* x = el->x + base;
  memset(el->f + base, 0, (size_t)np + 8);
  if (composite) {
    for (FS_LONG i = 0; i < np + 8; i++) {
      el->ox[base + i] = el->oox[base + i] = x[i];
      el->oy[base + i] = el->ooy[base + i] = el->y[base + i];
    }
  }
  x[np] = (x[np] + 32) & -64;
  SENV* senv = key->sfnt->senv;
  if (senv != nullptr && senv->vanilla) x[np + 1] = (x[np + 1] + 32) & -64;
  state->any_hints |= 1;
  if (length == 0) return 0;
  if (pgm != kAutohintProgram) key->programs_run++;
  fnt_ElementType saved = *el;
  el->x += base, el->y += base, el->ox += base, el->oy += base;
  el->oox += base, el->ooy += base, el->onCurve += base, el->f += base;
  el->sp += cbase, el->ep += cbase;
  el->np = (FS_SHORT)np;
  el->nc = (FS_SHORT)nc;
  for (FS_LONG c = 0; c < nc; c++) el->sp[c] -= (FS_SHORT)base, el->ep[c] -= (FS_SHORT)base;
  FS_LONG err = run_glyph_program(state, key, pgm, length, composite);
  for (FS_LONG c = 0; c < nc; c++) el->sp[c] += (FS_SHORT)base, el->ep[c] += (FS_SHORT)base;
  *el = saved;
  return err;
}

// Whether the autohinter may take a hinted glyph at all: gray output, a
// font not drawn by strokes and not found unsuitable.
bool autohint_allowed(FS_STATE* state, fsg_SplineKey* key) {
  return (state->flags & FLAGS_GRAYSCALE) &&
         !(key->sfnt->lfnt->fontflags & FONTFLAG_STROKE) &&
         key->sfnt->rtgah_suitable != 0;
}

// Whether the client forces the autohinter on this hinted glyph.
bool forced_autohint(FS_STATE* state, fsg_SplineKey* key) {
  return (state->flags & FLAGS_FORCE_AUTOHINT) && autohint_allowed(state, key);
}

// Whether the autohinter takes a top glyph that carries no program of its
// own (nor, for a composite, in any component): automatic autohinting not
// switched off, and no alignment-zone hinter chosen.
bool automatic_autohint(FS_STATE* state, fsg_SplineKey* key) {
  return !(state->flags & FLAGS_NO_AUTOHINT) &&
         key->globalGS.maz_data.gridFitType == 0 && autohint_allowed(state, key);
}

// The autohinter over the glyph loaded last, told its script first.
FS_LONG run_autohinter(FS_STATE* state, fsg_SplineKey* key, FS_LONG base,
                       FS_LONG cbase, FS_BOOLEAN composite) {
  FS_ULONG unicode;
  key->rtgah.script = (FS_SHORT)which_script(state, key->sfnt->lfnt, key->glyphIndex, &unicode);
  key->rtgah.unicode = (FS_USHORT)unicode;
  state->any_hints |= 16;
  return do_hints(state, key, base, cbase, kAutohintProgram, 3, composite);
}

// Loads glyph `index` at the end of the glyph element: its points, then its
// 8 phantom places (not counted in np). `level` is the nesting depth.
// `forced` tells the components of a forced top glyph to load without
// their programs.
FS_LONG get_comp(FS_STATE* state, fsg_SplineKey* key, FS_ULONG index,
                 int level, FS_BOOLEAN useHints, FS_BOOLEAN forced = 0) {
  TTF* ttf = key_ttf(key);
  fnt_ElementType* el = fsg_glyph_element(key);
  if (index >= key->maxp->numGlyphs) return fail(state, ERR_BAD_GLYF_INDEX);
  // Forced autohinting: the top glyph runs the autohinter's program in
  // place of its own, its components none.
  bool autohint = useHints && level == 0 && forced_autohint(state, key);
  if (level == 0) forced = autohint;

  FS_ULONG offset = 0, length = 0;
  FS_LONG err = get_glyph_parms(state, key, index, &offset, &length);
  if (err) return err;
  fsg_Metrics m;
  err = get_glyph_metrics(state, key, index, &m);
  if (err) return err;

  FS_LONG base = el->np;
  if (base + 8 > (FS_LONG)key->max_points + 8) return fail(state, ERR_TOO_MANY_POINTS);
  if (length == 0) {
    set_phantoms(el, base, 0, 0, &m);
    scale_points(key, el, base, 8);
    return 0;
  }
  // A compressed font's glyph may come back converted, with its new length.
  FS_LONG got = 0;
  FS_BYTE* data = (FS_BYTE*)ttf_read_ex(state, ttf, offset, length, &got);
  if (data == nullptr) return state->error ? (FS_LONG)state->error : (FS_LONG)ERR_MALLOC_FAIL;
  length = (FS_ULONG)got;
  CharData cd;
  err = get_charData(key, data, length, &cd);
  if (err) {
    FSS_free(state, data);
    return fail(state, err);
  }
  FS_SHORT numberContours = cd.numberContours;
  FS_LONG xMin = cd.xMin, yMax = cd.yMax;
  FS_CURSOR c = cursor_at(data, length, cd.pos);

  if (numberContours >= 0) {
    FS_LONG n = 0;
    FS_LONG cbase = el->nc;
    FS_ULONG insPos = 0;
    FS_USHORT insLength = 0;
    if (numberContours > 0) {
      err = sfnt_UnfoldCurve(state, key, &c, numberContours, el, &n, &insPos,
                             &insLength);
    } else {  // no contours, perhaps a program over the phantom places
      insLength = cursor_u16(&c);
      insPos = c.pos;
      if (c.overrun || insLength > length - insPos) insLength = 0;
    }
    if (err == 0) {
      set_phantoms(el, base + n, xMin, yMax, &m);
      scale_points(key, el, base, n + 8);
      el->np = (FS_SHORT)(base + n);
      key->num_points = (FS_USHORT)el->np;
      key->num_contours = (FS_USHORT)el->nc;
      if (useHints && forced) {
        err = level == 0 ? run_autohinter(state, key, base, cbase, 0)
                         : do_hints(state, key, base, cbase, kAutohintProgram, 0, 0);
      } else if (useHints && level == 0 && insLength == 0 &&
                 automatic_autohint(state, key)) {
        err = run_autohinter(state, key, base, cbase, 0);
      } else if (useHints) {
        err = do_hints(state, key, base, cbase, data + insPos, insLength, 0);
      }
    }
    FSS_free(state, data);
    return err;
  }
  if (numberContours != -1) {
    FSS_free(state, data);
    return fail(state, ERR_BAD_GLYF_FORMAT);
  }

  // Composite: its own phantom places first, kept aside while the
  // components fill the element.
  F26DOT6 phx[8], phy[8];
  FS_LONG cbase = el->nc;
  FS_USHORT lastFlags = 0;
  set_phantoms(el, base, xMin, yMax, &m);
  scale_points(key, el, base, 8);
  for (int i = 0; i < 8; i++) phx[i] = el->x[base + i], phy[i] = el->y[base + i];

  FS_ULONG pos = cd.pos;
  fsg_Component comp;
  do {
    if (cd.compact)
      err = read_comp_parms_ccc(&cd, key, &comp);
    else
      err = read_comp_parms_ttf(data, length, &pos, key->maxp->numGlyphs, &comp);
    if (err) break;
    key->num_comps++;
    lastFlags = comp.flags;
    if (level + 1 > FSG_MAX_COMPONENT_LEVEL) {
      err = ERR_BAD_GLYF_FORMAT;
      break;
    }
    if (comp.index == key->glyphIndex) continue;  // the top glyph in itself
    FS_LONG compStart = el->np;
    err = get_comp(state, key, comp.index, level + 1, useHints, forced);
    if (err) break;
    FS_LONG compEnd = el->np;
    if (comp.flags & USE_MY_METRICS) {
      for (int i = 0; i < 8; i++)
        phx[i] = el->x[compEnd + i], phy[i] = el->y[compEnd + i];
      key->useMyMetrics = 1;
    }
    if (comp.flags &
        (WE_HAVE_A_SCALE | WE_HAVE_AN_X_AND_Y_SCALE | WE_HAVE_A_TWO_BY_TWO))
      transform_points(el, compStart, compEnd, &comp);
    F26DOT6 dx, dy;
    if (comp.flags & ARGS_ARE_XY_VALUES) {
      dx = scale_value(&key->scaleX, comp.arg1);
      dy = scale_value(&key->scaleY, comp.arg2);
      if (useHints && (comp.flags & ROUND_XY_TO_GRID)) {
        dx = (dx + 32) & -64;
        dy = (dy + 32) & -64;
      }
    } else {
      // Anchor points: the component's point arg2 lands on the
      // composite's point arg1.
      FS_LONG k = base + comp.arg1, l = compStart + comp.arg2;
      if (k >= compStart || l >= compEnd) {
        err = ERR_BAD_GLYF_FORMAT;
        break;
      }
      dx = el->x[k] - el->x[l];
      dy = el->y[k] - el->y[l];
    }
    for (FS_LONG i = compStart; i < compEnd; i++) {
      el->x[i] = el->ox[i] = el->x[i] + dx;
      el->y[i] = el->oy[i] = el->y[i] + dy;
    }
  } while (comp.flags & MORE_COMPONENTS);
  if (err) {
    FSS_free(state, data);
    return fail(state, err);
  }
  for (int i = 0; i < 8; i++) {
    el->x[el->np + i] = el->ox[el->np + i] = phx[i];
    el->y[el->np + i] = el->oy[el->np + i] = phy[i];
  }
  key->num_points = (FS_USHORT)el->np;
  key->num_contours = (FS_USHORT)el->nc;
  // WE_HAVE_INSTRUCTIONS: the composite's own program follows the last
  // component, a 2-byte length and the bytes, and runs over the joined
  // points.
  if (useHints && forced && level == 0) {
    err = run_autohinter(state, key, base, cbase, 1);
  } else if (useHints && level == 0 && !(lastFlags & WE_HAVE_INSTRUCTIONS) &&
             key->programs_run == 0 && automatic_autohint(state, key)) {
    err = run_autohinter(state, key, base, cbase, 1);
  } else if (useHints && !forced && (lastFlags & WE_HAVE_INSTRUCTIONS)) {
    FS_CURSOR ic = cursor_at(data, length, pos);
    FS_USHORT insLength = cursor_u16(&ic);
    if (ic.overrun || (FS_ULONG)insLength > length - ic.pos) {
      FSS_free(state, data);
      return fail(state, ERR_BAD_GLYF_FORMAT);
    }
    err = do_hints(state, key, base, cbase, data + ic.pos, insLength, 1);
  }
  FSS_free(state, data);
  return err;
}

}  // namespace

FS_LONG read_comp_parms_ttf(const FS_BYTE* data, FS_ULONG length,
                            FS_ULONG* pos, FS_USHORT numGlyphs,
                            fsg_Component* comp) {
  FS_CURSOR c = cursor_at(data, length, *pos);
  memset(comp, 0, sizeof *comp);
  comp->flags = cursor_u16(&c);
  comp->index = cursor_u16(&c);
  if (comp->flags & ARG_1_AND_2_ARE_WORDS) {
    FS_USHORT a = cursor_u16(&c), b = cursor_u16(&c);
    comp->arg1 = (comp->flags & ARGS_ARE_XY_VALUES) ? (FS_SHORT)a : a;
    comp->arg2 = (comp->flags & ARGS_ARE_XY_VALUES) ? (FS_SHORT)b : b;
  } else {
    FS_BYTE a = cursor_u8(&c), b = cursor_u8(&c);
    comp->arg1 = (comp->flags & ARGS_ARE_XY_VALUES) ? (FS_TINY)a : a;
    comp->arg2 = (comp->flags & ARGS_ARE_XY_VALUES) ? (FS_TINY)b : b;
  }
  comp->xx = comp->yy = FIXED_ONE;
  // Scales are 2.14 in the file, times 4 into 16.16.
  if (comp->flags & WE_HAVE_A_SCALE) {
    comp->xx = comp->yy = (FS_FIXED)cursor_s16(&c) * 4;
  } else if (comp->flags & WE_HAVE_AN_X_AND_Y_SCALE) {
    comp->xx = (FS_FIXED)cursor_s16(&c) * 4;
    comp->yy = (FS_FIXED)cursor_s16(&c) * 4;
  } else if (comp->flags & WE_HAVE_A_TWO_BY_TWO) {
    comp->xx = (FS_FIXED)cursor_s16(&c) * 4;
    comp->yx = (FS_FIXED)cursor_s16(&c) * 4;
    comp->xy = (FS_FIXED)cursor_s16(&c) * 4;
    comp->yy = (FS_FIXED)cursor_s16(&c) * 4;
  }
  *pos = c.pos;
  if (c.overrun) return ERR_BAD_GLYF_FORMAT;
  if (comp->index >= numGlyphs) return ERR_BAD_GLYF_INDEX;
  return 0;
}

FS_LONG get_glyph_parms(FS_STATE* state, fsg_SplineKey* key, FS_ULONG index,
                        FS_ULONG* offset, FS_ULONG* length) {
  *offset = 0;
  *length = 0;
  TTF* ttf = key_ttf(key);
  if (ttf == nullptr) return fail(state, ERR_FONT_NOT_LOADED);
  if (index >= key->maxp->numGlyphs) return fail(state, ERR_BAD_GLYF_INDEX);
  const FS_BYTE* loca = (const FS_BYTE*)ttf->loca;
  if (loca == nullptr) return 0;
  FS_ULONG a, b;
  if (compact_format(key)) {
    // A bit array of `numBits_LOCA`-wide offsets.
    FS_ULONG w = bit_width(ttf->ccc_info.numBits_LOCA);
    if ((FS_UINT64)(index + 2) * w > (FS_UINT64)key->loca_length * 8) return 0;
    BITIO bits;
    QSX_BITIO_Create(&bits, loca, key->loca_length);
    bits.pos = (FS_UINT64)index * w;
    a = QSX_BITIO_ReadValue(&bits, (FS_LONG)w);
    b = QSX_BITIO_ReadValue(&bits, (FS_LONG)w);
  } else if (ttf->head->indexToLocFormat == 0) {
    if ((index + 2) * 2 > key->loca_length) return 0;
    a = (FS_ULONG)get_u16(loca + index * 2) * 2;
    b = (FS_ULONG)get_u16(loca + index * 2 + 2) * 2;
  } else {
    if ((index + 2) * 4 > key->loca_length) return 0;
    a = get_u32(loca + index * 4);
    b = get_u32(loca + index * 4 + 4);
  }
  if (b <= a || b > ttf->glyf_size) return 0;  // out of order or past `glyf`
  *offset = ttf->glyf_offset + a;
  *length = b - a;
  return 0;
}

namespace {

// One axis of `hmtx`/`vmtx` as published: the advance and side bearing of
// `index`, beyond `nlong` the last advance and the trailing bearings.
void plain_metrics(FS_STATE* state, TTF* ttf, FS_ULONG table, FS_ULONG length,
                   FS_ULONG nlong, FS_ULONG index, FS_LONG* adv,
                   FS_LONG* bearing) {
  FS_BYTE b[4];
  if (index < nlong) {
    read_table_bytes(state, ttf, table, length, 4 * index, 4, b);
    *adv = get_u16(b);
    *bearing = get_s16(b + 2);
  } else {
    read_table_bytes(state, ttf, table, length, 4 * (nlong - 1), 2, b);
    *adv = get_u16(b);
    read_table_bytes(state, ttf, table, length, 4 * nlong + 2 * (index - nlong),
                     2, b);
    *bearing = get_s16(b);
  }
}

// One axis of a packed `ccc` table from `skip` bytes on: long entries of an
// advance and a bearing field, then the trailing bearings bit for bit.
void ccc_metrics(FS_STATE* state, TTF* ttf, FS_ULONG table, FS_ULONG length,
                 FS_ULONG skip, FS_ULONG nlong, FS_ULONG index, FS_ULONG bAdv,
                 FS_LONG minAdv, FS_ULONG bSide, FS_LONG minSide, FS_LONG* adv,
                 FS_LONG* bearing) {
  FS_ULONG packed = length > skip ? length - skip : 0;
  FS_UINT64 entry = bAdv + bSide;
  FS_ULONG last = index < nlong ? index : nlong - 1;
  // Metrics are 16-bit quantities: an advance unsigned, a bearing signed.
  *adv = (FS_USHORT)(read_table_bits(state, ttf, table + skip, packed,
                                     last * entry, bAdv) + (FS_ULONG)minAdv);
  FS_UINT64 side = index < nlong ? index * entry + bAdv
                                 : nlong * entry + (index - nlong) * bSide;
  *bearing = (FS_SHORT)(FS_USHORT)(
      read_table_bits(state, ttf, table + skip, packed, side, bSide) +
      (FS_ULONG)minSide);
}

// A `ddd` advance: a `bits`-wide index per glyph, from `count` bytes on,
// picks a byte of the advance table at `table` + 2; 255 means 256.
FS_LONG ddd_advance(FS_STATE* state, TTF* ttf, FS_ULONG table, FS_ULONG length,
                    FS_ULONG count, FS_ULONG bits, FS_ULONG nlong,
                    FS_ULONG index) {
  FS_ULONG skip = 2 + count;
  FS_ULONG packed = length > skip ? length - skip : 0;
  FS_ULONG i = index < nlong ? index : nlong - 1;
  FS_ULONG pick = read_table_bits(state, ttf, table + skip, packed,
                                  (FS_UINT64)i * bits, bits);
  if (pick >= count) return 0;
  FS_BYTE b[1];
  read_table_bytes(state, ttf, table, length, 2 + pick, 1, b);
  return b[0] == 255 ? 256 : b[0];
}

}  // namespace

FS_LONG get_glyph_metrics(FS_STATE* state, fsg_SplineKey* key, FS_ULONG index,
                          fsg_Metrics* m) {
  memset(m, 0, sizeof *m);
  TTF* ttf = key_ttf(key);
  if (ttf == nullptr) return fail(state, ERR_FONT_NOT_LOADED);
  const CCC_INFO& ci = ttf->ccc_info;
  bool ccc = compact_format(key) && !ddd_format(key);
  bool ddd = compact_format(key) && ddd_format(key);
  bool v78 = ci.cccVersion7 || ci.cccVersion8;
  FS_ULONG nlong = key->numberOf_LongHorMetrics;
  FS_LONG lsb = 0, aw = 0;
  if (nlong > 0) {
    if (ddd)
      aw = ddd_advance(state, ttf, ttf->hmtx_offset, key->hmtx_length,
                       (FS_USHORT)ci.minVal_LSB, bit_width(ci.numBits_AW),
                       nlong, index);
    else if (ccc)
      ccc_metrics(state, ttf, ttf->hmtx_offset, key->hmtx_length, v78 ? 8 : 4,
                  nlong, index, v78 ? bit_width(ci.numBits_AW) : 16,
                  v78 ? ci.minVal_AW : 0, bit_width(ci.numBits_LSB),
                  ci.minVal_LSB, &aw, &lsb);
    else
      plain_metrics(state, ttf, ttf->hmtx_offset, key->hmtx_length, nlong,
                    index, &aw, &lsb);
  }
  m->aw = aw;
  m->lsb = lsb;
  FS_ULONG nvlong = ttf->vhea ? ttf->vhea->numOfLongVerMetrics : 0;
  FS_LONG ah = 0, tsb = 0;
  if (ttf->vmtx_offset != 0 && nvlong > 0) {
    if (ddd)  // the advance table of `hmtx`, deliberately
      ah = ddd_advance(state, ttf, ttf->hmtx_offset, key->hmtx_length,
                       (FS_USHORT)ci.minVal_TSB, bit_width(ci.numBits_AH),
                       nvlong, index);
    else if (ccc && v78)
      ccc_metrics(state, ttf, ttf->vmtx_offset, key->vmtx_length, 8, nvlong,
                  index, bit_width(ci.numBits_AH), ci.minVal_AH,
                  bit_width(ci.numBits_TSB), ci.minVal_TSB, &ah, &tsb);
    else
      plain_metrics(state, ttf, ttf->vmtx_offset, key->vmtx_length, nvlong,
                    index, &ah, &tsb);
    m->ah = ah;
    m->tsb = tsb;
  } else {
    FS_LONG asc, desc;
    if (ttf->os2 != nullptr) {
      asc = ttf->os2->sTypoAscender;
      desc = ttf->os2->sTypoDescender;
    } else {
      asc = ttf->hhea ? ttf->hhea->yAscender : 0;
      desc = ttf->hhea ? ttf->hhea->yDescender : 0;
    }
    m->ah = asc - desc;
    m->tsb = ttf->head->yMax - asc;
  }
  return 0;
}

FS_LONG get_glyph_advance(FS_STATE* state, fsg_SplineKey* key, FS_ULONG index,
                          FS_FIXED* dx, FS_FIXED* dy, FS_SHORT* i_dx,
                          FS_SHORT* i_dy) {
  *dx = *dy = 0;
  *i_dx = *i_dy = 0;
  if (index >= key->maxp->numGlyphs) return fail(state, ERR_BAD_GLYF_INDEX);
  fsg_Metrics m;
  FS_LONG err = get_glyph_metrics(state, key, index, &m);
  if (err) return err;
  const FS_FIXED* s = key->user_scale;  // s00, s01, s10, s11
  FS_LONG em = key->emResolution;
  if (state->flags & FLAGS_VERTICAL_ON) {
    // Down the page: the y column of the scale, negated.
    *dx = -muldiv_64(m.ah, s[1], em);
    *dy = -muldiv_64(m.ah, s[3], em);
  } else {
    *dx = muldiv_64(m.aw, s[0], em);
    *dy = muldiv_64(m.aw, s[2], em);
  }
  if (s[1] == 0 && s[2] == 0) {
    *i_dx = (FS_SHORT)((*dx + 0x8000) >> 16);
    *i_dy = (FS_SHORT)((*dy + 0x8000) >> 16);
  }
  state->error = SUCCESS;
  return 0;
}

namespace {

// Points the interpreter's state at the key's stack, storage, control
// values, definitions and programs, which move with the workspace and the
// font's data, and copies the key's scaling into it.
void set_up_global_gs(FS_STATE* state, fsg_SplineKey* key, TTF* ttf) {
  fnt_GlobalGraphicStateType* g = &key->globalGS;
  TTF_MAXP* maxp = key->maxp;
  g->maxp = maxp;
  g->sfnt = key->sfnt;
  g->stackBase =
      (FS_LONG*)(state->server->workspace + key->elementInfoRec.stackBaseOffset);
  g->stackSize = (FS_LONG)maxp->maxStackElements + FNT_STACK_SLACK;
  g->controlValueTable =
      (F26DOT6*)(key->memoryBases[3] + key->offset_controlValues);
  g->cvtCount = key->cvtCount;
  g->store = (FS_LONG*)(key->memoryBases[3] + key->offset_storage);
  g->storeCount = maxp->maxStorage;
  g->funcDef = ttf->functionDefs;
  g->funcDefCount = ttf->functionDefs ? maxp->maxFunctionDefs : 0;
  g->instrDef = ttf->instructionDefs;
  g->instrDefMax = ttf->instructionDefs ? maxp->maxInstructionDefs : 0;
  g->pgmList[PREPROGRAM] = ttf->prep;
  g->pgmLength[PREPROGRAM] = ttf->prep ? ttf->num_prep : 0;
  g->pgmList[FONTPROGRAM] = ttf->fpgm;
  g->pgmLength[FONTPROGRAM] = ttf->fpgm ? ttf->num_fpgm : 0;
  g->fpem = key->interpScalar;
  g->pixelsPerEm = (FS_USHORT)((key->interpScalar + 0x8000) >> 16);
  g->pointSize = g->pixelsPerEm;  // 72 dots per inch: a point is a pixel
  g->metricScalarX = key->metricScalarX;
  g->interpScalarX = key->interpScalarX;
  g->scaleX = key->scaleX;
  g->metricScalarY = key->metricScalarY;
  g->interpScalarY = key->interpScalarY;
  g->scaleY = key->scaleY;
  g->scaleCVT = key->scaleCVT;
  g->cvtStretchX = g->xStretch = key->cvtStretchX;
  g->cvtStretchY = g->yStretch = key->cvtStretchY;
  g->identityTransformation = key->identityTransformation;
  g->stateflags = state->flags;
  g->fontflags = key->sfnt->lfnt->fontflags;
  // The autohinter's copies; its script and character are the glyph's,
  // set by the fetch.
  RTGAH_DATA* r = &key->rtgah;
  rtgah_data_init(r);
  g->rtgah_data = r;
  r->stateflags = state->flags;
  r->fontflags = key->sfnt->lfnt->fontflags;
  r->fnt_type = key->sfnt->lfnt->fnt_type;
  r->rtgah_suitable = key->sfnt->rtgah_suitable;
  FS_FIXED(*m)[3] = key->currentTMatrix;
  g->non90DegreeTransformation =
      (FS_BYTE)(((m[0][1] != 0 || m[1][0] != 0) ? 1 : 0) |
                (key->interpScalarX != key->interpScalarY ? 2 : 0));
}

// Runs `length` bytes at `pgm` as program `pgmIndex` (init while the
// control-value program runs): 0, or 416 when it panics.
FS_LONG run_program(FS_STATE* state, fsg_SplineKey* key, const FS_BYTE* pgm,
                    FS_LONG length, FS_SHORT pgmIndex, FS_BOOLEAN init,
                    FS_BOOLEAN glyphProgram) {
  fnt_GlobalGraphicStateType* g = &key->globalGS;
  g->pgmIndex = pgmIndex;
  g->init = init;
  g->glyphProgram = glyphProgram;
  FS_LONG err = 0;
  if (pgm != nullptr && length > 0)
    err = fnt_Execute(key->elementInfoRec.interpreterElements, pgm,
                      pgm + length, g);
  g->init = 0;
  g->glyphProgram = 0;
  return err ? fail(state, ERR_ILLEGAL_INSTRUCTION) : 0;
}

}  // namespace

void fsg_SetDefaults(fsg_SplineKey* key) {
  fnt_GlobalGraphicStateType* g = &key->globalGS;
  fnt_SetDefaultParBlock(&g->defaultParBlock);
  g->localParBlock = g->defaultParBlock;
  memset(g->engine, 0, sizeof g->engine);
  g->instrDefCount = 0;
}

FS_LONG fsg_RunFontProgram(FS_STATE* state, fsg_SplineKey* key) {
  TTF* ttf = key_ttf(key);
  if (ttf == nullptr) return fail(state, ERR_FONT_NOT_LOADED);
  FS_LONG err = fs_SetUpKey(state, key);
  if (err) return err;
  set_up_global_gs(state, key, ttf);
  fnt_GlobalGraphicStateType* g = &key->globalGS;
  // Definitions start empty: a call of a number never defined runs nothing.
  if (g->funcDef) memset(g->funcDef, 0, (size_t)g->funcDefCount * sizeof(fnt_funcDef));
  if (g->instrDef) memset(g->instrDef, 0, (size_t)g->instrDefMax * sizeof(fnt_instrDef));
  g->instrDefCount = 0;
  g->udFuncType = get_UD_functions();
  return run_program(state, key, ttf->fpgm, g->pgmLength[FONTPROGRAM],
                     FONTPROGRAM, 1, 0);
}

FS_LONG fsg_RunPreProgram(FS_STATE* state, fsg_SplineKey* key) {
  TTF* ttf = key_ttf(key);
  if (ttf == nullptr) return fail(state, ERR_FONT_NOT_LOADED);
  fnt_GlobalGraphicStateType* g = &key->globalGS;
  memset(g->engine, 0, sizeof g->engine);
  g->engine[1] = (93194 - key->pixelDiameter) >> 10;
  fnt_SetDefaultParBlock(&g->localParBlock);
  if (ttf->isFlintTablePresent) return 0;  // neither CVT scaling nor `prep`
  F26DOT6* cvt = (F26DOT6*)(key->memoryBases[3] + key->offset_controlValues);
  const FS_BYTE* raw = (const FS_BYTE*)ttf->cvt;
  for (FS_LONG i = 0; i < key->cvtCount && raw != nullptr; i++)
    cvt[i] = scale_value(&key->scaleCVT, get_s16(raw + 2 * i));
  FS_LONG err = fs_SetUpKey(state, key);
  if (err) return err;
  fnt_ElementType* twilight = &key->elementInfoRec.interpreterElements[0];
  FS_ULONG n = (FS_ULONG)key->max_twilight + 8;
  memset(twilight->x, 0, n * sizeof(F26DOT6));
  memset(twilight->y, 0, n * sizeof(F26DOT6));
  memset(twilight->ox, 0, n * sizeof(F26DOT6));
  memset(twilight->oy, 0, n * sizeof(F26DOT6));
  memset(twilight->f, 0, n);
  memset(twilight->onCurve, 0, n);
  set_up_global_gs(state, key, ttf);
  // A panic leaves the workspace to no scaled font.
  state->server->workspace_sfnt = nullptr;
  err = run_program(state, key, ttf->prep, g->pgmLength[PREPROGRAM],
                    PREPROGRAM, 1, 0);
  if (err) return err;
  // The program's graphic state is the glyphs' default unless it asked for
  // the published one (INSTCTRL bit 1); its other bits hold either way.
  if (g->localParBlock.instructControl & 2) {
    FS_LONG control = g->localParBlock.instructControl;
    fnt_SetDefaultParBlock(&g->defaultParBlock);
    g->defaultParBlock.instructControl = control;
  } else {
    g->defaultParBlock = g->localParBlock;
  }
  key->scanControl = (FS_ULONG)g->defaultParBlock.scanControl;
  key->executePrePgm = 0;
  state->server->workspace_sfnt = key->sfnt;
  return 0;
}

FS_LONG fsg_RunGlyphProgram(FS_STATE* state, fsg_SplineKey* key,
                            const FS_BYTE* pgm, FS_ULONG length,
                            FS_BOOLEAN unitScale) {
  TTF* ttf = key_ttf(key);
  if (ttf == nullptr) return fail(state, ERR_FONT_NOT_LOADED);
  set_up_global_gs(state, key, ttf);
  if (unitScale) {
    const scale_rec one = {1, 1, FIXED_ONE, 0, 0};
    key->globalGS.scaleX = key->globalGS.scaleY = one;
  }
  key->globalGS.localParBlock = key->globalGS.defaultParBlock;
  return run_program(state, key, pgm, (FS_LONG)length, PREPROGRAM, 0, 1);
}

namespace {

// A glyph's program over the glyph element as it stands (do_hints has
// made it the glyph's own), from the default graphic state; a composite's
// at a scale of 1. What it asks of the scan converter joins the glyph's
// scan control word.
FS_LONG run_glyph_program(FS_STATE* state, fsg_SplineKey* key,
                          const FS_BYTE* pgm, FS_ULONG length,
                          FS_BOOLEAN composite) {
  FS_LONG err = fsg_RunGlyphProgram(state, key, pgm, length, composite);
  update_scanControl(key, (FS_ULONG)key->globalGS.localParBlock.scanControl);
  // A font the autohinter found unsuitable stays so.
  if (key->rtgah.rtgah_suitable == 0) key->sfnt->rtgah_suitable = 0;
  return err;
}

}  // namespace

void fsg_reset_fit(FS_STATE* state, fsg_SplineKey* key) {
  state->error = SUCCESS;
  state->outl_char = 0;
  state->any_hints = 0;
  state->level = 0;
  key->scanControl = 0;  // what this glyph's program asks, merged afresh
  key->num_comps = key->num_contours = key->num_points = 0;
  key->useMyMetrics = 0;
  key->programs_run = 0;
  key->rtgah.script = 0;
  key->rtgah.unicode = 0xFFFF;
}

FS_LONG fsg_autohint_element(FS_STATE* state, fsg_SplineKey* key) {
  fnt_ElementType* el = fsg_glyph_element(key);
  FS_SHORT np = el->np;
  FS_LONG err = run_autohinter(state, key, 0, 0, 0);
  el->np = np;
  return err;
}

FS_LONG fsg_GridFit(FS_STATE* state, fsg_SplineKey* key, FS_BOOLEAN useHints) {
  fsg_reset_fit(state, key);
  TTF* ttf = key_ttf(key);
  if (ttf == nullptr) return fail(state, ERR_FONT_NOT_LOADED);
  if (ttf->cff != nullptr || ttf->loca == nullptr)
    return fail(state, ERR_FONT_TYPE_UNSUPPORTED);
  FS_LONG err = fs_SetUpKey(state, key);
  if (err) return err;
  if (state->server->workspace_sfnt != key->sfnt) {
    err = fsg_RunPreProgram(state, key);
    if (err) return err;
  }
  // Hints take part when the client allows them and the control-value
  // program did not switch them off (INSTCTRL bit 0).
  FS_BOOLEAN hints = useHints && !(state->flags & FLAGS_NO_HINTS) &&
                     !(key->globalGS.defaultParBlock.instructControl & 1);
  // What instructions record for the alignment hinter starts afresh for
  // each glyph, after the control-value program; the glyph's grid fit type
  // and alignment values ahead of it are the glyph fetch's.
  fnt_MAZData* maz = &key->globalGS.maz_data;
  memset(&maz->nXdelta, 0, sizeof *maz - offsetof(fnt_MAZData, nXdelta));
  if (hints) key->scanControl = (FS_ULONG)key->globalGS.defaultParBlock.scanControl;
  err = get_glyph_metrics(state, key, key->glyphIndex, &key->metrics);
  if (err) return err;
  err = get_comp(state, key, key->glyphIndex, 0, hints);
  if (err) return err;
  if (!key->identityTransformation) {
    fnt_ElementType* el = fsg_glyph_element(key);
    FS_FIXED(*m)[3] = key->currentTMatrix;
    for (FS_LONG i = 0; i < el->np + 8; i++) {
      F26DOT6 x = el->x[i], y = el->y[i];
      el->x[i] = fix_mul(x, m[0][0]) + fix_mul(y, m[1][0]);
      el->y[i] = fix_mul(x, m[0][1]) + fix_mul(y, m[1][1]);
    }
  }
  state->error = SUCCESS;
  return 0;
}

void update_scanControl(fsg_SplineKey* key, FS_ULONG scanControl) {
  FS_ULONG high = (key->scanControl | scanControl) & 0xFFFF0000u;
  FS_ULONG a = key->scanControl & 0xFF, b = scanControl & 0xFF;
  FS_ULONG mid = (key->scanControl | scanControl) & 0xFF00u;
  key->scanControl = high | mid | (a > b ? a : b);
}

FS_LONG get_dropout_control(fsg_SplineKey* key) {
  FS_ULONG sc = key->scanControl;
  if (sc & 0x20000) return 0;
  SFNT* sfnt = key->sfnt;
  if (sfnt == nullptr) return 0;
  FS_LONG threshold = (FS_LONG)(sc & 0xFF);
  if (threshold == 255) threshold = 32767;
  FS_LONG ppm = sfnt->senv ? sfnt->senv->yppm : (sfnt->user_scale[3] + 0x8000) >> 16;
  const FS_FIXED* s = sfnt->user_scale;
  if ((sc & 0x100) && ppm <= threshold) return 1;
  if ((sc & 0x200) && s[1] != 0 && s[2] != 0) return 1;
  if ((sc & 0x400) && s[0] != s[3]) return 1;
  return 0;
}
