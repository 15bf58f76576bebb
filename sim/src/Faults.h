// Fault injection: which faults touch one exchange, and the text form of
// TOVRA_SIM_FAULTS.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tovrasim/Simulator.h"

namespace tovra::sim {

// The combined effect of the faults that fire on one exchange.
struct ExchangeFaults {
    bool writeFail = false;
    bool readFail = false;
    bool noReply = false;
    bool zeroLength = false;
    bool badChecksum = false;
    unsigned delayMs = 0;
    unsigned garbageChunks = 0;
    std::optional<unsigned> chunk;
};

class FaultSet {
public:
    void add(const Fault &f) { entries_.push_back(Entry{f, 0, 0}); }
    void clear();
    ExchangeFaults onExchange(int command);
    bool onOpen();  // true when this device open must fail

private:
    struct Entry {
        Fault fault;
        unsigned seen;     // matching events so far
        unsigned applied;  // events the fault fired on
    };
    bool fires(Entry &e);
    double draw();

    std::vector<Entry> entries_;
    uint64_t prng_ = kSeed;
    static constexpr uint64_t kSeed = 0x7E57AB1E5EEDULL;
};

// "cmd=0x22,kind=delay,ms=1500,count=2;kind=openfail". Throws std::invalid_argument.
std::vector<Fault> parseFaults(const std::string &text);

}  // namespace tovra::sim
