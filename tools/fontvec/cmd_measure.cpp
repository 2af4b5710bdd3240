// fontvec measure: the vector line of a folder of glyph pictures, exactly as
// getFeatureVector gives it.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "feature_vector_library.h"
#include "tools/fontvec/commands.h"

int fontvec_measure(int argc, char** argv) {
  int checksum = 0;
  const char* folder = NULL;
  for (int i = 0; i < argc; i++) {
    if (strcmp(argv[i], "--checksum") == 0)
      checksum = 1;
    else if (argv[i][0] == '-' && argv[i][1] != '\0')
      return fontvec_usage("measure");
    else if (folder == NULL)
      folder = argv[i];
    else
      return fontvec_usage("measure");
  }
  if (folder == NULL) return fontvec_usage("measure");

  struct stat st;
  if (stat(folder, &st) != 0 || !S_ISDIR(st.st_mode)) {
    fontvec_error("%s: not a folder", folder);
    return 1;
  }

  char* line = getFeatureVector(folder, checksum, 0.0);
  if (line == NULL) {
    fontvec_error("%s: no result", folder);
    return 1;
  }
  int status = 0;
  if (strstr(line, "Error") != NULL) {
    fprintf(stderr, "%s\n", line);
    status = 1;
  } else {
    fputs(line, stdout);
  }
  free(line);
  return status;
}
