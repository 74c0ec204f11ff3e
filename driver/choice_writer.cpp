// SPDX-License-Identifier: MIT
#include "driver/choice_writer.h"

#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/mutex.h"

namespace loopback {

struct ChoiceWriter::Desk {
  enum class Phase { kNotStarted, kOpen, kClosed, kDone };

  explicit Desk(std::unique_ptr<ChoiceMemory> target) : memory(std::move(target)) {}

  // The thread's function.
  void work() {
    platform::MutexLock lock(mutex);
    for (;;) {
      changed.wait(lock, [this]() RA_REQUIRES(mutex) {
        return next.has_value() || phase == Phase::kClosed;
      });
      if (!next) break;
      const DefaultChoice choice = std::move(*std::exchange(next, std::nullopt));
      lock.unlock();
      memory->store(choice);
      lock.lock();
    }
    phase = Phase::kDone;
    changed.notify_all();
  }

  const std::unique_ptr<ChoiceMemory> memory;
  platform::Mutex mutex;
  platform::Condition changed;
  Phase phase RA_GUARDED_BY(mutex) = Phase::kNotStarted;
  std::optional<DefaultChoice> next RA_GUARDED_BY(mutex);
};

ChoiceWriter::ChoiceWriter(std::unique_ptr<ChoiceMemory> memory, std::chrono::milliseconds farewell)
    : desk_(std::make_shared<Desk>(std::move(memory))), farewell_(farewell) {}

ChoiceWriter::~ChoiceWriter() {
  platform::MutexLock lock(desk_->mutex);
  if (desk_->phase == Desk::Phase::kNotStarted) return;
  desk_->phase = Desk::Phase::kClosed;
  desk_->changed.notify_all();
  desk_->changed.wait_for(lock, farewell_, [this]() RA_REQUIRES(desk_->mutex) {
    return desk_->phase == Desk::Phase::kDone;
  });
}

DefaultChoice ChoiceWriter::load() {
  return desk_->memory->load();
}

void ChoiceWriter::store(const DefaultChoice& choice) {
  const platform::MutexLock lock(desk_->mutex);
  desk_->next = choice;
  if (desk_->phase == Desk::Phase::kNotStarted) {
    try {
      std::thread([desk = desk_] { desk->work(); }).detach();
    } catch (const std::system_error&) {
      // No thread could be started. The choice stays on the desk, and the next one tries again.
      return;
    }
    desk_->phase = Desk::Phase::kOpen;
  }
  desk_->changed.notify_all();
}

}  // namespace loopback
