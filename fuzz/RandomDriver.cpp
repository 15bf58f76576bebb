// Runs the fuzz entry on seeded random inputs (and frames that are valid but
// for their payload), so every build exercises it without a fuzzing engine.
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
    const unsigned runs = argc > 1 ? static_cast<unsigned>(std::stoul(argv[1])) : 20000;
    std::mt19937 rng(12345);
    std::vector<uint8_t> input;
    for (unsigned i = 0; i < runs; ++i) {
        input.assign(rng() % 1400, 0);
        for (auto &b : input) b = static_cast<uint8_t>(rng());
        if (i % 2 == 0 && input.size() > 8) {  // a chunk that starts a frame of random length
            input[0] = static_cast<uint8_t>(i % 4 == 0 ? 3 + rng() % 3 : 100 + rng() % 28);
            input[1] = 0x5E, input[2] = 0x01, input[3] = 0x61;
        }
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    std::printf("%u inputs decoded\n", runs);
    return 0;
}
