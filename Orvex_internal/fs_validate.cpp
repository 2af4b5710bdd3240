// Font validation: a trial load with the directory checks, then unload.
#include "Orvex_internal/fs_validate.h"

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_fio.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_ltt.h"
#include "Orvex_internal/fs_ttf.h"

namespace {

FS_BOOLEAN verdict(FS_STATE* state, FS_ULONG error) {
  state->error = error;
  return error == SUCCESS ? 1 : 0;
}

}  // namespace

FS_BOOLEAN FSS_validate_ttf(FS_STATE* state, const FILECHAR* path, FS_BYTE* memptr,
                            FS_ULONG index, FS_ULONG data_offset,
                            FS_ULONG data_length) {
  if (memptr != nullptr && data_length != 0 && data_length < 3)
    return verdict(state, ERR_VALIDATE_ARGS);
  FS_BYTE type = fontfile_type(state, memptr ? nullptr : path, memptr, data_offset);
  if (type == FNT_TYPE_UNREADABLE) return verdict(state, ERR_VALIDATE_ARGS);
  TTF* ttf = load_ttf(state, (FILECHAR*)path, memptr, index, data_offset,
                      data_length, 1, type);
  if (ttf == nullptr) return 0;  // the loader's cause, 0 for no glyph source
  unload_ttf(state, ttf);
  return verdict(state, SUCCESS);
}

FS_BOOLEAN FSS_validate_ltt(FS_STATE* state, const FILECHAR* path, FS_BYTE* memptr) {
  FsLtt ltt;
  FsLtt_init(&ltt, state);
  FS_LONG err;
  if (memptr != nullptr) {
    err = FsLtt_load(&ltt, memptr, 0, 0);
  } else {
    FS_FILE* fp = FS_open(state, path);
    if (fp == nullptr) return verdict(state, ERR_FILE_OPEN);
    err = FsLtt_read(&ltt, fp, 0);
    FS_close(state, fp);
  }
  FS_BOOLEAN ok = err == 0;
  for (FS_USHORT i = 0; ok && i < FsLtt_numComponents(&ltt); i++) {
    FsLttPlace place;
    err = FsLttComponent_place(state, FsLtt_component(&ltt, i),
                               memptr ? nullptr : path, memptr, 0, &place);
    if (err != 0) break;
    const FILECHAR* file = place.memptr ? nullptr : place.path;
    ok = FSS_validate_ttf(state, file, place.memptr, FsLtt_component(&ltt, i)->ttcIndex,
                          place.offset, place.length);
    err = (FS_LONG)state->error;
  }
  FsLtt_done(&ltt);
  return verdict(state, (FS_ULONG)err) && ok;
}

FS_BOOLEAN FS_validate_font(FS_STATE* state, const FILECHAR* path, FS_BYTE* memptr,
                            FS_ULONG index, FS_ULONG data_offset,
                            FS_ULONG data_length) {
  if (memptr != nullptr && data_length != 0 && data_length < 3)
    return verdict(state, ERR_VALIDATE_ARGS);
  if (memptr == nullptr && (path == nullptr || path[0] == '\0'))
    return verdict(state, ERR_VALIDATE_ARGS);
  FS_BYTE type = fontfile_type(state, memptr ? nullptr : path, memptr, data_offset);
  if (type == FNT_TYPE_UNREADABLE) return verdict(state, ERR_VALIDATE_ARGS);
  if (type == FNT_TYPE_LINKED)
    return FSS_validate_ltt(state, path, memptr ? memptr + data_offset : nullptr);
  return FSS_validate_ttf(state, path, memptr, index, data_offset, data_length);
}
