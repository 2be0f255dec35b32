#pragma once

#include "corvane/records/local_monitor.h"

namespace programs {

// For a program that says itself, to the person who runs it, what the framework would write to its log as well. Set
// before the first record.
class NoSink : public corvane::LogSink {
 public:
  void write(std::string_view) noexcept override {}
};

}  // namespace programs
