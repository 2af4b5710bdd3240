// The scaler: checks and decomposes the user's scale, builds a scaled font's
// environment and key (matrix, per-axis scaling, workspace and private font
// space), and makes sure the current scaled font is ready before a glyph
// fetch. The glyph itself is read and scaled in fs_glue.
#include "Orvex_internal/fs_scale.h"

#include <stdlib.h>
#include <string.h>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glue.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const FS_FIXED kScaleLimit = 0x40000000;      // any entry or scaled corner
const FS_FIXED kLargeGlyphLimit = 0x10000000;  // sets FLAGS_LARGE_SCALE
const FS_FIXED kPixelDiameter = 92682;         // the square root of 2, 16.16
const FS_USHORT kMaxElementPoints = 32767 - 8; // room for the phantom places

FS_LONG mag(FS_LONG v) { return v < 0 ? -v : v; }

FS_LONG fix_mul(FS_LONG a, FS_LONG b) { return varmul_64(a, b, 16); }
FS_LONG fix_div(FS_LONG a, FS_LONG b) { return vardiv_64(a, b, 16); }

FS_LONG fail(FS_STATE* state, FS_LONG error) {
  state->error = (FS_ULONG)error;
  return error;
}

int trailing_zeros(FS_UINT64 v) {
  int n = 0;
  while (v != 0 && (v & 1) == 0) {
    v >>= 1;
    n++;
  }
  return n;
}

// The gasp behaviour for `ppem`: that of the first range reaching it, or
// 0xFFFF without a table or such a range.
FS_USHORT gasp_value(FS_STATE* state, TTF* ttf, LFNT* lfnt, FS_USHORT ppem) {
  if (ttf->gasp == nullptr || lfnt->fnt_type == 6) return 0xFFFF;
  FS_ULONG len = 0;
  if (!get_ttf_table_info(state, ttf, TAG_gasp, nullptr, &len)) {
    state->error = SUCCESS;
    return 0xFFFF;
  }
  FS_CURSOR c = cursor_at(ttf->gasp, len, 2);
  FS_USHORT numRanges = cursor_u16(&c);
  for (FS_USHORT i = 0; i < numRanges && !c.overrun; i++) {
    FS_USHORT maxPPEM = cursor_u16(&c);
    FS_USHORT behavior = cursor_u16(&c);
    if (c.overrun) break;
    if (maxPPEM >= ppem) return behavior;
  }
  return 0xFFFF;
}

// The sizes of the work areas a key needs: the workspace, shared by all
// keys, holds the two element records; the private font space holds the
// scaled control values and the interpreter's storage.
void work_out_sizes(fsg_SplineKey* key, TTF* ttf) {
  // Laid out as fs_SetUpKey does: each element's arrays, 8-aligned, then
  // the interpreter's stack.
  const FS_ULONG perPoint = 4 * sizeof(F26DOT6) + 2 * sizeof(FS_LONG) + 2;
  const FS_ULONG points[2] = {(FS_ULONG)key->max_twilight + 8,
                              (FS_ULONG)key->max_points + 8};
  const FS_ULONG contours[2] = {1, (FS_ULONG)key->max_contours + 1};
  FS_ULONG need = 0;
  for (int e = 0; e < 2; e++)
    need += (points[e] * perPoint + contours[e] * 2 * sizeof(FS_SHORT) + 7) & ~7u;
  need += ((FS_ULONG)key->maxp->maxStackElements + FNT_STACK_SLACK) *
          sizeof(FS_LONG);
  key->workspace_need = need;
  key->cvtCount = ttf->num_cvt;
  key->offset_controlValues = 0;
  key->offset_storage = (FS_ULONG)ttf->num_cvt * sizeof(F26DOT6);
  key->private_size =
      key->offset_storage + (FS_ULONG)key->maxp->maxStorage * sizeof(FS_LONG);
  if (key->private_size == 0) key->private_size = 8;
}

// The header and metric fields of the key.
void fs_NewSfnt(fsg_SplineKey* key, TTF* ttf) {
  key->emResolution = ttf->head->unitsPerEm;
  key->fontFlags = ttf->head->flags;
  key->numberOf_LongHorMetrics = ttf->hhea ? ttf->hhea->numberOfHMetrics : 0;
  work_out_sizes(key, ttf);
  key->state = KEY_INITIALISED | KEY_SFNT_READY;
  key->scanControl = 0;
  key->executeFontPgm = 1;
}

