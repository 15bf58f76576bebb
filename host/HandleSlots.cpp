#include "HandleSlots.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <new>

namespace cimhost::rt {

namespace {

constexpr uintptr_t kChunkBytes = uintptr_t{1} << 20;  // chunks are aligned to their size
constexpr size_t kSlotsPerChunk = kChunkBytes / sizeof(Slot);
// Chunk bases, open addressing; at most half full (4096 chunks, about 180
// million live handles).
constexpr size_t kChunkTableSize = 8192;
constexpr size_t kMaxChunks = kChunkTableSize / 2;
// Released slots wait this many later releases before they are reused.
constexpr size_t kQuarantineSize = 16384;

struct Pool {
    std::mutex mutex;
    std::atomic<uintptr_t> chunks[kChunkTableSize] = {};
    size_t chunkCount = 0;
    Slot *next = nullptr;  // bump pointer in the newest chunk
    Slot *end = nullptr;
    std::deque<Slot *> released;
};

// Never destroyed: cached clones may be released during process exit.
Pool &pool() {
    static Pool *p = new Pool;
    return *p;
}

size_t probeStart(uintptr_t base) { return static_cast<size_t>((base / kChunkBytes) * 0x9E3779B97F4A7C15ull >> 51) % kChunkTableSize; }

// Under the pool mutex.
void addChunk(Pool &p) {
    if (p.chunkCount == kMaxChunks) throw std::bad_alloc();
    void *memory = std::aligned_alloc(kChunkBytes, kChunkBytes);
    if (memory == nullptr) throw std::bad_alloc();
    std::memset(memory, 0, kChunkBytes);
    const auto base = reinterpret_cast<uintptr_t>(memory);
    for (size_t i = probeStart(base);; i = (i + 1) % kChunkTableSize) {
        if (p.chunks[i].load(std::memory_order_relaxed) == 0) {
            p.chunks[i].store(base, std::memory_order_release);
            break;
        }
    }
    ++p.chunkCount;
    p.next = static_cast<Slot *>(memory);
    p.end = p.next + kSlotsPerChunk;
}

bool isChunk(const Pool &p, uintptr_t base) {
    for (size_t i = probeStart(base);; i = (i + 1) % kChunkTableSize) {
        const uintptr_t c = p.chunks[i].load(std::memory_order_acquire);
        if (c == base) return true;
        if (c == 0) return false;
    }
}

}  // namespace

Slot *HandleSlots::take() {
    Pool &p = pool();
    std::lock_guard lock(p.mutex);
    Slot *slot;
    if (p.released.size() > kQuarantineSize) {
        slot = p.released.front();
        p.released.pop_front();
    } else {
        if (p.next == p.end) addChunk(p);
        slot = p.next++;
    }
    slot->header = Header{nullptr, nullptr};
    return slot;
}

void HandleSlots::giveBack(Slot *const *slots, size_t count) noexcept {
    if (count == 0) return;
    Pool &p = pool();
    std::lock_guard lock(p.mutex);
    try {
        p.released.insert(p.released.end(), slots, slots + count);
    } catch (...) {
        // Out of memory: the slots stay poisoned and are never reused.
    }
}

Slot *HandleSlots::find(const void *handle) {
    const auto address = reinterpret_cast<uintptr_t>(handle);
    const uintptr_t base = address & ~(kChunkBytes - 1);
    const uintptr_t offset = address - base;
    if (handle == nullptr || offset % sizeof(Slot) != 0 || offset / sizeof(Slot) >= kSlotsPerChunk) return nullptr;
    if (!isChunk(pool(), base)) return nullptr;
    return reinterpret_cast<Slot *>(address);
}

}  // namespace cimhost::rt
