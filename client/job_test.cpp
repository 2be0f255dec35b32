#include "client/job.h"

#include "client/sinks/folder/folder_sink.h"
#include "client/sinks/printer/queued_job.h"
#include "corvane/base/process.h"
#include "programs/text.h"

#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <regex>
#include <vector>

namespace printclient {
namespace {

using enum protocol::PrintResult;

namespace fs = std::filesystem;
using ::testing::ElementsAre;

class JobTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_folder = fs::temp_directory_path() / ("job_" + std::to_string(corvane::processId()));
    fs::remove_all(m_folder);
    fs::create_directories(m_folder / "out");
    m_lines = std::fopen(programs::fromPath(m_folder / "lines").c_str(), "wb");
    m_reporter = std::make_unique<Reporter>(m_lines, false);
    m_output = std::make_unique<JobOutput>(m_folder / "out", 5, 42, *m_reporter, std::make_shared<FolderSink>());
  }
  void TearDown() override {
    m_output.reset();
    m_reporter.reset();
    std::fclose(m_lines);
    fs::remove_all(m_folder);
  }

  static protocol::JobStart ticket(int mode) {
    protocol::JobStart made;
    made.jobName = L"Laser-2 - Job #17";
    made.printerName = L"Laser-2";
    made.documentName = L"Report";
    made.settings = {1, 1, 1, mode};
    made.copies = 1;
    return made;
  }
  static std::span<const unsigned char> bytes(const std::string& text) {
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
  }
  static std::string read(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  std::string lines() const {
    m_reporter->flush();
    return read(m_folder / "lines");
  }
  std::size_t fileCount() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(m_folder / "out"), fs::directory_iterator()));
  }

  fs::path m_folder;
  std::FILE* m_lines = nullptr;
  std::unique_ptr<Reporter> m_reporter;
  std::unique_ptr<JobOutput> m_output;
};

TEST_F(JobTest, OfPiecesThatItWasReferredToHasWhatTheyWereWhenItLetGo) {
  Job job(ticket(1), *m_output);
  std::string piece = "hello ";
  job.refer(bytes(piece));
  const std::string more = "world";
  job.refer(bytes(more));
  job.letGo();
  piece.assign("xxxxxx");
  EXPECT_EQ(job.end(), kPrinted);
  EXPECT_EQ(read(m_folder / "out" / "Report.txt"), "hello world");
  job.letGo();  // there is nothing any more
}

TEST_F(JobTest, IsPrintedWhenItsFileIsComplete) {
  Job job(ticket(1), *m_output);
  job.append(bytes("hello "));
  job.append(bytes("world"));
  EXPECT_EQ(job.end(), kPrinted);
  EXPECT_EQ(read(m_folder / "out" / "Report.txt"), "hello world");
  EXPECT_EQ(fileCount(), 1u);
  EXPECT_EQ(lines(), "receiving \"Report\" for \"Laser-2\"\nprinted \"Report\": 11 bytes to Report.txt\n");
}

TEST_F(JobTest, WithoutDataIsAnEmptyFileInTheDirectModes) {
  for (const int mode : {1, 3}) {
    Job job(ticket(mode), *m_output);
    EXPECT_EQ(job.end(), kPrinted);
  }
  EXPECT_EQ(fs::file_size(m_folder / "out" / "Report.prn"), 0u);
  EXPECT_EQ(fs::file_size(m_folder / "out" / "Report (2).prn"), 0u);
}

TEST_F(JobTest, WithoutDataIsNotPrintedWhenItWasToBeConverted) {
  Job job(ticket(2), *m_output);
  EXPECT_EQ(job.end(), kNoData);
  EXPECT_EQ(fileCount(), 0u);
  EXPECT_NE(lines().find("not printed \"Report\": no data came; the conversion of the job has failed (printer "
                         "\"Laser-2\", session 5); the server says why in a separate line, and its log has more\n"),
            std::string::npos)
      << lines();
}

