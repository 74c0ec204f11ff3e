// SPDX-License-Identifier: MIT
// What the sound driver and its clients read from other programs' properties: version texts,
// requests for the device, the session's default devices, the ports of a sink. The first byte
// selects one.

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>

#include "driver/default_guard.h"
#include "driver/loopback_protocol.h"
#include "driver/request_book.h"
#include "driver/sink_directory.h"
#include "routing/audio_driver.h"
#include "tests/fuzz/fuzz_expect.h"

namespace {

using fuzz::expect;
using record_audio::AudioDriver;
using record_audio::AudioDriverVersion;

constexpr char kDelete = 0x7F;

// One-byte numbers, and texts that end at a line break.
class Input {
 public:
  explicit Input(std::string_view bytes) : rest_(bytes) {}
  [[nodiscard]] bool atEnd() const { return rest_.empty(); }
  std::uint8_t byte() {
    if (rest_.empty()) return 0;
    const auto value = static_cast<std::uint8_t>(rest_.front());
    rest_.remove_prefix(1);
    return value;
  }
  // No NUL: properties are C strings.
  std::string text() {
    const std::size_t end = std::min(rest_.find('\n'), rest_.size());
    const std::string line(rest_.substr(0, end));
    rest_.remove_prefix(std::min(end + 1, rest_.size()));
    return line.c_str();
  }

 private:
  std::string_view rest_;
};

bool isAllZero(const AudioDriverVersion& version) {
  return version.major == 0 && version.minor == 0 && version.patch == 0;
}

void tryVersions(Input& input) {
  const std::string text = input.text();
  const AudioDriverVersion version = AudioDriver::parseVersion(text);
  const AudioDriverVersion other = AudioDriver::parseVersion(input.text());
  for (const auto part : {version.major, version.minor, version.patch}) {
    expect(part >= 0, "no negative part of a version");
  }
  const bool hasDigits = text.find_first_of("123456789") != std::string::npos;
  expect(hasDigits || isAllZero(version), "no version without a number");
  expect(AudioDriver::comapreVersion(version, version) == 0, "a version equal to itself");
  expect(
      AudioDriver::comapreVersion(version, other) == -AudioDriver::comapreVersion(other, version),
      "an order that does not depend on who asks");
  const std::string written = std::to_string(version.major) + "." + std::to_string(version.minor) +
                              "." + std::to_string(version.patch);
  expect(AudioDriver::comapreVersion(AudioDriver::parseVersion(written), version) == 0,
         "the same version when it is written and read again");
}

std::set<std::string> wordsOf(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), {}};
}

void tryRequests(Input& input) {
  loopback::RequestBook book;
  std::map<std::uint32_t, loopback::Request> said;
  std::set<std::uint32_t> asking;
  while (!input.atEnd()) {
    const std::uint8_t step = input.byte();
    const std::uint32_t client = step & 7U;
    const loopback::Request request{input.text(), input.text()};
    if (step < 224) {
      const bool isNews = step < 192;
      book.requestIs(client, request, isNews);
      if (said[client] != request) {
        asking.erase(client);
        if (isNews && request.value == loopback::kLoopbackRequestShowText) asking.insert(client);
      }
      said[client] = request;
    } else if (step < 248) {
      book.clientGone(client);
      said.erase(client);
      asking.erase(client);
    } else {
      book.forgetAll();
      asking.clear();
    }
    expect(book.anyoneAsks() == !asking.empty(), "the device exactly while somebody asks for it");
    std::set<std::string> answers;
    for (const std::uint32_t asker : asking) {
      answers.insert(loopback::grantOf(asker, said[asker].number));
    }
    if (answers.empty()) answers.insert(loopback::kLoopbackNoneGranted);
    expect(wordsOf(book.askers()) == answers,
           "an answer to everybody who asks, and to nobody else");
  }
}

// Both roles of the session: it announces what the guard writes.
class Session : public loopback::DefaultKeys, public loopback::ChoiceMemory {
 public:
  void setConfigured(const loopback::DefaultChoice& choice) override { configured = choice; }
  void setEffective(const loopback::DefaultChoice& choice) override { effective = choice; }
  loopback::DefaultChoice load() override { return remembered; }
  void store(const loopback::DefaultChoice& choice) override {
    expect(loopback::deviceNameOf(choice) != loopback::kLoopbackDeviceUID,
           "the loopback never remembered as the user's choice");
    remembered = choice;
  }

  loopback::DefaultChoice configured;
  loopback::DefaultChoice effective;
  loopback::DefaultChoice remembered;
};

void tryDeviceName(const std::string& name) {
  const std::string again = loopback::deviceNameOf(loopback::choiceOf(name));
  const bool isASCII =
      std::all_of(name.begin(), name.end(), [](char c) { return c > 0 && c < kDelete; });
  // PipeWire's JSON accepts neither invalid UTF-8 nor this character.
  expect(again == name || (!isASCII && again.empty()),
         "a device's name back from the value that was made of it");
}

void tryDefaults(Input& input) {
  Session session;
  loopback::DefaultGuard guard(session, session);
  guard.serve();
  while (!input.atEnd()) {
    const std::uint8_t step = input.byte();
    const std::string text = input.text();
    const bool clears = (step & 128U) != 0;
    switch (step & 7U) {
      case 0:
      case 1:
        session.configured = clears ? loopback::DefaultChoice() : loopback::MetadataValue{"", text};
        guard.configuredChanged(session.configured);
        break;
      case 2:
        guard.effectiveChanged(loopback::MetadataValue{"", text});
        break;
      case 3:
        clears ? guard.sinkGone(text) : guard.sinkAppeared(text, step);
        break;
      case 4:
        guard.willShow();
        break;
      case 5:
        guard.willHide();
        expect(loopback::deviceNameOf(session.configured) != loopback::kLoopbackDeviceUID,
               "no hidden device configured");
        break;
      case 6:
        clears ? guard.sessionManagerGone() : guard.sessionManagerReady();
        if (clears) session.configured.reset();
        break;
      default:
        tryDeviceName(text);
    }
    expect(guard.lastRealDefault() != loopback::kLoopbackDeviceUID, "a real device");
  }
}

void trySinks(Input& input) {
  loopback::SinkDirectory sinks;
  while (!input.atEnd()) {
    const std::uint8_t step = input.byte();
    const std::uint32_t index = input.byte();
    const std::string text = input.text();
    if (step < 64) {
      sinks.addSink(step & 3U, text);
    } else if (step < 224) {
      sinks.addInputPort(step, step & 3U, index, text);
    } else {
      sinks.remove(index);
    }
    const auto channels = sinks.channelsFor(text);
    expect(!channels.empty() && channels.size() <= 8, "one to eight channels");
    const std::set<std::string> distinct(channels.begin(), channels.end());
    expect(distinct.size() == channels.size(), "a place of its own for every channel");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size_bytes) {
  Input input(std::string_view(reinterpret_cast<const char*>(bytes), size_bytes));
  switch (input.byte()) {
    case 'v':
      tryVersions(input);
      break;
    case 'r':
      tryRequests(input);
      break;
    case 'd':
      tryDefaults(input);
      break;
    case 's':
      trySinks(input);
      break;
    default:
      break;
  }
  return 0;
}
