#pragma once

#include <string>

class CS_Exception;

namespace programs {

// What a framework exception says, as UTF-8 text on one line: the message of its number, then its detail.
std::string describe(const CS_Exception& failure);

}  // namespace programs
