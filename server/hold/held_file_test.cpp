#include "server/hold/held_file.h"

#include "tests/support/own_folder.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <string>

#ifndef _WIN32
#include <fcntl.h>
#include <unistd.h>
#endif

namespace aps {
namespace {

namespace fs = std::filesystem;

class HeldFileTest : public ::testing::Test {
 protected:
  static HeldJob job(std::size_t bytes) {
    HeldJob job;
    job.id = std::wstring(32, L'a');
    job.number = 7;
    job.session = 5;
    job.key = std::wstring(64, L'b');
    job.printer = L"Laser (session 5)";
    job.process = 77;
    job.began = L"2026-01-31T23:59:59Z";
    job.held = 1234567890123;
    job.bytes = static_cast<std::int64_t>(bytes);
    job.start.jobName = L"Laser - Job #17";
    job.start.printerName = L"Laser";
    // What is no text in any other form comes back as well.
    job.start.documentName = {L'L', static_cast<wchar_t>(0xD800), L'r'};
    job.start.settings = {1, 2, 3, 2};
    job.start.copies = 4;
    return job;
  }
  static std::span<const unsigned char> bytesOf(const std::string& text) {
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
  }
  void write(const std::string& data, std::size_t pieceSize = 1000) const {
    HeldFileWriter writer(m_temporary);
    for (std::size_t at = 0; at < data.size(); at += pieceSize)
      writer.append(bytesOf(data.substr(at, pieceSize)));
    writer.complete(job(data.size()), m_path);
  }
  // All data, or what is wrong.
  std::string read() const {
    try {
      HeldFileReader reader(m_path);
      std::string data;
      for (auto piece = reader.next(); !piece.empty(); piece = reader.next())
        data.append(piece.begin(), piece.end());
      return data;
    } catch (const std::exception& failure) {
      return failure.what();
    }
  }
  void change(std::uintmax_t at) const {
    std::fstream file(m_path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekg(static_cast<std::streamoff>(at));
    const int byte = file.get();
    file.seekp(static_cast<std::streamoff>(at));
    file.put(static_cast<char>(byte ^ 1));
  }

  const OwnFolder m_folder{"held_file"};
  const fs::path m_path = m_folder.path() / "1.job", m_temporary = m_folder.path() / "1.part";
};

TEST_F(HeldFileTest, WhatWasWrittenInAnyPiecesIsReadAgain) {
  for (const std::size_t size : {0, 1, 65535, 65536, 65537, 300000}) {
    for (const std::size_t piece : {7, 1000, 65536, 100000}) {
      std::string data(size, 'x');
      for (std::size_t i = 0; i < size; ++i)
        data[i] = static_cast<char>(i * 31 + i / 251);
      write(data, piece);
      EXPECT_EQ(read() == data, true) << size << " in pieces of " << piece;
      EXPECT_FALSE(fs::exists(m_temporary));
    }
  }
}

TEST_F(HeldFileTest, TheJobIsReadAsItWas) {
  write("hello");
  const HeldJob read = HeldFileReader(m_path).job(), expected = job(5);
  EXPECT_EQ(read.id, expected.id);
  EXPECT_EQ(read.number, expected.number);
  EXPECT_EQ(read.session, expected.session);
  EXPECT_EQ(read.key, expected.key);
  EXPECT_EQ(read.printer, expected.printer);
  EXPECT_EQ(read.process, expected.process);
  EXPECT_EQ(read.began, expected.began);
  EXPECT_EQ(read.held, expected.held);
  EXPECT_EQ(read.bytes, 5);
  EXPECT_EQ(read.start.jobName, expected.start.jobName);
  EXPECT_EQ(read.start.printerName, expected.start.printerName);
  EXPECT_EQ(read.start.documentName, expected.start.documentName);
  EXPECT_EQ(read.start.settings, expected.start.settings);
  EXPECT_EQ(read.start.copies, expected.start.copies);
}

// What one version has held another one delivers.
TEST_F(HeldFileTest, ItsFormIsAlwaysTheSame) {
  write("hello");
  std::ifstream file(m_path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  const std::string job =
      "742000000061006100610061006100610061006100610061006100610061006100610061006100610061006100610061"
      "006100610061006100610061006100610061006100690700000069050000007440000000620062006200620062006200"
      "620062006200620062006200620062006200620062006200620062006200620062006200620062006200620062006200"
      "620062006200620062006200620062006200620062006200620062006200620062006200620062006200620062006200"
      "620062006200620062006200620062006200620074110000004c00610073006500720020002800730065007300730069"
      "006f006e00200035002900694d000000741400000032003000320036002d00300031002d00330031005400320033003a"
      "00350039003a00350039005a0069cb04fb71691f010000690500000069000000006201740f0000004c00610073006500"
      "720020002d0020004a006f0062002000230031003700620174050000004c006100730065007200620174030000004c00"
      "00d87200620069010000006902000000690300000069020000006904000000";
  const std::string lengths =
      "0500000000000000"
      "9f01000000000000";
  const std::string checksums =
      "4352b26e33fe0d769a8922a6ba29004109f01688e26acc9e6cb347e5a5afc4da"
      "c50d403d245a84ea425234518ca6524c1bf0c4a214cf8df7234ca704503aa51d";
  const auto hexadecimal = [](const std::string& text) { return fmt::format("{:02x}", fmt::join(bytesOf(text), "")); };
  EXPECT_EQ(hexadecimal(bytes), hexadecimal("hello") + job + lengths + checksums + hexadecimal("aps held job 1\r\n"));
}

TEST_F(HeldFileTest, WithoutItsEndNothingOfItStays) {
  {
    HeldFileWriter writer(m_temporary);
    writer.append(bytesOf(std::string(100000, 'x')));
    EXPECT_TRUE(fs::exists(m_temporary));
  }
  EXPECT_FALSE(fs::exists(m_temporary));
  EXPECT_FALSE(fs::exists(m_path));
}

TEST_F(HeldFileTest, AnyByteThatIsAnotherIsNoticed) {
  const std::string data = "hello, world";
  write(data);
  const std::uintmax_t size = fs::file_size(m_path);
  for (std::uintmax_t at = 0; at < size; ++at) {
    write(data);
    change(at);
    EXPECT_THAT(read(), ::testing::AnyOf("its checksum is wrong", "its end is not that of a held job",
                                         "its parts are not as long as they should be"))
        << at;
  }
}

TEST_F(HeldFileTest, AFileThatWasCutAnywhereIsNoticed) {
  write("hello, world");
  for (std::uintmax_t size = fs::file_size(m_path); size-- > 0;) {
    fs::resize_file(m_path, size);
    EXPECT_THAT(read(), ::testing::AnyOf("its end is missing", "its end is not that of a held job")) << size;
  }
}

TEST_F(HeldFileTest, TwoPiecesInAnotherOrderAreNoticed) {
  const std::string one(65536, '1'), two(65536, '2');
  write(one + two);
  std::fstream file(m_path, std::ios::in | std::ios::out | std::ios::binary);
  file << two << one;
  file.close();
  EXPECT_EQ(read(), "its checksum is wrong");
}

#ifndef _WIN32
// Then the first file that is opened has its number.
TEST_F(HeldFileTest, AProcessWithoutAStandardInputHasFilesAllTheSame) {
  const int input = ::dup(0);
  ::close(0);
  write("hello");
  const std::string found = read();
  const bool isFreeAgain = ::fcntl(0, F_GETFD) == -1;
  if (input >= 0) {
    ::dup2(input, 0);
    ::close(input);
  }
  EXPECT_EQ(found, "hello");
  EXPECT_TRUE(isFreeAgain);
}

TEST_F(HeldFileTest, ALinkIsNotRead) {
  write("hello");
  fs::rename(m_path, m_temporary);
  fs::create_symlink(m_temporary, m_path);
  EXPECT_THAT(read(), ::testing::HasSubstr("it cannot be opened"));
}
#endif

}  // namespace
}  // namespace aps
