// Stands for the folders while their common headers are precompiled.
