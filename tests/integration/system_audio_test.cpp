// SPDX-License-Identifier: MIT
// The built program records what another program plays, on a desktop with the loopback driver, two
// outputs and a session manager.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <random>

#include "driver/loopback_protocol.h"
#include "tests/e2e/decoded_sound.h"
#include "tests/e2e/tool_fixture.h"
#include "tests/e2e/tray_menu.h"
#include "tests/integration/play_through_rig.h"
#include "tests/support/tone_figures.h"

namespace linux_host {
namespace {

using namespace std::chrono_literals;
using e2e::DecodedSound;
using e2e::decodeSound;
using e2e::kM4a;
using e2e::kMp3;
using test_support::ChildProcess;
using test_support::measureTone;
using test_support::PipeWireControl;
using test_support::PrivatePipeWire;
using test_support::ToneFigures;
using test_support::waitUntil;

constexpr char kHeadphones[] = "headphones";  // the user's choice
constexpr char kSpeaker[] = "speaker";        // what the session manager would take
constexpr char kPlayer[] = "player";
constexpr double kAmplitude = 0.5;
constexpr std::chrono::milliseconds kSoundIsBackLimit{1000};

constexpr bool kWithDriver = true;

PrivatePipeWire::Options desktop(bool hasDriver) {
  PrivatePipeWire::Options options;
  options.watchdog = 1800s;
  options.pipewireDropIns = {
      {"10-cycles.conf",
       "context.properties = { default.clock.quantum = 4096 default.clock.min-quantum = 4096 "
       "default.clock.max-quantum = 8192 }\n"}};
  if (!hasDriver) return options;
  options.pipewireDropIns.emplace_back(
      "90-loopback.conf",
      std::string("context.exec = [ { path = \"") + LOOPBACK_DRIVER + "\" args = \"\" } ]\n");
  return options;
}

class SystemAudioTest : public e2e::ToolFixture {
 protected:
  explicit SystemAudioTest(bool hasDriver = kWithDriver) : ToolFixture(desktop(hasDriver)) {
    setEnvironment("KORVEL_LOOPBACK_DRIVER", LOOPBACK_DRIVER);
    plugInDevices();
    control->setDefaultSink(kHeadphones);
    if (hasDriver) {
      EXPECT_TRUE(waitUntil([this] { return driver() != 0; }, 10s)) << server.log();
    }
    writeTone();
    startPlayer();
  }

  // The tool ends its recording by itself, and then ends when asked to.
  void killTheSoundServer(ChildProcess& tool) {
    player.reset();
    feed.reset();
    control.reset();
    server.killDaemon();
    EXPECT_TRUE(waitForState("idle"));
    EXPECT_TRUE(endsAtOnce(tool, 1));
  }

  void plugInDevices() {
    plugInMicrophone();  // without one, nothing is recorded
    control->createSink(kHeadphones, {{"priority.session", "500"}});
    control->createSink(kSpeaker, {{"priority.session", "900"}});
  }
  // `target`: the sink that it plays to whenever that is there; empty: the default output.
  void startPlayer(const std::string& target = "") {
    std::string properties = std::string("{ node.name = ") + kPlayer;
    if (!target.empty()) properties += " target.object = " + target;
    // It fills its buffers on an ordinary thread: on a busy machine its sound, and thus the
    // recording, would have gaps as long as a cycle.
    player = std::make_unique<ChildProcess>(ChildProcess::Command{
        {"nice", "-n", "-15", "pw-cat", "-p", "-P", properties + " }", toneFile()}, {}, {}});
    EXPECT_TRUE(target.empty() ? waitUntilHeardOn(kHeadphones)
                               : waitUntil([this] { return !sinksHeardOn().empty(); }));
  }

  [[nodiscard]] std::string toneFile() const { return server.directory() + "/tone.wav"; }
  void writeTone(int length_s = 300) const {
    ChildProcess sox({{"sox", "-n", "-r", "48000", "-c", "2", "-e", "floating-point", "-b", "32",
                       toneFile(), "synth", std::to_string(length_s), "sine", "1000", "vol", "0.5"},
                      {},
                      {}});
    EXPECT_EQ(sox.waitForExit(120s), 0);
  }
  void useFormat(int soundFormat) {
    writeSettings({{"SoundFormat", soundFormat}, {"AudioSourceType", 3}});
  }

