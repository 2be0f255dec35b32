#include "compression/deflate.h"

#include "corvane/base/limits.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

#include <new>
#include <zlib.h>

namespace compression {
namespace {

constexpr int kRawWindow = -15;  // no header or checksum of zlib's own: what carries the data has better ones

// zlib takes its input as not const, and does not change it.
void give(z_stream& stream, std::span<const unsigned char> bytes) {
  stream.next_in = const_cast<unsigned char*>(bytes.data());
  stream.avail_in = static_cast<uInt>(bytes.size());
}

void takeInto(z_stream& stream, std::vector<unsigned char>& into) {
  stream.next_out = into.data();
  stream.avail_out = static_cast<uInt>(into.size());
}

class DeflatePacker final : public corvane::Packer {
 public:
  DeflatePacker() {
    constexpr int kMemory = 9;
    if (::deflateInit2(&m_stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kRawWindow, kMemory, Z_DEFAULT_STRATEGY) != Z_OK) {
      throw std::bad_alloc();
    }
  }
  ~DeflatePacker() override { ::deflateEnd(&m_stream); }
  DeflatePacker(const DeflatePacker&) = delete;
  DeflatePacker& operator=(const DeflatePacker&) = delete;

  bool pack(std::span<const unsigned char> bytes, bool beginsAnew, std::vector<unsigned char>& into) override {
    if (beginsAnew) ::deflateReset(&m_stream);
    into.resize(bytes.size());
    give(m_stream, bytes);
    takeInto(m_stream, into);
    // Room that is left says that all of it has come.
    const bool isWhole = ::deflate(&m_stream, Z_SYNC_FLUSH) == Z_OK && m_stream.avail_out > 0;
    into.resize(into.size() - m_stream.avail_out);
    return isWhole;
  }

 private:
  z_stream m_stream{};
};

class DeflateUnpacker final : public corvane::Unpacker {
 public:
  DeflateUnpacker() {
    if (::inflateInit2(&m_stream, kRawWindow) != Z_OK) throw std::bad_alloc();
  }
  ~DeflateUnpacker() override { ::inflateEnd(&m_stream); }
  DeflateUnpacker(const DeflateUnpacker&) = delete;
  DeflateUnpacker& operator=(const DeflateUnpacker&) = delete;

  void unpack(std::span<const unsigned char> bytes, bool beginsAnew, std::vector<unsigned char>& into) override {
    if (beginsAnew) ::inflateReset(&m_stream);
    into.resize(corvane::kMaxUnpackedPiece + 1);  // one that is filled has become too much
    give(m_stream, bytes);
    takeInto(m_stream, into);
    const int result = ::inflate(&m_stream, Z_SYNC_FLUSH);
    if (m_stream.avail_out == 0) {
      throw CS_Exception(corvane::kLimitExceeded, L"a packed frame becomes more than %u bytes",
                         static_cast<unsigned>(corvane::kMaxUnpackedPiece));
    }
    if ((result != Z_OK && result != Z_BUF_ERROR) || m_stream.avail_in != 0) {
      throw CS_Exception(corvane::kProtocolViolation, L"a packed frame cannot be unpacked");
    }
    into.resize(into.size() - m_stream.avail_out);
  }

 private:
  z_stream m_stream{};
};

class Deflate final : public corvane::Packing {
 public:
  std::wstring name() const override { return L"deflate"; }
  std::unique_ptr<corvane::Packer> makePacker() const override { return std::make_unique<DeflatePacker>(); }
  std::unique_ptr<corvane::Unpacker> makeUnpacker() const override { return std::make_unique<DeflateUnpacker>(); }
};

}  // namespace

const corvane::Packing& deflate() {
  static const Deflate kDeflate;
  return kDeflate;
}

}  // namespace compression
