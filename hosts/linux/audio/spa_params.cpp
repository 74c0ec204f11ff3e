// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/spa_params.h"

#include <spa/param/audio/raw.h>
#include <spa/param/format.h>
#include <spa/param/props.h>
#include <spa/param/route.h>
#include <spa/pod/iter.h>
#include <spa/pod/parser.h>
#include <spa/utils/dict.h>

#include <algorithm>
#include <string>
#include <vector>

namespace linux_host {
namespace {

// An integer, fixed or preferred among several, and its other possible values.
struct IntegerChoice {
  std::uint32_t preferred = 0;
  std::uint32_t lowest = 0;
  std::uint32_t highest = 0;
  std::vector<std::uint32_t> listed;
};

IntegerChoice readIntegerChoice(const spa_pod* property) {
  IntegerChoice choice;
  std::uint32_t count = 0;
  std::uint32_t kind = SPA_CHOICE_None;
  const spa_pod* values = spa_pod_get_values(property, &count, &kind);
  if (values == nullptr || values->type != SPA_TYPE_Int || count == 0) return choice;
  const auto* integers = static_cast<const std::int32_t*>(SPA_POD_BODY_CONST(values));
  const auto at = [&](std::uint32_t i) {
    return static_cast<std::uint32_t>(std::max(integers[i], 0));
  };
  choice.preferred = at(0);
  if ((kind == SPA_CHOICE_Range || kind == SPA_CHOICE_Step) && count >= 3) {
    choice.lowest = at(1);
    choice.highest = at(2);
  } else if (kind == SPA_CHOICE_Enum) {
    for (std::uint32_t i = 1; i < count; ++i) choice.listed.push_back(at(i));
  }
  return choice;
}

// The elements of an array. In the current format of a stream's node, such as pw-loopback's, the
// array is wrapped in a choice with a single value.
template <typename T>
std::vector<T> readArray(const spa_pod* property, std::uint32_t type) {
  std::uint32_t count = 0;
  std::uint32_t kind = SPA_CHOICE_None;
  const spa_pod* values = spa_pod_get_values(property, &count, &kind);
  if (values == nullptr || count == 0 || !spa_pod_is_array(values)) return {};
  std::vector<T> elements(SPA_AUDIO_MAX_CHANNELS);
  elements.resize(spa_pod_copy_array(values, type, elements.data(), SPA_AUDIO_MAX_CHANNELS));
  return elements;
}

bool isRawAudio(const spa_pod* format) {
  std::uint32_t type = SPA_MEDIA_TYPE_unknown;
  std::uint32_t subtype = SPA_MEDIA_SUBTYPE_unknown;
  return spa_pod_is_object_type(format, SPA_TYPE_OBJECT_Format) &&
         spa_pod_parse_object(format, SPA_TYPE_OBJECT_Format, nullptr, SPA_FORMAT_mediaType,
                              SPA_POD_Id(&type), SPA_FORMAT_mediaSubtype,
                              SPA_POD_Id(&subtype)) >= 0 &&
         type == SPA_MEDIA_TYPE_audio && subtype == SPA_MEDIA_SUBTYPE_raw;
}

}  // namespace

NodeProperties readDictionary(const spa_dict* dictionary) {
  NodeProperties properties;
  if (dictionary == nullptr) return properties;
  for (std::uint32_t i = 0; i < dictionary->n_items; ++i) {
    const spa_dict_item& item = dictionary->items[i];
    if (item.key != nullptr && item.value != nullptr) properties[item.key] = item.value;
  }
  return properties;
}

void readLevels(const spa_pod* props, Levels* levels) {
  if (!spa_pod_is_object_type(props, SPA_TYPE_OBJECT_Props)) return;
  if (const spa_pod_prop* mute = spa_pod_find_prop(props, nullptr, SPA_PROP_mute)) {
    bool value = false;
    if (spa_pod_get_bool(&mute->value, &value) >= 0) levels->mute = value;
  }
  if (const spa_pod_prop* volumes = spa_pod_find_prop(props, nullptr, SPA_PROP_channelVolumes)) {
    levels->channelVolumes = readArray<float>(&volumes->value, SPA_TYPE_Float);
  }
}

std::optional<NodeFormat> readFormat(const spa_pod* format) {
  if (format == nullptr || !isRawAudio(format)) return std::nullopt;
  NodeFormat result;
  if (const spa_pod_prop* rate = spa_pod_find_prop(format, nullptr, SPA_FORMAT_AUDIO_rate)) {
    IntegerChoice choice = readIntegerChoice(&rate->value);
    result.rate_Hz = choice.preferred;
    result.lowestRate_Hz = choice.lowest;
    result.highestRate_Hz = choice.highest;
    result.listedRates_Hz = std::move(choice.listed);
  }
  if (const spa_pod_prop* channels =
          spa_pod_find_prop(format, nullptr, SPA_FORMAT_AUDIO_channels)) {
    const IntegerChoice choice = readIntegerChoice(&channels->value);
    // An open range says nothing about the actual number.
    const bool isFree = choice.highest > choice.lowest;
    if (!isFree) result.channels = std::min(choice.preferred, SPA_AUDIO_MAX_CHANNELS);
  }
  if (const spa_pod_prop* position =
          spa_pod_find_prop(format, nullptr, SPA_FORMAT_AUDIO_position)) {
    result.positions = readArray<std::uint32_t>(&position->value, SPA_TYPE_Id);
  }
  return result;
}

std::optional<Route> readRoute(const spa_pod* route) {
  std::int32_t index = -1;
  std::uint32_t direction = SPA_DIRECTION_OUTPUT;
  std::int32_t device = -1;
  const char* description = nullptr;
  const spa_pod* props = nullptr;
  if (spa_pod_parse_object(route, SPA_TYPE_OBJECT_ParamRoute, nullptr, SPA_PARAM_ROUTE_index,
                           SPA_POD_Int(&index), SPA_PARAM_ROUTE_direction, SPA_POD_Id(&direction),
                           SPA_PARAM_ROUTE_device, SPA_POD_Int(&device),
                           SPA_PARAM_ROUTE_description, SPA_POD_OPT_String(&description),
                           SPA_PARAM_ROUTE_props, SPA_POD_OPT_Pod(&props)) < 0) {
    return std::nullopt;
  }
  Route result{static_cast<std::uint32_t>(index), direction == SPA_DIRECTION_INPUT, device,
               description == nullptr ? "" : description};
  if (props != nullptr) readLevels(props, &result.levels);
  return result;
}

}  // namespace linux_host
