#pragma once

#include <string>
#include <utility>
#include <vector>

// What became of one piece of work, for people and for programs that wait for it: a line to read, and the same facts as
// named values. A record tells of a failure inside an operation; a notice tells how the whole ended, whether well or
// not. A plain value; whoever holds it owns it.
struct CS_Notice {
  std::wstring kind;                                          // what it is about, such as "job"
  std::wstring line;                                          // one line for a person, without its end
  std::vector<std::pair<std::wstring, std::wstring>> values;  // name and value, at most kMaxValues

  static constexpr int kMaxValues = 32;
};
