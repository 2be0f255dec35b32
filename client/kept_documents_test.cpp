#include "client/kept_documents.h"

#include "client/job_file.h"
#include "programs/text.h"
#include "tests/support/client/page_fixture.h"

#include <fstream>
#include <gmock/gmock.h>
#include <iterator>

namespace printclient {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::EndsWith;

class KeptDocumentsTest : public PageFixture {
 protected:
  KeptDocuments documents(const KeptDocuments::Bounds& bounds) {
    return {m_folder / "kept", bounds, [this](std::uint64_t number) { m_gone.push_back(number); }};
  }
  bool keep(KeptDocuments& documents, std::uint64_t number, const std::string& data) {
    JobFile file(m_folder / "out", temporaryNameFor("test"));
    file.append(bytes(data));
    const JobOrigin origin;
    const protocol::JobStart letter = ticket(L"letter");
    return documents.keep({number, origin, letter, file, data.size(), ".txt"});
  }
  static std::string read(const KeptDocument& document) {
    std::ifstream in(document.path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  // What lies in the folder beside the marks of processes.
  std::vector<std::string> names() const {
    std::vector<std::string> all;
    for (const auto& entry : fs::directory_iterator(m_folder / "kept")) {
      const std::string name = programs::fromPath(entry.path().filename());
      if (!isTemporaryNameFor("kept", name)) all.push_back(name);
    }
    std::sort(all.begin(), all.end());
    return all;
  }

  std::vector<std::uint64_t> m_gone;
};

TEST_F(KeptDocumentsTest, KeepACopyForThisUserAloneThatGoesWithTheObject) {
  {
    KeptDocuments kept = documents({});
    EXPECT_TRUE(keep(kept, 1, std::string(1000000, 'x')));
    const auto document = kept.find(1);
    ASSERT_NE(document, nullptr);
    EXPECT_EQ(read(*document), std::string(1000000, 'x'));
    EXPECT_EQ(document->size, 1000000u);
    EXPECT_EQ(document->ticket.documentName, L"letter");
#ifndef _WIN32
    EXPECT_EQ(fs::status(document->path).permissions(), fs::perms::owner_read | fs::perms::owner_write);
#endif
    EXPECT_EQ(kept.find(2), nullptr);
    EXPECT_EQ(names().size(), 1u);
  }
  EXPECT_EQ(names().size(), 0u);
  EXPECT_EQ(filesIn("out"), 0u);
}

TEST_F(KeptDocumentsTest, TheOldestGoesWhenThereAreTooManyOrTooMuch) {
  KeptDocuments kept = documents({3, 100, std::chrono::hours(1)});
  for (std::uint64_t number = 1; number <= 4; ++number)
    EXPECT_TRUE(keep(kept, number, std::string(10, 'x')));
  EXPECT_THAT(m_gone, ElementsAre(1));
  EXPECT_TRUE(keep(kept, 5, std::string(80, 'x')));
  EXPECT_THAT(m_gone, ElementsAre(1, 2));
  EXPECT_TRUE(keep(kept, 6, std::string(100, 'x')));
  EXPECT_THAT(m_gone, ElementsAre(1, 2, 3, 4, 5));
  EXPECT_EQ(names().size(), 1u);
}

TEST_F(KeptDocumentsTest, WhatIsLargerThanAllTogetherMayBeIsNotKeptAndDrivesNothingOut) {
  KeptDocuments kept = documents({3, 100, std::chrono::hours(1)});
  EXPECT_TRUE(keep(kept, 1, "x"));
  EXPECT_FALSE(keep(kept, 2, std::string(101, 'x')));
  EXPECT_NE(kept.find(1), nullptr);
  KeptDocuments none = documents({0, 100, std::chrono::hours(1)});
  EXPECT_FALSE(keep(none, 3, "x"));
  EXPECT_EQ(names().size(), 1u);
}

TEST_F(KeptDocumentsTest, ALongDocumentIsNotKeptThoughThereWouldBeRoomForIt) {
  KeptDocuments::Bounds bounds{3, 100, std::chrono::hours(1)};
  EXPECT_EQ(bounds.largest, 16u * 1024 * 1024);
  bounds.largest = 20;
  KeptDocuments kept = documents(bounds);
  EXPECT_TRUE(keep(kept, 1, std::string(20, 'x')));
  EXPECT_FALSE(keep(kept, 2, std::string(21, 'x')));
  EXPECT_NE(kept.find(1), nullptr);
  EXPECT_EQ(kept.find(2), nullptr);
  EXPECT_EQ(names().size(), 1u);
}

TEST_F(KeptDocumentsTest, WhatIsTooOldGoes) {
  KeptDocuments kept = documents({3, 100, std::chrono::minutes(10)});
  keep(kept, 1, "x");
  const auto now = KeptDocuments::Clock::now();
  kept.dropOld(now + std::chrono::minutes(9));
  EXPECT_NE(kept.find(1), nullptr);
  kept.dropOld(now + std::chrono::minutes(11));
  EXPECT_EQ(kept.find(1), nullptr);
  EXPECT_THAT(m_gone, ElementsAre(1));
}

TEST_F(KeptDocumentsTest, ADocumentThatIsInUseStaysUntilItIsNot) {
  KeptDocuments kept = documents({1, 100, std::chrono::hours(1)});
  keep(kept, 1, "first");
  auto document = kept.find(1);
  keep(kept, 2, "second");
  EXPECT_EQ(read(*document), "first");
  EXPECT_EQ(names().size(), 2u);
  document.reset();
  EXPECT_EQ(names().size(), 1u);
}

TEST_F(KeptDocumentsTest, WithoutAFolderThereCanBeNone) {
  EXPECT_THROW(KeptDocuments(m_folder / "nowhere", {}, [](std::uint64_t) {}), std::system_error);
}

TEST_F(KeptDocumentsTest, WhatAKilledProcessLeftIsRemovedAndWhatIsInUseIsNot) {
  KeptDocuments kept = documents({});
  keep(kept, 1, "mine");
  const std::string killed = temporaryNameFor("kept"), gone = temporaryNameFor("kept");
  for (const std::string& name : {killed, killed + "-document-1.pdf", gone + "-document-2.pdf", std::string("own.pdf")})
    std::ofstream(m_folder / "kept" / name) << "left";
  removeLeftoversIn(m_folder / "kept");
  EXPECT_EQ(read(*kept.find(1)), "mine");
  const KeptDocuments next = documents({});
  EXPECT_EQ(read(*kept.find(1)), "mine");
  EXPECT_THAT(names(), ElementsAre(EndsWith("-document-1.txt"), "own.pdf"));
}

}  // namespace
}  // namespace printclient
