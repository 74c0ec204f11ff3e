// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/pipewire_loop.h"

#include <gtest/gtest.h>
#include <pipewire/pipewire.h>

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "hosts/linux/audio/pipewire_context.h"
#include "tests/support/few_descriptors.h"

namespace linux_host {
namespace {

using namespace std::chrono_literals;
using test_support::FewDescriptors;

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
  const FewDescriptors none(0);
  EXPECT_TRUE(comesToAnEnd(std::move(loop)));
}

TEST(PipeWireLoopTest, WorkStillRunsWhereNoDescriptorIsLeftForALoop) {
  // Lets the library open its own descriptors, which it does once.
  ASSERT_EQ(getsALoop(*std::make_unique<PipeWireLoop>("first")), true);
  const FewDescriptors none(0);
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
    loopback::ContextPtr context = makeContext(given, ContextKind::kAudio);
    const FewDescriptors none(0);
    const bool hasDataThread = pw_context_get_data_loop(context.get()) != nullptr;
    context.reset();
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
