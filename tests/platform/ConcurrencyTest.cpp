#include "platform/concurrency/Executors.hpp"
#include "platform/concurrency/Published.hpp"
#include "platform/concurrency/TaskHandle.hpp"
#include "platform/core/Date.hpp"
#include "support/TestRuntime.hpp"

#include <gtest/gtest.h>

#include <thread>

namespace velto {
namespace {

using test::TestRuntime;

Task<std::thread::id> threadAfterOffload(Executors executors, std::thread::id& inside) {
    inside = co_await offload(executors, [] { return std::this_thread::get_id(); });
    co_return std::this_thread::get_id();
}

TEST(Concurrency, OffloadRunsElsewhereAndComesHome) {
    TestRuntime runtime;
    std::thread::id inside;
    const auto home = runtime.run(threadAfterOffload(runtime.executors(), inside));
    EXPECT_EQ(home, std::this_thread::get_id());
    EXPECT_NE(inside, home);
}

Task<int> untilCancelled(CancellationToken token) {
    while (true) {
        token.check();
        co_await yieldNow();
    }
}

Task<void> cancelAndWait(TaskHandle<int> handle) {
    handle.cancel();
    co_await handle.finished();
}

TEST(Concurrency, ACancelledTaskEndsAtItsCheckpoint) {
    TestRuntime runtime;
    const CancellationToken token;
    const auto handle =
        TaskHandle<int>::start(runtime.executors(), runtime.executors().pool, untilCancelled(token), token);
    runtime.run(cancelAndWait(handle));
    EXPECT_TRUE(handle.isDone());
    EXPECT_THROW(runtime.run(handle.value()), CancellationError);
}

TEST(Published, NotifiesObserversUntilTheyLeave) {
    Published<int> field(1);
    std::vector<int> seen;
    {
        const Subscription subscription = field.subscribe([&](int value) { seen.push_back(value); });
        field = 2;
        field.mutate([](int& value) { value *= 10; });
    }
    field = 3;
    EXPECT_EQ(seen, (std::vector<int>{2, 20}));
    EXPECT_EQ(field.get(), 3);
}

TEST(Dates, ReadBackWhatWasWritten) {
    const Date date = dateFromMicroseconds(1'778'000'123'456'000);
    EXPECT_EQ(dateFromIso8601(iso8601(date)), date);
    for (const char* wrong : {"", "2026-13-01T00:00:00Z", "2026-05-01T00:00:00", "2026-05-01 00:00:00Z",
                              "2026-05-01T00:00:00.Z", "2026-05-01T00:00:00.1x3Z"})
        EXPECT_FALSE(dateFromIso8601(wrong)) << wrong;
}

} // namespace
} // namespace velto
