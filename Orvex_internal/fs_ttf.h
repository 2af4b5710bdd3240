// The TrueType container loader: turns one font, in a file or in memory,
// into a TTF record holding the sfnt table directory, the small header
// tables swapped to native order, the whole tables every glyph needs, and
// the offsets of the tables read on demand. Plain sfnt fonts with `glyf`
// outlines, OpenType fonts with a `CFF ` table, members of collections, and
// the engine's compact `ccc`/`ddd` glyph formats. Called by font loading and
// validation; every later reader of font data goes through ttf_read and the
// record. Calls the file access, the heap, and the CFF, bitmap and
// compressed-font units.
#ifndef ORVEX_INTERNAL_FS_TTF_H
#define ORVEX_INTERNAL_FS_TTF_H

#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_fio.h"
#include "Orvex_internal/fs_state.h"

struct CFF_TAB;
struct TTF_EBLC_PARTIAL;
struct fnt_funcDef;   // interpreter records, 8 bytes each
struct fnt_instrDef;
struct TTF_CMAP;      // the `cmap` table's bytes, in file order

// Tags the loader looks for.
constexpr FS_ULONG TAG_ttcf = FS_MAKE_TAG('t', 't', 'c', 'f');
constexpr FS_ULONG TAG_true = FS_MAKE_TAG('t', 'r', 'u', 'e');
constexpr FS_ULONG TAG_OTTO = FS_MAKE_TAG('O', 'T', 'T', 'O');
constexpr FS_ULONG TAG_zrp3 = FS_MAKE_TAG('z', 'r', 'p', '3');
constexpr FS_ULONG TAG_CFF = FS_MAKE_TAG('C', 'F', 'F', ' ');
constexpr FS_ULONG TAG_glyf = FS_MAKE_TAG('g', 'l', 'y', 'f');
constexpr FS_ULONG TAG_loca = FS_MAKE_TAG('l', 'o', 'c', 'a');
constexpr FS_ULONG TAG_maxp = FS_MAKE_TAG('m', 'a', 'x', 'p');
constexpr FS_ULONG TAG_head = FS_MAKE_TAG('h', 'e', 'a', 'd');
constexpr FS_ULONG TAG_hhea = FS_MAKE_TAG('h', 'h', 'e', 'a');
constexpr FS_ULONG TAG_hmtx = FS_MAKE_TAG('h', 'm', 't', 'x');
constexpr FS_ULONG TAG_vhea = FS_MAKE_TAG('v', 'h', 'e', 'a');
constexpr FS_ULONG TAG_vmtx = FS_MAKE_TAG('v', 'm', 't', 'x');
constexpr FS_ULONG TAG_cmap = FS_MAKE_TAG('c', 'm', 'a', 'p');
constexpr FS_ULONG TAG_FLNT = FS_MAKE_TAG('F', 'L', 'N', 'T');
constexpr FS_ULONG TAG_cvt = FS_MAKE_TAG('c', 'v', 't', ' ');
constexpr FS_ULONG TAG_prep = FS_MAKE_TAG('p', 'r', 'e', 'p');
constexpr FS_ULONG TAG_fpgm = FS_MAKE_TAG('f', 'p', 'g', 'm');
constexpr FS_ULONG TAG_CBLC = FS_MAKE_TAG('C', 'B', 'L', 'C');
constexpr FS_ULONG TAG_CBDT = FS_MAKE_TAG('C', 'B', 'D', 'T');
constexpr FS_ULONG TAG_EBLC = FS_MAKE_TAG('E', 'B', 'L', 'C');
constexpr FS_ULONG TAG_EBDT = FS_MAKE_TAG('E', 'B', 'D', 'T');
constexpr FS_ULONG TAG_kern = FS_MAKE_TAG('k', 'e', 'r', 'n');
constexpr FS_ULONG TAG_Icon = FS_MAKE_TAG('I', 'c', 'o', 'n');
constexpr FS_ULONG TAG_ADFH = FS_MAKE_TAG('A', 'D', 'F', 'H');
constexpr FS_ULONG TAG_gasp = FS_MAKE_TAG('g', 'a', 's', 'p');
constexpr FS_ULONG TAG_nstk = FS_MAKE_TAG('n', 's', 't', 'k');
constexpr FS_ULONG TAG_OS2 = FS_MAKE_TAG('O', 'S', '/', '2');
constexpr FS_ULONG TAG_name = FS_MAKE_TAG('n', 'a', 'm', 'e');
constexpr FS_ULONG TAG_VDMX = FS_MAKE_TAG('V', 'D', 'M', 'X');
constexpr FS_ULONG TAG_hdmx = FS_MAKE_TAG('h', 'd', 'm', 'x');

