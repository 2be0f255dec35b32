#include "corvane/local_monitor.h"

#include <cstdio>

namespace corvane {
namespace {

class StandardErrorSink : public LogSink {
 public:
  void write(std::string_view line) noexcept override {
    std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
  }
  void flush() noexcept override { std::fflush(stderr); }
};

}  // namespace

std::unique_ptr<LogSink> makePlatformSink() {
  return std::make_unique<StandardErrorSink>();
}

}  // namespace corvane
