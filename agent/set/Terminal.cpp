#include "agent/set/Terminal.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>

#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace trial {

namespace {

constexpr int kSignals[] = {SIGHUP, SIGINT, SIGPIPE, SIGTERM};

volatile std::sig_atomic_t noted = 0;
bool isLineEnded = false; ///< whether the ^C that the terminal shows has its line ended

/// The terminal without echo and lines of its own, while a question counts down.
class Raw {
public:
    explicit Raw(bool wanted) : m_is(wanted && tcgetattr(STDIN_FILENO, &m_before) == 0) {
        if (!m_is)
            return;
        termios now = m_before;
        now.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &now);
    }
    ~Raw() {
        if (m_is)
            tcsetattr(STDIN_FILENO, TCSANOW, &m_before);
    }
    Raw(const Raw&) = delete;
    Raw& operator=(const Raw&) = delete;

private:
    termios m_before{};
    bool m_is;
};

enum class Typed { more, line, end };

/// Takes one character of an answer.
Typed take(char c, std::string& answer) {
    switch (c) {
    case '\n':
    case '\r':
        return Typed::line;
    case '\004': // Ctrl-D
        return Typed::end;
    case '\b':
    case '\177':
        if (!answer.empty())
            answer.pop_back();
        break;
    default:
        if (c >= ' ' && c <= '~' && answer.size() < 8)
            answer += c;
    }
    return Typed::more;
}

} // namespace

void noteSignals() {
    for (const int signal : kSignals) {
        struct sigaction action {};
        action.sa_handler = [](int number) { noted = number; };
        sigaction(signal, &action, nullptr);
    }
}

bool interrupted() {
    return noted != 0;
}

void pause(std::chrono::seconds time) {
    poll(nullptr, 0, static_cast<int>(std::chrono::milliseconds(time).count()));
}

void tell(const std::string& text) {
    if (noted == SIGINT && !isLineEnded && isatty(STDERR_FILENO) == 1) {
        std::fputc('\n', stderr);
        isLineEnded = true;
    }
    std::fprintf(stderr, "corvanta-set: %s\n", text.c_str());
}

bool agreed(const std::string& question, Clock::time_point until) {
    using std::chrono::seconds;
    const bool counts = isatty(STDERR_FILENO) == 1;
    const Raw raw(counts);
    std::string answer;
    Typed typed = Typed::more;
    for (bool isFirst = true; typed == Typed::more && !interrupted(); isFirst = false) {
        const auto left = std::chrono::ceil<seconds>(until - Clock::now());
        if (counts || isFirst)
            std::fprintf(stderr, "%s%s [y/N] (%lld s left) %s%s", counts ? "\r" : "",
                         question.c_str(),
                         static_cast<long long>(std::max(left, seconds(0)).count()), answer.c_str(),
                         counts ? "  \b\b" : "");
        if (left <= seconds(0))
            break;
        pollfd input{STDIN_FILENO, POLLIN, 0};
        // To the next second, or to the end.
        const auto rest = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
        if (poll(&input, 1, static_cast<int>(rest.count() % 1000) + 1) > 0) {
            char c = '\0';
            const ssize_t got = read(STDIN_FILENO, &c, 1);
            if (got == 0 || (got < 0 && errno != EINTR))
                break;
            if (got > 0)
                typed = take(c, answer);
        }
    }
    std::fputc('\n', stderr);
    isLineEnded = interrupted();
    return typed == Typed::line && !interrupted() &&
           (answer.compare(0, 1, "y") == 0 || answer.compare(0, 1, "Y") == 0);
}

} // namespace trial
