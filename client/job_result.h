#pragma once

namespace printclient {

// The print client's answer to the end of a job. A positive number means that the job is complete on disk; the port
// monitor reports a job as printed only then.
enum JobResult : int {
  kPrinted = 1,
  kNoData = -1,         // a converted job without data: its conversion has failed
  kDiskFailure = -2,    // the file could not be created, written or completed
  kIncompletePdf = -3,  // data that begin as PDF and do not end as PDF
  kNoJob = -4,          // there is no job to end
  kBrokenData = -5,     // a piece of data was not as long as it said
};

}  // namespace printclient
