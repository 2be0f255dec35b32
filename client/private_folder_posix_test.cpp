#include "client/private_folder.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace printclient {
namespace {

namespace fs = std::filesystem;

class PrivateFolderTest : public ::testing::Test {
 protected:
  PrivateFolderTest() {
    std::string pattern = (fs::temp_directory_path() / "mg_private_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder " + pattern);
    m_folder = pattern;
    keep("XDG_RUNTIME_DIR", m_login);
    keep("TMPDIR", m_temporary);
    unsetenv("XDG_RUNTIME_DIR");
    setenv("TMPDIR", pattern.c_str(), 1);
  }
  ~PrivateFolderTest() override {
    giveBack("XDG_RUNTIME_DIR", m_login);
    giveBack("TMPDIR", m_temporary);
    fs::remove_all(m_folder);
  }

  static void keep(const char* name, std::string& value) {
    if (const char* const set = getenv(name)) value = set;
  }
  static void giveBack(const char* name, const std::string& value) {
    value.empty() ? unsetenv(name) : setenv(name, value.c_str(), 1);
  }
  fs::path own() const { return m_folder / ("printclient-" + std::to_string(geteuid())); }
  static std::string causeOf() {
    try {
      return "it is " + privateFolder().string();
    } catch (const std::runtime_error& failure) {
      return failure.what();
    }
  }

  fs::path m_folder;
  std::string m_login;
  std::string m_temporary;
};

TEST_F(PrivateFolderTest, IsThatOfTheLoginWhereThereIsOneOfThisUserAlone) {
  const fs::path login = m_folder / "login";
  fs::create_directory(login);
  setenv("XDG_RUNTIME_DIR", login.c_str(), 1);
  chmod(login.c_str(), 0700);
  EXPECT_EQ(privateFolder(), login / "printclient");
  EXPECT_EQ(privateFolder(), login / "printclient");
  chmod(login.c_str(), 0755);
  EXPECT_EQ(privateFolder(), own());
}

TEST_F(PrivateFolderTest, IsOneBelowTheTemporaryFolderThatOnlyThisUserMayEnter) {
  EXPECT_EQ(privateFolder(), own());
  struct stat status {};
  ASSERT_EQ(stat(own().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700u);
}

TEST_F(PrivateFolderTest, WhatOthersHavePreparedThereIsNotUsed) {
  const std::string refusal = own().string() +
                              " for unfinished jobs is not a folder of yours alone; remove it, or give another with "
                              "--output";
  fs::create_directory(own());
  chmod(own().c_str(), 0755);
  EXPECT_EQ(causeOf(), refusal);
  fs::remove(own());
  fs::create_directory(m_folder / "elsewhere");
  chmod((m_folder / "elsewhere").c_str(), 0700);
  fs::create_directory_symlink(m_folder / "elsewhere", own());
  EXPECT_EQ(causeOf(), refusal);
}

TEST_F(PrivateFolderTest, WithoutATemporaryFolderTheCauseIsNamed) {
  fs::remove_all(m_folder);
  EXPECT_NE(causeOf().find("No such file or directory"), std::string::npos) << causeOf();
}

}  // namespace
}  // namespace printclient
