#include "complaint.h"

#include <cstdarg>
#include <cstdio>

#include "render.h"

namespace coap_rpc_test {
namespace {

void Print(const std::string &text) { std::fprintf(stderr, "kestrel-test: %s\n", text.c_str()); }

ComplaintSink g_sink = Print;
uint64_t g_numComplaints = 0;

}  // namespace

void SetComplaintSink(ComplaintSink sink) { g_sink = sink ? sink : Print; }

void Complain(const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const std::string text = Render(fmt, args);
  va_end(args);
  ++g_numComplaints;
  g_sink(text);
}

uint64_t NumComplaints() { return g_numComplaints; }

}  // namespace coap_rpc_test
