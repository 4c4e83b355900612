#pragma once

#include <vector>

#include <seccomp.h>

namespace agent::net {

/// A system call that serving requests needs; where there are conditions, only when all of them
/// hold. Of several lines for one call any does.
struct SystemCall {
    int number;
    std::vector<scmp_arg_cmp> conditions;
};

/// What this process, which faces the network, may ask of the kernel once its ports are open.
/// Whatever is not here is refused.
///
/// Names that a machine doesn't have stand for nothing there: those of 64-bit x86, of ARM and of
/// MIPS are here, with the calls that 32-bit systems make for files and times.
std::vector<SystemCall> allowedCalls();

/// Of the refused calls those that fail without a line in the log: to tell of one takes a signal,
/// and the C library starts threads and programs with all signals blocked, when that would be the
/// end.
std::vector<SystemCall> quietlyRefusedCalls();

} // namespace agent::net
