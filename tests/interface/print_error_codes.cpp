// Prints docs/error_codes.md from the list of failure sites.
#include <cstdio>
#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_sites.h"

namespace {

struct Row {
  const char *path;
  unsigned code;
  unsigned assertLine;
  const char *meaning;
};

#define ROW(name, path, code, assertLine, meaning) {coap_rpc::path, code, assertLine, meaning},
constexpr Row kRows[] = {COAP_RPC_SITES(ROW)};
#undef ROW

constexpr char kIntro[] =
    "# Result codes\n\n"
    "Made from `coap_rpc_sites.h` by `scripts/make-docs`; do not edit.\n\n"
    "A result is 0 for success or 1900000000 plus the number of the place that failed. "
    "`COAP_RpcErrStr`\ngives the meaning at run time. A place with an assertion line reports a "
    "broken contract to the\nhost's `TARN_Assert` first, under the path of its section; paths are "
    "fixed, and the source file may\nstand elsewhere now. \"—\" in the first column: the place "
    "asserts but has no result of its own.\n";

void PrintRow(const Row &row) {
  if (row.code != 0) {
    printf("| %u | ", coap_rpc::kCodeBase + row.code);
  } else {
    printf("| — | ");
  }
  if (row.assertLine != 0) {
    printf("%u | %s |\n", row.assertLine, row.meaning);
  } else {
    printf(" | %s |\n", row.meaning);
  }
}

}  // namespace

int main() {
  fputs(kIntro, stdout);
  const char *section = "";
  for (const Row &row : kRows) {
    if (strcmp(section, row.path) != 0) {
      section = row.path;
      printf("\n## `%s`\n\n| Code | Assertion | Meaning |\n|---|---|---|\n", section);
    }
    PrintRow(row);
  }
  return 0;
}
