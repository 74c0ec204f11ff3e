// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_gtk/interface_file.h"

#include <glib.h>

#include <memory>
#include <vector>

namespace linux_host {
namespace {

// Copies the XML, with the changes that readInterface() promises.
class Reader {
 public:
  explicit Reader(const WindowsServices& services) : services_(services) {}

  void begin(const std::string& element, const gchar** names, const gchar** values) {
    std::string attributes;
    std::string id;
    std::string handler;
    bool isText = false;
    for (; *names != nullptr; ++names, ++values) {
      const std::string name = *names;
      if (name == "id") id = *values;
      if (name == "handler") handler = *values;
      if (name == "translatable") {
        isText = true;
      } else {
        attributes += " " + name + "=\"" + escaped(*values) + "\"";
      }
    }
    if (element == "object") objects_.push_back(id);
    if (element == "signal") {
      if (!objects_.empty()) file.actions[objects_.back()] = handler;
      return;
    }
    file.xml += "<" + element + attributes + ">";
    if (isText) text_.emplace();
  }

  void end(const std::string& element) {
    if (element == "signal") return;
    if (text_) file.xml += escaped(services_.localizedString(*text_));
    text_.reset();
    if (element == "object" && !objects_.empty()) objects_.pop_back();
    file.xml += "</" + element + ">";
  }

  void text(const std::string& part) {
    if (text_) {
      *text_ += part;
    } else {
      file.xml += escaped(part);
    }
  }

  InterfaceFile file;

 private:
  static std::string escaped(const std::string& text) {
    const std::unique_ptr<gchar, decltype(&g_free)> copy(
        g_markup_escape_text(text.c_str(), static_cast<gssize>(text.size())), g_free);
    return copy.get();
  }

  const WindowsServices& services_;
  std::vector<std::string> objects_;  // the ids of those that are open, outermost first
  std::optional<std::string> text_;   // a translatable one, as far as it has been read
};

constexpr GMarkupParser kParser = {
    [](GMarkupParseContext*, const gchar* element, const gchar** names, const gchar** values,
       gpointer reader, GError**) { static_cast<Reader*>(reader)->begin(element, names, values); },
    [](GMarkupParseContext*, const gchar* element, gpointer reader, GError**) {
      static_cast<Reader*>(reader)->end(element);
    },
    [](GMarkupParseContext*, const gchar* text, gsize size, gpointer reader, GError**) {
      static_cast<Reader*>(reader)->text(std::string(text, size));
    },
    nullptr, nullptr};

}  // namespace

std::optional<InterfaceFile> readInterface(std::string_view xml, const WindowsServices& services) {
  Reader reader(services);
  const std::unique_ptr<GMarkupParseContext, decltype(&g_markup_parse_context_unref)> context(
      g_markup_parse_context_new(&kParser, GMarkupParseFlags(), &reader, nullptr),
      g_markup_parse_context_unref);
  const bool isWellFormed =
      g_markup_parse_context_parse(context.get(), xml.data(), static_cast<gssize>(xml.size()),
                                   nullptr) != FALSE &&
      g_markup_parse_context_end_parse(context.get(), nullptr) != FALSE;
  if (!isWellFormed) return std::nullopt;
  return std::move(reader.file);
}

}  // namespace linux_host
