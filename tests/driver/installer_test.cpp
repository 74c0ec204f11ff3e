// SPDX-License-Identifier: MIT
#include "driver/installer/installer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>

#include "driver/installed_paths.h"

namespace {

namespace fs = std::filesystem;
using loopback::Installer;
using loopback::InstallError;
using loopback::Refusal;

constexpr char kPlugIns[] = "/usr/lib/vantrel-korvel/HAL";
constexpr char kDropIns[] = "/etc/pipewire/pipewire.conf.d";
constexpr char kSuite[] = "/opt/suite/Contents/PlugIns/VantrelKorvelAudio.driver";

// A folder that acts as the root of a file system, with a suite application in it.
class InstallerTest : public testing::Test {
 protected:
  InstallerTest() {
    umask(022);
    // In memory, because hundreds of installations flush every step to the disk.
    const fs::path place = fs::exists("/dev/shm") ? "/dev/shm" : fs::temp_directory_path();
    std::string pattern = (place / "installer-XXXXXX").string();
    root = mkdtemp(pattern.data());
    rootFd = loopback::UniqueFd(open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (const char* folder : {"/usr/lib", "/etc"}) fs::create_directories(root + folder);
    writeSource("1.0.3");
  }
  ~InstallerTest() override { fs::remove_all(root); }

  void write(const std::string& path, const std::string& content) const {
    fs::create_directories(fs::path(root + path).parent_path());
    std::ofstream(root + path) << content;
  }
  void writeSource(const std::string& version) const {
    for (const auto& [name, content] : bundle(version)) write(kSuite + ('/' + name), content);
  }
  static std::map<std::string, std::string> bundle(const std::string& version) {
    return {{loopback::kBundleInformation, "{\"CFBundleShortVersionString\": \"" + version + "\"}"},
            {loopback::kBundleProgram, std::string(70000, 'x') + version},
            {loopback::kBundleDropIn, "context.exec = []\n"}};
  }
  static std::map<std::string, std::string> contentOf(const std::string& folder) {
    std::map<std::string, std::string> content;
    if (!fs::exists(folder)) return content;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      if (!entry.is_regular_file()) continue;
      std::ostringstream text;
      text << std::ifstream(entry.path()).rdbuf();
      content[fs::relative(entry.path(), folder)] = text.str();
    }
    return content;
  }
  [[nodiscard]] Installer installer() const {
    return Installer({.root = rootFd.get(),
                      .sourceBundle = kSuite,
                      .plugInDirectory = kPlugIns,
                      .dropInDirectory = kDropIns,
                      .owner = geteuid()});
  }
  [[nodiscard]] std::string installedBundle() const {
    return root + kPlugIns + "/VantrelKorvelAudio.driver";
  }
  [[nodiscard]] std::string dropIn() const { return root + kDropIns + '/' + loopback::kDropInName; }
  [[nodiscard]] static std::size_t entriesIn(const std::string& folder) {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), {}));
  }
  void expectInstalled(const std::string& version) const {
    EXPECT_EQ(contentOf(installedBundle()), bundle(version));
    EXPECT_EQ(entriesIn(root + kPlugIns), 1U);
    EXPECT_EQ(contentOf(root + kDropIns),
              (std::map<std::string, std::string>{
                  {loopback::kDropInName, bundle(version)[loopback::kBundleDropIn]}}));
  }
  void expectNothingInstalled() const {
    EXPECT_FALSE(fs::exists(root + "/usr/lib/vantrel-korvel"));
    EXPECT_FALSE(fs::exists(dropIn()));
  }
  void expectRefused(const std::string& why) const {
    try {
      installer().install();
      ADD_FAILURE() << "installed, though " << why;
    } catch (const Refusal& refusal) {
      EXPECT_NE(std::string(refusal.what()).find(why), std::string::npos) << refusal.what();
    }
    EXPECT_FALSE(fs::exists(installedBundle()));
  }

  std::string root;
  loopback::UniqueFd rootFd;
};

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

