// CFF outlines: the `CFF ` table's loader (header, INDEXes, top, font and
// Private dicts, charset) and the Type 2 charstring interpreter that fills
// the scaler's glyph element. Every read of the table is bounded by the
// table's length; a charstring is decoded with a bounded cursor, and a read
// past its end is a bad charstring (456). Hint operators only advance the
// parser: no stem hints are applied.
#include "Orvex_internal/fs_cff.h"

#include <math.h>
#include <string.h>

#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glue.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_scratch.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

// Element records number points in FS_SHORT and keep 8 phantom places.
const FS_ULONG kElementCap = 32767 - 8;

FS_LONG fail(FS_STATE* state, FS_LONG error) {
  state->error = (FS_ULONG)error;
  return error;
}

// Wrapping sums: a malformed charstring may drive positions anywhere.
FS_LONG wadd(FS_LONG a, FS_LONG b) { return (FS_LONG)((FS_ULONG)a + (FS_ULONG)b); }
FS_LONG wneg(FS_LONG a) { return (FS_LONG)(0u - (FS_ULONG)a); }

// An operand, 16.16, into 26.6 with rounding.
F26DOT6 to26(FS_LONG a) { return (F26DOT6)(((FS_INT64)a + 32) >> 10); }

/* ---- Bounded reads of the table ---- */

bool plain_memory(const TTF* ttf) {
  return ttf->memptr != nullptr && ttf->decomp == nullptr;
}

// `n` bytes at `pos` of the table into `out`; false when they are not all
// inside it.
bool cff_read(FS_STATE* state, TTF* ttf, FS_ULONG pos, FS_ULONG n,
              FS_BYTE* out) {
  CFF_TAB* cff = ttf->cff;
  FS_ULONG len = cff ? cff->tablelength : 0;
  if (pos > len || n > len - pos) return false;
  if (n == 0) return true;
  if (plain_memory(ttf)) {
    memcpy(out, ttf->memptr + ttf->data_offset + ttf->cff_offset + pos, n);
    return true;
  }
  FS_ULONG saved = state->error;
  ttf_read_buf(state, ttf, ttf->cff_offset + pos, n, out);
  bool ok = state->error == 0;
  state->error = saved;
  return ok;
}

// `n` bytes at `pos` of the table for reading: a pointer into a memory font,
// or a block of the scratch space the caller gives back with release_bytes.
// Null when they are not all inside the table or no block is to be had.
const FS_BYTE* fetch_bytes(FS_STATE* state, TTF* ttf, FS_ULONG pos, FS_ULONG n,
                           FS_BYTE** block) {
  *block = nullptr;
  FS_ULONG len = ttf->cff->tablelength;
  if (pos > len || n > len - pos) return nullptr;
  if (plain_memory(ttf))
    return ttf->memptr + ttf->data_offset + ttf->cff_offset + pos;
  FS_BYTE* b = (FS_BYTE*)FsScratchSpace_reserve(&state->server->scratch, state,
                                                 n ? n : 1);
  if (b == nullptr) return nullptr;
  if (!cff_read(state, ttf, pos, n, b)) {
    FsScratchSpace_release(&state->server->scratch, state, b);
    return nullptr;
  }
  *block = b;
  return b;
}

void release_bytes(FS_STATE* state, FS_BYTE* block) {
  if (block == nullptr) return;
  FS_ULONG saved = state->error;
  FsScratchSpace_release(&state->server->scratch, state, block);
  state->error = saved;
}

FS_ULONG offset_value(const FS_BYTE* p, FS_BYTE offSize) {
  FS_ULONG v = 0;
  for (FS_BYTE i = 0; i < offSize; i++) v = (v << 8) | p[i];
  return v;
}

/* ---- INDEX readers ---- */

// The INDEX at table position `pos`: 0, or 461 for an offset size outside 1
// to 4 or an INDEX that doesn't fit the table.
FS_LONG read_index(FS_STATE* state, TTF* ttf, FS_ULONG pos, CFF_INDEX* idx) {
  memset(idx, 0, sizeof *idx);
  idx->pos = pos;
  FS_BYTE h[3];
  if (!cff_read(state, ttf, pos, 2, h)) return ERR_CFF_INDEX_2;
  idx->count = get_u16(h);
  if (idx->count == 0) {
    idx->base = idx->end = pos + 2;
    return 0;
  }
  if (!cff_read(state, ttf, pos + 2, 1, h + 2)) return ERR_CFF_INDEX_2;
  idx->offSize = h[2];
  if (idx->offSize < 1 || idx->offSize > 4) return ERR_CFF_INDEX_2;
  FS_UINT64 arrays = (FS_UINT64)(idx->count + 1) * idx->offSize;
  FS_UINT64 base = (FS_UINT64)pos + 3 + arrays - 1;
  FS_BYTE last[4];
  if (base + 1 > ttf->cff->tablelength ||
      !cff_read(state, ttf, (FS_ULONG)(base + 1 - idx->offSize), idx->offSize,
                last))
    return ERR_CFF_INDEX_2;
  FS_ULONG lastOffset = offset_value(last, idx->offSize);
  FS_UINT64 end = base + lastOffset;
  if (lastOffset < 1 || end > ttf->cff->tablelength) return ERR_CFF_INDEX_2;
  idx->base = (FS_ULONG)base;
  idx->end = (FS_ULONG)end;
  return 0;
}

// Entry `i` of an INDEX: its table position and length. False when its
// offsets are out of order or leave the INDEX.
bool index_entry(FS_STATE* state, TTF* ttf, const CFF_INDEX* idx, FS_ULONG i,
                 FS_ULONG* pos, FS_ULONG* len) {
  if (i >= idx->count) return false;
  FS_BYTE o[8];
  if (!cff_read(state, ttf, idx->pos + 3 + i * idx->offSize,
                2u * idx->offSize, o))
    return false;
  FS_ULONG a = offset_value(o, idx->offSize);
  FS_ULONG b = offset_value(o + idx->offSize, idx->offSize);
  if (a < 1 || b < a || (FS_UINT64)idx->base + b > idx->end) return false;
  *pos = idx->base + a;
  *len = b - a;
  return true;
}

// Entry `i` of an INDEX held whole in memory at `copy` (the INDEX `idx`,
// whose positions count from the table): a pointer to its bytes, or null.
const FS_BYTE* getINDEXptr(const FS_BYTE* copy, const CFF_INDEX* idx,
                           FS_ULONG i, FS_ULONG* len) {
  if (copy == nullptr || i >= idx->count) return nullptr;
  const FS_BYTE* offs = copy + 3 + i * idx->offSize;
  FS_ULONG a = offset_value(offs, idx->offSize);
  FS_ULONG b = offset_value(offs + idx->offSize, idx->offSize);
  FS_ULONG size = idx->end - idx->pos;
  FS_ULONG base = idx->base - idx->pos;
  if (a < 1 || b < a || (FS_UINT64)base + b > size) return nullptr;
  *len = b - a;
  return copy + base + a;
}

// A heap copy of the whole INDEX at table position `pos`, its layout in
// *idx. Null with the error in *err.
FS_BYTE* getINDEXptrfromoffset(FS_STATE* state, TTF* ttf, FS_ULONG pos,
                               CFF_INDEX* idx, FS_LONG* err) {
  *err = read_index(state, ttf, pos, idx);
  if (*err) return nullptr;
  FS_ULONG size = idx->end - idx->pos;
  FS_BYTE* copy = (FS_BYTE*)FSS_malloc(state, size);
  if (copy == nullptr) {
    *err = (FS_LONG)state->error;
    return nullptr;
  }
  if (!cff_read(state, ttf, pos, size, copy)) {
    FSS_free(state, copy);
    *err = ERR_CFF_INDEX_2;
    return nullptr;
  }
  return copy;
}

// The bias added to a subroutine number: by the published count ranges.
FS_LONG subr_bias(FS_ULONG count) {
  return count < 1240 ? 107 : count < 33900 ? 1131 : 32768;
}

/* ---- Dicts ---- */

// One dict operand: an integer, or a real number as written.
struct DictArg {
  bool real;
  FS_LONG i;
  double r;
};

