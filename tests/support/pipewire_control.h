// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace test_support {

// A client of the daemon that plays the computer around the program under test: it plugs devices
// in and out, turns their volume, chooses defaults and draws links. Every call takes effect before
// it returns, or throws std::runtime_error. Test thread.
class PipeWireControl {
 public:
  using Properties = std::map<std::string, std::string>;

  // Connects to the daemon that the environment points at.
  PipeWireControl();
  ~PipeWireControl();
  PipeWireControl(const PipeWireControl&) = delete;
  PipeWireControl& operator=(const PipeWireControl&) = delete;

  // A microphone (stereo unless the properties say otherwise) that records what is linked into its
  // input ports, else silence, and has a clock of its own. Returns when it can be recorded from.
  void createMicrophone(const std::string& nodeName, const Properties& extra = {});
  // A sink that plays into the void, with a clock and a monitor of its own.
  void createSink(const std::string& nodeName, const Properties& extra = {});
  // Unplugs a device made here.
  void destroyNode(const std::string& nodeName);

  // `volume`: as PipeWire holds it, the cube of the mixer's slider; the same for all channels.
  void setVolume(const std::string& nodeName, float volume);
  void setMute(const std::string& nodeName, bool mute);
  // As a mixer does it that takes a device away from those who use it.
  void suspend(const std::string& nodeName);

  // The "default" metadata, subject 0; null without the key. Values are JSON {"name": ...}.
  std::optional<std::string> metadata(const std::string& key);
  // The copy is read again where no change was heard of for half a second, unless:
  void relyOnChanges();
  // An empty value removes the key.
  void setMetadata(const std::string& key, const std::string& jsonValue);
  // The same in a moment in which the daemon reports no change to other clients.
  void setMetadataUnheard(const std::string& key, const std::string& jsonValue);
  // As a mixer does it: configures the default and waits until the session manager has followed.
  void setDefaultSource(const std::string& nodeName);
  void setDefaultSink(const std::string& nodeName);

  // A property of the daemon's own settings, such as "clock.force-rate".
  void setDaemonSetting(const std::string& key, const std::string& value);

  // Links output ports to input ports in their order, cycling through the fewer outputs.
  void link(const std::string& outputNode, const std::string& inputNode);

  [[nodiscard]] bool hasNode(const std::string& nodeName);
  // The global id; throws when there is no such node.
  [[nodiscard]] std::uint32_t nodeId(const std::string& nodeName);
  // The properties of every client, node, port or link in the registry.
  [[nodiscard]] std::vector<Properties> objects(const std::string& type);
  // All properties of every client, which the registry shows a part of.
  [[nodiscard]] std::vector<Properties> clientProperties();
  // A property of this client's own, for all others to see.
  void setClientProperty(const std::string& key, const std::string& value);
  // Waits until the daemon has done everything asked for so far.
  void synchronize();

 private:
  struct Impl;
  void createNode(const std::string& nodeName, const Properties& properties);
  void setDefault(const std::string& kind, const std::string& nodeName);
  std::unique_ptr<Impl> impl_;
};

}  // namespace test_support
