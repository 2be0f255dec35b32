#include "corvane/net/ready_watch.h"

#include <utility>

namespace corvane {

ReadyWatch::ReadyWatch(Ready ready) : m_ready(std::move(ready)) {}

ReadyWatch::~ReadyWatch() = default;

bool ReadyWatch::watch(int, std::uint64_t) noexcept {
  return false;
}

}  // namespace corvane
