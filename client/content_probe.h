#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace printclient {

// Learns what kind of data a job holds from the bytes as they pass by, keeping only the first and the last few. Used by
// one thread.
class ContentProbe {
 public:
  void feed(std::span<const unsigned char> bytes);

  std::uint64_t size() const { return m_size; }
  // ".pdf", ".ps" also for PostScript behind printer commands, ".txt" for data whose first kHeadBytes hold no control
  // characters other than those of plain text, otherwise ".prn".
  std::string extension() const;
  // PostScript that does not begin the data: behind Ctrl-D, the "universal exit language" of printers, lines of PJL,
  // blanks and line ends, as drivers of printer makers send it. Looked for within the first kHeadBytes.
  bool isWrappedPostScript() const;
  bool isPdf() const { return beginsWith("%PDF-"); }
  // Whether the end of a PDF has arrived: its end mark stands within the last 1024 bytes.
  bool hasPdfEnd() const;

  static constexpr std::size_t kTailBytes = 1024;
  // More would cost as much as the rest of a large job's way to the disk.
  static constexpr std::size_t kHeadBytes = 4096;

 private:
  bool beginsWith(std::string_view text) const;

  std::string m_head;  // at most kHeadBytes
  std::string m_tail;  // at most twice kTailBytes
  std::uint64_t m_size = 0;
  bool m_isText = true;
};

}  // namespace printclient
