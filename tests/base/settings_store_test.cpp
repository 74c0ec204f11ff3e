// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "hosts/linux/base/json_values.h"
#include "hosts/linux/base/run_loop.h"
#include "hosts/linux/settings_store/suite_storage.h"
#include "hosts/linux/settings_store/user_defaults.h"
#include "suite/embedded_suite.h"
#include "tests/base/temporary_folder.h"

namespace linux_host {
namespace {

using base_test::contentsOf;
using base_test::Environment;
using base_test::namesIn;
using base_test::TemporaryFolder;
using platform::Dictionary;
using platform::Value;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class DefaultsTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string file() const { return folder_ / "config/app/defaults.json"; }
  TemporaryFolder folder_;
};

TEST_F(DefaultsTest, WithoutAFileEverythingIsAbsentAndNoFileIsMade) {
  LinuxUserDefaults defaults(file());
  EXPECT_FALSE(defaults.objectForKey("AudioSourceType"));
  EXPECT_EQ(defaults.integerForKey("AudioSourceType"), 0);
  EXPECT_FALSE(defaults.boolForKey("HihglightMouseClicks"));
  EXPECT_FALSE(defaults.stringForKey("AudioSourceID"));
  EXPECT_FALSE(defaults.dictionaryForKey("QuickLook"));
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_FALSE(std::filesystem::exists(file()));
}

TEST_F(DefaultsTest, TheNextProgramReadsWhatWasWritten) {
  {
    LinuxUserDefaults defaults(file());
    defaults.setInteger(3, "AudioSourceType");
    defaults.setBool(true, "HihglightMouseClicks");
    defaults.setObject("alsa_input.mic", "AudioSourceID");
    defaults.setObject(Dictionary{{"RecordAudio.app", Dictionary{{"Quality", std::uint64_t{2}}}}},
                       "QuickLook");
    EXPECT_EQ(defaults.integerForKey("AudioSourceType"), 3) << "before it is on the disk";
    EXPECT_TRUE(defaults.synchronize());
  }
  const LinuxUserDefaults defaults(file());
  EXPECT_EQ(defaults.integerForKey("AudioSourceType"), 3);
  EXPECT_TRUE(defaults.boolForKey("HihglightMouseClicks"));
  EXPECT_EQ(defaults.stringForKey("AudioSourceID"), "alsa_input.mic");
  const auto slots = defaults.dictionaryForKey("QuickLook");
  ASSERT_TRUE(slots);
  EXPECT_EQ(slots->at("RecordAudio.app"), Value(Dictionary{{"Quality", 2}}));
}

TEST_F(DefaultsTest, PendingChangesReachTheDiskAtTheLatestAtTheEnd) {
  {
    LinuxUserDefaults defaults(file());
    defaults.setInteger(1, "SoundFormat");
    EXPECT_FALSE(std::filesystem::exists(file()));
  }
  EXPECT_EQ(contentsOf(file()), "{\n  \"SoundFormat\": 1\n}\n");
}

TEST_F(DefaultsTest, OnlyTheUserCanReadTheFile) {
  LinuxUserDefaults defaults(file());
  defaults.setInteger(1, "Quality");
  ASSERT_TRUE(defaults.synchronize());
  struct stat status {};
  ASSERT_EQ(stat(file().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  EXPECT_THAT(namesIn(folder_ / "config/app"), ElementsAre("defaults.json"));
}

TEST_F(DefaultsTest, ForeignKeysStayInTheirOrder) {
  base_test::write(file(), R"({"zeta": [1, {"deep": null}], "Quality": 0,
    "alpha": "\u00e4", "big": 18446744073709551615, "real": 0.1})");
  LinuxUserDefaults defaults(file());
  defaults.setInteger(2, "Quality");
  ASSERT_TRUE(defaults.synchronize());
  const Json json = Json::parse(contentsOf(file()));
  std::vector<std::string> keys;
  for (const auto& [key, value] : json.items()) keys.push_back(key);
  EXPECT_THAT(keys, ElementsAre("zeta", "Quality", "alpha", "big", "real"));
  EXPECT_EQ(json["zeta"], Json::parse(R"([1, {"deep": null}])"));
  EXPECT_EQ(json["big"], 18446744073709551615ULL);
  EXPECT_EQ(json["real"], 0.1);
  EXPECT_EQ(json["Quality"], 2);
}

TEST_F(DefaultsTest, ChangesByOthersUnderOtherKeysAreKept) {
  base_test::write(file(), R"({"Quality": 0, "other": 1})");
  LinuxUserDefaults defaults(file());
  base_test::write(file(), R"({"Quality": 1, "other": 2, "new": 3})");
  defaults.setInteger(1, "SoundFormat");
  ASSERT_TRUE(defaults.synchronize());
  const Json json = Json::parse(contentsOf(file()));
  EXPECT_EQ(json, Json::parse(R"({"Quality": 1, "other": 2, "new": 3, "SoundFormat": 1})"));
  EXPECT_EQ(defaults.integerForKey("Quality"), 1) << "seen from now on";
}

TEST_F(DefaultsTest, ValuesOfOtherTypesAreConverted) {
  base_test::write(file(), R"({"text": " 12abc", "yes": "YES", "real": 2.9, "flag": true,
    "huge": 123456789012345678901234567890, "list": [1], "nothing": null})");
  const LinuxUserDefaults defaults(file());
  EXPECT_EQ(defaults.integerForKey("text"), 12);
  EXPECT_TRUE(defaults.boolForKey("yes"));
  EXPECT_EQ(defaults.integerForKey("yes"), 0);
  EXPECT_EQ(defaults.integerForKey("real"), 2);
  EXPECT_EQ(defaults.stringForKey("flag"), "1");
  EXPECT_EQ(defaults.integerForKey("huge"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(defaults.integerForKey("list"), 0);
  EXPECT_FALSE(defaults.stringForKey("list"));
  EXPECT_FALSE(defaults.dictionaryForKey("list"));
  EXPECT_TRUE(defaults.objectForKey("list"));
  EXPECT_FALSE(defaults.objectForKey("nothing"));
}

class DamagedDefaultsTest : public DefaultsTest,
                            public ::testing::WithParamInterface<std::string> {};

TEST_P(DamagedDefaultsTest, ADamagedFileIsSetAsideWholeAndDefaultsAreUsed) {
  base_test::write(file(), GetParam());
  ::testing::internal::CaptureStderr();
  LinuxUserDefaults defaults(file());
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              AllOf(HasSubstr(file()), HasSubstr("damaged"), HasSubstr("set aside")));
  EXPECT_FALSE(defaults.objectForKey("Quality"));
  const auto names = namesIn(folder_ / "config/app");
  ASSERT_EQ(names.size(), 1U);
  EXPECT_THAT(names[0], StartsWith("defaults.json.damaged-"));
  EXPECT_EQ(contentsOf(folder_ / ("config/app/" + names[0])), GetParam());
  defaults.setInteger(1, "Quality");
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(namesIn(folder_ / "config/app").size(), 2U);
}

INSTANTIATE_TEST_SUITE_P(Kinds, DamagedDefaultsTest,
                         ::testing::Values("", "{", "[]", "3", "{\"Quality\": 1,}",
                                           "{\"Quality\": \"\xff\"}", std::string("\0\0\0", 3),
                                           "{\"a\":" + std::string(100000, '['),
                                           "{\"a\":" + std::string(100, '[') +
                                               std::string(100, ']') + "}"));

// Something at the path, or behind a link there, and how it is made; in the test's folder.
struct StrangeThing {
  const char* name;
  void (*make)(const std::string& path);
};

class StrangeDefaultsTest : public DefaultsTest,
                            public ::testing::WithParamInterface<StrangeThing> {
 protected:
  StrangeDefaultsTest() { std::filesystem::create_directories(folder_ / "config/app"); }

  // The settings have their defaults, nothing is saved, and the thing at the path is still there.
  void expectItIsLeftAlone(const std::string& target) {
    struct stat before {};
    ASSERT_EQ(stat(target.c_str(), &before), 0);
    ::testing::internal::CaptureStderr();
    {
      LinuxUserDefaults defaults(file());
      EXPECT_FALSE(defaults.objectForKey("Quality"));
      defaults.setInteger(1, "Quality");
      EXPECT_FALSE(defaults.synchronize());
    }
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                AllOf(HasSubstr(file()), HasSubstr("is left as it is")));
    struct stat after {};
    ASSERT_EQ(stat(target.c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_THAT(namesIn(folder_ / "config/app"), ElementsAre("defaults.json"));
  }
};

TEST_P(StrangeDefaultsTest, IsNeitherReadNorRenamedNorReplaced) {
  GetParam().make(file());
  expectItIsLeftAlone(file());
}

TEST_P(StrangeDefaultsTest, IsLeftAloneBehindALinkToo) {
  std::filesystem::create_directories(folder_ / "else");
  GetParam().make(folder_ / "else/thing");
  std::filesystem::create_symlink(folder_ / "else/thing", file());
  expectItIsLeftAlone(folder_ / "else/thing");
  EXPECT_TRUE(std::filesystem::is_symlink(file()));
  EXPECT_THAT(namesIn(folder_ / "else"), ElementsAre("thing"));
}

void makeFolder(const std::string& path) {
  std::filesystem::create_directories(path);
}
void makePipe(const std::string& path) {
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
}
// A private node for the null device. Without the right to make one, a socket is used instead.
void makeDevice(const std::string& path) {
  if (mknod(path.c_str(), S_IFCHR | 0600, makedev(1, 3)) == 0) return;
  ASSERT_EQ(mknod(path.c_str(), S_IFSOCK | 0600, 0), 0);
}

INSTANTIATE_TEST_SUITE_P(Things, StrangeDefaultsTest,
                         ::testing::Values(StrangeThing{"Folder", makeFolder},
                                           StrangeThing{"Pipe", makePipe},
                                           StrangeThing{"Device", makeDevice}),
                         [](const auto& thing) { return std::string(thing.param.name); });

TEST_F(DefaultsTest, ADamagedFileBehindALinkStaysWhereItIs) {
  base_test::write(folder_ / "dotfiles/settings", "precious");
  std::filesystem::create_directories(folder_ / "config/app");
  std::filesystem::create_symlink("../../dotfiles/settings", file());
  {
    LinuxUserDefaults defaults(file());
    defaults.setInteger(2, "Quality");
    EXPECT_FALSE(defaults.synchronize());
  }
  EXPECT_TRUE(std::filesystem::is_symlink(file()));
  EXPECT_EQ(contentsOf(folder_ / "dotfiles/settings"), "precious");
  EXPECT_THAT(namesIn(folder_ / "dotfiles"), ElementsAre("settings"));
  EXPECT_THAT(namesIn(folder_ / "config/app"), ElementsAre("defaults.json"));
}

TEST_F(DefaultsTest, AnotherUsersFileIsReadButNeverReplacedOrRenamed) {
  base_test::write(file(), R"({"Quality": 1})");
  ASSERT_EQ(chown(file().c_str(), 65534, 65534), 0);
  {
    LinuxUserDefaults defaults(file());
    EXPECT_EQ(defaults.integerForKey("Quality"), 1);
    defaults.setInteger(2, "Quality");
    EXPECT_FALSE(defaults.synchronize());
  }
  EXPECT_EQ(contentsOf(file()), R"({"Quality": 1})");
  base_test::write(file(), "damaged");
  { const LinuxUserDefaults defaults(file()); }
  EXPECT_THAT(namesIn(folder_ / "config/app"), ElementsAre("defaults.json"));
}

TEST_F(DefaultsTest, AFileThatIsTooLargeToBeOursIsSetAside) {
  base_test::write(file(), "{}");
  std::filesystem::resize_file(file(), std::uintmax_t{1} << 30);
  { const LinuxUserDefaults defaults(file()); }
  EXPECT_THAT(namesIn(folder_ / "config/app"), ElementsAre(StartsWith("defaults.json.damaged-")));
}

TEST_F(DefaultsTest, ChangesByOthersInsideADictionaryAreKept) {
  base_test::write(file(),
                   R"({"QuickLook": {"A.app": {"x": 1}, "Mine.app": {"Quality": 0, "y": 1}}})");
  LinuxUserDefaults defaults(file());
  base_test::write(file(), R"({"QuickLook": {"A.app": {"x": 2}, "B.app": {"z": 3},
      "Mine.app": {"Quality": 0, "y": 2, "new": 4}}})");
  Dictionary slots = *defaults.dictionaryForKey("QuickLook");
  slots["Mine.app"] = Dictionary{{"Quality", 2}, {"y", 1}};
  defaults.setObject(slots, "QuickLook");
  ASSERT_TRUE(defaults.synchronize());
  EXPECT_EQ(Json::parse(contentsOf(file())),
            Json::parse(R"({"QuickLook": {"A.app": {"x": 2}, "B.app": {"z": 3},
                "Mine.app": {"Quality": 2, "y": 2, "new": 4}}})"));
  EXPECT_TRUE(defaults.dictionaryForKey("QuickLook")->contains("B.app")) << "seen from now on";
}

