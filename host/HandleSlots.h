// Where the {hdl, ft} headers that providers hold live: in large aligned
// chunks, each header beside the pointer to its object. A handle is checked by
// address arithmetic (is it a slot of one of our chunks?) instead of a lookup
// in a table, so making and releasing an object allocates nothing for its
// handle. A released slot is reused only after a long quarantine of later
// releases, so a stale handle still meets a poisoned header for a while.
#pragma once

#include "ObjectRuntime.h"

#include <atomic>
#include <cstddef>

namespace cimhost::rt {

struct Slot {
    Header header;                // first: a handle is the slot's address
    std::atomic<Object *> object;  // null when free or released
};

class HandleSlots {
public:
    // A slot whose header is zeroed and whose object is null.
    static Slot *take();
    // Slots whose objects are gone (their headers poisoned), for reuse after
    // the quarantine.
    static void giveBack(Slot *const *slots, size_t count) noexcept;
    static void giveBack(Slot *slot) noexcept { giveBack(&slot, 1); }
    // The slot a handle is, or nullptr for anything else (NULL, a foreign
    // pointer, a pointer into the middle of a slot).
    static Slot *find(const void *handle);
};

}  // namespace cimhost::rt
