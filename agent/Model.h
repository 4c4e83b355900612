#pragma once

#include <corvanta.h>

#include <array>
#include <string>
#include <vector>

/**
 * The device as the agent shows it, and the library calls that read it. The
 * library allows one call at a time and blocks while a client runs, so that
 * all functions here are for the worker thread.
 */
namespace agent {

constexpr int kUnits = 8; ///< ATM circuits, and VLAN objects; both are numbered from 1

/// An SNMP TruthValue, or 0: the database held neither 0 nor 1, or nothing was read yet.
struct Truth {
    int value = 0;
};

struct Layer2If {
    std::string name;
    int state; ///< an ly2State
};

struct IfMapping {
    int index;
    std::string physical;
    std::string logical;
};

struct Circuit {
    bool present = false;
    Truth enabled;
    std::string deviceName;
    int vpi = 0;
    int vci = 0;
    Truth fcsPreserve;
};

struct Vlan {
    bool present = false;
    Truth enabled;
    Truth discardTag;
    std::string wanInterface;
};

struct Model {
    speedInfo_s rates{};
    std::vector<Layer2If> layer2;
    std::vector<IfMapping> mapping;
    std::array<Circuit, kUnits + 1> circuits; ///< by number; the first is unused
    std::array<Vlan, kUnits + 1> vlans;       ///< likewise
    std::string defaultWan;
    Truth discardUntagged;
};

/// What is loaded on its own, in the order of a refresh.
enum Part : unsigned {
    /// One read that waits until a locked database is free. It comes before those that look rows
    /// up by key and take a locked table for one without the row.
    kDiscard = 1,
    kCache = 2,  ///< the library's cache: 49 client runs, and 3 for each bridge member
    kCached = 4, ///< circuits, and whether VLAN objects and their tags are on; from the cache
    kParents = 8,
    kDefaultWan = 16,
    kLayer2 = 32,
    kRates = 64,
    kMapping = 128,
    kAll = 255
};

/// Loads parts, up to the first that fails; that one and those behind it stay as they were.
int load(Model& model, unsigned parts);

/// Runs a library call that takes a text as a buffer and a length: the text of a get replaces
/// `text`.
template <class Call>
int accessText(access_type access, std::string& text, Call call) {
    std::array<char, 32> buffer{};
    int length = 0;
    if (access == access_set)
        length = static_cast<int>(text.copy(buffer.data(), buffer.size()));
    const int status = call(buffer.data(), static_cast<int>(buffer.size()), &length);
    if (access == access_get && status == CORVANTA_OK)
        text.assign(buffer.data(), static_cast<std::size_t>(length));
    return status;
}

} // namespace agent
