#pragma once

#include "agent/link/Snapshot.h"

#include <corvanta.h>

#include <array>

/// The library calls that tell the device's state. They block while a program runs.
namespace agent::dev {

/// Takes in what the database holds, which a stage answers: what the library can't make anything
/// of is not there, but nothing else suffers.
void readConfiguration(Model& model);

/// Takes in what the DSL tool says. @return whether it could be asked
bool readLine(Model& model);

/// Takes in what the library has built in.
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
