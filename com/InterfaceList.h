// A list of interface pointers, each holding one reference, kept in order of
// addition. Nodes come from blocks of a fixed number of nodes; freed nodes are
// reused, and every block is given back once the list is empty.
#pragma once

#include <objbase.h>
#include <new>

namespace kwatl {

class CInterfaceList {
 public:
  struct Node {
    Node* next;
    Node* prev;
    IUnknown* item;
  };

  explicit CInterfaceList(unsigned blockSize = 10) : m_blockSize(blockSize ? blockSize : 1) {}
  ~CInterfaceList() { RemoveAll(); }
  CInterfaceList(const CInterfaceList&) = delete;
  CInterfaceList& operator=(const CInterfaceList&) = delete;

  Node* Head() const { return m_head; }
  unsigned Count() const { return m_count; }

  // Node holding `item` (pointer identity), or null.
  Node* Find(IUnknown* item) const {
    for (Node* node = m_head; node != nullptr; node = node->next)
      if (node->item == item) return node;
    return nullptr;
  }

  // Appends `item` and takes a reference on it. Throws E_OUTOFMEMORY (as an
  // HRESULT) when no node can be had.
  void AddTail(IUnknown* item) {
    Node* node = NewNode();
    node->item = item;
    if (item != nullptr) item->AddRef();
    node->prev = m_tail;
    node->next = nullptr;
    if (m_tail != nullptr)
      m_tail->next = node;
    else
      m_head = node;
    m_tail = node;
    ++m_count;
  }

  // Unlinks `node` and releases its reference.
  void RemoveAt(Node* node) {
    if (node->prev != nullptr)
      node->prev->next = node->next;
    else
      m_head = node->next;
    if (node->next != nullptr)
      node->next->prev = node->prev;
    else
      m_tail = node->prev;
    IUnknown* item = node->item;
    node->next = m_free;
    m_free = node;
    if (--m_count == 0) FreeBlocks();
    if (item != nullptr) item->Release();
  }

  // Releases every entry and gives all blocks back.
  void RemoveAll() {
    Node* node = m_head;
    m_head = m_tail = nullptr;
    m_count = 0;
    while (node != nullptr) {
      Node* next = node->next;
      if (node->item != nullptr) node->item->Release();
      node = next;
    }
    FreeBlocks();
  }

 private:
  struct Block {
    Block* next;
    // followed by m_blockSize nodes
    Node* Nodes() { return reinterpret_cast<Node*>(this + 1); }
  };

  Node* NewNode() {
    if (m_free == nullptr) {
      void* memory = ::operator new(sizeof(Block) + sizeof(Node) * m_blockSize, std::nothrow);
      if (memory == nullptr) throw static_cast<HRESULT>(E_OUTOFMEMORY);
      Block* block = static_cast<Block*>(memory);
      block->next = m_blocks;
      m_blocks = block;
      Node* nodes = block->Nodes();
      for (unsigned i = m_blockSize; i-- > 0;) {
        nodes[i].next = m_free;
        m_free = &nodes[i];
      }
    }
    Node* node = m_free;
    m_free = node->next;
    return node;
  }

  void FreeBlocks() {
    while (m_blocks != nullptr) {
      Block* next = m_blocks->next;
      ::operator delete(m_blocks);
      m_blocks = next;
    }
    m_free = nullptr;
  }

  unsigned m_blockSize;
  Node* m_head = nullptr;
  Node* m_tail = nullptr;
  Node* m_free = nullptr;
  Block* m_blocks = nullptr;
  unsigned m_count = 0;
};

}  // namespace kwatl