  // The process that announces itself as the driver; 0 when there is none.
  pid_t driver() {
    for (const auto& client : control->clientProperties()) {
      const auto key = client.find(loopback::kLoopbackDriverKey);
      if (key == client.end() || key->second.empty()) continue;
      const auto pid = client.find("pipewire.sec.pid");
      if (pid != client.end()) return std::stoi(pid->second);
    }
    return 0;
  }
  std::string configuredDefault() {
    const auto value = control->metadata(loopback::kConfiguredDefaultSinkKey);
    return value ? nlohmann::json::parse(*value).value("name", "") : "";
  }
  std::string usedDefault() {
    const auto value = control->metadata(loopback::kDefaultSinkKey);
    return value ? nlohmann::json::parse(*value).value("name", "") : "";
  }
  std::vector<std::string> sinksHeardOn() {
    std::map<std::string, std::string> names;
    for (auto& node : control->objects("Node")) names[node["object.id"]] = node["node.name"];
    std::vector<std::string> sinks;
    for (auto& link : control->objects("Link")) {
      if (names[link["link.output.node"]] != kPlayer) continue;
      const std::string& sink = names[link["link.input.node"]];
      if (std::find(sinks.begin(), sinks.end(), sink) == sinks.end()) sinks.push_back(sink);
    }
    return sinks;
  }
  bool waitUntilHeardOn(const std::string& sink, std::chrono::milliseconds limit = 10s) {
    return waitUntil([&] { return sinksHeardOn() == std::vector<std::string>{sink}; }, limit);
  }
  // Everything is as it was before the recording.
  testing::AssertionResult isAsTheUserHadIt(std::chrono::milliseconds limit) {
    const bool isBack = waitUntil(
        [&] {
          return configuredDefault() == kHeadphones && usedDefault() == kHeadphones &&
                 !control->hasNode(loopback::kLoopbackDeviceUID) &&
                 sinksHeardOn() == std::vector<std::string>{kHeadphones};
        },
        limit);
    if (isBack) return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << "configured " << configuredDefault() << ", used " << usedDefault() << ", heard on "
           << testing::PrintToString(sinksHeardOn()) << ", loopback "
           << (control->hasNode(loopback::kLoopbackDeviceUID) ? "shown" : "hidden");
  }

  static void expectTone(const std::vector<float>& samples, double rate_Hz, double tolerance) {
    const ToneFigures figures = measureTone(samples, rate_Hz);
    EXPECT_NEAR(figures.frequency_Hz, 1000, 1);
    EXPECT_NEAR(figures.amplitude, kAmplitude, kAmplitude * 0.03);
    EXPECT_LT(figures.largestSecondDifference,
              test_support::secondDifferenceOfSine(1000, kAmplitude, rate_Hz) * tolerance);
  }
  // What is heard on a sink for `length_s`, after the first second from now.
  static void expectToneHeardOn(const std::string& sink, double length_s) {
    MonitorRecorder recorder(sink, 48000, 2);
    const auto frames = [](double seconds) { return static_cast<std::size_t>(seconds * 48000); };
    ASSERT_TRUE(waitUntil([&] { return recorder.frames() > frames(1 + length_s); }, 30s));
    expectTone(recorder.samples(0, frames(1), frames(1 + length_s)), 48000, 1.1);
  }

