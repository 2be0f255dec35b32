#include "server/jobs/database.h"

#include <gtest/gtest.h>
#include <new>

namespace aps {
namespace {

class DatabaseTest : public testing::Test {
 protected:
  DatabaseTest() { m_database.run("CREATE TABLE numbers(number INTEGER)"); }
  void insert(const char* number) {
    m_database.run((std::string("INSERT INTO numbers VALUES(") + number + ")").c_str());
  }
  std::int64_t sum() { return m_database.number("SELECT coalesce(sum(number), 0) FROM numbers"); }

  Database m_database{{}};
};

TEST_F(DatabaseTest, ATransactionIsAllOfItsWork) {
  m_database.inTransaction([&] {
    insert("1");
    insert("2");
  });
  EXPECT_EQ(sum(), 3);
}

TEST_F(DatabaseTest, WorkThatThrowsIsTakenBackWhateverItThrowsAndTheNextOneGoesOn) {
  const auto failing = [&](const auto& thrown) {
    return [&] {
      insert("1");
      throw thrown;
    };
  };
  EXPECT_THROW(m_database.inTransaction(failing(std::bad_alloc())), std::bad_alloc);
  EXPECT_THROW(m_database.inTransaction(failing(DatabaseFailure("no", false))), DatabaseFailure);
  EXPECT_THROW(m_database.inTransaction(failing(17)), int);
  EXPECT_EQ(sum(), 0);
  m_database.inTransaction([&] { insert("4"); });
  EXPECT_EQ(sum(), 4);
}

TEST_F(DatabaseTest, WhatSqliteHasTakenBackItselfIsNoFurtherFailure) {
  EXPECT_THROW(m_database.inTransaction([&] {
    insert("1");
    m_database.run("ROLLBACK");
    throw std::bad_alloc();
  }),
               std::bad_alloc);
  EXPECT_EQ(sum(), 0);
}

TEST_F(DatabaseTest, ATransactionThatWasLeftOpenIsTakenBackBeforeTheNextOne) {
  m_database.run("BEGIN");
  insert("1");
  m_database.inTransaction([&] { insert("2"); });
  EXPECT_EQ(sum(), 2);
}

}  // namespace
}  // namespace aps
