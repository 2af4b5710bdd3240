// fontvec validate: whether each font file is a usable font, by the engine's
// validation (a trial load with the directory checks; a linked font's every
// component). Prints "FILE: valid" or "FILE: invalid (error N: message)"
// per file; the exit code is 1 when any is invalid.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_validate.h"
#include "tools/fontvec/commands.h"

namespace {

const FS_ULONG kValidateHeap = 64u << 20;

}  // namespace

int fontvec_validate(int argc, char** argv) {
  unsigned long index = 0;
  int files = 0;
  for (int i = 0; i < argc; i++) {
    if (strcmp(argv[i], "--index") == 0 && i + 1 < argc) {
      char* end = NULL;
      const char* t = argv[++i];
      index = strtoul(t, &end, 10);
      if (t[0] == '\0' || t[0] == '-' || *end != '\0') return fontvec_usage("validate");
    } else if (argv[i][0] == '-' && argv[i][1] != '\0') {
      return fontvec_usage("validate");
    } else {
      files++;
    }
  }
  if (files == 0) return fontvec_usage("validate");
  FS_STATE st;
  if (FSS_init(&st, kValidateHeap) != 0) {
    fontvec_error("the font engine did not start (error %lu: %s)",
                  (unsigned long)st.error, FS_error_message(st.error));
    return 1;
  }
  int status = 0;
  for (int i = 0; i < argc; i++) {
    if (strcmp(argv[i], "--index") == 0) {
      i++;
      continue;
    }
    const char* path = argv[i];
    if (FS_validate_font(&st, path, NULL, (FS_ULONG)index, 0, 0)) {
      printf("%s: valid\n", path);
      continue;
    }
    status = 1;
    if (st.error == 0)
      printf("%s: invalid (no error code)\n", path);
    else
      printf("%s: invalid (error %lu: %s)\n", path, (unsigned long)st.error,
             FS_error_message(st.error));
  }
  FSS_exit(&st);
  return status;
}
