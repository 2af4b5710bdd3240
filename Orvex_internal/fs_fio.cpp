// File access of the font engine on C streams, with the engine's codes.
#include "Orvex_internal/fs_fio.h"

#include "Orvex_internal/fs_err.h"

FS_FILE* FS_open(FS_STATE* state, const FILECHAR* path) {
  FS_FILE* fp = path != nullptr ? fopen(path, "rb") : nullptr;
  state->error = fp != nullptr ? SUCCESS : ERR_FILE_OPEN;
  return fp;
}

FS_LONG FS_close(FS_STATE* state, FS_FILE* fp) {
  state->error = (fp != nullptr && fclose(fp) == 0) ? SUCCESS : ERR_FILE_CLOSE;
  return (FS_LONG)state->error;
}

FS_LONG FS_seek(FS_STATE* state, FS_FILE* fp, FS_LONG offset, int whence) {
  state->error =
      (fp != nullptr && fseek(fp, offset, whence) == 0) ? SUCCESS : ERR_FILE_SEEK;
  return (FS_LONG)state->error;
}

FS_LONG FS_read(FS_STATE* state, FS_FILE* fp, FS_BYTE* buf, FS_ULONG size) {
  if (fp == nullptr || (buf == nullptr && size > 0)) {
    state->error = ERR_FILE_READ;
    return -1;
  }
  size_t count = fread(buf, 1, size, fp);
  if (count == size) {
    state->error = SUCCESS;
    return (FS_LONG)count;
  }
  state->error = ERR_FILE_READ;
  if (ferror(fp)) return -1;
  return (FS_LONG)count;
}
