#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/value_reader.h"
#include "corvane/wire/value_writer.h"

#include <climits>
#include <gtest/gtest.h>

namespace {

using namespace corvane;

std::vector<unsigned char> bytesOf(const ValueWriter& writer) {
  std::vector<unsigned char> bytes;
  writer.forEachPiece([&](ValueWriter::Piece piece) { bytes.insert(bytes.end(), piece.begin(), piece.end()); });
  return bytes;
}

// Hands the bytes out in pieces of the given size, as frames would.
class SlicedSource : public FrameSource {
 public:
  SlicedSource(std::vector<unsigned char> bytes, std::size_t size) : m_bytes(std::move(bytes)), m_size(size) {}
  bool next(std::span<const unsigned char>& payload) override {
    if (m_at >= m_bytes.size()) return false;
    payload = std::span(m_bytes).subspan(m_at, std::min(m_size, m_bytes.size() - m_at));
    m_at += payload.size();
    return true;
  }

 private:
  std::vector<unsigned char> m_bytes;
  std::size_t m_size;
  std::size_t m_at = 0;
};

ValueReader readerOf(const ValueWriter& writer, std::size_t slice = SIZE_MAX) {
  return ValueReader(std::make_unique<SlicedSource>(bytesOf(writer), slice));
}

template <class Action>
std::pair<int, std::wstring> failureOf(Action&& action) {
  try {
    action();
  } catch (const CS_Exception& exception) {
    return {exception.number(), exception.detail()};
  }
  return {0, L"nothing was thrown"};
}

TEST(Values, HaveTheirBytesOnTheWire) {
  ValueWriter writer;
  writer.writeInt(-2);
  writer.writeBoolean(true);
  writer.writeText(L"A\u20AC");
  const unsigned char data[] = {9, 8};
  writer.writeBytes(data, 2);
  const std::vector<unsigned char> expected = {'i',  0xFE, 0xFF, 0xFF, 0xFF, 'b', 1, 't', 2, 0, 0, 0,
                                               0x41, 0,    0xAC, 0x20, 'd',  2,   0, 0,   0, 9, 8};
  EXPECT_EQ(expected, bytesOf(writer));
  EXPECT_EQ(expected.size(), writer.size());
}

TEST(Values, AreReadBackAcrossEveryBorderOfFrames) {
  const std::vector<unsigned char> block(1000, 7);
  ValueWriter writer;
  writer.writeInt(INT_MIN);
  writer.writeText(std::wstring(300, L'\u00e4').c_str());
  writer.writeBytes(block.data(), 1000);
  writer.writeBoolean(false);
  for (const std::size_t slice : {1, 2, 3, 7, 64, 1000, 100000}) {
    ValueReader reader = readerOf(writer, slice);
    EXPECT_EQ(INT_MIN, reader.readInt());
    EXPECT_EQ(std::wstring(300, L'\u00e4'), reader.readText());
    std::size_t total = 0;
    for (auto piece = reader.readPiece(); !piece.empty(); piece = reader.readPiece())
      total += piece.size();
    EXPECT_EQ(1000u, total);
    EXPECT_FALSE(reader.readBoolean());
    EXPECT_TRUE(reader.atEnd());
  }
}

TEST(Values, RefuseToBeReadAsAnotherType) {
  ValueWriter writer;
  writer.writeInt(1);
  EXPECT_EQ(std::make_pair(kWrongValueType, std::wstring(L"read a text where an integer stands")),
            failureOf([&] { readerOf(writer).readText(); }));
  EXPECT_EQ(std::make_pair(kWrongValueType, std::wstring(L"read a boolean where an integer stands")),
            failureOf([&] { readerOf(writer).readBoolean(); }));
  EXPECT_EQ(std::make_pair(kWrongValueType, std::wstring(L"read a block of bytes where an integer stands")),
            failureOf([&] { readerOf(writer).readPiece(); }));
}

TEST(Values, RefuseToBeReadPastTheEnd) {
  EXPECT_EQ(std::make_pair(kWrongValueType, std::wstring(L"read past the end of the request")),
            failureOf([] { readerOf(ValueWriter()).readInt(); }));
  EXPECT_EQ(kWrongValueType, failureOf([] { ValueReader().readInt(); }).first);
  EXPECT_EQ(std::make_pair(kWrongValueType, std::wstring(L"a block of bytes ends early")), failureOf([] {
              ValueReader reader(std::vector<unsigned char>{'d', 5, 0, 0, 0, 1});
              EXPECT_EQ(1u, reader.readPiece().size());
              reader.readPiece();
            }));
}

TEST(Values, RefuseTextsPastTheirLimitOnBothSides) {
  ValueWriter writer;
  writer.writeText(std::wstring(kMaxTextUnits, L'x').c_str());
  EXPECT_EQ(kMaxTextUnits, readerOf(writer).readText().size());
  EXPECT_EQ(kLimitExceeded,
            failureOf([] { ValueWriter().writeText(std::wstring(kMaxTextUnits + 1, L'x').c_str()); }).first);
  EXPECT_EQ(kLimitExceeded, failureOf([] {
                              ValueReader(std::vector<unsigned char>{'t', 0, 0x80, 0, 0}).readText();
                            }).first);
}

TEST(Values, DoNotCopyBlocksOfBytes) {
  const std::vector<unsigned char> block(100000, 1);
  ValueWriter writer;
  writer.writeBytes(block.data(), 100000);
  bool referred = false;
  writer.forEachPiece([&](ValueWriter::Piece piece) { referred = referred || piece.data() == block.data(); });
  EXPECT_TRUE(referred);
}

TEST(Values, RefuseANegativeLengthOrAMissingBlock) {
  const unsigned char byte = 0;
  EXPECT_EQ(kBadArgument, failureOf([&] { ValueWriter().writeBytes(&byte, -1); }).first);
  EXPECT_EQ(kBadArgument, failureOf([&] { ValueWriter().writeBytes(nullptr, 1); }).first);
}

TEST(Values, SkippingTheRestTakesInEveryFrame) {
  const std::vector<unsigned char> block(50, 1);
  ValueWriter writer;
  writer.writeBytes(block.data(), 50);
  ValueReader reader = readerOf(writer, 4);
  reader.readPiece();
  reader.skipRest();
  EXPECT_TRUE(reader.atEnd());
}

}  // namespace
