#pragma once

#include <string>
#include <vector>

#include "hosts/linux/authorization/trust_check.h"
#include "platform/launch_services.h"

namespace linux_host {

// Finds the applications whose desktop entry carries a bundle identifier:
//
//   X-Vantrel-BundleIdentifier=com.vantrel.korvel
//   X-Vantrel-BundlePath=/opt/vantrel-korvel
//
// Only the system's entries count, never the user's own; and since what is found here may be run as
// root, an application that anybody but root could have written is left out, with a message in the
// log.
class DesktopLaunchServices : public platform::LaunchServices {
 public:
  // `dataDirectories`: whose "applications" folders are searched, preferred one first.
  explicit DesktopLaunchServices(std::vector<std::string> dataDirectories = systemDataDirectories(),
                                 TrustCheck trust = refusalBySystem)
      : dataDirectories_(std::move(dataDirectories)), trust_(std::move(trust)) {}

  [[nodiscard]] std::vector<std::string> copyApplicationPathsForBundleIdentifier(
      const std::string& identifier) override;

  // $XDG_DATA_DIRS, or what stands for it.
  [[nodiscard]] static std::vector<std::string> systemDataDirectories();

 private:
  [[nodiscard]] bool isTrusted(const std::string& application) const;

  std::vector<std::string> dataDirectories_;
  TrustCheck trust_;
};

}  // namespace linux_host
