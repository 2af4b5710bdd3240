// fontvec sheet: one PNG showing fonts side by side. Each font gets a row:
// its file name in the default font, then the sample line in the font
// itself, both drawn by the font engine (gray maps, hinted, as the
// renderer draws). With --from and --to the rows are a query font and its
// nearest fonts of a vectors CSV, each labelled with its distance.
#include "tools/fontvec/glyph_draw.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_request.h"
#include "tools/fontvec/commands.h"

namespace fs = std::filesystem;

namespace {

const char kSample[] = "The quick brown fox jumps over the lazy dog.";
const char kLabelFont[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
const unsigned long kLabelPpem = 15, kSamplePpem = 32;
const int kMargin = 12, kMaxWidth = 8192;
const FS_ULONG kSheetHeap = 16u << 20;

// One glyph's ink placed on a line: its left column from the line's start,
// its top row above the baseline, and its 8-bit levels (255 full ink).
struct Ink {
  int x, top, width, height;
  std::vector<uint8_t> level;
};

// A line of text drawn by the engine: its glyphs and its advance width in
// pixels; or the engine's error text.
struct Line {
  std::vector<Ink> glyphs;
  int width = 0;
  std::string error;
};

// The code points of UTF-8 `text`; a byte that starts no valid sequence
// stands for U+FFFD.
std::vector<FS_ULONG> codePoints(const std::string& text) {
  std::vector<FS_ULONG> codes;
  for (size_t i = 0; i < text.size();) {
    unsigned char c = (unsigned char)text[i];
    int more = c < 0x80 ? 0 : (c >> 5) == 6 ? 1 : (c >> 4) == 14 ? 2 : (c >> 3) == 30 ? 3 : -1;
    FS_ULONG code = more == 0 ? c : more == 1 ? (c & 0x1F) : more == 2 ? (c & 0x0F) : (c & 0x07);
    bool ok = more >= 0 && i + (size_t)more < text.size();
    for (int k = 1; ok && k <= more; k++) {
      unsigned char d = (unsigned char)text[i + (size_t)k];
      ok = (d >> 6) == 2;
      code = (code << 6) | (d & 0x3F);
    }
    codes.push_back(ok ? code : 0xFFFD);
    i += ok ? (size_t)more + 1 : 1;
  }
  return codes;
}

// Draws `text` in the font at `path` at `ppem` pixels per em through a
// client of its own, the pen advancing by each glyph's 16.16 advance.
Line drawLine(const std::string& path, unsigned long ppem, const std::string& text) {
  Line line;
  FS_STATE st;
  if (FSS_init(&st, kSheetHeap) != 0) {
    line.error = "the font engine did not start";
    return line;
  }
  bool mapped = false;
  if (setUp(&st, path.c_str(), NULL, 0, 0, ppem, &mapped) != 0) {
    line.error = "error " + std::to_string((unsigned long)st.error) + ": " +
                 FS_error_message(st.error);
  } else if (!mapped) {
    line.error = "no character map";
  }
  // The pen in 16.16 pixels, wide enough that no font's advances overflow it.
  int64_t pen = 0;
  for (FS_ULONG code : codePoints(text)) {
    if (!line.error.empty()) break;
    FS_GLYPHMAP* g = FSS_get_glyphmap(&st, code, FS_MAP_GRAYMAP8);
    if (g == NULL) {
      line.error = "error " + std::to_string((unsigned long)st.error) + ": " +
                   FS_error_message(st.error);
      break;
    }
    Ink ink{(int)std::min<int64_t>(pen >> 16, kMaxWidth) + g->lo_x, g->hi_y, std::max<int>(g->width, 0),
            std::max<int>(g->height, 0), {}};
    for (int y = 0; y < ink.height; y++)
      for (int x = 0; x < ink.width; x++) ink.level.push_back((uint8_t)grayLevel(g, x, y));
    line.glyphs.push_back(ink);
    pen += g->dx;
    FSS_free_char(&st, g);
  }
  // A line is at most kMaxWidth pixels on the sheet; ink beyond is cut off.
  line.width = (int)std::min<int64_t>(std::max<int64_t>(pen >> 16, 0), kMaxWidth);
  FSS_exit(&st);
  return line;
}

// The sheet's pixels, 8-bit grey, white 255.
struct Canvas {
  int width, height;
  std::vector<uint8_t> grey;
  Canvas(int w, int h) : width(w), height(h), grey((size_t)w * (size_t)h, 255) {}
  // Lays a line's ink with its baseline at row `baseline`, from column `x`;
  // ink outside the canvas is cut off, overlapping ink keeps the darker.
  void put(const Line& line, int x, int baseline) {
    for (const Ink& g : line.glyphs)
      for (int y = 0; y < g.height; y++)
        for (int k = 0; k < g.width; k++) {
          int cx = x + g.x + k, cy = baseline - g.top + y;
          if (cx < 0 || cy < 0 || cx >= width || cy >= height) continue;
          uint8_t& p = grey[(size_t)cy * (size_t)width + (size_t)cx];
          p = std::min<uint8_t>(p, (uint8_t)(255 - g.level[(size_t)y * (size_t)g.width + (size_t)k]));
        }
  }
};

// One row of the sheet: the font to show and its label.
struct Row {
  std::string font, label;
};

// The path of file name `name` under one of `folders` (searched in order,
// each through its sub-folders), or "".
std::string findFont(const std::string& name, const std::vector<std::string>& folders) {
  for (const std::string& folder : folders) {
    std::error_code ec;
    if (fs::is_regular_file(fs::path(folder) / name, ec)) return (fs::path(folder) / name).string();
    fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec), end;
    for (; !ec && it != end; it.increment(ec))
      if (it->path().filename() == name && it->is_regular_file(ec)) return it->path().string();
  }
  return "";
}

// The rows of a query and its nearest fonts; 0, or the exit code of the
// failed search.
int nearestRows(const std::string& csv, const std::string& query, size_t k,
                std::vector<std::string> folders, std::vector<Row>* rows) {
  std::vector<FontvecNeighbour> found;
  int status = fontvec_nearest(csv, query, k, &found);
  if (status != 0) return status;
  if (folders.empty()) folders.push_back(fs::path(csv).parent_path().empty() ? "." : fs::path(csv).parent_path().string());
  std::error_code ec;
  std::string self = fs::is_regular_file(query, ec) ? query : findFont(query, folders);
  rows->push_back({self.empty() ? query : self, fs::path(query).filename().string() + "   (query)"});
  for (const FontvecNeighbour& n : found) {
    char distance[32];
    snprintf(distance, sizeof distance, "%.4f", n.distance);
    std::string path = findFont(n.file, folders);
    rows->push_back({path.empty() ? n.file : path, n.file + "   (distance " + distance + ")"});
  }
  return 0;
}

}  // namespace

