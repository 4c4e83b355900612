#include "base/Guard.h"
#include "base/Log.h"
#include "frame/SnmpConfigHandler.h"
#include "objects/managed_objects.h"

#include <corvanta.h>

#include <cstring>
#include <ctime>
#include <new>
#include <string>

using namespace kavo::snmp;

bool m_bVerbose = false;
int debug_level = 7;
int m_iLogHandle = -1;

namespace {

constexpr log::Unit kUnit = {"corvanta", "corvanta"};

SnmpConfigHandler* configHandler = nullptr; // made by initialize(), lives until the process ends

// A copy for the caller to free(). Throws rather than giving null.
char* newText(const std::string& text) {
    char* const copy = strdup(text.c_str());
    if (copy == nullptr)
        throw std::bad_alloc();
    return copy;
}

// What a query does when an exception reached it: a warning, then its failure value.
template <class Failure>
auto warned(const char* what, Failure failure) {
    return [=] {
        LOG(warning, "unable to %s", what);
        return failure();
    };
}

int zero() {
    return 0;
}
char* noText() {
    return nullptr;
}
char* emptyText() {
    return strdup("");
}

} // namespace

int initialize(int verbose) {
    m_bVerbose = verbose != 0;
    const bool created = guarded(
        [] {
            auto* const handler = new SnmpConfigHandler;
            handler->m_bVerbose = m_bVerbose;
            configHandler = handler;
            handler->initialize();
            return true;
        },
        [] {
            LOG(error, "initialize: unable to initialize ConfigDBHandler()");
            return false;
        });
    if (!created)
        return 0;
    if (!configHandler->m_bInitalized) {
        LOG(error, "initialize: call to ConfigDBHandler.initialize() failed");
        return 0;
    }
    mgmt_o.init();
    LOG_IF(m_bVerbose, tracedo, "initialize: ConfigDBHandler() initialized successfully");
    return 1;
}

char* getLayer2IfStatus(void) {
    return guarded(
        [] {
            LOG_IF(m_bVerbose, tracedo, "getLayer2IfStatus: entering");
            const std::string states = required(configHandler).getLayer2IfStatus();
            LOG_IF(m_bVerbose, tracedo, "getLayer2IfStatus: ly2States = %s", states.c_str());
            return newText(states);
        },
        warned("fetch Layer2 interfaces states", emptyText));
}

const char* ly2State2String(int state) {
    switch (state) {
    case ly2State_up:
        return "UP";
    case ly2State_down:
        return "DOWN";
    default:
        return "N/A";
    }
}

int getSpeedInfo(speedInfo_s* info) {
    return guarded(
        [=]() -> int {
            LOG_IF(m_bVerbose, tracedo, "getSpeedInfo: entering");
            return required(configHandler).getSpeedInfo(info);
        },
        warned("fetch all speed related information", zero));
}

char* speedInfoToString(const speedInfo_s* info) {
    return guarded(
        [=] { return newText(required(configHandler).SpeedInfoToString(info)); },
        warned("translate structure containing speed related information to string", noText));
}

int physicalIFNameToIndex(const char* name) {
    return guarded([=] { return required(configHandler).physicalIFNameToIndex(&required(name)); },
                   [=] {
                       LOG(warning, "unable to fetch index for physical name  = %s",
                           name != nullptr ? name : "");
                       return 0;
                   });
}

void indexToLogicalIfName(int index, char* buffer, size_t size) {
    guarded(
        [=] {
            char* const target = size != 0 ? &required(buffer) : nullptr;
            const std::string name = required(configHandler).indexToLogicalIfName(index);
            if (size != 0) {
                strncpy(target, name.c_str(), size);
                target[size - 1] = '\0';
            }
        },
        [=] {
            LOG(warning, "unable to fetch logical name for index = %d", index);
            if (buffer != nullptr && size != 0)
                buffer[0] = '\0';
        });
}

char* mappingTableToString(void) {
    return guarded([] { return newText(required(configHandler).mappingTableToString()); },
                   warned("fetch mapping table", noText));
}

char* getRowSnmpAgent(void) {
    char* const row = guarded(
        [] {
            LOG_IF(m_bVerbose, tracedo, "getRowSnmpAgent: entering");
            return newText(required(configHandler).getRowSnmpAgent());
        },
        warned("fetch row of table SnmpAgent", emptyText));
    LOG_IF(m_bVerbose, tracedo,
           "getRowSnmpAgent: call to ConfigHandler->getRowSnmpAgent() returns %s",
           row != nullptr ? row : "");
    return row;
}

int isEnabled(void) {
    return 5;
}

int testMethod2(void) {
    time2string();
    return 0;
}

std::string time2string() {
    const auto failure = [] { return std::string("xx.xx.xx"); };
    return guarded(
        [=]() -> std::string {
            time_t now = time(nullptr);
            if (now == -1)
                now = 0;
            tm local = {};
            char text[20];
            if (localtime_r(&now, &local) == nullptr ||
                strftime(text, sizeof text, "%d.%m.%Y %H:%M:%S", &local) == 0)
                return failure();
            return text;
        },
        failure);
}
