// The scripted glyph renderer's entry, as the front door sees it: render the
// glyph pictures of the font in a folder under the library's lock.
#ifndef ORVEX_INTERNAL_ORVEXTXT_H
#define ORVEX_INTERNAL_ORVEXTXT_H

// Renders `font_file_loc`/font.ttf into `font_file_loc`/Images/ by the script
// in `script_folder` and stores the advance spread in *std_dev. Returns 1
// when the folder's pictures are there to be measured; any other value means
// the run failed.
int create_images_from_font(const char* script_folder,
                            const char* font_file_loc, double* std_dev);

#include <cstdio>

#include "Orvex_internal/orvextxt_utilities.h"

// Display types of the interpreter's output.
const FS_USHORT DISPLAY_PS = 0;
const FS_USHORT DISPLAY_PNG = 1;
const FS_USHORT DISPLAY_NONE = 2;

// Runs the script `fp` (named `fname`) command by command on the client
// FS_state_ptr, the current entry `currns` of the client list `states`,
// until end of file or an engine error it may not ignore. Returns nothing:
// results go to err_FD, GlyphCreationError, stdDevAdv and CurentFontName.
// Script faults end the process with exit(-1). `fontPath` and
// `fontIndexInTTC` are what the `path` command loads; `iname` is the page
// image path; `psFp` the PostScript stream (displayType 0).
void OrvexTxt(FILE* fp, const char* fname, FS_ULONG print_header,
              FS_USHORT displayType, const char* iname, FILE* psFp,
              FS_STATE* FS_state_ptr, NAMED_STATE* states,
              NAMED_STATE* currns, const char* orvex_root,
              FS_ULONG load_fonts_to_ram, int use_external_heap,
              const char* fontPath, int fontIndexInTTC);

#endif
