#include "ObjectRuntime.h"

#include "HandleSlots.h"

#include <atomic>

namespace cimhost::rt {

namespace {

struct State {
    std::atomic<size_t> liveRequestObjects{0};
    std::atomic<size_t> liveClones{0};
    std::atomic<uint64_t> useAfterRelease{0};
    std::atomic<uint64_t> doubleRelease{0};
    std::atomic<uint64_t> invalidRelease{0};
};

// Never destroyed: providers may release cached clones during process exit.
State &state() {
    static State *s = new State;
    return *s;
}

Slot *slotOf(Header *header) { return reinterpret_cast<Slot *>(header); }

thread_local Scope *tlsScope = nullptr;

}  // namespace

const char *kindName(Kind kind) {
    switch (kind) {
        case Kind::String: return "CMPIString";
        case Kind::Array: return "CMPIArray";
        case Kind::Instance: return "CMPIInstance";
        case Kind::ObjectPath: return "CMPIObjectPath";
        case Kind::Args: return "CMPIArgs";
        case Kind::Enumeration: return "CMPIEnumeration";
        case Kind::DateTime: return "CMPIDateTime";
        case Kind::Context: return "CMPIContext";
        case Kind::Result: return "CMPIResult";
        case Kind::SelectExp: return "CMPISelectExp";
    }
    return "CMPIObject";
}

Object::Object(Kind kind, const Flavor &flavor, const void *ft)
    : header_(&HandleSlots::take()->header), kind_(kind), flavor_(flavor) {
    header_->hdl = this;
    header_->ft = ft;
}

// ---- scopes ----------------------------------------------------------------

Scope::~Scope() {
    std::vector<Object *> left;
    {
        std::lock_guard lock(mutex_);
        left.swap(objects_);
    }
    state().liveRequestObjects -= left.size();
    for (Object *obj : left) obj->scope_ = nullptr;
    Runtime::destroyAll(left);
}

Scope *Scope::current() { return tlsScope; }

Scope &Scope::stray() {
    static Scope *s = new Scope;
    return *s;
}

void Scope::add(Object *obj) {
    std::lock_guard lock(mutex_);
    obj->scope_ = this;
    obj->slot_ = objects_.size();
    objects_.push_back(obj);
    ++state().liveRequestObjects;
}

void Scope::remove(Object *obj) {
    std::lock_guard lock(mutex_);
    size_t slot = obj->slot_;
    if (slot >= objects_.size() || objects_[slot] != obj) return;
    objects_[slot] = objects_.back();
    objects_[slot]->slot_ = slot;
    objects_.pop_back();
    obj->scope_ = nullptr;
    --state().liveRequestObjects;
}

ScopeBinding::ScopeBinding(Scope *scope) : previous_(tlsScope) { tlsScope = scope; }
ScopeBinding::~ScopeBinding() { tlsScope = previous_; }

// ---- runtime ---------------------------------------------------------------

Stats Runtime::stats() {
    State &s = state();
    return Stats{s.liveRequestObjects.load(), s.liveClones.load(), s.useAfterRelease.load(), s.doubleRelease.load(),
                 s.invalidRelease.load()};
}

void Runtime::adopt(Object *obj, Lifetime lifetime) {
    obj->lifetime_ = lifetime;
    switch (lifetime) {
        case Lifetime::Tracked:
        case Lifetime::Borrowed: (tlsScope != nullptr ? *tlsScope : Scope::stray()).add(obj); break;
        case Lifetime::Clone: ++state().liveClones; break;
        case Lifetime::PassedIn: break;
    }
    // Published last: if joining the scope threw, the handle never named it.
    slotOf(obj->header_)->object.store(obj, std::memory_order_release);
}

Object *Runtime::lookup(const void *handle, Kind kind, CMPIStatus *rc) {
    if (Slot *slot = HandleSlots::find(handle); slot != nullptr) {
        Object *obj = slot->object.load(std::memory_order_acquire);
        if (obj != nullptr && obj->kind_ == kind) return obj;
        if (obj == nullptr && slot->header.ft != nullptr) noteUseAfterRelease();
    }
    setRc(rc, CMPI_RC_ERR_INVALID_HANDLE);
    return nullptr;
}

bool Runtime::identify(const void *handle, Kind &kind) {
    Slot *slot = HandleSlots::find(handle);
    Object *obj = slot != nullptr ? slot->object.load(std::memory_order_acquire) : nullptr;
    if (obj == nullptr) return false;
    kind = obj->kind_;
    return true;
}

bool Runtime::retire(Object *obj) {
    Object *expected = obj;
    return slotOf(obj->header_)->object.compare_exchange_strong(expected, nullptr, std::memory_order_acq_rel);
}

// The object's data goes; its header stays poisoned until the slot is reused.
Slot *Runtime::destroyRetired(Object *obj) {
    Header *header = obj->header_;
    const Kind kind = obj->kind_;
    if (obj->lifetime_ == Lifetime::Clone) --state().liveClones;
    delete obj;
    header->hdl = poisonBlock;
    header->ft = poisonTable(kind);
    return slotOf(header);
}

void Runtime::destroy(Object *obj) { HandleSlots::giveBack(destroyRetired(obj)); }

// What retire and destroy do for one object, for many at once: the slots go
// back under one lock.
void Runtime::destroyAll(std::vector<Object *> &objects) {
    std::vector<Slot *> slots;
    slots.reserve(objects.size());
    for (Object *obj : objects)
        if (retire(obj)) slots.push_back(destroyRetired(obj));
    HandleSlots::giveBack(slots.data(), slots.size());
}

CMPIStatus Runtime::release(void *handle, Kind kind) {
    CMPIStatus rc = status(CMPI_RC_OK);
    Object *obj = lookup(handle, kind, &rc);
    if (obj == nullptr) return rc;
    if (obj->lifetime_ == Lifetime::PassedIn || obj->lifetime_ == Lifetime::Borrowed) {
        ++state().invalidRelease;
        return status(CMPI_RC_ERR_FAILED);
    }
    if (!retire(obj)) {
        noteDoubleRelease();
        return status(CMPI_RC_ERR_INVALID_HANDLE);
    }
    if (obj->scope_ != nullptr) obj->scope_->remove(obj);
    destroy(obj);
    return rc;
}

void Runtime::dispose(Object *obj) {
    if (obj != nullptr && retire(obj)) destroy(obj);
}

void Runtime::noteUseAfterRelease() { ++state().useAfterRelease; }
void Runtime::noteDoubleRelease() { ++state().doubleRelease; }

}  // namespace cimhost::rt
