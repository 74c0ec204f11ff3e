// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "driver/unique_fd.h"
#include "hosts/linux/base/pending_work.h"
#include "hosts/linux/base/small_files.h"
#include "hosts/linux/files/background_flush.h"
#include "hosts/linux/files/file_calls.h"
#include "platform/mutex.h"

namespace linux_host {

class HiddenCopy;
class OpenFiles;

// A file that is being written. It may be moved to another folder or file system meanwhile: later
// writes go to the new file. Any thread, except audio callbacks: calls take a lock and write;
// during a move to another disk they wait for the last part of the copy.
//
// Written data is on the disk about a second later. If that fails, the next write fails.
//
// The texts of failures use the file's name at that moment.
class OpenFile {
 public:
  ~OpenFile();
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  // Appends all of `data`. After a failure a leading part may have been appended, as size_bytes()
  // shows.
  Status append(std::span<const std::byte> data);
  // Overwrites with all of `data` at the offset.
  Status pwriteAt(std::uint64_t offset_bytes, std::span<const std::byte> data);
  [[nodiscard]] std::uint64_t size_bytes() const;
  // Drops everything from `size_bytes` on.
  Status truncate(std::uint64_t size_bytes);
  // Later calls fail. Idempotent; the destructor also closes, and logs a failure. The lock lasts
  // until the written data is on the disk.
  Status close();

  // Copies as many bytes from `offset_bytes` on as exist and fit, and returns their number.
  std::size_t readAt(std::uint64_t offset_bytes, std::span<std::byte> to) const;
  // Waits until all written data is on the disk.
  Status waitForDisk();
  // The file system's description of the file.
  [[nodiscard]] Expected<struct statx> describe() const;

  [[nodiscard]] std::string path() const;

 private:
  friend class OpenFiles;
  OpenFile(loopback::UniqueFd fd, std::string path, std::uint64_t size_bytes, OpenFiles& owner);

  // A duplicate of the file's descriptor; none when the file is closed.
  [[nodiscard]] loopback::UniqueFd duplicate() const;
  // Registers that the following code may wait for the disk.
  [[nodiscard]] FileCalls::Call call() const RA_REQUIRES(mutex_) {
    return {*calls_, path_, FileCalls::Kind::kContent};
  }

  [[nodiscard]] bool isOpenAt(const std::string& path) const;
  // A copy of the file begins: remembers what is overwritten from now on.
  void copyBegins();
  // Completes a copy that has the first `copied_bytes` of the source. The writer waits meanwhile,
  // and then continues in the copy. Returns the descriptor that is no longer written.
  Expected<loopback::UniqueFd, std::errc> continueIn(HiddenCopy* copy, const std::string& to,
                                                     int sourceFd, std::uint64_t copied_bytes);
  // Brings a copy up to date and gives it its name. Returns its descriptor.
  Expected<loopback::UniqueFd, std::errc> completed(HiddenCopy* copy, int sourceFd,
                                                    std::uint64_t copied_bytes) RA_REQUIRES(mutex_);
  SystemStatus writeAt(std::uint64_t offset_bytes, std::span<const std::byte> data)
      RA_REQUIRES(mutex_);
  // Of a write; says which file it is.
  [[nodiscard]] Status named(const SystemStatus& status) const RA_REQUIRES(mutex_);

  OpenFiles& owner_;
  const std::shared_ptr<FileCalls> calls_;
  mutable platform::Mutex mutex_;
  loopback::UniqueFd fd_ RA_GUARDED_BY(mutex_);  // none when closed
  std::string path_ RA_GUARDED_BY(mutex_);
  std::uint64_t size_bytes_ RA_GUARDED_BY(mutex_);
  bool hasMoved_ RA_GUARDED_BY(mutex_) = false;
  bool isWritten_ RA_GUARDED_BY(mutex_) = false;  // since the disk was last waited for
  BackgroundFlush flush_ RA_GUARDED_BY(mutex_);
  // The range overwritten since a copy began; empty when begin >= end.
  std::uint64_t rewrittenBegin_bytes_ RA_GUARDED_BY(mutex_) = 0;
  std::uint64_t rewrittenEnd_bytes_ RA_GUARDED_BY(mutex_) = 0;
};

// The files that this process writes, by path, and the only way to move them. Any thread. Outlives
// every file that it opens.
//
// A file is locked from before its first byte until it is closed and on the disk, or until its
// process ends, however that happens. So a file that is not empty and not locked has lost its
// writer.
class OpenFiles {
 public:
  OpenFiles() = default;
  // Waits for moves that were given up but are still running.
  ~OpenFiles();
  OpenFiles(const OpenFiles&) = delete;
  OpenFiles& operator=(const OpenFiles&) = delete;

