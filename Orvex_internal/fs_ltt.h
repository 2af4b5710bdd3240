// Linked fonts: the reader of a linked font file ("LTT\n": a text head, one
// text block per component, binary size adjustment and group type tables)
// into its in-memory form FsLtt, from which font loading builds a font set of
// several components; and the one place resolver that says where a
// component's font lies. Called by font loading; calls the heap and file
// access.
#ifndef ORVEX_INTERNAL_FS_LTT_H
#define ORVEX_INTERNAL_FS_LTT_H

#include "Orvex_internal/fs_fio.h"
#include "Orvex_internal/fs_state.h"

// The linked font's own codes (their numbers are shared with other meanings
// elsewhere in the engine's list).
const FS_ULONG LTT_ERR_VERSION = 446;  // version 9 or above
const FS_ULONG LTT_ERR_MAGIC = 505;    // the file doesn't start "LTT\n"

const FS_USHORT LTT_MAX_VERSION = 8;
const FS_ULONG LTT_BLOCK = 512;       // a component block; the head up to 6
const FS_ULONG LTT_BIG_HEAD = 1024;   // the head of versions 7 and 8
const FS_ULONG LTT_PATH_MAX = 256;    // a component path with its terminator

// Where a font-set table lies in the linked file.
struct FsLttOtTable {
  FS_ULONG offset;
  FS_ULONG size;
};

// 64 coverage bits of one Unicode plane, one per block of 1024 codes.
struct FsUnicodePlaneCoverage {
  FS_ULONG range1;
  FS_ULONG range2;
};

// A size adjustment record: from `ppem` up, the component is drawn `scale`
// (8.8) pixels larger and `shift` pixels higher.
struct FsPPemAdjust {
  FS_USHORT ppem;
  FS_FIX88 scale;
  FS_SHORT shift;
};

struct FsGroupType {
  FS_USHORT group;
  FS_USHORT type;
};

struct FsLtt;

// One component block.
struct FsLttComponent {
  FILECHAR* fontName;  // owned, null when the block has none
  FILECHAR* fileName;  // owned
  FsUnicodePlaneCoverage bmp;
  FS_USHORT numGlyphs;
  FS_USHORT numIcons;
  FS_ULONG ttcIndex;
  FILECHAR* targetCId;  // owned
  FILECHAR* targetDir;  // owned
  FS_BYTE* targetPtr;   // an address an embedding writes at run time
  FS_ULONG targetOff;
  FS_ULONG targetLen;
  FS_ULONG fontOffset;  // a component inside the linked file
  FS_ULONG fontSize;
  FS_BOOLEAN bold;
  FS_FIXED boldPercent;
  FS_BOOLEAN italic;
  FS_FIXED italicAngle;
  FsUnicodePlaneCoverage smp, sip, ssp;
  FS_ULONG adjustmentsOffset;
  FS_USHORT numAdjustments;
  FsPPemAdjust* adjustments;  // owned; null unless loaded
  FS_USHORT adjustmentsCapacity;
  FS_USHORT group;
  FILECHAR* winPath;  // not filled by the reader
  FsLtt* ltt;
};

struct FsLtt {
  FS_USHORT version;
  FS_USHORT numLegal;
  FILECHAR** legal;  // numLegal owned strings (null for a line without one)
  FILECHAR* name;
  FILECHAR* subfamilyName;
  FILECHAR* fileversion;
  FS_USHORT numComponents;
  FS_USHORT mtrxComponent;
  FsLttComponent* components;  // numComponents, owned; null for none
  FsLttOtTable ttf_name;
  FS_ULONG maxp_off, os_2_off, head_off, hhea_off, vhea_off, post_off;
  FsLttOtTable kern, cmap, gdef, gsub, gpos;
  FS_ULONG groupTypesOffset;
  FS_USHORT numGroupTypes;
  FsGroupType* groupTypes;  // owned
  FS_USHORT groupTypesCapacity;
  FS_USHORT capacityComponents;
  FS_STATE* fsState;  // the client whose heap holds the strings and arrays
};

/* ---- Life cycle ---- */

// A zeroed record on the client's heap, initialised; null with 201.
FsLtt* FsLtt_new(FS_STATE* state);
// Zeroes `ltt` and ties it to the client's heap.
void FsLtt_init(FsLtt* ltt, FS_STATE* state);
// Frees what the record holds and zeroes it again (still tied to the heap).
void FsLtt_done(FsLtt* ltt);
// FsLtt_done and the record itself (one made by FsLtt_new).
void FsLtt_delete(FsLtt* ltt);

/* ---- Readers ---- */

// Reads the linked font from the open file (its start at the file's start):
// head, component blocks, each component's adjustments when
// `loadAdjustments`, and the group types. Returns 0 or the error: 106 short
// read, 201 heap, 443 no components, 445 a legal count of 0 or above 9, 446
// version 9 or above, 505 wrong magic, 102/104 file errors. On failure the
// record holds nothing.
FS_LONG FsLtt_read(FsLtt* ltt, FS_FILE* fp, FS_BOOLEAN loadAdjustments);
// The same from a memory image of `size` bytes; a size of 0 means unknown
// (the caller vouches for every offset the file names).
FS_LONG FsLtt_load(FsLtt* ltt, const FS_BYTE* mem, FS_ULONG size,
                   FS_BOOLEAN loadAdjustments);

