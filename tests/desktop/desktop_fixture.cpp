// SPDX-License-Identifier: MIT
#include "tests/desktop/desktop_fixture.h"

#include <png.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace desktop_test {

using linux_host::ConnectionPtr;
using linux_host::VariantPtr;
using test_support::ChildProcess;
using std::chrono_literals::operator""s;

namespace {

constexpr int kScreenWidth_px = 640;
constexpr int kScreenHeight_px = 480;

ConnectionPtr connected(const std::string& address) {
  auto connection = linux_host::connectTo(address, true, linux_host::kBusTimeout_ms);
  if (!connection) throw std::runtime_error(connection.error());
  return *std::move(connection);
}

struct Answer {
  bool arrived = false;
  VariantPtr value;
  std::string error;
};

void onAnswer(GObject* connection, GAsyncResult* result, gpointer raw) {
  auto& answer = *static_cast<Answer*>(raw);
  GError* failure = nullptr;
  answer.value.reset(
      g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, &failure));
  const linux_host::ErrorPtr owned(failure);
  if (failure != nullptr) answer.error = failure->message;
  answer.arrived = true;
}

}  // namespace

bool runUntil(const std::function<bool()>& done) {
  const gint64 end_us = g_get_monotonic_time() + kStep_s * G_USEC_PER_SEC;
  const guint wake = g_timeout_add(
      5, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
  bool isDone = done();
  while (!isDone && g_get_monotonic_time() < end_us) {
    g_main_context_iteration(nullptr, TRUE);
    isDone = done();
  }
  g_source_remove(wake);
  return isDone;
}

DesktopTest::DesktopTest() : bus_(connected(daemon_.address())), client_(connectAgain()) {}

DesktopTest::~DesktopTest() = default;

ConnectionPtr DesktopTest::connectAgain() const {
  return connected(daemon_.address());
}

VariantPtr DesktopTest::call(GDBusConnection* from, const std::string& name, const char* path,
                             const char* interface, const char* method, GVariant* arguments,
                             std::string* error) {
  Answer answer;
  g_dbus_connection_call(from, name.c_str(), path, interface, method, arguments, nullptr,
                         G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, onAnswer, &answer);
  while (!answer.arrived) g_main_context_iteration(nullptr, TRUE);
  if (error != nullptr) *error = answer.error;
  return std::move(answer.value);
}

std::string DesktopTest::property(GDBusConnection* from, const std::string& name, const char* path,
                                  const char* interface, const char* property) {
  std::string error;
  const VariantPtr answer = call(from, name, path, "org.freedesktop.DBus.Properties", "Get",
                                 g_variant_new("(ss)", interface, property), &error);
  if (answer == nullptr) return "error: " + error;
  GVariant* value = nullptr;
  g_variant_get(answer.get(), "(v)", &value);
  gchar* printed = g_variant_print(value, FALSE);
  const std::string text = printed;
  g_free(printed);
  g_variant_unref(value);
  return text;
}

bool DesktopTest::hasOwner(const std::string& name) {
  const VariantPtr answer =
      call(client_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
           "NameHasOwner", g_variant_new("(s)", name.c_str()));
  gboolean owned = FALSE;
  g_variant_get(answer.get(), "(b)", &owned);
  return owned != FALSE;
}

Screen::Screen(const std::string& folder) : folder_(folder) {
  const std::string number = folder_ + "/display";
  const std::string size =
      std::to_string(kScreenWidth_px) + "x" + std::to_string(kScreenHeight_px) + "x24";
  server_ = std::make_unique<ChildProcess>(ChildProcess::Command{
      // An X server that resets when its last client leaves refuses the next client meanwhile.
      {"sh", "-c",
       "exec Xvfb -noreset -displayfd 3 -screen 0 " + size + " -nolisten tcp 3>" + number},
      {},
      folder_ + "/xvfb.log"});
  if (!runUntil([&] { return base_test::contentsOf(number).ends_with('\n'); })) {
    throw std::runtime_error("no screen: " + base_test::contentsOf(folder_ + "/xvfb.log"));
  }
  display_ = ":" + base_test::contentsOf(number);
  display_.pop_back();
}

std::string Screen::output(const std::vector<std::string>& arguments) const {
  const std::string file = folder_ + "/screen-output";
  ChildProcess child(ChildProcess::Command{arguments, {environment()}, file});
  const auto code = child.waitForExit(std::chrono::seconds(kStep_s));
  if (code != 0) {
    throw std::runtime_error(arguments.front() + " failed: " + base_test::contentsOf(file));
  }
  return base_test::contentsOf(file);
}

void Screen::run(const std::vector<std::string>& arguments) const {
  output(arguments);
}

void Screen::click(int x, int y, int button) const {
  run({"xdotool", "mousemove", std::to_string(x), std::to_string(y), "click",
       std::to_string(button)});
}

int Screen::pixelsDrawnIn(int x, int y, int width, int height) const {
  const std::string geometry = std::to_string(width) + "x" + std::to_string(height) + "+" +
                               std::to_string(x) + "+" + std::to_string(y);
  const std::string picture = folder_ + "/part.png";
  savePicture(picture, geometry);
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_file(&image, picture.c_str()) == 0) {
    throw std::runtime_error(std::string("no picture of the screen: ") + image.message);
  }
  image.format = PNG_FORMAT_RGB;
  std::vector<unsigned char> bytes(PNG_IMAGE_SIZE(image));
  png_image_finish_read(&image, nullptr, bytes.data(), 0, nullptr);
  int drawn = 0;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    if (!std::equal(bytes.begin(), bytes.begin() + 3, bytes.begin() + static_cast<long>(at))) {
      ++drawn;
    }
  }
  return drawn;
}

