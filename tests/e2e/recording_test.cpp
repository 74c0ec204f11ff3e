// SPDX-License-Identifier: MIT
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <regex>
#include <set>
#include <sstream>

#include "tests/e2e/decoded_sound.h"
#include "tests/e2e/desktop_client.h"
#include "tests/e2e/tool_fixture.h"
#include "tests/support/tone_figures.h"

// The main job from outside: a click, a second click, and the file in the folder.

namespace e2e {
namespace {

using namespace std::chrono_literals;
using test_support::ToneFigures;
using test_support::waitUntil;
using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Eq;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;
using testing::Not;

struct Sound {
  const char* name;
  int format;
  const char* positions;
  const char* rate_Hz;
  int channels;  // of the file
};

constexpr Sound kSounds[] = {
    {"M4aStereo", kM4a, "FL,FR", "48000", 2},
    {"M4aMono", kM4a, "MONO", "48000", 1},
    {"M4aStereo44100Hz", kM4a, "FL,FR", "44100", 2},
    {"Mp3Stereo", kMp3, "FL,FR", "48000", 2},
    {"Mp3Mono", kMp3, "MONO", "48000", 1},
    {"Mp3Stereo44100Hz", kMp3, "FL,FR", "44100", 2},
};

// A buffer of 1024 frames at 44.1 kHz, and the 10 ms between the tool's checks for new ones.
constexpr double kBuffer_s = 0.024 + 0.010;
// The last packet of an m4a is filled up; the container says where the sound ends.
constexpr double kAacPacket_frames = 1024;
// An MP3 stream does not mark the encoder's delay (1105 samples) and the padding of its last
// packets, which a player plays; at the stop the tool drops what waits for the encoder.
constexpr double kMp3Delay_s = 0.1;
constexpr double kMp3Dropped_s = 0.1;
// The time between the first buffer and its report, on a busy machine.
constexpr double kReport_s = 0.25;

test_support::PrivatePipeWire::Options bothRates() {
  test_support::PrivatePipeWire::Options options;
  options.pipewireDropIns = {
      {"rates.conf", "context.properties = { default.clock.allowed-rates = [ 44100 48000 ] }\n"}};
  return options;
}

class RecordingTest : public ToolFixture, public testing::WithParamInterface<Sound> {
 protected:
  RecordingTest() : ToolFixture(bothRates()) {}

  void plugIn() {
    plugInMicrophone(
        {{"audio.position", GetParam().positions}, {"audio.rate", GetParam().rate_Hz}});
  }

  // Where the tone is silent for more than two of its periods. In an MP3 a single cycle without the
  // tone measures as a hundred Hertz too many, because the codec's residue in the gap crosses zero
  // far more often. If the log reports no loss, the feed did not play in time.
  static std::string gapsIn(const std::vector<float>& samples, int rate_Hz) {
    std::string gaps;
    std::size_t silent = 0;
    for (std::size_t i = 0; i <= samples.size(); ++i) {
      if (i < samples.size() && std::abs(samples[i]) < 0.02F) {
        ++silent;
        continue;
      }
      if (silent * 500 > static_cast<std::size_t>(rate_Hz)) {
        gaps += " a gap of " + std::to_string(silent * 1000 / static_cast<std::size_t>(rate_Hz)) +
                " ms before second " + std::to_string(static_cast<double>(i) / rate_Hz) + ";";
      }
      silent = 0;
    }
    return gaps.empty() ? "no gap" : gaps;
  }

  // Expects the tone from its first to its last sample, except for the codec's edges.
  static void expectTheTone(const DecodedSound& sound) {
    const std::vector<float> inner = innerPart(sound, 0.15);
    SCOPED_TRACE(gapsIn(inner, sound.rate_Hz));
    const ToneFigures figures = test_support::measureTone(inner, sound.rate_Hz);
    EXPECT_NEAR(figures.frequency_Hz, 1000, 0.2);
    EXPECT_NEAR(figures.amplitude, 0.5, 0.01);
    EXPECT_LT(figures.largestSecondDifference,
              1.3 * test_support::secondDifferenceOfSine(1000, 0.5, sound.rate_Hz));
  }

