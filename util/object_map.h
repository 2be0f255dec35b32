#pragma once

#include "util/mutex.h"

#include <cstddef>
#include <functional>
#include <iterator>
#include <list>
#include <stdexcept>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

// A map from a text key to a pointer, safe to use from any thread. It keeps copies of its keys and never owns what the
// values point to: overwriting, removing and clearing forget a value without freeing it.
//
// Every operation holds the table lock for its whole length. None lets an exception out; what goes wrong inside shows
// as false, and leaves the map as it was. The one exception to that is setBucketCount with an absurd request.
//
// The hash of a key is its length, which is enough for small tables of port and printer names. All entries stand in one
// list, bucket after bucket, and within a bucket in the order in which they were inserted. Names of one length share a
// bucket; once a table has grown with more than kMostWalked entries, an index of their contents finds one without a
// walk. It decides nothing that shows, and where there is no memory for it a bucket is walked.
//
// Key needs length(), == and a copy; for the index narrow() as well, which is the same for keys that are equal. Value
// is a pointer.
template <typename Key, typename Value>
class TObjectMap {
  using Entries = std::list<std::pair<const Key, Value>>;
  using Position = typename Entries::iterator;
  using Index = std::unordered_multimap<std::size_t, Position>;
  static constexpr bool kCanBeIndexed = requires(const Key& key) { key.narrow(); };

 public:
  static constexpr std::size_t kMinBuckets = 8;
  static constexpr std::size_t kMostWalked = 100;  // entries

  // bucketRequest as in setBucketCount. Throws std::bad_alloc when there is no memory for the empty table.
  explicit TObjectMap(std::size_t bucketRequest = kMinBuckets) : m_starts(kMinBuckets + 1, m_entries.end()) {
    if (bucketRequest > kMinBuckets) setBucketCount(bucketRequest);
  }
  virtual ~TObjectMap() = default;
  TObjectMap(const TObjectMap&) = delete;
  TObjectMap& operator=(const TObjectMap&) = delete;

  // Spreads the entries over the smallest number of buckets, a power of two from 8 upward, that reaches the request and
  // holds at most 4 entries per bucket. Throws std::out_of_range with "invalid hash bucket count" when no table could
  // be that large. When there is no memory for it the table stays as it is.
  void setBucketCount(std::size_t request) {
    const Synchronized guard(m_lock);
    std::size_t count = kMinBuckets;
    while (count < request) {
      if (count > maxBuckets() / 2) throw std::out_of_range("invalid hash bucket count");
      count *= 2;
    }
    while (overloaded(m_entries.size(), count) && count <= maxBuckets() / 2)
      count *= 2;
    try {
      rebuild(makeStarts(count));
    } catch (...) {
      return;
    }
  }

  // Stores value under key; the value that stood there before is forgotten. A key that is given away is not copied.
  bool insert(const Key& key, Value value) { return insertOne(key, value); }
  bool insert(Key&& key, Value value) { return insertOne(std::move(key), value); }

  // Tells whether key is present, and stores its value in *value when value is not null.
  bool find(const Key& key, Value* value = nullptr) {
    const Synchronized guard(m_lock);
    try {
      const Position hit = locate(key, bucketOf(key));
      if (hit == m_entries.end()) return false;
      if (value != nullptr) *value = hit->second;
      return true;
    } catch (...) {
      return false;
    }
  }

  // Takes key's entry out of the map and hands its value to the caller. *value stays untouched when key is absent.
  bool remove(const Key& key, Value* value) {
    const Synchronized guard(m_lock);
    try {
      const std::size_t bucket = bucketOf(key);
      const Position hit = locate(key, bucket);
      if (hit == m_entries.end()) return false;
      if (m_isIndexed) m_index.erase(locateInIndex(key));
      if (value != nullptr) *value = hit->second;
      const Position next = std::next(hit);
      moveStarts(bucket, hit, next);
      m_entries.erase(hit);
      return true;
    } catch (...) {
      return false;
    }
  }

  std::size_t count() const {
    const Synchronized guard(m_lock);
    return m_entries.size();
  }

  std::size_t bucketCount() const {
    const Synchronized guard(m_lock);
    return bucketCountLocked();
  }

  // Forgets every entry and goes back to 8 buckets.
  void clear() {
    const Synchronized guard(m_lock);
    dropIndex();
    m_entries.clear();
    // Never more positions than the vector already has room for, so this needs no memory.
    m_starts.assign(kMinBuckets + 1, m_entries.end());
  }

  // A walk over pairs of key and value, in list order. The table lock is not held across it: the caller holds the
  // lock under which it changes the map.
  typename Entries::const_iterator begin() const noexcept { return m_entries.begin(); }
  typename Entries::const_iterator end() const noexcept { return m_entries.end(); }

