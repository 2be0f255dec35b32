#include "converter/convert.h"

#include "converter/announcement.h"
#include "converter/completeness.h"
#include "converter/conversion_error.h"
#include "converter/document_program.h"
#include "converter/ghostscript.h"
#include "converter/host_shell.h"
#include "converter/pdf_actions.h"
#include "converter/private_folder.h"
#include "corvane/base/text.h"
#include "util/win_handle.h"

#include <windows.h>

#include <cwchar>
#include <filesystem>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <fstream>

namespace mg::converter {
namespace {

void checkInput(const std::wstring& path) {
  const FileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) {
    throw ConversionError(ExitCode::kInput,
                          fmt::format(L"\"{}\" cannot be read: {}.", path, systemErrorText(GetLastError())));
  }
  LARGE_INTEGER size = {};
  if (!GetFileSizeEx(file.get(), &size) || size.QuadPart == 0) {
    throw ConversionError(ExitCode::kInput, fmt::format(L"\"{}\" is empty. Print the document again.", path));
  }
}

std::string newMarker() {
  LARGE_INTEGER ticks = {};
  QueryPerformanceCounter(&ticks);
  return fmt::format("pages-{}-{} ", GetCurrentProcessId(), ticks.QuadPart);
}

[[noreturn]] void throwLimit(ExitCode code, const std::wstring& what, const wchar_t* value) {
  throw ConversionError(code, fmt::format(L"{} If the document is sound, raise \"{}\" in the registry key \"{}\".",
                                          what, value, kConverterKey));
}

[[noreturn]] void throwMemory(const Limits& limits) {
  throwLimit(ExitCode::kMemoryLimit,
             fmt::format(L"The document needs more than {} megabytes of memory.", limits.memoryMegabytes),
             L"MemoryLimitMegabytes");
}

// Throws unless the program exited with 0.
void checkRun(const RunResult& result, const std::wstring& program, const std::string& said, const Limits& limits) {
  switch (result.end) {
    case RunEnd::kNotStarted:
      throw ConversionError(ExitCode::kGhostscriptMissing,
                            fmt::format(L"Ghostscript (\"{}\") cannot be started ({}). Install it, or correct "
                                        L"\"GhostscriptPath\" in the registry key \"{}\".",
                                        program, result.code, kConverterKey));
    case RunEnd::kTimeLimit:
      throwLimit(ExitCode::kTimeLimit, fmt::format(L"The document took longer than {} seconds.", limits.timeSeconds),
                 L"TimeLimitSeconds");
    case RunEnd::kOutputLimit:
      throwLimit(ExitCode::kOutputLimit,
                 fmt::format(L"The document makes more than {} megabytes of output.", limits.outputMegabytes),
                 L"OutputLimitMegabytes");
    case RunEnd::kKilled:
      throw ConversionError(ExitCode::kPostScript,
                            fmt::format(L"Ghostscript was killed or crashed ({}).", result.code));
    case RunEnd::kExited:
      break;
  }
  if (result.code == 0) return;
  if (said.find("/VMerror") != std::string::npos) throwMemory(limits);
  throw ConversionError(ExitCode::kPostScript,
                        fmt::format(L"Ghostscript ended with {}: {}. The PostScript of this document is in error.",
                                    result.code, corvane::fromUtf8(errorLine(said))));
}

Announcement announcementOf(const std::wstring& path) {
  std::ifstream document(std::filesystem::path(path), std::ios::binary);
  return readAnnouncement(document);
}

void writeScript(const PrivateFolder& folder, const std::string& marker) {
  std::ofstream file(std::filesystem::path(folder.script()), std::ios::binary);
  if (!(file << documentProgram(marker)).flush()) {
    throw ConversionError(ExitCode::kFileSystem,
                          fmt::format(L"\"{}\" cannot be written. Check the free space of the disk.", folder.script()));
  }
}

int checkPages(const PrivateFolder& folder, const RunReport& report, const std::wstring& input, const Limits& limits) {
  if (report.ending == RunReport::Ending::kError && report.error == "VMerror") throwMemory(limits);
  const Announcement announced = announcementOf(input);
  checkEnding(announced, report);
  const PdfPages pages = countPdfPages(folder.output());
  checkComplete(announced, report, pages);
  disarmPdf(folder.output());
  return pages.count;
}

}  // namespace

const wchar_t kUsageText[] =
    L"Usage: ps2pdf.exe \"<file.ps>\" writes <file.pdf> beside it; the name must end in \".ps\".";

JobPaths pathsForInput(const std::wstring& argument) {
  constexpr size_t kSuffix = 3;
  if (argument.size() <= kSuffix || _wcsicmp(argument.c_str() + argument.size() - kSuffix, L".ps") != 0) {
    throw ConversionError(ExitCode::kUsage, kUsageText);
  }
  const DWORD room = GetFullPathNameW(argument.c_str(), 0, nullptr, nullptr);
  std::wstring full(room, L'\0');
  full.resize(room == 0 ? 0 : GetFullPathNameW(argument.c_str(), room, full.data(), nullptr));
  if (full.size() <= kSuffix) {
    throw ConversionError(ExitCode::kInput,
                          fmt::format(L"\"{}\" is not a usable file name. Give a shorter path.", argument));
  }
  return {full, full.substr(0, full.size() - kSuffix) + L".pdf"};
}

int convert(const JobPaths& paths, const Limits& limits) {
  checkInput(paths.input);
  if (!DeleteFileW(paths.output.c_str()) && GetLastError() != ERROR_FILE_NOT_FOUND) {
    throw ConversionError(ExitCode::kFileSystem, fmt::format(L"The earlier \"{}\" cannot be removed: {}.", paths.output,
                                                             systemErrorText(GetLastError())));
  }
  PrivateFolder folder(paths.input);
  const std::string marker = newMarker();
  writeScript(folder, marker);
  const RunRequest request = pdfWriteRequest(findGhostscript(limits), PrivateFolder::kScript, paths.input);
  const RunResult result = (runsUnderWine() ? runOnHost : runOnWindows)(request, folder, limits);
  const std::string said = readLastWords(folder.said());
  checkRun(result, request.program, said, limits);
  const int pages = checkPages(folder, readReport(said, marker), paths.input, limits);
  if (!MoveFileExW(folder.output().c_str(), paths.output.c_str(), MOVEFILE_REPLACE_EXISTING)) {
    throw ConversionError(ExitCode::kFileSystem,
                          fmt::format(L"\"{}\" cannot be written: {}.", paths.output, systemErrorText(GetLastError())));
  }
  return pages;
}

}  // namespace mg::converter
