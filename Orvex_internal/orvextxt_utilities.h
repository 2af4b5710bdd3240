// The script interpreter's helpers: the token readers over the script
// stream, the named-client list, fonts held in memory, the timers, the heap
// pre-scan, error reporting and the small numeric helpers. Used by OrvexTxt
// and the render driver; calls the engine's client calls only.
#ifndef ORVEX_INTERNAL_ORVEXTXT_UTILITIES_H
#define ORVEX_INTERNAL_ORVEXTXT_UTILITIES_H

#include <cstdio>
#include <ctime>

#include "Orvex_internal/fs_state.h"

/* ---- Result globals of the renderer (one set per process) ---- */

extern int err_FD;  // last engine error seen by the interpreter; 0 = clean
extern int GlyphCreationError;
extern double stdDevAdv;
extern char CurentFontName[1024];
extern int CopyImageLocally;

const FS_LONG DEFAULT_HEAPSIZE = 5290000;

/* ---- Token readers. Every reader is bounded by its `length` (the buffer
   size, terminator included) and always leaves `s` terminated. ---- */

// Skips blanks, tabs, CR and LF. Returns the next character, left unread,
// or EOF.
int dlb(FILE* fp);

// dlb, then up to length - 1 characters up to white space (which is
// consumed) or end of file; longer tokens leave their rest for the next read.
// Returns the number of characters stored, or EOF when nothing was there.
int get_string(FILE* fp, char* s, int length);

// Like get_string, but also stops before a '-' or a '"', which stay unread.
// The design reads it unbounded; here it is bounded like the others.
int GetString(FILE* fp, char* s, int length);

// The rest of the current line, its first length - 1 characters kept; the
// line feed and anything beyond the buffer are consumed.
int get_remainder(FILE* fp, char* s, int length);

// get_string; a '#' anywhere in the token makes it a comment: the rest of
// the line is appended (as far as it fits) and consumed.
int get_command(FILE* fp, char* s, int length);

// One white-space delimited word into `sub_path` and `path` (both `length`
// bytes), the latter with $ORVEX_ROOT substituted. Returns get_string's.
int get_path(FILE* fp, char* path, int length, const char* orvex_root,
             char* sub_path);

// A word in double quotes into `s`. Returns 0, or 1 after "*** get_font:
// expecting a \"\n" (stderr) when a quote is missing.
int get_font(FILE* fp, char* s, int length);
// The same with "*** get_client: expecting a \"\n".
int get_client(FILE* fp, char* s, int length);
// The same with $ORVEX_ROOT substituted; the messages are "***
// get_include_file_name: expecting a \"\n" (opening) and "***
// get_include_file_name: expecting \"\n" (closing). Returns 0 or 1.
int get_include_file_name(FILE* fp, char* s, int length,
                          const char* orvex_root);

long get_int(FILE* fp);       // get_string of 16 bytes, atol
double get_double(FILE* fp);  // get_string of 16 bytes, atof
long get_hex(FILE* fp);       // GetString of 16 bytes, base 16
int get_boolean(FILE* fp);    // 1 only for "ON" in any case

// Reads `"hex hex-hex ..."` into `glyphs` (room for 65538 entries), ended by
// -1; at most 65536 codes are kept. Without an opening quote prints "***
// glyphset ... expecting a \"\n" (stderr) and leaves `glyphs` alone; end of
// file there gives the list 0. Returns the number of codes.
int get_glyphset(FILE* fp, FS_LONG* glyphs);

// The codes of a UTF-16 file (byte order mark first, swapped when it reads
// 0xFFFE; CR and LF dropped) into `glyphs`, ended by -1. Returns the count,
// or -1 after "Error: Cannot open glyphset file '%s'\n" (stderr).
int get_glyphset_from_file(const char* path, FS_LONG* glyphs);

// glyphset_string: each byte of a quoted text (read as get_client does) is
// a code. Returns the count.
int get_glyphset_string(FILE* fp, FS_LONG* glyphs, int length);

// glyphset_all: FSS_set_cmap with `cmap` (a failure prints " Cannot set
// cmap for glyphset_all command, error = %lu\n" on stderr and goes on), then
// code 0 and every code 1 to 65534 that maps to a non-zero glyph. An engine
// error ends the walk, with " Error in glyphset_all setting ID = %x, error =
// %lu\n" when both cmap members are below 65535. Returns the count.
int get_glyphset_all(FS_STATE* sp, const FS_USHORT cmap[2], FS_LONG* glyphs);

// show_type's line: OR of BITMAP 1, GRAYMAP/GRAYMAP4 4, GRAYMAP2 2,
// GRAYMAP8 8, EDGE/EDGE4 1024, EDGE2 512, EDGE8 2048, split on " \t|".
FS_USHORT get_requested_type(FILE* fp);

