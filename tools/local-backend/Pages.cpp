#include "Pages.hpp"

#include "Vocabulary.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace velto::local {

namespace {

constexpr std::string_view style =
    "body{font:1rem/1.5 sans-serif;max-width:40rem;margin:2rem auto;padding:0 "
    "1rem;color:#1b1b1f;background:#fff}"
    "label{display:block;margin:.5rem "
    "0}input[type=email],input[type=text]{display:block;font:inherit;width:100%;"
    "padding:.4rem;box-sizing:border-box}button{font:inherit;padding:.5rem "
    "1rem}fieldset{columns:2;margin:1rem 0}"
    ".problem{color:#a00000;font-weight:bold}code{overflow-wrap:anywhere}footer{margin-top:3rem;color:#555}";

std::string page(std::string_view title, std::string_view content, std::string_view head = {}) {
    return fmt::format("<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
                       "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
                       "<title>{0} - Velto local "
                       "backend</title><style>{1}</style>{3}</head>\n<body><main><h1>{0}</h1>\n{2}</main>\n"
                       "<footer><p>This is Velto's local backend on this computer. Its tags come from fixed "
                       "rules, not from AI. "
                       "Accounts and credits here are worth nothing elsewhere.</p></footer></body></html>\n",
                       escapeHtml(title), style, content, head);
}

std::string paragraph(std::string_view text, std::string_view attributes) {
    return text.empty() ? std::string() : fmt::format("<p {}>{}</p>\n", attributes, escapeHtml(text));
}

std::string checkboxes(std::string_view legend, std::string_view name,
                       const std::vector<std::string_view>& all, const std::vector<std::string>& chosen) {
    auto html = fmt::format("<fieldset><legend>{}</legend>\n", legend);
    for (const auto& value : all)
        html += fmt::format("<label><input type=\"checkbox\" name=\"{}\" value=\"{}\"{}> {}</label>\n", name,
                            escapeHtml(value),
                            std::find(chosen.begin(), chosen.end(), value) != chosen.end() ? " checked" : "",
                            escapeHtml(value));
    return html + "</fieldset>\n";
}

} // namespace

std::string escapeHtml(std::string_view text) {
    std::string html;
    for (const char c : text) {
        switch (c) {
        case '&':
            html += "&amp;";
            break;
        case '<':
            html += "&lt;";
            break;
        case '>':
            html += "&gt;";
            break;
        case '"':
            html += "&quot;";
            break;
        case '\'':
            html += "&#39;";
            break;
        default:
            html += c;
        }
    }
    return html;
}

std::string callbackUrl(const std::string& token) {
    return "velto://auth?token=" + token;
}

std::string signInPage(std::string_view action, std::string_view email, std::string_view target,
                       std::string_view problem) {
    return page(
        action == "/signup" ? "Sign up" : "Sign in",
        fmt::format(
            "{}<p>No password: an account is just an e-mail address on this computer.</p>\n"
            "<form method=\"post\" action=\"{}\">\n{}"
            "<label>E-mail address <input type=\"email\" name=\"email\" required autocomplete=\"email\" "
            "maxlength=\"254\" value=\"{}\"></label>\n"
            "<label>Name (optional) <input type=\"text\" name=\"name\" autocomplete=\"name\" "
            "maxlength=\"200\"></label>\n<p><button type=\"submit\">Continue</button></p></form>\n",
            paragraph(problem, "class=\"problem\" role=\"alert\""), action,
            target.empty()
                ? ""
                : fmt::format("<input type=\"hidden\" name=\"redirect\" value=\"{}\">\n", escapeHtml(target)),
            escapeHtml(email)));
}

std::string signedInPage(std::string_view email, const std::string& token,
                         const std::optional<std::string>& returnAddress) {
    const auto url = escapeHtml(callbackUrl(token));
    // Not by a redirect of the form's reply, which browsers refuse by the policy for forms.
    const auto head =
        returnAddress
            ? fmt::format("<meta http-equiv=\"refresh\" content=\"0;url={}{}token={}\">",
                          escapeHtml(*returnAddress),
                          returnAddress->find('?') == std::string::npos ? "?" : "&amp;", escapeHtml(token))
            : std::string();
    return page(
        "Signed in",
        fmt::format(
            "<p>You are signed in as {0}.</p>\n<p><a id=\"callback\" href=\"{1}\">Open Velto</a></p>\n"
            "<p>If nothing opens, copy this address and give it to <code>veltoctl sign-in</code>. "
            "Keep it to yourself: whoever has it is signed in as you.</p>\n"
            "<p><code>{1}</code></p>\n"
            "<p><a href=\"/dashboard/billing\">Credits</a>, <a href=\"/dashboard/settings\">your genres "
            "and regions</a></p>\n",
            escapeHtml(email), url),
        head);
}

std::string billingPage(const Account& account, std::string_view notice) {
    return page(
        "Credits",
        fmt::format("{}<p>{} has <strong id=\"credits\">{}</strong> credits. One credit tags one track.</p>\n"
                    "<form method=\"post\" action=\"/dashboard/billing\"><p><button type=\"submit\">Add 500 "
                    "credits</button></p></form>\n<p>Nothing is paid: this backend is for this computer only."
                    "</p>\n",
                    paragraph(notice, "role=\"status\""), escapeHtml(account.email), account.credits));
}

std::string settingsPage(const Account& account, std::string_view notice) {
    std::vector<std::string_view> genres;
    for (const auto& family : genreFamilies())
        genres.insert(genres.end(), family.genres.begin(), family.genres.end());
    const std::vector<std::string_view> allRegions(regions().begin(), regions().end());
    return page("Your genres and regions",
                fmt::format("{}<form method=\"post\" action=\"/dashboard/settings\">\n{}{}<p><button "
                            "type=\"submit\">Save</button></p></form>\n",
                            paragraph(notice, "role=\"status\""),
                            checkboxes("Genres", "genre", genres, account.genres),
                            checkboxes("Regions", "region", allRegions, account.regions)));
}

std::string plainPage(std::string_view heading, std::string_view text, std::string_view link,
                      std::string_view linkText) {
    auto content = fmt::format("<p>{}</p>\n", escapeHtml(text));
    if (!link.empty())
        content += fmt::format("<p><a href=\"{}\">{}</a></p>\n", escapeHtml(link), escapeHtml(linkText));
    return page(heading, content);
}

} // namespace velto::local