struct DictParser {
  FS_CURSOR c;
  DictArg args[48];
  int n;
};

// A real number's nibbles into a double; the cursor stands after its end
// nibble. A number without an end marks the cursor overrun.
double get_real(FS_CURSOR* c) {
  char text[64];
  int len = 0;
  for (;;) {
    if (!cursor_has(c, 1)) {
      c->overrun = 1;
      return 0;
    }
    FS_BYTE b = cursor_u8(c);
    for (int k = 0; k < 2; k++) {
      int nib = k == 0 ? b >> 4 : b & 15;
      if (nib == 15) {
        text[len] = 0;
        return len ? strtod(text, nullptr) : 0;
      }
      const char* piece = nib <= 9 ? nullptr
                          : nib == 10 ? "."
                          : nib == 11 ? "E"
                          : nib == 12 ? "E-"
                          : nib == 14 ? "-" : "";
      char digit[2] = {(char)('0' + nib), 0};
      if (piece == nullptr) piece = digit;
      for (const char* q = piece; *q && len < 62; q++) text[len++] = *q;
    }
  }
}

FS_LONG clamp_long(double v) {
  if (v >= 2147483647.0) return 2147483647;
  if (v <= -2147483648.0) return (FS_LONG)(-2147483647 - 1);
  return (FS_LONG)v;
}

FS_LONG int_arg(const DictArg& a) {
  return a.real ? clamp_long(floor(a.r + 0.5)) : a.i;
}
FRACT fract_arg(const DictArg& a) {
  double v = a.real ? a.r : (double)a.i;
  return clamp_long(floor(v * 1073741824.0 + 0.5));
}

// Collects operands up to the next operator and returns it (0 to 21, or
// 1200 + the escaped byte); -1 at the dict's end, -2 for a malformed
// operand or more than 48 of them.
int nextopcode(DictParser* d) {
  d->n = 0;
  for (;;) {
    if (!cursor_has(&d->c, 1)) return d->n ? -2 : -1;
    FS_BYTE b0 = cursor_u8(&d->c);
    DictArg a = {false, 0, 0};
    if (b0 <= 21) {
      if (b0 == 12) return 1200 + cursor_u8(&d->c);
      return b0;
    } else if (b0 == 28) {
      a.i = cursor_s16(&d->c);
    } else if (b0 == 29) {
      a.i = cursor_s32(&d->c);
    } else if (b0 == 30) {
      a.real = true;
      a.r = get_real(&d->c);
    } else if (b0 >= 32 && b0 <= 246) {
      a.i = b0 - 139;
    } else if (b0 >= 247 && b0 <= 250) {
      a.i = (b0 - 247) * 256 + cursor_u8(&d->c) + 108;
    } else if (b0 >= 251 && b0 <= 254) {
      a.i = -(b0 - 251) * 256 - cursor_u8(&d->c) - 108;
    } else {
      return -2;  // reserved bytes
    }
    if (d->c.overrun || d->n >= 48) return -2;
    d->args[d->n++] = a;
  }
}

FS_LONG to_offset(const DictArg& a) {
  FS_LONG v = int_arg(a);
  return v < 0 ? 0 : v;
}

// The operators of a top dict or font dict into `t`. Returns false for a
// malformed dict.
bool loadTopDict(CFFTOPDICT* t, FS_ULONG cff_offset, const FS_BYTE* dict,
                 FS_ULONG len) {
  DictParser d;
  d.c = cursor_at(dict, len);
  for (;;) {
    int op = nextopcode(&d);
    if (op == -1) break;
    if (op == -2) return false;
    const DictArg* a = d.args;
    switch (op) {
      case 5:
        if (d.n >= 4)
          for (int i = 0; i < 4; i++) t->fontbbox[i] = int_arg(a[i]);
        break;
      case 1206:
        if (d.n >= 1) t->charstringtype = int_arg(a[0]);
        break;
      case 1207:
        if (d.n >= 6) {
          for (int i = 0; i < 6; i++) t->fontmatrix[i] = fract_arg(a[i]);
        }
        break;
      case 1230:
        if (d.n >= 1) {
          t->registry = (FS_SHORT)int_arg(a[0]);
          if (t->registry == 0) t->registry = 1;  // SID 0 still says CID
          t->FDselect = -1;
        }
        break;
      case 1234:
        if (d.n >= 1) t->CIDcount = int_arg(a[0]);
        break;
      case 1236:
        if (d.n >= 1) t->FDarrayoffset = (FS_ULONG)to_offset(a[0]) + cff_offset;
        break;
      case 1237:
        if (d.n >= 1) t->FDselectoffset = (FS_ULONG)to_offset(a[0]) + cff_offset;
        break;
      case 15:
        if (d.n >= 1) t->charsetoffset = (FS_ULONG)to_offset(a[0]);
        break;
      case 16:
        if (d.n >= 1) t->encodingoffset = (FS_ULONG)to_offset(a[0]);
        break;
      case 17:
        if (d.n >= 1) t->charstringsoffset = (FS_ULONG)to_offset(a[0]);
        break;
      case 18:
        if (d.n >= 2) {
          t->privatedictsize = (FS_ULONG)to_offset(a[0]);
          t->privatedictoffset = (FS_ULONG)to_offset(a[1]);
        }
        break;
      default:
        break;  // all other operators are passed over
    }
  }
  // A matrix of 0.001 acts as the identity on font units: the entries are
  // taken relative to the first.
  if (t->fontmatrix[0] != 0) {
    FRACT m0 = t->fontmatrix[0];
    for (int i = 1; i < 6; i++)
      t->fontmatrix[i] =
          clamp_long((double)(((FS_INT64)t->fontmatrix[i] << 30) / m0));
    t->fontmatrix[0] = FRACT_ONE;
  } else {
    t->fontmatrix[0] = t->fontmatrix[3] = FRACT_ONE;
    t->fontmatrix[1] = t->fontmatrix[2] = t->fontmatrix[4] = t->fontmatrix[5] = 0;
  }
  return true;
}

// The Private dict of `size` bytes at table position `pos` into `p`, with
// its local subroutine INDEX. A Private dict or subroutine INDEX that can't
// be read leaves no local subroutines; the glyphs that call one fail alone.
void loadPrivateDict(FS_STATE* state, TTF* ttf, FS_ULONG pos, FS_ULONG size,
                     PRIVATEDICT* p) {
  memset(p, 0, sizeof *p);
  if (size == 0) return;
  FS_BYTE* block = nullptr;
  const FS_BYTE* dict = fetch_bytes(state, ttf, pos, size, &block);
  if (dict == nullptr) return;
  DictParser d;
  d.c = cursor_at(dict, size);
  for (;;) {
    int op = nextopcode(&d);
    if (op < 0) break;
    if (d.n < 1) continue;
    if (op == 19) p->subrsoff = int_arg(d.args[0]);
    if (op == 20) p->defaultwidthX = int_arg(d.args[0]);
    if (op == 21) p->nominalwidthX = int_arg(d.args[0]);
  }
  release_bytes(state, block);
  if (p->subrsoff > 0 &&
      read_index(state, ttf, pos + (FS_ULONG)p->subrsoff, &p->subrs) != 0)
    memset(&p->subrs, 0, sizeof p->subrs);
}

void initTopDict(CFFTOPDICT* t) {
  memset(t, 0, sizeof *t);
  t->fontmatrix[0] = t->fontmatrix[3] = 1073742;  // 0.001 in 2.30
  // These two are set this way round on purpose; nothing reads them.
  t->underlinethickness = -100;
  t->underlineposition = 50;
  t->charstringtype = 2;
  t->FDselect = -1;
}

