#include "Measure.hpp"

#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <optional>
#include <stdexcept>

namespace velto::bench {

namespace {

double cpuSeconds(int who) {
    struct ::rusage usage {};

    ::getrusage(who, &usage);
    const auto value = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return value(usage.ru_utime) + value(usage.ru_stime);
}

double cpuSeconds() {
    return cpuSeconds(RUSAGE_SELF) + cpuSeconds(RUSAGE_CHILDREN);
}

double peakBytes() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (double kibibytes = 0; word == "VmHWM:" && status >> kibibytes) return kibibytes * 1024;
    return 0;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

template <typename Value>
double medianOf(const Series& ours, const Series& floor, Value value) {
    std::vector<double> values;
    for (std::size_t i = 0; i < ours.size(); ++i)
        values.push_back(value(ours[i], floor[i]));
    return median(std::move(values));
}

std::string milliseconds(const Series& series) {
    return fmt::format("{:.1f} ms", medianOf(series, series, [](const Cost& cost, const Cost&) {
                                        return cost.seconds;
                                    }) * 1e3);
}

// One line a row, its cells apart by tabs: what, ours, floor, ratio, ratio of CPU time, bound, held.
void printRow(const std::string& what, const std::string& ours, const std::string& floor,
              const std::string& ratio, const std::string& cpuRatio, const std::string& bound,
              const char* held) {
    fmt::print("{}\t{}\t{}\t{}\t{}\t{}\t{}\n", what, ours, floor, ratio, cpuRatio, bound, held);
    std::fflush(stdout);
}

void reportRatio(const std::string& what, const Series& ours, const Series& floor,
                 std::optional<double> bound) {
    const double ratio =
        medianOf(ours, floor, [](const Cost& our, const Cost& least) { return our.seconds / least.seconds; });
    const double cpuRatio = medianOf(
        ours, floor, [](const Cost& our, const Cost& least) { return our.cpuSeconds / least.cpuSeconds; });
    printRow(what, milliseconds(ours), milliseconds(floor), fmt::format("{:.2f}", ratio),
             fmt::format("{:.2f}", cpuRatio), bound ? fmt::format("{:.2f}", *bound) : "-",
             !bound            ? "-"
             : ratio <= *bound ? "yes"
                               : "NO");
}

} // namespace

Cost costOf(const std::function<void()>& work) {
    Cost cost;
    const double cpuBefore = cpuSeconds();
    const auto start = std::chrono::steady_clock::now();
    work();
    cost.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    cost.cpuSeconds = cpuSeconds() - cpuBefore;
    return cost;
}

Cost cheapestOf(int runs, const std::function<void()>& work) {
    Cost cheapest = costOf(work);
    for (int i = 1; i < runs; ++i) {
        const Cost cost = costOf(work);
        cheapest.seconds = std::min(cheapest.seconds, cost.seconds);
        cheapest.cpuSeconds = std::min(cheapest.cpuSeconds, cost.cpuSeconds);
    }
    return cheapest;
}

Cost inChild(const std::function<Cost()>& measurement) {
    int ends[2];
    if (::pipe(ends) != 0) throw std::runtime_error("no pipe");
    const pid_t child = ::fork();
    if (child < 0) throw std::runtime_error("no child process");
    if (child == 0) {
        bool isWritten = false;
        try {
            Cost cost = measurement();
            cost.peakBytes = peakBytes();
            isWritten = ::write(ends[1], &cost, sizeof cost) == sizeof cost;
        } catch (const std::exception& error) {
            fmt::print(stderr, "{}\n", error.what());
        }
        ::_exit(isWritten ? 0 : 1);
    }
    ::close(ends[1]);
    Cost cost;
    const bool isRead = ::read(ends[0], &cost, sizeof cost) == sizeof cost;
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    if (!isRead) throw std::runtime_error("a measurement failed");
    return cost;
}

void report(const std::string& what, const Series& ours, const Series& floor, double bound) {
    reportRatio(what, ours, floor, bound);
}

void report(const std::string& what, const Series& ours, const Series& floor) {
    reportRatio(what, ours, floor, std::nullopt);
}

void report(const std::string& what, double value, Hold hold, double bound, const std::string& unit) {
    const bool held = hold == Hold::atMost ? value <= bound : value >= bound;
    const auto amount = [&](double number) {
        return fmt::format("{:.{}f} {}", number, number < 1000 ? 1 : 0, unit);
    };
    printRow(what, amount(value), "-", fmt::format("{:.2f}", value / bound), "-",
             (hold == Hold::atMost ? "at most " : "at least ") + amount(bound), held ? "yes" : "NO");
}

} // namespace velto::bench
