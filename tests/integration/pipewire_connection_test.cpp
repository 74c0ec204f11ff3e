// SPDX-License-Identifier: MIT
// The connection to the daemon: its creation, losses and its end.

#include "hosts/linux/audio/pipewire_connection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "hosts/linux/audio/pipewire_audio_hardware.h"
#include "tests/integration/hardware_reader.h"
#include "tests/support/few_descriptors.h"
#include "tests/support/pipewire_control.h"
#include "tests/support/private_pipewire.h"

namespace linux_host {
namespace {

using namespace platform;
using namespace std::chrono_literals;
using test_support::PipeWireControl;
using test_support::PrivatePipeWire;
using test_support::waitUntil;
using testing::HasSubstr;

// Records a connection's reports about itself and the capture devices.
class ConnectionDiary {
 public:
  PipeWireConnection::Callbacks callbacks() {
    return {[this](const std::string&) { note("lost"); }, [this] { note("regained"); },
            [this](const std::string& name) { note("+" + name); },
            [this](const std::string& name) { note("-" + name); }};
  }
  [[nodiscard]] std::vector<std::string> entries() const {
    const std::lock_guard lock(mutex_);
    return entries_;
  }
  bool says(const std::vector<std::string>& expected) const {
    return waitUntil([&] { return entries() == expected; });
  }

