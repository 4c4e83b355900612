#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace trial {

using Clock = std::chrono::steady_clock;

/// From now on a signal that would end the tool is only noted: it has to take the change back
/// first.
void noteSignals();
bool interrupted();

/// Sleeps, unless a signal comes.
void pause(std::chrono::seconds time);

/// Writes a line about what goes on, to standard error.
void tell(const std::string& text);

/// Asks on the terminal until a time, which it counts down. True for yes; false also when the time
/// is over, a signal comes, or the terminal has gone.
bool agreed(const std::string& question, Clock::time_point until);

} // namespace trial
