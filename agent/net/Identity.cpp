#include "agent/net/Identity.h"

#include "agent/Log.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sstream>

namespace agent::net {

namespace {

constexpr const char* kFile = "corvantad.conf";
constexpr const char* kHead =
    "# Engine ID, boot count and users of corvantad, which replaces this file as a whole.\n"
    "# While it is stopped, createUser lines may be added.\n";

constexpr const char* kBoots = "engineBoots ";
constexpr const char* kEngine = "oldEngineID 0x";
constexpr const char* kUser = "usmUser ";
constexpr const char* kNewUser = "createUser ";

/// How the lines begin that are passed on as they are. The toolkit would take any other line of a
/// configuration too, such as code to run: whoever takes over the process that faces the network
/// can write the file, and the next start reads it before it is in its sandbox.
constexpr const char* kKept[] = {
    kUser, kNewUser, "psyslocation ", "psyscontact ", "psysname ", "pauthtrapenable ", "#"};

bool begins(const std::string& text, const char* with) {
    return text.rfind(with, 0) == 0;
}

/// The lines of a file, with those of the engine apart.
struct Content {
    explicit Content(const std::string& text) : ours(begins(text, kHead)) {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            const bool ends = !lines.eof();
            if (begins(line, kBoots))
                boots =
                    std::max(boots, std::strtol(line.c_str() + std::strlen(kBoots), nullptr, 10));
            else if (begins(line, kEngine))
                engine = ends ? line : ""; // an open end is no end
            else if (line.empty() || std::any_of(std::begin(kKept), std::end(kKept),
                                                 [&](auto kept) { return begins(line, kept); }))
                others += line + '\n';
            else
                ++foreign;
            newUsers += begins(line, kNewUser) ? line + '\n' : "";
            hasUsers = hasUsers || begins(line, kUser);
        }
    }

    /// The engine is what the toolkit writes last.
    bool isWhole() const { return boots > 0 && !engine.empty(); }

    bool ours; ///< written by this version
    long boots = 0;
    std::string engine; ///< the line with its ID
    std::string others;
    int foreign = 0; ///< lines left out
    std::string newUsers;
    bool hasUsers = false;
};

/// What other versions have left. Up to 1.1 the toolkit wrote the file itself, line by line, and
/// set the old one aside meanwhile. 1.1.1 had it do that in a folder beside.
std::vector<std::string> leftovers() {
    constexpr int kLastBackup = 10;
    std::vector<std::string> names;
    for (int i = 0; i <= kLastBackup; ++i)
        names.push_back("corvantad." + std::to_string(i) + ".conf");
    names.insert(names.end(), {std::string("new/") + kFile, "new", "cert_indexes"});
    return names;
}

/// Reads what there is by a name; a folder is as good as an empty file.
/// @return whether it could be looked at
bool read(System& system, const std::string& name, std::optional<std::string>& text) {
    if (system.load(name, text))
        return true;
    if (errno == EISDIR)
        text.emplace();
    return errno == EISDIR;
}

bool cannotRead(const std::string& name) {
    log(LOG_ERR, "cannot read " + name + ": " + std::strerror(errno));
    return true;
}

} // namespace

std::optional<std::string> Identity::load() {
    std::optional<std::string> text;
    if (!read(m_system, kFile, text) && cannotRead(kFile))
        return std::nullopt;
    const Content own(text.value_or(""));
    if (own.foreign > 0)
        log(LOG_WARNING, std::string(kFile) + ": ignores " + std::to_string(own.foreign) +
                             " lines that only a configuration file may have");
    Content best = own;
    m_leftovers.clear();
    for (const std::string& name : leftovers()) {
        std::optional<std::string> leftover;
        const bool readable = read(m_system, name, leftover);
        if (!leftover && (readable || errno == ENOENT)) // in a folder that isn't there either
            continue;
        if (!readable && !own.isWhole() && cannotRead(name))
            return std::nullopt;
        m_leftovers.push_back(name);
        const Content content(leftover.value_or(""));
        const long boots = std::max(best.boots, content.boots);
        if (content.isWhole() && !best.isWhole()) {
            log(LOG_WARNING, std::string(kFile) + " is not whole: " + name + " takes its place");
            best = content;
            best.others += own.newUsers;
        }
        if (content.engine.empty() || content.engine == best.engine)
            best.boots = boots;
    }
    if (!best.isWhole()) {
        if (text && (text->empty() || own.hasUsers || own.boots > 0))
            log(LOG_ERR, std::string(kFile) + " is not whole, and nothing is left to mend it by: " +
                             "the engine gets a new ID, which the keys of old users don't fit");
        return best.others;
    }
    // 1.0 served with a number before it was stored.
    const long boots = best.boots + (own.ours ? 0 : 1);
    return best.others + kBoots + std::to_string(boots) + '\n' + best.engine + '\n';
}

bool Identity::store(const std::string& lines) {
    if (!Content(lines).isWhole()) {
        log(LOG_ERR, "the SNMP toolkit has not told its engine ID and boot count");
        return false;
    }
    if (!m_system.store(kFile, kHead + lines)) {
        log(LOG_ERR, std::string("cannot write ") + kFile + ": " + std::strerror(errno));
        return false;
    }
    for (const std::string& name : m_leftovers)
        m_system.remove(name); // one that stays does no harm beside a whole file
    m_leftovers.clear();
    return true;
}

} // namespace agent::net
