#include "tests/library/Platform.h"

#include "frame/Wrapper.h"
#include "objects/data_cache.h"
#include "objects/managed_objects.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <map>
#include <memory>
#include <new>
#include <regex>
#include <sys/types.h>
#include <unistd.h>

namespace {

/// What the harness allocates is not the library's.
class Unwatched {
public:
    ~Unwatched() { Allocations::counting = before; }

private:
    bool before = std::exchange(Allocations::counting, false);
};

void* allocate(std::size_t size) noexcept {
    const long number = Allocations::counting ? Allocations::made++ : -1;
    if (number >= Allocations::failFrom && number < Allocations::failUntil)
        return nullptr;
    return std::malloc(size ? size : 1);
}

/// What is read from an open stream, and how far.
struct Stream {
    Answer answer;
    std::size_t at;
};

FILE* openPipe = nullptr;

ssize_t readStream(void* cookie, char* buffer, std::size_t size) {
    auto& [answer, at] = *static_cast<Stream*>(cookie);
    const std::size_t piece = 7; // a pipe hands over what it has
    const std::size_t count = std::min({size, piece, answer.text.size() - at});
    if (count == 0 && answer.fault == Answer::Fault::read) {
        errno = EIO;
        return -1;
    }
    std::memcpy(buffer, answer.text.data() + at, count);
    at += count;
    return static_cast<ssize_t>(count);
}

int closeStream(void* cookie) {
    Unwatched unwatched;
    EXPECT_EQ(nullptr, openPipe) << "a pipe is closed with pclose()";
    --platform.openStreams;
    const std::unique_ptr<Stream> stream(static_cast<Stream*>(cookie));
    return stream->answer.fault == Answer::Fault::close ? -1 : 0;
}

FILE* open(Answer answer) {
    if (answer.fault == Answer::Fault::start)
        return nullptr;
    EXPECT_EQ(0, platform.openStreams++) << "one stream at a time";
    cookie_io_functions_t functions = {};
    functions.read = readStream;
    functions.close = closeStream;
    return fopencookie(new Stream{std::move(answer), 0}, "r", functions);
}

/// Keeps a log line, after a look at what all log lines have in common.
void keepLogLine(int priority, const std::string& line) {
    const std::set<std::pair<std::string, int>> levels = {
        {"error", 3}, {"warning", 4}, {"trace", 6}, {"tracedo", 7}, {"debug", 7}};
    const std::map<std::string, std::string> tags = {{"SnmpConfigHandler", "SnmpCfgHdr"},
                                                     {"MappingTable", "MappingTbl"}};
    static const std::regex head("(([a-z]+):(\\w+): )(\\w+):(\\d+)  ");
    std::smatch part;
    ASSERT_TRUE(std::regex_search(line, part, head, std::regex_constants::match_continuous))
        << line;
    EXPECT_EQ(1U, levels.count({part[2], priority})) << line;
    EXPECT_EQ(part[3], tags.count(part[4]) ? tags.at(part[4]) : part[4].str());
    platform.log.push_back(part[1].str() + part.suffix().str());
    platform.logNumbers.insert(std::stoi(part[5]));
}

} // namespace

Platform platform;

void Platform::script(std::deque<Answer> inOrder) {
    commands.clear();
    answers = std::move(inOrder);
    client = [this](const std::string& command) {
        if (answers.empty()) {
            ADD_FAILURE() << "one too many: " << command;
            return notStarted;
        }
        Answer next = answers.front();
        answers.pop_front();
        return next;
    };
}

Lines Platform::takeLog() {
    logNumbers.clear();
    return std::exchange(log, {});
}

PlatformTest::PlatformTest() {
    platform = Platform();
    platform.script({});
    m_bVerbose = false;
    debug_level = 7;
    Wrapper::getInstance()->m_bVerbose = false;
}

PlatformTest::~PlatformTest() {
    delete std::exchange(mgmt_o.cache, nullptr);
    EXPECT_EQ(0, platform.openStreams);
    EXPECT_TRUE(platform.answers.empty()) << platform.answers.size() << " answers were not asked";
}

std::string taken(char* text) {
    const std::string copy = text ? text : "(null)";
    std::free(text);
    return copy;
}

// What the library calls instead of the platform's own.

void* operator new(std::size_t size) {
    if (void* const memory = allocate(size))
        return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

extern "C" {

char* strdup(const char* text) noexcept {
    const std::size_t size = std::strlen(text) + 1;
    void* const memory = allocate(size);
    return static_cast<char*>(memory ? std::memcpy(memory, text, size) : nullptr);
}

FILE* popen(const char* command, const char* mode) {
    Unwatched unwatched;
    if (std::strcmp(mode, "r") != 0)
        return nullptr;
    platform.commands.push_back(command);
    return openPipe = open(platform.client(command));
}

int pclose(FILE* file) {
    Unwatched unwatched;
    EXPECT_EQ(openPipe, file);
    openPipe = nullptr;
    return std::fclose(file) == 0 ? 512 : -1; // the status of a client that failed: nobody looks
}

FILE* fopen(const char* path, const char* mode) {
    Unwatched unwatched;
    if (std::strcmp(path, "/proc/net/atm/pvc") == 0)
        return open(platform.circuits);
    using Function = FILE* (*)(const char*, const char*);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "fopen"));
    return real(path, mode);
}

unsigned sleep(unsigned seconds) {
    Unwatched unwatched;
    platform.sleeps.push_back(seconds);
    return 0;
}

std::time_t time(std::time_t* where) noexcept {
    if (where)
        *where = platform.clock;
    return platform.clock;
}

void openlog(const char* ident, int option, int facility) {
    Unwatched unwatched;
    platform.openedLog =
        std::string(ident) + " " + std::to_string(option) + " " + std::to_string(facility);
}

void syslog(int priority, const char* format, ...) {
    Unwatched unwatched;
    EXPECT_STREQ("%s\n", format);
    std::va_list arguments;
    va_start(arguments, format);
    keepLogLine(priority, va_arg(arguments, const char*));
    va_end(arguments);
}

/// A second initialize() leaves the first handler in place.
const char* __lsan_default_suppressions() {
    return "leak:^initialize$\n";
}
}
