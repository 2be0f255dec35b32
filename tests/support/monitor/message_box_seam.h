#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

// The message boxes of this folder's tests: none is shown, and each is written down as "owner|text|title|type". Until
// the test's ImportSeams ends.
std::vector<std::wstring>& watchMessageBoxes();
// Called before each of them, until the same moment.
void whenBoxIsShown(std::function<void()> action);
