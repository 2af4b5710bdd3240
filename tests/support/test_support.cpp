#include "support/test_support.h"

#include <gtest/gtest.h>
#include <png.h>
#include <setjmp.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace testsupport {

TempDir::TempDir() {
  const char* base = getenv("TMPDIR");
  std::string pattern = std::string(base && *base ? base : "/tmp") +
                        "/fontvec-test-XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (mkdtemp(buffer.data()) == nullptr) {
    ADD_FAILURE() << "mkdtemp failed for " << pattern;
  }
  path_ = buffer.data();
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::file(const std::string& name) const {
  return path_ + "/" + name;
}

std::string TempDir::mkdir(const std::string& name) const {
  std::string p = file(name);
  std::filesystem::create_directories(p);
  return p;
}

Picture::Picture(int w, int h, uint32_t background)
    : width(w), height(h), pixels((size_t)w * h, background) {}

void Picture::set(int x, int y, uint32_t colour) {
  if (x >= 0 && y >= 0 && x < width && y < height)
    pixels[(size_t)y * width + x] = colour;
}

void Picture::fillRect(int x0, int y0, int x1, int y1, uint32_t colour) {
  for (int y = y0; y <= y1; y++)
    for (int x = x0; x <= x1; x++) set(x, y, colour);
}

void Picture::fillEllipse(double cx, double cy, double rx, double ry,
                          uint32_t colour) {
  for (int y = 0; y < height; y++)
    for (int x = 0; x < width; x++) {
      double dx = (x - cx) / rx, dy = (y - cy) / ry;
      if (dx * dx + dy * dy <= 1.0) set(x, y, colour);
    }
}

void Picture::fillSheared(int x0, int x1, int y0, int y1, double dxPerRow,
                          uint32_t colour) {
  for (int y = y0; y <= y1; y++) {
    int shift = (int)std::lround((y1 - y) * dxPerRow);
    for (int x = x0; x <= x1; x++) set(x + shift, y, colour);
  }
}

namespace {

struct PngWriter {
  png_structp png = nullptr;
  png_infop info = nullptr;
  FILE* fp = nullptr;
  ~PngWriter() {
    if (png) png_destroy_write_struct(&png, &info);
    if (fp) fclose(fp);
  }
};

uint8_t red(uint32_t p) { return (p >> 16) & 0xFF; }
uint8_t green(uint32_t p) { return (p >> 8) & 0xFF; }
uint8_t blue(uint32_t p) { return p & 0xFF; }

}  // namespace

