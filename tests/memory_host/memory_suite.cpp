// SPDX-License-Identifier: MIT
#include "tests/memory_host/memory_suite.h"

namespace memory_host {
namespace {

std::string nameOf(const platform::ImagePtr& image) {
  return image ? image->name : "";
}

std::string formatted(const std::string& format, const std::vector<suite::LogArgument>& arguments) {
  std::string line;
  std::size_t next = 0;
  for (std::size_t i = 0; i < format.size(); ++i) {
    const bool placeholder =
        format[i] == '%' && i + 1 < format.size() && (format[i + 1] == '@' || format[i + 1] == 'd');
    if (!placeholder) {
      line += format[i];
      continue;
    }
    const auto& argument = arguments.at(next++);
    const auto* number = std::get_if<std::int64_t>(&argument);
    line += number != nullptr ? std::to_string(*number) : std::get<std::string>(argument);
    ++i;
  }
  return line;
}

}  // namespace

void MemoryClientProvider::note(const std::string& entry) {
  journal_.push_back(entry);
  timeline_.add(entry);
}

void MemoryClientProvider::setToolStatus(int newStatus) {
  status = newStatus;
  note("status " + std::to_string(newStatus));
}

void MemoryClientProvider::setToolIcon(const platform::ImagePtr& icon) {
  toolIcon = nameOf(icon);
  note("toolIcon " + toolIcon);
}

void MemoryClientProvider::setMenuIcon(const platform::ImagePtr& icon) {
  menuIcon = nameOf(icon);
  note("menuIcon " + menuIcon);
}

void MemoryClientProvider::setMenuText(const std::string& text) {
  menuText = text;
  note("menuText " + text);
}

std::shared_ptr<suite::ToolDataClientProvider> MemorySuite::createToolDataClientProvider() {
  timeline_.add("createToolDataClientProvider");
  providers.push_back(std::make_shared<MemoryClientProvider>(journal, timeline_));
  return providers.back();
}

void MemorySuite::log(const std::string& event,
                      const std::optional<platform::Dictionary>& withPrefs,
                      const std::optional<platform::Dictionary>& withDetails) {
  events.push_back({event, withPrefs, withDetails});
  journal.push_back("event " + event);
  timeline_.add("event " + event);
}

void MemorySuite::VKLogVariadic(const std::string& format,
                                const std::vector<suite::LogArgument>& arguments) {
  logFormats.push_back(format);
  logLines.push_back(formatted(format, arguments));
}

std::vector<std::string> MemorySuite::eventNames() const {
  std::vector<std::string> names;
  for (const Event& event : events) names.push_back(event.name);
  return names;
}

}  // namespace memory_host
