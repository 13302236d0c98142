#include "vistrelle/platform/base/large_memory.h"

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>

namespace vistrelle::platform {
namespace {

constexpr std::size_t kMost = std::size_t{1} << 40;  // more is a mistake
constexpr std::size_t kPage = 4096;
constexpr std::size_t kLargePage = std::size_t{1} << 21;  // of x86-64 and, mostly, of AArch64
constexpr int kPopulateForWriting = 23;                   // MADV_POPULATE_WRITE, since Linux 5.14; refused before

std::size_t roundedUp(std::size_t value, std::size_t unit) {
  return (value + unit - 1) / unit * unit;
}

/// What the allocation functions have: a program that watches them learns of a refusal.
LargeMemory ordinaryMemory(std::size_t bytes) {
  auto* memory = static_cast<std::uint8_t*>(std::aligned_alloc(kPage, bytes));
  if (memory != nullptr) std::memset(memory, 0, bytes);
  return LargeMemory(memory, {0});
}

}  // namespace

void LargeMemoryDeleter::operator()(std::uint8_t* memory) const {
  if (bytes == 0) {
    std::free(memory);
  } else {
    ::munmap(memory, bytes);
  }
}

LargeMemory largeMemory(std::size_t bytes) {
  if (bytes == 0 || bytes > kMost) return nullptr;
  const std::size_t kept = roundedUp(bytes, kPage);
  // A large page starts at a multiple of its size: so much more is taken, and the ends are given back.
  const std::size_t spare = kept < kLargePage ? 0 : kLargePage - kPage;
  void* taken = ::mmap(nullptr, kept + spare, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (taken == MAP_FAILED) return ordinaryMemory(kept);
  auto* memory = static_cast<std::uint8_t*>(taken);
  if (spare > 0) {
    const auto address = reinterpret_cast<std::uintptr_t>(memory);
    const std::size_t before = roundedUp(address, kLargePage) - address;
    if (before > 0) ::munmap(memory, before);
    memory += before;
    if (before < spare) ::munmap(memory + kept, spare - before);
    ::madvise(memory, kept, MADV_HUGEPAGE);
  }
  // All of it is going to be written: one call in place of a fault for each page.
  ::madvise(memory, kept, kPopulateForWriting);
  return LargeMemory(memory, {kept});
}

}  // namespace vistrelle::platform
