// SPDX-License-Identifier: MIT
#include <atomic>
#include <cstdarg>
#include <string>

#include "hosts/linux/m4a/libav_m4a_writer.h"

extern "C" {
#include <libavutil/log.h>
}

namespace linux_host {

namespace {

std::atomic<M4aLog> logLine{nullptr};

// libavcodec logs lines in pieces; an incomplete line is kept for the next call.
void logFromLibav(void* source, int level, const char* format, va_list arguments) {
  if (level > av_log_get_level()) return;
  thread_local int atLineStart = 1;
  thread_local std::string line;
  char piece[512];
  av_log_format_line2(source, level, format, arguments, piece, sizeof(piece), &atLineStart);
  line += piece;
  if (line.empty() || line.back() != '\n') return;
  line.pop_back();
  if (const M4aLog log = logLine.load(std::memory_order_acquire)) log(line.c_str());
  line.clear();
}

}  // namespace

}  // namespace linux_host

extern "C" __attribute__((visibility("default"))) linux_host::M4aWriter* recordAudioM4aWriter(
    std::uint32_t interfaceVersion, linux_host::M4aLog log) {
  if (interfaceVersion != linux_host::kM4aInterfaceVersion) return nullptr;
  linux_host::logLine.store(log, std::memory_order_release);
  av_log_set_level(AV_LOG_WARNING);
  av_log_set_callback(&linux_host::logFromLibav);
  return new linux_host::LibavM4aWriter;
}
