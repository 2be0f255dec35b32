#include "converter/convert.h"

#include "converter/announcement.h"
#include "converter/completeness.h"
#include "converter/conversion_error.h"
#include "converter/document_program.h"
#include "converter/ghostscript.h"
#include "converter/host_shell.h"
#include "converter/pdf_actions.h"
#include "converter/private_folder.h"
#include "util/win_handle.h"

#include <windows.h>

#include <cwchar>
#include <filesystem>
#include <fstream>

namespace mg::converter {
namespace {

std::wstring wide(const std::string& ascii) {
  return std::wstring(ascii.begin(), ascii.end());
}

std::wstring megabytes(DWORD count) {
  return std::to_wstring(count) + L" megabytes";
}

void checkInput(const std::wstring& path) {
  const FileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) {
    throw ConversionError(ExitCode::kInput,
                          L"\"" + path + L"\" cannot be read: " + systemErrorText(GetLastError()) + L".");
  }
  LARGE_INTEGER size = {};
  if (!GetFileSizeEx(file.get(), &size) || size.QuadPart == 0) {
    throw ConversionError(ExitCode::kInput, L"\"" + path + L"\" is empty. Print the document again.");
  }
}

std::string newMarker() {
  LARGE_INTEGER ticks = {};
  QueryPerformanceCounter(&ticks);
  return "pages-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(ticks.QuadPart) + " ";
}

[[noreturn]] void throwLimit(ExitCode code, const std::wstring& what, const wchar_t* value) {
  throw ConversionError(code, what + L" If the document is sound, raise \"" + value + L"\" in the registry key \"" +
                                  kConverterKey + L"\".");
}

[[noreturn]] void throwMemory(const Limits& limits) {
  throwLimit(ExitCode::kMemoryLimit,
             L"The document needs more than " + megabytes(limits.memoryMegabytes) + L" of memory.",
             L"MemoryLimitMegabytes");
}

// Throws unless the program exited with 0.
void checkRun(const RunResult& result, const std::wstring& program, const std::string& said, const Limits& limits) {
  switch (result.end) {
    case RunEnd::kNotStarted:
      throw ConversionError(ExitCode::kGhostscriptMissing,
                            L"Ghostscript (\"" + program + L"\") cannot be started (" + std::to_wstring(result.code) +
                                L"). Install it, or correct \"GhostscriptPath\" in the registry key \"" +
                                kConverterKey + L"\".");
    case RunEnd::kTimeLimit:
      throwLimit(ExitCode::kTimeLimit,
                 L"The document took longer than " + std::to_wstring(limits.timeSeconds) + L" seconds.",
                 L"TimeLimitSeconds");
    case RunEnd::kOutputLimit:
      throwLimit(ExitCode::kOutputLimit,
                 L"The document makes more than " + megabytes(limits.outputMegabytes) + L" of output.",
                 L"OutputLimitMegabytes");
    case RunEnd::kKilled:
      throw ConversionError(ExitCode::kPostScript,
                            L"Ghostscript was killed or crashed (" + std::to_wstring(result.code) + L").");
    case RunEnd::kExited:
      break;
  }
  if (result.code == 0) return;
  if (said.find("/VMerror") != std::string::npos) throwMemory(limits);
  throw ConversionError(ExitCode::kPostScript, L"Ghostscript ended with " + std::to_wstring(result.code) + L": " +
                                                   wide(errorLine(said)) +
                                                   L". The PostScript of this document is in error.");
}

Announcement announcementOf(const std::wstring& path) {
  std::ifstream document(std::filesystem::path(path), std::ios::binary);
  return readAnnouncement(document);
}

void writeScript(const PrivateFolder& folder, const std::string& marker) {
  std::ofstream file(std::filesystem::path(folder.script()), std::ios::binary);
  if (!(file << documentProgram(marker)).flush()) {
    throw ConversionError(ExitCode::kFileSystem,
                          L"\"" + folder.script() + L"\" cannot be written. Check the free space of the disk.");
  }
}

int checkPages(const PrivateFolder& folder, const RunReport& report, const std::wstring& input, const Limits& limits) {
  if (report.ending == RunReport::Ending::kError && report.error == "VMerror") throwMemory(limits);
  const Announcement announced = announcementOf(input);
  checkEnding(announced, report);
  const PdfPages pages = countPdfPages(folder.output());
  if (pages.count < 1) throw ConversionError(ExitCode::kIncomplete, L"The PDF has no page.");
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
    throw ConversionError(ExitCode::kInput, L"\"" + argument + L"\" is not a usable file name. Give a shorter path.");
  }
  return {full, full.substr(0, full.size() - kSuffix) + L".pdf"};
}

int convert(const JobPaths& paths, const Limits& limits) {
  checkInput(paths.input);
  if (!DeleteFileW(paths.output.c_str()) && GetLastError() != ERROR_FILE_NOT_FOUND) {
    throw ConversionError(ExitCode::kFileSystem, L"The earlier \"" + paths.output + L"\" cannot be removed: " +
                                                     systemErrorText(GetLastError()) + L".");
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
                          L"\"" + paths.output + L"\" cannot be written: " + systemErrorText(GetLastError()) + L".");
  }
  return pages;
}

}  // namespace mg::converter
