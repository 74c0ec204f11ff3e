// SPDX-License-Identifier: MIT
#include "driver/sink_directory.h"

#include <gtest/gtest.h>

namespace {

using Channels = std::vector<std::string>;

const Channels kStereo = {"FL", "FR"};

loopback::SinkDirectory directoryWith(const Channels& channels) {
  loopback::SinkDirectory directory;
  directory.addSink(10, "sink");
  directory.addSink(11, "other");
  directory.addInputPort(90, 11, 0, "MONO");
  std::uint32_t index = 0;
  // The registry reports ports in any order.
  for (const std::string& channel : channels) {
    directory.addInputPort(100 - index, 10, index, channel);
    ++index;
  }
  return directory;
}

TEST(SinkDirectory, StandsInWithTheSinksOwnChannelsInTheirOrder) {
  for (const Channels& channels :
       {Channels{"MONO"}, kStereo, Channels{"FL", "FR", "FC", "LFE", "RL", "RR"},
        Channels{"FL", "FR", "FC", "LFE", "RL", "RR", "SL", "SR"}}) {
    EXPECT_EQ(directoryWith(channels).channelsFor("sink"), channels);
  }
}

TEST(SinkDirectory, AnythingUnusualIsStereo) {
  EXPECT_EQ(directoryWith({}).channelsFor("sink"), kStereo);
  EXPECT_EQ(directoryWith({"AUX0", "AUX1", "AUX2"}).channelsFor("sink"), kStereo);
  EXPECT_EQ(directoryWith({"FL", "FL"}).channelsFor("sink"), kStereo);
  EXPECT_EQ(
      directoryWith({"FL", "FR", "FC", "LFE", "RL", "RR", "SL", "SR", "RC"}).channelsFor("sink"),
      kStereo);
  EXPECT_EQ(directoryWith({"MONO"}).channelsFor("unknown"), kStereo);
  EXPECT_EQ(directoryWith({"MONO"}).channelsFor(""), kStereo);
}

TEST(SinkDirectory, KnowsWhichSinksArePlayedTo) {
  loopback::SinkDirectory directory;
  EXPECT_FALSE(directory.isPlayedTo(10));
  directory.addLink(50, 10);
  directory.addLink(51, 10);
  EXPECT_TRUE(directory.isPlayedTo(10));
  EXPECT_FALSE(directory.isPlayedTo(11));
  directory.remove(50);
  EXPECT_TRUE(directory.isPlayedTo(10));
  directory.remove(51);
  EXPECT_FALSE(directory.isPlayedTo(10));
}

TEST(SinkDirectory, ForgetsWhatIsRemoved) {
  auto directory = directoryWith({"MONO"});
  EXPECT_EQ(directory.sinkName(10), "sink");
  directory.remove(10);
  EXPECT_EQ(directory.sinkName(10), "");
  EXPECT_EQ(directory.channelsFor("sink"), kStereo);
}

TEST(SinkDirectory, ForgetsAPortThatIsRemoved) {
  auto directory = directoryWith({"FL", "FR", "FC"});
  directory.remove(98);
  EXPECT_EQ(directory.channelsFor("sink"), kStereo);
  directory.remove(99);
  EXPECT_EQ(directory.channelsFor("sink"), Channels{"FL"});
}

}  // namespace
