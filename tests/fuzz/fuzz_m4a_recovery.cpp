// SPDX-License-Identifier: MIT
// The recovery of interrupted m4a files, with arbitrary bytes: it terminates, leaves foreign files
// alone, and a file that it completed is complete.

#include <cstdint>
#include <memory>

#include "tests/fuzz/fuzz_expect.h"
#include "tests/m4a/memory_sink.h"

namespace {

using fuzz::expect;
using linux_host::M4aRecovery;
using linux_host::test::MemoryFile;
using linux_host::test::MemorySink;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size_bytes) {
  const auto* first = reinterpret_cast<const std::byte*>(input);
  const auto file = std::make_shared<MemoryFile>();
  file->bytes.assign(first, first + size_bytes);
  const auto before = file->bytes;
  MemorySink sink(file);
  const auto report = recoverInterruptedM4a(sink);
  expect(report.has_value(), "no failure without a fault of the file");
  if (report->outcome != M4aRecovery::Outcome::completed) {
    expect(file->bytes == before, "a file as it was when it is not completed");
    return 0;
  }
  expect(report->frames <= 1024 * size_bytes, "no more sound than the file can hold");
  const auto again = recoverInterruptedM4a(sink);
  expect(again && again->outcome == M4aRecovery::Outcome::alreadyComplete,
         "a complete file afterwards");
  return 0;
}
