// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace linux_host {

// The user's folders from the environment: absolute, without a trailing slash. Relative values
// count as absent, as the base-directory rules say.
struct XdgFolders {
  std::string config;  // $XDG_CONFIG_HOME, else ~/.config
  std::string state;   // $XDG_STATE_HOME, else ~/.local/state
  std::string music;   // by user-dirs.dirs or $XDG_MUSIC_DIR, else ~/Music

  static XdgFolders fromEnvironment();
};

[[nodiscard]] std::string withoutTrailingSlash(std::string path);

}  // namespace linux_host
