// The font engine's error codes: one table giving each code its number, name
// and message, expanded into the enum and the message lookup. A failing
// engine call stores its code in the client's `error`; the hundreds group the
// codes by area (1xx files, 2xx memory, 3xx font and client state, 4xx font
// data, 5xx rendering and arguments, 6xx type checks and setter ranges,
// 7xx table access).
#ifndef ORVEX_INTERNAL_FS_ERR_H
#define ORVEX_INTERNAL_FS_ERR_H

#include "Orvex_internal/fs_fixed.h"

// X(number, name, message). Where one situation reports two numbers, the
// second carries the suffix _2.
#define FS_ERROR_TABLE(X)                                                     \
  X(0, SUCCESS, "no error")                                                   \
  X(102, ERR_FILE_OPEN, "font file could not be opened")                      \
  X(103, ERR_FILE_CLOSE, "font file could not be closed")                     \
  X(104, ERR_FILE_SEEK, "seek in font file failed")                           \
  X(106, ERR_FILE_READ, "short read from font file")                          \
  X(201, ERR_MALLOC_FAIL, "engine heap budget or system memory exhausted")    \
  X(202, ERR_REALLOC_FAIL, "engine heap budget or system memory exhausted "   \
                           "in reallocation")                                 \
  X(204, ERR_BAD_SCRATCH_ADDR, "release of an unknown or free block")         \
  X(206, ERR_RESIZE_FAIL, "heap budget could not be reduced to the size")     \
  X(301, ERR_FONT_NOT_FOUND, "no font of that name, or no path nor memory")   \
  X(302, ERR_NO_CURRENT_SFNT, "no scaled font: scale not set since the font") \
  X(303, ERR_NO_CURRENT_LFNT, "scaled font without its loaded font")          \
  X(304, ERR_FONT_NOT_LOADED, "font has no data or an unknown type")          \
  X(305, ERR_NO_CURRENT_FONT, "no font set on this client")                   \
  X(310, ERR_FONT_NAME_TOO_LONG, "font name does not fit the buffer")         \
  X(311, ERR_FONT_NAME_IN_USE, "font was added before under another name")    \
  X(313, ERR_DELETE_FONT, "font cannot be removed")                           \
  X(314, ERR_FONT_NAME_NOT_UNIQUE, "name is used for another font")           \
  X(315, ERR_NO_TFNT, "font set without its component array")                 \
  X(316, ERR_NO_FNTSET, "typeset made without a font set")                    \
  X(317, ERR_NO_SENV, "scaled font without its scaled environment")           \
  X(402, ERR_CMAP_NOT_FOUND, "no cmap subtable for platform and encoding")    \
  X(403, ERR_NOT_A_TTF, "not a TrueType font: bad version tag or magic")      \
  X(404, ERR_TTC_BAD_INDEX, "face index beyond the collection")               \
  X(405, ERR_TABLE_NOT_FOUND, "font table absent")                            \
  X(406, ERR_BAD_GLYF_INDEX, "glyph index out of range")                      \
  X(407, ERR_BAD_GLYF_FORMAT, "glyph data malformed")                         \
  X(412, ERR_KEY_STATE, "scaler key not in the needed state")                \
  X(416, ERR_ILLEGAL_INSTRUCTION, "font program stopped: illegal "           \
                                  "instruction or a guard of the interpreter") \
  X(418, ERR_GPOS_POINT, "GPOS point index out of range, or a glyph has more " \
                         "points than maxp allows")                           \
  X(419, ERR_TOO_MANY_CONTOURS, "glyph has more contours than maxp allows")   \
  X(427, ERR_SBIT_METRICS, "embedded bitmap metrics missing")                 \
  X(428, ERR_SBIT_MERGE, "embedded composite bitmap merge failed")            \
  X(429, ERR_SBIT_FORMAT, "embedded bitmap index format unknown")             \
  X(430, ERR_COMPRESSED_FROM_FILE, "compressed font not in memory")           \
  X(436, ERR_FONT_TYPE_UNSUPPORTED, "font type has no scaler")                \
  X(438, ERR_FLAG_UNSUPPORTED, "flag 0x8000 is not supported")                \
  X(441, ERR_FORMAT_NOT_SUPPORTED, "operation not defined for this format")   \
  X(442, ERR_LINK_INFO, "linked font information not found")                  \
  X(443, ERR_LTT_NO_COMPONENTS, "linked font has no components")           \
  X(445, ERR_LTT_LEGAL, "linked font legal line count 0 or above 9")        \
  X(446, ERR_VALIDATE_ARGS, "validation without a source")                    \
  X(448, ERR_TABLE_DIR, "table directory inconsistent")                       \
  X(453, ERR_MAXP_VERSION, "CFF font maxp version is not 0x00005000")         \
  X(456, ERR_CFF_CHARSTRING, "bad CFF charstring: operand count, stack "     \
                             "underflow, or decoding past its end")           \
  X(458, ERR_CFF_HEADER, "CFF name INDEX does not hold one name")             \
  X(459, ERR_CFF_HEADER_2, "CFF charstring type is not 2")                    \
  X(460, ERR_CFF_INDEX, "CFF subroutine index out of range")                  \
  X(461, ERR_CFF_INDEX_2, "CFF INDEX offset size above 4")                    \
  X(462, ERR_ADF_TOO_LARGE, "distance-field size too large for effects")      \
  X(464, ERR_SBIT_METRICS_2, "embedded bitmap image cannot be served")        \
  X(466, ERR_EBLC, "EBLC table bad")                                          \
  X(467, ERR_CFF_SEAC_NESTING, "CFF seac nesting above 10")                   \
  X(502, ERR_SCALE_LIMIT, "scale matrix entry of 0x40000000 or more")         \
  X(503, ERR_SCALE_DEGENERATE, "scale matrix collapses")                      \
  X(505, ERR_RASTER_OVERFLOW, "bitmap run list overflow")                     \
  X(508, ERR_CLIENT_HAS_CHILDREN, "client still has child clients")           \
  X(517, ERR_VDMX_RATIO, "no usable VDMX ratio")                              \
  X(518, ERR_VDMX_RECORD, "no VDMX record for this size")                     \
  X(519, ERR_BAD_TYPE, "no rasteriser for this type")                         \
  X(520, ERR_UNICODE_CMAP_NEEDED, "a Unicode cmap is needed")                 \
  X(521, ERR_BAD_ARGUMENT, "null argument")                                   \
  X(522, ERR_HDMX_RECORD, "no hdmx record for this size")                     \
  X(524, ERR_STACK_OVERFLOW, "curve subdivision stack overflow")              \
  X(601, ERR_TYPE_TINY, "FS_TINY and FS_BYTE are not one signed and "         \
                        "unsigned 8-bit cell")                                \
  X(602, ERR_TYPE_BYTE, "FS_BYTE is not unsigned 8-bit")                      \
  X(603, ERR_TYPE_SHORT, "FS_USHORT or FS_SHORT is not 16-bit")               \
  X(604, ERR_TYPE_USHORT, "FS_USHORT is not unsigned 16-bit")                 \
  X(605, ERR_TYPE_LONG, "FS_ULONG or FS_LONG is not 32-bit")                  \
  X(608, ERR_TYPE_ENDIAN, "host is not little-endian")                        \
  X(609, ERR_TYPE_INT64, "FS_INT64 is not a 64-bit integer")                  \
  X(610, ERR_FONT_IN_USE, "font still in use")                                \
  X(612, ERR_UNKNOWN_FLAG, "unknown flag value")                              \
  X(613, ERR_PCT_RANGE, "bold or stroke percentage out of range")             \
  X(614, ERR_OUTLINE_WIDTH_RANGE, "outline width out of range")               \
  X(615, ERR_OUTLINE_OPACITY_RANGE, "outline opacity out of range")           \
  X(616, ERR_MAXP_VERSION_TT, "TrueType font maxp version is not "            \
                              "0x00010000")                                   \
  X(701, ERR_TABLE_NOT_STANDARD, "table not in the standard format")          \
  X(702, ERR_TABLE_PTR_COUNT, "release of a table with no references")      \
  X(1030, ERR_DECOMP_STREAM, "compressed font data damaged: a code in no "   \
                             "group or a bad block header")

typedef enum {
#define FS_ERROR_ENUM_ROW(number, name, message) name = number,
  FS_ERROR_TABLE(FS_ERROR_ENUM_ROW)
#undef FS_ERROR_ENUM_ROW
} FS_ERROR_CODE;

// The message of an engine error code; "unknown error" for a number not in
// the table. Never null.
const char* FS_error_message(FS_ULONG code);

// The name of an engine error code ("ERR_MALLOC_FAIL"), or null for a number
// not in the table.
const char* FS_error_name(FS_ULONG code);

#endif
