#include "jobs/spooler_calls.h"
#include "tests/support/import_seam.h"
#include "tests/support/local_log.h"
#include "tests/support/monitor_world.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rpc.h>
#include <string>
#include <vector>

MG_IMPORT_SEAM(L"kernel32.dll", GetModuleHandleW, nullptr)
MG_IMPORT_SEAM(L"kernel32.dll", GetProcAddress, nullptr)
MG_IMPORT_SEAM(L"rpcrt4.dll", RpcImpersonateClient, 5)
MG_IMPORT_SEAM(L"rpcrt4.dll", RpcRevertToSelf, 5)

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kInitSpoolerTrace[] = "0x40000008: Stack Trace: MgPrintMon - InitSpooler()";
const HMODULE kSpooler = reinterpret_cast<HMODULE>(0x4440000);

std::vector<std::string>* calls = nullptr;

// How many references to the process's instance there are, the caller's own left out.
int holders() {
  const CS_RCPtr<PortMonitorServer> instance = PortMonitorServer::getInstance();
  instance->addRef();
  return instance->removeRef() - 1;
}

int holdersMeanwhile = 0;

DWORD WINAPI fakeSpoolerInit() {
  calls->push_back("SpoolerInit");
  holdersMeanwhile = holders();
  return 42;
}

class InitSpoolerTest : public testing::Test {
 protected:
  InitSpoolerTest() {
    calls = &m_calls;
    m_world.bringUpInstance();
    GetModuleHandleWSeam.replacement = [this](LPCWSTR name) -> HMODULE {
      m_calls.push_back("GetModuleHandleW " + corvane::toUtf8(name));
      return kSpooler;
    };
    GetProcAddressSeam.replacement = [this](HMODULE module, LPCSTR name) -> FARPROC {
      EXPECT_EQ(module, kSpooler);
      m_calls.push_back(std::string("GetProcAddress ") + name);
      return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(fakeSpoolerInit));
    };
    RpcImpersonateClientSeam.replacement = [this](RPC_BINDING_HANDLE binding) -> RPC_STATUS {
      EXPECT_EQ(binding, nullptr);
      m_calls.push_back("RpcImpersonateClient");
      return m_impersonation;
    };
    RpcRevertToSelfSeam.replacement = [this]() -> RPC_STATUS {
      m_calls.push_back("RpcRevertToSelf");
      return RPC_S_OK;
    };
  }

  std::vector<std::string> m_calls;
  RPC_STATUS m_impersonation = RPC_S_OK;
  ImportSeams m_seams;
  MonitorWorld m_world;
};

TEST_F(InitSpoolerTest, CallsTheSpoolerAsTheClientAndReturnsItsResult) {
  EXPECT_EQ(InitSpooler(), 42u);
  EXPECT_THAT(m_calls, ElementsAre("GetModuleHandleW spoolss.dll", "GetProcAddress SpoolerInit", "RpcImpersonateClient",
                                   "SpoolerInit", "RpcRevertToSelf"));
  EXPECT_THAT(m_world.records().lines(), IsEmpty());
}

TEST_F(InitSpoolerTest, TheInstanceIsHeldUntilTheSpoolerIsDone) {
  const int before = holders();
  InitSpooler();
  EXPECT_EQ(holdersMeanwhile, before + 1);
  EXPECT_EQ(holders(), before);
}

TEST_F(InitSpoolerTest, ItsTraceHasAllOfIt) {
  LocalLog log;
  log.trace();
  InitSpooler();
  const auto lines = log.lines();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front(), "enter InitSpooler()");
  EXPECT_EQ(lines.back(), "leave InitSpooler()");
}

TEST_F(InitSpoolerTest, AProcessWithoutTheSpoolerIsRecordedWithTheLastError) {
  GetModuleHandleWSeam.replacement = nullptr;
  GetModuleHandleWSeam.fail(1, nullptr, 126);
  EXPECT_EQ(InitSpooler(), 0u);
  EXPECT_THAT(m_calls, IsEmpty());
  const std::string text = "Failed to find the module handle for SpoolSS.dll. error: 126";
  EXPECT_THAT(m_world.records().lines(), ElementsAre("0x4000000a: " + text, "10: " + text, kInitSpoolerTrace));
}

TEST_F(InitSpoolerTest, WithoutAnInstanceNothingIsLookedUpAndTheResultIsZero) {
  m_world.losePeer();
  EXPECT_EQ(InitSpooler(), 0u);
  EXPECT_THAT(m_calls, IsEmpty());
}

TEST_F(InitSpoolerTest, ASpoolerWithoutTheFunctionIsRecordedWithTheLastError) {
  GetProcAddressSeam.fail(1, nullptr, 127);
  EXPECT_EQ(InitSpooler(), 0u);
  const std::string text = "Failed to find the spooler initialization function. error: 127";
  EXPECT_THAT(m_world.records().lines(), ElementsAre("0x4000000a: " + text, "10: " + text, kInitSpoolerTrace));
}

TEST_F(InitSpoolerTest, AClientThatCannotBeImpersonatedIsRecordedWithTheStatusAndNothingIsReverted) {
  m_impersonation = 1702;
  EXPECT_EQ(InitSpooler(), 0u);
  EXPECT_EQ(m_calls.back(), "RpcImpersonateClient");
  const std::string text = "Failed to impersonate client. error: 1702";
  EXPECT_THAT(m_world.records().lines(), ElementsAre("0x4000000a: " + text, "10: " + text, kInitSpoolerTrace));
}

}  // namespace
