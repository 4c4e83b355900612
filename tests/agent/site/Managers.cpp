#include "tests/agent/site/Managers.h"

std::string Managers::tool(const std::string& command, const std::string& arguments) const {
    return output(m_folder, environment + command + " " + manager + " -r 0 -t " + patience +
                                " -On " + address + " " + arguments);
}

std::string Managers::get(const std::string& object) const {
    const std::string answer = tool("snmpget", oid(object));
    const std::size_t value = answer.find(" = ") + 3;
    return value < 3 ? "" : answer.substr(value, answer.size() - value - 1);
}

std::string Managers::set(const std::string& object, const std::string& typeAndValue) const {
    return errorIn(tool("snmpset", oid(object) + " " + typeAndValue));
}

std::string Managers::errorIn(const std::string& answer) {
    const std::size_t reason = answer.find("Reason: ") + 8;
    if (reason >= 8)
        return answer.substr(reason, answer.find_first_of(" \n", reason) - reason);
    return answer.find(" = ") == answer.npos ? answer : "";
}
