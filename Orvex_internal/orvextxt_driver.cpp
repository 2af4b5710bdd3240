// The render driver: one font folder through the script interpreter. It has
// the shape of a command-line tool (generateFontImages is its main, fed from a
// canned argument table), starts and ends the engine per run and hands the
// result globals to the front door.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "Orvex_internal/display_png.h"
#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_metrics.h"
#include "Orvex_internal/orvextxt.h"
// validateImages: the renderer's one call above itself, into the vector core
// (the result of a run is the core's check of the font folder).
#include "feature_vector_core.h"


namespace {

const int ARG_ROWS = 7;
const int ARG_LENGTH = 12800;

// The tool's command line: name, script, root option and its value, "do not
// load fonts to memory", display type and the page path.
const char kCannedArguments[ARG_ROWS][ARG_LENGTH] = {
    "123", "Script.scr", "-r", "", "-d", "PNG", "Images/font.png"};

// A row of the argument table: `head` then `tail`, cut to the row's size.
void setRow(char* row, const char* head, const char* tail) {
  size_t n = strnlen(head, ARG_LENGTH - 1);
  memcpy(row, head, n);
  size_t m = strnlen(tail, ARG_LENGTH - 1 - n);
  memcpy(row + n, tail, m);
  row[n + m] = '\0';
}

void printUsage(const char* tool) {
  printf("usage: %s <script> [-r <ORVEX_ROOT override>] [-nh] [-d|-m] "
         "[NONE|PS|PNG] [output] [> output]\n", tool);
  printf("       <> indicates required input parameters. \n");
  printf("       [] indicates optional input parameters or output "
         "redirection.\n");
  printf("       if -nh, header information will be suppressed (not printed) "
         "[PS only].\n");
  printf("       if -m, fonts are loaded to memory first, this is the "
         "default.\n");
  printf("       if -d, fonts are not loaded to memory prior to loading into "
         "Orvex.\n");
  printf("       [NONE|PS|PNG] indicates default display type. Default is "
         "PS.\n");
  printf("       [output] is output image file that contains either PS or PNG "
         "data.\n");
  printf("       Default PS output goes to stdout. Default output name is "
         "orvextxt_output.[ps or png].\n");
  printf("       Timing and error messages are reported to stderr.\n");
  printf("       %s ?   -- to get help with scripts\n", tool);
}

// The script help: the command words of the language, printed from the
// interpreter's own table so that the two cannot drift apart.
void printScriptHelp() { printScriptCommands(stdout); }

}  // namespace

void SetImagePath(const char* path) {
  if (path != nullptr) snprintf(ImagePath, sizeof ImagePath, "%s", path);
  ImageCount = 0;
}

int create_images_from_font(const char* script_folder,
                            const char* font_file_loc, double* std_dev) {
  char font_path[4096];
  memset(font_path, 0, sizeof font_path);
  snprintf(font_path, sizeof font_path, "%s/font.ttf", font_file_loc);
  SetImagePath(font_file_loc);
  int err = generateFontImages(script_folder, font_path, 0);
  if (err == 0 && GlyphCreationError == 0) {
    // The one call from the renderer up into the vector core. It validates
    // the font folder itself, where no pictures are written: a
    // clean run finds them all missing and answers 1, the value on which the
    // front door measures the Images sub-folder.
    err = validateImages(font_file_loc);
    *std_dev = stdDevAdv;  // handed up to the measurements as value 47
  }
  GlyphCreationError = 0;
  return err;
}

