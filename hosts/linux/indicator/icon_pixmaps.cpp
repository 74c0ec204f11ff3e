// SPDX-License-Identifier: MIT
#include "hosts/linux/indicator/icon_pixmaps.h"

#include <png.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

namespace linux_host {
namespace {

// The sizes at which trays draw: 16 to 24 on ordinary screens, twice that on high-density ones.
constexpr int kSizes_px[] = {16, 22, 24, 32, 48};

struct Pixmap {
  int width_px = 0;
  int height_px = 0;
  std::vector<std::uint8_t> argb;
};

std::optional<Pixmap> pixmapOf(const std::string& path) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_file(&image, path.c_str()) == 0) return std::nullopt;
  image.format = PNG_FORMAT_ARGB;
  Pixmap pixmap{static_cast<int>(image.width), static_cast<int>(image.height), {}};
  pixmap.argb.resize(PNG_IMAGE_SIZE(image));
  const bool read = png_image_finish_read(&image, nullptr, pixmap.argb.data(), 0, nullptr) != 0;
  png_image_free(&image);
  return read ? std::optional(std::move(pixmap)) : std::nullopt;
}

}  // namespace

GVariant* iconPixmaps(const std::string& iconFolder, const std::string& name) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a(iiay)"));
  for (const int size_px : kSizes_px) {
    const std::string size = std::to_string(size_px);
    const auto pixmap = pixmapOf(iconFolder + "/" + size + "x" + size + "/apps/" + name + ".png");
    if (!pixmap) continue;
    g_variant_builder_add(&builder, "(ii@ay)", pixmap->width_px, pixmap->height_px,
                          g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, pixmap->argb.data(),
                                                    pixmap->argb.size(), 1));
  }
  return g_variant_builder_end(&builder);
}

}  // namespace linux_host
