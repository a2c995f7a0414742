/* contract_host_test.cpp: the host under test control, as the host-contract suite sees it. */
#include <map>

#include "contract_host.h"
#include "render.h"
#include "test_host.h"

namespace coap_rpc_test {
namespace {

class TestContractHost : public ContractHost {
 public:
  explicit TestContractHost(const ContractHostParam &param);
  ~TestContractHost() override { host_.DiscardAll(); }

  uint64_t Mem() override { return host_.Mem(); }
  uint64_t Log() override { return host_.Log(); }
  uint64_t Disp() override { return host_.Disp(); }
  uint64_t Tmr() override { return host_.Tmr(); }
  uint64_t Dbg() override { return host_.Dbg(); }
  void AdvanceMs(uint32_t ms) override { host_.AdvanceMs(ms); }
  bool HasExactTime() override { return true; }
  std::vector<ContractLogLine> LogLines() override;
  uint64_t LogCount(const std::string &module, uint32_t line) override;
  std::vector<ContractAssert> Asserts() override;
  ContractDispResult RunCommand(const std::string &objName, const std::string &command,
                                const std::vector<std::string> &args) override;
  uint64_t LiveAllocations() override { return host_.Pool().LiveCount(); }

 private:
  bool IsOverRate(const std::string &module, uint32_t line);

  TestHost host_;
  size_t numAssertsBefore_ = 0;
  uint32_t recordsPerSite_ = 0;
  std::map<LogSite, uint32_t> asked_;  // how often each site wanted to print
};

TestContractHost::TestContractHost(const ContractHostParam &param)
    : numAssertsBefore_(TestHost::Process().Asserts().size()),
      recordsPerSite_(param.logRecordsPerSite) {
  host_.Pool().SetByteLimit(param.memLimitBytes);
  host_.Logs().SuppressBelow(param.logLevel);
  host_.Logs().SuppressIf([this](const std::string &module, uint32_t line, uint32_t) {
    return IsOverRate(module, line);
  });
}

bool TestContractHost::IsOverRate(const std::string &module, uint32_t line) {
  return recordsPerSite_ != 0 && ++asked_[{module, line}] > recordsPerSite_;
}

std::vector<ContractLogLine> TestContractHost::LogLines() {
  std::vector<ContractLogLine> lines;
  for (const LogRecord &record : host_.Logs().OfKind(LogKind::kSecond)) {
    lines.push_back({record.module, record.line, record.level, record.func, Chomp(record.text)});
  }
  return lines;
}

uint64_t TestContractHost::LogCount(const std::string &module, uint32_t line) {
  uint64_t count = 0;
  for (const LogRecord &record : host_.Logs().OfKind(LogKind::kCount)) {
    if (record.module == module && record.line == line) ++count;
  }
  return count;
}

std::vector<ContractAssert> TestContractHost::Asserts() {
  std::vector<ContractAssert> asserts;
  const std::vector<AssertRecord> &all = TestHost::Process().Asserts();
  for (size_t i = numAssertsBefore_; i < all.size(); ++i) {
    asserts.push_back({all[i].path, all[i].line});
  }
  return asserts;
}

ContractDispResult TestContractHost::RunCommand(const std::string &objName,
                                                const std::string &command,
                                                const std::vector<std::string> &args) {
  const DispCommand *found = host_.Display().Find(command, objName);
  if (!found || found->paramNames.size() != args.size()) return {};
  std::vector<DispArg> typed;
  for (size_t i = 0; i < args.size(); ++i) {
    const bool isText = found->paramNames[i].starts_with("pc");
    typed.push_back(isText ? DispArg(args[i])
                           : DispArg(static_cast<uint32_t>(std::stoul(args[i]))));
  }
  ContractDispResult result{true, ""};
  for (const std::string &page : host_.Display().Run(command, typed, objName)) {
    result.output += page;
  }
  return result;
}

}  // namespace

std::unique_ptr<ContractHost> MakeContractHost(const ContractHostParam &param) {
  return std::make_unique<TestContractHost>(param);
}

}  // namespace coap_rpc_test
