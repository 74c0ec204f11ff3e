// SPDX-License-Identifier: MIT
#include <stdexcept>

#include "tests/contract/contract_rig.h"
#include "tests/empty_host/empty_host.h"

// The empty host under the refusing half of the contract suite. Time does not pass on it, and
// nothing can be plugged in.

namespace contract {
namespace {

class EmptyRig : public ContractRig {
 public:
  suite::Environment environment() override { return host_.environment(); }
  Surroundings& surroundings() override { throw std::logic_error("nothing is around this host"); }
  bool runUntil(const std::function<bool()>& condition) override { return condition(); }
  void pass(double) override {}
  void keepBusy(double) override {}
  std::string folder() override { return "/nowhere"; }
  std::string folderElsewhere() override { return "/elsewhere"; }
  std::optional<std::string> contents(const std::string&) override { return std::nullopt; }
  void limitFiles(std::optional<std::size_t>) override {}
  std::optional<platform::Value> storedSetting(const std::string&) override { return std::nullopt; }
  std::string plugInMicrophone(const std::string&) override { return ""; }
  std::string plugInSpeakers(const std::string&) override { return ""; }
  void setLevel(const std::string&, float, bool) override {}
  void unplug(const std::string&) override {}

 private:
  empty_host::EmptyHost host_;
};

}  // namespace

std::unique_ptr<ContractRig> makeRig() {
  return std::make_unique<EmptyRig>();
}

}  // namespace contract