TEST_F(DefaultsTest, WhatThisProgramRemovesFromADictionaryIsGone) {
  base_test::write(file(), R"({"QuickLook": {"A.app": {"x": 1}, "Mine.app": {"y": 1}}})");
  LinuxUserDefaults defaults(file());
  defaults.setObject(Dictionary{{"A.app", Dictionary{{"x", 1}}}}, "QuickLook");
  ASSERT_TRUE(defaults.synchronize());
  EXPECT_EQ(Json::parse(contentsOf(file())), Json::parse(R"({"QuickLook": {"A.app": {"x": 1}}})"));
}

TEST_F(DefaultsTest, AChoiceThatIsMadeAgainIsWrittenAgain) {
  base_test::write(file(), R"({"Quality": 2})");
  LinuxUserDefaults defaults(file());
  base_test::write(file(), R"({"Quality": 1})");
  defaults.setInteger(2, "Quality");
  ASSERT_TRUE(defaults.synchronize());
  EXPECT_EQ(Json::parse(contentsOf(file()))["Quality"], 2);
}

// Each writer writes its own entries as fast as it can; no entry may be lost.
TEST_F(DefaultsTest, WritersAtOnceLoseNothing) {
  constexpr int kWriters = 4;
  constexpr int kEntries = 25;
  std::vector<pid_t> writers;
  for (int writer = 0; writer < kWriters; ++writer) {
    writers.push_back(fork());
    if (writers.back() != 0) continue;
    LinuxUserDefaults defaults(file());
    bool saved = true;
    for (int i = 0; i < kEntries; ++i) {
      Dictionary slots = defaults.dictionaryForKey("QuickLook").value_or(Dictionary());
      slots["w" + std::to_string(writer) + "-" + std::to_string(i)] = Dictionary{{"x", i}};
      defaults.setObject(slots, "QuickLook");
      saved = defaults.synchronize() && saved;
    }
    _exit(saved ? 0 : 1);
  }
  for (const pid_t writer : writers) {
    int status = 0;
    ASSERT_EQ(waitpid(writer, &status, 0), writer);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(Json::parse(contentsOf(file()))["QuickLook"].size(),
            static_cast<std::size_t>(kWriters * kEntries));
}

TEST_F(DefaultsTest, DoesNotWaitForeverForAHeldLock) {
  std::filesystem::create_directories(folder_ / "config/app");
  const int fd = open((folder_ / "config/app").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(flock(fd, LOCK_EX), 0);
  LinuxUserDefaults defaults(file());
  defaults.setInteger(1, "Quality");
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(Json::parse(contentsOf(file()))["Quality"], 1);
  close(fd);
}

TEST_F(DefaultsTest, WithALoopAnUnflushedChangeReachesTheDiskWithinASecond) {
  MainLoop loop;
  LinuxUserDefaults defaults(file(), &loop);
  const auto begin = std::chrono::steady_clock::now();
  defaults.setInteger(1, "SoundFormat");
  EXPECT_FALSE(std::filesystem::exists(file())) << "it is not flushed at once";
  const auto poll = loop.scheduledTimer(0.01, {}, true, [&](const platform::TimerPtr& timer) {
    const bool late = std::chrono::steady_clock::now() - begin > std::chrono::seconds(10);
    if (!std::filesystem::exists(file()) && !late) return;
    timer->invalidate();
    loop.quit();
  });
  loop.run();
  EXPECT_EQ(contentsOf(file()), "{\n  \"SoundFormat\": 1\n}\n");
  EXPECT_LE(LinuxUserDefaults::kSaveDelay_s, 0.9);
}

TEST_F(DefaultsTest, TwoDamagedFilesInOneSecondBothStay) {
  base_test::write(file(), "one");
  { const LinuxUserDefaults defaults(file()); }
  base_test::write(file(), "two");
  { const LinuxUserDefaults defaults(file()); }
  EXPECT_EQ(namesIn(folder_ / "config/app").size(), 2U);
}

TEST_F(DefaultsTest, ADamagedFileThatCannotBeSetAsideIsNeverOverwritten) {
  base_test::write(file(), "precious");
  const std::string folder = folder_ / "config/app";
  // Root can write everywhere except on a read-only mount.
  ASSERT_EQ(mount(folder.c_str(), folder.c_str(), nullptr, MS_BIND, nullptr), 0);
  ASSERT_EQ(mount(nullptr, folder.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
  {
    LinuxUserDefaults defaults(file());
    defaults.setInteger(1, "Quality");
    EXPECT_FALSE(defaults.synchronize());
    ASSERT_EQ(mount(nullptr, folder.c_str(), nullptr, MS_BIND | MS_REMOUNT, nullptr), 0);
    EXPECT_EQ(contentsOf(file()), "precious");
    EXPECT_TRUE(defaults.synchronize()) << "the change was still pending";
  }
  EXPECT_EQ(Json::parse(contentsOf(file())), Json::parse(R"({"Quality": 1})"));
  EXPECT_EQ(namesIn(folder).size(), 2U);
  umount2(folder.c_str(), MNT_DETACH);
}

TEST_F(DefaultsTest, ALinkedFileStaysLinked) {
  base_test::write(folder_ / "dotfiles/settings", R"({"Quality": 1})");
  std::filesystem::create_directories(folder_ / "config/app");
  std::filesystem::create_symlink("../../dotfiles/settings", file());
  LinuxUserDefaults defaults(file());
  EXPECT_EQ(defaults.integerForKey("Quality"), 1);
  defaults.setInteger(2, "Quality");
  ASSERT_TRUE(defaults.synchronize());
  EXPECT_TRUE(std::filesystem::is_symlink(file()));
  EXPECT_EQ(Json::parse(contentsOf(folder_ / "dotfiles/settings"))["Quality"], 2);
}

TEST_F(DefaultsTest, TextThatIsNotUtf8IsWrittenAsUtf8) {
  LinuxUserDefaults defaults(file());
  defaults.setObject(std::string("mic\xff"), "AudioSourceID");
  ASSERT_TRUE(defaults.synchronize());
  EXPECT_EQ(Json::parse(contentsOf(file()))["AudioSourceID"], "mic\ufffd");
}

class SuiteStorageTest : public ::testing::Test {
 protected:
  SuiteStorage storage() const { return SuiteStorage(folders_); }
  [[nodiscard]] std::string locations() const {
    return folders_.config + "/com.vantrel.korvel/locations.json";
  }
  [[nodiscard]] std::string events() const {
    return folders_.state + "/com.vantrel.korvel/events.jsonl";
  }
  TemporaryFolder folder_;
  XdgFolders folders_{folder_ / "config", folder_ / "state", folder_ / "home/Music"};
};

TEST_F(SuiteStorageTest, RecordingsGoIntoTheMusicFolderWhichIsCreated) {
  EXPECT_EQ(storage().outputFolder("tool"), folders_.music);
  EXPECT_TRUE(std::filesystem::is_directory(folders_.music));
}

TEST_F(SuiteStorageTest, TheEntryOfTheToolChoosesTheFolder) {
  base_test::write(locations(), "{\"tool\": \"" + folder_ / "chosen/deep/" + "\"}");
  EXPECT_EQ(storage().outputFolder("tool"), folder_ / "chosen/deep");
  EXPECT_TRUE(std::filesystem::is_directory(folder_ / "chosen/deep"));
  EXPECT_EQ(storage().outputFolder("another"), folders_.music);
}

TEST_F(SuiteStorageTest, AChosenFolderThatCannotBeUsedIsReturnedAndTheLogSaysWhy) {
  base_test::write(folder_ / "file", "");
  for (const std::string& folder : {folder_ / "file/sub", folder_ / "file", std::string("/proc")}) {
    base_test::write(locations(), "{\"tool\": \"" + folder + "\"}");
    ::testing::internal::CaptureStderr();
    SuiteStorage store = storage();
    EXPECT_EQ(store.outputFolder("tool"), folder);
    EXPECT_THAT(store.outputFolderProblem(), HasSubstr(folder_ / "file" == folder ? folder : "/"));
    EXPECT_THAT(
        ::testing::internal::GetCapturedStderr(),
        AllOf(HasSubstr("cannot be used just now"), HasSubstr(store.outputFolderProblem())));
  }
}

TEST_F(SuiteStorageTest, AFoldersProblemIsForgottenWithIt) {
  base_test::write(locations(), "{\"tool\": \"/proc\"}");
  SuiteStorage store = storage();
  EXPECT_EQ(store.outputFolder("tool"), "/proc");
  EXPECT_NE(store.outputFolderProblem(), "");
  std::filesystem::create_directories(folder_ / "new");
  ASSERT_EQ(store.setOutputFolder("tool", folder_ / "new"), "");
  EXPECT_EQ(store.outputFolder("tool"), folder_ / "new");
  EXPECT_EQ(store.outputFolderProblem(), "");
}

TEST_F(SuiteStorageTest, TheMusicFolderIsReturnedIfItExistsOrElseNone) {
  folders_.music = "/proc";
  EXPECT_EQ(storage().outputFolder("tool"), "/proc");
  base_test::write(folder_ / "file", "");
  folders_.music = folder_ / "file/Music";
  ::testing::internal::CaptureStderr();
  SuiteStorage store = storage();
  EXPECT_FALSE(store.outputFolder("tool"));
  EXPECT_NE(store.outputFolderProblem(), "");
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              AllOf(HasSubstr("no folder for recordings"), HasSubstr(folder_ / "file")));
}

TEST_F(SuiteStorageTest, BadEntriesFallBackToTheMusicFolderAndTheFileStays) {
  for (const char* bad : {"{\"tool\": 7}", "{\"tool\": \"relative\"}", "{\"tool\": \"\"}", "{"}) {
    base_test::write(locations(), bad);
    EXPECT_EQ(storage().outputFolder("tool"), folders_.music) << bad;
    EXPECT_EQ(contentsOf(locations()), bad);
  }
}

TEST_F(SuiteStorageTest, AChosenFolderIsStoredBesideThoseOfOtherTools) {
  base_test::write(locations(), "{\"another\": \"/x\"}");
  std::filesystem::create_directories(folder_ / "new");
  EXPECT_EQ(storage().setOutputFolder("tool", folder_ / "new/"), "");
  EXPECT_EQ(storage().outputFolder("tool"), folder_ / "new");
  EXPECT_EQ(Json::parse(contentsOf(locations()))["another"], "/x");
  EXPECT_EQ(std::filesystem::status(locations()).permissions(), std::filesystem::perms(0600));
}

TEST_F(SuiteStorageTest, AFolderThatCannotBeWrittenIsRefusedAndTheOldOneStays) {
  std::filesystem::create_directories(folder_ / "old");
  ASSERT_EQ(storage().setOutputFolder("tool", folder_ / "old"), "");
  EXPECT_THAT(storage().setOutputFolder("tool", folder_ / "missing"), HasSubstr("No such file"));
  EXPECT_THAT(storage().setOutputFolder("tool", "/proc"), HasSubstr("/proc"));
  EXPECT_THAT(storage().setOutputFolder("tool", "relative"), HasSubstr("absolute"));
  EXPECT_EQ(storage().outputFolder("tool"), folder_ / "old");
}

TEST_F(SuiteStorageTest, EventsAreAppendedOnePerLineForTheUserOnly) {
  SuiteStorage store = storage();
  store.appendEvent({"2024-05-17T12:03:27.042Z", "tool", "Launch", std::nullopt, std::nullopt});
  store.appendEvent({"t", "tool", "Stop", Dictionary{{"Size", std::uint64_t{0}}},
                     Dictionary{{"Duration", std::int64_t{1234}}, {"x", "a\nb"}}});
  EXPECT_EQ(contentsOf(events()),
            "{\"time\":\"2024-05-17T12:03:27.042Z\",\"tool\":\"tool\",\"event\":\"Launch\","
            "\"prefs\":null,\"details\":null}\n"
            "{\"time\":\"t\",\"tool\":\"tool\",\"event\":\"Stop\",\"prefs\":{\"Size\":0},"
            "\"details\":{\"Duration\":1234,\"x\":\"a\\nb\"}}\n");
  struct stat status {};
  ASSERT_EQ(stat(events().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(SuiteStorageTest, ALineCutShortDoesNotSwallowTheNext) {
  base_test::write(events(), "{\"time\":\"t\"}\n{\"ti");
  storage().appendEvent({"t", "tool", "Quit", std::nullopt, std::nullopt});
  EXPECT_THAT(contentsOf(events()), HasSubstr("{\"ti\n{\"time\":\"t\",\"tool\""));
}

TEST_F(SuiteStorageTest, EventsThatCannotBeWrittenHarmNothing) {
  base_test::write(folder_ / "state/com.vantrel.korvel", "a file in the way");
  ::testing::internal::CaptureStderr();
  storage().appendEvent({"t", "tool", "Quit", std::nullopt, std::nullopt});
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("Quit is not logged"));
}

TEST_F(SuiteStorageTest, ExtendedLoggingIsSwitchedByTheEnvironment) {
  {
    const Environment environment{{"KORVEL_EXTENDED_LOGGING", "1"}};
    EXPECT_TRUE(storage().isExtendedLoggingOn());
  }
  const Environment environment{{"KORVEL_EXTENDED_LOGGING", "0"}};
  EXPECT_FALSE(storage().isExtendedLoggingOn());
}

TEST(XdgFoldersTest, RelativeValuesCountAsAbsent) {
  const Environment environment{{"XDG_CONFIG_HOME", "relative"}, {"XDG_STATE_HOME", "/state/"}};
  const XdgFolders folders = XdgFolders::fromEnvironment();
  EXPECT_TRUE(folders.config.ends_with("/.config"));
  EXPECT_TRUE(folders.config.starts_with("/"));
  EXPECT_EQ(folders.state, "/state");
}

// The whole suite on a real disk.
class EmbeddedSuiteTest : public SuiteStorageTest {
 protected:
  class FixedClock : public platform::WallClock {
    [[nodiscard]] platform::Date now() const override {
      return platform::Date(std::chrono::milliseconds(1715947407042));
    }
  };
  FixedClock clock_;
  SuiteStorage storage_{folders_};
  suite::EmbeddedSuite suite_{storage_, clock_};
};

TEST_F(EmbeddedSuiteTest, LogsEventsOfThisToolWithTheirTime) {
  const suite::Suite interfaces = suite_.interfaces();
  interfaces.korvelCommon.CEP().log("Start", Dictionary{{"AudioSourceID", ""}}, std::nullopt);
  const Json line = Json::parse(contentsOf(events()));
  EXPECT_EQ(line["time"], "2024-05-17T12:03:27.042Z");
  EXPECT_EQ(line["tool"], "a5f597ea-d3f3-4347-bbe6-344e240acc7e");
  EXPECT_EQ(line["event"], "Start");
  EXPECT_TRUE(line["details"].is_null());
}

TEST_F(EmbeddedSuiteTest, FindsTheToolsFolderByItsIdentifier) {
  base_test::write(locations(),
                   "{\"a5f597ea-d3f3-4347-bbe6-344e240acc7e\": \"" + (folder_ / "out") + "\"}");
  EXPECT_EQ(suite_.interfaces().locationManager.locationForCurrentTool(), folder_ / "out");
}

}  // namespace
}  // namespace linux_host
