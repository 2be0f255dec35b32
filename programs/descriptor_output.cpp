#include "programs/descriptor_output.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#ifdef _WIN32
#include <io.h>
#else
#include <poll.h>
#include <unistd.h>
#endif

namespace programs {
namespace {

#ifdef _WIN32
// A console refuses pieces that are very long.
long writeSome(int descriptor, const char* data, std::size_t size) {
  return ::_write(descriptor, data, static_cast<unsigned>(std::min<std::size_t>(size, 16 * 1024)));
}
#else
// Whoever shares the descriptor may have set it not to wait; the queue's thread waits all the same.
long writeSome(int descriptor, const char* data, std::size_t size) {
  while (true) {
    const ssize_t written = ::write(descriptor, data, size);
    if (written >= 0 || (errno != EAGAIN && errno != EINTR)) return static_cast<long>(written);
    pollfd room{descriptor, POLLOUT, 0};
    if (errno == EAGAIN) ::poll(&room, 1, -1);
  }
}
#endif

}  // namespace

std::string DescriptorOutput::write(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const long written = writeSome(m_descriptor, text.data() + at, text.size() - at);
    if (written < 0) return std::generic_category().message(errno);
    at += static_cast<std::size_t>(written);
  }
  return {};
}

std::string DescriptorOutput::writeLost(std::uint64_t count, const std::string& why) {
  return write(std::to_string(count) + (count == 1 ? " line is" : " lines are") + " missing here: " + why + "\n");
}

}  // namespace programs
