#include "Requests.hpp"

#include "Lexer.hpp"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace velto::local {

namespace {

// 500 tracks of a sync have some 10,000 values three levels down.
constexpr int maximumJsonDepth = 32;
constexpr std::size_t maximumJsonValues = 1'000'000;
constexpr std::size_t maximumNameBytes = 200;
constexpr std::size_t longestTarget = 500;

bool isLoopbackAuthority(std::string_view authority) {
    for (const std::string_view host : {"127.0.0.1", "localhost", "[::1]"}) {
        if (!authority.starts_with(host)) continue;
        const auto rest = authority.substr(host.size());
        if (rest.empty()) return true;
        if (rest.front() == ':' && rest.find_first_not_of("0123456789", 1) == std::string_view::npos)
            return true;
    }
    return false;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string decodeFormText(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? hexDigit(text[i + 1]) : -1;
        const int low = high >= 0 ? hexDigit(text[i + 2]) : -1;
        if (low >= 0) {
            decoded += static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            decoded += text[i] == '+' ? ' ' : text[i];
        }
    }
    return decoded;
}

} // namespace

bool comesFromHere(const httplib::Request& request) {
    if (request.get_header_value_count("Host") != 1 || !isLoopbackAuthority(request.get_header_value("Host")))
        return false;
    if (request.get_header_value("Sec-Fetch-Site") == "cross-site") return false;
    if (!request.has_header("Origin")) return true;
    const auto origin = request.get_header_value("Origin");
    constexpr std::string_view scheme = "http://";
    return origin.starts_with(scheme) && isLoopbackAuthority(std::string_view(origin).substr(scheme.size()));
}

std::optional<std::string> signInTarget(std::string_view text) {
    if (text == billingPath || text == settingsPath) return std::string(text);
    constexpr std::string_view scheme = "http://";
    constexpr std::string_view plain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_./?=&";
    if (!text.starts_with(scheme) || text.size() > longestTarget) return std::nullopt;
    const auto rest = text.substr(scheme.size());
    const auto slash = std::min(rest.find('/'), rest.size());
    const bool isWhole = rest.find(':') < slash && slash < rest.size();
    if (!isWhole || !isLoopbackAuthority(rest.substr(0, slash)) ||
        rest.find_first_not_of(plain, slash) != std::string_view::npos)
        return std::nullopt;
    return std::string(text);
}

FormFields parseForm(std::string_view body) {
    FormFields fields;
    while (!body.empty()) {
        const auto end = std::min(body.find('&'), body.size());
        const auto pair = body.substr(0, end);
        const auto equals = std::min(pair.find('='), pair.size());
        fields.emplace_back(decodeFormText(pair.substr(0, equals)),
                            decodeFormText(pair.substr(std::min(equals + 1, pair.size()))));
        body.remove_prefix(std::min(end + 1, body.size()));
    }
    return fields;
}

std::string firstField(const FormFields& fields, std::string_view name) {
    const auto found =
        std::find_if(fields.begin(), fields.end(), [&](const auto& f) { return f.first == name; });
    return found == fields.end() ? std::string() : found->second;
}

std::vector<std::string> allFields(const FormFields& fields, std::string_view name) {
    std::vector<std::string> values;
    for (const auto& [key, value] : fields)
        if (key == name) values.push_back(value);
    return values;
}

std::optional<std::string> cleanName(std::string_view text) {
    std::string name;
    for (const char c : text.substr(0, maximumNameBytes))
        if (static_cast<unsigned char>(c) >= ' ' && c != 0x7f) name += c;
    // Writing as JSON puts the replacement character for what is not UTF-8, also for a character cut at the
    // end.
    const auto valid = nlohmann::json(name).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    name = nlohmann::json::parse(valid).get<std::string>();
    return name.empty() ? std::nullopt : std::optional(name);
}

std::string cookie(const httplib::Request& request, std::string_view name) {
    const auto header = request.get_header_value("Cookie");
    std::string_view rest = header;
    while (!rest.empty()) {
        const auto end = std::min(rest.find(';'), rest.size());
        const auto pair = rest.substr(std::min(rest.find_first_not_of(' '), end), end);
        if (pair.starts_with(name) && pair.substr(name.size()).starts_with('='))
            return std::string(pair.substr(name.size() + 1, pair.find(';') - name.size() - 1));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return {};
}

nlohmann::json parseBoundedJson(std::string_view text) {
    std::size_t values = 0;
    const auto count = [&](int depth, nlohmann::json::parse_event_t, nlohmann::json&) {
        if (depth > maximumJsonDepth || ++values > maximumJsonValues)
            throw GraphQLError("The request is nested too deeply or too large.");
        return true;
    };
    try {
        return nlohmann::json::parse(text, count);
    } catch (const nlohmann::json::exception&) {
        throw GraphQLError("The request is not valid JSON.");
    }
}

std::optional<std::string> readBody(const httplib::Request& request, httplib::Response& response,
                                    const httplib::ContentReader& reader, std::size_t limit) {
    if (request.is_multipart_form_data()) {
        response.status = 415;
        return std::nullopt;
    }
    std::string body;
    bool tooLong = false;
    // Bytes over the limit are read and dropped: a client that is still sending would not see the answer.
    const bool whole = reader([&](const char* data, std::size_t size) {
        tooLong = tooLong || body.size() + size > limit;
        if (!tooLong) body.append(data, size);
        return true;
    });
    if (tooLong)
        response.status = 413;
    else if (!whole && response.status < 400)
        response.status = 400;
    return whole && !tooLong ? std::optional(std::move(body)) : std::nullopt;
}

} // namespace velto::local
