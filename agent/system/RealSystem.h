#pragma once

#include "agent/system/FolderWatch.h"
#include "agent/system/Program.h"
#include "agent/system/System.h"

namespace agent {

/// The machine that the process runs on.
class RealSystem : public System {
public:
    /// @param link         this process's end of the link
    /// @param stop         readable when it has to stop
    /// @param stateFolder  where files are stored
    /// @param watchedFile  empty for none
    /// @param clientLock   a file that a program has locked while it runs; -1 for none
    RealSystem(int link, int stop, const std::string& stateFolder, const std::string& watchedFile,
               int clientLock = -1);

    Clock::time_point now() const override { return Clock::now(); }
    Events wait(const Events& wanted, Clock::time_point until) override;
    void send(const std::string& packet) override;
    std::optional<std::string> receive() override;
    bool startProgram(const std::string& commandLine) override;
    std::optional<ProgramEnd> collectProgram() override;
    void killProgram() override;
    std::string whyNotRun(const std::string& name) override;
    std::optional<std::string> load(const std::string& name) override;
    bool store(const std::string& name, const std::string& content) override;
    bool remove(const std::string& name) override;
    bool rename(const std::string& name, const std::string& newName) override;
    std::optional<std::string> circuits() override;
    std::optional<FileState> watchedFile() override;
    bool watchedFileTouched() override;
    bool watchedFileHasEvents() const override;

private:
    const int m_link;
    const int m_stop;
    const std::string m_folder;
    const int m_clientLock;
    std::optional<FolderWatch> m_watch;
    std::optional<Program> m_program; ///< that runs
};

} // namespace agent
