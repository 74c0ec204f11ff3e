// SPDX-License-Identifier: MIT
// Folders from other programs and the user's files: file URLs from the desktop and the file with
// the chosen folders. Arbitrary bytes are refused or give an absolute path.

#include <cstdint>
#include <string>

#include "hosts/linux/base/json_values.h"
#include "hosts/linux/settings_store/suite_storage.h"
#include "platform/file_url.h"
#include "suite/suite.h"
#include "tests/fuzz/fuzz_expect.h"

namespace {

using fuzz::expect;

void tryURL(const std::string& url) {
  const auto path = platform::pathWithFileURL(url);
  if (!path) return;
  expect(path->starts_with('/'), "an absolute path");
  expect(path->find('\0') == std::string::npos || url.find('\0') != std::string::npos,
         "no hidden end of the path");
  const auto again = platform::pathWithFileURL(platform::fileURLWithPath(*path));
  expect(path->find('\0') != std::string::npos || again == path, "the same path again");
}

void tryPath(const std::string& bytes) {
  if (bytes.find('\0') != std::string::npos) return;
  const std::string path = "/" + bytes;
  const std::string url = platform::fileURLWithPath(path);
  expect(url.find_first_of(" \n\"<>#?") == std::string::npos, "a URL of plain characters");
  expect(platform::pathWithFileURL(url) == path, "the path that the URL was made of");
}

void tryFile(const std::string& bytes) {
  const auto locations = linux_host::parsedJsonObject(bytes);
  if (!locations) return;
  const auto folder = linux_host::folderIn(*locations, suite::kToolIdentifier);
  if (!folder) return;
  expect(folder->starts_with('/'), "an absolute folder");
  expect(folder->size() == 1 || !folder->ends_with('/'), "a folder without a slash at its end");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size_bytes) {
  const std::string bytes(reinterpret_cast<const char*>(input), size_bytes);
  tryURL(bytes);
  tryURL("file://" + bytes);
  tryPath(bytes);
  tryFile(bytes);
  tryFile("{\"" + std::string(suite::kToolIdentifier) + "\": " + bytes + "}");
  return 0;
}
