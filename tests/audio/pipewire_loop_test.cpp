// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/pipewire_loop.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pipewire/pipewire.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "hosts/linux/audio/pipewire_context.h"

namespace linux_host {
namespace {

using namespace std::chrono_literals;

// While it lives, the process cannot get new descriptors.
class NoDescriptors {
 public:
  NoDescriptors() {
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before_), 0);
    const int lowestFree = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_GE(lowestFree, 0);
    close(lowestFree);
    const rlimit none{static_cast<rlim_t>(lowestFree), before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  }
  ~NoDescriptors() { EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before_), 0); }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  rlimit before_{};
};

// Whether the posted work got a loop; nothing if it has not run after ten seconds.
std::optional<bool> getsALoop(PipeWireLoop& loop) {
  auto promise = std::make_shared<std::promise<bool>>();
  std::future<bool> answer = promise->get_future();
  loop.post([promise](pw_loop* given) { promise->set_value(given != nullptr); });
  if (answer.wait_for(10s) != std::future_status::ready) return std::nullopt;
  return answer.get();
}

// Runs on a thread that is abandoned if it does not end.
bool comesToAnEnd(std::unique_ptr<PipeWireLoop> loop) {
  auto ended = std::make_shared<std::promise<void>>();
  std::future<void> end = ended->get_future();
  std::thread([ended, raw = loop.release()] {
    delete raw;
    ended->set_value();
  }).detach();
  return end.wait_for(10s) == std::future_status::ready;
}

TEST(PipeWireLoopTest, EndsWhereNoDescriptorIsLeft) {
  auto loop = std::make_unique<PipeWireLoop>("test-loop");
  ASSERT_EQ(getsALoop(*loop), true);
  const NoDescriptors none;
  EXPECT_TRUE(comesToAnEnd(std::move(loop)));
}

TEST(PipeWireLoopTest, WorkStillRunsWhereNoDescriptorIsLeftForALoop) {
  // Lets the library open its own descriptors, which it does once.
  ASSERT_EQ(getsALoop(*std::make_unique<PipeWireLoop>("first")), true);
  const NoDescriptors none;
  auto loop = std::make_unique<PipeWireLoop>("test-loop");
  EXPECT_EQ(getsALoop(*loop), false);
  EXPECT_TRUE(comesToAnEnd(std::move(loop)));
}

// What a stream makes of a context that was made in time.
TEST(PipeWireContextTest, DataThreadEndsWhereNoDescriptorIsLeft) {
  auto loop = std::make_unique<PipeWireLoop>("test-loop");
  auto promise = std::make_shared<std::promise<bool>>();
  std::future<bool> end = promise->get_future();
  loop->post([promise](pw_loop* given) {
    pw_context* context = makeContext(given, ContextKind::kAudio);
    const NoDescriptors none;
    const bool hasDataThread = pw_context_get_data_loop(context) != nullptr;
    pw_context_destroy(context);
    promise->set_value(hasDataThread);
  });
  if (end.wait_for(10s) != std::future_status::ready) {
    static_cast<void>(loop.release());  // its thread is stuck
    FAIL() << "the data thread is waited for";
  }
  EXPECT_TRUE(end.get());
}

}  // namespace
}  // namespace linux_host
