// SPDX-License-Identifier: MIT
#include "driver/installer/installer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "driver/installed_paths.h"
#include "driver/installer/tree.h"
#include "driver/installer/trusted_path.h"

namespace loopback {
namespace {

constexpr char kStagedBundle[] = ".VantrelKorvelAudio.driver.staged";
constexpr char kStagedDropIn[] = ".vantrel-korvel-loopback.staged";
constexpr char kLockFile[] = ".VantrelKorvelAudio.lock";
constexpr char kSuiteFolderName[] = "vantrel-korvel";

// All files of the driver. Nothing else in the source is copied.
constexpr struct {
  const char* path;
  mode_t mode;
} kManifest[] = {
    {kBundleInformation, 0644},
    {kBundleProgram, 0755},
    {kBundleDropIn, 0644},
};

std::filesystem::path parentOf(const char* path) {
  return std::filesystem::path(path).parent_path();
}

// A folder of the bundle, created with its parents.
UniqueFd makeDirectories(int bundle, const std::filesystem::path& path) {
  UniqueFd current(openat(bundle, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (const auto& part : path) {
    if (!exists(current.get(), part)) makeDirectory(current.get(), part);
    UniqueFd next(
        openat(current.get(), part.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!next.valid()) fail("cannot open " + part.string());
    current = std::move(next);
  }
  return current;
}

void renameWithin(int directory, const char* from, const char* to, unsigned flags) {
  if (renameat2(directory, from, directory, to, flags) != 0) {
    fail(std::string("cannot put ") + to + " in place");
  }
}

// Keeps other installers out of the folder. Locks a file that only its owner can open: anything
// that others can open, such as the folder itself, they could lock forever.
class InstallationLock {
 public:
  explicit InstallationLock(int directory) : directory_(directory) {
    // An installer that has just ended may have removed the file that was opened.
    while (!isHeld()) {
      file_ =
          UniqueFd(openat(directory_, kLockFile, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
      if (!file_.valid()) fail("cannot lock the folder of the plug-ins");
      if (flock(file_.get(), LOCK_EX | LOCK_NB) == 0) continue;
      if (errno == EWOULDBLOCK)
        throw InstallError("another installation is in progress; try again");
      fail("cannot lock the folder of the plug-ins");
    }
  }
  ~InstallationLock() { unlinkat(directory_, kLockFile, 0); }
  InstallationLock(const InstallationLock&) = delete;
  InstallationLock& operator=(const InstallationLock&) = delete;

 private:
  [[nodiscard]] bool isHeld() const {
    struct stat held {};
    struct stat there {};
    return file_.valid() && fstat(file_.get(), &held) == 0 &&
           fstatat(directory_, kLockFile, &there, AT_SYMLINK_NOFOLLOW) == 0 &&
           held.st_dev == there.st_dev && held.st_ino == there.st_ino;
  }

  int directory_;
  UniqueFd file_;
};

}  // namespace

Installer::Result Installer::install() {
  const std::vector<KnownFile> files = readSource();
  const UniqueFd plugIns = openDirectory(layout_.plugInDirectory, true);
  const UniqueFd dropIns = openDirectory(layout_.dropInDirectory, true);
  const InstallationLock held(plugIns.get());
  removeTree(plugIns.get(), kStagedBundle);
  removeTree(dropIns.get(), kStagedDropIn);

  const KnownFile& dropIn = files.back();
  const bool dropInIsThere = readFile(dropIns.get(), kDropInName) == dropIn.content;
  if (dropInIsThere && isInstalled(plugIns.get(), files)) return Result::kNothingToDo;
  stage(plugIns.get(), files);
  putDropIn(dropIns.get(), dropIn);
  putBundle(plugIns.get());
  removeTree(plugIns.get(), kStagedBundle);
  return Result::kChanged;
}

Installer::Result Installer::uninstall() {
  bool changed = false;
  if (exists(layout_.root, layout_.plugInDirectory.substr(1))) {
    const UniqueFd plugIns = openDirectory(layout_.plugInDirectory, false);
    const InstallationLock held(plugIns.get());
    removeTree(plugIns.get(), kStagedBundle);
    if (exists(plugIns.get(), kDriverBundleName)) {
      renameWithin(plugIns.get(), kDriverBundleName, kStagedBundle, RENAME_NOREPLACE);
      syncDirectory(plugIns.get());
      removeTree(plugIns.get(), kStagedBundle);
      changed = true;
    }
  }
  if (exists(layout_.root, layout_.dropInDirectory.substr(1))) {
    const UniqueFd dropIns = openDirectory(layout_.dropInDirectory, false);
    changed = changed || exists(dropIns.get(), kDropInName);
    removeTree(dropIns.get(), kStagedDropIn);
    removeTree(dropIns.get(), kDropInName);
    syncDirectory(dropIns.get());
  }
  removeEmptyPlugInDirectories();
  return changed ? Result::kChanged : Result::kNothingToDo;
}

std::vector<Installer::KnownFile> Installer::readSource() const {
  std::vector<KnownFile> files;
  for (const auto& [path, mode] : kManifest) {
    const std::string whole = layout_.sourceBundle + '/' + path;
    const TrustedFile source = openTrusted(layout_.root, whole, layout_.owner);
    if (!source.fd.valid()) throw Refusal(source.refusal);
    auto content = readOpenFile(source.fd.get());
    if (!content || content->empty()) throw InstallError("cannot read " + whole);
    files.push_back({path, mode, std::move(*content)});
  }
  return files;
}

UniqueFd Installer::openDirectory(const std::string& path, bool create) const {
  for (std::size_t end = path.find('/', 1); create; end = path.find('/', end + 1)) {
    const std::string part = path.substr(1, end - (end == std::string::npos ? 0 : 1));
    if (!exists(layout_.root, part)) {
      const std::filesystem::path whole = "/" + part;
      TrustedFile parent = openTrusted(layout_.root, whole.parent_path(), layout_.owner);
      if (!parent.fd.valid()) throw Refusal(parent.refusal);
      makeDirectory(parent.fd.get(), whole.filename());
      syncDirectory(parent.fd.get());
    }
    if (end == std::string::npos) break;
  }
  TrustedFile directory = openTrusted(layout_.root, path, layout_.owner);
  if (!directory.fd.valid()) throw Refusal(directory.refusal);
  return std::move(directory.fd);
}

bool Installer::isInstalled(int plugIns, const std::vector<KnownFile>& files) const {
  const UniqueFd bundle(
      openat(plugIns, kDriverBundleName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!bundle.valid()) return false;
  std::size_t expected = 0;
  std::vector<std::filesystem::path> folders;
  for (const KnownFile& file : files) {
    const TrustedFile installed =
        openTrusted(bundle.get(), std::string("/") + file.path, layout_.owner);
    struct stat status {};
    if (!installed.fd.valid() || fstat(installed.fd.get(), &status) != 0 ||
        (status.st_mode & 07777) != file.mode || readOpenFile(installed.fd.get()) != file.content) {
      return false;
    }
    ++expected;
    for (auto folder = parentOf(file.path); !folder.empty(); folder = folder.parent_path()) {
      if (std::find(folders.begin(), folders.end(), folder) == folders.end()) {
        folders.push_back(folder);
      }
    }
  }
  return countTree(plugIns, kDriverBundleName) == expected + folders.size();
}

void Installer::stage(int plugIns, const std::vector<KnownFile>& files) const {
  makeDirectory(plugIns, kStagedBundle);
  const UniqueFd bundle(
      openat(plugIns, kStagedBundle, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!bundle.valid()) fail("cannot open the staging folder");
  for (const KnownFile& file : files) {
    const std::filesystem::path folder = parentOf(file.path);
    const UniqueFd directory = makeDirectories(bundle.get(), folder);
    writeVerified(directory.get(), std::filesystem::path(file.path).filename(), file);
    syncDirectory(directory.get());
    const UniqueFd above = makeDirectories(bundle.get(), folder.parent_path());
    syncDirectory(above.get());
  }
  syncDirectory(bundle.get());
}

void Installer::writeVerified(int directory, const std::string& name, const KnownFile& file) const {
  writeNewFile(directory, name, file.content, file.mode);
  if (readFile(directory, name) != file.content) {
    throw InstallError("the copy of " + std::string(file.path) + " differs from its original");
  }
}

void Installer::putDropIn(int directory, const KnownFile& file) const {
  writeVerified(directory, kStagedDropIn, file);
  renameWithin(directory, kStagedDropIn, kDropInName, 0);
  syncDirectory(directory);
}

void Installer::putBundle(int plugIns) {
  // An older driver is exchanged with the new one in one step and removed afterwards.
  const bool replaces = exists(plugIns, kDriverBundleName);
  renameWithin(plugIns, kStagedBundle, kDriverBundleName,
               replaces ? RENAME_EXCHANGE : RENAME_NOREPLACE);
  syncDirectory(plugIns);
}

void Installer::removeEmptyPlugInDirectories() const {
  std::filesystem::path path = layout_.plugInDirectory;
  for (bool last = false; !last && path.has_relative_path(); path = path.parent_path()) {
    last = path.filename() == kSuiteFolderName;
    const TrustedFile parent =
        openTrusted(layout_.root, path.parent_path().string(), layout_.owner);
    if (!parent.fd.valid()) return;
    // Not empty, or not there: what is left is not ours.
    if (unlinkat(parent.fd.get(), path.filename().c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) {
      return;
    }
  }
}

}  // namespace loopback
