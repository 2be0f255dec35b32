#include "corvane/records/host_properties.h"

const HostProperties& HostProperties::getInstance() {
  static const HostProperties instance;
  return instance;
}

int HostProperties::hostValue() const {
  return kDefaultPort;
}
std::wstring HostProperties::logFile() const {
  return {};
}
unsigned long HostProperties::logLimit() const {
  return kDefaultLogLimit;
}
bool HostProperties::trace() const {
  return false;
}
std::wstring HostProperties::keyFile() const {
  return {};
}
