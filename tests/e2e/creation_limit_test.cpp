// SPDX-License-Identifier: MIT
#include <algorithm>
#include <fstream>

#include "tests/e2e/decoded_sound.h"
#include "tests/e2e/tool_fixture.h"

// The program and its file at the system's limits for threads and descriptors: each thread and each
// loop fails in turn.

namespace e2e {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::IsEmpty;

test_support::PrivatePipeWire::Options patientServers() {
  test_support::PrivatePipeWire::Options options;
  options.watchdog = std::chrono::seconds(500);
  return options;
}

class CreationLimitTest : public ToolFixture, public testing::WithParamInterface<int> {
 protected:
  CreationLimitTest() : ToolFixture(patientServers()) {}

  void SetUp() override {
    writeSettings({{"SoundFormat", GetParam()}});
    plugInMicrophone();
  }

  // `fails`: which creation fails, as in tests/support/creation_limit.cpp.
  std::unique_ptr<test_support::ChildProcess> startWith(const std::string& fails) {
    std::filesystem::remove(creations());
    std::filesystem::remove(server.directory() + "/tool.log");
    // A sanitizer insists on being the first library, and finds what the libraries leak when
    // something is refused.
    runThrough({"env", "ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0",
                std::string("LD_PRELOAD=") + CREATION_LIMIT, "RA_CREATION_FAILS=" + fails,
                "RA_CREATION_LOG=" + creations()});
    return start();
  }

  [[nodiscard]] std::string creations() const { return server.directory() + "/creations"; }
  [[nodiscard]] int countOfCreations() const {
    std::ifstream lines(creations());
    return static_cast<int>(std::count(std::istreambuf_iterator<char>(lines), {}, '\n'));
  }

  // What a started tool did.
  enum class Outcome { kRecords, kGaveUp, kStuck };
  Outcome outcomeOf(test_support::ChildProcess& tool) {
    Outcome outcome = Outcome::kStuck;
    test_support::waitUntil(
        [&] {
          const Json now = status();
          const std::string state = now.is_object() ? now.value("state", "") : "";
          if (state == "recording") outcome = Outcome::kRecords;
          const bool isOver = state == "idle" || state == "no device" || !tool.isRunning();
          if (isOver) outcome = Outcome::kGaveUp;
          return outcome != Outcome::kStuck;
        },
        std::chrono::seconds(20));
    return outcome;
  }

  // Anything is allowed except an abort or a silent loss.
  void expectTheBest(const std::string& fails) {
    SCOPED_TRACE("creation " + fails);
    for (const std::string& file : filesIn(musicFolder())) std::filesystem::remove(file);
    for (const std::string& file : filesIn(temporaryFolder())) std::filesystem::remove_all(file);
    const auto tool = startWith(fails);
    const Outcome outcome = outcomeOf(*tool);
    EXPECT_NE(outcome, Outcome::kStuck);
    if (outcome == Outcome::kRecords) {
      waitSeconds(0.5);
      const FinishedCommand stop = run({"--stop"});
      if (stop.exitStatus == 0) {
        const DecodedSound sound = decodeSound(onlyFileIn(musicFolder()), server.directory());
        EXPECT_EQ(sound.error, "");
        EXPECT_GT(sound.duration_s(), 0.4);
      } else {
        EXPECT_THAT(log(), HasSubstr("Error: "));
      }
    } else {
      EXPECT_THAT(filesIn(musicFolder()), IsEmpty());
      EXPECT_THAT(log(), AnyOf(HasSubstr("Error: "), HasSubstr("No sound recorded"),
                               HasSubstr("Record Audio cannot start")));
    }
    tool->sendSignal(SIGTERM);
    tool->waitForExit(std::chrono::milliseconds(150));
    const bool ended = test_support::waitUntil(
        [&] {
          tool->sendSignal(SIGTERM);
          return tool->waitForExit(std::chrono::seconds(1)).has_value();
        },
        std::chrono::seconds(20));
    ASSERT_TRUE(ended);
    EXPECT_THAT(*tool->waitForExit(std::chrono::milliseconds(0)), AnyOf(0, 1, kNoScreen));
    if (HasFailure()) std::fprintf(stderr, "creation %s: %s\n", fails.c_str(), log().c_str());
  }
};

TEST_P(CreationLimitTest, NoThreadOrLoopThatCannotStartEndsInAnAbort) {
  const auto tool = startWith("0");
  ASSERT_EQ(outcomeOf(*tool), Outcome::kRecords);
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  EXPECT_TRUE(endsAtOnce(*tool));
  const int count = countOfCreations();
  // At least the connection's, the run's, the stream's and the writer's.
  ASSERT_GT(count, 6);
  for (int number = 1; number <= count; ++number) {
    expectTheBest(std::to_string(number));
    expectTheBest(std::to_string(number) + "+");
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, CreationLimitTest, testing::Values(kM4a, kMp3),
                         [](const auto& format) { return extensionOf(format.param); });

}  // namespace
}  // namespace e2e
