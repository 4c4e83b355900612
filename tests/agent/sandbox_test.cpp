// What the process that faces the network can still do once it is in its sandbox.

#include "agent/net/AllowedCalls.h"
#include "agent/net/Sandbox.h"
#include "agent/system/Files.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

using agent::net::allowedCalls;
using agent::net::enterSandbox;
using agent::net::SystemCall;
using agent::net::takeRefused;

namespace fs = std::filesystem;

namespace {

/// Runs a function in a process of its own that is in the sandbox. @return its exit status, or -1
int inSandbox(const std::function<int()>& run, const std::string& folder = "/nowhere") {
    const pid_t child = fork();
    if (child == 0)
        _exit(enterSandbox(folder) != agent::net::Sandbox::none ? run() : 100);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool isRefused(long call, long a = -1, long b = -1, long c = -1) {
    errno = 0;
    syscall(call, a, b, c, -1L, -1L, -1L);
    const bool failed = errno == EPERM;
    const bool quiet = call == SYS_clone || call == SYS_clone3;
    return takeRefused().empty() == quiet && failed;
}

/// All numbers that a call can have, but for those that end the process, or that only the kernel's
/// own probes make and no filter sees.
std::vector<int> numbers() {
    std::set<int> others = {SYS_exit, SYS_exit_group, SYS_rt_sigreturn};
#ifdef __x86_64__
    others.insert({335, 336}); // uretprobe and uprobe
#endif
    std::vector<int> all;
    for (int number = 0; number < 600; ++number)
        if (others.count(number) == 0)
            all.push_back(number);
    return all;
}

TEST(Sandbox, AllowsWhatItsTableSaysAndNothingElse) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    EXPECT_EQ(0, inSandbox([&] {
                  for (const int number : numbers()) {
                      const bool refused = isRefused(number);
                      if (write(ends[1], &refused, 1) != 1)
                          return 1;
                  }
                  return 0;
              }));
    close(ends[1]); // so that a process that has ended too early is seen
    const auto table = allowedCalls();
    for (const int number : numbers()) {
        bool refused = false;
        ASSERT_EQ(1, read(ends[0], &refused, 1)) << number;
        const bool allowed = std::any_of(table.begin(), table.end(), [&](const SystemCall& each) {
            return each.number == number && each.conditions.empty();
        });
        EXPECT_NE(refused, allowed) << number;
    }
    close(ends[0]);
}

TEST(Sandbox, AllowsCallsInPart) {
    const long other = getpid();
    const struct {
        long call, first, second, third;
        bool refused;
    } cases[] = {
        {SYS_fcntl, 0, F_GETFL, 0, false},
        {SYS_fcntl, 0, F_SETOWN, other, true},
        {SYS_fcntl, 0, F_SETOWN_EX, 0, true},
        {SYS_fcntl, 0, F_SETSIG, SIGKILL, true},
        {SYS_ioctl, -1, FIONREAD, 0, false},
        {SYS_ioctl, -1, FIOSETOWN, 0, true},
        {SYS_ioctl, -1, SIOCSPGRP, 0, true},
        {SYS_ioctl, -1, TIOCSTI, 0, true},
        {SYS_socket, AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0, false},
        {SYS_socket, AF_INET, SOCK_RAW, IPPROTO_ICMP, true},
        {SYS_socket, AF_NETLINK, SOCK_RAW, 0, true},
        {SYS_socket, AF_PACKET, SOCK_RAW, 0, true},
        {SYS_setsockopt, -1, SOL_SOCKET, SO_SNDBUF, false},
        {SYS_setsockopt, -1, SOL_SOCKET, SO_ATTACH_FILTER, true},
        {SYS_setsockopt, -1, IPPROTO_IP, 64, true}, // a table of the packet filter
        {SYS_mprotect, 0, 0, PROT_READ | PROT_WRITE, false},
        {SYS_mprotect, 0, 0, PROT_READ | PROT_EXEC, true},
        {SYS_tgkill, other, other, SIGABRT, true},
        {SYS_kill, other, 0, 0, true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.refused,
                  inSandbox([&] { return isRefused(c.call, c.first, c.second, c.third); }))
            << "case " << &c - cases;
    EXPECT_EQ(-1, inSandbox([]() -> int { std::abort(); }));
}

TEST(Sandbox, StartsNothing) {
    EXPECT_EQ(0, inSandbox([&] {
                  bool good = fork() < 0 && errno == EPERM;
                  good = good && takeRefused() == std::vector<std::string>{"clone"};
                  good = good && execl("/bin/true", "true", nullptr) < 0 && errno == EPERM;
                  good = good && system("true") != 0;
                  return good ? 0 : 1;
              }));
}

/// What it would write to have the device's process change the rows that it likes.
TEST(Sandbox, WritesInItsOwnFolderOnly) {
    if (syscall(SYS_landlock_create_ruleset, nullptr, 0, 1) < 1)
        GTEST_SKIP() << "the kernel has no Landlock";
    const std::string state = testing::TempDir() + "state." + std::to_string(getpid());
    const std::string own = state + "/net";
    const std::string journal = state + "/dev/change.journal";
    fs::create_directories(own);
    fs::create_directories(state + "/dev");
    ASSERT_TRUE(agent::replaceFile(journal, "true"));
    const int failures = inSandbox(
        [&] {
            int all = 0;
            const auto check = [&](bool good) { all += !good; };
            check(agent::replaceFile(own + "/told.states", "one"));
            check(agent::replaceFile(own + "/told.states", "two"));
            check(!agent::replaceFile(journal, "forged"));
            check(!agent::replaceFile(state + "/change.journal", "forged"));
            check(rename((own + "/told.states").c_str(), journal.c_str()) < 0);
            check(unlink(journal.c_str()) < 0);
            check(!agent::textOf(journal));
            check(open(("/proc/" + std::to_string(getppid()) + "/mem").c_str(), O_RDWR) < 0);
            check(open("/proc/sys/kernel/core_pattern", O_WRONLY) < 0);
            check(open("/etc/passwd", O_RDONLY) >= 0);
            return all;
        },
        own);
    EXPECT_EQ(0, failures);
    EXPECT_EQ("true", agent::textOf(journal));
    EXPECT_EQ("two", agent::textOf(own + "/told.states"));
    fs::remove_all(state);
}

} // namespace
