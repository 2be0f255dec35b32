#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace printclient {

// Learns what kind of data a job holds from the bytes as they pass by, keeping only the first and the last few. Used by
// one thread.
class ContentProbe {
 public:
  void see(std::span<const unsigned char> bytes);

  std::uint64_t size() const { return m_size; }
  // ".pdf", ".ps", ".txt" for data whose first kTextBytes hold no control characters other than those of plain text,
  // otherwise ".prn".
  std::string extension() const;
  bool isPdf() const { return beginsWith("%PDF-"); }
  // Whether the end of a PDF has arrived: its end mark stands within the last 1024 bytes.
  bool hasPdfEnd() const;

  static constexpr std::size_t kTailBytes = 1024;
  // More would cost as much as the rest of a large job's way to the disk.
  static constexpr std::size_t kTextBytes = 4096;

 private:
  bool beginsWith(const std::string& text) const;

  std::array<char, 5> m_head = {};
  std::string m_tail;  // at most twice kTailBytes
  std::uint64_t m_size = 0;
  bool m_isText = true;
};

}  // namespace printclient
