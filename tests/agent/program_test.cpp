// How the agent starts the device's programs.

#include "agent/system/CommandLine.h"
#include "agent/system/Program.h"

#include <gtest/gtest.h>

#include <poll.h>

#include <cstdlib>
#include <string>

using namespace agent;

namespace {

/// Runs a command line to its end.
ProgramEnd run(const std::string& commandLine) {
    Program program;
    EXPECT_TRUE(program.start(commandLine)) << commandLine;
    for (;;) {
        if (auto end = program.collect())
            return *end;
        pollfd said{program.descriptor(), POLLIN, 0};
        poll(&said, 1, program.descriptor() < 0 ? 1 : -1);
    }
}

TEST(CommandLine, IsAProgramAndItsOneArgument) {
    const struct {
        const char* text;
        const char* program; ///< null: the line is refused
        const char* argument;
    } cases[] = {
        {"quorlet \"size Atm;\"", "quorlet", "size Atm;"},
        {" quorlet \"  selectrow Atm 3  ;\" ", "quorlet", "  selectrow Atm 3  ;"},
        {"quorlet \"text:*'&<>()!|#~ \xe9\"", "quorlet", "text:*'&<>()!|#~ \xe9"},
        {"quorlet \"\"", "quorlet", ""},
        {"vellstat info", "vellstat", "info"},
        {"  vellstat   -v1.2_x ", "vellstat", "-v1.2_x"},
        {"", nullptr, ""},
        {"quorlet", nullptr, ""},
        {"quorlet ", nullptr, ""},
        {"\"quorlet\" \"size Atm;\"", nullptr, ""},
        {"/bin/quorlet \"size Atm;\"", nullptr, ""},
        {"quorlet\"size Atm;\"", nullptr, ""},
        {"quorlet \"size Atm;", nullptr, ""},
        {"quorlet \"", nullptr, ""},
        {"quorlet \"size Atm;\"x", nullptr, ""},
        {"quorlet \"size Atm;\" >all", nullptr, ""},
        {"quorlet \"size\" \"Atm;\"", nullptr, ""},
        {"quorlet \"size $HOME;\"", nullptr, ""},
        {"quorlet \"size `id`;\"", nullptr, ""},
        {"quorlet \"size \\x;\"", nullptr, ""},
        {"quorlet \"size\nAtm;\"", nullptr, ""},
        {"quorlet 'size Atm;'", nullptr, ""},
        {"quorlet size Atm", nullptr, ""},
        {"vellstat info;id", nullptr, ""},
        {"vellstat info 2>&1", nullptr, ""},
        {"vellstat $x", nullptr, ""},
        {"vellstat *", nullptr, ""},
        {"A=b vellstat", nullptr, ""},
    };
    for (const auto& [text, program, argument] : cases) {
        const auto line = CommandLine::parse(text);
        EXPECT_EQ(program != nullptr, line.has_value()) << text;
        if (line && program != nullptr) {
            EXPECT_EQ(program, line->program) << text;
            EXPECT_EQ(argument, line->argument) << text;
        }
    }
}

TEST(Program, EndsAsAShellWouldSay) {
    setenv("PATH", "/nowhere:/usr/bin:/bin:/etc", 1);
    const ProgramEnd said = run("echo \"  a 'b' ;*\"");
    EXPECT_EQ("  a 'b' ;*\n", said.output);
    EXPECT_EQ(0, said.status);
    EXPECT_EQ(1, run("test \"\"").status);
    EXPECT_EQ(127, run("nowhere x").status);
    EXPECT_EQ(126, run("hosts x").status); // may not be run
    EXPECT_FALSE(Program().start("echo a;id"));
}

} // namespace
