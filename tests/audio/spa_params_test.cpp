// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/spa_params.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spa/param/audio/raw.h>
#include <spa/param/format.h>
#include <spa/param/props.h>
#include <spa/param/route.h>
#include <spa/pod/builder.h>

#include <array>

namespace linux_host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SpaParamsTest : public testing::Test {
 protected:
  SpaParamsTest() { spa_pod_builder_init(&builder, memory.data(), memory.size()); }

  // A raw audio format; `addPosition` adds the value of its positions.
  template <typename AddPosition>
  const spa_pod* rawFormat(const AddPosition& addPosition) {
    spa_pod_frame frame{};
    spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_prop(&builder, SPA_FORMAT_mediaType, 0);
    spa_pod_builder_id(&builder, SPA_MEDIA_TYPE_audio);
    spa_pod_builder_prop(&builder, SPA_FORMAT_mediaSubtype, 0);
    spa_pod_builder_id(&builder, SPA_MEDIA_SUBTYPE_raw);
    spa_pod_builder_prop(&builder, SPA_FORMAT_AUDIO_channels, 0);
    spa_pod_builder_int(&builder, 3);
    spa_pod_builder_prop(&builder, SPA_FORMAT_AUDIO_position, 0);
    addPosition();
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
  }
  void addPositions() {
    spa_pod_builder_array(&builder, sizeof(std::uint32_t), SPA_TYPE_Id, kPositions.size(),
                          kPositions.data());
  }

  static constexpr std::array<std::uint32_t, 3> kPositions{
      SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR, SPA_AUDIO_CHANNEL_LFE};
  alignas(8) std::array<std::uint8_t, 1024> memory{};
  spa_pod_builder builder{};
};

TEST_F(SpaParamsTest, PositionsAreRead) {
  const auto format = readFormat(rawFormat([&] { addPositions(); }));
  ASSERT_TRUE(format);
  EXPECT_THAT(format->positions, testing::ElementsAreArray(kPositions));
}

// As in the format of a running stream. Nothing is written to stderr.
TEST_F(SpaParamsTest, PositionsThatAreTheOnlyChoiceAreRead) {
  const spa_pod* pod = rawFormat([&] {
    spa_pod_frame choice{};
    spa_pod_builder_push_choice(&builder, &choice, SPA_CHOICE_None, 0);
    addPositions();
    spa_pod_builder_pop(&builder, &choice);
  });
  testing::internal::CaptureStderr();
  const auto format = readFormat(pod);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  ASSERT_TRUE(format);
  EXPECT_EQ(format->channels, 3U);
  EXPECT_THAT(format->positions, testing::ElementsAreArray(kPositions));
}

TEST_F(SpaParamsTest, PositionsOfAnotherTypeAreIgnored) {
  testing::internal::CaptureStderr();
  const auto format = readFormat(rawFormat([&] { spa_pod_builder_string(&builder, "FL,FR,LFE"); }));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  ASSERT_TRUE(format);
  EXPECT_THAT(format->positions, IsEmpty());
}

TEST_F(SpaParamsTest, VolumesOfAllChannelsAreRead) {
  const std::array<float, 2> volumes{0.25F, 0.5F};
  spa_pod_frame frame{};
  spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Props, SPA_PARAM_Props);
  spa_pod_builder_prop(&builder, SPA_PROP_mute, 0);
  spa_pod_builder_bool(&builder, true);
  spa_pod_builder_prop(&builder, SPA_PROP_channelVolumes, 0);
  spa_pod_builder_array(&builder, sizeof(float), SPA_TYPE_Float, volumes.size(), volumes.data());
  Levels levels;
  readLevels(static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame)), &levels);
  EXPECT_EQ(levels.mute, true);
  EXPECT_THAT(levels.channelVolumes, ElementsAre(0.25F, 0.5F));
}

TEST_F(SpaParamsTest, LevelsOfARouteAreRead) {
  const float volume = 0.125F;
  spa_pod_frame route{};
  spa_pod_builder_push_object(&builder, &route, SPA_TYPE_OBJECT_ParamRoute, SPA_PARAM_Route);
  spa_pod_builder_add(&builder, SPA_PARAM_ROUTE_index, SPA_POD_Int(2), SPA_PARAM_ROUTE_direction,
                      SPA_POD_Id(SPA_DIRECTION_INPUT), SPA_PARAM_ROUTE_device, SPA_POD_Int(4), 0);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_props, 0);
  spa_pod_frame props{};
  spa_pod_builder_push_object(&builder, &props, SPA_TYPE_OBJECT_Props, SPA_PARAM_Route);
  spa_pod_builder_prop(&builder, SPA_PROP_mute, 0);
  spa_pod_builder_bool(&builder, true);
  spa_pod_builder_prop(&builder, SPA_PROP_channelVolumes, 0);
  spa_pod_builder_array(&builder, sizeof(float), SPA_TYPE_Float, 1, &volume);
  spa_pod_builder_pop(&builder, &props);
  const auto read = readRoute(static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &route)));
  ASSERT_TRUE(read);
  EXPECT_TRUE(read->isInput);
  EXPECT_EQ(read->profileDevice, 4);
  EXPECT_EQ(read->levels.mute, true);
  EXPECT_THAT(read->levels.channelVolumes, ElementsAre(0.125F));
}

}  // namespace
}  // namespace linux_host
