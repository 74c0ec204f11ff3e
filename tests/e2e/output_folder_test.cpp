// SPDX-License-Identifier: MIT
#include <filesystem>
#include <fstream>

#include "tests/e2e/decoded_sound.h"
#include "tests/e2e/notification_server.h"
#include "tests/e2e/tool_fixture.h"

// An output folder that cannot be used when the tool starts.

namespace e2e {
namespace {

using test_support::waitUntil;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

// Not even root can create a file there.
constexpr const char* kUnusable = "/proc";

class OutputFolderTest : public ToolFixture {
 protected:
  void SetUp() override { plugInMicrophone(); }
};

TEST_F(OutputFolderTest, AChosenFolderThatCannotBeWrittenCostsNoSound) {
  useOutputFolder(kUnusable);
  const NotificationServer notifications(server.busAddress());
  const auto tool = startRecording(1.0);
  EXPECT_THAT(log(), AllOf(HasSubstr("cannot be used just now"), HasSubstr(kUnusable)));
  ASSERT_TRUE(
      waitUntil([&] { return status().value("folderUnusable", false); }, std::chrono::seconds(20)));
  const FinishedCommand stop = run({"--stop"});
  EXPECT_EQ(stop.exitStatus, 1);
  EXPECT_EQ(stop.output, "");
  EXPECT_THAT(stop.errors, HasSubstr("could not be saved"));
  const std::string kept = onlyFileIn(temporaryFolder());
  EXPECT_TRUE(waitUntil(
      [&] {
        return testing::Value(notifications.shown(),
                              Contains(AllOf(HasSubstr("Unable to save the record."),
                                             HasSubstr("into the folder /proc"), HasSubstr(kept))));
      },
      std::chrono::seconds(20)));
  EXPECT_TRUE(endsAtOnce(*tool, 1));
  const DecodedSound sound = decodeSound(kept, server.directory());
  EXPECT_EQ(sound.error, "");
  EXPECT_GE(sound.duration_s(), 0.8);

  // And the next start saves it into the folder that is chosen then.
  useOutputFolder(server.home() + "/other");
  EXPECT_EQ(run({"--recover"}).exitStatus, 0);
  EXPECT_NE(onlyFileIn(server.home() + "/other"), "");
  EXPECT_THAT(filesIn(temporaryFolder()), IsEmpty());
}

TEST_F(OutputFolderTest, WithoutAnyFolderTheToolExitsWithAMessageAndAStatus) {
  std::ofstream(server.home() + "/file") << "no folder";
  setEnvironment("XDG_MUSIC_DIR", server.home() + "/file/Music");
  const NotificationServer notifications(server.busAddress());
  const auto tool = start();
  EXPECT_EQ(tool->waitForExit(std::chrono::seconds(20)), 1);
  EXPECT_THAT(log(), HasSubstr("There is no folder for recordings."));
  EXPECT_THAT(notifications.shown(), Contains(AllOf(HasSubstr("There is no folder for recordings."),
                                                    HasSubstr(server.home() + "/file"))));
  EXPECT_THAT(events(), IsEmpty());
}

}  // namespace
}  // namespace e2e
