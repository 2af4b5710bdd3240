// Subcommands of fontvec. Each lives in its own file and is listed once in
// the command table of fontvec.cpp. A command receives the words after its
// name and returns the process exit code: 0 done, 1 failed, 2 bad usage.
#ifndef TOOLS_FONTVEC_COMMANDS_H
#define TOOLS_FONTVEC_COMMANDS_H

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

// Prints "fontvec: " and the message to standard error.
void fontvec_error(const char* format, ...)
    __attribute__((format(printf, 1, 2)));

// The whole file at `path` in a malloc'd buffer (the caller frees it) and
// its size; null when it can't be read or is empty.
unsigned char* fontvec_read_font(const char* path, unsigned long* size);

// Prints the usage line of one command to standard error and returns 2.
int fontvec_usage(const char* command);

#endif
