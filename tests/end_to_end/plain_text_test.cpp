#include "tests/end_to_end/fixture.h"

#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <stdexcept>
#include <stdlib.h>
#include <sys/stat.h>

namespace tests {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::SizeIs;

const char kPreview[] = "Preview PDF (session 5)";
const char kText[] =
    "\x1B(s0PDear \x1B&l26Areader,\r\n\x1B"
    "Eall is well.\r\n\f";
const char kStripped[] = "Dear reader,\r\nall is well.\r\n\f";

std::string contentOf(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// A command for aps that writes down its arguments, each on a line of its own.
class LaunchCommand {
 public:
  LaunchCommand() {
    std::string pattern = (fs::temp_directory_path() / "mg_launch_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder " + pattern);
    m_folder = pattern;
    std::ofstream(path()) << "#!/bin/sh\nprintf '%s\\n' \"$@\" >\"$0.arguments\"\n";
    chmod(path().c_str(), 0700);
  }
  ~LaunchCommand() { fs::remove_all(m_folder); }
  LaunchCommand(const LaunchCommand&) = delete;
  LaunchCommand& operator=(const LaunchCommand&) = delete;

  fs::path path() const { return m_folder / "command"; }
  std::vector<std::string> arguments() const {
    std::ifstream in(path().string() + ".arguments", std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
      lines.push_back(line);
    return lines;
  }

 private:
  fs::path m_folder;
};

// The server's command must be there before the server is.
class PlainText : protected LaunchCommand, public EndToEnd {
 protected:
  PlainText() : EndToEnd({"--launch-command", path()}) {}
};

using PlainTextWithoutCommand = EndToEnd;

// Takes the one file that notepad would read away; the rest of the printing must have left nothing.
std::string takeTextFile(const Spooler& spooler, std::string& name) {
  const std::vector<std::string> files = spooler.leftovers();
  EXPECT_THAT(files, SizeIs(1));
  if (files.empty()) return "";
  name = fs::path(files[0]).filename();
  std::string content = contentOf(files[0]);
  fs::remove(files[0]);
  return content;
}

TEST_F(PlainText, OfAPreviewPrinterIsHandedToNotepadInTheSession) {
  const auto client = scene.startClient(5, {"Preview PDF,driver=Generic PostScript,format=pdf"});
  const auto print = spooler.print(kPreview, file("job", kText), {"--title", "A note"});
  // Notepad prints the text, so the document does not reach the session's client, and its end says so.
  expectNotPrinted(*print, "not printed: EndDocPort failed", 5);
  scene.server().waitForLine("program \"notepad.exe\" of session 5");

  std::string name;
  EXPECT_EQ(takeTextFile(spooler, name), kStripped);
  EXPECT_THAT(name, MatchesRegex("Preview PDF \\(session 5\\) - Job #[0-9]+--?[0-9]+\\.txt"));
  const std::vector<std::string> arguments = LaunchCommand::arguments();
  ASSERT_THAT(arguments, SizeIs(4));
  EXPECT_EQ(arguments[0], "5");
  EXPECT_EQ(arguments[1], "notepad.exe");
  EXPECT_THAT(arguments[2], MatchesRegex("\"/PT \\\\\"C:\\\\[^\"]*\\\\\" \\\\\"Preview PDF \\(session 5\\)\\\\\"\""));
  EXPECT_THAT(arguments[2], HasSubstr("\\" + name + "\\\" \\\""));
  EXPECT_EQ(arguments[3], kPreview);
  EXPECT_THAT(moduleLog(), Not(HasSubstr("Failed to launch notepad")));
  // The queue took it that the job is sent: a call that it refuses leaves its words and this line.
  EXPECT_THAT(moduleLog(), Not(HasSubstr("failed to access the printer queue")));
  EXPECT_THAT(moduleLog(), Not(HasSubstr("failed to complete print job")));
  EXPECT_THAT(moduleLog(), Not(HasSubstr("Stack Trace: MgPrintMon - MGEndDocPort()")));
}

TEST_F(PlainText, OfAnotherPdfPrinterGoesToTheClientAsItIs) {
  const auto client = scene.startClient(5, {"Laser-2,driver=Generic PostScript,format=pdf"});
  const auto print = spooler.print("Laser-2 (session 5)", file("job", kText), {"--title", "A note"});
  EXPECT_EQ(print->wait(), 0) << print->output();
  ASSERT_THAT(scene.files(5), SizeIs(1));
  EXPECT_EQ(scene.content(5, scene.files(5)[0]), kText);
  EXPECT_THAT(LaunchCommand::arguments(), IsEmpty());
}

TEST_F(PlainText, PostScriptOfAPreviewPrinterArrivesAsAPdf) {
  const auto client = scene.startClient(5, {"Preview PDF,driver=Generic PostScript,format=pdf"});
  const auto print = spooler.print(kPreview, file("job", page("hello")), {"--title", "A page"});
  EXPECT_EQ(print->wait(), 0) << print->output();
  EXPECT_THAT(scene.files(5), ElementsAre("A page.pdf"));
  EXPECT_THAT(LaunchCommand::arguments(), IsEmpty());
}

TEST_F(PlainTextWithoutCommand, AServerWithoutALaunchCommandSaysSoAndTheTextStays) {
  const auto client = scene.startClient(5, {"Preview PDF,driver=Generic PostScript,format=pdf"});
  const auto print = spooler.print(kPreview, file("job", kText));
  expectNotPrinted(*print, "not printed: EndDocPort failed", 5);
  EXPECT_THAT(scene.server().waitForLine("was not started: "), HasSubstr("start it with --launch-command"));
  std::string name;
  EXPECT_EQ(takeTextFile(spooler, name), kStripped);
  EXPECT_THAT(moduleLog(), HasSubstr("Failed to launch notepad: notepad.exe \"/PT \\\"C:\\"));
  EXPECT_THAT(moduleLog(), HasSubstr("Stack Trace: MgPrintMon - PrintRawDataViaNotepad()"));
}

}  // namespace
}  // namespace tests
