#include "agent/net/Sandbox.h"

#include "agent/net/AllowedCalls.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <iterator>

#include <fcntl.h>
#include <linux/landlock.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

namespace agent::net {

namespace {

constexpr std::uint64_t kTruncate = 1 << 14; ///< which older headers lack

/// The calls that were refused, in a ring. A refusal is a signal in the midst of the call, so that
/// nothing but the process itself has to be kept from touching them.
std::array<volatile int, 16> refused{};
volatile unsigned refusals = 0;

/// Has the call that a signal has come in place of fail with EPERM.
void failCall(void* context) {
    auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext;
#if defined(__x86_64__)
    registers.gregs[REG_RAX] = -EPERM;
#elif defined(__i386__)
    registers.gregs[REG_EAX] = -EPERM;
#elif defined(__aarch64__)
    registers.regs[0] = static_cast<unsigned long long>(-EPERM);
#elif defined(__arm__)
    registers.arm_r0 = static_cast<unsigned long>(-EPERM);
#elif defined(__mips__)
    registers.gregs[2] = EPERM;
    registers.gregs[7] = 1; // an error
#else
#define CORVANTA_REFUSES_SILENTLY
    static_cast<void>(registers);
#endif
}

#ifdef CORVANTA_REFUSES_SILENTLY
constexpr std::uint32_t kRefuse = SCMP_ACT_ERRNO(EPERM);
#else
constexpr std::uint32_t kRefuse = SCMP_ACT_TRAP;
#endif

void onRefusal(int, siginfo_t* signal, void* context) {
    refused[refusals % refused.size()] = signal->si_syscall;
    refusals = refusals + 1;
    failCall(context);
}

bool catchRefusals() {
    struct sigaction action {};
    action.sa_sigaction = onRefusal;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGSYS);
    return sigaction(SIGSYS, &action, nullptr) == 0 && sigprocmask(SIG_UNBLOCK, &set, nullptr) == 0;
}

bool addRules(scmp_filter_ctx filter, std::uint32_t action, const std::vector<SystemCall>& calls) {
    for (const auto& [number, conditions] : calls)
        if (seccomp_rule_add_array(filter, action, number, static_cast<unsigned>(conditions.size()),
                                   conditions.data()) != 0)
            return false;
    return true;
}

bool forbidCalls() {
    scmp_filter_ctx filter = seccomp_init(kRefuse);
    if (filter == nullptr)
        return false;
    seccomp_attr_set(filter, SCMP_FLTATR_CTL_OPTIMIZE, 2); // where it can: looks up, doesn't search
    const bool good = addRules(filter, SCMP_ACT_ALLOW, allowedCalls()) &&
                      addRules(filter, SCMP_ACT_ERRNO(EPERM), quietlyRefusedCalls()) &&
                      seccomp_load(filter) == 0; // which rules out new privileges too
    seccomp_release(filter);
    return good;
}

/// The rights to files that a version of Landlock can take away.
std::uint64_t rightsOf(long version) {
    constexpr int kRights[] = {13, 14, 15, 15, 16};
    return (std::uint64_t{1} << kRights[std::min<std::size_t>(static_cast<std::size_t>(version),
                                                              std::size(kRights)) -
                                        1]) -
           1;
}

bool allowBelow(int domain, const char* folder, std::uint64_t rights) {
    landlock_path_beneath_attr rule{};
    rule.allowed_access = rights;
    rule.parent_fd = open(folder, O_PATH | O_DIRECTORY | O_CLOEXEC);
    const bool allowed = rule.parent_fd >= 0 && syscall(SYS_landlock_add_rule, domain,
                                                        LANDLOCK_RULE_PATH_BENEATH, &rule, 0) == 0;
    close(rule.parent_fd);
    return allowed;
}

/// A process in a Landlock domain cannot access the memory of processes outside it either, not even
/// via /proc. Kernels before 5.13 have no domains.
/// @return whether it is in one
bool enterDomain(const std::string& folder) {
    constexpr std::uint64_t kRead = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
    constexpr std::uint64_t kWrite = LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_MAKE_REG |
                                     LANDLOCK_ACCESS_FS_REMOVE_FILE | kTruncate;
    const long version =
        syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 1)
        return false;
    landlock_ruleset_attr rules{};
    rules.handled_access_fs = rightsOf(version);
    const auto domain =
        static_cast<int>(syscall(SYS_landlock_create_ruleset, &rules, sizeof rules, 0));
    // hosts.allow and hosts.deny are read for each request, and files may take their places.
    const bool entered =
        domain >= 0 && allowBelow(domain, "/etc", kRead) &&
        allowBelow(domain, folder.c_str(), (kRead | kWrite) & rules.handled_access_fs) &&
        syscall(SYS_landlock_restrict_self, domain, 0) == 0;
    close(domain);
    return entered;
}

std::string nameOf(int call) {
    char* const name = seccomp_syscall_resolve_num_arch(seccomp_arch_native(), call);
    std::string text = name != nullptr ? name : "number " + std::to_string(call);
    std::free(name);
    return text;
}

} // namespace

Sandbox enterSandbox(const std::string& folder) {
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0); // without which there is no domain
    const bool confined = enterDomain(folder);
    if (!catchRefusals() || !forbidCalls())
        return Sandbox::none;
    return confined ? Sandbox::whole : Sandbox::callsOnly;
}

std::vector<std::string> takeRefused() {
    static unsigned taken = 0;
    std::vector<std::string> names;
    const unsigned all = refusals;
    if (all - taken > refused.size())
        taken = all - static_cast<unsigned>(refused.size());
    for (; taken != all; ++taken)
        names.push_back(nameOf(refused[taken % refused.size()]));
    return names;
}

} // namespace agent::net
