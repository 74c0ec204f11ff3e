// SPDX-License-Identifier: MIT
#include "hosts/linux/settings_store/xdg_folders.h"

#include <glib.h>

#include <cstdlib>

namespace linux_host {
namespace {

std::string fromVariable(const char* name, const std::string& otherwise) {
  const char* value = std::getenv(name);
  return withoutTrailingSlash(value != nullptr && *value == '/' ? value : otherwise);
}

std::string musicFolder(const std::string& home) {
  const char* music = g_get_user_special_dir(G_USER_DIRECTORY_MUSIC);
  if (music != nullptr && *music == '/') return withoutTrailingSlash(music);
  return fromVariable("XDG_MUSIC_DIR", home + "/Music");
}

}  // namespace

std::string withoutTrailingSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

XdgFolders XdgFolders::fromEnvironment() {
  const std::string home = withoutTrailingSlash(g_get_home_dir());
  return {fromVariable("XDG_CONFIG_HOME", home + "/.config"),
          fromVariable("XDG_STATE_HOME", home + "/.local/state"), musicFolder(home)};
}

}  // namespace linux_host
