// A font file to its feature vector, timed on DejaVu Sans: the whole front
// door (fonts per second), and its two stages apart: rendering by the shipped
// Script.scr (engine and PNG writing) and measuring the pictures. Counters
// png_write_ms and png_read_ms give the time spent inside libpng's
// compression and decompression of the pictures, by standing in front of
// png_write_image, png_read_image and png_read_row.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <png.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "Orvex_internal/orvextxt.h"
#include "feature_vector_library.h"

namespace fs = std::filesystem;

namespace {

const char* const kFont = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

double writeSeconds = 0, readSeconds = 0;

double now() {
  return std::chrono::duration<double>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

std::string configDir() {
  return (fs::path(__FILE__).parent_path().parent_path() / "config").string();
}

// A private font folder: font.ttf and Images/, where fontvec puts its
// working folders ($TMPDIR, else /dev/shm, else /tmp), so that the figures
// are those of the tool's batches. TMPDIR=/tmp times a disk's file system.
struct FontFolder {
  std::string path;
  FontFolder() {
    const char* tmp = getenv("TMPDIR");
    std::string base = tmp != nullptr && tmp[0] != '\0' ? tmp
                       : access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm"
                                                              : "/tmp";
    std::string name = base + "/fontvec-bench-XXXXXX";
    path = mkdtemp(name.data());
    fs::copy_file(kFont, path + "/font.ttf");
    fs::create_directory(path + "/Images");
  }
  ~FontFolder() {
    std::error_code ec;
    fs::remove_all(path, ec);
  }
};

// The renderer reports engine errors on standard output; keep it quiet.
struct QuietStdout {
  int saved;
  QuietStdout() {
    fflush(stdout);
    saved = dup(1);
    FILE* null = fopen("/dev/null", "w");
    dup2(fileno(null), 1);
    fclose(null);
  }
  ~QuietStdout() {
    fflush(stdout);
    dup2(saved, 1);
    close(saved);
  }
};

void report(benchmark::State& state) {
  state.counters["png_write_ms"] = benchmark::Counter(
      writeSeconds * 1000.0, benchmark::Counter::kAvgIterations);
  state.counters["png_read_ms"] = benchmark::Counter(
      readSeconds * 1000.0, benchmark::Counter::kAvgIterations);
  state.counters["fonts_per_s"] = benchmark::Counter(
      (double)state.iterations(), benchmark::Counter::kIsRate);
  writeSeconds = readSeconds = 0;
}

}  // namespace

extern "C" void png_write_image(png_structrp png_ptr, png_bytepp image) {
  using Fn = void (*)(png_structrp, png_bytepp);
  static Fn real = (Fn)dlsym(RTLD_NEXT, "png_write_image");
  double t = now();
  real(png_ptr, image);
  writeSeconds += now() - t;
}

namespace {
bool inReadImage = false;
}

extern "C" void png_read_image(png_structrp png_ptr, png_bytepp image) {
  using Fn = void (*)(png_structrp, png_bytepp);
  static Fn real = (Fn)dlsym(RTLD_NEXT, "png_read_image");
  double t = now();
  inReadImage = true;
  real(png_ptr, image);
  inReadImage = false;
  readSeconds += now() - t;
}

// The reader takes the page writer's files row by row: those rows are
// timed one by one (a clock read each side of every row).
extern "C" void png_read_row(png_structrp png_ptr, png_bytep row,
                             png_bytep display_row) {
  using Fn = void (*)(png_structrp, png_bytep, png_bytep);
  static Fn real = (Fn)dlsym(RTLD_NEXT, "png_read_row");
  if (inReadImage) return real(png_ptr, row, display_row);
  double t = now();
  real(png_ptr, row, display_row);
  readSeconds += now() - t;
}

static void BM_EndToEnd(benchmark::State& state) {
  FontFolder folder;
  std::string name = "/fontvec-bench-" + std::to_string(getpid());
  link_library(name.c_str(), configDir().c_str());
  QuietStdout quiet;
  writeSeconds = readSeconds = 0;
  char result[FEATURE_VECTOR_TEXT_SIZE];
  for (auto _ : state) {
    if (create_feature_vector(folder.path.c_str(), result) != 0)
      state.SkipWithError(result);
  }
  unlink_library();
  report(state);
}
BENCHMARK(BM_EndToEnd)->Unit(benchmark::kMillisecond);

static void BM_Render(benchmark::State& state) {
  FontFolder folder;
  QuietStdout quiet;
  writeSeconds = readSeconds = 0;
  double spread = 0;
  for (auto _ : state) {
    if (create_images_from_font(configDir().c_str(), folder.path.c_str(), &spread) != 1)
      state.SkipWithError("render failed");
  }
  report(state);
}
BENCHMARK(BM_Render)->Unit(benchmark::kMillisecond);

static void BM_Measure(benchmark::State& state) {
  FontFolder folder;
  QuietStdout quiet;
  double spread = 0;
  create_images_from_font(configDir().c_str(), folder.path.c_str(), &spread);
  std::string images = folder.path + "/Images/";
  writeSeconds = readSeconds = 0;
  for (auto _ : state) {
    char* line = getFeatureVector(images.c_str(), 0, spread);
    benchmark::DoNotOptimize(line);
    free(line);
  }
  report(state);
}
BENCHMARK(BM_Measure)->Unit(benchmark::kMillisecond);
