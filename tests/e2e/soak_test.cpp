// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <vector>

#include "tests/e2e/birth_time.h"
#include "tests/e2e/decoded_sound.h"
#include "tests/e2e/tool_fixture.h"
#include "tests/support/machine_pauses.h"
#include "tests/support/tone_figures.h"

// A long recording in real time: it uses no more memory at its end than soon after its start, loses
// nothing, and is as long as the clock says.
//
// RA_SOAK_SECONDS is its length; scripts/soak sets it to ten minutes.

namespace e2e {
namespace {

using test_support::ToneFigures;

constexpr double kUsualLength_s = 6;
// By then everything loaded in the background has been loaded.
constexpr double kWarmUpShare = 0.1;
// The packet positions that an m4a keeps until its end take a quarter of this in ten minutes.
constexpr long kMostGrowth_kB = 512;
// The ring between the microphone and the writer gets its memory during its first lap.
constexpr double kRing_s = 10;
constexpr long kRing_kB = 1876;
// No block is a whole number of the tone's periods, so that a lost block bends it.
constexpr double kTone_Hz = 997;
constexpr double kAmplitude = 0.5;
// One buffer of 1024 frames, and two checks of the drain thread.
constexpr double kMostBuffered_s = 0.0214 + 0.020;
// Files' time stamps are those of the last tick.
constexpr double kTick_s = 0.010;
// An MP3 stream does not mark the encoder's delay and the padding of its last packets, and lacks
// what waited for the encoder at the stop.
constexpr double kMp3Edges_s = 0.1;
// Between the first buffer and the creation of the file, on a busy machine.
constexpr double kStopReport_s = 0.25;

double soakLength_s() {
  const char* text = std::getenv("RA_SOAK_SECONDS");
  return text == nullptr ? kUsualLength_s : std::strtod(text, nullptr);
}

float tone997Hz(std::uint64_t frame, std::uint32_t) {
  constexpr std::uint64_t kRate_Hz = 48000;
  const auto step = static_cast<double>(frame * static_cast<std::uint64_t>(kTone_Hz) % kRate_Hz);
  return static_cast<float>(kAmplitude * std::sin(2 * M_PI * step / kRate_Hz));
}

test_support::PrivatePipeWire::Options enduringServers() {
  test_support::PrivatePipeWire::Options options;
  options.watchdog = std::chrono::seconds(90 + static_cast<int>(1.5 * soakLength_s()));
  return options;
}

// VmRSS; 0 when the process is gone.
long residentMemory_kB(pid_t pid) {
  constexpr std::string_view kField = "VmRSS:";
  std::ifstream lines("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(kField)) return std::strtol(line.c_str() + kField.size(), nullptr, 10);
  }
  return 0;
}

// The seconds in which the log says that sound was lost.
std::vector<double> loggedLosses_s(const std::string& log) {
  static const std::regex kLoss(R"(Lost .* by second ([0-9.]+);)");
  std::vector<double> losses_s;
  for (std::sregex_iterator at(log.begin(), log.end(), kLoss), end; at != end; ++at) {
    losses_s.push_back(std::stod((*at)[1]));
  }
  return losses_s;
}

// The longest part of the sound without a broken second.
std::vector<float> longestWholePart(const std::vector<float>& sound, double rate_Hz,
                                    const std::vector<std::size_t>& broken_s) {
  std::vector<std::size_t> cuts{0};
  for (const std::size_t second : broken_s) {
    cuts.push_back(static_cast<std::size_t>(static_cast<double>(second) * rate_Hz));
    cuts.push_back(static_cast<std::size_t>(static_cast<double>(second + 1) * rate_Hz));
  }
  cuts.push_back(sound.size());
  std::size_t from = 0;
  std::size_t to = 0;
  for (std::size_t i = 0; i + 1 < cuts.size(); i += 2) {
    if (cuts[i + 1] < cuts[i] + (to - from)) continue;
    from = cuts[i];
    to = cuts[i + 1];
  }
  return {sound.begin() + static_cast<std::ptrdiff_t>(from),
          sound.begin() + static_cast<std::ptrdiff_t>(std::min(to, sound.size()))};
}

class SoakTest : public ToolFixture, public testing::WithParamInterface<int> {
 protected:
  SoakTest() : ToolFixture(enduringServers()) {
    writeSettings({{"SoundFormat", GetParam()}});
    control = std::make_unique<test_support::PipeWireControl>();
    control->createMicrophone("microphone", {{"audio.position", "MONO"}});
    feed = std::make_unique<test_support::SignalFeed>("feed", 1, tone997Hz);
    control->link("feed", "microphone");
    control->setDefaultSource("microphone");
  }
};

TEST_P(SoakTest, MemoryStaysLevelAndTheFileIsAsLongAsTheClockSays) {
  const test_support::MachinePauses pauses;
  const double length_s = soakLength_s();
  const auto tool = startRecording(length_s * kWarmUpShare);
  const auto born = birthOf(status()["outputFile"]);
  if (!born) GTEST_SKIP() << temporaryFolder() << " does not remember when files were made";
  const long before_kB = residentMemory_kB(tool->pid());
  waitSeconds(length_s * (1 - kWarmUpShare));
  const long after_kB = residentMemory_kB(tool->pid());
  ASSERT_EQ(run({"--stop"}).exitStatus, 0);
  const std::string file = onlyFileIn(musicFolder());
  EXPECT_TRUE(endsAtOnce(*tool));

  // The folder last changed when the file got its name there, at the stop.
  const auto stopped = std::filesystem::file_time_type::clock::to_sys(
      std::filesystem::last_write_time(musicFolder()));
  const double clock_s = std::chrono::duration<double>(stopped - *born).count();
  const DecodedSound sound = decodeSound(file, server.directory());
  const bool mp3 = GetParam() == kMp3;
  const double holds_s = mp3 ? sound.duration_s() : sound.containerDuration_s;
  const double edges_s = mp3 ? kMp3Edges_s : 0;
  const std::vector<float> inner = innerPart(sound, 0.15);
  const auto broken_s = test_support::brokenSeconds(
      inner, sound.rate_Hz,
      1.3 * test_support::secondDifferenceOfSine(kTone_Hz, kAmplitude, sound.rate_Hz));
  const ToneFigures figures =
      test_support::measureTone(longestWholePart(inner, sound.rate_Hz, broken_s), sound.rate_Hz);
  const std::vector<double> lost_s = loggedLosses_s(log());
  std::printf(
      "%s: %.3f s by the clock, %.3f s in the file (%+.3f s); memory %ld kB after %.0f s, %ld kB "
      "at the end (%+ld kB); %.4f Hz; %zu losses logged, %zu seconds broken\n",
      extensionOf(GetParam()).c_str(), clock_s, holds_s, holds_s - clock_s, before_kB,
      length_s * kWarmUpShare, after_kB, after_kB - before_kB, figures.frequency_Hz, lost_s.size(),
      broken_s.size());

  EXPECT_EQ(sound.error, "");
  EXPECT_GE(holds_s, clock_s - kMostBuffered_s - kTick_s - edges_s);
  EXPECT_LE(holds_s, clock_s + kMostBuffered_s + kTick_s + edges_s + kStopReport_s);
  // No frame is missing or repeated while the machine keeps up.
  const auto machineStoodStillAbout = [&](double second) {
    const auto at = [&](double s) {
      return *born +
             std::chrono::duration_cast<WallClock::duration>(std::chrono::duration<double>(s));
    };
    return pauses.anyBetween(at(second - 1.5), at(second + 1.5));
  };
  for (const double second : lost_s) EXPECT_TRUE(machineStoodStillAbout(second)) << second << " s";
  for (const std::size_t second : broken_s) {
    EXPECT_TRUE(machineStoodStillAbout(static_cast<double>(second) + 0.65)) << second << " s";
  }
  EXPECT_NEAR(figures.frequency_Hz, kTone_Hz, 0.2);
#if !defined(__SANITIZE_ADDRESS__)  // a sanitizer keeps freed memory
  const bool ringIsThere = length_s * kWarmUpShare > kRing_s;
  EXPECT_LT(after_kB - before_kB, kMostGrowth_kB + (ringIsThere ? 0 : kRing_kB));
#endif
}

INSTANTIATE_TEST_SUITE_P(Formats, SoakTest, testing::Values(kM4a, kMp3),
                         [](const auto& format) { return extensionOf(format.param); });

}  // namespace
}  // namespace e2e
