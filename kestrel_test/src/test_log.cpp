/* test_log.cpp: the log and the debug channel of a host under test control. */
#include "test_log.h"

#include <sstream>
#include <utility>

#include "handle_table.h"

namespace coap_rpc_test {
namespace {

const char *KindText(LogKind kind) {
  switch (kind) {
    case LogKind::kCount:
      return "count";
    case LogKind::kFirst:
      return "first";
    case LogKind::kSecond:
      return "print";
    case LogKind::kDebug:
      return "debug";
    case LogKind::kSysLog:
      return "syslog";
  }
  return "?";
}

std::string Quoted(const std::string &text) {
  std::string quoted = "\"";
  for (const char c : text) quoted += c == '\n' ? "\\n" : std::string(1, c);
  return quoted + "\"";
}

bool IsSameSite(const LogRecord &a, const LogRecord &b) {
  return a.module == b.module && a.line == b.line && a.level == b.level;
}

std::string TextOf(const LogRecord &record) {
  std::ostringstream text;
  text << record;
  return text.str();
}

}  // namespace

std::ostream &operator<<(std::ostream &out, const LogRecord &record) {
  out << KindText(record.kind);
  if (!record.module.empty()) out << " " << record.module << ":" << record.line;
  if (record.kind != LogKind::kCount) out << " level " << record.level;
  if (!record.func.empty()) out << " " << record.func;
  if (!record.format.empty()) out << " " << Quoted(record.text);
  return out << (record.suppressed ? " suppressed" : "");
}

TestLog::TestLog()
    : handle_(HandleTable<TestLog>::Add(this, &object_)),
      dbgHandle_(HandleTable<DebugChannel>::Add(&channel_, &channel_)) {
  object_.counter = HandleTable<LogCounter>::Add(&counter_, &counter_);
}

TestLog::~TestLog() {
  HandleTable<LogCounter>::Remove(object_.counter);
  HandleTable<DebugChannel>::Remove(dbgHandle_);
  HandleTable<TestLog>::Remove(handle_);
}

void TestLog::ShowAll() {
  minLevel_ = KST_LOG_DEBUG;
  sites_.clear();
  suppressor_ = nullptr;
}

std::vector<LogRecord> TestLog::OfKind(LogKind kind) const {
  std::vector<LogRecord> found;
  for (const LogRecord &record : records_) {
    if (record.kind == kind) found.push_back(record);
  }
  return found;
}

std::vector<LogRecord> TestLog::OfFunc(const std::string &func) const {
  std::vector<LogRecord> found = OfKind(LogKind::kSecond);
  std::erase_if(found, [&func](const LogRecord &record) { return record.func != func; });
  return found;
}

bool TestLog::Has(LogKind kind, const std::string &text) const {
  for (const LogRecord &record : records_) {
    if (record.kind == kind && record.text == text) return true;
  }
  return false;
}

std::string TestLog::AllText() const {
  std::ostringstream text;
  for (const LogRecord &record : records_) text << "  " << record << "\n";
  return text.str();
}

void TestLog::Count(const std::string &module, uint32_t line) {
  if (!recordsCalls_) return;
  LogRecord record;
  record.kind = LogKind::kCount;
  record.module = module;
  record.line = line;
  records_.push_back(std::move(record));
}

bool TestLog::FirstHalf(const std::string &module, uint32_t line, uint32_t level) {
  LogRecord record;
  record.kind = LogKind::kFirst;
  record.module = module;
  record.line = line;
  record.level = level;
  record.suppressed = IsSuppressed(module, line, level);
  agreed_ = record;
  hasAgreed_ = !record.suppressed;
  if (recordsCalls_) records_.push_back(std::move(record));
  return hasAgreed_;
}

void TestLog::SecondHalf(const LogRecord &record) {
  if (!hasAgreed_ || !IsSameSite(agreed_, record)) {
    violations_.push_back("second half without first half: " + TextOf(record));
  }
  hasAgreed_ = false;
  records_.push_back(record);
}

bool TestLog::IsSuppressed(const std::string &module, uint32_t line, uint32_t level) const {
  return level < minLevel_ || sites_.count({module, line}) != 0 ||
         (suppressor_ && suppressor_(module, line, level));
}

}  // namespace coap_rpc_test
