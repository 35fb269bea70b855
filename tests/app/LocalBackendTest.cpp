#include "app/LocalBackendTransport.hpp"
#include "platform/http/URLError.hpp"
#include "support/PipedProgram.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestRuntime.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace velto::test {
namespace {

using testing::HasSubstr;

/// The program's own backend, whose process the test kills.
class LocalBackendTest : public testing::Test {
  protected:
    static void killBackend() {
        for (const pid_t child : childrenOf(::getpid())) {
            ::kill(child, SIGKILL);
            siginfo_t end{};
            ::waitid(P_PID, static_cast<id_t>(child), &end, WEXITED | WNOWAIT);
        }
    }

    int ask(LocalBackendTransport& through) {
        http::Request request;
        request.url = backend.address() + "/signup";
        return runtime.run(through.send(std::move(request))).status.value_or(0);
    }

    std::string failure(LocalBackendTransport& through) {
        try {
            ask(through);
        } catch (const LocalBackendError& error) {
            return error.errorDescription();
        }
        return "";
    }

    TemporaryFolder folder;
    TestRuntime runtime;
    http::HttpClient wire;
    LocalBackend backend{folder / "state.sqlite"};
    LocalBackendTransport transport{wire, backend, runtime.executors()};
};

/// Kills the backend under the request, and lets it fail as it then does.
class KillingTransport final : public http::Transport {
  public:
    explicit KillingTransport(std::function<void()> kill)
        : kill_(std::move(kill)) {}

    Task<http::Response> send(http::Request) override {
        kill_();
        throw http::URLError(http::URLError::Code::networkConnectionLost);
        co_return http::Response{};
    }

  private:
    std::function<void()> kill_;
};

TEST_F(LocalBackendTest, IsStartedAgainAtItsAddressUntilItDiesTooOften) {
    const std::string address = backend.address();
    KillingTransport killing(killBackend);
    LocalBackendTransport dying(killing, backend, runtime.executors());
    for (int i = 0; i < 3; ++i) {
        EXPECT_THAT(failure(dying),
                    testing::AllOf(HasSubstr("The local backend, which this program had started, "
                                             "ended unexpectedly"),
                                   HasSubstr("It was started again.")));
        EXPECT_EQ(ask(transport), 200) << "the next request finds it";
        EXPECT_EQ(backend.address(), address);
    }
    EXPECT_THAT(failure(dying), HasSubstr("is not started any more"));
    EXPECT_THAT(failure(transport), HasSubstr("is not started any more: it ended again and again"));
    EXPECT_TRUE(childrenOf(::getpid()).empty());
}

TEST_F(LocalBackendTest, LeavesOtherFailuresAsTheyAre) {
    KillingTransport failing([] {});
    LocalBackendTransport other(failing, backend, runtime.executors());
    EXPECT_THROW(runtime.run(other.send({})), http::URLError);
    EXPECT_EQ(ask(transport), 200);
}

} // namespace
} // namespace velto::test
