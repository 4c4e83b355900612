#pragma once

#include "agent/link/Messages.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// A manager's set request without any type of the toolkit.
namespace agent::net {

/// What a manager is told of a set. The numbers are those of the protocol.
enum class ErrorStatus {
    noError = 0,
    genErr = 5,
    wrongType = 7,
    wrongLength = 8,
    wrongValue = 10,
    noCreation = 11,
    inconsistentValue = 12,
    resourceUnavailable = 13,
    commitFailed = 14,
    undoFailed = 15,
    notWritable = 17,
    inconsistentName = 18,
};

/// The error's name in the protocol.
const char* nameOf(ErrorStatus error);

/// The error that a manager gets for a result.
ErrorStatus errorOf(const SetResult& result);

/// One variable of the request.
struct Assignment {
    Oid name;
    const Object* object;       ///< null where there is none
    std::optional<Value> value; ///< nothing where its type is wrong
    ErrorStatus error;          ///< why the object can't have it, whatever the other values
};

struct ManagerRequest {
    std::string manager;    ///< for the log
    std::string sender;     ///< with the request's Id; empty when that can't be known
    std::string identity;   ///< the sender and the values: the same when the request comes again
    Clock::time_point came; ///< which may be a while ago
    std::vector<Assignment> assignments;
};

/// The answer to such a request.
struct Answer {
    ErrorStatus error = ErrorStatus::noError;
    std::size_t place = 0; ///< of the variable with the error
};

} // namespace agent::net
