// SPDX-License-Identifier: MIT
#include "hosts/linux/power/xsmp_client.h"

#include <dlfcn.h>
#include <glib-unix.h>
#include <pthread.h>

#include <cstdlib>
#include <system_error>
#include <utility>

#include "hosts/linux/base/log.h"

namespace linux_host {
namespace {

OpenXsmpConnection loadModule(const std::vector<std::string>& folders) {
  for (const std::string& folder : folders) {
    const std::string path = folder + "/" + kXsmpModuleFileName;
    // Never unloaded: its libraries keep state about a connection.
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    void* symbol = library != nullptr ? dlsym(library, kOpenXsmpConnectionSymbol) : nullptr;
    if (symbol != nullptr) return reinterpret_cast<OpenXsmpConnection>(symbol);
  }
  return nullptr;
}

}  // namespace

XsmpClient::XsmpClient(SessionEnd end, std::shared_ptr<platform::DispatchQueue> mainQueue,
                       std::vector<std::string> folders)
    : end_(std::move(end)), mainQueue_(std::move(mainQueue)), folders_(std::move(folders)) {
  shared_->client = this;
}

XsmpClient::~XsmpClient() {
  if (source_ != 0) g_source_remove(source_);
  if (!thread_.joinable()) return;
  bool done = false;
  {
    const platform::MutexLock lock(shared_->mutex);
    shared_->client = nullptr;
    done = shared_->done;
  }
  if (done) {
    thread_.join();
  } else {
    thread_.detach();
  }
}

void XsmpClient::connect() {
  mainThread_.assertHeld();
  const char* managers = std::getenv("SESSION_MANAGER");
  if (managers == nullptr || *managers == '\0' || thread_.joinable()) return;
  const auto answer = [this] {
    if (connection_ != nullptr) connection_->saved();
  };
  const XsmpEvents events{[this, answer] { end_.save(answer); }, [this] { end_.quit(); }};
  try {
    thread_ = std::thread(
        [shared = shared_, folders = folders_, events] { open(shared, folders, events); });
  } catch (const std::system_error& error) {
    logMessage(LogLevel::kWarning, "The session manager cannot be asked to wait for recordings: " +
                                       error.code().message() + ". Stop them before logging out.");
    return;
  }
  pthread_setname_np(thread_.native_handle(), "session-manager");
}

void XsmpClient::open(const std::shared_ptr<Shared>& shared,
                      const std::vector<std::string>& folders, const XsmpEvents& events) {
  const OpenXsmpConnection openConnection = loadModule(folders);
  std::unique_ptr<XsmpConnection> connection;
  if (openConnection != nullptr) connection.reset(openConnection(events));
  const platform::MutexLock lock(shared->mutex);
  shared->done = true;
  if (shared->client == nullptr || connection == nullptr) return;
  shared->connection = std::move(connection);
  shared->client->mainQueue_->async([shared] {
    XsmpClient* client = nullptr;
    {
      const platform::MutexLock lockAgain(shared->mutex);
      client = shared->client;
    }
    if (client != nullptr) client->watch();
  });
}

void XsmpClient::watch() {
  mainThread_.assertHeld();
  {
    const platform::MutexLock lock(shared_->mutex);
    connection_ = std::move(shared_->connection);
  }
  source_ = g_unix_fd_add(connection_->descriptor(), G_IO_IN, onReadable, this);
}

gboolean XsmpClient::onReadable(gint, GIOCondition, gpointer self) {
  auto* client = static_cast<XsmpClient*>(self);
  if (client->connection_->process()) return G_SOURCE_CONTINUE;
  client->connection_.reset();
  client->source_ = 0;
  return G_SOURCE_REMOVE;
}

}  // namespace linux_host
