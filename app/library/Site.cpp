#include "library/Site.h"

#include "library/Text.h"

namespace quillet {
namespace {

bool isAsciiAlpha(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isAsciiDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && isBlank(s.front())) {
        s.remove_prefix(1);
    }
    while (!s.empty() && isBlank(s.back())) {
        s.remove_suffix(1);
    }
    return s;
}

// RFC 3986 scheme: a letter, then letters, digits, "+", "-" or ".".
bool isScheme(std::string_view s) {
    if (s.empty() || !isAsciiAlpha(s.front())) {
        return false;
    }
    for (char c : s) {
        if (!isAsciiAlpha(c) && !isAsciiDigit(c) && c != '+' && c != '-' && c != '.') {
            return false;
        }
    }
    return true;
}

// A registered name may hold unreserved characters, sub-delimiters, percent escapes and (for
// internationalised names) any non-ASCII byte; a blank or a bracket means the text is no URL.
bool isHostCharacter(char c) {
    if (static_cast<unsigned char>(c) >= 0x80 || isAsciiAlpha(c) || isAsciiDigit(c)) {
        return true;
    }
    static constexpr std::string_view allowed = "-._~!$&'()*+,;=%";
    return allowed.find(c) != std::string_view::npos;
}

bool isPort(std::string_view s) {
    for (char c : s) {
        if (!isAsciiDigit(c)) {
            return false;
        }
    }
    return true;
}

// The host of an absolute URL, without brackets for IPv6 literals; nothing when the authority
// does not parse.
std::optional<std::string_view> urlHost(std::string_view url) {
    auto separator = url.find("://");
    if (separator == std::string_view::npos || !isScheme(url.substr(0, separator))) {
        return std::nullopt;
    }
    std::string_view authority = url.substr(separator + 3);
    authority = authority.substr(0, authority.find_first_of("/?#"));
    if (auto at = authority.rfind('@'); at != std::string_view::npos) {
        authority.remove_prefix(at + 1);
    }

    std::string_view host;
    std::string_view rest;
    if (!authority.empty() && authority.front() == '[') {
        auto close = authority.find(']');
        if (close == std::string_view::npos) {
            return std::nullopt;
        }
        host = authority.substr(1, close - 1);
        rest = authority.substr(close + 1);
        for (char c : host) {
            if (!isAsciiDigit(c) && !(c >= 'a' && c <= 'f') && c != ':' && c != '.') {
                return std::nullopt;
            }
        }
    } else {
        auto colon = authority.find(':');
        host = authority.substr(0, colon);
        rest = colon == std::string_view::npos ? std::string_view() : authority.substr(colon);
        for (char c : host) {
            if (!isHostCharacter(c)) {
                return std::nullopt;
            }
        }
    }
    if (!rest.empty() && (rest.front() != ':' || !isPort(rest.substr(1)))) {
        return std::nullopt;
    }
    if (host.empty()) {
        return std::nullopt;
    }
    return host;
}

} // namespace

std::optional<std::string> siteHost(std::string_view entry) {
    std::string url = text::toLower(trimmed(entry));
    if (url.find("://") == std::string::npos) {
        url.insert(0, "https://");
    }
    auto host = urlHost(url);
    if (!host || host->find('.') == std::string_view::npos) {
        return std::nullopt;
    }
    return std::string(*host);
}

} // namespace quillet
