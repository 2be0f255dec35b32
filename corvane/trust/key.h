#pragma once

#include "corvane/trust/crypto.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace corvane {

// Nonces and proofs as they travel: 64 hexadecimal digits.
std::wstring toHex(const Bytes32& bytes);
// Nothing when the text is anything else; letters may be of either case.
std::optional<Bytes32> fromHex(std::wstring_view digits);

// Who a peer can be: the print monitor (with the administration tool), the print client of one session, or somebody who
// was invited to become that.
class Identity {
 public:
  enum class Kind { kMonitor, kSession, kInvitation };

  static Identity monitor() { return Identity(Kind::kMonitor, 0); }
  // The number is 1 or more.
  static Identity session(int number) { return Identity(Kind::kSession, number); }
  static Identity invitation(int number) { return Identity(Kind::kInvitation, number); }
  // "monitor", "session-5" or "invitation-5", exactly so: no other case, sign, space or leading zero. Nothing for any
  // other text, so that what a peer says never becomes part of a path.
  static std::optional<Identity> parse(std::wstring_view name);

  Kind kind() const { return m_kind; }
  bool isMonitor() const { return m_kind == Kind::kMonitor; }
  bool isSession() const { return m_kind == Kind::kSession; }
  // 0 for the monitor.
  int sessionNumber() const { return m_session; }
  // ASCII, the text that parse() takes.
  std::wstring name() const;

  friend bool operator==(const Identity&, const Identity&) = default;

 private:
  Identity(Kind kind, int session) : m_kind(kind), m_session(session) {}
  Kind m_kind;
  int m_session;
};

// A key that two processes share: 32 random bytes. They are overwritten when the object dies or is moved from. File
// names are UTF-8.
class Key {
 public:
  // The key in that file: 64 hexadecimal digits and at most one line end. On Linux the file must be readable by its
  // owner alone. Throws CS_Exception (3108) that says what is wrong; never blocks on anything but a plain file.
  static Key read(const std::string& file);
  // Makes the file with a fresh key, readable by its owner alone on Linux and with the access list of its folder on
  // Windows. An existing file is left as it is. Throws CS_Exception (3108).
  static void writeNew(const std::string& file);
  // The same with this key, in place of what the file held: whoever reads it gets the one or the other.
  void replace(const std::string& file) const;

  // One that nobody else has.
  static Key fresh();

  explicit Key(const Bytes32& bytes) : m_bytes(bytes) {}
  Key(Key&& other) noexcept : m_bytes(other.m_bytes) { wipe(other.m_bytes); }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  ~Key() { wipe(m_bytes); }

  const Bytes32& bytes() const { return m_bytes; }
  // Tells this key from every other one without giving it away.
  Bytes32 mark() const;

 private:
  Bytes32 m_bytes;
};

// The keys of all peers that a listening side knows, one file each: "monitor.key", "session-5.key". A file is read when
// a peer claims the identity, so that keys are added, changed and removed while the process runs. Safe from any
// thread.
class KeyFolder {
 public:
  explicit KeyFolder(std::string folder) : m_folder(std::move(folder)) {}

  // As Key::read().
  Key read(const Identity& identity) const;
  // Whether that identity still has the key of that mark, and it can be used.
  bool isStill(const Identity& identity, const Bytes32& mark) const;
  std::string file(const Identity& identity) const;
  const std::string& folder() const { return m_folder; }
  // Why no key of that folder can be trusted: it is no folder, or on Linux others than this account and root may put
  // files into it. Empty when it is in order.
  std::wstring refusal() const;

 private:
  const std::string m_folder;
};

}  // namespace corvane

// What the platforms do differently about key files; for key.cpp. Names are UTF-8. Failures are CS_Exceptions (3108).
namespace corvane {

// Reads as much of a plain file as the buffer takes and returns how much that was. Refuses a file that others may read,
// where the system has such modes.
std::size_t readKeyFile(const std::string& file, std::span<unsigned char> buffer);
// Makes a file that did not exist with that content, or leaves none. On Linux root makes it the folder's owner's.
void createKeyFile(const std::string& file, std::span<const unsigned char> content);
// See KeyFolder::refusal.
std::wstring keyFolderRefusal(const std::string& folder);

}  // namespace corvane
