#include "server/session_keeper.h"

#include "programs/text.h"

#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace aps {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

// While it lives, no file of this process grows past so many bytes.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : m_old(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &m_before);
    const rlimit limit{bytes, m_before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &m_before);
    std::signal(SIGXFSZ, m_old);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void (*const m_old)(int);
  rlimit m_before{};
};

class SessionKeeperTest : public ::testing::Test {
 protected:
  SessionKeeperTest() {
    std::string pattern = (fs::temp_directory_path() / "mg_keeper_XXXXXX").string();
    m_folder = mkdtemp(pattern.data());
    m_file = m_folder / "sessions";
    m_log = std::make_shared<Log>(m_folder / "log");
  }
  ~SessionKeeperTest() override {
    std::error_code ignored;
    fs::remove_all(m_folder, ignored);
  }

  static Printer named(const std::wstring& name) {
    Printer printer;
    printer.texts[0] = name;
    printer.format = protocol::DataFormat::kRaw;
    return printer;
  }
  void enter(SessionTable& table, int session, const std::wstring& printer) {
    EXPECT_TRUE(table.enter(session, {named(printer)}, CS_ClassVersionMap(), m_client).accepted());
  }
  std::unique_ptr<SessionKeeper> keep(SessionTable& table) const {
    return std::make_unique<SessionKeeper>(m_file, table, m_log);
  }
  // The sessions that a server would know which began now.
  std::vector<int> kept() const {
    SessionTable table{SessionTable::Limits{}};
    const auto keeper = keep(table);
    std::vector<int> numbers;
    for (const auto& session : table.known())
      numbers.push_back(session.number);
    return numbers;
  }
  std::vector<std::string> failures() const { return m_log->failures().latest(100); }
  // The keeper writes on its own thread; what it has done shows in the log.
  void awaitLine(const std::string& text) const {
    while (content(m_folder / "log").find(text) == std::string::npos)
      std::this_thread::yield();
  }
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(m_folder))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
  static std::string content(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  fs::path m_folder;
  fs::path m_file;
  std::shared_ptr<Log> m_log;
  CS_RCPtr<CS_Connection> m_client = CS_Connection::create();
};

