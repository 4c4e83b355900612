#pragma once

#include "tests/agent/site/Process.h"

#include <string>

/// For what comes, however busy the machine is; in seconds.
inline const std::string kLong = "900";

/// What names a user of an agent with the shipped access rules, up to the end of the user's name.
inline const std::string kUser =
    "-v3 -a SHA -A 'auth passphrase' -x AES -X 'priv passphrase' -u corvanta";

/// Managers that ask an agent: the stock SNMP tools, run in a folder. Objects are named from where
/// those of the MIB begin, as "3.1.0".
class Managers {
public:
    explicit Managers(const fs::path& folder) : m_folder(folder) {}

    std::string tool(const std::string& command, const std::string& arguments) const;

    /// The value, as "INTEGER: 1"; empty when there is an error.
    std::string get(const std::string& object) const;

    /// @return what is said of an error: "wrongType"; empty without one
    std::string set(const std::string& object, const std::string& typeAndValue) const;

    /// The error in what a tool prints, as set() returns it.
    static std::string errorIn(const std::string& answer);

    static std::string oid(const std::string& object) { return ROOT_OID ".1." + object; }

    std::string address;
    std::string environment = "MIBS= ";
    std::string manager = "-v2c -c test";
    std::string patience = kLong; ///< in seconds

private:
    const fs::path& m_folder;
};
