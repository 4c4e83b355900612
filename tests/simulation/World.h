#pragma once

#include "agent/change/Image.h"
#include "agent/link/Messages.h"
#include "agent/system/System.h"

#include <deque>
#include <functional>
#include <map>
#include <string>

/// A machine in memory for the process that owns the device: time is a number, the database a few
/// rows, and a file is there once it is stored.
///
/// A process that is killed goes on without any effect until it stops, for an exception could not
/// pass through the library.
class World : public agent::System {
public:
    World();

    /// What the machine outlives every process with.
    agent::Image database;
    std::map<std::string, std::string> files;

    std::deque<agent::Message> inbox; ///< for the process
    std::deque<agent::Message> sent;  ///< by the process
    std::function<bool()> stops;      ///< whether the process has to stop
    int killAt = 0;                   ///< the write before which the process is killed; 0: none
    bool killAfter = false;           ///< that one is made all the same
    int writes = 0;                   ///< of the client, since the process began
    int reads = 0;

    /// Another process begins.
    void begin();
    bool killed() const { return m_killed; }

    agent::Clock::time_point now() const override { return m_now; }
    Events wait(const Events& wanted, agent::Clock::time_point until) override;
    void send(const std::string& packet) override;
    std::optional<std::string> receive() override;
    bool startProgram(const std::string& commandLine) override;
    std::optional<agent::ProgramEnd> collectProgram() override;
    void killProgram() override {}
    std::string whyNotRun(const std::string&) override { return ""; }
    bool load(const std::string& name, std::optional<std::string>& content) override;
    bool store(const std::string& name, const std::string& content) override;
    bool remove(const std::string& name) override;
    bool rename(const std::string& name, const std::string& newName) override;
    std::optional<std::string> circuits() override { return ""; }
    std::optional<agent::FileState> watchedFile() override { return std::nullopt; }
    bool watchedFileTouched() override { return false; }
    bool watchedFileHasEvents() const override { return false; }

private:
    agent::Clock::time_point m_now;
    bool m_killed = false;
    std::string m_said; ///< of the program that has run
};
