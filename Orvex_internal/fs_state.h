// The engine's state records: the per-client FS_STATE that every engine call
// takes first, the FS_SERVER that a root client shares with its children
// (fonts, glyph cache, heap budget, scan-conversion work records), and the
// chain of font objects the server keeps. Plain records; the functions that
// work on them live in fs_api, fs_xmalloc, fs_scratch, fs_font and
// fs_typeset.
#ifndef ORVEX_INTERNAL_FS_STATE_H
#define ORVEX_INTERNAL_FS_STATE_H

#include "Orvex_internal/fs_fixed.h"
#include "Orvex_internal/fs_scratch.h"

// Records of units built on top of this one; only pointers here.
struct CACHE_ENTRY;
struct TLIST;
struct FS_BITMAP;
struct TABLE_PTR_REC;
struct RASTER;
struct SENV;
struct KSTf0_data;

typedef FS_LONG ADF_F32;  // the distance-field renderer's 16.16 "real"
typedef FS_ULONG ADF_U32;

struct FS_STATE;
struct LFNT;
struct SFNT;
struct FNTSET;

// Direct-mapped cache entry of character code to glyph index.
struct FS_CMAP_CACHE {
  FS_USHORT unicode;
  FS_USHORT index;
};

// One font file, or one face of a collection, loaded or ready to load.
struct LFNT {
  FILECHAR* name;     // owned
  FILECHAR* path;     // owned; null for a font in memory
  FS_BYTE* memptr;    // caller's memory image; null for a file font
  FS_ULONG index;     // face in a collection
  FS_ULONG data_offset;
  FS_ULONG data_length;
  FS_ULONG fontflags;
  FS_ULONG checksum;
  FS_CMAP_CACHE* cmap_cache;
  FS_USHORT cmap_cache_mod;
  FS_ULONG fntset_refs;  // CFNT records pointing here
  void* fnt;             // the loaded TTF record, null while unloaded
  FS_BOOLEAN loading;    // up during load_fnt: the ladder must not unload it
  FS_BYTE fnt_type;
  FS_USHORT kern_subtable_length;
  KSTf0_data* kerning;
  LFNT* next;
};

struct UniRange {
  FS_ULONG range1;
  FS_ULONG range2;
};

// A linked font's own table: where it lies in the linked file.
struct FNTSET_OT_TABLE {
  FS_ULONG offset;
  FS_ULONG size;
};

// One component of a font set.
struct CFNT {
  FILECHAR* name;  // borrowed from the LFNT
  UniRange bmp, smp, sip, ssp;
  FS_USHORT start_index;
  FS_BOOLEAN embolden;
  FS_BOOLEAN italicize;
  FS_FIXED bold_pct;
  FS_FIXED italic_angle;
  LFNT* lfnt;
  FS_ULONG adjOffset;
  FS_USHORT numAdjust;
};

// What a client asks for by name: one font, or a linked font of many.
struct FNTSET {
  FILECHAR* name;  // owned
  FILECHAR* path;  // owned; null in memory
  FS_BYTE* memptr;
  FS_ULONG data_offset;
  FS_ULONG data_length;
  FS_USHORT num_fonts;
  CFNT* cfnt;  // num_fonts of them, owned
  LFNT* metric_font;
  FS_ULONG name_offset, name_size, maxp_offset, os_2_offset, head_offset,
      hhea_offset, vhea_offset, post_offset;
  FNTSET_OT_TABLE* cmap;
  FNTSET_OT_TABLE* gdef;
  FNTSET_OT_TABLE* gsub;
  FNTSET_OT_TABLE* gpos;
  FNTSET_OT_TABLE* kern;
  FS_ULONG ref_count;    // clients having it as current font
  FS_ULONG count_added;  // ADDEDFNT records on it, over all clients
  FS_ULONG checksum;
  FNTSET* next;
};

// A distance-field render request: pen, size, transform, display mode and
// contrast (cut-offs and gamma, 16.16).
struct ADFRenderAttrs {
  ADF_F32 penX, penY;
  ADF_F32 pointSize;
  ADF_U32 dpi;
  ADF_F32 scaleX, scaleY;
  ADF_F32 rotationPtX, rotationPtY;
  ADF_F32 rotationAngle;  // radians; 0 is no rotation
  ADF_U32 displayMode;
  ADF_U32 gridFitType;
  ADF_F32 outsideCutoff, insideCutoff;
  ADF_F32 gamma;
  ADF_U32 useColorReduction;
  ADF_F32 colorReductionAmt;
};

