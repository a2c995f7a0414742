#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync_query.h"

#include <charconv>

namespace coap_rpc {
namespace {

constexpr std::string_view kSyncName = "_sync=";
constexpr size_t kMaxIdDigits = 16;

// ReadNumber takes digits alone, and numbers up to 2^64-1.
bool ReadNumber(std::string_view text, int base, uint64_t &number) {
  const char *end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data(), end, number, base);
  return error == std::errc() && at == end;
}

bool ReadDecimal(std::string_view text, uint64_t &number) { return ReadNumber(text, 10, number); }

bool ReadId(std::string_view text, SyncQuery &query) {
  return text.size() <= kMaxIdDigits && ReadNumber(text, 16, query.id);
}

struct ArgRow {
  std::string_view name;
  SyncArg bit;
  bool (*read)(std::string_view text, SyncQuery &query);
};

bool IsOne(std::string_view text, SyncQuery &) { return text == "1"; }

constexpr ArgRow kArgs[] = {
    {kSyncName, kSyncArgSync, IsOne},
    {"id=", kSyncArgId, ReadId},
    {"since=", kSyncArgSince,
     [](std::string_view text, SyncQuery &query) { return ReadDecimal(text, query.since); }},
    {"until=", kSyncArgUntil,
     [](std::string_view text, SyncQuery &query) { return ReadDecimal(text, query.until); }},
    {"full=", kSyncArgFull, IsOne},
};

bool Begins(std::string_view text, std::string_view with) {
  return text.substr(0, with.size()) == with;
}

std::string_view TextOf(const coap_opt_t *option) {
  return {reinterpret_cast<const char *>(coap_opt_value(option)), coap_opt_length(option)};
}

// AllArgs says whether `isSo` holds for all arguments of a request; it asks until one does not.
template <typename IsSo>
bool AllArgs(const coap_pdu_t *request, IsSo isSo) {
  coap_opt_filter_t filter;
  coap_option_filter_clear(&filter);
  coap_option_filter_set(&filter, COAP_OPTION_URI_QUERY);
  coap_opt_iterator_t it;
  coap_option_iterator_init(request, &it, &filter);
  while (const coap_opt_t *option = coap_option_next(&it)) {
    if (!isSo(TextOf(option))) return false;
  }
  return true;
}

}  // namespace

bool IsSyncRequest(const coap_pdu_t *request) {
  return !AllArgs(request, [](std::string_view arg) { return !Begins(arg, kSyncName); });
}

bool ReadSyncArg(std::string_view arg, SyncQuery &query) {
  for (const ArgRow &row : kArgs) {
    if (!Begins(arg, row.name)) continue;
    if ((query.found & row.bit) != 0) return false;
    query.found |= row.bit;
    return row.read(arg.substr(row.name.size()), query);
  }
  return false;
}

bool ReadSyncQuery(const coap_pdu_t *request, SyncQuery &query) {
  const bool areRead =
      AllArgs(request, [&](std::string_view arg) { return ReadSyncArg(arg, query); });
  return areRead && (query.found & kSyncArgSync) != 0 && query.since <= query.until;
}

}  // namespace coap_rpc
