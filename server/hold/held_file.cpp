#include "server/hold/held_file.h"

#include "corvane/records/exception.h"
#include "programs/text.h"
#include "protocol/values.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fmt/format.h>
#include <memory>

namespace aps {
namespace {

// At the end of each file: the length of the data, that of the job's description in front of this, the checksum of the
// data, that of both, and these words.
constexpr std::array<unsigned char, 16> kMagic = {'a', 'p', 's', ' ', 'h', 'e', 'l',  'd',
                                                  ' ', 'j', 'o', 'b', ' ', '1', '\r', '\n'};
constexpr std::size_t kFooter = 8 + 8 + 32 + 32 + kMagic.size();
constexpr std::uint64_t kMostDescription = 1024 * 1024;

// Goes on with a checksum: whoever changes a piece, or the order of two, gets another one.
corvane::Bytes32 continued(const corvane::Bytes32& checksum, std::span<const unsigned char> piece) {
  return corvane::hmacSha256(checksum, piece);
}

void putNumber(std::vector<unsigned char>& to, std::uint64_t number) {
  for (int shift = 0; shift < 64; shift += 8)
    to.push_back(static_cast<unsigned char>(number >> shift));
}

std::uint64_t numberAt(std::span<const unsigned char> from) {
  std::uint64_t number = 0;
  for (std::size_t i = 8; i-- > 0;)
    number = number << 8 | from[i];
  return number;
}

std::vector<unsigned char> descriptionOf(const HeldJob& job) {
  corvane::ValueWriter values;
  protocol::write(values, job);
  std::vector<unsigned char> bytes;
  values.forEachPiece(
      [&](std::span<const unsigned char> piece) { bytes.insert(bytes.end(), piece.begin(), piece.end()); });
  return bytes;
}

}  // namespace

HeldFileWriter::HeldFileWriter(const std::filesystem::path& temporary)
    : m_temporary(temporary), m_file(PrivateFile::create(temporary)) {}

HeldFileWriter::~HeldFileWriter() {
  m_file.reset();
  std::error_code ignored;
  std::filesystem::remove(m_temporary, ignored);  // not there any more when it is complete
}

void HeldFileWriter::append(std::span<const unsigned char> bytes) {
  while (!bytes.empty()) {
    const std::size_t count = std::min(bytes.size(), kPiece - m_piece.size());
    m_piece.insert(m_piece.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
    bytes = bytes.subspan(count);
    if (m_piece.size() == kPiece) flush();
  }
}

void HeldFileWriter::flush() {
  if (m_piece.empty()) return;
  m_file->write(m_piece);
  m_checksum = continued(m_checksum, m_piece);
  m_piece.clear();
}

void HeldFileWriter::complete(const HeldJob& job, const std::filesystem::path& to) {
  flush();
  std::vector<unsigned char> end = descriptionOf(job);
  const std::uint64_t length = end.size();
  const corvane::Bytes32 checksum = continued(m_checksum, end);
  putNumber(end, static_cast<std::uint64_t>(job.bytes));
  putNumber(end, length);
  end.insert(end.end(), m_checksum.begin(), m_checksum.end());
  end.insert(end.end(), checksum.begin(), checksum.end());
  end.insert(end.end(), kMagic.begin(), kMagic.end());
  m_file->write(end);
  m_file->sync();
  m_file.reset();
  moveDurably(m_temporary, to);
}

HeldFileReader::HeldFileReader(const std::filesystem::path& path) : m_file(PrivateFile::open(path)) {
  readJob();
}

void HeldFileReader::readJob() try {
  const std::uint64_t size = m_file.size();
  if (size < kFooter) throw HeldFileDamage("its end is missing");
  std::array<unsigned char, kFooter> footer{};
  m_file.seek(size - kFooter);
  const bool isRead = m_file.read(footer) == kFooter;
  if (!isRead || std::memcmp(&footer[kFooter - kMagic.size()], kMagic.data(), kMagic.size()) != 0) {
    throw HeldFileDamage("its end is not that of a held job");
  }
  m_left = numberAt(std::span(footer).subspan(0, 8));
  const std::uint64_t length = numberAt(std::span(footer).subspan(8, 8));
  std::copy_n(footer.begin() + 16, m_expected.size(), m_expected.begin());
  if (length > kMostDescription || length + kFooter > size || m_left != size - kFooter - length) {
    throw HeldFileDamage("its parts are not as long as they should be");
  }
  std::vector<unsigned char> description(static_cast<std::size_t>(length));
  m_file.seek(m_left);
  if (m_file.read(description) != description.size()) throw HeldFileDamage("it ends too early");
  corvane::Bytes32 expected;
  std::copy_n(footer.begin() + 48, expected.size(), expected.begin());
  if (continued(m_expected, description) != expected) throw HeldFileDamage("its checksum is wrong");
  corvane::ValueReader values(description);
  protocol::read(values, m_job);
  if (static_cast<std::uint64_t>(m_job.bytes) != m_left) throw HeldFileDamage("it says another length than it has");
  m_file.seek(0);
} catch (const CS_Exception& failure) {
  throw HeldFileDamage(fmt::format("what the job is cannot be read: {}", programs::describe(failure)));
}

std::span<const unsigned char> HeldFileReader::next() {
  m_piece.resize(static_cast<std::size_t>(std::min<std::uint64_t>(m_left, HeldFileWriter::kPiece)));
  if (m_piece.empty()) {
    if (m_checksum != m_expected) throw HeldFileDamage("its checksum is wrong");
    return {};
  }
  if (m_file.read(m_piece) != m_piece.size()) throw HeldFileDamage("it ends too early");
  m_checksum = continued(m_checksum, m_piece);
  m_left -= m_piece.size();
  return m_piece;
}

}  // namespace aps
