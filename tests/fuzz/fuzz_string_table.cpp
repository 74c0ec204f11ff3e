// SPDX-License-Identifier: MIT
// Arbitrary bytes as a compiled string table: they are refused, or give texts that can be shown.

#include <glib.h>

#include <cstdint>
#include <string_view>

#include "hosts/linux/base/string_table.h"
#include "tests/fuzz/fuzz_expect.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size_bytes) {
  const std::string_view bytes(reinterpret_cast<const char*>(input), size_bytes);
  const auto table = linux_host::parsedCatalogue(bytes);
  if (!table) return 0;
  std::size_t texts_bytes = 0;
  for (const auto& [key, text] : *table) {
    fuzz::expect(!key.empty() && !text.empty(), "a key and a text");
    fuzz::expect(g_utf8_validate_len(text.data(), text.size(), nullptr) != FALSE, "UTF-8");
    texts_bytes += key.size() + text.size();
  }
  fuzz::expect(texts_bytes <= size_bytes, "no more text than the file has");
  return 0;
}
