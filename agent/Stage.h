#pragma once

#include "Image.h"
#include "Record.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace agent {

/// Stands in for the client of the configuration database: answers the library's
/// commands from an image. So the library can be asked without running anything,
/// and a set can be rehearsed: what it would do is known, and recorded, before it
/// does anything. When it is performed, its writes go to the real client too, for
/// as long as that answers as it was rehearsed: once it doesn't, the library is on
/// another way than the one that the record tells how to take back, and no more
/// writes are run. A write to a row that the image doesn't have is never run.
class Stage {
public:
    /// Runs a command line. @return what the client prints; nothing when it was not started
    using Client = std::function<std::optional<std::string>(const std::string& commandLine)>;

    /// @param image  is kept up with the writes
    /// @param record notes them; null to note nothing
    /// @param client runs them; without one they only happen here
    explicit Stage(Image& image, Record* record = nullptr, Client client = nullptr)
        : m_image(image), m_record(record), m_client(std::move(client)) {}

    /// @return whether a command line is one for the client
    static bool isFor(std::string_view commandLine);

    /// Answers a command line as the client would; nothing when it was not started.
    std::optional<std::string> answer(const std::string& commandLine);

    /// @return how many of them the client has to run, or had to
    int writes() const { return m_writes; }

    /// Whether the client has answered otherwise than rehearsed, so that no more writes are run.
    bool brokenOff() const { return m_brokenOff; }

private:
    struct Command;

    std::string select(const Command& command) const;
    std::optional<std::string> write(const Command& command, const std::string& commandLine);
    std::optional<std::string> runClient(const Command& command, const std::string& commandLine);
    bool isRehearsed(const Command& command, const std::string& said);
    void put(Table table, int id, const std::optional<Row>& version);
    void noteReferences(const std::string& bridge);

    Image& m_image;
    Record* m_record;
    Client m_client;
    int m_writes = 0;
    bool m_brokenOff = false;
    std::string m_locked; ///< the command that found the database locked, and may be tried again
    /// The row that was inserted last into a table whose rows can be neighbours.
    struct {
        std::string bridge;
        int id = 0;
    } m_neighbour;
};

/// What the client answers to commands that change something.
constexpr std::string_view kSucceeded = "Operation succeeded\n";
constexpr std::string_view kUnknownRow = "Unknown row\n";
constexpr std::string_view kLocked = "Database locked\n";

} // namespace agent
