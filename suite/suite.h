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

// The suite's framework as this tool sees it. Main thread, except the log calls. The names are the
// suite's: Korvel is the suite itself, a tool is one of its programs, CEP is its log of usage
// events, and VK stands before the functions of its logging library.

namespace suite {

// This tool's identifier in the suite. To ask for the tool's preferences, the suite opens a path
// that ends with it. It is also the key of the tool's output folder.
inline constexpr const char* kToolIdentifier = "a5f597ea-d3f3-4347-bbe6-344e240acc7e";

// The log of usage events. It never leaves the machine.
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
  // Null sets the tool's ordinary icon.
  virtual void setToolIcon(const platform::ImagePtr& icon) = 0;
  virtual void setMenuIcon(const platform::ImagePtr& icon) = 0;
  virtual void setMenuText(const std::string& text) = 0;
};

// Where a tool gets the suite's services.
class KorvelCommon {
 public:
  virtual ~KorvelCommon() = default;
  virtual std::shared_ptr<ToolDataClientProvider> createToolDataClientProvider() = 0;
  virtual suite::CEP& CEP() = 0;
};

// Where the suite's tools put their files.
class LocationManager {
 public:
  virtual ~LocationManager() = default;
  // The absolute path of the tool's output folder, without a trailing slash; null when there is
  // none. It may be a folder that cannot be written now.
  virtual std::optional<std::string> locationForCurrentTool() = 0;
};

// Implemented by whoever owns the tool's client provider.
class ClientProviderProtocol {
 public:
  virtual ~ClientProviderProtocol() = default;
  [[nodiscard]] virtual std::shared_ptr<ToolDataClientProvider> provider() const = 0;
};

// One argument of a log format. "%@" stands for a text, "%d" for a number.
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
  // `details` goes into the usage event. `message`, if any, says what failed.
  using Completion =
      std::function<void(bool success, int code, const std::optional<std::string>& message,
                         const platform::Dictionary& details)>;
  // Shows the tool's current output folder.
  virtual void updateState() = 0;
  // Lets the user choose a folder and stores it. `completion` is called exactly once. If the user
  // changes nothing, that is a success without a message.
  virtual void handleOutputLocationChanged(Completion completion) = 0;
};

// The suite, given to the delegate together with the host. What it refers to must outlive the
// delegate.
struct Suite {
  KorvelCommon& korvelCommon;
  LocationManager& locationManager;
  Logging& logging;
};

}  // namespace suite
