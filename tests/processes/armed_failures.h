#pragma once

#include "tests/processes/failing_calls.h"
#include "tests/processes/scene.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace tests {

// The calls of one program that a test makes fail; the program is started with launcher(). Owns the file in that
// folder that both have mapped. Throws std::runtime_error when there is none.
class ArmedFailures {
 public:
  explicit ArmedFailures(const std::filesystem::path& folder) : m_file(folder / "failing-calls") {
    std::ofstream(m_file) << std::string(sizeof(FailingCalls), '\0');
    const int opened = ::open(m_file.c_str(), O_RDWR | O_CLOEXEC);
    void* const mapped = ::mmap(nullptr, sizeof(FailingCalls), PROT_READ | PROT_WRITE, MAP_SHARED, opened, 0);
    ::close(opened);
    if (mapped == MAP_FAILED) throw std::runtime_error(m_file.string() + " cannot be mapped");
    m_calls = static_cast<FailingCalls*>(mapped);
  }
  ~ArmedFailures() { ::munmap(m_calls, sizeof(FailingCalls)); }
  ArmedFailures(const ArmedFailures&) = delete;
  ArmedFailures& operator=(const ArmedFailures&) = delete;

  std::vector<std::string> launcher() const {
    return {"/usr/bin/env", "LD_PRELOAD=" + Scene::program("libmg_failing_calls.so"),
            "MG_FAILING_CALLS=" + m_file.string()};
  }

  FailingCalls* operator->() const { return m_calls; }
  void arm(FailingCalls::Kind kind, int nth) {
    m_calls->failed = 0;
    m_calls->left = nth;
    m_calls->kind = kind;
  }
  // Whether the call has come that was to fail.
  bool disarm() {
    m_calls->kind = FailingCalls::kNone;
    return m_calls->failed != 0;
  }

 private:
  const std::filesystem::path m_file;
  FailingCalls* m_calls = nullptr;
};

}  // namespace tests
