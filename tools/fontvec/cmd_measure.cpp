// fontvec measure: the vector of a folder of glyph pictures. By default the
// library's line exactly as getFeatureVector gives it; --names and --format
// lay the same values out for people and for machines.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "feature_vector_core.h"
#include "feature_vector_library.h"
#include "tools/fontvec/commands.h"

namespace {

enum class Layout { kLine, kNames, kCsv, kJson };

// Splits the library's line into its value texts, kept as printed so that
// every layout shows the same digits.
std::vector<std::string> splitLine(const char* line) {
  std::vector<std::string> fields;
  std::string current;
  for (const char* p = line; *p != '\0'; p++) {
    if (*p == ',') {
      fields.push_back(current);
      current.clear();
    } else if (*p != '\n') {
      current += *p;
    }
  }
  fields.push_back(current);
  return fields;
}

// JSON has no infinities: they go out as the strings "inf" and "-inf".
std::string jsonValue(const std::string& text) {
  if (text.find("inf") != std::string::npos) return "\"" + text + "\"";
  return text;
}

void printLayout(Layout layout, const std::vector<std::string>& values,
                 bool checksum) {
  std::vector<std::string> names;
  if (checksum) names.push_back("checksum");
  for (const char* name : FeatureValueNames) names.push_back(name);

  switch (layout) {
    case Layout::kLine:
      break;
    case Layout::kNames:
      for (size_t i = 0; i < values.size(); i++) {
        if (checksum && i == 0)
          printf("- %s %s\n", names[i].c_str(), values[i].c_str());
        else
          printf("%zu %s %s\n", i - (checksum ? 1 : 0), names[i].c_str(),
                 values[i].c_str());
      }
      break;
    case Layout::kCsv:
      for (size_t i = 0; i < names.size(); i++)
        printf("%s%s", i ? "," : "", names[i].c_str());
      printf("\n");
      for (size_t i = 0; i < values.size(); i++)
        printf("%s%s", i ? "," : "", values[i].c_str());
      printf("\n");
      break;
    case Layout::kJson:
      printf("{");
      for (size_t i = 0; i < values.size(); i++)
        printf("%s\"%s\": %s", i ? ", " : "", names[i].c_str(),
               jsonValue(values[i]).c_str());
      printf("}\n");
      break;
  }
}

}  // namespace

int fontvec_measure(int argc, char** argv) {
  int checksum = 0;
  Layout layout = Layout::kLine;
  const char* folder = NULL;
  for (int i = 0; i < argc; i++) {
    if (strcmp(argv[i], "--checksum") == 0) {
      checksum = 1;
    } else if (strcmp(argv[i], "--names") == 0) {
      layout = Layout::kNames;
    } else if (strcmp(argv[i], "--format") == 0 && i + 1 < argc) {
      const char* format = argv[++i];
      if (strcmp(format, "csv") == 0)
        layout = Layout::kCsv;
      else if (strcmp(format, "json") == 0)
        layout = Layout::kJson;
      else if (strcmp(format, "line") == 0)
        layout = Layout::kLine;
      else
        return fontvec_usage("measure");
    } else if (argv[i][0] == '-' && argv[i][1] != '\0') {
      return fontvec_usage("measure");
    } else if (folder == NULL) {
      folder = argv[i];
    } else {
      return fontvec_usage("measure");
    }
  }
  if (folder == NULL) return fontvec_usage("measure");

  struct stat st;
  if (stat(folder, &st) != 0 || !S_ISDIR(st.st_mode)) {
    fontvec_error("%s: not a folder", folder);
    return 1;
  }

  char* line = getFeatureVector(folder, checksum, 0.0);
  if (line == NULL) {
    fontvec_error("%s: no result", folder);
    return 1;
  }
  int status = 0;
  if (strstr(line, "Error") != NULL) {
    fprintf(stderr, "%s\n", line);
    status = 1;
  } else if (layout == Layout::kLine) {
    fputs(line, stdout);
  } else {
    printLayout(layout, splitLine(line), checksum == 1);
  }
  free(line);
  return status;
}
