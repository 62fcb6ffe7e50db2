// Allocator settings for the long-running servers (the daemon and the web
// API's persistent workers). Thread-safe to call once at start-up.
#pragma once

namespace orvel {

// Keeps freed heap memory for the next request instead of handing it back to
// the kernel at once. A listing's answer is built from thousands of small
// allocations; with the default settings each request's heap is trimmed on
// the way out and faulted in again, page by page, by the next one. Memory
// above the limits below still goes back, so a server stays small after a
// rare large answer.
void KeepFreedHeapForReuse();

}  // namespace orvel
