#include "agent/net/Identity.h"

#include "agent/Log.h"
#include "agent/net/Toolkit.h"
#include "agent/system/Files.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace agent::net {

namespace {

std::string fileIn(const std::string& folder) {
    return folder + "/" + kName + ".conf";
}

/// Whether all is there, up to the engine ID, which the toolkit writes last.
bool isWhole(const std::string& text, const std::string& boots, int users) {
    std::istringstream lines(text);
    bool hasBoots = false;
    bool hasEngine = false;
    for (std::string line; std::getline(lines, line) && !lines.eof();) { // an open end is no end
        hasBoots = hasBoots || line.rfind(boots, 0) == 0;
        hasEngine = hasEngine || line.rfind("oldEngineID 0x", 0) == 0;
        users -= line.rfind("usmUser ", 0) == 0;
    }
    return hasBoots && hasEngine && users <= 0;
}

} // namespace

Identity::Identity(const std::string& stateFolder)
    : m_folder(stateFolder),
      m_file(fileIn(m_folder)),
      m_newFolder(m_folder + "/new"),
      m_newFile(fileIn(m_newFolder)) {}

void Identity::mend() {
    std::vector<std::string> others;
    for (int i = 0; i <= NETSNMP_MAX_PERSISTENT_BACKUPS; ++i)
        others.push_back(m_folder + "/" + kName + "." + std::to_string(i) + ".conf");
    const auto hasState = [](const std::string& file) {
        return isWhole(textOf(file).value_or(""), "engineBoots ", 0);
    };
    if (!hasState(m_file)) {
        const auto other = std::find_if(others.begin(), others.end(), hasState);
        if (other == others.end() || !replaceFile(m_file, *textOf(*other)))
            return;
        log(LOG_WARNING, m_file + " was not whole: " + *other + " takes its place");
    }
    for (const std::string& other : others)
        std::remove(other.c_str());
}

/// Puts what the toolkit has written in the place of the old file, safely.
bool Identity::takeNewFile() {
    int users = 0;
    for (const usmUser* user = usm_get_userList(); user != nullptr; user = user->next)
        users += user->userStorageType == ST_NONVOLATILE;
    const std::string boots = "engineBoots " + std::to_string(snmpv3_local_snmpEngineBoots());
    const std::string text = textOf(m_newFile).value_or("");
    std::remove(m_newFile.c_str());
    if (isWhole(text, boots, users) && replaceFile(m_file, text))
        return true;
    log(LOG_ERR, "cannot write " + m_file + ": it is left as it was");
    return false;
}

bool Identity::storeBoots() {
    if (mkdir(m_newFolder.c_str(), 0700) != 0 && errno != EEXIST) {
        log(LOG_ERR, "cannot make " + m_newFolder + ": " + std::strerror(errno));
        return false;
    }
    std::remove(m_newFile.c_str()); // of one that was killed
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR,
                          m_newFolder.c_str());
    snmp_store(kName);
    return takeNewFile();
}

void Identity::storeChanges() {
    snmp_store_if_needed();
    if (access(m_newFile.c_str(), F_OK) == 0)
        takeNewFile();
}

} // namespace agent::net
