#pragma once

namespace aps {

// Does what nothing depends on, such as words for a line: without memory for it, it is left out.
template <class Do>
void ifPossible(const Do& action) noexcept {
  try {
    action();
  } catch (...) {
    // There was none.
  }
}

}  // namespace aps
