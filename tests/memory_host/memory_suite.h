// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "suite/suite.h"
#include "tests/memory_host/timeline.h"

namespace memory_host {

class MemoryClientProvider : public suite::ToolDataClientProvider {
 public:
  MemoryClientProvider(std::vector<std::string>& journal, Timeline& timeline)
      : journal_(journal), timeline_(timeline) {}
  void setToolStatus(int newStatus) override;
  void setToolIcon(const platform::ImagePtr& icon) override;
  void setMenuIcon(const platform::ImagePtr& icon) override;
  void setMenuText(const std::string& text) override;

  int status = -1;
  std::string toolIcon = "unset";  // image name, "" for none
  std::string menuIcon = "unset";
  std::string menuText = "unset";

 private:
  void note(const std::string& entry);

  std::vector<std::string>& journal_;
  Timeline& timeline_;
};

// The whole suite. It records what the tool tells it.
class MemorySuite : public suite::KorvelCommon,
                    public suite::CEP,
                    public suite::LocationManager,
                    public suite::Logging {
 public:
  struct Event {
    std::string name;
    std::optional<platform::Dictionary> prefs;
    std::optional<platform::Dictionary> details;
  };

  explicit MemorySuite(Timeline& timeline) : timeline_(timeline) {}
  std::shared_ptr<suite::ToolDataClientProvider> createToolDataClientProvider() override;
  suite::CEP& CEP() override { return *this; }
  void log(const std::string& event, const std::optional<platform::Dictionary>& withPrefs,
           const std::optional<platform::Dictionary>& withDetails) override;
  std::optional<std::string> locationForCurrentTool() override {
    timeline_.add("locationForCurrentTool");
    return location;
  }
  void VKLogVariadic(const std::string& format,
                     const std::vector<suite::LogArgument>& arguments) override;
  [[nodiscard]] bool VKIsExtendedLoggingOn() const override { return extendedLogging; }

  // The names of the logged events, in order.
  [[nodiscard]] std::vector<std::string> eventNames() const;

  std::optional<std::string> location = "/out";
  std::vector<Event> events;
  std::vector<std::string> logLines;    // formatted
  std::vector<std::string> logFormats;  // as given
  bool extendedLogging = false;
  std::vector<std::shared_ptr<MemoryClientProvider>> providers;
  // "status 1", "toolIcon KorvelIconOn", "menuIcon MenuIcon", "menuText 00:00", "event Start".
  std::vector<std::string> journal;

 private:
  Timeline& timeline_;
};

}  // namespace memory_host
