#pragma once

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

/// What the fuzz targets share; each is one source. Programs that the library runs answer from
/// memory, and every command is looked at before it would reach the shell.
namespace fuzz {

inline std::vector<std::string> answers; // the input's parts between '~', in turn, over and over
inline int limit, started;               // programs that may run and that were to run
inline std::string output;               // of the program that runs
inline FILE* stream;
inline thread_local bool testing; // not one of the fuzzer's own threads

/// What a target does with an input.
void test(std::string_view input);

/// Makes the input a finding unless a condition holds.
inline void expect(bool holds, const char* what) {
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

/// Begins with the first answer again, for so many programs; "!" is one that cannot start.
inline void start(int programs) {
    expect(stream == nullptr, "every pipe is closed");
    limit = programs;
    started = 0;
}

/// Takes the first part, as a value, from the answers; an only one is both.
inline std::string takeValue() {
    std::string value = answers.front();
    if (answers.size() > 1)
        answers.erase(answers.begin());
    return value;
}

/// Whether the shell sees one program with at most one argument, and the client one command.
inline bool isOneCommand(const char* command) {
    int end = 0;
    std::sscanf(command, " quorlet \"%*[^\"$`\\;\1-\37\177]%n", &end);
    const std::string rest = command + end;
    return rest == ";\"" || rest == ";\" " || rest == "; \" " || rest == "vellstat info";
}

} // namespace fuzz

// What the library calls instead of the platform's own.
extern "C" {

FILE* popen(const char* command, const char*) {
    fuzz::expect(fuzz::isOneCommand(command), "the shell sees one command");
    fuzz::expect(fuzz::stream == nullptr, "one program runs at a time");
    const auto number = static_cast<std::size_t>(fuzz::started++);
    std::string& text = fuzz::output = fuzz::answers[number % fuzz::answers.size()];
    if (fuzz::started > fuzz::limit || text == "!")
        return nullptr;
    return fuzz::stream = fmemopen(text.data(), text.size(), "r");
}

int pclose(FILE* file) {
    fuzz::expect(file != nullptr && file == fuzz::stream, "an open pipe is closed");
    fuzz::stream = nullptr;
    return std::fclose(file);
}

unsigned int sleep(unsigned int seconds) {
    if (!fuzz::testing)
        return static_cast<unsigned int>(usleep(seconds * 1000000));
    fuzz::expect(seconds == 1 && !std::strcmp(fuzz::output.c_str(), "Database locked\n"),
                 "only a lock is waited for");
    return 0;
}

void syslog(int, const char* format, ...) {
    std::va_list values;
    va_start(values, format);
    fuzz::expect(!std::strcmp(format, "%s\n") && std::strstr(va_arg(values, char*), ": "),
                 "a log line is whole, and no format");
    va_end(values);
}

int LLVMFuzzerTestOneInput(const char* input, std::size_t size) {
    fuzz::testing = true;
    fuzz::answers.assign(1, "");
    for (const char c : std::string_view(input, size))
        c == '~' ? fuzz::answers.emplace_back() : fuzz::answers.back() += c;
    fuzz::test({input, size});
    fuzz::start(0);
    return 0;
}
}

#ifndef CORVANTA_FUZZ // without the fuzzer: replays files
int main(int count, char** files) {
    for (int i = 1; i < count; ++i) {
        std::fprintf(stderr, "%s\n", files[i]); // names the input that ends the program
        static char input[65536];
        FILE* const file = std::fopen(files[i], "rb");
        LLVMFuzzerTestOneInput(input, std::fread(input, 1, sizeof input, file));
        std::fclose(file);
    }
    return count > 1 ? 0 : 1;
}
#endif
