// SPDX-License-Identifier: MIT
// Calls to the program's objects on the bus and on its control socket, with any arguments of the
// declared types: each is answered exactly once and triggers nothing else.
//
// Input: up to eight calls. Each call: the number of the method, the size of its arguments (16-bit,
// little-endian) and the arguments in GVariant's layout.

#include <gio/gio.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "hosts/linux/bus/tool_object.h"
#include "hosts/linux/indicator/dbus_menu.h"
#include "tests/fuzz/fuzz_expect.h"

namespace {

using fuzz::expect;
using linux_host::ConnectionPtr;
using linux_host::DBusMenu;
using linux_host::VariantPtr;

constexpr int kMostCalls = 8;
constexpr const char* kMenuInterface = "com.canonical.dbusmenu";
constexpr const char* kPropertiesInterface = "org.freedesktop.DBus.Properties";

struct Method {
  const char* path;
  const char* interfaceName;
  const char* name;
  const char* arguments;
};

constexpr std::array kMethods = {
    Method{linux_host::kObjectPath, linux_host::kApplicationInterface, "Activate", "(a{sv})"},
    Method{linux_host::kObjectPath, linux_host::kApplicationInterface, "Open", "(asa{sv})"},
    Method{linux_host::kObjectPath, linux_host::kApplicationInterface, "ActivateAction",
           "(sava{sv})"},
    Method{linux_host::kObjectPath, linux_host::kRecordAudioInterface, "Status", "()"},
    Method{linux_host::kObjectPath, kPropertiesInterface, "Get", "(ss)"},
    Method{linux_host::kObjectPath, kPropertiesInterface, "GetAll", "(s)"},
    Method{linux_host::kObjectPath, kPropertiesInterface, "Set", "(ssv)"},
    Method{DBusMenu::kPath, kMenuInterface, "GetLayout", "(iias)"},
    Method{DBusMenu::kPath, kMenuInterface, "GetGroupProperties", "(aias)"},
    Method{DBusMenu::kPath, kMenuInterface, "GetProperty", "(is)"},
    Method{DBusMenu::kPath, kMenuInterface, "Event", "(isvu)"},
    Method{DBusMenu::kPath, kMenuInterface, "EventGroup", "(a(isvu))"},
    Method{DBusMenu::kPath, kMenuInterface, "AboutToShow", "(i)"},
    Method{DBusMenu::kPath, kMenuInterface, "AboutToShowGroup", "(ai)"},
    Method{DBusMenu::kPath, kPropertiesInterface, "Get", "(ss)"},
    Method{DBusMenu::kPath, kPropertiesInterface, "GetAll", "(s)"},
};

// The program behind the objects, which only answers.
class Program : public linux_host::Requests {
 public:
  void activate() override {}
  void open(const std::vector<std::string>& paths) override {
    for (const std::string& path : paths) {
      expect(g_utf8_validate(path.c_str(), -1, nullptr) != FALSE || path.starts_with('/'),
             "a text of the bus or a decoded path");
    }
  }
  void action(const std::string& name,
              std::function<void(linux_host::RequestResult)> done) override {
    expect(name.find('\0') == std::string::npos, "a plain name");
    done(name == "stop"   ? linux_host::RequestResult::kNothingToDo
         : name == "quit" ? linux_host::RequestResult::kDone
                          : linux_host::RequestResult::kUnknown);
  }
  void status(std::function<void(const std::string&)> done) override {
    done(R"({"state":"idle","elapsedSeconds":0})");
  }
};

// Without authentication, which is not tested here.
ConnectionPtr connectionOver(int fd) {
  GSocket* socket = g_socket_new_from_fd(fd, nullptr);
  GSocketConnection* stream = g_socket_connection_factory_create_connection(socket);
  g_object_unref(socket);
  ConnectionPtr connection(g_dbus_connection_new_sync(
      G_IO_STREAM(stream), nullptr, G_DBUS_CONNECTION_FLAGS_NONE, nullptr, nullptr, nullptr));
  g_object_unref(stream);
  return connection;
}

// A connection with the program's objects at one end and a caller at the other.
class Wire {
 public:
  Wire() : tool_(program_) {
    std::array<int, 2> ends{};
    expect(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "a socket");
    server_ = connectionOver(ends[0]);
    client_ = connectionOver(ends[1]);
    expect(tool_.exportOn(server_.get()).has_value(), "the tool's object");
    showMenu();
  }

  // Waits for the answer, which may be an error.
  void call(const Method& method, GVariant* arguments) {
    chosen_ = -1;
    bool answered = false;
    g_dbus_connection_call(
        client_.get(), nullptr, method.path, method.interfaceName, method.name, arguments, nullptr,
        G_DBUS_CALL_FLAGS_NONE, G_MAXINT, nullptr,
        [](GObject* connection, GAsyncResult* result, gpointer data) {
          GError* error = nullptr;
          const VariantPtr answer(
              g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, &error));
          const linux_host::ErrorPtr owned(error);
          expect((answer == nullptr) != (error == nullptr), "an answer or an error");
          *static_cast<bool*>(data) = true;
        },
        &answered);
    while (!answered) g_main_context_iteration(nullptr, TRUE);
    expect(chosen_ == -1 || std::string_view(method.name).starts_with("Event"),
           "nothing chosen without a click");
    if (chosen_ == kGoes) showMenu();
  }

 private:
  static constexpr int kStays = 1;
  static constexpr int kGoes = 2;
  static constexpr int kDisabled = 3;

  // The menu is destroyed while it is called, as when a choice ends the recording.
  void showMenu() {
    menu_ = std::make_unique<DBusMenu>([this](int id) {
      expect(id == kStays || id == kGoes, "a choice that can be chosen");
      chosen_ = id;
      if (id == kGoes) menu_.reset();
    });
    expect(menu_->exportOn(server_.get()).has_value(), "the menu's object");
    menu_->setItems(
        {{kStays, "Stop _recording"}, {4, ""}, {kDisabled, "0:01", false}, {kGoes, "Quit"}});
  }

  Program program_;
  ConnectionPtr server_;
  ConnectionPtr client_;
  linux_host::ToolObject tool_;
  std::unique_ptr<DBusMenu> menu_;
  int chosen_ = -1;
};

// Bytes that are not a valid value are made into one; null when that cannot be sent.
GVariant* argumentsFrom(const char* type, std::string_view bytes) {
  // A copy with GVariant's alignment.
  GBytes* owned = g_bytes_new(bytes.data(), bytes.size());
  const VariantPtr raw(
      g_variant_ref_sink(g_variant_new_from_bytes(G_VARIANT_TYPE(type), owned, FALSE)));
  g_bytes_unref(owned);
  return g_variant_get_normal_form(raw.get());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size_bytes) {
  static Wire wire;
  std::string_view rest(reinterpret_cast<const char*>(input), size_bytes);
  for (int i = 0; i < kMostCalls && rest.size() >= 3; ++i) {
    const Method& method = kMethods[static_cast<std::uint8_t>(rest[0]) % kMethods.size()];
    const std::size_t wanted =
        static_cast<std::uint8_t>(rest[1]) | std::size_t{static_cast<std::uint8_t>(rest[2])} << 8U;
    rest.remove_prefix(3);
    const std::string_view bytes = rest.substr(0, wanted);
    rest.remove_prefix(bytes.size());
    const VariantPtr arguments(argumentsFrom(method.arguments, bytes));
    wire.call(method, arguments.get());
  }
  return 0;
}
