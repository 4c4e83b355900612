#include "agent/set/Objects.h"

#include <net-snmp/library/asn1.h>
#include <net-snmp/library/snmp.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <optional>

namespace trial {

namespace {

constexpr std::string_view kModule = "CORVANTA-MIB::";

const Object* find(std::string_view name) {
    const auto& all = objects();
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const Object& object) { return object.name == name; });
    return found != all.end() ? &*found : nullptr;
}

/// cvChange and cvConfirmTimeout are left to the tool itself.
bool isForUsers(const Object& object) {
    return object.isWritable && object.name != "cvChange" && object.name != "cvConfirmTimeout";
}

std::optional<std::int64_t> wholeNumber(std::string_view text) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (text.empty() || result.ec != std::errc() || result.ptr != end)
        return std::nullopt;
    return number;
}

std::optional<Value> parseValue(const Object& object, const std::string& text) {
    if (object.type == ASN_OCTET_STR) {
        const auto length = static_cast<std::int64_t>(text.size());
        if (length < object.least || length > object.most)
            return std::nullopt;
        return text;
    }
    const auto number = wholeNumber(text);
    for (const Word& word : object.words) {
        if (word.text == text || word.number == number)
            return word.number;
    }
    if (!number || !object.words.empty() || *number < object.least || *number > object.most)
        return std::nullopt;
    return *number;
}

/// The row that is written behind a name: ".3", or nothing or ".0" for an object that has none.
oid parseRow(const Object& object, std::string_view text) {
    const auto row = text.empty() ? 0 : wholeNumber(text.substr(1)).value_or(-1);
    if (object.lastRow == 0 && row != 0)
        throw Misuse{std::string(object.name) + " has no rows"};
    if (object.lastRow != 0 && (row < 1 || row > static_cast<std::int64_t>(object.lastRow)))
        throw Misuse{std::string(object.name) + " needs a row from 1 to " +
                     std::to_string(object.lastRow) + ", such as " + std::string(object.name) +
                     ".1"};
    return static_cast<oid>(row);
}

} // namespace

const std::vector<Object>& objects() {
    static const std::vector<Object> all = {
#include "mib-objects.inc"
    };
    return all;
}

Instance instance(std::string_view name, oid row) {
    return {find(name), row};
}

std::vector<oid> idOf(const Instance& instance) {
    std::vector<oid> id = instance.object->id;
    id.push_back(instance.row);
    return id;
}

std::string nameOf(const Instance& instance) {
    return std::string(instance.object->name) + '.' + std::to_string(instance.row);
}

std::string textOf(const Object& object, const Value& value) {
    if (const auto* const number = std::get_if<std::int64_t>(&value)) {
        for (const Word& word : object.words) {
            if (word.number == *number)
                return std::string(word.text);
        }
        return std::to_string(*number);
    }
    std::string text;
    for (const char c : std::get<std::string>(value)) {
        char escaped[5] = {c};
        if (c < ' ' || c > '~')
            std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(c));
        text += escaped;
    }
    return text.empty() ? "\"\"" : text;
}

std::string permitted(const Object& object) {
    std::string text;
    for (const Word& word : object.words)
        text += (text.empty() ? "" : " or ") + std::string(word.text);
    if (!text.empty())
        return text;
    text = std::to_string(object.least) + " to " + std::to_string(object.most);
    return object.type == ASN_OCTET_STR ? text + " characters" : text;
}

Assignment parseAssignment(const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos)
        throw Misuse{"'" + text + "' is no OBJECT=VALUE"};
    std::string name = text.substr(0, equals);
    if (name.compare(0, kModule.size(), kModule) == 0)
        name.erase(0, kModule.size());
    const std::size_t point = std::min(name.find('.'), name.size());
    const Object* const object = find(std::string_view(name).substr(0, point));
    if (object == nullptr)
        throw Misuse{"CORVANTA-MIB has no object '" + name + "'; --list shows what can be set"};
    if (!isForUsers(*object))
        throw Misuse{std::string(object->name) + " is not for you to set; --list shows what is"};
    const oid row = parseRow(*object, std::string_view(name).substr(point));
    const auto value = parseValue(*object, text.substr(equals + 1));
    if (!value)
        throw Misuse{std::string(object->name) + " takes " + permitted(*object) + ", not '" +
                     text.substr(equals + 1) + "'; nothing was sent"};
    return {{object, row}, *value};
}

void listObjects() {
    for (const Object& object : objects()) {
        if (!isForUsers(object))
            continue;
        std::string name(object.name);
        if (object.lastRow != 0)
            name += ".1-" + std::to_string(object.lastRow);
        std::printf("%-25s %s\n", name.c_str(), permitted(object).c_str());
    }
}

} // namespace trial
