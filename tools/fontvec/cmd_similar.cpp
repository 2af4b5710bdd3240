// fontvec similar: fonts compared by their vectors. Reads the CSV that
// `fontvec --format csv` writes (a header "file,<names>", then one row per
// font, file name first), standardises each value column by the
// collection's mean and standard deviation and ranks the fonts by their
// Euclidean distance to a query font; or lists the groups of fonts whose
// vectors are identical. The query may be a font outside the collection:
// its vector is worked first, as `fontvec FONT` works it.
#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "feature_vector_library.h"
#include "tools/fontvec/commands.h"

namespace {

// The rows of a vectors CSV, in a canonical order (by file name, then by
// values) so that every result is the same whatever order the rows came in.
struct Collection {
  std::vector<std::string> names;  // the value columns' names
  std::vector<std::string> files;
  std::vector<std::vector<double>> values;
};

// Splits one CSV line into fields: commas separate, a field in double
// quotes may hold commas and doubled quotes. False for an unclosed quote.
bool splitCsv(const std::string& line, std::vector<std::string>* fields) {
  fields->assign(1, "");
  bool quoted = false;
  for (size_t i = 0; i < line.size(); i++) {
    char c = line[i];
    if (quoted) {
      if (c != '"') {
        fields->back() += c;
      } else if (i + 1 < line.size() && line[i + 1] == '"') {
        fields->back() += '"';
        i++;
      } else {
        quoted = false;
      }
    } else if (c == '"') {
      quoted = true;
    } else if (c == ',') {
      fields->emplace_back();
    } else {
      fields->back() += c;
    }
  }
  return !quoted;
}

// A whole field as a number; "inf" and "nan" are numbers (not finite ones).
bool parseValue(const std::string& text, double* out) {
  const char* s = text.c_str();
  char* end = NULL;
  *out = strtod(s, &end);
  return text.size() > 0 && end == s + text.size();
}

// Two values are the same when equal, or both not a number.
bool sameValue(double a, double b) { return a == b || (isnan(a) && isnan(b)); }

// Reads the CSV at `path` into `c`. 0; 1 when the file can't be read; 2
// after naming the line of a malformed header or row, or of a missing row.
int readCollection(const std::string& path, Collection* c) {
  std::ifstream in(path);
  if (!in) {
    fontvec_error("%s: %s", path.c_str(), strerror(errno));
    return 1;
  }
  std::string line;
  std::vector<std::string> fields;
  size_t number = 0, width = 0;
  std::vector<size_t> order;
  while (std::getline(in, line)) {
    number++;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) continue;
    if (!splitCsv(line, &fields)) {
      fontvec_error("%s:%zu: a quote is not closed", path.c_str(), number);
      return 2;
    }
    if (width == 0) {
      if (fields.size() < 2 || fields[0] != "file") {
        fontvec_error("%s:%zu: the header must be \"file\" and the value names",
                      path.c_str(), number);
        return 2;
      }
      width = fields.size();
      c->names.assign(fields.begin() + 1, fields.end());
      continue;
    }
    if (fields.size() != width) {
      fontvec_error("%s:%zu: %zu fields where the header has %zu", path.c_str(),
                    number, fields.size(), width);
      return 2;
    }
    std::vector<double> row(width - 1);
    for (size_t j = 1; j < width; j++)
      if (!parseValue(fields[j], &row[j - 1])) {
        fontvec_error("%s:%zu: %s: \"%s\" is not a number", path.c_str(),
                      number, c->names[j - 1].c_str(), fields[j].c_str());
        return 2;
      }
    c->files.push_back(fields[0]);
    c->values.push_back(row);
  }
  if (width == 0 || c->files.empty()) {
    fontvec_error("%s:%zu: %s", path.c_str(), number + 1,
                  width == 0 ? "no header" : "no rows after the header");
    return 2;
  }
  // The canonical order.
  std::vector<size_t> rank(c->files.size());
  for (size_t i = 0; i < rank.size(); i++) rank[i] = i;
  std::stable_sort(rank.begin(), rank.end(), [&](size_t a, size_t b) {
    if (c->files[a] != c->files[b]) return c->files[a] < c->files[b];
    return c->values[a] < c->values[b];
  });
  Collection sorted;
  sorted.names = c->names;
  for (size_t i : rank) {
    sorted.files.push_back(c->files[i]);
    sorted.values.push_back(c->values[i]);
  }
  *c = sorted;
  return 0;
}

// The row of the collection named by `query` (its file name, or the file
// name of a path), or -1.
long findRow(const Collection& c, const std::string& query) {
  std::string name = std::filesystem::path(query).filename().string();
  for (size_t i = 0; i < c.files.size(); i++)
    if (c.files[i] == query || c.files[i] == name) return (long)i;
  return -1;
}