const FS_ULONG TTF_HEAD_MAGIC = 0x5F0F3CF5;
const FS_BYTE FNT_TYPE_OTT = 7;  // fontfile_type of a CFF OpenType font
const FS_ULONG TTF_MAX_DIR_ENTRIES = 50;  // more stay unconverted

// Collection header, native order. `offsets` points just behind the record,
// in the same block: numFonts entries.
struct TTC_HEADER {
  FS_ULONG tag;
  FS_FIXED version;
  FS_ULONG numFonts;
  FS_ULONG* offsets;
};

struct TTF_DIR {
  FS_ULONG tag;
  FS_ULONG checkSum;
  FS_ULONG offset;  // from the font's start
  FS_ULONG length;
};

// The sfnt header with its directory. `tables` points just behind the
// record, in the same block.
struct TTF_HEADER {
  FS_FIXED version;
  FS_USHORT numTables;
  FS_USHORT searchRange;
  FS_USHORT entrySelector;
  FS_USHORT rangeShift;
  TTF_DIR* tables;
};

struct TTF_HEAD {
  FS_FIXED version;
  FS_FIXED fontRevision;
  FS_ULONG checkSumAdjustment;
  FS_ULONG magicNumber;
  FS_USHORT flags;
  FS_USHORT unitsPerEm;
  FS_ULONG created[2];
  FS_ULONG modified[2];
  FS_SHORT xMin;
  FS_SHORT yMin;
  FS_SHORT xMax;
  FS_SHORT yMax;
  FS_USHORT macStyle;
  FS_USHORT lowestRecPPEM;
  FS_SHORT fontDirectionHint;
  FS_SHORT indexToLocFormat;
  FS_SHORT glyphDataFormat;
};

struct TTF_HHEA {
  FS_FIXED version;
  FS_SHORT yAscender;
  FS_SHORT yDescender;
  FS_SHORT yLineGap;
  FS_USHORT advanceWidthMax;
  FS_SHORT minLeftSideBearing;
  FS_SHORT minRightSideBearing;
  FS_SHORT xMaxExtent;
  FS_SHORT horizontalCaretSlopeNumerator;
  FS_SHORT horizontalCaretSlopeDenominator;
  FS_SHORT caretOffset;
  FS_SHORT reserved[4];
  FS_SHORT metricDataFormat;
  FS_USHORT numberOfHMetrics;
};

struct TTF_VHEA {
  FS_FIXED version;
  FS_SHORT ascent;
  FS_SHORT descent;
  FS_SHORT lineGap;
  FS_USHORT advanceHeightMax;
  FS_SHORT minTopSideBearing;
  FS_SHORT minBottomSideBearing;
  FS_SHORT yMaxExtent;
  FS_SHORT caretSlopeRise;
  FS_SHORT caretSlopeRun;
  FS_SHORT caretOffset;
  FS_SHORT reserved[4];
  FS_SHORT metricDataFormat;
  FS_USHORT numOfLongVerMetrics;
};

// 32 bytes; a CFF font gets a synthesised one.
struct TTF_MAXP {
  FS_FIXED version;
  FS_USHORT numGlyphs;
  FS_USHORT maxPoints;
  FS_USHORT maxContours;
  FS_USHORT maxCompositePoints;
  FS_USHORT maxCompositeContours;
  FS_USHORT maxElements;
  FS_USHORT maxTwilightPoints;
  FS_USHORT maxStorage;
  FS_USHORT maxFunctionDefs;
  FS_USHORT maxInstructionDefs;
  FS_USHORT maxStackElements;
  FS_USHORT maxSizeOfInstructions;
  FS_USHORT maxComponentElements;
  FS_USHORT maxComponentDepth;
};
static_assert(sizeof(TTF_MAXP) == 32, "the maxp record takes 32 bytes");

