#pragma once

#include <filesystem>
#include <string>
#include <sys/types.h>

namespace tests {

// A program in front of Ghostscript that holds the conversions of a session at a point of their life, and a document
// that has such points in it. Point 1 is before Ghostscript starts, 2 to 6 are before the document's pages, 7 is after
// the last page, 8 after Ghostscript has ended.
class GhostscriptGate {
 public:
  static constexpr int kPages = 5;

  explicit GhostscriptGate(const std::filesystem::path& folder);

  std::filesystem::path program() const { return m_folder / "gs"; }
  std::filesystem::path document() const { return m_folder / "document.ps"; }
  // Whether this is the whole document as PDF.
  static bool isWhole(const std::string& pdf);

  // The next conversions of the session are held at that point; at none with 0.
  void holdAt(int session, int point);
  // Waits until one is held there; returns the process that the converter takes for Ghostscript. Throws
  // std::runtime_error after a minute.
  pid_t waitUntilHeld(int session) const;
  // Lets it go on; it may have ended.
  void open(int session) const;

 private:
  std::filesystem::path folderOf(int session) const { return m_folder / ("session-" + std::to_string(session)); }

  const std::filesystem::path m_folder;
};

}  // namespace tests
