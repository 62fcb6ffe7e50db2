// Allocator settings of the long-running servers; see heap.h.
#include "orvelcommon/heap.h"

#include <malloc.h>

namespace orvel {

void KeepFreedHeapForReuse() {
  // Free memory at the top of a heap is returned above 16 MiB only, and
  // blocks below 4 MiB come from the heap rather than from fresh mappings
  // (which would be zero-filled and faulted in on every request).
  mallopt(M_TRIM_THRESHOLD, 16 << 20);
  mallopt(M_MMAP_THRESHOLD, 4 << 20);
}

}  // namespace orvel