// Grows the server's workspace to the key's need. The workspace only grows;
// every key uses the one block.
FS_LONG grow_workspace(FS_STATE* state, fsg_SplineKey* key) {
  FS_SERVER* server = state->server;
  FS_LONG need = (FS_LONG)key->workspace_need;
  if (server->workspaceSize >= need) return 0;
  if ((FS_ULONG)need >= server->heap_size) return fail(state, ERR_MALLOC_FAIL);
  FS_ULONG freeBytes = server->heap_size > server->allocated
                           ? server->heap_size - server->allocated
                           : 0;
  if ((FS_ULONG)need > freeBytes + (FS_ULONG)server->workspaceSize) {
    // A trial of the difference lets the reclaim ladder make room first.
    void* trial = FSS_malloc(state, (FS_ULONG)(need - server->workspaceSize));
    if (trial == nullptr) return (FS_LONG)state->error;
    FSS_free(state, trial);
  }
  if (server->workspaceSize > 0) FSS_free(state, server->workspace);
  server->workspace = nullptr;
  server->workspaceSize = 0;
  server->workspace_sfnt = nullptr;
  server->workspace = (FS_BYTE*)FSS_calloc(state, (FS_ULONG)need);
  if (server->workspace == nullptr) return (FS_LONG)state->error;
  server->workspaceSize = need;
  return 0;
}

// Splits the matrix into per-axis scalars, which scale the font units, and
// what is left, which apply_transMatrix applies to the scaled points.
void fs_NewTransformation(fsg_SplineKey* key) {
  FS_FIXED(*m)[3] = key->currentTMatrix;
  // Size times resolution over 72: 1.0 at 72 dots and a size of 1.0.
  FS_LONG factor = muldiv_64(key->fixedPointSize, 72, 72);
  for (int r = 0; r < 2; r++)
    for (int c = 0; c < 2; c++) m[r][c] = fix_mul(m[r][c], factor);

  key->metricScalarX = mag(m[0][0]) > mag(m[0][1]) ? mag(m[0][0]) : mag(m[0][1]);
  key->metricScalarY = mag(m[1][0]) > mag(m[1][1]) ? mag(m[1][0]) : mag(m[1][1]);
  key->interpScalarX = key->metricScalarX;
  key->interpScalarY = key->metricScalarY;
  if (key->fontFlags & 8) {  // the font asks for whole pixels per em
    key->interpScalarX = (key->interpScalarX + 0x8000) & ~0xFFFF;
    key->interpScalarY = (key->interpScalarY + 0x8000) & ~0xFFFF;
  }
  compute_scaling(&key->scaleX, key->interpScalarX, key->emResolution);
  compute_scaling(&key->scaleY, key->interpScalarY, key->emResolution);

  if (key->interpScalarX >= key->interpScalarY) {
    key->scaleCVT = key->scaleX;
    key->cvtStretchX = FIXED_ONE;
    key->cvtStretchY = fix_div(key->interpScalarY, key->interpScalarX);
    key->metricScalar = key->metricScalarX;
    key->interpScalar = key->interpScalarX;
  } else {
    key->scaleCVT = key->scaleY;
    key->cvtStretchY = FIXED_ONE;
    key->cvtStretchX = fix_div(key->interpScalarX, key->interpScalarY);
    key->metricScalar = key->metricScalarY;
    key->interpScalar = key->interpScalarY;
  }

  // What the scalars took out of each row stays in the matrix.
  for (int c = 0; c < 2; c++) {
    m[0][c] = key->interpScalarX ? fix_div(m[0][c], key->interpScalarX) : 0;
    m[1][c] = key->interpScalarY ? fix_div(m[1][c], key->interpScalarY) : 0;
  }
  key->identityTransformation = m[0][0] == FIXED_ONE && m[1][1] == FIXED_ONE &&
                                m[0][1] == 0 && m[1][0] == 0;
  key->localTIsIdentity = 1;
  key->state |= KEY_TRANSFORM_READY;
}

}  // namespace

void fsg_size_key(fsg_SplineKey* key, TTF* ttf) { work_out_sizes(key, ttf); }

FS_LONG fsg_grow_workspace(FS_STATE* state, fsg_SplineKey* key) {
  return grow_workspace(state, key);
}

