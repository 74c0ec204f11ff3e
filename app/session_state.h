// SPDX-License-Identifier: MIT
#pragma once

namespace record_audio {

// Where the one recording session stands. AppDelegate::enter() alone changes it.
//
//   state       meaning                                                may become
//   kLaunching  not known yet whether there will be a session          all others
//   kIdle       nothing is recorded                                    kWaiting, kNoDevice,
//                                                                      kAsking, kRecording (a)
//   kWaiting    the waiter waits for the loopback device               kNoDevice, kAsking, kIdle,
//                                                                      kRecording (a)
//   kNoDevice   there is nothing to record from; an alert says so      kIdle
//   kAsking     the recorder was asked to start and has not answered;  kStarting, kRecording, kIdle
//               other code runs meanwhile only while its alert about
//               a muted microphone is open, and then it will refuse
//   kStarting   it accepted and has not confirmed yet                  kRecording, kIdle
//   kRecording  it confirmed                                           kIdle
//
// (a) When a start is confirmed after it was given up.
//
// A state may also be entered again. Of these only kWaiting changes anything: a new wait replaces
// the old one.
enum class SessionState { kLaunching, kIdle, kWaiting, kNoDevice, kAsking, kStarting, kRecording };

// The table above.
[[nodiscard]] constexpr bool mayBecome(SessionState from, SessionState to) {
  using enum SessionState;
  switch (from) {
    case kLaunching:
      return to != kLaunching;
    case kIdle:
      return to == kWaiting || to == kNoDevice || to == kAsking || to == kRecording;
    case kWaiting:
      return to == kNoDevice || to == kAsking || to == kIdle || to == kRecording;
    case kNoDevice:
      return to == kIdle;
    case kAsking:
      return to == kStarting || to == kRecording || to == kIdle;
    case kStarting:
      return to == kRecording || to == kIdle;
    case kRecording:
      return to == kIdle;
  }
  return false;
}

// True when the session records, or when it is known that it will not or that there is none.
[[nodiscard]] constexpr bool isDecided(SessionState state) {
  using enum SessionState;
  return state == kIdle || state == kNoDevice || state == kRecording;
}

// True while an alert is open: in these states other code runs only then.
[[nodiscard]] constexpr bool isAlerting(SessionState state) {
  return state == SessionState::kNoDevice || state == SessionState::kAsking;
}

// What the recorder's file is to the current session, or to the last one.
//
//   kNone     it is not the session's: there is none, or it is an earlier recording
//   kKept     it is the session's: growing, saved, or left where it could not be saved
//   kDeleted  it was the session's; a cancel deleted it
//
// A start enters kNone, its confirmation kKept, a cancel kDeleted; each from any of them.
enum class SessionFile { kNone, kKept, kDeleted };

}  // namespace record_audio
