// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <stdexcept>

#include "tests/desktop/desktop_fixture.h"
#include "tests/desktop/fake_session_manager.h"
#include "tests/e2e/decoded_sound.h"
#include "tests/e2e/small_disk.h"
#include "tests/e2e/tool_fixture.h"
#include "tests/e2e/tray_menu.h"

// The built program on a desktop: what the user sees, and what the desktop asks of it.

namespace desktop_test {
namespace {

using linux_host::ConnectionPtr;
using linux_host::VariantPtr;
using test_support::ChildProcess;
using test_support::PipeWireControl;
using test_support::SignalFeed;
using test_support::waitUntil;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;

constexpr const char* kLogin = "org.freedesktop.login1";
constexpr const char* kLoginPath = "/org/freedesktop/login1";

test_support::PrivatePipeWire::Options patientServers() {
  test_support::PrivatePipeWire::Options options;
  options.watchdog = std::chrono::seconds(150);
  return options;
}

class DesktopToolTest : public e2e::ToolFixture {
 protected:
  DesktopToolTest() : ToolFixture(patientServers()) {
    auto client = linux_host::connectTo(server.busAddress(), true, linux_host::kBusTimeout_ms);
    if (!client) throw std::runtime_error(client.error());
    client_ = *std::move(client);
  }

  VariantPtr call(const std::string& name, const char* path, const char* interface,
                  const char* method, GVariant* arguments) {
    return VariantPtr(g_dbus_connection_call_sync(
        client_.get(), name.c_str(), path, interface, method, arguments, nullptr,
        G_DBUS_CALL_FLAGS_NO_AUTO_START, linux_host::kBusTimeout_ms, nullptr, nullptr));
  }
  std::string toolTip(const ChildProcess& tool) {
    const VariantPtr answer =
        call("org.kde.StatusNotifierItem-" + std::to_string(tool.pid()) + "-1",
             "/StatusNotifierItem", "org.freedesktop.DBus.Properties", "Get",
             g_variant_new("(ss)", "org.kde.StatusNotifierItem", "ToolTip"));
    if (answer == nullptr) return "no tool tip";
    gchar* printed = g_variant_print(answer.get(), FALSE);
    std::string text = printed;
    g_free(printed);
    return text;
  }
  bool isSaidToBeSilent() {
    const e2e::Json now = status();
    return now.is_object() && now.value("silent", false);
  }
  [[nodiscard]] int timesInLog(const std::string& text) const {
    int times = 0;
    const std::string all = log();
    for (std::size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) {
      ++times;
    }
    return times;
  }
  // A headless Wayland desktop, for every program started from then on.
  std::unique_ptr<ChildProcess> startCompositor() {
    const std::string compositorLog = server.directory() + "/compositor.log";
    auto compositor = std::make_unique<ChildProcess>(ChildProcess::Command{
        {"weston", "--backend=headless-backend.so", "--use-pixman", "--socket=screen"},
        {},
        compositorLog});
    const std::string socket = server.directory() + "/screen";
    EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(socket); }, e2e::kStepLimit))
        << base_test::contentsOf(compositorLog);
    setEnvironment("WAYLAND_DISPLAY", socket);
    setEnvironment("DISPLAY", "");
    return compositor;
  }
  // A recording in a program that has loaded the toolkit for an alert.
  std::unique_ptr<ChildProcess> recordAfterAnAlert() {
    plugInMicrophone();
    control->setMute("microphone", true);
    auto tool = start();
    EXPECT_TRUE(waitForState("refused"));
    // This ends the alert; the notification that follows keeps the program for ten seconds.
    tool->sendSignal(SIGTERM);
    EXPECT_TRUE(waitForState("idle"));
    control->setMute("microphone", false);
    EXPECT_EQ(run({}).exitStatus, 0);
    EXPECT_TRUE(waitForState("recording"));
    return tool;
  }
  // The recording goes on, and ends like any other.
  void expectTheRecordingGoesOn(ChildProcess& tool) {
    EXPECT_TRUE(waitUntil([&] { return log().find("The screen has gone") != std::string::npos; }));
    const int sofar_s = status().value("elapsedSeconds", 0);
    EXPECT_TRUE(waitUntil([&] { return status().value("elapsedSeconds", 0) >= sofar_s + 2; }));
    EXPECT_EQ(status().value("state", ""), "recording");
    const auto stopped = run({"--stop"});
    EXPECT_EQ(stopped.exitStatus, 0);
    const std::string saved = onlyFileIn(musicFolder());
    EXPECT_EQ(stopped.output, saved + "\n");
    EXPECT_GT(e2e::decodeSound(saved, server.directory()).duration_s(), sofar_s + 1.0);
    EXPECT_THAT(filesIn(temporaryFolder()), SizeIs(0));
    EXPECT_TRUE(endsByItself(tool));
    EXPECT_EQ(eventNames().back(), "Quit");
  }
  std::unique_ptr<ChildProcess> startLoginService() {
    const std::string systemBus = "DBUS_SYSTEM_BUS_ADDRESS=" + server.busAddress();
    auto login = std::make_unique<ChildProcess>(
        ChildProcess::Command{{RA_PYTHON, "-m", "dbusmock", "--system", "--template", "logind"},
                              {systemBus},
                              server.directory() + "/login.log"});
    EXPECT_TRUE(waitUntil([&] { return locks() == 0; }, e2e::kStepLimit));
    setEnvironment("DBUS_SYSTEM_BUS_ADDRESS", server.busAddress());
    return login;
  }
  std::size_t locks() {
    const VariantPtr answer =
        call(kLogin, kLoginPath, "org.freedesktop.login1.Manager", "ListInhibitors", nullptr);
    if (answer == nullptr) return 99;
    const VariantPtr list(g_variant_get_child_value(answer.get(), 0));
    return g_variant_n_children(list.get());
  }

  ConnectionPtr client_;
};

