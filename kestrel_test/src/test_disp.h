/* test_disp.h: the display service of a host under test control, and the operator in front of it. */
#ifndef TEST_DISP_H
#define TEST_DISP_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "fail_plan.h"
#include "kst_disp.h"

namespace coap_rpc_test {

// DispArg is one parameter of a command: a text for a "pc" name, a number for a "uni" name.
using DispArg = std::variant<std::string, uint32_t>;

// DispCommand is one registered command.
struct DispCommand {
  std::string handlerName;
  KST_DISP_FUNC handler = nullptr;
  std::string command;
  uint32_t flags = 0;
  std::string objName;
  std::vector<std::string> paramNames;
};

class TestDisp {
 public:
  static constexpr uint32_t kMaxPages = 100'000;  // RunCommand gives up there

  TestDisp();
  ~TestDisp();
  TestDisp(const TestDisp &) = delete;
  TestDisp &operator=(const TestDisp &) = delete;

  uint64_t Handle() const { return handle_; }

  // Which registrations fail (with result 1).
  FailPlan &ObjFailures() { return objFailures_; }
  FailPlan &FuncFailures() { return funcFailures_; }

  // Objects maps the names of the registered objects to them.
  const std::map<std::string, void *> &Objects() const { return objects_; }

  // Commands lists the registered commands in the order of their registration.
  const std::vector<DispCommand> &Commands() const { return commands_; }

  // Find returns the command; "" for objName accepts any object.  Null when there is none or,
  // without objName, more than one.
  const DispCommand *Find(const std::string &command, const std::string &objName = "") const;

  // Run invokes a command until it saves no context.  Returns the texts that it printed, one per
  // invocation.  An unknown command, or args that do not fit, are complained of and give nothing.
  std::vector<std::string> Run(const std::string &command, const std::vector<DispArg> &args = {},
                               const std::string &objName = "");

  // InvokeOnce invokes a command a single time and returns what it printed.  A context that the
  // invocation before has saved is kept between calls; without one it is a first invocation.
  std::string InvokeOnce(const std::string &command, const std::vector<DispArg> &args = {},
                         const std::string &objName = "");
  bool HasContext() const { return context_.has_value(); }
  void ForgetContext() { context_.reset(); }

  // SavedKey and SavedCounter are the bytes of the context that the invocation before has saved.
  std::string SavedKey() const { return context_ ? ToText(context_->key) : ""; }
  std::string SavedCounter() const { return context_ ? ToText(context_->counter) : ""; }

  // UnregAll forgets all objects and commands.
  void UnregAll();

  // The operations of KST_Disp*.
  uint32_t RegObj(const std::string &name, void *obj);
  uint32_t UnregObj(const std::string &name);
  uint32_t RegFunc(const DispCommand &command);
  void Print(const std::string &text);
  void SaveContext(const void *key, uint32_t keyLen, const void *counter, uint32_t counterLen);
  const void *LastContext(void *counter) const;

 private:
  struct Context {
    std::vector<uint8_t> key;
    std::vector<uint8_t> counter;
  };

  static std::string ToText(const std::vector<uint8_t> &bytes) {
    return {bytes.begin(), bytes.end()};
  }

  bool CanRun(const DispCommand *found, const std::string &command,
              const std::vector<DispArg> &args) const;
  bool IsKnown(const DispCommand &command) const;

  std::map<std::string, void *> objects_;
  std::vector<DispCommand> commands_;
  FailPlan objFailures_;
  FailPlan funcFailures_;
  std::optional<Context> context_;  // saved by the invocation before
  std::optional<Context> saved_;    // saved by the running invocation
  std::string printed_;             // by the running invocation
  bool isRunning_ = false;
  uint64_t handle_;
};

}  // namespace coap_rpc_test

#endif /* TEST_DISP_H */
