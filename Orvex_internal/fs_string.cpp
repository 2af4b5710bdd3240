// String helpers of the font engine.
#include "Orvex_internal/fs_string.h"

#include <string.h>

#include "Orvex_internal/fs_xmalloc.h"

FILECHAR* FS_strdup(FS_STATE* state, const FILECHAR* s) {
  if (s == nullptr || s[0] == 0) return nullptr;
  size_t n = strlen(s) + 1;
  FILECHAR* copy = (FILECHAR*)FSS_malloc(state, (FS_ULONG)n);
  if (copy != nullptr) memcpy(copy, s, n);
  return copy;
}

FS_BOOLEAN FS_streq(const FILECHAR* a, const FILECHAR* b) {
  if (a == nullptr || b == nullptr) return a == b;
  return strcmp(a, b) == 0;
}
