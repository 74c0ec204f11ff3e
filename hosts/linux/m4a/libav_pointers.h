// SPDX-License-Identifier: MIT
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswresample/swresample.h>
}

#include <memory>
#include <string>

namespace linux_host {

struct LibavDeleter {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(SwrContext* context) const { swr_free(&context); }
};

template <typename T>
using LibavPointer = std::unique_ptr<T, LibavDeleter>;

inline std::string libavErrorText(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof(text));
  return text;
}

}  // namespace linux_host
