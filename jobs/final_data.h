#pragma once

#include "session/client_print_job.h"

#include <cstdio>

namespace mg {

enum class FinalDataRead {
  kTaken,        // the file's bytes are the job's final data
  kEmpty,        // the file has no bytes, or more than a length of 32 bits can tell; the job has no final data now
  kNothingRead,  // not one byte could be read; the final data are zeros
};

// Makes the whole content of an open file the job's final data, in place of what the job held there before. The length
// is set as soon as it is known. A read that ends early but not at once is taken as it is; the rest stays zero. Throws
// std::bad_alloc, which leaves the job without final data.
FinalDataRead readFinalData(std::FILE* file, ClientPrintJob& job);

}  // namespace mg
