// SPDX-License-Identifier: MIT
#include "hosts/linux/files/open_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string_view>

#include "hosts/linux/base/log.h"
#include "hosts/linux/base/small_files.h"
#include "hosts/linux/files/file_transfer.h"

namespace linux_host {

using loopback::UniqueFd;

namespace {

// The output folder and the umask decide who may read a recording. Until it is there, only its
// owner may.
constexpr mode_t kUnfinishedMode = 0600;
constexpr mode_t kFinishedMode = 0666;

constexpr std::string_view kUmaskField = "Umask:";
constexpr int kOctalBase = 8;

std::string normal(const std::string& path) {
  return std::filesystem::path(path).lexically_normal().string();
}

// umask() can only read the mask by changing it for all threads. Returns 077 where the mask is
// unknown.
mode_t currentUmask() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with(kUmaskField)) continue;
    return static_cast<mode_t>(
        std::strtoul(line.c_str() + kUmaskField.size(), nullptr, kOctalBase));
  }
  return 0077;
}

// File systems without permissions refuse this; the file then has their defaults.
void openToOthersByUmask(const std::string& path) {
  const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!fd.valid()) return;
  [[maybe_unused]] const int changed = fchmod(fd.get(), kFinishedMode & ~currentUmask());
}

bool isSameFile(const struct stat& left, const struct stat& right) {
  return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

bool isNamed(int fd, const std::string& path) {
  struct stat own {};
  struct stat named {};
  return fstat(fd, &own) == 0 && lstat(path.c_str(), &named) == 0 && isSameFile(own, named);
}

UniqueFd duplicateOf(const UniqueFd& fd) {
  return UniqueFd(fd.valid() ? fcntl(fd.get(), F_DUPFD_CLOEXEC, 0) : -1);
}

// The checks of OpenFiles::claim() on an open file. Returns its size, and has locked it; null if
// another program has it or it has just gone.
Expected<std::optional<std::uint64_t>> lockedSize_bytes(int fd, const std::string& path) {
  struct stat status {};
  if (fstat(fd, &status) != 0) return Unexpected(errorText("read", path, errno));
  if (status.st_uid != geteuid()) return std::nullopt;
  if (!S_ISREG(status.st_mode) || status.st_nlink != 1) {
    return Unexpected(
        path + " is left alone: it " +
        (S_ISREG(status.st_mode) ? "also has another name" : "is not an ordinary file") +
        ". Examine it, and move it away yourself.");
  }
  // Its writer may not have had the time to lock it.
  if (status.st_size == 0) return std::nullopt;
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) return std::nullopt;
    return Unexpected(errorText("lock", path, errno));
  }
  // The previous holder of the lock may have moved the file away.
  struct stat now {};
  if (lstat(path.c_str(), &now) != 0 || !isSameFile(status, now)) return std::nullopt;
  if (fstat(fd, &status) != 0) return std::nullopt;
  return static_cast<std::uint64_t>(status.st_size);
}

int openFlags(OpenFiles::Mode mode) {
  switch (mode) {
    case OpenFiles::Mode::kCreate:
      return O_CREAT;
    case OpenFiles::Mode::kCreateNew:
      return O_CREAT | O_EXCL;
    case OpenFiles::Mode::kExisting:
      break;
  }
  return 0;
}

struct Opened {
  UniqueFd fd;
  std::uint64_t size_bytes = 0;
};
using MaybeOpened = Expected<Opened, std::errc>;

MaybeOpened openedAs(UniqueFd fd) {
  struct stat status {};
  if (!fd.valid() || fstat(fd.get(), &status) != 0) return systemError();
  return Opened{std::move(fd), static_cast<std::uint64_t>(status.st_size)};
}

MaybeOpened openAndLock(const std::string& path, int flags) {
  MaybeOpened opened = openedAs(
      UniqueFd(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | flags, kUnfinishedMode)));
  if (!opened) return opened;
  // Only a search for lost files needs the lock; it notices by itself where locks do not work.
  [[maybe_unused]] const int locked = flock(opened->fd.get(), LOCK_EX | LOCK_NB);
  return opened;
}

MaybeOpened openForReading(const std::string& path) {
  return openedAs(UniqueFd(::open(path.c_str(), O_RDONLY | O_CLOEXEC)));
}

}  // namespace

