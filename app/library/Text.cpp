#include "library/Text.h"

#include <memory>
#include <unicode/brkiter.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

namespace quillet::text {
namespace {

// Break iterators are expensive to create and not thread-safe; one per thread serves every call.
icu::BreakIterator* characterBreaks() {
    thread_local std::unique_ptr<icu::BreakIterator> iterator = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::BreakIterator> it(
            icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
        return U_SUCCESS(status) ? std::move(it) : nullptr;
    }();
    return iterator.get();
}

bool isAscii(std::string_view s) {
    for (unsigned char c : s) {
        if (c >= 0x80) {
            return false;
        }
    }
    return true;
}

// Calls f(start, end) for each grapheme cluster of s, in byte offsets.
template <typename F> void forEachGrapheme(std::string_view s, F&& f) {
    if (s.empty()) {
        return;
    }
    // Printable ASCII never joins with a neighbour except CR LF, so the common case needs no ICU.
    if (isAscii(s)) {
        for (std::size_t i = 0; i < s.size(); ++i) {
            if (s[i] == '\r' && i + 1 < s.size() && s[i + 1] == '\n') {
                f(i, i + 2);
                ++i;
            } else {
                f(i, i + 1);
            }
        }
        return;
    }
    UErrorCode status = U_ZERO_ERROR;
    UText* ut = utext_openUTF8(nullptr, s.data(), static_cast<int64_t>(s.size()), &status);
    icu::BreakIterator* it = characterBreaks();
    if (U_FAILURE(status) || it == nullptr) {
        utext_close(ut);
        f(0, s.size());
        return;
    }
    it->setText(ut, status);
    int32_t start = it->first();
    for (int32_t end = it->next(); end != icu::BreakIterator::DONE; end = it->next()) {
        f(static_cast<std::size_t>(start), static_cast<std::size_t>(end));
        start = end;
    }
    // The iterator keeps a pointer to the UText; detach it before the text goes away.
    it->setText(icu::UnicodeString());
    utext_close(ut);
}

const icu::Normalizer2* nfcInstance() {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* n = icu::Normalizer2::getNFCInstance(status);
    return U_SUCCESS(status) ? n : nullptr;
}

} // namespace

std::vector<std::string_view> graphemes(std::string_view s) {
    std::vector<std::string_view> out;
    forEachGrapheme(s, [&](std::size_t a, std::size_t b) { out.push_back(s.substr(a, b - a)); });
    return out;
}

std::size_t graphemeCount(std::string_view s) {
    std::size_t n = 0;
    forEachGrapheme(s, [&](std::size_t, std::size_t) { ++n; });
    return n;
}

std::size_t lastGraphemeSize(std::string_view s) {
    std::size_t last = 0;
    forEachGrapheme(s, [&](std::size_t a, std::size_t b) { last = b - a; });
    return last;
}

char32_t firstCodePoint(std::string_view s) {
    if (s.empty()) {
        return 0;
    }
    int32_t i = 0;
    UChar32 c = 0;
    U8_NEXT(reinterpret_cast<const uint8_t*>(s.data()), i, static_cast<int32_t>(s.size()), c);
    return c < 0 ? U'\uFFFD' : static_cast<char32_t>(c);
}

bool isDelimiter(std::string_view character) {
    UChar32 c = static_cast<UChar32>(firstCodePoint(character));
    if (character.empty()) {
        return false;
    }
    if (u_isUWhiteSpace(c)) {
        return true;
    }
    switch (u_charType(c)) {
    case U_CONNECTOR_PUNCTUATION:
    case U_DASH_PUNCTUATION:
    case U_START_PUNCTUATION:
    case U_END_PUNCTUATION:
    case U_INITIAL_PUNCTUATION:
    case U_FINAL_PUNCTUATION:
    case U_OTHER_PUNCTUATION:
        return true;
    default:
        return false;
    }
}

bool isWhitespace(std::string_view character) {
    return !character.empty() &&
           u_isUWhiteSpace(static_cast<UChar32>(firstCodePoint(character))) != 0;
}

bool isLetter(std::string_view character) {
    return !character.empty() && u_isUAlphabetic(static_cast<UChar32>(firstCodePoint(character)));
}

bool isLetterOrDigit(std::string_view character) {
    if (character.empty()) {
        return false;
    }
    UChar32 c = static_cast<UChar32>(firstCodePoint(character));
    return u_isUAlphabetic(c) || u_charType(c) == U_DECIMAL_DIGIT_NUMBER;
}

bool isUppercase(std::string_view character) {
    return !character.empty() && u_isUUppercase(static_cast<UChar32>(firstCodePoint(character)));
}

std::string toLower(std::string_view s) {
    if (isAscii(s)) {
        std::string out(s);
        for (char& c : out) {
            if (c >= 'A' && c <= 'Z') {
                c = static_cast<char>(c - 'A' + 'a');
            }
        }
        return out;
    }
    return fromIcu(toIcu(s).toLower(icu::Locale::getRoot()));
}

std::string toUpper(std::string_view s) {
    if (isAscii(s)) {
        std::string out(s);
        for (char& c : out) {
            if (c >= 'a' && c <= 'z') {
                c = static_cast<char>(c - 'a' + 'A');
            }
        }
        return out;
    }
    return fromIcu(toIcu(s).toUpper(icu::Locale::getRoot()));
}

bool isNfc(std::string_view s) {
    if (isAscii(s)) {
        return true;
    }
    const icu::Normalizer2* n = nfcInstance();
    if (n == nullptr) {
        return true;
    }
    UErrorCode status = U_ZERO_ERROR;
    bool normalized = n->isNormalized(toIcu(s), status);
    return U_FAILURE(status) || normalized;
}

std::string nfc(std::string_view s) {
    if (isNfc(s)) {
        return std::string(s);
    }
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString out = nfcInstance()->normalize(toIcu(s), status);
    return U_SUCCESS(status) ? fromIcu(out) : std::string(s);
}

icu::UnicodeString toIcu(std::string_view s) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(s.data(), static_cast<int32_t>(s.size())));
}

