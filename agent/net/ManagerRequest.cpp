#include "agent/net/ManagerRequest.h"

namespace agent::net {

namespace {

ErrorStatus errorOf(Reason reason) {
    switch (reason) {
    case Reason::none:
    case Reason::failed:
        break;
    case Reason::locked:
        return ErrorStatus::resourceUnavailable;
    case Reason::unknownRow: // gone since the last refresh
    case Reason::badIndex:
        return ErrorStatus::inconsistentName;
    case Reason::noCommand:
        return ErrorStatus::genErr;
    case Reason::unfit:
        return ErrorStatus::wrongValue;
    }
    return ErrorStatus::commitFailed;
}

} // namespace

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
    return errorOf(result.reason);
}

} // namespace agent::net
