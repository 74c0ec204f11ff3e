// SPDX-License-Identifier: MIT
#include "hosts/linux/base/expected.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <version>
#if defined(__cpp_lib_expected)
#include <expected>
#endif

// The tests also run on the standard library's own type, where it has one: what this one promises
// is that it can be replaced by that.

namespace linux_host {
namespace {

struct Own {
  template <typename Value>
  using Of = Expected<Value>;
  template <typename Error>
  static auto failure(Error error) {
    return Unexpected(std::move(error));
  }
};

#if defined(__cpp_lib_expected)
struct Standard {
  template <typename Value>
  using Of = std::expected<Value, std::string>;
  template <typename Error>
  static auto failure(Error error) {
    return std::unexpected(std::move(error));
  }
};
using Kinds = testing::Types<Own, Standard>;
#else
using Kinds = testing::Types<Own>;
#endif

template <typename Kind>
class ExpectedTest : public testing::Test {
 protected:
  template <typename Value>
  using Of = typename Kind::template Of<Value>;

  // One function of each sort: its own value, one that becomes it, and two ways to fail.
  static Of<int> parsed(const std::string& text) {
    if (text.empty()) return Kind::failure("There is no number.");
    if (text == "-") return Kind::failure(std::string("There is only a sign."));
    return std::stoi(text);
  }
  static Of<std::unique_ptr<int>> owned(bool isThere) {
    if (!isThere) return Kind::failure("It is not there.");
    return std::make_unique<int>(7);
  }
  static Of<void> checked(bool isRight) {
    if (!isRight) return Kind::failure("It is wrong.");
    return {};
  }
};
TYPED_TEST_SUITE(ExpectedTest, Kinds);

TYPED_TEST(ExpectedTest, HoldsWhatWasAskedFor) {
  const auto number = this->parsed("42");
  ASSERT_TRUE(number.has_value());
  EXPECT_TRUE(static_cast<bool>(number));
  EXPECT_EQ(*number, 42);
}

TYPED_TEST(ExpectedTest, HoldsTheReasonInPlaceOfIt) {
  const auto missing = this->parsed("");
  EXPECT_FALSE(missing.has_value());
  EXPECT_FALSE(static_cast<bool>(missing));
  EXPECT_EQ(missing.error(), "There is no number.");
  EXPECT_EQ(this->parsed("-").error(), "There is only a sign.");
}

TYPED_TEST(ExpectedTest, AFalseOrEmptyValueIsNoFailure) {
  const typename TypeParam::template Of<bool> no = false;
  EXPECT_TRUE(no.has_value());
  EXPECT_FALSE(*no);
  const typename TypeParam::template Of<std::string> empty = "";
  EXPECT_TRUE(empty.has_value());
  EXPECT_EQ(*empty, "");
  const typename TypeParam::template Of<std::shared_ptr<int>> none = nullptr;
  EXPECT_TRUE(none.has_value());
  EXPECT_EQ(*none, nullptr);
}

TYPED_TEST(ExpectedTest, AValueThatCannotBeCopiedIsMovedInAndOut) {
  auto held = this->owned(true);
  ASSERT_TRUE(held);
  EXPECT_EQ(**held, 7);
  auto moved = std::move(held);
  std::unique_ptr<int> taken = *std::move(moved);
  ASSERT_NE(taken, nullptr);
  EXPECT_EQ(*taken, 7);
  EXPECT_EQ(this->owned(false).error(), "It is not there.");
}

TYPED_TEST(ExpectedTest, ItsValueIsReachedAndChangedInPlace) {
  typename TypeParam::template Of<std::string> text = "one";
  text->append(" and two");
  *text += " and three";
  EXPECT_EQ(text->size(), std::string("one and two and three").size());
  const auto& unchanged = text;
  EXPECT_EQ(unchanged->front(), 'o');
}

TYPED_TEST(ExpectedTest, IsCopiedAndReplacedWithItsReason) {
  auto number = this->parsed("1");
  const auto copy = number;
  number = this->parsed("");
  EXPECT_EQ(*copy, 1);
  EXPECT_EQ(number.error(), "There is no number.");
  number = 2;
  EXPECT_EQ(*number, 2);
}

// Like the JSON library's type, which is made of anything.
struct Anything {
  Anything(int number) : held(number) {}
  template <typename Other>
  Anything(const Other&) {}
  int held = 0;
};

TYPED_TEST(ExpectedTest, ACopyOfOneThatCouldHoldAnythingHoldsTheSame) {
  typename TypeParam::template Of<Anything> first = 3;
  auto second = first;
  EXPECT_EQ(second->held, 3);
}

TYPED_TEST(ExpectedTest, WithoutAValueItSaysOnlyWhetherItFailed) {
  EXPECT_TRUE(this->checked(true).has_value());
  EXPECT_TRUE(this->checked(true));
  const auto failed = this->checked(false);
  EXPECT_FALSE(failed);
  EXPECT_EQ(failed.error(), "It is wrong.");
  auto status = this->checked(true);
  status = failed;
  EXPECT_EQ(status.error(), "It is wrong.");
}

TYPED_TEST(ExpectedTest, AReasonIsHandedOnWhateverTheValueIs) {
  const auto failed = this->parsed("");
  const typename TypeParam::template Of<void> status = TypeParam::failure(failed.error());
  EXPECT_EQ(status.error(), "There is no number.");
}

// A test for it goes wrong silently if it passes for a number, or is made of anything at all.
TYPED_TEST(ExpectedTest, NothingBecomesItOrComesOfItByAccident) {
  using Number = typename TypeParam::template Of<int>;
  using Status = typename TypeParam::template Of<void>;
  EXPECT_FALSE((std::is_convertible_v<Number, bool>));
  EXPECT_FALSE((std::is_convertible_v<Status, bool>));
  EXPECT_FALSE((std::is_convertible_v<Number, int>));
  EXPECT_FALSE((std::is_convertible_v<std::string, Number>)) << "a reason says that it is one";
  EXPECT_FALSE((std::is_convertible_v<std::string, Status>));
  EXPECT_TRUE((std::is_convertible_v<int, Number>));
  EXPECT_TRUE((std::is_default_constructible_v<Status>));
  EXPECT_TRUE((std::is_nothrow_move_constructible_v<Number>));
}

}  // namespace
}  // namespace linux_host
