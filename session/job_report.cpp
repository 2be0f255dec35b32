#include "session/job_report.h"

#include "corvane/base/text.h"
#include "corvane/records/messages.h"
#include "corvane/records/program_monitor.h"
#include "util/last_error.h"

#include <cwchar>

const wchar_t* remedyFor(JobFault fault) {
  switch (fault) {
    case JobFault::kServer:
      return L"Start aps on this machine, then print again.";
    case JobFault::kModule:
      return L"Restart the print spooler, then print again.";
    case JobFault::kPrinter:
      return L"See that the session's print client is running and brings this printer along, then print again.";
    case JobFault::kAttach:
      return L"Start the session's print client, then print again.";
    case JobFault::kStream:
      return L"Install the print client and the monitor in the same version, then print again.";
    case JobFault::kConnection:
      return L"See that aps and the session's print client are running, then print again.";
    case JobFault::kCollect:
      return L"Make room in the spooler's temporary folder and let the spooler write there, then print again.";
    case JobFault::kRootPath:
      return L"Set RootPath in the registry to the installation folder, then print again.";
    case JobFault::kConverterStart:
      return L"Put ps2pdf.exe into the folder Programs below RootPath, then print again.";
    case JobFault::kConversion:
      return L"Mend what the converter says, in the document or in the converter's limits, then print again.";
    case JobFault::kNotepad:
      return L"See in the log of aps why the program did not start in the session, then print again.";
    case JobFault::kClientDisk:
      return L"Make room where the print client puts its documents and let it write there, then print again.";
    case JobFault::kClient:
      return L"See in the print client's output what it says about the job, then print again.";
    case JobFault::kAbandoned:
      return L"Print the document again if it is still wanted.";
    case JobFault::kPortDeleted:
      return L"Add the port again, then print again.";
    case JobFault::kUnknown:
      break;
  }
  return L"See the module's log for what went before, then print again.";
}

void JobReport::begin(JobFault fault, const wchar_t* format, ...) noexcept {
  begin(fault);
  va_list arguments;
  va_start(arguments, format);
  addLine(format, arguments);
  va_end(arguments);
}

void JobReport::add(const wchar_t* format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  addLine(format, arguments);
  va_end(arguments);
}

void JobReport::addLine(const wchar_t* format, va_list arguments) noexcept {
  const mg::LastErrorKeeper keeper;
  Line& line = m_lines[m_added++ % kLines];
  GetSystemTimeAsFileTime(&line.at);
  corvane::formatWide(line.text, kLineSize, format, arguments);
}

void JobReport::fail(JobFault fault, const wchar_t* format, ...) noexcept {
  if (hasFailed()) return;
  const mg::LastErrorKeeper keeper;
  m_fault = fault;
  va_list arguments;
  va_start(arguments, format);
  corvane::formatWide(m_cause, kCauseSize, format, arguments);
  va_end(arguments);
}

void JobReport::fail(const CS_RCPtr<CS_ProgramMonitor>& record) noexcept {
  const wchar_t* text = record ? record->lastText() : L"";
  if (*text != L'\0') {
    fail(m_step, L"%s", text);
  } else {
    fail(JobFault::kUnknown, L"%s", corvane::messageText(corvane::kUnknownException));
  }
}

void JobReport::failInstead(JobFault fault, const wchar_t* cause) noexcept {
  m_cause[0] = L'\0';
  fail(fault, L"%s", cause);
}

void JobReport::write(const wchar_t* kind) const noexcept {
  const mg::LastErrorKeeper keeper;
  for (std::size_t i = m_added > kLines ? m_added - kLines : 0; i < m_added; ++i) {
    const Line& line = m_lines[i % kLines];
    FILETIME local{};
    SYSTEMTIME at{};
    FileTimeToLocalFileTime(&line.at, &local);
    FileTimeToSystemTime(&local, &at);
    wchar_t text[kLineSize + 16];
    std::swprintf(text, std::size(text), L"%02d:%02d:%02d.%03d %ls", at.wHour, at.wMinute, at.wSecond, at.wMilliseconds,
                  line.text);
    corvane::LocalMonitor::instance().writeLine(kind, text);
  }
}
