#include "agent/change/Tables.h"

#include <algorithm>
#include <array>

namespace agent {

std::size_t TableShape::find(std::string_view column) const {
    const auto found = std::find_if(columns.begin(), columns.end(),
                                    [column](const Column& c) { return c.name == column; });
    return static_cast<std::size_t>(found - columns.begin());
}

const TableShape& shapeOf(Table table) {
    constexpr bool kText = true;
    constexpr bool kInteger = false;
    // clang-format off
    static const std::array<TableShape, kTables> shapes = {{
        {"Bridge", {{"Id", kInteger}, {"Name", kText}, {"Stp", kInteger}}, 1, 0},
        {"BridgeInterface",
         {{"Id", kInteger}, {"BridgeId", kInteger}, {"Interface", kText}, {"AllowLocalAccess", kInteger}, {"AllowDHCP", kInteger}},
         2, 1},
        {"BridgeFilter",
         {{"Id", kInteger}, {"BridgeId", kInteger}, {"FilterRule", kText}, {"VLANId", kInteger}, {"PBit", kInteger}},
         1, 1},
        {"NetworkSetupNode",
         {{"Id", kInteger}, {"Type", kText}, {"InterfaceName", kText}, {"ParentInterface", kText}, {"ConfigurationSpecifics", kText}, {"Enable", kInteger}},
         2, 0},
        {"StatusNetifConfig", {{"Id", kInteger}, {"Name", kText}}, 1, 0},
        {"VLAN", {{"Id", kInteger}, {"Enable", kInteger}, {"InterfaceName", kText}, {"ParentIf", kText}}, 0, 0},
        {"VLANSingleParams", {{"Id", kInteger}, {"DiscardUntaggedFrames", kInteger}}, 0, 0},
        {"Atm",
         {{"Id", kInteger}, {"Enabled", kInteger}, {"Vpi", kInteger}, {"Vci", kInteger}, {"DeviceName", kText}, {"FcsPreserve", kInteger}},
         0, 0},
    }};
    // clang-format on
    return shapes[static_cast<std::size_t>(table)];
}

} // namespace agent
