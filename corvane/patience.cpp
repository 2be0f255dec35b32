#include "corvane/patience.h"

namespace corvane {

std::wstring durationText(std::chrono::milliseconds time) {
  if (time.count() % 1000 != 0) return std::to_wstring(time.count()) + L" ms";
  const auto seconds = time.count() / 1000;
  return std::to_wstring(seconds) + (seconds == 1 ? L" second" : L" seconds");
}

}  // namespace corvane
