#include "frame/Wrapper.h"

#include "base/Log.h"
#include "base/Text.h"

#include <cinttypes>
#include <syslog.h>

namespace {

constexpr kavo::snmp::log::Unit kUnit = {"Wrapper", "Wrapper"};

constexpr char toUpper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}
constexpr char toLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

} // namespace

Wrapper* Wrapper::m_pInstance = nullptr;

Wrapper* Wrapper::getInstance() {
    if (m_pInstance == nullptr)
        m_pInstance = new Wrapper();
    return m_pInstance;
}

void Wrapper::Destroy() {
    delete m_pInstance;
    m_pInstance = nullptr;
}

Wrapper::Wrapper() = default;

Wrapper::~Wrapper() {
    m_bInitalized = false;
    LOG_IF(m_bVerbose, tracedo, "~Wrapper: Destruction");
}

bool Wrapper::initialize(bool verbose) {
    m_bVerbose = verbose;
    m_bInitalized = true;
    return true;
}

bool Wrapper::classInvariant() const {
    return true;
}

FILE* Wrapper::Popen(const std::string& command, const std::string& mode) {
    FILE* const stream = popen(command.c_str(), mode.c_str());
    if (stream == nullptr)
        LOG(error, "popen error");
    return stream;
}

char* Wrapper::Fgets(char* buffer, int size, FILE* stream) {
    char* const line = fgets(buffer, size, stream);
    if (line == nullptr && ferror(stream) != 0)
        LOG(error, "fgets error");
    return line;
}

int Wrapper::Pclose(FILE* stream) {
    const int status = pclose(stream);
    if (status == -1)
        LOG(error, "pclose error");
    return status;
}

void Wrapper::Openlog(const char* ident) {
    openlog(ident, LOG_PID | LOG_CONS, LOG_DAEMON);
}

std::string Wrapper::ToUpperCase(const std::string& s) {
    std::string s2 = s;
    for (char& c : s2)
        c = toUpper(c);
    LOG_IF(m_bVerbose, tracedo, "ToUpperCase: s2: %s", s2.c_str());
    return s2;
}

std::string Wrapper::ToLowerCase(const std::string& s) {
    std::string s2 = s;
    for (char& c : s2)
        c = toLower(c);
    return s2;
}

std::string Wrapper::VectorToString(std::vector<std::string>& v) {
    std::string text;
    for (const std::string& element : v)
        text += element + ",";
    return text;
}

std::string Wrapper::SpeedInfoToString(const speedInfo_s* info) {
    return kavo::snmp::format("SpeedInfo[dslActualDataRateDown=%" PRIu32
                              ",dslActualDataRateUp=%" PRIu32 ",dslAttainableDataRateDown=%" PRIu32
                              ",dslAttainableDataRateUp=%" PRIu32 "]",
                              info->dslActualDataRateDown, info->dslActualDataRateUp,
                              info->dslAttainableDataRateDown, info->dslAttainableDataRateUp);
}

std::vector<std::string> Wrapper::Tokenize(const std::string& str, const std::string& delims) {
    LOG_IF(m_bVerbose, tracedo, "Tokenize: tokenizing string using delims %s: %s", delims.c_str(),
           str.c_str());
    std::vector<std::string> tokens;
    std::size_t begIdx = str.find_first_not_of(delims);
    while (begIdx != std::string::npos) {
        std::size_t endIdx = str.find_first_of(delims, begIdx);
        if (endIdx == std::string::npos)
            endIdx = str.length();
        tokens.emplace_back(str, begIdx, endIdx - begIdx);
        LOG_IF(m_bVerbose, tracedo, "Tokenize: begIdx = %zu,endIdx = %zu, token = %s", begIdx,
               endIdx, tokens.back().c_str());
        begIdx = str.find_first_not_of(delims, endIdx);
    }
    return tokens;
}
