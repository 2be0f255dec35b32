#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

// How the frames of a job are made shorter for a slow line. What a job's pieces have in common is used within that job
// only: a packer that saw two jobs would show in the lengths of one what stands in the other.
namespace corvane {

// Packs the pieces of one job, in order. Used by one thread at a time.
class Packer {
 public:
  virtual ~Packer() = default;

  // Puts into the vector bytes of which Unpacker::unpack() makes the given ones again; where the packing begins anew it
  // needs nothing of earlier pieces for that. False when they would not be fewer: then the piece is to go as it is, and
  // the next one begins anew. Throws std::bad_alloc.
  virtual bool pack(std::span<const unsigned char> bytes, bool beginsAnew, std::vector<unsigned char>& into) = 0;
};

class Unpacker {
 public:
  virtual ~Unpacker() = default;

  // Throws CS_Exception: 3105 for bytes that were not packed so, 3107 for a piece of more than kMaxUnpackedPiece bytes.
  virtual void unpack(std::span<const unsigned char> bytes, bool beginsAnew, std::vector<unsigned char>& into) = 0;
};

// A kind of packing; without a state of its own, and used by any thread.
class Packing {
 public:
  virtual ~Packing() = default;

  // What the handshake calls it.
  virtual std::wstring name() const = 0;
  virtual std::unique_ptr<Packer> makePacker() const = 0;
  virtual std::unique_ptr<Unpacker> makeUnpacker() const = 0;
};

}  // namespace corvane
