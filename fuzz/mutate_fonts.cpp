// The damaged-font campaign: makes damaged fonts from real ones and puts each
// through `fontvec info` (every other one with --memory), the glyph requests of the letters at 12 and 72
// pixels per em, and for every hundredth the whole `fontvec FONT`, each in a
// child process with a time limit. A child killed by a signal is a crash, one
// over the limit a hang, one whose output names a sanitizer a report; a
// refusal is counted by the engine error number `info` gives. Prints the
// findings as they come and a table at the end; exit 1 when any was found.
//
//   mutate_fonts --fontvec PATH [--count N] [--first I] [--seed S]
//                [--work DIR] [--keep DIR] [--timeout S] FONT...
//
// Damaged font I is the same for the same fonts and seed, so that
// `--first I --count 1 --keep DIR` makes one again.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "fuzz/fuzz_engine.h"

namespace {

typedef std::vector<unsigned char> Bytes;

struct Entry {
  size_t dirAt;  // where the directory entry lies
  uint32_t tag, offset, length;
};

uint32_t u32(const Bytes& b, size_t at) {
  return at + 4 <= b.size() ? (uint32_t)b[at] << 24 | b[at + 1] << 16 | b[at + 2] << 8 | b[at + 3]
                            : 0;
}
uint16_t u16(const Bytes& b, size_t at) {
  return at + 2 <= b.size() ? (uint16_t)(b[at] << 8 | b[at + 1]) : 0;
}
void put32(Bytes& b, size_t at, uint32_t v) {
  for (int k = 0; k < 4 && at + k < b.size(); k++) b[at + k] = (unsigned char)(v >> (24 - 8 * k));
}
void put16(Bytes& b, size_t at, uint16_t v) {
  for (int k = 0; k < 2 && at + k < b.size(); k++) b[at + k] = (unsigned char)(v >> (8 - 8 * k));
}

// The table directory of the sfnt (the first member of a collection).
std::vector<Entry> directory(const Bytes& b) {
  size_t base = u32(b, 0) == 0x74746366 ? u32(b, 12) : 0;  // "ttcf"
  std::vector<Entry> d;
  uint16_t n = u16(b, base + 4);
  for (size_t i = 0; i < n && base + 12 + 16 * i + 16 <= b.size(); i++) {
    size_t at = base + 12 + 16 * i;
    d.push_back({at, u32(b, at), u32(b, at + 8), u32(b, at + 12)});
  }
  return d;
}

const Entry* find(const std::vector<Entry>& d, const char* tag) {
  uint32_t t = (uint32_t)tag[0] << 24 | tag[1] << 16 | tag[2] << 8 | tag[3];
  for (const Entry& e : d)
    if (e.tag == t) return &e;
  return NULL;
}

// The kinds of damage, in the order of their numbers.
const char* const kKinds[] = {
    "bit flips",        "bytes set",      "truncation",   "overlapping entry",
    "out-of-range entry", "zero-length entry", "swapped tables", "huge maxp",
    "huge loca",        "huge cmap",      "huge CFF index", "huge glyf header",
    "bytes in a table",
};
const int kNumKinds = sizeof kKinds / sizeof kKinds[0];

// Damages `b` by `kind`; the random choices come from `rng`.
void damage(Bytes& b, int kind, std::mt19937& rng) {
  auto pick = [&](size_t n) { return n ? (size_t)(rng() % n) : 0; };
  const std::vector<Entry> d = directory(b);
  const Entry* some = d.empty() ? NULL : &d[pick(d.size())];
  const unsigned char kValues[] = {0x00, 0xFF, 0x7F, 0x80};
  switch (kind) {
    case 0:
      for (int k = 1 + (int)pick(16); k > 0; k--) b[pick(b.size())] ^= (unsigned char)(1 << pick(8));
      break;
    case 1:
      for (int k = 1 + (int)pick(8); k > 0; k--) b[pick(b.size())] = kValues[pick(4)];
      break;
    case 2: {  // at a table's start, its end or inside it
      size_t at = some ? (size_t)some->offset + (pick(3) == 0 ? 0 : pick(3) == 1 ? some->length : pick(some->length + 1)) : pick(b.size());
      if (at < b.size()) b.resize(at);
      break;
    }
    case 3:
      if (d.size() >= 2) {
        const Entry& other = d[pick(d.size())];
        put32(b, some->dirAt + 8, other.offset + (uint32_t)pick(other.length / 2 + 1));
      }
      break;
    case 4:
      if (some) {
        uint32_t far[] = {(uint32_t)b.size(), (uint32_t)b.size() - 1, 0xFFFFFFF0u, 0x7FFFFFFFu};
        if (pick(2)) put32(b, some->dirAt + 8, far[pick(4)]);
        else put32(b, some->dirAt + 12, far[pick(4)]);
      }
      break;
    case 5:
      if (some) put32(b, some->dirAt + 12, 0);
      break;
    case 6:
      if (d.size() >= 2) {
        const Entry& other = d[pick(d.size())];
        put32(b, some->dirAt + 8, other.offset), put32(b, some->dirAt + 12, other.length);
        put32(b, other.dirAt + 8, some->offset), put32(b, other.dirAt + 12, some->length);
      }
      break;
    case 7:
      if (const Entry* m = find(d, "maxp")) {
        size_t field = 4 + 2 * pick(14);  // numGlyphs, then the maxima
        put16(b, m->offset + field, pick(2) ? 0xFFFF : 0x8000 + (uint16_t)pick(0x8000));
      }
      break;
    case 8:
      if (const Entry* l = find(d, "loca")) {
        size_t at = l->offset + 4 * pick(l->length / 4 + 1);
        put32(b, at, pick(2) ? 0xFFFFFFFFu : (uint32_t)rng());
      }
      break;
    case 9:
      if (const Entry* c = find(d, "cmap")) {
        uint16_t n = u16(b, c->offset + 2);
        if (n == 0 || pick(3) == 0) {
          put16(b, c->offset + 2, 0xFFFF);
        } else {  // a subtable's length or count
          size_t sub = c->offset + u32(b, c->offset + 4 + 8 * pick(n) + 4);
          uint16_t format = u16(b, sub);
          if (format == 4) put16(b, sub + 6, 0xFFFE);
          else if (format == 12 || format == 13) put32(b, sub + 12, 0xFFFFFFF0u);
          else put16(b, sub + 2, 0xFFFF);
        }
      }
      break;
    case 10:
      if (const Entry* c = find(d, "CFF ")) {
        // The name index's count, or a count at any later place that
        // reads like one.
        size_t at = c->offset + b[c->offset + 2 < b.size() ? c->offset + 2 : 0];
        if (pick(2)) at = c->offset + pick(c->length > 2 ? c->length - 2 : 1);
        put16(b, at, pick(2) ? 0xFFFF : 0x7FFF);
      }
      break;
    case 11:
      if (const Entry* g = find(d, "glyf")) {
        const Entry* l = find(d, "loca");
        size_t at = g->offset;
        if (l != NULL && l->length >= 8) {
          bool longLoca = l->length / 4 >= 2 && pick(2);
          size_t k = pick(l->length / (longLoca ? 4 : 2) - 1);
          at += longLoca ? u32(b, l->offset + 4 * k) : 2u * u16(b, l->offset + 2 * k);
        }
        size_t field = pick(5) * 2;  // contours, then the box
        put16(b, at + field, pick(2) ? 0x7FFF : 0xFFFF);
        if (pick(2)) put16(b, at + 10 + 2 * pick(4), 0xFFFF);  // an end point or instruction length
      }
      break;
    default:
      if (some)
        for (int k = 1 + (int)pick(8); k > 0; k--) {
          size_t at = some->offset + pick(some->length + 1);
          if (at < b.size()) b[at] = pick(2) ? kValues[pick(4)] : (unsigned char)rng();
        }
      break;
  }
}

// The letters' glyph requests as the renderer makes them: hinted 8-bit
// graymaps and advances at 12 and 72 pixels per em.
int letters(const Bytes& b) {
  fuzz::Client c(b.data(), b.size());
  if (!c.add()) return (int)c.first;
  for (const FS_USHORT* p : fuzz::kCmapPreference)
    if (FSS_set_cmap(&c.st, p[0], p[1]) == 0) break;
  c.note();
  for (int ppem : {12, 72}) {
    if (FSS_set_scale(&c.st, ppem << 16, 0, 0, ppem << 16) != 0) {
      c.note();
      continue;
    }
    for (int ch = 'A'; ch <= 'z'; ch = ch == 'Z' ? 'a' : ch + 1) {
      FS_GLYPHMAP* g = FSS_get_glyphmap(&c.st, (FS_ULONG)ch, FS_MAP_GRAYMAP8);
      if (g != NULL) FSS_free_char(&c.st, g);
      c.note();
    }
  }
  return (int)c.first;
}

// How a child ended.
struct Run {
  bool hang = false, crash = false, report = false;
  int status = 0;  // exit code when it exited
  std::string err;  // its standard error
};

// Runs `argv` (or, when null, `letters` over `font`) in a child of its own
// process group with the time limit; standard output goes away.
Run runChild(char* const* argv, const Bytes* font, int timeout) {
  Run r;
  int pipefd[2];
  if (pipe(pipefd) != 0) return r;
  pid_t pid = fork();
  if (pid == 0) {
    setpgid(0, 0);
    int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    dup2(pipefd[1], 2);
    close(pipefd[0]);
    if (argv != NULL) {
      execv(argv[0], argv);
      _exit(127);
    }
    int e = letters(*font);
    fprintf(stderr, "glyph error %d\n", e);
    _exit(0);
  }
  close(pipefd[1]);
  fcntl(pipefd[0], F_SETFL, O_NONBLOCK);
  struct timespec start;
  clock_gettime(CLOCK_MONOTONIC, &start);
  int status = 0;
  char buf[4096];
  for (;;) {
    ssize_t n;
    while ((n = read(pipefd[0], buf, sizeof buf)) > 0)
      if (r.err.size() < 65536) r.err.append(buf, (size_t)n);
    if (waitpid(pid, &status, WNOHANG) == pid) break;
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (now.tv_sec - start.tv_sec >= timeout) {
      kill(-pid, SIGKILL);
      waitpid(pid, &status, 0);
      r.hang = true;
      break;
    }
    usleep(1000);
  }
  ssize_t n;
  while ((n = read(pipefd[0], buf, sizeof buf)) > 0)
    if (r.err.size() < 65536) r.err.append(buf, (size_t)n);
  close(pipefd[0]);
  kill(-pid, SIGKILL);  // whatever the child left behind
  // The whole run's worker ending on a signal is told as an error text.
  if (!r.hang && (WIFSIGNALED(status) || r.err.find("stopped by signal") != std::string::npos))
    r.crash = true;
  if (WIFEXITED(status)) r.status = WEXITSTATUS(status);
  r.report = r.status == 86 || r.err.find("Sanitizer") != std::string::npos ||
             r.err.find("runtime error:") != std::string::npos;
  return r;
}

// The engine error number in a refusal's text ("... error N: ..."), -1
// when it names none.
long errorNumber(const std::string& err) {
  size_t at = err.find("error ");
  return at == std::string::npos ? -1 : strtol(err.c_str() + at + 6, NULL, 10);
}

bool readFile(const char* path, Bytes* out) {
  FILE* f = fopen(path, "rb");
  if (f == NULL) return false;
  unsigned char buf[65536];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) out->insert(out->end(), buf, buf + n);
  fclose(f);
  return !out->empty();
}