TEST_F(JobTest, APdfMustEndAsPdf) {
  {
    Job job(ticket(2), *m_output);
    job.append(bytes("%PDF-1.4 half of it"));
    EXPECT_EQ(job.end(), kIncompletePdf);
  }
  EXPECT_NE(lines().find("not printed \"Report\": the PDF is cut; its end mark is missing after 19 bytes (printer "
                         "\"Laser-2\", session 5); print again, and when that fails too, the log of the "
                         "application server has more\n"),
            std::string::npos)
      << lines();
  EXPECT_EQ(fileCount(), 0u);
  Job whole(ticket(2), *m_output);
  whole.append(bytes("%PDF-1.4 all of it\n%%EOF\n"));
  EXPECT_EQ(whole.end(), kPrinted);
  EXPECT_TRUE(fs::exists(m_folder / "out" / "Report.pdf"));
}

TEST_F(JobTest, OtherDataAreKeptAsTheyAreInMode2) {
  Job job(ticket(2), *m_output);
  job.append(
      bytes(std::string("\x1b"
                        "E\0raw",
                        6)));
  EXPECT_EQ(job.end(), kPrinted);
  EXPECT_EQ(read(m_folder / "out" / "Report.prn"), std::string("\x1b"
                                                               "E\0raw",
                                                               6));
}

TEST_F(JobTest, SaysWhatCameUnconverted) {
  const std::string wrapped = "\x1b%-12345X@PJL ENTER LANGUAGE=POSTSCRIPT\n%!PS\n";
  for (const int mode : {1, 2}) {
    Job job(ticket(mode), *m_output);
    job.append(bytes(wrapped));
    EXPECT_EQ(job.end(), kPrinted);
  }
  Job text(ticket(2), *m_output);
  text.append(bytes("text"));
  EXPECT_EQ(text.end(), kPrinted);
  for (const char* line :
       {"printed \"Report\": 45 bytes to Report.ps, PostScript behind printer commands\n",
        "printed \"Report\": 45 bytes to Report (2).ps, PostScript behind printer commands, which the server sends as "
        "it "
        "comes instead of converting it; for a PDF, print with a driver that sends plain PostScript\n",
        "printed \"Report\": 4 bytes to Report.txt, as it came: the server converts PostScript only, and this is not "
        "PostScript; "
        "for "
        "a PDF, print with a driver that sends plain PostScript\n"})
    EXPECT_NE(lines().find(line), std::string::npos) << lines();
}

TEST_F(JobTest, ThatHasEndedIsNotDroppedAsWell) {
  { Job(ticket(1), *m_output).end(); }
  EXPECT_EQ(lines().find("dropped"), std::string::npos) << lines();
}

TEST_F(JobTest, WithoutADocumentIsCalledByItsJobNameAndSaysItsCopies) {
  protocol::JobStart made = ticket(1);
  made.documentName.clear();
  made.copies = 2;
  Job job(made, *m_output);
  EXPECT_NE(lines().find("receiving \"Laser-2 - Job #17\" for \"Laser-2\", 2 copies\n"), std::string::npos) << lines();
}

TEST_F(JobTest, ThatHasFailedGivesItsRoomBackAtOnce) {
  Job job(ticket(1), *m_output);
  job.fail(kBrokenData, "a piece of data was cut");
  EXPECT_EQ(fileCount(), 0u);
}

TEST_F(JobTest, IsDroppedWhenItIsCut) {
  {
    Job job(ticket(1), *m_output);
    job.append(bytes("half"));
    EXPECT_EQ(fileCount(), 1u);
  }
  EXPECT_EQ(fileCount(), 0u);
  EXPECT_NE(
      lines().find("dropped \"Report\": the job was cut after 4 bytes, before its end (printer \"Laser-2\", "
                   "session 5); the server says why in a separate line, unless it has gone itself; print again\n"),
      std::string::npos)
      << lines();
}

TEST_F(JobTest, WithoutItsFolderIsNotPrinted) {
  fs::remove_all(m_folder / "out");
  Job job(ticket(1), *m_output);
  job.append(bytes("x"));
  EXPECT_EQ(job.end(), kDiskFailure);
  EXPECT_NE(lines().find("not printed \"Report\": cannot create "), std::string::npos) << lines();
  EXPECT_NE(
      lines().find(" (printer \"Laser-2\", session 5); see that the folder " + programs::fromPath(m_folder / "out") +
                   " is there, has room and can be written, and print again\n"),
      std::string::npos)
      << lines();
}

