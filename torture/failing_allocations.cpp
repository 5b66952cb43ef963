// Functions that replace the allocating functions in the libraries under test. They make the k-th
// allocation fail, and no other one, and count the blocks that are not freed. For one thread only.
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ext/malloc_allocator.h>
#include <functional>
#include <new>
#include <unordered_set>

namespace {

long s_failAt = 0;  // 0: no allocation fails
long s_count = 0;

// What was allocated here and not freed. Its own memory comes from malloc, because the operator
// delete of libstdc++ comes here, too.
using Allocator = __gnu_cxx::malloc_allocator<void*>;
std::unordered_set<void*, std::hash<void*>, std::equal_to<void*>, Allocator> s_live;

bool fails() {
  return ++s_count == s_failAt;
}

void* allocated(void* block) {
  if (block != nullptr) s_live.insert(block);
  return block;
}

void* freed(void* block) {
  s_live.erase(block);
  return block;
}

void* noMemory() {
  errno = ENOMEM;
  return nullptr;
}

}  // namespace

extern "C" {

// The interpreter's functions.
void* PyObject_Malloc(std::size_t size);
void PyObject_Free(void* block);

// --- The replacements

void* counted_malloc(std::size_t size) {
  if (size == 0) return std::malloc(size);  // null is valid for size 0
  return fails() ? noMemory() : allocated(std::malloc(size));
}

void* counted_calloc(std::size_t count, std::size_t size) {
  return fails() ? noMemory() : allocated(std::calloc(count, size));
}

void* counted_realloc(void* block, std::size_t size) {
  if (fails()) return noMemory();
  freed(block);
  return allocated(std::realloc(block, size));
}

void* counted_aligned_alloc(std::size_t alignment, std::size_t size) {
  return fails() ? noMemory() : allocated(std::aligned_alloc(alignment, size));
}

void counted_free(void* block) {
  std::free(freed(block));
}

// Mapped regions are unmapped in parts, so they are not followed.
void* counted_mmap(void* address, std::size_t size, int protection, int flags, int file,
                   off_t offset) {
  if (!fails()) return mmap(address, size, protection, flags, file, offset);
  noMemory();
  return MAP_FAILED;
}

void* counted_PyObject_Malloc(std::size_t size) {
  return fails() ? nullptr : allocated(PyObject_Malloc(size));
}

void counted_PyObject_Free(void* block) {
  PyObject_Free(freed(block));
}

// For arrays, too: their operators of libstdc++ call those for single objects.
void* counted_new(std::size_t size) {
  if (fails()) throw std::bad_alloc();
  return allocated(::operator new(size));
}

void counted_delete(void* block) {
  ::operator delete(freed(block));
}

// --- Control

// Sets a relocation slot, which may be in a page that is read-only.
void turn(void** slot, void* function) {
  const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const std::uintptr_t start = reinterpret_cast<std::uintptr_t>(slot) / page * page;
  mprotect(reinterpret_cast<void*>(start), page, PROT_READ | PROT_WRITE);
  *slot = function;
}

// Makes the k-th allocation from now on fail; with 0, none.
void arm(long k) {
  s_failAt = k;
  s_count = 0;
}

long count() {
  return s_count;
}

// How many blocks that were allocated here are not freed.
long live() {
  return static_cast<long>(s_live.size());
}

}  // extern "C"
