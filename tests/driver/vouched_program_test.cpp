// SPDX-License-Identifier: MIT
#include "driver/vouched_program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "tests/base/temporary_folder.h"

namespace {

using loopback::processOfClient;
using loopback::VouchedProgram;

// A client's properties as the daemon reports them.
struct Client {
  std::string pid;
  std::string uid = std::to_string(geteuid());

  [[nodiscard]] bool runs(const VouchedProgram& program) const {
    return asDict([&](const spa_dict& dict) { return program.isRunBy(dict); });
  }
  [[nodiscard]] bool hasProcess() const {
    return asDict([](const spa_dict& dict) { return processOfClient(dict).has_value(); });
  }

 private:
  template <typename Use>
  [[nodiscard]] bool asDict(const Use& use) const {
    const spa_dict_item items[] = {{"pipewire.sec.pid", pid.c_str()},
                                   {"pipewire.sec.uid", uid.c_str()}};
    const spa_dict dict = SPA_DICT_INIT_ARRAY(items);
    return use(dict);
  }
};

const std::string kOwnPid = std::to_string(getpid());

// A copy of a program that sleeps, and a process of a user that runs it.
class Sleeper {
 public:
  explicit Sleeper(const std::string& path, uid_t user = geteuid()) {
    std::filesystem::copy_file("/bin/sleep", path,
                               std::filesystem::copy_options::overwrite_existing);
    int ready[2];
    EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
    const int program = open(path.c_str(), O_PATH | O_CLOEXEC);
    pid_ = fork();
    if (pid_ == 0) {
      char name[] = "sleep";
      char duration_s[] = "60";
      char* const arguments[] = {name, duration_s, nullptr};
      // By its descriptor, as the user need not be allowed into the folder.
      if (setuid(user) == 0) fexecve(program, arguments, environ);
      _exit(127);
    }
    close(program);
    close(ready[1]);
    char byte = 0;
    EXPECT_EQ(read(ready[0], &byte, 1), 0);  // closed by the program's start
    close(ready[0]);
  }
  ~Sleeper() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Sleeper(const Sleeper&) = delete;
  Sleeper& operator=(const Sleeper&) = delete;
  [[nodiscard]] Client client() const { return {std::to_string(pid_)}; }

 private:
  pid_t pid_ = -1;
};

TEST(VouchedProgram, RecognisesItself) {
  EXPECT_TRUE(Client{kOwnPid}.runs(VouchedProgram::ownProgram()));
  EXPECT_TRUE(Client{kOwnPid}.runs(VouchedProgram("/proc/self/exe")));
}

TEST(VouchedProgram, RecognisesAnotherProgramAsAnother) {
  const base_test::TemporaryFolder folder;
  const Sleeper sleeper(folder / "driver");
  EXPECT_FALSE(sleeper.client().runs(VouchedProgram::ownProgram()));
  EXPECT_FALSE(sleeper.client().runs(VouchedProgram("/bin/sleep"))) << "a copy is not the program";
  EXPECT_TRUE(sleeper.client().runs(VouchedProgram(folder / "driver")));
}

TEST(VouchedProgram, OneThatWasReplacedWhileItRunsIsStillTheProgram) {
  const base_test::TemporaryFolder folder;
  const Sleeper sleeper(folder / "driver");
  std::filesystem::remove(folder / "driver");
  EXPECT_TRUE(sleeper.client().runs(VouchedProgram(folder / "driver")));
  const Sleeper successor(folder / "driver");
  EXPECT_TRUE(sleeper.client().runs(VouchedProgram(folder / "driver")));
  EXPECT_TRUE(successor.client().runs(VouchedProgram(folder / "driver")));
}

TEST(VouchedProgram, OneThatOthersCanWriteCountsOnlyInItsPlace) {
  const base_test::TemporaryFolder folder;
  const Sleeper sleeper(folder / "driver");
  std::filesystem::permissions(folder / "driver", std::filesystem::perms(0777));
  EXPECT_TRUE(sleeper.client().runs(VouchedProgram(folder / "driver")));
  std::filesystem::remove(folder / "driver");
  EXPECT_FALSE(sleeper.client().runs(VouchedProgram(folder / "driver")));
}

TEST(VouchedProgram, AClientWithoutAProcessOfThisUserRunsNothing) {
  const auto own = VouchedProgram::ownProgram();
  EXPECT_TRUE(Client{"1"}.hasProcess());
  for (const char* pid : {"", "x", "0", "-1", "1x", " 1", "99999999999999999999", "4194304999"}) {
    EXPECT_FALSE(Client{pid}.runs(own)) << pid;
    EXPECT_FALSE(Client{pid}.hasProcess()) << pid;
  }
  const Client others{kOwnPid, std::to_string(geteuid() + 1)};
  EXPECT_FALSE(others.hasProcess());
  EXPECT_FALSE(others.runs(own));
  EXPECT_FALSE((Client{kOwnPid, ""}).runs(own));
  const spa_dict nothing = SPA_DICT_INIT(nullptr, 0);
  EXPECT_FALSE(own.isRunBy(nothing));
}

TEST(VouchedProgram, WithoutAPathNoProgramMatches) {
  EXPECT_FALSE(Client{kOwnPid}.runs(VouchedProgram("")));
}

TEST(VouchedProgram, AProcessThatIsGoneRunsNothing) {
  const Client gone{"4194304"};  // one more than the kernel's largest
  EXPECT_TRUE(gone.hasProcess());
  EXPECT_FALSE(gone.runs(VouchedProgram::ownProgram()));
  EXPECT_FALSE(gone.runs(VouchedProgram("")));
}

// An update replaces the program while a user runs it.
TEST(VouchedProgram, OneOfRootThatWasReplacedIsStillTheProgramForItsUser) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  constexpr uid_t kUser = 1;
  const base_test::TemporaryFolder folder;
  const Sleeper sleeper(folder / "driver", kUser);
  std::filesystem::remove(folder / "driver");
  ASSERT_EQ(seteuid(kUser), 0);
  const bool isProgram = sleeper.client().runs(VouchedProgram(folder / "driver"));
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_TRUE(isProgram);
}

TEST(VouchedProgram, OneThatBelongsToAnotherUserCountsOnlyInItsPlace) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  const base_test::TemporaryFolder folder;
  const Sleeper sleeper(folder / "driver");
  constexpr uid_t kOther = 1;
  ASSERT_EQ(chown((folder / "driver").c_str(), kOther, 0), 0);
  EXPECT_TRUE(sleeper.client().runs(VouchedProgram(folder / "driver")));
  std::filesystem::remove(folder / "driver");
  EXPECT_FALSE(sleeper.client().runs(VouchedProgram(folder / "driver")));
}

}  // namespace
