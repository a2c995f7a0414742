/* contract_host.h: the face that every host shows to the host-contract suite.
 *
 * The suite calls the platform functions themselves, with the handles that it gets here; this
 * class adds only what the contract leaves to the host: passing time, reading records back and
 * playing the operator.  Each adapter (contract_host_<name>.cpp) derives from it and defines
 * MakeContractHost; the same suite sources are then linked with one adapter and one host. */
#ifndef CONTRACT_HOST_H
#define CONTRACT_HOST_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace coap_rpc_test {

// ContractHostParam says how a host is to be set up.  The defaults switch nothing off.
struct ContractHostParam {
  uint32_t logLevel = 0;           // lowest KST_LOG_* level that is printed
  uint32_t logRecordsPerSite = 0;  // after this many records in quick succession a site is
                                   // suppressed; 0: never
  uint64_t memLimitBytes = 0;      // limit of the pool Mem(), payload bytes; 0: none
};

// ContractLogLine is one printed log record.
struct ContractLogLine {
  std::string module;
  uint32_t line = 0;
  uint32_t level = 0;
  std::string func;
  std::string text;  // rendered; without a line feed at its end
};

// ContractAssert is one call of TARN_Assert.
struct ContractAssert {
  std::string path;
  uint32_t line = 0;
};

// ContractDispResult is what an operator sees of one command.
struct ContractDispResult {
  bool ran = false;    // false: no such object or command, or the parameters were refused
  std::string output;  // all pages one after the other, exactly as printed
};

class ContractHost {
 public:
  virtual ~ContractHost() = default;  // deletes the host with everything that it still holds

  // Handles for the platform functions.  All but Dbg are never 0.
  virtual uint64_t Mem() = 0;
  virtual uint64_t Log() = 0;
  virtual uint64_t Disp() = 0;
  virtual uint64_t Tmr() = 0;
  virtual uint64_t Dbg() = 0;

  // AdvanceMs lets at least `ms` milliseconds of the host's time pass and runs the ticks that
  // fall due in them.
  virtual void AdvanceMs(uint32_t ms) = 0;

  // HasExactTime: AdvanceMs moves the time by exactly `ms` and every tick is on time.  When
  // false, time is the real one: it goes on between calls, and a busy machine may delay ticks.
  virtual bool HasExactTime() = 0;

  // LogLines gives the printed records of this host in order.  Debug and system log texts, and
  // records that a host writes about itself, are not among them.
  virtual std::vector<ContractLogLine> LogLines() = 0;

  // LogCount gives how often KST_LogCnt counted the site, over the host's life.
  virtual uint64_t LogCount(const std::string &module, uint32_t line) = 0;

  // Asserts gives the calls of TARN_Assert since this host was made, in order (at least the last
  // eight of them).
  virtual std::vector<ContractAssert> Asserts() = 0;

  // RunCommand types one display command and turns its pages to the end.
  //   objName   object that the command is registered on
  //   args      parameters, in decimal where the command asks for a number
  virtual ContractDispResult RunCommand(const std::string &objName, const std::string &command,
                                        const std::vector<std::string> &args) = 0;

  // LiveAllocations counts what is allocated from Mem() through the platform functions and not
  // freed yet.  What a host keeps for itself does not count.
  virtual uint64_t LiveAllocations() = 0;
};

// MakeContractHost makes a fresh host; null when that fails.  Several may be alive at once.
std::unique_ptr<ContractHost> MakeContractHost(const ContractHostParam &param = {});

}  // namespace coap_rpc_test

#endif /* CONTRACT_HOST_H */
