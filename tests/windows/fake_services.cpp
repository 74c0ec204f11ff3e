// SPDX-License-Identifier: MIT
#include "tests/windows/fake_services.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace linux_host {
namespace {

constexpr const char* kDomain = "com.vantrel.korvel.RecordAudio";

}  // namespace

FakeServices::FakeServices() : complete_(RA_BUILT_LOCALES, kDomain, {"de"}) {
  speak(languageAtStart());
}

std::string FakeServices::localizedString(const std::string& key) const {
  const std::string* found = table_->lookUp(key);
  EXPECT_NE(complete_.lookUp(key), nullptr) << "no string table has \"" << key << '"';
  return found != nullptr ? *found : key;
}

std::string FakeServices::setOutputLocation(const std::string& path) {
  asked.push_back(path);
  if (refusal.empty()) folder = path;
  return refusal;
}

void FakeServices::chooseFolder(const std::string& parentWindow, const std::string&,
                                const std::string& opened, std::function<void(FolderChoice)> done) {
  dialogParent = parentWindow;
  if (desktopChooser) {
    desktopChooser(opened, done);
  } else {
    done({});
  }
}

void FakeServices::speak(const std::string& language) {
  table_ = std::make_unique<StringTables>(RA_BUILT_LOCALES, kDomain, std::vector{language});
}

void FakeServices::reset() {
  folder = "/home/somebody/Music";
  refusal.clear();
  asked.clear();
  desktopChooser = nullptr;
  shortcutChoices.clear();
  changeShortcut({});
  changeAppearance({});
  speak("en");
}

std::vector<std::string> languages() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(RA_BUILT_LOCALES)) {
    names.push_back(entry.path().filename());
  }
  return names;
}

bool isWrittenFromRightToLeft(const std::string& language) {
  return language == "ar" || language == "fa" || language == "he";
}

std::string languageAtStart() {
  const char* language = std::getenv("RA_WINDOWS_LANGUAGE");
  return language != nullptr ? language : "en";
}

}  // namespace linux_host
