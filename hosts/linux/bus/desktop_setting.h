// SPDX-License-Identifier: MIT
#pragma once

#include "hosts/linux/bus/dbus_support.h"

namespace linux_host {

// A setting that the user has made for the whole desktop (GSettings); null when the desktop knows
// no such setting, or one of another type. Main thread.
[[nodiscard]] VariantPtr desktopSetting(const char* schemaId, const char* key,
                                        const GVariantType* type);

}  // namespace linux_host
