/* test_log.h: the log and the debug channel of a host under test control.
 *
 * Every call is recorded, in one sequence: counts, first halves, second halves, debug and system
 * log texts.  A record is one call; a printed record is a second half. */
#ifndef TEST_LOG_H
#define TEST_LOG_H

#include <cstdint>
#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kst_log.h"

namespace coap_rpc_test {

enum class LogKind { kCount, kFirst, kSecond, kDebug, kSysLog };

// LogRecord is one call.  Members that the call does not have keep their defaults.
struct LogRecord {
  LogKind kind = LogKind::kSecond;
  std::string module;       // kCount, kFirst, kSecond
  uint32_t line = 0;        // as module
  uint32_t level = 0;       // all but kCount
  std::string func;         // kSecond
  std::string format;       // kSecond, kDebug, kSysLog: as passed, not rendered
  std::string text;         // as format: rendered, line feeds included
  bool suppressed = false;  // kFirst: the answer
};

std::ostream &operator<<(std::ostream &out, const LogRecord &record);

class TestLog;

// The parts of a TestLog that have handles of their own.
struct LogCounter {
  TestLog *log;
};
struct DebugChannel {
  TestLog *log;
};

// LogSite names a log site the way the host is told about it.
using LogSite = std::pair<std::string, uint32_t>;

class TestLog {
 public:
  // A predicate that says whether a record is suppressed.
  using Suppressor = std::function<bool(const std::string &module, uint32_t line, uint32_t level)>;

  TestLog();
  ~TestLog();
  TestLog(const TestLog &) = delete;
  TestLog &operator=(const TestLog &) = delete;

  uint64_t Handle() const { return handle_; }          // log handle
  uint64_t DebugHandle() const { return dbgHandle_; }  // handle of CSVC_DBG_*
  const KST_LogObj &Object() const { return object_; }

  // What is suppressed.  The three ways add up; ShowAll ends all of them.
  void SuppressBelow(uint32_t level) { minLevel_ = level; }
  void SuppressSite(const std::string &module, uint32_t line) { sites_.insert({module, line}); }
  void SuppressIf(Suppressor suppressor) { suppressor_ = std::move(suppressor); }
  void ShowAll();

  // RecordPrintedOnly is for logs that somebody reads who does not care how they are asked.
  void RecordPrintedOnly() { recordsCalls_ = false; }

  const std::vector<LogRecord> &Records() const { return records_; }
  void Clear() { std::vector<LogRecord>().swap(records_); }  // and their memory

  // OfKind picks the records of one kind; OfFunc the printed ones of one function.
  std::vector<LogRecord> OfKind(LogKind kind) const;
  std::vector<LogRecord> OfFunc(const std::string &func) const;

  // Has says whether a record of a kind has exactly this rendered text.
  bool Has(LogKind kind, const std::string &text) const;

  // AllText renders the whole log, a record on each line.
  std::string AllText() const;

  // Violations lists second halves that no first half had agreed to just before.
  const std::vector<std::string> &Violations() const { return violations_; }

  // The operations of KST_LogCnt, KST_LogFirstHalf_, KST_LogSecondHalf_ and CSVC_DBG_*.
  void Count(const std::string &module, uint32_t line);
  bool FirstHalf(const std::string &module, uint32_t line, uint32_t level);  // true: print
  void SecondHalf(const LogRecord &record);
  void Debug(const LogRecord &record) { records_.push_back(record); }

 private:
  bool IsSuppressed(const std::string &module, uint32_t line, uint32_t level) const;

  KST_LogObj object_ = {};
  LogCounter counter_ = {this};
  DebugChannel channel_ = {this};
  std::vector<LogRecord> records_;
  std::vector<std::string> violations_;
  bool recordsCalls_ = true;  // counts and first halves
  LogRecord agreed_;          // the first half that the next second half may follow
  bool hasAgreed_ = false;
  uint32_t minLevel_ = KST_LOG_DEBUG;
  std::set<LogSite> sites_;
  Suppressor suppressor_;
  uint64_t handle_;
  uint64_t dbgHandle_;
};

}  // namespace coap_rpc_test

#endif /* TEST_LOG_H */
