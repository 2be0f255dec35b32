#include "admin/support/support_files.h"

#include "admin/base/output.h"
#include "admin/base/registry_value.h"
#include "corvane/base/text.h"
#include "corvane/components/component_server.h"
#include "corvane/records/program_monitor.h"
#include "protocol/job_record.h"
#include "protocol/values.h"
#include "tests/support/admin/installation_fixture.h"
#include "tests/support/scripted_peer.h"

#include <gmock/gmock.h>
#include <map>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// What a developer gets of an installation whose services, ports, printers and jobs are the test's own.
class SupportFilesTest : public InstallationTest {
 protected:
  using Texts = std::map<std::string, std::string>;

  SupportFilesTest() {
    struct Silence : corvane::LogSink {
      void write(std::string_view) noexcept override {}
    };
    CS_ComponentServer::initialize(0, 0);
    corvane::LocalMonitor::instance().setSink(std::make_unique<Silence>());
    wantServices();
    install(places, request);
  }
  ~SupportFilesTest() override { corvane::LocalMonitor::instance().setSink(nullptr); }

  // Each file by its name.
  Texts collect() {
    Scrubber scrubber;
    Texts files;
    for (const SupportFile& file : collectSupportFiles(places, peer.port(), scrubber)) {
      EXPECT_NE(file.what, "") << file.name;
      files[file.name] = file.content;
    }
    return files;
  }
  void answerJobs(std::vector<protocol::JobRecord> jobs) {
    peer.answer("AdministrationServer", 35, [jobs = std::move(jobs)](corvane::ValueWriter& reply) {
      protocol::Jobs::Answer answer;
      answer.jobs = jobs;
      protocol::write(reply, answer);
    });
  }
  void answerNotices(std::vector<std::pair<std::wstring, std::wstring>> values) {
    peer.answer("AdministrationServer", 32, [values = std::move(values)](corvane::ValueWriter& reply) {
      protocol::Notices::Answer answer;
      answer.notices.emplace_back();
      answer.notices.back().values = values;
      protocol::write(reply, answer);
    });
  }

  ScriptedPeer peer;
};

TEST_F(SupportFilesTest, AreThoseThatTheListOfThemPromises) {
  std::vector<std::string> names;
  for (const auto& [name, content] : collect())
    names.push_back(name);
  EXPECT_THAT(names, testing::ElementsAre("jobs.json", "logs/MgPrintMon.log", "logs/aps.log", "logs/mgprintmon.log",
                                          "policies.json", "ports.txt", "printers.json", "registry.txt",
                                          "services.json", "versions.txt", "windows.txt"));
}

TEST_F(SupportFilesTest, TellOfJobsWithoutTheirUsersAndTitles) {
  protocol::JobRecord job;
  job.number = 7;
  job.state = protocol::JobState::kFailed;
  job.user = L"EXAMPLE\\anna";
  job.session = 5;
  job.printer = L"Laser of Anna";
  job.document = L"A secret";
  job.spoolerJob = L"17";
  job.process = 77;
  job.copies = 2;
  job.pages = 3;
  job.bytes = 4;
  job.began = L"2026-01-31T23:59:58Z";
  job.ended = L"2026-01-31T23:59:59Z";
  job.milliseconds = {1, 2, 3, -1};
  job.cause = L"The printer \"Ink\" refused a secret.";
  job.remedy = L"Ask Anna.";
  answerJobs({job});
  answerNotices({});
  const Json jobs = Json::parse(collect().at("jobs.json"));
  ASSERT_EQ(jobs.size(), 1u);
  EXPECT_EQ(jobs[0].dump(),
            R"json({"number":7,"state":"failed","session":5,"printer":"Laser of (left out)","spoolerJob":"17",)json"
            R"json("process":77,"copies":2,"pages":3,"bytes":4,"began":"2026-01-31T23:59:58Z",)json"
            R"json("ended":"2026-01-31T23:59:59Z","milliseconds":[1,2,3,-1],)json"
            R"json("cause":"The printer (left out) refused (left out).","remedy":"Ask (left out)."})json");
  EXPECT_THAT(peer.lines(),
              testing::Contains(
                  "request 35 unknown to AdministrationServer: int 0, int 200, int 0, int 0, text \"\", text \"\", "
                  "text \"\", boolean false"));
}

