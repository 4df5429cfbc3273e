#pragma once

#include <tarnwick/export.h>

#include <cstddef>

namespace tarnwick
{

/// The bytes of C heap now in use by this process, in all arenas of the allocator, large blocks that it maps separately
/// included. May be called from any thread while others allocate; the number then lies between what was in use when the
/// call began and when it ended. Small blocks that the allocator keeps for a thread's next allocation count as in use.
/// The cost grows with the number of arenas and free lists, not with the number of blocks in use. A C library before
/// glibc 2.33 can't tell more than 4 GiB of small blocks, or of large ones: what is above that is missing then.
TARNWICK_EXPORT size_t count_heap_used_bytes();

} // namespace tarnwick
