// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/linux/m4a/m4a_description.h"
#include "hosts/linux/m4a/m4a_fragments.h"
#include "hosts/linux/m4a/m4a_index.h"
#include "tests/m4a/box_walker.h"

// The boxes of a growing file, byte by byte, for the players that the other tests do not use.

namespace linux_host::test {
namespace {

std::vector<std::byte> bytesOf(std::string_view hex) {
  std::vector<std::byte> bytes;
  std::string digits;
  for (const char digit : hex) {
    if (digit == ' ') continue;
    digits += digit;
    if (digits.size() < 2) continue;
    bytes.push_back(std::byte(std::stoul(digits, nullptr, 16)));
    digits.clear();
  }
  return bytes;
}

std::string hexOf(FileBytes bytes) {
  std::string hex;
  for (const std::byte byte : bytes) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", std::to_integer<unsigned>(byte));
    hex += digits;
  }
  return hex;
}

std::string joined(std::string_view hex) {
  return hexOf(bytesOf(hex));
}

TEST(M4aBoxesTest, TheDescriptionNamesTheDecoderItsRateAndItsConfiguration) {
  const auto config = bytesOf("1188 56e500");
  EXPECT_EQ(hexOf(m4aSampleDescription({48000, 128000, config})),
            joined("0000007e 73747364 00000000 00000001"                   // stsd
                   "0000006e 6d703461 000000000000 0001 0000000000000000"  // mp4a
                   "0002 0010 00000000 bb80 0000"                          //
                   "00000036 65736473 00000000"                            // esds
                   "03 80808025 0001 00"                                   // the stream
                   "04 80808017 40 15 000000 0001f400 0001f400"            // the decoder
                   "05 80808005 1188 56e500"                               // its configuration
                   "06 80808001 02"                                        //
                   "00000014 62747274 00000000 0001f400 0001f400"));       // btrt
}

TEST(M4aBoxesTest, ARateBeyondSixteenBitsIsInTheConfigurationOnly) {
  constexpr std::uint64_t kRate = 16 + 8 + 24;  // in the entry of the stsd
  const auto description = m4aSampleDescription({96000, 128000, {}});
  EXPECT_EQ(bigEndian(description, kRate, 4), 0U);
}

TEST(M4aBoxesTest, TheTitleIsWherePlayersLookForIt) {
  EXPECT_EQ(hexOf(m4aLabelsBox({"Ab", 0})),
            joined("00000057 75647461"                                      // udta
                   "0000004f 6d657461 00000000"                             // meta
                   "00000021 68646c72 00000000 00000000 6d646972 6170706c"  // hdlr
                   "0000000000000000 00"                                    //
                   "00000022 696c7374"                                      // ilst
                   "0000001a a96e616d"                                      // the title
                   "00000012 64617461 00000001 00000000 4162"));            // its text
}

TEST(M4aBoxesTest, WithoutTitleAndDateThereIsNoBoxForThem) {
  EXPECT_TRUE(m4aLabelsBox({}).empty());
}

TEST(M4aBoxesTest, FragmentsFollowEachOtherInNumberAndTime) {
  M4aFragments fragments;
  fragments.add(bytesOf("aa"));
  fragments.add(bytesOf("bbbb"));
  EXPECT_EQ(fragments.packetCount(), 2U);
  const M4aFragment first = fragments.end();
  EXPECT_EQ(hexOf(first.bytes),
            joined("00000068 6d6f6f66"                                      // moof
                   "00000010 6d666864 00000000 00000001"                    // mfhd
                   "00000050 74726166"                                      // traf
                   "00000018 74666864 00020028 00000001 00000400 02000000"  // tfhd
                   "00000014 74666474 01000000 0000000000000000"            // tfdt
                   "0000001c 7472756e 00000201 00000002 00000070 00000001 00000002"
                   "0000000b 6d646174 aabbbb"));  // mdat
  EXPECT_EQ(first.mediaOffset_bytes, 0x70U);
  EXPECT_EQ(first.packetSizes_bytes, (std::vector<std::uint32_t>{1, 2}));

  fragments.add(bytesOf("cc"));
  const M4aFragment second = fragments.end();
  const auto number = boxAt(second.bytes, "moof/mfhd");
  const auto time = boxAt(second.bytes, "moof/traf/tfdt");
  ASSERT_TRUE(number && time);
  EXPECT_EQ(bigEndian(second.bytes, number->offset + 12, 4), 2U);
  EXPECT_EQ(bigEndian(second.bytes, time->offset + 12, 8), 2U * kAacPacket_frames);
}

TEST(M4aBoxesTest, TheGrowingIndexHoldsNoPacketsAndSaysThatFragmentsFollow) {
  M4aTrack track;
  track.sampleRate_hz = 48000;
  track.sampleDescription = m4aSampleDescription({48000, 128000, {}});
  const auto index = m4aGrowingIndexBox(track);
  const auto extension = boxAt(index, "moov/mvex/trex");
  const auto sizes = boxAt(index, "moov/trak/mdia/minf/stbl/stsz");
  ASSERT_TRUE(extension && sizes);
  EXPECT_EQ(bigEndian(index, extension->offset + 12, 4), kM4aTrackId);
  EXPECT_EQ(bigEndian(index, sizes->offset + 16, 4), 0U);
  EXPECT_FALSE(boxAt(m4aIndexBox(track, {}), "moov/mvex"));
}

}  // namespace
}  // namespace linux_host::test
