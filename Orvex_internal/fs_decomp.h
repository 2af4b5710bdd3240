// Compressed fonts: sfnt images whose directory holds a `zrp3` table, read
// with random access straight from memory. The table lists the blocks of the
// uncompressed font, each stored raw or as a stream of dictionary tokens
// with access marks; outlines in `glyf` are in addition kept in a compact
// spline form that is turned back into standard `glyf` data as it is read.
// The container loader, its read path and the table lender call in here.
#ifndef ORVEX_INTERNAL_FS_DECOMP_H
#define ORVEX_INTERNAL_FS_DECOMP_H

#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_state.h"

/* ---- Bit reader ---- */

// Reads bits most significant first from `size` bytes; bits past the end
// read as 0, so a damaged stream decodes to zeros and never reads outside.
struct BITIO {
  const FS_BYTE* data;
  FS_ULONG size;
  FS_UINT64 pos;  // in bits
};

void QSX_BITIO_Create(BITIO* bio, const FS_BYTE* data, FS_ULONG size);
// The next `numberOfBits` (0 to 32) bits; 0 bits read 0.
FS_ULONG QSX_BITIO_ReadValue(BITIO* bio, FS_LONG numberOfBits);
FS_ULONG QSX_BITIO_Read8(BITIO* bio);
FS_ULONG QSX_BITIO_Read32(BITIO* bio);

/* ---- Token blocks ---- */

// Bytes a token block decoded: `len` bytes from uncompressed place `start`,
// the code stream at bit `bit` after them. A fragment inside a span is read
// from it; one starting inside it is decoded on from its end.
struct QSX_SPAN {
  FS_BYTE* bytes;
  FS_ULONG start, len;
  FS_UINT64 bit;
  FS_ULONG used;  // the decoder's clock at the last use
};
const int QSX_SPANS = 8;

// One compressed block's decoder. Arrays of the block header are read in
// place (`lengths`, `string`, `bitMarks`, `deltaBytes`) or unpacked once
// (`offsets`, the groups); the 10-bit lookup tables are built at first use.
struct QSX_RA_DECOMP {
  BITIO bio;  // the code stream, from `token_offset` to the block's end
  FS_ULONG unCompressedByteCount;
  FS_ULONG num_tokens;
  FS_ULONG string_len;
  const FS_BYTE* string;
  FS_ULONG* offsets;        // per token, into `string`
  const FS_BYTE* lengths;   // per token, at least 1
  FS_ULONG num_groups;
  FS_ULONG* firsts;         // per group: first and last code
  FS_ULONG* lasts;
  FS_BYTE* bits;            // per group: code length, ascending
  FS_ULONG* tokens;         // per group: tokens of the groups before it
  FS_ULONG next;            // the coming 10 bits at the last lookup
  FS_ULONG slowGroup;       // first group with codes longer than 10 bits
  FS_ULONG numMarks;
  const FS_BYTE* bitMarks;  // 4 bytes per access unit
  const FS_BYTE* deltaBytes;
  FS_ULONG token_offset;
  FS_ULONG* token_num_table;   // 1024 slots, built by build_token_table
  FS_BYTE* token_bits_table;   // 1024 slots: code length, 0 for none
  // The last spans of bytes decoded, kept for the fragments to come.
  QSX_SPAN spans[QSX_SPANS];
  FS_ULONG spanClock;  // counts uses, to replace the span unused longest
};

// Reads the block header at `data`, of which `avail` bytes lie in the image.
// A wrong magic, arrays past the block or the image, groups out of order,
// a token of length 0 or past the dictionary: null with 1030. 201 for memory.
QSX_RA_DECOMP* QSX_RA_DECOMP_Create(FS_STATE* state, const FS_BYTE* data,
                                    FS_ULONG avail);
void QSX_RA_DECOMP_Destroy(FS_STATE* state, QSX_RA_DECOMP* d);

// Fills the 10-bit lookup tables. 0 or 201.
FS_LONG build_token_table(FS_STATE* state, QSX_RA_DECOMP* d);
// The next token of the stream; a code in no group sets 1030 and gives -1.
FS_LONG get_next_token(FS_STATE* state, QSX_RA_DECOMP* d);
// The dictionary slice of `token`: its bytes and length.
const FS_BYTE* ReadSymbol(QSX_RA_DECOMP* d, FS_ULONG token, FS_ULONG* length);

// A new zeroed buffer of *byteCountPtr bytes holding the block's bytes from
// `position`, decoded from the access unit of `byteCacheInterval` bytes that
// holds it; bytes past the block's content read as 0. Null with 1030 for a
// damaged stream, 201 for memory.
void* QSX_RA_GetFragmentPtr(FS_STATE* state, QSX_RA_DECOMP* d,
                            FS_ULONG position, FS_ULONG* byteCountPtr,
                            FS_USHORT byteCacheInterval);

