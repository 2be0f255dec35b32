// Stands for the test binaries while their common headers are precompiled.
