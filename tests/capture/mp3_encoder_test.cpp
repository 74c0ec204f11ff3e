// SPDX-License-Identifier: MIT
// The encoder by itself, without a recorder.

#include "capture/mp3_encoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "tests/memory_host/memory_foundation.h"

namespace {

using record_audio::createLame;
using record_audio::EncoderBacklog;
using record_audio::LameHandle;
using record_audio::Mp3Encoder;

class Mp3EncoderTest : public testing::Test {
 protected:
  std::shared_ptr<platform::FileHandle> newFile(const std::string& path) {
    files_.addFile(path);
    return files_.fileHandleForUpdating(path);
  }
  static LameHandle newLame() { return createLame({2, 48000, 320, 2}); }
  void encodeASecond() { encoder_.encode(std::vector<std::uint32_t>(48000), true); }
  [[nodiscard]] bool isOpen(const std::string& path) const {
    return files_.files.at(path)->handles > 0;
  }
  [[nodiscard]] std::size_t size(const std::string& path) const {
    return files_.files.at(path)->contents.size();
  }

  memory_host::MemoryFileManager files_;
  Mp3Encoder encoder_;
};

TEST_F(Mp3EncoderTest, ABeginFinishesTheRecordingBefore) {
  encoder_.begin(newLame(), newFile("/a"), nullptr);
  encodeASecond();
  const std::size_t encoded_bytes = size("/a");
  encoder_.begin(newLame(), newFile("/b"), nullptr);
  EXPECT_GT(size("/a"), encoded_bytes) << "what the encoder still held";
  EXPECT_FALSE(isOpen("/a"));
  encodeASecond();
  EXPECT_GT(size("/b"), 0U);
  EXPECT_TRUE(isOpen("/b"));
}

TEST_F(Mp3EncoderTest, WithoutLameTheFileStaysOpenAndEmptyUntilTheNextRecording) {
  encoder_.begin(nullptr, newFile("/a"), nullptr);
  encodeASecond();
  encoder_.finish();
  EXPECT_TRUE(isOpen("/a"));
  EXPECT_EQ(size("/a"), 0U);
  encoder_.begin(newLame(), newFile("/b"), nullptr);
  EXPECT_FALSE(isOpen("/a"));
}

TEST_F(Mp3EncoderTest, AFinishKeepsNothingAndMayComeTwice) {
  auto lame = newLame();
  auto file = newFile("/a");
  auto owned = std::make_shared<int>();
  const std::weak_ptr<lame_global_struct> lameLeft = lame;
  const std::weak_ptr<platform::FileHandle> fileLeft = file;
  const std::weak_ptr<int> ownedLeft = owned;
  encoder_.begin(std::move(lame), std::move(file),
                 [owned = std::move(owned)](const std::string&) {});
  EXPECT_FALSE(ownedLeft.expired());
  encoder_.finish();
  EXPECT_TRUE(lameLeft.expired());
  EXPECT_TRUE(fileLeft.expired());
  EXPECT_TRUE(ownedLeft.expired());
  const auto journal = files_.journal;
  encoder_.finish();
  EXPECT_EQ(files_.journal, journal);
}

// A gap in the middle of a file is worse than an early end.
TEST_F(Mp3EncoderTest, AfterAStopHasDroppedSamplesTheRecordingTakesNoMoreOfThem) {
  encoder_.begin(newLame(), newFile("/a"), nullptr);
  encodeASecond();
  const std::size_t encoded_bytes = size("/a");
  encoder_.stopped = true;
  encodeASecond();
  encoder_.stopped = false;  // as the next recording's start does
  encodeASecond();
  EXPECT_EQ(size("/a"), encoded_bytes);
  EXPECT_EQ(encoder_.backlog.takeDropped_s(), 2);
  encoder_.begin(newLame(), newFile("/b"), nullptr);
  encodeASecond();
  EXPECT_GT(size("/b"), 0U);
  EXPECT_EQ(encoder_.backlog.takeDropped_s(), 0);
}

TEST_F(Mp3EncoderTest, SamplesOfAStoppedRecorderThatHasNoFileAreDropped) {
  encoder_.stopped = true;
  encodeASecond();
  EXPECT_EQ(encoder_.backlog.takeDropped_s(), 1);
  encoder_.stopped = false;
  encoder_.begin(newLame(), newFile("/a"), nullptr);
  encodeASecond();
  EXPECT_GT(size("/a"), 0U);
}

TEST(EncoderBacklogTest, TellsOnceWhatWasDropped) {
  EncoderBacklog backlog;
  backlog.setRate(1000);
  backlog.drop(500);
  backlog.drop(1);
  EXPECT_EQ(backlog.takeDropped_s(), 0.501);
  EXPECT_EQ(backlog.takeDropped_s(), 0);
}

}  // namespace
