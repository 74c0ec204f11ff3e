// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "hosts/linux/base/run_loop.h"
#include "hosts/linux/settings_store/user_defaults.h"
#include "tests/base/temporary_folder.h"

// What of the settings is left when the program is killed.

namespace linux_host {
namespace {

using base_test::TemporaryFolder;
using ::testing::KilledBySignal;

class SettingsKillTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string file() const { return folder_ / "defaults.json"; }

  // Runs the loop until the settings are on the disk or ten seconds are over, and dies.
  void dieOnceSaved(MainLoop& loop) const {
    int looks = 0;
    const auto poll = loop.scheduledTimer(0.01, {}, true, [&](const platform::TimerPtr&) {
      if (std::filesystem::exists(file()) || ++looks == 1000) std::raise(SIGKILL);
    });
    loop.run();
  }

  // The preferences window stores the sound format without a flush of its own.
  void pickFormatAndDie() const {
    MainLoop loop;
    LinuxUserDefaults defaults(file(), &loop);
    defaults.setInteger(1, "SoundFormat");
    dieOnceSaved(loop);
  }

  void pickFormatThenQualityAndDie() const {
    MainLoop loop;
    LinuxUserDefaults defaults(file(), &loop);
    defaults.setInteger(1, "SoundFormat");
    defaults.setInteger(2, "Quality");
    defaults.synchronize();
    std::raise(SIGKILL);
  }

  void pickFormatAndDieAtOnce() const {
    MainLoop loop;
    LinuxUserDefaults defaults(file(), &loop);
    defaults.setInteger(1, "SoundFormat");
    std::raise(SIGKILL);
  }

  const TemporaryFolder folder_;
};

TEST_F(SettingsKillTest, TheSoundFormatOutlivesAKillThoughNobodyFlushedIt) {
  EXPECT_EXIT(pickFormatAndDie(), KilledBySignal(SIGKILL), "");
  EXPECT_EQ(LinuxUserDefaults(file()).integerForKey("SoundFormat"), 1);
}

TEST_F(SettingsKillTest, TheNextFlushTakesTheSoundFormatWithIt) {
  EXPECT_EXIT(pickFormatThenQualityAndDie(), KilledBySignal(SIGKILL), "");
  const LinuxUserDefaults defaults(file());
  EXPECT_EQ(defaults.integerForKey("SoundFormat"), 1);
  EXPECT_EQ(defaults.integerForKey("Quality"), 2);
}

TEST_F(SettingsKillTest, AKillBeforeTheStoreSavesLosesOnlyTheSoundFormat) {
  { LinuxUserDefaults(file()).setInteger(2, "Quality"); }
  EXPECT_EXIT(pickFormatAndDieAtOnce(), KilledBySignal(SIGKILL), "");
  const LinuxUserDefaults defaults(file());
  EXPECT_EQ(defaults.integerForKey("SoundFormat"), 0);
  EXPECT_EQ(defaults.integerForKey("Quality"), 2);
}

}  // namespace
}  // namespace linux_host
