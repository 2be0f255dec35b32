#include "admin/doctor/checks.h"

#include "admin/base/failure.h"
#include "admin/base/files.h"
#include "admin/base/registry_value.h"
#include "admin/spooler/monitor_module.h"
#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/trust/key.h"
#include "programs/text.h"

#include <cwctype>
#include <fmt/format.h>

namespace admin {
namespace {

using corvane::toUtf8;

constexpr char kNoNumber[] = "not a DWORD";
constexpr char kInstallAgain[] = "Run mgprintmon install: it restores what is missing.";

std::wstring registryText(const std::wstring& key, const wchar_t* name) {
  const auto value = readValue(key, name);
  if (!value) {
    throw Failure(ExitCode::kFailed, fmt::format("the value {} is missing", programs::quoted(name)), kInstallAgain);
  }
  const auto text = value->text();
  if (!text) {
    throw Failure(ExitCode::kFailed, fmt::format("the value {} is not a string", programs::quoted(name)),
                  kInstallAgain);
  }
  return *text;
}

void checkNumbers(const Places& places) {
  for (const RegistryNumber& number : registryNumbers(places)) {
    const std::string wrong = number.wrongValue();
    if (wrong.empty()) continue;
    const bool isPort = number.name == L"Port" && wrong != kNoNumber;
    if (isPort) {
      throw Failure(ExitCode::kFailed, fmt::format("the value Port is {}, which is not a TCP port", wrong),
                    "Set it with mgprintmon install --port N.");
    }
    throw Failure(
        ExitCode::kFailed,
        fmt::format("the value {} of {} is {}", programs::quoted(number.name), programs::quoted(number.key), wrong),
        wrong == kNoNumber ? std::string("Delete it, or write it as a DWORD.")
                           : fmt::format("Delete it, or set it to a number from {} to {}.", number.least, number.most));
  }
}

void checkRoot(const Places& places) {
  const std::wstring root = registryText(places.productKey(), L"RootPath");
  if (!folderExists(root)) {
    throw Failure(ExitCode::kFailed, fmt::format("RootPath {} is not a folder", programs::quoted(root)), kInstallAgain);
  }
}

void checkFramework(const std::wstring& key) {
  const std::wstring log = registryText(key, L"LogFile");
  const std::size_t end = log.rfind(L'\\');
  if (end == std::wstring::npos || !folderExists(log.substr(0, end))) {
    throw Failure(ExitCode::kFailed, fmt::format("the folder of LogFile {} does not exist", programs::quoted(log)),
                  "Make the folder, or set another file with mgprintmon install --log FILE.");
  }
  if (folderExists(log)) {
    throw Failure(ExitCode::kFailed,
                  fmt::format("LogFile {} is a folder, so nothing is written there", programs::quoted(log)),
                  "Set a file with mgprintmon install --log FILE.");
  }
}

void checkEventSource(const Places& places) {
  const std::wstring file = registryText(places.eventSourceKey, L"EventMessageFile");
  const auto types = readValue(places.eventSourceKey, L"TypesSupported");
  if (file == places.module() && types && types->number() == 7u) return;
  throw Failure(ExitCode::kFailed, "the event source MgPrintMon does not point to the module", kInstallAgain);
}

}  // namespace

std::string RegistryNumber::wrongValue() const {
  const auto value = readValue(key, name);
  if (!value) return {};
  const auto number = value->number();
  if (!number) return kNoNumber;
  return *number < least || *number > most ? std::to_string(*number) : std::string();
}

// The bounds of the last ones are those of converter/limits.cpp.
std::vector<RegistryNumber> registryNumbers(const Places& places) {
  const std::wstring framework = places.frameworkKey();
  const std::wstring converter = places.productKey() + L"\\Converter";
  return {{framework, L"Port", 1, 65535, kDefaultServerPort},
          {framework, L"LogLimit", 0, 0xFFFFFFFF, 8 * 1024 * 1024},
          {framework, L"Trace", 0, 0xFFFFFFFF, 0},
          {places.productKey() + L"\\AppServer", L"ConnectionOptions", 0, 0xFFFFFFFF, 0},
          {converter, L"TimeLimitSeconds", 1, 86400, 300},
          {converter, L"MemoryLimitMegabytes", 128, 1048576, 1024},
          {converter, L"OutputLimitMegabytes", 1, 1048576, 1024}};
}

std::string checkModuleFile(const Places& places) {
  if (!fileExists(places.module())) {
    throw Failure(ExitCode::kNotFound, fmt::format("{} is missing", programs::quoted(places.module())), kInstallAgain);
  }
  const auto version = fileVersion(places.module());
  if (!version) {
    throw Failure(ExitCode::kFailed, fmt::format("{} has no version: it is damaged", programs::quoted(places.module())),
                  kInstallAgain);
  }
  return fmt::format("{}, version {}", toUtf8(places.module()), version->text());
}

std::string checkModuleLoads() {
  MonitorModule::get();
  return "it loads with everything that it depends on, and starts";
}

std::string checkRegistration() {
  if (!isMonitorRegistered()) {
    throw Failure(ExitCode::kFailed,
                  fmt::format("the spooler does not know the monitor {}", programs::quoted(kMonitorName)),
                  kInstallAgain);
  }
  const auto file = registeredMonitorFile();
  if (file && CompareStringOrdinal(file->c_str(), -1, kModuleFile, -1, TRUE) != CSTR_EQUAL) {
    throw Failure(ExitCode::kFailed,
                  fmt::format("the spooler's monitor {} is {}, and not {}", programs::quoted(kMonitorName),
                              programs::quoted(*file), corvane::toUtf8(kModuleFile)),
                  "Run mgprintmon doctor --fix: it registers the monitor again.");
  }
  return fmt::format("the spooler knows the monitor {}", programs::quoted(kMonitorName));
}

std::string checkRegistry(const Places& places) {
  checkNumbers(places);
  checkRoot(places);
  checkFramework(places.frameworkKey());
  checkEventSource(places);
  if (!keyExists(places.portsKey())) {
    throw Failure(ExitCode::kFailed, "the key of the ports is missing", kInstallAgain);
  }
  return "every value is there, of its type, and makes sense";
}

std::string checkKeyFile(const Places& places) {
  if (!readValue(places.frameworkKey(), kKeyFileName)) {
    return "there is NONE: every user of this machine can act as the monitor or as any session; mgprintmon install "
           "--keys "
           "changes that";
  }
  const std::wstring file = registryText(places.frameworkKey(), kKeyFileName);
  try {
    corvane::Key::read(toUtf8(file));
  } catch (const CS_Exception& cause) {
    throw Failure(ExitCode::kFailed, fmt::format("the monitor's key cannot be used: {}", programs::describe(cause)),
                  "Put a copy of the monitor.key of aps there, readable by the system and administrators, and run this "
                  "as an administrator.");
  }
  return fmt::format("the monitor authenticates with the key in {}", programs::quoted(file));
}

namespace {

constexpr char kAdvice[] =
    "a document is converted only when it begins with %!, so the driver has to send PostScript without PJL or Ctrl-D "
    "in "
    "front";

// The words of a name in lower case, between blanks: " hp laserjet pcl 6 ".
std::wstring wordsOf(const std::wstring& name) {
  std::wstring words = L" ";
  for (const wchar_t c : name) {
    const bool isPart = std::iswalnum(static_cast<wint_t>(c)) || c == L'/';
    if (isPart) words.push_back(static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c))));
    if (!isPart && words.back() != L' ') words.push_back(L' ');
  }
  return words + L" ";
}

}  // namespace