// A client's scale and map state for one component.
struct TFNT {
  CFNT* cfnt;
  SFNT* sfnt;  // null until a scale is set
  FS_ULONG cmap_offset;
  ADFRenderAttrs adfRenderAttrs;  // size and contrast of distance-field glyphs
};

// The current font set in its per-client form.
struct TYPESET {
  FNTSET* fntset;
  FS_USHORT capacity;
  TFNT* tfntarray;  // capacity entries, owned; only grows
};

// One loaded font at one scale, style and stroke weight. Owned by the server.
struct SFNT {
  LFNT* lfnt;  // may be nulled when the font goes
  FS_FIXED user_scale[4];
  FS_SHORT vertical_shift;
  FS_FIXED stroke_pct;
  FS_FIXED bold_pct;
  SENV* senv;  // null until first use and after reclaiming
  FS_USHORT rtgah_suitable;
  F26DOT6 ref_lines[56];
  FS_ULONG ref_count;     // TFNT pointing here
  FS_ULONG cache_count;   // cache entries on it
  FS_ULONG active_count;  // cache entries on it that callers hold
  SFNT* next;
};

// A client's name for a font set.
struct ADDEDFNT {
  FILECHAR* name;  // owned
  FNTSET* set;
  FS_ULONG add_count;
  ADDEDFNT* next;
};

// Per-client engine state; the first argument of every engine call.
struct FS_STATE {
  FS_STATE* parent;  // creator, null for a root client
  ADDEDFNT* name_map;
  TYPESET cur_typeset;
  FS_USHORT cur_font;
  LFNT* cur_lfnt;
  SFNT* cur_sfnt;
  FS_USHORT platform, encoding;  // current cmap; both 0xFFFF: none chosen
  FS_USHORT varPlatform, varEncoding;
  FS_ULONG error;  // last error, 0 = none
  FS_ULONG flags;
  FS_FIXED scale[4];
  FS_FIXED stroke_pct;
  FS_FIXED bold_pct;
  FS_ULONG heap_size;  // heap this child added to the server; 0 for a root
  FS_BYTE level;
  FS_BYTE any_hints;
  FS_BYTE outl_char;
  FS_USHORT lpm;
  FS_USHORT outline_width;
  FS_FIXED outline_opacity;
  FS_ULONG ref_count;  // child clients
  struct FS_SERVER* server;
  FS_BOOLEAN use_reflines;
  void* libInst;
  ADF_U32 adfGridFitType;
  ADF_F32 outsideCutoff, insideCutoff, gamma;
  ADF_F32 outsideCutoffAdj, insideCutoffAdj;
  ADF_F32 sharpnessOffset, sharpnessSlope, thicknessOffset, thicknessSlope;
};

// Header of a lump of things served by new_thing.
struct FS_MASTER_LUMP {
  FS_ULONG ref_count;  // things of the lump in use
  FS_MASTER_LUMP* prev;  // towards the head of list_of_lumps
  FS_MASTER_LUMP* next;
};

// The first two words of every thing: the master pointer stays while the
// thing is in use, `next` belongs to the user then.
struct FS_LUMP {
  FS_MASTER_LUMP* master;
  FS_LUMP* next;
};

const int FS_CACHE_BUCKETS = 1021;
const FS_ULONG FS_SERVER_VERSION = 0x5012F;  // 327983

// Shared by a root client and its children.
struct FS_SERVER {
  FNTSET* font_sets;
  SFNT* scaled_fonts;  // most recently used first
  LFNT* loaded_fonts;
  TLIST* tlist;
  TLIST* drop;
  FS_BITMAP* bmap;
  void (*line)(FS_STATE*, FS_FIXED, FS_FIXED, FS_FIXED, FS_FIXED);
  CACHE_ENTRY* cache[FS_CACHE_BUCKETS];
  FS_ULONG heap_size;  // the budget in bytes
  FS_ULONG allocated;  // bytes charged, headers included
  TABLE_PTR_REC* table_ptrs;
  FS_MASTER_LUMP* list_of_lumps;
  void* CACHE_ENTRY_chain;  // free CACHE_ENTRY things
  FsScratchSpace scratch;
  FS_LONG workspaceSize;
  FS_BYTE* workspace;
  SFNT* workspace_sfnt;
  FS_ULONG version;
  FS_ULONG client_count;
  RASTER* raster;
};

static_assert(sizeof(FS_MASTER_LUMP) == 24, "a lump header takes 24 bytes");
static_assert(sizeof(FS_STATE) == 192, "a client block takes 192 bytes");

#endif