int fontvec_sheet(int argc, char** argv) {
  const char* out = NULL;
  const char* from = NULL;
  const char* to = NULL;
  unsigned long k = 10;
  std::vector<std::string> words;
  for (int i = 0; i < argc; i++) {
    const char* a = argv[i];
    if (strcmp(a, "--out") == 0 && i + 1 < argc) {
      out = argv[++i];
    } else if (strcmp(a, "--from") == 0 && i + 1 < argc) {
      from = argv[++i];
    } else if (strcmp(a, "--to") == 0 && i + 1 < argc) {
      to = argv[++i];
    } else if (strcmp(a, "--k") == 0 && i + 1 < argc) {
      char* end = NULL;
      const char* t = argv[++i];
      k = strtoul(t, &end, 10);
      if (t[0] < '1' || t[0] > '9' || *end != '\0' || k > 1000) return fontvec_usage("sheet");
    } else if (a[0] == '-' && a[1] != '\0') {
      return fontvec_usage("sheet");
    } else {
      words.push_back(a);
    }
  }
  // FONT... alone, or --from with --to (the words then the folders to find
  // the CSV's fonts in).
  if (out == NULL || (from == NULL) != (to == NULL) || (from == NULL && words.empty()))
    return fontvec_usage("sheet");

  std::vector<Row> rows;
  if (from != NULL) {
    int status = nearestRows(from, to, k, words, &rows);
    if (status != 0) return status;
  } else {
    for (const std::string& f : words) rows.push_back({f, fs::path(f).filename().string()});
  }

  // Every line drawn first, so that the sheet is as wide as the widest.
  int status = 0, width = 0;
  std::vector<Line> labels, samples;
  for (const Row& row : rows) {
    labels.push_back(drawLine(kLabelFont, kLabelPpem, row.label));
    samples.push_back(drawLine(row.font, kSamplePpem, kSample));
    if (!samples.back().error.empty()) {
      // The row shows the error in the default font instead.
      fprintf(stderr, "%s: %s\n", row.font.c_str(), samples.back().error.c_str());
      samples.back() = drawLine(kLabelFont, kLabelPpem, samples.back().error);
      status = 1;
    }
    if (!labels.back().error.empty()) {
      fontvec_error("%s: %s", kLabelFont, labels.back().error.c_str());
      return 1;
    }
    width = std::max({width, labels.back().width, samples.back().width});
  }
  const int labelHeight = (int)kLabelPpem * 3 / 2, sampleHeight = (int)kSamplePpem * 3 / 2;
  const int rowHeight = labelHeight + sampleHeight + kMargin;
  Canvas canvas(width + 2 * kMargin, (int)rows.size() * rowHeight + kMargin);
  for (size_t r = 0; r < rows.size(); r++) {
    int top = kMargin + (int)r * rowHeight;
    canvas.put(labels[r], kMargin, top + (int)kLabelPpem);
    canvas.put(samples[r], kMargin, top + labelHeight + (int)kSamplePpem);
  }
  if (!writeGreyPng(out, (png_uint_32)canvas.width, (png_uint_32)canvas.height, 8,
                    [&](png_uint_32 y, png_bytep row) {
                      memcpy(row, &canvas.grey[(size_t)y * (size_t)canvas.width], (size_t)canvas.width);
                    })) {
    fontvec_error("%s: cannot write the PNG file", out);
    return 1;
  }
  return status;
}
