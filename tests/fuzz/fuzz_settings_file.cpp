// SPDX-License-Identifier: MIT
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "hosts/linux/base/json_values.h"

// Arbitrary bytes as a settings file: they are refused with a reason, or read through every
// conversion and written again with the same values.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size_bytes) {
  const std::string_view bytes(reinterpret_cast<const char*>(input), size_bytes);
  const auto object = linux_host::parsedJsonObject(bytes);
  if (!object) {
    if (object.error().empty()) std::abort();
    return 0;
  }
  for (const auto& [key, json] : object->items()) {
    const platform::Value value = linux_host::valueOf(json);
    std::string text;
    platform::integerValue(value);
    platform::boolValue(value);
    platform::stringValue(value, &text);
  }
  const auto again = linux_host::parsedJsonObject(linux_host::jsonText(*object));
  if (!again || linux_host::valueOf(*again) != linux_host::valueOf(*object)) std::abort();
  return 0;
}