struct TTF_OS2 {
  FS_USHORT version;
  FS_SHORT xAvgCharWidth;
  FS_USHORT usWeightClass;
  FS_USHORT usWidthClass;
  FS_USHORT fsType;
  FS_SHORT ySubscriptXSize;
  FS_SHORT ySubscriptYSize;
  FS_SHORT ySubscriptXOffset;
  FS_SHORT ySubscriptYOffset;
  FS_SHORT ySuperscriptXSize;
  FS_SHORT ySuperscriptYSize;
  FS_SHORT ySuperscriptXOffset;
  FS_SHORT ySuperscriptYOffset;
  FS_SHORT yStrikeoutSize;
  FS_SHORT yStrikeoutPosition;
  FS_SHORT sFamilyClass;
  FS_BYTE panose[10];
  FS_ULONG ulUnicodeRange1;
  FS_ULONG ulUnicodeRange2;
  FS_ULONG ulUnicodeRange3;
  FS_ULONG ulUnicodeRange4;
  FILECHAR achVendID[4];
  FS_USHORT fsSelection;
  FS_USHORT usFirstCharIndex;
  FS_USHORT usLastCharIndex;
  FS_SHORT sTypoAscender;
  FS_SHORT sTypoDescender;
  FS_SHORT sTypoLineGap;
  FS_USHORT usWinAscent;
  FS_USHORT usWinDescent;
  FS_ULONG ulCodePageRange1;
  FS_ULONG ulCodePageRange2;
  FS_SHORT sxHeight;
  FS_SHORT sCapHeight;
  FS_USHORT usDefaultChar;
  FS_USHORT usBreakChar;
  FS_USHORT usMaxContext;
};

const int TTF_NAME_SIZE = 50;        // 49 characters and the NUL
const int TTF_COPYRIGHT_SIZE = 2048; // 2047 characters and the NUL

// The few names the engine keeps: full name (ID 4), family (ID 1), unique
// name (ID 3) and copyright (ID 0), cut to fit, each with its flag.
struct TTF_NAME {
  FILECHAR font_name[TTF_NAME_SIZE];
  FS_BOOLEAN font_name_too_long;
  FILECHAR font_family_name[TTF_NAME_SIZE];
  FS_BOOLEAN font_family_name_too_long;
  FILECHAR unique_name[TTF_NAME_SIZE];
  FS_BOOLEAN unique_name_too_long;
  FILECHAR copyright[TTF_COPYRIGHT_SIZE];
  FS_BOOLEAN copyright_too_long;
};

// Packing parameters of the compact `ccc` and `ddd` glyph formats, taken
// from the front of `hmtx` and `vmtx`. All zero for an ordinary font.
struct CCC_INFO {
  FS_SHORT numBits_LOCA;
  FS_SHORT minVal_LSB;
  FS_SHORT numBits_LSB;
  FS_SHORT minVal_AW;
  FS_SHORT numBits_AW;
  FS_SHORT minVal_TSB;
  FS_SHORT numBits_TSB;
  FS_SHORT minVal_AH;
  FS_SHORT numBits_AH;
  FS_ULONG numBits_GLYF;
  FS_BOOLEAN cccVersion7;
  FS_BOOLEAN cccVersion8;
  FS_SHORT numBits_SF;
};

// What the character mapping keeps of the grouped subtable (format 8 or 12)
// it read last, so that a code falling in the group of the code before it
// needs no search. It names the `cmap` bytes and the subtable it was made
// for, and answers only when every group starts no later than it ends and
// ends below the next one's start: then the group holding a code is the one
// the search would find. Zeroed with the record; made again when the
// mapping reads another grouped subtable.
struct TTF_CMAP_GROUPS {
  const FS_BYTE* cmap;    // the bytes it was made for, null before
  FS_ULONG cmap_length;
  FS_ULONG offset;        // of the subtable inside `cmap`
  const FS_BYTE* groups;  // the first group
  FS_ULONG count;
  FS_ULONG last;          // the group the last code was found in
  FS_BOOLEAN ascending;
};

