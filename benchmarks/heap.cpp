// Every block of the process's heap goes through here, the library's and HDF5's.
#include "Rows.h"

#include <malloc.h>

#include <algorithm>

namespace
{

bool isCounting = false;
std::ptrdiff_t inUse = 0;
std::ptrdiff_t peak = 0;

// Counts a block that came (sign 1) or goes (sign -1).
void* Count(void* block, int sign)
{
    if (isCounting && block != nullptr)
    {
        inUse += sign * static_cast<std::ptrdiff_t>(malloc_usable_size(block));
        peak = std::max(peak, inUse);
    }
    return block;
}

} // namespace

extern "C"
{
    void* __libc_malloc(std::size_t size);
    void* __libc_calloc(std::size_t count, std::size_t size);
    void* __libc_realloc(void* block, std::size_t size);
    void __libc_free(void* block);

    void* malloc(std::size_t size)
    {
        return Count(__libc_malloc(size), 1);
    }

    void* calloc(std::size_t count, std::size_t size)
    {
        return Count(__libc_calloc(count, size), 1);
    }

    void* realloc(void* block, std::size_t size)
    {
        Count(block, -1);
        void* moved = __libc_realloc(block, size);
        Count(moved == nullptr && size != 0 ? block : moved, 1);
        return moved;
    }

    void free(void* block)
    {
        __libc_free(Count(block, -1));
    }
}

void bench::BeginCountingHeap()
{
    inUse = 0;
    peak = 0;
    isCounting = true;
}

std::size_t bench::EndCountingHeap()
{
    isCounting = false;
    return static_cast<std::size_t>(peak);
}
