// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "driver/unique_fd.h"

namespace loopback {

// Something that root must not read, run or write to, because somebody else could have created it.
class Refusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A step that the system did not allow.
class InstallError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Installs and removes the driver bundle and its start-up file. Every change that matters is one
// rename: a process killed at any moment leaves the old driver, the new one or none, always
// complete, and at most a staging folder that the next run removes. The bundle comes last, because
// its presence means "installed"; a start-up file without its bundle does nothing.
//
// All methods throw Refusal or InstallError.
class Installer {
 public:
  struct Layout {
    int root;  // the folder at which all paths begin; outlives the installer
    std::string sourceBundle;
    std::string plugInDirectory;
    std::string dropInDirectory;
    uid_t owner;  // to whom everything must belong
  };
  enum class Result { kChanged, kNothingToDo };

  explicit Installer(Layout layout) : layout_(std::move(layout)) {}

  Result install();
  Result uninstall();

 private:
  struct KnownFile {
    const char* path;  // in the bundle
    mode_t mode;
    std::string content;
  };

  [[nodiscard]] std::vector<KnownFile> readSource() const;
  [[nodiscard]] UniqueFd openDirectory(const std::string& path, bool create) const;
  [[nodiscard]] bool isInstalled(int plugIns, const std::vector<KnownFile>& files) const;
  void stage(int plugIns, const std::vector<KnownFile>& files) const;
  void writeVerified(int directory, const std::string& name, const KnownFile& file) const;
  void putDropIn(int directory, const KnownFile& file) const;
  static void putBundle(int plugIns);
  void removeEmptyPlugInDirectories() const;

  Layout layout_;
};

}  // namespace loopback
