#include "converter/command.h"

#include "converter/conversion_error.h"
#include "converter/convert.h"
#include "converter/limits.h"
#include "converter/program_deadline.h"

#include <windows.h>

#include <exception>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <string>

namespace mg::converter {
namespace {

// Time that the program may take in addition to Ghostscript, to start and to clean up.
constexpr DWORD kGraceSeconds = 15;

// Standard output becomes a log that is read in the system's own code page.
void write(const std::wstring& line) {
  std::string bytes(line.size() * 4, '\0');
  const int size = WideCharToMultiByte(CP_ACP, 0, line.data(), static_cast<int>(line.size()), bytes.data(),
                                       static_cast<int>(bytes.size()), nullptr, nullptr);
  DWORD written = 0;
  WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), bytes.data(), static_cast<DWORD>(size), &written, nullptr);
}

void say(const std::wstring& text) {
  write(fmt::format(L"ps2pdf: {}\r\n", text));
}

}  // namespace

int exitCodeOf(const std::function<void()>& work) {
  try {
    work();
    return static_cast<int>(ExitCode::kDone);
  } catch (const ConversionError& error) {
    say(error.text());
    return static_cast<int>(error.code());
  } catch (const std::exception& error) {
    const std::string what = error.what();
    say(fmt::format(L"The conversion failed: {}.", std::wstring(what.begin(), what.end())));
    return static_cast<int>(ExitCode::kFileSystem);
  }
}

int runCommand(int count, wchar_t** arguments) {
  return exitCodeOf([&] {
    if (count == 2 && std::wstring(arguments[1]) == L"--version") return write(L"ps2pdf " MG_VERSION L"\r\n");
    if (count != 2) throw ConversionError(ExitCode::kUsage, kUsageText);
    const JobPaths paths = pathsForInput(arguments[1]);
    const Limits limits = readLimits(HKEY_LOCAL_MACHINE, kConverterKey);
    const DWORD seconds = limits.timeSeconds + kGraceSeconds;
    const ProgramDeadline deadline(seconds * 1000, static_cast<unsigned>(ExitCode::kTimeLimit), [seconds] {
      say(fmt::format(
          L"The conversion did not end within {} seconds. Check that the disk of the temporary folder responds, "
          L"then print again.",
          seconds));
    });
    convert(paths, limits);
  });
}

}  // namespace mg::converter

int wmain(int count, wchar_t** arguments) {
  return mg::converter::runCommand(count, arguments);
}
