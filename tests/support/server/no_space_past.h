#pragma once

#ifndef _WIN32
#include <csignal>
#include <sys/resource.h>

namespace tests {

// No file of this process may become longer meanwhile, which is a disk without space for those that are.
class NoSpacePast {
 public:
  explicit NoSpacePast(rlim_t bytes) {
    m_signal = std::signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &m_before);
    const rlimit limit{bytes, m_before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~NoSpacePast() {
    setrlimit(RLIMIT_FSIZE, &m_before);
    std::signal(SIGXFSZ, m_signal);
  }
  NoSpacePast(const NoSpacePast&) = delete;
  NoSpacePast& operator=(const NoSpacePast&) = delete;

 private:
  rlimit m_before{};
  void (*m_signal)(int);
};

}  // namespace tests
#endif
