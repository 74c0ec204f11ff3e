// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation.h"
#include "platform/thread_role.h"
#include "suite/storage.h"
#include "suite/suite.h"

// The part of the suite that the tool needs, for machines on which no suite is installed.

namespace suite {

// What the suite's menu shows of the tool. Images are given by name; an empty name means none.
struct ToolData {
  int toolStatus = 0;
  std::string toolIcon;
  std::string menuIcon;
  std::string menuText;
  friend bool operator==(const ToolData&, const ToolData&) = default;
};

// Main thread.
class ToolDataObserver {
 public:
  virtual ~ToolDataObserver() = default;
  // Called after each change, and not when a value is set to what it already is.
  virtual void toolDataDidChange(const ToolData& data) = 0;
};

// Main thread, asserted in debug builds, except the log calls. The storage and the clock must
// outlive it; it must outlive its providers.
class EmbeddedSuite : public KorvelCommon, public CEP, public LocationManager, public Logging {
 public:
  EmbeddedSuite(Storage& storage, const platform::WallClock& wallClock);

  // The observer must outlive the suite.
  void addObserver(ToolDataObserver& observer) { observers_.push_back(&observer); }
  [[nodiscard]] const ToolData& toolData() const { return data_; }

  std::shared_ptr<ToolDataClientProvider> createToolDataClientProvider() override;
  suite::CEP& CEP() override { return *this; }
  void log(const std::string& event, const std::optional<platform::Dictionary>& withPrefs,
           const std::optional<platform::Dictionary>& withDetails) override;
  std::optional<std::string> locationForCurrentTool() override;
  void VKLogVariadic(const std::string& format, const std::vector<LogArgument>& arguments) override;
  [[nodiscard]] bool VKIsExtendedLoggingOn() const override;

  // All interfaces that the core needs.
  [[nodiscard]] Suite interfaces() { return {*this, *this, *this}; }

 private:
  class Provider;
  void change(const ToolData& data);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  Storage& storage_;
  const platform::WallClock& wallClock_;
  std::vector<ToolDataObserver*> observers_;
  ToolData data_;
};

// `format` with each "%@" and "%d" replaced by the next argument, whatever its type, and "%%" by
// "%". A placeholder without an argument stays as it is, and so does a "%" before anything else.
std::string formattedLogLine(const std::string& format, const std::vector<LogArgument>& arguments);

// "2024-05-17T12:03:27.042Z".
std::string iso8601(platform::Date date);

}  // namespace suite
