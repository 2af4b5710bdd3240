/* A program outside the project built against an installed fontvec: prints
 * the feature vector of FONT with the rendering script of CONFIG. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <feature_vector_library.h>

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: consumer FONT CONFIG\n");
    return 2;
  }
  char folder[] = "/tmp/consumer-XXXXXX", path[4096], result[FEATURE_VECTOR_TEXT_SIZE];
  if (mkdtemp(folder) == NULL) return 1;
  snprintf(path, sizeof path, "cp '%s' %s/font.ttf && mkdir %s/Images", argv[1], folder, folder);
  int status = system(path) == 0 && link_library("/fontvec-consumer", argv[2]) == 0 &&
               create_feature_vector(folder, result) == 0;
  unlink_library();
  snprintf(path, sizeof path, "rm -rf %s", folder);
  if (system(path) != 0) status = 0;
  if (!status) return 1;
  fputs(result, stdout);
  return 0;
}
