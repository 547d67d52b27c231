// Tracked heap allocation.
//
// Every heap block of the library (matrix storage, cloned exceptions) is taken
// from and returned to this allocator.  It keeps counters of the blocks and
// bytes that are currently live, which the test suite reads after every test
// as its leak check.
#ifndef CORE_MEMTRACKER_H
#define CORE_MEMTRACKER_H

#include <core/core_export.h>

#include <cstddef>
#include <cstdint>

// Allocates `size` bytes, aligned for any scalar type.
//
// A request of UINT_MAX bytes is refused: callers that compute a byte count
// saturate it to that value on overflow (see core_memTracker_bytes), so a
// wrapped count can never turn into a small, successful allocation.
//
// On failure: with `throwOnFailure` set, a CthrowBase with id
// CthrowBase::ERR_CORE_NOMEMORY and the requested size as "%0" is thrown;
// otherwise a null pointer is returned.  A request of 0 bytes returns a valid,
// unique pointer that must be freed like any other.
CORE_API void* core_memTracker_malloc(unsigned size, bool throwOnFailure);

// As core_memTracker_malloc, with every byte of the block zero.  Large blocks
// come from the system already zeroed, so they are not touched here.
CORE_API void* core_memTracker_calloc(unsigned size, bool throwOnFailure);

// Returns a block obtained from core_memTracker_malloc.  A null pointer is ignored.
CORE_API void core_memTracker_free(void* p);

namespace core {

// Byte count of `count` elements of `elemSize` bytes, saturated to UINT_MAX
// when the product does not fit into 32 bits.
CORE_API unsigned memTracker_bytes(std::uint64_t count, std::size_t elemSize) noexcept;

// Number of blocks currently allocated and not yet freed.
CORE_API std::uint64_t memTracker_liveBlocks() noexcept;
// Sum of the sizes of those blocks.
CORE_API std::uint64_t memTracker_liveBytes() noexcept;
// Number of allocations so far (successful ones only).
CORE_API std::uint64_t memTracker_totalAllocations() noexcept;

}  // namespace core

#endif