// One loaded font. Offsets count from the font's start; data_offset is added
// only when reading. Owns everything it points to except path, memptr and
// fp's file, and loca and cmap when they point into memptr (own_cmap 0).
struct TTF {
  FILECHAR* path;          // null for a font in memory
  FS_BYTE* memptr;         // null for a file font
  FS_FILE* fp;             // open for the record's life; null in memory
  TTC_HEADER* ttc_header;  // null outside a collection
  FS_ULONG ttf_offset;     // this member's sfnt header; 0 outside one
  TTF_HEADER* ttf_header;
  TTF_HEAD* head;
  TTF_HHEA* hhea;
  TTF_VHEA* vhea;  // null unless `vmtx` exists
  TTF_MAXP* maxp;  // synthesised for a CFF font
  TTF_CMAP* cmap;  // whole table, file order
  FS_ULONG own_cmap;
  FS_BYTE* prep;
  FS_LONG num_prep;
  FS_BYTE* fpgm;
  FS_LONG num_fpgm;
  FS_SHORT* cvt;  // file order
  FS_LONG num_cvt;
  FS_ULONG* loca;  // file order; into memptr for a plain memory font
  FS_ULONG loca_offset;  // left 0
  FS_ULONG glyf_size;
  FS_ULONG glyf_offset;
  FS_ULONG eblc_offset;
  FS_ULONG kern_offset;
  FS_ULONG hmtx_offset;
  FS_ULONG vmtx_offset;
  FS_ULONG icon_offset;
  TTF_OS2* os2;    // null without `OS/2`
  TTF_NAME* name;
  void* decomp;    // compressed font's decoder; null otherwise
  FS_USHORT* nstk; // native order; null when absent
  FS_BOOLEAN isCBLC;
  FS_BOOLEAN isFlintTablePresent;
  CCC_INFO ccc_info;
  TTF_EBLC_PARTIAL* ttf_EBLC_partial;
  FS_ULONG hdmx_offset;
  FS_ULONG vdmx_offset;
  FS_ULONG data_offset;  // where the font starts in memptr or the file
  FS_ULONG data_length;  // as the caller gave it; 0 for unknown
  fnt_funcDef* functionDefs;
  fnt_instrDef* instructionDefs;
  FS_BYTE* adfh;  // file order; null when absent
  FS_ULONG adfh_size;  // bytes of adfh
  FS_BYTE* gasp;  // file order; null when absent
  CFF_TAB* cff;   // null for a `glyf` font
  FS_ULONG cff_offset;
  // Bytes of font data that exist from the font's start: data_length, or
  // what the file holds behind data_offset. Reads at or beyond it give
  // zeros. 0xFFFFFFFF when unknown (a memory font given without a length).
  FS_ULONG avail_length;
  FS_ULONG dir_entries;   // directory entries read: bounds every walk
  FS_BOOLEAN dir_native;  // the directory was converted to native order
  FS_ULONG cmap_length;   // bytes of `cmap` held (an aligned copy's too)
  TTF_CMAP_GROUPS cmap_groups;
};

// Loads one font: from `memptr` when given (path ignored), else from the file
// at `path`; `data_offset` is where the font starts, `data_length` its length
// (0: unknown; a memory font is then taken on trust). `index` picks a
// collection's member. `validate` adds the directory checks of validation.
// `fnt_type` 7 demands a `CFF ` table. Returns the record, or null with the
// cause in `error`: 102 file not opened, 201 heap, 403 not an sfnt or bad
// head magic, 404 member index beyond the collection, 405 required table
// missing (also a type-7 font without `CFF `), 430 compressed font from a
// file, 441 compressed font (decoder not built), 448 inconsistent directory
// (validation; also, always, a table lying beyond the font's data), 466 bad
// bitmap location table, 520 an unalignable `cmap`, 616 bad `maxp` version.
// A font with neither outlines (`glyf` and `loca`, or `CFF `) nor bitmaps is
// refused with `error` 0.
TTF* load_ttf(FS_STATE* state, FILECHAR* path, FS_BYTE* memptr, FS_ULONG index,
              FS_ULONG data_offset, FS_ULONG data_length, FS_BOOLEAN validate,
              FS_BYTE fnt_type);