void writePicture(const std::string& path, const Picture& picture,
                  PngKind kind, const std::vector<uint8_t>& alpha) {
  PngWriter w;
  w.fp = fopen(path.c_str(), "wb");
  ASSERT_NE(w.fp, nullptr) << path;
  w.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr,
                                  nullptr);
  ASSERT_NE(w.png, nullptr);
  w.info = png_create_info_struct(w.png);
  ASSERT_NE(w.info, nullptr);

  volatile int colourType = PNG_COLOR_TYPE_RGB, depth = 8;
  int bytesPerPixel = 3;
  volatile int interlace = PNG_INTERLACE_NONE;
  switch (kind) {
    case PngKind::kRgb8: break;
    case PngKind::kRgba8: colourType = PNG_COLOR_TYPE_RGBA; bytesPerPixel = 4; break;
    case PngKind::kRgb16: depth = 16; bytesPerPixel = 6; break;
    case PngKind::kRgb8Interlaced: interlace = PNG_INTERLACE_ADAM7; break;
    case PngKind::kGrey8: colourType = PNG_COLOR_TYPE_GRAY; bytesPerPixel = 1; break;
    case PngKind::kPalette8: colourType = PNG_COLOR_TYPE_PALETTE; bytesPerPixel = 1; break;
  }

  // Palette: the distinct colours of the picture, at most 256.
  std::vector<uint32_t> palette;
  if (kind == PngKind::kPalette8) {
    for (uint32_t p : picture.pixels)
      if (std::find(palette.begin(), palette.end(), p) == palette.end())
        palette.push_back(p);
    ASSERT_LE(palette.size(), 256u);
  }

  std::vector<std::vector<png_byte>> rows(
      picture.height, std::vector<png_byte>((size_t)picture.width * bytesPerPixel));
  for (int y = 0; y < picture.height; y++)
    for (int x = 0; x < picture.width; x++) {
      uint32_t p = picture.at(x, y);
      png_byte* out = rows[y].data() + (size_t)x * bytesPerPixel;
      switch (kind) {
        case PngKind::kRgb8:
        case PngKind::kRgb8Interlaced:
          out[0] = red(p); out[1] = green(p); out[2] = blue(p);
          break;
        case PngKind::kRgba8:
          out[0] = red(p); out[1] = green(p); out[2] = blue(p);
          out[3] = alpha.empty() ? 255 : alpha[(size_t)y * picture.width + x];
          break;
        case PngKind::kRgb16:
          out[0] = out[1] = red(p); out[2] = out[3] = green(p);
          out[4] = out[5] = blue(p);
          break;
        case PngKind::kGrey8:
          out[0] = blue(p);
          break;
        case PngKind::kPalette8:
          out[0] = (png_byte)(std::find(palette.begin(), palette.end(), p) -
                              palette.begin());
          break;
      }
    }

  if (setjmp(png_jmpbuf(w.png))) {
    FAIL() << "libpng failed writing " << path;
  }
  png_init_io(w.png, w.fp);
  png_set_IHDR(w.png, w.info, picture.width, picture.height, depth, colourType,
               interlace, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  std::vector<png_color> plte;
  if (kind == PngKind::kPalette8) {
    for (uint32_t p : palette) plte.push_back({red(p), green(p), blue(p)});
    png_set_PLTE(w.png, w.info, plte.data(), (int)plte.size());
  }
  png_write_info(w.png, w.info);
  std::vector<png_bytep> pointers;
  for (auto& r : rows) pointers.push_back(r.data());
  png_write_image(w.png, pointers.data());
  png_write_end(w.png, nullptr);
}

std::string savePicture(const TempDir& dir, const std::string& name,
                        const Picture& picture) {
  std::string path = dir.file(name);
  writePicture(path, picture);
  return path;
}

std::string savePicture(const TempDir& dir, const Picture& picture) {
  return savePicture(dir, "glyph.png", picture);
}

ToolRun runFontvec(const std::string& args, const std::string& errFile) {
  std::string command = std::string(FONTVEC_EXE) + " " + args + " 2>" +
                        (errFile.empty() ? "/dev/null" : errFile);
  ToolRun r{-1, ""};
  FILE* p = popen(command.c_str(), "r");
  if (p == nullptr) return r;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, p)) > 0) r.out.append(buffer, n);
  int status = pclose(p);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

void writeBytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out << bytes;
  ASSERT_TRUE(out.good()) << path;
}

std::string readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

std::string fixturesDir() { return FIXTURES_DIR; }

namespace {
const char* const kFixtureFonts[] = {"DejaVuSans", "DejaVuSans-Oblique",
                                     "LiberationSerif", "LiberationMono"};
// The first fixture picture that is not there, or "".
std::string firstMissingFixture() {
  for (const char* font : kFixtureFonts) {
    std::string png = fixturesDir() + "/" + font + "/Images/111-olar.png";
    struct stat st;
    if (stat(png.c_str(), &st) != 0) return png;
  }
  return "";
}
}  // namespace

void expectNear(double got, double want, double tol, const std::string& why) {
  if (std::isnan(want))
    EXPECT_TRUE(std::isnan(got)) << why << ": " << got;
  else
    EXPECT_NEAR(got, want, tol > 0 ? tol : 1e-12) << why;
}

void expectMeasured(const std::vector<MeasureRow>& rows) {
  for (const MeasureRow& r : rows)
    expectNear(measureDrawn(r.pic, r.measure), r.expected, r.tolerance, r.why);
}

bool haveFixtures() { return firstMissingFixture().empty(); }

std::string missingFixtures() {
  return "missing fixture picture " + firstMissingFixture();
}

}  // namespace testsupport