// Takes jobs, or does what it was told instead.
class StubSink : public Sink {
 public:
  explicit StubSink(std::function<TakenJob()> act) : m_act(std::move(act)) {}
  TakenJob take(const ArrivedJob& job) override {
    m_taken.push_back(read(job.file.share(job.content.extension())));
    return m_act();
  }
  static std::string read(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  std::function<TakenJob()> m_act;
  std::vector<std::string> m_taken;
};

TEST_F(JobTest, GoesWholeToTheSinkOfItsPrinterAndLeavesNoFile) {
  const auto sink = std::make_shared<StubSink>([] { return TakenJob{"to the printer \"desk\" as job 7"}; });
  JobOutput output(m_folder / "out", 5, 42, *m_reporter, nullptr);
  output.setSink(L"Laser-2", sink);
  std::vector<std::string> followed;
  output.onTaken([&followed](const FollowedJob& job, const TakenJob& taken) {
    followed.push_back(job.origin.sessionText() + ", " + programs::oneLine(job.name) + " " + taken.where);
  });
  {
    Job job(ticket(1), output);
    job.append(bytes("hello "));
    job.append(bytes("world"));
    EXPECT_EQ(sink->m_taken.size(), 0u);
    EXPECT_EQ(job.end(), kPrinted);
  }
  EXPECT_THAT(sink->m_taken, ElementsAre("hello world"));
  EXPECT_EQ(lines(),
            "receiving \"Report\" for \"Laser-2\"\nprinted \"Report\": 11 bytes to the printer \"desk\" as job 7\n");
  {
    Job cut(ticket(1), output);
    cut.append(bytes("%PDF-1.4 half"));
    EXPECT_EQ(cut.end(), kIncompletePdf);
    Job dropped(ticket(1), output);
    dropped.append(bytes("half"));
  }
  EXPECT_EQ(sink->m_taken.size(), 1u);
  EXPECT_EQ(fileCount(), 0u);
  EXPECT_THAT(followed, ElementsAre("session 5, Laser-2 - Job #17 to the printer \"desk\" as job 7"));
}

TEST_F(JobTest, SaysWhichServerItIsFromWhereThereAreSeveral) {
  JobOutput output(m_folder / "out", 0, 42, *m_reporter, std::make_shared<FolderSink>());
  const auto* const connection = reinterpret_cast<const CS_Connection*>(0x10);
  output.setOrigin(connection, {2, 7, "print.example:4712: "});
  {
    Job job(ticket(1), output, connection);
    output.forgetOrigin(connection);
    job.append(bytes("hello"));
    EXPECT_EQ(job.end(), kPrinted);
    output.setOrigin(connection, {2, 7, "print.example:4712: "});
    const Job dropped(ticket(1), output, connection);
  }
  EXPECT_EQ(lines(),
            "print.example:4712: receiving \"Report\" for \"Laser-2\"\n"
            "print.example:4712: printed \"Report\": 5 bytes to Report.txt\n"
            "print.example:4712: receiving \"Report\" for \"Laser-2\"\n"
            "print.example:4712: dropped \"Report\": the job was cut after 0 bytes, before its end (printer "
            "\"Laser-2\", session 7); the server says why in a separate line, unless it has gone itself; print "
            "again\n");
}

TEST_F(JobTest, ThatItsSinkRefusesIsNotPrintedForTheSinksOwnReason) {
  const auto sink = std::make_shared<StubSink>(
      []() -> TakenJob { throw SinkRefusal("the printer has no paper", "put paper in, and print again"); });
  JobOutput output(m_folder / "out", 5, 42, *m_reporter, sink);
  {
    Job job(ticket(1), output);
    job.append(bytes("hello"));
    EXPECT_EQ(job.end(), kNotTaken);
  }
  EXPECT_EQ(lines(),
            "receiving \"Report\" for \"Laser-2\"\nnot printed \"Report\": the printer has no paper (printer "
            "\"Laser-2\", session 5); put paper in, and print again\n");
  EXPECT_EQ(fileCount(), 0u);
  JobOutput without(m_folder / "out", 5, 42, *m_reporter, nullptr);
  EXPECT_EQ(Job(ticket(1), without).end(), kNotTaken);
}

#ifndef _WIN32  // Windows keeps an open file from being removed
TEST_F(JobTest, ThatLosesItsFileIsNotPrinted) {
  Job job(ticket(1), *m_output);
  job.append(bytes("x"));
  fs::remove(fs::directory_iterator(m_folder / "out")->path());
  EXPECT_EQ(job.end(), kDiskFailure);
}
#endif

TEST_F(JobTest, KeepsTheFirstReasonOfAFailure) {
  Job job(ticket(1), *m_output);
  job.fail(kBrokenData, "a piece of data was cut");
  job.fail(kDiskFailure, "later");
  EXPECT_EQ(job.end(), kBrokenData);
  EXPECT_NE(lines().find("not printed \"Report\": a piece of data was cut (printer \"Laser-2\", session 5); print "
                         "again, and when that fails too, install the same version of the port monitor and the print "
                         "client\n"),
            std::string::npos)
      << lines();
}

TEST_F(JobTest, OnATerminalReportsProgressEvery256KiB) {
  Reporter terminal(m_lines, true);
  JobOutput output(m_folder / "out", 5, 42, terminal, std::make_shared<FolderSink>());
  Job job(ticket(1), output);
  const std::string piece(256 * 1024 - 1, 'x');
  const auto reports = [&] {
    terminal.flush();
    const std::string all = read(m_folder / "lines");
    std::vector<std::string> sizes;
    static const std::regex kReport("receiving \"Report\": ([0-9]+) bytes");
    for (std::sregex_iterator found(all.begin(), all.end(), kReport), end; found != end; ++found)
      sizes.push_back((*found)[1]);
    return sizes;
  };
  job.append(bytes(piece));
  EXPECT_THAT(reports(), ElementsAre());
  job.append(bytes("x"));
  EXPECT_THAT(reports(), ElementsAre("262144"));
  job.append(bytes(piece));
  EXPECT_THAT(reports(), ElementsAre("262144"));
  job.append(bytes("x"));
  EXPECT_THAT(reports(), ElementsAre("262144", "524288"));
  EXPECT_EQ(job.end(), kPrinted);
}

TEST_F(JobTest, ReportsProgressWheneverItsSizeHasDoubled) {
  Job job(ticket(1), *m_output);
  const std::string megabyte(1024 * 1024, 'x');
  for (int i = 0; i < 9; ++i)
    job.append(bytes(megabyte));
  job.end();
  EXPECT_EQ(lines(),
            "receiving \"Report\" for \"Laser-2\"\nreceiving \"Report\": 4194304 bytes\nreceiving \"Report\": 8388608 "
            "bytes\nprinted \"Report\": 9437184 bytes to Report.txt\n");
}

TEST_F(JobTest, WhatKilledClientsOfAnySessionLeftIsRemovedAndNothingElse) {
  const fs::path out = m_folder / "out";
  for (const char* name : {".printclient-session-5-1-1.part", ".printclient-session-55-1-0123456789abcdef-1.part",
                           ".printclient-session-5-1-2.part.pdf", "Report.part", ".printclient-session-5.txt", ".part",
                           ".printclient-session-5-1-2.parts"}) {
    std::ofstream(out / name) << "x";
  }
  EXPECT_EQ(m_output->removeLeftovers(), 3);
  EXPECT_EQ(fileCount(), 4u);
  EXPECT_EQ(m_output->removeLeftovers(), 0);
  fs::remove_all(out);
  EXPECT_EQ(m_output->removeLeftovers(), 0);
}

TEST_F(JobTest, AnotherClientsJobIsNotTakenForALeftover) {
  JobOutput other(m_folder / "out", 5, 42, *m_reporter,
                  std::make_shared<FolderSink>());  // the same session and process number, as in a container
  Job job(ticket(1), *m_output);
  job.append(bytes("hello"));
  EXPECT_EQ(other.removeLeftovers(), 0);
  EXPECT_EQ(m_output->removeLeftovers(), 0);
  Job second(ticket(1), other);
  second.append(bytes("world"));
  EXPECT_EQ(job.end(), kPrinted);
  EXPECT_EQ(second.end(), kPrinted);
  EXPECT_EQ(read(m_folder / "out" / "Report.txt"), "hello");
  EXPECT_EQ(read(m_folder / "out" / "Report (2).txt"), "world");
}

TEST_F(JobTest, ATemporaryNameIsHiddenAndSaysWhoseItIs) {
  const std::string first = m_output->nextTemporaryName();
  EXPECT_TRUE(first.starts_with(".printclient-session-5-42-")) << first;
  EXPECT_TRUE(first.ends_with("-1.part")) << first;
  EXPECT_EQ(first.size(), std::string(".printclient-session-5-42-0123456789abcdef-1.part").size());
  EXPECT_TRUE(m_output->nextTemporaryName().ends_with("-2.part"));
}

TEST_F(JobTest, StandsOnTheBoardWithHowFarItHasGotAndWhereItWent) {
  Job job(ticket(1), *m_output);
  const auto shown = [this] { return m_output->board().newerThan(0).jobs.front(); };
  EXPECT_EQ(shown().title, "Report");
  EXPECT_EQ(shown().printer, "Laser-2");
  EXPECT_EQ(shown().stage, JobStage::kArriving);
  job.append(bytes("hello "));
  EXPECT_EQ(shown().bytes, 6u);
  job.append(bytes("world"));
  EXPECT_EQ(shown().bytes, 11u);
  job.end();
  EXPECT_EQ(shown().stage, JobStage::kHandedOn);
  EXPECT_EQ(shown().where, "to Report.txt");
  EXPECT_EQ(shown().kept, "") << "nobody wants it kept";
}

TEST_F(JobTest, StandsOnTheBoardWithWhyItFailedAndWhatToDo) {
  const auto shown = [this] { return m_output->board().newerThan(0).jobs.front(); };
  {
    Job job(ticket(2), *m_output);
    job.append(bytes("%PDF-1.4 half of it"));
    job.end();
  }
  EXPECT_EQ(shown().stage, JobStage::kFailed);
  EXPECT_EQ(shown().cause, "the PDF is cut; its end mark is missing after 19 bytes");
  EXPECT_EQ(shown().remedy, "print again, and when that fails too, the log of the application server has more");
  {
    Job dropped(ticket(1), *m_output);
    dropped.append(bytes("x"));
  }
  EXPECT_EQ(shown().stage, JobStage::kFailed);
  EXPECT_EQ(shown().cause, "the job was cut after 1 byte, before its end");
  EXPECT_EQ(shown().remedy, "print again");
  {
    Job explained(ticket(1), *m_output);
    BoardJob words;
    words.title = "Report";
    words.printer = "Laser-2";
    words.cause = "The port was deleted.";
    m_output->board().explain(words);  // the two that failed before
    m_output->board().explain(words);
    words.cause = "The application was ended.";
    m_output->board().explain(words);
  }
  EXPECT_EQ(shown().cause, "The application was ended.");
}

TEST_F(JobTest, ThatAPrinterHasGoesOnThereOnTheBoard) {
  const auto queued = std::make_shared<QueuedJob>();
  queued->progress.state = protocol::PaperState::kWaiting;
  const auto sink = std::make_shared<StubSink>([queued] {
    return TakenJob{"to the printer \"desk\" as job 7, where it waits", true, queued};
  });
  m_output->setSink(L"Laser-2", sink);
  Job job(ticket(1), *m_output);
  job.append(bytes("x"));
  job.end();
  const BoardJob shown = m_output->board().newerThan(0).jobs.front();
  EXPECT_EQ(shown.stage, JobStage::kWaiting);
  EXPECT_EQ(shown.where, "to the printer \"desk\" as job 7, where it waits");
}

}  // namespace
}  // namespace printclient
