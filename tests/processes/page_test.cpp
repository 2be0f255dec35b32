// The page of a print client's person: what is done there reaches the job's other end.

#include "corvane/base/text.h"
#include "corvane/net/socket.h"
#include "corvane/records/exception.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <signal.h>
#include <stdlib.h>

namespace tests {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class PageTest : public ::testing::Test {
 protected:
  PageTest() {
    const char* const before = getenv("XDG_RUNTIME_DIR");
    if (before != nullptr) m_before = before;
    m_runtime = m_scene.output(5).parent_path() / "runtime";
    fs::create_directories(m_runtime);
    fs::permissions(m_runtime, fs::perms::owner_all);
    setenv("XDG_RUNTIME_DIR", m_runtime.c_str(), 1);
    m_client = m_scene.startClient(5, {"Laser"});
  }
  ~PageTest() override {
    m_client.reset();
    if (m_before.empty()) {
      unsetenv("XDG_RUNTIME_DIR");
    } else {
      setenv("XDG_RUNTIME_DIR", m_before.c_str(), 1);
    }
  }

  std::vector<fs::path> privateFiles(const std::string& extension = "") const {
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator(m_runtime / "printclient"))
      if (extension.empty() || entry.path().extension() == extension) found.push_back(entry.path());
    return found;
  }
  // "http://127.0.0.1:40123/SECRET/"
  std::string address() const {
    std::ifstream in(privateFiles(".html").at(0));
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    const std::size_t begin = text.find("http://");
    return text.substr(begin, text.find('"', begin) - begin);
  }
  // The first bytes of the answer; of one that ends, all.
  std::string ask(const std::string& method, const std::string& path, const std::string& until = "") const {
    const std::string whole = address();
    const std::size_t slash = whole.find('/', 7);
    const std::string host = whole.substr(7, slash - 7);
    auto socket = corvane::Socket::connect("127.0.0.1", static_cast<std::uint16_t>(std::stoi(host.substr(10))), false);
    const std::string request = method + " " + whole.substr(slash) + path + " HTTP/1.1\r\nHost: " + host +
                                "\r\nOrigin: http://" + host + "\r\nConnection: close\r\n\r\n";
    const corvane::Stream::Piece piece(reinterpret_cast<const unsigned char*>(request.data()), request.size());
    socket.send({&piece, 1});
    std::string answer;
    std::vector<unsigned char> buffer(65536);
    while (until.empty() || answer.find(until) == std::string::npos) {
      const auto got = socket.receive(buffer, corvane::after(60000));
      if (!got || *got == 0) break;
      answer.append(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(*got));
    }
    return answer;
  }
  int print(const std::wstring& title, const std::string& data) const {
    MonitorPeer peer(m_scene.port());
    EXPECT_TRUE(peer.attach(L"Laser (session 5)"));
    peer.startJob({L"Laser (session 5) - Job #17", L"Laser", title, L"RAW"}, {1, 1, 1, 1});
    peer.writeJob(data);
    return peer.endJob();
  }

  Scene m_scene;
  std::string m_before;
  fs::path m_runtime;
  std::unique_ptr<ChildProcess> m_client;
};

TEST_F(PageTest, AJobThatIsCanceledWhileItComesFailsForItsApplicationWithThatReason) {
  MonitorPeer peer(m_scene.port());
  ASSERT_TRUE(peer.attach(L"Laser (session 5)"));
  peer.startJob({L"Laser (session 5) - Job #17", L"Laser", L"Report", L"RAW"}, {1, 1, 1, 1});
  peer.writeJob("half of it");
  EXPECT_THAT(ask("GET", "events", "\"bytes\":10,"), HasSubstr("\"title\":\"Report\""));
  EXPECT_THAT(ask("POST", "jobs/1/cancel"), StartsWith("HTTP/1.1 202 Accepted\r\n"));
  m_client->waitForLine("canceled \"Report\" after 10 bytes, before its end");
  try {
    peer.endJob();
    FAIL() << "the application was told nothing";
  } catch (const CS_Exception& failure) {
    EXPECT_THAT(corvane::toUtf8(failure.detail()), HasSubstr("the person canceled the job at the print client"));
  }
  EXPECT_THAT(m_scene.files(5), IsEmpty());
  EXPECT_EQ(print(L"Next", "whole"), 1);
  EXPECT_THAT(ask("GET", "events", "\"servers\""), HasSubstr("\"stage\":\"canceled\""));
}

TEST_F(PageTest, WhatIsPrintedAgainComesOutASecondTime) {
  EXPECT_EQ(print(L"Report", "the words"), 1);
  EXPECT_THAT(ask("POST", "jobs/1/again"), StartsWith("HTTP/1.1 202 Accepted\r\n"));
  m_client->waitForLine("printed \"Report\": 9 bytes to Report (2).txt");
  EXPECT_EQ(m_scene.content(5, "Report (2).txt"), "the words");
  EXPECT_THAT(ask("GET", "jobs/1/file"), HasSubstr("\r\n\r\nthe words"));
}

TEST_F(PageTest, NothingOfItStaysWhenThePrintClientEnds) {
  EXPECT_EQ(print(L"Report", "the words"), 1);
  EXPECT_EQ(privateFiles(".txt").size(), 1u);
  EXPECT_EQ(privateFiles(".html").size(), 1u);
  m_client.reset();
  EXPECT_THAT(privateFiles(), IsEmpty());
}

TEST_F(PageTest, WhatAKilledPrintClientLeftGoesWithTheNext) {
  EXPECT_EQ(print(L"Report", "the words"), 1);
  m_client->signal(SIGKILL);
  m_client->wait();
  const auto left = privateFiles();
  EXPECT_EQ(left.size(), 3u) << "the document, the mark of its process, and what leads to the page";
  m_client = m_scene.startClient(5, {"Laser"});
  EXPECT_EQ(privateFiles().size(), 2u);
  for (const fs::path& path : left)
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(PageTest, WithoutAPageThereIsNothingOfIt) {
  m_client.reset();
  std::vector<std::string> command = m_scene.clientCommand(5, {"Laser"});
  command.emplace_back("--no-page");
  m_client = std::make_unique<ChildProcess>(command);
  m_client->waitForLine("ready: ");
  EXPECT_EQ(print(L"Report", "the words"), 1);
  EXPECT_THAT(privateFiles(), IsEmpty());
  ChildProcess shown({Scene::program("printclient"), "--show"});
  shown.waitForLine("printclient: no print client of yours is running with a page; start one (without --no-page), and");
  EXPECT_EQ(shown.wait(), 1);
}

TEST_F(PageTest, WithoutABrowserThePersonGetsTheAddress) {
  ChildProcess shown({"/usr/bin/env", "-u", "DISPLAY", "-u", "WAYLAND_DISPLAY", "-u", "BROWSER",
                      Scene::program("printclient"), "--show"});
  shown.waitForLine("printclient: the browser cannot be opened: there is no desktop here; open this address");
  shown.waitForLine(address());
  EXPECT_EQ(shown.wait(), 1);
}

}  // namespace
}  // namespace tests
