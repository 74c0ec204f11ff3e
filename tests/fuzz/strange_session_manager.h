// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace fuzz {

// A session manager that speaks just enough XSMP to accept one client. It sends complete messages,
// with any content, and hangs up.
class StrangeSessionManager {
 public:
  struct Message {
    std::uint8_t opcode = 0;
    std::string_view content;  // cut and filled up to whole units of eight bytes
    bool isEarly = false;      // before the client is accepted
  };

  // Announces itself in SESSION_MANAGER. The messages' content outlives it.
  explicit StrangeSessionManager(std::vector<Message> messages);
  // Ends the conversation.
  ~StrangeSessionManager();
  StrangeSessionManager(const StrangeSessionManager&) = delete;
  StrangeSessionManager& operator=(const StrangeSessionManager&) = delete;

 private:
  void serve();
  // The header without the length; empty when the client is gone.
  std::string receive();
  void reply(std::uint8_t opcode, std::uint8_t first, std::uint8_t second);
  void send(bool areEarly);
  void write(std::uint8_t major, std::uint8_t minor, std::string_view data, std::string_view body);

  const std::vector<Message> messages_;
  std::string folder_;
  int listener_ = -1;
  std::atomic<int> client_ = -1;
  std::uint8_t clientsOpcode_ = 0;  // the client's number for the protocol
  std::thread thread_;
};

}  // namespace fuzz
