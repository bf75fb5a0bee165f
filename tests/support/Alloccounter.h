// Counts heap allocations made through operator new in this program, so
// tests and benchmarks can prove that a steady-state stream allocates nothing.
#pragma once

#include <cstdint>

namespace Quorvel::Testing {

// Allocations made so far by every thread of the program.
uint64_t HeapAllocationCount();
// The largest single allocation since the last reset, in bytes.
uint64_t LargestHeapAllocation();
void ResetLargestHeapAllocation();

}  // namespace Quorvel::Testing
