#include "corvane/trust/key.h"

#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "tests/support/corvane/key_files_fixture.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <chrono>
#include <fcntl.h>
#include <future>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace corvane {
namespace {

using keys::KeyFiles;

template <class Action>
std::wstring failureOf(Action&& action) {
  try {
    action();
  } catch (const CS_Exception& exception) {
    EXPECT_EQ(exception.number(), kKeyNeeded);
    return exception.detail();
  }
  return L"nothing was thrown";
}

TEST(Identity, IsTheMonitorOrASession) {
  EXPECT_EQ(Identity::parse(L"monitor"), Identity::monitor());
  EXPECT_EQ(Identity::parse(L"session-1"), Identity::session(1));
  EXPECT_EQ(Identity::parse(L"session-2147483647"), Identity::session(2147483647));
  EXPECT_EQ(Identity::monitor().name(), L"monitor");
  EXPECT_EQ(Identity::session(50).name(), L"session-50");
  EXPECT_TRUE(Identity::monitor().isMonitor());
  EXPECT_FALSE(Identity::session(50).isMonitor());
  EXPECT_TRUE(Identity::session(50).isSession());
  EXPECT_EQ(Identity::session(50).sessionNumber(), 50);
  EXPECT_EQ(Identity::monitor().sessionNumber(), 0);
}

TEST(Identity, OfAnInvitationIsNotThatOfTheSession) {
  const Identity guest = Identity::invitation(5);
  EXPECT_EQ(guest.name(), L"invitation-5");
  EXPECT_EQ(Identity::parse(L"invitation-5"), guest);
  EXPECT_EQ(guest.sessionNumber(), 5);
  EXPECT_FALSE(guest.isSession());
  EXPECT_FALSE(guest.isMonitor());
  EXPECT_NE(guest, Identity::session(5));
  EXPECT_FALSE(Identity::parse(L"invitation-"));
  EXPECT_FALSE(Identity::parse(L"invitation-05"));
}

TEST(Identity, IsNoOtherTextSoThatNoneBecomesAPath) {
  for (const wchar_t* text : {L"",
                              L"Monitor",
                              L"monitor ",
                              L" monitor",
                              L"monitor.key",
                              L"../monitor",
                              L"session-",
                              L"session-0",
                              L"session-05",
                              L"session-+5",
                              L"session--5",
                              L"session-5 ",
                              L"session-5/../monitor",
                              L"session-5\\x",
                              L"session-0x5",
                              L"SESSION-5",
                              L"session-2147483648",
                              L"session-99999999999999999999",
                              L"session-\x0665",
                              L"session_5",
                              L"CON",
                              L"C:\\monitor"}) {
    EXPECT_FALSE(Identity::parse(text)) << toUtf8(text);
  }
  EXPECT_FALSE(Identity::parse(std::wstring_view(L"monitor\0", 8)));
  EXPECT_FALSE(Identity::parse(std::wstring_view(L"session-5\0", 10)));
}

TEST(Key, IsReadFromItsDigitsWithOrWithoutALineEnd) {
  const KeyFiles files;
  Bytes32 expected;
  expected.fill(0xab);
  const std::string digits = "abABabABabABabABabABabABabABabABabABabABabABabABabABabABabABabAB";
  for (const char* end : {"", "\n", "\r\n"}) {
    EXPECT_EQ(Key::read(files.write("a.key", digits + end)).bytes(), expected);
  }
}

TEST(Key, IsNotReadFromAnythingElse) {
  const KeyFiles files;
  const std::string digits(64, 'a');
  for (const std::string& content :
       {std::string(), std::string("\n"), digits.substr(1), digits.substr(1) + "\n", digits.substr(1) + "g",
        "g" + digits.substr(1), digits + "a", digits + " ", digits + "\r", digits + "\n\n", digits + "\n\r",
        digits + "\r\n\n", digits + "\n" + digits, " " + digits, "\xEF\xBB\xBF" + digits, std::string(64, '\0'),
        digits + std::string(1, '\0'), std::string(100000, 'a')}) {
    const std::string path = files.write("odd.key", content);
    EXPECT_EQ(failureOf([&] { Key::read(path); }),
              L"a key file holds 64 hexadecimal digits and nothing else, not so " + fromUtf8(path))
        << content.substr(0, 70);
  }
}

TEST(Key, IsNotReadFromAFileThatDoesNotExistOrAFolder) {
  const KeyFiles files;
  EXPECT_EQ(failureOf([&] { Key::read(files.path("none.key")); }).find(L"the key file cannot be opened ("), 0u);
  std::filesystem::create_directory(files.path("folder.key"));
  EXPECT_EQ(failureOf([&] { Key::read(files.path("folder.key")); }).find(L"the key file "), 0u);
}

TEST(Key, IsOverwrittenWhenItIsMovedFrom) {
  Bytes32 bytes;
  bytes.fill(7);
  Key key(bytes);
  const Key moved(std::move(key));
  EXPECT_EQ(moved.bytes(), bytes);
  EXPECT_EQ(key.bytes(), Bytes32());  // NOLINT(bugprone-use-after-move): what is left in it is the question
}

TEST(Key, IsMadeFreshEachTimeAndNeverOverAFile) {
  const KeyFiles files;
  Key::writeNew(files.path("one.key"));
  Key::writeNew(files.path("two.key"));
  const std::string one = files.content("one.key");
  EXPECT_EQ(one.size(), 65u);
  EXPECT_EQ(one.back(), '\n');
  EXPECT_NE(one, files.content("two.key"));
  EXPECT_NE(Key::read(files.path("one.key")).bytes(), Key::read(files.path("two.key")).bytes());
  EXPECT_EQ(failureOf([&] { Key::writeNew(files.path("one.key")); }).find(L"the key file cannot be made ("), 0u);
  EXPECT_EQ(files.content("one.key"), one);
}

TEST(KeyFolder, ReadsEachKeyWhenItIsAskedFor) {
  const KeyFiles files;
  const KeyFolder folder = files.folder();
  EXPECT_EQ(folder.refusal(), L"");
  EXPECT_NE(failureOf([&] { folder.read(Identity::session(5)); }), L"nothing was thrown");
  files.add("session-5", '5');
  files.add("monitor", 'a');
  EXPECT_EQ(folder.read(Identity::session(5)).bytes()[31], 0x55);
  EXPECT_EQ(folder.read(Identity::monitor()).bytes()[0], 0xaa);
  files.add("session-5", '6');
  EXPECT_EQ(folder.read(Identity::session(5)).bytes()[0], 0x66);
}

TEST(KeyFolder, KnowsWhetherAnIdentityStillHasTheKeyThatItCameWith) {
  const KeyFiles files;
  const KeyFolder folder = files.folder();
  files.add("session-5", '5');
  files.add("session-6", '6');
  const Bytes32 mark = folder.read(Identity::session(5)).mark();
  EXPECT_TRUE(folder.isStill(Identity::session(5), mark));
  EXPECT_FALSE(folder.isStill(Identity::session(6), mark));
  EXPECT_FALSE(folder.isStill(Identity::session(7), mark));
  files.add("session-5", '6');
  EXPECT_FALSE(folder.isStill(Identity::session(5), mark));
  EXPECT_EQ(folder.read(Identity::session(5)).mark(), folder.read(Identity::session(6)).mark());
  EXPECT_NE(folder.read(Identity::session(5)).mark(), folder.read(Identity::session(5)).bytes());
}

TEST(KeyFile, IsReplacedByAnotherKeyAsAWhole) {
  const KeyFiles files;
  const std::string path = files.add("session-5", '5');
  const Key fresh = Key::fresh();
  fresh.replace(path);
  EXPECT_EQ(Key::read(path).bytes(), fresh.bytes());
  EXPECT_NE(Key::fresh().bytes(), fresh.bytes());
  fresh.replace(files.path("new.key"));
  EXPECT_EQ(files.content("new.key"), files.content("session-5.key"));
  EXPECT_EQ(failureOf([&] { fresh.replace(files.path("none/a.key")); }).find(L"the key file cannot be made ("), 0u);
  std::filesystem::create_directory(files.path("folder.key"));
  EXPECT_EQ(failureOf([&] { fresh.replace(files.path("folder.key")); }).find(L"the key file cannot be replaced ("), 0u);
  int left = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(files.path("")))
    ++left;
  EXPECT_EQ(left, 3) << "what it was made in stays behind";
}

