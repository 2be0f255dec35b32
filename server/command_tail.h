#pragma once

#include <string>

namespace aps {

// What follows the program in a Windows command line. The port monitor sends a program's arguments as one quoted word,
// as for a program that starts another one: "/PT \"a.txt\" \"Laser\"" stands for /PT "a.txt" "Laser". Such a word is
// opened; every other text is the command line already and comes back as it is.
std::wstring commandTail(const std::wstring& arguments);

}  // namespace aps