OpenFile::OpenFile(UniqueFd fd, std::string path, std::uint64_t size_bytes, OpenFiles& owner)
    : owner_(owner),
      calls_(owner.calls_),
      fd_(std::move(fd)),
      path_(std::move(path)),
      size_bytes_(size_bytes) {}

OpenFile::~OpenFile() {
  owner_.forget(this);
  if (const Status closed = close(); !closed) logMessage(LogLevel::kError, closed.error());
}

Status OpenFile::append(std::span<const std::byte> data) {
  const platform::MutexLock lock(mutex_);
  return named(writeAt(size_bytes_, data));
}

Status OpenFile::pwriteAt(std::uint64_t offset_bytes, std::span<const std::byte> data) {
  const platform::MutexLock lock(mutex_);
  return named(writeAt(offset_bytes, data));
}

std::uint64_t OpenFile::size_bytes() const {
  const platform::MutexLock lock(mutex_);
  return size_bytes_;
}

Status OpenFile::truncate(std::uint64_t size_bytes) {
  const platform::MutexLock lock(mutex_);
  const FileCalls::Call underWay = call();
  if (ftruncate(fd_.get(), static_cast<off_t>(size_bytes)) != 0) return named(systemError());
  isWritten_ = true;
  rewrittenBegin_bytes_ = std::min(rewrittenBegin_bytes_, size_bytes);
  rewrittenEnd_bytes_ = std::max(rewrittenEnd_bytes_, size_bytes_);
  size_bytes_ = size_bytes;
  return {};
}

Status OpenFile::close() {
  const platform::MutexLock lock(mutex_);
  if (!fd_.valid()) return {};
  const FileCalls::Call underWay = call();
  if (!hasMoved_ && !isNamed(fd_.get(), path_)) owner_.keepNameless(path_, duplicateOf(fd_));
  const SystemStatus flushed = flush_.takeResult();
  if (isWritten_) {
    flush_.now(fd_.get(), [path = path_](std::errc error) {
      logMessage(LogLevel::kError, errorText("flush the end of", path, error));
    });
  }
  const int error = fd_.closeNow();
  if (!flushed) return named(flushed);
  return error == 0 ? Status() : named(Unexpected(static_cast<std::errc>(error)));
}

std::size_t OpenFile::readAt(std::uint64_t offset_bytes, std::span<std::byte> to) const {
  const platform::MutexLock lock(mutex_);
  const FileCalls::Call underWay = call();
  std::size_t done_bytes = 0;
  while (done_bytes < to.size()) {
    const ssize_t count = pread(fd_.get(), to.data() + done_bytes, to.size() - done_bytes,
                                static_cast<off_t>(offset_bytes + done_bytes));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    done_bytes += static_cast<std::size_t>(count);
  }
  return done_bytes;
}

Status OpenFile::waitForDisk() {
  const platform::MutexLock lock(mutex_);
  const FileCalls::Call underWay = call();
  if (fdatasync(fd_.get()) != 0) return named(systemError());
  isWritten_ = false;
  return {};
}

Expected<struct statx> OpenFile::describe() const {
  const platform::MutexLock lock(mutex_);
  const FileCalls::Call underWay = call();
  constexpr unsigned kWanted = STATX_BASIC_STATS | STATX_BTIME;
  struct statx description {};
  if (statx(fd_.get(), "", AT_EMPTY_PATH, kWanted, &description) == 0) return description;
  return Unexpected(errorText("read", path_, errno));
}

UniqueFd OpenFile::duplicate() const {
  const platform::MutexLock lock(mutex_);
  return duplicateOf(fd_);
}

std::string OpenFile::path() const {
  const platform::MutexLock lock(mutex_);
  return path_;
}

bool OpenFile::isOpenAt(const std::string& path) const {
  const platform::MutexLock lock(mutex_);
  return fd_.valid() && path_ == path;
}

