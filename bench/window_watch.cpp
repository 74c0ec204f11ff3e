// SPDX-License-Identifier: MIT
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

// window-watch COMMAND [ARGUMENT...]
//
// Starts a program on an X server without a window manager, and prints the milliseconds until its
// first window is drawn, and its process id. The time is from before its exec. Then it reads
// commands from its standard input and answers each with "ok": "cover" puts a window in front of
// all others, "uncover" takes it away. At the end of its input it ends the program.

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFailed = 1;
constexpr unsigned kLimit_s = 60;
constexpr int kPoll_us = 500;
// A menu's or a tool tip's size does not count as a window.
constexpr std::uint16_t kLeastSize = 50;

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};
template <typename Reply>
using Answer = std::unique_ptr<Reply, Free>;

class Screen {
 public:
  Screen() : server_(xcb_connect(nullptr, nullptr)) {
    if (xcb_connection_has_error(server_) != 0) {
      std::cerr << "window-watch: there is no X server\n";
      std::exit(kFailed);
    }
    root_ = xcb_setup_roots_iterator(xcb_get_setup(server_)).data;
    const std::uint32_t events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(server_, root_->root, XCB_CW_EVENT_MASK, &events);
    makeCover();
    xcb_flush(server_);
  }
  ~Screen() { xcb_disconnect(server_); }
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  // The next window of a program that comes onto the screen.
  xcb_window_t awaitWindow() {
    for (;;) {
      const Answer<xcb_generic_event_t> event(xcb_wait_for_event(server_));
      if (event == nullptr) std::exit(kFailed);
      if ((event->response_type & 0x7F) != XCB_MAP_NOTIFY) continue;
      const auto* map = reinterpret_cast<const xcb_map_notify_event_t*>(event.get());
      if (map->override_redirect != 0 || map->event != root_->root) continue;
      const Answer<xcb_get_geometry_reply_t> size(geometry(map->window));
      if (size != nullptr && size->width >= kLeastSize && size->height >= kLeastSize) {
        return map->window;
      }
    }
  }

  // Until it is drawn, a window without a background shows the black screen behind it.
  void awaitDrawing(xcb_window_t window) {
    while (!isDrawn(window)) usleep(kPoll_us);
  }

  void setCovered(bool isCovered) {
    if (isCovered) {
      const std::uint32_t above = XCB_STACK_MODE_ABOVE;
      xcb_configure_window(server_, cover_, XCB_CONFIG_WINDOW_STACK_MODE, &above);
      xcb_map_window(server_, cover_);
    } else {
      xcb_unmap_window(server_, cover_);
    }
    // Has happened when this is answered.
    Answer<xcb_get_geometry_reply_t>(geometry(cover_)).reset();
  }

 private:
  xcb_get_geometry_reply_t* geometry(xcb_window_t window) {
    return xcb_get_geometry_reply(server_, xcb_get_geometry(server_, window), nullptr);
  }

  void makeCover() {
    cover_ = xcb_generate_id(server_);
    const std::uint32_t values[] = {root_->white_pixel, 1};
    xcb_create_window(server_, XCB_COPY_FROM_PARENT, cover_, root_->root, 0, 0,
                      root_->width_in_pixels, root_->height_in_pixels, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, root_->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
  }

  // Whether most of the window's left edge is no longer black; letters are not there.
  bool isDrawn(xcb_window_t window) {
    const Answer<xcb_get_geometry_reply_t> size(geometry(window));
    if (size == nullptr) return false;
    constexpr std::int16_t kFromEdge = 4;
    const std::uint16_t height = size->height;
    const Answer<xcb_get_image_reply_t> image(xcb_get_image_reply(
        server_,
        xcb_get_image(server_, XCB_IMAGE_FORMAT_Z_PIXMAP, window, kFromEdge, 0, 1, height, ~0U),
        nullptr));
    if (image == nullptr) return false;
    const std::uint8_t* bytes = xcb_get_image_data(image.get());
    constexpr int kBytesPerPixel = 4;
    int drawn = 0;
    for (int y = 0; y < height; ++y) {
      const std::uint8_t* pixel = bytes + y * kBytesPerPixel;
      if (pixel[0] != 0 || pixel[1] != 0 || pixel[2] != 0) ++drawn;
    }
    return drawn > height / 2;
  }

  xcb_connection_t* const server_;
  xcb_screen_t* root_ = nullptr;
  xcb_window_t cover_ = XCB_NONE;
};

void endProgram(pid_t pid) {
  while (waitpid(pid, nullptr, WNOHANG) == 0) {
    kill(pid, SIGTERM);
    usleep(20000);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: window-watch COMMAND [ARGUMENT...]\n";
    return 2;
  }
  Screen screen;
  std::signal(SIGALRM, [](int) { _exit(kFailed); });
  alarm(kLimit_s);
  const auto begin = Clock::now();
  pid_t pid = -1;
  if (posix_spawnp(&pid, argv[1], nullptr, nullptr, argv + 1, environ) != 0) {
    std::perror(argv[1]);
    return kFailed;
  }
  screen.awaitDrawing(screen.awaitWindow());
  const double elapsed_ms = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
  alarm(0);
  std::printf("%.2f %d\n", elapsed_ms, pid);
  std::fflush(stdout);
  for (std::string line; std::getline(std::cin, line);) {
    screen.setCovered(line == "cover");
    std::cout << "ok" << std::endl;
  }
  endProgram(pid);
  return 0;
}
