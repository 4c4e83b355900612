#include "agent/net/ToolkitState.h"

#include "agent/Log.h"
#include "agent/system/Files.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace agent::net {

namespace {

/// Whether each user is among the lines that has to be.
bool hasAllUsers(const std::string& text) {
    int missing = 0;
    for (const usmUser* user = usm_get_userList(); user != nullptr; user = user->next)
        missing += user->userStorageType == ST_NONVOLATILE;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        missing -= line.rfind("usmUser ", 0) == 0;
    return missing <= 0;
}

} // namespace

ToolkitState::~ToolkitState() {
    if (m_file >= 0)
        close(m_file);
}

bool ToolkitState::open(const std::string& lines) {
    m_file = memfd_create("corvantad.conf", MFD_CLOEXEC);
    m_path = std::string(kMemoryFiles) + std::to_string(m_file);
    if (m_file < 0 || write(m_file, lines.data(), lines.size()) != ssize_t(lines.size())) {
        log(LOG_ERR, std::string("no file in memory: ") + std::strerror(errno));
        return false;
    }
    setenv("SNMP_PERSISTENT_FILE", m_path.c_str(), 1);
    // Renames and removes nothing; what it writes goes where the variable says.
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
    return true;
}

std::string ToolkitState::lines() {
    keepChanged();
    return ftruncate(m_file, 0) == 0 ? changedLines().value_or("") : "";
}

std::optional<std::string> ToolkitState::changedLines() {
    snmp_store_if_needed();
    struct stat state {};
    if (fstat(m_file, &state) != 0 || state.st_size == 0)
        return std::nullopt;
    const std::string text = textOf(m_path).value_or("");
    const bool empty = ftruncate(m_file, 0) == 0;
    return empty && hasAllUsers(text) ? text : "";
}

void ToolkitState::keepChanged() {
    snmp_store_needed(nullptr);
}

} // namespace agent::net
