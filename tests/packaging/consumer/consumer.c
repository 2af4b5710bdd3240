/* A program outside the project, built against an installed fontvec:
 * prints the feature vector of FONT, rendered by CONFIG's script. */
#include <stdio.h>
#include <stdlib.h>

#include <feature_vector_library.h>

int main(int argc, char** argv) {
  char folder[] = "/tmp/consumer-XXXXXX", command[4096], result[FEATURE_VECTOR_TEXT_SIZE];
  if (argc != 3 || mkdtemp(folder) == NULL) return 2;
  snprintf(command, sizeof command, "cp '%s' %s/font.ttf && mkdir %s/Images", argv[1], folder, folder);
  int ok = system(command) == 0 && link_library("/fontvec-consumer", argv[2]) == 0 &&
           create_feature_vector(folder, result) == 0;
  unlink_library();
  snprintf(command, sizeof command, "rm -rf %s", folder);
  if (system(command) != 0 || !ok) return 1;
  fputs(result, stdout);
  return 0;
}
