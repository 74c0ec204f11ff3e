// SPDX-License-Identifier: MIT
#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <thread>

#include "hosts/linux/base/bundle.h"
#include "hosts/linux/base/date_formatter.h"
#include "hosts/linux/base/log.h"
#include "hosts/linux/base/string_table.h"
#include "hosts/linux/base/system_info.h"
#include "shared/file_name.h"
#include "tests/base/temporary_folder.h"

namespace linux_host {
namespace {

using base_test::Environment;
using base_test::TemporaryFolder;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

platform::Date utc(int year, unsigned month, unsigned day, int hour, int minute, int second) {
  using namespace std::chrono;
  return sys_days{std::chrono::year(year) / month / day} + hours(hour) + minutes(minute) +
         seconds(second);
}

Environment locale(const std::string& name, const std::string& zone) {
  return {{"LC_ALL", name}, {"TZ", zone}};
}

const platform::Date kAfternoon = utc(2024, 5, 17, 14, 3, 27);
// The kind of space depends on the release of ICU.
const auto kAfternoonWithPM = ::testing::AnyOf("2:03:27\u202fPM", "2:03:27 PM");

TEST(DateFormatterTest, ReturnsTheLocalesMediumTime) {
  const LinuxDateFormatter formatter;
  {
    const auto environment = locale("de_DE.UTF-8", "UTC");
    EXPECT_EQ(formatter.localizedMediumTime(kAfternoon), "14:03:27");
  }
  {
    const auto environment = locale("en_GB.UTF-8", "UTC");
    EXPECT_EQ(formatter.localizedMediumTime(kAfternoon), "14:03:27");
  }
  const auto environment = locale("en_US.UTF-8", "UTC");
  EXPECT_THAT(formatter.localizedMediumTime(kAfternoon), kAfternoonWithPM);
}

// The pattern fixes the order and the hyphens. The digits and the calendar stay those of the
// locale: Persia counts from the Hijra by the sun, Thailand from the Buddha's death.
TEST(DateFormatterTest, KeepsTheDigitsAndTheCalendarOfTheLocale) {
  struct Expected {
    const char* locale;
    const char* date;
    std::string time;
  };
  const LinuxDateFormatter formatter;
  for (const Expected& expected :
       {Expected{"ar_EG", "٢٠٢٤-٠٥-١٧", "٢:٠٣:٢٧ م"}, Expected{"fa_IR", "۱۴۰۳-۰۲-۲۸", "۱۴:۰۳:۲۷"},
        Expected{"th_TH", "2567-05-17", "14:03:27"}, Expected{"he_IL", "2024-05-17", "14:03:27"}}) {
    const auto environment = locale(std::string(expected.locale) + ".UTF-8", "UTC");
    EXPECT_EQ(formatter.stringFromDate(kAfternoon, "yyyy-MM-dd"), expected.date) << expected.locale;
    // The kind of space depends on the release of ICU.
    EXPECT_EQ(record_audio::fitForFileName(formatter.localizedMediumTime(kAfternoon), ':'),
              expected.time)
        << expected.locale;
  }
}

// With the core's help: locales write times with all kinds of spaces and punctuation.
TEST(DateFormatterTest, ReturnsTimesThatCanBeMadeFitForADiskInEveryLocale) {
  const LinuxDateFormatter formatter;
  for (const char* name : {"en_US", "en_AU", "fr_CA", "fr_FR", "bg_BG", "ja_JP", "zh_TW", "ko_KR",
                           "ar_EG", "fa_IR", "fi_FI", "da_DK", "th_TH", "hi_IN", "C", ""}) {
    const auto environment = locale(name, "UTC");
    const std::string time = formatter.localizedMediumTime(kAfternoon);
    EXPECT_FALSE(time.empty()) << name;
    const std::string fit = record_audio::fitForFileName(time, '.');
    EXPECT_EQ(fit.find_first_of("\"*/:<>?\\|"), std::string::npos) << name;
    for (const char* at = fit.c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
      const gunichar character = g_utf8_get_char(at);
      EXPECT_TRUE(character == ' ' || !g_unichar_isspace(character)) << name << ": " << fit;
      EXPECT_FALSE(g_unichar_iscntrl(character)) << name << ": " << fit;
    }
  }
}

TEST(DateFormatterTest, FollowsTheTimeZoneInEachOfItsForms) {
  const LinuxDateFormatter formatter;
  {
    const auto environment = locale("de_DE.UTF-8", "Europe/Berlin");
    EXPECT_EQ(formatter.localizedMediumTime(kAfternoon), "16:03:27");
  }
  {
    const auto environment = locale("de_DE.UTF-8", "CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(formatter.localizedMediumTime(kAfternoon), "16:03:27");
  }
  const auto environment = locale("de_DE.UTF-8", "<-0330>3:30");
  EXPECT_EQ(formatter.localizedMediumTime(kAfternoon), "10:33:27");
  EXPECT_EQ(formatter.stringFromDate(utc(2024, 1, 1, 2, 0, 0), "yyyy-MM-dd"), "2023-12-31");
}

TEST(DateFormatterTest, ReturnsDatesByPattern) {
  const LinuxDateFormatter formatter;
  const auto environment = locale("en_US.UTF-8", "UTC");
  EXPECT_EQ(formatter.stringFromDate(kAfternoon, "yyyy-MM-dd"), "2024-05-17");
  EXPECT_EQ(formatter.stringFromDate(utc(1969, 12, 31, 23, 59, 59), "yyyy-MM-dd HH:mm"),
            "1969-12-31 23:59");
}

TEST(DateFormatterTest, TakesTheLocaleFromTheFirstVariableThatIsSet) {
  const LinuxDateFormatter formatter;
  const Environment environment(
      {{"LC_ALL", ""}, {"LC_TIME", "en_US.UTF-8"}, {"LANG", "de_DE.UTF-8"}, {"TZ", "UTC"}});
  EXPECT_THAT(formatter.localizedMediumTime(kAfternoon), kAfternoonWithPM);
}

// How much of the mapped files whose names begin with `name` is in memory.
std::size_t residentOf_kB(const std::string& name) {
  std::ifstream smaps("/proc/self/smaps");
  std::size_t sum_kB = 0;
  bool isNamed = false;
  for (std::string line; std::getline(smaps, line);) {
    const std::size_t slash = line.rfind('/');
    if (line.find('-') < line.find(' ')) {
      isNamed = slash != std::string::npos && line.compare(slash + 1, name.size(), name) == 0;
    } else if (isNamed && line.starts_with("Rss:")) {
      sum_kB += std::stoul(line.substr(4));
    }
  }
  return sum_kB;
}

TEST(DateFormatterTest, IcuIsInMemoryOnlyWhileADateIsMade) {
  const LinuxDateFormatter formatter;
  const auto environment = locale("en_US.UTF-8", "UTC");
  EXPECT_THAT(formatter.localizedMediumTime(kAfternoon), kAfternoonWithPM);
  constexpr std::size_t kChangedPages_kB = 512;
  EXPECT_LT(residentOf_kB("libicu"), kChangedPages_kB);
  EXPECT_GT(residentOf_kB("libicu"), 0U);
  EXPECT_THAT(formatter.localizedMediumTime(kAfternoon), kAfternoonWithPM);
}

TEST(DateFormatterTest, NamesLocalesAsIcuDoes) {
  EXPECT_EQ(icuLocale("de_DE.UTF-8"), "de_DE");
  EXPECT_EQ(icuLocale("de_DE@euro"), "de_DE");
  EXPECT_EQ(icuLocale("sr_RS.UTF-8@latin"), "sr_Latn_RS");
  EXPECT_EQ(icuLocale("uz@cyrillic"), "uz_Cyrl");
  EXPECT_EQ(icuLocale("C"), "en_US_POSIX");
  EXPECT_EQ(icuLocale("C.UTF-8"), "en_US_POSIX");
  EXPECT_EQ(icuLocale(""), "en_US_POSIX");
}

TEST(SystemInfoTest, UniqueStringsAreFitForFileNamesAndNeverRepeat) {
  LinuxProcessInfo info({"record-audio", "--preferences"});
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) seen.insert(info.globallyUniqueString());
  EXPECT_EQ(seen.size(), 1000U);
  EXPECT_THAT(*seen.begin(), MatchesRegex("[0-9a-f-]{36}-" + std::to_string(getpid()) + "-[0-9]+"));
  EXPECT_EQ(info.arguments().at(1), "--preferences");
}

TEST(SystemInfoTest, TheHostClockCountsNanosecondsForward) {
  const LinuxHostClock clock;
  const auto info = clock.timebaseInfo();
  EXPECT_EQ(info.numerator, 1U);
  EXPECT_EQ(info.denominator, 1U);
  const auto before = std::chrono::steady_clock::now().time_since_epoch();
  const std::uint64_t now_ns = clock.absoluteTime();
  const auto after = std::chrono::steady_clock::now().time_since_epoch();
  EXPECT_GE(now_ns, static_cast<std::uint64_t>(
                        std::chrono::duration_cast<std::chrono::nanoseconds>(before).count()));
  EXPECT_LE(now_ns, static_cast<std::uint64_t>(
                        std::chrono::duration_cast<std::chrono::nanoseconds>(after).count()));
}

TEST(SystemInfoTest, TheHomeFolderIsTheAccountsWhateverTheEnvironmentSays) {
  const Environment environment{{"HOME", "/nonexistent"}};
  const auto home = LinuxUserAccount().homeDirectory();
  ASSERT_TRUE(home);
  EXPECT_NE(*home, "/nonexistent");
  EXPECT_TRUE(home->starts_with('/'));
}

TEST(SystemInfoTest, ExistenceNeedsNoPermissionToRead) {
  const TemporaryFolder folder;
  base_test::write(folder / "file", "");
  chmod((folder / "file").c_str(), 0);
  EXPECT_TRUE(LinuxUserAccount().accessExists(folder / "file"));
  EXPECT_FALSE(LinuxUserAccount().accessExists(folder / "other"));
}

TEST(LogTest, IsPlainForPeopleAndHasALevelPerLineForTheJournal) {
  EXPECT_EQ(formattedLog(LogLevel::kError, "one\ntwo\n", false), "record-audio: one\ntwo\n");
  EXPECT_EQ(formattedLog(LogLevel::kError, "one\ntwo\n", true), "<3>one\n<3>two\n");
}

// A catalogue in msgfmt's format, in either byte order.
std::string catalogue(const std::vector<std::pair<std::string, std::string>>& entries,
                      bool swapped) {
  std::string words;
  std::string texts;
  const auto word = [&](std::uint32_t value) {
    if (swapped) value = __builtin_bswap32(value);
    words.append(reinterpret_cast<const char*>(&value), sizeof value);
  };
  const auto count = static_cast<std::uint32_t>(entries.size());
  const std::uint32_t header_bytes = 28;
  const std::uint32_t textsAt = header_bytes + count * 16;
  word(0x950412DE);
  word(0);
  word(count);
  word(header_bytes);
  word(header_bytes + count * 8);
  word(0);
  word(0);
  for (const bool keys : {true, false}) {
    for (const auto& [key, text] : entries) {
      const std::string& entry = keys ? key : text;
      word(static_cast<std::uint32_t>(entry.size()));
      word(textsAt + static_cast<std::uint32_t>(texts.size()));
      texts += entry + '\0';
    }
  }
  return words + texts;
}

TEST(StringTableTest, ReadsCataloguesOfBothByteOrders) {
  for (const bool swapped : {false, true}) {
    const auto table = parsedCatalogue(
        catalogue({{"", "header"}, {"at", "um"}, {"empty", ""}, {"Open", "\u00d6ffnen"}}, swapped));
    ASSERT_TRUE(table);
    EXPECT_EQ(table->size(), 2U) << "header and untranslated entries are left out";
    EXPECT_EQ(table->at("Open"), "\u00d6ffnen");
  }
}

TEST(StringTableTest, RefusesDamagedCatalogues) {
  const std::string whole = catalogue({{"at", "um"}, {"Open", "x"}}, false);
  for (std::size_t size = 0; size + 1 < whole.size(); ++size) {
    const auto table = parsedCatalogue(std::string_view(whole).substr(0, size));
    EXPECT_FALSE(table) << size;
  }
  EXPECT_FALSE(parsedCatalogue("no catalogue at all"));
  std::string manyEntries = whole;
  manyEntries.replace(8, 4, "\xff\xff\xff\xff");
  EXPECT_FALSE(parsedCatalogue(manyEntries));
  std::string farText = whole;
  farText.replace(32, 4, "\xf0\xff\xff\xff");
  EXPECT_FALSE(parsedCatalogue(farText));
}

TEST(StringTableTest, AsksTheUsersLanguagesInTurnAndEnglishLast) {
  const TemporaryFolder folder;
  const auto table = [&](const std::string& language, const std::string& bytes) {
    base_test::write(folder / (language + "/LC_MESSAGES/d.mo"), bytes);
  };
  table("de", catalogue({{"at", "um"}}, false));
  table("fr", catalogue({{"at", "à"}, {"Open", "Ouvrir"}}, false));
  table("en", catalogue({{"Finder", "file manager"}}, false));
  table("xx", "damaged");
  const StringTables tables(folder.path(), "d", {"xx", "de_AT", "de", "fr", "../fr"});
  ASSERT_NE(tables.lookUp("at"), nullptr);
  EXPECT_EQ(*tables.lookUp("at"), "um");
  EXPECT_EQ(*tables.lookUp("Open"), "Ouvrir");
  EXPECT_EQ(*tables.lookUp("Finder"), "file manager");
  EXPECT_EQ(tables.lookUp("absent"), nullptr);
  EXPECT_EQ(tables.language(), "de");
}

TEST(StringTableTest, EnglishIsNotFollowedByOtherLanguages) {
  const TemporaryFolder folder;
  base_test::write(folder / "en/LC_MESSAGES/d.mo", catalogue({{"a", "A"}}, false));
  base_test::write(folder / "de/LC_MESSAGES/d.mo", catalogue({{"b", "B"}}, false));
  const StringTables tables(folder.path(), "d", {"en_GB", "en", "de"});
  EXPECT_EQ(tables.lookUp("b"), nullptr);
  EXPECT_EQ(tables.language(), "en");
}

TEST(StringTableTest, KnowsTheUsersLanguagesWithoutAnInstalledLocale) {
  const Environment environment{{"LC_ALL", "pt_BR.UTF-8"}, {"LANGUAGE", std::nullopt}};
  const auto languages = StringTables::usersLanguages();
  EXPECT_THAT(languages, ::testing::Contains("pt_BR"));
  EXPECT_THAT(languages, ::testing::Contains("pt"));
  EXPECT_THAT(languages, Not(::testing::Contains("C")));
}

constexpr const char* kInfo = R"({"CFBundleName": "Record Audio", "CFBundleVersion": 7,
  "ToolCapabilities": {"Copyable": true}})";

