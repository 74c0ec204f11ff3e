// SPDX-License-Identifier: MIT
#include "platform/property_list.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>

namespace platform {
namespace {

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

struct Conversion {
  Value value;
  std::int64_t integer;
  bool flag;
  std::optional<std::string> text;
};

class ConversionTest : public ::testing::TestWithParam<Conversion> {};

TEST_P(ConversionTest, ReadsAsAnInteger) {
  EXPECT_EQ(integerValue(GetParam().value), GetParam().integer);
}

TEST_P(ConversionTest, ReadsAsABoolean) {
  EXPECT_EQ(boolValue(GetParam().value), GetParam().flag);
}

TEST_P(ConversionTest, ReadsAsAText) {
  std::string text = "as it was";
  EXPECT_EQ(stringValue(GetParam().value, &text), GetParam().text.has_value());
  EXPECT_EQ(text, GetParam().text.value_or("as it was"));
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, ConversionTest,
    ::testing::Values(
        Conversion{Value(true), 1, true, "1"}, Conversion{Value(false), 0, false, "0"},
        Conversion{Value(0), 0, false, "0"}, Conversion{Value(-7), -7, true, "-7"},
        Conversion{Value(kMin), kMin, true, "-9223372036854775808"},
        Conversion{Value(std::uint64_t{5}), 5, true, "5"},
        Conversion{Value(std::numeric_limits<std::uint64_t>::max()), kMax, true,
                   "18446744073709551615"},
        Conversion{Value(std::uint64_t{0}), 0, false, "0"},
        Conversion{Value(static_cast<std::uint64_t>(kMax) + 1), kMax, true, "9223372036854775808"},
        Conversion{Value(2.9), 2, true, "2.9"}, Conversion{Value(-2.9), -2, true, "-2.9"},
        Conversion{Value(0.25), 0, true, "0.25"}, Conversion{Value(-0.0), 0, false, "-0"},
        Conversion{Value(9223372036854775808.0), kMax, true, "9223372036854775808"},
        Conversion{Value(-9223372036854775808.0), kMin, true, "-9223372036854775808"},
        Conversion{Value(-1e300), kMin, true, "-1e+300"},
        Conversion{Value(std::numeric_limits<double>::infinity()), kMax, true, "inf"},
        Conversion{Value(std::nan("")), 0, true, "nan"}));

INSTANTIATE_TEST_SUITE_P(
    Texts, ConversionTest,
    ::testing::Values(
        Conversion{Value("12"), 12, true, "12"}, Conversion{Value("-12"), -12, true, "-12"},
        Conversion{Value("+12"), 12, true, "+12"},
        Conversion{Value(" \t\n7 apples"), 7, true, " \t\n7 apples"},
        Conversion{Value("7.9"), 7, true, "7.9"},
        Conversion{Value("apples 7"), 0, false, "apples 7"}, Conversion{Value(""), 0, false, ""},
        Conversion{Value("-"), 0, false, "-"}, Conversion{Value("+"), 0, false, "+"},
        Conversion{Value(" "), 0, false, " "}, Conversion{Value("+01"), 1, true, "+01"},
        Conversion{Value("-Yes"), 0, true, "-Yes"}, Conversion{Value("0x"), 0, false, "0x"},
        Conversion{Value("--1"), 0, false, "--1"}, Conversion{Value("- 1"), 0, false, "- 1"},
        Conversion{Value("0"), 0, false, "0"}, Conversion{Value("000"), 0, false, "000"},
        Conversion{Value("007"), 7, true, "007"}, Conversion{Value("-000"), 0, false, "-000"},
        Conversion{Value("YES"), 0, true, "YES"}, Conversion{Value("yes"), 0, true, "yes"},
        Conversion{Value("true"), 0, true, "true"}, Conversion{Value(" True"), 0, true, " True"},
        Conversion{Value("NO"), 0, false, "NO"}, Conversion{Value("false"), 0, false, "false"},
        Conversion{Value("on"), 0, false, "on"},
        Conversion{Value("9223372036854775807"), kMax, true, "9223372036854775807"},
        Conversion{Value("9223372036854775808"), kMax, true, "9223372036854775808"},
        Conversion{Value("-9223372036854775807"), kMin + 1, true, "-9223372036854775807"},
        Conversion{Value("-9223372036854775808"), kMin, true, "-9223372036854775808"},
        Conversion{Value("99999999999999999999999"), kMax, true, "99999999999999999999999"},
        Conversion{Value("-99999999999999999999999"), kMin, true, "-99999999999999999999999"}));

INSTANTIATE_TEST_SUITE_P(OtherTypes, ConversionTest,
                         ::testing::Values(Conversion{Value(), 0, false, std::nullopt},
                                           Conversion{Value(Array{1, 2}), 0, false, std::nullopt},
                                           Conversion{Value(Dictionary{{"1", 1}}), 0, false,
                                                      std::nullopt}));

TEST(PropertyListValue, KeepsTheTypeItWasGiven) {
  EXPECT_NE(Value(1).as<std::int64_t>(), nullptr);
  EXPECT_NE(Value(std::uint64_t{1}).as<std::uint64_t>(), nullptr);
  EXPECT_NE(Value("1").as<std::string>(), nullptr);
  EXPECT_NE(Value(std::string_view("1")).as<std::string>(), nullptr);
  EXPECT_NE(Value(true).as<bool>(), nullptr);
  EXPECT_EQ(Value(1).as<bool>(), nullptr);
  EXPECT_TRUE(Value().isNull());
  EXPECT_FALSE(Value(0).isNull());
}

TEST(PropertyListValue, ValuesOfDifferentTypesDiffer) {
  EXPECT_NE(Value(1), Value(true));
  EXPECT_NE(Value(1), Value(std::uint64_t{1}));
  EXPECT_NE(Value(1), Value(1.0));
  EXPECT_EQ(Value(Array{1, "a"}), Value(Array{1, "a"}));
  EXPECT_NE(Value(Dictionary{{"a", 1}}), Value(Dictionary{{"a", 2}}));
}

TEST(PropertyListValue, ShortestTextReadsBackAsTheSameNumber) {
  for (const double number : {0.1, 1.0 / 3.0, 1e22, 5e-324}) {
    std::string text;
    ASSERT_TRUE(stringValue(Value(number), &text));
    EXPECT_EQ(std::strtod(text.c_str(), nullptr), number) << text;
  }
}

}  // namespace
}  // namespace platform