void compute_scaling(scale_rec* rec, FS_FIXED scalar, FS_LONG em) {
  memset(rec, 0, sizeof *rec);
  FS_INT64 N = scalar;
  FS_INT64 D = (FS_INT64)em << 16;
  if (N == 0 || D == 0) {
    rec->fn = 2;  // everything scales to 0
    return;
  }
  int zN = trailing_zeros((FS_UINT64)(N < 0 ? -N : N));
  int zD = trailing_zeros((FS_UINT64)D);
  int common = zN < zD ? zN : zD;
  if (common > 1) {
    N >>= common - 1;
    D >>= common - 1;
  }
  if (N > 0x1FFFFFF)
    D >>= 6;
  else
    N *= 64;
  rec->N = (FS_LONG)N;
  rec->D = (FS_LONG)D;
  if (N > 32767) {
    rec->scl = vardiv_64(rec->N, rec->D, 16);
    rec->fn = 2;
  } else if ((D & (D - 1)) == 0) {
    rec->shift = (FS_SHORT)trailing_zeros((FS_UINT64)D);
    rec->fn = 0;
  } else {
    rec->fn = 1;
  }
}

F26DOT6 scale_value(const scale_rec* rec, FS_LONG v) {
  switch (rec->fn) {
    case 0:
      // A plain arithmetic shift: exact halves go up, also for negatives.
      return (F26DOT6)(((FS_INT64)v * rec->N + rec->D / 2) >> rec->shift);
    case 1: {
      FS_INT64 m = (FS_INT64)(v < 0 ? -(FS_INT64)v : v) * rec->N;
      FS_INT64 q = rec->D ? (m + rec->D / 2) / rec->D : 0;
      return (F26DOT6)(v < 0 ? -q : q);
    }
    default:
      return varmul_64(v, rec->scl, 16);
  }
}

FS_LONG get_scale_inputs(FS_FIXED* scale, FS_FIXED* xppm, FS_FIXED* yppm,
                         FS_FIXED* tan_s) {
  FS_FIXED s00 = scale[0], s01 = scale[1], s10 = scale[2], s11 = scale[3];
  if (s01 == 0 && s10 == 0) {
    *xppm = mag(s00);
    *yppm = mag(s11);
    *tan_s = 0;
    return 0;
  }
  for (int i = 0; i < 4; i++)
    if (mag(scale[i]) >= kScaleLimit) return ERR_SCALE_LIMIT;
  bool xColumnZero = s00 == 0 && s10 == 0;
  bool yColumnZero = s01 == 0 && s11 == 0;
  if (xColumnZero || yColumnZero ||
      (FS_INT64)s00 * s11 == (FS_INT64)s01 * s10)
    return ERR_SCALE_DEGENERATE;
  FIXED_VECTOR v = {-s10, s00};
  fixed_norm(&v);
  FS_FIXED a = v.x, b = v.y;
  *xppm = mag(fix_mul(s00, b) - fix_mul(s10, a));
  *yppm = mag(fix_mul(s01, a) + fix_mul(s11, b));
  if (*yppm == 0) return ERR_SCALE_DEGENERATE;
  *tan_s = fix_div(fix_mul(b, s01) - fix_mul(a, s11), *yppm);
  return 0;
}

FS_LONG modify_scale(FS_FIXED* scale, FS_FIXED tan_i_a) {
  FS_FIXED xppm, yppm, tan_s;
  FS_LONG err = get_scale_inputs(scale, &xppm, &yppm, &tan_s);
  if (err) return err;
  if (xppm == 0) return ERR_SCALE_DEGENERATE;
  FS_FIXED tan_x = tan_i_a;
  if (tan_s != 0)
    tan_x = fix_div(tan_i_a + tan_s, FIXED_ONE - fix_mul(tan_s, tan_i_a));
  FS_FIXED lambda = fix_div(fix_mul(yppm, tan_x - tan_s), xppm);
  scale[1] += fix_mul(scale[0], lambda);
  scale[3] += fix_mul(scale[2], lambda);
  return 0;
}