// The query's vector: its row, or the vector worked from the font file.
// 0, or 1 after printing the font's error text.
int queryVector(const Collection& c, const std::string& query, long* row,
                std::vector<double>* v) {
  *row = findRow(c, query);
  if (*row >= 0) {
    *v = c.values[(size_t)*row];
    return 0;
  }
  std::vector<std::string> texts;
  if (fontvec_vectors({query}, &texts) != 0) return 1;
  std::string text = texts[0];
  while (!text.empty() && text.back() == '\n') text.pop_back();
  std::vector<std::string> fields;
  splitCsv(text, &fields);
  v->assign(fields.size(), 0.0);
  bool numbers = text.find("Error") == std::string::npos &&
                 fields.size() == c.names.size();
  for (size_t j = 0; numbers && j < fields.size(); j++)
    numbers = parseValue(fields[j], &(*v)[j]);
  if (!numbers) {
    fprintf(stderr, "%s: %s\n", query.c_str(),
            text.find("Error") != std::string::npos
                ? text.c_str()
                : "Error=its vector does not match the collection's columns");
    return 1;
  }
  return 0;
}

// Euclidean distance of every row to `q` over the standardised columns:
// a column is left out (and named on standard error) when it is constant
// over the collection or not finite in some row or in the query.
std::vector<double> distances(const Collection& c, const std::vector<double>& q) {
  const size_t n = c.files.size();
  std::vector<double> d(n, 0.0);
  for (size_t j = 0; j < c.names.size(); j++) {
    bool finite = isfinite(q[j]);
    double lo = INFINITY, hi = -INFINITY, sum = 0.0;
    for (size_t i = 0; i < n; i++) {
      double x = c.values[i][j];
      finite = finite && isfinite(x);
      lo = std::min(lo, x), hi = std::max(hi, x), sum += x;
    }
    if (!finite || lo == hi) {
      fontvec_error("column %s left out: %s", c.names[j].c_str(),
                    finite ? "constant" : "not finite in some row");
      continue;
    }
    double mean = sum / (double)n, var = 0.0;
    for (size_t i = 0; i < n; i++)
      var += (c.values[i][j] - mean) * (c.values[i][j] - mean);
    double sd = sqrt(var / (double)n);
    for (size_t i = 0; i < n; i++) {
      double z = (c.values[i][j] - q[j]) / sd;
      d[i] += z * z;
    }
  }
  for (double& x : d) x = sqrt(x);
  return d;
}

// Prints the groups of identical vectors, one a line, files in order.
void printDuplicates(const Collection& c) {
  std::vector<bool> taken(c.files.size(), false);
  for (size_t i = 0; i < c.files.size(); i++) {
    if (taken[i]) continue;
    std::string group = c.files[i];
    for (size_t k = i + 1; k < c.files.size(); k++) {
      bool same = true;
      for (size_t j = 0; same && j < c.names.size(); j++)
        same = sameValue(c.values[i][j], c.values[k][j]);
      if (!same) continue;
      taken[k] = true;
      group += " " + c.files[k];
    }
    if (group.size() > c.files[i].size()) printf("%s\n", group.c_str());
  }
}

}  // namespace

int fontvec_nearest(const std::string& csv, const std::string& query, size_t k,
                    std::vector<FontvecNeighbour>* found) {
  Collection c;
  int status = readCollection(csv, &c);
  if (status != 0) return status;
  long self = -1;
  std::vector<double> q;
  if (queryVector(c, query, &self, &q) != 0) return 1;
  std::vector<double> d = distances(c, q);
  std::vector<size_t> order;
  for (size_t i = 0; i < d.size(); i++)
    if ((long)i != self) order.push_back(i);
  // Ties keep the canonical order, so ranks don't depend on the rows' order.
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return d[a] < d[b]; });
  found->clear();
  for (size_t r = 0; r < order.size() && r < k; r++)
    found->push_back({c.files[order[r]], d[order[r]]});
  return 0;
}

int fontvec_similar(int argc, char** argv) {
  const char* to = NULL;
  const char* csv = NULL;
  bool duplicates = false;
  unsigned long k = 10;
  for (int i = 0; i < argc; i++) {
    const char* a = argv[i];
    if (strcmp(a, "--to") == 0 && i + 1 < argc) {
      to = argv[++i];
    } else if (strcmp(a, "--k") == 0 && i + 1 < argc) {
      char* end = NULL;
      const char* t = argv[++i];
      k = strtoul(t, &end, 10);
      if (t[0] < '1' || t[0] > '9' || *end != '\0' || k > 1000000)
        return fontvec_usage("similar");
    } else if (strcmp(a, "--duplicates") == 0) {
      duplicates = true;
    } else if ((a[0] == '-' && a[1] != '\0') || csv != NULL) {
      return fontvec_usage("similar");
    } else {
      csv = a;
    }
  }
  if (csv == NULL || duplicates == (to != NULL)) return fontvec_usage("similar");
  if (duplicates) {
    Collection c;
    int status = readCollection(csv, &c);
    if (status == 0) printDuplicates(c);
    return status;
  }
  std::vector<FontvecNeighbour> found;
  int status = fontvec_nearest(csv, to, k, &found);
  for (size_t r = 0; r < found.size(); r++)
    printf("%zu %.4f %s\n", r + 1, found[r].distance, found[r].file.c_str());
  return status;
}
