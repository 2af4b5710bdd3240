// fontvec: the library's command-line tool for people. Its main job, with no
// command word, turns font files into feature vectors; subcommands inspect
// each layer: `measure` runs the image measurements on a folder of glyph
// pictures.
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "tools/fontvec/commands.h"

static const FontvecCommand commands[] = {
    {"measure", "[--checksum] [--names | --format line|csv|json] DIR",
     "print the feature vector of a folder of glyph pictures; --names gives\n"
     "      one \"index name value\" line per value", fontvec_measure},
    {"info", "FONT [--index N] [--memory] [--cmap | --kern | --cff | --strikes | --ppem N (--cvt | --gs)]", "what the font loader reads from a font file (a linked font: its head and components)", fontvec_info},
    {"glyph", "FONT (--glyph N | --char U+XXXX) --ppem N (--points | --png OUT.png [--type bitmap|gray2|gray4|gray8|icon] | --bitmap (--png OUT.png | --text) [--dropout] | --adf [--csm IN,OUT,GAMMA] --png OUT.png | --distance-field --png OUT.png) [--effect emboss|engrave|outline1|outline2|outline|outline-unfilled|soft-outline] [--outline-width N] [--opacity X] [--soften] [--bold PCT [--pixel-bold]] [--hints | --no-hints | --force-autohint] [--no-autohint] [--strokes] | FONT --ppem N --reflines [--index N] [--memory]", "a glyph's scaled points in 26.6 and its rounded advance, its graymap, distance-field map or distance map as a PNG, or its 1-bit map as a PNG or text, plain or in a style; or the autohinter's reference lines", fontvec_glyph},
    {"validate", "FILE... [--index N]", "whether each font file is a usable font: \"FILE: valid\" or \"FILE: invalid (error N: message)\"", fontvec_validate},
    {"similar", "(--to FONT|NAME [--k N] | --duplicates) VECTORS.csv",
     "the N (default 10) fonts of a `fontvec --format csv` table nearest to\n"
     "      a font, \"rank distance file\" each; or the groups of identical vectors", fontvec_similar},
    {"sheet", "--out SHEET.png (FONT... | --from VECTORS.csv --to FONT [--k N] [DIR...])",
     "a PNG with a row per font: its file name, then the sample line in the font;\n"
     "      with --to the query then its nearest fonts (found under the DIRs), each\n"
     "      with its distance", fontvec_sheet},
};

void fontvec_error(const char* format, ...) {
  va_list args;
  va_start(args, format);
  fputs("fontvec: ", stderr);
  vfprintf(stderr, format, args);
  fputc('\n', stderr);
  va_end(args);
}

int fontvec_usage(const char* command) {
  for (const FontvecCommand& c : commands)
    if (strcmp(c.name, command) == 0)
      fprintf(stderr, "usage: fontvec %s %s\n", c.name, c.synopsis);
  return 2;
}

static void printHelp(FILE* out) {
  fprintf(out, "usage: fontvec %s\n", kFontSynopsis);
  fputs("      the feature vector of each font file (one line each; CSV: one\n"
        "      row per font, file name first)\n", out);
  fputs("   or: fontvec COMMAND [ARGS]\n\ncommands:\n", out);
  for (const FontvecCommand& c : commands)
    fprintf(out, "  %s %s\n      %s\n", c.name, c.synopsis, c.summary);
  fputs("\noptions:\n  -h, --help   show this text\n", out);
}

int main(int argc, char** argv) {
  if (argc < 2) {
    printHelp(stderr);
    return 2;
  }
  if (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0 ||
      strcmp(argv[1], "help") == 0) {
    printHelp(stdout);
    return 0;
  }
  for (const FontvecCommand& c : commands)
    if (strcmp(c.name, argv[1]) == 0) return c.run(argc - 2, argv + 2);
  // Anything else is the first font file (or an option of the font run).
  return fontvec_font(argc - 1, argv + 1);
}