TEST_F(DesktopToolTest, ASilentSourceIsShownUntilSoundComes) {
  control = std::make_unique<PipeWireControl>();
  control->createMicrophone("microphone");
  control->setDefaultSource("microphone");
  auto tool = startRecording();
  EXPECT_FALSE(isSaidToBeSilent());
  ASSERT_TRUE(waitUntil([&] { return isSaidToBeSilent(); }, e2e::kStepLimit));
  EXPECT_THAT(toolTip(*tool), HasSubstr("\\nNo sound is coming in.'"));
  EXPECT_EQ(status().value("state", ""), "recording");

  feed = std::make_unique<SignalFeed>("feed", 2, test_support::tone1000Hz);
  control->link("feed", "microphone");
  ASSERT_TRUE(waitUntil([&] { return !isSaidToBeSilent(); }, e2e::kStepLimit));
  EXPECT_THAT(toolTip(*tool), Not(HasSubstr("No sound")));
  EXPECT_THAT(toolTip(*tool), HasSubstr("'Record Audio', '00:"));

  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  EXPECT_EQ(timesInLog("No sound is coming in"), 1);
  EXPECT_THAT(filesIn(musicFolder()), SizeIs(1));
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_F(DesktopToolTest, ADiskWithLittleSpaceHasItsOwnLine) {
  const e2e::SmallDisk disk(temporaryFolder());
  if (!disk.isMounted()) GTEST_SKIP() << "this user may not mount a disk in memory";
  control = std::make_unique<PipeWireControl>();
  control->createMicrophone("microphone");
  control->setDefaultSource("microphone");
  auto tool = startRecording();
  ASSERT_TRUE(waitUntil([&] { return status().value("lowSpace", false); }, e2e::kStepLimit));
  ASSERT_TRUE(waitUntil([&] { return isSaidToBeSilent(); }, e2e::kStepLimit));
  EXPECT_THAT(toolTip(*tool), HasSubstr("\\nNo sound is coming in."
                                        "\\nLess than 100 MB are free for the recording.'"));
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  EXPECT_FALSE(status().contains("lowSpace"));
  EXPECT_THAT(toolTip(*tool), Not(HasSubstr("100 MB")));
  EXPECT_EQ(timesInLog("Less than 100 MB"), 1);
  EXPECT_TRUE(endsAtOnce(*tool));
}

#ifdef HALTED_LAME
// The recorder waits for the encoder rather than drop samples, which would leave a gap.
TEST_F(DesktopToolTest, AnEncoderFarBehindIsShownUntilItHasCaughtUp) {
  const std::string halt = server.directory() + "/halt-lame";
  setEnvironment("LD_PRELOAD", HALTED_LAME);
  setEnvironment("RA_HALT_LAME", halt);
  writeSettings({{"SoundFormat", e2e::kMp3}});
  plugInMicrophone();
  auto tool = startRecording();
  const auto behind_s = [this] { return status().value("behindSeconds", 0); };
  EXPECT_EQ(behind_s(), 0);
  std::ofstream(halt) << "yes";
  ASSERT_TRUE(waitUntil([&] { return behind_s() >= 10; }, e2e::kStepLimit));
  EXPECT_TRUE(waitUntil(
      [&] { return toolTip(*tool).find("MP3 encoder is more than ten") != std::string::npos; },
      e2e::kStepLimit));
  EXPECT_EQ(timesInLog("The MP3 encoder is 10 seconds of sound behind"), 1);
  std::filesystem::remove(halt);
  ASSERT_TRUE(waitUntil([&] { return behind_s() == 0; }, e2e::kStepLimit));
  EXPECT_TRUE(waitUntil([&] { return toolTip(*tool).find("MP3 encoder") == std::string::npos; },
                        e2e::kStepLimit));
  EXPECT_EQ(status().value("state", ""), "recording");

  std::ofstream(halt) << "yes";
  const int then_s = status().value("elapsedSeconds", 0);
  ASSERT_TRUE(waitUntil([&] { return status().value("elapsedSeconds", 0) >= then_s + 3; },
                        e2e::kStepLimit));
  tool->sendSignal(SIGTERM);
  ASSERT_TRUE(waitUntil([&] { return filesIn(musicFolder()).size() == 1; }, e2e::kStepLimit));
  std::filesystem::remove(halt);
  EXPECT_TRUE(endsAtOnce(*tool));
  EXPECT_EQ(timesInLog("seconds of sound were dropped at the stop"), 1);
}
#endif

TEST_F(DesktopToolTest, ASourceWithSoundIsNotShownAsSilent) {
  plugInMicrophone();
  auto tool = startRecording();
  ASSERT_TRUE(waitUntil([&] { return status().value("elapsedSeconds", 0) >= 5; }, e2e::kStepLimit));
  EXPECT_FALSE(isSaidToBeSilent());
  EXPECT_EQ(timesInLog("No sound is coming in"), 0);
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_F(DesktopToolTest, AShutdownDuringARecordingWaitsForTheSavedFile) {
  plugInMicrophone();
  const auto login = startLoginService();
  auto tool = startRecording();
  ASSERT_TRUE(waitUntil([&] { return locks() == 2; }, e2e::kStepLimit));

  GVariantBuilder goingDown;
  g_variant_builder_init(&goingDown, G_VARIANT_TYPE("av"));
  g_variant_builder_add(&goingDown, "v", g_variant_new_boolean(TRUE));
  ASSERT_NE(call(kLogin, kLoginPath, "org.freedesktop.DBus.Mock", "EmitSignal",
                 g_variant_new("(sssav)", "org.freedesktop.login1.Manager", "PrepareForShutdown",
                               "b", &goingDown)),
            nullptr);
  // The machine shuts down when the last lock is released: by then the file must be there.
  ASSERT_TRUE(waitUntil([&] { return locks() == 0; }, e2e::kStepLimit));
  const std::string saved = onlyFileIn(musicFolder());
  EXPECT_GT(std::filesystem::file_size(saved), 0U);
  EXPECT_THAT(filesIn(temporaryFolder()), SizeIs(0));
  EXPECT_TRUE(endsAtOnce(*tool));
}

// A second recording is accepted but not confirmed, because the sound server is stopped.
class UnconfirmedStartTest : public DesktopToolTest {
 protected:
  UnconfirmedStartTest() {
    plugInMicrophone();
    login_ = startLoginService();
    tool_ = startRecording();
    EXPECT_TRUE(waitUntil([&] { return locks() == 2; }, e2e::kStepLimit));
    EXPECT_EQ(run({"--stop"}).exitStatus, 0);
    EXPECT_TRUE(waitUntil([&] { return locks() == 0; }, e2e::kStepLimit));
    first_ = filesIn(musicFolder());
    server.daemon().sendSignal(SIGSTOP);
    EXPECT_EQ(run({}).exitStatus, 0);
    EXPECT_TRUE(waitForState("starting"));
    // From now on the machine neither sleeps nor shuts down.
    EXPECT_TRUE(waitUntil([&] { return locks() == 2; }, e2e::kStepLimit));
    EXPECT_EQ(status().value("state", ""), "starting");
  }
  // Called before the daemon continues.
  void chooseInTray(const std::string& line) {
    EXPECT_TRUE(e2e::TrayMenu(server.busAddress(), tool_->pid()).choose(line));
    server.daemon().sendSignal(SIGCONT);
    EXPECT_TRUE(waitForState("idle"));
    EXPECT_TRUE(waitUntil([&] { return locks() == 0; }, e2e::kStepLimit));
    EXPECT_THAT(filesIn(temporaryFolder()), SizeIs(0));
    EXPECT_TRUE(endsAtOnce(*tool_));
  }

  std::unique_ptr<ChildProcess> login_;
  std::unique_ptr<ChildProcess> tool_;
  std::vector<std::string> first_;
};

TEST_F(UnconfirmedStartTest, IsStoppedInTheTrayAndSaved) {
  chooseInTray("Stop");
  EXPECT_THAT(first_, SizeIs(1));
  EXPECT_THAT(filesIn(musicFolder()), SizeIs(2));
}

TEST_F(UnconfirmedStartTest, IsCancelledInTheTray) {
  chooseInTray("Cancel");
  EXPECT_THAT(first_, SizeIs(1));
  EXPECT_EQ(filesIn(musicFolder()), first_);
}

TEST_F(DesktopToolTest, ALogOutDuringARecordingWaitsForTheSavedFile) {
  plugInMicrophone();
  FakeSessionManager manager(client_.get());
  setEnvironment("DESKTOP_AUTOSTART_ID", "startup-5");
  auto tool = startRecording();
  ASSERT_TRUE(runUntil([&] { return !manager.registrations.empty(); }));
  EXPECT_THAT(manager.registrations, ElementsAre("com.vantrel.korvel.RecordAudio startup-5"));
  manager.tell("QueryEndSession");
  ASSERT_TRUE(runUntil([&] { return manager.answers.size() == 1; }));
  EXPECT_EQ(status().value("state", ""), "recording");

  manager.tell("EndSession");
  ASSERT_TRUE(runUntil([&] { return manager.answers.size() == 2; }));
  EXPECT_THAT(manager.answers, ElementsAre(true, true));
  const std::string saved = onlyFileIn(musicFolder());
  EXPECT_GT(std::filesystem::file_size(saved), 0U);
  EXPECT_THAT(filesIn(temporaryFolder()), SizeIs(0));
  // The session is over: nobody is there to see a notification.
  manager.tell("Stop");
  EXPECT_EQ(tool->waitForExit(std::chrono::seconds(5)), 0);
}

TEST_F(DesktopToolTest, ALogOutFromASessionManagerThatIsNotOnTheBusSavesTheRecordingToo) {
  plugInMicrophone();
  const std::string folder = server.directory() + "/screen";
  std::filesystem::create_directories(folder);
  const Screen screen(folder);
  XSessionManager manager(folder, screen);
  for (const auto& [name, value] : manager.environment()) setEnvironment(name, value);
  auto tool = startRecording();
  ASSERT_TRUE(runUntil([&] { return manager.hasClient(); })) << manager.log();
  EXPECT_EQ(status().value("state", ""), "recording");

  manager.endSession();
  // It waits for its clients before it goes.
  ASSERT_TRUE(runUntil([&] { return !manager.isRunning(); })) << manager.log();
  EXPECT_GT(std::filesystem::file_size(onlyFileIn(musicFolder())), 0U);
  EXPECT_THAT(filesIn(temporaryFolder()), SizeIs(0));
  EXPECT_EQ(tool->waitForExit(std::chrono::seconds(5)), 0);
}

// With the windows of each toolkit.
class ScreenTest : public DesktopToolTest, public testing::WithParamInterface<const char*> {
 protected:
  ScreenTest() { setEnvironment("RECORD_AUDIO_WINDOWS", GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Toolkits, ScreenTest, testing::Values("gtk", "qt"),
                         [](const auto& toolkit) { return std::string(toolkit.param); });

// The toolkit ends the process when it loses its screen.
TEST_P(ScreenTest, ARecordingOutlivesTheXServer) {
  const std::string folder = server.directory() + "/screen";
  std::filesystem::create_directories(folder);
  auto screen = std::make_unique<Screen>(folder);
  const std::string display = screen->environment();
  setEnvironment("DISPLAY", display.substr(display.find('=') + 1));
  setEnvironment("QT_QPA_PLATFORM", "xcb");
  const auto tool = recordAfterAnAlert();
  screen.reset();
  expectTheRecordingGoesOn(*tool);
}

// The alert can no longer be answered.
TEST_P(ScreenTest, WithAnAlertAndNothingRecordedTheProgramEndsWithItsScreen) {
  plugInMicrophone();
  control->setMute("microphone", true);
  const auto screen = startCompositor();
  const auto tool = start();
  ASSERT_TRUE(waitForState("refused"));
  screen->kill();
  EXPECT_TRUE(endsByItself(*tool));
  EXPECT_EQ(eventNames().back(), "Quit");
}

TEST_P(ScreenTest, ARecordingOutlivesTheWaylandCompositor) {
  const auto screen = startCompositor();
  const auto tool = recordAfterAnAlert();
  screen->kill();
  expectTheRecordingGoesOn(*tool);
}

// Only the compositor may raise a window, so the program shows it again as a new one.
TEST_P(ScreenTest, ThePreferencesAreShownOnAWaylandDesktop) {
  plugInMicrophone();
  const auto compositor = startCompositor();
  setEnvironment("WAYLAND_DEBUG", "1");
  auto tool = start({e2e::kToolIdentifier});
  // The compositor says on which screen a window appears. The character between an object's kind
  // and its number depends on the release of libwayland.
  ASSERT_TRUE(waitUntil(
      [&] {
        static const std::regex kEntered(R"(wl_surface[@#]\d+\.enter\()");
        return std::regex_search(log(), kEntered);
      },
      e2e::kStepLimit));
  EXPECT_THAT(log(), HasSubstr("set_title(\"Record Audio Preferences\")"));
  // Only a new window comes in front, and this one never has the keyboard: there is none.
  std::ptrdiff_t windows = 1;
  for (const auto& again : {std::vector<std::string>{}, {e2e::kToolIdentifier}}) {
    EXPECT_EQ(run(again).exitStatus, 0);
    ++windows;
    EXPECT_TRUE(waitUntil(
        [&] {
          const std::string text = log();
          static const std::regex kNew(R"(get_toplevel\()");
          return std::distance(std::sregex_iterator(text.begin(), text.end(), kNew), {}) == windows;
        },
        e2e::kStepLimit));
  }
  EXPECT_EQ(status()["state"], "preferences");
  EXPECT_TRUE(endsAtOnce(*tool));
  EXPECT_THAT(log(), Not(HasSubstr("g_main_context_pop_thread_default")));
}

TEST_F(DesktopToolTest, AClickInTheTrayEndsTheRecordingAndSavesIt) {
  plugInMicrophone();
  const std::string folder = server.directory() + "/screen";
  std::filesystem::create_directories(folder);
  const Screen screen(folder);
  Panel panel(folder, screen, server.busAddress());
  panel.start();
  auto tool = startRecording();
  const int icon_y = 480 - Panel::kHeight_px / 2;
  ASSERT_TRUE(runUntil([&] { return screen.pixelsDrawnIn(5, icon_y - 11, 22, 22) > 40; }));
  screen.click(16, icon_y, 1);
  EXPECT_TRUE(waitUntil([&] { return filesIn(musicFolder()).size() == 1; }, e2e::kStepLimit));
  EXPECT_TRUE(endsAtOnce(*tool));
}

}  // namespace
}  // namespace desktop_test
