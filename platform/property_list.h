// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// Property-list values: what settings, usage events, notifications and user-info dictionaries hold.
// Plain value types; any thread, no shared state.

namespace platform {

class Value;
using Array = std::vector<Value>;
using Dictionary = std::map<std::string, Value>;

class Value {
 public:
  using Storage = std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double,
                               std::string, Array, Dictionary>;

  Value() = default;
  Value(bool value) : storage_(value) {}
  Value(int value) : storage_(static_cast<std::int64_t>(value)) {}
  Value(std::int64_t value) : storage_(value) {}
  Value(std::uint64_t value) : storage_(value) {}
  Value(double value) : storage_(value) {}
  Value(const char* value) : storage_(std::string(value)) {}
  Value(std::string_view value) : storage_(std::string(value)) {}
  Value(std::string value) : storage_(std::move(value)) {}
  Value(Array value) : storage_(std::move(value)) {}
  Value(Dictionary value) : storage_(std::move(value)) {}

  [[nodiscard]] const Storage& storage() const { return storage_; }
  [[nodiscard]] bool isNull() const { return std::holds_alternative<std::monostate>(storage_); }

  // The held value of that exact type, or null.
  template <typename T>
  [[nodiscard]] const T* as() const {
    return std::get_if<T>(&storage_);
  }

  friend bool operator==(const Value&, const Value&) = default;

 private:
  Storage storage_;
};

// The platform's lenient conversions, used wherever a stored value is read with a typed accessor.
// They never fail: what cannot be converted reads as 0, false or "absent".

// Numbers are truncated toward zero and saturate; booleans are 0 or 1; strings give their leading
// decimal integer (leading blanks and one sign allowed); all else is 0.
std::int64_t integerValue(const Value& value);

// Numbers: non-zero. Strings: after blanks, sign and zeros, one of Y y T t 1-9. All else: false.
bool boolValue(const Value& value);

// Strings as they stand, numbers as their shortest decimal text, booleans as "1" or "0".
// Returns false and leaves `out` alone for other types.
bool stringValue(const Value& value, std::string* out);

}  // namespace platform
