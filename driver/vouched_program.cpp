// SPDX-License-Identifier: MIT
#include "driver/vouched_program.h"

#include <pipewire/keys.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <utility>

namespace loopback {
namespace {

constexpr char kOwnProgram[] = "/proc/self/exe";
// The kernel appends this to the name of a file that has been removed or replaced.
constexpr std::string_view kDeleted = " (deleted)";

template <typename Number>
std::optional<Number> numberIn(const spa_dict& properties, const char* key) {
  const char* text = spa_dict_lookup(&properties, key);
  if (text == nullptr) return std::nullopt;
  const char* const textEnd = text + std::strlen(text);
  Number number{};
  const auto [end, error] = std::from_chars(text, textEnd, number);
  if (error != std::errc() || end != textEnd) return std::nullopt;
  return number;
}

// Empty if the link cannot be read.
std::string pathBehind(const std::string& link) {
  std::error_code failed;
  std::string path = std::filesystem::read_symlink(link, failed).string();
  if (path.ends_with(kDeleted)) path.resize(path.size() - kDeleted.size());
  return path;
}

// In a mount namespace of their own, other users could put their program at any path.
bool isNobodyElses(const struct stat& file) {
  const bool isOurs = file.st_uid == 0 || file.st_uid == geteuid();
  return isOurs && (file.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace

VouchedProgram::VouchedProgram(std::string path) : path_(std::move(path)) {}

VouchedProgram VouchedProgram::ownProgram() {
  return VouchedProgram(pathBehind(kOwnProgram));
}

bool VouchedProgram::isRunBy(const spa_dict& clientProperties) const {
  const auto process = processOfClient(clientProperties);
  return process && isRunBy(*process);
}

bool VouchedProgram::isRunBy(pid_t process) const {
  const std::string link = "/proc/" + std::to_string(process) + "/exe";
  struct stat run {};
  struct stat expected {};
  if (stat(link.c_str(), &run) != 0) return false;
  const bool isThatFile =
      stat(path_.c_str(), &expected) == 0 &&
      std::pair(run.st_dev, run.st_ino) == std::pair(expected.st_dev, expected.st_ino);
  return isThatFile || (isNobodyElses(run) && pathBehind(link) == path_);
}

std::optional<pid_t> processOfClient(const spa_dict& clientProperties) {
  const auto process = numberIn<pid_t>(clientProperties, PW_KEY_SEC_PID);
  const auto user = numberIn<uid_t>(clientProperties, PW_KEY_SEC_UID);
  if (!process || *process <= 0 || user != geteuid()) return std::nullopt;
  return process;
}

}  // namespace loopback
