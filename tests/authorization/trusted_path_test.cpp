// SPDX-License-Identifier: MIT
#include "driver/installer/trusted_path.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using loopback::openTrustedBySystem;

TEST(TrustedBySystem, IsWhatThePackagesInstalled) {
  for (const char* path : {"/usr", "/usr/bin", "/usr/share/dbus-1", "/etc/passwd"}) {
    EXPECT_EQ(openTrustedBySystem(path).refusal, "") << path;
  }
}

TEST(TrustedBySystem, IsNothingInAFolderThatAnybodyMayWriteTo) {
  std::string folder = (fs::temp_directory_path() / "trusted-XXXXXX").string();
  ASSERT_NE(mkdtemp(folder.data()), nullptr);
  std::ofstream(folder + "/tool") << "x";
  chmod((folder + "/tool").c_str(), 0755);
  const auto opened = openTrustedBySystem(folder + "/tool");
  EXPECT_FALSE(opened.fd.valid());
  EXPECT_EQ(opened.refusal,
            fs::temp_directory_path().string() + " may be written by others than its owner");
  fs::remove_all(folder);
}

TEST(TrustedBySystem, FollowsNoLinksAndNoDots) {
  EXPECT_NE(openTrustedBySystem("/proc/self/exe").refusal, "");
  for (const char* path : {"", "usr", "/usr/../usr", "/usr/./bin", "//usr", "/usr//bin", "/usr/"}) {
    EXPECT_FALSE(openTrustedBySystem(path).fd.valid()) << path;
  }
  EXPECT_NE(openTrustedBySystem("/usr/no such thing").refusal, "");
}

}  // namespace
