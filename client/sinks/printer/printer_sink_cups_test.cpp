// The sink at real printers (ippeveprinter) and a real scheduler (cupsd), each test's own.

#include "client/account_name.h"
#include "client/sinks/printer/printer_sink.h"
#include "tests/support/paper/print_scheduler.h"
#include "tests/support/paper/raw_device.h"
#include "tests/support/paper/virtual_printer.h"

#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

namespace printclient {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;
using tests::PrintScheduler;
using tests::VirtualPrinter;

const std::string kPdf =
    "%PDF-1.4\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj\n2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj\n"
    "3 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 595 842]>>endobj\nxref\n0 4\n0000000000 65535 f \n"
    "0000000009 00000 n \n0000000052 00000 n \n0000000101 00000 n \ntrailer<</Size 4/Root 1 0 R>>\nstartxref\n164\n"
    "%%EOF\n";

// What is waited for comes much sooner, unless it is what the test is about.
PrinterPatience patient() {
  PrinterPatience patience;
  patience.watch = std::chrono::minutes(2);
  return patience;
}

class PrinterSinkTest : public ::testing::Test {
 protected:
  static protocol::JobStart ticket(const std::wstring& title, int copies) {
    protocol::JobStart made;
    made.jobName = L"Laser-2 - Job #17";
    made.printerName = L"Laser-2";
    made.documentName = title;
    made.settings = {1, 1, 1, 1};
    made.copies = copies;
    return made;
  }

  // What the sink says, or "refused: CAUSE; REMEDY".
  std::string print(PrinterSink& sink, const std::string& data, int copies = 1, const std::wstring& title = L"Report",
                    CancelRequest* cancel = nullptr) {
    const protocol::JobStart start = ticket(title, copies);
    const std::span<const unsigned char> bytes(reinterpret_cast<const unsigned char*>(data.data()), data.size());
    ContentProbe probe;
    probe.feed(bytes);
    JobFile file(m_place.folder("jobs"), "job-" + std::to_string(++m_jobs) + ".part");
    file.append(bytes);
    // On a thread of its own, as in the print client: what libcups knows of the scheduler it keeps for each thread.
    return std::async(std::launch::async,
                      [&]() -> std::string {
                        try {
                          return sink.take({start, probe, file, cancel}).where;
                        } catch (const SinkRefusal& refusal) {
                          return std::string("refused: ") + refusal.what() + "; " + refusal.remedy();
                        }
                      })
        .get();
  }
  std::string print(const PrinterTarget& target, const std::string& data, int copies = 1,
                    const PrinterPatience& patience = patient()) {
    PrinterSink sink(target, patience);
    return print(sink, data, copies);
  }
  // As Ghostscript counts them.
  std::string pagesOf(const std::string& pdf) const {
    const auto file = m_place.folder("pages") / "document.pdf";
    std::ofstream(file, std::ios::binary) << pdf;
    const std::string said =
        tests::PaperPlace::run({"/usr/bin/gs", "-q", "-dNODISPLAY", "--permit-file-read=" + file.string(), "-c",
                                "(" + file.string() + ") (r) file runpdfbegin pdfpagecount = quit"});
    return said.substr(0, said.find('\n'));
  }
  static PrinterTarget at(const VirtualPrinter& printer) { return {"", printer.uri()}; }

