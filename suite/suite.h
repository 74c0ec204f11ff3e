// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/application.h"
#include "platform/controls.h"
#include "platform/property_list.h"

// The suite's framework as this tool sees it. Main thread, except the log calls.

namespace suite {

// This tool's name in the suite: the suite asks for its preferences by opening a path that ends
// with it, and keys its output folder by it.
inline constexpr const char* kToolIdentifier = "a5f597ea-d3f3-4347-bbe6-344e240acc7e";

// The usage-event log. It never leaves the machine.
class CEP {
 public:
  virtual ~CEP() = default;
  // Absent dictionaries are recorded as null.
  virtual void log(const std::string& event, const std::optional<platform::Dictionary>& withPrefs,
                   const std::optional<platform::Dictionary>& withDetails) = 0;
};

// What the suite's status menu shows of this tool.
class ToolDataClientProvider {
 public:
  virtual ~ToolDataClientProvider() = default;
  // 1 active, 0 inactive.
  virtual void setToolStatus(int status) = 0;
  // Null: the tool's ordinary icon.
  virtual void setToolIcon(const platform::ImagePtr& icon) = 0;
  virtual void setMenuIcon(const platform::ImagePtr& icon) = 0;
  virtual void setMenuText(const std::string& text) = 0;
};

class KorvelCommon {
 public:
  virtual ~KorvelCommon() = default;
  virtual std::shared_ptr<ToolDataClientProvider> createToolDataClientProvider() = 0;
  virtual suite::CEP& CEP() = 0;
};

class LocationManager {
 public:
  virtual ~LocationManager() = default;
  // The absolute path of the tool's output folder, without a trailing slash; null when there is
  // none. It may be one that cannot be written just now.
  virtual std::optional<std::string> locationForCurrentTool() = 0;
};

class ClientProviderProtocol {
 public:
  virtual ~ClientProviderProtocol() = default;
  [[nodiscard]] virtual std::shared_ptr<ToolDataClientProvider> provider() const = 0;
};

// One argument of a log format: "%@" takes a text, "%d" a number.
using LogArgument = std::variant<std::string, std::int64_t>;

// Any thread except audio callbacks.
class Logging {
 public:
  virtual ~Logging() = default;
  virtual void VKLogVariadic(const std::string& format,
                             const std::vector<LogArgument>& arguments) = 0;
  [[nodiscard]] virtual bool VKIsExtendedLoggingOn() const = 0;
};

// The control that shows and changes the output folder.
class OutputLocationButton : public platform::View {
 public:
  // (changed, code, message or none, details): the details go into the usage event.
  using Completion =
      std::function<void(bool success, int code, const std::optional<std::string>& message,
                         const platform::Dictionary& details)>;
  // Shows the folder as the suite's location store has it now.
  virtual void updateState() = 0;
  // Lets the user pick a folder and stores it; `completion` is called exactly once, also when the
  // user changed nothing (success, no message).
  virtual void handleOutputLocationChanged(Completion completion) = 0;
};

// The suite, handed to the delegate beside the host. References outlive the delegate.
struct Suite {
  KorvelCommon& korvelCommon;
  LocationManager& locationManager;
  Logging& logging;
};

}  // namespace suite
