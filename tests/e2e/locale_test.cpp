// SPDX-License-Identifier: MIT
#include "tests/e2e/notification_server.h"
#include "tests/e2e/tool_fixture.h"

// The texts shown where there are none in the user's language.

namespace e2e {
namespace {

using testing::Each;
using testing::HasSubstr;
using testing::Not;

struct Locale {
  const char* name;
  const char* locale;     // LC_ALL
  const char* languages;  // LANGUAGE
};

class LocaleTest : public ToolFixture, public testing::WithParamInterface<Locale> {};

TEST_P(LocaleTest, WithoutItsOwnTableTheTextsAreEnglishNotKeys) {
  setEnvironment("LC_ALL", GetParam().locale);
  setEnvironment("LANGUAGE", GetParam().languages);
  const NotificationServer notifications(server.busAddress());
  plugInMicrophone();
  const auto tool = startRecording();
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  EXPECT_EQ(run({}).exitStatus, 0);
  ASSERT_TRUE(waitForState("recording"));
  control->destroyNode("microphone");
  const auto isShown = [&](const std::string& text) {
    return test_support::waitUntil(
        [&] {
          for (const std::string& shown : notifications.shown()) {
            if (shown.find(text) != std::string::npos) return true;
          }
          return false;
        },
        kStepLimit);
  };
  EXPECT_TRUE(isShown("Audio recording is saved."));
  EXPECT_TRUE(isShown("What was recorded until then is kept"));
  EXPECT_THAT(notifications.shown(), Each(Not(HasSubstr("Finder"))));
  EXPECT_THAT(notifications.shown(), Each(Not(HasSubstr("Audio file was not created"))));
  EXPECT_TRUE(endsAtOnce(*tool, 1));
}

INSTANTIATE_TEST_SUITE_P(Locales, LocaleTest,
                         testing::Values(Locale{"C", "C", ""}, Locale{"Posix", "POSIX", ""},
                                         Locale{"CUtf8", "C.UTF-8", ""},
                                         Locale{"NoTable", "eo.UTF-8", ""},
                                         Locale{"NotInstalled", "xx_YY.UTF-8", ""},
                                         Locale{"Languages", "C", "xx:yy"},
                                         Locale{"NoLanguageInC", "C", "C"}),
                         [](const auto& locale) { return locale.param.name; });

}  // namespace
}  // namespace e2e