TEST_F(InstallerTest, CopiesTheDriverAndItsStartUpFile) {
  EXPECT_EQ(installer().install(), Installer::Result::kChanged);
  expectInstalled("1.0.3");
}

TEST_F(InstallerTest, SetsTheModesWhateverTheOriginalsHave) {
  chmod((root + kSuite + '/' + loopback::kBundleProgram).c_str(), 0400);
  chmod((root + kSuite + '/' + loopback::kBundleInformation).c_str(), 0700);
  umask(077);
  installer().install();
  umask(022);
  EXPECT_EQ(modeOf(installedBundle() + '/' + loopback::kBundleProgram), 0755U);
  EXPECT_EQ(modeOf(installedBundle() + '/' + loopback::kBundleInformation), 0644U);
  EXPECT_EQ(modeOf(dropIn()), 0644U);
  for (const char* folder : {"", "/Contents", "/Contents/Linux", "/Contents/Resources", "/.."}) {
    EXPECT_EQ(modeOf(installedBundle() + folder), 0755U) << folder;
  }
}

TEST_F(InstallerTest, CopiesKnownFilesOnly) {
  write(std::string(kSuite) + "/Contents/Linux/stranger", "x");
  write(std::string(kSuite) + "/Contents/Resources/91-stranger.conf", "x");
  installer().install();
  expectInstalled("1.0.3");
}

TEST_F(InstallerTest, ASecondRunFindsNothingToDo) {
  installer().install();
  const auto before = fs::last_write_time(installedBundle());
  EXPECT_EQ(installer().install(), Installer::Result::kNothingToDo);
  EXPECT_EQ(fs::last_write_time(installedBundle()), before);
  expectInstalled("1.0.3");
}

TEST_F(InstallerTest, RepairsWhateverDiffers) {
  const std::function<void()> damages[] = {
      [&] { std::ofstream(dropIn()) << "something else"; },
      [&] { fs::remove(dropIn()); },
      [&] { std::ofstream(installedBundle() + '/' + loopback::kBundleProgram) << "broken"; },
      [&] { fs::remove(installedBundle() + '/' + loopback::kBundleInformation); },
      [&] { std::ofstream(installedBundle() + "/Contents/stranger") << "x"; },
      [&] { fs::create_directories(installedBundle() + "/Contents/stranger"); },
      [&] { chmod((installedBundle() + '/' + loopback::kBundleProgram).c_str(), 0644); },
      [&] { chmod((installedBundle() + "/Contents").c_str(), 0777); },
      [&] {
        fs::remove_all(installedBundle());
        fs::create_symlink("/nonexistent", installedBundle());
      },
  };
  for (const auto& damage : damages) {
    installer().install();
    damage();
    EXPECT_EQ(installer().install(), Installer::Result::kChanged);
    expectInstalled("1.0.3");
  }
}

TEST_F(InstallerTest, ReplacesAnOlderDriver) {
  writeSource("1.0.2");
  installer().install();
  writeSource("1.0.3");
  EXPECT_EQ(installer().install(), Installer::Result::kChanged);
  expectInstalled("1.0.3");
}

TEST_F(InstallerTest, RemovesWhatItInstalledAndNothingElse) {
  write("/etc/pipewire/pipewire.conf.d/10-users.conf", "x");
  write("/usr/lib/other/file", "x");
  installer().install();
  EXPECT_EQ(installer().uninstall(), Installer::Result::kChanged);
  expectNothingInstalled();
  EXPECT_TRUE(fs::exists(root + "/etc/pipewire/pipewire.conf.d/10-users.conf"));
  EXPECT_TRUE(fs::exists(root + "/usr/lib/other/file"));
  EXPECT_EQ(installer().uninstall(), Installer::Result::kNothingToDo);
}

