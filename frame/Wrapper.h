#pragma once

#include <corvanta.h>

#include <cstdio>
#include <string>
#include <vector>

/// The process-wide small utilities: process pipes with logged failures, the system log, case,
/// tokens and texts. Whoever initializes last sets m_bVerbose.
class CORVANTA_API Wrapper {
public:
    /// @return the one instance, made on first use and owned by the class
    static Wrapper* getInstance();
    static void Destroy();

    Wrapper();
    ~Wrapper();
    Wrapper(const Wrapper&) = delete;
    Wrapper& operator=(const Wrapper&) = delete;

    bool initialize(bool verbose);
    bool classInvariant() const;

    /// popen(), fgets() and pclose() with their results; failures are logged.
    FILE* Popen(const std::string& command, const std::string& mode);
    char* Fgets(char* buffer, int size, FILE* stream);
    int Pclose(FILE* stream);

    /// Opens the system log. @param ident is kept and must outlive the process's logging
    void Openlog(const char* ident);

    /// ASCII only, so that a host's locale cannot rename a table.
    std::string ToUpperCase(const std::string& s);
    std::string ToLowerCase(const std::string& s);

    /// @return each element followed by ","
    std::string VectorToString(std::vector<std::string>& v);

    /// @param info must not be null
    std::string SpeedInfoToString(const speedInfo_s* info);

    /// @return the runs of characters of str that are not in delims, in order
    std::vector<std::string> Tokenize(const std::string& str, const std::string& delims);

    static Wrapper* m_pInstance;
    bool m_bVerbose = false;
    bool m_bInitalized = false;
};