TEST_F(SupportFilesTest, WhomNoticesTellOfIsLeftOutEverywhere) {
  answerJobs({});
  answerNotices({{L"user", L"berta"}, {L"document", L"Plans"}, {L"printer", L"Laser"}});
  std::filesystem::create_directories(places.serviceLogFolder());
  TemporaryFolder::write(places.serviceLogFolder() + L"\\aps.log", "berta printed Plans on Laser\n");
  TemporaryFolder::write(places.serviceLogFolder() + L"\\mgprintmon.log", "all is well\n");
  const Texts files = collect();
  EXPECT_EQ(files.at("logs/aps.log"), "(left out) printed (left out) on Laser\r\n");
  EXPECT_EQ(files.at("logs/mgprintmon.log"), "all is well\r\n");
  EXPECT_EQ(files.at("jobs.json"), "[]\n");
}

TEST_F(SupportFilesTest, OfALongLogHaveTheEndFromItsFirstWholeLine) {
  std::filesystem::create_directories(places.serviceLogFolder());
  std::string lines;  // 262,144 bytes
  for (int i = 0; i < 16384; ++i)
    lines += "123456789 12345\n";
  TemporaryFolder::write(places.serviceLogFolder() + L"\\aps.log", lines.substr(1));
  EXPECT_THAT(collect().at("logs/aps.log"), StartsWith("23456789 12345\r\n123456789 12345\r\n"));
  for (const char* more : {"", "x\n", "much more than that\n"}) {
    TemporaryFolder::write(places.serviceLogFolder() + L"\\aps.log", more + lines);
    const std::string log = collect().at("logs/aps.log");
    EXPECT_THAT(log, StartsWith("123456789 12345\r\n"));
    EXPECT_EQ(log.size(), std::size_t{16383} * 17);
  }
}

TEST_F(SupportFilesTest, SayWhatIsNotToBeHad) {
  const Texts files = collect();
  EXPECT_THAT(files.at("jobs.json"), StartsWith("This is not to be had: "));
  EXPECT_THAT(files.at("jobs.json"), EndsWith("\r\n"));
  EXPECT_THAT(files.at("logs/aps.log"), StartsWith("This is not to be had: "));
  EXPECT_EQ(files.at("logs/MgPrintMon.log"), "There is none.\r\n");
}

TEST_F(SupportFilesTest, HaveTheVersionsOfWhatIsInstalled) {
  const auto line = [](const std::wstring& file, const char* version) {
    return corvane::toUtf8(file) + ": " + version + "\r\n";
  };
  const char* const none = "no version, or not there";
  const std::string expected = "mgprintmon 4.0.1.0, which wrote this\r\n" + line(places.module(), "4.0.1.0") +
                               line(places.converter(), none) + line(places.serverProgram(), none) +
                               line(places.toolProgram(), none);
  EXPECT_EQ(collect().at("versions.txt"), Scrubber().text(expected));
}

TEST_F(SupportFilesTest, SayWhichWindowsThisIs) {
  const std::wstring key = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
  std::string expected;
  for (const wchar_t* name : {L"ProductName", L"InstallationType", L"DisplayVersion", L"ReleaseId", L"CurrentBuild"}) {
    if (const auto value = readValue(key, name))
      expected += corvane::toUtf8(name) + ": " + corvane::toUtf8(value->text().value()) + "\r\n";
  }
  if (const auto revision = readValue(key, L"UBR")) expected += "UBR: " + std::to_string(*revision->number()) + "\r\n";
  EXPECT_THAT(expected, HasSubstr("CurrentBuild: "));
  EXPECT_EQ(collect().at("windows.txt"), expected);
}

