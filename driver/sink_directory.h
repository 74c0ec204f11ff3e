// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace loopback {

// The daemon's sinks, from the nodes, ports and links in its registry.
class SinkDirectory {
 public:
  void addSink(std::uint32_t node, const std::string& name);
  void addInputPort(std::uint32_t port, std::uint32_t node, std::uint32_t index,
                    const std::string& channel);
  void addLink(std::uint32_t link, std::uint32_t inputNode);
  void remove(std::uint32_t global);
  // Empty when `global` is not a sink.
  [[nodiscard]] std::string sinkName(std::uint32_t global) const;
  // Whether something is playing to the node, or is about to.
  [[nodiscard]] bool isPlayedTo(std::uint32_t node) const;
  // The channels, in PipeWire's names, for a device that stands in for `sinkName`: the sink's own
  // if they are at most eight speakers with different positions, else left and right.
  [[nodiscard]] std::vector<std::string> channelsFor(const std::string& sinkName) const;

 private:
  struct Port {
    std::uint32_t node;
    std::uint32_t index;
    std::string channel;
  };
  std::map<std::uint32_t, std::string> sinks_;
  std::map<std::uint32_t, Port> ports_;
  std::map<std::uint32_t, std::uint32_t> links_;  // link id to the id of the node that it plays to
};

}  // namespace loopback
