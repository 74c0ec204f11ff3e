// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/audio_graph.h"

#include <pipewire/keys.h>
#include <spa/param/audio/raw.h>
#include <spa/param/audio/type-info.h>

#include <algorithm>
#include <charconv>
#include <string_view>

#include "driver/default_value.h"
#include "driver/loopback_protocol.h"
#include "platform/capture.h"

namespace linux_host {
namespace {

const std::string kEmpty;

constexpr std::uint32_t kUsualGraphRate_Hz = 48000;
constexpr std::uint32_t kUsualGraphQuantum_frames = 1024;

std::int64_t number(const std::string& text, std::int64_t otherwise) {
  std::int64_t value = otherwise;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

bool allows(const NodeFormat& format, std::uint32_t rate_Hz) {
  if (!format.listedRates_Hz.empty()) {
    return std::find(format.listedRates_Hz.begin(), format.listedRates_Hz.end(), rate_Hz) !=
           format.listedRates_Hz.end();
  }
  if (format.highestRate_Hz == 0) return format.rate_Hz == 0 || format.rate_Hz == rate_Hz;
  return rate_Hz >= format.lowestRate_Hz && rate_Hz <= format.highestRate_Hz;
}

std::uint32_t channelNamed(std::string_view name) {
  for (const spa_type_info* info = spa_type_audio_channel; info->name != nullptr; ++info) {
    const std::string_view full = info->name;
    if (full.substr(full.rfind(':') + 1) == name) return info->type;
  }
  return SPA_AUDIO_CHANNEL_UNKNOWN;
}

// "FL,FR" or "[ FL FR ]".
std::vector<std::uint32_t> positionsFromText(const std::string& text) {
  constexpr std::string_view kBetween = " ,[]\"";
  std::vector<std::uint32_t> positions;
  constexpr std::size_t kNone = std::string::npos;
  for (std::size_t begin = 0; (begin = text.find_first_not_of(kBetween, begin)) != kNone;) {
    const std::size_t end = std::min(text.find_first_of(kBetween, begin), text.size());
    positions.push_back(channelNamed(std::string_view(text).substr(begin, end - begin)));
    begin = end;
  }
  return positions;
}

const AudioNode* preferred(const std::vector<const AudioNode*>& candidates) {
  const AudioNode* best = nullptr;
  std::int64_t bestPriority = 0;
  for (const AudioNode* node : candidates) {
    const std::int64_t priority = number(node->property(PW_KEY_PRIORITY_SESSION), 0);
    if (best != nullptr && priority <= bestPriority) continue;
    best = node;
    bestPriority = priority;
  }
  return best;
}

}  // namespace

const std::string& AudioNode::property(const std::string& key) const {
  const auto found = properties.find(key);
  return found == properties.end() ? kEmpty : found->second;
}

bool AudioNode::isLoopback() const {
  return name == loopback::kLoopbackDeviceUID;
}

bool AudioNode::isSource() const {
  return mediaClass == "Audio/Source" || mediaClass == "Audio/Source/Virtual" ||
         mediaClass == "Audio/Duplex";
}

bool AudioNode::isSink() const {
  return mediaClass == "Audio/Sink" || mediaClass == "Audio/Sink/Virtual" ||
         mediaClass == "Audio/Duplex";
}

const AudioNode* AudioGraph::findNode(const std::string& name) const {
  for (const AudioNode* node : audioDevices()) {
    if (node->name == name) return node;
  }
  return nullptr;
}

std::vector<const AudioNode*> AudioGraph::audioDevices() const {
  std::vector<const AudioNode*> found;
  for (const auto& [id, node] : nodes) {
    if (node.known && (node.isSource() || node.isSink())) found.push_back(&node);
  }
  return found;
}

const AudioNode* AudioGraph::defaultSource() const {
  const auto chosen = defaults.find("default.audio.source");
  if (chosen != defaults.end()) {
    const AudioNode* node = findNode(loopback::nameInDefault(chosen->second).value_or(""));
    if (node != nullptr && node->isSource()) return node;
  }
  std::vector<const AudioNode*> sources = audioDevices();
  std::erase_if(sources, [](const AudioNode* node) { return !node->isSource(); });
  return preferred(sources);
}

const AudioNode* AudioGraph::sinkInDefault(const char* key) const {
  const auto chosen = defaults.find(key);
  if (chosen == defaults.end()) return nullptr;
  const AudioNode* node = findNode(loopback::nameInDefault(chosen->second).value_or(""));
  return node != nullptr && node->isSink() ? node : nullptr;
}

const AudioNode* AudioGraph::defaultSink() const {
  const AudioNode* used = sinkInDefault(loopback::kDefaultSinkKey);
  if (used != nullptr && !(used->isLoopback() && loopbackState.isLeaving())) return used;
  if (used != nullptr) {
    const AudioNode* configured = sinkInDefault(loopback::kConfiguredDefaultSinkKey);
    const AudioNode* last = findNode(lastRealSink);
    for (const AudioNode* node : {configured, last}) {
      if (node != nullptr && node->isSink() && !node->isLoopback()) return node;
    }
  }
  std::vector<const AudioNode*> sinks = audioDevices();
  std::erase_if(sinks, [](const AudioNode* node) { return !node->isSink() || node->isLoopback(); });
  return preferred(sinks);
}

void AudioGraph::defaultSinkIs(const std::string& json) {
  const std::string name = loopback::nameInDefault(json).value_or("");
  if (!name.empty() && name != loopback::kLoopbackDeviceUID) lastRealSink = name;
}

std::uint32_t AudioGraph::setting(const std::string& key) const {
  const auto found = settings.find(key);
  return found == settings.end() ? 0 : static_cast<std::uint32_t>(number(found->second, 0));
}

std::uint32_t AudioGraph::graphRate_Hz() const {
  for (const char* key : {"clock.force-rate", "clock.rate"}) {
    if (const std::uint32_t rate_Hz = setting(key); rate_Hz != 0) return rate_Hz;
  }
  return kUsualGraphRate_Hz;
}

std::uint32_t AudioGraph::graphQuantum_frames() const {
  for (const char* key : {"clock.force-quantum", "clock.quantum"}) {
    if (const std::uint32_t frames = setting(key); frames != 0) return frames;
  }
  return kUsualGraphQuantum_frames;
}

std::uint32_t AudioGraph::deviceRate_Hz(const AudioNode& node) const {
  if (node.format && node.format->rate_Hz != 0) return node.format->rate_Hz;
  const std::uint32_t graph_Hz = graphRate_Hz();
  if (node.offered && !allows(*node.offered, graph_Hz) && node.offered->rate_Hz != 0) {
    return node.offered->rate_Hz;
  }
  return graph_Hz;
}

std::vector<std::uint32_t> AudioGraph::channelPositions(const AudioNode& node) const {
  for (const std::optional<NodeFormat>* format : {&node.format, &node.offered}) {
    if (!*format || (*format)->channels == 0) continue;
    std::vector<std::uint32_t> positions = (*format)->positions;
    positions.resize((*format)->channels, SPA_AUDIO_CHANNEL_UNKNOWN);
    return positions;
  }
  std::vector<std::uint32_t> positions = positionsFromText(node.property("audio.position"));
  const std::int64_t channels = number(node.property(PW_KEY_AUDIO_CHANNELS), 0);
  if (channels > 0 && channels <= SPA_AUDIO_MAX_CHANNELS) {
    positions.resize(static_cast<std::size_t>(channels), SPA_AUDIO_CHANNEL_UNKNOWN);
  }
  if (positions.empty()) positions = {SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR};
  return positions;
}

const Route* AudioGraph::activeRoute(const AudioNode& node, bool isInput) const {
  const std::int64_t device = number(node.property(PW_KEY_DEVICE_ID), -1);
  const std::int64_t profileDevice = number(node.property("card.profile.device"), -1);
  const auto routes = deviceRoutes.find(static_cast<std::uint32_t>(device));
  if (device < 0 || routes == deviceRoutes.end()) return nullptr;
  for (const Route& route : routes->second) {
    if (route.isInput == isInput && route.profileDevice == profileDevice) return &route;
  }
  return nullptr;
}

const Levels& AudioGraph::levels(const AudioNode& node) const {
  const Route* route = activeRoute(node, node.isSource());
  const bool hasLevels =
      route != nullptr && (route->levels.mute || !route->levels.channelVolumes.empty());
  return hasLevels ? route->levels : node.levels;
}

std::optional<std::string> AudioGraph::activeInput(const AudioNode& node) const {
  const Route* route = activeRoute(node, true);
  if (route == nullptr || route->description.empty()) return std::nullopt;
  return route->description;
}

const std::string& AudioGraph::deviceProperty(const AudioNode& node, const std::string& key) const {
  if (const std::string& own = node.property(key); !own.empty()) return own;
  const std::int64_t id = number(node.property(PW_KEY_DEVICE_ID), -1);
  const auto device = devices.find(static_cast<std::uint32_t>(id));
  if (id < 0 || device == devices.end()) return kEmpty;
  const auto found = device->second.find(key);
  return found == device->second.end() ? kEmpty : found->second;
}

std::string AudioGraph::manufacturer(const AudioNode& node) const {
  if (node.isLoopback()) {
    if (const auto version = loopbackState.driverVersion()) return *version;
    return node.property(loopback::kLoopbackDeviceManufacturerKey);
  }
  const std::string& bus = deviceProperty(node, PW_KEY_DEVICE_BUS);
  const bool isPlugged = bus == "usb" || bus == "bluetooth";
  const bool isInside = bus == "pci" || bus == "isa" || bus == "platform" ||
                        deviceProperty(node, PW_KEY_DEVICE_FORM_FACTOR) == "internal";
  if (isInside && !isPlugged) return platform::kBuiltInManufacturer;
  return deviceProperty(node, PW_KEY_DEVICE_VENDOR_NAME);
}

std::string AudioGraph::displayName(const AudioNode& node) {
  for (const char* key : {PW_KEY_NODE_DESCRIPTION, PW_KEY_NODE_NICK}) {
    if (const std::string& text = node.property(key); !text.empty()) return text;
  }
  return node.name;
}

}  // namespace linux_host
