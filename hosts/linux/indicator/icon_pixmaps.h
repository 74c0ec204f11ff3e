// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <string>

namespace linux_host {

// An icon's pixmaps, for trays that cannot find the icon theme: a floating a(iiay) of width, height
// and ARGB rows, most significant byte first. `iconFolder` is the root of an icon theme with
// <size>x<size>/apps/<name>.png; missing sizes are left out.
GVariant* iconPixmaps(const std::string& iconFolder, const std::string& name);

}  // namespace linux_host
