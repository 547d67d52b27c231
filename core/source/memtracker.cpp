#include <core/memtracker.h>
#include <core/throw.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <new>

namespace {

// Every block carries a header in front of the user's bytes that records its
// size, so that the free can update the byte counter.  The header is as large
// as the strictest scalar alignment so the user pointer stays aligned.
constexpr std::size_t kHeader = alignof(std::max_align_t) > sizeof(std::uint64_t)
                                    ? alignof(std::max_align_t)
                                    : sizeof(std::uint64_t);

std::atomic<std::uint64_t> g_liveBlocks{0};
std::atomic<std::uint64_t> g_liveBytes{0};
std::atomic<std::uint64_t> g_total{0};

}  // namespace

namespace {

void* trackedAlloc(unsigned size, bool throwOnFailure, bool zero) {
    void* raw = nullptr;
    if (size != UINT_MAX) {
        const std::size_t total = kHeader + static_cast<std::size_t>(size);
        raw = zero ? std::calloc(1, total) : std::malloc(total);
    }
    if (raw == nullptr) {
        if (throwOnFailure) throw CthrowBase(CthrowBase::ERR_CORE_NOMEMORY, "") << std::to_string(size);
        return nullptr;
    }
    *static_cast<std::uint64_t*>(raw) = size;
    g_liveBlocks.fetch_add(1, std::memory_order_relaxed);
    g_liveBytes.fetch_add(size, std::memory_order_relaxed);
    g_total.fetch_add(1, std::memory_order_relaxed);
    return static_cast<char*>(raw) + kHeader;
}

}  // namespace

void* core_memTracker_malloc(unsigned size, bool throwOnFailure) { return trackedAlloc(size, throwOnFailure, false); }

void* core_memTracker_calloc(unsigned size, bool throwOnFailure) { return trackedAlloc(size, throwOnFailure, true); }

void core_memTracker_free(void* p) {
    if (p == nullptr) return;
    void* raw = static_cast<char*>(p) - kHeader;
    const std::uint64_t size = *static_cast<std::uint64_t*>(raw);
    g_liveBlocks.fetch_sub(1, std::memory_order_relaxed);
    g_liveBytes.fetch_sub(size, std::memory_order_relaxed);
    std::free(raw);
}

namespace core {

unsigned memTracker_bytes(std::uint64_t count, std::size_t elemSize) noexcept {
    if (elemSize != 0 && count > UINT_MAX / elemSize) return UINT_MAX;
    const std::uint64_t bytes = count * elemSize;
    return bytes >= UINT_MAX ? UINT_MAX : static_cast<unsigned>(bytes);
}

std::uint64_t memTracker_liveBlocks() noexcept { return g_liveBlocks.load(std::memory_order_relaxed); }
std::uint64_t memTracker_liveBytes() noexcept { return g_liveBytes.load(std::memory_order_relaxed); }
std::uint64_t memTracker_totalAllocations() noexcept { return g_total.load(std::memory_order_relaxed); }

}  // namespace core
