/* test_disp.cpp: the display service of a host under test control, and the operator in front of it. */
#include "test_disp.h"

#include <cstring>

#include "complaint.h"
#include "disp_call.h"
#include "handle_table.h"

namespace coap_rpc_test {
namespace {

bool IsTextName(const std::string &name) { return name.starts_with("pc"); }
bool IsNumberName(const std::string &name) { return name.starts_with("uni"); }

bool HaveKnownPrefixes(const std::vector<std::string> &names) {
  for (const std::string &name : names) {
    if (!IsTextName(name) && !IsNumberName(name)) return false;
  }
  return true;
}

bool Fits(const std::vector<std::string> &names, const std::vector<DispArg> &args) {
  if (names.size() != args.size()) return false;
  for (size_t i = 0; i < names.size(); ++i) {
    if (IsTextName(names[i]) != std::holds_alternative<std::string>(args[i])) return false;
  }
  return true;
}

std::string Joined(const std::vector<std::string> &names) {
  std::string text;
  for (const std::string &name : names) text += text.empty() ? name : ", " + name;
  return text;
}

std::vector<uint8_t> CopyBytes(const void *bytes, uint32_t len) {
  const auto *from = static_cast<const uint8_t *>(bytes);
  return len == 0 ? std::vector<uint8_t>() : std::vector<uint8_t>(from, from + len);
}

}  // namespace

TestDisp::TestDisp() : handle_(HandleTable<TestDisp>::Add(this, this)) {}

TestDisp::~TestDisp() { HandleTable<TestDisp>::Remove(handle_); }

const DispCommand *TestDisp::Find(const std::string &command, const std::string &objName) const {
  const DispCommand *found = nullptr;
  for (const DispCommand &candidate : commands_) {
    if (candidate.command != command) continue;
    if (!objName.empty() && candidate.objName != objName) continue;
    if (found) return nullptr;
    found = &candidate;
  }
  return found;
}

std::vector<std::string> TestDisp::Run(const std::string &command, const std::vector<DispArg> &args,
                                       const std::string &objName) {
  std::vector<std::string> pages;
  ForgetContext();
  if (!CanRun(Find(command, objName), command, args)) return pages;
  do {
    pages.push_back(InvokeOnce(command, args, objName));
  } while (HasContext() && pages.size() < kMaxPages);
  if (pages.size() == kMaxPages) Complain("%s turns pages without end", command.c_str());
  ForgetContext();
  return pages;
}

std::string TestDisp::InvokeOnce(const std::string &command, const std::vector<DispArg> &args,
                                 const std::string &objName) {
  const DispCommand *found = Find(command, objName);
  if (!CanRun(found, command, args)) return "";
  void *obj = objects_.at(found->objName);
  printed_.clear();
  saved_.reset();
  isRunning_ = true;
  CallHandler(found->handler, obj, args);
  isRunning_ = false;
  context_ = std::move(saved_);
  saved_.reset();
  return std::move(printed_);
}

bool TestDisp::CanRun(const DispCommand *found, const std::string &command,
                      const std::vector<DispArg> &args) const {
  if (!found) {
    Complain("no such command, or an ambiguous one: %s", command.c_str());
  } else if (!Fits(found->paramNames, args)) {
    Complain("%s: arguments do not fit the parameters %s", command.c_str(),
             Joined(found->paramNames).c_str());
  } else if (isRunning_) {
    Complain("%s: run inside another command", command.c_str());
  } else {
    return true;
  }
  return false;
}

void TestDisp::UnregAll() {
  objects_.clear();
  commands_.clear();
}

uint32_t TestDisp::RegObj(const std::string &name, void *obj) {
  if (objFailures_.Count()) return 1;
  return objects_.emplace(name, obj).second ? 0 : 1;
}

uint32_t TestDisp::UnregObj(const std::string &name) {
  std::erase_if(commands_, [&name](const DispCommand &c) { return c.objName == name; });
  return objects_.erase(name) == 1 ? 0 : 1;
}

uint32_t TestDisp::RegFunc(const DispCommand &command) {
  if (funcFailures_.Count() || objects_.count(command.objName) == 0) return 1;
  if (command.paramNames.size() > KST_DISP_MAX_PARAMS) return 1;
  if (!HaveKnownPrefixes(command.paramNames) || IsKnown(command)) return 1;
  commands_.push_back(command);
  return 0;
}

bool TestDisp::IsKnown(const DispCommand &command) const {
  return Find(command.command, command.objName) != nullptr;
}

void TestDisp::Print(const std::string &text) {
  if (isRunning_) printed_ += text;
}

void TestDisp::SaveContext(const void *key, uint32_t keyLen, const void *counter,
                           uint32_t counterLen) {
  if (!isRunning_) return;
  if (keyLen > KST_DISP_MAX_KEY_LEN || counterLen > KST_DISP_MAX_COUNTER_LEN) return;
  saved_ = {CopyBytes(key, keyLen), CopyBytes(counter, counterLen)};
}

const void *TestDisp::LastContext(void *counter) const {
  if (!isRunning_ || !context_) return nullptr;
  if (!context_->counter.empty()) {
    std::memcpy(counter, context_->counter.data(), context_->counter.size());
  }
  // A saved key is never null, not even an empty one.
  return context_->key.empty() ? static_cast<const void *>("") : context_->key.data();
}

}  // namespace coap_rpc_test
