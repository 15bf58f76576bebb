#include "ObjectRuntime.h"

#include <array>
#include <atomic>
#include <deque>
#include <functional>
#include <unordered_map>

namespace cimhost::rt {

namespace {

// Released headers are kept this long before their memory is returned.
constexpr size_t kQuarantineSize = 16384;
constexpr size_t kShards = 64;

struct Shard {
    std::mutex mutex;
    // nullptr marks a released header still in quarantine.
    std::unordered_map<const void *, Object *> objects;
};

struct State {
    std::array<Shard, kShards> shards;
    std::mutex quarantineMutex;
    std::deque<Header *> quarantine;
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

size_t shardIndex(const void *p) { return (std::hash<const void *>{}(p) >> 4) % kShards; }

Shard &shardOf(const void *p) { return state().shards[shardIndex(p)]; }

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
    }
    return "CMPIObject";
}

Object::Object(Kind kind, const Flavor &flavor, const void *ft)
    : header_(new Header{nullptr, ft}), kind_(kind), flavor_(flavor) {
    header_->hdl = this;
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
    {
        Shard &shard = shardOf(obj->header_);
        std::lock_guard lock(shard.mutex);
        shard.objects[obj->header_] = obj;
    }
    switch (lifetime) {
        case Lifetime::Tracked:
        case Lifetime::Borrowed: (tlsScope != nullptr ? *tlsScope : Scope::stray()).add(obj); break;
        case Lifetime::Clone: ++state().liveClones; break;
        case Lifetime::PassedIn: break;
    }
}

Object *Runtime::lookup(const void *handle, Kind kind, CMPIStatus *rc) {
    if (handle != nullptr) {
        Shard &shard = shardOf(handle);
        std::lock_guard lock(shard.mutex);
        auto it = shard.objects.find(handle);
        if (it != shard.objects.end()) {
            if (it->second == nullptr) {
                noteUseAfterRelease();
            } else if (it->second->kind_ == kind) {
                return it->second;
            }
        }
    }
    setRc(rc, CMPI_RC_ERR_INVALID_HANDLE);
    return nullptr;
}

bool Runtime::identify(const void *handle, Kind &kind) {
    if (handle == nullptr) return false;
    Shard &shard = shardOf(handle);
    std::lock_guard lock(shard.mutex);
    auto it = shard.objects.find(handle);
    if (it == shard.objects.end() || it->second == nullptr) return false;
    kind = it->second->kind_;
    return true;
}

bool Runtime::retire(Object *obj) {
    Shard &shard = shardOf(obj->header_);
    std::lock_guard lock(shard.mutex);
    auto it = shard.objects.find(obj->header_);
    if (it == shard.objects.end() || it->second != obj) return false;
    it->second = nullptr;
    return true;
}

void Runtime::destroy(Object *obj) {
    Header *header = obj->header_;
    Kind kind = obj->kind_;
    if (obj->lifetime_ == Lifetime::Clone) --state().liveClones;
    delete obj;
    header->hdl = poisonBlock;
    header->ft = poisonTable(kind);

    Header *evicted = nullptr;
    {
        State &s = state();
        std::lock_guard lock(s.quarantineMutex);
        s.quarantine.push_back(header);
        if (s.quarantine.size() > kQuarantineSize) {
            evicted = s.quarantine.front();
            s.quarantine.pop_front();
        }
    }
    if (evicted != nullptr) {
        Shard &shard = shardOf(evicted);
        {
            std::lock_guard lock(shard.mutex);
            shard.objects.erase(evicted);
        }
        delete evicted;
    }
}

// What retire and destroy do for one object, for many at once: each shard
// and the quarantine are locked once per batch instead of once per object.
void Runtime::destroyAll(std::vector<Object *> &objects) {
    State &s = state();
    std::array<std::vector<Object *>, kShards> byShard;
    for (Object *obj : objects) byShard[shardIndex(obj->header_)].push_back(obj);
    std::vector<Header *> headers;
    headers.reserve(objects.size());
    for (size_t i = 0; i < kShards; ++i) {
        if (byShard[i].empty()) continue;
        std::vector<Object *> retired;
        {
            std::lock_guard lock(s.shards[i].mutex);
            for (Object *obj : byShard[i]) {
                auto it = s.shards[i].objects.find(obj->header_);
                if (it == s.shards[i].objects.end() || it->second != obj) continue;
                it->second = nullptr;
                retired.push_back(obj);
            }
        }
        for (Object *obj : retired) {
            Header *header = obj->header_;
            Kind kind = obj->kind_;
            if (obj->lifetime_ == Lifetime::Clone) --s.liveClones;
            delete obj;
            header->hdl = poisonBlock;
            header->ft = poisonTable(kind);
            headers.push_back(header);
        }
    }
    std::array<std::vector<Header *>, kShards> evicted;
    {
        std::lock_guard lock(s.quarantineMutex);
        for (Header *header : headers) {
            s.quarantine.push_back(header);
            if (s.quarantine.size() > kQuarantineSize) {
                Header *old = s.quarantine.front();
                s.quarantine.pop_front();
                evicted[shardIndex(old)].push_back(old);
            }
        }
    }
    for (size_t i = 0; i < kShards; ++i) {
        if (evicted[i].empty()) continue;
        {
            std::lock_guard lock(s.shards[i].mutex);
            for (Header *header : evicted[i]) s.shards[i].objects.erase(header);
        }
        for (Header *header : evicted[i]) delete header;
    }
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