TEST_F(InstallerTest, KeepsAPlugInFolderThatOthersUse) {
  installer().install();
  write(std::string(kPlugIns) + "/Other.driver/file", "x");
  installer().uninstall();
  EXPECT_FALSE(fs::exists(installedBundle()));
  EXPECT_TRUE(fs::exists(root + kPlugIns + "/Other.driver/file"));
}

TEST_F(InstallerTest, RefusesSymbolicLinksOnTheWayToTheSource) {
  for (const std::string path : {"/opt", "/opt/suite", "/opt/suite/Contents/PlugIns"}) {
    fs::rename(root + path, root + "/elsewhere");
    fs::create_symlink(root + "/elsewhere", root + path);
    expectRefused(path + " is a symbolic link");
    fs::remove(root + path);
    fs::rename(root + "/elsewhere", root + path);
  }
}

TEST_F(InstallerTest, RefusesSymbolicLinksInTheSource) {
  const std::string program = std::string(kSuite) + '/' + loopback::kBundleProgram;
  fs::rename(root + program, root + "/program");
  fs::create_symlink(root + "/program", root + program);
  expectRefused(program + " is a symbolic link");
}

TEST_F(InstallerTest, RefusesFilesThatOthersMayWrite) {
  const std::string bundlePath = kSuite;
  for (const std::string& path :
       {std::string("/"), std::string("/opt"), std::string("/opt/suite/Contents"), bundlePath,
        bundlePath + "/Contents/Linux", bundlePath + '/' + loopback::kBundleProgram}) {
    const mode_t mode = modeOf(root + path);
    for (const mode_t bit : {S_IWGRP, S_IWOTH}) {
      chmod((root + path).c_str(), mode | bit);
      expectRefused(path + " may be written by others");
    }
    // The sticky bit of a temporary folder does not help.
    chmod((root + path).c_str(), mode | S_IWOTH | S_ISVTX);
    expectRefused(path + " may be written by others");
    chmod((root + path).c_str(), mode);
  }
}

TEST_F(InstallerTest, RefusesFilesOfSomebodyElse) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  for (const std::string path : {"/opt/suite", "/opt/suite/Contents/PlugIns"}) {
    ASSERT_EQ(chown((root + path).c_str(), 1000, 0), 0);
    expectRefused(path + " belongs to user 1000");
    ASSERT_EQ(chown((root + path).c_str(), 0, 0), 0);
  }
}

TEST_F(InstallerTest, RefusesWhatIsNotARegularFileWithoutWaitingForIt) {
  const std::string program = std::string(kSuite) + '/' + loopback::kBundleProgram;
  fs::remove(root + program);
  ASSERT_EQ(mkfifo((root + program).c_str(), 0600), 0);
  expectRefused(program + " is neither a file nor a folder");
}

TEST_F(InstallerTest, RefusesADestinationThatIsNotItsOwn) {
  fs::create_directories(root + "/usr/lib/vantrel-korvel");
  chmod((root + "/usr/lib/vantrel-korvel").c_str(), 0777);
  expectRefused("/usr/lib/vantrel-korvel may be written by others");
  fs::remove_all(root + "/usr/lib/vantrel-korvel");
  fs::create_directories(root + "/home/user");
  fs::create_symlink(root + "/home/user", root + "/usr/lib/vantrel-korvel");
  expectRefused("/usr/lib/vantrel-korvel is a symbolic link");
  EXPECT_TRUE(fs::is_empty(root + "/home/user"));
}

TEST_F(InstallerTest, AnIncompleteSourceChangesNothing) {
  writeSource("1.0.2");
  installer().install();
  writeSource("1.0.3");
  fs::remove(root + kSuite + '/' + loopback::kBundleDropIn);
  EXPECT_THROW(installer().install(), Refusal);
  expectInstalled("1.0.2");
  write(kSuite + (std::string("/") + loopback::kBundleDropIn), "");
  EXPECT_THROW(installer().install(), InstallError);
  expectInstalled("1.0.2");
}