TEST_F(SessionKeeperTest, SessionsAndPrintersAreKnownToTheNextServer) {
  {
    SessionTable table{SessionTable::Limits{}};
    const auto keeper = keep(table);
    enter(table, 5, L"Laser-2");
    enter(table, 6, L"Ink");
  }
  SessionTable table{SessionTable::Limits{}};
  const auto keeper = keep(table);
  const auto found = table.find(L"laser-2 (session 5)");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->session, 5);
  EXPECT_EQ(found->printer.format, protocol::DataFormat::kRaw);
  EXPECT_FALSE(found->client);
  EXPECT_THAT(table.localNames(6), ElementsAre(L"Ink (session 6)"));
  EXPECT_TRUE(m_log->flush(std::chrono::minutes(1)));
  EXPECT_THAT(content(m_folder / "log"), HasSubstr("sessions restored: 2, from " + m_file.string()));
  EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(SessionKeeperTest, TheFileIsForItsOwnerAloneAndNothingLiesBesideIt) {
  SessionTable table{SessionTable::Limits{}};
  auto keeper = keep(table);
  std::ofstream(m_folder / "sessions.new") << "left by a crash";
  enter(table, 5, L"Laser-2");
  keeper->stop();
  struct stat facts {};
  ASSERT_EQ(::stat(m_file.c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 0777, 0600u);
  EXPECT_THAT(files(), ElementsAre("log", "sessions"));
}

TEST_F(SessionKeeperTest, TheSessionThatIsLongestWithoutClientIsTheFirstToBeForgottenAlsoAfterARestart) {
  {
    SessionTable table{SessionTable::Limits{}};
    const auto keeper = keep(table);
    for (const int session : {1, 2, 3})
      enter(table, session, L"A");
    table.leave(3, m_client.get());
    table.leave(1, m_client.get());
  }
  EXPECT_THAT(kept(), ElementsAre(3, 1, 2));
  SessionTable small{SessionTable::Limits{2, 64, {}}};
  const auto keeper = keep(small);
  EXPECT_FALSE(small.find(L"A (session 3)"));
  EXPECT_TRUE(small.find(L"A (session 1)"));
  EXPECT_TRUE(small.find(L"A (session 2)"));
}

TEST_F(SessionKeeperTest, WhatHappensToSessionsAfterTheEndDoesNotCount) {
  SessionTable table{SessionTable::Limits{}};
  const auto keeper = keep(table);
  enter(table, 5, L"Laser-2");
  keeper->stop();
  const std::string before = content(m_file);
  table.leave(5, m_client.get());
  keeper->stop();
  EXPECT_EQ(content(m_file), before);
  EXPECT_THAT(before, HasSubstr("\"connected\": true"));
}

TEST_F(SessionKeeperTest, AFileThatIsOfNoUseIsSetAsideAndSaid) {
  std::ofstream(m_file) << "{\"format\": \"sess";
  EXPECT_THAT(kept(), IsEmpty());
  EXPECT_THAT(failures(), ElementsAre(MatchesRegex(
                              ".* the earlier sessions are not known because the file .*/sessions cannot be used: "
                              ".*parse error.*; it was set aside as .*/sessions.damaged. Each session is known "
                              "again when its print client comes")));
  EXPECT_THAT(files(), ElementsAre("log", "sessions.damaged"));
  EXPECT_EQ(content(m_folder / "sessions.damaged"), "{\"format\": \"sess");
  SessionTable table{SessionTable::Limits{}};
  const auto keeper = keep(table);
  enter(table, 5, L"Laser-2");
  keeper->stop();
  EXPECT_THAT(kept(), ElementsAre(5));
  EXPECT_THAT(failures(), SizeIs(1));
}

TEST_F(SessionKeeperTest, AFileThatOthersMayHaveWrittenIsNotBelieved) {
  {
    SessionTable table{SessionTable::Limits{}};
    const auto keeper = keep(table);
    enter(table, 5, L"Laser-2");
  }
  ::chmod(m_file.c_str(), 0620);
  EXPECT_THAT(kept(), IsEmpty());
  EXPECT_THAT(failures(), ElementsAre(HasSubstr("cannot be used: others may have written it; it was set aside")));
}

TEST_F(SessionKeeperTest, WhatIsNoPlainFileIsNeitherReadNorReplacedNorMoved) {
  std::ofstream(m_folder / "other") << "precious";
  const auto make = [&](const std::string& what) {
    if (what == "link") fs::create_symlink(m_folder / "other", m_file);
    if (what == "pipe") ::mkfifo(m_file.c_str(), 0600);
    if (what == "folder") fs::create_directory(m_file);
  };
  for (const char* what : {"link", "pipe", "folder"}) {
    make(what);
    const auto type = fs::symlink_status(m_file).type();
    SessionTable table{SessionTable::Limits{}};
    const auto keeper = keep(table);
    enter(table, 5, L"Laser-2");
    keeper->stop();
    EXPECT_EQ(fs::symlink_status(m_file).type(), type) << what;
    EXPECT_THAT(files(), ElementsAre("log", "other", "sessions")) << what;
    fs::remove(m_file);
  }
  EXPECT_EQ(content(m_folder / "other"), "precious");
  ASSERT_THAT(failures(), SizeIs(6));
  EXPECT_THAT(failures()[0],
              HasSubstr("cannot be used: it is not a regular file; it stays where it is: it is not a regular file. "));
  EXPECT_THAT(failures()[1],
              HasSubstr("the sessions are not kept in " + m_file.string() + ": it is not a regular file; "));
}

TEST_F(SessionKeeperTest, AFileThatCannotBeWrittenIsSaidOnce) {
  m_file = m_folder / "gone" / "sessions";
  SessionTable table{SessionTable::Limits{}};
  const auto keeper = keep(table);
  enter(table, 1, L"A");
  awaitLine("the sessions are not kept in " + m_file.string() +
            ": it cannot be written: No such file or directory; see ");
  enter(table, 2, L"A");
  keeper->stop();
  EXPECT_THAT(failures(), SizeIs(1));
}

TEST_F(SessionKeeperTest, AFileThatCanBeWrittenAgainIsSaidAndHoldsEverything) {
  m_file = m_folder / "gone" / "sessions";
  SessionTable table{SessionTable::Limits{}};
  const auto keeper = keep(table);
  enter(table, 1, L"A");
  awaitLine("the sessions are not kept");
  fs::create_directory(m_folder / "gone");
  enter(table, 2, L"A");
  keeper->stop();
  awaitLine("the sessions are kept in " + m_file.string() + " again");
  EXPECT_THAT(kept(), ElementsAre(1, 2));
}

TEST_F(SessionKeeperTest, AFullDiskLeavesTheFileOfBefore) {
  {
    SessionTable table{SessionTable::Limits{}};
    const auto keeper = keep(table);
    enter(table, 1, L"A");
  }
  const std::string before = content(m_file);
  SessionTable table{SessionTable::Limits{}};
  const auto keeper = keep(table);
  {
    const FileSizeLimit full(10);
    enter(table, 2, L"A");
    keeper->stop();
  }
  // The log below the same limit says so for itself.
  EXPECT_THAT(failures(), Contains(HasSubstr("it cannot be written: File too large; see that its folder exists and "
                                             "has room. Printing goes on")));
  EXPECT_EQ(content(m_file), before);
  EXPECT_THAT(files(), ElementsAre("log", "sessions"));
}

TEST_F(SessionKeeperTest, WhoseASessionIsIsKnownToTheNextServer) {
  corvane::Bytes32 key = {};
  key.fill(7);
  SessionTable::Status session{5, false, {}, {named(L"Laser-2")}, key};
  const auto now = std::chrono::system_clock::now();
  const auto read = fromStateText(toStateText({session}), now);
  ASSERT_EQ(read.size(), 1u);
  EXPECT_EQ(read[0].key, key);
  SessionTable table{SessionTable::Limits{}};
  table.remember(read);
  EXPECT_EQ(table.find(L"Laser-2 (session 5)")->key, key);
  EXPECT_EQ(table.status().at(0).key, key);
  // A session that came without one has none, and what is none is refused.
  session.key = {};
  const std::string text = toStateText({session});
  EXPECT_EQ(text.find("key"), std::string::npos);
  EXPECT_EQ(fromStateText(text, now).at(0).key, corvane::Bytes32{});
  std::string wrong = text;
  wrong.replace(wrong.find("\"since\""), 0, "\"key\": \"xyz\", ");
  EXPECT_THROW(fromStateText(wrong, now), std::runtime_error);
}

}  // namespace
}  // namespace aps
