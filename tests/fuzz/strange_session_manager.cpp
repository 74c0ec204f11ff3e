// SPDX-License-Identifier: MIT
#include "tests/fuzz/strange_session_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "tests/fuzz/fuzz_expect.h"

namespace fuzz {
namespace {

// The lower layer: ICE.
constexpr std::uint8_t kIce = 0;
constexpr std::uint8_t kByteOrder = 1;
constexpr std::uint8_t kConnectionReply = 6;
constexpr std::uint8_t kProtocolReply = 8;
// The protocol: XSMP, with this manager's number for it.
constexpr std::uint8_t kSession = 1;
constexpr std::uint8_t kRegisterClientReply = 2;

constexpr std::size_t kHeader_bytes = 8;
constexpr std::size_t kUnit_bytes = 8;
constexpr std::size_t kLongest_units = 64;

std::string fullName(int fd, const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  expect(path.size() < sizeof(address.sun_path), "a short path");
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  expect(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
             listen(fd, 1) == 0,
         "a socket to listen on");
  std::array<char, 256> host{};
  gethostname(host.data(), host.size() - 1);
  return "local/" + std::string(host.data()) + ":" + path;
}

}  // namespace

StrangeSessionManager::StrangeSessionManager(std::vector<Message> messages)
    : messages_(std::move(messages)) {
  std::string folder = "/tmp/record-audio-fuzz-XXXXXX";
  expect(mkdtemp(folder.data()) != nullptr, "a folder");
  folder_ = folder;
  listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  setenv("SESSION_MANAGER", fullName(listener_, folder_ + "/socket").c_str(), 1);
  thread_ = std::thread([this] { serve(); });
}

StrangeSessionManager::~StrangeSessionManager() {
  // Wakes the thread, whatever it waits for.
  shutdown(listener_, SHUT_RDWR);
  if (client_ >= 0) shutdown(client_, SHUT_RDWR);
  thread_.join();
  if (client_ >= 0) close(client_);
  close(listener_);
  unlink((folder_ + "/socket").c_str());
  rmdir(folder_.c_str());
}

void StrangeSessionManager::serve() {
  client_ = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  receive();
  const std::string_view littleEndian("\0\0", 2);
  write(kIce, kByteOrder, littleEndian, {});
  receive();
  reply(kConnectionReply, 0, 0);
  const std::string setup = receive();
  if (!setup.empty()) clientsOpcode_ = static_cast<std::uint8_t>(setup[2]);
  reply(kProtocolReply, 0, kSession);
  receive();
  send(true);
  const std::string_view id("\1\0\0\0a\0\0\0", kUnit_bytes);
  write(clientsOpcode_, kRegisterClientReply, std::string_view("\0\0", 2), id);
  send(false);
  // The client's remaining messages are still read.
  shutdown(client_, SHUT_WR);
  while (!receive().empty()) {
  }
}

std::string StrangeSessionManager::receive() {
  std::string header(kHeader_bytes, '\0');
  if (recv(client_, header.data(), header.size(), MSG_WAITALL) !=
      static_cast<ssize_t>(header.size())) {
    return {};
  }
  std::uint32_t units = 0;
  std::memcpy(&units, header.data() + 4, sizeof(units));
  std::string body(units * kUnit_bytes, '\0');
  if (units > 0) recv(client_, body.data(), body.size(), MSG_WAITALL);
  return header;
}

void StrangeSessionManager::reply(std::uint8_t opcode, std::uint8_t first, std::uint8_t second) {
  const std::array<char, 2> data{static_cast<char>(first), static_cast<char>(second)};
  // Two empty texts: the manager's vendor and release.
  write(kIce, opcode, {data.data(), data.size()}, std::string(kUnit_bytes, '\0'));
}

void StrangeSessionManager::send(bool areEarly) {
  for (const Message& message : messages_) {
    if (message.isEarly != areEarly) continue;
    const std::string_view data =
        message.content.size() >= 2 ? message.content.substr(0, 2) : std::string_view("\0\0", 2);
    write(clientsOpcode_, message.opcode, data, message.content);
  }
}

void StrangeSessionManager::write(std::uint8_t major, std::uint8_t minor, std::string_view data,
                                  std::string_view body) {
  const auto units = static_cast<std::uint32_t>(
      std::min((body.size() + kUnit_bytes - 1) / kUnit_bytes, kLongest_units));
  std::string message;
  message += static_cast<char>(major);
  message += static_cast<char>(minor);
  message += data;
  message.append(reinterpret_cast<const char*>(&units), sizeof(units));
  message += body;
  message.resize(kHeader_bytes + units * kUnit_bytes);
  ::send(client_, message.data(), message.size(), MSG_NOSIGNAL);
}

}  // namespace fuzz