  std::unique_ptr<ChildProcess> player;
};

class SystemAudioFormatTest : public SystemAudioTest, public testing::WithParamInterface<int> {};

TEST_P(SystemAudioFormatTest, IsRecordedAndHeardAndEverythingIsRestored) {
  useFormat(GetParam());
  const auto tool = startRecording();
  EXPECT_TRUE(waitUntil([this] { return usedDefault() == loopback::kLoopbackDeviceUID; }));
  EXPECT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
  expectToneHeardOn(kHeadphones, 3);
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  EXPECT_TRUE(isAsTheUserHadIt(3s));
  expectToneHeardOn(kHeadphones, 1);

  const DecodedSound sound = decodeSound(onlyFileIn(musicFolder()), server.directory());
  EXPECT_EQ(sound.error, "");
  EXPECT_GT(sound.duration_s(), 3.5);
  // Leaves out the second in which the player was moved, and the codec's edge at the end.
  std::vector<float> inner = innerPart(sound, 1.0);
  expectTone(inner, sound.rate_Hz, 1.3);
  EXPECT_TRUE(endsAtOnce(*tool));
}

INSTANTIATE_TEST_SUITE_P(Formats, SystemAudioFormatTest, testing::Values(kM4a, kMp3),
                         [](const auto& test) { return e2e::extensionOf(test.param); });

TEST_F(SystemAudioTest, RecordingGoesOnWhenTheOldOutputVanishes) {
  useFormat(kMp3);
  const auto tool = startRecording();
  ASSERT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
  control->destroyNode(kHeadphones);
  {
    MonitorRecorder recorder(loopback::kLoopbackDeviceUID, 48000, 2);
    ASSERT_TRUE(waitUntil([&] { return recorder.frames() > 3 * 48000; }, 20s));
  }
  EXPECT_EQ(status().value("state", ""), "recording");
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  // The choice is kept until the device comes back; meanwhile the other one plays.
  EXPECT_TRUE(waitUntilHeardOn(kSpeaker));
  EXPECT_EQ(configuredDefault(), kHeadphones);
  const DecodedSound sound = decodeSound(onlyFileIn(musicFolder()), server.directory());
  EXPECT_GT(sound.duration_s(), 3);
  expectTone(innerPart(sound, 1.0), sound.rate_Hz, 1.3);
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_F(SystemAudioTest, ChoiceTheUserMakesMeanwhileIsKept) {
  useFormat(kMp3);
  const auto tool = startRecording();
  ASSERT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
  control->setDefaultSink(kSpeaker);
  EXPECT_TRUE(waitUntilHeardOn(kSpeaker));
  EXPECT_EQ(status().value("state", ""), "recording");
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  EXPECT_TRUE(waitUntil([this] { return !control->hasNode(loopback::kLoopbackDeviceUID); }));
  EXPECT_EQ(configuredDefault(), kSpeaker);
  EXPECT_TRUE(waitUntilHeardOn(kSpeaker));
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_F(SystemAudioTest, KilledDriverEndsTheRecordingAndTheSoundIsBack) {
  useFormat(kM4a);
  const auto tool = startRecording();
  ASSERT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
  expectToneHeardOn(kHeadphones, 0.5);
  const pid_t pid = driver();
  ASSERT_NE(pid, 0);
  kill(pid, SIGKILL);
  EXPECT_TRUE(waitUntilHeardOn(kHeadphones, 3s));
  EXPECT_TRUE(waitForState("idle"));
  EXPECT_TRUE(isAsTheUserHadIt(3s));
  expectToneHeardOn(kHeadphones, 0.5);
  EXPECT_TRUE(endsAtOnce(*tool, 1));
}

TEST_F(SystemAudioTest, DeathOfTheSoundServerEndsTheRecording) {
  useFormat(kMp3);
  const auto tool = startRecording();
  ASSERT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
  expectToneHeardOn(kHeadphones, 1);
  killTheSoundServer(*tool);
  ASSERT_THAT(eventNames(), testing::ElementsAre("Launch", "Start", "Stop", "Quit"));
  EXPECT_EQ(events()[2]["details"], (e2e::Json{{"Error", true}}));
  EXPECT_THAT(filesIn(musicFolder()), testing::IsEmpty());
  const DecodedSound sound = decodeSound(onlyFileIn(temporaryFolder()), server.directory());
  EXPECT_EQ(sound.error, "");
  EXPECT_GT(sound.duration_s(), 1.9) << "what was heard meanwhile";
}

// The next session's session manager finds the loopback in its files.
TEST_F(SystemAudioTest, RestartOfTheSoundServerRestoresTheUsersChoiceAndRecordsAgain) {
  useFormat(kMp3);
  auto tool = startRecording();
  ASSERT_TRUE(waitUntil([this] {
    const std::string saved = e2e::contentsOf(server.stateHome() + "/wireplumber/default-nodes");
    return saved.find("default.configured.audio.sink=com.vantrel.loopbackdevice") !=
           std::string::npos;
  }));
  killTheSoundServer(*tool);

  ChildProcess daemon({{"pipewire"}, {}, server.directory() + "/log"});
  ASSERT_TRUE(waitUntil([] { return std::system("pw-cli info 0 >/dev/null 2>&1") == 0; }, 10s));
  ChildProcess sessionManager({{"wireplumber"}, {}, server.directory() + "/log"});
  plugInDevices();
  startPlayer();
  EXPECT_TRUE(isAsTheUserHadIt(5s));
  tool = startRecording();
  EXPECT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
  expectToneHeardOn(kHeadphones, 0.5);
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  EXPECT_TRUE(isAsTheUserHadIt(3s));
  EXPECT_TRUE(endsAtOnce(*tool));
  player.reset();
  feed.reset();
  control.reset();
  sessionManager.terminate();
  daemon.terminate();
}

TEST_F(SystemAudioTest, DriverThatHangsIsAnErrorAndChangesNothing) {
  useFormat(kMp3);
  const pid_t pid = driver();
  ASSERT_NE(pid, 0);
  kill(pid, SIGSTOP);
  const auto tool = start();
  EXPECT_TRUE(
      waitUntil([this] { return testing::Value(eventNames(), testing::Contains("Stop")); }));
  EXPECT_TRUE(endsAtOnce(*tool, 1));
  EXPECT_THAT(filesIn(musicFolder()), testing::IsEmpty());
  EXPECT_TRUE(isAsTheUserHadIt(0s));
  kill(pid, SIGCONT);
  control->synchronize();
  EXPECT_EQ(driver(), pid);
  EXPECT_TRUE(isAsTheUserHadIt(1s));
}

class WaitInTrayTest : public SystemAudioTest, public testing::WithParamInterface<const char*> {};

TEST_P(WaitInTrayTest, EndsAtOnceAndRecordsNothing) {
  useFormat(kMp3);
  const pid_t pid = driver();
  ASSERT_NE(pid, 0);
  kill(pid, SIGSTOP);
  const auto tool = start();
  ASSERT_TRUE(waitForState("waiting"));
  EXPECT_TRUE(e2e::TrayMenu(server.busAddress(), tool->pid()).choose(GetParam()));
  // A stop shows for ten seconds that nothing was saved; after a cancel there is nothing to show.
  const bool isStop = std::string(GetParam()) == "Stop";
  EXPECT_TRUE(isStop ? waitForState("idle") : endsByItself(*tool));
  kill(pid, SIGCONT);
  EXPECT_TRUE(isAsTheUserHadIt(3s));
  EXPECT_THAT(filesIn(musicFolder()), testing::IsEmpty());
  EXPECT_THAT(filesIn(temporaryFolder()), testing::IsEmpty());
  if (isStop) {
    EXPECT_TRUE(endsAtOnce(*tool));
  }
  // Nothing had begun that could be reported.
  EXPECT_THAT(eventNames(), testing::Not(testing::Contains("Start")));
}

INSTANTIATE_TEST_SUITE_P(Lines, WaitInTrayTest, testing::Values("Stop", "Cancel"),
                         [](const auto& test) { return test.param; });

class NoDriverTest : public SystemAudioTest {
 protected:
  NoDriverTest() : SystemAudioTest(!kWithDriver) { useFormat(kMp3); }

  // There the user could install the driver; here there is no screen.
  void expectThePreferencesInsteadOfARecording() {
    const auto tool = start();
    EXPECT_TRUE(endsByItself(*tool, e2e::kNoScreen));
    EXPECT_EQ(events().at(0)["details"], (e2e::Json{{"Preferences", true}}));
    EXPECT_THAT(eventNames(), testing::ElementsAre("Launch", "Quit"));
    EXPECT_THAT(filesIn(musicFolder()), testing::IsEmpty());
    EXPECT_TRUE(isAsTheUserHadIt(0s));
  }
};

TEST_F(NoDriverTest, WithoutOneThePreferencesAreShown) {
  expectThePreferencesInsteadOfARecording();
}

TEST_F(NoDriverTest, WithOneThatIsTooOldThePreferencesAreShown) {
  setEnvironment("KORVEL_LOOPBACK_DRIVER", std::filesystem::canonical("/proc/self/exe"));
  control->setClientProperty(loopback::kLoopbackDriverKey, "1.0.2");
  expectThePreferencesInsteadOfARecording();
}

TEST_F(NoDriverTest, WithAClientThatOnlyClaimsToBeOneThePreferencesAreShown) {
  control->setClientProperty(loopback::kLoopbackDriverKey, "9.9.9");
  expectThePreferencesInsteadOfARecording();
}

TEST_F(SystemAudioTest, AClientThatClaimsToBeTheDriverChangesNothing) {
  control->setClientProperty(loopback::kLoopbackDriverKey, "0.0.1");
  useFormat(kMp3);
  const auto tool = startRecording();
  EXPECT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  EXPECT_TRUE(isAsTheUserHadIt(3s));
  EXPECT_TRUE(endsAtOnce(*tool));
}

// As at login, where the tool wakes the sound server.
TEST_F(NoDriverTest, WaitsForOneThatComesLate) {
  const auto tool = start();
  ASSERT_TRUE(waitUntil([this] {
    const auto clients = control->clientProperties();
    return std::any_of(clients.begin(), clients.end(), [](const auto& client) {
      const auto name = client.find("application.name");
      return name != client.end() && name->second == "Record Audio";
    });
  }));
  ChildProcess late({{LOOPBACK_DRIVER}, {}, server.directory() + "/log"});
  EXPECT_TRUE(waitForState("recording"));
  EXPECT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  EXPECT_TRUE(endsAtOnce(*tool));
  EXPECT_TRUE(isAsTheUserHadIt(3s));
  late.terminate();
}

// Two clicks during a recording, one soon after the other: stop, and start again. The device is
// being removed meanwhile. RA_RESTARTS sets how often, with 0 to 400 ms between the clicks.
class RestartTest : public SystemAudioTest, public testing::WithParamInterface<const char*> {
 protected:
  // The tool's own sound, on the user's device.
  bool waitUntilToolIsHeard() {
    return waitUntil(
        [this] {
          std::map<std::string, PipeWireControl::Properties> nodes;
          for (auto& node : control->objects("Node")) nodes[node["object.id"]] = node;
          for (auto& link : control->objects("Link")) {
            auto& from = nodes[link["link.output.node"]];
            if (nodes[link["link.input.node"]]["node.name"] != kHeadphones) continue;
            if (from["node.name"] != kPlayer) return true;
          }
          return false;
        },
        3s);
  }
  void activateTwice(std::chrono::milliseconds pause) {
    ChildProcess::Command activation = toolCommand({});
    activation.outputFile = server.directory() + "/activations.log";
    ChildProcess first(activation);
    const auto begin = std::chrono::steady_clock::now();
    waitUntil([&] { return std::chrono::steady_clock::now() - begin >= pause; });
    ChildProcess second(activation);
    EXPECT_EQ(first.waitForExit(10s), 0);
    EXPECT_EQ(second.waitForExit(10s), 0);
  }
  // The last half second of the recording, which leaves time to move the player there.
  bool endsInTone(const std::string& file) {
    const DecodedSound sound = decodeSound(file, server.directory());
    if (sound.duration_s() < 1) return false;
    const std::vector<float>& samples = sound.samples.front();
    const std::ptrdiff_t eighth = sound.rate_Hz / 8;
    const std::vector<float> last(samples.end() - 5 * eighth, samples.end() - eighth);
    const ToneFigures figures = measureTone(last, sound.rate_Hz);
    return std::abs(figures.frequency_Hz - 1000) < 2 &&
           std::abs(figures.amplitude - kAmplitude) < kAmplitude * 0.1;
  }
};

TEST_P(RestartTest, EveryRecordingIsFollowedByOneThatHoldsTheTone) {
  const char* wanted = std::getenv("RA_RESTARTS");
  const int restarts = wanted == nullptr ? 6 : std::atoi(wanted);
  std::mt19937 random(20261121);
  useFormat(kMp3);
  player.reset();
  if (wanted != nullptr) writeTone(60 + 5 * restarts);
  startPlayer(GetParam());
  auto tool = startRecording();
  int recordsAgain = 0;
  int heard = 0;
  for (int i = 0; i < restarts; ++i) {
    ASSERT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID)) << "recording " << i;
    e2e::waitSeconds(1);
    const std::chrono::milliseconds pause(
        wanted == nullptr ? i * 10 : std::uniform_int_distribution<int>(0, 400)(random));
    activateTwice(pause);
    const bool isSaved = waitUntil(
        [&] { return filesIn(musicFolder()).size() == static_cast<std::size_t>(i) + 1; }, 5s);
    const bool again = isSaved && waitForState("recording");
    EXPECT_TRUE(again) << "after " << pause.count() << " ms: " << status().dump();
    recordsAgain += again ? 1 : 0;
    const bool isHeard = waitUntilToolIsHeard();
    EXPECT_TRUE(isHeard) << "after " << pause.count() << " ms";
    heard += isHeard ? 1 : 0;
    if (again) continue;
    if (tool->isRunning()) tool->kill();
    tool = startRecording();
  }
  ASSERT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
  e2e::waitSeconds(1);
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  int withTone = 0;
  const auto files = filesIn(musicFolder());
  for (const std::string& file : files) {
    const bool hasTone = endsInTone(file);
    EXPECT_TRUE(hasTone) << file;
    withTone += hasTone ? 1 : 0;
  }
  std::printf("%d of %d recorded again, %d heard; %d of %zu files hold the tone\n", recordsAgain,
              restarts, heard, withTone, files.size());
  EXPECT_TRUE(endsAtOnce(*tool));
}

INSTANTIATE_TEST_SUITE_P(Players, RestartTest, testing::Values("", loopback::kLoopbackDeviceUID),
                         [](const auto& test) { return *test.param ? "Pinned" : "Free"; });

// At random moments of start, recording and stop.
TEST_F(SystemAudioTest, KilledRecorderLeavesTheUsersOwnOutputWithinASecond) {
  const char* wanted = std::getenv("RA_KILLS");
  const int kills = wanted == nullptr ? 12 : std::atoi(wanted);
  std::mt19937 random(20261120);
  std::uniform_int_distribution<int> delay_ms(0, 900);
  useFormat(kM4a);
  int killedWhileRecording = 0;
  for (int i = 0; i < kills; ++i) {
    const int wait_ms = delay_ms(random);
    const auto tool = start();
    std::unique_ptr<ChildProcess> stop;
    const auto begun = std::chrono::steady_clock::now();
    const bool stopsFirst = i % 3 == 2;
    if (stopsFirst && waitForState("recording")) {
      stop = std::make_unique<ChildProcess>(
          ChildProcess::Command{{RECORD_AUDIO, "--stop"}, {}, server.directory() + "/stop.log"});
    }
    const auto moment = (stopsFirst ? std::chrono::steady_clock::now() : begun) +
                        std::chrono::milliseconds(stopsFirst ? wait_ms / 10 : wait_ms);
    waitUntil([&] { return std::chrono::steady_clock::now() >= moment; }, 5s);
    if (usedDefault() == loopback::kLoopbackDeviceUID) ++killedWhileRecording;
    tool->sendSignal(SIGKILL);
    EXPECT_TRUE(tool->waitForExit(5s));
    EXPECT_TRUE(isAsTheUserHadIt(kSoundIsBackLimit)) << "kill " << i << " after " << wait_ms;
  }
  EXPECT_GT(killedWhileRecording, 0) << "there was nothing to give back";
}

}  // namespace
}  // namespace linux_host
