// Distance-field glue. Stand-in until the renderer exists: no renderer
// instance is made, only the client's contrast values are set.
#include "Orvex_internal/adf.h"

// Stand-in: the defaults the client starts with, and no instance.
FS_LONG startADF(FS_STATE* state) {
  state->libInst = nullptr;
  state->insideCutoff = 26214;
  state->outsideCutoff = -36700;
  state->gamma = 65536;
  state->sharpnessOffset = 0;
  state->sharpnessSlope = 0;
  state->thicknessOffset = 0;
  state->thicknessSlope = 0;
  state->insideCutoffAdj = 0;
  state->outsideCutoffAdj = 0;
  return 0;
}

// Stand-in: there is no instance to end.
void stopADF(FS_STATE* state) { state->libInst = nullptr; }
