#include "corvane/trust/key.h"

#include <gtest/gtest.h>
#include <numeric>
#include <string>
#include <vector>

namespace corvane {
namespace {

std::wstring digestOf(const std::vector<unsigned char>& key, const std::string& text) {
  const std::vector<unsigned char> message(text.begin(), text.end());
  return toHex(hmacSha256(key, message));
}

std::vector<unsigned char> filled(std::size_t size, unsigned char byte) {
  return std::vector<unsigned char>(size, byte);
}

// The test cases of RFC 4231; its fifth one is about a shortened result.
TEST(Crypto, MakesThePublishedDigests) {
  EXPECT_EQ(digestOf(filled(20, 0x0b), "Hi There"),
            L"b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
  EXPECT_EQ(digestOf({'J', 'e', 'f', 'e'}, "what do ya want for nothing?"),
            L"5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
  EXPECT_EQ(digestOf(filled(20, 0xaa), std::string(50, '\xdd')),
            L"773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe");
  std::vector<unsigned char> counted(25);
  std::iota(counted.begin(), counted.end(), static_cast<unsigned char>(1));
  EXPECT_EQ(digestOf(counted, std::string(50, '\xcd')),
            L"82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b");
  EXPECT_EQ(digestOf(filled(131, 0xaa), "Test Using Larger Than Block-Size Key - Hash Key First"),
            L"60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54");
  EXPECT_EQ(digestOf(filled(131, 0xaa),
                     "This is a test using a larger than block-size key and a larger than block-size data. The key "
                     "needs to be hashed before being used by the HMAC algorithm."),
            L"9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2");
}

TEST(Crypto, GivesOtherRandomBytesEachTime) {
  Bytes32 one{};
  Bytes32 other{};
  fillWithRandom(one);
  fillWithRandom(other);
  EXPECT_NE(one, other);
  EXPECT_NE(one, Bytes32());
}

TEST(Crypto, GivesAnyNumberOfRandomBytes) {
  for (const std::size_t size : {1, 255, 256, 257, 100000}) {
    std::vector<unsigned char> bytes(size);
    fillWithRandom(bytes);
    for (std::size_t at = 0; at + 64 <= size; at += 64) {
      const std::vector<unsigned char> zeros(64);
      EXPECT_FALSE(std::equal(zeros.begin(), zeros.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at))) << at;
    }
  }
}

TEST(Crypto, SeesADifferenceInEveryBit) {
  const Bytes32 zeros{};
  EXPECT_TRUE(equalInConstantTime(zeros, Bytes32()));
  for (std::size_t bit = 0; bit < 256; ++bit) {
    Bytes32 other{};
    other[bit / 8] = static_cast<unsigned char>(1u << (bit % 8));
    EXPECT_FALSE(equalInConstantTime(zeros, other)) << bit;
  }
}

TEST(Crypto, WipesASecret) {
  Bytes32 secret;
  secret.fill(7);
  wipe(secret);
  EXPECT_EQ(secret, Bytes32());
}

TEST(Hex, IsReadInBothCasesAndWrittenInSmallLetters) {
  Bytes32 bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<unsigned char>(17 * i);
  const std::wstring text = L"00112233445566778899aabbccddeeff102132435465768798a9bacbdcedfe0f";
  EXPECT_EQ(toHex(bytes), text);
  EXPECT_EQ(fromHex(text), bytes);
  EXPECT_EQ(fromHex(L"00112233445566778899AABBCCDDEEFF102132435465768798A9BACBDCEDFE0F"), bytes);
}

TEST(Hex, IsNothingElse) {
  const std::wstring text(64, L'a');
  ASSERT_TRUE(fromHex(text));
  EXPECT_FALSE(fromHex(L""));
  EXPECT_FALSE(fromHex(text.substr(1)));
  EXPECT_FALSE(fromHex(text + L"a"));
  for (const wchar_t c : {L'g', L'/', L':', L'@', L'`', L'G', L' ', L'\0', L'\x161', L'\xff11'}) {
    std::wstring wrong = text;
    wrong[63] = c;
    EXPECT_FALSE(fromHex(wrong)) << static_cast<int>(c);
    wrong = text;
    wrong[0] = c;
    EXPECT_FALSE(fromHex(wrong)) << static_cast<int>(c);
  }
}

}  // namespace
}  // namespace corvane