TEST(KeyFolder, IsRefusedWhenItIsNone) {
  const KeyFiles files;
  EXPECT_NE(KeyFolder(files.path("none")).refusal(), L"");
  const std::string path = files.add("monitor", 'a');
  EXPECT_EQ(KeyFolder(path).refusal(), L"it is no folder: " + fromUtf8(path));
}

#ifndef _WIN32
using std::filesystem::perms;

TEST(Key, ThatOthersMayUseIsRefusedWithWhatToDo) {
  const KeyFiles files;
  const std::string path = files.add("monitor", 'a');
  for (const perms others : {perms::group_read, perms::group_write, perms::group_exec, perms::others_read,
                             perms::others_write, perms::others_exec}) {
    std::filesystem::permissions(path, perms::owner_read | others);
    EXPECT_EQ(failureOf([&] { Key::read(path); }),
              L"others may use the key file; make it private with: chmod 600 " + fromUtf8(path));
  }
  std::filesystem::permissions(path, perms::owner_read);
  EXPECT_EQ(Key::read(path).bytes()[0], 0xaa);
}

TEST(Key, IsNotReadFromAPipeWhichHoldsUpNobody) {
  const KeyFiles files;
  const std::string path = files.path("pipe.key");
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  auto reading = std::async(std::launch::async, [&] { return failureOf([&] { Key::read(path); }); });
  const bool isDone = reading.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  EXPECT_TRUE(isDone) << "it waits for somebody who writes";
  if (!isDone) ::close(::open(path.c_str(), O_WRONLY));
  EXPECT_EQ(reading.get(), L"the key file is not a regular file: " + fromUtf8(path));
}

