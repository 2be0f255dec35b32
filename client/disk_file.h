#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>

namespace printclient {

// A new file while it is being written under a temporary name. Until it gets its final one it belongs to this object:
// it is marked as in use, so that no other process takes it for one that was left behind, and it goes with the object.
// Somebody else may move or replace what lies under its name meanwhile; that is neither kept nor removed. Used by one
// thread. Operations throw std::system_error with the system's own words when they fail, and std::runtime_error when
// somebody else has worked on the file.
class DiskFile {
 public:
  // Creates the file, for this user only; fails when something of that name exists.
  explicit DiskFile(const std::filesystem::path& path);
  ~DiskFile();
  DiskFile(const DiskFile&) = delete;
  DiskFile& operator=(const DiskFile&) = delete;

  using Part = std::span<const unsigned char>;
  // A write that the system takes only in part is continued until all is taken or it fails. Several parts go one behind
  // the other, in one call of the system where it has one for that.
  void write(std::span<const Part> parts);
  void write(Part bytes) { write(std::span(&bytes, 1)); }
  // Gives all that was written so far, piece by piece; before the file has another name. Fails when the temporary name
  // does not lead to this file any more, or it cannot be read.
  void readBack(const std::function<void(std::span<const unsigned char>)>& take) const;
  // Returns when the data are on the disk.
  void sync();
  // Gives the file another name in the same folder, and returns when that is on the disk. False when the new name is
  // taken; nothing is ever overwritten. Fails when the temporary name does not lead to this file any more, or to a
  // link, or when the file has another size than was written.
  bool renameTo(const std::filesystem::path& to);
  // Lets other programs read the whole file under another name in the same folder. It stays a temporary one: in use as
  // long as this object lives, and gone with it. Nothing more is written. Fails as renameTo() does, and when the name
  // is taken.
  void shareAs(const std::filesystem::path& to);
  // The file stays as it is, under its temporary name, when the object goes; nothing is known of it then.
  void leave() { m_isLeft = true; }

 private:
  std::intptr_t m_handle;
  std::filesystem::path m_path;    // the temporary one; empty on Windows when the file has another
  std::filesystem::path m_shared;  // on Windows the name of a shared file, which has no other
  std::uint64_t m_size = 0;
  bool m_isLeft = false;
};

// Removes a temporary file that no process has in use any more, such as one of a process that was killed. False when it
// is in use or cannot be removed, or when there is no way to tell. Links and other things that are no files stay.
bool removeAbandoned(const std::filesystem::path& path) noexcept;

}  // namespace printclient
