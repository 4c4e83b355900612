#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace agent::net {

/// How the paths of files in memory begin.
constexpr std::string_view kMemoryFiles = "/proc/self/fd/";

/// What the SNMP toolkit keeps over restarts: lines that it reads at its start and can be asked
/// for. It wants a file for that, which it writes line by line and never looks whether it could; so
/// it gets one in memory.
class ToolkitState {
public:
    ToolkitState() = default;
    ~ToolkitState();
    ToolkitState(const ToolkitState&) = delete;
    ToolkitState& operator=(const ToolkitState&) = delete;

    /// Makes the file, and lets the toolkit write to no other one. @return whether that was
    /// possible
    bool open(const std::string& lines);

    /// Where the toolkit reads it.
    const std::string& path() const { return m_path; }

    /// All lines as they are now; empty when they could not be had.
    std::string lines();

    /// Likewise, when something has changed since they were asked for last.
    std::optional<std::string> changedLines();

    /// They have not been stored: changedLines() tells them again.
    static void keepChanged();

private:
    int m_file = -1;
    std::string m_path;
};

} // namespace agent::net
