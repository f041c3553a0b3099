// Small integer-keyed hash map of fixed size, for tables filled once and read
// often: unit names by id, a channel's index by channel number.
//
// The bucket array never grows; its size is chosen at construction (a prime)
// and made at the first insert. Nodes are kept in insertion order as well, and
// Add may file several nodes under one key, which a bucket walk finds all of.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <new>
#include <type_traits>

#include "platform/exception.h"
#include "platform/types.h"

namespace zemo {

template <class Key, class KeyArg, class Value, class ValueArg>
class TMapEx {
 public:
  struct Node {
    Key m_key;
    Value m_value;
    Node* m_pNext;
  };

  explicit TMapEx(uint32_t wantedBuckets = 257) noexcept : m_nWantedBuckets(wantedBuckets ? wantedBuckets : 1) {}
  TMapEx(const TMapEx&) = delete;
  TMapEx& operator=(const TMapEx&) = delete;
  ~TMapEx() { Clear(); }

  // A short key is widened with its sign, so -1 lands where 0xFFFFFFFF does.
  uint32_t BucketOf(KeyArg key) const noexcept {
    static_assert(std::is_integral_v<Key> && sizeof(Key) <= 4, "an integer key of up to 32 bits");
    return static_cast<uint32_t>(static_cast<int64_t>(key)) % m_nWantedBuckets;
  }

  uint32_t GetCount() const noexcept { return m_nNodes; }
  uint32_t GetBucketCount() const noexcept { return m_nBuckets; }
  bool IsSetUp() const noexcept { return m_bSetUp; }
  // Nodes in the order they were added.
  Node* GetNodeAt(uint32_t index) const noexcept { return index < m_nNodes ? m_ppNodes[index] : nullptr; }

  // The first node with key in its bucket's order (newest first), or null.
  Node* FindFirst(KeyArg key) const noexcept {
    if (!m_bSetUp) return nullptr;
    return Scan(m_ppBuckets[BucketOf(key)], key);
  }
  // The next node after node with the same key, or null.
  Node* FindNext(const Node* node) const noexcept { return Scan(node->m_pNext, node->m_key); }

  bool Lookup(KeyArg key, Value& out) const {
    Node* node = FindFirst(key);
    if (!node) return false;
    out = node->m_value;
    return true;
  }

  // Replaces the value of the first node with key, or adds one.
  void SetAt(KeyArg key, ValueArg value) {
    if (Node* node = FindFirst(key)) {
      node->m_value = value;
      return;
    }
    Add(key, value);
  }

  // Always a new node, at the head of its bucket.
  Node* Add(KeyArg key, ValueArg value) {
    if (!m_bSetUp) SetUp();
    Node* node = new (std::nothrow) Node{key, value, nullptr};
    if (!node) AtlThrow(E_OUTOFMEMORY);
    // The node list grows by exactly one entry: the table is filled once.
    void* list = std::realloc(m_ppNodes, sizeof(Node*) * (m_nNodes + 1));
    if (!list) {
      delete node;
      AtlThrow(E_OUTOFMEMORY);
    }
    m_ppNodes = static_cast<Node**>(list);
    m_ppNodes[m_nNodes++] = node;
    Node*& head = m_ppBuckets[BucketOf(key)];
    node->m_pNext = head;
    head = node;
    return node;
  }

  // Frees the buckets, then the nodes from the last, and waits for the next
  // insert to set up again.
  void Clear() noexcept {
    std::free(m_ppBuckets);
    m_ppBuckets = nullptr;
    m_nBuckets = 0;
    while (m_nNodes > 0) delete m_ppNodes[--m_nNodes];
    std::free(m_ppNodes);
    m_ppNodes = nullptr;
    m_bSetUp = false;
  }

 private:
  void SetUp() {
    Clear();
    void* buckets = std::calloc(m_nWantedBuckets, sizeof(Node*));
    if (!buckets) AtlThrow(E_OUTOFMEMORY);
    m_ppBuckets = static_cast<Node**>(buckets);
    m_nBuckets = m_nWantedBuckets;
    m_bSetUp = true;
  }

  static Node* Scan(Node* node, KeyArg key) noexcept {
    for (; node; node = node->m_pNext)
      if (node->m_key == key) return node;
    return nullptr;
  }

  Node** m_ppBuckets = nullptr;
  uint32_t m_nBuckets = 0;
  Node** m_ppNodes = nullptr;
  uint32_t m_nNodes = 0;
  uint32_t m_nWantedBuckets;
  bool m_bSetUp = false;
};

}  // namespace zemo
