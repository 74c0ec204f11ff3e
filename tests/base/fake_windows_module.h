// SPDX-License-Identifier: MIT
#pragma once

#include "platform/controls.h"

namespace base_test {

// The colour of links in the fake windows module for GTK or Qt: the way to tell which was loaded.
inline constexpr platform::Color kLinksOfFakeGtk{0, 1, 0, 1};
inline constexpr platform::Color kLinksOfFakeQt{0, 0, 1, 1};

}  // namespace base_test
