// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/loopback_state.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <vector>

#include "driver/loopback_protocol.h"

namespace linux_host {
namespace {

std::vector<std::string> entriesOf(const std::string& granted) {
  std::istringstream words(granted);
  std::vector<std::string> entries{std::istream_iterator<std::string>(words), {}};
  std::erase(entries, loopback::kLoopbackNoneGranted);
  return entries;
}

}  // namespace

void LoopbackState::driverIs(std::uint32_t client, const std::string& version,
                             const std::optional<std::string>& granted) {
  drivers_[client] = {version, granted};
}

std::optional<std::string> LoopbackState::driverVersion() const {
  if (drivers_.empty()) return std::nullopt;
  return drivers_.begin()->second.version;
}

void LoopbackState::request(bool isShow, std::uint64_t number) {
  asked_ = isShow ? Asked::kShow : Asked::kHide;
  number_ = number;
}

const std::string* LoopbackState::answers() const {
  if (drivers_.empty() || !drivers_.begin()->second.granted) return nullptr;
  return &*drivers_.begin()->second.granted;
}

bool LoopbackState::isGranted() const {
  const std::string* granted = answers();
  if (granted == nullptr || asked_ == Asked::kNothing) return true;
  if (asked_ == Asked::kHide) return false;
  const auto entries = entriesOf(*granted);
  const std::string own = std::to_string(ownClient_) + ":" + std::to_string(number_);
  return std::find(entries.begin(), entries.end(), own) != entries.end();
}

bool LoopbackState::isLeaving() const {
  const std::string* granted = answers();
  if (granted == nullptr || asked_ == Asked::kShow) return false;
  // Looks for an answer to this program's own request that the driver has not withdrawn.
  const std::string own = std::to_string(ownClient_) + ":";
  const auto entries = entriesOf(*granted);
  return std::all_of(entries.begin(), entries.end(),
                     [&](const std::string& entry) { return entry.starts_with(own); });
}

}  // namespace linux_host
