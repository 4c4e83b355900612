#pragma once

#include "Database.h"

#include "agent/link/Objects.h"

#include <map>
#include <utility>

namespace simulation {

using Place = std::pair<const agent::Object*, int>; ///< an object and its row
using Assignment = std::pair<Place, agent::Value>;
using Values = std::map<Place, agent::Value>;

/// The objects that managers can set on the device.
const agent::Object& objectCalled(const char* label);

/// What the rows mean, by the plainest reading of them.
Values valuesOf(const Database& database);

} // namespace simulation