// The charset: SID (CID) per glyph, from formats 0, 1 and 2. What a
// malformed charset leaves unread stays 0.
FS_LONG loadCharSet(FS_STATE* state, TTF* ttf, CFFTOPDICT* t) {
  if (t->charsetoffset <= 2) return 0;  // predefined charsets: no array
  t->charset =
      (FS_USHORT*)FSS_calloc(state, (t->numglyphs ? t->numglyphs : 1) * 2);
  if (t->charset == nullptr) return (FS_LONG)state->error;
  FS_ULONG len = ttf->cff->tablelength;
  if (t->charsetoffset >= len) return 0;
  FS_BYTE* block = nullptr;
  FS_ULONG avail = len - t->charsetoffset;
  const FS_BYTE* p = fetch_bytes(state, ttf, t->charsetoffset, avail, &block);
  if (p == nullptr) return 0;
  FS_CURSOR c = cursor_at(p, avail);
  FS_BYTE format = cursor_u8(&c);
  FS_ULONG g = 1;
  if (format == 0) {
    while (g < t->numglyphs && !c.overrun) {
      FS_USHORT sid = cursor_u16(&c);
      if (!c.overrun) t->charset[g++] = sid;
    }
  } else if (format == 1 || format == 2) {
    while (g < t->numglyphs && !c.overrun) {
      FS_ULONG first = cursor_u16(&c);
      FS_ULONG left = format == 1 ? cursor_u8(&c) : cursor_u16(&c);
      if (c.overrun) break;
      for (FS_ULONG k = 0; k <= left && g < t->numglyphs; k++)
        t->charset[g++] = (FS_USHORT)(first + k);
    }
  }
  release_bytes(state, block);
  return 0;
}

bool is_cid(const CFF_TAB* cff) { return cff->topdict->registry != 0; }

/* ---- CID font dicts ---- */

// The font dict of glyph `g` from FDSelect format 0 or 3; other formats,
// glyphs beyond CIDcount and unreadable selections give 0.
FS_LONG getFDindex(FS_STATE* state, TTF* ttf, FS_ULONG g) {
  CFFTOPDICT* t = ttf->cff->topdict;
  if (t->CIDcount > 0 && g >= (FS_ULONG)t->CIDcount) return 0;
  if (t->FDselectoffset < ttf->cff_offset) return 0;
  FS_ULONG pos = t->FDselectoffset - ttf->cff_offset;
  FS_BYTE h[3];
  if (!cff_read(state, ttf, pos, 3, h)) return 0;
  if (h[0] == 0) {
    FS_BYTE fd;
    return cff_read(state, ttf, pos + 1 + g, 1, &fd) ? fd : 0;
  }
  if (h[0] != 3) return 0;
  FS_ULONG n = get_u16(h + 1);
  FS_BYTE* block = nullptr;
  const FS_BYTE* r = fetch_bytes(state, ttf, pos + 3, n * 3 + 2, &block);
  if (r == nullptr) return 0;
  FS_LONG fd = 0;
  for (FS_ULONG i = 0; i < n; i++) {
    FS_ULONG first = get_u16(r + 3 * i);
    FS_ULONG next = get_u16(r + 3 * i + 3);  // the sentinel closes the last
    if (g >= first && g < next) {
      fd = r[3 * i + 2];
      break;
    }
  }
  release_bytes(state, block);
  return fd;
}

// Loads font dict `fd` (dict 0 for one beyond the array) with its Private
// dict. 456 when the font dict can't be read.
FS_LONG load_font_dict(FS_STATE* state, TTF* ttf, FS_LONG fd) {
  CFFTOPDICT* t = ttf->cff->topdict;
  t->FDselect = -1;
  FS_ULONG pos = 0, len = 0;
  if (!index_entry(state, ttf, &t->fdarray, (FS_ULONG)fd, &pos, &len) &&
      (fd == 0 || !index_entry(state, ttf, &t->fdarray, 0, &pos, &len)))
    return ERR_CFF_CHARSTRING;
  FS_BYTE* block = nullptr;
  const FS_BYTE* dict = fetch_bytes(state, ttf, pos, len, &block);
  if (dict == nullptr) return ERR_CFF_CHARSTRING;
  t->privatedictoffset = t->privatedictsize = 0;
  bool ok = loadTopDict(t, ttf->cff_offset, dict, len);
  release_bytes(state, block);
  if (!ok) return ERR_CFF_CHARSTRING;
  loadPrivateDict(state, ttf, t->privatedictoffset, t->privatedictsize,
                  &t->privatedict);
  t->FDselect = fd;
  return 0;
}

// Loads the font dict and Private dict of glyph `g` when another one is
// loaded.
FS_LONG resetCIDdicts(FS_STATE* state, TTF* ttf, FS_ULONG g) {
  FS_LONG fd = getFDindex(state, ttf, g);
  return fd == ttf->cff->topdict->FDselect ? 0 : load_font_dict(state, ttf, fd);
}

/* ---- The glyph element ---- */

fnt_ElementType* element(CFF_DATA* cd) { return fsg_glyph_element(cd->key); }

// Doubles the element's room for points (bit 1) or contours (bit 2), in
// `maxp` and the key, up to the element cap: 418 or 419 beyond it. The
// points and contours made so far move to the new workspace; on failure the
// old one and its counts stay.
FS_LONG grow_element(FS_STATE* state, fsg_SplineKey* key, int which) {
  TTF* ttf = (TTF*)key->sfnt->lfnt->fnt;
  FS_ULONG pts = key->max_points, cts = key->max_contours;
  if (which & 1) {
    if (pts >= kElementCap) return ERR_TOO_MANY_POINTS;
    pts = pts * 2 > kElementCap ? kElementCap : (pts ? pts * 2 : 256);
  }
  if (which & 2) {
    if (cts >= kElementCap) return ERR_TOO_MANY_CONTOURS;
    cts = cts * 2 > kElementCap ? kElementCap : (cts ? cts * 2 : 64);
  }
  fnt_ElementType old = *fsg_glyph_element(key);
  FS_ULONG oldRoom = (FS_ULONG)key->max_points + 8;
  FS_USHORT keepPts = key->max_points, keepCts = key->max_contours;
  FS_ULONG keepNeed = key->workspace_need;
  key->max_points = (FS_USHORT)pts;
  key->max_contours = (FS_USHORT)cts;
  fsg_size_key(key, ttf);
  FS_SERVER* server = state->server;
  FS_ULONG need = key->workspace_need;
  if ((FS_ULONG)server->workspaceSize > need) need = (FS_ULONG)server->workspaceSize;
  FS_BYTE* fresh = (FS_BYTE*)FSS_calloc(state, need);
  if (fresh == nullptr) {
    FS_LONG err = (FS_LONG)state->error;
    key->max_points = keepPts;
    key->max_contours = keepCts;
    key->workspace_need = keepNeed;
    return err ? err : ERR_MALLOC_FAIL;
  }
  FS_BYTE* stale = server->workspace;
  server->workspace = fresh;
  server->workspaceSize = (FS_LONG)need;
  fs_SetUpKey(state, key);
  fnt_ElementType* el = fsg_glyph_element(key);
  memcpy(el->x, old.x, oldRoom * sizeof(F26DOT6));
  memcpy(el->y, old.y, oldRoom * sizeof(F26DOT6));
  memcpy(el->onCurve, old.onCurve, oldRoom);
  memcpy(el->sp, old.sp, ((FS_ULONG)keepCts + 1) * sizeof(FS_SHORT));
  memcpy(el->ep, old.ep, ((FS_ULONG)keepCts + 1) * sizeof(FS_SHORT));
  el->np = old.np;
  el->nc = old.nc;
  FSS_free(state, stale);
  if (key->maxp->maxPoints < pts) key->maxp->maxPoints = (FS_USHORT)pts;
  if (key->maxp->maxContours < cts) key->maxp->maxContours = (FS_USHORT)cts;
  ttf->cff->max_points = key->maxp->maxPoints;
  ttf->cff->max_contours = key->maxp->maxContours;
  state->error = SUCCESS;
  return 0;
}

