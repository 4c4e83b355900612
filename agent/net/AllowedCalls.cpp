#include "agent/net/AllowedCalls.h"

#include <csignal>

#include <fcntl.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

namespace agent::net {

namespace {

scmp_arg_cmp is(unsigned argument, long long value) {
    return {argument, SCMP_CMP_EQ, static_cast<scmp_datum_t>(value), 0};
}

/// Whether none of some bits is set, or of a mask's just these are.
scmp_arg_cmp lacks(unsigned argument, unsigned bits) {
    return {argument, SCMP_CMP_MASKED_EQ, bits, 0};
}
scmp_arg_cmp isMasked(unsigned argument, unsigned mask, unsigned value) {
    return {argument, SCMP_CMP_MASKED_EQ, mask, value};
}

constexpr unsigned kSocketType = 0xf; ///< beside its flags
#ifdef __s390__
constexpr unsigned kCloneFlags = 1; ///< which argument they are
#else
constexpr unsigned kCloneFlags = 0;
#endif

/// Stands for the number of the process.
constexpr long long kSelf = -1;

const std::vector<SystemCall> kAllowed = {
    // Requests, answers, the log: sockets that are open, and those to the master.
    {SCMP_SYS(recvfrom), {}},
    {SCMP_SYS(recvmsg), {}},
    {SCMP_SYS(recv), {}},
    {SCMP_SYS(sendto), {}},
    {SCMP_SYS(sendmsg), {}},
    {SCMP_SYS(send), {}},
    {SCMP_SYS(sendmmsg), {}},
    {SCMP_SYS(accept), {}},
    {SCMP_SYS(accept4), {}},
    {SCMP_SYS(connect), {}},
    {SCMP_SYS(shutdown), {}},
    {SCMP_SYS(getsockname), {}},
    {SCMP_SYS(getpeername), {}},
    {SCMP_SYS(getsockopt), {}},
    // Not what would outlive the process on the link to the device's, such as a packet filter.
    // Sizes are for configurations that name some, and harmless on the link: the other end doesn't
    // depend on them and takes no packet that is too long, and the next process sets its own.
    {SCMP_SYS(setsockopt), {is(1, SOL_SOCKET), is(2, SO_SNDBUF)}},
    {SCMP_SYS(setsockopt), {is(1, SOL_SOCKET), is(2, SO_RCVBUF)}},
    {SCMP_SYS(setsockopt), {is(1, SOL_SOCKET), is(2, SO_REUSEADDR)}},
    {SCMP_SYS(setsockopt), {is(1, SOL_SOCKET), is(2, SO_BROADCAST)}},
    {SCMP_SYS(setsockopt), {is(1, SOL_SOCKET), is(2, SO_KEEPALIVE)}},
    {SCMP_SYS(setsockopt), {is(1, IPPROTO_IP), is(2, IP_RECVERR)}}, // to look up names
    {SCMP_SYS(setsockopt), {is(1, IPPROTO_IPV6), is(2, IPV6_RECVERR)}},
    {SCMP_SYS(socket), {is(0, AF_UNIX)}},
    {SCMP_SYS(socket), {is(0, AF_INET), isMasked(1, kSocketType, SOCK_DGRAM)}},
    {SCMP_SYS(socket), {is(0, AF_INET), isMasked(1, kSocketType, SOCK_STREAM)}},
    {SCMP_SYS(socket), {is(0, AF_INET6), isMasked(1, kSocketType, SOCK_DGRAM)}},
    {SCMP_SYS(socket), {is(0, AF_INET6), isMasked(1, kSocketType, SOCK_STREAM)}},

    // Waiting, and the time.
    {SCMP_SYS(select), {}},
    {SCMP_SYS(_newselect), {}},
    {SCMP_SYS(pselect6), {}},
    {SCMP_SYS(pselect6_time64), {}},
    {SCMP_SYS(poll), {}},
    {SCMP_SYS(ppoll), {}},
    {SCMP_SYS(ppoll_time64), {}},
    {SCMP_SYS(restart_syscall), {}},
    {SCMP_SYS(clock_gettime), {}},
    {SCMP_SYS(clock_gettime64), {}},
    {SCMP_SYS(gettimeofday), {}},
    {SCMP_SYS(time), {}},

    // Files of its folder, and what was opened before.
    {SCMP_SYS(open), {}},
    {SCMP_SYS(openat), {}},
    {SCMP_SYS(close), {}},
    {SCMP_SYS(read), {}},
    {SCMP_SYS(write), {}},
    {SCMP_SYS(writev), {}},
    {SCMP_SYS(lseek), {}},
    {SCMP_SYS(_llseek), {}},
    {SCMP_SYS(fsync), {}},
    {SCMP_SYS(ftruncate), {}},
    {SCMP_SYS(ftruncate64), {}},
    {SCMP_SYS(fstat), {}},
    {SCMP_SYS(fstat64), {}},
    {SCMP_SYS(stat), {}},
    {SCMP_SYS(stat64), {}},
    {SCMP_SYS(fstatat64), {}},
    {SCMP_SYS(newfstatat), {}},
    {SCMP_SYS(statx), {}},
    {SCMP_SYS(access), {}},
    {SCMP_SYS(faccessat), {}},
    {SCMP_SYS(faccessat2), {}},
    {SCMP_SYS(rename), {}},
    {SCMP_SYS(renameat), {}},
    {SCMP_SYS(renameat2), {}},
    {SCMP_SYS(unlink), {}},
    {SCMP_SYS(unlinkat), {}},
    {SCMP_SYS(umask), {}},
    // Not F_SETOWN and F_SETSIG, by which the kernel would send any signal to any process.
    {SCMP_SYS(fcntl), {is(1, F_GETFL)}},
    {SCMP_SYS(fcntl), {is(1, F_SETFL)}},
    {SCMP_SYS(fcntl), {is(1, F_GETFD)}},
    {SCMP_SYS(fcntl), {is(1, F_SETFD)}},
    {SCMP_SYS(fcntl64), {is(1, F_GETFL)}},
    {SCMP_SYS(fcntl64), {is(1, F_SETFL)}},
    {SCMP_SYS(fcntl64), {is(1, F_GETFD)}},
    {SCMP_SYS(fcntl64), {is(1, F_SETFD)}},
    {SCMP_SYS(ioctl), {is(1, TCGETS)}},      // by which a stream asks whether it is a terminal
    {SCMP_SYS(ioctl), {is(1, SIOCGIFCONF)}}, // which address a notification names
    {SCMP_SYS(ioctl), {is(1, SIOCGIFADDR)}},
    {SCMP_SYS(ioctl), {is(1, SIOCGIFFLAGS)}},
    {SCMP_SYS(ioctl), {is(1, FIONBIO)}},
    {SCMP_SYS(ioctl), {is(1, FIONREAD)}},

    // Memory, which is never made executable.
    {SCMP_SYS(brk), {}},
    {SCMP_SYS(mmap), {lacks(2, PROT_EXEC)}},
    {SCMP_SYS(mmap2), {lacks(2, PROT_EXEC)}},
    {SCMP_SYS(mprotect), {lacks(2, PROT_EXEC)}},
    {SCMP_SYS(mremap), {}},
    {SCMP_SYS(munmap), {}},
    {SCMP_SYS(madvise), {}},
    {SCMP_SYS(getrandom), {}},

    // The process itself: who it is, and its end, by abort() too.
    {SCMP_SYS(getpid), {}},
    {SCMP_SYS(gettid), {}},
    {SCMP_SYS(getppid), {}},
    {SCMP_SYS(getuid), {}},
    {SCMP_SYS(getuid32), {}},
    {SCMP_SYS(geteuid), {}},
    {SCMP_SYS(geteuid32), {}},
    {SCMP_SYS(getgid), {}},
    {SCMP_SYS(getgid32), {}},
    {SCMP_SYS(getegid), {}},
    {SCMP_SYS(getegid32), {}},
    {SCMP_SYS(uname), {}},
    {SCMP_SYS(sysinfo), {}}, // sorting asks how much memory there is
    {SCMP_SYS(futex), {}},
    {SCMP_SYS(futex_time64), {}},
    {SCMP_SYS(rt_sigaction), {}},
    {SCMP_SYS(rt_sigprocmask), {}},
    {SCMP_SYS(rt_sigreturn), {}},
    {SCMP_SYS(sigreturn), {}},
    {SCMP_SYS(tgkill), {is(0, kSelf), is(2, SIGABRT)}},
    {SCMP_SYS(exit), {}},
    {SCMP_SYS(exit_group), {}},
};

} // namespace

std::vector<SystemCall> allowedCalls() {
    std::vector<SystemCall> calls = kAllowed;
    for (SystemCall& call : calls)
        for (scmp_arg_cmp& condition : call.conditions)
            if (condition.datum_a == static_cast<scmp_datum_t>(kSelf))
                condition.datum_a = static_cast<scmp_datum_t>(getpid());
    return calls;
}

std::vector<SystemCall> quietlyRefusedCalls() {
    return {
        {SCMP_SYS(clone), {isMasked(kCloneFlags, CLONE_VM, CLONE_VM)}},
        {SCMP_SYS(clone3), {}},
    };
}

} // namespace agent::net
