// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace base_test {

// A folder that is removed with the object.
class TemporaryFolder {
 public:
  explicit TemporaryFolder(
      const std::filesystem::path& parent = std::filesystem::temp_directory_path()) {
    std::string name = (parent / "record-audio-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Sets variables for its lifetime; null unsets.
class Environment {
 public:
  using Variable = std::pair<std::string, std::optional<std::string>>;
  Environment(std::initializer_list<Variable> variables) {
    for (const auto& [name, value] : variables) {
      const char* old = std::getenv(name.c_str());
      before_.emplace_back(name, old == nullptr ? std::nullopt : std::optional<std::string>(old));
      set(name, value);
    }
  }
  ~Environment() {
    for (const auto& [name, value] : before_) set(name, value);
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  static void set(const std::string& name, const std::optional<std::string>& value) {
    if (value) {
      setenv(name.c_str(), value->c_str(), 1);
    } else {
      unsetenv(name.c_str());
    }
  }
  std::vector<Variable> before_;
};

inline std::string contentsOf(const std::string& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

inline void write(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

// The names in a folder, sorted.
inline std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace base_test