  tests::PaperPlace m_place;
  int m_jobs = 0;
};

TEST_F(PrinterSinkTest, APrinterGetsTheExactBytesTheCopiesTheTitleAndTheUser) {
  VirtualPrinter printer(m_place);
  PrinterSink sink(at(printer), patient());
  const std::string postScript = "\x1b%-12345X@PJL\n%!PS-Adobe-3.0\nshowpage\n";
  const std::string large = kPdf + std::string(300000, ' ') + "\n%%EOF\n";
  EXPECT_EQ(print(sink, kPdf, 3, L"\u00d6l & \u20ac"), "to the printer at " + printer.uri() + " as job 1, 3 copies");
  EXPECT_EQ(print(sink, postScript, 3), "to the printer at " + printer.uri() + " as job 2, 3 copies");
  EXPECT_EQ(print(sink, large), "to the printer at " + printer.uri() + " as job 3");
  EXPECT_THAT(printer.printed(), ElementsAre(kPdf, postScript, large));
  EXPECT_EQ(printer.said(0, "IPP_COPIES"), "3");
  EXPECT_EQ(printer.said(0, "IPP_JOB_NAME"), "\xC3\x96l & \xE2\x82\xAC");
  EXPECT_EQ(printer.said(0, "IPP_JOB_ORIGINATING_USER_NAME"), accountName());
  EXPECT_EQ(printer.said(0, "CONTENT_TYPE"), "application/pdf");
  EXPECT_EQ(printer.said(1, "IPP_COPIES"), "3");
  EXPECT_EQ(printer.said(1, "CONTENT_TYPE"), "application/postscript");
  EXPECT_EQ(printer.said(2, "IPP_COPIES"), "");
}

TEST_F(PrinterSinkTest, AnEncryptedPrinterGetsThemTooAndAnotherOneAtItsPlaceGetsNothing) {
  VirtualPrinter printer(m_place);
  const PrinterTarget target{"", printer.uri("ipps")};
  const std::string name = "the printer at " + target.uri;
  EXPECT_EQ(print(target, kPdf), "to " + name + " as job 1");
  printer.switchOff();
  printer.switchOn();
  EXPECT_EQ(print(target, kPdf), "to " + name + " as job 1");
  printer.switchOff();
  std::filesystem::remove_all(printer.folder() / "keys");
  printer.switchOn();
  const auto kept = m_place.folder() / ".config" / "printclient" / "printers" /
                    ("localhost_" + std::to_string(printer.port()) + ".certificate");
  EXPECT_EQ(print(target, kPdf),
            "refused: " + name +
                " cannot be used: it shows another certificate than before, so that it may be another device; if the "
                "printer was replaced or reset, remove " +
                kept.string() +
                "; see that it is switched on and connected and that the address is right, and print again");
  EXPECT_THAT(printer.printed(), SizeIs(2));
  std::filesystem::remove(kept);
  EXPECT_EQ(print(target, kPdf), "to " + name + " as job 1");
}

TEST_F(PrinterSinkTest, APrinterBehindAQueueMakesTheCopiesOnceOfPdfAndOfPostScript) {
  VirtualPrinter printer(m_place);
  PrintScheduler scheduler(m_place);
  scheduler.addQueue("desk", printer.uri());
  EXPECT_EQ(print({"desk", ""}, kPdf, 3), "to the printer \"desk\" as job 1, 3 copies");
  EXPECT_EQ(print({"desk", ""}, "%!PS-Adobe-3.0\n%%Pages: 1\n%%Page: 1 1\nshowpage\n%%EOF\n", 3),
            "to the printer \"desk\" as job 2, 3 copies");
  ASSERT_THAT(printer.printed(), SizeIs(2));
  for (std::size_t job : {0, 1}) {
    EXPECT_EQ(printer.said(job, "IPP_COPIES"), "3");
    EXPECT_EQ(printer.said(job, "IPP_JOB_NAME"), "Report");
    EXPECT_EQ(printer.said(job, "IPP_JOB_ORIGINATING_USER_NAME"), accountName());
  }
}

TEST_F(PrinterSinkTest, CopiesThatTheDataAskForThemselvesAreMadeOnce) {
  const std::string setup = "%!PS-Adobe-3.0\n%%Pages: 1\n%%EndComments\n%%BeginSetup\n";
  const std::string page = "%%EndSetup\n%%Page: 1 1\nshowpage\n%%EOF\n";
  const std::string three = setup + "<< /NumCopies 3 >> setpagedevice\n" + page;
  const std::string pjl = "\x1b%-12345X@PJL SET COPIES=3\n@PJL ENTER LANGUAGE=POSTSCRIPT\n" + setup + page;
  VirtualPrinter printer(m_place);
  const std::string name = "to the printer at " + printer.uri();
  EXPECT_EQ(print(at(printer), setup + page, 3), name + " as job 1, 3 copies");
  EXPECT_EQ(print(at(printer), three, 3), name + " as job 2, 3 copies by its own data");
  EXPECT_EQ(print(at(printer), pjl, 3), name + " as job 3, 3 copies by its own data");
  EXPECT_THAT(printer.printed(), ElementsAre(setup + page, three, pjl));
  EXPECT_EQ(printer.said(0, "IPP_COPIES"), "3");
  EXPECT_EQ(printer.said(1, "IPP_COPIES"), "");
  EXPECT_EQ(printer.said(2, "IPP_COPIES"), "");
  // A queue whose printer wants PDF repeats the pages.
  PrintScheduler scheduler(m_place);
  scheduler.addQueue("desk", printer.uri());
  EXPECT_EQ(print({"desk", ""}, three, 3), "to the printer \"desk\" as job 1, 3 copies by its own data");
  EXPECT_EQ(printer.said(3, "IPP_COPIES"), "");
  EXPECT_EQ(pagesOf(printer.printed().back()), "3");
  // A device behind a raw queue gets the data once.
  tests::RawDevice device;
  scheduler.addQueue("raw", device.uri(), {"-m", "raw"});
  const std::string pcl =
      "\x1b"
      "E\x1b&l3Xtext\x1b"
      "E";
  EXPECT_EQ(print({"raw", ""}, pcl, 3), "to the printer \"raw\" as job 2, 3 copies by its own data");
  EXPECT_EQ(device.next(), pcl);
}

TEST_F(PrinterSinkTest, ADeviceGetsRawDataAsTheyAreAndAsManyTimesAsCopiesAreWanted) {
  PrintScheduler scheduler(m_place);
  tests::RawDevice device;
  scheduler.addQueue("raw", device.uri(), {"-m", "raw"});
  const std::string raw(
      "\x1b"
      "E\0raw \xff",
      8);
  const std::string text = "^XA^FDtext of a label printer^XZ\n";
  EXPECT_EQ(print({"raw", ""}, raw), "to the printer \"raw\" as job 1");
  EXPECT_EQ(device.next(), raw);
  EXPECT_EQ(print({"raw", ""}, text, 3), "to the printer \"raw\" as job 2, 3 copies");
  EXPECT_EQ(device.next(), text + text + text);
}

TEST_F(PrinterSinkTest, WithoutAPrinterOrASchedulerOrAQueueThereIsACause) {
  VirtualPrinter printer(m_place);
  printer.switchOff();
  EXPECT_EQ(print(at(printer), kPdf),
            "refused: the printer at " + printer.uri() +
                " cannot be used: nobody answers there; see that it is switched on and connected and that the address "
                "is right, and print again");
  EXPECT_EQ(print({"desk", ""}, kPdf),
            "refused: the printer \"desk\" cannot be used: no print scheduler (CUPS) answers at 127.0.0.1; see with "
            "\"lpstat -t\" that the queue is there, and print again");
  PrintScheduler scheduler(m_place);
  EXPECT_EQ(
      print({"no such", ""}, kPdf),
      "refused: the printer \"no such\" cannot be used: the print scheduler (CUPS) has no queue of that name; see "
      "with \"lpstat -t\" that the queue is there, and print again");
}

TEST_F(PrinterSinkTest, AJobThatThePrinterGivesUpIsNotPrinted) {
  VirtualPrinter::Settings settings;
  settings.then = "exit 1";
  VirtualPrinter printer(m_place, settings);
  EXPECT_EQ(print(at(printer), kPdf),
            "refused: the printer at " + printer.uri() +
                " gave the job up (\"Job aborted\"); see what it shows and what its log says, and print again");
}

TEST_F(PrinterSinkTest, OfAJobThatThePrinterGivesUpItIsBelievedAndNotItsQueueWhichCallsSomeCompleted) {
  VirtualPrinter::Settings settings;
  settings.then = "exit 1";
  VirtualPrinter printer(m_place, settings);
  PrintScheduler scheduler(m_place);
  scheduler.addQueue("desk", printer.uri());
  for (int job = 1; job <= 5; ++job) {
    EXPECT_EQ(print({"desk", ""}, kPdf),
              "refused: the printer \"desk\" gave the job up (\"Job aborted\"); see what it shows and what its log "
              "says, and print again")
        << job;
  }
}

TEST_F(PrinterSinkTest, AJobThatWaitsForPaperIsTakenBack) {
  VirtualPrinter::Settings settings;
  settings.then = "echo 'STATE: +media-empty-error' >&2";
  VirtualPrinter printer(m_place, settings);
  EXPECT_EQ(print(at(printer), kPdf), "to the printer at " + printer.uri() + " as job 1");
  PrinterPatience patience = patient();
  patience.silence = std::chrono::milliseconds(1500);
  patience.takeBack = std::chrono::milliseconds(500);
  // This printer does not let go of a job that waits for paper, and drops it when there is some.
  EXPECT_EQ(print(at(printer), kPdf, 1, patience),
            "refused: the printer at " + printer.uri() +
                " wants paper that is not in it (\"Job printing\"); job 2 could not be taken back and may still come "
                "out; look for it there before you print again; put in the paper that the job wants, and print again");
  EXPECT_THAT(printer.printed(), SizeIs(1));
}

TEST_F(PrinterSinkTest, AJobForAPrinterThatItsQueueCannotReachIsTakenBackAndNeverComesOut) {
  VirtualPrinter printer(m_place);
  PrintScheduler scheduler(m_place);
  scheduler.addQueue("desk", printer.uri());
  printer.switchOff();
  PrinterPatience patience = patient();
  patience.silence = std::chrono::milliseconds(1500);
  EXPECT_EQ(print({"desk", ""}, kPdf, 1, patience),
            "refused: the printer \"desk\" cannot be reached (\"The printer may not exist or is unavailable at this "
            "time\"); job 1 was taken back; see that it is switched on and connected, and print again");
  printer.switchOn();
  EXPECT_EQ(print({"desk", ""}, kPdf, 2), "to the printer \"desk\" as job 2, 2 copies");
  ASSERT_THAT(printer.printed(), SizeIs(1));
  EXPECT_EQ(printer.said(0, "IPP_COPIES"), "2");
}

TEST_F(PrinterSinkTest, APausedQueueKeepsTheJobAndOneThatTakesNoneRefusesIt) {
  VirtualPrinter printer(m_place);
  PrintScheduler scheduler(m_place);
  scheduler.addQueue("desk", printer.uri());
  scheduler.administer({"/usr/sbin/cupsdisable", "-r", "out for lunch", "desk"});
  EXPECT_EQ(print({"desk", ""}, kPdf),
            "to the printer \"desk\" as job 1, where it waits: the printer is stopped (\"out for lunch\")");
  EXPECT_THAT(printer.printed(), IsEmpty());
  scheduler.administer({"/usr/sbin/cupsenable", "desk"});
  tests::PaperPlace::waitUntil("printed", [&] { return printer.printed().size() == 1; });
  scheduler.administer({"/usr/sbin/cupsreject", "-r", "being cleaned", "desk"});
  EXPECT_EQ(print({"desk", ""}, kPdf),
            "refused: the printer \"desk\" takes no jobs (\"being cleaned\"); let it take jobs again, with "
            "\"cupsaccept\" where it is a queue, and print again");
}

TEST_F(PrinterSinkTest, WhatAPrinterDoesNotTakeIsNotSentToIt) {
  VirtualPrinter::Settings settings;
  settings.formats = "application/pdf,image/urf";
  VirtualPrinter printer(m_place, settings);
  EXPECT_EQ(print(at(printer), "%!PS-Adobe-3.0\nshowpage\n"),
            "refused: the printer at " + printer.uri() +
                " does not take PostScript; it takes application/octet-stream, application/pdf, image/urf; bring it "
                "along with another format (--printer NAME,format=...), or take a queue with a driver for it");
  // It says that it takes any data, and then looks into them.
  EXPECT_EQ(print(at(printer), "raw"),
            "refused: the printer at " + printer.uri() +
                " did not take the document: Unsupported document-format mimeMediaType value. "
                "(client-error-attributes-or-values-not-supported); job 1 was taken back; put right what it says, or "
                "bring it along with another format, and print again");
  EXPECT_EQ(print(at(printer), kPdf), "to the printer at " + printer.uri() + " as job 2");
  EXPECT_THAT(printer.printed(), ElementsAre(kPdf));
}

TEST_F(PrinterSinkTest, WhatAQueueCallsCompletedAndItsPrinterHasRefusedIsNotPrinted) {
  VirtualPrinter printer(m_place);
  PrintScheduler scheduler(m_place);
  scheduler.addQueue("desk", printer.uri());
  EXPECT_THAT(print({"desk", ""},
                    "\x1b"
                    "E raw data of another printer"),
              StartsWith("refused: the printer \"desk\" gave the job up (\"Unable to add document to print job\")"));
  EXPECT_THAT(printer.printed(), IsEmpty());
}

TEST_F(PrinterSinkTest, ASchedulerThatStandsStillHoldsNoJobForEver) {
  PrintScheduler scheduler(m_place);
  scheduler.process().signal(SIGSTOP);
  PrinterPatience patience = patient();
  patience.silence = std::chrono::milliseconds(500);
  EXPECT_EQ(
      print({"desk", ""}, kPdf, 1, patience),
      "refused: the printer \"desk\" cannot be used: no answer came within 0.5 s; see with \"lpstat -t\" that the "
      "queue is there, and print again");
}

TEST_F(PrinterSinkTest, WhoeverStopsThePrintClientWaitsForNoPrinter) {
  PrintScheduler scheduler(m_place);
  scheduler.process().signal(SIGSTOP);
  PrinterSink sink({"desk", ""}, patient());
  sink.stop();
  EXPECT_EQ(
      print(sink, kPdf),
      "refused: the printer \"desk\" cannot be used: the print client was stopped; see with \"lpstat -t\" that the "
      "queue is there, and print again");
}

TEST_F(PrinterSinkTest, AJobThatThePersonHasCanceledIsNotGivenToThePrinter) {
  VirtualPrinter printer(m_place);
  PrinterSink sink(at(printer), patient());
  CancelRequest cancel;
  cancel.make();
  EXPECT_EQ(print(sink, kPdf, 1, L"Report", &cancel), "refused: you canceled it; print it again if it is still wanted");
  EXPECT_EQ(print(sink, kPdf), "to the printer at " + printer.uri() + " as job 1");
}

}  // namespace
}  // namespace printclient