// Closes and frees a record however far its load came. Accepts null.
void unload_ttf(FS_STATE* state, TTF* ttf);

// First directory entry with `tag`: 1 with its offset and length, or 0 with
// error 405 (always for an unconverted directory). Both out pointers may be
// null; they receive 0 first. A hit leaves `error` alone.
int get_ttf_table_info(FS_STATE* state, TTF* ttf, FS_ULONG tag, FS_ULONG* off,
                       FS_ULONG* len);

// A heap copy of a whole table, or null (405 when absent).
void* get_ttf_table(FS_STATE* state, TTF* ttf, FS_ULONG tag);

// The engine's read path for font data: `size` bytes at `offset` from the
// font's start, in a new heap block the caller frees. Size 0 gives null with
// no error and *newSize 0. Bytes beyond the data read as zeros, without
// error. Null when the heap, a seek or the compressed-font decoder fails.
// *newSize (when given) receives the size of the block handed back, which a
// compressed font may change.
void* ttf_read_ex(FS_STATE* state, TTF* ttf, FS_ULONG offset, FS_ULONG size,
                  FS_LONG* newSize);
void* ttf_read(FS_STATE* state, TTF* ttf, FS_ULONG offset, FS_ULONG size);

// Fills the caller's buffer with `size` bytes at `offset`; what lies beyond
// the data becomes zeros. Clears `error`, or sets 104 when a seek fails.
// Size 0 does nothing.
void ttf_read_buf(FS_STATE* state, TTF* ttf, FS_ULONG offset, FS_ULONG size,
                  FS_BYTE* p);

// Non-zero when the sfnt directory (a collection's first member's) holds a
// `zrp3` table. A version other than 0x00010000, `true`, `OTTO` is 403.
int is_zrp3(FS_STATE* state, TTF* ttf);

// 1 when no two directory entries overlap, else 0 with 448.
int verifyTableDir(FS_STATE* state, TTF* ttf);

// Converts the sfnt header read from the file (`raw`, `rawLength` bytes, the
// entries that stand there) into the native record `out` with room for
// `entries` directory entries. A count above 50 leaves header and entries as
// the file has them, on purpose: no table is then found. Returns the number
// of entries filled in.
FS_ULONG swap_ttf_header(const FS_BYTE* raw, FS_ULONG rawLength,
                         TTF_HEADER* out, FS_ULONG entries);

// The `OS/2` table, parsed; null when absent (405) or on a read failure.
TTF_OS2* get_os2_table(FS_STATE* state, TTF* ttf);

// Decodes `len` bytes of an `OS/2` table into `os2`. The version follows the
// length where it tells: 86 bytes is version 1, 78 version 0.
void get_os2(const FS_BYTE* table, FS_ULONG len, TTF_OS2* os2);

// The abbreviated names; null with 405 when there is no `name` table, or
// with the read's error.
TTF_NAME* get_name(FS_STATE* state, TTF* ttf);

// Fills `name` from `len` bytes of a `name` table: IDs 4, 1, 3 and 0, from
// platform 3 language 1033 (low bytes of the 16-bit units) until the full
// name, family name and copyright are filled; then, when one of those is
// still empty, from every platform 1 language 0 record, which overwrite what
// the first pass found. Cut to fit with the `_too_long` flags; "NOT FOUND"
// for an empty full name, family name or copyright.
void get_abbreviated_name(const FS_BYTE* table, FS_ULONG len, TTF_NAME* name);

// True when some `cmap` subtable stands at an odd offset.
FS_BOOLEAN cmap_offsets_odd(const FS_BYTE* cmap, FS_ULONG len);

// Moves odd-placed `cmap` subtables to even offsets in a heap copy that
// becomes ttf->cmap (own_cmap 1). Returns 0, 520 for more than 20
// subtables, or 201.
FS_LONG create_aligned_cmap_table(FS_STATE* state, TTF* ttf, FS_ULONG len);

// How many right shifts bring v to 0: 0 for 0, 1 for 1, 8 for 255.
FS_SHORT numBitsNeeded(FS_ULONG v);

#endif
