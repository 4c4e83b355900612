#pragma once

#include <corvanta.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

/// The device as the agent shows it, and the library calls that tell it. They
/// block while a program runs: they are for the worker.
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
    std::optional<std::string> wanInterface; ///< nothing when the library can't give it whole
};

struct Model {
    speedInfo_s rates{};
    std::vector<Layer2If> layer2;
    std::vector<IfMapping> mapping;
    std::array<Circuit, kUnits + 1> circuits; ///< by number; the first is unused
    std::array<Vlan, kUnits + 1> vlans;       ///< likewise
    std::optional<std::string> defaultWan;    ///< likewise; empty without a default bridge
    Truth discardUntagged;
};

/// Takes in what the database holds, which a stage answers: what the library can't make anything
/// of is not there, but nothing else suffers.
void readConfiguration(Model& model);

/// Takes in what the DSL tool says. @return whether it could be asked
bool readLine(Model& model);

/// Takes in what the library has built in.
void readMapping(Model& model);

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
