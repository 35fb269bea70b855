#include "Server.hpp"

#include "Pages.hpp"
#include "Requests.hpp"
#include "Vocabulary.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace velto::local {

namespace {

constexpr std::size_t formBodyLimit = 64U << 10U;
constexpr std::int64_t creditsABuy = 500;
constexpr const char* html = "text/html; charset=utf-8";
constexpr const char* sessionCookie = "velto_session";
constexpr const char* noTarget = "A sign-in leads only to programs on this computer.";

void show(httplib::Response& response, const std::string& page, int status = 200) {
    response.status = status;
    response.set_content(page, html);
}

void keepSession(httplib::Response& response, const std::string& token) {
    response.set_header("Set-Cookie",
                        fmt::format("{}={}; Path=/; HttpOnly; SameSite=Strict", sessionCookie, token));
}

/// Those of the vocabulary that were chosen; anything else in the form is dropped.
template <typename Names>
std::vector<std::string> known(const std::vector<std::string>& chosen, const Names& names) {
    std::vector<std::string> result;
    for (const auto& name : names)
        if (std::find(chosen.begin(), chosen.end(), name) != chosen.end()) result.emplace_back(name);
    return result;
}

} // namespace

void Server::route() {
    post("/api/graphql", &Server::graphql, bodyLimit);
    for (const char* path : {"/auth/desktop-login", "/signup"}) {
        get(path, &Server::signInForm);
        post(path, &Server::signIn, formBodyLimit);
    }
    get(billingPath, &Server::billing);
    post(billingPath, &Server::buyCredits, formBodyLimit);
    get(settingsPath, &Server::settings);
    post(settingsPath, &Server::saveSettings, formBodyLimit);
    if (options_.control) post("/control/faults", &Server::changeFaults, formBodyLimit);
    refuseOtherMethods();
}

void Server::get(const char* path, Handler handler) {
    http_.Get(path, [this, handler](const Request& request, Response& response) {
        if (!comesFromHere(request))
            return show(response, plainPage("Refused", "Only this computer may ask."), 403);
        (this->*handler)(request, {}, response);
    });
}

void Server::post(const char* path, Handler handler, std::size_t limit) {
    http_.Post(path, [this, handler, limit](const Request& request, Response& response,
                                            const httplib::ContentReader& reader) {
        const auto body = readBody(request, response, reader, limit);
        if (!comesFromHere(request))
            return show(response, plainPage("Refused", "Only this computer may ask."), 403);
        if (body) (this->*handler)(request, *body, response);
    });
}

void Server::refuseOtherMethods() {
    // With a reader of their own these hold no body in memory.
    const auto refuse = [](const Request& request, Response& response, const httplib::ContentReader& reader) {
        (void)readBody(request, response, reader, 0);
        response.status = request.method == "POST" ? 404 : 405;
    };
    http_.Post(".*", refuse);
    http_.Put(".*", refuse);
    http_.Patch(".*", refuse);
    http_.Delete(".*", refuse);
}

void Server::signInForm(const Request& request, const std::string&, Response& response) {
    const auto email = request.get_param_value("email");
    const auto target = request.get_param_value("redirect");
    if (!target.empty() && !signInTarget(target)) return show(response, plainPage("Refused", noTarget), 400);
    if (request.get_param_value("format") != "text")
        return show(response, signInPage(request.path, email, target, {}));
    const auto address = normalizedEmail(email);
    response.status = address ? 200 : 400;
    response.set_content(
        address ? callbackUrl(state_.signIn(*address, cleanName(request.get_param_value("name"))))
                : "Please enter a valid email address",
        "text/plain; charset=utf-8");
}

void Server::signIn(const Request& request, const std::string& body, Response& response) {
    const auto fields = parseForm(body);
    const auto email = normalizedEmail(firstField(fields, "email"));
    const auto field = firstField(fields, "redirect");
    const auto target = signInTarget(field);
    if (!field.empty() && !target) return show(response, plainPage("Refused", noTarget), 400);
    if (!email)
        return show(response,
                    signInPage(request.path, firstField(fields, "email"), field,
                               "Please enter a valid email address"),
                    400);
    const auto token = state_.signIn(*email, cleanName(firstField(fields, "name")));
    keepSession(response, token);
    if (target && target->starts_with('/')) return response.set_redirect(*target, 303);
    show(response, signedInPage(*email, token, target));
}

std::optional<Account> Server::session(const Request& request, Response& response) {
    if (request.has_param("token")) {
        const auto token = request.get_param_value("token");
        if (auto account = state_.accountOf(token)) {
            keepSession(response, token);
            return account;
        }
    } else if (auto account = state_.accountOf(cookie(request, sessionCookie))) {
        return account;
    }
    show(response,
         plainPage("Please sign in", "This page needs a session.",
                   fmt::format("/auth/desktop-login?redirect={}", request.path), "Sign in"),
         401);
    return std::nullopt;
}

void Server::billing(const Request& request, const std::string&, Response& response) {
    if (const auto account = session(request, response)) show(response, billingPage(*account, {}));
}

void Server::buyCredits(const Request& request, const std::string&, Response& response) {
    auto account = session(request, response);
    if (!account) return;
    state_.addCredits(account->id, creditsABuy);
    account->credits += creditsABuy;
    show(response, billingPage(*account, fmt::format("{} credits added.", creditsABuy)));
}

void Server::settings(const Request& request, const std::string&, Response& response) {
    if (const auto account = session(request, response)) show(response, settingsPage(*account, {}));
}

void Server::saveSettings(const Request& request, const std::string& body, Response& response) {
    auto account = session(request, response);
    if (!account) return;
    const auto fields = parseForm(body);
    const auto genres = allFields(fields, "genre");
    account->genres.clear();
    for (const auto& family : genreFamilies())
        for (auto& genre : known(genres, family.genres))
            account->genres.push_back(std::move(genre));
    account->regions = known(allFields(fields, "region"), regions());
    state_.setPreferences(account->id, account->genres, account->regions);
    show(response, settingsPage(*account, "Saved."));
}

} // namespace velto::local
