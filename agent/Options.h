#pragma once

#include <chrono>
#include <string>

namespace agent {

struct Options {
    std::string socket; ///< of the AgentX master; empty for the toolkit's default
    std::string master; ///< address to listen at without a master; empty for a subagent
    std::string config;
    std::string state = "/var/lib/corvanta";
    std::string user;          ///< who owns the device; empty: the user that starts the agent
    std::string netUser;       ///< who faces the network; empty for the same
    std::string watchDatabase; ///< a file that changes whenever the database does; may be empty
    std::chrono::seconds interval{30};
    std::chrono::seconds fullInterval{3600};
    std::chrono::seconds refreshPause{1};
    std::chrono::seconds maxAge{120};
    std::chrono::seconds setDeadline{5};
    std::chrono::seconds clientLimit{30};
    std::chrono::microseconds beat = std::chrono::seconds(5); ///< between two signs of life
    bool notifications = false;
    bool foreground = false;
    bool verbose = false;
};

/// Reads the command line. Ends the program after --help and --version, and on a mistake with a
/// line that names it and exit status 2.
Options parseOptions(int argc, char** argv);

} // namespace agent
