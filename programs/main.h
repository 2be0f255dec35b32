#pragma once

#include <string>
#include <vector>

// The program itself, called once on the main thread by the entry point of the platform. The arguments are UTF-8 text
// without the program's own name; the result is the exit code. An exception that leaves it is printed and ends the
// program with exit code 1.
int programMain(const std::vector<std::string>& arguments);
