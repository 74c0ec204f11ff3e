// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/device_clock_table.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/support/realtime_trap.h"

namespace linux_host {
namespace {

TEST(DeviceClockTable, ReadsWhatWasPublishedLast) {
  DeviceClockTable table;
  EXPECT_FALSE(table.read(7));
  auto publisher = table.claim(7);
  EXPECT_FALSE(table.read(7));
  publisher.publish({100, 10, 48000, 1.5});
  publisher.publish({200, 20, 48000, 1.25});
  const auto clock = table.read(7);
  ASSERT_TRUE(clock);
  EXPECT_EQ(clock->host_ns, 200U);
  EXPECT_EQ(clock->sampleTime, 20);
  EXPECT_EQ(clock->rateScalar, 1.25);
  EXPECT_FALSE(table.read(8));
}

TEST(DeviceClockTable, NextOwnerOfAnEntryDoesNotInheritItsClock) {
  DeviceClockTable table;
  table.claim(7).publish({100, 10, 48000, 1.5});
  EXPECT_FALSE(table.read(7));
  auto publisher = table.claim(8);
  EXPECT_FALSE(table.read(8));
}

TEST(DeviceClockTable, StreamBeyondTheTableHasNoClockAndDoesNoHarm) {
  DeviceClockTable table;
  std::vector<DeviceClockTable::Publisher> publishers;
  for (std::uint32_t i = 0; i < DeviceClockTable::kEntries; ++i) {
    publishers.push_back(table.claim(10 + i));
    publishers.back().publish({i + 1, 0, 48000, 1});
  }
  auto beyond = table.claim(99);
  beyond.publish({1, 1, 1, 1});
  EXPECT_FALSE(table.read(99));
  for (std::uint32_t i = 0; i < DeviceClockTable::kEntries; ++i) {
    EXPECT_EQ(table.read(10 + i)->host_ns, i + 1);
  }
  publishers.clear();
  beyond = table.claim(99);
  beyond.publish({5, 1, 1, 1});
  EXPECT_EQ(table.read(99)->host_ns, 5U);
}

TEST(DeviceClockTable, ReaderNeverSeesValuesOfTwoUpdates) {
  DeviceClockTable table;
  auto publisher = table.claim(7);
  std::atomic<bool> isDone{false};
  std::thread writer([&] {
    for (std::uint64_t i = 1; i <= 300'000; ++i) {
      const auto value = static_cast<double>(i);
      publisher.publish({i, value, value, value});
    }
    isDone = true;
  });
  std::uint64_t last = 0;
  std::uint64_t wrong = 0;
  while (!isDone) {
    const auto clock = table.read(7);
    if (!clock) continue;
    const auto value = static_cast<double>(clock->host_ns);
    wrong += clock->sampleTime != value || clock->rate_Hz != value || clock->rateScalar != value;
    wrong += clock->host_ns < last ? 1 : 0;
    last = clock->host_ns;
  }
  writer.join();
  EXPECT_EQ(wrong, 0U);
  EXPECT_EQ(table.read(7)->host_ns, 300'000U);
}

TEST(DeviceClockTable, PublishingAndReadingAreFitForAudioCallbacks) {
  DeviceClockTable table;
  auto publisher = table.claim(7);
  const auto report = realtime_trap::runTrapped([&] {
    publisher.publish({100, 10, 48000, 1.5});
    return table.read(7).has_value() && !table.read(8).has_value();
  });
  EXPECT_TRUE(report.clean()) << realtime_trap::describe(report);
}

}  // namespace
}  // namespace linux_host
