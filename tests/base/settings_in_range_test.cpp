// SPDX-License-Identifier: MIT
#include "hosts/linux/settings_store/settings_in_range.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "hosts/linux/settings_store/user_defaults.h"
#include "tests/base/temporary_folder.h"

namespace linux_host {
namespace {

using ::testing::HasSubstr;

// No sound is lost because of a wrong number.
TEST(SettingsInRangeTest, ANumberThatIsNotACodeReadsAsTheDefaultAndIsKept) {
  const base_test::TemporaryFolder folder;
  const std::string path = folder / "defaults.json";
  for (const char* number : {"2", "7", "-1", "9223372036854775807", "1e30"}) {
    base_test::write(path, std::string(R"({"SoundFormat":)") + number + R"(,"Quality":9})");
    LinuxUserDefaults defaults(path);
    const SettingsInRange settings(defaults, {{"SoundFormat", 0, 1, 0}});
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(settings.integerForKey("SoundFormat"), 0) << number;
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("The setting SoundFormat is"));
    EXPECT_EQ(settings.integerForKey("Quality"), 9) << "no code";
    EXPECT_TRUE(settings.objectForKey("SoundFormat"));
  }
  for (const int code : {0, 1}) {
    base_test::write(path, R"({"SoundFormat":)" + std::to_string(code) + "}");
    LinuxUserDefaults defaults(path);
    EXPECT_EQ(SettingsInRange(defaults, {{"SoundFormat", 0, 1, 0}}).integerForKey("SoundFormat"),
              code);
  }
}

}  // namespace
}  // namespace linux_host