std::string fromIcu(const icu::UnicodeString& s) {
    std::string out;
    s.toUTF8String(out);
    return out;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

bool isValidUtf8(std::string_view s) {
    int32_t i = 0;
    const auto* p = reinterpret_cast<const uint8_t*>(s.data());
    const auto n = static_cast<int32_t>(s.size());
    while (i < n) {
        UChar32 c = 0;
        U8_NEXT(p, i, n, c);
        if (c < 0) {
            return false;
        }
    }
    return true;
}

std::string repairUtf8(std::string_view s) {
    if (isValidUtf8(s)) {
        return std::string(s);
    }
    std::string out;
    out.reserve(s.size());
    int32_t i = 0;
    const auto* p = reinterpret_cast<const uint8_t*>(s.data());
    const auto n = static_cast<int32_t>(s.size());
    while (i < n) {
        int32_t start = i;
        UChar32 c = 0;
        U8_NEXT(p, i, n, c);
        if (c < 0) {
            out += "\xEF\xBF\xBD";
        } else {
            out.append(
                s.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(i - start)));
        }
    }
    return out;
}

std::string clip(std::string_view s, std::size_t characters) {
    const std::vector<std::string_view> parts = graphemes(s);
    if (parts.size() <= characters) {
        return std::string(s);
    }
    // Cut at the last blank that leaves a word before it; mid-word only when there is none.
    std::size_t keep = characters;
    for (std::size_t i = characters + 1; i-- > 1;) {
        if (isWhitespace(parts[i]) && !isWhitespace(parts[i - 1])) {
            keep = i;
            break;
        }
    }
    if (keep == 0) {
        return "\u2026";
    }
    const char* end = parts[keep - 1].data() + parts[keep - 1].size();
    return std::string(s.data(), end) + "\u2026";
}

} // namespace quillet::text
