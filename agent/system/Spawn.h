#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

namespace agent {

// How a shell ends that could not run a program.
constexpr int kMayNotRun = 126;
constexpr int kNotFound = 127;

/// Where a program is, as a shell would find it.
struct ProgramFile {
    std::string file; ///< empty when there is none that may be run
    std::string why;  ///< then why, and the status to end with
    int status = 0;

    static ProgramFile find(const std::string& name);
};

/// What a new process is given. Nothing else that its parent has open stays open in it.
struct Spawn {
    const char* file;
    char* const* arguments;
    int output; ///< its standard output and error
    int errors;
    int lock; ///< a file that it has locked from before it begins until it ends; -1 for none
};

/// Starts a program in a process group of its own, with all signals as they are by default. One
/// that can't be executed says so on standard error, and ends as in a shell.
///
/// The lock is the program's alone: what it starts has the file open, but not locked. So the lock
/// ends with the program, whatever services it leaves behind, and meanwhile its holder's process ID
/// can be asked for.
///
/// @return the process; -1 when there is no room for one
pid_t spawn(const Spawn& what);

/// @return the process that has a file locked, nothing when none has; 0 when it is none that can be
/// seen from here, and -1, with errno, when this can't be told
std::optional<pid_t> lockHolder(int lock);

/// Has standard input, output and error open, and keeps all else that this process has inherited
/// out of the programs that it starts.
void settleDescriptors();

} // namespace agent
