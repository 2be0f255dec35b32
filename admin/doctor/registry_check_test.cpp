#include "admin/base/failure.h"
#include "admin/base/registry_value.h"
#include "admin/doctor/checks.h"
#include "tests/support/admin/installation_fixture.h"

namespace admin {
namespace {

// The registry as an installation leaves it, and one value of it changed.
class RegistryCheckTest : public InstallationTest {
 protected:
  RegistryCheckTest() { install(places, request); }

  std::string failureWith(const std::wstring& key, const std::wstring& name, const RegistryValue& value) {
    writeValue(key, name, value);
    try {
      checkRegistry(places);
      return "";
    } catch (const Failure& failure) {
      return failure.what();
    }
  }
};

TEST_F(RegistryCheckTest, IsWellAfterAnInstallation) {
  EXPECT_NO_THROW(checkRegistry(places));
}

TEST_F(RegistryCheckTest, ThePortIsAnyThatTcpHasAndNoOther) {
  const auto failureOf = [this](DWORD port) {
    return failureWith(places.frameworkKey(), L"Port", RegistryValue::ofNumber(port));
  };
  EXPECT_EQ(failureOf(1), "");
  EXPECT_EQ(failureOf(65535), "");
  EXPECT_EQ(failureOf(0), "the value Port is 0, which is not a TCP port");
  EXPECT_EQ(failureOf(65536), "the value Port is 65536, which is not a TCP port");
}

TEST_F(RegistryCheckTest, TheEventSourceIsTheModule) {
  EXPECT_EQ(failureWith(places.eventSourceKey, L"EventMessageFile", RegistryValue::ofText(L"C:\\other.dll")),
            "the event source MgPrintMon does not point to the module");
}

}  // namespace
}  // namespace admin
