// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/thread_role.h"

namespace linux_host {

// One compiled gettext catalogue (.mo): texts in UTF-8 by their keys.
using StringTable = std::map<std::string, std::string, std::less<>>;

// The entries of a catalogue; null when `bytes` are not a catalogue or are damaged. Safe for
// arbitrary bytes. Untranslated entries and the header are left out.
std::optional<StringTable> parsedCatalogue(std::string_view bytes);

// The string tables of the user's languages in order of preference, read when the first text is
// needed. English comes last, so that a key that names another system is never shown. Works without
// installed locales. Main thread.
class StringTables {
 public:
  // `folder` contains <language>/LC_MESSAGES/<domain>.mo; `languages` as listed in LANGUAGE.
  StringTables(std::string folder, std::string domain, std::vector<std::string> languages);

  // Null when no table has the key.
  [[nodiscard]] const std::string* lookUp(const std::string& key) const;

  // The language of the texts: that of the first table that was found. "en" without one.
  [[nodiscard]] std::string language() const;

  // The user's languages from LANGUAGE, LC_ALL, LC_MESSAGES and LANG, including variants.
  [[nodiscard]] static std::vector<std::string> usersLanguages();

 private:
  void load() const;

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const std::string folder_;
  const std::string domain_;
  const std::vector<std::string> languages_;
  mutable bool loaded_ = false;
  mutable std::vector<StringTable> tables_;
  mutable std::string language_;
};

}  // namespace linux_host
