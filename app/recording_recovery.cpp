// SPDX-License-Identifier: MIT
#include "app/recording_recovery.h"

#include <algorithm>
#include <utility>

#include "capture/recording_path.h"
#include "platform/host.h"

namespace record_audio {
namespace {

using platform::Date;
using platform::InterruptedRecording;
using platform::InterruptedRecordings;
using platform::RecordingFindings;
using Contents = RecordingFindings::Contents;

// How far the sound's length and the disk's clock may differ.
constexpr std::chrono::seconds kSlack{5};
// More names than a stop tries: what it could not save for lack of a name is recovered, too.
constexpr int kLastRecoveredNumber = 9999;

}  // namespace

Date startOfRecording(const RecordingFindings& findings) {
  const auto length = std::chrono::duration_cast<Date::duration>(
      std::chrono::duration<double>(findings.duration_s));
  const Date byLength = findings.lastWritten - length;
  for (const auto& known : {findings.created, findings.stated}) {
    if (known && *known <= byLength + kSlack) return *known;
  }
  return byLength;
}

std::shared_ptr<RecordingRecovery> RecordingRecovery::create(suite::Environment environment,
                                                             std::string outputFolder) {
  return std::shared_ptr<RecordingRecovery>(
      new RecordingRecovery(environment, std::move(outputFolder)));
}

RecordingRecovery::RecordingRecovery(suite::Environment environment, std::string outputFolder)
    : environment_(environment), outputFolder_(std::move(outputFolder)) {}

RecoveryReport RecordingRecovery::run() {
  turn_.assertHeld();
  search();
  while (recording_ || takeNext()) {
    if (name()) place();
  }
  return report_;
}

void RecordingRecovery::start(std::function<void(const RecoveryReport&)> onFinished) {
  turn_.assertHeld();
  onFinished_ = std::move(onFinished);
  queue_ =
      environment_.host.dispatch.createSerialQueue("com.vantrel.korvel.RecordAudio.RecoveryQueue");
  if (!queue_) {
    report_.problems.emplace_back(
        "There was no thread to spare to look for interrupted recordings; the next start does.");
    onFinished_(report_);
    return;
  }
  turn_.release();
  queue_->async([self = shared_from_this()] {
    self->turn_.assertHeld();
    self->environment_.host.interruptedRecordings.yieldToOthers();
    self->search();
    self->continueOnMainThread();
  });
}

void RecordingRecovery::continueOnMainThread() {
  const bool found = recording_ || takeNext();
  turn_.release();
  environment_.host.dispatch.mainQueue()->async([self = shared_from_this(), found] {
    self->turn_.assertHeld();
    if (found) {
      self->continueOnQueue();
    } else {
      self->queue_.reset();
      self->onFinished_(self->report_);
    }
  });
}

void RecordingRecovery::continueOnQueue() {
  turn_.assertHeld();
  const bool named = name();
  turn_.release();
  queue_->async([self = shared_from_this(), named] {
    self->turn_.assertHeld();
    if (named) self->place();
    self->continueOnMainThread();
  });
}

void RecordingRecovery::search() {
  std::string error;
  waiting_ = environment_.host.interruptedRecordings.find(kTemporaryNamePrefix, &error);
  std::ranges::reverse(waiting_);
  if (!error.empty()) report_.problems.push_back(error);
}

bool RecordingRecovery::takeNext() {
  while (!waiting_.empty()) {
    const std::string path = std::move(waiting_.back());
    waiting_.pop_back();
    InterruptedRecordings::Claim claim = environment_.host.interruptedRecordings.claim(path);
    switch (claim.outcome) {
      case InterruptedRecordings::Claim::Outcome::kNotOurs:
        break;
      case InterruptedRecordings::Claim::Outcome::kEmpty:
        report_.soundless.push_back(path);
        break;
      case InterruptedRecordings::Claim::Outcome::kRefused:
        report_.problems.push_back(claim.problem);
        break;
      case InterruptedRecordings::Claim::Outcome::kClaimed:
        if (prepare(path, std::move(claim.recording))) return true;
        break;
    }
  }
  return false;
}

bool RecordingRecovery::prepare(const std::string& path,
                                std::unique_ptr<InterruptedRecording> recording) {
  findings_ = recording->examine();
  if (findings_.contents == Contents::kNoSound) {
    report_.soundless.push_back(path);
    return false;
  }
  const bool isUnknown = findings_.contents == Contents::kUnknown;
  if (isUnknown) {
    report_.problems.push_back(findings_.problem);
    return false;
  }
  whyNotFinished_ = recording->finish();
  recording_ = std::move(recording);
  target_.clear();
  return true;
}

bool RecordingRecovery::name() {
  const std::string extension = findings_.contents == Contents::kM4a ? "m4a" : "mp3";
  std::string target = recordingPath(environment_.host, outputFolder_, startOfRecording(findings_),
                                     extension, kLastRecoveredNumber);
  // The move found this name taken, and there is still no other: none is free.
  if (target == target_) {
    report_.problems.push_back(whyNotMoved_);
    recording_.reset();
    return false;
  }
  target_ = std::move(target);
  return true;
}

void RecordingRecovery::place() {
  switch (recording_->moveTo(target_, &whyNotMoved_)) {
    case InterruptedRecording::Move::kMoved:
      finishMoved();
      break;
    case InterruptedRecording::Move::kNameTaken:
      return;
    case InterruptedRecording::Move::kFailed:
      report_.problems.push_back(whyNotFinished_.empty() ? whyNotMoved_ : whyNotFinished_);
      break;
  }
  recording_.reset();
}

// The disk that the file came from may have been full; here there may be room for the rest of it.
// If not, the file goes back to where the next start looks for it.
void RecordingRecovery::finishMoved() {
  const bool isFinished = whyNotFinished_.empty() || recording_->finish().empty();
  if (!isFinished) report_.problems.push_back(whyNotFinished_);
  if (isFinished || !recording_->moveBack().empty()) report_.recovered.push_back(target_);
}

}  // namespace record_audio
