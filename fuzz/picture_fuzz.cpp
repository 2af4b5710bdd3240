// Fuzz target: the bytes as every glyph picture of a folder, read and
// measured by the whole measurement run (getFeatureVector). Bytes that open
// with the PNG signature have their chunk checksums made right first, so
// that the fuzzer reaches past libpng's checks into the pictures.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <zlib.h>

#include <string>
#include <vector>

#include "feature_vector_library.h"

namespace {

char gFolder[256];
const char* const kNames[] = {
    "font", "font_b", "font_s", "46-.", "104-hlar", "111-olar",
};

// Sets each chunk's CRC to the one its type and data give.
void fixChecksums(std::vector<unsigned char>& b) {
  size_t at = 8;
  while (at + 12 <= b.size()) {
    size_t len = (size_t)b[at] << 24 | b[at + 1] << 16 | b[at + 2] << 8 | b[at + 3];
    if (len > b.size() - at - 12) break;
    uLong crc = crc32(0, &b[at + 4], (uInt)(len + 4));
    unsigned char* c = &b[at + 8 + len];
    c[0] = (unsigned char)(crc >> 24), c[1] = (unsigned char)(crc >> 16);
    c[2] = (unsigned char)(crc >> 8), c[3] = (unsigned char)crc;
    at += len + 12;
  }
}

void writeFile(const std::string& path, const std::vector<unsigned char>& b) {
  FILE* f = fopen(path.c_str(), "wb");
  if (f == NULL) return;
  fwrite(b.data(), 1, b.size(), f);
  fclose(f);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const char* tmp = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  snprintf(gFolder, sizeof gFolder, "%s/fontvec-fuzz-XXXXXX", tmp);
  if (mkdtemp(gFolder) == NULL) abort();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<unsigned char> b(data, data + size);
  if (size >= 8 && memcmp(data, "\x89PNG\r\n\x1a\n", 8) == 0) fixChecksums(b);
  // Written once, then linked under every name the run reads.
  std::string first = std::string(gFolder) + "/65-A.png";
  writeFile(first, b);
  auto link = [&](const std::string& name) {
    std::string path = std::string(gFolder) + "/" + name + ".png";
    unlink(path.c_str());
    if (::link(first.c_str(), path.c_str()) != 0) writeFile(path, b);
  };
  for (int c = 'B'; c <= 'Z'; c++) link(std::to_string(c) + "-" + (char)c);
  for (int c = 'a'; c <= 'z'; c++) link(std::to_string(c) + "-" + (char)c);
  for (const char* n : kNames) link(n);
  char* line = getFeatureVector(gFolder, 1, 0.5);
  free(line);
  return 0;
}
