// SPDX-License-Identifier: MIT
#pragma once

#include <cassert>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

// How a function says that it failed: it returns what was asked for, or why there is none. The
// shape is that of C++23's std::expected, which is to take its place.
//
//   Expected<int> parsed(const std::string& text) {
//     if (text.empty()) return Unexpected("There is no number.");
//     return std::stoi(text);
//   }
//   if (const auto number = parsed(text)) use(*number); else show(number.error());

namespace linux_host {

// The reason, to be returned in place of a value. A text says what happened, to what, and what to
// do.
template <typename Error = std::string>
class Unexpected {
 public:
  explicit Unexpected(Error error) : error_(std::move(error)) {}
  Error& error() { return error_; }

 private:
  Error error_;
};
Unexpected(const char*)->Unexpected<std::string>;

template <typename Value, typename Error = std::string>
class [[nodiscard]] Expected {
 public:
  // A value, or what one is made of.
  template <typename Like = Value>
  requires(!std::is_same_v<std::remove_cvref_t<Like>, Expected> &&
           std::is_convertible_v<Like, Value>) Expected(Like&& value)
      : either_(std::in_place_index<0>, std::forward<Like>(value)) {}
  template <typename Like>
  Expected(Unexpected<Like> unexpected)
      : either_(std::in_place_index<1>, std::move(unexpected.error())) {}

  [[nodiscard]] bool has_value() const { return either_.index() == 0; }
  explicit operator bool() const { return has_value(); }
  // Only with a value.
  Value& operator*() & { return std::get<0>(either_); }
  const Value& operator*() const& { return std::get<0>(either_); }
  Value&& operator*() && { return std::get<0>(std::move(either_)); }
  Value* operator->() { return &std::get<0>(either_); }
  const Value* operator->() const { return &std::get<0>(either_); }
  // Only without one.
  [[nodiscard]] const Error& error() const { return std::get<1>(either_); }

 private:
  std::variant<Value, Error> either_;
};

// Of a function that has nothing to return but that it failed.
template <typename Error>
class [[nodiscard]] Expected<void, Error> {
 public:
  Expected() = default;
  template <typename Like>
  Expected(Unexpected<Like> unexpected) : error_(std::move(unexpected.error())), hasFailed_(true) {}

  [[nodiscard]] bool has_value() const { return !hasFailed_; }
  explicit operator bool() const { return has_value(); }
  [[nodiscard]] const Error& error() const {
    assert(hasFailed_);
    return error_;
  }

 private:
  Error error_{};
  bool hasFailed_ = false;
};

using Status = Expected<void>;

}  // namespace linux_host
