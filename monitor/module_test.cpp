#include <windows.h>
#include <winspool.h>
// Needs the types of winspool.h.
#include "monitor/job_end.h"
#include "tests/support/ports_registry.h"

#include <winsplp.h>

#include <gtest/gtest.h>
#include <string>
#include <vector>

// The module itself, loaded as a spooler loads it.
namespace {

class ModuleTest : public testing::Test {
 protected:
  ModuleTest() : m_module(LoadLibraryW(L"MgPrintMon.dll")) {}
  ~ModuleTest() override {
    if (m_module != nullptr) FreeLibrary(m_module);
  }
  template <class Function>
  Function* find(const char* name) {
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(m_module, name)));
  }

  PortsRegistry m_registry;
  HMODULE m_module;
};

TEST_F(ModuleTest, ComesUpAnswersAndGoesWithTheProcessIntact) {
  ASSERT_NE(m_module, nullptr);
  m_registry.set(L"CPP3");
  MONITORINIT init{};
  HANDLE handle = nullptr;
  auto* initialize = find<LPMONITOR2 WINAPI(PMONITORINIT, PHANDLE)>("InitializePrintMonitor2");
  ASSERT_NE(initialize, nullptr);
  LPMONITOR2 table = initialize(&init, &handle);
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->cbSize, 160u);
  EXPECT_EQ(handle, &init);

  DWORD needed = 0;
  DWORD returned = 0;
  table->pfnEnumPorts(handle, nullptr, 1, nullptr, 0, &needed, &returned);
  std::vector<BYTE> buffer(needed);
  EXPECT_TRUE(table->pfnEnumPorts(handle, nullptr, 1, buffer.data(), needed, &needed, &returned));
  ASSERT_EQ(returned, 1u);
  EXPECT_STREQ(reinterpret_cast<PORT_INFO_1W*>(buffer.data())->pName, L"CPP3");
  table->pfnShutdown(handle);
}

TEST_F(ModuleTest, IsLoadedAndUnloadedWithoutHavingBeenInitialised) {
  ASSERT_NE(m_module, nullptr);
  auto* show = find<BOOL WINAPI(unsigned int, const wchar_t*)>("ShowPrinter");
  ASSERT_NE(show, nullptr);
  EXPECT_FALSE(show(5, L"Laser"));
}

TEST_F(ModuleTest, CarriesTheTextOfItsEventLogEntries) {
  ASSERT_NE(m_module, nullptr);
  wchar_t text[64] = L"";
  wchar_t line[] = L"Job 17 failed.";
  DWORD_PTR arguments[] = {reinterpret_cast<DWORD_PTR>(line)};
  EXPECT_NE(FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, m_module, mg::kJobFailedEvent,
                           0, text, std::size(text), reinterpret_cast<va_list*>(arguments)),
            0u);
  EXPECT_STREQ(text, L"Job 17 failed.\r\n");
}

TEST_F(ModuleTest, CarriesItsVersion) {
  ASSERT_NE(m_module, nullptr);
  const HRSRC resource = FindResourceW(m_module, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(16));
  ASSERT_NE(resource, nullptr);
  const auto* info = static_cast<const BYTE*>(LockResource(LoadResource(m_module, resource)));
  // The fixed part stands behind a header of 6 bytes and the key, aligned to 4.
  const auto* fixed = reinterpret_cast<const DWORD*>(info + 40);
  EXPECT_EQ(fixed[0], 0xFEEF04BDu);
  EXPECT_EQ(fixed[2], 0x00040000u);
  EXPECT_EQ(fixed[3], 0x00010000u);
}

}  // namespace
