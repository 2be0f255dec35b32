#pragma once

#include "programs/line_queue.h"

#include <string>
#include <string_view>

namespace programs {

// An open file descriptor that belongs to somebody else, such as the standard output. Nothing is kept back in a buffer.
class DescriptorOutput : public LineOutput {
 public:
  explicit DescriptorOutput(int descriptor) : m_descriptor(descriptor) {}

  std::string write(const std::string& text) override;
  std::string writeLost(std::uint64_t count, const std::string& why) override;

 private:
  const int m_descriptor;
};

inline constexpr int kStandardOutput = 1;
inline constexpr int kStandardError = 2;

}  // namespace programs
