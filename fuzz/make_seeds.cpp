// Seeds of the engine's own formats for the font targets, from small
// TrueType fonts: each FONT becomes NAME.zrp3 (compressed, 128-byte units),
// NAME.ccc (compact glyph format 0x0202) and NAME.ccc.zrp3 (both), written
// into DIR by the tests' independent encoder. scripts/fuzz-seeds.sh runs it.
//
//   make_seeds DIR FONT...
#include <stdio.h>
#include <string.h>
#include <string>

#include "support/zrp3_encoder.h"

namespace {

void save(const std::string& path, const sfnt::Bytes& b) {
  FILE* f = fopen(path.c_str(), "wb");
  if (f == NULL) return;
  fwrite(b.data(), 1, b.size(), f);
  fclose(f);
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 2; i < argc; i++) {
    FILE* f = fopen(argv[i], "rb");
    if (f == NULL) continue;
    sfnt::Bytes b;
    int c;
    while ((c = fgetc(f)) != EOF) b.push_back((uint8_t)c);
    fclose(f);
    std::string name = std::string(argv[1]) + "/" + strrchr(argv[i], '/');
    sfnt::Font font = sfnt::read(b);
    if (font.find("glyf") == nullptr) continue;
    save(name + ".zrp3", zrp3::compress(font, 128).image);
    sfnt::Font packed = zrp3::pack(font, 0x0202);
    save(name + ".ccc", sfnt::build(packed));
    save(name + ".ccc.zrp3", zrp3::compress(packed, 128, false).image);
  }
  return 0;
}