// Replaces every "$ORVEX_ROOT", then every "$(ORVEX_ROOT)" in `path` (a
// buffer of `length` bytes). An overrun prints "Error substituting
// $ORVEX_ROOT in path: storage length exceeded" (or the $(ORVEX_ROOT) form)
// on stdout and leaves the rest unreplaced. Returns 0, or 1 on an overrun.
int substitute_ORVEX_ROOT(char* path, int length, const char* orvex_root);

/* ---- Error reporting ---- */

// "The function <%s> returned %ld\n" on stdout when `error` isn't 0.
void report_error(FS_STATE* state, int displayType, FILE* psFp,
                  const char* who, int ignore_err);
// The same on stderr, a "%% " copy on psFp under PostScript, and exit(-1)
// unless `ignore_err`.
void report_cfe_error(FS_STATE* state, int displayType, FILE* psFp,
                      const char* who, int ignore_err);

/* ---- Named clients ---- */

struct NAMED_STATE {
  char* name;  // private copy
  FS_STATE* state;  // null for "NONE" and for an ended client
  FS_BOOLEAN ismaster;  // 1: this list owns the block
  NAMED_STATE* next;
};

NAMED_STATE* new_named_state(const char* name, FS_STATE* state,
                             FS_BOOLEAN ismaster);
// Appends at the tail; returns the new entry.
NAMED_STATE* append_named_state(NAMED_STATE* states, const char* name,
                                FS_STATE* sp, FS_BOOLEAN ismaster);
// First entry named exactly `name`, else null.
NAMED_STATE* find_named_state(NAMED_STATE* states, const char* name);
// Frees owned state blocks (without FSS_exit), names and entries; nulls
// both heads.
void remove_named_states(NAMED_STATE** states, NAMED_STATE** currns);
// A root client in a block from the system heap. Allocation failure, or a
// non-zero use_external_heap, prints its messages and exits with -1. The
// block is returned even when FSS_init failed (its `error` says so).
FS_STATE* new_FS_STATE_and_FS_init(FS_LONG heapsize, int use_external_heap);
// Makes "DEFAULT" (ismaster 1), appends it, makes it current; reports a
// failed FSS_init as "FS_init". Returns the engine's error.
FS_LONG init_and_set_DEFAULT_client(FS_STATE** FS_state_ptr,
                                    NAMED_STATE* states, NAMED_STATE** currns,
                                    FS_LONG heapsize, int use_external_heap,
                                    int displayType, FILE* psFp);

/* ---- Fonts loaded to memory ---- */

struct LOADED_TO_RAM {
  char* path;
  void* addr;  // null when loading failed
  long size;
  LOADED_TO_RAM* next;
};

// The whole file in a malloc'd block, its length in *size; null and 0 on any
// failure.
void* load_to_ram_size(const char* path, long* size);
// The bytes of `path`, loaded on first ask and remembered (failures too).
void* get_ram_address(LOADED_TO_RAM** loaded, const char* path, long* msize);
void free_loaded_to_ram(LOADED_TO_RAM** loaded);

/* ---- Timers ---- */

typedef FS_ULONG FS_CLOCK;
struct TIMER {
  FS_CLOCK start, end, duration;
  FS_LONG nglyphs, npixels;
  FS_BOOLEAN isOn;
};
FS_CLOCK getClock();
void initTimer(TIMER* t);
void enableTimer(TIMER* t);
void disableTimer(TIMER* t);
void resetTimer(TIMER* t);
void startTimer(TIMER* t);
void stopTimer(TIMER* t);
// "%% Glyphs retrieved:  %ld\n", "%% Glyphs per second: %lf\n",
// "%% Pixels per second: %lf\n" on stdout.
void reportTimer(TIMER* t);

/* ---- Pre-scan and numbers ---- */

// The heap size of the first "heapsize" or "external_heapsize" (which also
// sets *use_external_heap) of the script, 0 turned into 5290000. Unreadable
// file: "unable to open '%s'\n" (stdout) and 1; null path: "***
// get_heasize_from_sequence_file: bad file pointer\n" (stderr) and 0.
FS_LONG get_heapsize_only(const char* pfile, int* use_external_heap);

// The 16.16 scale matrix of a size, rotation and skew in degrees.
void calc_matrix(int xppm, int yppm, double rot, double skew,
                 FS_FIXED scale[4]);

// The pen scale of a resolution by the res table (200 and 100 off the
// 72/res pattern on purpose). Returns 1 and sets *mag, or 0 for a value
// outside the table.
int res_to_mag(int res, double* mag);

#endif