// The head block from the file: 512 bytes, 512 more from version 7. `buffer`
// holds LTT_BIG_HEAD + 1 bytes; the block's size goes to *headSize.
FS_LONG FsLtt_readHead(FsLtt* ltt, FS_FILE* fp, FILECHAR* buffer,
                       size_t* headSize);
// Fills the head fields from a head block of `headSize` bytes.
FS_LONG FsLtt_headFromBuffer(FsLtt* ltt, const FILECHAR* buffer,
                             size_t headSize);
// The magic (505) and the version (446 from 9); version 0 reads as 1.
FS_LONG FsLtt_versionFromBuffer(const FILECHAR* buffer, FS_USHORT* version);
// One component block from the file (at the file's position).
FS_LONG FsLttComponent_read(FsLttComponent* c, FsLtt* ltt, FS_FILE* fp);
// Fills a component from its 512-byte block.
FS_LONG FsLttComponent_fromBuffer(FsLttComponent* c, FsLtt* ltt,
                                  const FILECHAR* buffer);
// Records from big-endian bytes: 6 a size adjustment, 4 a group type.
void FsPPemAdjust_fromBuffer(FsPPemAdjust* adj, const FS_BYTE* buffer);
void FsGroupType_fromBuffer(FsGroupType* g, const FS_BYTE* buffer);

/* ---- Text helpers ---- */

// A new string of the text up to the first newline within `n` bytes of `s`,
// *e set behind the newline. No newline, or no memory, gives null and *e
// stays at `s`.
FILECHAR* strnltonewstr(FS_STATE* state, const FILECHAR* s, size_t n,
                        const FILECHAR** e);
// A decimal number in 16.16: the integer part, then up to 7 decimals, each
// digit rounded by itself; the sign is applied last. *e (when not null) is
// set behind the number.
FS_FIXED strtoFS_FIXED(const FILECHAR* s, const FILECHAR** e);

/* ---- Accessors ---- */

const FILECHAR* FsLtt_getName(const FsLtt* ltt);
// "Regular" when the file names none.
const FILECHAR* FsLtt_getSubfamilyName(const FsLtt* ltt);
const FILECHAR* FsLtt_getFileVersion(const FsLtt* ltt);
FS_USHORT FsLtt_numComponents(const FsLtt* ltt);
// Null beyond the last.
FsLttComponent* FsLtt_component(FsLtt* ltt, FS_USHORT n);
// The metric component, null when its number is out of range.
FsLttComponent* FsLtt_getMetric(FsLtt* ltt);
// The type of `group` from the sorted group table; 0 for group 0 and for a
// group not in it.
FS_USHORT FsLtt_getGroupType(const FsLtt* ltt, FS_USHORT group);
FS_BOOLEAN FsLttComponent_isBold(const FsLttComponent* c);
FS_BOOLEAN FsLttComponent_isItalic(const FsLttComponent* c);
FS_USHORT FsLttComponent_numAdjustments(const FsLttComponent* c);
// Record `n` of the loaded table; null when not loaded or beyond it.
FsPPemAdjust* FsLttComponent_getAdjustment(FsLttComponent* c, FS_USHORT n);
// `adj->ppem` holds the size asked for. The result is the last record at or
// below it, all zero when there is none; *maxppem is the next record's size
// less 1 (the first record's less 1 below the table, 0xFFFF above the last
// and for an empty table). 521 for a count with no loaded records.
FS_LONG FsLttComponent_getAdjustmentAndRange(FsLttComponent* c,
                                             FsPPemAdjust* adj,
                                             FS_USHORT* maxppem);

/* ---- Component places ---- */

// Where a component's font lies.
struct FsLttPlace {
  FILECHAR path[LTT_PATH_MAX];  // empty for a font in memory
  FS_BYTE* memptr;
  FS_ULONG offset;
  FS_ULONG length;
};

// The place of component `c` of a linked font at `lttPath` (its folder is
// the base of relative places; null or empty: none) or in memory at
// `lttMem` (the linked font at `lttOffset` there). By `targetCId` the
// embedding's FS_callback_get_target answers; "." the file in the linked
// font's folder; "./", ".\", "../", "..\" a folder under it; another folder
// as it stands; no folder: inside the linked font (`fontOffset`,
// `fontSize`), or memory at `targetPtr`. A "/" is added to a folder that
// ends in neither "/" nor "\"; backslashes are kept as characters; the
// whole path is cut at 255 characters. Returns 0, or 521 when the callback
// fails or gives neither memory nor a file.
FS_LONG FsLttComponent_place(FS_STATE* state, const FsLttComponent* c,
                             const FILECHAR* lttPath, FS_BYTE* lttMem,
                             FS_ULONG lttOffset, FsLttPlace* place);

// The embedding's hook for components reachable by identifier: fills
// *address, or a file name into `path` (`pathLen` bytes), and the font's
// *offset and *length; non-zero refuses. The library's own answers 0 and
// fills nothing.
FS_LONG FS_callback_get_target(const FILECHAR* id, FS_BYTE** address,
                               FILECHAR* path, FS_ULONG pathLen,
                               FS_ULONG* offset, FS_ULONG* length);

#endif
