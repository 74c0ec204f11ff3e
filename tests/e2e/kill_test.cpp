// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <set>

#include "tests/e2e/birth_time.h"
#include "tests/e2e/decoded_sound.h"
#include "tests/e2e/tool_fixture.h"

// A program that is killed loses at most the last second, and its file is recovered.
//
// RA_KILLS is the number of kills for each format, RA_SEED chooses their moments;
// scripts/measure-crashes sets both.

namespace e2e {
namespace {

using test_support::PrivatePipeWire;
using test_support::waitUntil;

constexpr int kKills = 10;
// With a sanitizer the m4a module alone takes a second to load on a busy machine, and until then
// the file is empty. The promise to the user is measured without one.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double kMostMissing_s = 3.0;
#else
constexpr double kMostMissing_s = 1.0;
#endif
// Starting, recording, killing and decoding, on a busy machine.
constexpr std::chrono::seconds kLongestKill{12};

unsigned numberFrom(const char* variable, unsigned otherwise) {
  const char* text = std::getenv(variable);
  return text == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

unsigned killCount() {
  return numberFrom("RA_KILLS", kKills);
}

PrivatePipeWire::Options patientServers() {
  PrivatePipeWire::Options options;
  options.watchdog = std::chrono::seconds(60) + killCount() * kLongestKill;
  return options;
}

// One killed recording, and how much its file contained at that moment.
struct Kill {
  double recorded_s;  // from the file's birth to the kill
  double played_s;
  std::string error;  // of the player
  [[nodiscard]] double missing_s() const { return recorded_s - played_s; }
  [[nodiscard]] bool hasSound() const { return played_s > 0; }
};

class KillTest : public ToolFixture, public testing::WithParamInterface<int> {
 protected:
  KillTest() : ToolFixture(patientServers()) {}

  // The path of a new recording.
  std::string nextTemporaryFile() {
    std::string found;
    EXPECT_TRUE(waitUntil(
        [&] {
          for (const std::string& file : filesIn(temporaryFolder())) {
            if (seen_.insert(file).second) found = file;
          }
          return !found.empty();
        },
        kStepLimit));
    return found;
  }

  Kill killAfter(double moment_s) {
    const auto tool = start();
    const std::string file = nextTemporaryFile();
    const auto birth = birthOf(file).value_or(WallClock::now());
    waitSeconds(moment_s);
    const auto end = WallClock::now();
    tool->kill();
    const DecodedSound sound = std::filesystem::file_size(file) > 0
                                   ? decodeSound(file, server.directory())
                                   : DecodedSound();
    return {std::chrono::duration<double>(end - birth).count(), sound.duration_s(), sound.error};
  }

  void print(const std::vector<Kill>& kills) const {
    std::vector<double> missing_s;
    for (const Kill& kill : kills) missing_s.push_back(kill.missing_s());
    std::ranges::sort(missing_s);
    const auto playing = std::ranges::count_if(kills, &Kill::hasSound);
    double latestWithout_s = 0;
    for (const Kill& kill : kills) {
      if (!kill.hasSound()) latestWithout_s = std::max(latestWithout_s, kill.recorded_s);
    }
    std::printf("%s: %zu kills, %td files play, %td held no sound yet (the latest after %.2f s)\n",
                extensionOf(GetParam()).c_str(), kills.size(), playing,
                static_cast<std::ptrdiff_t>(kills.size()) - playing, latestWithout_s);
    std::printf("%s: missing at the end: min %.3f s, median %.3f s, max %.3f s\n",
                extensionOf(GetParam()).c_str(), missing_s.front(), missing_s[missing_s.size() / 2],
                missing_s.back());
  }

  // Every recording of the output folder, decoded.
  std::vector<DecodedSound> saved() const {
    std::vector<DecodedSound> sounds;
    for (const std::string& file : filesIn(musicFolder())) {
      sounds.push_back(decodeSound(file, server.directory()));
      EXPECT_EQ(sounds.back().error, "") << file;
    }
    return sounds;
  }

 private:
  std::set<std::string> seen_;
};

TEST_P(KillTest, FilesOfKilledProgramsPlayToWithinASecondOfTheKillAndComeBack) {
  writeSettings({{"SoundFormat", GetParam()}});
  plugInMicrophone();
  const unsigned seed = numberFrom("RA_SEED", std::random_device{}());
  std::printf("%s: seed %u\n", extensionOf(GetParam()).c_str(), seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> moment_s(0.0, 3.0);
  std::vector<Kill> kills;
  double played_s = 0;
  for (unsigned i = 0; i < killCount(); ++i) {
    kills.push_back(killAfter(moment_s(random)));
    const Kill& kill = kills.back();
    if (kill.hasSound()) {
      EXPECT_EQ(kill.error, "") << "after " << kill.recorded_s << " s";
    }
    EXPECT_LE(kill.missing_s(), kMostMissing_s) << "after " << kill.recorded_s << " s";
    played_s += kill.played_s;
  }
  print(kills);

  // Each start recovered what it had time for. The last ones, and those whose recovery was killed,
  // are left.
  const std::size_t early = filesIn(musicFolder()).size();
  const FinishedCommand recovery = run({"--recover"});
  EXPECT_EQ(recovery.exitStatus, 0) << recovery.errors;
  const std::vector<DecodedSound> sounds = saved();
  const auto withSound = static_cast<std::size_t>(std::ranges::count_if(kills, &Kill::hasSound));
  double recovered_s = 0;
  for (const DecodedSound& sound : sounds) recovered_s += sound.duration_s();
  std::printf("%s: came back: %zu at the next start, %zu by --recover; %.2f s of %.2f s\n",
              extensionOf(GetParam()).c_str(), early, sounds.size() - early, recovered_s, played_s);
  EXPECT_EQ(sounds.size(), withSound);
  constexpr double kPacketAndPriming_s = 0.1;
  EXPECT_NEAR(recovered_s, played_s, kPacketAndPriming_s * static_cast<double>(kills.size()));

  // The killed ones must not disturb the next.
  const auto tool = startRecording();
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  EXPECT_EQ(saved().size(), withSound + 1);
  EXPECT_TRUE(endsAtOnce(*tool));
}

INSTANTIATE_TEST_SUITE_P(Formats, KillTest, testing::Values(kM4a, kMp3),
                         [](const auto& format) { return extensionOf(format.param); });

}  // namespace
}  // namespace e2e