SystemStatus OpenFile::writeAt(std::uint64_t offset_bytes, std::span<const std::byte> data) {
  if (!fd_.valid()) return Unexpected(std::errc::bad_file_descriptor);
  if (SystemStatus flushed = flush_.takeResult(); !flushed) return flushed;
  isWritten_ = true;
  const FileCalls::Call underWay = call();
  if (offset_bytes < size_bytes_) {
    rewrittenBegin_bytes_ = std::min(rewrittenBegin_bytes_, offset_bytes);
    rewrittenEnd_bytes_ = std::max(rewrittenEnd_bytes_, offset_bytes + data.size());
  }
  while (!data.empty()) {
    const ssize_t count =
        pwrite(fd_.get(), data.data(), data.size(), static_cast<off_t>(offset_bytes));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return systemError();
    data = data.subspan(static_cast<std::size_t>(count));
    offset_bytes += static_cast<std::uint64_t>(count);
    size_bytes_ = std::max(size_bytes_, offset_bytes);
  }
  flush_.nowAndThen(fd_.get());
  return {};
}

Status OpenFile::named(const SystemStatus& status) const {
  if (status) return {};
  return Unexpected(errorText("write", path_, status.error()));
}

void OpenFile::copyBegins() {
  const platform::MutexLock lock(mutex_);
  rewrittenBegin_bytes_ = UINT64_MAX;
  rewrittenEnd_bytes_ = 0;
}

Expected<UniqueFd, std::errc> OpenFile::completed(HiddenCopy* copy, int sourceFd,
                                                  std::uint64_t copied_bytes) {
  SystemStatus step = copy->truncate(std::min(copied_bytes, size_bytes_));
  if (step) step = copy->copy(sourceFd, rewrittenBegin_bytes_, rewrittenEnd_bytes_);
  if (step) step = copy->copy(sourceFd, copied_bytes, size_bytes_);
  if (!step) return Unexpected(step.error());
  return copy->publish(size_bytes_);
}

Expected<UniqueFd, std::errc> OpenFile::continueIn(HiddenCopy* copy, const std::string& to,
                                                   int sourceFd, std::uint64_t copied_bytes) {
  const platform::MutexLock lock(mutex_);
  Expected<UniqueFd, std::errc> fd = completed(copy, sourceFd, copied_bytes);
  if (!fd || !fd_.valid()) return fd;
  std::swap(fd_, *fd);
  path_ = normal(to);
  hasMoved_ = true;
  flush_ = BackgroundFlush();  // without the old file's state
  return fd;
}

OpenFiles::~OpenFiles() {
  moves_.waitUntilIdle();
}

Expected<std::shared_ptr<OpenFile>> OpenFiles::open(const std::string& path, Mode mode) {
  auto opened = calls_->within([calls = calls_, path, flags = openFlags(mode)] {
    const FileCalls::Call underWay(*calls, path);
    return openAndLock(path, flags);
  });
  if (!opened) return Unexpected(noAnswerText("open", path));
  MaybeOpened& file = *opened;
  if (!file) return Unexpected(errorText("open", path, file.error()));
  return keep(std::move(file->fd), path, file->size_bytes);
}

std::shared_ptr<OpenFile> OpenFiles::keep(UniqueFd fd, const std::string& path,
                                          std::uint64_t size_bytes) {
  std::shared_ptr<OpenFile> file(new OpenFile(std::move(fd), normal(path), size_bytes, *this));
  const platform::MutexLock lock(mutex_);
  files_.emplace(file.get(), file);
  return file;
}

Expected<std::shared_ptr<OpenFile>> OpenFiles::claim(const std::string& path) {
  UniqueFd fd(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!fd.valid()) {
    if (errno == ENOENT) return nullptr;
    return Unexpected(errorText("open", path, errno));
  }
  const auto size_bytes = lockedSize_bytes(fd.get(), path);
  if (!size_bytes) return Unexpected(size_bytes.error());
  if (!*size_bytes) return nullptr;
  return keep(std::move(fd), path, **size_bytes);
}

void OpenFiles::forget(OpenFile* file) {
  const platform::MutexLock lock(mutex_);
  files_.erase(file);
}

std::shared_ptr<OpenFile> OpenFiles::find(const std::string& path) {
  std::vector<std::shared_ptr<OpenFile>> alive;
  {
    const platform::MutexLock lock(mutex_);
    for (const auto& [raw, weak] : files_) {
      if (auto file = weak.lock()) alive.push_back(std::move(file));
    }
  }
  // Without the registry's lock: a file that is being copied answers late. The other files are
  // released here, and their destructors take the registry's lock.
  for (const auto& file : alive) {
    if (file->isOpenAt(path)) return file;
  }
  return nullptr;
}

