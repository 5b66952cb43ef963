// The hold of a view on the storage that it shares with others.
#pragma once

#include <cassert>
#include <cstdint>
#include <memory>
#include <utility>

#include "storage/md_array_wrapper.hpp"
#include "storage/small_object.hpp"

// Strong, weak or none. The storage lives as long as there is a strong link; a weak link owns
// nothing of it and finds out when it has gone. The counts are not atomic, because the
// interpreter's lock guards every access: a standard shared pointer would lock the bus for each
// subscript.
class StorageLink {
 public:
  StorageLink() = default;
  // Strong, to new storage. Takes the arguments of MDArrayWrapper and throws what it throws.
  template <class... Arguments>
  static StorageLink make(Arguments&&... arguments) {
    auto block = std::make_unique<Block>(std::forward<Arguments>(arguments)...);
    return StorageLink(block.release(), Kind::Strong);
  }
  // Strong if this link is strong, none otherwise.
  StorageLink strong() const { return m_kind == Kind::Strong ? lock() : StorageLink(); }
  // Strong if the storage lives, none otherwise.
  StorageLink lock() const {
    return find() != nullptr ? StorageLink(counted(), Kind::Strong) : StorageLink();
  }
  StorageLink weak() const {
    if (m_block != nullptr) ++m_block->weak;
    return StorageLink(m_block, Kind::Weak);
  }

  StorageLink(StorageLink&& other) noexcept
      : m_block(std::exchange(other.m_block, nullptr)), m_kind(other.m_kind) {}
  StorageLink& operator=(StorageLink&& other) noexcept {
    std::swap(m_block, other.m_block);
    std::swap(m_kind, other.m_kind);
    return *this;
  }
  ~StorageLink() {
    if (m_block != nullptr) release();
  }

  // Null for a link to storage that has gone, and for none.
  MDArrayWrapper* find() const {
    return m_block != nullptr && m_block->strong != 0 ? &m_block->storage : nullptr;
  }

 private:
  enum class Kind : std::uint8_t { Strong, Weak };

  // Freed with the last link of either kind; the storage in it dies with the last strong one.
  struct Block : SmallObject {
    template <class... Arguments>
    explicit Block(Arguments&&... arguments) : storage(std::forward<Arguments>(arguments)...) {}
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    ~Block() {}

    std::uint32_t strong = 1;
    std::uint32_t weak = 1;  // all strong links together count as one
    union {
      MDArrayWrapper storage;
    };
  };

  StorageLink(Block* block, Kind kind) : m_block(block), m_kind(kind) {}

  Block* counted() const {
    ++m_block->strong;
    return m_block;
  }

  void release() {
    if (m_kind == Kind::Strong) {
      if (--m_block->strong != 0) return;
      m_block->storage.~MDArrayWrapper();
    }
    if (--m_block->weak == 0) delete m_block;
  }

  Block* m_block = nullptr;
  Kind m_kind = Kind::Strong;
};
