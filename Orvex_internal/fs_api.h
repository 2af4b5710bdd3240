// The engine's client calls for starting and ending: a root client with its
// server, child clients on the same server, the budget, and the small
// accessors; also the removal of font objects that both the client calls and
// the reclaim ladder use. Called by the renderer; calls the heap, the cache,
// the table and font units and the distance-field glue.
#ifndef ORVEX_INTERNAL_FS_API_H
#define ORVEX_INTERNAL_FS_API_H

#include "Orvex_internal/fs_state.h"

// Starts a root client in a block the caller owns, with a heap budget of
// `heap_size` bytes (its own record and the server's cost nothing against
// it; the 3000-byte scratch buffer does). Returns 0, or the error: 201 when
// the server or the scratch buffer can't be had, in which case no server is
// left (`server` null).
FS_LONG FSS_init(FS_STATE* state, FS_ULONG heap_size);

// Ends a root client and its server, freeing everything the server holds.
// Children must have ended first; their count isn't consulted. Returns 0, or
// 521 for a null state or one without a server.
FS_LONG FSS_exit(FS_STATE* state);

// A child client of sp on sp's server, its record charged to the shared
// budget, which grows by `heap_size` for as long as the child lives. Null
// with the error in sp (201, or 206 when the budget can't take the sum).
FS_STATE* FSS_new_client(FS_STATE* sp, FS_ULONG heap_size);

// Ends a child client and frees its record through its parent. Returns 0;
// 521 for a null client or a root client (which ends with FSS_exit); 508 when
// it still has children, and it stays usable; 206 when the budget it added
// can't be taken back, with nothing freed.
FS_ULONG FSS_end_client(FS_STATE* sp);

// The client part of starting: zeroes the record and sets the defaults
// (stroke 0.05, no cmap chosen, variation cmap 0/5, outline width 1,
// opacity 1.0). Leaves `server` null.
void FS_STATE_init(FS_STATE* state);

// The client part of ending: stops the distance-field renderer, deletes the
// fonts this client added, drops its typeset and clears `error`.
void FS_STATE_done(FS_STATE* state);

// Changes the server's budget. A larger size is taken at once; a smaller one
// runs the reclaim ladder until what is allocated fits, or gives 206 with the
// budget unchanged. Returns 0 or 206.
FS_LONG FSS_resize(FS_STATE* state, FS_ULONG nsize);

// The client's last error.
FS_ULONG FS_error(FS_STATE* state);

// The server's version number (0x5012F), 0 without a server.
FS_ULONG FS_get_version(FS_STATE* state);

// Bytes charged to the budget, headers included; 0 without a server.
FS_ULONG FS_get_heap_used(FS_STATE* state);

// Proves the build's type assumptions, reporting 601 to 609 (defined with
// the glyph result records, fs_glyphmap.cpp).
FS_LONG check_types(FS_STATE* state);

// Ends a font set: each component's loaded font loses a reference, and one
// left without any goes with its scaled fonts. Frees the set's records,
// unlinks and frees it.
void kill_fntset(FS_STATE* state, FNTSET* fntset);

// Unlinks and frees a loaded font with its data, kerning and names; scaled
// fonts still pointing at it lose their `lfnt`.
void delete_lfnt(FS_STATE* state, LFNT* lfnt);

// Drops a loaded font's data (it comes back on next use); the record stays.
void unload_fnt(FS_STATE* state, LFNT* lfnt);

// Frees a loaded font's code-to-glyph cache.
void unload_cmap_cache(FS_STATE* state, LFNT* lfnt);

#endif
