#include "corvane/exception.h"
#include "corvane/host_properties.h"
#include "corvane/message_numbers.h"
#include "corvane/operation.h"
#include "corvane/process_identity.h"
#include "corvane/text.h"
#include "session/port_monitor_server.h"
#include "util/win_handle.h"

#include <windows.h>

namespace {

// The administrator's choice of how the server is dialled; anything unreadable is the default.
unsigned connectionFlags(mg::RegistryKey& key) {
  const corvane::ProcessIdentity identity;
  constexpr DWORD kDualStackOption = 0x40000;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Quillfern\\Marrowgate\\AppServer", 0, KEY_QUERY_VALUE,
                    key.receive()) != ERROR_SUCCESS) {
    return CS_Connection::kDirect;
  }
  DWORD options = 0;
  DWORD size = sizeof options;
  if (RegQueryValueExA(key.get(), "ConnectionOptions", nullptr, nullptr, reinterpret_cast<BYTE*>(&options), &size) !=
      ERROR_SUCCESS) {
    return CS_Connection::kDirect;
  }
  return (options & kDualStackOption) != 0 ? CS_Connection::kDualStack : CS_Connection::kDirect;
}

bool attempt(CS_Connection& connection, int hostValue, unsigned flags, int number) {
  CS_TraceEntry trace(L"PortMonitorServer::connectToLocalhost() (attempt = %d)", number);
  try {
    connection.connect(L"localhost", hostValue, flags, false);
    return true;
  } catch (const CS_Exception& exception) {
    // No server can make up for a key that is missing or unusable here: the job fails and says why. One that does not
    // prove itself may be another program in the server's place, and the job waits for the server itself.
    if (exception.number() == corvane::kKeyNeeded) throw;
    return false;
  }
}

}  // namespace

CS_RCPtr<CS_Connection> PortMonitorServer::connectToLocalhost() {
  CS_TraceEntry trace(L"PortMonitorServer::connectToLocalhost()");
  Operation operation(L"Failed to connect to localhost.", corvane::kLevelConnectionFailure);
  mg::RegistryKey key;
  CS_RCPtr<CS_Connection> connection;
  operation.run([&] {
    connection = CS_Connection::create();
    const std::wstring keyFile = HostProperties::getInstance().keyFile();
    if (!keyFile.empty()) connection->useKey(corvane::Identity::monitor(), corvane::toUtf8(keyFile));
    const unsigned flags = connectionFlags(key);
    const int hostValue = HostProperties::getInstance().hostValue();
    for (int number = 1; !attempt(*connection, hostValue, flags, number); ++number)
      Sleep(kConnectPause);
  });
  if (operation.succeeded()) return connection;
  if (connection) CS_Connection::destroy(connection, true);
  return nullptr;
}