FS_LONG check_scale(FS_STATE* state, TTF_HEAD* head, FS_FIXED s00,
                    FS_FIXED s01, FS_FIXED s10, FS_FIXED s11) {
  state->flags &= ~FLAGS_LARGE_SCALE;
  state->error = SUCCESS;
  FS_FIXED scale[4] = {s00, s01, s10, s11};
  FS_FIXED xppm, yppm, tan_s;
  FS_LONG err = get_scale_inputs(scale, &xppm, &yppm, &tan_s);
  if (err) return fail(state, err);
  if (xppm < FIXED_ONE || yppm < FIXED_ONE) return fail(state, ERR_SCALE_LIMIT);
  for (FS_FIXED s : scale)
    if (mag(s) >= kScaleLimit) return fail(state, ERR_SCALE_LIMIT);
  if (head == nullptr) return fail(state, ERR_FONT_NOT_LOADED);
  FS_LONG em = head->unitsPerEm ? head->unitsPerEm : 1;
  const FS_LONG xs[2] = {head->xMin, head->xMax};
  const FS_LONG ys[2] = {head->yMin, head->yMax};
  for (FS_LONG x : xs) {
    for (FS_LONG y : ys) {
      FS_INT64 px = ((FS_INT64)s00 * x + (FS_INT64)s01 * y) / em;
      FS_INT64 py = ((FS_INT64)s10 * x + (FS_INT64)s11 * y) / em;
      if (px < 0) px = -px;
      if (py < 0) py = -py;
      if (px >= kScaleLimit || py >= kScaleLimit)
        return fail(state, ERR_SCALE_LIMIT);
      if (px >= kLargeGlyphLimit || py >= kLargeGlyphLimit)
        state->flags |= FLAGS_LARGE_SCALE;
    }
  }
  return 0;
}

FS_LONG scaler_load_font(FS_STATE* state, LFNT* lfnt) {
  if (lfnt->fnt != nullptr) return 0;
  FS_LONG err = load_fnt(state, lfnt);
  if (err == 0 && lfnt->fnt == nullptr) err = ERR_FONT_NOT_LOADED;
  return err ? fail(state, err) : 0;
}

void delete_key(FS_STATE* state, void* k) {
  fsg_SplineKey* key = (fsg_SplineKey*)k;
  if (key == nullptr) return;
  if (state->server != nullptr && state->server->workspace_sfnt == key->sfnt)
    state->server->workspace_sfnt = nullptr;
  FSS_free(state, key->memoryBases[3]);
  FSS_free(state, key);
}

