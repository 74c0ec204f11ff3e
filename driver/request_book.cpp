#include "driver/request_book.h"

#include "driver/loopback_protocol.h"

namespace loopback {

void RequestBook::requestIs(std::uint32_t client, const std::string& request, bool isNews) {
  std::string& known = requests_[client];
  if (known == request) return;
  known = request;
  if (isNews && request == kLoopbackRequestShowText) {
    asking_.insert(client);
  } else {
    asking_.erase(client);
  }
}

void RequestBook::clientGone(std::uint32_t client) {
  requests_.erase(client);
  asking_.erase(client);
}

}  // namespace loopback
