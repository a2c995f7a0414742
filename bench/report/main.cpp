/* main.cpp: makes tables, a JSON file and pictures out of what scripts/bench has measured.
 *
 *   bench_report <samples> <folder>       prints the tables; writes <folder>/results.json
 *   bench_report <samples> <folder> <document> <pictures>
 *                                         and puts the tables into the document, between its
 *                                         markers, and the pictures into their folder */
#include <cstdio>
#include <fstream>
#include <sstream>

#include "render.h"

namespace {

using namespace bench_report;

bool Write(const std::string &path, const std::string &text) {
  std::ofstream out(path, std::ios::binary);
  out << text;
  out.close();
  if (!out) fprintf(stderr, "bench_report: cannot write %s\n", path.c_str());
  return static_cast<bool>(out);
}

std::string ReadAll(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void Print(const Samples &samples) {
  for (const Figure &figure : Figures()) {
    const std::string table = Table(samples, figure);
    if (!table.empty()) printf("\n%s\n%s", figure.title.c_str(), table.c_str());
  }
  const std::string bars = BarTable(samples);
  if (!bars.empty()) printf("\nBars\n%s", bars.c_str());
}

bool Publish(const Samples &samples, const std::string &documentPath, const std::string &pictures) {
  std::string document = ReadAll(documentPath);
  bool isWritten = true;
  for (const Figure &figure : Figures()) {
    Replace(document, figure.name, Table(samples, figure));
    const std::string svg = Svg(samples, figure);
    if (!svg.empty()) isWritten &= Write(pictures + "/" + figure.name + ".svg", svg);
  }
  Replace(document, "bars", BarTable(samples));
  return Write(documentPath, document) && isWritten;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3 && argc != 5) {
    fprintf(stderr, "usage: bench_report <samples> <folder> [<document> <pictures>]\n");
    return 2;
  }
  Samples samples;
  std::ifstream in(argv[1]);
  samples.Read(in);
  Print(samples);
  bool isWritten = Write(std::string(argv[2]) + "/results.json", Json(samples));
  if (argc == 5) isWritten &= Publish(samples, argv[3], argv[4]);
  return isWritten ? 0 : 1;
}
