// The archive for a developer: what is in it, and what must not be.

#include "tests/end_to_end/administration_fixture.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <map>
#include <signal.h>

namespace tests {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

const std::string kTitle = "Letter of dismissal";
const std::string kUser = "zebedee";
const std::string kKey = "00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff";

std::string bytesOf(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::string inLowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

std::string utf16(const std::string& text) {
  std::string wide;
  for (const char c : text)
    wide.append({c, '\0'});
  return wide;
}

class AdministrationOfSupport : public Administration {
 protected:
  AdministrationOfSupport() : m_archive(scene.folder() / "support.zip") {
    fs::create_directories(data());
    fs::create_directories(machine.path() / "drive_c/users" / kUser);
  }
  void TearDown() override {
    fs::remove_all(data().parent_path());
    fs::remove(machine.path() / "drive_c/users" / kUser);
    Administration::TearDown();
  }

  fs::path data() const { return machine.path() / "drive_c/ProgramData/Marrowgate/Log"; }
  Machine::Result support() { return run({"support", windowsPath(m_archive)}); }
  // The files in it, as another program unpacks them that looks at their checksums, too.
  std::map<std::string, std::string> unpack() {
    const fs::path folder = scene.folder() / "unpacked";
    const std::string command =
        "python3 -c 'import sys, zipfile; z = zipfile.ZipFile(sys.argv[1]); "
        "sys.exit(1) if z.testzip() else z.extractall(sys.argv[2])' '" +
        m_archive.string() + "' '" + folder.string() + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      if (entry.is_regular_file()) files[fs::relative(entry.path(), folder).string()] = bytesOf(entry.path());
    }
    return files;
  }
  static void append(const fs::path& file, const std::string& text) {
    std::ofstream(file, std::ios::binary | std::ios::app) << text;
  }

  const fs::path m_archive;
};

TEST_F(AdministrationOfSupport, HasEverythingWithAListOfIt) {
  install();
  const auto client = scene.startClient(5, {kLaser});
  up("5");
  const Machine::Result result = support();
  EXPECT_EQ(result.code, 0) << result.output;
  const auto files = unpack();
  for (const char* name : {"README.txt", "doctor.txt", "doctor.json", "status.json", "drivers.json", "jobs.json",
                           "versions.txt", "windows.txt", "policies.json", "registry.txt", "ports.txt", "printers.json",
                           "services.json", "logs/MgPrintMon.log", "logs/aps.log", "logs/mgprintmon.log"}) {
    ASSERT_EQ(files.count(name), 1u) << name;
    if (std::string(name) == "README.txt") continue;
    const std::string line = std::string(name) + ", " + std::to_string(files.at(name).size()) + " bytes: ";
    EXPECT_THAT(files.at("README.txt"), HasSubstr(line));
    EXPECT_THAT(result.output, HasSubstr("  " + line));
  }
  EXPECT_EQ(files.size(), 16u);
  EXPECT_THAT(files.at("doctor.txt"), HasSubstr("ok      registration: "));
  EXPECT_THAT(files.at("doctor.json"), HasSubstr("\"checks\": ["));
  EXPECT_THAT(files.at("versions.txt"),
              AllOf(HasSubstr("mgprintmon 4.0.1.0, which wrote this\r\n"), HasSubstr("MgPrintMon.dll: 4.0.1.0\r\n")));
  EXPECT_THAT(files.at("registry.txt"), HasSubstr("\"Port\" = " + std::to_string(scene.port()) + "\r\n"));
  EXPECT_EQ(files.at("ports.txt"), "CPP5\r\n");
  EXPECT_THAT(files.at("printers.json"), HasSubstr("\"name\": \"Laser-2 (session 5)\""));
  EXPECT_THAT(files.at("status.json"), HasSubstr("\"session\": 5"));
}

TEST_F(AdministrationOfSupport, HasNoKeyNoTitleAndNoUserOfAllThatAreAroundIt) {
  install();
  const auto client = scene.startClient(5, {kLaser});
  up("5");
  EXPECT_EQ(run({"print", "Laser-2 (session 5)", windowsPath(kLetter), "--title", kTitle}).code, 0);
  EXPECT_THAT(succeed({"jobs"}), HasSubstr(kTitle));
  const std::string lines = "09:00 Job 7 \"" + kTitle +
                            "\" on \"Laser-2 (session 5)\" (session 5) was delivered: 7 bytes.\n" +
                            "09:01 Deleted print job " + kTitle + "\n" + "09:02 normalizer log: (" + kTitle + ")\n" +
                            "09:03 job 7 of EXAMPLE\\" + kUser + " in C:\\users\\" + kUser + "\\Temp\\a.ps\n" +
                            "09:04 It was canceled by EXAMPLE\\" + kUser + ".\n" + "09:05 the key is " + kKey + "\n" +
                            "09:06 a line that stays\n" + utf16(kTitle) + utf16(kUser) + utf16(kKey) + "\n";
  append(machine.path() / "drive_c/Program Files/Marrowgate/Log/MgPrintMon.log", lines);
  append(data() / "aps.log", lines);
  append(data() / "mgprintmon.log", lines);
  machine.configure("Marrowgate\\Printers", "FallbackDriver", kTitle);
  machine.configure("Corvane", "Remark", "of " + kUser + ": " + kKey);
  const Machine::Result result = support();
  EXPECT_EQ(result.code, 0) << result.output;
  auto files = unpack();
  files["the archive"] = bytesOf(m_archive);
  for (const auto& [name, content] : files) {
    const std::string all = inLowerCase(content);
    for (const std::string& secret : {inLowerCase(kTitle), kUser, kKey}) {
      EXPECT_EQ(all.find(secret), std::string::npos) << name << " has " << secret << ":\n" << content;
      EXPECT_EQ(all.find(utf16(secret)), std::string::npos) << name << " has " << secret << " in UTF-16";
    }
  }
  for (const char* log : {"logs/MgPrintMon.log", "logs/aps.log", "logs/mgprintmon.log"}) {
    EXPECT_THAT(files[log], AllOf(HasSubstr("09:00 Job 7 (left out) (session 5) was delivered: 7 bytes.\r\n"),
                                  HasSubstr("09:06 a line that stays\r\n"),
                                  HasSubstr("3 lines are left out: documents may stand in them.\r\n")));
  }
  EXPECT_THAT(files["jobs.json"], AllOf(HasSubstr("\"state\": \"delivered\""), HasSubstr("\"session\": 5")));
}

TEST_F(AdministrationOfSupport, WithoutApsSaysSoInsideAndGoesOn) {
  install();
  scene.server().signal(SIGKILL);
  scene.server().wait();
  const Machine::Result result = support();
  EXPECT_EQ(result.code, 0) << result.output;
  const auto files = unpack();
  EXPECT_THAT(files.at("jobs.json"), AllOf(HasSubstr("This is not to be had: "), HasSubstr("Start aps")));
  EXPECT_THAT(files.at("doctor.txt"), HasSubstr("FAILED  application server: "));
  EXPECT_THAT(files.at("status.json"), HasSubstr("\"reachable\": false"));
  scene.restartServer();
}

TEST_F(AdministrationOfSupport, AFileThatIsThereStaysAndAFolderThatIsNotIsSaid) {
  std::ofstream(m_archive) << "mine";
  const Machine::Result there = support();
  EXPECT_EQ(there.code, 1);
  EXPECT_THAT(there.output,
              AllOf(HasSubstr("support.zip\" is there already"), HasSubstr("Name a file that is not there yet.")));
  EXPECT_EQ(bytesOf(m_archive), "mine");
  const Machine::Result nowhere = run({"support", "C:\\no such folder\\a.zip"});
  EXPECT_EQ(nowhere.code, 3);
  EXPECT_THAT(nowhere.output, HasSubstr("Make its folder, or name a file in another one."));
}

}  // namespace
}  // namespace tests
