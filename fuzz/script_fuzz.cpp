// Fuzz target: the bytes as a script run by the render driver's interpreter
// against a fixed font (FONTVEC_FUZZ_FONT, else DejaVu Sans), pages written
// to a private folder. The interpreter ends the process on a script fault by
// design; the target is linked with exit wrapped, so that such an end comes
// back here, where the engine clients the run left are ended.
#include <setjmp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Orvex_internal/display_png.h"
#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/orvextxt.h"
#include "Orvex_internal/orvextxt_utilities.h"

namespace {

jmp_buf gBack;
bool gArmed = false;
char gFolder[256];
char gScript[300];
char gPage[300];
const char* gFont = NULL;

}  // namespace

extern "C" void __real_exit(int status);
extern "C" void __wrap_exit(int status) {
  if (gArmed) longjmp(gBack, 1);
  __real_exit(status);
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  gFont = getenv("FONTVEC_FUZZ_FONT");
  if (gFont == NULL) gFont = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
  const char* tmp = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  snprintf(gFolder, sizeof gFolder, "%s/fontvec-fuzz-XXXXXX", tmp);
  if (mkdtemp(gFolder) == NULL) abort();
  char images[300];
  snprintf(images, sizeof images, "%s/Images", gFolder);
  mkdir(images, 0700);
  snprintf(gScript, sizeof gScript, "%s/Script.scr", gFolder);
  snprintf(gPage, sizeof gPage, "%s/Images/font.png", gFolder);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FILE* f = fopen(gScript, "wb");
  if (f == NULL) return 0;
  fwrite(data, 1, size, f);
  fclose(f);
  SetImagePath(gFolder);
  int external = 0;
  FS_LONG heap = get_heapsize_only(gScript, &external);
  if (external != 0 || heap > (64 << 20)) return 0;  // not the engine's heap
  NAMED_STATE* states = new_named_state("NONE", NULL, 0);
  NAMED_STATE* currns = states;
  FS_STATE* sp = NULL;
  init_and_set_DEFAULT_client(&sp, states, &currns, heap, 0, DISPLAY_PNG, NULL);
  FILE* fp = fopen(gScript, "r");
  gArmed = true;
  if (fp != NULL && setjmp(gBack) == 0)
    OrvexTxt(fp, gScript, 0, DISPLAY_PNG, gPage, NULL, sp, states, currns,
             gFolder, 0, 0, gFont, 0);
  gArmed = false;
  if (fp != NULL) fclose(fp);
  // Each root client the run made ends with its server.
  for (NAMED_STATE* n = states; n != NULL; n = n->next)
    if (n->ismaster && n->state != NULL && n->state->server != NULL)
      FSS_exit(n->state);
  remove_named_states(&states, &currns);
  return 0;
}
