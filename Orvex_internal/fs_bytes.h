// Big-endian readers for font data left in file byte order, and the
// bounds-checked cursor the loaders decode tables with. Header only; used by
// every unit that reads sfnt tables (container, bitmaps, and those to come).
#ifndef ORVEX_INTERNAL_FS_BYTES_H
#define ORVEX_INTERNAL_FS_BYTES_H

#include "Orvex_internal/fs_fixed.h"

// Readers at a pointer: the caller has made sure the bytes are there.
inline FS_USHORT get_u16(const FS_BYTE* p) {
  return (FS_USHORT)((p[0] << 8) | p[1]);
}
inline FS_SHORT get_s16(const FS_BYTE* p) { return (FS_SHORT)get_u16(p); }
inline FS_ULONG get_u32(const FS_BYTE* p) {
  return ((FS_ULONG)p[0] << 24) | ((FS_ULONG)p[1] << 16) |
         ((FS_ULONG)p[2] << 8) | (FS_ULONG)p[3];
}
inline FS_LONG get_s32(const FS_BYTE* p) { return (FS_LONG)get_u32(p); }

// The host-order reading of 4 file bytes on the little-endian hosts the
// engine runs on (check_types refuses others): what an unconverted word holds.
inline FS_ULONG get_u32_host(const FS_BYTE* p) {
  return (FS_ULONG)p[0] | ((FS_ULONG)p[1] << 8) | ((FS_ULONG)p[2] << 16) |
         ((FS_ULONG)p[3] << 24);
}
inline FS_USHORT get_u16_host(const FS_BYTE* p) {
  return (FS_USHORT)(p[0] | (p[1] << 8));
}

// Writes v big-endian at p.
inline void put_u32(FS_BYTE* p, FS_ULONG v) {
  p[0] = (FS_BYTE)(v >> 24);
  p[1] = (FS_BYTE)(v >> 16);
  p[2] = (FS_BYTE)(v >> 8);
  p[3] = (FS_BYTE)v;
}

// A sfnt tag from its four characters, as the directory holds it once read.
constexpr FS_ULONG FS_MAKE_TAG(char a, char b, char c, char d) {
  return ((FS_ULONG)(FS_BYTE)a << 24) | ((FS_ULONG)(FS_BYTE)b << 16) |
         ((FS_ULONG)(FS_BYTE)c << 8) | (FS_ULONG)(FS_BYTE)d;
}

// Reads a table front to back. A read that would pass the end yields 0 (and
// an empty copy), moves the cursor to the end and marks `overrun`, so that a
// malformed table decodes to zeros and never reads outside its bytes.
struct FS_CURSOR {
  const FS_BYTE* data;
  FS_ULONG size;
  FS_ULONG pos;
  FS_BOOLEAN overrun;
};

inline FS_CURSOR cursor_at(const FS_BYTE* data, FS_ULONG size,
                           FS_ULONG pos = 0) {
  FS_CURSOR c = {data, size, pos, 0};
  if (data == nullptr) c.size = 0;
  if (pos > c.size) {
    c.pos = c.size;
    c.overrun = 1;
  }
  return c;
}

// True when n more bytes stand behind the cursor.
inline bool cursor_has(const FS_CURSOR* c, FS_ULONG n) {
  return c->pos <= c->size && n <= c->size - c->pos;
}

inline const FS_BYTE* cursor_take(FS_CURSOR* c, FS_ULONG n) {
  if (!cursor_has(c, n)) {
    c->pos = c->size;
    c->overrun = 1;
    return nullptr;
  }
  const FS_BYTE* p = c->data + c->pos;
  c->pos += n;
  return p;
}

inline FS_BYTE cursor_u8(FS_CURSOR* c) {
  const FS_BYTE* p = cursor_take(c, 1);
  return p ? p[0] : 0;
}
inline FS_TINY cursor_s8(FS_CURSOR* c) { return (FS_TINY)cursor_u8(c); }
inline FS_USHORT cursor_u16(FS_CURSOR* c) {
  const FS_BYTE* p = cursor_take(c, 2);
  return p ? get_u16(p) : 0;
}
inline FS_SHORT cursor_s16(FS_CURSOR* c) { return (FS_SHORT)cursor_u16(c); }
inline FS_ULONG cursor_u32(FS_CURSOR* c) {
  const FS_BYTE* p = cursor_take(c, 4);
  return p ? get_u32(p) : 0;
}
inline FS_LONG cursor_s32(FS_CURSOR* c) { return (FS_LONG)cursor_u32(c); }

// Copies n bytes out, zeros for what is missing.
inline void cursor_bytes(FS_CURSOR* c, void* out, FS_ULONG n) {
  FS_BYTE* o = (FS_BYTE*)out;
  const FS_BYTE* p = cursor_take(c, n);
  for (FS_ULONG i = 0; i < n; i++) o[i] = p ? p[i] : 0;
}

inline void cursor_skip(FS_CURSOR* c, FS_ULONG n) { (void)cursor_take(c, n); }

#endif
