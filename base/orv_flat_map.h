#pragma once
// An ordered map held in one vector sorted by key, for the handful of values one file record
// carries. A scan reuses one entry for millions of records, so clear() keeps the elements (and
// the capacity of their strings) for the next record instead of freeing and allocating nodes.
// Pointers into the map hold until the next insertion or erasure.
#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <utility>
#include <vector>

template <class K, class V>
class flat_map {
 public:
  using value_type = std::pair<K, V>;
  using iterator = value_type*;
  using const_iterator = const value_type*;

  iterator begin() { return m_items.data(); }
  iterator end() { return m_items.data() + m_size; }
  const_iterator begin() const { return m_items.data(); }
  const_iterator end() const { return m_items.data() + m_size; }
  bool empty() const { return m_size == 0; }
  size_t size() const { return m_size; }

  // Keeps the elements for reuse, but not without bound: a record with thousands of links must
  // not hold thousands of elements for the rest of the run.
  void clear() {
    m_size = 0;
    if (m_items.size() > k_kept) m_items.resize(k_kept);
  }

  iterator find(const K& key) {
    iterator at = lower(key);
    return at != end() && !(key < at->first) ? at : end();
  }
  const_iterator find(const K& key) const { return const_cast<flat_map*>(this)->find(key); }
  size_t count(const K& key) const { return find(key) != end() ? 1 : 0; }
  V& at(const K& key) {
    iterator found = find(key);
    if (found == end()) throw std::out_of_range("flat_map::at");
    return found->second;
  }
  const V& at(const K& key) const { return const_cast<flat_map*>(this)->at(key); }

  // Inserts `key` unless present, like std::map. The value of a new element is a reused one that
  // may still hold an earlier record's content: the caller sets every field. The first insert wins.
  std::pair<iterator, bool> reuse_insert(const K& key) {
    iterator at = lower(key);
    if (at != end() && !(key < at->first)) return {at, false};
    size_t pos = size_t(at - begin());
    if (m_size == m_items.size()) m_items.emplace_back();
    m_items[m_size].first = key;
    ++m_size;
    std::rotate(begin() + pos, end() - 1, end());
    return {begin() + pos, true};
  }
  // The same with a value-initialised value.
  std::pair<iterator, bool> try_emplace(const K& key) {
    std::pair<iterator, bool> slot = reuse_insert(key);
    if (slot.second) slot.first->second = V();
    return slot;
  }
  V& operator[](const K& key) { return try_emplace(key).first->second; }

  iterator erase(iterator at) {
    std::rotate(at, at + 1, end());
    --m_size;
    return at;
  }
  size_t erase(const K& key) {
    iterator found = find(key);
    if (found == end()) return 0;
    erase(found);
    return 1;
  }

 private:
  static constexpr size_t k_kept = 256;
  iterator lower(const K& key) {
    return std::lower_bound(begin(), end(), key, [](const value_type& item, const K& k) { return item.first < k; });
  }

  std::vector<value_type> m_items;  // the first m_size are the map, in key order
  size_t m_size = 0;
};
