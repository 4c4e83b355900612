#pragma once

#include "agent/link/Objects.h"

namespace agent::dev {

/// Has the library set an object. @return a corvanta_status
int write(const Object& object, int row, const Value& value);

} // namespace agent::dev
