// What this process uses, as the kernel and the C library count it.
//
// Threads: any. Errors: what cannot be read is 0.
#pragma once

#include <cstdint>

namespace tvx::soak {

struct ProcessFigures {
  std::int64_t residentBytes = 0;   // VmRSS
  std::int64_t allocatedBytes = 0;  // from the heap and not given back to it
  int descriptors = 0;
  int threads = 0;
  int children = 0;  // also those that have ended and were not waited for
};

ProcessFigures ReadProcessFigures();

}  // namespace tvx::soak
