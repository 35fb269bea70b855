#include "Faults.hpp"

#include <fmt/format.h>

#include <charconv>
#include <utility>

namespace velto::local {

namespace {

enum class Argument { none, number, text };

struct KindDescription {
    std::string_view name;
    FaultKind kind;
    Argument argument;
    std::int64_t usual;   ///< If no number is given.
    std::int64_t minimum; ///< Of a given number.
    std::int64_t maximum;
};

constexpr std::int64_t tenMinutes = 600'000;

constexpr KindDescription kinds[] = {
    {"rate-limit", FaultKind::rateLimit, Argument::number, 1000, 0, tenMinutes},
    {"unauthorized", FaultKind::unauthorized, Argument::none, 0, 0, 0},
    {"server-error", FaultKind::serverError, Argument::none, 0, 0, 0},
    {"slow", FaultKind::slow, Argument::number, 5000, 0, tenMinutes},
    {"drop", FaultKind::drop, Argument::none, 0, 0, 0},
    {"malformed", FaultKind::malformed, Argument::none, 0, 0, 0},
    {"huge", FaultKind::huge, Argument::number, 200, 1, 10'000},
    {"wrong-status", FaultKind::wrongStatus, Argument::number, 201, 200, 599},
    {"graphql-error", FaultKind::graphqlError, Argument::text, 0, 0, 0},
    {"partial", FaultKind::partial, Argument::none, 0, 0, 0},
    {"insufficient-credits", FaultKind::insufficientCredits, Argument::none, 0, 0, 0},
};

std::int64_t parseNumber(std::string_view text, std::int64_t minimum, std::int64_t maximum) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < minimum || number > maximum)
        throw FaultError(fmt::format("\"{}\" is not a number from {} to {}", text, minimum, maximum));
    return number;
}

const KindDescription& describeKind(std::string_view name) {
    std::string names;
    for (const auto& kind : kinds) {
        if (kind.name == name) return kind;
        names += fmt::format("{}{}", names.empty() ? "" : ", ", kind.name);
    }
    throw FaultError(fmt::format("There is no fault \"{}\"; there are {}", name, names));
}

} // namespace

Fault parseFault(std::string_view text) {
    Fault fault;
    if (const auto at = text.rfind('@'); at != std::string_view::npos) {
        fault.left = parseNumber(text.substr(at + 1), 1, 1'000'000'000);
        text = text.substr(0, at);
    }
    const auto colon = text.find(':');
    const auto& description = describeKind(text.substr(0, colon));
    fault.kind = description.kind;
    fault.number = description.usual;
    if (colon == std::string_view::npos) return fault;
    const auto argument = text.substr(colon + 1);
    if (description.argument == Argument::none)
        throw FaultError(fmt::format("The fault \"{}\" takes no argument", description.name));
    if (description.argument == Argument::number)
        fault.number = parseNumber(argument, description.minimum, description.maximum);
    else
        fault.text = argument;
    return fault;
}

void Faults::set(std::vector<Fault> faults, std::string operation) {
    const std::lock_guard lock(mutex_);
    faults_ = std::move(faults);
    operation_ = std::move(operation);
}

ActiveFaults Faults::take(std::string_view operation) {
    const std::lock_guard lock(mutex_);
    ActiveFaults active;
    if (operation_ != "all" && operation_ != operation) return active;
    bool slowed = false;
    for (auto& fault : faults_) {
        const bool slow = fault.kind == FaultKind::slow;
        if (fault.left == 0 || (slow ? slowed : active.fault.has_value())) continue;
        if (fault.left) --*fault.left;
        if (slow) {
            slowed = true;
            active.delayMilliseconds = fault.number;
        } else {
            active.fault = fault;
        }
    }
    return active;
}

} // namespace velto::local
