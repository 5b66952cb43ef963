// Makes the k-th allocation of the loaded module, of its data library and of the functions of
// libstdc++ that they call fail, and no other one, and counts the blocks that they have not freed.
// The relocation slots of these libraries for allocating functions are set to functions of this
// file. Only allocations of the thread that called arm() fail.
#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <new>
#include <unordered_set>

namespace {

using Dynamic = ElfW(Dyn);
using Header = ElfW(Phdr);
using Relocation = ElfW(Rela);
using Symbol = ElfW(Sym);

long s_failAt = 0;  // 0: no allocation fails
long s_count = 0;
pthread_t s_thread;

// For the set below: operator delete of libstdc++ comes here, too.
template <class T>
struct PlainAllocator {
  using value_type = T;
  PlainAllocator() = default;
  template <class Other>
  PlainAllocator(const PlainAllocator<Other>&) {}
  T* allocate(std::size_t count) { return static_cast<T*>(std::malloc(count * sizeof(T))); }
  void deallocate(T* block, std::size_t) { std::free(block); }
  bool operator==(const PlainAllocator&) const { return true; }
};

std::mutex s_lock;
// What was allocated here and not freed.
std::unordered_set<void*, std::hash<void*>, std::equal_to<void*>, PlainAllocator<void*>> s_live;

bool fails() {
  return pthread_equal(pthread_self(), s_thread) && ++s_count == s_failAt;
}

void* allocated(void* block) {
  const std::lock_guard lock(s_lock);
  if (block != nullptr) s_live.insert(block);
  return block;
}

void* freed(void* block) {
  const std::lock_guard lock(s_lock);
  s_live.erase(block);
  return block;
}

void* noMemory() {
  errno = ENOMEM;
  return nullptr;
}

// --- The functions in the slots

void* countedMalloc(std::size_t size) {
  if (size == 0) return std::malloc(size);  // null is valid for size 0
  return fails() ? noMemory() : allocated(std::malloc(size));
}

void* countedCalloc(std::size_t count, std::size_t size) {
  return fails() ? noMemory() : allocated(std::calloc(count, size));
}

void* countedRealloc(void* block, std::size_t size) {
  if (fails()) return noMemory();
  freed(block);
  return allocated(std::realloc(block, size));
}

void* countedAlignedAlloc(std::size_t alignment, std::size_t size) {
  return fails() ? noMemory() : allocated(std::aligned_alloc(alignment, size));
}

void countedFree(void* block) {
  std::free(freed(block));
}

// Mapped regions are unmapped in parts, so they are not followed.
void* countedMmap(void* address, std::size_t size, int protection, int flags, int file,
                  off_t offset) {
  if (!fails()) return mmap(address, size, protection, flags, file, offset);
  noMemory();
  return MAP_FAILED;
}

void* countedNew(std::size_t size) {
  if (fails()) throw std::bad_alloc();
  return allocated(::operator new(size));
}

void* countedNewOfArray(std::size_t size) {
  if (fails()) throw std::bad_alloc();
  return allocated(::operator new[](size));
}

void countedDelete(void* block) {
  ::operator delete(freed(block));
}

void countedSizedDelete(void* block, std::size_t) {
  ::operator delete(freed(block));
}

void countedDeleteOfArray(void* block) {
  ::operator delete[](freed(block));
}

void countedSizedDeleteOfArray(void* block, std::size_t) {
  ::operator delete[](freed(block));
}

// The interpreter's functions.
void* (*s_objectMalloc)(std::size_t) = nullptr;
void (*s_objectFree)(void*) = nullptr;

void* countedObjectMalloc(std::size_t size) {
  return fails() ? nullptr : allocated(s_objectMalloc(size));
}

void countedObjectFree(void* block) {
  s_objectFree(freed(block));
}

// --- Replacement

struct Replacement {
  const char* name;
  void* function;
  bool isOfLibrary;  // also for calls in libstdc++
};
const Replacement replacements[] = {
    {"malloc", reinterpret_cast<void*>(&countedMalloc), false},
    {"calloc", reinterpret_cast<void*>(&countedCalloc), false},
    {"realloc", reinterpret_cast<void*>(&countedRealloc), false},
    {"aligned_alloc", reinterpret_cast<void*>(&countedAlignedAlloc), false},
    {"free", reinterpret_cast<void*>(&countedFree), false},
    {"mmap", reinterpret_cast<void*>(&countedMmap), false},
    {"PyObject_Malloc", reinterpret_cast<void*>(&countedObjectMalloc), false},
    {"PyObject_Free", reinterpret_cast<void*>(&countedObjectFree), false},
    {"_Znwm", reinterpret_cast<void*>(&countedNew), true},
    {"_Znam", reinterpret_cast<void*>(&countedNewOfArray), true},
    {"_ZdlPv", reinterpret_cast<void*>(&countedDelete), true},
    {"_ZdlPvm", reinterpret_cast<void*>(&countedSizedDelete), true},
    {"_ZdaPv", reinterpret_cast<void*>(&countedDeleteOfArray), true},
    {"_ZdaPvm", reinterpret_cast<void*>(&countedSizedDeleteOfArray), true},
};

void turn(void** slot, void* function) {
  const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const std::uintptr_t start = reinterpret_cast<std::uintptr_t>(slot) / page * page;
  mprotect(reinterpret_cast<void*>(start), page, PROT_READ | PROT_WRITE);
  *slot = function;
}

int turnSlots(const dl_phdr_info& object, const Dynamic* entry, bool isLibrary) {
  const char* strings = nullptr;
  const Symbol* symbols = nullptr;
  const Relocation* tables[2] = {};
  std::size_t bytes[2] = {};
  for (; entry->d_tag != DT_NULL; ++entry) {
    const auto value = entry->d_un.d_ptr;
    if (entry->d_tag == DT_STRTAB) strings = reinterpret_cast<const char*>(value);
    if (entry->d_tag == DT_SYMTAB) symbols = reinterpret_cast<const Symbol*>(value);
    if (entry->d_tag == DT_JMPREL) tables[0] = reinterpret_cast<const Relocation*>(value);
    if (entry->d_tag == DT_PLTRELSZ) bytes[0] = entry->d_un.d_val;
    if (entry->d_tag == DT_RELA) tables[1] = reinterpret_cast<const Relocation*>(value);
    if (entry->d_tag == DT_RELASZ) bytes[1] = entry->d_un.d_val;
  }
  int turned = 0;
  for (int t = 0; t < 2; ++t) {
    for (std::size_t i = 0; i < bytes[t] / sizeof(Relocation); ++i) {
      const Relocation& relocation = tables[t][i];
      const auto type = ELF64_R_TYPE(relocation.r_info);
      if (type != R_X86_64_JUMP_SLOT && type != R_X86_64_GLOB_DAT) continue;
      const char* name = strings + symbols[ELF64_R_SYM(relocation.r_info)].st_name;
      for (const Replacement& each : replacements) {
        if (std::strcmp(name, each.name) != 0 || (isLibrary && !each.isOfLibrary)) continue;
        turn(reinterpret_cast<void**>(object.dlpi_addr + relocation.r_offset), each.function);
        ++turned;
      }
    }
  }
  return turned;
}

int visit(dl_phdr_info* object, std::size_t, void* turned) {
  const char* name = object->dlpi_name;
  const bool isLibrary = std::strstr(name, "libstdc++.so") != nullptr;
  if (!isLibrary && std::strstr(name, "velmarmultidimarrayforpython.abi3") == nullptr &&
      std::strstr(name, "libzrfoundation_velmardata.so") == nullptr) {
    return 0;
  }
  for (int i = 0; i < object->dlpi_phnum; ++i) {
    const Header& header = object->dlpi_phdr[i];
    if (header.p_type != PT_DYNAMIC) continue;
    const auto* entries = reinterpret_cast<const Dynamic*>(object->dlpi_addr + header.p_vaddr);
    *static_cast<int*>(turned) += turnSlots(*object, entries, isLibrary);
  }
  return 0;
}

template <class Function>
void find(Function*& function, const char* name) {
  function = reinterpret_cast<Function*>(dlsym(RTLD_DEFAULT, name));
}

}  // namespace

extern "C" {

// Replaces the slots and returns their number. Call it once, after the module has been loaded.
int install() {
  find(s_objectMalloc, "PyObject_Malloc");
  find(s_objectFree, "PyObject_Free");
  int turned = 0;
  dl_iterate_phdr(&visit, &turned);
  return turned;
}

// Makes the k-th allocation from now on fail; with 0, none.
void arm(long k) {
  s_thread = pthread_self();
  s_failAt = k;
  s_count = 0;
}

long count() {
  return s_count;
}

// How many blocks are allocated and not freed, of those that were allocated since install().
long live() {
  const std::lock_guard lock(s_lock);
  return static_cast<long>(s_live.size());
}

}  // extern "C"
