// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "tests/e2e/decoded_sound.h"
#include "tests/e2e/tool_fixture.h"
#include "tests/support/slow_player.h"

// A recording started right after the end of another. RA_RESTARTS sets how often.

namespace e2e {
namespace {

int restarts() {
  const char* wanted = std::getenv("RA_RESTARTS");
  return wanted == nullptr ? 10 : std::atoi(wanted);
}

test_support::PrivatePipeWire::Options patientServers() {
  test_support::PrivatePipeWire::Options options;
  options.watchdog = std::chrono::seconds(90 + 5 * restarts());
  return options;
}

class RestartTest : public ToolFixture, public testing::WithParamInterface<int> {
 protected:
  RestartTest() : ToolFixture(patientServers()) {
    writeSettings({{"SoundFormat", GetParam()}});
    control = std::make_unique<test_support::PipeWireControl>();
    control->createMicrophone("microphone", {{"audio.position", "MONO"}});
    control->setDefaultSource("microphone");
    player_ =
        std::make_unique<test_support::SlowPlayer>(server.directory(), *control, "microphone");
  }

  // Stops and starts repeatedly, with pauses that grow to `longest_s`: no file may be silent.
  void expectSoundInEveryFile(double longest_s) {
    const auto tool = startRecording(0.5);
    for (int round = 0; round < restarts(); ++round) {
      const FinishedCommand stop = run({"--stop"});
      ASSERT_EQ(stop.exitStatus, 0) << stop.errors;
      waitSeconds(longest_s * round / restarts());
      EXPECT_EQ(run({}).exitStatus, 0);
      expectSound(stop.output.substr(0, stop.output.find('\n')), round);
      ASSERT_TRUE(waitForState("recording")) << round;
      waitSeconds(0.5);
    }
    EXPECT_TRUE(endsAtOnce(*tool));
  }

 private:
  void expectSound(const std::string& file, int round) {
    const DecodedSound sound = decodeSound(file, server.directory());
    EXPECT_EQ(sound.error, "") << file;
    ASSERT_FALSE(sound.samples.empty());
    const auto loud = std::count_if(sound.samples[0].begin(), sound.samples[0].end(),
                                    [](float s) { return std::abs(s) > 0.01F; });
    EXPECT_GT(loud, sound.rate_Hz / 10) << "recording " << round << " is silent";
    std::filesystem::remove(file);
  }

  std::unique_ptr<test_support::SlowPlayer> player_;
};

TEST_P(RestartTest, NoRecordingThatFollowsAtOnceIsSilent) {
  expectSoundInEveryFile(0.0);
}

TEST_P(RestartTest, NoRecordingThatFollowsSoonIsSilent) {
  expectSoundInEveryFile(0.1);
}

INSTANTIATE_TEST_SUITE_P(Formats, RestartTest, testing::Values(kM4a, kMp3),
                         [](const auto& format) { return extensionOf(format.param); });

}  // namespace
}  // namespace e2e
