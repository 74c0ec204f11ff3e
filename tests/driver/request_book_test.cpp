#include "driver/request_book.h"

#include <gtest/gtest.h>

namespace {

using loopback::RequestBook;

TEST(RequestBook, OneAskerShowsAndHides) {
  RequestBook book;
  EXPECT_FALSE(book.anyoneAsks());
  book.requestIs(7, "64206", true);
  EXPECT_TRUE(book.anyoneAsks());
  book.requestIs(7, "45067", true);
  EXPECT_FALSE(book.anyoneAsks());
}

TEST(RequestBook, StaysWhileAtLeastOneAsks) {
  RequestBook book;
  book.requestIs(7, "64206", true);
  book.requestIs(8, "64206", true);
  book.requestIs(7, "45067", true);
  EXPECT_TRUE(book.anyoneAsks());
  book.clientGone(8);
  EXPECT_FALSE(book.anyoneAsks());
}

TEST(RequestBook, AnyOtherValueIsNoRequest) {
  RequestBook book;
  for (const char* value : {"", "0", "1", "0xFACE", "64206 ", "064206", "show"}) {
    book.requestIs(7, value, true);
    EXPECT_FALSE(book.anyoneAsks()) << value;
  }
  book.requestIs(7, "64206", true);
  book.requestIs(7, "", true);
  EXPECT_FALSE(book.anyoneAsks());
}

TEST(RequestBook, WhatWasAskedBeforeTheStartHasToBeAskedAnew) {
  RequestBook book;
  book.requestIs(7, "64206", false);
  EXPECT_FALSE(book.anyoneAsks());
  book.requestIs(7, "64206", true);  // another property changed
  EXPECT_FALSE(book.anyoneAsks());
  book.requestIs(7, "45067", true);
  book.requestIs(7, "64206", true);
  EXPECT_TRUE(book.anyoneAsks());
}

TEST(RequestBook, AForgottenRequestDoesNotComeBackByItself) {
  RequestBook book;
  book.requestIs(7, "64206", true);
  book.forgetAll();
  book.requestIs(7, "64206", true);
  EXPECT_FALSE(book.anyoneAsks());
  book.requestIs(8, "64206", true);
  EXPECT_TRUE(book.anyoneAsks());
}

TEST(RequestBook, ANewClientWithAnOldNumberIsANewAsker) {
  RequestBook book;
  book.requestIs(7, "64206", true);
  book.clientGone(7);
  book.requestIs(7, "64206", true);
  EXPECT_TRUE(book.anyoneAsks());
}

}  // namespace
