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
/// does anything. When it is performed, its writes go to the real client too.
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

    /// @return how many of them have changed something, or tried to
    int writes() const { return m_writes; }

private:
    struct Command;

    std::string select(const Command& command) const;
    std::optional<std::string> write(const Command& command, const std::string& commandLine);
    void put(Table table, int id, const std::optional<Row>& version);
    void noteReferences(const std::string& bridge);

    Image& m_image;
    Record* m_record;
    Client m_client;
    int m_writes = 0;
};

/// What the client answers to commands that change something.
constexpr std::string_view kSucceeded = "Operation succeeded\n";
constexpr std::string_view kUnknownRow = "Unknown row\n";
constexpr std::string_view kLocked = "Database locked\n";

} // namespace agent
