// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

#include "hosts/linux/audio/audio_graph.h"

struct spa_dict;
struct spa_pod;

// Reads what the daemon sends about nodes and devices. Values that are missing or of an unexpected
// type leave the record as it was.

namespace linux_host {

NodeProperties readDictionary(const spa_dict* dictionary);

// Volume and mute.
void readLevels(const spa_pod* props, Levels* levels);

// Null when the parameter is no format of raw audio.
std::optional<NodeFormat> readFormat(const spa_pod* format);

// Null when the parameter is no complete route.
std::optional<Route> readRoute(const spa_pod* route);

}  // namespace linux_host
