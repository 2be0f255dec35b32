#include "tests/support/guarded_heap.h"

#include "tests/support/guarded_pages.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace guarded_heap {
namespace {

constexpr std::uint64_t kAlive = 0xA11FE0B10C0A11FE;
constexpr unsigned char kFresh = 0xCD;
constexpr unsigned char kSlack = 0xFD;

// Stands directly before the block, all blocks in one list.
struct alignas(16) Header {
  Header* next;
  Header* previous;
  unsigned char* base;
  unsigned char* end;  // of the accessible pages
  std::size_t size;
  std::uint64_t number;
  std::array<const void*, 8> callers;
  DWORD thread;
  std::uint64_t alive;  // last, next to the block
};

// What Reuse gives out again.
struct Reused {
  guarded_pages::Range pages;
  std::size_t size;
  bool isFree;
};

SRWLOCK lock = SRWLOCK_INIT;  // guards what follows, and every block's header
Reused reused{};
Header* newest = nullptr;
std::uint64_t lastNumber = 0;

class Hold {
 public:
  Hold() { AcquireSRWLockExclusive(&lock); }
  ~Hold() { ReleaseSRWLockExclusive(&lock); }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;
};

bool wantsStacks() {
  static const bool wants = GetEnvironmentVariableW(L"MG_HEAP_STACKS", nullptr, 0) != 0;
  return wants;
}

[[noreturn]] void endDamaged(const Header& header, const char* where) {
  std::fprintf(stderr, "guarded heap: block %llu of %llu bytes, allocated at %p, was written %s\n",
               static_cast<unsigned long long>(header.number), static_cast<unsigned long long>(header.size),
               header.callers[0], where);
  std::abort();
}

bool takeReused(std::size_t size, guarded_pages::Range& pages) {
  const Hold hold;
  if (!reused.isFree || reused.size != size) return false;
  reused.isFree = false;
  pages = reused.pages;
  return true;
}

template <class Use>
void forEachLeft(std::uint64_t after, std::uint64_t upTo, DWORD thread, Use&& use) {
  for (const Header* header = newest; header != nullptr; header = header->next) {
    if (header->number > after && header->number <= upTo && header->thread == thread) use(*header);
  }
}

}  // namespace

void* take(std::size_t size, std::size_t alignment, const void* caller) noexcept {
  alignment = std::max<std::size_t>(alignment, 16);
  const std::size_t room = (std::max<std::size_t>(size, 1) + 15) / 16 * 16;
  guarded_pages::Range pages{};
  if (!takeReused(size, pages) || !guarded_pages::takeAgain(pages)) {
    pages = guarded_pages::take(sizeof(Header) + room + alignment - 16);
  }
  if (pages.base == nullptr) return nullptr;
  auto start = reinterpret_cast<std::uintptr_t>(pages.end) - room;
  start -= start % alignment;
  auto* block = reinterpret_cast<unsigned char*>(start);
  std::memset(block, kFresh, size);
  std::memset(block + size, kSlack, static_cast<std::size_t>(pages.end - (block + size)));

  auto* header = reinterpret_cast<Header*>(block) - 1;
  *header = Header{nullptr, nullptr, pages.base, pages.end, size, 0, {caller}, GetCurrentThreadId(), kAlive};
  if (wantsStacks()) RtlCaptureStackBackTrace(2, 8, const_cast<void**>(header->callers.data()), nullptr);
  const Hold hold;
  header->number = ++lastNumber;
  header->next = newest;
  if (newest != nullptr) newest->previous = header;
  newest = header;
  return block;
}

void giveBack(void* block) noexcept {
  if (block == nullptr) return;
  Header* header = static_cast<Header*>(block) - 1;
  // Faults here for a block that was deleted before.
  if (header->alive != kAlive) endDamaged(*header, "before its start");
  for (unsigned char* slack = static_cast<unsigned char*>(block) + header->size; slack != header->end; ++slack) {
    if (*slack != kSlack) endDamaged(*header, "past its end");
  }
  {
    const Hold hold;
    (header->previous == nullptr ? newest : header->previous->next) = header->next;
    if (header->next != nullptr) header->next->previous = header->previous;
  }
  const guarded_pages::Range pages{header->base, header->end};
  guarded_pages::giveBack(pages);
  const Hold hold;
  if (reused.pages.base == pages.base) reused.isFree = true;
}

Reuse::Reuse(const void* block) {
  const Header& header = static_cast<const Header*>(block)[-1];
  const Hold hold;
  reused = {{header.base, header.end}, header.size, false};
}

Reuse::~Reuse() {
  const Hold hold;
  reused = {};
}

Mark::Mark() : m_thread(GetCurrentThreadId()) {
  const Hold hold;
  m_number = lastNumber;
}

std::size_t Mark::countLeft() const {
  std::size_t count = 0;
  const Hold hold;
  forEachLeft(m_number, lastNumber, m_thread, [&](const Header&) { ++count; });
  return count;
}

std::vector<Block> Mark::left() const {
  const std::size_t count = countLeft();
  std::vector<Block> blocks;
  blocks.reserve(count);
  const Hold hold;
  forEachLeft(m_number, lastNumber, m_thread, [&](const Header& header) {
    const void* address = &header + 1;
    if (address == blocks.data() || blocks.size() == count) return;
    blocks.push_back({address, header.size, header.number, header.callers});
  });
  std::reverse(blocks.begin(), blocks.end());
  return blocks;
}

std::string describe(const std::vector<Block>& blocks) {
  const auto program = reinterpret_cast<std::uintptr_t>(GetModuleHandleW(nullptr));
  constexpr std::uintptr_t kLinkedAt = 0x140000000;
  std::string text;
  for (const Block& block : blocks) {
    text += "block " + std::to_string(block.number) + ", " + std::to_string(block.size) + " bytes:";
    for (const void* caller : block.callers) {
      if (caller == nullptr) break;
      char place[32];
      std::snprintf(place, sizeof place, " 0x%llx",
                    static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(caller) - program + kLinkedAt));
      text += place;
    }
    text += '\n';
  }
  return text;
}

}  // namespace guarded_heap
