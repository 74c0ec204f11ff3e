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

// The checks of OpenFiles::claim() on an open file. On success it is locked.
bool lockLostFile(int fd, const std::string& path, std::uint64_t* size_bytes, std::string* error) {
  struct stat status {};
  if (fstat(fd, &status) != 0) {
    *error = errorText("read", path, errno);
    return false;
  }
  if (status.st_uid != geteuid()) return false;
  if (!S_ISREG(status.st_mode) || status.st_nlink != 1) {
    *error = path + " is left alone: it " +
             (S_ISREG(status.st_mode) ? "also has another name" : "is not an ordinary file") +
             ". Examine it, and move it away yourself.";
    return false;
  }
  // Its writer may not have had the time to lock it.
  if (status.st_size == 0) return false;
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) *error = errorText("lock", path, errno);
    return false;
  }
  // The previous holder of the lock may have moved the file away.
  struct stat now {};
  if (lstat(path.c_str(), &now) != 0 || !isSameFile(status, now)) return false;
  if (fstat(fd, &status) != 0) return false;
  *size_bytes = static_cast<std::uint64_t>(status.st_size);
  return true;
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

// The result of opening a file.
struct Opened {
  UniqueFd fd;
  int error = 0;  // errno
  std::uint64_t size_bytes = 0;
};

Opened openedAs(UniqueFd fd) {
  Opened opened;
  struct stat status {};
  if (!fd.valid() || fstat(fd.get(), &status) != 0) opened.error = errno;
  opened.fd = std::move(fd);
  opened.size_bytes = static_cast<std::uint64_t>(status.st_size);
  return opened;
}

Opened openAndLock(const std::string& path, int flags) {
  Opened opened = openedAs(
      UniqueFd(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | flags, kUnfinishedMode)));
  if (opened.error != 0) return opened;
  // Only a search for lost files needs the lock; it notices by itself where locks do not work.
  [[maybe_unused]] const int locked = flock(opened.fd.get(), LOCK_EX | LOCK_NB);
  return opened;
}

Opened openForReading(const std::string& path) {
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
  const std::string error = close();
  if (!error.empty()) logMessage(LogLevel::kError, error);
}

std::string OpenFile::append(std::span<const std::byte> data) {
  const platform::MutexLock lock(mutex_);
  return failure(writeAt(size_bytes_, data));
}

std::string OpenFile::pwriteAt(std::uint64_t offset_bytes, std::span<const std::byte> data) {
  const platform::MutexLock lock(mutex_);
  return failure(writeAt(offset_bytes, data));
}

std::uint64_t OpenFile::size_bytes() const {
  const platform::MutexLock lock(mutex_);
  return size_bytes_;
}

std::string OpenFile::truncate(std::uint64_t size_bytes) {
  const platform::MutexLock lock(mutex_);
  const FileCalls::Call underWay = call();
  if (ftruncate(fd_.get(), static_cast<off_t>(size_bytes)) != 0) return failure(errno);
  isWritten_ = true;
  rewrittenBegin_bytes_ = std::min(rewrittenBegin_bytes_, size_bytes);
  rewrittenEnd_bytes_ = std::max(rewrittenEnd_bytes_, size_bytes_);
  size_bytes_ = size_bytes;
  return {};
}

