#include "hosts/linux/m4a/m4a_open_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace linux_host {

namespace {

template <typename Base>
class OpenFileSink : public Base {
 public:
  explicit OpenFileSink(std::shared_ptr<OpenFile> file) : file_(std::move(file)) {}
  ~OpenFileSink() override { file_->close(); }
  OpenFileSink(const OpenFileSink&) = delete;
  OpenFileSink& operator=(const OpenFileSink&) = delete;

  std::string append(std::span<const std::byte> data) override { return file_->append(data); }
  std::string pwriteAt(std::uint64_t offset_bytes, std::span<const std::byte> data) override {
    return file_->pwriteAt(offset_bytes, data);
  }
  [[nodiscard]] std::uint64_t size_bytes() const override { return file_->size_bytes(); }
  bool truncate(std::uint64_t size_bytes) override { return file_->truncate(size_bytes).empty(); }
  void startWriteBack() override { file_->startWriteBack(); }

 private:
  const std::shared_ptr<OpenFile> file_;
};

class InterruptedFile final : public OpenFileSink<M4aRepairableFile> {
 public:
  // `reader` is a descriptor of the same file.
  InterruptedFile(std::shared_ptr<OpenFile> file, int reader)
      : OpenFileSink(std::move(file)), reader_(reader) {}
  ~InterruptedFile() override { close(reader_); }
  InterruptedFile(const InterruptedFile&) = delete;
  InterruptedFile& operator=(const InterruptedFile&) = delete;

  std::size_t readAt(std::uint64_t offset_bytes, std::span<std::byte> to) override {
    std::size_t done_bytes = 0;
    while (done_bytes < to.size()) {
      const ssize_t count = pread(reader_, to.data() + done_bytes, to.size() - done_bytes,
                                  static_cast<off_t>(offset_bytes + done_bytes));
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) break;
      done_bytes += static_cast<std::size_t>(count);
    }
    return done_bytes;
  }

  // What is written so far is on the disk before what refers to it.
  std::string pwriteAt(std::uint64_t offset_bytes, std::span<const std::byte> data) override {
    if (!waitForDisk()) return "The disk did not take an interrupted recording. Check the disk.";
    return OpenFileSink::pwriteAt(offset_bytes, data);
  }

  bool waitForDisk() { return fdatasync(reader_) == 0; }

 private:
  const int reader_;
};

}  // namespace

std::unique_ptr<M4aSink> m4aSinkFor(std::shared_ptr<OpenFile> file) {
  return std::make_unique<OpenFileSink<M4aSink>>(std::move(file));
}

M4aRecovery recoverInterruptedM4a(OpenFiles& files, const std::string& path) {
  M4aRecovery recovery;
  recovery.outcome = M4aRecovery::Outcome::failed;
  auto file = files.open(path, OpenFiles::Mode::kExisting, &recovery.error);
  if (!file) return recovery;
  const int reader = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (reader < 0) {
    recovery.error = "Cannot read the interrupted recording " + path + ": " +
                     std::generic_category().message(errno) + ". Make the file readable.";
    return recovery;
  }
  InterruptedFile interrupted(std::move(file), reader);
  recovery = recoverInterruptedM4a(interrupted);
  if (recovery.outcome == M4aRecovery::Outcome::completed && !interrupted.waitForDisk()) {
    recovery.outcome = M4aRecovery::Outcome::failed;
    recovery.error = "The disk did not take the recovered recording " + path + ". Check the disk.";
  }
  return recovery;
}

}  // namespace linux_host
