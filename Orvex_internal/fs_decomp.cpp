// Compressed fonts: recognition only. A font image with a `zrp3` table is
// refused until the decoder is built; the loader's read path already calls
// the fragment functions, which serve nothing for now.
#include "Orvex_internal/fs_decomp.h"

#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_err.h"

namespace {

const FS_ULONG kTagTtcf = FS_MAKE_TAG('t', 't', 'c', 'f');
const FS_ULONG kTagTrue = FS_MAKE_TAG('t', 'r', 'u', 'e');
const FS_ULONG kTagOtto = FS_MAKE_TAG('O', 'T', 'T', 'O');
const FS_ULONG kTagZrp3 = FS_MAKE_TAG('z', 'r', 'p', '3');

bool accepted_version(FS_ULONG v) {
  return v == 0x00010000 || v == 0x00020000 || v == kTagTrue || v == kTagOtto;
}

// Whether n bytes at `at` lie inside the image (always, with no length).
bool inside(FS_ULONG length, FS_ULONG at, FS_ULONG n) {
  return length == 0 || (at <= length && n <= length - at);
}

}  // namespace

QSX_RA_TT_Decomp* QSX_RA_TT_Create(FS_STATE* state, FS_BYTE* data,
                                   FS_ULONG length) {
  state->error = SUCCESS;
  if (data == nullptr || !inside(length, 0, 12)) {
    state->error = ERR_NOT_A_TTF;
    return nullptr;
  }
  FS_ULONG header = 0;
  FS_ULONG version = get_u32(data);
  if (version == kTagTtcf) {
    // The first member stands for the collection.
    if (!inside(length, 0, 16)) {
      state->error = ERR_NOT_A_TTF;
      return nullptr;
    }
    header = get_u32(data + 12);
    if (!inside(length, header, 12)) {
      state->error = ERR_NOT_A_TTF;
      return nullptr;
    }
    version = get_u32(data + header);
  }
  if (!accepted_version(version)) {
    state->error = ERR_NOT_A_TTF;
    return nullptr;
  }
  FS_ULONG numTables = get_u16(data + header + 4);
  for (FS_ULONG i = 0; i < numTables; i++) {
    FS_ULONG at = header + 12 + 16 * i;
    if (!inside(length, at, 16)) break;
    if (get_u32(data + at) == kTagZrp3) {
      state->error = ERR_FORMAT_NOT_SUPPORTED;
      return nullptr;
    }
  }
  return nullptr;
}

void QSX_RA_TT_Destroy(FS_STATE* state, QSX_RA_TT_Decomp* decomp) {
  (void)state;
  (void)decomp;
}

void* QSX_RA_Get_TTF_FragmentPtr(FS_STATE* state, QSX_RA_TT_Decomp* decomp,
                                 FS_ULONG position, FS_ULONG* byteCountPtr) {
  (void)state;
  (void)decomp;
  (void)position;
  (void)byteCountPtr;
  return nullptr;
}

void QSX_RA_ReleaseTTF_Fragment(FS_STATE* state, QSX_RA_TT_Decomp* decomp,
                                void* fragment) {
  (void)state;
  (void)decomp;
  (void)fragment;
}
