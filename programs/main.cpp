#include "programs/main.h"

#include "corvane/records/exception.h"
#include "programs/text.h"

#include <cstdio>
#include <exception>

#ifdef _WIN32
#include "corvane/base/text.h"
#include "programs/windows_service.h"

#include <windows.h>

#include <algorithm>
#else
#include <csignal>
#endif

namespace {

int runProgram(const std::vector<std::string>& arguments) {
  try {
    return programMain(arguments);
  } catch (const CS_Exception& failure) {
    std::fprintf(stderr, "%s\n", programs::describe(failure).c_str());
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
  }
  return 1;
}

}  // namespace

#ifdef _WIN32

int wmain(int count, wchar_t** values) {
  SetConsoleOutputCP(CP_UTF8);
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i)
    arguments.push_back(corvane::toUtf8(values[i]));
  if (std::find(arguments.begin(), arguments.end(), programs::kServiceOption) != arguments.end()) {
    if (const auto code = programs::WindowsService::run([&] { return runProgram(arguments); })) return *code;
  }
  return runProgram(arguments);
}

#else

int main(int count, char** values) {
  // A reader of our output that goes away must not end the program in the middle of a job.
  std::signal(SIGPIPE, SIG_IGN);
  // Nor must a file that may not grow any further: the write fails, and the job says so.
  std::signal(SIGXFSZ, SIG_IGN);
  return runProgram(std::vector<std::string>(values + 1, values + count));
}

#endif
