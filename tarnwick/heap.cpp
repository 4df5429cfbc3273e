#include <tarnwick/heap.h>

#include <malloc.h>

namespace tarnwick
{

size_t count_heap_used_bytes()
{
    // Blocks with a mapping of their own stand apart in hblkhd. Only mallinfo2 has fields of 64 bits.
#if __GLIBC_PREREQ(2, 33)
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
#else
    const struct mallinfo info = mallinfo();
    return size_t{static_cast<unsigned int>(info.uordblks)} + static_cast<unsigned int>(info.hblkhd);
#endif
}

} // namespace tarnwick
