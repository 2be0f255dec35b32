#include "client/known_servers.h"

#include "tests/support/corvane/key_files_fixture.h"

#include <fstream>
#include <gtest/gtest.h>

namespace printclient {
namespace {

namespace fs = std::filesystem;

corvane::Key keyOf(unsigned char byte) {
  corvane::Bytes32 bytes;
  bytes.fill(byte);
  return corvane::Key(bytes);
}

class KnownServersTest : public testing::Test {
 protected:
  const keys::KeyFiles m_parent;
  const fs::path m_folder = fs::path(m_parent.path("a")) / "printclient";
  const KnownServers m_servers{m_folder};
};

TEST_F(KnownServersTest, AreThereForTheNextStartWithTheirKeys) {
  EXPECT_TRUE(m_servers.all().empty());
  m_servers.add({"print.example", 4712}, 5, keyOf('5'));
  m_servers.add({"fe80::1", 4713}, 7, keyOf('7'));
  const auto all = KnownServers(m_folder).all();
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].address.text(), "[fe80::1]:4713");
  EXPECT_EQ(all[0].session, 7);
  EXPECT_EQ(corvane::Key::read(all[0].keyFile).bytes(), keyOf('7').bytes());
  EXPECT_EQ(all[1].address.text(), "print.example:4712");
  EXPECT_EQ(all[1].session, 5);
  EXPECT_EQ(corvane::Key::read(all[1].keyFile).bytes(), keyOf('5').bytes());
}

TEST_F(KnownServersTest, ANewInvitationOfAServerTakesThePlaceOfTheOldOne) {
  m_servers.add({"h", 1}, 5, keyOf('5'));
  m_servers.add({"h", 1}, 6, keyOf('6'));
  m_servers.add({"h", 2}, 5, keyOf('2'));
  const auto all = m_servers.all();
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].session, 6);
  EXPECT_EQ(corvane::Key::read(all[0].keyFile).bytes(), keyOf('6').bytes());
  EXPECT_EQ(std::distance(fs::directory_iterator(m_folder), {}), 4) << "something else was left behind";
}

TEST_F(KnownServersTest, WhatSaysSomethingElseAndWhatHasNoKeyIsLeftOut) {
  m_servers.add({"h", 1}, 5, keyOf('5'));
  for (const auto& [name, content] : {std::pair("a.json", "{"), std::pair("b.json", "{\"server\": \"h:1\"}"),
                                      std::pair("c.json", "{\"server\": \"h\", \"session\": 5}"),
                                      std::pair("d.json", "{\"server\": \"h:1\", \"session\": 0}"),
                                      std::pair("e.json", "{\"server\": \"h:1\", \"session\": \"5\"}")}) {
    std::ofstream(m_folder / name) << content;
    std::ofstream((m_folder / name).replace_extension(".key")) << "k";
  }
  m_servers.add({"without", 1}, 5, keyOf('5'));
  fs::remove(m_folder / "without_1.key");
  ASSERT_EQ(m_servers.all().size(), 1u);
  EXPECT_EQ(m_servers.all()[0].address.text(), "h:1");
}

#ifndef _WIN32
TEST_F(KnownServersTest, NobodyElseSeesThem) {
  m_servers.add({"h", 1}, 5, keyOf('5'));
  EXPECT_EQ(fs::status(m_folder).permissions() & fs::perms::all, fs::perms::owner_all);
  EXPECT_EQ(fs::status(m_folder / "h_1.key").permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write);
}
#endif

}  // namespace
}  // namespace printclient
