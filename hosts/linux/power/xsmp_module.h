// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

// The interface between the program and the module that speaks XSMP (record-audio-session.so,
// libSM). The module is loaded when a recording runs and the desktop's session manager speaks only
// this protocol.

namespace linux_host {

// The program as a client of a session manager. Call it from one thread at a time; events are
// delivered from within process().
class XsmpConnection {
 public:
  virtual ~XsmpConnection() = default;
  // Readable when there is something to process.
  [[nodiscard]] virtual int descriptor() const = 0;
  // False when the manager is gone.
  virtual bool process() = 0;
  // Answers the event `save`.
  virtual void saved() = 0;
};

struct XsmpEvents {
  // The session ends: save, then call saved().
  std::function<void()> save;
  // The session is over.
  std::function<void()> die;
};

// The module's only exported symbol. Waits for the session manager that SESSION_MANAGER names; null
// when there is none or it does not accept the program.
using OpenXsmpConnection = XsmpConnection* (*)(XsmpEvents events);
inline constexpr const char* kOpenXsmpConnectionSymbol = "record_audio_open_xsmp_connection";
inline constexpr const char* kXsmpModuleFileName = "record-audio-session.so";

}  // namespace linux_host
