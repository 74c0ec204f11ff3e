// SPDX-License-Identifier: MIT
#include "suite/embedded_suite.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

namespace suite {
namespace {

using platform::Dictionary;
using platform::Image;
using testing::ElementsAre;
using testing::IsEmpty;

platform::Date atMilliseconds(std::int64_t sinceEpoch_ms) {
  return platform::Date(std::chrono::milliseconds(sinceEpoch_ms));
}

// A machine that keeps everything in memory.
class MemoryStorage : public Storage {
 public:
  void appendEvent(const UsageEvent& event) override { events.push_back(event); }
  std::optional<std::string> outputFolder(const std::string& tool) override {
    const auto folder = folders.find(tool);
    return folder == folders.end() ? std::nullopt : std::optional(folder->second);
  }
  std::string setOutputFolder(const std::string& tool, const std::string& folder) override {
    folders[tool] = folder;
    return "";
  }
  void writeLog(std::string_view line) override { log.emplace_back(line); }
  [[nodiscard]] bool isExtendedLoggingOn() const override { return isLoggingMore; }

  std::vector<UsageEvent> events;
  std::map<std::string, std::string> folders;
  std::vector<std::string> log;
  bool isLoggingMore = false;
};

class FixedClock : public platform::WallClock {
  [[nodiscard]] platform::Date now() const override { return atMilliseconds(1715947407042); }
};

class Observer : public ToolDataObserver {
 public:
  void toolDataDidChange(const ToolData& data) override { seen.push_back(data); }
  std::vector<ToolData> seen;
};

class EmbeddedSuiteTest : public testing::Test {
 protected:
  MemoryStorage storage_;
  FixedClock clock_;
  EmbeddedSuite suite_{storage_, clock_};
  const Suite interfaces_ = suite_.interfaces();
};

TEST_F(EmbeddedSuiteTest, LogsEventsOfThisToolWithTheirTime) {
  interfaces_.korvelCommon.CEP().log("Start", Dictionary{{"Size", 1}}, Dictionary{{"Error", true}});
  interfaces_.korvelCommon.CEP().log("Quit", std::nullopt, std::nullopt);
  ASSERT_EQ(storage_.events.size(), 2U);
  EXPECT_EQ(storage_.events[0].time, "2024-05-17T12:03:27.042Z");
  EXPECT_EQ(storage_.events[0].tool, "a5f597ea-d3f3-4347-bbe6-344e240acc7e");
  EXPECT_EQ(storage_.events[0].event, "Start");
  EXPECT_EQ(storage_.events[0].prefs, (Dictionary{{"Size", 1}}));
  EXPECT_EQ(storage_.events[0].details, (Dictionary{{"Error", true}}));
  EXPECT_EQ(storage_.events[1].event, "Quit");
  EXPECT_FALSE(storage_.events[1].prefs);
  EXPECT_FALSE(storage_.events[1].details);
}

TEST_F(EmbeddedSuiteTest, NotifiesEveryObserverOfEachChangeOnce) {
  Observer first;
  Observer second;
  suite_.addObserver(first);
  suite_.addObserver(second);
  const auto provider = interfaces_.korvelCommon.createToolDataClientProvider();
  provider->setToolStatus(1);
  provider->setToolStatus(1);
  provider->setToolIcon(std::make_shared<Image>(Image{"KorvelIconOn"}));
  provider->setMenuIcon(std::make_shared<Image>(Image{"MenuIconOn"}));
  provider->setMenuText("00:01");
  provider->setToolIcon(nullptr);
  EXPECT_THAT(first.seen, ElementsAre(ToolData{1, "", "", ""}, ToolData{1, "KorvelIconOn", "", ""},
                                      ToolData{1, "KorvelIconOn", "MenuIconOn", ""},
                                      ToolData{1, "KorvelIconOn", "MenuIconOn", "00:01"},
                                      ToolData{1, "", "MenuIconOn", "00:01"}));
  EXPECT_EQ(second.seen, first.seen);
  EXPECT_EQ(suite_.toolData(), first.seen.back());
}

TEST_F(EmbeddedSuiteTest, AllProvidersStandForTheSameTool) {
  const auto one = interfaces_.korvelCommon.createToolDataClientProvider();
  const auto other = interfaces_.korvelCommon.createToolDataClientProvider();
  one->setToolStatus(1);
  other->setMenuText("00:07");
  EXPECT_EQ(suite_.toolData(), (ToolData{1, "", "", "00:07"}));
}

TEST_F(EmbeddedSuiteTest, FindsTheToolsFolderByItsIdentifier) {
  EXPECT_FALSE(interfaces_.locationManager.locationForCurrentTool());
  storage_.folders = {{"another", "/a"}, {kToolIdentifier, "/out"}};
  EXPECT_EQ(interfaces_.locationManager.locationForCurrentTool(), "/out");
}

TEST_F(EmbeddedSuiteTest, LogsLinesWithTheirArguments) {
  EXPECT_THAT(storage_.log, IsEmpty());
  interfaces_.logging.VKLogVariadic("%@: %d", {"status", std::int64_t{-50}});
  EXPECT_THAT(storage_.log, ElementsAre("status: -50"));
}

TEST_F(EmbeddedSuiteTest, LogsMoreOnlyWhenTheMachineWantsIt) {
  EXPECT_FALSE(interfaces_.logging.VKIsExtendedLoggingOn());
  storage_.isLoggingMore = true;
  EXPECT_TRUE(interfaces_.logging.VKIsExtendedLoggingOn());
}

TEST(LogFormatTest, PutsArgumentsInPlace) {
  EXPECT_EQ(formattedLogLine("Can't move file from %@ to %@. Error: %@", {"a", "b", "c %@"}),
            "Can't move file from a to b. Error: c %@");
  EXPECT_EQ(formattedLogLine("%d of %d, 100 %%", {std::int64_t{-3}, std::int64_t{5}}),
            "-3 of 5, 100 %");
  EXPECT_EQ(formattedLogLine("%@ %d", {"only"}), "only %d");
  EXPECT_EQ(formattedLogLine("%", {}), "%");
  EXPECT_EQ(formattedLogLine("%", {"unused"}), "%");
  EXPECT_EQ(formattedLogLine("%x", {"a"}), "%x");
  EXPECT_EQ(formattedLogLine("@d", {"a"}), "@d");
  EXPECT_EQ(formattedLogLine("a%%@", {"b"}), "a%@");
  EXPECT_EQ(formattedLogLine("", {"a"}), "");
}

TEST(Iso8601Test, IsUtcWithMillisecondsAlsoBeforeTheEpoch) {
  EXPECT_EQ(iso8601(atMilliseconds(0)), "1970-01-01T00:00:00.000Z");
  EXPECT_EQ(iso8601(atMilliseconds(-1)), "1969-12-31T23:59:59.999Z");
}

}  // namespace
}  // namespace suite
