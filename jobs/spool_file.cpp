#include "jobs/spool_file.h"

#include "corvane/records/operation.h"
#include "util/win_handle.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

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

namespace {

// What drivers put in front is a few lines.
constexpr std::size_t kFront = 4096;

bool begins(std::string_view text, std::string_view with) {
  return text.substr(0, with.size()) == with;
}

}  // namespace

const wchar_t* whyUnconverted(const unsigned char* data, std::size_t size) noexcept {
  if (data == nullptr) size = 0;
  const std::string_view text(reinterpret_cast<const char*>(data), std::min(size, kFront));
  const bool hasPostScript = text.find("%!PS") != std::string_view::npos;
  if (hasPostScript && (begins(text, "\x1b%-12345X") || begins(text, "@PJL") || begins(text, "\x1b"))) {
    return L"sent as it came: not recognised as PostScript; printer commands (PJL) stand in front of it. Turn them off "
           L"in "
           L"the driver's settings, or give the printer a driver without them.";
  }
  if (hasPostScript && begins(text, "\x04")) {
    return L"sent as it came: not recognised as PostScript; a Ctrl-D stands in front of it. Turn \"Send CTRL-D before "
           L"each job\" off in the driver's settings.";
  }
  if (begins(text, "%!")) {
    return L"sent as it came: not recognised as PostScript; its first line does not begin with \"%!PS-\". Let the "
           L"application or driver write PostScript with structuring comments (\"%!PS-Adobe-3.0\").";
  }
  if (hasPostScript) {
    return L"sent as it came: not recognised as PostScript; something stands in front of its \"%!PS\". Let the driver "
           L"or "
           L"port send the document alone, or give the printer another PostScript driver.";
  }
  if (begins(text, "%PDF-")) return L"sent as it came: it is a PDF already.";
  return L"sent as it came: not recognised as PostScript. To get a PDF, give the printer a PostScript driver.";
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
