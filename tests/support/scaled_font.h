// Test helper: a root engine client holding one loaded font (from a file, or
// from bytes kept by the helper) and scaled fonts on it made current, linked
// into the server's lists so that ending the client frees everything. The
// scale setter of the glyph request pipeline will build these; until then
// the records are made here by hand. Used by the scaler's unit and oracle tests.
#ifndef TESTS_SUPPORT_SCALED_FONT_H
#define TESTS_SUPPORT_SCALED_FONT_H

#include <string.h>

#include <string>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glue.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace testsupport {

class ScaledFont {
 public:
  explicit ScaledFont(FS_ULONG heap = 64u << 20) {
    started = FSS_init(&st, heap) == 0;
  }
  ~ScaledFont() {
    if (st.server != nullptr) FSS_exit(&st);
  }
  ScaledFont(const ScaledFont&) = delete;
  ScaledFont& operator=(const ScaledFont&) = delete;

  // The font: a file path, or bytes (kept here) when `bytes` is not empty.
  void setFont(const std::string& path, const std::vector<uint8_t>& bytes = {}) {
    lfnt = (LFNT*)FSS_calloc(&st, sizeof(LFNT));
    lfnt->fnt_type = FNT_TYPE_TTF;
    if (bytes.empty()) {
      lfnt->path = (FILECHAR*)FSS_malloc(&st, (FS_ULONG)path.size() + 1);
      memcpy(lfnt->path, path.c_str(), path.size() + 1);
    } else {
      data = bytes;
      lfnt->memptr = data.data();
      lfnt->data_length = (FS_ULONG)data.size();
    }
    lfnt->next = st.server->loaded_fonts;
    st.server->loaded_fonts = lfnt;
  }

  // A new current scaled font at (s00, s01, s10, s11), 16.16 pixels; the
  // key is built at once. Returns the scaler's error.
  FS_LONG setScale(FS_FIXED s00, FS_FIXED s01, FS_FIXED s10, FS_FIXED s11) {
    SFNT* sfnt = (SFNT*)FSS_calloc(&st, sizeof(SFNT));
    sfnt->lfnt = lfnt;
    sfnt->user_scale[0] = s00;
    sfnt->user_scale[1] = s01;
    sfnt->user_scale[2] = s10;
    sfnt->user_scale[3] = s11;
    sfnt->next = st.server->scaled_fonts;
    st.server->scaled_fonts = sfnt;
    st.cur_sfnt = sfnt;
    return check_sfnt(&st);
  }
  FS_LONG setPpem(int ppem) { return setScale(ppem << 16, 0, 0, ppem << 16); }

  fsg_SplineKey* key() {
    return st.cur_sfnt && st.cur_sfnt->senv
               ? (fsg_SplineKey*)st.cur_sfnt->senv->ttkey
               : nullptr;
  }

  // Fetches a glyph unhinted; the points stay in element().
  FS_LONG fetch(unsigned index) {
    fsg_SplineKey* k = key();
    k->glyphIndex = (FS_USHORT)index;
    return fsg_GridFit(&st, k, 0);
  }
  fnt_ElementType* element() { return fsg_glyph_element(key()); }

  FS_STATE st;
  bool started = false;
  LFNT* lfnt = nullptr;
  std::vector<uint8_t> data;
};

}  // namespace testsupport

#endif
