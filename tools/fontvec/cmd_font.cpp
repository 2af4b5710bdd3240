// fontvec FONT...: the whole road for people. Each font file is copied into a
// private working folder as font.ttf beside an Images/ folder, rendered by the
// default script and measured through the library's C calls; the vector is
// printed as the library's line, by name, or as CSV or JSON.
#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <semaphore.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "feature_vector_core.h"
#include "feature_vector_library.h"
#include "tools/fontvec/commands.h"

namespace fs = std::filesystem;

namespace {

enum class Layout { kLine, kNames, kCsv, kJson };

struct Options {
  Layout layout = Layout::kLine;
  std::string config;
  std::string keep_images;
  long jobs = 0;  // fonts worked at once; 0 until parsed: online processors
  std::vector<std::string> fonts;
};

bool hasScript(const std::string& folder) {
  struct stat st;
  return stat((folder + "/Script.scr").c_str(), &st) == 0 &&
         S_ISREG(st.st_mode);
}

// The default configuration folder: beside the executable, in the installed
// share folder, then in the source tree the tool was built from.
std::string findConfig() {
  std::vector<std::string> candidates;
  char exe[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (n > 0) {
    exe[n] = '\0';
    std::string dir = fs::path(exe).parent_path().string();
    candidates.push_back(dir + "/config");
    candidates.push_back(dir + "/../share/fontvec/config");
  }
#ifdef FONTVEC_INSTALL_CONFIG_DIR
  candidates.push_back(FONTVEC_INSTALL_CONFIG_DIR);
#endif
#ifdef FONTVEC_SOURCE_CONFIG_DIR
  candidates.push_back(FONTVEC_SOURCE_CONFIG_DIR);
#endif
  for (const std::string& c : candidates)
    if (hasScript(c)) return c;
  return "";
}

std::vector<std::string> splitLine(const std::string& line) {
  std::vector<std::string> fields;
  std::string current;
  for (char c : line) {
    if (c == ',') {
      fields.push_back(current);
      current.clear();
    } else if (c != '\n') {
      current += c;
    }
  }
  fields.push_back(current);
  return fields;
}

std::string jsonString(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    if ((unsigned char)c < 0x20) {
      char esc[8];
      snprintf(esc, sizeof esc, "\\u%04x", (unsigned char)c);
      out += esc;
      continue;
    }
    out += c;
  }
  return out + "\"";
}

std::string jsonValue(const std::string& text) {
  if (text.find("inf") != std::string::npos || text.find("nan") != std::string::npos)
    return "\"" + text + "\"";
  return text;
}

std::string csvField(const std::string& text) {
  if (text.find_first_of(",\"\n") == std::string::npos) return text;
  std::string out = "\"";
  for (char c : text) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

// Reads all of a descriptor into a string.
std::string readAll(int fd) {
  std::string out;
  char buffer[4096];
  for (;;) {
    ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    out.append(buffer, (size_t)n);
  }
  return out;
}

// One font being worked in its child: the child's id, the read end of the
// pipe its result comes back on, the font's place in the input and its
// working folder.
struct Running {
  pid_t pid;
  int fd;
  size_t index;
  std::string folder;
};

// The semaphore name of the child working font `index` of this run.
std::string semaphoreName(pid_t parent, size_t index) {
  return "/fontvec-" + std::to_string((long)parent) + "-" +
         std::to_string(index);
}

// Copies the pictures of a working folder to `target`.
bool keepPictures(const std::string& images, const std::string& target) {
  std::error_code ec;
  fs::create_directories(target, ec);
  if (ec) return false;
  fs::copy(images, target,
           fs::copy_options::overwrite_existing | fs::copy_options::recursive,
           ec);
  return !ec;
}

// Where working folders go: $TMPDIR when set; else /dev/shm when it is a
// folder we may write (memory, so the 59 pictures of each font never wait
// for a disk's file system, which pays for every file made and removed);
// else /tmp.
std::string scratchBase() {
  const char* tmp = getenv("TMPDIR");
  if (tmp != nullptr && tmp[0] != '\0') return tmp;
  struct stat st;
  if (stat("/dev/shm", &st) == 0 && S_ISDIR(st.st_mode) &&
      access("/dev/shm", W_OK | X_OK) == 0)
    return "/dev/shm";
  return "/tmp";
}

// Names one font's working folder: a fresh empty folder made by mkdtemp.
// Returns "" with `folder` set, or an error text.
std::string makeFolder(std::string* folder) {
  std::string pattern = scratchBase() + "/fontvec-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  if (mkdtemp(name.data()) == nullptr)
    return std::string("Error=working folder: ") + strerror(errno);
  *folder = name.data();
  return "";
}

// Fills a working folder: the font as font.ttf and an empty Images/.
// Returns "" or an error text.
std::string fillFolder(const std::string& font, const std::string& folder) {
  struct stat st;
  if (stat(font.c_str(), &st) != 0) return std::string("Error=") + strerror(errno);
  if (!S_ISREG(st.st_mode)) return "Error=not a file";
  std::error_code ec;
  fs::copy_file(font, folder + "/font.ttf", ec);
  if (ec) return "Error=copy: " + ec.message();
  if (mkdir((folder + "/Images").c_str(), 0755) != 0)
    return std::string("Error=Images: ") + strerror(errno);
  return "";
}

// A font's pictures kept where --keep-images asks.
void keepFolder(const Options& options, const std::string& font,
                const std::string& folder) {
  if (options.keep_images.empty()) return;
  std::string target = options.keep_images;
  if (options.fonts.size() > 1) target += "/" + fs::path(font).stem().string();
  if (!keepPictures(folder + "/Images", target))
    fontvec_error("%s: could not keep the pictures in %s", font.c_str(),
                  target.c_str());
}

// The order fonts are started in: the input order, except that within each
// block of 64 the larger files (which take longer) go first, so that the
// last fonts of a run do not leave cores idle behind one long font. Blocks
// keep the output streaming, since results print in input order.
std::vector<size_t> startOrder(const std::vector<std::string>& fonts) {
  const size_t block = 64;
  std::vector<size_t> order(fonts.size());
  std::vector<off_t> size(fonts.size(), 0);
  for (size_t k = 0; k < fonts.size(); k++) {
    order[k] = k;
    struct stat st;
    if (stat(fonts[k].c_str(), &st) == 0) size[k] = st.st_size;
  }
  for (size_t b = 0; b < order.size(); b += block) {
    auto end = order.begin() + (long)std::min(order.size(), b + block);
    std::stable_sort(order.begin() + (long)b, end,
                     [&](size_t x, size_t y) { return size[x] > size[y]; });
  }
  return order;
}

// Renders and measures one font in a child process, so that a fault the
// renderer ends its process with costs only this font. The parent only names
// the working folder (`job->folder`, made empty by mkdtemp); the child fills
// it, works it and removes it, so that this per-font file work runs on every
// core instead of queueing in the parent. The child links the library under
// its own semaphore name, so that children working at the same time do not
// wait for each other's rendering. The renderer's messages on standard output
// go to standard error. Returns "" with `job` filled, or an error text.
std::string startChild(const Options& options, size_t index,
                       const std::vector<Running>& running, Running* job) {
  int pipefd[2];
  if (pipe(pipefd) != 0) return std::string("Error=pipe: ") + strerror(errno);
  fflush(stdout);
  fflush(stderr);
  pid_t pid = fork();
  if (pid < 0) {
    close(pipefd[0]);
    close(pipefd[1]);
    return std::string("Error=fork: ") + strerror(errno);
  }
  if (pid == 0) {
    close(pipefd[0]);
    for (const Running& other : running) close(other.fd);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    const std::string& font = options.fonts[index];
    char result[FEATURE_VECTOR_TEXT_SIZE];
    memset(result, 0, sizeof result);
    std::string text = fillFolder(font, job->folder);
    if (!text.empty()) {
      snprintf(result, sizeof result, "%s", text.c_str());
    } else {
      std::string semaphore = semaphoreName(getppid(), index);
      int linked = link_library(semaphore.c_str(), options.config.c_str());
      if (linked != 0) {
        snprintf(result, sizeof result, "Error=link_library returned %d",
                 linked);
      } else {
        create_feature_vector(job->folder.c_str(), result);
        unlink_library();
      }
      keepFolder(options, font, job->folder);
    }
    std::error_code ec;
    fs::remove_all(job->folder, ec);
    fflush(stdout);
    size_t length = strnlen(result, sizeof result);
    size_t done = 0;
    while (done < length) {
      ssize_t n = write(pipefd[1], result + done, length - done);
      if (n <= 0) break;
      done += (size_t)n;
    }
    close(pipefd[1]);
    _exit(0);
  }
  close(pipefd[1]);
  job->pid = pid;
  job->fd = pipefd[0];
  job->index = index;
  return "";
}

// The result of a child that has ended with `status`. Its whole result is
// already in the pipe: a result is far smaller than a pipe holds, so the
// child never waits for the parent to read.
std::string childResult(int fd, int status) {
  std::string text = readAll(fd);
  close(fd);
  if (WIFSIGNALED(status))
    return "Error=renderer stopped by signal " + std::to_string(WTERMSIG(status));
  if (WIFEXITED(status) && WEXITSTATUS(status) != 0)
    return "Error=renderer ended the process with status " +
           std::to_string(WEXITSTATUS(status));
  if (text.empty()) return "Error=no result";
  return text;
}

// Works all fonts, at most options.jobs at once, each in its own child with
// its own working folder. `done(k, text)` is called with the library's text
// (a vector line or an error text) as each font finishes, in the order they
// finish.
template <typename Done>
void runFonts(const Options& options, Done done) {
  const std::vector<size_t> order = startOrder(options.fonts);
  std::vector<Running> running;
  size_t next = 0;
  // A child that ended without removing its folder (the renderer ended it).
  auto lost = [&](const Running& job, const std::string& text) {
    std::error_code ec;
    fs::remove_all(job.folder, ec);
    done(job.index, text);
  };
  while (next < order.size() || !running.empty()) {
    while ((long)running.size() < options.jobs && next < order.size()) {
      size_t k = order[next++];
      Running job;
      std::string text = makeFolder(&job.folder);
      if (text.empty()) {
        text = startChild(options, k, running, &job);
        if (text.empty()) {
          running.push_back(job);
          continue;
        }
        std::error_code ec;
        fs::remove_all(job.folder, ec);
      }
      done(k, text);
    }
    if (running.empty()) continue;
    int status = 0;
    pid_t pid = waitpid(-1, &status, 0);
    if (pid < 0) {
      if (errno == EINTR) continue;
      // No child left to wait for: every running font is lost.
      for (const Running& job : running) {
        close(job.fd);
        lost(job, std::string("Error=wait: ") + strerror(errno));
      }
      running.clear();
      continue;
    }
    for (size_t i = 0; i < running.size(); i++) {
      if (running[i].pid != pid) continue;
      Running job = running[i];
      running.erase(running.begin() + (long)i);
      std::string text = childResult(job.fd, status);
      if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        done(job.index, text);
      } else {
        // A child the renderer ended did not remove its semaphore or folder.
        sem_unlink(semaphoreName(getpid(), job.index).c_str());
        lost(job, text);
      }
      break;
    }
  }
}

// Whether `path` names a font file by its extension: .ttf, .otf, .ttc or
// .otc, in either case.
bool isFontName(const fs::path& path) {
  std::string ext = path.extension().string();
  for (char& c : ext) c = (char)tolower((unsigned char)c);
  return ext == ".ttf" || ext == ".otf" || ext == ".ttc" || ext == ".otc";
}

// Each folder among the inputs stands for every font file under it, in
// sorted order; other inputs stay as they are, in their place. A folder
// that can't be walked is kept whole, so that its error is reported as a
// font's.
std::vector<std::string> expandFolders(const std::vector<std::string>& inputs) {
  std::vector<std::string> fonts;
  for (const std::string& input : inputs) {
    std::error_code ec;
    if (!fs::is_directory(input, ec)) {
      fonts.push_back(input);
      continue;
    }
    std::vector<std::string> found;
    fs::recursive_directory_iterator it(
        input, fs::directory_options::skip_permission_denied, ec), end;
    for (; !ec && it != end; it.increment(ec))
      if (it->is_regular_file(ec) && isFontName(it->path()))
        found.push_back(it->path().string());
    if (ec) {
      fonts.push_back(input);
      continue;
    }
    std::sort(found.begin(), found.end());
    fonts.insert(fonts.end(), found.begin(), found.end());
  }
  return fonts;
}

bool parse(int argc, char** argv, Options* options) {
  for (int i = 0; i < argc; i++) {
    const char* a = argv[i];
    if (strcmp(a, "--names") == 0) {
      options->layout = Layout::kNames;
    } else if (strcmp(a, "--format") == 0 && i + 1 < argc) {
      const char* format = argv[++i];
      if (strcmp(format, "csv") == 0)
        options->layout = Layout::kCsv;
      else if (strcmp(format, "json") == 0)
        options->layout = Layout::kJson;
      else if (strcmp(format, "line") == 0)
        options->layout = Layout::kLine;
      else
        return false;
    } else if (strcmp(a, "--config") == 0 && i + 1 < argc) {
      options->config = argv[++i];
    } else if (strcmp(a, "--jobs") == 0 && i + 1 < argc) {
      char* end = nullptr;
      errno = 0;
      long jobs = strtol(argv[++i], &end, 10);
      if (errno != 0 || end == argv[i] || *end != '\0' || jobs < 1 ||
          jobs > 4096)
        return false;
      options->jobs = jobs;
    } else if (strcmp(a, "--keep-images") == 0 && i + 1 < argc) {
      options->keep_images = argv[++i];
    } else if (strcmp(a, "--") == 0) {
      for (i++; i < argc; i++) options->fonts.push_back(argv[i]);
    } else if (a[0] == '-' && a[1] != '\0') {
      return false;
    } else {
      options->fonts.push_back(a);
    }
  }
  return !options->fonts.empty();
}

}  // namespace

