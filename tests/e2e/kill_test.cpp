#include <cmath>
#include <random>

#include "tests/e2e/decoded_sound.h"
#include "tests/e2e/tool_fixture.h"

// A program that is killed loses at most the last second.

namespace e2e {
namespace {

class KillTest : public ToolFixture, public testing::WithParamInterface<int> {};

TEST_P(KillTest, FileOfAKilledProgramPlaysToWithinASecondOfTheKill) {
  constexpr int kKills = 10;
  writeSettings({{"SoundFormat", GetParam()}});
  plugInMicrophone();
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> moment_s(0.0, 3.0);
  for (int i = 0; i < kKills; ++i) {
    const auto tool = startRecording();
    const auto recording = Clock::now();
    const std::string file = status()["outputFile"];
    waitSeconds(moment_s(random));
    const double recorded_s = secondsBetween(recording, Clock::now());
    tool->kill();
    const DecodedSound sound = decodeSound(file, server.directory());
    if (recorded_s > 1.0) {
      EXPECT_EQ(sound.error, "") << recorded_s;
    }
    EXPECT_GE(sound.duration_s(), recorded_s - 1.0);
  }
  // None of the dead is in the way of the next.
  const auto tool = startRecording();
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  EXPECT_EQ(decodeSound(onlyFileIn(musicFolder()), server.directory()).error, "");
  EXPECT_TRUE(endsAtOnce(*tool));
}

INSTANTIATE_TEST_SUITE_P(Formats, KillTest, testing::Values(kM4a, kMp3),
                         [](const auto& format) { return extensionOf(format.param); });

}  // namespace
}  // namespace e2e
