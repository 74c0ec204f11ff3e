// SPDX-License-Identifier: MIT
// Records a tone for the test that kills this process: m4a_kill_child FILE PROGRESS MODULE_FOLDER.
// After every piece it writes the number of frames recorded so far to PROGRESS as eight bytes.

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "hosts/linux/m4a/m4a_open_file.h"
#include "hosts/linux/m4a/m4a_writer_factory.h"
#include "tests/m4a/tone.h"

namespace {

int fail(const std::string& error) {
  std::fprintf(stderr, "m4a_kill_child: %s\n", error.c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace linux_host;
  if (argc != 4) return fail("FILE PROGRESS MODULE_FOLDER");
  OpenFiles files;
  M4aWriterFactory factory(nullptr, {argv[3]});
  factory.loadInBackground();
  const auto file = files.open(argv[1], OpenFiles::Mode::kCreateNew);
  if (!file) return fail(file.error());
  const auto made = factory.createWriter();
  if (!made) return fail(made.error());
  M4aWriter& writer = **made;
  const int progress = open(argv[2], O_WRONLY | O_CLOEXEC);
  if (progress < 0) return fail("cannot report progress");

  const test::Format format{48000, 2, 256000};
  Status status = writer.open(m4aSinkFor(*file), test::m4aFormat(format));
  test::Tone tone(format);
  constexpr std::uint32_t kPiece_frames = 480;
  for (std::uint64_t fed = kPiece_frames; status; fed += kPiece_frames) {
    status = writer.write(tone.next(kPiece_frames), kPiece_frames);
    if (write(progress, &fed, sizeof(fed)) != sizeof(fed)) return fail("nobody listens");
  }
  return fail(status.error());
}
