// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "shared/auxiliary.h"
#include "tests/memory_host/memory_host.h"

namespace record_audio {
namespace {

using memory_host::MemoryHost;
using platform::Dictionary;
using platform::Value;
using testing::ElementsAre;
using testing::IsEmpty;

class QuickLookTest : public testing::Test {
 protected:
  void setCopyable(const Value& copyable) {
    machine_.mainBundle.info = Dictionary{{"ToolCapabilities", Dictionary{{"Copyable", copyable}}}};
  }
  [[nodiscard]] Dictionary slots() const {
    return host_.userDefaults.dictionaryForKey("QuickLook").value_or(Dictionary());
  }
  void expectMirrorIsOff() {
    Auxiliary::setQuickLookParametersObject(host_, 1, "Quality");
    Auxiliary::writeQuickLookParametersToDefaults(host_, {{"Quality", 1}});
    EXPECT_EQ(Auxiliary::getQuickLookParametersFromDefaults(host_), std::nullopt);
    EXPECT_THAT(machine_.userDefaults.journal, IsEmpty());
  }

  MemoryHost machine_;
  platform::Host& host_ = machine_.host;
};

TEST_F(QuickLookTest, IsOffWithoutAnInformationDictionary) {
  machine_.mainBundle.info.reset();
  expectMirrorIsOff();
}

TEST_F(QuickLookTest, IsOffWithoutToolCapabilities) {
  machine_.mainBundle.info = Dictionary{{"CFBundleName", "Record Audio"}};
  expectMirrorIsOff();
}

TEST_F(QuickLookTest, IsOffWhenToolCapabilitiesAreNotADictionary) {
  machine_.mainBundle.info = Dictionary{{"ToolCapabilities", "Copyable"}};
  expectMirrorIsOff();
}

TEST_F(QuickLookTest, IsOffWithoutCopyable) {
  machine_.mainBundle.info = Dictionary{{"ToolCapabilities", Dictionary{{"Other", true}}}};
  expectMirrorIsOff();
}

TEST_F(QuickLookTest, ReadsNothingWhenOffEvenIfASlotExists) {
  machine_.userDefaults.values["QuickLook"] =
      Dictionary{{"Record Audio.app", Dictionary{{"Quality", 2}}}};
  machine_.mainBundle.info.reset();
  EXPECT_EQ(Auxiliary::getQuickLookParametersFromDefaults(host_), std::nullopt);
}

TEST_F(QuickLookTest, NamesTheSlotOfACopyableToolAfterItsFolder) {
  setCopyable(true);
  Auxiliary::setQuickLookParametersObject(host_, 2, "Quality");
  EXPECT_EQ(slots(), (Dictionary{{"Record Audio.app", Dictionary{{"Quality", 2}}}}));
}

TEST_F(QuickLookTest, GivesCopiesInDifferentFoldersDifferentSlots) {
  setCopyable(true);
  Auxiliary::setQuickLookParametersObject(host_, 0, "Quality");
  machine_.mainBundle.path = "/Apps/Record Audio 2.app";
  Auxiliary::setQuickLookParametersObject(host_, 1, "Quality");
  EXPECT_EQ(slots(), (Dictionary{{"Record Audio.app", Dictionary{{"Quality", 0}}},
                                 {"Record Audio 2.app", Dictionary{{"Quality", 1}}}}));
}

TEST_F(QuickLookTest, GivesAllCopiesOfAnUncopyableToolTheSameSlot) {
  setCopyable(false);
  Auxiliary::setQuickLookParametersObject(host_, 0, "Quality");
  machine_.mainBundle.path = "/Apps/Record Audio 2.app";
  Auxiliary::setQuickLookParametersObject(host_, 1, "Quality");
  EXPECT_EQ(slots(), (Dictionary{{"Uncopyable", Dictionary{{"Quality", 1}}}}));
}

TEST_F(QuickLookTest, ReadsCopyableWithTheLenientConversion) {
  for (const Value& yes : {Value("YES"), Value(1), Value("1")}) {
    machine_.userDefaults.values.clear();
    setCopyable(yes);
    Auxiliary::setQuickLookParametersObject(host_, 0, "Quality");
    EXPECT_TRUE(slots().contains("Record Audio.app"));
  }
  for (const Value& no : {Value("NO"), Value(0), Value(Dictionary())}) {
    machine_.userDefaults.values.clear();
    setCopyable(no);
    Auxiliary::setQuickLookParametersObject(host_, 0, "Quality");
    EXPECT_TRUE(slots().contains("Uncopyable"));
  }
}

TEST_F(QuickLookTest, KeepsTheSlotsOtherKeysAndTheOtherSlots) {
  machine_.userDefaults.values["QuickLook"] =
      Dictionary{{"Record Audio.app", Dictionary{{"Foreign", "kept"}, {"Quality", 0}}},
                 {"Other Tool.app", Dictionary{{"Quality", 7}}},
                 {"Odd", "no dictionary"}};
  Auxiliary::setQuickLookParametersObject(host_, 2, "Quality");
  EXPECT_EQ(slots(),
            (Dictionary{{"Record Audio.app", Dictionary{{"Foreign", "kept"}, {"Quality", 2}}},
                        {"Other Tool.app", Dictionary{{"Quality", 7}}},
                        {"Odd", "no dictionary"}}));
}

TEST_F(QuickLookTest, ReplacesTheWholeSlotWhenWritingIt) {
  Auxiliary::writeQuickLookParametersToDefaults(host_, {{"A", 1}, {"B", 2}});
  Auxiliary::writeQuickLookParametersToDefaults(host_, {{"B", 3}});
  EXPECT_EQ(Auxiliary::getQuickLookParametersFromDefaults(host_), (Dictionary{{"B", 3}}));
}

TEST_F(QuickLookTest, FlushesAfterEveryWrite) {
  Auxiliary::setQuickLookParametersObject(host_, 1, "A");
  Auxiliary::writeQuickLookParametersToDefaults(host_, {});
  EXPECT_THAT(machine_.userDefaults.journal,
              ElementsAre("QuickLook", "synchronize", "QuickLook", "synchronize"));
}

TEST_F(QuickLookTest, ReadsNothingFromAnEmptySlot) {
  EXPECT_EQ(Auxiliary::getQuickLookParametersFromDefaults(host_), std::nullopt);
}

TEST_F(QuickLookTest, TakesADictionaryOfAnotherTypeForAbsent) {
  machine_.userDefaults.values["QuickLook"] = "damaged";
  EXPECT_EQ(Auxiliary::getQuickLookParametersFromDefaults(host_), std::nullopt);
  Auxiliary::setQuickLookParametersObject(host_, 1, "A");
  EXPECT_EQ(slots(), (Dictionary{{"Record Audio.app", Dictionary{{"A", 1}}}}));
}

TEST_F(QuickLookTest, TakesASlotOfAnotherTypeForAbsent) {
  machine_.userDefaults.values["QuickLook"] = Dictionary{{"Record Audio.app", 5}};
  EXPECT_EQ(Auxiliary::getQuickLookParametersFromDefaults(host_), std::nullopt);
  Auxiliary::setQuickLookParametersObject(host_, 1, "A");
  EXPECT_EQ(slots(), (Dictionary{{"Record Audio.app", Dictionary{{"A", 1}}}}));
}

}  // namespace
}  // namespace record_audio
