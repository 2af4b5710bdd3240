// Test helper: a root engine client with one font added and made current
// through the font calls, scaled by the scale setter. Ending the client
// frees everything. Used by the metrics and kerning tests.
#ifndef TESTS_SUPPORT_TYPESET_FONT_H
#define TESTS_SUPPORT_TYPESET_FONT_H

#include <string>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_request.h"
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

  // The scale (s00, s01, s10, s11) through the scale setter, which finds
  // or makes the component's scaled font and makes it current, and that
  // scaled font readied. Returns the setter's or check_sfnt's error.
  FS_LONG setScale(FS_FIXED s00, FS_FIXED s01, FS_FIXED s10, FS_FIXED s11) {
    FS_LONG err = FSS_set_scale(&st, s00, s01, s10, s11);
    return err ? err : check_sfnt(&st);
  }
  FS_LONG setPpem(int ppem) { return setScale(ppem << 16, 0, 0, ppem << 16); }

  LFNT* lfnt() { return st.cur_typeset.fntset->metric_font; }

  FS_STATE st;
  std::vector<uint8_t> data;
};

}  // namespace testsupport

#endif
