// Several clients at once, as a CIMOM runs them: enumerations of the same and
// of different classes, gets that refresh through the broker, and rebuilds
// forced by the clock, all interleaving on the one device lock.
#include "Harness.h"

#include <atomic>
#include <thread>

using namespace harness;
namespace sim = tovra::sim;

namespace {

class Concurrency : public ProviderTest {};

TEST_F(Concurrency, ClientsOnSeveralThreadsAlwaysSeeWholeAnswers) {
    const std::string serial = enumInstances("Tovra_RAIDControllerSystem").objects.at(0).text("Name");
    std::atomic<int> wrong{0};
    auto client = [&](int which) {
        for (int i = 0; i < 30; ++i) {
            switch ((which + i) % 4) {
                case 0: wrong += enumInstances("Tovra_DiskDrive").objects.size() != 12; break;
                case 1: wrong += enumNames("Tovra_StorageVolume").objects.size() != 3; break;
                case 2:
                    wrong += getInstance("Tovra_RAIDControllerSystem", {{"Name", In::str(serial)}}).objects.size() != 1;
                    break;
                case 3: wrong += enumInstances("Tovra_StoragePool").objects.size() != 2; break;
            }
            if (which == 0 && i % 5 == 0) sim::advance(1801);  // caches go stale under the readers
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) threads.emplace_back(client, t);
    for (auto &t : threads) t.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(sim::openDescriptors(), 0u);
}

}  // namespace
