// Makes the k-th allocation of the loaded module and of its data library fail, and no
// other one. The relocation slots of these two libraries for allocating functions are set to
// functions of this file.
#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

using Dynamic = ElfW(Dyn);
using Header = ElfW(Phdr);
using Relocation = ElfW(Rela);
using Symbol = ElfW(Sym);

long s_failAt = 0;  // 0: no allocation fails
long s_count = 0;
std::size_t s_leastOfNew = 0;  // operator new is counted from this size on; malloc always

bool fails() {
  return ++s_count == s_failAt;
}

void* countedMalloc(std::size_t size) {
  if (size == 0 || !fails()) return std::malloc(size);  // null is valid for size 0
  errno = ENOMEM;
  return nullptr;
}

void* countedAlignedAlloc(std::size_t alignment, std::size_t size) {
  if (!fails()) return std::aligned_alloc(alignment, size);
  errno = ENOMEM;
  return nullptr;
}

void* countedMmap(void* address, std::size_t size, int protection, int flags, int file,
                  off_t offset) {
  if (!fails()) return mmap(address, size, protection, flags, file, offset);
  errno = ENOMEM;
  return MAP_FAILED;
}

void* countedNew(std::size_t size) {
  if (size >= s_leastOfNew && fails()) throw std::bad_alloc();
  return ::operator new(size);
}

struct Replacement {
  const char* name;
  void* function;
};
const Replacement replacements[] = {
    {"malloc", reinterpret_cast<void*>(&countedMalloc)},
    {"aligned_alloc", reinterpret_cast<void*>(&countedAlignedAlloc)},
    {"mmap", reinterpret_cast<void*>(&countedMmap)},
    {"_Znwm", reinterpret_cast<void*>(&countedNew)},
};

void turn(void** slot, void* function) {
  const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const std::uintptr_t start = reinterpret_cast<std::uintptr_t>(slot) / page * page;
  mprotect(reinterpret_cast<void*>(start), page, PROT_READ | PROT_WRITE);
  *slot = function;
}

int turnSlots(const dl_phdr_info& object, const Dynamic* entry) {
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
        if (std::strcmp(name, each.name) != 0) continue;
        turn(reinterpret_cast<void**>(object.dlpi_addr + relocation.r_offset), each.function);
        ++turned;
      }
    }
  }
  return turned;
}

int visit(dl_phdr_info* object, std::size_t, void* turned) {
  const char* name = object->dlpi_name;
  if (std::strstr(name, "velmarmultidimarrayforpython.abi3") == nullptr &&
      std::strstr(name, "libzrfoundation_velmardata.so") == nullptr) {
    return 0;
  }
  for (int i = 0; i < object->dlpi_phnum; ++i) {
    const Header& header = object->dlpi_phdr[i];
    if (header.p_type != PT_DYNAMIC) continue;
    const auto* entries = reinterpret_cast<const Dynamic*>(object->dlpi_addr + header.p_vaddr);
    *static_cast<int*>(turned) += turnSlots(*object, entries);
  }
  return 0;
}

}  // namespace

extern "C" {

// Replaces the slots and returns their number. Call it once, after the module has been loaded.
int install() {
  int turned = 0;
  dl_iterate_phdr(&visit, &turned);
  return turned;
}

// Makes the k-th allocation from now on fail; with 0, none.
void arm(long k, std::size_t leastOfNew) {
  s_failAt = k;
  s_leastOfNew = leastOfNew;
  s_count = 0;
}

long count() {
  return s_count;
}

}  // extern "C"
