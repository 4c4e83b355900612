#pragma once

#include <stdexcept>

namespace agent {

/// A condition that must always hold does not: the program itself is wrong. The process ends, and
/// the next one goes by the journal; nothing was changed that cannot be taken back.
class BrokenInvariant : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

/// Checks, in every build, what has to hold.
inline void require(bool holds, const char* what) {
    if (!holds)
        throw BrokenInvariant(what);
}

} // namespace agent
