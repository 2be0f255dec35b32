#include "converter/ghostscript.h"

#include "converter/conversion_error.h"
#include "tests/support/import_seam.h"
#include "util/win_handle.h"

#include <windows.h>

#include <gtest/gtest.h>

MG_IMPORT_SEAM(L"kernel32.dll", GetProcAddress, nullptr)

namespace mg::converter {
namespace {

TEST(PdfWriteRequest, TheScriptIsRunInsideTheCageAndTheDocumentIsItsInput) {
  const RunRequest request = pdfWriteRequest(L"gs", L"run.ps", L"C:\\a b.ps");
  EXPECT_EQ(request.program, L"gs");
  EXPECT_EQ(request.input, L"C:\\a b.ps");
  EXPECT_EQ(request.arguments.at(1), L"-dSAFER");
  EXPECT_EQ(request.arguments.at(8), L"-f");
  EXPECT_EQ(request.arguments.at(9), L"run.ps");
  EXPECT_EQ(request.arguments.back(), L"-_");
}

TEST(FindGhostscript, ConfiguredProgramWins) {
  Limits limits;
  limits.ghostscript = L"/opt/gs";
  EXPECT_EQ(findGhostscript(limits), L"/opt/gs");
}

// As on Windows itself, with a registry of its own.
class InstalledGhostscript : public testing::Test {
 protected:
  InstalledGhostscript() {
    GetProcAddressSeam.replacement = [](HMODULE module, LPCSTR name) -> FARPROC {
      return std::string(name) == "wine_get_version" ? nullptr : GetProcAddressSeam.real(module, name);
    };
    RegDeleteTreeW(HKEY_CURRENT_USER, kMachine);
    RegCreateKeyExW(HKEY_CURRENT_USER, kMachine, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, m_machine.receive(), nullptr);
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, m_machine.get());
  }
  ~InstalledGhostscript() override {
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegDeleteTreeW(HKEY_CURRENT_USER, kMachine);
  }

  static void install(const std::wstring& version, const std::wstring& library) {
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, (L"SOFTWARE\\GPL Ghostscript\\" + version).c_str(), L"GS_DLL", REG_SZ,
                    library.c_str(), static_cast<DWORD>((library.size() + 1) * sizeof(wchar_t)));
  }

  static constexpr wchar_t kMachine[] = L"SOFTWARE\\Quillfern\\GhostscriptTest";
  ImportSeams m_seams;
  RegistryKey m_machine;
};

TEST_F(InstalledGhostscript, TheNewestOfSeveralIsTakenByItsNumberAndNotByItsText) {
  install(L"9.56", L"C:\\gs9.56\\bin\\gsdll64.dll");
  install(L"10.03", L"C:\\gs10.03\\bin\\gsdll64.dll");
  install(L"9.9", L"C:\\gs9.9\\bin\\gsdll64.dll");
  EXPECT_EQ(findGhostscript({}), L"C:\\gs10.03\\bin\\gswin64c.exe");
}

TEST_F(InstalledGhostscript, AVersionWithoutItsLibraryDoesNotCount) {
  install(L"9.56", L"C:\\gs9.56\\bin\\gsdll64.dll");
  RegistryKey other;
  RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\GPL Ghostscript\\10.03", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                  other.receive(), nullptr);
  EXPECT_EQ(findGhostscript({}), L"C:\\gs9.56\\bin\\gswin64c.exe");
}

TEST_F(InstalledGhostscript, WithoutOneTheTextSaysWhatToDo) {
  try {
    findGhostscript({});
    FAIL() << "found";
  } catch (const ConversionError& error) {
    EXPECT_EQ(error.code(), ExitCode::kGhostscriptMissing);
    EXPECT_EQ(error.text(),
              L"Ghostscript is not installed. Install it, or name gswin64c.exe in the registry value "
              L"\"GhostscriptPath\" in \"SOFTWARE\\Quillfern\\Marrowgate\\Converter\".");
  }
}

}  // namespace
}  // namespace mg::converter
