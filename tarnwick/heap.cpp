#include <tarnwick/heap.h>

#include <malloc.h>

namespace tarnwick
{

size_t count_heap_used_bytes()
{
    // mallinfo2 has 64-bit fields; mallinfo's wrap at 2 GiB. Blocks with a mapping of their own stand apart in hblkhd.
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

} // namespace tarnwick
