// SPDX-License-Identifier: MIT
#include "hosts/linux/authorization/system_paths.h"

#include <gtest/gtest.h>

#include "driver/installed_paths.h"

namespace {

using linux_host::mappedSystemPath;

TEST(SystemPaths, FindThePlugInFolderAndTheSuite) {
  const std::string plugIns = loopback::kPlugInDirectory;
  EXPECT_EQ(mappedSystemPath("/Library/Audio/Plug-Ins/HAL"), plugIns);
  EXPECT_EQ(mappedSystemPath("/Library/Audio/Plug-Ins/HAL/VantrelKorvelAudio.driver"),
            plugIns + "/VantrelKorvelAudio.driver");
  const std::string suite = loopback::kSuiteDirectory;
  EXPECT_EQ(mappedSystemPath("/Applications/Vantrel Korvel.app"), suite);
  EXPECT_EQ(mappedSystemPath("/Applications/Vantrel Korvel.app/Contents/MacOS/DriverInstaller"),
            suite + "/Contents/MacOS/DriverInstaller");
}

TEST(SystemPaths, LeaveEveryOtherPathAlone) {
  for (const char* path :
       {"", "/", "/opt/vantrel-korvel", "/Library/Audio/Plug-Ins/HALx", "/Library/Audio/Plug-Ins",
        "/Applications/Vantrel Korvel.app2/x", "Library/x", "/home/u/Library/Audio/Plug-Ins/HAL"}) {
    EXPECT_EQ(mappedSystemPath(path), path);
  }
}

}  // namespace