TEST_F(SupportFilesTest, HaveThePortsAndPrintersOfThisMachine) {
  EXPECT_EQ(collect().at("ports.txt"), "The monitor has no ports.\r\n");
  EXPECT_EQ(collect().at("printers.json"), "[]\n");
  ports = {L"CPP5", L"CPP6"};
  std::wstring texts[] = {L"Laser (session 5)", L"CPP5", L"Generic", L"winprint", L"Ink", L"CPP6"};
  PRINTER_INFO_2W one{}, other{};
  one.pPrinterName = texts[0].data();
  one.pPortName = texts[1].data();
  one.pDriverName = texts[2].data();
  one.pPrintProcessor = texts[3].data();
  one.Status = PRINTER_STATUS_PAUSED;
  other = one;
  other.pPrinterName = texts[4].data();
  other.pPortName = texts[5].data();
  other.Status = PRINTER_STATUS_PENDING_DELETION | PRINTER_STATUS_OFFLINE;
  printers = {one, other};
  const Texts files = collect();
  EXPECT_EQ(files.at("ports.txt"), "CPP5\r\nCPP6\r\n");
  EXPECT_EQ(Json::parse(files.at("printers.json")).dump(),
            R"json([{"name":"Laser (session 5)","port":"CPP5","driver":"Generic","processor":"winprint",)json"
            R"json("deleted":false,"paused":true,"offline":false},)json"
            R"json({"name":"Ink","port":"CPP6","driver":"Generic","processor":"winprint",)json"
            R"json("deleted":true,"paused":false,"offline":true}])json");
}

TEST_F(SupportFilesTest, HaveTheServicesAndOfTheirAccountsOnlyThoseThatAreNoPersons) {
  using OwnService = OwnServiceManager::Service;
  services.services = {
      {L"aps", OwnService{L"aps.exe --service", L"NT SERVICE\\aps", SERVICE_AUTO_START, SERVICE_RUNNING}},
      {L"mgprintmon", OwnService{L"watch", L"EXAMPLE\\anna", SERVICE_DISABLED, SERVICE_STOPPED}},
      {L"Spooler", OwnService{L"spoolsv.exe", L"LocalSystem", SERVICE_DEMAND_START, SERVICE_RUNNING}}};
  const std::string first = Json::parse(collect().at("services.json")).dump();
  EXPECT_EQ(
      first,
      R"json([{"name":"aps","state":"runs, process 0","starts":"with the machine","account":"NT SERVICE\\aps",)json"
      R"json("command":"aps.exe --service"},)json"
      R"json({"name":"mgprintmon","state":"is stopped and disabled","starts":"never","account":"another account",)json"
      R"json("command":"watch"},)json"
      R"json({"name":"Spooler","state":"runs, process 0","starts":"when it is asked for","account":"LocalSystem",)json"
      R"json("command":"spoolsv.exe"}])json");
  services.services = {{L"aps", OwnService{L"aps.exe", L"NT AUTHORITY\\LocalService"}}};
  const Json second = Json::parse(collect().at("services.json"));
  ASSERT_EQ(second.size(), 1u);
  EXPECT_EQ(second[0]["account"], "NT AUTHORITY\\LocalService");
}

TEST_F(SupportFilesTest, HaveEveryValueOfTheInstallationsKeys) {
  deleteKeyTree(places.vendorKey);
  createKey(places.vendorKey + L"\\Inner");
  writeValue(places.vendorKey, L"Text", RegistryValue::ofText(L"some \"text\""));
  writeValue(places.vendorKey, L"Number", RegistryValue::ofNumber(4711));
  writeValue(places.vendorKey, L"Texts", RegistryValue::ofTexts({L"one", L"two"}));
  writeValue(places.vendorKey + L"\\Inner", L"Bytes", {REG_BINARY, {1, 2, 3}});
  EXPECT_EQ(collect().at("registry.txt"),
            "[HKEY_LOCAL_MACHINE\\SOFTWARE\\MgAdminTest\\Vendor]\r\n\"Number\" = 4711\r\n"
            "\"Text\" = \"some \"text\"\"\r\n\"Texts\" = \"one\", \"two\"\r\n"
            "[HKEY_LOCAL_MACHINE\\SOFTWARE\\MgAdminTest\\Vendor\\Inner]\r\n"
            "\"Bytes\" = 3 bytes of the type 3\r\n");
}

}  // namespace
}  // namespace admin