TEST_F(InstallerTest, TwoAtOnceDoNotMix) {
  installer().install();
  const std::string lock = root + kPlugIns + "/.VantrelKorvelAudio.lock";
  {
    const loopback::UniqueFd other(open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(flock(other.get(), LOCK_EX | LOCK_NB), 0);
    EXPECT_THROW(installer().install(), InstallError);
    EXPECT_THROW(installer().uninstall(), InstallError);
  }
  installer().install();  // the other installer is gone and has left its file
  expectInstalled("1.0.3");
}

// Another user can lock anything that they can open.
TEST_F(InstallerTest, LocksHeldByOthersDelayNothing) {
  installer().install();
  std::vector<loopback::UniqueFd> locks;
  for (const char* folder : {kPlugIns, kDropIns, "/usr/lib"}) {
    locks.emplace_back(open((root + folder).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(flock(locks.back().get(), LOCK_EX | LOCK_NB), 0);
  }
  writeSource("1.0.4");
  EXPECT_EQ(installer().install(), Installer::Result::kChanged);
  expectInstalled("1.0.4");
  EXPECT_EQ(installer().uninstall(), Installer::Result::kChanged);
}

// Runs `work` in a child that is killed before its `number`th system call. False when it finished
// before that.
bool killedBeforeSystemCall(int number, const std::function<void()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    work();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_EXITKILL);
  // Each call stops twice, before and after it.
  for (int stop = 1; stop < 2 * number; ++stop) {
    ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    waitpid(child, &status, 0);
    if (WIFEXITED(status)) return false;
  }
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
  return true;
}

TEST_F(InstallerTest, KilledAnywhereInAFirstInstallationItLeavesNothingOrAll) {
  for (int call = 1; killedBeforeSystemCall(call, [&] { installer().install(); }); ++call) {
    const auto content = contentOf(installedBundle());
    ASSERT_TRUE(content.empty() || content == bundle("1.0.3")) << "system call " << call;
    // The bundle means "installed", so the start-up file must not be missing then.
    ASSERT_TRUE(content.empty() || fs::exists(dropIn())) << "system call " << call;
    installer().install();
    expectInstalled("1.0.3");
    installer().uninstall();
    expectNothingInstalled();
    ASSERT_FALSE(HasFailure()) << "system call " << call;
  }
  expectInstalled("1.0.3");
}

TEST_F(InstallerTest, KilledAnywhereInAnUpgradeItLeavesTheOldOrTheNewDriver) {
  int old = 0;
  int replaced = 0;
  for (int call = 1;; ++call) {
    writeSource("1.0.2");
    installer().install();
    writeSource("1.0.3");
    if (!killedBeforeSystemCall(call, [&] { installer().install(); })) break;
    const auto content = contentOf(installedBundle());
    ASSERT_TRUE(content == bundle("1.0.2") || content == bundle("1.0.3")) << "call " << call;
    ++(content == bundle("1.0.2") ? old : replaced);
    ASSERT_TRUE(fs::exists(dropIn())) << "system call " << call;
    installer().install();
    expectInstalled("1.0.3");
    ASSERT_FALSE(HasFailure()) << "system call " << call;
  }
  expectInstalled("1.0.3");
  EXPECT_GT(old, 20);
  EXPECT_GT(replaced, 5);
}

TEST_F(InstallerTest, KilledAnywhereInARemovalItLeavesAllOrNoDriver) {
  for (int call = 1;; ++call) {
    installer().install();
    if (!killedBeforeSystemCall(call, [&] { installer().uninstall(); })) break;
    const auto content = contentOf(installedBundle());
    ASSERT_TRUE(content.empty() || content == bundle("1.0.3")) << "system call " << call;
    installer().uninstall();
    expectNothingInstalled();
    ASSERT_FALSE(HasFailure()) << "system call " << call;
  }
  expectNothingInstalled();
}

}  // namespace
