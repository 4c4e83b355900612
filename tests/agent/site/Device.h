#pragma once

#include "tests/agent/site/Process.h"

#include <string>

/// The stand-in device, in a temporary folder, with a client between the agent and the real one. It
/// obeys files in the folder, which write() makes and release() removes:
///
///     hold     each command that changes something waits until "held" is gone, which it makes
///     stall    every command waits until the file is gone, and makes "stalled"
///     delay    every command takes that many seconds more
///     silent   no command answers
///     runs     gets a line for each command
///     fault    is what the fifth command that changes something does, as lines for its shell;
///              $real is the real client
///
/// and notes in "sockets" those that it inherits.
class Device {
public:
    Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    ~Device();

    std::string run(const std::string& command) const { return output(folder, command); }

    bool has(const char* file) const { return fs::exists(folder / file); }

    void write(const char* file, const std::string& text) const;

    void release(const char* file) const { fs::remove(folder / file); }

    std::string sql(const std::string& statement) const;

    /// Waits for a client that is held. @return its process
    int held() const;

    /// Lets a client that is held go on, and those that come after it.
    void letGo() const;

    /// How often the client has run since "runs" was written.
    int runs() const;

    /// Opens or closes circuit 8, as the kernel would.
    void setCircuit(bool open) const;

    fs::path folder;
};
