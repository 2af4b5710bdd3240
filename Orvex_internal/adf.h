// The engine's glue to the distance-field renderer: starting and stopping it
// with each client. Until the renderer is built these only set the client's
// contrast values to their defaults.
#ifndef ORVEX_INTERNAL_ADF_H
#define ORVEX_INTERNAL_ADF_H

#include "Orvex_internal/fs_state.h"

// Starts the renderer for a client and sets the contrast defaults: inside
// cut-off 0.4 (26214), outside -0.56 (-36700), gamma 1.0, adjustments 0.
// Returns 0 or an error (201 when the renderer instance can't be made).
FS_LONG startADF(FS_STATE* state);

// Stops the renderer for a client.
void stopADF(FS_STATE* state);

#endif
