#include "corvane/records/messages.h"

#include <algorithm>
#include <iterator>

namespace corvane {

const wchar_t* messageText(int number) {
  switch (number) {
    case kUnknownException:
      return L"An unexpected exception was caught.";
    case kMissingObject:
      return L"A needed object is missing or a value is not supported.";
    case kBadArgument:
      return L"An argument is missing or invalid.";
    case kAllocationFailed:
      return L"There is not enough memory.";
    case kConnectFailed:
      return L"The connection could not be made.";
    case kConnectionLost:
      return L"The connection has ended.";
    case kReplyTimedOut:
      return L"No reply came in time.";
    case kRequestRefused:
      return L"The other side could not serve the request.";
    case kProtocolViolation:
      return L"The other side sent what the protocol does not allow.";
    case kWrongValueType:
      return L"A value of a request is not what was expected.";
    case kLimitExceeded:
      return L"A limit was exceeded.";
    case kKeyNeeded:
      return L"This side needs a key to prove who it is.";
    case kNotProven:
      return L"The other side was not authenticated.";
    case kModuleNameFailed:
      return L"The name of the program could not be found out.";
    case kModuleHandleFailed:
      return L"The handle of the program could not be found out.";
    default:
      return L"An error without a text occurred.";
  }
}

namespace {

constexpr LevelWords kLevels[] = {
    {kLevelFailure, L"failure", L"failure", true},       {kLevelCleanupNote, L"clean-up", L"note", false},
    {kLevelStackTrace, L"trace", L"stack trace", false}, {kLevelConnectionFailure, L"connection", L"connection", true},
    {kLevelException, L"exception", L"exception", true},
};

}  // namespace

std::span<const LevelWords> knownLevels() {
  return kLevels;
}

const LevelWords* wordsOf(int level) {
  const auto* found = std::ranges::find(kLevels, level, &LevelWords::level);
  return found != std::end(kLevels) ? found : nullptr;
}

}  // namespace corvane
