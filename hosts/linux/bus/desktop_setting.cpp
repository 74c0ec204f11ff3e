// SPDX-License-Identifier: MIT
#include "hosts/linux/bus/desktop_setting.h"

namespace linux_host {
namespace {

struct SchemaUnref {
  void operator()(GSettingsSchema* schema) const { g_settings_schema_unref(schema); }
};

}  // namespace

ObjectPtr<GSettings> settingsWith(const char* schemaId, const char* key) {
  GSettingsSchemaSource* source = g_settings_schema_source_get_default();
  if (source == nullptr) return nullptr;
  const std::unique_ptr<GSettingsSchema, SchemaUnref> schema(
      g_settings_schema_source_lookup(source, schemaId, TRUE));
  if (schema == nullptr || g_settings_schema_has_key(schema.get(), key) == FALSE) return nullptr;
  // A schema without a path of its own is not a desktop-wide setting, and opening it ends the
  // process.
  if (g_settings_schema_get_path(schema.get()) == nullptr) return nullptr;
  return ObjectPtr<GSettings>(g_settings_new_full(schema.get(), nullptr, nullptr));
}

VariantPtr desktopSetting(const char* schemaId, const char* key, const GVariantType* type) {
  const auto settings = settingsWith(schemaId, key);
  if (settings == nullptr) return nullptr;
  VariantPtr value(g_settings_get_value(settings.get(), key));
  if (g_variant_is_of_type(value.get(), type) == FALSE) return nullptr;
  return value;
}

}  // namespace linux_host
