// SPDX-License-Identifier: MIT
#include "hosts/linux/m4a/aac_channels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <set>

namespace linux_host {
namespace {

using enum Speaker;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Speakers = std::vector<Speaker>;

// The file's speaker for each channel of the source that has one.
Speakers placesOf(const Speakers& source) {
  const AacChannels channels = aacChannelsFor(source);
  Speakers places(source.size(), kNowhere);
  for (const AacRoute& route : channels.routes) {
    places.at(route.from) = channels.layout.at(route.to);
  }
  return places;
}

TEST(AacChannels, PositionsOfALayoutAreKeptInAnyOrder) {
  const std::vector<Speakers> sets{
      {kFrontLeft, kFrontRight},
      {kFrontLeft, kFrontRight, kLowFrequency},
      {kFrontLeft, kFrontRight, kFrontCenter, kBackCenter},
      {kFrontLeft, kFrontRight, kBackLeft, kBackRight},
      {kFrontLeft, kFrontRight, kFrontCenter, kBackLeft, kBackRight},
      {kFrontLeft, kFrontRight, kFrontCenter, kLowFrequency, kBackLeft, kBackRight},
      {kFrontLeft, kFrontRight, kFrontCenter, kLowFrequency, kBackLeft, kBackRight, kSideLeft,
       kSideRight}};
  std::mt19937 random(1);
  for (const Speakers& set : sets) {
    Speakers shuffled = set;
    for (int round = 0; round < 20; ++round) {
      EXPECT_EQ(aacChannelsFor(shuffled).layout, set);
      EXPECT_EQ(placesOf(shuffled), shuffled);
      EXPECT_THAT(aacChannelsFor(shuffled).remark, IsEmpty());
      std::ranges::shuffle(shuffled, random);
    }
  }
}

TEST(AacChannels, OneChannelIsMonoWhateverItIsCalled) {
  for (const Speaker speaker : {kFrontCenter, kFrontLeft, kLowFrequency, kNowhere}) {
    const Speakers source{speaker};
    EXPECT_EQ(placesOf(source), Speakers{kFrontCenter});
  }
}

TEST(AacChannels, SidesWithoutABackCountAsTheBack) {
  const Speakers source{kFrontLeft,    kFrontRight, kFrontCenter,
                        kLowFrequency, kSideLeft,   kSideRight};
  EXPECT_THAT(placesOf(source), ElementsAre(kFrontLeft, kFrontRight, kFrontCenter, kLowFrequency,
                                            kBackLeft, kBackRight));
  EXPECT_THAT(aacChannelsFor(source).remark, IsEmpty());
}

TEST(AacChannels, SetBetweenTwoLayoutsKeepsItsPositionsInTheLargerOne) {
  const Speakers source{kFrontLeft, kFrontRight, kBackLeft, kBackRight, kLowFrequency};
  EXPECT_EQ(placesOf(source), source);
  EXPECT_EQ(aacChannelsFor(source).layout.size(), 6U);
  const Speakers seven{kFrontLeft, kFrontRight, kFrontCenter, kBackLeft,
                       kBackRight, kSideLeft,   kSideRight};
  EXPECT_EQ(placesOf(seven), seven);
}

TEST(AacChannels, AChannelWithoutAPlaceTakesAFreeOneAndIsReported) {
  const Speakers source{kFrontLeft, kFrontRight,    kFrontCenter,    kLowFrequency,
                        kBackLeft,  kElsewhereLeft, kElsewhereRight, kBackRight};
  EXPECT_THAT(placesOf(source), ElementsAre(kFrontLeft, kFrontRight, kFrontCenter, kLowFrequency,
                                            kBackLeft, kSideLeft, kSideRight, kBackRight));
  EXPECT_THAT(aacChannelsFor(source).remark,
              AllOf(HasSubstr("channel 6 is side left, channel 7 is side right.")));
  EXPECT_THAT(
      aacChannelsFor(Speakers(6, kNowhere)).remark,
      AllOf(HasSubstr("channel 4 is back left"), HasSubstr("of its 8 channels are silent")));
}

TEST(AacChannels, MoreThanEightAreMixedByTheirSide) {
  Speakers source(9, kNowhere);
  source[1] = kBackLeft;
  source[2] = kElsewhereRight;
  const AacChannels channels = aacChannelsFor(source);
  EXPECT_THAT(channels.layout, ElementsAre(kFrontLeft, kFrontRight));
  std::vector<float> left(source.size());
  std::vector<float> right(source.size());
  for (const AacRoute& route : channels.routes)
    (route.to == 0 ? left : right)[route.from] = route.gain;
  EXPECT_FLOAT_EQ(left[1], 1);
  EXPECT_FLOAT_EQ(right[1], 0);
  EXPECT_FLOAT_EQ(left[2], 0);
  EXPECT_FLOAT_EQ(right[2], 1);
  EXPECT_FLOAT_EQ(left[0] * left[0] + right[0] * right[0], 1);
  EXPECT_THAT(channels.remark, HasSubstr("9 channels"));
}

// Whatever a device calls its channels: none is lost, none shares a place, and only the LFE channel
// goes to LFE.
TEST(AacChannels, NoChannelIsEverLostOrMuted) {
  std::mt19937 random(2);
  std::uniform_int_distribution<int> anySpeaker(0, static_cast<int>(kNowhere));
  for (int round = 0; round < 20000; ++round) {
    Speakers source(1 + static_cast<std::size_t>(round) % 12);
    for (Speaker& speaker : source) speaker = static_cast<Speaker>(anySpeaker(random));
    const AacChannels channels = aacChannelsFor(source);
    std::set<std::uint32_t> heard;
    std::set<std::uint32_t> used;
    for (const AacRoute& route : channels.routes) {
      heard.insert(route.from);
      used.insert(route.to);
      if (channels.layout.at(route.to) == kLowFrequency) {
        EXPECT_EQ(source.at(route.from), kLowFrequency);
      }
    }
    EXPECT_EQ(heard.size(), source.size());
    if (source.size() <= 8) {
      EXPECT_EQ(used.size(), source.size());
      EXPECT_EQ(channels.routes.size(), source.size());
    }
  }
}

TEST(AacRates, NearestIsTaken) {
  EXPECT_EQ(nearestAacRate_hz(44100), 44100U);
  EXPECT_EQ(nearestAacRate_hz(192000), 96000U);
  EXPECT_EQ(nearestAacRate_hz(37800), 32000U);
  EXPECT_EQ(nearestAacRate_hz(47000), 48000U);
  EXPECT_EQ(nearestAacRate_hz(1), 7350U);
}

}  // namespace
}  // namespace linux_host
