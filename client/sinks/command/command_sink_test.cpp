#include "client/sinks/command/command_sink.h"

#include "client/account_name.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <stdexcept>
#include <stdlib.h>
#include <sys/stat.h>
#include <thread>

namespace printclient {
namespace {

namespace fs = std::filesystem;

// Each test's program is a script that is written for it.
class CommandSinkTest : public ::testing::Test {
 protected:
  CommandSinkTest() {
    std::string pattern = (fs::temp_directory_path() / "mg_command_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder " + pattern);
    m_folder = pattern;
    fs::create_directory(m_folder / "jobs");
    m_program = m_folder / "program";
  }
  ~CommandSinkTest() override { fs::remove_all(m_folder); }

  CommandSink::Settings script(const std::string& body, std::vector<std::string> arguments = {}) {
    std::ofstream(m_program) << "#!/bin/sh\ncd " << m_folder.string() << "\n" << body << "\n";
    chmod(m_program.c_str(), 0700);
    CommandSink::Settings settings;
    settings.program = m_program;
    settings.arguments = std::move(arguments);
    return settings;
  }

  std::string print(Sink& sink, const std::string& data = "%PDF-1.4\n%%EOF\n", CancelRequest* cancel = nullptr) {
    protocol::JobStart ticket;
    ticket.printerName = L"Laser-2";
    ticket.documentName = L"-rf $(id) \u00d6l";
    ticket.copies = 3;
    const std::span<const unsigned char> bytes(reinterpret_cast<const unsigned char*>(data.data()), data.size());
    ContentProbe probe;
    probe.feed(bytes);
    JobFile file(m_folder / "jobs", ".printclient-1.part");
    file.append(bytes);
    try {
      return sink.take({ticket, probe, file, cancel}).where;
    } catch (const SinkRefusal& refusal) {
      return std::string("refused: ") + refusal.what() + "; " + refusal.remedy();
    }
  }
  std::string content(const std::string& name) const {
    std::ifstream in(m_folder / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  std::string named() const { return "the command \"" + m_program.string() + "\""; }

  fs::path m_folder;
  fs::path m_program;
};

TEST_F(CommandSinkTest, AProgramThatPrintsOneFileAfterAnotherGetsItOnceForEachCopy) {
  CommandSink::Settings settings = script("for path; do cat \"$path\" >>printed; done", {"/dev/null"});
  settings.hasPathForEachCopy = true;
  CommandSink sink(settings);
  EXPECT_EQ(print(sink, "a page "), "by \"" + m_program.string() + "\"");
  EXPECT_EQ(content("printed"), "a page a page a page ");
}

TEST_F(CommandSinkTest, TheProgramGetsTheFileBehindItsArgumentsAndTheRestInItsEnvironment) {
  CommandSink sink(
      script("printf '%s\\n' \"$@\" \"$PRINTCLIENT_TITLE\" \"$PRINTCLIENT_COPIES\" \"$PRINTCLIENT_PRINTER\" "
             "\"$PRINTCLIENT_USER\" >seen; cat \"$3\" >data",
             {"-d", "a b"}));
  EXPECT_EQ(print(sink), "by \"" + m_program.string() + "\"");
  EXPECT_EQ(content("seen"), "-d\na b\n" + (m_folder / "jobs" / ".printclient-1.part.pdf").string() +
                                 "\n-rf $(id) \xC3\x96l\n3\nLaser-2\n" + accountName() + "\n");
  EXPECT_EQ(content("data"), "%PDF-1.4\n%%EOF\n");
  EXPECT_TRUE(fs::is_empty(m_folder / "jobs"));
}

TEST_F(CommandSinkTest, AProgramThatFailsHasNotPrintedAndItsLastWordsAreTheCause) {
  CommandSink sink(script("echo first >&2; echo 'no \"toner\"\33[31m' >&2; exit 3"));
  EXPECT_EQ(print(sink),
            "refused: " + named() + " ended with 3: no \"toner\"?[31m; put right what it says, and print again");
  EXPECT_TRUE(fs::is_empty(m_folder / "jobs"));
  CommandSink silent(script("kill -9 $$"));
  EXPECT_EQ(print(silent),
            "refused: " + named() + " ended with 137; run it by hand to see what it wants, and print again");
}

TEST_F(CommandSinkTest, AProgramThatTakesTooLongIsEnded) {
  CommandSink::Settings settings = script("echo waiting for paper >&2; exec tail -f /dev/null");
  settings.limit = std::chrono::seconds(1);
  CommandSink sink(settings);
  EXPECT_EQ(print(sink),
            "refused: " + named() +
                " was ended, because it took longer than 1 s: waiting for paper; see what it waits for and "
                "whether pages have come out, or give it more time with --command-limit, and print again");
  EXPECT_TRUE(fs::is_empty(m_folder / "jobs"));
}

TEST_F(CommandSinkTest, StoppingEndsTheProgramAndEveryLaterOne) {
  CommandSink sink(script("echo x >>begun; exec tail -f /dev/null"));
  const std::string stopped = "refused: the print client was stopped, and \"" + m_program.string() +
                              "\" with it; start the print client again, see whether pages have come out, and print "
                              "again";
  std::thread stopping([&] {
    while (!fs::exists(m_folder / "begun"))
      std::this_thread::yield();
    sink.stop();
  });
  EXPECT_EQ(print(sink), stopped);
  stopping.join();
  EXPECT_EQ(print(sink), stopped);
}

TEST_F(CommandSinkTest, AJobThatThePersonCancelsEndsItsProgramAndNoOther) {
  CommandSink sink(script("echo half a page >&2; mkfifo here; read line <here"));
  CancelRequest cancel;
  std::thread person([&] {
    while (!fs::exists(m_folder / "here"))
      std::this_thread::yield();
    cancel.make();
  });
  const std::string said = print(sink, "a page", &cancel);
  person.join();
  EXPECT_EQ(said, "refused: you canceled it while \"" + m_program.string() +
                      "\" had it: half a page; see whether pages have come out, and print it again if it is still "
                      "wanted");
  script("exit 0");
  EXPECT_EQ(print(sink), "by \"" + m_program.string() + "\"");
}

TEST_F(CommandSinkTest, AProgramThatDoesNotStartIsTheCause) {
  CommandSink sink(script(""));
  chmod(m_program.c_str(), 0);
  EXPECT_EQ(print(sink), "refused: " + named() +
                             " does not start: Permission denied; see that --command names a program that you may run, "
                             "and print again");
}

TEST_F(CommandSinkTest, WhatIsNoProgramIsRefusedAtOnce) {
  CommandSink::Settings settings;
  settings.program = m_folder;
  try {
    const CommandSink sink(settings);
    FAIL() << "it is taken";
  } catch (const std::runtime_error& failure) {
    EXPECT_EQ(failure.what(), "--command \"" + m_folder.string() + "\" is not a program; give the whole path of one");
  }
}

}  // namespace
}  // namespace printclient
