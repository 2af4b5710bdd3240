// Test helper: a root engine client with one font added and set (from a
// file, or from bytes kept here), a Unicode map chosen when the font has
// one, and a plain scale by pixels per em. Used by the embedded strike and
// validation tests.
#ifndef TESTS_SUPPORT_STRIKE_CLIENT_H
#define TESTS_SUPPORT_STRIKE_CLIENT_H

#include <stdint.h>

#include <string>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_request.h"

namespace testsupport {

class StrikeClient {
 public:
  explicit StrikeClient(FS_ULONG heap = 64u << 20) { started = FSS_init(&st, heap) == 0; }
  ~StrikeClient() {
    if (st.server != nullptr) FSS_exit(&st);
  }
  StrikeClient(const StrikeClient&) = delete;
  StrikeClient& operator=(const StrikeClient&) = delete;

  // Adds and sets the font; 0 or the engine's error.
  FS_LONG load(const std::string& path, FS_ULONG index = 0,
               const std::vector<uint8_t>& bytes = {}) {
    FILECHAR name[256];
    data = bytes;
    if (FSS_load_font_with_offset(&st, data.empty() ? path.c_str() : nullptr,
                                  data.empty() ? nullptr : data.data(), index, 0,
                                  (FS_ULONG)data.size(), sizeof name, name) != 0 ||
        FSS_set_font(&st, name) != 0)
      return (FS_LONG)st.error;
    if (FSS_set_cmap(&st, 3, 10) != 0 && FSS_set_cmap(&st, 3, 1) != 0)
      FSS_set_cmap(&st, 0, 3);
    st.error = 0;
    return 0;
  }
  FS_LONG setScale(FS_FIXED s00, FS_FIXED s01, FS_FIXED s10, FS_FIXED s11) {
    return FSS_set_scale(&st, s00, s01, s10, s11);
  }
  FS_LONG setPpem(int ppem) { return setScale(ppem << 16, 0, 0, ppem << 16); }
  // Ids are glyph indices from here on.
  void glyphIndexMode() { FS_set_flags(&st, FLAGS_CMAP_OFF); }

  FS_STATE st;
  bool started = false;
  std::vector<uint8_t> data;
};

}  // namespace testsupport

#endif
