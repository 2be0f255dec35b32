#include "server/client_rates.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace aps {
namespace {

std::string refusalOf(const std::string& text) {
  try {
    ClientRates().add(text);
    return "";
  } catch (const std::invalid_argument& wrong) {
    return wrong.what();
  }
}

TEST(ClientRates, HoldForEachSessionOrForOne) {
  ClientRates rates;
  EXPECT_EQ(rates.of(5), 0u);
  rates.add("250KB");
  rates.add("5=1MB");
  EXPECT_EQ(rates.of(4), 250000u);
  EXPECT_EQ(rates.of(5), 1000000u);
  rates.add("5=16KiB");
  EXPECT_EQ(rates.of(5), 16384u);
}

TEST(ClientRates, RefuseWhatIsNoSession) {
  const std::string example = " does not begin with the number of a session; an example is 5=250KB";
  EXPECT_EQ(refusalOf("x=250KB"), "\"x=250KB\"" + example);
  EXPECT_EQ(refusalOf("0=250KB"), "\"0=250KB\"" + example);
  EXPECT_EQ(refusalOf("5x=250KB"), "\"5x=250KB\"" + example);
  EXPECT_EQ(refusalOf("=250KB"), "\"=250KB\"" + example);
  EXPECT_EQ(refusalOf("5="), "\"\" is not a rate; an example is 250KB, which are bytes a second");
}

}  // namespace
}  // namespace aps
