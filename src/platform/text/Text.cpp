#include "platform/text/Text.hpp"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/coll.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>

namespace velto::text {

namespace {

/// Longest piece handed to ICU at once, whose lengths are 32 bits.
constexpr std::size_t maximumPieceBytes = std::size_t{1} << 30;

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<signed char>(c) >= 0; });
}

/// Decodes the character at `at` and moves past it; negative for a byte that is not UTF-8.
UChar32 nextCharacter(std::string_view text, std::size_t& at) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data()) + at;
    const auto length = static_cast<std::int32_t>(std::min<std::size_t>(text.size() - at, 4));
    std::int32_t used = 0;
    UChar32 character = 0;
    U8_NEXT(bytes, used, length, character);
    at += static_cast<std::size_t>(used);
    return character;
}

/// The end of the valid UTF-8 that begins at `from`; `from` itself if its byte is broken.
std::size_t endOfValid(std::string_view text, std::size_t from) {
    std::size_t at = from;
    while (at < text.size() && at - from < maximumPieceBytes) {
        std::size_t next = at;
        if (nextCharacter(text, next) < 0) return at;
        at = next;
    }
    return at;
}

void appendLowercased(std::string& out, std::string_view valid) {
    icu::StringByteSink<std::string> sink(&out);
    UErrorCode status = U_ZERO_ERROR;
    const std::size_t before = out.size();
    icu::CaseMap::utf8ToLower("", 0, icu::StringPiece(valid.data(), static_cast<std::int32_t>(valid.size())),
                              sink, nullptr, status);
    if (U_FAILURE(status)) out.replace(before, std::string::npos, valid);
}

char asciiLowercased(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

bool isBlank(UChar32 character) {
    return character == '\t' || u_charType(character) == U_SPACE_SEPARATOR;
}

bool isLineBreak(UChar32 character) {
    return (character >= 0x0A && character <= 0x0D) || character == 0x85 || character == 0x2028 ||
           character == 0x2029;
}

template <typename Test>
std::string_view trimmedOf(std::string_view text, Test test) {
    while (!text.empty()) {
        std::size_t next = 0;
        if (const UChar32 first = nextCharacter(text, next); first < 0 || !test(first)) break;
        text.remove_prefix(next);
    }
    while (!text.empty()) {
        std::size_t start = text.size() - 1;
        while (start > 0 && text.size() - start < 4 && U8_IS_TRAIL(static_cast<std::uint8_t>(text[start])))
            --start;
        std::size_t next = start;
        const UChar32 last = nextCharacter(text, next);
        if (last < 0 || next != text.size() || !test(last)) break;
        text.remove_suffix(text.size() - start);
    }
    return text;
}

} // namespace

std::string lowercased(std::string_view text) {
    if (isAscii(text)) {
        std::string out(text);
        std::transform(out.begin(), out.end(), out.begin(), asciiLowercased);
        return out;
    }
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = endOfValid(text, at);
        if (end > at) appendLowercased(out, text.substr(at, end - at));
        at = end;
        if (at < text.size() && endOfValid(text, at) == at) out += text[at++];
    }
    return out;
}

std::string firstLetterUppercased(std::string_view text) {
    std::string out;
    if (text.empty()) return out;
    std::size_t end = 0;
    if (nextCharacter(text, end) < 0) return out.assign(text.substr(0, 1));
    icu::StringByteSink<std::string> sink(&out);
    UErrorCode status = U_ZERO_ERROR;
    icu::CaseMap::utf8ToUpper("", 0, icu::StringPiece(text.data(), static_cast<std::int32_t>(end)), sink,
                              nullptr, status);
    return U_FAILURE(status) ? std::string(text.substr(0, end)) : out;
}

std::string_view trimmedView(std::string_view text) {
    return trimmedOf(text, [](UChar32 character) { return isBlank(character) || isLineBreak(character); });
}

std::string trimmed(std::string_view text) {
    return std::string(trimmedView(text));
}

std::string_view trimmedOfBlanks(std::string_view text) {
    return trimmedOf(text, isBlank);
}

bool isValidUtf8(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t end = endOfValid(text, at);
        if (end == at) return false;
        at = end;
    }
    return true;
}

std::weak_ordering localizedCompareCaseInsensitive(std::string_view left, std::string_view right) {
    thread_local const std::unique_ptr<icu::Collator> collator = [] {
        // The locale "C" would order by code: a user without a language gets Unicode's own order.
        const icu::Locale users = icu::Locale::getDefault();
        const bool hasLanguage = std::string_view(users.getVariant()) != "POSIX";
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::Collator> made(
            icu::Collator::createInstance(hasLanguage ? users : icu::Locale::getRoot(), status));
        if (U_FAILURE(status)) made.reset();
        if (made) made->setStrength(icu::Collator::SECONDARY);
        return made;
    }();
    const auto piece = [](std::string_view text) {
        return icu::StringPiece(text.data(),
                                static_cast<std::int32_t>(std::min(text.size(), maximumPieceBytes)));
    };
    UErrorCode status = U_ZERO_ERROR;
    const UCollationResult result =
        collator ? collator->compareUTF8(piece(left), piece(right), status) : UCOL_EQUAL;
    if (!collator || U_FAILURE(status)) return lowercased(left) <=> lowercased(right);
    if (result == UCOL_EQUAL) return std::weak_ordering::equivalent;
    return result == UCOL_LESS ? std::weak_ordering::less : std::weak_ordering::greater;
}

} // namespace velto::text
