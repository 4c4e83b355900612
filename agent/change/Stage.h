#pragma once

#include "agent/change/Command.h"
#include "agent/change/Image.h"
#include "agent/change/Record.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace agent {

/// A write of a rehearsal.
struct Rehearsed {
    Command command;
    int id = 0;            ///< that an inserted row was given
    std::size_t trail = 0; ///< its place in the record
};

/// The writes of a rehearsal, in turn.
using Script = std::vector<Rehearsed>;

/// Stands in for the client of the configuration database: answers the library's
/// commands from an image. So the library can be asked without running anything,
/// and a set can be rehearsed: what it would do is known, and recorded, before it
/// does anything. A write to a row that the image doesn't have is answered from
/// the image and never run.
///
/// When the set is performed, its writes go to the real client too, and are
/// compared with the rehearsal command by command. The database may give a new row
/// any Id that is free: where it isn't the rehearsed one, it is translated in the
/// commands that follow. Any other difference, in an answer or in what the library
/// asks for next, ends the performance: no more writes are run.
class Stage {
public:
    /// Runs a command line. @return what the client prints; nothing when it was not started
    using Client = std::function<std::optional<std::string>(const std::string& commandLine)>;

    /// Is told when a row gets another Id than the rehearsed one. @return whether that is safely
    /// remembered
    using Renumber = std::function<bool(const Rehearsed& row, int id)>;

    /// @param image  is kept up with the writes
    /// @param record notes them; null to note nothing
    explicit Stage(Image& image, Record* record = nullptr) : m_image(image), m_record(record) {}

    /// From now on it performs what was rehearsed, which outlives it.
    void perform(const Script& script, Client client, Renumber renumber);

    /// Answers a command line as the client would; nothing when it was not started.
    std::optional<std::string> answer(const std::string& commandLine);

    /// What has been written to rows that there are.
    const Script& written() const { return m_written; }

    /// Whether something was otherwise than rehearsed, so that no more writes are run.
    bool brokenOff() const { return m_brokenOff; }

    /// Whether all that was rehearsed has been performed.
    bool isWhole() const {
        return !m_brokenOff && m_locked.empty() && m_written.size() == m_script->size();
    }

private:
    std::string select(const Command& command) const;
    std::optional<std::string> write(const Command& command, const std::string& commandLine);
    std::optional<std::string> runClient(const Command& command, const std::string& commandLine);
    bool isNext(const Command& command) const;
    bool isRehearsed(const Command& command, const std::string& said);
    void note(const Command& command, const Rows& matching, Row row);
    void apply(const Command& command, const Rows& matching, Row row);
    int present(Table table, int rehearsed) const;
    std::string present(Table table, const std::string& rehearsed) const;

    Image& m_image;
    Record* m_record;
    const Script* m_script = nullptr; ///< what is being performed
    Client m_client;
    Renumber m_renumber;
    Script m_written;
    bool m_brokenOff = false;
    std::string m_locked; ///< the command that found the database locked, and may be tried again
    std::map<std::pair<Table, int>, int> m_ids; ///< of new rows, by the rehearsed ones
};

/// What the client answers to commands that change something.
constexpr std::string_view kSucceeded = "Operation succeeded\n";
constexpr std::string_view kUnknownRow = "Unknown row\n";
constexpr std::string_view kLocked = "Database locked\n";

/// The Id that the client tells of a row that it has inserted; 0 when it tells none.
int idIn(std::string_view answer);

} // namespace agent