TEST(BundleTest, ReadsItsInformationDictionary) {
  const TemporaryFolder folder;
  base_test::write(folder / "RecordAudio.app/Contents/Info.json", kInfo);
  const LinuxBundle bundle(folder / "RecordAudio.app", nullptr);
  const auto info = bundle.infoDictionary();
  ASSERT_TRUE(info);
  EXPECT_EQ(info->at("CFBundleVersion"), platform::Value(7));
  EXPECT_EQ(info->at("ToolCapabilities"),
            platform::Value(platform::Dictionary{{"Copyable", true}}));
  EXPECT_EQ(bundle.localizedString("at"), "at");
}

TEST(BundleTest, LocalisesTheNamesThatPeopleSee) {
  const TemporaryFolder folder;
  base_test::write(folder / "RecordAudio.app/Contents/Info.json", kInfo);
  base_test::write(folder / "de/LC_MESSAGES/d.mo",
                   catalogue({{"Record Audio", "Ton aufnehmen"}, {"at", "um"}}, false));
  const LinuxBundle bundle(
      folder / "RecordAudio.app",
      std::make_unique<StringTables>(folder.path(), "d", std::vector<std::string>{"de"}));
  EXPECT_EQ(bundle.localizedInfoDictionary()->at("CFBundleName"), platform::Value("Ton aufnehmen"));
  EXPECT_EQ(bundle.infoDictionary()->at("CFBundleName"), platform::Value("Record Audio"));
  EXPECT_EQ(bundle.localizedString("at"), "um");
}

