#pragma once

#include "corvane/base/text.h"
#include "jobs/conversion.h"
#include "tests/support/import_seam.h"
#include "tests/support/recording_monitor.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>
#include <string>

// The registry and the converter are the test's; files and handles are real.
class ConvertJobTest : public testing::Test {
 protected:
  static constexpr char kClosing[] = "0x40000008: Stack Trace: MgPrintMon - ConvertJob()";

  ConvertJobTest();

  int convert(const wchar_t* printer = L"Laser") { return ConvertJob(&m_job, printer); }
  std::string finalData() const {
    return {reinterpret_cast<const char*>(m_job.finalData), static_cast<std::size_t>(m_job.finalDataLength)};
  }
  // The command line as it must be for the default RootPath.
  std::string command() const { return "C:\\Marrowgate\\Programs\\ps2pdf.exe \"" + corvane::toUtf8(m_ps) + "\""; }
  static std::string thrown(const std::string& text) { return "0x4000000a: " + text + "\n10: " + text; }
  // The records, joined line by line.
  std::string records() const {
    std::string all;
    for (const std::string& line : m_records.lines())
      all += (all.empty() ? "" : "\n") + line;
    return all;
  }
  std::string notDeleted(const std::wstring& path) const {
    return "\n0x4000000c: Failed to delete the temporary print job " + std::string(path == m_log ? "log " : "") +
           "file: " + corvane::toUtf8(path);
  }
  static std::string closing() { return std::string("\n") + kClosing; }

  TemporaryFolder m_folder;  // before the seams, which write down its calls otherwise
  ImportSeams m_seams;
  RecordingScope m_records;
  std::wstring m_ps = m_folder.file(L"job.ps");
  std::wstring m_pdf = m_folder.file(L"job.pdf");
  std::wstring m_log = m_folder.file(L"job.log");
  ClientPrintJob m_job;
  bool m_hasKey = true;
  bool m_hasRoot = true;
  std::wstring m_root = L"C:\\Marrowgate";
  bool m_makesPdf = true;
  std::string m_pdfBytes = std::string("%PDF-1.4\r\n\x1A\0%%EOF", 17);
  std::string m_output;
  std::string m_command;
  DWORD m_startFlags = 0;
  bool m_hasOutput = false;

 private:
  void standInForRegistry();
  void standInForConverter();
};
