#include "agent/net/Sandbox.h"

#include <cerrno>
#include <initializer_list>

#include <linux/landlock.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace agent::net {

namespace {

/// A process in a Landlock domain cannot access the memory of processes outside it, not even via
/// /proc. Kernels before 5.13 have no domains.
void enterDomain() {
    landlock_ruleset_attr rules{};
    rules.handled_access_fs = LANDLOCK_ACCESS_FS_EXECUTE;
    const auto domain =
        static_cast<int>(syscall(SYS_landlock_create_ruleset, &rules, sizeof rules, 0));
    if (domain < 0)
        return;
    syscall(SYS_landlock_restrict_self, domain, 0);
    close(domain);
}

} // namespace

bool enterSandbox() {
    // What fails with EPERM. Threads could still be made: clone3(), whose flags can't be looked
    // at, is said to be missing, and clone() is what is used then.
    constexpr int kRefused[] = {
        // clang-format off
        SCMP_SYS(execve), SCMP_SYS(execveat), SCMP_SYS(fork), SCMP_SYS(vfork),
        SCMP_SYS(ptrace), SCMP_SYS(process_vm_readv), SCMP_SYS(process_vm_writev),
        SCMP_SYS(pidfd_open), SCMP_SYS(pidfd_getfd), SCMP_SYS(kill), SCMP_SYS(tkill),
        SCMP_SYS(rt_sigqueueinfo), SCMP_SYS(rt_tgsigqueueinfo), SCMP_SYS(pidfd_send_signal),
        SCMP_SYS(setuid), SCMP_SYS(setgid), SCMP_SYS(setreuid), SCMP_SYS(setregid),
        SCMP_SYS(setresuid), SCMP_SYS(setresgid), SCMP_SYS(setgroups), SCMP_SYS(capset),
        SCMP_SYS(mount), SCMP_SYS(umount2), SCMP_SYS(chroot), SCMP_SYS(pivot_root),
        SCMP_SYS(unshare), SCMP_SYS(setns), SCMP_SYS(bpf), SCMP_SYS(perf_event_open),
        SCMP_SYS(keyctl), SCMP_SYS(add_key), SCMP_SYS(request_key),
        SCMP_SYS(init_module), SCMP_SYS(finit_module), SCMP_SYS(kexec_load), SCMP_SYS(reboot),
        SCMP_SYS(io_uring_setup), SCMP_SYS(userfaultfd),
        // clang-format on
    };
    scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
    if (filter == nullptr)
        return false;
    bool good = true;
    for (const int call : kRefused)
        good = good && seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), call, 0) == 0;
    good = good && seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3), 0) == 0 &&
           seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), SCMP_SYS(clone), 1,
                            SCMP_A0(SCMP_CMP_MASKED_EQ, CLONE_THREAD, 0)) == 0 &&
           // of itself only: abort() needs the first
           seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), SCMP_SYS(tgkill), 1,
                            SCMP_A0(SCMP_CMP_NE, static_cast<scmp_datum_t>(getpid()))) == 0 &&
           seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), SCMP_SYS(prlimit64), 1,
                            SCMP_A0(SCMP_CMP_NE, 0)) == 0 &&
           seccomp_load(filter) == 0; // which rules out new privileges too
    seccomp_release(filter);
    enterDomain();
    return good;
}

} // namespace agent::net
