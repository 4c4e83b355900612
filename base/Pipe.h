#pragma once

#include <cstdio>
#include <string>

namespace kavo::snmp {

/// A program's output, closed on every path. `Programs` has Popen(), Fgets() and Pclose(), which
/// report their failures themselves.
template <class Programs>
class Pipe {
public:
    Pipe(Programs& programs, const std::string& command)
        : m_programs(programs), m_stream(programs.Popen(command, "r")) {}
    ~Pipe() {
        if (m_stream != nullptr)
            m_programs.Pclose(m_stream);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    explicit operator bool() const { return m_stream != nullptr; }

    /// @return whether another line, newline kept, was read into the buffer
    template <int size>
    bool readLine(char (&line)[size]) {
        return m_programs.Fgets(line, size, m_stream) != nullptr;
    }

private:
    Programs& m_programs;
    FILE* m_stream;
};

} // namespace kavo::snmp
