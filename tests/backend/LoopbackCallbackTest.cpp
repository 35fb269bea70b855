#include "backend/LoopbackCallback.hpp"

#include <gtest/gtest.h>
#include <httplib.h>

#include <mutex>
#include <vector>

namespace velto {
namespace {

class LoopbackCallbackTest : public testing::Test {
  protected:
    /// The status of a request for the path and query; 0 if there was no answer.
    int get(const std::string& pathAndQuery) {
        const auto reply = httplib::Client(address.substr(0, slash)).Get(pathAndQuery);
        return reply ? reply->status : 0;
    }

    std::vector<std::string> taken() {
        const std::lock_guard lock(mutex);
        return tokens;
    }

    std::mutex mutex;
    std::vector<std::string> tokens;
    std::unique_ptr<LoopbackCallback> callback =
        std::make_unique<LoopbackCallback>([this](std::string token) {
            const std::lock_guard lock(mutex);
            tokens.push_back(std::move(token));
        });
    const std::string address = callback->returnAddress();
    const std::size_t slash = address.find('/', std::string("http://").size());
    const std::string target = address.substr(slash);
};

TEST_F(LoopbackCallbackTest, TakesOneTokenFromWhoeverKnowsTheState) {
    ASSERT_TRUE(address.starts_with("http://127.0.0.1:")) << address;
    const std::string path = target.substr(0, target.find('?'));
    const std::string state = target.substr(path.size() + 1);
    for (const auto& query : {std::string("token=evil"), std::string("state=guessed&token=evil"),
                              "state=guessed&token=evil&" + state, state})
        EXPECT_EQ(get(path + "?" + query), 403) << query;
    EXPECT_EQ(get("/?" + state + "&token=evil"), 404);
    EXPECT_NE(get(target + "&token=" + std::string(100'000, 'x')), 200);
    EXPECT_EQ(taken(), std::vector<std::string>{});
    EXPECT_EQ(get(target + "&token=a%2Fb%2Bc%3D"), 200);
    EXPECT_EQ(get(target + "&token=another"), 403);
    EXPECT_EQ(taken(), std::vector<std::string>{"a/b+c="});
    EXPECT_NE(LoopbackCallback([](const std::string&) {}).returnAddress().substr(slash), target);

    callback.reset();
    EXPECT_EQ(get(target + "&token=late"), 0);
}

TEST_F(LoopbackCallbackTest, EndsForWhoeverKeepsGuessing) {
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(get(target), 403);
    EXPECT_EQ(get(target + "&token=t"), 403);
    EXPECT_EQ(taken(), std::vector<std::string>{});
}

} // namespace
} // namespace velto
