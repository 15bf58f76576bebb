#include "Faults.h"

#include <cstdlib>
#include <map>
#include <sstream>
#include <stdexcept>

namespace tovra::sim {

void FaultSet::clear() {
    entries_.clear();
    prng_ = kSeed;
}

// splitmix64: a small deterministic generator, so rates repeat run to run.
double FaultSet::draw() {
    uint64_t z = (prng_ += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    z ^= z >> 31;
    return static_cast<double>(z >> 11) * 0x1.0p-53;
}

bool FaultSet::fires(Entry &e) {
    const Fault &f = e.fault;
    ++e.seen;
    if (f.nth && e.seen < f.nth) return false;
    if (f.count && e.applied >= f.count) return false;
    if (f.rate < 1.0 && draw() >= f.rate) return false;
    ++e.applied;
    return true;
}

ExchangeFaults FaultSet::onExchange(int command) {
    ExchangeFaults x;
    for (Entry &e : entries_) {
        const Fault &f = e.fault;
        if (f.kind == FaultKind::OpenFail || (f.command != -1 && f.command != command) || !fires(e)) continue;
        switch (f.kind) {
        case FaultKind::Delay: x.delayMs += f.value; break;
        case FaultKind::NoReply: x.noReply = true; break;
        case FaultKind::ZeroLength: x.zeroLength = true; break;
        case FaultKind::BadChecksum: x.badChecksum = true; break;
        case FaultKind::Garbage: x.garbageChunks += f.value ? f.value : 1; break;
        case FaultKind::Chunk: x.chunk = f.value ? f.value : 1; break;
        case FaultKind::ReadFail: x.readFail = true; break;
        case FaultKind::WriteFail: x.writeFail = true; break;
        case FaultKind::OpenFail: break;
        }
    }
    return x;
}

bool FaultSet::onOpen() {
    bool fail = false;
    for (Entry &e : entries_)
        if (e.fault.kind == FaultKind::OpenFail && fires(e)) fail = true;
    return fail;
}

namespace {

const std::map<std::string, FaultKind> &kinds() {
    static const std::map<std::string, FaultKind> table = {
        {"delay", FaultKind::Delay},         {"noreply", FaultKind::NoReply},   {"zerolength", FaultKind::ZeroLength},
        {"badchecksum", FaultKind::BadChecksum}, {"garbage", FaultKind::Garbage}, {"chunk", FaultKind::Chunk},
        {"readfail", FaultKind::ReadFail},   {"writefail", FaultKind::WriteFail}, {"openfail", FaultKind::OpenFail},
    };
    return table;
}

unsigned long number(const std::string &key, const std::string &v) {
    char *end = nullptr;
    const unsigned long x = std::strtoul(v.c_str(), &end, 0);
    if (v.empty() || *end) throw std::invalid_argument("fault key " + key + ": \"" + v + "\" is not a number");
    return x;
}

Fault parseOne(const std::string &entry) {
    Fault f{FaultKind::Delay};
    bool haveKind = false;
    std::istringstream in(entry);
    std::string pair;
    while (std::getline(in, pair, ',')) {
        const auto eq = pair.find('=');
        if (eq == std::string::npos) throw std::invalid_argument("fault entry \"" + pair + "\" lacks '='");
        const std::string key = pair.substr(0, eq), value = pair.substr(eq + 1);
        if (key == "kind") {
            const auto it = kinds().find(value);
            if (it == kinds().end()) throw std::invalid_argument("unknown fault kind \"" + value + "\"");
            f.kind = it->second;
            haveKind = true;
        } else if (key == "cmd") {
            f.command = value == "any" ? -1 : static_cast<int>(number(key, value));
        } else if (key == "nth") {
            f.nth = static_cast<unsigned>(number(key, value));
        } else if (key == "count") {
            f.count = static_cast<unsigned>(number(key, value));
        } else if (key == "rate") {
            char *end = nullptr;
            f.rate = std::strtod(value.c_str(), &end);
            if (value.empty() || *end || f.rate < 0 || f.rate > 1)
                throw std::invalid_argument("fault rate must be between 0 and 1");
        } else if (key == "ms" || key == "chunks" || key == "size" || key == "value") {
            f.value = static_cast<unsigned>(number(key, value));
        } else {
            throw std::invalid_argument("unknown fault key \"" + key + "\"");
        }
    }
    if (!haveKind) throw std::invalid_argument("fault entry \"" + entry + "\" has no kind");
    return f;
}

}  // namespace

std::vector<Fault> parseFaults(const std::string &text) {
    std::vector<Fault> faults;
    std::istringstream in(text);
    std::string entry;
    while (std::getline(in, entry, ';')) {
        entry.erase(0, entry.find_first_not_of(" \t"));
        entry.erase(entry.find_last_not_of(" \t") + 1);
        if (!entry.empty()) faults.push_back(parseOne(entry));
    }
    return faults;
}

}  // namespace tovra::sim
