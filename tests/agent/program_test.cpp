// How the agent starts the device's programs, and what it hears of its other process.

#include "agent/system/CommandLine.h"
#include "agent/system/Program.h"
#include "agent/system/RealSystem.h"
#include "agent/system/Spawn.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>

using namespace agent;

namespace {

/// Waits for a program's end.
ProgramEnd rest(Program& program) {
    for (;;) {
        if (auto end = program.collect())
            return *end;
        pollfd said{program.descriptor(), POLLIN, 0};
        poll(&said, 1, 50);
    }
}

/// Runs a command line to its end.
ProgramEnd run(const std::string& commandLine, int lock = -1) {
    Program program;
    EXPECT_TRUE(program.start(commandLine, lock)) << commandLine;
    return rest(program);
}

TEST(CommandLine, IsAProgramAndItsOneArgument) {
    const char* const cases[][3] = {
        {"quorlet \"size Atm;\"", "quorlet", "size Atm;"},
        {" quorlet \"  selectrow Atm 3  ;\" ", "quorlet", "  selectrow Atm 3  ;"},
        {"quorlet \"text:*'&<>()!|#~ \xe9\"", "quorlet", "text:*'&<>()!|#~ \xe9"},
        {"quorlet \"\"", "quorlet", ""},
        {"vellstat info", "vellstat", "info"},
        {"  vellstat   -v1.2_x ", "vellstat", "-v1.2_x"},
    };
    for (const auto& [text, program, argument] : cases) {
        const auto line = CommandLine::parse(text);
        ASSERT_TRUE(line) << text;
        EXPECT_EQ(program, line->program) << text;
        EXPECT_EQ(argument, line->argument) << text;
    }
    for (const char* const refused : {"",
                                      "quorlet",
                                      "quorlet ",
                                      "\"quorlet\" \"size Atm;\"",
                                      "/bin/quorlet \"size Atm;\"",
                                      "quorlet\"size Atm;\"",
                                      "quorlet \"size Atm;",
                                      "quorlet \"",
                                      "quorlet \"size Atm;\"x",
                                      "quorlet \"size Atm;\" >all",
                                      "quorlet \"size\" \"Atm;\"",
                                      "quorlet \"size $HOME;\"",
                                      "quorlet \"size `id`;\"",
                                      "quorlet \"size \\x;\"",
                                      "quorlet \"size\nAtm;\"",
                                      "quorlet 'size Atm;'",
                                      "quorlet size Atm",
                                      "vellstat info;id",
                                      "vellstat info 2>&1",
                                      "vellstat $x",
                                      "vellstat *",
                                      "A=b vellstat"})
        EXPECT_FALSE(CommandLine::parse(refused)) << refused;
}

TEST(Program, EndsAsAShellWouldSay) {
    setenv("PATH", "/nowhere:/usr/bin:/bin:/etc", 1);
    const ProgramEnd said = run("echo \"  a 'b' ;*\"");
    EXPECT_EQ("  a 'b' ;*\n", said.output);
    EXPECT_EQ(0, said.status);
    EXPECT_EQ(1, run("test \"\"").status);
    EXPECT_EQ(127, run("nowhere x").status);
    EXPECT_EQ(126, run("hosts x").status); // may not be run
    EXPECT_FALSE(Program().start("echo a;id", -1));
}

/// What the agent has open, ignores and blocks is its own business, and so is its lock that of the
/// program alone.
TEST(Program, LeavesNothingOfTheAgentsToAService) {
    open("/dev/null", O_RDWR); // as somebody has who starts the agent
    settleDescriptors();
    std::signal(SIGHUP, SIG_IGN);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    const std::string folder = testing::TempDir();
    const int lock = open((folder + "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const std::string descriptors = run("ls \"/proc/self/fd\"", lock).output;
    EXPECT_EQ(5, std::count(descriptors.begin(), descriptors.end(), '\n')) << descriptors;
    std::ofstream(folder + "client") << "grep -E 'Sig(Blk|Ign)' /proc/self/status\n"
                                        "sleep 1000 &\n"
                                        "echo $!\n";
    Program program;
    ASSERT_TRUE(program.start("sh \"" + folder + "client\"", lock));
    const auto client = lockHolder(lock);
    const std::string said = rest(program).output;
    const std::string none = "\t0000000000000000\n";
    const std::string signals = "SigBlk:" + none + "SigIgn:" + none;
    EXPECT_EQ(signals, said.substr(0, signals.size()));
    EXPECT_LT(0, client.value_or(0));
    EXPECT_FALSE(lockHolder(lock));
    const pid_t service = std::atoi(said.substr(signals.size()).c_str());
    ASSERT_LT(1, service);
    EXPECT_EQ(0, kill(service, SIGTERM));
}

TEST(Link, HasRoomWhateverTheProcessBeforeHasDone) {
    int ends[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends));
    const int none = 0;
    ASSERT_EQ(0, setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &none, sizeof none));
    RealSystem next({ends[0], -1, -1}, std::chrono::seconds(1), ".", "");
    RealSystem other({ends[1], -1, -1}, std::chrono::seconds(1), ".", "");
    const std::string message(100000, '.');
    next.send(message);
    EXPECT_EQ(message, other.receive());
    // More than a message has, where the system allows that.
    const int much = 4000000;
    setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &much, sizeof much);
    if (send(ends[0], std::string(1000000, '.').data(), 1000000, 0) > 0) {
        EXPECT_GT(200000U, other.receive().value_or(message + message).size());
    }
    EXPECT_FALSE(other.receive());
    close(ends[0]);
    close(ends[1]);
}

} // namespace
