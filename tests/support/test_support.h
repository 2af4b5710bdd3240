// Helpers shared by the tests: a temporary folder removed on destruction, an
// in-memory picture with simple drawing, and real PNG files written through
// libpng in the encodings the reader must handle.
#ifndef TESTS_SUPPORT_TEST_SUPPORT_H
#define TESTS_SUPPORT_TEST_SUPPORT_H

#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

namespace testsupport {

// A fresh folder under $TMPDIR (or /tmp), removed with its contents when the
// object goes away.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  // path()/name
  std::string file(const std::string& name) const;
  // Makes a sub-folder and returns its path.
  std::string mkdir(const std::string& name) const;

 private:
  std::string path_;
};

const uint32_t kWhite = 0xFFFFFF;
const uint32_t kBlack = 0x000000;

// A picture in the measurement code's convention: pixels 0x00RRGGBB, row
// after row, white background.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<uint32_t> pixels;

  Picture(int w, int h, uint32_t background = kWhite);
  uint32_t at(int x, int y) const { return pixels[y * width + x]; }
  void set(int x, int y, uint32_t colour);
  // Fills the inclusive rectangle x0..x1, y0..y1 (clipped to the picture).
  void fillRect(int x0, int y0, int x1, int y1, uint32_t colour = kBlack);
  // Fills the ellipse centred on (cx, cy) with radii rx, ry.
  void fillEllipse(double cx, double cy, double rx, double ry,
                   uint32_t colour = kBlack);
  // Fills a parallelogram: rows y0..y1, each spanning x0..x1 shifted right by
  // (y1 - y) * dxPerRow, so the shape leans right going up.
  void fillSheared(int x0, int x1, int y0, int y1, double dxPerRow,
                   uint32_t colour = kBlack);
};

// How a picture is encoded on disk.
enum class PngKind {
  kRgb8,            // colour type 2, 8 bits
  kRgba8,           // colour type 6, 8 bits, alpha 255 unless given
  kRgb16,           // colour type 2, 16 bits (each byte doubled)
  kRgb8Interlaced,  // colour type 2, Adam7
  kGrey8,           // colour type 0, the grey taken from the blue byte
  kPalette8,        // colour type 3
};

// Writes `picture` as a PNG file. For kRgba8, `alpha` (if not empty) gives one
// alpha byte per pixel. Fails the calling test on an error.
void writePicture(const std::string& path, const Picture& picture,
                  PngKind kind = PngKind::kRgb8,
                  const std::vector<uint8_t>& alpha = {});

// Writes `picture` into `dir` under `name` and returns the file's path.
std::string savePicture(const TempDir& dir, const std::string& name,
                        const Picture& picture);
// The same under the name "glyph.png".
std::string savePicture(const TempDir& dir, const Picture& picture);

// Writes the picture into a fresh folder and returns what `measure` gives
// for the file's path.
template <typename Measure>
double measureDrawn(const Picture& picture, Measure measure) {
  TempDir dir;
  return measure(savePicture(dir, picture).c_str());
}

// `want` within `tol` (1e-12 for 0) of `got`; not-a-number matches itself.
void expectNear(double got, double want, double tol, const std::string& why);

// One row of a measurement table: a drawn picture, what is measured on it,
// the value expected and the tolerance (0 for 1e-12).
struct MeasureRow {
  const char* why;
  Picture pic;
  std::function<double(const char*)> measure;
  double expected;
  double tolerance = 0;
};
// Measures every row's picture, written as a real PNG file, and checks it.
void expectMeasured(const std::vector<MeasureRow>& rows);

// Grey of byte value g (darkness (255 - g) / 255).
inline uint32_t greyPixel(int g) { return (uint32_t)g * 0x010101u; }

// A glyph picture laid out like the renderer's: the ink box w x h drawn at
// (2, 2) with 3 white pixels to its right and below; drawing is in box
// positions.
struct Glyph {
  Picture pic;
  Glyph(int w, int h) : pic(w + 5, h + 5) {}
  void rect(int x0, int y0, int x1, int y1, uint32_t colour = kBlack) {
    pic.fillRect(x0 + 2, y0 + 2, x1 + 2, y1 + 2, colour);
  }
  void set(int x, int y, uint32_t colour) { pic.set(x + 2, y + 2, colour); }
};

// What a run of the built fontvec tool gave: exit status and standard output.
struct ToolRun {
  int status;
  std::string out;
};

// Runs fontvec with `args` (a shell word list); standard error goes to
// `errFile` when given, else is discarded.
ToolRun runFontvec(const std::string& args, const std::string& errFile = "");

// Writes raw bytes to a file.
void writeBytes(const std::string& path, const std::string& bytes);
std::string readBytes(const std::string& path);

// The folder of fixture image folders (one per font, each with Images/), and
// whether the pictures are there. Tests that read them start with
// REQUIRE_FIXTURES(): missing pictures fail the test, naming what is missing.
std::string fixturesDir();
bool haveFixtures();
std::string missingFixtures();

#define REQUIRE_FIXTURES() \
  ASSERT_TRUE(testsupport::haveFixtures()) << testsupport::missingFixtures()

}  // namespace testsupport

#endif