int generateFontImages(const char* scriptFileFolder, const char* fontFile,
                       int fontIndexInTTC) {
  FS_ULONG print_header = 1;
  FS_ULONG load_fonts_to_ram = 1;
  FS_USHORT displayType = DISPLAY_PS;
  int use_external_heap = 0;
  FS_LONG heap_size = 0;
  char image_path[256] = {0};
  const char* orvex_root = nullptr;

  // 7 x 12800 bytes: too large for a thread's frame.
  typedef char Row[ARG_LENGTH];
  Row* argv = (Row*)malloc(sizeof kCannedArguments);
  if (argv == nullptr) return 1;
  memcpy(argv, kCannedArguments, sizeof kCannedArguments);
  snprintf(argv[1], ARG_LENGTH, "%s/Script.scr", scriptFileFolder);
  setRow(argv[3], ImagePath, "/");
  setRow(argv[6], ImagePath, "/Images/font.png");
  const int argc = ARG_ROWS;

  if (argc < 2) {
    printUsage(argv[0]);
    free(argv);
    return 0;
  }
  if (argv[1][0] == '?') {
    printScriptHelp();
    free(argv);
    return 0;
  }
  FILE* fp = fopen(argv[1], "r");
  if (fp == nullptr) {
    printf("unable to open '%s'\n", argv[1]);
    free(argv);
    return 1;
  }

  for (int i = 2; i < argc; i++) {
    const char* a = argv[i];
    if (strncmp(a, "-r", 2) == 0) {
      if (strlen(a) < 3) {
        if (i + 1 >= argc) {
          printf("option \"-r\" requires an argument\n");
          fclose(fp);
          free(argv);
          return 1;
        }
        orvex_root = argv[++i];
      } else {
        orvex_root = a + 2;
      }
    } else if (strcmp(a, "-nh") == 0) {
      print_header = 0;
    } else if (strcmp(a, "-d") == 0) {
      load_fonts_to_ram = 0;
    } else if (strcmp(a, "-m") == 0) {
      load_fonts_to_ram = 1;
    } else if (strcmp(a, "NONE") == 0 || strcmp(a, "none") == 0) {
      displayType = DISPLAY_NONE;
    } else if (strcmp(a, "PS") == 0 || strcmp(a, "ps") == 0) {
      displayType = DISPLAY_PS;
    } else if (strcmp(a, "PNG") == 0 || strcmp(a, "png") == 0) {
      displayType = DISPLAY_PNG;
    } else {
      snprintf(image_path, sizeof image_path, "%s", a);
    }
  }
  if (orvex_root == nullptr) orvex_root = getenv("ORVEX_ROOT");
  if (orvex_root == nullptr) orvex_root = ".";

  heap_size = get_heapsize_only(argv[1], &use_external_heap);

  NAMED_STATE* states = new_named_state("NONE", nullptr, 0);
  NAMED_STATE* currns = states;
  FS_STATE* FS_state_ptr = nullptr;
  FILE* psFp = nullptr;
  init_and_set_DEFAULT_client(&FS_state_ptr, states, &currns, heap_size,
                              use_external_heap, displayType, psFp);

  if (displayType == DISPLAY_PS) {
    psFp = stdout;
    if (image_path[0] != '\0') {
      FILE* out = fopen(image_path, "w");
      if (out != nullptr) psFp = out;
    }
  } else if (displayType == DISPLAY_PNG && image_path[0] == '\0') {
    snprintf(image_path, sizeof image_path, "orvextxt_output.png");
  }

  err_FD = 0;
  OrvexTxt(fp, argv[1], print_header, displayType, image_path, psFp,
           FS_state_ptr, states, currns, orvex_root, load_fonts_to_ram,
           use_external_heap, fontFile, fontIndexInTTC);
  fclose(fp);

  NAMED_STATE* def = find_named_state(states, "DEFAULT");
  if (def != nullptr && def->state != nullptr) {
    FSS_exit(def->state);
    free(def->state);
    def->state = nullptr;
    currns = states;
  }
  if (displayType == DISPLAY_PS && psFp != nullptr) {
    if (psFp == stdout)
      fflush(psFp);  // the host's standard output stays usable
    else
      fclose(psFp);
  }
  remove_named_states(&states, &currns);
  free(argv);
  return err_FD;
}

int NumFontsInTTC(const char* fontPath) {
  NAMED_STATE* states = new_named_state("NONE", nullptr, 0);
  NAMED_STATE* currns = states;
  FS_STATE* sp = nullptr;
  init_and_set_DEFAULT_client(&sp, states, &currns, DEFAULT_HEAPSIZE, 0,
                              DISPLAY_PNG, nullptr);
  int count = 0;
  if (sp != nullptr && sp->error == 0) {
    char name[256] = {0};
    FONT_METRICS* fm = (FONT_METRICS*)calloc(1, 2364 > sizeof(FONT_METRICS)
                                                    ? 2364
                                                    : sizeof(FONT_METRICS));
    if (FSS_load_font(sp, fontPath, nullptr, 1, 256, name) != 0 ||
        FSS_set_font(sp, name) != 0 || fm == nullptr ||
        FSS_font_metrics(sp, fm) != 0) {
      err_FD = (int)sp->error;
    } else {
      snprintf(CurentFontName, sizeof CurentFontName, "%s", fm->font_name);
      count = (int)fm->numFontsInTTC;
    }
    free(fm);
  } else if (sp != nullptr) {
    err_FD = (int)sp->error;
  }
  // The tool left this client running; here it is ended so that a long-lived
  // host doesn't lose the engine heap with each query.
  if (sp != nullptr) FSS_exit(sp);
  remove_named_states(&states, &currns);
  return count;
}
