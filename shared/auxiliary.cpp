// SPDX-License-Identifier: MIT
#include "shared/auxiliary.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "shared/file_name.h"

namespace record_audio {
namespace {

using platform::AuthorizationStatus;
using platform::Dictionary;
using platform::Host;
using platform::MediaType;
using platform::Value;

constexpr std::string_view kCameraBlockMarker =
    "Library/Application Support/com.vantrel.korvel.disablecamera";

double millisecondsPerTick(const Host& host) {
  const platform::TimebaseInfo timebase = host.hostClock.timebaseInfo();
  return timebase.numerator / (timebase.denominator * 1'000'000.0);
}

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

// Where the last component begins in a path without trailing slashes; 0 if it is the only one.
std::size_t nameStart(const std::string& path) {
  static_assert(std::string::npos + 1 == 0);
  return path.rfind('/') + 1;
}

std::string lastPathComponent(const std::string& path) {
  const std::string trimmed = withoutTrailingSlashes(path);
  return trimmed == "/" ? trimmed : trimmed.substr(nameStart(trimmed));
}

std::string appendingPathComponent(const std::string& folder, std::string_view component) {
  std::string path = withoutTrailingSlashes(folder);
  if (path.empty() || path.back() != '/') path += '/';
  return path.append(component);
}

// A leading dot belongs to the name and does not begin an extension.
std::string deletingPathExtension(const std::string& path) {
  const std::string trimmed = withoutTrailingSlashes(path);
  const auto dot = trimmed.rfind('.');
  return dot <= nameStart(trimmed) ? trimmed : trimmed.substr(0, dot);
}

std::optional<Value> valueForKey(const Dictionary& dictionary, const std::string& key) {
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? std::nullopt : std::optional(found->second);
}

std::optional<Dictionary> dictionaryForKey(const Dictionary& dictionary, const std::string& key) {
  const auto value = valueForKey(dictionary, key);
  const auto* entries = value ? value->as<Dictionary>() : nullptr;
  return entries != nullptr ? std::optional(*entries) : std::nullopt;
}

// Null: the bundle does not allow a mirror.
std::optional<std::string> quickLookSlotName(const Host& host) {
  const auto info = host.mainBundle.infoDictionary();
  if (!info) return std::nullopt;
  const auto capabilities = dictionaryForKey(*info, "ToolCapabilities");
  if (!capabilities) return std::nullopt;
  const auto copyable = valueForKey(*capabilities, "Copyable");
  if (!copyable) return std::nullopt;
  if (!platform::boolValue(*copyable)) return "Uncopyable";
  return lastPathComponent(host.mainBundle.bundlePath());
}

std::uint64_t fnv1a(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325U;
  for (const char character : text) {
    hash ^= static_cast<unsigned char>(character);
    hash *= 0x100000001b3U;
  }
  return hash;
}

}  // namespace

std::int64_t Auxiliary::tickToMsecs(const Host& host, std::int64_t ticks) {
  static const double factor = millisecondsPerTick(host);
  return static_cast<std::int64_t>(static_cast<double>(ticks) * factor);
}

bool Auxiliary::launchedWithArgument(const Host& host, const std::string& argument) {
  const auto arguments = host.processInfo.arguments();
  return std::find(arguments.begin(), arguments.end(), argument) != arguments.end();
}

bool Auxiliary::launchedWithPreferences(const Host& host) {
  return launchedWithArgument(host, "--preferences");
}

bool Auxiliary::preferencesModeActive(const Host& host) {
  return launchedWithPreferences(host);
}

std::optional<Dictionary> Auxiliary::getQuickLookParametersFromDefaults(const Host& host) {
  const auto slot = quickLookSlotName(host);
  if (!slot) return std::nullopt;
  const auto slots = host.userDefaults.dictionaryForKey(kQuickLookKey);
  return slots ? dictionaryForKey(*slots, *slot) : std::nullopt;
}

void Auxiliary::writeQuickLookParametersToDefaults(const Host& host, const Dictionary& parameters) {
  const auto slot = quickLookSlotName(host);
  if (!slot) return;
  Dictionary slots = host.userDefaults.dictionaryForKey(kQuickLookKey).value_or(Dictionary());
  slots[*slot] = parameters;
  host.userDefaults.setObject(std::move(slots), kQuickLookKey);
  host.userDefaults.synchronize();
}

void Auxiliary::setQuickLookParametersObject(const Host& host, const Value& object,
                                             const std::string& forKey) {
  Dictionary parameters = getQuickLookParametersFromDefaults(host).value_or(Dictionary());
  parameters[forKey] = object;
  writeQuickLookParametersToDefaults(host, parameters);
}

std::string Auxiliary::getFilenameWithDateTime(const Host& host, platform::Date date) {
  const std::string day = host.dateFormatter.stringFromDate(date, "yyyy-MM-dd");
  const std::string word = host.mainBundle.localizedString("at");
  const std::string time = host.dateFormatter.localizedMediumTime(date);
  return fitForFileName(day + " " + word + " " + time, '.');
}

void Auxiliary::setIcon(const Host& host, const platform::ImagePtr& icon,
                        const std::string& forFile) {
  if (deletingPathExtension(forFile).find(".app") != std::string::npos) return;
  host.workspace.setIcon(icon, forFile, 0);
}

std::optional<std::string> Auxiliary::getLocalizedAppName(const Host& host) {
  const auto info = host.mainBundle.localizedInfoDictionary();
  const auto name = info ? valueForKey(*info, "CFBundleName") : std::nullopt;
  std::string text;
  if (!name || !platform::stringValue(*name, &text)) return std::nullopt;
  return text;
}

bool Auxiliary::getStatusOfMediaType(const Host& host, MediaType type) {
  return !host.capture.respondsToAuthorizationStatus() ||
         host.capture.authorizationStatusForMediaType(type) == AuthorizationStatus::kAuthorized;
}

bool Auxiliary::isStatusOfMediaTypeDetermind(const Host& host, MediaType type) {
  return !host.capture.respondsToAuthorizationStatus() ||
         host.capture.authorizationStatusForMediaType(type) != AuthorizationStatus::kNotDetermined;
}

void Auxiliary::requestRightsForMediaType(const Host& host, MediaType type,
                                          std::function<void(bool)> completionHandler) {
  if (host.capture.authorizationStatusForMediaType(type) != AuthorizationStatus::kNotDetermined) {
    return;
  }
  host.capture.requestAccessForMediaType(type, std::move(completionHandler));
}

bool Auxiliary::isCameraBlocked(const Host& host) {
  const auto home = host.userAccount.homeDirectory();
  return home && host.userAccount.accessExists(appendingPathComponent(*home, kCameraBlockMarker));
}

std::string stringWithAppHash(const Host& host, const std::string& string) {
  const std::string folder = lastPathComponent(host.mainBundle.bundlePath());
  return string + "_" + std::to_string(fnv1a(folder));
}

}  // namespace record_audio
