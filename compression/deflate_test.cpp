#include "compression/deflate.h"

#include "corvane/base/limits.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

#include <gtest/gtest.h>
#include <random>

namespace {

using Bytes = std::vector<unsigned char>;

Bytes text(int line) {
  const std::string words = "line " + std::to_string(line) + " of a letter to somebody who is away for a while\n";
  Bytes bytes;
  while (bytes.size() < 8000)
    bytes.insert(bytes.end(), words.begin(), words.end());
  return bytes;
}

Bytes noise(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (auto& byte : bytes)
    byte = static_cast<unsigned char>(random());
  return bytes;
}

class DeflateTest : public ::testing::Test {
 protected:
  int failureOf(const Bytes& bytes, bool beginsAnew) {
    try {
      Bytes into;
      m_unpacker->unpack(bytes, beginsAnew, into);
      return 0;
    } catch (const CS_Exception& exception) {
      m_detail = exception.detail();
      return exception.number();
    }
  }

  std::unique_ptr<corvane::Packer> m_packer = compression::deflate().makePacker();
  std::unique_ptr<corvane::Unpacker> m_unpacker = compression::deflate().makeUnpacker();
  Bytes m_packed, m_back;
  std::wstring m_detail;
};

TEST_F(DeflateTest, IsCalledDeflateInTheHandshake) {
  EXPECT_EQ(compression::deflate().name(), L"deflate");
}

TEST_F(DeflateTest, EachPieceCanBeUnpackedWhenItHasComeAndUsesThoseBeforeIt) {
  ASSERT_TRUE(m_packer->pack(text(1), true, m_packed));
  const std::size_t first = m_packed.size();
  EXPECT_LT(first, 300u);
  m_unpacker->unpack(m_packed, true, m_back);
  EXPECT_EQ(m_back, text(1));
  ASSERT_TRUE(m_packer->pack(text(2), false, m_packed));
  EXPECT_LT(m_packed.size(), first);
  m_unpacker->unpack(m_packed, false, m_back);
  EXPECT_EQ(m_back, text(2));
}

TEST_F(DeflateTest, WhatStood30000BytesBeforeIsUsedToo) {
  Bytes twice = noise(30000, 4);
  twice.reserve(2 * twice.size());
  twice.insert(twice.end(), twice.begin(), twice.end());
  ASSERT_TRUE(m_packer->pack(twice, true, m_packed));
  EXPECT_LT(m_packed.size(), 31000u);
  m_unpacker->unpack(m_packed, true, m_back);
  EXPECT_EQ(m_back, twice);
}

TEST_F(DeflateTest, WhatBeginsAnewNeedsNothingOfWhatCameBefore) {
  ASSERT_TRUE(m_packer->pack(text(1), true, m_packed));
  ASSERT_TRUE(m_packer->pack(text(2), true, m_packed));
  m_unpacker->unpack(m_packed, true, m_back);
  EXPECT_EQ(m_back, text(2));
  Bytes alone;
  ASSERT_TRUE(compression::deflate().makePacker()->pack(text(2), true, alone));
  EXPECT_EQ(m_packed, alone);
}

TEST_F(DeflateTest, WhatDoesNotBecomeShorterIsNotPackedAndTheNextPieceIs) {
  EXPECT_FALSE(m_packer->pack(noise(20000, 1), true, m_packed));
  ASSERT_TRUE(m_packer->pack(text(1), true, m_packed));
  m_unpacker->unpack(m_packed, true, m_back);
  EXPECT_EQ(m_back, text(1));
}

TEST_F(DeflateTest, BytesThatWereNotPackedAreRefused) {
  EXPECT_EQ(failureOf(noise(500, 2), true), corvane::kProtocolViolation);
  ASSERT_TRUE(m_packer->pack(text(1), true, m_packed));
  Bytes longer = m_packed;
  longer.back() = 0x77;
  EXPECT_EQ(failureOf(longer, true), corvane::kProtocolViolation);
  EXPECT_EQ(failureOf(m_packed, true), 0);
}

TEST_F(DeflateTest, APieceBecomesOnlySoMuch) {
  ASSERT_TRUE(m_packer->pack(Bytes(corvane::kMaxUnpackedPiece, 'a'), true, m_packed));
  m_unpacker->unpack(m_packed, true, m_back);
  EXPECT_EQ(m_back, Bytes(corvane::kMaxUnpackedPiece, 'a'));
  for (const std::size_t more : {corvane::kMaxUnpackedPiece + 1, 100 * corvane::kMaxUnpackedPiece}) {
    ASSERT_TRUE(m_packer->pack(Bytes(more, 'a'), true, m_packed));
    EXPECT_EQ(failureOf(m_packed, true), corvane::kLimitExceeded);
    EXPECT_EQ(m_detail, L"a packed frame becomes more than 131072 bytes");
  }
}

}  // namespace
