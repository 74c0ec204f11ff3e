// SPDX-License-Identifier: MIT
#include "driver/request_book.h"

#include "driver/loopback_protocol.h"

namespace loopback {

void RequestBook::requestIs(std::uint32_t client, const Request& request, bool isNews) {
  Request& known = requests_[client];
  if (known == request) return;
  known = request;
  if (isNews && request.value == kLoopbackRequestShowText) {
    asking_.insert(client);
  } else {
    asking_.erase(client);
  }
}

void RequestBook::clientGone(std::uint32_t client) {
  requests_.erase(client);
  asking_.erase(client);
}

std::string RequestBook::askers() const {
  std::string text;
  if (!isClosed_) {
    for (const std::uint32_t client : asking_) {
      text += (text.empty() ? "" : " ") + grantOf(client, requests_.at(client).number);
    }
  }
  return text.empty() ? kLoopbackNoneGranted : text;
}

std::string grantOf(std::uint32_t client, const std::string& number) {
  const bool isNumber = !number.empty() && number.size() <= 20 &&
                        number.find_first_not_of("0123456789") == std::string::npos;
  return std::to_string(client) + (isNumber ? ":" + number : "");
}

}  // namespace loopback
