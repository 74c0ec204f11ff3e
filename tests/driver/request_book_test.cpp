// SPDX-License-Identifier: MIT
#include "driver/request_book.h"

#include <gtest/gtest.h>

namespace {

using loopback::RequestBook;

TEST(RequestBook, OneAskerShowsAndHides) {
  RequestBook book;
  EXPECT_FALSE(book.anyoneAsks());
  book.requestIs(7, {"64206", ""}, true);
  EXPECT_TRUE(book.anyoneAsks());
  book.requestIs(7, {"45067", ""}, true);
  EXPECT_FALSE(book.anyoneAsks());
}

TEST(RequestBook, StaysWhileAtLeastOneAsks) {
  RequestBook book;
  book.requestIs(7, {"64206", ""}, true);
  book.requestIs(8, {"64206", ""}, true);
  book.requestIs(7, {"45067", ""}, true);
  EXPECT_TRUE(book.anyoneAsks());
  book.clientGone(8);
  EXPECT_FALSE(book.anyoneAsks());
}

TEST(RequestBook, AnyOtherValueIsNotARequest) {
  RequestBook book;
  for (const char* value : {"", "0", "1", "0xFACE", "64206 ", "064206", "show"}) {
    book.requestIs(7, {value, ""}, true);
    EXPECT_FALSE(book.anyoneAsks()) << value;
  }
  book.requestIs(7, {"64206", ""}, true);
  book.requestIs(7, {}, true);
  EXPECT_FALSE(book.anyoneAsks());
}

TEST(RequestBook, RequestsFromBeforeTheStartMustBeMadeAgain) {
  RequestBook book;
  book.requestIs(7, {"64206", ""}, false);
  EXPECT_FALSE(book.anyoneAsks());
  book.requestIs(7, {"64206", ""}, true);  // another property changed
  EXPECT_FALSE(book.anyoneAsks());
  book.requestIs(7, {"45067", ""}, true);
  book.requestIs(7, {"64206", ""}, true);
  EXPECT_TRUE(book.anyoneAsks());
}

TEST(RequestBook, AForgottenRequestDoesNotComeBackByItself) {
  RequestBook book;
  book.requestIs(7, {"64206", ""}, true);
  book.forgetAll();
  book.requestIs(7, {"64206", ""}, true);
  EXPECT_FALSE(book.anyoneAsks());
  book.requestIs(8, {"64206", ""}, true);
  EXPECT_TRUE(book.anyoneAsks());
}

TEST(RequestBook, ANewClientWithAnOldNumberIsANewAsker) {
  RequestBook book;
  book.requestIs(7, {"64206", ""}, true);
  book.clientGone(7);
  book.requestIs(7, {"64206", ""}, true);
  EXPECT_TRUE(book.anyoneAsks());
}

TEST(RequestBook, ANewNumberMakesAnOldRequestANewOne) {
  RequestBook book;
  book.requestIs(7, {"64206", "1"}, false);
  EXPECT_FALSE(book.anyoneAsks());
  book.requestIs(7, {"64206", "2"}, true);
  EXPECT_TRUE(book.anyoneAsks());
}

TEST(RequestBook, AnswersThoseWhoAskByTheirNumbers) {
  RequestBook book;
  EXPECT_EQ(book.askers(), "none");
  book.requestIs(70, {"64206", "18"}, true);
  book.requestIs(8, {"64206", ""}, true);
  book.requestIs(9, {"45067", "3"}, true);
  EXPECT_EQ(book.askers(), "8 70:18");
  book.requestIs(70, {"64206", "19"}, true);
  EXPECT_EQ(book.askers(), "8 70:19");
  book.forgetAll();
  EXPECT_EQ(book.askers(), "none");
}

TEST(RequestBook, AnInvalidNumberAnswersNobodyElse) {
  RequestBook book;
  for (const char* number : {"1 9:2", "1:2", "-1", "x", " ", "123456789012345678901"}) {
    book.requestIs(8, {"64206", number}, true);
    EXPECT_EQ(book.askers(), "8") << number;
  }
}

TEST(RequestBook, ANumberHasUpToTwentyDigits) {
  RequestBook book;
  book.requestIs(8, {"64206", "18446744073709551615"}, true);
  EXPECT_EQ(book.askers(), "8:18446744073709551615");
}

TEST(RequestBook, NobodyAsksOnceItIsClosed) {
  RequestBook book;
  book.requestIs(7, {"64206", ""}, true);
  book.close();
  book.requestIs(8, {"64206", ""}, true);
  EXPECT_FALSE(book.anyoneAsks());
  EXPECT_EQ(book.askers(), "none");
}

}  // namespace
