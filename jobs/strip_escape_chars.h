#pragma once

// Removes printer escape sequences from the bytes, in place, and returns how many are left; 0 for null data. A sequence
// runs from an ESC (0x1B) to the next byte from 0x3D to 0x5A, both included; one that has no such byte ends with the
// data. No other control character is touched.
int StripEscapeChars(unsigned char* data, int length);
