#include "corvane/base/local_time.h"

#include "corvane/base/process.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace corvane {
namespace {

struct LocalTime {
  std::tm parts;
  int offsetMinutes;
};

LocalTime localTimeOf(std::chrono::sys_seconds time) {
  using namespace std::chrono;
  const std::tm parts = localTime(system_clock::to_time_t(time));
  const sys_days day = year(parts.tm_year + 1900) / (parts.tm_mon + 1) / parts.tm_mday;
  const sys_seconds asUtc = day + hours(parts.tm_hour) + minutes(parts.tm_min) + seconds(parts.tm_sec);
  return {parts, static_cast<int>(duration_cast<minutes>(asUtc - time).count())};
}

std::size_t length(int written, std::size_t size) {
  return written > 0 && size > 0 ? std::min(static_cast<std::size_t>(written), size - 1) : 0;
}

// A fraction of the second is written when it is not negative.
std::size_t write(char* buffer, std::size_t size, std::chrono::sys_seconds time, int milliseconds) {
  const auto [parts, offset] = localTimeOf(time);
  char fraction[16] = "";
  if (milliseconds >= 0) std::snprintf(fraction, sizeof fraction, ".%03d", milliseconds);
  const int minutes = offset < 0 ? -offset : offset;
  return length(std::snprintf(buffer, size, "%04d-%02d-%02d %02d:%02d:%02d%s %c%02d%02d", parts.tm_year + 1900,
                              parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, fraction,
                              offset < 0 ? '-' : '+', minutes / 60, minutes % 60),
                size);
}

}  // namespace

std::size_t writeLocalTime(char* buffer, std::size_t size, std::chrono::system_clock::time_point time) {
  using namespace std::chrono;
  const sys_seconds whole = floor<seconds>(time);
  return write(buffer, size, whole, static_cast<int>(duration_cast<milliseconds>(time - whole).count()));
}

std::string localTimeText(std::chrono::system_clock::time_point time) {
  char text[64];
  return std::string(text, write(text, sizeof text, std::chrono::floor<std::chrono::seconds>(time), -1));
}

}  // namespace corvane
