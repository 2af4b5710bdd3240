// Seeds of the engine's own formats for the font targets, from small
// TrueType fonts: each FONT becomes NAME.zrp3 (compressed, 128-byte units),
// NAME.ccc (compact glyph format 0x0202) and NAME.ccc.zrp3 (both), written
// into DIR by the tests' independent encoder; and linked.ltt, a linked font
// of two components (adjustments, group types, the first font's set tables
// and the second embedded) by the tests' linked font writer; and the first
// font with a strike at 12 pixels per em in several index and image
// formats and depths (strike-IX-IM-DEPTH.ttf), by the tests' strike writer.
// scripts/fuzz-seeds.sh runs it.
//
//   make_seeds DIR FONT...
#include <stdio.h>
#include <string.h>
#include <string>

#include "support/ltt_builder.h"
#include "support/sbit_builder.h"
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
  std::vector<sfnt::Bytes> fonts;
  for (int i = 2; i < argc; i++) {
    FILE* f = fopen(argv[i], "rb");
    if (f == NULL) continue;
    sfnt::Bytes b;
    int c;
    while ((c = fgetc(f)) != EOF) b.push_back((uint8_t)c);
    fclose(f);
    fonts.push_back(b);
    std::string name = std::string(argv[1]) + "/" + strrchr(argv[i], '/');
    sfnt::Font font = sfnt::read(b);
    if (font.find("glyf") == nullptr) continue;
    save(name + ".zrp3", zrp3::compress(font, 128).image);
    sfnt::Font packed = zrp3::pack(font, 0x0202);
    save(name + ".ccc", sfnt::build(packed));
    save(name + ".ccc.zrp3", zrp3::compress(packed, 128, false).image);
  }
  // Glyphs 1 to 3 as 3 x 2 maps; index format 2 and 5 want one size.
  const int kStrikes[][3] = {{1, 1, 1}, {2, 5, 1}, {3, 2, 8}, {4, 7, 2},
                             {5, 5, 4}, {1, 6, 8}, {3, 8, 1}, {1, 9, 1}};
  for (const auto& k : kStrikes) {
    if (fonts.empty()) break;
    std::vector<testsupport::SbitGlyph> glyphs;
    for (uint16_t id = 1; id <= 3; id++)
      glyphs.push_back({id, 3, 2, 1, 5, 4, {1, 0, 1, 0, 1, (uint8_t)(id & 1)}});
    sfnt::Bytes eblc, ebdt;
    testsupport::buildStrike(glyphs, 12, k[2], k[0], k[1], &eblc, &ebdt);
    sfnt::Font f = sfnt::read(fonts[0]);
    save(std::string(argv[1]) + "/strike-" + std::to_string(k[0]) + "-" +
             std::to_string(k[1]) + "-" + std::to_string(k[2]) + ".ttf",
         sfnt::build(f.set("EBLC", eblc).set("EBDT", ebdt)));
  }
  if (fonts.size() >= 2) {
    testsupport::LttSpec spec;
    spec.setTablesFrom = fonts[0];
    spec.groups = {0, 1, 1, 2};
    for (int k = 0; k < 2; k++) {
      testsupport::LttComponentSpec c;
      c.fileName = k ? "b.ttf" : "DejaVuSans.ttf";
      c.numGlyphs = sfnt::getU16(*sfnt::read(fonts[k]).find("maxp"), 4);
      c.adjustments = {{12, 100, 0}, {24, 110, 1}};
      c.keys = {"targetdirectory=."};
      if (k == 1) c.embedded = fonts[1];
      spec.components.push_back(c);
    }
    save(std::string(argv[1]) + "/linked.ltt", spec.build());
  }
  return 0;
}
