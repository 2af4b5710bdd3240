// File access of the font engine: the C stream calls with the engine's error
// codes in the client's `error`. Used by the font loaders.
#ifndef ORVEX_INTERNAL_FS_FIO_H
#define ORVEX_INTERNAL_FS_FIO_H

#include <stdio.h>

#include "Orvex_internal/fs_state.h"

typedef FILE FS_FILE;

// Opens `path` for binary reading. Null with error 102 on failure (a null
// path included); success clears `error`.
FS_FILE* FS_open(FS_STATE* state, const FILECHAR* path);

// Closes the file. Returns 0, or 103 when fclose fails or fp is null.
FS_LONG FS_close(FS_STATE* state, FS_FILE* fp);

// fseek. Returns 0, or 104 when the seek fails or fp is null.
FS_LONG FS_seek(FS_STATE* state, FS_FILE* fp, FS_LONG offset, int whence);

// Reads up to `size` bytes into buf and returns the count; a short read sets
// 106. When the stream itself reports an error the call returns -1 (also with
// 106). A full read clears `error`. A null fp or buf reads nothing: -1, 106.
FS_LONG FS_read(FS_STATE* state, FS_FILE* fp, FS_BYTE* buf, FS_ULONG size);

#endif
