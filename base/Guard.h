#pragma once

#include <corvanta.h>

#include <stdexcept>

namespace kavo::snmp {

/// Runs the body of an exported function; any exception becomes what onFailure returns.
template <class Body, class OnFailure>
auto guarded(Body body, OnFailure onFailure) noexcept {
    try {
        return body();
    } catch (...) {
        return onFailure();
    }
}

/// The same for a function that returns a status code.
template <class Body>
int guardedStatus(Body body) noexcept {
    return guarded([&]() -> int { return body(); }, []() -> int { return CORVANTA_FAILED; });
}

/// @return what a pointer refers to; a missing object throws instead of being used
template <class T>
T& required(T* object) {
    if (object == nullptr)
        throw std::logic_error("not initialized");
    return *object;
}

} // namespace kavo::snmp
