#pragma once

#include "corvane/records/program_monitor.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

// The program itself, called once on the main thread by the entry point of the platform. The arguments are UTF-8 text
// without the program's own name; the result is the exit code. An exception that leaves it is printed and ends the
// program with exit code 1. On Windows it is called as a service (windows_service.h) when kServiceOption is among the
// arguments and the service manager has started the process; by hand that option changes nothing.
int programMain(const std::vector<std::string>& arguments);

namespace programs {

inline constexpr char kServiceOption[] = "--service";

// For a program that reports itself, to its user, what the framework would write to its log as well. Called before the
// first record.
inline void silenceLocalLog() {
  struct Silence : corvane::LogSink {
    void write(std::string_view) noexcept override {}
  };
  corvane::LocalMonitor::instance().setSink(std::make_unique<Silence>());
}

}  // namespace programs
