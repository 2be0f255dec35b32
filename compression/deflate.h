#pragma once

#include "corvane/wire/packing.h"

namespace compression {

// Packs with zlib, as raw deflate data (RFC 1951): each piece ends at a byte (Z_SYNC_FLUSH), so that it can be unpacked
// when it has come, and begins with the window of the pieces before it. The handshake calls it "deflate". A packer
// takes some 400 KiB of memory, an unpacker some 40; making one throws std::bad_alloc. The one object of the process.
const corvane::Packing& deflate();

}  // namespace compression
