// Font validation: tells whether a font file (or a memory image) is a
// usable font, by loading it with the container loader's stricter directory
// checks and unloading it at once; nothing stays added to the engine.
// Called by the script's `validate` and the command-line tool; calls font
// loading, the container loader and the linked font reader.
#ifndef ORVEX_INTERNAL_FS_VALIDATE_H
#define ORVEX_INTERNAL_FS_VALIDATE_H

#include "Orvex_internal/fs_state.h"

// True when the font at `path` (or at `memptr`, the font starting
// `data_offset` bytes in, `data_length` long, 0 for unknown) loads: face
// `index` of a collection; every component of a linked font. False with the
// cause in `error`: 446 when the font can't be read (no source, no file, a
// memory image under 3 bytes), else the loader's refusal; a font with
// nothing to draw from is false with `error` 0.
FS_BOOLEAN FS_validate_font(FS_STATE* state, const FILECHAR* path, FS_BYTE* memptr,
                            FS_ULONG index, FS_ULONG data_offset,
                            FS_ULONG data_length);

// One sfnt font (a file, or memory): loaded with validation and unloaded.
FS_BOOLEAN FSS_validate_ttf(FS_STATE* state, const FILECHAR* path, FS_BYTE* memptr,
                            FS_ULONG index, FS_ULONG data_offset,
                            FS_ULONG data_length);

// A linked font: its file (102 when it can't be opened) or memory image is
// read without size adjustments, then each component's font must pass
// FSS_validate_ttf at its place (relative places from the linked font's
// own folder). The first failure gives false.
FS_BOOLEAN FSS_validate_ltt(FS_STATE* state, const FILECHAR* path, FS_BYTE* memptr);

#endif