  // Title and date are in the name, too.
  void expectLabels(const DecodedSound& sound, const std::string& path, int format) const {
    if (format == kMp3) {
      EXPECT_THAT(sound.tags, IsEmpty());
      return;
    }
    const std::string name = std::filesystem::path(path).stem();
    const auto tag = [&](const char* key) {
      const auto found = sound.tags.find(key);
      return found == sound.tags.end() ? std::string() : found->second;
    };
    EXPECT_EQ(tag("title"), name);
    const auto day = tag("date").substr(0, std::string_view("2026-11-20").size());
    EXPECT_FALSE(day.empty());
    EXPECT_THAT(name, HasSubstr(" " + day + " "));
    // As most desktops' players read them.
    const FinishedCommand player = runToEnd(
        {"gst-launch-1.0", "-t", "filesrc", "location=" + path, "!", "decodebin", "!", "fakesink"},
        {"LC_ALL=C.UTF-8"}, server.directory());
    EXPECT_THAT(player.output, HasSubstr(" title: " + name + "\n"));
    EXPECT_THAT(player.output, HasSubstr(" date: " + day + "\n"));
  }
};

TEST_P(RecordingTest, TwoClicksMakeAFileThatHoldsTheSoundBetweenThem) {
  const Sound& expected = GetParam();
  writeSettings({{"SoundFormat", expected.format}});
  plugIn();
  DesktopClient desktop(server.busAddress());

  const auto started = Clock::now();
  const auto tool = start();
  auto notYetRecording = started;
  Json status;
  ASSERT_TRUE(waitUntil(
      [&] {
        const auto asked = Clock::now();
        status = desktop.status();
        const bool recording = status.is_object() && status["state"] == "recording";
        if (!recording) notYetRecording = asked;
        return recording;
      },
      kStepLimit));
  const auto recording = Clock::now();
  EXPECT_EQ(status["source"], "default");
  EXPECT_EQ(status["format"], extensionOf(expected.format));
  EXPECT_TRUE(status["elapsedSeconds"].is_number_integer());
  const std::string growing = status["outputFile"];
  EXPECT_THAT(growing, testing::StartsWith(temporaryFolder() + "/Audio_recording_"));

  // As a script sees it in --status.
  ASSERT_TRUE(
      waitUntil([&] { return this->status().value("elapsedSeconds", 0) >= 2; }, kStepLimit));

  const auto clicked = Clock::now();
  EXPECT_EQ(run({}).exitStatus, 0);
  ASSERT_TRUE(waitUntil([&] { return desktop.status().value("state", "") == "idle"; }, kStepLimit));
  const auto stopped = Clock::now();
  EXPECT_EQ(desktop.status()["outputFile"], onlyFileIn(musicFolder()));
  EXPECT_TRUE(endsAtOnce(*tool));

  EXPECT_THAT(filesIn(temporaryFolder()), IsEmpty());
  const DecodedSound sound = decodeSound(onlyFileIn(musicFolder()), server.directory());
  EXPECT_EQ(sound.error, "");
  EXPECT_THAT(sound.codec, expected.format == kM4a ? "aac" : "mp3");
  EXPECT_EQ(sound.channels, expected.channels);
  EXPECT_EQ(sound.rate_Hz, std::stoi(expected.rate_Hz));
  expectTheTone(sound);
  expectLabels(sound, onlyFileIn(musicFolder()), expected.format);

  // Nothing between the report and the click is missing, and nothing is extra.
  const bool mp3 = expected.format == kMp3;
  const double holds_s = mp3 ? sound.duration_s() : sound.containerDuration_s;
  EXPECT_GE(holds_s, secondsBetween(recording, clicked) - kBuffer_s - (mp3 ? kMp3Dropped_s : 0));
  EXPECT_LE(holds_s, secondsBetween(notYetRecording, stopped) + kBuffer_s + kReport_s +
                         (mp3 ? kMp3Delay_s : 0));
  if (!mp3) {
    EXPECT_LE(sound.containerDuration_s, sound.duration_s() + 0.001);
    EXPECT_LT(sound.duration_s() - sound.containerDuration_s, kAacPacket_frames / sound.rate_Hz);
  }

  EXPECT_THAT(eventNames(), ElementsAre("Launch", "Start", "Stop", "Quit"));
  const double duration_s = events()[2]["details"]["Duration"].get<double>() / 1000;
  EXPECT_GE(duration_s, secondsBetween(recording, clicked) - 0.002);
  EXPECT_LE(duration_s, secondsBetween(started, stopped) + 0.002);
}

INSTANTIATE_TEST_SUITE_P(Sounds, RecordingTest, testing::ValuesIn(kSounds),
                         [](const auto& sound) { return sound.param.name; });

class ChangingRateTest : public ToolFixture, public testing::WithParamInterface<int> {
 protected:
  ChangingRateTest() : ToolFixture(bothRates()) {}
};

// The stream keeps the graph's rate at its start; the encoder is set up when the first samples
// arrive. The session manager, which links the two, is held until the rate has changed in between.
TEST_P(ChangingRateTest, ToneKeepsItsPitchWhenTheRateChangesWhileTheStreamStarts) {
  writeSettings({{"SoundFormat", GetParam()}});
  plugInMicrophone();
  feed = std::make_unique<test_support::SignalFeed>(
      "feed of the later rate", 2, [](std::uint64_t frame, std::uint32_t) {
        const double phase = 2 * std::numbers::pi * 1000 * static_cast<double>(frame) / 44100;
        return static_cast<float>(0.5 * std::sin(phase));
      });
  control->link(feed->nodeName(), "microphone");
  const auto tool = startRecording();  // it then knows the devices as they are now
  EXPECT_EQ(run({"--cancel"}).exitStatus, 0);
  server.sessionManager().sendSignal(SIGSTOP);
  EXPECT_EQ(run({}).exitStatus, 0);
  ASSERT_TRUE(waitForState("starting"));
  control->setDaemonSetting("clock.force-rate", "44100");
  const std::uint64_t then = feed->framesPlayed();
  ASSERT_TRUE(waitUntil([&] { return feed->framesPlayed() > then + 4410; }, kStepLimit));
  server.sessionManager().sendSignal(SIGCONT);
  ASSERT_TRUE(waitUntil([&] { return status().value("elapsedSeconds", 0) >= 2; }, kStepLimit));
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);

