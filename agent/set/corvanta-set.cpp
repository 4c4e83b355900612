// Sets objects of CORVANTA-MIB on trial and keeps them only when the router still answers; see
// corvanta-set(1). Whatever ends it before the change is confirmed has the change taken back.
#include "agent/set/Terminal.h"
#include "agent/set/Trial.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include <getopt.h>
#include <unistd.h>

namespace trial {

namespace {

constexpr const char* kOutcomes[] = {"confirmed", "unchanged",   "misused",
                                     "reverted",  "unreachable", "unknown"};

constexpr char kUsage[] =
    "usage: corvanta-set [OPTION]... HOST OBJECT=VALUE...\n"
    "\n"
    "Sets objects of CORVANTA-MIB on trial, looks whether the router still answers,\n"
    "and asks whether to keep the change. Otherwise the change is taken back.\n"
    "\n"
    "  -t, --time SECONDS  how long the trial lasts, 5 to 86400; 60\n"
    "  -w, --wait SECONDS  for the answer to a set, more than the agent's deadline; 8\n"
    "  -y, --yes           keep the change without asking when the router answers\n"
    "  -f, --force         set a WAN interface that the router does not have, unasked\n"
    "  -j, --json          print what became of it as JSON; all else to standard error\n"
    "  -l, --list          print the objects, with their rows and values, and end\n"
    "  -V, --version       print the version and end\n"
    "  -h, --help          print this and end";

seconds parseSeconds(const char* name, const std::string& text, long least, long most) {
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || text[0] < '0' || text[0] > '9' || *end != '\0' || value < least ||
        value > most)
        throw Misuse{std::string(name) + " takes " + std::to_string(least) + " to " +
                     std::to_string(most) + " seconds, not '" + text + "'"};
    return seconds(value);
}

void parseOptions(int argc, char** argv, Options& options) {
    constexpr option kNames[] = {{"time", required_argument, nullptr, 't'},
                                 {"wait", required_argument, nullptr, 'w'},
                                 {"yes", no_argument, nullptr, 'y'},
                                 {"force", no_argument, nullptr, 'f'},
                                 {"json", no_argument, nullptr, 'j'},
                                 {"list", no_argument, nullptr, 'l'},
                                 {"version", no_argument, nullptr, 'V'},
                                 {"help", no_argument, nullptr, 'h'},
                                 {nullptr, 0, nullptr, 0}};
    opterr = 0;
    for (int letter; (letter = getopt_long(argc, argv, ":t:w:yfjlVh", kNames, nullptr)) != -1;) {
        switch (letter) {
        case 't':
            options.time = parseSeconds("--time", optarg, 5, 86400);
            break;
        case 'w':
            options.wait = parseSeconds("--wait", optarg, 1, 300);
            break;
        case 'y':
            options.isSure = true;
            break;
        case 'f':
            options.isForced = true;
            break;
        case 'j':
            options.isJson = true;
            break;
        case 'l':
            listObjects();
            std::exit(kKept);
        case 'V':
            std::puts("corvanta-set " CORVANTA_VERSION);
            std::exit(kKept);
        case 'h':
            std::puts(kUsage);
            std::exit(kKept);
        case ':':
            throw Misuse{std::string(argv[optind - 1]) + " takes a value"};
        default:
            throw Misuse{std::string("there is no option ") + argv[optind - 1]};
        }
    }
    if (argc - optind < 2)
        throw Misuse{"a host and at least one OBJECT=VALUE are needed"};
    options.host = argv[optind++];
    for (; optind < argc; ++optind) {
        options.assignments.push_back(parseAssignment(argv[optind]));
        const std::string name = nameOf(options.assignments.back().instance);
        for (std::size_t i = 0; i + 1 < options.assignments.size(); ++i) {
            if (nameOf(options.assignments[i].instance) == name)
                throw Misuse{name + " is given twice"};
        }
    }
    if (!options.isSure && isatty(STDIN_FILENO) == 0)
        throw Misuse{"there is no terminal to ask on, so that --yes is needed"};
}

std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        char escaped[7] = {c};
        if (c == '"' || c == '\\')
            std::snprintf(escaped, sizeof escaped, "\\%c", c);
        else if (c < ' ' || c > '~') // the host, or what was typed for a value
            std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned char>(c));
        out += escaped;
    }
    return out + '"';
}

void printJson(const Options& options, const Values& before, const End& end) {
    std::printf(R"({"host": %s, "status": %d, "outcome": "%s", "message": %s, "objects": [)",
                quoted(options.host).c_str(), end.status, kOutcomes[end.status],
                quoted(end.text).c_str());
    const char* separator = "";
    for (std::size_t i = 0; i < options.assignments.size(); ++i) {
        const auto& [instance, value] = options.assignments[i];
        const auto text = [&object = *instance.object](const Value& shown) {
            const bool isNumber = object.words.empty() && shown.index() == 0;
            if (const auto* const octets = std::get_if<std::string>(&shown);
                octets && octets->empty())
                return quoted("");
            return isNumber ? textOf(object, shown) : quoted(textOf(object, shown));
        };
        std::printf(R"(%s{"object": %s, "old": %s, "new": %s})", separator,
                    quoted(nameOf(instance)).c_str(),
                    i < before.size() ? text(before[i]).c_str() : "null", text(value).c_str());
        separator = ", ";
    }
    std::puts("]}");
}

} // namespace

int run(int argc, char** argv) {
    Options options;
    End end{};
    Values before;
    try {
        parseOptions(argc, argv, options);
        Trial trial(options);
        end = trial.run();
        before = trial.before();
    } catch (const Misuse& misuse) {
        end = {kMisused, misuse.text + "; --help tells more"};
    }
    if (end.status == kKept && !options.isJson)
        std::puts("The change is confirmed.");
    else
        tell(end.text);
    if (options.isJson)
        printJson(options, before, end);
    return end.status;
}

} // namespace trial

int main(int argc, char** argv) {
    return trial::run(argc, argv);
}
