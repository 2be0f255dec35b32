#include "programs/service_manager.h"
#include "programs/windows_service.h"

#include <utility>

namespace programs {

ServiceManager::ServiceManager(std::string socket, Time) : m_socket(std::move(socket)) {}

// The service manager of Windows wants no signs of life.
ServiceManager ServiceManager::fromEnvironment() {
  return WindowsService::current() == nullptr ? ServiceManager() : ServiceManager("service");
}

// Its own thread has told of a stop already, and it knows no other news.
std::string ServiceManager::tell(const std::string& assignments) const {
  WindowsService* const service = WindowsService::current();
  if (service != nullptr && assignments.starts_with("READY=1")) service->ready();
  return {};
}

}  // namespace programs