/* ---- The compressed font ---- */

struct QSX_ROM_BLOCK {
  FS_ULONG start;     // in the uncompressed font
  FS_ULONG length;
  FS_ULONG cmpStart;  // in the image
  FS_USHORT isCompressed;  // 0 raw; 1 tokens in 128-byte units; else the unit
  QSX_RA_DECOMP* decomp;
};

struct QSX_TABLE_COMPRESS {
  FS_ULONG numEntries;
  QSX_ROM_BLOCK* rb;  // sorted by `start`
};

struct QSX_RA_TT_Decomp {
  FS_ULONG glyf_OffsetStart, glyf_OffsetEnd;  // `glyf` in the uncompressed font
  FS_ULONG headerLength;
  FS_ULONG uncmpSize, cmpSize;
  QSX_TABLE_COMPRESS tc;
  FS_BYTE* cmpStart;  // the image's bounds in memory
  FS_BYTE* cmpEnd;
  FS_BOOLEAN compactGlyphs;  // `ccc`/`ddd`: glyph data is passed unconverted
};

// Looks at the font image at `compressedData`, `length` bytes long (0: the
// caller vouches for the image, and the `zrp3` table's size bounds it). The
// version must be 0x00010000, 0x00020000, `true`, `OTTO`, or `ttcf` followed
// by one of those, else null with 403. A font without a `zrp3` table gives
// null with `error` 0: it is a plain font. A damaged table or block header
// gives null with 1030, nothing left behind.
QSX_RA_TT_Decomp* QSX_RA_TT_Create(FS_STATE* state, FS_BYTE* compressedData,
                                   FS_ULONG length);

// Frees a decoder. Accepts null.
void QSX_RA_TT_Destroy(FS_STATE* state, QSX_RA_TT_Decomp* decomp);

// The uncompressed font's size as the `zrp3` table gives it.
FS_ULONG QSX_RA_TT_getUncompressedFileSize(QSX_RA_TT_Decomp* decomp);

// Offset of the `zrp3` table's directory entry in the sfnt header at `sfnt`
// of `length` readable bytes, or 0 when there is none.
FS_ULONG findZRPtable(const FS_BYTE* sfnt, FS_ULONG length);

// The uncompressed bytes from `position`, *byteCountPtr of them asked. A
// fragment wholly inside a raw block is a pointer into the image; otherwise
// a new buffer, zeros past the block. A fragment within `glyf` of a font that
// is neither `ccc` nor `ddd` comes back converted to a standard glyph, with
// its new length in *byteCountPtr. Null for a count of 0, and with the error
// (201, 407, 1030) when decoding fails.
void* QSX_RA_Get_TTF_FragmentPtr(FS_STATE* state, QSX_RA_TT_Decomp* decomp,
                                 FS_ULONG position, FS_ULONG* byteCountPtr);

// The fragment at `position` copied into `dest` (`count` bytes, zeros where
// it has none); the error (201, 407, 1030) is left in `state`.
void QSX_RA_CopyTTF_Fragment(FS_STATE* state, QSX_RA_TT_Decomp* decomp,
                             FS_ULONG position, FS_ULONG count, FS_BYTE* dest);

// Gives a fragment back: frees a buffer, leaves a pointer into the image.
void QSX_RA_ReleaseTTF_Fragment(FS_STATE* state, QSX_RA_TT_Decomp* decomp,
                                void* fragment);

// Whether `p` points into the compressed image (a raw block lent in place).
bool QSX_RA_TT_InImage(const QSX_RA_TT_Decomp* decomp, const void* p);

/* ---- The compact spline form of `glyf` ---- */

// A new standard `glyf` entry from the spline form at `spline` of
// `oldLength` bytes, its length in *newLength. Null with 407 for a malformed
// spline, 201 for memory.
FS_BYTE* QSX_TTC_GetTTFGlyphMemory(FS_STATE* state, const FS_BYTE* spline,
                                   FS_ULONG oldLength, FS_ULONG* newLength);

// Compact numbers of the spline form, read at the cursor.
FS_USHORT Read255UShort(FS_CURSOR* c);
FS_SHORT Read255Short(FS_CURSOR* c);

// One row of the 128 point codes: bytes (code byte included), bit widths,
// bases and signs of the x and y deltas.
struct QSX_COORD_ENCODING {
  FS_BYTE byteCount, xBits, yBits;
  FS_USHORT deltaX, deltaY;
  FS_BOOLEAN xIsNegative, yIsNegative;
};
extern const QSX_COORD_ENCODING (&coordEncoding)[128];

#endif
