// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace test_support {

// A client of the daemon that acts as the computer around the program under test: it plugs devices
// in and out, changes their volume, chooses defaults and creates links. Every call takes effect
// before it returns, or throws std::runtime_error. Test thread.
class PipeWireControl {
 public:
  using Properties = std::map<std::string, std::string>;

  // Connects to the environment's daemon.
  PipeWireControl();
  ~PipeWireControl();
  PipeWireControl(const PipeWireControl&) = delete;
  PipeWireControl& operator=(const PipeWireControl&) = delete;

  // A microphone (stereo unless the properties say otherwise) with its own clock that records what
  // is linked to its input ports, else silence. Returns when it can be recorded from.
  void createMicrophone(const std::string& nodeName, const Properties& extra = {});
  // A sink that discards its sound, with its own clock and monitor.
  void createSink(const std::string& nodeName, const Properties& extra = {});
  // Unplugs a device created here.
  void destroyNode(const std::string& nodeName);

  // `volume`: PipeWire's value, the cube of the mixer's slider; the same for all channels.
  void setVolume(const std::string& nodeName, float volume);
  void setMute(const std::string& nodeName, bool mute);
  // Like a mixer that takes a device away from its users.
  void suspend(const std::string& nodeName);

  // The "default" metadata, subject 0; null without the key. Values are JSON {"name": ...}.
  std::optional<std::string> metadata(const std::string& key);
  // The copy is read again if no change was reported for half a second, unless:
  void relyOnChanges();
  // An empty value removes the key.
  void setMetadata(const std::string& key, const std::string& jsonValue);
  // The same, at a moment at which the daemon reports no changes to other clients.
  void setMetadataUnheard(const std::string& key, const std::string& jsonValue);
  // Like a mixer: configures the default and waits until the session manager has applied it.
  void setDefaultSource(const std::string& nodeName);
  void setDefaultSink(const std::string& nodeName);

  // A property of the daemon's own settings, such as "clock.force-rate".
  void setDaemonSetting(const std::string& key, const std::string& value);

  // Links output ports to input ports in order, repeating the outputs if there are fewer.
  void link(const std::string& outputNode, const std::string& inputNode);

  [[nodiscard]] bool hasNode(const std::string& nodeName);
  // The global id; throws when there is no such node.
  [[nodiscard]] std::uint32_t nodeId(const std::string& nodeName);
  // The registry's properties of every client, node, port or link.
  [[nodiscard]] std::vector<Properties> objects(const std::string& type);
  // All properties of every client, of which the registry shows only some.
  [[nodiscard]] std::vector<Properties> clientProperties();
  // Sets a property of this client, which all others see.
  void setClientProperty(const std::string& key, const std::string& value);
  // Waits until the daemon has handled all requests so far.
  void synchronize();

 private:
  struct Impl;
  void createNode(const std::string& nodeName, const Properties& properties);
  void setDefault(const std::string& kind, const std::string& nodeName);
  std::unique_ptr<Impl> impl_;
};

}  // namespace test_support
