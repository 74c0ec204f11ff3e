// SPDX-License-Identifier: MIT
#include "shared/file_name.h"

#include <gtest/gtest.h>

namespace {

using record_audio::fitForFileName;

TEST(FileNameTest, LeavesOrdinaryTextOfAnyLanguageUnchanged) {
  EXPECT_EQ(fitForFileName("Audio recording 2024-05-17 at 14.03.27", '-'),
            "Audio recording 2024-05-17 at 14.03.27");
  EXPECT_EQ(fitForFileName("Enregistrement à 14.03, 録音", '-'), "Enregistrement à 14.03, 録音");
  EXPECT_EQ(fitForFileName("a !~b", '-'), "a !~b");
  EXPECT_EQ(fitForFileName("", '-'), "");
}

TEST(FileNameTest, ReplacesWhatFatAndNtfsRefuse) {
  EXPECT_EQ(fitForFileName("a/b\\c:d*e?f\"g<h>i|j", '-'), "a-b-c-d-e-f-g-h-i-j");
  EXPECT_EQ(fitForFileName(std::string("a\tb\nc\x01") + '\0' + "d\x7F", '.'), "a.b.c..d.");
  EXPECT_EQ(fitForFileName("\x1F", '-'), "-");
}

TEST(FileNameTest, MakesTheSpacesOfLocalesPlain) {
  EXPECT_EQ(fitForFileName("2.03.27\u202FPM", '-'), "2.03.27 PM");
  EXPECT_EQ(fitForFileName("14\u00A0h\u2007m\u2009s", '-'), "14 h m s");
}

}  // namespace