// One point at the 26.6 font-unit position (x, y) through the font matrix.
FS_LONG add_point(FS_STATE* state, TTF* ttf, CFF_DATA* cd, F26DOT6 x,
                  F26DOT6 y, FS_BYTE on) {
  fnt_ElementType* el = element(cd);
  if ((FS_ULONG)el->np + 1 > cd->key->max_points) {
    FS_LONG err = grow_element(state, cd->key, 1);
    if (err) return err;
  }
  const FRACT* m = ttf->cff->topdict->fontmatrix;
  if (m[0] != FRACT_ONE || m[1] != 0 || m[2] != 0 || m[3] != FRACT_ONE) {
    FS_LONG nx = wadd((FS_LONG)(((FS_INT64)x * m[0]) >> 30),
                      (FS_LONG)(((FS_INT64)y * m[2]) >> 30));
    FS_LONG ny = wadd((FS_LONG)(((FS_INT64)x * m[1]) >> 30),
                      (FS_LONG)(((FS_INT64)y * m[3]) >> 30));
    x = nx;
    y = ny;
  }
  el->x[el->np] = x;
  el->y[el->np] = y;
  el->onCurve[el->np] = on;
  el->np++;
  cd->numpoints = el->np;
  return 0;
}

// Ends the open contour; when its last point is not its first, the first
// is added again, so the contour closes on a point of its own. A contour
// of its start point alone leaves nothing.
void close_contour(CFF_DATA* cd) {
  if (!cd->incontour) return;
  cd->incontour = 0;
  fnt_ElementType* el = element(cd);
  FS_LONG start = el->sp[el->nc - 1];
  if (el->np - 1 == start) {
    el->np--;
    el->nc--;
    cd->numpoints = el->np;
    cd->numcontours = el->nc;
    return;
  }
  FS_LONG last = el->np - 1;
  if (el->x[last] != cd->loopstartx || el->y[last] != cd->loopstarty) {
    // The room was made when the contour's last point came: add it now
    // through the same check.
    if ((FS_ULONG)el->np + 1 <= cd->key->max_points) {
      el->x[el->np] = cd->loopstartx;
      el->y[el->np] = cd->loopstarty;
      el->onCurve[el->np] = 1;
      el->np++;
    }
  }
  el->ep[el->nc - 1] = (FS_SHORT)(el->np - 1);
  cd->numpoints = el->np;
}

// Makes room for the closing point before a contour closes.
FS_LONG room_to_close(FS_STATE* state, CFF_DATA* cd) {
  fnt_ElementType* el = element(cd);
  if (cd->incontour && (FS_ULONG)el->np + 1 > cd->key->max_points)
    return grow_element(state, cd->key, 1);
  return 0;
}

// A new contour at the current point.
FS_LONG moveto(FS_STATE* state, TTF* ttf, CFF_DATA* cd) {
  FS_LONG err = room_to_close(state, cd);
  if (err) return err;
  close_contour(cd);
  fnt_ElementType* el = element(cd);
  if ((FS_ULONG)el->nc + 1 > cd->key->max_contours) {
    err = grow_element(state, cd->key, 2);
    if (err) return err;
    el = element(cd);
  }
  el->sp[el->nc] = el->np;
  el->ep[el->nc] = el->np;
  el->nc++;
  cd->numcontours = el->nc;
  err = add_point(state, ttf, cd, cd->prevx, cd->prevy, 1);
  if (err) return err;
  el = element(cd);
  cd->loopstartx = el->x[el->np - 1];
  cd->loopstarty = el->y[el->np - 1];
  cd->incontour = 1;
  cd->numtypes++;
  return 0;
}

// A drawing operator with no contour open starts one where it stands.
FS_LONG open_contour(FS_STATE* state, TTF* ttf, CFF_DATA* cd) {
  return cd->incontour ? 0 : moveto(state, ttf, cd);
}

FS_LONG lineto(FS_STATE* state, TTF* ttf, CFF_DATA* cd, F26DOT6 x, F26DOT6 y) {
  FS_LONG err = open_contour(state, ttf, cd);
  if (err) return err;
  cd->prevx = x;
  cd->prevy = y;
  cd->numtypes++;
  return add_point(state, ttf, cd, x, y, 1);
}

FS_LONG curveto(FS_STATE* state, TTF* ttf, CFF_DATA* cd, F26DOT6 x1,
                F26DOT6 y1, F26DOT6 x2, F26DOT6 y2, F26DOT6 x3, F26DOT6 y3) {
  FS_LONG err = open_contour(state, ttf, cd);
  if (!err) err = add_point(state, ttf, cd, x1, y1, 0);
  if (!err) err = add_point(state, ttf, cd, x2, y2, 0);
  if (!err) err = add_point(state, ttf, cd, x3, y3, 1);
  cd->prevx = x3;
  cd->prevy = y3;
  cd->numtypes++;
  return err;
}

// The seven points of a flex (its start and the two curves' six) and its
// depth fd in hundredths of a pixel.
struct FLEXARGS {
  F26DOT6 x[7], y[7];
  FS_LONG fd;
};

// Draws a flex: two curves, or one line to its end when the middle anchor
// lies closer than fd/100 pixel to the chord at the key's scale.
FS_LONG flexproc(FS_STATE* state, TTF* ttf, CFF_DATA* cd, const FLEXARGS* f) {
  fsg_SplineKey* key = cd->key;
  double em = key->emResolution ? key->emResolution : 1000;
  double sx = key->interpScalarX / 65536.0 / em / 64.0;  // pixels per 26.6 unit
  double sy = key->interpScalarY / 65536.0 / em / 64.0;
  double ax = f->x[0] * sx, ay = f->y[0] * sy;
  double mx = f->x[3] * sx - ax, my = f->y[3] * sy - ay;
  double ex = f->x[6] * sx - ax, ey = f->y[6] * sy - ay;
  double chord = sqrt(ex * ex + ey * ey);
  double d = chord > 0 ? fabs(ex * my - ey * mx) / chord : sqrt(mx * mx + my * my);
  if (d < f->fd / 100.0) return lineto(state, ttf, cd, f->x[6], f->y[6]);
  FS_LONG err = curveto(state, ttf, cd, f->x[1], f->y[1], f->x[2], f->y[2],
                        f->x[3], f->y[3]);
  if (err) return err;
  return curveto(state, ttf, cd, f->x[4], f->y[4], f->x[5], f->y[5], f->x[6],
                 f->y[6]);
}

/* ---- Charstrings ---- */

// Reads operands into the stack up to the next operator: *op receives it
// (0 to 31, or 1200 + the escaped byte), or -1 at the charstring's end.
// Returns 456 for an operand or operator cut by the end, or more than 48
// operands.
FS_LONG nextcsopcode(FS_CURSOR* c, CFF_DATA* cd, int* op) {
  for (;;) {
    if (!cursor_has(c, 1)) {
      *op = -1;
      return 0;
    }
    FS_BYTE b0 = cursor_u8(c);
    FS_LONG v;
    if (b0 == 28) {
      v = (FS_LONG)cursor_s16(c) * 65536;
    } else if (b0 >= 32 && b0 <= 246) {
      v = ((FS_LONG)b0 - 139) * 65536;
    } else if (b0 >= 247 && b0 <= 250) {
      v = (((FS_LONG)b0 - 247) * 256 + cursor_u8(c) + 108) * 65536;
    } else if (b0 >= 251 && b0 <= 254) {
      v = (-((FS_LONG)b0 - 251) * 256 - cursor_u8(c) - 108) * 65536;
    } else if (b0 == 255) {
      v = cursor_s32(c);  // 16.16 as it stands
    } else if (b0 == 12) {
      *op = 1200 + cursor_u8(c);
      return c->overrun ? ERR_CFF_CHARSTRING : 0;
    } else {
      *op = b0;
      return 0;
    }
    if (c->overrun || cd->numargs >= 48) return ERR_CFF_CHARSTRING;
    cd->args[cd->numargs++] = v;
  }
}

// The width, when the first stack-clearing operator finds more operands
// than it takes: the first is dx over nominalwidthX. Returns the index of
// the operator's own first operand.
int take_width(CFF_DATA* cd, bool hasWidth) {
  if (cd->widthseen) return 0;
  cd->widthseen = 1;
  if (!hasWidth) return 0;
  cd->dx = cd->args[0];
  cd->hasadvwidth = 1;
  return 1;
}

FS_LONG generateoutline(FS_STATE* state, TTF* ttf, const FS_BYTE* ptr,
                        FS_LONG size, CFF_DATA* cd);

