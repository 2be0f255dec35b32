#pragma once

// A print client's answer to the end of a job. A positive number means that the job is complete on disk; the port
// monitor reports a job as printed only then.
namespace corvane {

inline constexpr int kPrinted = 1;
inline constexpr int kNoData = -1;         // a converted job without data: its conversion has failed
inline constexpr int kDiskFailure = -2;    // the file could not be created, written or completed
inline constexpr int kIncompletePdf = -3;  // data that begin as PDF and do not end as PDF
inline constexpr int kNoJob = -4;          // there is no job to end
inline constexpr int kBrokenData = -5;     // a piece of data was not as long as it said

// What an answer says, as a sentence; a general one for a number without its own. Never null, static storage.
const wchar_t* printResultText(int result);

}  // namespace corvane