bool writeFile(const std::string& path, const Bytes& b) {
  FILE* f = fopen(path.c_str(), "wb");
  if (f == NULL) return false;
  bool ok = fwrite(b.data(), 1, b.size(), f) == b.size();
  return fclose(f) == 0 && ok;
}

}  // namespace

int main(int argc, char** argv) {
  const char* fontvec = NULL;
  const char* keep = NULL;
  std::string work = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  unsigned long count = 100000, first = 0, seed = 1;
  int timeout = 10;
  std::vector<Bytes> fonts;
  std::vector<std::string> names;
  for (int i = 1; i < argc; i++) {
    std::string a = argv[i];
    bool more = i + 1 < argc;
    if (a == "--fontvec" && more) fontvec = argv[++i];
    else if (a == "--count" && more) count = strtoul(argv[++i], NULL, 10);
    else if (a == "--first" && more) first = strtoul(argv[++i], NULL, 10);
    else if (a == "--seed" && more) seed = strtoul(argv[++i], NULL, 10);
    else if (a == "--work" && more) work = argv[++i];
    else if (a == "--keep" && more) keep = argv[++i];
    else if (a == "--timeout" && more) timeout = atoi(argv[++i]);
    else {
      Bytes b;
      if (!readFile(argv[i], &b)) {
        fprintf(stderr, "mutate_fonts: cannot read %s\n", argv[i]);
        return 2;
      }
      fonts.push_back(b);
      names.push_back(argv[i]);
    }
  }
  if (fontvec == NULL || fonts.empty()) {
    fprintf(stderr, "usage: mutate_fonts --fontvec PATH [--count N] [--first I] "
                    "[--seed S] [--work DIR] [--keep DIR] [--timeout S] FONT...\n");
    return 2;
  }
  // Sanitizer reports end a child with 86, which no command gives.
  setenv("ASAN_OPTIONS", "exitcode=86:detect_leaks=1:quarantine_size_mb=64:"
                         "hard_rss_limit_mb=1024:allocator_may_return_null=1", 0);
  setenv("UBSAN_OPTIONS", "exitcode=86:print_stacktrace=1", 0);
  std::string file = work + "/mutate-fonts-" + std::to_string(getpid()) + ".ttf";
  std::map<std::string, unsigned long> table;  // outcome -> fonts
  std::map<long, unsigned long> glyphErrors;
  unsigned long findings = 0, wholeRuns = 0;
  for (unsigned long i = first; i < first + count; i++) {
    if ((i - first) % 1000 == 0 && i != first)
      fprintf(stderr, "mutate_fonts: %lu of %lu, %lu findings\n", i - first, count, findings);
    std::mt19937 rng((uint32_t)(seed * 1000003u + i));
    size_t which = rng() % fonts.size();
    int kind = (int)(rng() % kNumKinds);
    Bytes b = fonts[which];
    damage(b, kind, rng);
    if (b.empty() || !writeFile(file, b)) continue;
    // Every other font is read into memory first, where the readers meet
    // the bytes without the file's bounds.
    char* info[] = {(char*)fontvec, (char*)"info", (char*)file.c_str(),
                    i % 2 ? (char*)"--memory" : NULL, NULL};
    char* whole[] = {(char*)fontvec, (char*)file.c_str(), NULL};
    Run runs[3] = {runChild(info, NULL, timeout), runChild(NULL, &b, timeout), Run()};
    int n = 2;
    if (i % 100 == 0) runs[n++] = runChild(whole, NULL, timeout), wholeRuns++;
    const char* found = NULL;
    for (int k = 0; k < n && found == NULL; k++)
      found = runs[k].hang ? "hang" : runs[k].report ? "sanitizer report"
              : runs[k].crash ? "crash" : NULL;
    if (found != NULL) {
      findings++;
      table[found]++;
      printf("FINDING %lu: %s (%s, %s of %s)\n", i, found,
             runs[0].hang || runs[0].report || runs[0].crash ? "info"
             : runs[1].hang || runs[1].report || runs[1].crash ? "letters" : "whole",
             kKinds[kind], names[which].c_str());
      for (int k = 0; k < n; k++)
        if (runs[k].report || runs[k].crash) fputs(runs[k].err.substr(0, 3000).c_str(), stdout);
      if (keep != NULL) {
        mkdir(keep, 0755);
        writeFile(std::string(keep) + "/found-" + std::to_string(i) + ".ttf", b);
      }
      fflush(stdout);
      continue;
    }
    const Run& r = runs[0];
    // A refusal by an engine error number, else by its text ("error 0:
    // no outlines nor bitmaps in the font" is a text).
    long e = errorNumber(r.err);
    size_t text = r.err.find(": ", r.err.find(": ") + 2);
    table[r.status == 0 ? "loaded"
          : e > 0       ? "refused: error " + std::to_string(e)
                        : "refused: " + r.err.substr(text == std::string::npos ? 0 : text + 2,
                                                     r.err.find('\n') - text - 2)]++;
    glyphErrors[errorNumber(runs[1].err)]++;
  }
  unlink(file.c_str());
  printf("damaged fonts: %lu (from %lu), whole runs: %lu, findings: %lu\n", count,
         (unsigned long)fonts.size(), wholeRuns, findings);
  printf("\n| outcome of fontvec info | fonts |\n|---|---|\n");
  for (const auto& t : table) printf("| %s | %lu |\n", t.first.c_str(), t.second);
  printf("\n| first error of the letters' requests | fonts |\n|---|---|\n");
  for (const auto& g : glyphErrors) printf("| %ld | %lu |\n", g.first, g.second);
  return findings ? 1 : 0;
}
