// The worker pool never makes the network side wait: a full queue refuses at
// once, and every accepted job runs.
#include "WorkerPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>

using namespace cimserver;
using namespace std::chrono_literals;

TEST(WorkerPool, RefusesWhenFullAndRunsWhatItTook) {
    struct Case {
        const char *name;
        unsigned threads;
        std::size_t queue;
        int posts;     // while every worker is held
        int accepted;  // of those
    };
    const std::vector<Case> cases = {
        {"one worker, room for two", 1, 2, 5, 2},
        {"two workers, room for one", 2, 1, 4, 1},
        {"queue of zero is one", 1, 0, 3, 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        std::promise<void> release;
        std::shared_future<void> released = release.get_future().share();
        std::atomic<int> ran{0};
        {
            WorkerPool pool(c.threads, c.queue);
            struct Release {  // lets the held workers go even when an assertion ends the case early
                std::promise<void> &release;
                bool done = false;
                void now() {
                    if (!done) release.set_value();
                    done = true;
                }
                ~Release() { now(); }
            } guard{release};
            std::vector<std::promise<void>> started(c.threads);
            for (unsigned i = 0; i < c.threads; ++i)
                ASSERT_TRUE(pool.tryPost([&, i] {
                    started[i].set_value();
                    released.wait();
                    ++ran;
                }));
            for (auto &s : started) ASSERT_EQ(s.get_future().wait_for(10s), std::future_status::ready);
            int accepted = 0;
            for (int i = 0; i < c.posts; ++i) accepted += pool.tryPost([&] { ++ran; }) ? 1 : 0;
            EXPECT_EQ(accepted, c.accepted);
            EXPECT_FALSE(pool.waitIdle(std::chrono::steady_clock::now() + 10ms));
            guard.now();
            EXPECT_TRUE(pool.waitIdle(std::chrono::steady_clock::now() + 10s));
            EXPECT_TRUE(pool.stop(std::chrono::steady_clock::now() + 10s));
            EXPECT_FALSE(pool.tryPost([] {}));
        }
        EXPECT_EQ(ran.load(), static_cast<int>(c.threads) + c.accepted);
    }
}