std::optional<Screen::Area> Screen::popup() const {
  std::istringstream lines(output({"xwininfo", "-root", "-children"}));
  static const std::regex kWindow(
      R"(^\s+0x\w+ .*\s(\d+)x(\d+)\+-?\d+\+-?\d+\s+\+(-?\d+)\+(-?\d+)$)");
  for (std::string line; std::getline(lines, line);) {
    std::smatch found;
    if (!std::regex_match(line, found, kWindow)) continue;
    const Area area{std::stoi(found[3]), std::stoi(found[4]), std::stoi(found[1]),
                    std::stoi(found[2])};
    // Neither the clients' helper windows nor the panel.
    if (area.width > 20 && area.width < kScreenWidth_px) return area;
  }
  return std::nullopt;
}

void Screen::savePicture(const std::string& path, const std::string& geometry) const {
  run({"import", "-window", "root", "-crop", geometry, "+repage", path});
}

Panel::Panel(const std::string& folder, const Screen& screen, const std::string& busAddress)
    : folder_(folder + "/panel"),
      environment_({screen.environment(), "DBUS_SESSION_BUS_ADDRESS=" + busAddress,
                    "HOME=" + folder_, "XDG_CONFIG_HOME=" + folder_ + "/config",
                    "XDG_RUNTIME_DIR=" + folder_ + "/run", "XDG_CACHE_HOME=" + folder_ + "/cache",
                    "XDG_DATA_HOME=" + folder_ + "/data", "QT_QPA_PLATFORM=xcb"}) {
  std::filesystem::create_directories(folder_ + "/run");
  std::filesystem::permissions(folder_ + "/run", std::filesystem::perms::owner_all);
  base_test::write(folder_ + "/config/lxqt/panel.conf",
                   "panels=panel1\n[panel1]\nplugins=statusnotifier\nposition=Bottom\n"
                   "panelSize=" +
                       std::to_string(kHeight_px) +
                       "\niconSize=22\ndesktop=0\n"
                       "[statusnotifier]\nalignment=Left\ntype=statusnotifier\n");
  base_test::write(folder_ + "/config/lxqt/lxqt.conf",
                   "[General]\n__userfile__=true\nicon_theme=Adwaita\n");
}

void Panel::start() {
  panel_.reset();
  panel_ = std::make_unique<ChildProcess>(
      ChildProcess::Command{{"lxqt-panel"}, environment_, folder_ + "/panel.log"});
}

XSessionManager::XSessionManager(const std::string& folder, const Screen& screen)
    : folder_(folder + "/session") {
  // The program that it starts with the session writes down its address.
  const std::string address = folder_ + "/address";
  const std::string tell = folder_ + "/tell";
  base_test::write(tell, "#!/bin/sh\necho \"$SESSION_MANAGER\" >" + address + "\n");
  std::filesystem::permissions(tell, std::filesystem::perms::owner_all);
  base_test::write(folder_ + "/.xsmstartup", tell + "\n");
  manager_ = std::make_unique<ChildProcess>(
      ChildProcess::Command{{"stdbuf", "-oL", "xsm", "-session", "test", "-verbose"},
                            {screen.environment(), "HOME=" + folder_, "SM_SAVE_DIR=" + folder_,
                             "ICEAUTHORITY=" + folder_ + "/.ICEauthority"},
                            folder_ + "/session.log"});
  if (!runUntil([&] { return base_test::contentsOf(address).ends_with('\n'); })) {
    throw std::runtime_error("no session manager: " + log());
  }
  address_ = base_test::contentsOf(address);
  address_.pop_back();
}

std::vector<std::pair<std::string, std::string>> XSessionManager::environment() const {
  return {{"SESSION_MANAGER", address_}, {"ICEAUTHORITY", folder_ + "/.ICEauthority"}};
}

bool XSessionManager::hasClient() const {
  return log().find("received SAVE YOURSELF DONE") != std::string::npos;
}

std::string XSessionManager::log() const {
  return base_test::contentsOf(folder_ + "/session.log");
}

}  // namespace desktop_test
