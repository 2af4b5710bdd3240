// Test helper: a root engine client with one font added and made current
// through the font calls, and scaled fonts attached to its component by
// hand, as the scale setter of the glyph request pipeline will do. Ending
// the client frees everything. Used by the metrics and kerning tests.
#ifndef TESTS_SUPPORT_TYPESET_FONT_H
#define TESTS_SUPPORT_TYPESET_FONT_H

#include <string>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace testsupport {

class TypesetFont {
 public:
  explicit TypesetFont(FS_ULONG heap = 64u << 20) { FSS_init(&st, heap); }
  ~TypesetFont() {
    if (st.server != nullptr) FSS_exit(&st);
  }
  TypesetFont(const TypesetFont&) = delete;
  TypesetFont& operator=(const TypesetFont&) = delete;

  // Adds the font (a file, or `bytes` kept here) and makes it current.
  // Returns the engine's error.
  FS_LONG open(const std::string& path, const std::vector<uint8_t>& bytes = {},
               FS_ULONG index = 0) {
    FILECHAR name[256];
    if (!bytes.empty()) data = bytes;
    FS_LONG err = FSS_load_font(&st, bytes.empty() ? path.c_str() : nullptr,
                                bytes.empty() ? nullptr : data.data(), index,
                                sizeof name, name);
    if (err == 0) err = FSS_set_font(&st, name);
    return err;
  }

  // A new scaled font at (s00, s01, s10, s11) on component 0, current, and
  // the client's scale set to match. Returns check_sfnt's error.
  FS_LONG setScale(FS_FIXED s00, FS_FIXED s01, FS_FIXED s10, FS_FIXED s11) {
    TFNT* tfnt = &st.cur_typeset.tfntarray[0];
    SFNT* sfnt = (SFNT*)FSS_calloc(&st, sizeof(SFNT));
    sfnt->lfnt = tfnt->cfnt->lfnt;
    sfnt->user_scale[0] = st.scale[0] = s00;
    sfnt->user_scale[1] = st.scale[1] = s01;
    sfnt->user_scale[2] = st.scale[2] = s10;
    sfnt->user_scale[3] = st.scale[3] = s11;
    sfnt->ref_count = 1;
    sfnt->next = st.server->scaled_fonts;
    st.server->scaled_fonts = sfnt;
    if (tfnt->sfnt != nullptr && tfnt->sfnt->ref_count > 0)
      tfnt->sfnt->ref_count--;
    tfnt->sfnt = sfnt;
    st.cur_font = 0;
    st.cur_lfnt = sfnt->lfnt;
    st.cur_sfnt = sfnt;
    return check_sfnt(&st);
  }
  FS_LONG setPpem(int ppem) { return setScale(ppem << 16, 0, 0, ppem << 16); }

  LFNT* lfnt() { return st.cur_typeset.fntset->metric_font; }

  FS_STATE st;
  std::vector<uint8_t> data;
};

}  // namespace testsupport

#endif
