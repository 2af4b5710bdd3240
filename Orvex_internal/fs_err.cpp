// Message and name lookup for the engine's error codes, both expanded from
// the one error table so that they never drift from the enum.
#include "Orvex_internal/fs_err.h"

const char* FS_error_message(FS_ULONG code) {
  switch (code) {
#define FS_ERROR_MESSAGE_ROW(number, name, message) \
  case number:                                      \
    return message;
    FS_ERROR_TABLE(FS_ERROR_MESSAGE_ROW)
#undef FS_ERROR_MESSAGE_ROW
    default:
      return "unknown error";
  }
}

const char* FS_error_name(FS_ULONG code) {
  switch (code) {
#define FS_ERROR_NAME_ROW(number, name, message) \
  case number:                                   \
    return #name;
    FS_ERROR_TABLE(FS_ERROR_NAME_ROW)
#undef FS_ERROR_NAME_ROW
    default:
      return nullptr;
  }
}
