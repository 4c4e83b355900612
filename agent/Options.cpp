#include "agent/Options.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <variant>
#include <vector>

#include <getopt.h>
#include <unistd.h>

namespace agent {

namespace {

using Seconds = std::chrono::seconds;

struct Option {
    char letter;
    const char* name;
    const char* argument; ///< null when it takes none
    const char* help;
    std::variant<std::string Options::*, Seconds Options::*, bool Options::*, void (*)()> target;
};

[[noreturn]] void help();

[[noreturn]] void version() {
    std::puts("corvantad " CORVANTA_VERSION);
    std::exit(0);
}

// clang-format off
constexpr Option kOptions[] = {
    {'x', "agentx", "SOCKET", "connect to the master agent at SOCKET", &Options::socket},
    {'m', "master", "ADDRESS", "listen at ADDRESS, such as udp:127.0.0.1:1161; no master\n"
                               "agent is needed", &Options::master},
    {'c', "config", "FILE", "read FILE, in the format of snmpd.conf", &Options::config},
    {'s', "state", "DIR", "keep what must outlive a restart in DIR (/var/lib/corvanta)", &Options::state},
    {'i', "interval", "SECONDS", "pause between two refreshes (30)", &Options::interval},
    {'w', "watch-database", "FILE", "FILE changes whenever the database does: read the database\n"
                                    "then, and at each interval the line only", &Options::watchDatabase},
    {'F', "full-interval", "SECONDS", "with a watched file, read everything at least so often (3600)", &Options::fullInterval},
    {'p', "refresh-pause", "SECONDS", "shortest pause between two refreshes that a change of the\n"
                                      "file makes (1)", &Options::refreshPause},
    {'a', "max-age", "SECONDS", "answer genErr when the values are older (120)", &Options::maxAge},
    {'d', "set-deadline", "SECONDS", "longest wait for a set (5); the master's agentXTimeout\n"
                                     "must be longer", &Options::setDeadline},
    {'l', "client-limit", "SECONDS", "kill a client of the database that runs longer (30)", &Options::clientLimit},
    {'n', "notifications", nullptr, "send one when a circuit goes up or down, or a change is\n"
                                    "taken back", &Options::notifications},
    {'u', "user", "NAME", "run as this user once connected", &Options::user},
    {'U', "net-user", "NAME", "run what faces the network as this user, started as root", &Options::netUser},
    {'f', "foreground", nullptr, "stay in the foreground, log to standard error too", &Options::foreground},
    {'v', "verbose", nullptr, "log the library's trace", &Options::verbose},
    {'V', "version", nullptr, "print the version", version},
    {'h', "help", nullptr, "print this text", help},
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

[[noreturn]] void fail(const std::string& text) {
    std::fprintf(stderr, "corvantad: %s\nTry 'corvantad --help'.\n", text.c_str());
    std::exit(2);
}

/// Puts an option's argument where it belongs.
struct Apply {
    Options& options;

    void operator()(std::string Options::*target) const {
        if (*optarg == '\0')
            fail("an option has an empty argument");
        options.*target = optarg;
    }
    void operator()(bool Options::*target) const { options.*target = true; }
    void operator()(void (*target)()) const { target(); }
    void operator()(Seconds Options::*target) const {
        char* end = nullptr;
        errno = 0;
        const long value = std::strtol(optarg, &end, 10);
        if (end == optarg || *end != '\0' || errno != 0 || value < 1 || value > 604800)
            fail(std::string("'") + optarg + "' is not a number of seconds from 1 to 604800");
        options.*target = Seconds(value);
    }
};

} // namespace

Options parseOptions(int argc, char** argv) {
    std::string letters = ":"; // no lines of the parser's own
    std::vector<option> names;
    for (const Option& option : kOptions) {
        letters += option.letter;
        letters += option.argument ? ":" : "";
        names.push_back({option.name, option.argument ? required_argument : no_argument, nullptr,
                         option.letter});
    }
    names.push_back({});
    Options options;
    int letter;
    while ((letter = getopt_long(argc, argv, letters.c_str(), names.data(), nullptr)) != -1) {
        if (letter == '?' || letter == ':') {
            const std::string last = argv[optind - 1];
            const bool isLong = last.rfind("--", 0) == 0 || optopt == 0;
            fail((letter == '?' ? "unknown or incomplete option '"
                                : "an argument is missing after '") +
                 (isLong ? last : std::string("-") + static_cast<char>(optopt)) + "'");
        }
        for (const Option& option : kOptions) {
            if (option.letter == letter)
                std::visit(Apply{options}, option.target);
        }
    }
    if (optind < argc)
        fail(std::string("unexpected argument '") + argv[optind] + "'");
    if (!options.socket.empty() && !options.master.empty())
        fail("--agentx and --master exclude each other");
    if (options.maxAge <= options.interval)
        fail("--max-age must be longer than --interval: values would be too old before each "
             "refresh");
    if (!options.config.empty() && access(options.config.c_str(), R_OK) != 0)
        fail("cannot read " + options.config);
    return options;
}

} // namespace agent