  const DecodedSound sound = decodeSound(onlyFileIn(musicFolder()), server.directory());
  EXPECT_EQ(sound.error, "");
  EXPECT_EQ(sound.rate_Hz, 48000);
  EXPECT_NEAR(test_support::measureTone(innerPart(sound, 0.3), sound.rate_Hz).frequency_Hz, 1000,
              1);
  EXPECT_TRUE(endsAtOnce(*tool));
}

INSTANTIATE_TEST_SUITE_P(Formats, ChangingRateTest, testing::Values(kM4a, kMp3),
                         [](const auto& format) { return extensionOf(format.param); });

class ClickTest : public ToolFixture, public testing::WithParamInterface<int> {};

TEST_P(ClickTest, FileIsNamedAfterTitleDateAndTimeAndFitsEveryDisk) {
  // A locale that puts a narrow space before "PM".
  setEnvironment("LC_ALL", "en_US.UTF-8");
  setEnvironment("TZ", "UTC");
  writeSettings({{"SoundFormat", GetParam()}});
  plugInMicrophone();
  const auto tool = startRecording();
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  const std::string name = std::filesystem::path(onlyFileIn(musicFolder())).filename();
  EXPECT_TRUE(std::regex_match(
      name, std::regex(R"(Audio recording \d{4}-\d{2}-\d{2} at \d{1,2}\.\d{2}\.\d{2}( [AP]M)?\.)" +
                       extensionOf(GetParam()))))
      << name;
  EXPECT_EQ(name.find_first_of("\\/:*?\"<>|"), std::string::npos) << name;
  EXPECT_TRUE(std::all_of(name.begin(), name.end(), [](unsigned char c) {
    return c >= ' ' && c < 127;
  })) << name;
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_P(ClickTest, ProgramEndsTenSecondsAfterTheFileWasSaved) {
  writeSettings({{"SoundFormat", GetParam()}});
  plugInMicrophone();
  const auto tool = startRecording();
  const auto before = Clock::now();
  EXPECT_EQ(run({}).exitStatus, 0);
  ASSERT_TRUE(waitForState("idle"));
  const auto after = Clock::now();
  EXPECT_TRUE(endsByItself(*tool));
  const auto ended = Clock::now();
  EXPECT_GE(secondsBetween(before, ended), 10.0);
  EXPECT_LT(secondsBetween(after, ended), 14.0);
  EXPECT_EQ(run({"--status"}).exitStatus, 3);
  EXPECT_THAT(eventNames(), ElementsAre("Launch", "Start", "Stop", "Quit"));
}

TEST_P(ClickTest, ThirdClickRecordsAgainInTheSameProcess) {
  writeSettings({{"SoundFormat", GetParam()}});
  plugInMicrophone();
  const auto tool = startRecording();
  EXPECT_EQ(run({}).exitStatus, 0);
  ASSERT_TRUE(waitForState("idle"));
  EXPECT_EQ(run({}).exitStatus, 0);
  ASSERT_TRUE(waitForState("recording"));
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  EXPECT_TRUE(tool->isRunning());
  EXPECT_TRUE(endsAtOnce(*tool));
  const std::vector<std::string> files = filesIn(musicFolder());
  EXPECT_THAT(files, testing::SizeIs(2));
  for (const std::string& file : files) {
    EXPECT_EQ(decodeSound(file, server.directory()).error, "") << file;
  }
  EXPECT_THAT(eventNames(), ElementsAre("Launch", "Start", "Stop", "Start", "Stop", "Quit"));
}

TEST_P(ClickTest, RecordingProgramLoadsNoWindowsAndForMp3NoM4aWriter) {
  writeSettings({{"SoundFormat", GetParam()}});
  plugInMicrophone();
  const auto tool = startRecording();
  if (GetParam() == kM4a) {
    // It is loaded in the background once the recording has begun.
    EXPECT_TRUE(waitUntil([&] {
      return contentsOf("/proc/" + std::to_string(tool->pid()) + "/maps").find("libavcodec") !=
             std::string::npos;
    }));
  }
  const std::string maps = contentsOf("/proc/" + std::to_string(tool->pid()) + "/maps");
  EXPECT_THAT(maps, HasSubstr("libmp3lame"));
  EXPECT_THAT(
      maps, Not(AnyOf(HasSubstr("libQt"), HasSubstr("libgtk"), HasSubstr("record-audio-windows"))));
  if (GetParam() == kMp3) {
    EXPECT_THAT(maps, Not(AnyOf(HasSubstr("libav"), HasSubstr("record-audio-m4a"))));
  }
  EXPECT_TRUE(endsAtOnce(*tool));
}

// The inodes of all internet sockets in the process's network namespace, from the tables, which
// have the inode in the tenth column.
std::set<std::string> internetSockets(pid_t pid) {
  std::set<std::string> inodes;
  for (const char* table : {"tcp", "tcp6", "udp", "udp6", "raw", "raw6"}) {
    std::ifstream lines("/proc/" + std::to_string(pid) + "/net/" + table);
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line)) {
      std::istringstream columns(line);
      std::string inode;
      for (int i = 0; i < 10; ++i) columns >> inode;
      inodes.insert("socket:[" + inode + "]");
    }
  }
  return inodes;
}

