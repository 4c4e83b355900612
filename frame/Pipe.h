#pragma once

#include "frame/Wrapper.h"

namespace kavo::snmp {

/** A program's output through the Wrapper's pipe functions, closed on every path. */
class Pipe {
public:
    Pipe(Wrapper& wrapper, const std::string& command)
        : m_wrapper(wrapper), m_stream(wrapper.Popen(command, "r")) {}
    ~Pipe() {
        if (m_stream != nullptr)
            m_wrapper.Pclose(m_stream);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    explicit operator bool() const { return m_stream != nullptr; }

    /** @return whether another line, newline kept, was read into the buffer */
    template <int size>
    bool readLine(char (&line)[size]) {
        return m_wrapper.Fgets(line, size, m_stream) != nullptr;
    }

private:
    Wrapper& m_wrapper;
    FILE* m_stream;
};

} // namespace kavo::snmp
