// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "hosts/linux/bus/dbus_support.h"

namespace linux_host {

// A desktop-wide setting of the user (GSettings); null when the desktop has no such setting, or one
// of another type. Main thread.
[[nodiscard]] VariantPtr desktopSetting(const char* schemaId, const char* key,
                                        const GVariantType* type);

// The settings that contain such a setting, for following its changes; null likewise.
[[nodiscard]] ObjectPtr<GSettings> settingsWith(const char* schemaId, const char* key);

}  // namespace linux_host
