// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "platform/application.h"

namespace linux_host {

// The program's pictures: which names exist, what they are called in icon themes, and where their
// files are. Main thread.
class Icons {
 public:
  // `bundleResources`: the bundle's Contents/Resources, which contains "icons" in a build folder.
  // `themeFolder`: the icon theme's folder that an installation writes into.
  Icons(std::string bundleResources, std::string themeFolder);
  static Icons ofExecutable(const std::string& executable, const std::string& bundlePath);

  // Null for a name without a picture.
  [[nodiscard]] static platform::ImagePtr imageNamed(const std::string& name);
  // The name in icon themes; empty for null and unknown images.
  [[nodiscard]] static std::string themeName(const platform::ImagePtr& image);
  // The picture's file; empty when it is not installed.
  [[nodiscard]] std::string file(const platform::ImagePtr& image) const;
  // The folder with the icon theme "hicolor" that the program's own icons are in.
  [[nodiscard]] std::string themeRoot() const;

 private:
  const std::string bundleIcons_;
  const std::string themeFolder_;
};

}  // namespace linux_host