std::vector<std::string> socketsOf(pid_t pid) {
  std::vector<std::string> sockets;
  std::error_code ignored;
  const std::string folder = "/proc/" + std::to_string(pid) + "/fd";
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
    const auto target = std::filesystem::read_symlink(entry.path(), ignored).string();
    if (target.starts_with("socket:")) sockets.push_back(target);
  }
  return sockets;
}

TEST_P(ClickTest, TalksToNobodyOnTheInternet) {
  // The table must show a socket that this process opens, or the rest would prove nothing.
  const int own = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in anyPort{};
  anyPort.sin_family = AF_INET;
  anyPort.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(bind(own, reinterpret_cast<const sockaddr*>(&anyPort), sizeof anyPort), 0);
  const auto ownOnes = internetSockets(getpid());
  EXPECT_THAT(socketsOf(getpid()), Contains(testing::AnyOfArray(ownOnes)));
  close(own);

  writeSettings({{"SoundFormat", GetParam()}});
  plugInMicrophone();
  const auto tool = startRecording();
  const std::vector<std::string> sockets = socketsOf(tool->pid());
  EXPECT_THAT(sockets, Not(IsEmpty())) << "PipeWire's and the bus's";
  const auto forbidden = internetSockets(tool->pid());
  for (const std::string& one : sockets) EXPECT_FALSE(forbidden.contains(one));
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_P(ClickTest, EventsContainTheSettingsAndNothingElse) {
  writeSettings({{"SoundFormat", GetParam()},
                 {"Quality", 1},
                 {"AudioSourceID", "microphone"},
                 {"AudioSourceType", 2}});
  plugInMicrophone();
  const auto tool = startRecording();
  EXPECT_EQ(status()["source"], "microphone:microphone");
  EXPECT_EQ(run({"--cancel"}).exitStatus, 0);
  EXPECT_TRUE(endsAtOnce(*tool));
  EXPECT_THAT(filesIn(musicFolder()), IsEmpty());
  EXPECT_THAT(filesIn(temporaryFolder()), IsEmpty());
  ASSERT_THAT(eventNames(), ElementsAre("Launch", "Start", "Stop", "Quit"));
  const Json canceled{{"Canceled", true}};
  const Json settings{{"AudioSourceType", 2}, {"AudioSourceID", "microphone"}, {"Size", 1}};
  for (const Json& event : events()) {
    EXPECT_EQ(event["prefs"], settings);
    EXPECT_EQ(event.size(), 5U) << event;
    EXPECT_TRUE(std::regex_match(event["time"].get<std::string>(),
                                 std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d+)?Z)")))
        << event;
    EXPECT_EQ(event["details"], event["event"] == "Stop" ? canceled : Json());
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, ClickTest, testing::Values(kM4a, kMp3),
                         [](const auto& format) { return extensionOf(format.param); });

}  // namespace
}  // namespace e2e
