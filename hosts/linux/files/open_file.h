// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "hosts/linux/base/pending_work.h"
#include "hosts/linux/files/background_flush.h"
#include "hosts/linux/files/file_calls.h"

namespace linux_host {

class OpenFiles;

// A file that is being written. It may move to another folder or file system meanwhile: what is
// written afterwards ends up under the new name. Any thread, except audio callbacks: calls take a
// lock and write; during a move to another disk they wait for the last part of the copy.
//
// What is written is on the disk about a second later; where that fails, the next call that writes
// fails.
//
// Error texts name the file as it is called at that moment; empty means success.
class OpenFile {
 public:
  ~OpenFile();
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  // Adds all of `data` behind the last byte. After an error a leading part may have been added,
  // which size_bytes() shows.
  [[nodiscard]] std::string append(std::span<const std::byte> data);
  // Writes all of `data` at the offset, over what is there.
  [[nodiscard]] std::string pwriteAt(std::uint64_t offset_bytes, std::span<const std::byte> data);
  [[nodiscard]] std::uint64_t size_bytes() const;
  // Drops everything from `size_bytes` on.
  [[nodiscard]] std::string truncate(std::uint64_t size_bytes);
  // Later calls fail. Idempotent; the destructor closes too. The lock lasts until what was written
  // is on the disk.
  std::string close();

  // Copies as many bytes from `offset_bytes` on as there are and fit, and returns their number.
  std::size_t readAt(std::uint64_t offset_bytes, std::span<std::byte> to) const;
  // Waits until everything written is on the disk.
  [[nodiscard]] std::string waitForDisk();
  // What the file system says of the file. Returns errno, 0 on success.
  int describe(struct statx* description) const;

  [[nodiscard]] std::string path() const;

 private:
  friend class OpenFiles;
  OpenFile(int fd, std::string path, std::uint64_t size_bytes, OpenFiles& owner);

  // A descriptor more of the file, -1 when it is closed.
  [[nodiscard]] int duplicate() const;
  // With mutex_ held: what follows may wait for the disk.
  [[nodiscard]] FileCalls::Call call() const { return {*calls_, path_, FileCalls::Kind::kContent}; }

  [[nodiscard]] bool isOpenAt(const std::string& path) const;
  // Both with mutex_ held. Returns errno.
  int writeAt(std::uint64_t offset_bytes, std::span<const std::byte> data);
  [[nodiscard]] std::string failure(int error) const;

  OpenFiles& owner_;
  const std::shared_ptr<FileCalls> calls_;
  mutable std::mutex mutex_;
  int fd_;                    // guarded by mutex_; -1 when closed
  std::string path_;          // guarded by mutex_
  std::uint64_t size_bytes_;  // guarded by mutex_
  bool hasMoved_ = false;     // guarded by mutex_
  bool isWritten_ = false;    // since the disk was last waited for; guarded by mutex_
  BackgroundFlush flush_;     // guarded by mutex_
  // What has been written over since a copy began; empty when begin >= end. Guarded by mutex_.
  std::uint64_t rewrittenBegin_bytes_ = 0;
  std::uint64_t rewrittenEnd_bytes_ = 0;
};

// The files that this process writes, by path, and the one way to move them. Any thread. Outlives
// every file it opened.
//
// A file is locked from before its first byte until it is closed and on the disk, or its process
// ends, however that may happen. So a file that holds something and is not locked has lost its
// writer.
class OpenFiles {
 public:
  OpenFiles() = default;
  // Waits for moves that were given up and go on.
  ~OpenFiles();
  OpenFiles(const OpenFiles&) = delete;
  OpenFiles& operator=(const OpenFiles&) = delete;

  enum class Mode {
    kExisting,   // must exist
    kCreate,     // made if missing, readable by its owner alone
    kCreateNew,  // must not exist
  };

  // Null with *error set when the file cannot be opened for reading and writing, and when it is a
  // symbolic link: others can make one in the temporary folder. A file that may move must be open
  // only once at a time. Gives up where the disk does not answer.
  [[nodiscard]] std::shared_ptr<OpenFile> open(const std::string& path, Mode mode,
                                               std::string* error);

  // Opens a file of this user that holds something and has lost its writer, and locks it, so that
  // of all who try only one gets it. Null otherwise: with *error empty when somebody else has it or
  // it has just gone, else with why it cannot be had. Never follows a symbolic link.
  [[nodiscard]] std::shared_ptr<OpenFile> claim(const std::string& path, std::string* error);

  // Moves a file, also while it is written through an OpenFile of this registry. On one file
  // system that is a rename. To another one the bytes are copied under a hidden name into the
  // target's folder, flushed, given their name, and the writers continue in the copy. Never
  // replaces a file. Once it lies there it has the mode that the umask leaves of a new file.
  // Returns an error text, empty on success; after an error the file is whole at `from`, still
  // being written, and nothing is left at the target.
  //
  // A file of this registry may have lost the name `from` while it was written: somebody has
  // removed it, or taken its disk out of the folders (umount -l). It is then copied from what is
  // still open of it, also when it has been closed meanwhile.
  //
  // Gives up, with an error, where a disk does not answer for FileCalls::kPatience. A rename that
  // was under way then may still be done when the disk comes back, and is logged.
  [[nodiscard]] std::string move(const std::string& from, const std::string& to);

  // A move that was given up goes on.
  [[nodiscard]] bool hasMoveUnderWay() {
    return !moves_.waitUntilIdle(std::chrono::milliseconds(0));
  }
  // What is under way to and from these files.
  [[nodiscard]] FileCalls& calls() const { return *calls_; }

 private:
  friend class OpenFile;
  using GivenUp = std::atomic<bool>;
  std::shared_ptr<OpenFile> keep(int fd, const std::string& path, std::uint64_t size_bytes);
  void forget(OpenFile* file);
  std::shared_ptr<OpenFile> find(const std::string& path);
  // As move(), for as long as it takes or until it is given up between two steps.
  std::string moveNow(const std::string& from, const std::string& to, const GivenUp& isGivenUp);
  // `file` is null when nobody writes it. Returns errno.
  int moveByCopying(OpenFile* file, const std::string& from, const std::string& to,
                    const GivenUp& isGivenUp);

  // Keeps open what is closed before it has moved and can no longer be found under its name.
  void keepNameless(const std::string& path, int fd);
  // A descriptor of the file that was written at `path`, which has nothing there; -1 when there is
  // none.
  int openNameless(const OpenFile* file, const std::string& path);
  void dropNameless(const std::string& path);

  const std::shared_ptr<FileCalls> calls_ = std::make_shared<FileCalls>();
  PendingWork moves_;

  // Before an OpenFile's own lock, never after it.
  std::mutex mutex_;
  std::unordered_map<OpenFile*, std::weak_ptr<OpenFile>> files_;  // guarded by mutex_

  // After an OpenFile's own lock.
  std::mutex namelessMutex_;
  std::unordered_map<std::string, int> nameless_;  // guarded by namelessMutex_; descriptors
};

}  // namespace linux_host
