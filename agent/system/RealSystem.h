#pragma once

#include "agent/Log.h"
#include "agent/system/FolderWatch.h"
#include "agent/system/Program.h"
#include "agent/system/System.h"

namespace agent {

/// The descriptors that a process has from its parent.
struct Ends {
    int link;  ///< its end of the link to the other process
    int alive; ///< takes a byte as a sign of life
    int stop;  ///< readable when it has to stop
};

/// The machine that the process runs on.
class RealSystem : public System {
public:
    /// @param beat         between two signs of life
    /// @param stateFolder  where files are stored
    /// @param watchedFile  empty for none
    /// @param clientLock   a file that a program has locked while it runs; -1 for none
    RealSystem(const Ends& ends, std::chrono::microseconds beat, const std::string& stateFolder,
               const std::string& watchedFile, int clientLock = -1);

    /// Gives the parent a sign of life. From then on wait() does so at each beat, which runs both
    /// while the process works and while it is idle.
    void showLife();

    Clock::time_point now() const override { return Clock::now(); }
    Events wait(const Events& wanted, Clock::time_point until) override;
    void send(const std::string& packet) override;
    std::optional<std::string> receive() override;
    bool startProgram(const std::string& commandLine) override;
    std::optional<ProgramEnd> collectProgram() override;
    void killProgram() override;
    std::string whyNotRun(const std::string& name) override;
    bool load(const std::string& name, std::optional<std::string>& content) override;
    bool store(const std::string& name, const std::string& content) override;
    bool remove(const std::string& name) override;
    bool rename(const std::string& name, const std::string& newName) override;
    std::optional<std::string> circuits() override;
    std::optional<FileState> watchedFile() override;
    bool watchedFileTouched() override;
    bool watchedFileHasEvents() const override;

private:
    const Ends m_ends;
    const std::chrono::microseconds m_beat;
    Clock::time_point m_beatDue = Clock::time_point::max();
    const std::string m_folder;
    const int m_clientLock;
    std::optional<FolderWatch> m_watch;
    std::optional<Program> m_program; ///< that runs
    LineLimit m_lines;                ///< about messages that are lost
};

} // namespace agent
