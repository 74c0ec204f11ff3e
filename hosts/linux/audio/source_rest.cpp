// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/source_rest.h"

#include <algorithm>

namespace linux_host {

using std::chrono::milliseconds;

void SourceRest::ending(const std::string& node) {
  const platform::MutexLock lock(mutex_);
  ++sources_[node].endingStreams;
}

void SourceRest::ended(const std::string& node, bool hasStreamed) {
  const platform::MutexLock lock(mutex_);
  Source& source = sources_[node];
  --source.endingStreams;
  if (hasStreamed) source.rested = Clock::now() + kRest;
}

milliseconds SourceRest::left(const std::string& node) {
  const platform::MutexLock lock(mutex_);
  const auto found = sources_.find(node);
  if (found == sources_.end()) return {};
  if (found->second.endingStreams > 0) return kRest;
  const auto time = std::chrono::ceil<milliseconds>(found->second.rested - Clock::now());
  return std::max(time, milliseconds(0));
}

}  // namespace linux_host
