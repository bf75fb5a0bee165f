#include "tests/support/Alloccounter.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {
std::atomic<uint64_t> GAllocations{0};
std::atomic<uint64_t> GLargest{0};

void* Allocate(std::size_t Size, std::size_t Align) {
  GAllocations.fetch_add(1, std::memory_order_relaxed);
  uint64_t Largest = GLargest.load(std::memory_order_relaxed);
  while (Size > Largest && !GLargest.compare_exchange_weak(Largest, Size, std::memory_order_relaxed)) {
  }
  if (Size == 0) Size = 1;
  void* P = nullptr;
  if (Align <= alignof(std::max_align_t)) {
    P = std::malloc(Size);
  } else {
#ifdef _WIN32
    P = _aligned_malloc(Size, Align);
#else
    if (posix_memalign(&P, Align, Size) != 0) P = nullptr;
#endif
  }
  if (!P) throw std::bad_alloc();
  return P;
}

void Free(void* P, std::size_t Align) noexcept {
  if (!P) return;
#ifdef _WIN32
  if (Align > alignof(std::max_align_t)) {
    _aligned_free(P);
    return;
  }
#endif
  (void)Align;
  std::free(P);
}
}  // namespace

namespace Quorvel::Testing {
uint64_t HeapAllocationCount() { return GAllocations.load(std::memory_order_relaxed); }
uint64_t LargestHeapAllocation() { return GLargest.load(std::memory_order_relaxed); }
void ResetLargestHeapAllocation() { GLargest.store(0, std::memory_order_relaxed); }
}  // namespace Quorvel::Testing

void* operator new(std::size_t Size) { return Allocate(Size, alignof(std::max_align_t)); }
void* operator new[](std::size_t Size) { return Allocate(Size, alignof(std::max_align_t)); }
void* operator new(std::size_t Size, std::align_val_t Align) { return Allocate(Size, static_cast<std::size_t>(Align)); }
void* operator new[](std::size_t Size, std::align_val_t Align) {
  return Allocate(Size, static_cast<std::size_t>(Align));
}
void* operator new(std::size_t Size, const std::nothrow_t&) noexcept {
  try {
    return Allocate(Size, alignof(std::max_align_t));
  } catch (...) {
    return nullptr;
  }
}
void operator delete(void* P) noexcept { Free(P, alignof(std::max_align_t)); }
void operator delete[](void* P) noexcept { Free(P, alignof(std::max_align_t)); }
void operator delete(void* P, std::size_t) noexcept { Free(P, alignof(std::max_align_t)); }
void operator delete[](void* P, std::size_t) noexcept { Free(P, alignof(std::max_align_t)); }
void operator delete(void* P, std::align_val_t Align) noexcept { Free(P, static_cast<std::size_t>(Align)); }
void operator delete[](void* P, std::align_val_t Align) noexcept { Free(P, static_cast<std::size_t>(Align)); }
void operator delete(void* P, std::size_t, std::align_val_t Align) noexcept {
  Free(P, static_cast<std::size_t>(Align));
}
void operator delete[](void* P, std::size_t, std::align_val_t Align) noexcept {
  Free(P, static_cast<std::size_t>(Align));
}
