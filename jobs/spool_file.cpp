#include "jobs/spool_file.h"

#include "corvane/records/operation.h"
#include "util/win_handle.h"

#include <windows.h>

#include <array>
#include <cstring>

namespace mg {

long measure(std::FILE* file) {
  std::fseek(file, 0, SEEK_END);
  const long length = std::ftell(file);
  std::rewind(file);
  return length;
}

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

namespace {

mg::File openJobFile(Operation& operation, const ClientPrintJob& job) {
  mg::File file(std::fopen(job.postScriptPath.narrow(), "rb"));
  if (file == nullptr) {
    operation.fail(corvane::kLevelFailure, L"Failed to open print job file: %s - Last Error = %d.",
                   job.postScriptPath.wide(), GetLastError());
  }
  return file;
}

}  // namespace

bool IsPostScriptData(const ClientPrintJob& job) {
  CS_TraceEntry trace(L"IsPostScriptData()");
  constexpr char kSignature[] = "%!PS-";
  constexpr std::size_t kSignatureSize = 5;
  Operation operation(L"Stack Trace: MgPrintMon - IsPostScriptData()");
  bool result = true;
  operation.run([&] {
    const mg::File file = openJobFile(operation, job);
    if (mg::measure(file.get()) < 1) return;
    std::array<char, kSignatureSize + 1> head{};
    const std::size_t count = std::fread(head.data(), 1, kSignatureSize, file.get());
    if (count == kSignatureSize && std::memcmp(head.data(), kSignature, kSignatureSize) != 0) result = false;
  });
  return result;
}

void discardCollectedData(const ClientPrintJob& job) noexcept {
  const mg::LastErrorKeeper keeper;
  if (!job.postScriptPath.isEmpty()) DeleteFileW(job.postScriptPath.wide());
}

void ReadDataIntoFinalBuffer(ClientPrintJob& job) {
  CS_TraceEntry trace(L"ReadDataIntoFinalBuffer()");
  Operation operation(L"Stack Trace: MgPrintMon - ReadDataIntoFinalBuffer()");
  job.report.begin(JobFault::kCollect);
  operation.run(
      [&] {
        const mg::File file = openJobFile(operation, job);
        switch (mg::readFinalData(file.get(), job)) {
          case mg::FinalDataRead::kTaken:
            job.report.add(L"the collected document is sent as it is and has %d bytes", job.finalDataLength);
            return;
          case mg::FinalDataRead::kEmpty:
            operation.fail(corvane::kLevelFailure, L"Print job file is empty: %s", job.postScriptPath.wide());
          case mg::FinalDataRead::kNothingRead:
            operation.fail(corvane::kLevelFailure, L"Failed to read print job file: %s", job.postScriptPath.wide());
        }
      },
      [&] { job.report.fail(operation.errorRecord()); });
}
