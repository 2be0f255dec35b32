#include "client/sinks/printer/printer_sink.h"
#include "tests/support/import_seam.h"

#include <windows.h>
#include <winspool.h>

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

MG_PLAIN_SEAM(L"winspool.drv", OpenPrinterW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", StartDocPrinterW, 0)
MG_PLAIN_SEAM(L"winspool.drv", WritePrinter, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", EndDocPrinter, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", AbortPrinter, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", SetJobW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", ClosePrinter, FALSE)

namespace printclient {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::StartsWith;

const HANDLE kPrinter = reinterpret_cast<HANDLE>(0x77);

// A queue that takes everything, in pieces as large as they come.
class PrinterSinkTest : public ::testing::Test {
 protected:
  PrinterSinkTest() {
    fs::remove_all(m_folder);
    fs::create_directories(m_folder);
    OpenPrinterWSeam.replacement = [](LPWSTR name, LPHANDLE out, LPPRINTER_DEFAULTSW) -> WINBOOL {
      EXPECT_STREQ(name, L"desk");
      *out = kPrinter;
      return TRUE;
    };
    StartDocPrinterWSeam.replacement = [this](HANDLE, DWORD level, LPBYTE info) -> DWORD {
      const auto& document = *reinterpret_cast<DOC_INFO_1W*>(info);
      EXPECT_EQ(level, 1u);
      EXPECT_STREQ(document.pDocName, L"Report");
      EXPECT_EQ(document.pOutputFile, nullptr);
      EXPECT_STREQ(document.pDatatype, L"RAW");
      m_data.emplace_back();
      return static_cast<DWORD>(16 + m_data.size());
    };
    WritePrinterSeam.replacement = [this](HANDLE, LPVOID data, DWORD size, LPDWORD taken) -> WINBOOL {
      *taken = std::min(size, m_mostTaken);
      m_data.back().append(static_cast<const char*>(data), *taken);
      return TRUE;
    };
    EndDocPrinterSeam.replacement = [](HANDLE) -> WINBOOL { return TRUE; };
    AbortPrinterSeam.replacement = [](HANDLE) -> WINBOOL { return TRUE; };
    SetJobWSeam.replacement = [this](HANDLE, DWORD job, DWORD, LPBYTE, DWORD command) -> WINBOOL {
      EXPECT_EQ(command, static_cast<DWORD>(JOB_CONTROL_DELETE));
      m_deleted.push_back(job);
      return TRUE;
    };
    ClosePrinterSeam.replacement = [](HANDLE) -> WINBOOL { return TRUE; };
  }
  ~PrinterSinkTest() override { fs::remove_all(m_folder); }

  std::string print(const std::string& data, int copies = 1) {
    protocol::JobStart ticket;
    ticket.documentName = L"Report";
    ticket.copies = copies;
    const std::span<const unsigned char> bytes(reinterpret_cast<const unsigned char*>(data.data()), data.size());
    ContentProbe probe;
    probe.feed(bytes);
    JobFile file(m_folder, "job.part");
    file.append(bytes);
    try {
      return m_sink.take({ticket, probe, file}).where;
    } catch (const SinkRefusal& refusal) {
      return std::string("refused: ") + refusal.what() + "; " + refusal.remedy();
    }
  }

  // Without those that are about the job's file.
  std::vector<std::string> spoolerCalls() const {
    std::vector<std::string> calls = m_seams.calls();
    std::erase_if(calls, [](const std::string& call) { return call == "WriteFile" || call == "FlushFileBuffers"; });
    return calls;
  }

  const fs::path m_folder = fs::temp_directory_path() / "printer_sink_windows_test";
  ImportSeams m_seams;
  PrinterSink m_sink{{"desk", ""}};
  DWORD m_mostTaken = 1 << 20;
  std::vector<std::string> m_data;
  std::vector<DWORD> m_deleted;
};

const std::string kRefusedWords = "; see what the queue shows and that this machine's disk has room, and print again";

TEST_F(PrinterSinkTest, GivesTheQueueTheRawDataAsTheyAre) {
  EXPECT_EQ(print(std::string("raw\0data", 8)), "to the printer \"desk\" as job 17");
  EXPECT_THAT(m_data, ElementsAre(std::string("raw\0data", 8)));
  EXPECT_THAT(spoolerCalls(),
              ElementsAre("OpenPrinterW", "StartDocPrinterW", "WritePrinter", "EndDocPrinter", "ClosePrinter"));
  EXPECT_TRUE(fs::is_empty(m_folder));
}

TEST_F(PrinterSinkTest, ThreeCopiesAreThreeJobs) {
  EXPECT_EQ(print("%!PS-Adobe-3.0\n", 3), "to the printer \"desk\" as jobs 17 to 19, 3 copies");
  EXPECT_THAT(m_data, ElementsAre("%!PS-Adobe-3.0\n", "%!PS-Adobe-3.0\n", "%!PS-Adobe-3.0\n"));
}

TEST_F(PrinterSinkTest, WhatIsTakenInPartIsWrittenOn) {
  m_mostTaken = 3;
  EXPECT_EQ(print("12345678"), "to the printer \"desk\" as job 17");
  EXPECT_THAT(m_data, ElementsAre("12345678"));
}

TEST_F(PrinterSinkTest, AQueueThatTakesNothingHasNotTheJob) {
  m_mostTaken = 0;
  EXPECT_THAT(print("data"), StartsWith("refused: the printer \"desk\" did not take all data: "));
  EXPECT_THAT(spoolerCalls(),
              ElementsAre("OpenPrinterW", "StartDocPrinterW", "WritePrinter", "AbortPrinter", "ClosePrinter"));
}

TEST_F(PrinterSinkTest, EachStepThatFailsIsTheCauseAndLeavesNothingInTheQueue) {
  OpenPrinterWSeam.fail(1, FALSE, ERROR_INVALID_PRINTER_NAME);
  EXPECT_THAT(print("data"), StartsWith("refused: the printer \"desk\" cannot be used: "));
  StartDocPrinterWSeam.fail(1, 0, ERROR_ACCESS_DENIED);
  EXPECT_THAT(print("data"), StartsWith("refused: the printer \"desk\" refuses the job: "));
  WritePrinterSeam.fail(1, FALSE, ERROR_PRINT_CANCELLED);
  EXPECT_THAT(print("data"), StartsWith("refused: the printer \"desk\" did not take all data: "));
  EXPECT_EQ(spoolerCalls().end()[-2], "AbortPrinter");
  EndDocPrinterSeam.fail(1, FALSE, ERROR_DISK_FULL);
  const std::string said = print("data");
  EXPECT_THAT(said, StartsWith("refused: the printer \"desk\" did not take the end of the document: "));
  EXPECT_THAT(said, ::testing::EndsWith("(error 112)" + kRefusedWords));
  EXPECT_EQ(spoolerCalls().end()[-2], "AbortPrinter");
}

TEST_F(PrinterSinkTest, ALaterCopyThatFailsTakesTheEarlierOnesBack) {
  StartDocPrinterWSeam.fail(3, 0, ERROR_ACCESS_DENIED);
  const std::string said = print("data", 3);
  EXPECT_THAT(said, StartsWith("refused: the printer \"desk\" refuses the job: "));
  EXPECT_THAT(said, ::testing::EndsWith(" after 2 of 3 copies, which were taken back if they had not been printed yet; "
                                        "see which of them come out" +
                                        kRefusedWords));
  EXPECT_THAT(m_deleted, ElementsAre(17u, 18u));
}

TEST_F(PrinterSinkTest, APdfIsNotSentRaw) {
  EXPECT_EQ(
      print("%PDF-1.4\n%%EOF\n"),
      "refused: the printer \"desk\" gets raw data, and this is a PDF, which a queue of Windows does not convert; "
      "install Ghostscript, bring it along with format=ps or format=raw and its own driver, or print PDF with "
      "--command "
      "and a program "
      "that can");
  EXPECT_THAT(spoolerCalls(), ElementsAre());
}

TEST_F(PrinterSinkTest, AStoppedClientGivesTheQueueNothingMore) {
  m_sink.stop();
  EXPECT_EQ(print("data"), "refused: the print client was stopped; start it again, and print again");
  EXPECT_THAT(spoolerCalls(), ElementsAre("OpenPrinterW", "StartDocPrinterW", "AbortPrinter", "ClosePrinter"));
}

}  // namespace
}  // namespace printclient