 private:
  void note(std::string entry) {
    const std::lock_guard lock(mutex_);
    entries_.push_back(std::move(entry));
  }
  mutable std::mutex mutex_;
  std::vector<std::string> entries_;
};

TEST(PipeWireConnectionTest, DevicesAreBackWithinASecondOfTheDaemon) {
  PrivatePipeWire server;
  auto control = std::make_unique<PipeWireControl>();
  control->createMicrophone("mic.a");
  DeviceClockTable clocks;
  ConnectionDiary diary;
  PipeWireConnection connection(diary.callbacks());
  PipeWireAudioHardware hardware(connection, clocks);
  HardwareReader read(hardware);
  const AudioDeviceID mic = read.deviceWithUID("mic.a");
  ASSERT_NE(mic, 0U);
  std::vector<std::string> expected;
  for (int restart = 0; restart < 3; ++restart) {
    server.killDaemon();
    expected.insert(expected.end(), {"lost", "-mic.a"});
    EXPECT_TRUE(diary.says(expected)) << testing::PrintToString(diary.entries());
    EXPECT_FALSE(connection.withGraph([](const AudioGraph&) {}));
    EXPECT_NE(connection.lostMessage(), "");
    control.reset();

    server.startDaemon();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(waitUntil([&] { return connection.withGraph([](const AudioGraph&) {}); }));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
    EXPECT_EQ(connection.lostMessage(), "");
    control = std::make_unique<PipeWireControl>();
    control->createMicrophone("mic.a");
    expected.insert(expected.end(), {"regained", "+mic.a"});
    EXPECT_TRUE(diary.says(expected)) << testing::PrintToString(diary.entries());
    EXPECT_EQ(read.deviceWithUID("mic.a"), mic);
  }

  // Settings go to the current daemon.
  control->createSink("sink.a");
  control->createSink("sink.b");
  control->setDefaultSink("sink.a");
  ASSERT_TRUE(waitUntil([&] { return read.deviceWithUID("sink.b") != 0; }));
  EXPECT_TRUE(waitUntil([&] { return connection.setConfiguredDefaultSink("sink.b"); }));
  EXPECT_TRUE(waitUntil([&] {
    return control->metadata("default.configured.audio.sink") == R"({"name":"sink.b"})";
  }));
}

TEST(PipeWireConnectionTest, DaemonThatIsStartedLateIsFound) {
  PrivatePipeWire server(PrivatePipeWire::Options::busOnly());
  ConnectionDiary diary;
  PipeWireConnection connection(diary.callbacks());
  EXPECT_TRUE(diary.says({"lost"}));
  server.startDaemon();
  PipeWireControl control;
  control.createMicrophone("mic.a");
  EXPECT_TRUE(diary.says({"lost", "regained", "+mic.a"}))
      << testing::PrintToString(diary.entries());
}

TEST(PipeWireConnectionTest, DaemonThatAnswersLateIsStillHeard) {
  PrivatePipeWire server;
  PipeWireControl control;
  control.createMicrophone("mic.a");
  server.daemon().sendSignal(SIGSTOP);
  ConnectionDiary diary;
  PipeWireConnection connection(diary.callbacks());
  EXPECT_TRUE(diary.says({"lost"}));
  server.daemon().sendSignal(SIGCONT);
  EXPECT_TRUE(diary.says({"lost", "regained", "+mic.a"}))
      << testing::PrintToString(diary.entries());
}

TEST(PipeWireConnectionTest, DeathOfTheDaemonIsReportedOnceAndReadsFail) {
  PrivatePipeWire server;
  PipeWireControl control;
  DeviceClockTable clocks;
  control.createMicrophone("mic.a");
  std::atomic<int> reports{0};
  std::promise<std::string> message;
  PipeWireConnection::Callbacks callbacks;
  callbacks.onLost = [&](const std::string& text) {
    if (reports++ == 0) message.set_value(text);
  };
  PipeWireConnection connection(callbacks);
  PipeWireAudioHardware hardware(connection, clocks);
  HardwareReader read(hardware);
  ASSERT_NE(read.deviceWithUID("mic.a"), 0U);
  server.killDaemon();
  auto future = message.get_future();
  ASSERT_EQ(future.wait_for(std::chrono::seconds(5)), std::future_status::ready);
  EXPECT_THAT(future.get(), HasSubstr("PipeWire"));
  std::uint32_t size = 0;
  EXPECT_EQ(hardware.AudioObjectGetPropertyDataSize(
                kAudioObjectSystemObject, global(kAudioHardwarePropertyDevices), 0, nullptr, &size),
            kAudioHardwareNotRunningError);
  EXPECT_FALSE(connection.setConfiguredDefaultSink("x"));
  EXPECT_EQ(reports, 1);
}

TEST(PipeWireConnectionTest, AbsentDaemonIsAnErrorThatSaysHowToStartIt) {
  PrivatePipeWire::Options options;
  options.startDaemon = false;
  options.sessionBus = false;
  PrivatePipeWire server(options);
  std::promise<std::string> message;
  PipeWireConnection::Callbacks callbacks;
  callbacks.onLost = [&](const std::string& text) { message.set_value(text); };
  PipeWireConnection connection(callbacks);
  EXPECT_FALSE(connection.withGraph([](const AudioGraph&) {}));
  EXPECT_THAT(connection.lostMessage(), HasSubstr("not running"));
  EXPECT_THAT(connection.lostMessage(), HasSubstr("Start it with"));
  EXPECT_EQ(message.get_future().get(), connection.lostMessage());
}

// Each number of descriptors makes another of the library's steps fail. Neither the daemon nor the
// library's configuration is to blame then.
TEST(PipeWireConnectionTest, FewDescriptorsAreSaidToBeTheReason) {
  const PrivatePipeWire server;
  // Lets the library open its own descriptors, which it does once.
  EXPECT_TRUE(PipeWireConnection().withGraph([](const AudioGraph&) {}));
  constexpr int kEnough = 100;
  int refusals = 0;
  std::string message;
  for (int left = 0; left < kEnough; ++left) {
    const test_support::FewDescriptors few(left);
    PipeWireConnection connection;
    connection.withGraph([](const AudioGraph&) {});
    message = connection.lostMessage();
    if (message.empty()) break;
    ++refusals;
    EXPECT_THAT(message, HasSubstr("no thread or descriptor left")) << left << " are left";
  }
  EXPECT_EQ(message, "") << "enough are left in the end";
  EXPECT_GT(refusals, 5) << "a loop alone needs that many";
}

TEST(PipeWireConnectionTest, DaemonThatNeverAnswersIsGivenUpOnWithinItsBound) {
  PrivatePipeWire server;
  server.daemon().sendSignal(SIGSTOP);
  std::promise<std::string> message;
  PipeWireConnection::Callbacks callbacks;
  callbacks.onLost = [&](const std::string& text) { message.set_value(text); };
  const auto begin = std::chrono::steady_clock::now();
  {
    PipeWireConnection connection(callbacks);
    EXPECT_FALSE(connection.withGraph([](const AudioGraph&) {}));
    auto future = message.get_future();
    ASSERT_EQ(future.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    EXPECT_THAT(future.get(), HasSubstr("does not answer"));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
  server.daemon().sendSignal(SIGCONT);
}

// If a client leaves before the session manager has sent it the defaults, the daemon reports no
// change of them to any client for the life of that session manager.
TEST(PipeWireConnectionTest, ShortConnectionDoesNotHideChangesOfTheDefaults) {
  PrivatePipeWire server;
  PipeWireControl control;
  control.createSink("speakers");
  control.setDefaultSink("speakers");
  control.relyOnChanges();
  const auto pass = [](std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    waitUntil([&] { return std::chrono::steady_clock::now() >= end; });
  };
  server.sessionManager().sendSignal(SIGSTOP);
  auto connection = std::make_unique<PipeWireConnection>();
  pass(100ms);  // by then it has asked without getting an answer
  const auto answer = std::async(std::launch::async, [&] {
    pass(50ms);
    server.sessionManager().sendSignal(SIGCONT);
  });
  connection.reset();
  answer.wait();
  control.setMetadata("probe", R"("heard of")");
  EXPECT_TRUE(waitUntil([&] { return control.metadata("probe").has_value(); }));
}

}  // namespace
}  // namespace linux_host