TEST(BundleTest, HasNoDictionaryWhenTheFileIsMissingOrDamaged) {
  const TemporaryFolder folder;
  base_test::write(folder / "a/Contents/Info.json", "{");
  base_test::write(folder / "b/file", "");
  const LinuxBundleLoader loader;
  EXPECT_FALSE(loader.bundleWithPath(folder / "a/")->infoDictionary());
  EXPECT_EQ(loader.bundleWithPath(folder / "a/")->bundlePath(), folder / "a");
  EXPECT_FALSE(loader.bundleWithPath(folder / "b")->infoDictionary());
  EXPECT_EQ(loader.bundleWithPath(folder / "c"), nullptr);
  EXPECT_EQ(loader.bundleWithPath(folder / "b/file"), nullptr);
}

TEST(BundleTest, LiesBesideTheProgramOrWhereItIsInstalled) {
  const TemporaryFolder folder;
  const BundlePaths installed = BundlePaths::ofExecutable(folder / "usr/bin/record-audio");
  EXPECT_EQ(installed.bundle, folder / "usr/share/record-audio/RecordAudio.app");
  EXPECT_EQ(installed.locales, folder / "usr/share/locale");
  std::filesystem::create_directories(folder / "build/RecordAudio.app");
  const BundlePaths built = BundlePaths::ofExecutable(folder / "build/record-audio");
  EXPECT_EQ(built.bundle, folder / "build/RecordAudio.app");
  EXPECT_EQ(built.locales, folder / "build/RecordAudio.app/Contents/Resources/locale");
}

TEST(BundleTest, TheProductsEnglishTableSpeaksOfThisDesktop) {
  const StringTables tables(RA_BUILT_LOCALES, kApplicationId, {});
  for (const char* key : {"Audio recording is saved.\nClick here to show in Finder.",
                          "Allow access to the microphone in the macOS Privacy settings."}) {
    const std::string* text = tables.lookUp(key);
    ASSERT_NE(text, nullptr) << key;
    EXPECT_THAT(*text, Not(HasSubstr("Finder")));
    EXPECT_THAT(*text, Not(HasSubstr("macOS")));
  }
}

}  // namespace
}  // namespace linux_host