// A subroutine call: the top operand plus the bias picks the entry; the
// count itself passes and runs as an empty subroutine.
FS_LONG call_subr(FS_STATE* state, TTF* ttf, CFF_DATA* cd, bool global) {
  if (cd->numargs < 1) return ERR_CFF_CHARSTRING;
  FS_LONG number = cd->args[--cd->numargs] >> 16;
  CFF_TAB* cff = ttf->cff;
  const CFF_INDEX* idx =
      global ? &cff->globalsubrs : &cff->topdict->privatedict.subrs;
  FS_INT64 i = (FS_INT64)number + subr_bias(idx->count);
  if (i < 0 || (FS_INT64)idx->count < i) return ERR_CFF_INDEX;
  if (i == (FS_INT64)idx->count) return 0;
  if (cd->depth + 1 > CFF_MAX_SUBR_DEPTH) return ERR_CFF_CHARSTRING;
  FS_BYTE* block = nullptr;
  const FS_BYTE* p;
  FS_ULONG len = 0;
  if (global) {
    p = getINDEXptr(cff->globalsubrINDEXptr, idx, (FS_ULONG)i, &len);
  } else {
    FS_ULONG pos = 0;
    p = index_entry(state, ttf, idx, (FS_ULONG)i, &pos, &len)
            ? fetch_bytes(state, ttf, pos, len, &block)
            : nullptr;
  }
  if (p == nullptr) return ERR_CFF_CHARSTRING;
  cd->depth++;
  FS_LONG err = generateoutline(state, ttf, p, (FS_LONG)len, cd);
  cd->depth--;
  release_bytes(state, block);
  return err;
}

// The arithmetic and stack operators under escape 12. Returns 456 for an
// underflow.
FS_LONG stack_op(CFF_DATA* cd, int op) {
  FS_LONG* a = cd->args;
  FS_LONG& n = cd->numargs;
  const FS_LONG one = 65536;
  switch (op) {
    case 1203: case 1204: case 1210: case 1211: case 1212: case 1215:
    case 1224: case 1228: case 1220: case 1230:
      if (n < 2) return ERR_CFF_CHARSTRING;
      break;
    case 1205: case 1209: case 1214: case 1218: case 1221: case 1226:
    case 1227: case 1229:
      if (n < 1) return ERR_CFF_CHARSTRING;
      break;
    case 1222:
      if (n < 4) return ERR_CFF_CHARSTRING;
      break;
    default:
      return 0;  // random and unknown operators are passed over
  }
  FS_LONG x = n >= 2 ? a[n - 2] : 0, y = a[n - 1];
  switch (op) {
    case 1203: a[n - 2] = (x && y) ? one : 0; n--; break;
    case 1204: a[n - 2] = (x || y) ? one : 0; n--; break;
    case 1205: a[n - 1] = y ? 0 : one; break;
    case 1209: a[n - 1] = y < 0 ? wneg(y) : y; break;
    case 1210: a[n - 2] = wadd(x, y); n--; break;
    case 1211: a[n - 2] = wadd(x, wneg(y)); n--; break;
    case 1212:
      a[n - 2] = y ? clamp_long((double)(((FS_INT64)x * 65536) / y)) : 0;
      n--;
      break;
    case 1214: a[n - 1] = wneg(y); break;
    case 1215: a[n - 2] = x == y ? one : 0; n--; break;
    case 1218: n--; break;
    case 1220: {
      FS_LONG i = y >> 16;
      if (i >= 0 && i < 32) cd->transient[i] = x;
      n -= 2;
      break;
    }
    case 1221: {
      FS_LONG i = y >> 16;
      a[n - 1] = (i >= 0 && i < 32) ? cd->transient[i] : 0;
      break;
    }
    case 1222: a[n - 4] = a[n - 2] <= a[n - 1] ? a[n - 4] : a[n - 3]; n -= 3; break;
    case 1224: a[n - 2] = clamp_long((double)(((FS_INT64)x * y) >> 16)); n--; break;
    case 1226: a[n - 1] = y > 0 ? clamp_long(sqrt(y / 65536.0) * 65536.0 + 0.5) : 0; break;
    case 1227:
      if (n >= 48) return ERR_CFF_CHARSTRING;
      a[n] = y;
      n++;
      break;
    case 1228: a[n - 2] = y; a[n - 1] = x; break;
    case 1229: {
      FS_LONG i = y >> 16;
      if (i < 0) i = 0;
      if (i > n - 2) return ERR_CFF_CHARSTRING;
      a[n - 1] = a[n - 2 - i];
      break;
    }
    case 1230: {
      FS_LONG count = x >> 16, j = y >> 16;
      n -= 2;
      if (count < 0 || count > n) return ERR_CFF_CHARSTRING;
      if (count == 0) break;
      j %= count;
      if (j < 0) j += count;
      FS_LONG tmp[48];
      for (FS_LONG k = 0; k < count; k++)
        tmp[(k + j) % count] = a[n - count + k];
      memcpy(a + n - count, tmp, (size_t)count * sizeof(FS_LONG));
      break;
    }
  }
  return 0;
}

// The flex operators' seven points from the operands, and their depth.
FS_LONG read_flex(CFF_DATA* cd, int op, FLEXARGS* f) {
  const FS_LONG* a = cd->args;
  FS_LONG n = cd->numargs;
  F26DOT6 x = cd->prevx, y = cd->prevy;
  f->x[0] = x;
  f->y[0] = y;
  F26DOT6 d[12];  // dx1 dy1 ... dx6 dy6 in 26.6
  switch (op) {
    case 1235:  // flex
      if (n < 13) return ERR_CFF_CHARSTRING;
      for (int i = 0; i < 12; i++) d[i] = to26(a[i]);
      f->fd = a[12] >> 16;
      break;
    case 1234:  // hflex
      if (n < 7) return ERR_CFF_CHARSTRING;
      d[0] = to26(a[0]); d[1] = 0;
      d[2] = to26(a[1]); d[3] = to26(a[2]);
      d[4] = to26(a[3]); d[5] = 0;
      d[6] = to26(a[4]); d[7] = 0;
      d[8] = to26(a[5]); d[9] = wneg(d[3]);
      d[10] = to26(a[6]); d[11] = 0;
      f->fd = 50;
      break;
    case 1236:  // hflex1
      if (n < 9) return ERR_CFF_CHARSTRING;
      d[0] = to26(a[0]); d[1] = to26(a[1]);
      d[2] = to26(a[2]); d[3] = to26(a[3]);
      d[4] = to26(a[4]); d[5] = 0;
      d[6] = to26(a[5]); d[7] = 0;
      d[8] = to26(a[6]); d[9] = to26(a[7]);
      d[10] = to26(a[8]);
      d[11] = wneg(wadd(wadd(d[1], d[3]), d[9]));
      f->fd = 50;
      break;
    default: {  // flex1: the last operand runs along the longer way
      if (n < 11) return ERR_CFF_CHARSTRING;
      F26DOT6 sx = 0, sy = 0;
      for (int i = 0; i < 10; i++) d[i] = to26(a[i]);
      for (int i = 0; i < 10; i += 2) sx = wadd(sx, d[i]), sy = wadd(sy, d[i + 1]);
      FS_INT64 ax = sx < 0 ? -(FS_INT64)sx : sx, ay = sy < 0 ? -(FS_INT64)sy : sy;
      if (ax > ay) {
        d[10] = to26(a[10]);
        d[11] = wneg(sy);
      } else {
        d[10] = wneg(sx);
        d[11] = to26(a[10]);
      }
      f->fd = 50;
      break;
    }
  }
  for (int i = 0; i < 6; i++) {
    x = wadd(x, d[2 * i]);
    y = wadd(y, d[2 * i + 1]);
    f->x[i + 1] = x;
    f->y[i + 1] = y;
  }
  return 0;
}

