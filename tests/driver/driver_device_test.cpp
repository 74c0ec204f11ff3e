// SPDX-License-Identifier: MIT
// What the device is, and when it is there.

#include <csignal>

#include "driver/installed_paths.h"
#include "tests/driver/driver_fixture.h"

namespace driver_test {
namespace {

using test_support::waitUntil;

TEST_F(DriverTest, IsStartedByTheDaemonAndHidesItsDevice) {
  EXPECT_TRUE(driverPid());
  EXPECT_TRUE(deviceIsHidden());
}

TEST_F(DriverTest, AnnouncesItsVersion) {
  EXPECT_NE(outputOf("pw-dump").find(std::string("\"com.vantrel.loopback.driver\": \"") +
                                     loopback::kDriverVersion + '"'),
            std::string::npos);
}

TEST_F(DriverTest, ShowsTheDeviceOnRequestAndHidesItAgain) {
  const auto asker = startAsker();
  const std::string device = dumpOfDevice();
  for (const char* property :
       {R"("node.name": "com.vantrel.loopbackdevice")",
        R"x("node.description": "Computer (loopback)")x", R"("media.class": "Audio/Sink")",
        R"("device.vendor.name": "1.0.3")", R"("monitor.channel-volumes": false)"}) {
    EXPECT_NE(device.find(property), std::string::npos) << property << " in " << device;
  }
  asker->sendSignal(SIGUSR1);
  EXPECT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
  asker->sendSignal(SIGUSR2);
  EXPECT_TRUE(waitUntil([this] { return deviceIsShown(); }));
}

TEST_F(DriverTest, NoMixerListsTheHiddenDevice) {
  const auto isListed = [](const std::string& command, const std::string& text) {
    return outputOf(command).find(text) != std::string::npos;
  };
  const std::string name = R"("node.name": "com.vantrel.loopbackdevice")";
  auto asker = startAsker();
  EXPECT_TRUE(waitUntil([&] { return isListed("wpctl status", "loopback)"); }));
  EXPECT_TRUE(isListed("pw-dump", name));
  asker.reset();
  ASSERT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
  EXPECT_FALSE(isListed("wpctl status", "loopback)"));
  EXPECT_FALSE(isListed("pw-dump", name));
}

TEST_F(DriverTest, StaysShownWhileOneOfTwoAsks) {
  auto first = startAsker();
  auto second = startAsker();
  ASSERT_TRUE(waitUntil([this] { return requestsOf(loopback::kLoopbackRequestShowText) == 2; }));
  const auto id = control().nodeId(loopback::kLoopbackDeviceUID);
  first->kill();
  control().synchronize();
  // The daemon has removed the client; by now a driver that hides the device would have begun to.
  ASSERT_TRUE(waitUntil([this] { return requestsOf(loopback::kLoopbackRequestShowText) == 1; }));
  control().synchronize();
  ASSERT_TRUE(deviceIsShown());
  EXPECT_EQ(control().nodeId(loopback::kLoopbackDeviceUID), id);
  second->kill();
  EXPECT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
}

TEST_F(DriverTest, ARemovedDeviceStaysAwayUntilItIsRequestedAgain) {
  const auto asker = startAsker();
  makeLoopbackTheDefault();
  outputOf("pw-cli destroy " + std::to_string(control().nodeId(loopback::kLoopbackDeviceUID)));
  EXPECT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
  EXPECT_TRUE(waitForConfiguredDefault(""));
  EXPECT_TRUE(waitForUsedDefault(kHeadphones));
  takeBack(*asker);
  askAgain(*asker);
}

struct Layout {
  const char* position;
  const char* channels;
};

class DriverLayoutTest : public DriverTest, public testing::WithParamInterface<Layout> {};

TEST_P(DriverLayoutTest, TheDeviceHasTheChannelsOfTheOutputItStandsInFor) {
  control().createSink(
      "output", {{"audio.position", GetParam().position}, {"audio.channels", GetParam().channels}});
  control().setDefaultSink("output");
  const auto asker = startAsker();
  std::string channels;
  EXPECT_TRUE(waitUntil([&] {
    std::map<int, std::string> ports;
    const std::string device = std::to_string(control().nodeId(loopback::kLoopbackDeviceUID));
    for (auto& port : control().objects("Port")) {
      if (port["node.id"] != device || port["port.direction"] != "in") continue;
      ports[std::stoi(port["port.id"])] = port["audio.channel"];
    }
    channels.clear();
    for (const auto& [id, channel] : ports) channels += (channels.empty() ? "" : ",") + channel;
    return channels == GetParam().position;
  })) << channels;
}

INSTANTIATE_TEST_SUITE_P(Outputs, DriverLayoutTest,
                         testing::Values(Layout{"MONO", "1"}, Layout{"FL,FR", "2"},
                                         Layout{"FL,FR,FC,LFE,RL,RR", "6"},
                                         Layout{"FL,FR,FC,LFE,RL,RR,SL,SR", "8"}),
                         [](const auto& layout) {
                           return std::string("Of") + layout.param.channels;
                         });

}  // namespace
}  // namespace driver_test
