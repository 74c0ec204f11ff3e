// SPDX-License-Identifier: MIT
#include "tests/windows/window_user.h"

#include <dlfcn.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <utility>

namespace linux_host {
namespace {

constexpr gint64 kStep_us = 20 * G_USEC_PER_SEC;
constexpr guint kInterval_ms = 5;

std::vector<std::string> environmentOfProcess() {
  std::vector<std::string> all;
  for (char** each = environ; *each != nullptr; ++each) all.emplace_back(*each);
  return all;
}

class ModuleEnvironment : public testing::Environment {
 public:
  void SetUp() override {
    user = makeWindowUser();
    void* library = dlopen(RA_WINDOWS_MODULE, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto create =
        reinterpret_cast<CreateWindowsModule>(dlsym(library, kCreateWindowsModuleSymbol));
    ASSERT_NE(create, nullptr);
    const auto before = environmentOfProcess();
    std::string error;
    module.reset(create(fakeServices, &error));
    ASSERT_NE(module, nullptr) << error;
    // Other threads of the program may be reading it.
    EXPECT_EQ(environmentOfProcess(), before);
  }
  void TearDown() override {
    module.reset();
    user.reset();
  }

  std::unique_ptr<WindowUser> user;
  FakeServices fakeServices;
  std::unique_ptr<WindowsModule> module;
};

// GoogleTest owns it.
auto* const environment =
    static_cast<ModuleEnvironment*>(testing::AddGlobalTestEnvironment(new ModuleEnvironment));

}  // namespace

bool WindowUser::until(const std::function<bool()>& done) {
  const gint64 end_us = g_get_monotonic_time() + kStep_us;
  const guint wake = g_timeout_add(
      kInterval_ms, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
  bool isDone = done();
  while (!isDone && g_get_monotonic_time() < end_us) {
    g_main_context_iteration(nullptr, TRUE);
    isDone = done();
  }
  g_source_remove(wake);
  return isDone;
}

WindowUser::Later::Later(std::function<bool()> act) : act_(std::move(act)) {
  source_ = g_timeout_add(
      kInterval_ms,
      [](gpointer later) -> gboolean {
        auto& self = *static_cast<Later*>(later);
        if (!self.act_()) return G_SOURCE_CONTINUE;
        self.source_ = 0;
        return G_SOURCE_REMOVE;
      },
      this);
}

WindowUser::Later::~Later() {
  if (source_ != 0) g_source_remove(source_);
}

WindowUser& user() {
  return *environment->user;
}

WindowsModule& windowsModule() {
  return *environment->module;
}

FakeServices& services() {
  return environment->fakeServices;
}

}  // namespace linux_host
