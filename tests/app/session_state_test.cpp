// SPDX-License-Identifier: MIT
#include "app/session_state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <thread>
#include <vector>

#include "tests/app/app_test.h"

namespace record_audio {
namespace {

using enum SessionState;
using ::testing::IsEmpty;

constexpr SessionState kAll[] = {kLaunching, kIdle,     kWaiting,  kNoDevice,
                                 kAsking,    kStarting, kRecording};

std::set<SessionState> successors(SessionState from) {
  std::set<SessionState> found;
  for (const SessionState to : kAll) {
    if (mayBecome(from, to)) found.insert(to);
  }
  return found;
}

TEST(SessionStateTest, GoesAsTheTableSays) {
  using States = std::set<SessionState>;
  EXPECT_EQ(successors(kLaunching),
            (States{kIdle, kWaiting, kNoDevice, kAsking, kStarting, kRecording}));
  EXPECT_EQ(successors(kIdle), (States{kWaiting, kNoDevice, kAsking, kRecording}));
  EXPECT_EQ(successors(kWaiting), (States{kIdle, kNoDevice, kAsking, kRecording}));
  EXPECT_EQ(successors(kNoDevice), (States{kIdle}));
  EXPECT_EQ(successors(kAsking), (States{kIdle, kStarting, kRecording}));
  EXPECT_EQ(successors(kStarting), (States{kIdle, kRecording}));
  EXPECT_EQ(successors(kRecording), (States{kIdle}));
}

TEST(SessionStateTest, EverySessionEndsInIdle) {
  for (const SessionState state : kAll) {
    if (state == kIdle) continue;
    EXPECT_TRUE(mayBecome(state, kIdle));
  }
}

#ifndef NDEBUG
class MainThreadTest : public AppTest {};

TEST_F(MainThreadTest, ACallFromAnotherThreadIsCaught) {
  const std::vector<std::function<void()>> calls = {
      [&] { app->startRecorder(); },      [&] { app->stopRecord(); },
      [&] { app->tryToQuit(); },          [&] { app->stop(); },
      [&] { app->updateMicStatusImp(); }, [&] { static_cast<void>(app->status()); }};
  for (const auto& call : calls) {
    EXPECT_DEATH(std::thread(call).join(), "a second thread");
  }
}
#endif

// Calls before the launch.

class BeforeTheLaunchTest : public AppTest {};

TEST_F(BeforeTheLaunchTest, NothingOfTheSessionDoesAnything) {
  const std::vector<std::function<void()>> calls = {
      [&] { app->startRecorder(); },
      [&] { app->onWaitFinished(true); },
      [&] { app->onWaitFinished(false); },
      [&] { app->startRecorderContinue(); },
      [&] { app->recordSuccessStarted(app); },
      [&] { app->recordError(); },
      [&] { app->stopRecord(); },
      [&] { app->cancelRecord(); },
      [&] { app->internalStop(); },
      [&] { app->deleteAudioPlayThrough(); },
      [&] { app->tryToQuit(); },
      [&] { app->onQuit(); },
      [&] { app->updateMicStatusImp(); },
      [&] { app->logCEP("Start", std::nullopt); },
      [&] { app->changeDockIcon(true); },
      [&] { app->updateFinderIcon(true); },
      [&] { app->timerBlinkerMethod(nullptr); },
      [&] { app->showNotificationRecordStarted(); },
      [&] { app->showNotificationRecordCompleated("/out/a.m4a"); },
      [&] { app->showNotificationError(); },
      [&] { app->showNotificationRecordingRecovered("/out/a.m4a"); },
      [&] { app->removeAllPreviousNotifications(); },
      [&] { EXPECT_FALSE(app->stop()); },
      [&] { EXPECT_FALSE(app->cancel()); },
  };
  for (std::size_t i = 0; i < calls.size(); ++i) {
    EXPECT_THAT(during(calls[i]), IsEmpty()) << i;
    machine.runLoop.settle();
  }
  EXPECT_EQ(machine.runLoop.timerCount(), 0U);
  EXPECT_THAT(machine.userNotificationCenter.delivered, IsEmpty());
  EXPECT_THAT(machine.interfaceLoader.loaded, IsEmpty());
}

TEST_F(BeforeTheLaunchTest, ARefusedMicrophoneIsNotReported) {
  machine.capture.authorization = platform::AuthorizationStatus::kDenied;
  EXPECT_THAT(during([&] { app->updateMicStatusImp(); }), IsEmpty());
}

}  // namespace
}  // namespace record_audio
