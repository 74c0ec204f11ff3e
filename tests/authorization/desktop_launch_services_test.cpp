// SPDX-License-Identifier: MIT
#include "hosts/linux/authorization/desktop_launch_services.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

namespace {

namespace fs = std::filesystem;
using linux_host::DesktopLaunchServices;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kSuite[] = "com.vantrel.korvel";

class DesktopLaunchServicesTest : public testing::Test {
 protected:
  DesktopLaunchServicesTest() {
    std::string pattern = (fs::temp_directory_path() / "launch-XXXXXX").string();
    directory = mkdtemp(pattern.data());
  }
  ~DesktopLaunchServicesTest() override { fs::remove_all(directory); }
  void writeEntry(const std::string& name, const std::string& identifier, const std::string& path) {
    const std::string file = directory + '/' + name;
    fs::create_directories(fs::path(file).parent_path());
    std::ofstream(file) << "[Desktop Entry]\nType=Application\nName=Suite\n"
                        << "X-Vantrel-BundleIdentifier=" << identifier << "\n"
                        << "X-Vantrel-BundlePath=" << path << "\n";
  }
  std::vector<std::string> find(const std::set<std::string>& refused = {},
                                const std::string& allowed = "") {
    DesktopLaunchServices services(
        {directory + "/first", directory + "/second"},
        [&](const std::string& path) {
          asked.push_back(path);
          return refused.contains(path) ? path + " is refused" : "";
        },
        allowed);
    return services.copyApplicationPathsForBundleIdentifier(kSuite);
  }
  std::string directory;
  std::vector<std::string> asked;
};

TEST_F(DesktopLaunchServicesTest, FindsNothingWhereThereIsNothing) {
  EXPECT_THAT(find(), IsEmpty());
}

TEST_F(DesktopLaunchServicesTest, FindsApplicationsInTheOrderOfTheFolders) {
  writeEntry("second/applications/a.desktop", kSuite, "/opt/in-second");
  writeEntry("first/applications/b.desktop", kSuite, "/opt/b");
  writeEntry("first/applications/a2.desktop", kSuite, "/opt/a2/");
  EXPECT_THAT(find(), ElementsAre("/opt/a2", "/opt/b", "/opt/in-second"));
}

TEST_F(DesktopLaunchServicesTest, AnEntryHidesOthersOfItsNameAndAPathCountsOnce) {
  writeEntry("first/applications/suite.desktop", kSuite, "/opt/new");
  writeEntry("second/applications/suite.desktop", kSuite, "/opt/old");
  writeEntry("second/applications/twice.desktop", kSuite, "/opt/new");
  EXPECT_THAT(find(), ElementsAre("/opt/new"));
}

TEST_F(DesktopLaunchServicesTest, OtherApplicationsAndOddEntriesDoNotCount) {
  writeEntry("first/applications/other.desktop", "com.vantrel.other", "/opt/other");
  writeEntry("first/applications/relative.desktop", kSuite, "opt/relative");
  writeEntry("first/applications/empty.desktop", kSuite, "");
  writeEntry("first/applications/suite.txt", kSuite, "/opt/text");
  std::ofstream(directory + "/first/applications/broken.desktop") << "no desktop entry";
  EXPECT_THAT(find(), IsEmpty());
}

TEST_F(DesktopLaunchServicesTest, LeavesOutFilesThatSomebodyElseCouldHaveWritten) {
  writeEntry("first/applications/a.desktop", kSuite, "/opt/a");
  writeEntry("first/applications/b.desktop", kSuite, "/opt/b");
  writeEntry("first/applications/c.desktop", kSuite, "/opt/c");
  EXPECT_THAT(find({"/opt/a/Contents/MacOS/DriverInstaller",
                    "/opt/b/Contents/PlugIns/VantrelKorvelAudio.driver"}),
              ElementsAre("/opt/c"));
}

// The right to install is bound to one path: for any other, pkexec would ask a second time.
TEST_F(DesktopLaunchServicesTest, LeavesOutApplicationsThatTheRightDoesNotCover) {
  writeEntry("first/applications/a.desktop", kSuite, "/opt/a");
  writeEntry("first/applications/b.desktop", kSuite, "/opt/b");
  EXPECT_THAT(find({}, "/opt/b"), ElementsAre("/opt/b"));
  EXPECT_THAT(find({}, "/opt/c"), IsEmpty());
}

TEST_F(DesktopLaunchServicesTest, ByDefaultAnApplicationOfTheUsersOwnIsLeftOut) {
  const std::string suite = directory + "/suite";
  fs::create_directories(suite + "/Contents/MacOS");
  fs::create_directories(suite + "/Contents/PlugIns/VantrelKorvelAudio.driver");
  std::ofstream(suite + "/Contents/MacOS/DriverInstaller") << "x";
  writeEntry("first/applications/a.desktop", kSuite, suite);
  DesktopLaunchServices services({directory + "/first"});
  EXPECT_THAT(services.copyApplicationPathsForBundleIdentifier(kSuite), IsEmpty());
}

TEST(SystemDataDirectories, ComeFromTheEnvironmentOrAreTheUsualOnes) {
  setenv("XDG_DATA_DIRS", "/a:relative:/b", 1);
  EXPECT_THAT(DesktopLaunchServices::systemDataDirectories(), ElementsAre("/a", "/b"));
  unsetenv("XDG_DATA_DIRS");
  EXPECT_THAT(DesktopLaunchServices::systemDataDirectories(),
              ElementsAre("/usr/local/share", "/usr/share"));
}

}  // namespace
