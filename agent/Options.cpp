#include "Options.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <getopt.h>

namespace agent {

namespace {

struct Option {
    char letter;
    const char* name;
    const char* argument; ///< null when it takes none
    const char* help;
    void (*apply)(Options& options, const char* argument);
};

[[noreturn]] void fail(const std::string& text) {
    std::fprintf(stderr, "corvantad: %s\nTry 'corvantad --help'.\n", text.c_str());
    std::exit(2);
}

std::chrono::seconds seconds(const char* text, long minimum, long maximum) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || errno != 0 || value < minimum || value > maximum)
        fail("'" + std::string(text) + "' is no number of seconds from " + std::to_string(minimum) +
             " to " + std::to_string(maximum));
    return std::chrono::seconds(value);
}

[[noreturn]] void help();

[[noreturn]] void version() {
    std::puts("corvantad " CORVANTA_VERSION);
    std::exit(0);
}

// clang-format off
constexpr Option kOptions[] = {
    {'x', "agentx", "SOCKET", "connect to the master agent at SOCKET",
     [](Options& o, const char* a) { o.socket = a; }},
    {'m', "master", "ADDRESS", "need no master agent: listen at ADDRESS, such as\n"
                               "udp:127.0.0.1:1161",
     [](Options& o, const char* a) { o.master = a; }},
    {'c', "config", "FILE", "read FILE, in the format of snmpd.conf, instead of the\n"
                            "corvantad.conf in the places of snmp_config(5)",
     [](Options& o, const char* a) { o.config = a; }},
    {'s', "state", "DIR", "keep what must outlive a restart of a --master in DIR",
     [](Options& o, const char* a) { o.state = a; }},
    {'i', "interval", "SECONDS", "pause between two refreshes (30)",
     [](Options& o, const char* a) { o.interval = seconds(a, 1, 86400); }},
    {'a', "max-age", "SECONDS", "answer genErr when the values are older (120)",
     [](Options& o, const char* a) { o.maxAge = seconds(a, 1, 604800); }},
    {'d', "set-deadline", "SECONDS", "longest wait for a set (5); the master's agentXTimeout\n"
                                     "must be longer",
     [](Options& o, const char* a) { o.setDeadline = seconds(a, 1, 300); }},
    {'n', "notifications", nullptr, "send a notification when a circuit goes up or down",
     [](Options& o, const char*) { o.notifications = true; }},
    {'u', "user", "NAME", "run as this user once connected",
     [](Options& o, const char* a) { o.user = a; }},
    {'f', "foreground", nullptr, "stay in the foreground, log to standard error too",
     [](Options& o, const char*) { o.foreground = true; }},
    {'v', "verbose", nullptr, "log the library's trace",
     [](Options& o, const char*) { o.verbose = true; }},
    {'V', "version", nullptr, "print the version",
     [](Options&, const char*) { version(); }},
    {'h', "help", nullptr, "print this text",
     [](Options&, const char*) { help(); }},
};
// clang-format on

void help() {
    std::puts("Usage: corvantad [OPTION]...\n"
              "\n"
              "Shows an ATM-over-SHDSL modem-router to SNMP managers through CORVANTA-MIB, as an\n"
              "AgentX subagent of the system's snmpd unless --master is given.\n");
    for (const Option& option : kOptions) {
        std::string left = std::string("  -") + option.letter + ", --" + option.name;
        if (option.argument)
            left += std::string(" ") + option.argument;
        for (const char* c = option.help; *c != '\0'; ++c) {
            if (c == option.help || c[-1] == '\n')
                std::printf("%-29s ", c == option.help ? left.c_str() : "");
            std::putchar(*c);
        }
        std::putchar('\n');
    }
    std::puts("\nTo try it out: corvantad --foreground --master udp:127.0.0.1:1161 --config FILE\n"
              "See corvantad(8).");
    std::exit(0);
}

} // namespace

Options parseOptions(int argc, char** argv) {
    std::string letters;
    std::vector<option> names;
    for (const Option& option : kOptions) {
        const bool takesOne = option.argument != nullptr;
        letters += option.letter;
        letters += takesOne ? ":" : "";
        names.push_back(
            {option.name, takesOne ? required_argument : no_argument, nullptr, option.letter});
    }
    names.push_back({});
    Options options;
    for (int letter;
         (letter = getopt_long(argc, argv, letters.c_str(), names.data(), nullptr)) != -1;) {
        if (letter == '?')
            fail("unknown or incomplete option");
        for (const Option& option : kOptions) {
            if (option.letter == letter)
                option.apply(options, optarg);
        }
    }
    if (optind < argc)
        fail(std::string("unexpected argument '") + argv[optind] + "'");
    if (!options.socket.empty() && !options.master.empty())
        fail("--agentx and --master exclude each other");
    return options;
}

} // namespace agent
