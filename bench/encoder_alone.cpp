// SPDX-License-Identifier: MIT
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bench/encoders_alone.h"

// encoder-alone mp3|aac RAW-FILE
//
// Encodes a file of interleaved stereo, 16 bits in this machine's byte order, at 48 kHz, and prints
// the CPU time that a minute of it takes, in seconds.

int main(int argc, char** argv) {
  const std::string format = argc == 3 ? argv[1] : "";
  if (format != "mp3" && format != "aac") {
    std::fprintf(stderr, "usage: encoder-alone mp3|aac RAW-FILE\n");
    return 2;
  }
  std::ifstream file(argv[2], std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  std::vector<std::int16_t> samples(bytes.size() / sizeof(std::int16_t));
  if (samples.size() < kBenchRate_Hz) {
    std::fprintf(stderr, "encoder-alone: %s is shorter than half a second or cannot be read\n",
                 argv[2]);
    return 1;
  }
  std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof samples[0]);
  std::vector<std::vector<float>> channels(2, std::vector<float>(samples.size() / 2));
  for (std::size_t i = 0; i + 1 < samples.size(); i += 2) {
    for (std::size_t channel = 0; channel < 2; ++channel) {
      channels[channel][i / 2] = static_cast<float>(samples[i + channel]) / 32768.0F;
    }
  }
  const double cpu_s = format == "mp3" ? mp3AloneCpu_s(channels) : aacAloneCpu_s(channels);
  if (cpu_s < 0) {
    std::fprintf(stderr, "encoder-alone: the encoder cannot be opened\n");
    return 1;
  }
  const double minutes = static_cast<double>(channels[0].size()) / kBenchRate_Hz / 60;
  std::printf("%.4f\n", cpu_s / minutes);
  return 0;
}
