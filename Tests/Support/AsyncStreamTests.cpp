#include "Support/AsyncStream.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace corvane {
namespace {

TEST(AsyncStream, deliversWhatWasWrittenBeforeItsEndAndNothingAfter) {
    auto [stream, continuation] = AsyncStream<int>::makeStream();
    continuation.yield(1);
    continuation.yield(2);
    continuation.finish();
    continuation.yield(3);
    EXPECT_EQ(stream.next(), 1);
    EXPECT_EQ(stream.next(), 2);
    EXPECT_EQ(stream.next(), std::nullopt);
    EXPECT_EQ(stream.next(), std::nullopt);
}

TEST(AsyncStream, runsItsHookOnceHoweverItEnds) {
    int calls = 0;
    {
        auto [stream, continuation] = AsyncStream<int>::makeStream();
        continuation.setOnTermination([&] { ++calls; });
        continuation.finish();
        continuation.finish();
        EXPECT_EQ(calls, 1);
        continuation.setOnTermination([&] { calls += 10; });
        EXPECT_EQ(calls, 11);
    }
    EXPECT_EQ(calls, 11);
    {
        auto made = AsyncStream<int>::makeStream();
        made.second.setOnTermination([&] { ++calls; });
        {
            const auto copy = made.first;
            const auto last = std::move(made.first);
            EXPECT_EQ(calls, 11);
        }
        EXPECT_EQ(calls, 12); // abandoned by its reader
    }
}

TEST(AsyncStream, aStopRequestEndsTheWaitAndTheStream) {
    auto [stream, continuation] = AsyncStream<int>::makeStream();
    std::atomic<bool> ended = false;
    continuation.setOnTermination([&] { ended = true; });
    std::stop_source source;
    std::jthread stopper([&] { source.request_stop(); });
    EXPECT_EQ(stream.next(source.get_token()), std::nullopt);
    EXPECT_TRUE(ended);
    continuation.yield(1);
    EXPECT_EQ(stream.next(), std::nullopt);
}

TEST(AsyncStream, keepsTheOrderOfEachWriterUnderConcurrency) {
    auto [stream, continuation] = AsyncStream<std::pair<int, int>>::makeStream();
    constexpr int writers = 4;
    constexpr int values = 500;
    std::vector<int> next(writers, 0);
    {
        std::vector<std::jthread> threads;
        for (int writer = 0; writer < writers; ++writer) {
            threads.emplace_back([writer, out = continuation] {
                for (int value = 0; value < values; ++value) out.yield({writer, value});
            });
        }
        for (int count = 0; count < writers * values; ++count) {
            const auto [writer, value] = stream.next().value();
            EXPECT_EQ(value, next[static_cast<std::size_t>(writer)]++);
        }
    }
    continuation.finish();
    EXPECT_EQ(stream.next(), std::nullopt);
}

} // namespace
} // namespace corvane
