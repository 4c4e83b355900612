#pragma once

#include "agent/link/Snapshot.h"

#include <corvanta.h>

#include <array>

/// The library calls that read the device's state. They block while a program runs.
namespace agent::dev {

/// Reads the configuration, for which a stage answers from the image. A value that the library
/// cannot read is left out; the others are not affected.
void readConfiguration(Model& model);

/// Reads the line rates from the DSL tool. @return whether it could be run
bool readLine(Model& model);

/// Reads the names of interfaces that are built into the library.
void readMapping(Model& model);

/// Runs a library call that takes a text as a buffer and a length: the text of a get replaces
/// `text`.
template <class Call>
int accessText(access_type access, std::string& text, Call call) {
    std::array<char, 32> buffer{};
    int length = 0;
    if (access == access_set)
        length = static_cast<int>(text.copy(buffer.data(), buffer.size()));
    const int status = call(buffer.data(), static_cast<int>(buffer.size()), &length);
    if (access == access_get && status == CORVANTA_OK)
        text.assign(buffer.data(), static_cast<std::size_t>(length));
    return status;
}

} // namespace agent::dev
