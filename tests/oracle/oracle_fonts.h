// The packaged fonts the differential tests sweep: every file of the given
// folders whose name ends in one of `endings` (in any case), sorted.
#ifndef TESTS_ORACLE_ORACLE_FONTS_H
#define TESTS_ORACLE_ORACLE_FONTS_H

#include <dirent.h>
#include <strings.h>

#include <algorithm>
#include <string>
#include <vector>

namespace oracle {

#define PACKAGED "/usr/share/fonts/truetype/"

inline std::vector<std::string> fontsIn(const std::vector<std::string>& folders,
                                        const std::vector<std::string>& endings = {".ttf"}) {
  std::vector<std::string> files;
  for (const std::string& folder : folders) {
    DIR* d = opendir(folder.c_str());
    while (dirent* e = d ? readdir(d) : nullptr) {
      std::string name = e->d_name;
      for (const std::string& end : endings)
        if (name.size() > end.size() &&
            strcasecmp(name.c_str() + name.size() - end.size(), end.c_str()) == 0) {
          files.push_back(folder + "/" + name);
          break;
        }
    }
    if (d) closedir(d);
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace oracle

#endif
