// SPDX-License-Identifier: MIT
#include "driver/loopback_sink.h"

#include <array>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "driver/loopback_protocol.h"
#include "driver/report.h"

namespace loopback {
namespace {

std::string joined(const std::vector<std::string>& parts) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : ",") + part;
  return text;
}

std::string_view environmentLanguage() {
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && value[0] != '\0') return std::string_view(value).substr(0, 2);
  }
  return {};
}

}  // namespace

std::string localizedDeviceName() {
  static constexpr std::array<std::pair<std::string_view, const char*>, 4> kNames = {{
      {"de", "Computer (Loopback)"},
      {"es", "Ordenador (bucle invertido)"},
      {"fr", "Ordinateur (bouclage)"},
      {"it", "Computer (loopback)"},
  }};
  const std::string_view language = environmentLanguage();
  for (const auto& [code, name] : kNames) {
    if (code == language) return name;
  }
  return "Computer (loopback)";
}

LoopbackSink::LoopbackSink(std::string version, Callbacks callbacks)
    : version_(std::move(version)), callbacks_(std::move(callbacks)) {}

bool LoopbackSink::show(pw_core* core, const std::vector<std::string>& channels) {
  static const pw_proxy_events kEvents = [] {
    pw_proxy_events events{};
    events.version = PW_VERSION_PROXY_EVENTS;
    events.bound = [](void* data, std::uint32_t) {
      static_cast<LoopbackSink*>(data)->callbacks_.onMade();
    };
    events.removed = [](void* data) { static_cast<LoopbackSink*>(data)->lost(); };
    events.error = [](void* data, int, int, const char* message) {
      report(std::string("PipeWire cannot create the device: ") + message);
      static_cast<LoopbackSink*>(data)->lost();
    };
    return events;
  }();
  const PropertiesPtr properties(pw_properties_new(
      SPA_KEY_FACTORY_NAME, "support.null-audio-sink", PW_KEY_NODE_NAME, kLoopbackDeviceUID,
      PW_KEY_NODE_DESCRIPTION, localizedDeviceName().c_str(), PW_KEY_MEDIA_CLASS, "Audio/Sink",
      kLoopbackDeviceManufacturerKey, version_.c_str(), PW_KEY_NODE_VIRTUAL, "true",
      PW_KEY_OBJECT_LINGER, "false",
      // The recording is what is played, whatever this device's volume.
      "monitor.channel-volumes", "false",
      // Always ready to play or record, but the last choice as a default device.
      "session.suspend-timeout-seconds", "0", PW_KEY_PRIORITY_SESSION, "-1000", nullptr));
  pw_properties_set(properties.get(), "audio.position", joined(channels).c_str());
  pw_properties_setf(properties.get(), PW_KEY_AUDIO_CHANNELS, "%zu", channels.size());
  proxy_.reset(pw_core_create_object(core, "adapter", PW_TYPE_INTERFACE_Node, PW_VERSION_NODE,
                                     &properties->dict, 0));
  if (!proxy_) {
    reportErrno("cannot ask PipeWire for the device");
    return false;
  }
  proxy_.listenToProxy(&kEvents, this);
  return true;
}

void LoopbackSink::lost() {
  hide();
  callbacks_.onLost();
}

}  // namespace loopback