// The curve operators that alternate horizontal and vertical tangents
// (hvcurveto, vhcurveto), and those that keep one (hhcurveto, vvcurveto).
FS_LONG curves(FS_STATE* state, TTF* ttf, CFF_DATA* cd, int op) {
  const FS_LONG* a = cd->args;
  FS_LONG n = cd->numargs;
  if (n < 4) return ERR_CFF_CHARSTRING;
  F26DOT6 x = cd->prevx, y = cd->prevy;
  FS_LONG i = 0;
  if (op == 26 || op == 27) {
    bool horizontal = op == 27;
    F26DOT6 extra = 0;
    if (n & 1) extra = to26(a[i++]);
    for (; i + 4 <= n; i += 4) {
      F26DOT6 x1, y1;
      if (horizontal) {
        x1 = wadd(x, to26(a[i]));
        y1 = wadd(y, extra);
      } else {
        x1 = wadd(x, extra);
        y1 = wadd(y, to26(a[i]));
      }
      F26DOT6 x2 = wadd(x1, to26(a[i + 1])), y2 = wadd(y1, to26(a[i + 2]));
      F26DOT6 x3 = horizontal ? wadd(x2, to26(a[i + 3])) : x2;
      F26DOT6 y3 = horizontal ? y2 : wadd(y2, to26(a[i + 3]));
      FS_LONG err = curveto(state, ttf, cd, x1, y1, x2, y2, x3, y3);
      if (err) return err;
      x = x3;
      y = y3;
      extra = 0;
    }
    return 0;
  }
  bool horizontal = op == 31;  // hvcurveto starts horizontal
  for (; i + 4 <= n; i += 4) {
    bool last = i + 4 == n - 1;
    F26DOT6 x1 = horizontal ? wadd(x, to26(a[i])) : x;
    F26DOT6 y1 = horizontal ? y : wadd(y, to26(a[i]));
    F26DOT6 x2 = wadd(x1, to26(a[i + 1])), y2 = wadd(y1, to26(a[i + 2]));
    F26DOT6 x3, y3;
    if (horizontal) {
      x3 = last ? wadd(x2, to26(a[i + 4])) : x2;
      y3 = wadd(y2, to26(a[i + 3]));
    } else {
      x3 = wadd(x2, to26(a[i + 3]));
      y3 = last ? wadd(y2, to26(a[i + 4])) : y2;
    }
    FS_LONG err = curveto(state, ttf, cd, x1, y1, x2, y2, x3, y3);
    if (err) return err;
    x = x3;
    y = y3;
    horizontal = !horizontal;
    if (last) break;
  }
  return 0;
}

// rlineto, hlineto, vlineto, rrcurveto, rcurveline and rlinecurve.
FS_LONG lines_and_curves(FS_STATE* state, TTF* ttf, CFF_DATA* cd, int op) {
  const FS_LONG* a = cd->args;
  FS_LONG n = cd->numargs, i = 0;
  FS_LONG err = 0;
  auto line = [&](FS_LONG at) {
    return lineto(state, ttf, cd, wadd(cd->prevx, to26(a[at])),
                  wadd(cd->prevy, to26(a[at + 1])));
  };
  auto curve = [&](FS_LONG at) {
    F26DOT6 x1 = wadd(cd->prevx, to26(a[at])), y1 = wadd(cd->prevy, to26(a[at + 1]));
    F26DOT6 x2 = wadd(x1, to26(a[at + 2])), y2 = wadd(y1, to26(a[at + 3]));
    F26DOT6 x3 = wadd(x2, to26(a[at + 4])), y3 = wadd(y2, to26(a[at + 5]));
    return curveto(state, ttf, cd, x1, y1, x2, y2, x3, y3);
  };
  switch (op) {
    case 5:
      if (n < 2) return ERR_CFF_CHARSTRING;
      for (; i + 2 <= n && !err; i += 2) err = line(i);
      return err;
    case 6:
    case 7: {
      if (n < 1) return ERR_CFF_CHARSTRING;
      bool horizontal = op == 6;
      for (; i < n && !err; i++, horizontal = !horizontal) {
        F26DOT6 d = to26(a[i]);
        err = horizontal ? lineto(state, ttf, cd, wadd(cd->prevx, d), cd->prevy)
                         : lineto(state, ttf, cd, cd->prevx, wadd(cd->prevy, d));
      }
      return err;
    }
    case 8:
      if (n < 6) return ERR_CFF_CHARSTRING;
      for (; i + 6 <= n && !err; i += 6) err = curve(i);
      return err;
    case 24:  // curves, then one line
      if (n < 8) return ERR_CFF_CHARSTRING;
      for (; i + 6 <= n - 2 && !err; i += 6) err = curve(i);
      return err ? err : line(i);
    default:  // 25: lines, then one curve
      if (n < 8) return ERR_CFF_CHARSTRING;
      for (; i + 2 <= n - 6 && !err; i += 2) err = line(i);
      return err ? err : curve(i);
  }
}

FS_LONG processseac(FS_STATE* state, TTF* ttf, CFF_DATA* cd, FS_LONG adx,
                    FS_LONG ady, FS_LONG bchar, FS_LONG achar);

// One operator of a charstring; the stack is cleared after path and hint
// operators.
FS_LONG do_operator(FS_STATE* state, TTF* ttf, CFF_DATA* cd, int op,
                    FS_CURSOR* c) {
  FS_LONG* a = cd->args;
  FS_LONG n = cd->numargs;
  FS_LONG err = 0;
  switch (op) {
    case 1: case 3: case 18: case 23: {  // stems
      int b = take_width(cd, (n & 1) != 0);
      FS_LONG pairs = (n - b) / 2;
      if (op == 1 || op == 18) cd->numhstems += pairs;
      else cd->numvstems += pairs;
      break;
    }
    case 19: case 20: {  // hintmask, cntrmask: operands are vstems
      take_width(cd, false);
      cd->numvstems += n / 2;
      FS_ULONG bytes = (FS_ULONG)(cd->numhstems + cd->numvstems + 7) / 8;
      if (!cursor_has(c, bytes)) return ERR_CFF_CHARSTRING;
      cursor_skip(c, bytes);
      break;
    }
    case 21: {
      int b = take_width(cd, n > 2);
      if (n - b < 2) return ERR_CFF_CHARSTRING;
      cd->prevx = wadd(cd->prevx, to26(a[b]));
      cd->prevy = wadd(cd->prevy, to26(a[b + 1]));
      err = moveto(state, ttf, cd);
      break;
    }
    case 22: case 4: {
      int b = take_width(cd, n > 1);
      if (n - b < 1) return ERR_CFF_CHARSTRING;
      if (op == 22) cd->prevx = wadd(cd->prevx, to26(a[b]));
      else cd->prevy = wadd(cd->prevy, to26(a[b]));
      err = moveto(state, ttf, cd);
      break;
    }
    case 5: case 6: case 7: case 8: case 24: case 25:
      cd->widthseen = 1;
      err = lines_and_curves(state, ttf, cd, op);
      break;
    case 26: case 27: case 30: case 31:
      cd->widthseen = 1;
      err = curves(state, ttf, cd, op);
      break;
    case 1234: case 1235: case 1236: case 1237: {
      cd->widthseen = 1;
      FLEXARGS f;
      err = read_flex(cd, op, &f);
      if (!err) err = flexproc(state, ttf, cd, &f);
      break;
    }
    case 10: case 29:
      return call_subr(state, ttf, cd, op == 29);
    case 14: {
      int b = take_width(cd, n == 1 || n == 5);
      err = room_to_close(state, cd);
      if (err) return err;
      close_contour(cd);
      cd->ended = 1;
      if (n - b >= 4) {
        err = processseac(state, ttf, cd, a[b], a[b + 1], a[b + 2] >> 16,
                          a[b + 3] >> 16);
        cd->ended = 1;
      }
      break;
    }
    default:
      if (op >= 1200) return stack_op(cd, op);
      return 0;  // reserved operators are passed over
  }
  cd->numargs = 0;
  return err;
}

// Runs one charstring or subroutine. `return` ends it; endchar ends the
// glyph. The stack carries over into and out of subroutines.
FS_LONG generateoutline(FS_STATE* state, TTF* ttf, const FS_BYTE* ptr,
                        FS_LONG size, CFF_DATA* cd) {
  FS_CURSOR c = cursor_at(ptr, size > 0 ? (FS_ULONG)size : 0);
  while (!cd->ended) {
    int op;
    FS_LONG err = nextcsopcode(&c, cd, &op);
    if (err) return err;
    if (op == -1) return cd->numargs && cd->depth == 0 ? ERR_CFF_CHARSTRING : 0;
    if (op == 11) return 0;
    err = do_operator(state, ttf, cd, op, &c);
    if (err) return err;
  }
  return 0;
}

