// Subcommands of fontvec. Each lives in its own file and is listed once in
// the command table of fontvec.cpp. A command receives the words after its
// name and returns the process exit code: 0 done, 1 failed, 2 bad usage.
#ifndef TOOLS_FONTVEC_COMMANDS_H
#define TOOLS_FONTVEC_COMMANDS_H

#include <stddef.h>

#include <string>
#include <vector>

struct FontvecCommand {
  const char* name;
  const char* synopsis;  // arguments, for the usage text
  const char* summary;   // one line for `fontvec --help`
  int (*run)(int argc, char** argv);
};

int fontvec_measure(int argc, char** argv);
int fontvec_info(int argc, char** argv);
int fontvec_glyph(int argc, char** argv);
int fontvec_validate(int argc, char** argv);
// fontvec FONT...: the feature vector of each font file (no command word).
int fontvec_font(int argc, char** argv);
extern const char* const kFontSynopsis;
// The library's text (a vector line, or an error text holding "Error") of
// each font file, worked as `fontvec FONT...` works them with the default
// configuration. 0, or 1 after printing why nothing could be worked.
int fontvec_vectors(const std::vector<std::string>& fonts,
                    std::vector<std::string>* texts);
// fontvec similar and fontvec sheet.
int fontvec_similar(int argc, char** argv);
int fontvec_sheet(int argc, char** argv);
// A font of a vectors CSV and its distance to a query font.
struct FontvecNeighbour {
  std::string file;
  double distance;
};
// The `k` fonts of the CSV at `csv` nearest to `query` (a file name of the
// collection, or a font file whose vector is worked first), nearest first.
// 0; 1 when the CSV can't be read or the query's vector can't be had; 2 for
// a malformed CSV. The reason is printed.
int fontvec_nearest(const std::string& csv, const std::string& query, size_t k,
                    std::vector<FontvecNeighbour>* found);

// Prints "fontvec: " and the message to standard error.
void fontvec_error(const char* format, ...)
    __attribute__((format(printf, 1, 2)));

// The whole file at `path` in a malloc'd buffer (the caller frees it) and
// its size; null when it can't be read or is empty.
unsigned char* fontvec_read_font(const char* path, unsigned long* size);

// Prints the usage line of one command to standard error and returns 2.
int fontvec_usage(const char* command);

#endif
