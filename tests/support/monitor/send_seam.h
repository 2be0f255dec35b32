#pragma once

#include <functional>

// The network's sends as this folder's tests see them. Set until the test's ImportSeams ends.
namespace send_seam {

// Called before each send, on the thread that makes it.
void watch(std::function<void()> action);
// Lets the nth send from now on find the connection reset.
void reset(int nth);

}  // namespace send_seam
