#pragma once

#include "corvane/print_result.h"

namespace printclient {

// The print client's answer to the end of a job.
enum JobResult : int {
  kPrinted = corvane::kPrinted,
  kNoData = corvane::kNoData,
  kDiskFailure = corvane::kDiskFailure,
  kIncompletePdf = corvane::kIncompletePdf,
  kNoJob = corvane::kNoJob,
  kBrokenData = corvane::kBrokenData,
};

}  // namespace printclient