std::string otherLanguageOf(const std::wstring& driver) {
  const std::wstring words = wordsOf(driver);
  static constexpr struct {
    const wchar_t* word;
    const char* language;
  } kLanguages[] = {{L" pcl", "PCL"},         {L" xps ", "XPS"}, {L" esc/p", "ESC/P"}, {L" ufr", "UFR"},
                    {L" text only ", "text"}, {L" gdi ", "GDI"}, {L" zpl ", "ZPL"}};
  for (const auto& [word, language] : kLanguages) {
    if (words.find(word) != std::wstring::npos) return language;
  }
  return {};
}

std::string checkDrivers(const std::vector<protocol::ListedSession>& sessions,
                         const std::vector<SpoolerPrinter>& present) {
  std::string wrong;
  int count = 0;
  for (const protocol::ListedSession& session : sessions) {
    for (const protocol::ListedPrinter& printer : session.printers) {
      for (const SpoolerPrinter& here : present) {
        if (printer.format != protocol::DataFormat::kPdf || here.name != printer.localName) continue;
        ++count;
        const std::string language = otherLanguageOf(here.driver);
        if (language.empty()) continue;
        wrong += fmt::format("{}{} has {} ({})", wrong.empty() ? "" : ", ", programs::quoted(here.name),
                             programs::quoted(here.driver), language);
      }
    }
  }
  if (!wrong.empty()) {
    throw Failure(
        ExitCode::kFailed,
        fmt::format("by their names these drivers send no PostScript, and their documents arrive unconverted: {}",
                    wrong),
        "Name a PostScript driver with --driver or at the client, or bring the printer along with format=raw.");
  }
  if (count == 0) return "no printer here wants PDF";
  return fmt::format("{} {} PDF: {}", count, count == 1 ? "printer wants" : "printers want", kAdvice);
}

}  // namespace admin
