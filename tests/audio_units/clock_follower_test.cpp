// SPDX-License-Identifier: MIT
#include "hosts/linux/audio_units/clock_follower.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <tuple>

namespace linux_host {
namespace {

constexpr std::uint32_t kQuantum_frames = 1024;
constexpr double kRate_Hz = 48000;

// A device whose cycles follow its crystal, with some jitter.
class Crystal {
 public:
  Crystal(double ppm, double jitter_s, std::uint32_t seed)
      : period_s_(kQuantum_frames / (kRate_Hz * (1 + ppm * 1e-6))),
        jitter_s_(0, jitter_s),
        random_(seed) {}

  // The next cycle.
  GraphCycle next() {
    const double begins_s = 1000 + static_cast<double>(cycles_++) * period_s_;
    last_s = begins_s;
    const double told_s = begins_s + std::abs(jitter_s_(random_));
    return {static_cast<std::uint64_t>(told_s * 1e9), 7, kQuantum_frames, kRate_Hz};
  }
  void lose(int cycles) { cycles_ += cycles; }

  double last_s = 0;  // when the latest cycle began, exactly

 private:
  double period_s_;
  std::normal_distribution<double> jitter_s_;
  std::mt19937 random_;
  std::int64_t cycles_ = 0;
};

TEST(ClockFollower, FindsTheSpeedOfTheDevice) {
  for (const double ppm : {0.0, 50.0, -50.0, 300.0, -300.0}) {
    Crystal crystal(ppm, 30e-6, 1);
    ClockFollower follower;
    for (int i = 0; i < 60 * 47; ++i) EXPECT_EQ(follower.follow(crystal.next()), 0);
    EXPECT_NEAR((follower.rateScalar() - 1) * 1e6, ppm, 3) << ppm;
  }
}

TEST(ClockFollower, SpeedChangesTooLittleToBeHeardWhenCyclesBeginLate) {
  Crystal crystal(100, 100e-6, 2);
  ClockFollower follower;
  for (int i = 0; i < 60 * 47; ++i) follower.follow(crystal.next());
  for (int i = 0; i < 60 * 47; ++i) {
    const double before = follower.rateScalar();
    follower.follow(crystal.next());
    EXPECT_LT(std::abs(follower.rateScalar() - before), 3e-6);
  }
}

// The play-through's use of the two speeds: each output cycle consumes at their quotient, a
// single-precision number read when the output cycle runs.
TEST(ClockFollower, ConsumptionByTheQuotientStaysWithTheInputForADay) {
  struct Pair {
    double input_ppm;
    double output_ppm;
  };
  for (const Pair pair : {Pair{0, 0}, {50, -50}, {-300, 300}, {300, -300}}) {
    Crystal input(pair.input_ppm, 50e-6, 3);
    Crystal output(pair.output_ppm, 50e-6, 4);
    ClockFollower in;
    ClockFollower out;
    GraphCycle nextInput = input.next();
    double delivered_frames = 0;
    double consumed_frames = 0;
    double least = 1e9;
    double most = -1e9;
    constexpr int kCycles = 24 * 3600 * 47;
    for (int i = 0; i < kCycles; ++i) {
      const GraphCycle now = output.next();
      while (nextInput.host_ns <= now.host_ns) {
        in.follow(nextInput);
        delivered_frames += kQuantum_frames;
        nextInput = input.next();
      }
      out.follow(now);
      consumed_frames +=
          kQuantum_frames *
          static_cast<double>(static_cast<float>(in.rateScalar() / out.rateScalar()));
      if (i < 47) continue;  // the first second
      // The input's clock at the true beginning of this cycle.
      const double sinceInput_s = output.last_s - (input.last_s - kQuantum_frames / kRate_Hz);
      const double fill = delivered_frames + sinceInput_s * kRate_Hz - consumed_frames;
      least = std::min(least, fill);
      most = std::max(most, fill);
    }
    EXPECT_LT(most - least, 100) << pair.input_ppm << " " << pair.output_ppm;
    RecordProperty("FillSpread_frames", static_cast<int>(most - least));
  }
}

TEST(ClockFollower, LostCyclesCountAsTimeThatPassed) {
  Crystal crystal(20, 10e-6, 5);
  ClockFollower follower;
  for (int i = 0; i < 1000; ++i) follower.follow(crystal.next());
  const double before = follower.rateScalar();
  crystal.lose(3);
  EXPECT_NEAR(follower.follow(crystal.next()) * kRate_Hz, 3 * kQuantum_frames, 3);
  EXPECT_EQ(follower.rateScalar(), before);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(follower.follow(crystal.next()), 0);
}

TEST(ClockFollower, AnotherDriversTimeNeverGoesBackAndIsNotLost) {
  ClockFollower follower;
  const double cycle_s = kQuantum_frames / kRate_Hz;
  const auto at = [&](double cycles, std::uint32_t id) {
    return GraphCycle{static_cast<std::uint64_t>((5 + cycles * cycle_s) * 1e9), id, kQuantum_frames,
                      kRate_Hz};
  };
  follower.follow(at(0, 1));
  EXPECT_EQ(follower.follow(at(1, 1)), 0);
  // Another driver begins 0.7 cycles early, a third 0.7 late: in total nothing is lost.
  EXPECT_EQ(follower.follow(at(1.3, 2)), 0);
  EXPECT_EQ(follower.follow(at(2.3, 2)), 0);
  EXPECT_NEAR(follower.follow(at(4.0, 3)) * kRate_Hz, 0, 1);
  // One that only comes late is a loss.
  EXPECT_NEAR(follower.follow(at(5.4, 4)) / cycle_s, 0.4, 0.01);
}

TEST(ClockFollower, FollowsCyclesOfChangingLength) {
  ClockFollower follower;
  std::uint64_t now_ns = 1'000'000'000;
  for (int i = 0; i < 1000; ++i) {
    const std::uint64_t duration_frames = i % 3 == 0 ? 256 : 2048;
    EXPECT_EQ(follower.follow({now_ns, 1, duration_frames, kRate_Hz}), 0);
    now_ns += duration_frames * 1'000'000'000 / 48000;
  }
  EXPECT_NEAR(follower.rateScalar(), 1, 1e-6);
}

// As in PipeWire 1.4: the last cycle of the old length can have any duration.
TEST(ClockFollower, ChangeOfLengthThatCutsACycleShortLeavesTheSpeedAlone) {
  for (const auto& [from_frames, to_frames, last_s] :
       {std::tuple{4096, 2048, 0.062954}, {4096, 2048, 0.044407}, {4096, 8192, 0.225493}}) {
    ClockFollower follower;
    double now_s = 1000;
    const auto follow = [&](int frames) {
      const auto length = static_cast<std::uint64_t>(frames);
      return follower.follow({static_cast<std::uint64_t>(now_s * 1e9), 7, length, kRate_Hz});
    };
    const auto followOn = [&](int frames, int cycles) {
      double passed_s = 0;
      for (int i = 0; i < cycles; ++i, now_s += frames / kRate_Hz) passed_s += follow(frames);
      return passed_s;
    };
    EXPECT_EQ(followOn(from_frames, 40), 0);
    const double early_s = from_frames / kRate_Hz - last_s;
    now_s -= early_s;
    // A cycle that was too short is offset by later ones that come late; one that was too long is
    // lost time.
    EXPECT_NEAR(followOn(to_frames, 40), std::max(-early_s, 0.0), 1e-6);
    EXPECT_NEAR((follower.rateScalar() - 1) * 1e6, 0, 1) << from_frames << " to " << to_frames;
  }
}

TEST(ClockFollower, StaysWithinReasonWhateverTheServerSays) {
  ClockFollower follower;
  std::mt19937_64 random(6);
  for (int i = 0; i < 10000; ++i) {
    const double skipped_s =
        follower.follow({random() >> (random() % 40), 1, 1 + random() % 8192, kRate_Hz});
    EXPECT_GE(skipped_s, 0);
    EXPECT_NEAR(follower.rateScalar(), 1, 0.011);
  }
}

}  // namespace
}  // namespace linux_host
