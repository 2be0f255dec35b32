#pragma once

#include "corvane/trust/crypto.h"
#include "protocol/print_job.h"
#include "server/hold/private_file.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace aps {

// A job that is held for a print client that is away: whose it is, and how its delivery begins. A plain value.
struct HeldJob {
  std::wstring id;        // protocol::HeldJob::kIdDigits hexadecimal digits that no other job has
  int number = 0;         // in the records of jobs
  int session = 0;        // whose print client it is for
  std::wstring key;       // the mark of that session's key, 64 hexadecimal digits: who has another key never gets it
  std::wstring printer;   // its name on this server
  int process = 0;        // the spooler's
  std::wstring began;     // UTC as "2026-01-31T23:59:59Z"
  std::int64_t held = 0;  // when it was, in seconds since 1970
  std::int64_t bytes = 0;
  protocol::JobStart start;  // as it came

  static void layout(auto& self, auto& wire) {
    wire(self.id, self.number, self.session, self.key, self.printer, self.process, self.began, self.held, self.bytes,
         self.start);
  }
};

// What is wrong with the file of a held job, for a person.
class HeldFileDamage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The file of a held job while it is written: its data as they come, and behind them what the job is, with a checksum
// over both. Under its temporary name until it is whole; that goes with the object. Failures are those of PrivateFile.
// Used by one thread.
class HeldFileWriter {
 public:
  static constexpr std::size_t kPiece = 64 * 1024;  // of the data, that goes to the disk at once

  explicit HeldFileWriter(const std::filesystem::path& temporary);
  HeldFileWriter(const HeldFileWriter&) = delete;
  HeldFileWriter& operator=(const HeldFileWriter&) = delete;
  ~HeldFileWriter();

  void append(std::span<const unsigned char> bytes);
  // Returns when the file is on the disk under that name.
  void complete(const HeldJob& job, const std::filesystem::path& to);

 private:
  void flush();

  const std::filesystem::path m_temporary;
  std::optional<PrivateFile> m_file;
  std::vector<unsigned char> m_piece;
  corvane::Bytes32 m_checksum = {};
};

// Such a file while it is read. Throws HeldFileDamage for one that is not as it was written, and otherwise as
// PrivateFile does. Used by one thread.
class HeldFileReader {
 public:
  explicit HeldFileReader(const std::filesystem::path& path);

  const HeldJob& job() const { return m_job; }
  // The next piece of the data, valid until the next call; empty once behind the last one, when all of it was as it was
  // written.
  std::span<const unsigned char> next();

 private:
  void readJob();

  PrivateFile m_file;
  HeldJob m_job;
  std::uint64_t m_left = 0;  // bytes of data
  std::vector<unsigned char> m_piece;
  corvane::Bytes32 m_checksum = {};
  corvane::Bytes32 m_expected = {};  // of the data
};

}  // namespace aps
