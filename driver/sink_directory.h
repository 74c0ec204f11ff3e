// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace loopback {

// The sinks that the daemon has, by what its registry says of nodes, ports and links.
class SinkDirectory {
 public:
  void addSink(std::uint32_t node, const std::string& name);
  void addInputPort(std::uint32_t port, std::uint32_t node, std::uint32_t index,
                    const std::string& channel);
  void addLink(std::uint32_t link, std::uint32_t inputNode);
  void remove(std::uint32_t global);
  // Empty when `global` is not a sink.
  [[nodiscard]] std::string sinkName(std::uint32_t global) const;
  // Whether something plays to the node, or is about to.
  [[nodiscard]] bool isPlayedTo(std::uint32_t node) const;
  // The channels for a device that stands in for `sinkName`, as PipeWire names them: those of the
  // sink when they are up to eight speakers each with a place of its own, else left and right.
  [[nodiscard]] std::vector<std::string> channelsFor(const std::string& sinkName) const;

 private:
  struct Port {
    std::uint32_t node;
    std::uint32_t index;
    std::string channel;
  };
  std::map<std::uint32_t, std::string> sinks_;
  std::map<std::uint32_t, Port> ports_;
  std::map<std::uint32_t, std::uint32_t> links_;  // to the node that is played to
};

}  // namespace loopback