FS_LONG scale_font_ttf(FS_STATE* state, SFNT* sfnt, FS_FIXED s00, FS_FIXED s01,
                       FS_FIXED s10, FS_FIXED s11) {
  LFNT* lfnt = sfnt->lfnt;
  if (lfnt == nullptr) return fail(state, ERR_NO_CURRENT_LFNT);
  FS_LONG err = scaler_load_font(state, lfnt);
  if (err) return err;
  TTF* ttf = (TTF*)lfnt->fnt;
  if (ttf->head == nullptr || ttf->maxp == nullptr)
    return fail(state, ERR_FONT_NOT_LOADED);
  err = check_scale(state, ttf->head, s00, s01, s10, s11);
  if (err) return err;
  FS_USHORT em = ttf->head->unitsPerEm;
  if (em < 16 || em > 16384) return fail(state, ERR_FONT_NOT_LOADED);

  fsg_SplineKey* key =
      (fsg_SplineKey*)FSS_calloc(state, sizeof(fsg_SplineKey));
  if (key == nullptr) return (FS_LONG)state->error;
  key->sfnt = sfnt;
  key->memoryBases[1] = (FS_BYTE*)key;
  key->read_programs = 1;
  key->state = KEY_INITIALISED;
  key->maxp = ttf->maxp;
  TTF_MAXP* maxp = ttf->maxp;
  key->max_contours = maxp->maxContours > maxp->maxCompositeContours
                          ? maxp->maxContours
                          : maxp->maxCompositeContours;
  key->max_points = maxp->maxPoints > maxp->maxCompositePoints
                        ? maxp->maxPoints
                        : maxp->maxCompositePoints;
  // Point and contour numbers are FS_SHORT in the element records.
  if (key->max_points > kMaxElementPoints) key->max_points = kMaxElementPoints;
  if (key->max_contours > kMaxElementPoints) key->max_contours = kMaxElementPoints;
  key->max_twilight = maxp->maxTwilightPoints;
  if (key->max_twilight > kMaxElementPoints) key->max_twilight = kMaxElementPoints;
  key->user_scale[0] = s00;
  key->user_scale[1] = s01;
  key->user_scale[2] = s10;
  key->user_scale[3] = s11;
  get_ttf_table_info(state, ttf, TAG_loca, nullptr, &key->loca_length);
  get_ttf_table_info(state, ttf, TAG_hmtx, nullptr, &key->hmtx_length);
  if (ttf->vmtx_offset != 0)
    get_ttf_table_info(state, ttf, TAG_vmtx, nullptr, &key->vmtx_length);
  state->error = SUCCESS;

  fs_NewSfnt(key, ttf);
  err = grow_workspace(state, key);
  if (err == 0) {
    key->memoryBases[3] = (FS_BYTE*)FSS_calloc(state, key->private_size);
    if (key->memoryBases[3] == nullptr) err = (FS_LONG)state->error;
  }
  if (err) {
    FSS_free(state, key);
    return fail(state, err);
  }

  memset(key->currentTMatrix, 0, sizeof key->currentTMatrix);
  key->currentTMatrix[0][0] = s00;
  key->currentTMatrix[0][1] = s10;
  key->currentTMatrix[1][0] = s01;
  key->currentTMatrix[1][1] = s11;
  key->currentTMatrix[2][2] = FRACT_ONE;
  key->fixedPointSize = FIXED_ONE;
  key->pixelDiameter = kPixelDiameter;
  fs_NewTransformation(key);
  if (key->executeFontPgm) {
    fsg_SetDefaults(key);
    // The workspace's elements are the font program's to use now.
    state->server->workspace_sfnt = nullptr;
    err = fsg_RunFontProgram(state, key);
    if (err) {
      delete_key(state, key);
      return fail(state, err);
    }
    key->executeFontPgm = 0;
  }
  key->executePrePgm = 1;
  key->state |= KEY_INITIALISED | KEY_SFNT_READY | KEY_TRANSFORM_READY;

  err = fsg_RunPreProgram(state, key);
  if (err) {
    delete_key(state, key);
    return fail(state, err);
  }
  state->server->workspace_sfnt = sfnt;

  SENV* senv = (SENV*)FSS_calloc(state, sizeof(SENV));
  if (senv == nullptr) {
    err = (FS_LONG)state->error;
    delete_key(state, key);
    return fail(state, err);
  }
  senv->ttkey = key;
  senv->vanilla = s00 > 0 && s11 > 0 && s01 == 0 && s10 == 0;
  if (!senv->vanilla) sfnt->rtgah_suitable = 0;
  FS_FIXED scale[4] = {s00, s01, s10, s11};
  FS_FIXED xppm = 0, yppm = 0, tan_s = 0;
  get_scale_inputs(scale, &xppm, &yppm, &tan_s);
  senv->xppm = (FS_USHORT)((xppm + 0x8000) >> 16);
  senv->yppm = (FS_USHORT)((yppm + 0x8000) >> 16);

  FS_BYTE behavior = 3;
  FS_USHORT gasp = gasp_value(state, ttf, lfnt, senv->xppm);
  if (gasp != 0xFFFF) behavior &= (FS_BYTE)(gasp & 3);
  if (ttf->adfh != nullptr) behavior |= 4;
  senv->render_behavior = behavior;

  FS_LONG lpm = state->lpm ? state->lpm : senv->yppm;
  senv->bold_width = (FS_SHORT)(((FS_INT64)lpm * sfnt->bold_pct + 0x8000) >> 16);
  FS_LONG stroke = (FS_LONG)(((FS_INT64)lpm * sfnt->stroke_pct + 0x8000) >> 16);
  senv->stroke_width = (FS_SHORT)(stroke < 1 ? 1 : stroke);
  sfnt->senv = senv;
  state->error = SUCCESS;
  return 0;
}

FS_LONG check_sfnt(FS_STATE* state) {
  state->error = SUCCESS;
  SFNT* sfnt = state->cur_sfnt;
  if (sfnt == nullptr) return fail(state, ERR_NO_CURRENT_SFNT);
  LFNT* lfnt = sfnt->lfnt;
  if (lfnt == nullptr) return fail(state, ERR_NO_CURRENT_LFNT);
  if (scaler_load_font(state, lfnt) != 0) return fail(state, ERR_FONT_NOT_LOADED);
  if (sfnt->senv != nullptr) {
    fsg_SplineKey* key = (fsg_SplineKey*)sfnt->senv->ttkey;
    if (key != nullptr && key->maxp == nullptr) free_sfnt_senv(state, sfnt);
  }
  if (sfnt->senv == nullptr) {
    FS_LONG err = scale_font_ttf(state, sfnt, sfnt->user_scale[0],
                                 sfnt->user_scale[1], sfnt->user_scale[2],
                                 sfnt->user_scale[3]);
    if (err) return err;
    // Stroke fonts measure their reference glyphs here once outline
    // extraction exists; until then their reference lines stay 0.
  }
  return 0;
}
