// Runs a fuzz entry without a fuzzing engine, so every build exercises it:
// the seeds of its corpus folder as they are, then seeded random mutations of
// them (byte flips, boundary values, cuts, repeats, splices) and plain random
// bytes. The same seed gives the same inputs on every run.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

using Bytes = std::vector<uint8_t>;

std::vector<Bytes> readCorpus(const std::filesystem::path &dir) {
    std::vector<Bytes> seeds;
    std::error_code ec;
    std::vector<std::filesystem::path> files;
    for (const auto &e : std::filesystem::directory_iterator(dir, ec))
        if (e.is_regular_file()) files.push_back(e.path());
    std::sort(files.begin(), files.end());  // directory order is not stable
    for (const auto &f : files) {
        std::ifstream in(f, std::ios::binary);
        seeds.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    return seeds;
}

class Mutator {
public:
    explicit Mutator(const std::vector<Bytes> &seeds) : seeds_(seeds) {}

    Bytes next() {
        if (seeds_.empty() || pick(8) == 0) return randomBytes(pick(1400));
        Bytes b = seeds_[pick(seeds_.size())];
        for (size_t n = 1 + pick(6); n > 0; --n) mutate(b);
        return b;
    }

private:
    size_t pick(size_t bound) { return bound == 0 ? 0 : rng_() % bound; }

    Bytes randomBytes(size_t n) {
        Bytes b(n);
        for (auto &x : b) x = static_cast<uint8_t>(rng_());
        return b;
    }

    void mutate(Bytes &b) {
        static constexpr uint8_t kBoundary[] = {0, 1, 0x7F, 0x80, 0xFF, '"', '{', '}', '[', ']', ',', ':', ';', '\n', '#'};
        const size_t at = pick(b.size() + 1);
        switch (pick(7)) {
            case 0:
                if (at < b.size()) b[at] ^= static_cast<uint8_t>(1u << pick(8));
                break;
            case 1:
                if (at < b.size()) b[at] = kBoundary[pick(sizeof kBoundary)];
                break;
            case 2: b.insert(b.begin() + static_cast<long>(at), static_cast<uint8_t>(rng_())); break;
            case 3: b.erase(b.begin() + static_cast<long>(at), b.begin() + static_cast<long>(std::min(b.size(), at + 1 + pick(16)))); break;
            case 4: b.resize(at); break;
            case 5: {  // repeat a piece
                const size_t len = std::min(b.size() - std::min(at, b.size()), 1 + pick(64));
                const Bytes piece(b.begin() + static_cast<long>(at), b.begin() + static_cast<long>(at + len));
                b.insert(b.begin() + static_cast<long>(pick(b.size() + 1)), piece.begin(), piece.end());
                break;
            }
            default: {  // splice in a piece of another seed
                const Bytes &other = seeds_[pick(seeds_.size())];
                const size_t from = pick(other.size() + 1);
                const size_t len = std::min(other.size() - from, 1 + pick(128));
                b.insert(b.begin() + static_cast<long>(at), other.begin() + static_cast<long>(from),
                         other.begin() + static_cast<long>(from + len));
            }
        }
    }

    const std::vector<Bytes> &seeds_;
    std::mt19937 rng_{12345};
};

}  // namespace

int main(int argc, char **argv) {
    const unsigned runs = argc > 1 ? static_cast<unsigned>(std::stoul(argv[1])) : 3000;
    const std::vector<Bytes> seeds = argc > 2 ? readCorpus(argv[2]) : std::vector<Bytes>{};
    for (const Bytes &s : seeds) LLVMFuzzerTestOneInput(s.data(), s.size());
    Mutator mutator(seeds);
    for (unsigned i = 0; i < runs; ++i) {
        const Bytes input = mutator.next();
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    std::printf("%zu seeds and %u mutated inputs run\n", seeds.size(), runs);
    return 0;
}