Status OpenFiles::move(const std::string& from, const std::string& to) {
  const auto isGivenUp = std::make_shared<GivenUp>(false);
  auto moved = calls_->within(
      [this, from, to, isGivenUp, token = PendingWork::Token(moves_)] {
        Status result = moveNow(from, to, *isGivenUp);
        if (result && isGivenUp->load(std::memory_order_relaxed)) {
          logMessage(LogLevel::kWarning, from + " has been moved after all, to " + to);
        }
        return result;
      },
      isGivenUp);
  if (!moved) return Unexpected(noAnswerText("move " + from + " to", to));
  return *std::move(moved);
}

Status OpenFiles::moveNow(const std::string& from, const std::string& to,
                          const GivenUp& isGivenUp) {
  const auto file = find(normal(from));
  // Without the file's lock: its writer must not wait for a folder that hangs.
  SystemStatus moved = [&] {
    const FileCalls::Call underWay(*calls_, to);
    return renameWithoutReplacing(from, to);
  }();
  const bool isToBeCopied = !moved && (moved.error() == std::errc::cross_device_link ||
                                       moved.error() == std::errc::no_such_file_or_directory);
  if (isToBeCopied) {
    moved = moveByCopying(file.get(), from, to, isGivenUp);
  } else if (moved && file != nullptr) {
    const platform::MutexLock lock(file->mutex_);
    file->path_ = normal(to);
    file->hasMoved_ = true;
  }
  if (!moved) return Unexpected(errorText("move " + from + " to", to, moved.error()));
  dropNameless(normal(from));
  openToOthersByUmask(to);
  return {};
}

SystemStatus OpenFiles::moveByCopying(OpenFile* file, const std::string& from,
                                      const std::string& to, const GivenUp& isGivenUp) {
  const MaybeOpened source = [&] {
    MaybeOpened byName = openForReading(from);
    if (byName || byName.error() != std::errc::no_such_file_or_directory) return byName;
    UniqueFd nameless = openNameless(file, normal(from));
    return nameless.valid() ? openedAs(std::move(nameless)) : std::move(byName);
  }();
  if (!source) return Unexpected(source.error());
  const int sourceFd = source->fd.get();
  if (file != nullptr) file->copyBegins();
  HiddenCopy copy(to, *calls_, isGivenUp);
  if (SystemStatus created = copy.create(sourceFd); !created) return created;
  // Copies nearly everything while the writer goes on; it waits only for the rest.
  if (SystemStatus copied = copy.copy(sourceFd, 0, source->size_bytes); !copied) return copied;

  const auto unused = file != nullptr ? file->continueIn(&copy, to, sourceFd, source->size_bytes)
                                      : copy.publish(source->size_bytes);
  if (!unused) return Unexpected(unused.error());
  // The old file keeps its lock until its name is gone, so that no program takes it for a lost one.
  if (unlink(from.c_str()) != 0) {
    logMessage(LogLevel::kWarning,
               errno == ENOENT ? from +
                                     " was removed while it was written, or its disk was taken "
                                     "away. It was still saved, to " +
                                     to
                               : errorText("remove", from, errno) + " It was copied to " + to);
  }
  return {};
}

UniqueFd OpenFiles::openNameless(const OpenFile* file, const std::string& path) {
  if (file != nullptr) {
    if (UniqueFd fd = file->duplicate(); fd.valid()) return fd;
  }
  const platform::MutexLock lock(namelessMutex_);
  const auto kept = nameless_.find(path);
  return kept == nameless_.end() ? UniqueFd() : duplicateOf(kept->second);
}

void OpenFiles::keepNameless(const std::string& path, UniqueFd fd) {
  const platform::MutexLock lock(namelessMutex_);
  if (fd.valid()) nameless_.emplace(path, std::move(fd));
}

void OpenFiles::dropNameless(const std::string& path) {
  const platform::MutexLock lock(namelessMutex_);
  nameless_.erase(path);
}

}  // namespace linux_host