std::string OpenFile::close() {
  const platform::MutexLock lock(mutex_);
  if (!fd_.valid()) return {};
  const FileCalls::Call underWay = call();
  if (!hasMoved_ && !isNamed(fd_.get(), path_)) owner_.keepNameless(path_, duplicateOf(fd_));
  const int lateError = flush_.takeError();
  if (isWritten_) {
    flush_.now(fd_.get(), [path = path_](int error) {
      logMessage(LogLevel::kError, errorText("flush the end of", path, error));
    });
  }
  const int error = fd_.closeNow();
  return failure(lateError != 0 ? lateError : error);
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

std::string OpenFile::waitForDisk() {
  const platform::MutexLock lock(mutex_);
  const FileCalls::Call underWay = call();
  if (fdatasync(fd_.get()) != 0) return failure(errno);
  isWritten_ = false;
  return {};
}

int OpenFile::describe(struct statx* description) const {
  const platform::MutexLock lock(mutex_);
  const FileCalls::Call underWay = call();
  constexpr unsigned kWanted = STATX_BASIC_STATS | STATX_BTIME;
  return statx(fd_.get(), "", AT_EMPTY_PATH, kWanted, description) == 0 ? 0 : errno;
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

int OpenFile::writeAt(std::uint64_t offset_bytes, std::span<const std::byte> data) {
  if (!fd_.valid()) return EBADF;
  if (const int error = flush_.takeError()) return error;
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
    if (count < 0) return errno;
    data = data.subspan(static_cast<std::size_t>(count));
    offset_bytes += static_cast<std::uint64_t>(count);
    size_bytes_ = std::max(size_bytes_, offset_bytes);
  }
  flush_.nowAndThen(fd_.get());
  return 0;
}

std::string OpenFile::failure(int error) const {
  return error == 0 ? std::string() : errorText("write", path_, error);
}

void OpenFile::copyBegins() {
  const platform::MutexLock lock(mutex_);
  rewrittenBegin_bytes_ = UINT64_MAX;
  rewrittenEnd_bytes_ = 0;
}

int OpenFile::continueIn(HiddenCopy* copy, const std::string& to, int sourceFd,
                         std::uint64_t copied_bytes, UniqueFd* unused) {
  const platform::MutexLock lock(mutex_);
  int error = copy->truncate(std::min(copied_bytes, size_bytes_));
  if (error == 0) error = copy->copy(sourceFd, rewrittenBegin_bytes_, rewrittenEnd_bytes_);
  if (error == 0) error = copy->copy(sourceFd, copied_bytes, size_bytes_);
  if (error == 0) error = copy->publish(size_bytes_, unused);
  if (error != 0 || !fd_.valid()) return error;
  std::swap(fd_, *unused);
  path_ = normal(to);
  hasMoved_ = true;
  flush_ = BackgroundFlush();  // without the old file's state
  return 0;
}

OpenFiles::~OpenFiles() {
  moves_.waitUntilIdle();
}

std::shared_ptr<OpenFile> OpenFiles::open(const std::string& path, Mode mode, std::string* error) {
  auto opened = calls_->within([calls = calls_, path, flags = openFlags(mode)] {
    const FileCalls::Call underWay(*calls, path);
    return openAndLock(path, flags);
  });
  if (!opened) {
    *error = noAnswerText("open", path);
    return nullptr;
  }
  if (opened->error != 0) {
    *error = errorText("open", path, opened->error);
    return nullptr;
  }
  return keep(std::move(opened->fd), path, opened->size_bytes);
}

std::shared_ptr<OpenFile> OpenFiles::keep(UniqueFd fd, const std::string& path,
                                          std::uint64_t size_bytes) {
  std::shared_ptr<OpenFile> file(new OpenFile(std::move(fd), normal(path), size_bytes, *this));
  const platform::MutexLock lock(mutex_);
  files_.emplace(file.get(), file);
  return file;
}

std::shared_ptr<OpenFile> OpenFiles::claim(const std::string& path, std::string* error) {
  error->clear();
  UniqueFd fd(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!fd.valid()) {
    if (errno != ENOENT) *error = errorText("open", path, errno);
    return nullptr;
  }
  std::uint64_t size_bytes = 0;
  if (!lockLostFile(fd.get(), path, &size_bytes, error)) return nullptr;
  return keep(std::move(fd), path, size_bytes);
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

std::string OpenFiles::move(const std::string& from, const std::string& to) {
  const auto isGivenUp = std::make_shared<GivenUp>(false);
  auto error = calls_->within(
      [this, from, to, isGivenUp, token = PendingWork::Token(moves_)] {
        std::string result = moveNow(from, to, *isGivenUp);
        if (result.empty() && isGivenUp->load(std::memory_order_relaxed)) {
          logMessage(LogLevel::kWarning, from + " has been moved after all, to " + to);
        }
        return result;
      },
      isGivenUp);
  return error ? *std::move(error) : noAnswerText("move " + from + " to", to);
}

std::string OpenFiles::moveNow(const std::string& from, const std::string& to,
                               const GivenUp& isGivenUp) {
  const auto file = find(normal(from));
  // Without the file's lock: its writer must not wait for a folder that hangs.
  int error = [&] {
    const FileCalls::Call underWay(*calls_, to);
    return renameWithoutReplacing(from, to);
  }();
  if (error == EXDEV || error == ENOENT) {
    error = moveByCopying(file.get(), from, to, isGivenUp);
  } else if (error == 0 && file != nullptr) {
    const platform::MutexLock lock(file->mutex_);
    file->path_ = normal(to);
    file->hasMoved_ = true;
  }
  if (error != 0) return errorText("move " + from + " to", to, error);
  dropNameless(normal(from));
  openToOthersByUmask(to);
  return {};
}

int OpenFiles::moveByCopying(OpenFile* file, const std::string& from, const std::string& to,
                             const GivenUp& isGivenUp) {
  const Opened source = [&] {
    Opened named = openForReading(from);
    if (named.error != ENOENT) return named;
    UniqueFd nameless = openNameless(file, normal(from));
    return nameless.valid() ? openedAs(std::move(nameless)) : std::move(named);
  }();
  if (source.error != 0) return source.error;
  if (file != nullptr) file->copyBegins();
  HiddenCopy copy(to, *calls_, isGivenUp);
  int error = copy.create(source.fd.get());
  // Copies nearly everything while the writer goes on; it waits only for the rest.
  if (error == 0) error = copy.copy(source.fd.get(), 0, source.size_bytes);
  if (error != 0) return error;

  UniqueFd unused;
  error = file != nullptr ? file->continueIn(&copy, to, source.fd.get(), source.size_bytes, &unused)
                          : copy.publish(source.size_bytes, &unused);
  if (error != 0) return error;
  // The old file keeps its lock until its name is gone, so that no program takes it for a lost one.
  if (unlink(from.c_str()) != 0) {
    logMessage(LogLevel::kWarning,
               errno == ENOENT ? from +
                                     " was removed while it was written, or its disk was taken "
                                     "away. It was still saved, to " +
                                     to
                               : errorText("remove", from, errno) + " It was copied to " + to);
  }
  return 0;
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
