#include "client/sinks/printer/job_status.h"

#include "corvane/base/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <string_view>
#include <utility>

namespace printclient {

using protocol::PaperState;

namespace {

// How bad a reason is by its suffix; one without a suffix is an error. RFC 8011, 5.4.12.
enum class Severity { kReport, kWarning, kError };

struct KnownReason {
  std::string_view keyword;
  std::string_view cause;
  std::string_view remedy;
  Severity least = Severity::kError;  // from which on it keeps jobs from being printed
};

constexpr std::string_view kReach = "see that it is switched on and connected";

// What a printer reports about itself that keeps it from printing. An empty tray alone does not, as others may hold the
// same paper; that a printer waits for paper is no error to some.
constexpr KnownReason kPrinterReasons[] = {
    {"media-empty", "has no paper", "put paper in"},
    {"media-needed", "wants paper that is not in it", "put in the paper that the job wants", Severity::kWarning},
    {"media-jam", "has a paper jam", "take the stuck paper out"},
    {"door-open", "is open", "close it"},
    {"cover-open", "is open", "close it"},
    {"interlock-open", "is open", "close it"},
    {"toner-empty", "has no toner", "put toner in"},
    {"marker-supply-empty", "has no ink or toner", "put ink or toner in"},
    {"marker-waste-full", "has a full waste box", "empty it"},
    {"developer-empty", "needs a new developer unit", "put one in"},
    {"input-tray-missing", "misses a paper tray", "put it in"},
    {"output-tray-missing", "misses an output tray", "put it in"},
    {"output-area-full", "has a full output tray", "empty it"},
    {"fuser-over-temp", "is too hot", "let it cool down"},
    {"spool-area-full", "has no room for jobs", "wait until it has printed others"},
    {"connecting-to-device", "cannot be reached", kReach},
    {"timed-out", "does not answer", kReach},
    {"offline", "is off line", kReach, Severity::kReport},
    {"shutdown", "is switched off", kReach},
    {"stopped-partly", "is stopped in part", "see what it shows"},
    {"other", "has a fault", "see what it shows"},
};

// What a printer says about a job that it has dropped or keeps back.
constexpr KnownReason kJobReasons[] = {
    {"document-format-error", "cannot read the document", "print it again, and when that fails too, in another format"},
    {"unsupported-document-format", "does not know the document's format", "bring it along with another format"},
    {"document-access-error", "could not get at the document", "print again"},
    {"aborted-by-system", "gave the job up", "see what it shows and what its log says, and print again"},
    {"job-canceled-by-user", "was told to cancel the job", "print again if it is still wanted"},
    {"job-canceled-by-operator", "was told to cancel the job", "print again if it is still wanted"},
    {"job-canceled-at-device", "was told to cancel the job", "print again if it is still wanted"},
    {"job-incoming", "waits for more of the job", "print again"},
    {"job-data-insufficient", "waits for more of the job", "print again"},
};

// Takes the suffix off a keyword and says what it means.
Severity takeSeverity(std::string_view& keyword) {
  constexpr std::pair<std::string_view, Severity> kSuffixes[] = {
      {"-report", Severity::kReport}, {"-warning", Severity::kWarning}, {"-error", Severity::kError}};
  for (const auto& [suffix, severity] : kSuffixes) {
    if (!keyword.ends_with(suffix)) continue;
    keyword.remove_suffix(suffix.size());
    return severity;
  }
  return Severity::kError;
}

template <std::size_t kCount>
const KnownReason* find(const KnownReason (&known)[kCount], const std::vector<std::string>& reasons) {
  for (const std::string& reason : reasons) {
    std::string_view keyword = reason;
    const Severity severity = takeSeverity(keyword);
    const auto* found = std::find_if(std::begin(known), std::end(known), [&](const KnownReason& candidate) {
      return candidate.keyword == reason || (candidate.keyword == keyword && severity >= candidate.least);
    });
    if (found != std::end(known)) return found;
  }
  return nullptr;
}

bool has(const std::vector<std::string>& reasons, std::string_view keyword) {
  return std::find(reasons.begin(), reasons.end(), keyword) != reasons.end();
}

// The printer's own words as an addition; empty when it has none.
std::string words(const JobStatus& status) {
  const std::string& said = status.message.empty() ? status.printerMessage : status.message;
  const std::string text = corvane::printable(std::string_view(said));
  const std::size_t end = text.find_last_not_of(". ");
  return end == std::string::npos ? "" : fmt::format(" (\"{}\")", text.substr(0, end + 1));
}

// CUPS calls some jobs completed that the printer has not taken; what its IPP backend said last tells them apart.
bool isCompletedInNameOnly(const JobStatus& status) {
  constexpr std::string_view kRefusals[] = {"Unable to add document to print job.", "Print job was not accepted.",
                                            "Print file was not accepted.", "Print job canceled at printer."};
  return has(status.reasons, "aborted-by-system") ||
         std::find(std::begin(kRefusals), std::end(kRefusals), status.message) != std::end(kRefusals);
}

// CUPS sets no reason for a printer that it cannot reach: only its backend's words tell.
bool isOutOfReach(const JobStatus& status) {
  constexpr std::string_view kWords[] = {"The printer may not exist", "The printer is not responding",
                                         "The printer is unreachable", "The printer is not connected",
                                         "Unable to locate printer"};
  return std::any_of(std::begin(kWords), std::end(kWords),
                     [&status](std::string_view words) { return status.message.starts_with(words); });
}

}  // namespace

bool isInTrouble(const JobStatus& status) {
  return status.isPrinterStopped || isOutOfReach(status) || find(kPrinterReasons, status.printerReasons) != nullptr;
}

JobFate fateOf(const JobStatus& status, bool isQueue) {
  switch (status.state) {
    case JobStatus::kCompleted:
      return isCompletedInNameOnly(status) ? JobFate::kGivenUp : JobFate::kTaken;
    case JobStatus::kCanceled:
    case JobStatus::kAborted:
      return JobFate::kGivenUp;
    case JobStatus::kHeld:
      return has(status.reasons, "job-incoming") || has(status.reasons, "job-data-insufficient") ? JobFate::kTroubled
                                                                                                 : JobFate::kTaken;
    case JobStatus::kPending:
      if (isQueue) return status.isPrinterStopped ? JobFate::kTaken : JobFate::kWatched;
      return isInTrouble(status) ? JobFate::kTroubled : JobFate::kWatched;
    case JobStatus::kProcessing:
      return isInTrouble(status) ? JobFate::kTroubled : JobFate::kWatched;
    default:
      return JobFate::kTroubled;  // stopped in the middle, or a state that nobody knows
  }
}

Trouble troubleOf(const JobStatus& status, bool stays) {
  const bool isGivenUp = status.state >= JobStatus::kCanceled;
  const auto withAgain = [stays](std::string_view remedy) {
    const bool saysPrint = stays || remedy.find("print") != std::string_view::npos;
    return saysPrint ? std::string(remedy) : fmt::format("{}, and print again", remedy);
  };
  const KnownReason* reason = isGivenUp ? nullptr : find(kPrinterReasons, status.printerReasons);
  if (reason == nullptr && !stays) reason = find(kJobReasons, status.reasons);
  if (reason != nullptr) return {fmt::format("{}{}", reason->cause, words(status)), withAgain(reason->remedy)};
  if (!isGivenUp && isOutOfReach(status)) {
    return {fmt::format("cannot be reached{}", words(status)), withAgain(kReach)};
  }
  const std::string cause = status.state == JobStatus::kCanceled ? "canceled the job"
                            : isGivenUp                          ? "gave the job up"
                            : status.isPrinterStopped            ? "is stopped"
                                                                 : "stopped in the middle of the job";
  const std::string keywords = has(status.reasons, "none") || status.reasons.empty()
                                   ? ""
                                   : fmt::format(", reason {}", fmt::join(status.reasons, " "));
  return {cause + words(status) + corvane::printable(std::string_view(keywords)),
          withAgain("see what it shows and what its log says")};
}

JobProgress progressOf(const JobStatus& status) {
  const auto with = [&status](protocol::PaperState state, bool stays) {
    Trouble trouble = troubleOf(status, stays);
    return JobProgress{state, std::move(trouble.cause), std::move(trouble.remedy)};
  };
  switch (status.state) {
    case JobStatus::kCompleted:
      return isCompletedInNameOnly(status) ? with(PaperState::kAborted, false) : JobProgress{PaperState::kPrinted};
    case JobStatus::kCanceled:
      return with(PaperState::kCanceled, false);
    case JobStatus::kAborted:
      return with(PaperState::kAborted, false);
    case JobStatus::kProcessing:
      return isInTrouble(status) ? with(PaperState::kStopped, true) : JobProgress{PaperState::kPrinting};
    case JobStatus::kPending:
    case JobStatus::kHeld:
      return isInTrouble(status) ? with(PaperState::kStopped, true) : JobProgress{PaperState::kWaiting};
    default:
      return with(PaperState::kStopped, true);
  }
}

}  // namespace printclient
