// SPDX-License-Identifier: MIT
#include "suite/embedded_suite.h"

#include <cstdio>
#include <utility>

namespace suite {
namespace {

std::string text(const LogArgument& argument) {
  if (const auto* string = std::get_if<std::string>(&argument)) return *string;
  return std::to_string(std::get<std::int64_t>(argument));
}

std::string nameOf(const platform::ImagePtr& image) {
  return image == nullptr ? std::string() : image->name;
}

}  // namespace

// All providers stand for the same one tool.
class EmbeddedSuite::Provider : public ToolDataClientProvider {
 public:
  explicit Provider(EmbeddedSuite& suite) : suite_(suite) {}

  void setToolStatus(int status) override {
    change([&](ToolData& data) { data.toolStatus = status; });
  }
  void setToolIcon(const platform::ImagePtr& icon) override {
    change([&](ToolData& data) { data.toolIcon = nameOf(icon); });
  }
  void setMenuIcon(const platform::ImagePtr& icon) override {
    change([&](ToolData& data) { data.menuIcon = nameOf(icon); });
  }
  void setMenuText(const std::string& menuText) override {
    change([&](ToolData& data) { data.menuText = menuText; });
  }

 private:
  template <typename Change>
  void change(Change apply) {
    ToolData data = suite_.toolData();
    apply(data);
    suite_.change(data);
  }

  EmbeddedSuite& suite_;
};

EmbeddedSuite::EmbeddedSuite(Storage& storage, const platform::WallClock& wallClock)
    : storage_(storage), wallClock_(wallClock) {}

std::shared_ptr<ToolDataClientProvider> EmbeddedSuite::createToolDataClientProvider() {
  mainThread_.assertHeld();
  return std::make_shared<Provider>(*this);
}

void EmbeddedSuite::change(const ToolData& data) {
  mainThread_.assertHeld();
  if (data == data_) return;
  data_ = data;
  for (ToolDataObserver* observer : observers_) observer->toolDataDidChange(data_);
}

void EmbeddedSuite::log(const std::string& event,
                        const std::optional<platform::Dictionary>& withPrefs,
                        const std::optional<platform::Dictionary>& withDetails) {
  mainThread_.assertHeld();
  storage_.appendEvent({iso8601(wallClock_.now()), kToolIdentifier, event, withPrefs, withDetails});
}

std::optional<std::string> EmbeddedSuite::locationForCurrentTool() {
  mainThread_.assertHeld();
  return storage_.outputFolder(kToolIdentifier);
}

void EmbeddedSuite::VKLogVariadic(const std::string& format,
                                  const std::vector<LogArgument>& arguments) {
  storage_.writeLog(formattedLogLine(format, arguments));
}

bool EmbeddedSuite::VKIsExtendedLoggingOn() const {
  return storage_.isExtendedLoggingOn();
}

std::string formattedLogLine(const std::string& format, const std::vector<LogArgument>& arguments) {
  std::string line;
  auto next = arguments.begin();
  for (std::size_t i = 0; i < format.size(); ++i) {
    // What follows the last character is a NUL.
    const char kind = format[i] == '%' ? format[i + 1] : '\0';
    if (kind == '%') {
      line += '%';
      ++i;
    } else if ((kind == '@' || kind == 'd') && next != arguments.end()) {
      line += text(*next++);
      ++i;
    } else {
      line += format[i];
    }
  }
  return line;
}

std::string iso8601(platform::Date date) {
  using namespace std::chrono;
  const auto day = floor<days>(date);
  const year_month_day calendar(day);
  const hh_mm_ss time(floor<milliseconds>(date - day));
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ",
                static_cast<int>(calendar.year()), static_cast<unsigned>(calendar.month()),
                static_cast<unsigned>(calendar.day()), static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
                static_cast<int>(time.subseconds().count()));
  return buffer;
}

}  // namespace suite