const char* const kFontSynopsis =
    "FONT... [--config DIR] [--keep-images DIR] [--jobs N] [--names | "
    "--format line|csv|json]";

int fontvec_font(int argc, char** argv) {
  Options options;
  if (!parse(argc, argv, &options)) {
    fprintf(stderr, "usage: fontvec %s\n", kFontSynopsis);
    return 2;
  }
  std::vector<std::string> inputs = options.fonts;
  options.fonts = expandFolders(inputs);
  if (options.fonts.empty()) {
    fontvec_error("no font files (.ttf, .otf, .ttc, .otc) under %s",
                  inputs[0].c_str());
    return 1;
  }
  if (options.config.empty()) {
    options.config = findConfig();
    if (options.config.empty()) {
      fontvec_error("no default configuration (config/Script.scr) found; "
                    "give one with --config DIR");
      return 1;
    }
  } else if (!hasScript(options.config)) {
    fontvec_error("%s: no Script.scr in this folder", options.config.c_str());
    return 1;
  }

  if (options.jobs == 0) {
    long online = sysconf(_SC_NPROCESSORS_ONLN);
    options.jobs = online > 0 ? online : 1;
  }

  // The semaphore is tried once here, so that a machine without named
  // semaphores is told so once; each font's child links under its own name.
  char semaphore[64];
  snprintf(semaphore, sizeof semaphore, "/fontvec-%ld", (long)getpid());
  int linked = link_library(semaphore, options.config.c_str());
  if (linked != 0) {
    fontvec_error("link_library returned %d", linked);
    return 1;
  }
  unlink_library();

  const size_t count = options.fonts.size();
  const bool progress = isatty(STDERR_FILENO) && count > 1;
  size_t failed = 0;
  if (options.layout == Layout::kCsv) {
    printf("file");
    for (const char* n : FeatureValueNames) printf(",%s", n);
    printf("\n");
  }
  if (options.layout == Layout::kJson && count > 1) printf("[\n");
  bool first_json = true;

  // Prints one font's result: a vector in the chosen layout, or its error
  // on standard error.
  auto print = [&](const std::string& font, const std::string& text) {
    if (text.find("Error") != std::string::npos) {
      std::string shown = text;
      while (!shown.empty() && shown.back() == '\n') shown.pop_back();
      fprintf(stderr, "%s: %s\n", font.c_str(), shown.c_str());
      failed++;
      return;
    }
    std::vector<std::string> values = splitLine(text);
    switch (options.layout) {
      case Layout::kLine:
        fputs(text.c_str(), stdout);
        break;
      case Layout::kNames:
        if (count > 1) printf("# %s\n", font.c_str());
        for (size_t i = 0; i < values.size() && i < FEATURE_VECTOR_LENGTH; i++)
          printf("%zu %s %s\n", i, FeatureValueNames[i], values[i].c_str());
        break;
      case Layout::kCsv:
        printf("%s", csvField(fs::path(font).filename().string()).c_str());
        for (const std::string& v : values) printf(",%s", v.c_str());
        printf("\n");
        break;
      case Layout::kJson:
        if (count > 1) printf("%s", first_json ? "" : ",\n");
        first_json = false;
        printf("{\"file\": %s", jsonString(font).c_str());
        for (size_t i = 0; i < values.size() && i < FEATURE_VECTOR_LENGTH; i++)
          printf(", \"%s\": %s", FeatureValueNames[i],
                 jsonValue(values[i]).c_str());
        printf("}");
        if (count == 1) printf("\n");
        break;
    }
    fflush(stdout);
  };

  // Results are held until every font before them has been printed, so the
  // output follows the input order whatever order the fonts finish in.
  std::vector<std::string> results(count);
  std::vector<bool> finished(count, false);
  size_t finished_count = 0, printed = 0;
  runFonts(options, [&](size_t k, const std::string& text) {
    results[k] = text;
    finished[k] = true;
    finished_count++;
    if (progress)
      fprintf(stderr, "fontvec: [%zu/%zu] %s\n", finished_count, count,
              options.fonts[k].c_str());
    while (printed < count && finished[printed]) {
      print(options.fonts[printed], results[printed]);
      results[printed].clear();
      printed++;
    }
  });

  if (options.layout == Layout::kJson && count > 1)
    printf("%s]\n", first_json ? "" : "\n");
  if (failed > 0 && count > 1)
    fontvec_error("%zu of %zu fonts failed", failed, count);
  return failed > 0 ? 1 : 0;
}

int fontvec_vectors(const std::vector<std::string>& fonts,
                    std::vector<std::string>* texts) {
  Options options;
  options.fonts = fonts;
  options.config = findConfig();
  if (options.config.empty()) {
    fontvec_error("no default configuration (config/Script.scr) found");
    return 1;
  }
  long online = sysconf(_SC_NPROCESSORS_ONLN);
  options.jobs = online > 0 ? online : 1;
  texts->assign(fonts.size(), "");
  runFonts(options, [&](size_t k, const std::string& text) {
    (*texts)[k] = text;
  });
  return 0;
}