  enum class Mode {
    kExisting,   // must exist
    kCreate,     // created if missing, readable only by its owner
    kCreateNew,  // must not exist
  };

  // Never null. Fails when the file cannot be opened for reading and writing, or is a symbolic
  // link, which others can create in the temporary folder. A file that may move must be open only
  // once at a time. Gives up if the disk does not answer.
  Expected<std::shared_ptr<OpenFile>> open(const std::string& path, Mode mode);

  // Opens and locks a file of this user that is not empty and has lost its writer; only one of
  // several programs that try gets it. Null if another program has it or it has just gone. Never
  // follows a symbolic link.
  Expected<std::shared_ptr<OpenFile>> claim(const std::string& path);

  // Moves a file, even while it is written through an OpenFile of this registry. Within one file
  // system that is a rename. To another one, the bytes are copied under a hidden name into the
  // target's folder, flushed and renamed, and the writers continue in the copy. Never replaces a
  // file. The moved file gets the mode of a new file under the umask. After a failure the file is
  // complete at `from`, still being written, and nothing is left at the target.
  //
  // A file of this registry may have lost the name `from` while it was written: somebody has
  // removed it or detached its disk (umount -l). It is then copied through the open descriptor,
  // even if it has been closed meanwhile.
  //
  // Gives up, and fails, if a disk does not answer for FileCalls::kPatience. A pending rename
  // may then still happen when the disk comes back, and is logged.
  Status move(const std::string& from, const std::string& to);

  // Whether a move that was given up is still running.
  [[nodiscard]] bool hasMoveUnderWay() {
    return !moves_.waitUntilIdle(std::chrono::milliseconds(0));
  }
  // The pending calls on these files.
  [[nodiscard]] FileCalls& calls() const { return *calls_; }

 private:
  friend class OpenFile;
  using GivenUp = std::atomic<bool>;
  std::shared_ptr<OpenFile> keep(loopback::UniqueFd fd, const std::string& path,
                                 std::uint64_t size_bytes);
  void forget(OpenFile* file);
  std::shared_ptr<OpenFile> find(const std::string& path);
  // As move(), but without a time limit, except that it can be given up between two steps.
  Status moveNow(const std::string& from, const std::string& to, const GivenUp& isGivenUp);
  // `file` is null when the file is not being written.
  SystemStatus moveByCopying(OpenFile* file, const std::string& from, const std::string& to,
                             const GivenUp& isGivenUp);

  // Keeps a file open that is closed before it was moved and has lost its name.
  void keepNameless(const std::string& path, loopback::UniqueFd fd);
  // A descriptor of the file that was written at `path` and has lost that name, if there is one.
  loopback::UniqueFd openNameless(const OpenFile* file, const std::string& path);
  void dropNameless(const std::string& path);

  const std::shared_ptr<FileCalls> calls_ = std::make_shared<FileCalls>();
  PendingWork moves_;

  // Locked before an OpenFile's own mutex, never after it.
  platform::Mutex mutex_;
  std::unordered_map<OpenFile*, std::weak_ptr<OpenFile>> files_ RA_GUARDED_BY(mutex_);

  // Locked after an OpenFile's own mutex.
  platform::Mutex namelessMutex_;
  std::unordered_map<std::string, loopback::UniqueFd> nameless_ RA_GUARDED_BY(namelessMutex_);
};

}  // namespace linux_host
