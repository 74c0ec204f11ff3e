// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/audio_graph.h"

#include <gtest/gtest.h>
#include <spa/param/audio/raw.h>

#include "driver/default_value.h"
#include "driver/loopback_protocol.h"
#include "platform/capture.h"

namespace linux_host {
namespace {

using loopback::defaultWithName;
using loopback::nameInDefault;

AudioNode& addNode(AudioGraph& graph, std::uint32_t id, const std::string& name,
                   const std::string& mediaClass, NodeProperties properties = {}) {
  AudioNode& node = graph.nodes[id];
  node.id = id;
  node.name = name;
  node.mediaClass = mediaClass;
  node.properties = std::move(properties);
  node.known = true;
  return node;
}

TEST(AudioGraph, DefaultSourceIsTheChosenOneWhileItIsThere) {
  AudioGraph graph;
  EXPECT_EQ(graph.defaultSource(), nullptr);
  addNode(graph, 40, "low", "Audio/Source", {{"priority.session", "1000"}});
  addNode(graph, 41, "high", "Audio/Source", {{"priority.session", "2000"}});
  addNode(graph, 42, "sink", "Audio/Sink", {{"priority.session", "3000"}});
  EXPECT_EQ(graph.defaultSource()->name, "high");
  graph.defaults["default.audio.source"] = R"({ "name": "low" })";
  EXPECT_EQ(graph.defaultSource()->name, "low");
  graph.defaults["default.audio.source"] = R"({ "name": "unplugged" })";
  EXPECT_EQ(graph.defaultSource()->name, "high");
  graph.defaults["default.audio.source"] = R"({ "name": "sink" })";
  EXPECT_EQ(graph.defaultSource()->name, "high");
  graph.defaults["default.audio.source"] = "damaged";
  EXPECT_EQ(graph.defaultSource()->name, "high");
}

TEST(AudioGraph, FallbackSinkIsNeverTheLoopback) {
  AudioGraph graph;
  addNode(graph, 40, loopback::kLoopbackDeviceUID, "Audio/Sink", {{"priority.session", "9000"}});
  EXPECT_EQ(graph.defaultSink(), nullptr);
  addNode(graph, 41, "sink", "Audio/Sink");
  EXPECT_EQ(graph.defaultSink()->name, "sink");
  graph.defaults["default.audio.sink"] = defaultWithName(loopback::kLoopbackDeviceUID);
  EXPECT_TRUE(graph.defaultSink()->isLoopback());
}

// The play-through goes to the default output, which must not be a device that is being removed.
TEST(AudioGraph, ALoopbackThatIsLeavingIsNotTheDefaultSink) {
  AudioGraph graph;
  addNode(graph, 40, loopback::kLoopbackDeviceUID, "Audio/Sink");
  addNode(graph, 41, "best", "Audio/Sink", {{"priority.session", "9000"}});
  addNode(graph, 42, "last", "Audio/Sink");
  addNode(graph, 43, "chosen", "Audio/Sink");
  graph.defaultSinkIs(defaultWithName("last"));
  graph.defaultSinkIs(defaultWithName(loopback::kLoopbackDeviceUID));
  graph.defaultSinkIs("damaged");
  const std::string loopbackIs = defaultWithName(loopback::kLoopbackDeviceUID);
  graph.defaults["default.audio.sink"] = loopbackIs;
  graph.defaults["default.configured.audio.sink"] = loopbackIs;
  graph.loopbackState.driverIs(30, "1.0.3", "99:1");
  EXPECT_TRUE(graph.defaultSink()->isLoopback()) << "somebody has it";
  graph.loopbackState.driverIs(30, "1.0.3", "none");
  EXPECT_EQ(graph.defaultSink()->name, "last");
  graph.defaults["default.configured.audio.sink"] = defaultWithName("chosen");
  EXPECT_EQ(graph.defaultSink()->name, "chosen");
  graph.nodes.erase(43);
  graph.nodes.erase(42);
  EXPECT_EQ(graph.defaultSink()->name, "best");
}

TEST(AudioGraph, NodesWhosePropertiesHaveNotArrivedAreNotListed) {
  AudioGraph graph;
  addNode(graph, 40, "mic", "Audio/Source").known = false;
  EXPECT_EQ(graph.findNode("mic"), nullptr);
  EXPECT_TRUE(graph.audioDevices().empty());
}

TEST(AudioGraph, DeviceRateIsTheOneItRunsAtElseTheGraphsIfItCan) {
  AudioGraph graph;
  AudioNode& node = addNode(graph, 40, "mic", "Audio/Source");
  EXPECT_EQ(graph.deviceRate_Hz(node), 48000U);
  graph.settings["clock.rate"] = "44100";
  EXPECT_EQ(graph.deviceRate_Hz(node), 44100U);
  graph.settings["clock.force-rate"] = "96000";
  EXPECT_EQ(graph.deviceRate_Hz(node), 96000U);
  graph.settings["clock.force-rate"] = "0";
  node.offered = NodeFormat{.rate_Hz = 48000, .lowestRate_Hz = 8000, .highestRate_Hz = 192000};
  EXPECT_EQ(graph.deviceRate_Hz(node), 44100U);
  node.offered = NodeFormat{.rate_Hz = 48000, .listedRates_Hz = {48000, 96000}};
  EXPECT_EQ(graph.deviceRate_Hz(node), 48000U);
  node.offered = NodeFormat{.rate_Hz = 16000};
  EXPECT_EQ(graph.deviceRate_Hz(node), 16000U);
  node.format = NodeFormat{.rate_Hz = 96000};
  EXPECT_EQ(graph.deviceRate_Hz(node), 96000U);
}

TEST(AudioGraph, ChannelsComeFromTheFormatElseFromTheProperties) {
  AudioGraph graph;
  AudioNode& node = addNode(graph, 40, "mic", "Audio/Source");
  const std::vector<std::uint32_t> stereo{SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR};
  EXPECT_EQ(graph.channelPositions(node), stereo);
  node.properties["audio.channels"] = "1";
  EXPECT_EQ(graph.channelPositions(node).size(), 1U);
  node.properties["audio.position"] = "[ FL, FR, LFE ]";
  node.properties["audio.channels"] = "3";
  EXPECT_EQ(graph.channelPositions(node),
            (std::vector<std::uint32_t>{SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR,
                                        SPA_AUDIO_CHANNEL_LFE}));
  node.properties["audio.channels"] = "100000";
  EXPECT_EQ(graph.channelPositions(node).size(), 3U);
  node.offered = NodeFormat{.channels = 4, .positions = {SPA_AUDIO_CHANNEL_FL}};
  EXPECT_EQ(graph.channelPositions(node).size(), 4U);
  node.format = NodeFormat{.channels = 1, .positions = {SPA_AUDIO_CHANNEL_MONO}};
  EXPECT_EQ(graph.channelPositions(node), std::vector<std::uint32_t>{SPA_AUDIO_CHANNEL_MONO});
}

TEST(AudioGraph, LevelsAreThoseOfTheRouteThatHasAnyElseTheNodesOwn) {
  AudioGraph graph;
  AudioNode& node = addNode(graph, 40, "mic", "Audio/Source",
                            {{"device.id", "44"}, {"card.profile.device", "1"}});
  node.levels = {{1.0F, 1.0F}, false};
  EXPECT_EQ(graph.levels(node).mute, false);
  graph.deviceRoutes[44] = {{0, false, 1, "Headphones", {{0.0F}, true}},
                            {1, true, 2, "Line in", {{0.0F}, true}}};
  EXPECT_EQ(graph.levels(node).mute, false);
  graph.deviceRoutes[44].push_back({2, true, 1, "Internal microphone"});
  EXPECT_EQ(graph.levels(node).mute, false) << "the port has no levels";
  graph.deviceRoutes[44].back().levels = {{0.5F}, true};
  EXPECT_EQ(graph.levels(node).mute, true);
  EXPECT_EQ(graph.levels(node).channelVolumes, std::vector<float>{0.5F});

  AudioNode& sink = addNode(graph, 41, "speakers", "Audio/Sink",
                            {{"device.id", "44"}, {"card.profile.device", "1"}});
  EXPECT_EQ(graph.levels(sink).channelVolumes, std::vector<float>{0.0F});
}

TEST(AudioGraph, ActiveInputIsTheRouteOfTheNodesOwnPort) {
  AudioGraph graph;
  AudioNode& node = addNode(graph, 50, "mic", "Audio/Source",
                            {{"device.id", "44"}, {"card.profile.device", "1"}});
  EXPECT_EQ(graph.activeInput(node), std::nullopt);
  graph.deviceRoutes[44] = {{0, false, 1, "Headphones"}, {1, true, 2, "Line in"}};
  EXPECT_EQ(graph.activeInput(node), std::nullopt);
  graph.deviceRoutes[44].push_back({2, true, 1, "Internal microphone"});
  EXPECT_EQ(graph.activeInput(node), "Internal microphone");
}

TEST(AudioGraph, MakerMayBeKnownToTheDeviceOnly) {
  AudioGraph graph;
  AudioNode& node = addNode(graph, 50, "mic", "Audio/Source", {{"device.id", "44"}});
  EXPECT_EQ(graph.manufacturer(node), "");
  graph.devices[44] = {{"device.vendor.name", "Maker"}, {"device.bus", "bluetooth"}};
  EXPECT_EQ(graph.manufacturer(node), "Maker");
  graph.devices[44]["device.bus"] = "pci";
  EXPECT_EQ(graph.manufacturer(node), platform::kBuiltInManufacturer);
}

TEST(AudioGraph, DisplayNameFallsBackToTheNickAndTheName) {
  AudioNode node;
  node.name = "alsa_input.x";
  EXPECT_EQ(AudioGraph::displayName(node), "alsa_input.x");
  node.properties["node.nick"] = "Nick";
  EXPECT_EQ(AudioGraph::displayName(node), "Nick");
  node.properties["node.description"] = "Description";
  EXPECT_EQ(AudioGraph::displayName(node), "Description");
}

TEST(DefaultMetadata, NamesSurviveJson) {
  for (const std::string name : {"sink", "a \"quoted\" \\ name", "tab\tand umlaut \xc3\xa4", ""}) {
    EXPECT_EQ(nameInDefault(defaultWithName(name)), name);
  }
  EXPECT_EQ(nameInDefault(R"({"other": {"name": 1}, "name":"x"})"), "x");
  EXPECT_EQ(nameInDefault("{}"), std::nullopt);
  EXPECT_EQ(nameInDefault(""), std::nullopt);
  EXPECT_EQ(nameInDefault("[1, 2"), std::nullopt);
  EXPECT_EQ(nameInDefault(R"({"name": 5})"), std::nullopt);
}

}  // namespace
}  // namespace linux_host
