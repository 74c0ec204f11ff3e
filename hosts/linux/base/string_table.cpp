// SPDX-License-Identifier: MIT
#include "hosts/linux/base/string_table.h"

#include <glib.h>

#include <cstdint>

#include "hosts/linux/base/log.h"
#include "hosts/linux/base/small_files.h"

namespace linux_host {
namespace {

constexpr std::uint32_t kMagic = 0x950412DE;
constexpr std::uint32_t kMagicSwapped = 0xDE120495;
constexpr const char* kLastLanguage = "en";

// Numbers in a catalogue are 32-bit words in the byte order of the machine that compiled it.
class Catalogue {
 public:
  explicit Catalogue(std::string_view bytes) : bytes_(bytes) {}

  [[nodiscard]] bool isValid() {
    const auto magic = word(0);
    if (!magic) return false;
    swapped_ = *magic == kMagicSwapped;
    return swapped_ || *magic == kMagic;
  }

  [[nodiscard]] std::optional<std::uint32_t> word(std::size_t offset) const {
    if (bytes_.size() < 4 || offset > bytes_.size() - 4) return std::nullopt;
    std::uint32_t value = 0;
    bytes_.copy(reinterpret_cast<char*>(&value), sizeof value, offset);
    return swapped_ ? GUINT32_SWAP_LE_BE(value) : value;
  }

  // The text that the (length, offset) pair at `entry` describes.
  [[nodiscard]] std::optional<std::string_view> text(std::size_t entry) const {
    const auto length = word(entry);
    const auto offset = word(entry + 4);
    if (!length || !offset || *offset > bytes_.size() || *length > bytes_.size() - *offset) {
      return std::nullopt;
    }
    return bytes_.substr(*offset, *length);
  }

 private:
  const std::string_view bytes_;
  bool swapped_ = false;
};

}  // namespace

std::optional<StringTable> parsedCatalogue(std::string_view bytes) {
  Catalogue catalogue(bytes);
  if (!catalogue.isValid()) return std::nullopt;
  const auto count = catalogue.word(8);
  const auto keys = catalogue.word(12);
  const auto texts = catalogue.word(16);
  if (!count || !keys || !texts || *count > bytes.size() / 16) return std::nullopt;
  StringTable table;
  std::size_t used_bytes = 0;
  for (std::size_t i = 0; i < *count; ++i) {
    const auto key = catalogue.text(*keys + i * 8);
    const auto text = catalogue.text(*texts + i * 8);
    if (!key || !text) return std::nullopt;
    // Overlapping texts in a small file could fill the memory.
    used_bytes += key->size() + text->size();
    if (used_bytes > bytes.size()) return std::nullopt;
    if (!key->empty() && !text->empty() &&
        g_utf8_validate_len(text->data(), text->size(), nullptr)) {
      table.emplace(*key, *text);
    }
  }
  return table;
}

StringTables::StringTables(std::string folder, std::string domain,
                           std::vector<std::string> languages)
    : folder_(std::move(folder)), domain_(std::move(domain)), languages_(std::move(languages)) {}

const std::string* StringTables::lookUp(const std::string& key) const {
  mainThread_.assertHeld();
  if (!loaded_) load();
  for (const StringTable& table : tables_) {
    if (const auto found = table.find(key); found != table.end()) return &found->second;
  }
  return nullptr;
}

std::string StringTables::language() const {
  if (!loaded_) load();
  return language_;
}

void StringTables::load() const {
  loaded_ = true;
  language_ = kLastLanguage;
  std::vector<std::string> languages = languages_;
  languages.emplace_back(kLastLanguage);
  for (const std::string& language : languages) {
    // A language's name comes from the environment and must not lead to another folder.
    if (language.find('/') != std::string::npos) continue;
    const std::string path = folder_ + "/" + language + "/LC_MESSAGES/" + domain_ + ".mo";
    const std::string bytes = readSmallFile(path).bytes;
    if (bytes.empty()) continue;
    if (auto table = parsedCatalogue(bytes)) {
      if (tables_.empty()) language_ = language;
      tables_.push_back(std::move(*table));
    } else {
      logMessage(LogLevel::kWarning,
                 "The string table " + path + " is damaged and not used. Reinstall Record Audio.");
    }
    if (language == kLastLanguage) return;
  }
}

std::vector<std::string> StringTables::usersLanguages() {
  std::vector<std::string> languages;
  for (const gchar* const* name = g_get_language_names(); *name != nullptr; ++name) {
    if (std::string_view(*name) != "C") languages.emplace_back(*name);
  }
  return languages;
}

}  // namespace linux_host
