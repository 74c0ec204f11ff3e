// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace e2e {

// A file as decoded by an independent player.
struct DecodedSound {
  std::string error;      // empty when the file opened and decoded to its end
  std::string container;  // as ffprobe names it
  std::string codec;
  std::map<std::string, std::string> tags;
  int rate_Hz = 0;
  int channels = 0;
  // The duration that the file states; the last packet is decoded completely.
  double containerDuration_s = 0;
  std::vector<std::vector<float>> samples;  // by channel

  [[nodiscard]] double duration_s() const {
    return samples.empty() ? 0.0 : static_cast<double>(samples[0].size()) / rate_Hz;
  }
};

// Decodes with the ffmpeg tools; `scratch` is a folder for what they write.
DecodedSound decodeSound(const std::string& path, const std::string& scratch);

// The first channel without its first and last `margin_s`, where a codec is inexact.
std::vector<float> innerPart(const DecodedSound& sound, double margin_s);

}  // namespace e2e
