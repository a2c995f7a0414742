/* complaint.h: what a test does wrong with the host, such as a handle that is stale. */
#ifndef COMPLAINT_H
#define COMPLAINT_H

#include <cstdint>
#include <string>

namespace coap_rpc_test {

// A ComplaintSink hears of each complaint.
using ComplaintSink = void (*)(const std::string &text);

// SetComplaintSink sets who hears; null: standard error.
void SetComplaintSink(ComplaintSink sink);

void Complain(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// NumComplaints counts them since the program's start.
uint64_t NumComplaints();

}  // namespace coap_rpc_test

#endif /* COMPLAINT_H */