// The published StandardEncoding: codes 32 to 255 to their SIDs (0 none).
const FS_BYTE kStandardHigh[] = {
    // 161 to 255
    96,  97,  98,  99,  100, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110,
    0,   111, 112, 113, 114, 0,   115, 116, 117, 118, 119, 120, 121, 122, 0,
    123, 0,   124, 125, 126, 127, 128, 129, 130, 131, 0,   132, 133, 0,   134,
    135, 136, 137, 0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,
    0,   0,   0,   0,   138, 0,   139, 0,   0,   0,   0,   140, 141, 142, 143,
    0,   0,   0,   0,   0,   144, 0,   0,   0,   145, 0,   0,   146, 147, 148,
    149, 0,   0,   0,   0};

FS_USHORT adobestd(FS_LONG code) {
  if (code >= 32 && code <= 126) return (FS_USHORT)(code - 31);
  if (code >= 161 && code <= 255) return kStandardHigh[code - 161];
  return 0;
}

// The glyph of a StandardEncoding code: through its SID and the charset (a
// direct hit at the SID's own index first, then a search); with the
// predefined charset a glyph is its SID.
FS_ULONG seac_glyph(CFF_TAB* cff, FS_LONG code) {
  FS_USHORT sid = adobestd(code);
  CFFTOPDICT* t = cff->topdict;
  if (t->charset == nullptr) return sid < t->numglyphs ? sid : 0;
  if (sid < t->numglyphs && t->charset[sid] == sid) return sid;
  for (FS_ULONG g = 0; g < t->numglyphs; g++)
    if (t->charset[g] == sid) return g;
  return 0;
}

// The charstring of glyph `g` drawn from the current point (x, y), as a
// charstring of its own: its stems, width search and stack start afresh.
FS_LONG draw_component(FS_STATE* state, TTF* ttf, CFF_DATA* cd, FS_ULONG g,
                       F26DOT6 x, F26DOT6 y) {
  CFF_TAB* cff = ttf->cff;
  if (is_cid(cff)) {
    FS_LONG err = resetCIDdicts(state, ttf, g);
    if (err) return err;
  }
  FS_ULONG pos = 0, len = 0;
  if (!index_entry(state, ttf, &cff->topdict->charstrings, g, &pos, &len))
    return ERR_CFF_CHARSTRING;
  FS_BYTE* block = nullptr;
  const FS_BYTE* p = len ? fetch_bytes(state, ttf, pos, len, &block) : nullptr;
  if (len && p == nullptr) return ERR_CFF_CHARSTRING;
  cd->numargs = 0;
  cd->prevx = x;
  cd->prevy = y;
  cd->widthseen = 0;
  cd->ended = 0;
  cd->numhstems = cd->numvstems = 0;
  FS_SHORT depth = cd->depth;
  cd->depth = 0;
  FS_LONG err = generateoutline(state, ttf, p, (FS_LONG)len, cd);
  cd->depth = depth;
  release_bytes(state, block);
  if (!err) err = room_to_close(state, cd);
  if (!err) close_contour(cd);
  return err;
}

FS_LONG processseac(FS_STATE* state, TTF* ttf, CFF_DATA* cd, FS_LONG adx,
                    FS_LONG ady, FS_LONG bchar, FS_LONG achar) {
  if (cd->level + 1 > CFF_MAX_SEAC_LEVEL) return ERR_CFF_SEAC_NESTING;
  cd->level++;
  FS_BOOLEAN ownWidth = cd->hasadvwidth;
  FS_FIXED ownDx = cd->dx;
  CFF_TAB* cff = ttf->cff;
  FS_LONG err = draw_component(state, ttf, cd, seac_glyph(cff, bchar), 0, 0);
  if (!err) {
    FS_BOOLEAN has = cd->hasadvwidth;
    FS_FIXED dx = cd->dx;
    err = draw_component(state, ttf, cd, seac_glyph(cff, achar), to26(adx),
                         to26(ady));
    cd->hasadvwidth = has;
    cd->dx = dx;
  }
  if (ownWidth) {  // a width given at endchar wins
    cd->hasadvwidth = 1;
    cd->dx = ownDx;
  }
  cd->level--;
  return err;
}

FS_LONG clamp_units(F26DOT6 v) {
  FS_INT64 u = ((FS_INT64)v + 32) >> 6;
  return u > 32767 ? 32767 : u < -32768 ? -32768 : (FS_LONG)u;
}

// The 8 phantom places behind the points, in font units: the origin at 0,
// the advance `aw`, the vertical places at the mid x with the advance
// height `ah`.
void set_cff_phantoms(fnt_ElementType* el, FS_LONG aw, FS_LONG ah) {
  FS_LONG* x = el->oox + el->np;
  FS_LONG* y = el->ooy + el->np;
  FS_LONG mid = aw / 2;
  x[0] = x[4] = x[5] = 0;
  x[1] = aw;
  x[2] = x[3] = x[6] = x[7] = mid;
  y[0] = y[1] = y[4] = y[5] = 0;
  y[2] = y[6] = ah;
  y[3] = 2 * ah;
  y[7] = 0;
}

FS_LONG fix_mul(FS_LONG a, FS_LONG b) { return varmul_64(a, b, 16); }

}  // namespace

/* ---- Loading ---- */

CFF_TAB* load_cff(FS_STATE* state, TTF* ttf) {
  FS_ULONG off = 0, len = 0;
  if (!get_ttf_table_info(state, ttf, TAG_CFF, &off, &len)) return nullptr;
  ttf->cff_offset = off;
  CFF_TAB* cff = (CFF_TAB*)FSS_calloc(state, sizeof(CFF_TAB));
  if (cff == nullptr) return nullptr;
  CFFTOPDICT* t = (CFFTOPDICT*)FSS_calloc(state, sizeof(CFFTOPDICT));
  if (t == nullptr) {
    FSS_free(state, cff);
    return nullptr;
  }
  cff->topdict = t;
  cff->tablelength = len;
  ttf->cff = cff;  // the bounded readers find the table through it
  FS_LONG err = 0;
  FS_BYTE header[4];
  CFF_INDEX names, top, strings;
  do {
    if (!cff_read(state, ttf, 0, 4, header)) {
      err = ERR_CFF_HEADER;
      break;
    }
    // The third byte is the header's size; the name INDEX follows it.
    cff->nameINDEXoffset = off + header[2];
    err = read_index(state, ttf, header[2], &names);
    if (err) break;
    if (names.count != 1) {
      err = ERR_CFF_HEADER;
      break;
    }
    cff->topdictINDEXoffset = off + names.end;
    cff->topdictINDEXptr = getINDEXptrfromoffset(state, ttf, names.end, &top, &err);
    if (err) break;
    cff->stringINDEXoffset = off + top.end;
    err = read_index(state, ttf, top.end, &strings);
    if (err) break;
    cff->globalsubrINDEXoffset = off + strings.end;
    cff->globalsubrINDEXptr =
        getINDEXptrfromoffset(state, ttf, strings.end, &cff->globalsubrs, &err);
    if (err) break;

    initTopDict(t);
    FS_ULONG dictLen = 0;
    const FS_BYTE* dict = getINDEXptr(cff->topdictINDEXptr, &top, 0, &dictLen);
    if (dict == nullptr || !loadTopDict(t, off, dict, dictLen)) {
      err = ERR_CFF_INDEX_2;
      break;
    }
    if (t->charstringtype != 2) {
      err = ERR_CFF_HEADER_2;
      break;
    }
    cff->charstringINDEXoffset = off + t->charstringsoffset;
    if (t->charstringsoffset == 0) {
      err = ERR_CFF_INDEX_2;
      break;
    }
    err = read_index(state, ttf, t->charstringsoffset, &t->charstrings);
    if (err) break;
    t->numglyphs = t->charstrings.count;
    err = loadCharSet(state, ttf, t);
    if (err) break;
    if (t->registry != 0) {
      if (t->FDarrayoffset < off) {
        err = ERR_CFF_INDEX_2;
        break;
      }
      err = read_index(state, ttf, t->FDarrayoffset - off, &t->fdarray);
      if (err) break;
      t->FDselect = -1;
    } else {
      loadPrivateDict(state, ttf, t->privatedictoffset, t->privatedictsize,
                      &t->privatedict);
    }
  } while (false);
  ttf->cff = nullptr;
  if (err) {
    unload_cff(state, cff);
    state->error = (FS_ULONG)err;
    return nullptr;
  }
  state->error = SUCCESS;
  return cff;
}