 private:
  template <typename AnyKey>
  bool insertOne(AnyKey&& key, Value value) {
    const Synchronized guard(m_lock);
    try {
      const std::size_t bucket = bucketOf(key);
      const Position hit = locate(key, bucket);
      if (hit != m_entries.end()) {
        hit->second = value;
        return true;
      }
      // Everything that can fail is done aside first, so a failure leaves the map as it was.
      Entries made;
      made.emplace_back(std::forward<AnyKey>(key), value);
      const std::size_t wanted = bucketsFor(m_entries.size() + 1);
      if (wanted == bucketCountLocked()) {
        if (m_isIndexed) addToIndex(made.begin());
        link(made, bucket);
      } else {
        std::vector<Position> starts = makeStarts(wanted);
        link(made, bucket);
        rebuild(std::move(starts));
      }
      return true;
    } catch (...) {
      return false;
    }
  }

  static bool overloaded(std::size_t entries, std::size_t buckets) { return entries > 4 * buckets; }

  std::size_t maxBuckets() const { return m_starts.max_size() / 2; }
  std::size_t bucketCountLocked() const { return m_starts.size() - 1; }

  // The bucket count after an insertion that makes it entries: eight times the present one once that is overloaded.
  std::size_t bucketsFor(std::size_t entries) const {
    std::size_t count = bucketCountLocked();
    if (!overloaded(entries, count)) return count;
    for (int doubling = 0; doubling < 3 && count <= maxBuckets() / 2; ++doubling)
      count *= 2;
    return count;
  }

  std::vector<Position> makeStarts(std::size_t buckets) { return std::vector<Position>(buckets + 1, m_entries.end()); }

  std::size_t bucketOf(const Key& key) const {
    const std::size_t mask = bucketCountLocked() - 1;
    const std::size_t index = key.length() & mask;
    // Only a table that splits its buckets one at a time has fewer active buckets than its mask spans.
    return index < bucketCountLocked() ? index : index - (mask >> 1) - 1;
  }

  // The first entry of the bucket with an equal key, or end().
  Position locate(const Key& key, std::size_t bucket) {
    if (m_isIndexed) {
      const auto indexed = locateInIndex(key);
      return indexed == m_index.end() ? m_entries.end() : indexed->second;
    }
    for (Position at = m_starts[bucket]; at != m_starts[bucket + 1]; ++at) {
      if (at->first == key) return at;
    }
    return m_entries.end();
  }

  static std::size_t contentOf(const Key& key) {
    if constexpr (kCanBeIndexed) return std::hash<std::string_view>()(key.narrow());
    return 0;
  }

  // The index's entry of an equal key, or its end().
  typename Index::iterator locateInIndex(const Key& key) {
    const auto [first, last] = m_index.equal_range(contentOf(key));
    for (auto at = first; at != last; ++at) {
      if (at->second->first == key) return at;
    }
    return m_index.end();
  }

  // Without memory for it there is no index until the table grows again.
  void addToIndex(Position entry) noexcept {
    try {
      m_index.emplace(contentOf(entry->first), entry);
    } catch (...) {
      dropIndex();
    }
  }

  void dropIndex() noexcept {
    m_index.clear();
    m_isIndexed = false;
  }

  void makeIndex() noexcept {
    dropIndex();
    m_isIndexed = kCanBeIndexed && m_entries.size() > kMostWalked;
    for (Position at = m_entries.begin(); m_isIndexed && at != m_entries.end(); ++at)
      addToIndex(at);
  }

  // Lets every bucket up to and including bucket that starts at from start at to instead. Only empty buckets in front
  // share their start with a later one.
  void moveStarts(std::size_t bucket, Position from, Position to) {
    for (std::size_t at = bucket + 1; at-- > 0 && m_starts[at] == from;)
      m_starts[at] = to;
  }

  // Moves the one entry in made to the end of its bucket.
  void link(Entries& made, std::size_t bucket) noexcept {
    const Position entry = made.begin();
    const Position next = m_starts[bucket + 1];
    m_entries.splice(next, made);
    moveStarts(bucket, next, entry);
  }

  // Takes over a vector of positions that all stand at the end, and links every entry anew.
  void rebuild(std::vector<Position> starts) noexcept {
    Entries old;
    old.swap(m_entries);
    m_starts = std::move(starts);
    while (!old.empty()) {
      Entries one;
      one.splice(one.begin(), old, old.begin());
      const std::size_t bucket = bucketOf(one.front().first);
      link(one, bucket);
    }
    makeIndex();
  }

  Entries m_entries;
  // The position of each bucket's first entry; a bucket ends where the next one starts. The last position is end().
  std::vector<Position> m_starts;
  bool m_isIndexed = false;
  Index m_index;  // when it is: every entry once, by its content
  mutable Mutex m_lock;
};
