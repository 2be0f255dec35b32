#pragma once

#include <ctime>

// The few facts about this process and thread that logs need.
namespace corvane {

unsigned long processId();
unsigned long threadId();
std::tm localTime(std::time_t seconds);

}  // namespace corvane
