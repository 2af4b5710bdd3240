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

// One whole run of the renderer as a command-line tool fed from a constant
// table of seven arguments: the script "<scriptFileFolder>/Script.scr", the
// root "-r <ImagePath>/", "-d", "PNG" and the page "<ImagePath>/Images/font.png".
// Returns err_FD after the script, 1 when the script cannot be opened or
// "-r" lacks its argument, 0 after printing the usage or the script help.
int generateFontImages(const char* scriptFileFolder, const char* fontFile,
                       int fontIndexInTTC);

// Copies `path` into ImagePath when it isn't null; sets ImageCount to 0.
void SetImagePath(const char* path);

// The number of fonts in the collection `fontPath` (1 for a plain font), read
// by a private engine client; 0 with err_FD set on an engine error. Also
// copies the font's name to CurentFontName.
int NumFontsInTTC(const char* fontPath);

#include <cstdio>

#include "Orvex_internal/display_png.h"  // ImagePath, which SetImagePath sets
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

// True when `word` is a command of the script language as the interpreter
// runs it: a word of the command table, or any word that begins with "show"
// (which draws as `show` when it has no row of its own).
bool isScriptCommand(const char* word);

// Word i of the command table, null past its end.
const char* scriptCommandWord(int i);

// The script help: one line per command word with its arguments, in the
// table's order.
void printScriptCommands(FILE* out);

#endif
