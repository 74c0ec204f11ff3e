// SPDX-License-Identifier: MIT
#include "driver/sink_directory.h"

#include <algorithm>
#include <array>
#include <set>
#include <string_view>

namespace loopback {
namespace {

constexpr std::size_t kMostChannels = 8;

bool isSpeaker(const std::string& channel) {
  static constexpr std::array<std::string_view, 14> kSpeakers = {
      "MONO", "FL", "FR", "FC", "LFE", "SL", "SR", "RL", "RR", "RC", "FLC", "FRC", "TFL", "TFR"};
  return std::find(kSpeakers.begin(), kSpeakers.end(), channel) != kSpeakers.end();
}

}  // namespace

void SinkDirectory::addSink(std::uint32_t node, const std::string& name) {
  sinks_[node] = name;
}

void SinkDirectory::addInputPort(std::uint32_t port, std::uint32_t node, std::uint32_t index,
                                 const std::string& channel) {
  ports_[port] = {node, index, channel};
}

void SinkDirectory::addLink(std::uint32_t link, std::uint32_t inputNode) {
  links_[link] = inputNode;
}

bool SinkDirectory::isPlayedTo(std::uint32_t node) const {
  return std::any_of(links_.begin(), links_.end(),
                     [node](const auto& link) { return link.second == node; });
}

void SinkDirectory::remove(std::uint32_t global) {
  links_.erase(global);
  sinks_.erase(global);
  ports_.erase(global);
}

std::string SinkDirectory::sinkName(std::uint32_t global) const {
  const auto found = sinks_.find(global);
  return found == sinks_.end() ? std::string() : found->second;
}

std::vector<std::string> SinkDirectory::channelsFor(const std::string& sinkName) const {
  std::vector<std::string> stereo = {"FL", "FR"};
  const auto sink = std::find_if(sinks_.begin(), sinks_.end(),
                                 [&](const auto& entry) { return entry.second == sinkName; });
  std::map<std::uint32_t, std::string> channels;
  for (const auto& [id, port] : ports_) {
    if (sink != sinks_.end() && port.node == sink->first) channels[port.index] = port.channel;
  }
  std::vector<std::string> result;
  for (const auto& [index, channel] : channels) result.push_back(channel);
  const std::set<std::string> distinct(result.begin(), result.end());
  const bool usable = !result.empty() && result.size() <= kMostChannels &&
                      distinct.size() == result.size() &&
                      std::all_of(result.begin(), result.end(), isSpeaker);
  return usable ? result : stereo;
}

}  // namespace loopback
