// SPDX-License-Identifier: MIT
// For LD_PRELOAD: an MP3 encoder that stalls as long as the file named by RA_HALT_LAME exists, as
// on a computer that is busy with other work.

#include <dlfcn.h>
#include <lame/lame.h>
#include <unistd.h>

#include <cstdlib>

extern "C" [[gnu::visibility("default")]] int lame_encode_buffer_ieee_float(
    lame_t lame, const float* left, const float* right, int samples, unsigned char* output,
    int size_bytes) {
  static const auto encode = reinterpret_cast<decltype(&lame_encode_buffer_ieee_float)>(
      dlsym(RTLD_NEXT, "lame_encode_buffer_ieee_float"));
  const char* halt = std::getenv("RA_HALT_LAME");
  constexpr unsigned kLook_us = 5000;
  while (halt != nullptr && access(halt, F_OK) == 0) usleep(kLook_us);
  return encode(lame, left, right, samples, output, size_bytes);
}
