#include "agent/net/ManagerRequest.h"

#include <iterator>

namespace agent::net {

const char* nameOf(ErrorStatus error) {
    switch (error) {
    case ErrorStatus::noError:
        return "noError";
    case ErrorStatus::genErr:
        break;
    case ErrorStatus::wrongType:
        return "wrongType";
    case ErrorStatus::wrongLength:
        return "wrongLength";
    case ErrorStatus::wrongValue:
        return "wrongValue";
    case ErrorStatus::noCreation:
        return "noCreation";
    case ErrorStatus::inconsistentValue:
        return "inconsistentValue";
    case ErrorStatus::resourceUnavailable:
        return "resourceUnavailable";
    case ErrorStatus::commitFailed:
        return "commitFailed";
    case ErrorStatus::undoFailed:
        return "undoFailed";
    case ErrorStatus::notWritable:
        return "notWritable";
    case ErrorStatus::inconsistentName:
        return "inconsistentName";
    }
    return "genErr";
}

ErrorStatus errorOf(const SetResult& result) {
    static constexpr ErrorStatus kStatusErrors[] = {
        ErrorStatus::commitFailed,        // CORVANTA_OK, where the outcome is not
        ErrorStatus::commitFailed,        // CORVANTA_FAILED
        ErrorStatus::resourceUnavailable, // CORVANTA_LOCKED
        ErrorStatus::inconsistentName,    // CORVANTA_UNKNOWN_ROW: gone since the last refresh
        ErrorStatus::genErr,              // CORVANTA_NO_COMMAND
        ErrorStatus::inconsistentName,    // CORVANTA_BAD_INDEX
        ErrorStatus::wrongValue,          // CORVANTA_UNFIT
    };
    switch (result.outcome) {
    case Outcome::done:
        return ErrorStatus::noError;
    case Outcome::notUndone:
        return ErrorStatus::undoFailed;
    case Outcome::undoing:
    case Outcome::late:
        return ErrorStatus::genErr;
    case Outcome::unavailable:
        return ErrorStatus::resourceUnavailable;
    case Outcome::inconsistent:
        return ErrorStatus::inconsistentValue;
    case Outcome::refused:
        break;
    }
    const auto index = static_cast<std::size_t>(result.status);
    return index < std::size(kStatusErrors) ? kStatusErrors[index] : ErrorStatus::genErr;
}

} // namespace agent::net
