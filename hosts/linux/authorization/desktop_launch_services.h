// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "driver/installed_paths.h"
#include "hosts/linux/authorization/trust_check.h"
#include "platform/launch_services.h"

namespace linux_host {

// Finds the applications whose desktop entry carries a bundle identifier:
//
//   X-Vantrel-BundleIdentifier=com.vantrel.korvel
//   X-Vantrel-BundlePath=/opt/vantrel-korvel
//
// Only the system's entries count, never the user's own. Since an application found here may be run
// as root, one that anybody but root could have written is left out, with a message in the log. So
// is one at another path than the suite's polkit action names: the user would be asked for the
// password twice, the second time because pkexec asks for the right to run any program.
class DesktopLaunchServices : public platform::LaunchServices {
 public:
  // `dataDirectories`: searched in order for "applications" folders. `allowed`: the application
  // that the polkit action names; empty: any.
  explicit DesktopLaunchServices(std::vector<std::string> dataDirectories = systemDataDirectories(),
                                 TrustCheck trust = refusalBySystem,
                                 std::string allowed = loopback::kSuiteDirectory)
      : dataDirectories_(std::move(dataDirectories)),
        trust_(std::move(trust)),
        allowed_(std::move(allowed)) {}

  [[nodiscard]] std::vector<std::string> copyApplicationPathsForBundleIdentifier(
      const std::string& identifier) override;

  // $XDG_DATA_DIRS, or its default.
  [[nodiscard]] static std::vector<std::string> systemDataDirectories();

 private:
  [[nodiscard]] bool isTrusted(const std::string& application) const;

  std::vector<std::string> dataDirectories_;
  TrustCheck trust_;
  std::string allowed_;
};

}  // namespace linux_host
