// SPDX-License-Identifier: MIT
#include "tests/e2e/decoded_sound.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/e2e/finished_command.h"

namespace e2e {
namespace {

// The command's output; its error messages are added to *error.
std::string outputOf(const std::vector<std::string>& arguments, const std::string& scratch,
                     std::string* error) {
  const FinishedCommand command = runToEnd(arguments, {}, scratch);
  *error += command.errors;
  if (command.exitStatus != 0) {
    *error += arguments.front() + " ended with " + std::to_string(command.exitStatus);
  }
  return command.output;
}

void readSamples(const std::string& raw, DecodedSound* sound) {
  const std::size_t frames =
      std::filesystem::file_size(raw) / sizeof(float) / static_cast<std::size_t>(sound->channels);
  std::vector<float> interleaved(frames * static_cast<std::size_t>(sound->channels));
  std::ifstream(raw, std::ios::binary)
      .read(reinterpret_cast<char*>(interleaved.data()),
            static_cast<std::streamsize>(interleaved.size() * sizeof(float)));
  sound->samples.assign(static_cast<std::size_t>(sound->channels), std::vector<float>(frames));
  for (std::size_t i = 0; i < interleaved.size(); ++i) {
    sound->samples[i % sound->samples.size()][i / sound->samples.size()] = interleaved[i];
  }
}

}  // namespace

DecodedSound decodeSound(const std::string& path, const std::string& scratch) {
  DecodedSound sound;
  const std::string description =
      outputOf({"ffprobe", "-v", "error", "-show_format", "-show_streams", "-of", "json", path},
               scratch, &sound.error);
  const auto facts = nlohmann::json::parse(description, nullptr, false);
  if (!facts.is_object() || !facts.contains("streams") || facts["streams"].empty()) {
    sound.error += " there is no stream in " + path;
    return sound;
  }
  const auto& stream = facts["streams"][0];
  sound.container = facts["format"].value("format_name", "");
  sound.containerDuration_s = std::stod(facts["format"].value("duration", "0"));
  const auto tags = facts["format"].value("tags", nlohmann::json::object());
  sound.tags = tags.get<std::map<std::string, std::string>>();
  sound.codec = stream.value("codec_name", "");
  sound.rate_Hz = std::stoi(stream.value("sample_rate", "0"));
  sound.channels = stream.value("channels", 0);
  const std::string raw = scratch + "/decoded.raw";
  std::filesystem::remove(raw);
  outputOf({"ffmpeg", "-v", "error", "-i", path, "-f", "f32le", raw}, scratch, &sound.error);
  if (std::filesystem::exists(raw) && sound.channels > 0) readSamples(raw, &sound);
  return sound;
}

std::vector<float> innerPart(const DecodedSound& sound, double margin_s) {
  const auto margin = static_cast<std::size_t>(margin_s * sound.rate_Hz);
  if (sound.samples.empty() || sound.samples[0].size() < 2 * margin) return {};
  const auto cut = static_cast<std::ptrdiff_t>(margin);
  return {sound.samples[0].begin() + cut, sound.samples[0].end() - cut};
}

}  // namespace e2e
