// SPDX-License-Identifier: MIT
#include "platform/file_url.h"

#include <gtest/gtest.h>

#include <string>

namespace platform {
namespace {

TEST(FileURL, PlainPathsStayUnchanged) {
  EXPECT_EQ(fileURLWithPath("/home/user/a-b._~9.mp3"), "file:///home/user/a-b._~9.mp3");
  EXPECT_EQ(fileURLWithPath("/azAZ09"), "file:///azAZ09");
}

TEST(FileURL, EverythingElseIsPercentEncodedInUpperCase) {
  EXPECT_EQ(fileURLWithPath("/a b/100%?#[x]"), "file:///a%20b/100%25%3F%23%5Bx%5D");
  EXPECT_EQ(fileURLWithPath("/\u00fc\u2019"), "file:///%C3%BC%E2%80%99");
  EXPECT_EQ(fileURLWithPath("/`{@[/:"), "file:///%60%7B%40%5B/%3A");
  EXPECT_EQ(fileURLWithPath("/line\nbreak\x7f"), "file:///line%0Abreak%7F");
}

TEST(FileURL, EveryByteOfAPathSurvivesTheRoundTrip) {
  std::string path = "/";
  for (int byte = 1; byte < 256; ++byte) path += static_cast<char>(byte);
  EXPECT_EQ(pathWithFileURL(fileURLWithPath(path)), path);
}

TEST(FileURL, LocalhostIsThisMachine) {
  EXPECT_EQ(pathWithFileURL("file://localhost/tmp/a"), "/tmp/a");
}

TEST(FileURL, LowerCaseDigitsAndUnencodedCharactersAreRead) {
  EXPECT_EQ(pathWithFileURL("file:///%c3%bc a+b"), "/\u00fc a+b");
  EXPECT_EQ(pathWithFileURL("file:///%aa%ff%AA%FF%09%90"), "/\xaa\xff\xaa\xff\x09\x90");
}

TEST(FileURL, OtherSchemesAndHostsAreNotPaths) {
  for (const char* url : {"", "/tmp/a", "http://host/a", "file:/tmp/a", "FILE:///tmp/a", "file://",
                          "file://elsewhere/tmp/a", "file://localhost", "file://localhostile/a"}) {
    EXPECT_EQ(pathWithFileURL(url), std::nullopt) << url;
  }
}

TEST(FileURL, BrokenEscapesAreNotPaths) {
  for (const char* url : {"file:///a%", "file:///a%4", "file:///a%zz", "file:///a%4g",
                          "file:///a%%41", "file:///a%-1", "file:///a%00b"}) {
    EXPECT_EQ(pathWithFileURL(url), std::nullopt) << url;
  }
}

TEST(FileURL, AnEscapeAtTheVeryEndIsRead) {
  EXPECT_EQ(pathWithFileURL("file:///a%41"), "/aA");
}

}  // namespace
}  // namespace platform
