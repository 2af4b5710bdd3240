// Helpers of the script interpreter: bounded token readers over the script
// stream, named clients, fonts in memory, timers, the heap pre-scan and the
// error reports. Used by OrvexTxt (orvextxt.cpp); calls the engine's client
// calls (fs_api) only.
#include "Orvex_internal/orvextxt_utilities.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cmap.h"

/* ---- Token readers ---- */

static bool is_white(int c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

int dlb(FILE* fp) {
  int c;
  do {
    c = getc(fp);
  } while (c != EOF && is_white(c));
  if (c != EOF) ungetc(c, fp);
  return c;
}

// Reads a word into s (bounded) until white space (consumed) or a stopper
// (left unread).
static int read_word(FILE* fp, char* s, int length, bool stop_dash_quote) {
  if (length <= 0) return EOF;
  s[0] = 0;
  if (dlb(fp) == EOF) return EOF;
  int n = 0;
  while (n < length - 1) {
    int c = getc(fp);
    if (c == EOF || is_white(c)) break;
    if (stop_dash_quote && (c == '-' || c == '"')) {
      ungetc(c, fp);
      break;
    }
    s[n++] = (char)c;
  }
  s[n] = 0;
  return n;
}

int get_string(FILE* fp, char* s, int length) {
  return read_word(fp, s, length, false);
}

int GetString(FILE* fp, char* s, int length) {
  return read_word(fp, s, length, true);
}

// Consumes the line; keeps what fits after s[n].
static int append_line(FILE* fp, char* s, int n, int length) {
  int c;
  while ((c = getc(fp)) != EOF && c != '\n') {
    if (n < length - 1) s[n++] = (char)c;
  }
  if (length > 0) s[n < length ? n : length - 1] = 0;
  return n;
}

int get_remainder(FILE* fp, char* s, int length) {
  if (length <= 0) return 0;
  s[0] = 0;
  return append_line(fp, s, 0, length);
}

int get_command(FILE* fp, char* s, int length) {
  if (length <= 0) return EOF;
  s[0] = 0;
  if (dlb(fp) == EOF) return EOF;
  int n = 0, c = EOF;
  bool comment = false;
  for (;;) {
    c = getc(fp);
    if (c == EOF || is_white(c)) break;
    if (c == '#') comment = true;
    if (n < length - 1) {
      s[n++] = (char)c;
    } else if (!comment) {
      ungetc(c, fp);  // the rest of a long word is the next token
      c = ' ';
      break;
    }
  }
  s[n] = 0;
  // A comment runs to the end of its line, the words after '#' included.
  if (comment && c != '\n' && c != EOF) {
    if (n < length - 1) s[n++] = (char)c;
    n = append_line(fp, s, n, length);
  }
  return n;
}

int get_path(FILE* fp, char* path, int length, const char* orvex_root,
             char* sub_path) {
  int n = get_string(fp, sub_path, length);
  if (length > 0) {
    strncpy(path, sub_path, length - 1);
    path[length - 1] = 0;
    substitute_ORVEX_ROOT(path, length, orvex_root);
  }
  return n;
}

// A quoted word; 0, 1 with no opening quote, 2 with no closing one.
static int read_quoted(FILE* fp, char* s, int length) {
  if (length > 0) s[0] = 0;
  int c = dlb(fp);
  if (c != '"') return 1;
  getc(fp);
  int n = 0;
  while ((c = getc(fp)) != EOF && c != '"') {
    if (n < length - 1) s[n++] = (char)c;
  }
  if (length > 0) s[n] = 0;
  return c == '"' ? 0 : 2;
}

int get_font(FILE* fp, char* s, int length) {
  if (read_quoted(fp, s, length) == 0) return 0;
  fprintf(stderr, "*** get_font: expecting a \"\n");
  return 1;
}

int get_client(FILE* fp, char* s, int length) {
  if (read_quoted(fp, s, length) == 0) return 0;
  fprintf(stderr, "*** get_client: expecting a \"\n");
  return 1;
}

int get_include_file_name(FILE* fp, char* s, int length,
                          const char* orvex_root) {
  int r = read_quoted(fp, s, length);
  if (r == 1) {
    fprintf(stderr, "*** get_include_file_name: expecting a \"\n");
    return 1;
  }
  if (r == 2) {
    fprintf(stderr, "*** get_include_file_name: expecting \"\n");
    return 1;
  }
  substitute_ORVEX_ROOT(s, length, orvex_root);
  return 0;
}

long get_int(FILE* fp) {
  char s[16];
  get_string(fp, s, 16);
  return atol(s);
}

double get_double(FILE* fp) {
  char s[16];
  get_string(fp, s, 16);
  return atof(s);
}

long get_hex(FILE* fp) {
  char s[16];
  GetString(fp, s, 16);
  return strtol(s, nullptr, 16);
}

int get_boolean(FILE* fp) {
  char s[5];
  get_string(fp, s, 5);
  return strlen(s) == 2 && toupper((unsigned char)s[0]) == 'O' &&
         toupper((unsigned char)s[1]) == 'N';
}

const int MAX_GLYPHSET = 65536;

int get_glyphset(FILE* fp, FS_LONG* glyphs) {
  int c = dlb(fp);
  if (c == EOF) {
    glyphs[0] = 0;
    glyphs[1] = -1;
    return 1;
  }
  if (c != '"') {
    fprintf(stderr, "*** glyphset ... expecting a \"\n");
    return 0;
  }
  getc(fp);
  int n = 0;
  for (;;) {
    c = dlb(fp);
    if (c == EOF) break;
    if (c == '"') {
      getc(fp);
      break;
    }
    long lo = get_hex(fp), hi = lo;
    c = getc(fp);
    if (c == '-') {
      hi = get_hex(fp);
    } else if (c != EOF) {
      ungetc(c, fp);
    }
    // Ranges expand inclusive; codes beyond 65536 fall away, the rest of
    // the list is still read so that the script stays in step.
    for (long v = lo; v <= hi && n < MAX_GLYPHSET; v++) glyphs[n++] = v;
  }
  glyphs[n] = -1;
  return n;
}

int get_glyphset_from_file(const char* path, FS_LONG* glyphs) {
  FILE* f = fopen(path, "rb");
  if (f == nullptr) {
    fprintf(stderr, "Error: Cannot open glyphset file '%s'\n", path);
    return -1;
  }
  int n = 0;
  bool swap = false;
  unsigned char b[2];
  for (int unit = 0; unit < MAX_GLYPHSET + 1 && fread(b, 1, 2, f) == 2;
       unit++) {
    unsigned v = b[0] | (b[1] << 8);
    if (unit == 0) {
      swap = (v == 0xFFFE);
      continue;
    }
    if (swap) v = ((v & 0xFF) << 8) | (v >> 8);
    if (v == '\r' || v == '\n') continue;
    glyphs[n++] = (FS_LONG)v;
  }
  glyphs[n] = -1;
  fclose(f);
  return n;
}

int get_glyphset_string(FILE* fp, FS_LONG* glyphs, int length) {
  char* text = (char*)calloc(1, (size_t)(length > 0 ? length : 1));
  int n = 0;
  if (text != nullptr) {
    get_client(fp, text, length);
    for (const char* p = text; *p; p++) glyphs[n++] = (unsigned char)*p;
    free(text);
  }
  glyphs[n] = -1;
  return n;
}

int get_glyphset_all(FS_STATE* sp, const FS_USHORT cmap[2], FS_LONG* glyphs) {
  if (FSS_set_cmap(sp, cmap[0], cmap[1]) != 0)
    fprintf(stderr, " Cannot set cmap for glyphset_all command, error = %lu\n",
            (unsigned long)sp->error);
  int n = 0;
  glyphs[n++] = 0;
  for (FS_ULONG id = 1; id <= 65534; id++) {
    FS_USHORT gi = FSS_map_char(sp, id);
    if (sp->error != 0) {
      if (cmap[0] < 65535 && cmap[1] < 65535)
        fprintf(stderr, " Error in glyphset_all setting ID = %x, error = %lu\n",
                (unsigned)id, (unsigned long)sp->error);
      break;
    }
    if (gi != 0) glyphs[n++] = (FS_LONG)id;
  }
  glyphs[n] = -1;
  return n;
}

FS_USHORT get_requested_type(FILE* fp) {
  char line[128];
  get_remainder(fp, line, 128);
  for (char* p = line; *p; p++) *p = (char)toupper((unsigned char)*p);
  FS_USHORT type = 0;
  char* save = nullptr;
  for (char* w = strtok_r(line, " \t|", &save); w != nullptr;
       w = strtok_r(nullptr, " \t|", &save)) {
    if (!strcmp(w, "BITMAP")) type |= 1;
    else if (!strcmp(w, "GRAYMAP") || !strcmp(w, "GRAYMAP4")) type |= 4;
    else if (!strcmp(w, "GRAYMAP2")) type |= 2;
    else if (!strcmp(w, "GRAYMAP8")) type |= 8;
    else if (!strcmp(w, "EDGE") || !strcmp(w, "EDGE4")) type |= 1024;
    else if (!strcmp(w, "EDGE2")) type |= 512;
    else if (!strcmp(w, "EDGE8")) type |= 2048;
  }
  return type;
}

static int substitute_one(char* path, int length, const char* key,
                          const char* root, const char* message) {
  size_t klen = strlen(key), rlen = strlen(root);
  char* p = strstr(path, key);
  while (p != nullptr) {
    size_t len = strlen(path);
    if (len - klen + rlen + 1 > (size_t)length) {
      printf("%s", message);
      return 1;
    }
    memmove(p + rlen, p + klen, strlen(p + klen) + 1);
    memcpy(p, root, rlen);
    p = strstr(p + rlen, key);
  }
  return 0;
}

int substitute_ORVEX_ROOT(char* path, int length, const char* orvex_root) {
  if (path == nullptr || length <= 0) return 0;
  const char* root = orvex_root ? orvex_root : "";
  int r = substitute_one(
      path, length, "$ORVEX_ROOT", root,
      "Error substituting $ORVEX_ROOT in path: storage length exceeded");
  r |= substitute_one(
      path, length, "$(ORVEX_ROOT)", root,
      "Error substituting $(ORVEX_ROOT) in path: storage length exceeded");
  return r;
}

/* ---- Error reporting ---- */

void report_error(FS_STATE* state, int displayType, FILE* psFp,
                  const char* who, int ignore_err) {
  (void)displayType;
  (void)psFp;
  (void)ignore_err;
  if (state != nullptr && state->error != 0)
    printf("The function <%s> returned %ld\n", who, (long)state->error);
}

void report_cfe_error(FS_STATE* state, int displayType, FILE* psFp,
                      const char* who, int ignore_err) {
  if (state == nullptr || state->error == 0) return;
  fprintf(stderr, "The function <%s> returned %ld\n", who,
          (long)state->error);
  if (displayType == 0 && psFp != nullptr)
    fprintf(psFp, "%%%% The function <%s> returned %ld\n", who,
            (long)state->error);
  if (!ignore_err) exit(-1);
}

/* ---- Named clients ---- */

NAMED_STATE* new_named_state(const char* name, FS_STATE* state,
                             FS_BOOLEAN ismaster) {
  NAMED_STATE* ns = (NAMED_STATE*)calloc(1, sizeof(NAMED_STATE));
  if (ns == nullptr) return nullptr;
  ns->name = strdup(name ? name : "");
  ns->state = state;
  ns->ismaster = ismaster;
  return ns;
}

NAMED_STATE* append_named_state(NAMED_STATE* states, const char* name,
                                FS_STATE* sp, FS_BOOLEAN ismaster) {
  NAMED_STATE* ns = new_named_state(name, sp, ismaster);
  if (states == nullptr) return ns;
  NAMED_STATE* t = states;
  while (t->next != nullptr) t = t->next;
  t->next = ns;
  return ns;
}

NAMED_STATE* find_named_state(NAMED_STATE* states, const char* name) {
  for (NAMED_STATE* t = states; t != nullptr; t = t->next)
    if (strcmp(t->name, name) == 0) return t;
  return nullptr;
}

void remove_named_states(NAMED_STATE** states, NAMED_STATE** currns) {
  NAMED_STATE* t = states ? *states : nullptr;
  while (t != nullptr) {
    NAMED_STATE* next = t->next;
    if (t->ismaster && t->state != nullptr) free(t->state);
    free(t->name);
    free(t);
    t = next;
  }
  if (states) *states = nullptr;
  if (currns) *currns = nullptr;
}

FS_STATE* new_FS_STATE_and_FS_init(FS_LONG heapsize, int use_external_heap) {
  FS_STATE* sp = (FS_STATE*)calloc(1, sizeof(FS_STATE));
  if (sp == nullptr) {
    fprintf(stderr, "The function <malloc> returned NULL\n");
    printf("%%%% The function <malloc> returned NULL\n");
    exit(-1);
  }
  if (use_external_heap) {
    fprintf(stderr,
            "Do not use external_heapsize command without FS_INT_MEM "
            "defined.\n");
    printf("%%%% Do not use external_heapsize command without FS_INT_MEM "
           "defined\n");
    exit(-1);
  }
  FSS_init(sp, (FS_ULONG)heapsize);
  return sp;
}

FS_LONG init_and_set_DEFAULT_client(FS_STATE** FS_state_ptr,
                                    NAMED_STATE* states, NAMED_STATE** currns,
                                    FS_LONG heapsize, int use_external_heap,
                                    int displayType, FILE* psFp) {
  FS_STATE* sp = new_FS_STATE_and_FS_init(heapsize, use_external_heap);
  report_error(sp, displayType, psFp, "FS_init", 0);
  FS_LONG err = (FS_LONG)sp->error;
  NAMED_STATE* ns = append_named_state(states, "DEFAULT", sp, 1);
  if (currns) *currns = ns;
  if (FS_state_ptr) *FS_state_ptr = sp;
  return err;
}

/* ---- Fonts loaded to memory ---- */

void* load_to_ram_size(const char* path, long* size) {
  *size = 0;
  FILE* f = fopen(path, "rb");
  if (f == nullptr) return nullptr;
  void* p = nullptr;
  long n = -1;
  if (fseek(f, 0, SEEK_END) == 0) n = ftell(f);
  if (n > 0 && fseek(f, 0, SEEK_SET) == 0) {
    p = malloc((size_t)n);
    if (p != nullptr && fread(p, 1, (size_t)n, f) != (size_t)n) {
      free(p);
      p = nullptr;
    }
  }
  fclose(f);
  if (p != nullptr) *size = n;
  return p;
}

void* get_ram_address(LOADED_TO_RAM** loaded, const char* path,
                      long* msize) {
  for (LOADED_TO_RAM* t = *loaded; t != nullptr; t = t->next) {
    if (strcmp(t->path, path) == 0) {
      *msize = t->size;
      return t->addr;
    }
  }
  *msize = 0;
  LOADED_TO_RAM* e = (LOADED_TO_RAM*)calloc(1, sizeof(LOADED_TO_RAM));
  if (e == nullptr) return nullptr;
  e->path = strdup(path);
  e->next = *loaded;
  *loaded = e;
  e->addr = load_to_ram_size(path, &e->size);
  *msize = e->size;
  return e->addr;
}

void free_loaded_to_ram(LOADED_TO_RAM** loaded) {
  LOADED_TO_RAM* t = *loaded;
  while (t != nullptr) {
    LOADED_TO_RAM* next = t->next;
    free(t->addr);
    free(t->path);
    free(t);
    t = next;
  }
  *loaded = nullptr;
}

/* ---- Timers ---- */

FS_CLOCK getClock() { return (FS_CLOCK)clock(); }
void initTimer(TIMER* t) { memset(t, 0, sizeof(*t)); }
void enableTimer(TIMER* t) { t->isOn = 1; }
void disableTimer(TIMER* t) { t->isOn = 0; }
void resetTimer(TIMER* t) {
  t->duration = 0;
  t->nglyphs = 0;
  t->npixels = 0;
}
void startTimer(TIMER* t) { t->start = getClock(); }
void stopTimer(TIMER* t) {
  t->end = getClock();
  t->duration += t->end - t->start;
}

void reportTimer(TIMER* t) {
  double d = (double)t->duration;
  if (t->isOn) d += (double)(getClock() - t->start);
  // Clock ticks to milliseconds, so that "times 1000.0" gives per second.
  d = d * 1000.0 / CLOCKS_PER_SEC;
  printf("%%%% Glyphs retrieved:  %ld\n", (long)t->nglyphs);
  printf("%%%% Glyphs per second: %lf\n", t->nglyphs * 1000.0 / d);
  printf("%%%% Pixels per second: %lf\n", t->npixels * 1000.0 / d);
}

/* ---- Pre-scan and numbers ---- */

FS_LONG get_heapsize_only(const char* pfile, int* use_external_heap) {
  if (pfile == nullptr) {
    fprintf(stderr, "*** get_heasize_from_sequence_file: bad file pointer\n");
    return 0;
  }
  FILE* fp = fopen(pfile, "r");
  if (fp == nullptr) {
    printf("unable to open '%s'\n", pfile);
    return 1;
  }
  FS_LONG size = 0;
  for (;;) {
    char command[256] = {0};
    if (get_command(fp, command, 256) == EOF) break;
    if (strcmp(command, "heapsize") == 0) {
      size = get_int(fp);
      break;
    }
    if (strcmp(command, "external_heapsize") == 0) {
      size = get_int(fp);
      if (use_external_heap) *use_external_heap = 1;
      break;
    }
  }
  fclose(fp);
  return size == 0 ? DEFAULT_HEAPSIZE : size;
}

static void mat_mult(const double a[4], const double b[4], double r[4]) {
  double t[4] = {a[0] * b[0] + a[1] * b[2], a[0] * b[1] + a[1] * b[3],
                 a[2] * b[0] + a[3] * b[2], a[2] * b[1] + a[3] * b[3]};
  memcpy(r, t, sizeof(t));
}

void calc_matrix(int xppm, int yppm, double rot, double skew,
                 FS_FIXED scale[4]) {
  const double DEG = 0.017453292519943295;
  double m[4] = {(double)xppm, 0.0, 0.0, (double)yppm};
  if (skew != 0.0) m[1] = yppm * tan(skew * DEG);
  if (rot != 0.0) {
    double r = rot * DEG;
    double R[4] = {cos(r), -sin(r), sin(r), cos(r)};
    mat_mult(R, m, m);
  }
  for (int i = 0; i < 4; i++) scale[i] = (FS_FIXED)(int)(65536.0 * m[i] + 0.5);
}

int res_to_mag(int res, double* mag) {
  static const struct {
    int res;
    double mag;
  } table[] = {{600, 0.12}, {300, 0.24}, {200, 0.38}, {150, 0.48},
               {100, 0.76}, {75, 0.96},  {72, 1.0},   {36, 2.0}};
  for (const auto& e : table) {
    if (e.res == res) {
      *mag = e.mag;
      return 1;
    }
  }
  return 0;
}
