#include "Values.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace simulation {

using agent::Table;
using agent::Value;

namespace {

const Record* find(const Database& database, Table table, std::size_t column,
                   const std::string& text) {
    const Records& rows = database[table];
    const auto found = std::find_if(rows.begin(), rows.end(), [&](const Record& row) {
        return row.cells[column].text == text;
    });
    return found == rows.end() ? nullptr : &*found;
}

long truth(const std::string& text) {
    return text == "1" ? 1 : 2;
}

} // namespace

const agent::Object& objectCalled(const char* label) {
    for (const agent::Object& object : agent::objects())
        if (std::strcmp(object.label(), label) == 0)
            return object;
    throw std::logic_error(label);
}

Values valuesOf(const Database& database) {
    static const agent::Object& circuit = objectCalled("cvCircuitEnabled");
    static const agent::Object& vpi = objectCalled("cvCircuitVpi");
    static const agent::Object& vci = objectCalled("cvCircuitVci");
    static const agent::Object& enabled = objectCalled("cvVlanEnabled");
    static const agent::Object& discardTag = objectCalled("cvVlanDiscardTag");
    static const agent::Object& wan = objectCalled("cvVlanWanInterface");
    static const agent::Object& defaultWan = objectCalled("cvDefaultWanInterface");
    static const agent::Object& discard = objectCalled("cvDiscardUntaggedFrames");
    Values values;
    for (int n = 1; n <= agent::kUnits; ++n) {
        if (const Record* row = find(database, Table::atm, 0, std::to_string(n))) {
            values[{&circuit, n}] = {truth(row->cells[1].text), ""};
            values[{&vpi, n}] = {std::stol(row->cells[2].text), ""};
            values[{&vci, n}] = {std::stol(row->cells[3].text), ""};
        }
        if (const Record* lan = find(database, Table::vlan, 0, std::to_string(2 * n - 1)))
            values[{&enabled, n}] = {truth(lan->cells[1].text), ""};
        if (const Record* side = find(database, Table::vlan, 0, std::to_string(2 * n))) {
            values[{&discardTag, n}] = {side->cells[1].text == "0" ? 1 : 2, ""};
            values[{&wan, n}] = {0, side->cells[3].text};
        }
    }
    values[{&defaultWan, 0}] = {0, ""};
    if (const Record* lan = find(database, Table::bridgeInterface, 2, "eth0"))
        if (const Record* behind =
                find(database, Table::bridgeInterface, 0, std::to_string(lan->id() + 1)))
            values[{&defaultWan, 0}] = {0, behind->cells[2].text};
    if (const Record* row = find(database, Table::vlanParams, 0, "1"))
        values[{&discard, 0}] = {truth(row->cells[1].text), ""};
    return values;
}

} // namespace simulation