void unload_cff(FS_STATE* state, CFF_TAB* cff) {
  if (cff == nullptr) return;
  FSS_free(state, cff->topdictINDEXptr);
  FSS_free(state, cff->globalsubrINDEXptr);
  FSS_free(state, cff->charstringINDEXptr);
  if (cff->topdict != nullptr) FSS_free(state, cff->topdict->charset);
  FSS_free(state, cff->topdict);
  FSS_free(state, cff);
}

FS_LONG cff_summary(FS_STATE* state, TTF* ttf, CFF_SUMMARY* out) {
  memset(out, 0, sizeof *out);
  CFF_TAB* cff = ttf ? ttf->cff : nullptr;
  if (cff == nullptr) return fail(state, ERR_FORMAT_NOT_SUPPORTED);
  CFFTOPDICT* t = cff->topdict;
  out->cid = is_cid(cff);
  out->font_dicts = t->fdarray.count;
  out->global_subrs = cff->globalsubrs.count;
  if (out->cid && t->FDselect != 0) {
    FS_LONG err = load_font_dict(state, ttf, 0);
    if (err) return fail(state, err);
  }
  out->local_subrs = t->privatedict.subrs.count;
  out->default_width = t->privatedict.defaultwidthX;
  out->nominal_width = t->privatedict.nominalwidthX;
  state->error = SUCCESS;
  return 0;
}

/* ---- Glyphs ---- */

FS_LONG loadGlyph(FS_STATE* state, TTF* ttf, fsg_SplineKey* key, int index) {
  fnt_ElementType* el = fsg_glyph_element(key);
  el->nc = el->np = 0;
  CFF_DATA* cd = &key->cffdata;
  memset(cd, 0, sizeof *cd);
  cd->key = key;
  CFF_TAB* cff = ttf->cff;
  CFFTOPDICT* t = cff->topdict;
  FS_LONG err = 0;
  if (is_cid(cff)) err = resetCIDdicts(state, ttf, (FS_ULONG)index);
  FS_ULONG pos = 0, len = 0;
  if (!err && !index_entry(state, ttf, &t->charstrings, (FS_ULONG)index, &pos, &len))
    err = ERR_CFF_CHARSTRING;
  if (!err && len > 0) {
    FS_BYTE* block = nullptr;
    const FS_BYTE* p = fetch_bytes(state, ttf, pos, len, &block);
    if (p == nullptr) {
      err = state->error ? (FS_LONG)state->error : ERR_CFF_CHARSTRING;
    } else {
      cd->level = 0;
      err = generateoutline(state, ttf, p, (FS_LONG)len, cd);
      if (!err) err = room_to_close(state, cd);
      if (!err) close_contour(cd);
      release_bytes(state, block);
    }
  }
  el = fsg_glyph_element(key);
  if (err) {
    el->nc = el->np = 0;
    return fail(state, err);
  }
  // Each contour reversed into TrueType's direction, into whole font units.
  for (FS_SHORT k = 0; k < el->nc; k++) {
    for (FS_LONG i = el->sp[k], j = el->ep[k]; i < j; i++, j--) {
      F26DOT6 tx = el->x[i], ty = el->y[i];
      FS_BYTE to = el->onCurve[i];
      el->x[i] = el->x[j], el->y[i] = el->y[j], el->onCurve[i] = el->onCurve[j];
      el->x[j] = tx, el->y[j] = ty, el->onCurve[j] = to;
    }
  }
  for (FS_LONG i = 0; i < el->np; i++) {
    el->oox[i] = clamp_units(el->x[i]);
    el->ooy[i] = clamp_units(el->y[i]);
    el->f[i] = 0;
  }
  fsg_Metrics m;
  err = get_glyph_metrics(state, key, (FS_ULONG)index, &m);
  if (err) return err;
  FS_LONG aw;
  if (cd->hasadvwidth)
    aw = t->privatedict.nominalwidthX + (FS_LONG)(((FS_INT64)cd->dx + 0x8000) >> 16);
  else if (ttf->hmtx_offset != 0)
    aw = m.aw;
  else
    aw = t->privatedict.defaultwidthX;
  set_cff_phantoms(el, aw, m.ah);
  key->num_points = (FS_USHORT)el->np;
  key->num_contours = (FS_USHORT)el->nc;
  return 0;
}

FS_LONG cff_GridFit(FS_STATE* state, fsg_SplineKey* key, FS_BOOLEAN useHints) {
  fsg_reset_fit(state, key);
  TTF* ttf = key->sfnt && key->sfnt->lfnt ? (TTF*)key->sfnt->lfnt->fnt : nullptr;
  if (ttf == nullptr) return fail(state, ERR_FONT_NOT_LOADED);
  if (ttf->cff == nullptr) return fail(state, ERR_FONT_TYPE_UNSUPPORTED);
  // Another key of the font may have grown the element's limits.
  if (key->max_points < key->maxp->maxPoints ||
      key->max_contours < key->maxp->maxContours) {
    if (key->max_points < key->maxp->maxPoints) key->max_points = key->maxp->maxPoints;
    if (key->max_contours < key->maxp->maxContours)
      key->max_contours = key->maxp->maxContours;
    fsg_size_key(key, ttf);
    FS_LONG err = fsg_grow_workspace(state, key);
    if (err) return fail(state, err);
  }
  FS_LONG err = fs_SetUpKey(state, key);
  if (err) return err;
  if (state->server->workspace_sfnt != key->sfnt) {
    err = fsg_RunPreProgram(state, key);
    if (err) return err;
  }
  err = loadGlyph(state, ttf, key, key->glyphIndex);
  if (err) return fail(state, err);
  // scale_char: font units to 26.6 pixels by the key's per-axis scaling.
  fnt_ElementType* el = fsg_glyph_element(key);
  FS_LONG total = el->np + 8;
  for (FS_LONG i = 0; i < total; i++) {
    el->ox[i] = el->x[i] = scale_value(&key->scaleX, el->oox[i]);
    el->oy[i] = el->y[i] = scale_value(&key->scaleY, el->ooy[i]);
  }
  FS_BOOLEAN hints = useHints && !(state->flags & FLAGS_NO_HINTS);
  if (hints) {
    F26DOT6* x = el->x + el->np;
    x[0] = (x[0] + 32) & ~63;
    bool autohint = (state->flags & FLAGS_GRAYSCALE) &&
                    ((state->flags & (FLAGS_FORCE_AUTOHINT | FLAGS_REF_LINE_PASS)) ||
                     !(state->flags & FLAGS_NO_AUTOHINT)) &&
                    key->sfnt->rtgah_suitable && el->np > 0;
    // CFF stem hints are not read: the real-time autohinter hints the glyph.
    if (autohint) {
      err = fsg_autohint_element(state, key);
      if (err) return err;
    }
    SENV* senv = key->sfnt->senv;
    if (senv != nullptr && senv->vanilla) x[1] = (x[1] + 32) & ~63;
  }
  if (!key->identityTransformation) {
    FS_FIXED(*m)[3] = key->currentTMatrix;
    for (FS_LONG i = 0; i < total; i++) {
      F26DOT6 x = el->x[i], y = el->y[i];
      el->x[i] = fix_mul(x, m[0][0]) + fix_mul(y, m[1][0]);
      el->y[i] = fix_mul(x, m[0][1]) + fix_mul(y, m[1][1]);
    }
  }
  state->error = SUCCESS;
  return 0;
}
