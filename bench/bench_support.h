// What several benchmarks share: the seconds between two clock readings,
// and an engine client holding a font read into memory (as libfreetype
// maps its file), scaled to a size, its key ready.
#ifndef FONTVEC_BENCH_SUPPORT_H
#define FONTVEC_BENCH_SUPPORT_H

#include <stdio.h>

#include <chrono>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glue.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_ttf.h"

namespace benchsupport {

inline double seconds(std::chrono::steady_clock::time_point a,
                      std::chrono::steady_clock::time_point b) {
  return std::chrono::duration<double>(b - a).count();
}

// `key` stays null when the font cannot be read, loaded or scaled.
struct MemoryEngine {
  FS_STATE st;
  fsg_SplineKey* key = nullptr;
  std::vector<FS_BYTE> bytes;
  MemoryEngine(const char* path, int ppem) {
    FILECHAR name[64];
    FILE* f = fopen(path, "rb");
    for (int c; f != nullptr && (c = fgetc(f)) != EOF;) bytes.push_back((FS_BYTE)c);
    if (f != nullptr) fclose(f);
    if (bytes.empty() || FSS_init(&st, 256u << 20) != 0) return;
    if (FSS_load_font_with_offset(&st, nullptr, bytes.data(), 0, 0, (FS_ULONG)bytes.size(),
                                  sizeof name, name) != 0 ||
        FSS_set_font(&st, name) != 0 ||
        FSS_set_scale(&st, ppem << 16, 0, 0, ppem << 16) != 0 || check_sfnt(&st) != 0)
      return;
    key = (fsg_SplineKey*)st.cur_sfnt->senv->ttkey;
  }
  ~MemoryEngine() {
    if (st.server != nullptr) FSS_exit(&st);
  }
};

}  // namespace benchsupport

#endif
