/* Public interface of the font feature-vector library.
 *
 * A host names a folder holding font.ttf; the library renders the font's
 * glyphs into PNG files under the folder's Images/ sub-folder, measures those
 * pictures and returns one line of 58 comma-separated values describing the
 * font's visual design. All calls have plain C names. */
#ifndef FEATURE_VECTOR_LIBRARY_H
#define FEATURE_VECTOR_LIBRARY_H

#ifdef __cplusplus
extern "C" {
#endif

/* Size in bytes that a result buffer of create_feature_vector must have, and
 * the size of the text getFeatureVector returns. */
#define FEATURE_VECTOR_TEXT_SIZE 1888

/* Number of values in a feature vector. */
#define FEATURE_VECTOR_LENGTH 58

/* Opens the library's lock, a POSIX named semaphore called `process_id`, and
 * keeps `config_path`, the folder of Script.scr. Returns 0 when linked, -1 if
 * already linked (nothing changes), -3 if the semaphore cannot be opened,
 * -4 if an argument is null or empty. */
int link_library(const char* process_id, const char* config_path);

/* Closes and removes the semaphore. Returns 0, or -2 if not linked. */
int unlink_library(void);

/* Renders the font in `font_path` (a folder with font.ttf and an existing
 * Images sub-folder) and writes its vector line, or an error text such as
 * "Error=-1", into `result`, which must hold FEATURE_VECTOR_TEXT_SIZE bytes.
 * Returns 0 for a vector line, -5 for an error text, -3 when not linked and
 * -4 for a null or empty path (result untouched in those two cases).
 * May be called from many threads; rendering is serialised by the lock. */
int create_feature_vector(const char* font_path, char* result);

/* Measures an existing folder of glyph pictures and returns the vector text:
 * 58 values "%0.8f" joined by "," and ended by a line feed, or "Error=N"
 * (1: null folder, 8: a value is not a number, 16: out of memory). With
 * RemoveDuplicateFont equal to 1 the line opens with a checksum column (the
 * mean of the 58 values, 10 decimals). stdDevAdvWidth becomes value 47.
 * The caller frees the returned text with free(). Thread-safe. */
char* getFeatureVector(const char* filePath, int RemoveDuplicateFont,
                       double stdDevAdvWidth);

/* Nominal pixel size of the glyph pictures, 72. */
extern const int FontSizePx;

#ifdef __cplusplus
}
#endif

#endif