TEST(Key, IsMadePrivate) {
  const KeyFiles files;
  Key::writeNew(files.path("new.key"));
  EXPECT_EQ(std::filesystem::status(files.path("new.key")).permissions(), perms::owner_read | perms::owner_write);
}

TEST(KeyFolder, OfAnotherAccountIsRefusedWithWhatToDo) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a folder away";
  const KeyFiles files;
  const std::string path = files.path("given");
  std::filesystem::create_directory(path);
  std::filesystem::permissions(path, perms::owner_all);
  ASSERT_EQ(::chown(path.c_str(), 12345, 0), 0);
  EXPECT_EQ(KeyFolder(path).refusal(),
            L"it belongs to another account (number 12345), which may put keys into it; run this as that account, or "
            L"make it this account's with: chown 0 " +
                fromUtf8(path));
  ASSERT_EQ(::chown(path.c_str(), 0, 12345), 0);
  EXPECT_EQ(KeyFolder(path).refusal(), L"");
}

TEST(KeyFolder, ThatOthersMayWriteToIsRefusedWithWhatToDo) {
  const KeyFiles files;
  const std::string path = files.path("open");
  std::filesystem::create_directory(path);
  for (const perms others : {perms::group_write, perms::others_write}) {
    std::filesystem::permissions(path, perms::owner_all | others);
    EXPECT_EQ(KeyFolder(path).refusal(),
              L"others may put keys into it; make it private with: chmod go-rwx " + fromUtf8(path));
  }
  std::filesystem::permissions(path, perms::owner_all);
  EXPECT_EQ(KeyFolder(path).refusal(), L"");
}
#else
// Somebody reads it, and somebody is about to put another one in its place.
TEST(Key, IsReadWhileOthersHaveItOpen) {
  const KeyFiles files;
  const std::wstring path = fromUtf8(files.add("monitor", 'a'));
  for (const DWORD access : {DWORD{GENERIC_READ}, DWORD{DELETE}}) {
    const HANDLE other = ::CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                       nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(other, INVALID_HANDLE_VALUE);
    EXPECT_EQ(Key::read(toUtf8(path)).bytes()[0], 0xaa) << access;
    ::CloseHandle(other);
  }
}
#endif

}  // namespace
}  // namespace corvane
