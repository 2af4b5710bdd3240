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

#endif
