#include "jobs/final_data.h"

#include "jobs/file.h"

namespace mg {

FinalDataRead readFinalData(std::FILE* file, ClientPrintJob& job) {
  const long length = measure(file);
  job.finalDataLength = static_cast<std::int32_t>(length);
  if (job.finalData != job.readBuffer) delete[] job.finalData;
  job.finalData = nullptr;
  if (length < 1) return FinalDataRead::kEmpty;
  const auto size = static_cast<std::size_t>(length);
  job.finalData = new unsigned char[size]();
  return std::fread(job.finalData, 1, size, file) == 0 ? FinalDataRead::kNothingRead : FinalDataRead::kTaken;
}

}  // namespace mg
