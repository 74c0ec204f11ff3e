// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

#include "hosts/linux/audio/audio_graph.h"

struct spa_dict;
struct spa_pod;

// Reads what the daemon sends about nodes and devices. Missing values and values of an unexpected
// type leave the record unchanged.

namespace linux_host {

NodeProperties readDictionary(const spa_dict* dictionary);

// Volume and mute.
void readLevels(const spa_pod* props, Levels* levels);

// Null when the parameter is not a raw audio format.
std::optional<NodeFormat> readFormat(const spa_pod* format);

// Null when the parameter is not a complete route.
std::optional<Route> readRoute(const spa_pod* route);

}  // namespace linux_host
