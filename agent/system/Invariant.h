#pragma once

#include <stdexcept>

namespace agent {

/// Something does not hold that always has to: the program itself is wrong. Whoever throws it has
/// changed nothing that can't be taken back, and the process ends; the next one goes by the
/// journal.
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
