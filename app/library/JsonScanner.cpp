#include "library/JsonScanner.h"

#include "library/Text.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace quillet {
namespace {

using Sax = nlohmann::json_sax<nlohmann::json>;

constexpr std::size_t unknownSize = static_cast<std::size_t>(-1);

class Scanner {
public:
    Scanner(std::string_view text, Sax& sax)
        : p_(text.data()), end_(text.data() + text.size()), sax_(sax) {}

    // Iterative, with the open containers on a stack of its own: nesting is the text's to choose.
    bool run() {
        std::vector<bool> objects; // per open container: an object, or an array
        blanks();
        for (;;) {
            if (p_ == end_) {
                return false;
            }
            bool closed = false; // the value just read is complete
            switch (*p_) {
            case '{':
                ++p_;
                if (!sax_.start_object(unknownSize)) {
                    return false;
                }
                blanks();
                if (p_ != end_ && *p_ == '}') {
                    ++p_;
                    if (!sax_.end_object()) {
                        return false;
                    }
                    closed = true;
                } else {
                    objects.push_back(true);
                    if (!key()) {
                        return false;
                    }
                }
                break;
            case '[':
                ++p_;
                if (!sax_.start_array(unknownSize)) {
                    return false;
                }
                blanks();
                if (p_ != end_ && *p_ == ']') {
                    ++p_;
                    if (!sax_.end_array()) {
                        return false;
                    }
                    closed = true;
                } else {
                    objects.push_back(false);
                }
                break;
            default:
                if (!scalar()) {
                    return false;
                }
                closed = true;
            }
            if (!closed) {
                continue;
            }
            // After a value: a comma leads to the next one, a bracket closes its container.
            for (;;) {
                blanks();
                if (objects.empty()) {
                    return p_ == end_;
                }
                if (p_ == end_) {
                    return false;
                }
                if (*p_ == ',') {
                    ++p_;
                    blanks();
                    if (objects.back() && !key()) {
                        return false;
                    }
                    break;
                }
                if (*p_ != (objects.back() ? '}' : ']')) {
                    return false;
                }
                ++p_;
                if (!(objects.back() ? sax_.end_object() : sax_.end_array())) {
                    return false;
                }
                objects.pop_back();
            }
        }
    }

private:
    void blanks() {
        while (p_ != end_ && (*p_ == ' ' || *p_ == '\n' || *p_ == '\r' || *p_ == '\t')) {
            ++p_;
        }
    }

    // A key, its colon and the blanks before its value.
    bool key() {
        if (p_ == end_ || *p_ != '"' || !string() || !sax_.key(text_)) {
            return false;
        }
        blanks();
        if (p_ == end_ || *p_ != ':') {
            return false;
        }
        ++p_;
        blanks();
        return true;
    }

    bool scalar() {
        switch (*p_) {
        case '"':
            return string() && sax_.string(text_);
        case 't':
            return literal("true") && sax_.boolean(true);
        case 'f':
            return literal("false") && sax_.boolean(false);
        case 'n':
            return literal("null") && sax_.null();
        default:
            return number();
        }
    }

    bool literal(std::string_view word) {
        if (static_cast<std::size_t>(end_ - p_) < word.size() ||
            std::memcmp(p_, word.data(), word.size()) != 0) {
            return false;
        }
        p_ += word.size();
        return true;
    }

    static bool digit(char c) { return c >= '0' && c <= '9'; }

    // The grammar's number; integers as the 64-bit type they fit, as sax_parse reports them.
    bool number() {
        const char* start = p_;
        if (p_ != end_ && *p_ == '-') {
            ++p_;
        }
        if (p_ == end_ || !digit(*p_)) {
            return false;
        }
        if (*p_ == '0') {
            ++p_;
        } else {
            while (p_ != end_ && digit(*p_)) {
                ++p_;
            }
        }
        bool whole = true;
        if (p_ != end_ && *p_ == '.') {
            whole = false;
            ++p_;
            if (p_ == end_ || !digit(*p_)) {
                return false;
            }
            while (p_ != end_ && digit(*p_)) {
                ++p_;
            }
        }
        if (p_ != end_ && (*p_ == 'e' || *p_ == 'E')) {
            whole = false;
            ++p_;
            if (p_ != end_ && (*p_ == '+' || *p_ == '-')) {
                ++p_;
            }
            if (p_ == end_ || !digit(*p_)) {
                return false;
            }
            while (p_ != end_ && digit(*p_)) {
                ++p_;
            }
        }
        if (whole) {
            if (*start == '-') {
                std::int64_t n = 0;
                if (std::from_chars(start, p_, n).ec == std::errc{}) {
                    return sax_.number_integer(n);
                }
            } else {
                std::uint64_t n = 0;
                if (std::from_chars(start, p_, n).ec == std::errc{}) {
                    return sax_.number_unsigned(n);
                }
            }
        }
        // Out of range (either way) is left to sax_parse, which knows its own rules for it.
        double d = 0;
        auto [end, ec] = std::from_chars(start, p_, d);
        if (ec != std::errc{} || end != p_) {
            return false;
        }
        number_.assign(start, p_);
        return sax_.number_float(d, number_);
    }

    // Four hex digits after "\u"; -1 when they are not.
    int unit() {
        if (end_ - p_ < 4) {
            return -1;
        }
        int value = 0;
        for (int i = 0; i < 4; ++i) {
            int h = text::hexDigit(p_[i]);
            if (h < 0) {
                return -1;
            }
            value = value * 16 + h;
        }
        p_ += 4;
        return value;
    }

    void append(std::uint32_t cp) {
        if (cp < 0x80) {
            text_ += static_cast<char>(cp);
        } else if (cp < 0x800) {
            text_ += static_cast<char>(0xC0 | (cp >> 6));
            text_ += static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            text_ += static_cast<char>(0xE0 | (cp >> 12));
            text_ += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            text_ += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            text_ += static_cast<char>(0xF0 | (cp >> 18));
            text_ += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            text_ += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            text_ += static_cast<char>(0x80 | (cp & 0x3F));
        }
    }

    // The length of the well-formed UTF-8 sequence (RFC 3629) that starts at p_, or 0.
    std::size_t sequence() const {
        const auto at = [&](std::ptrdiff_t i) { return static_cast<unsigned char>(p_[i]); };
        const auto in = [&](std::ptrdiff_t i, unsigned lo, unsigned hi) {
            return i < end_ - p_ && at(i) >= lo && at(i) <= hi;
        };
        const unsigned lead = at(0);
        if (lead >= 0xC2 && lead <= 0xDF) {
            return in(1, 0x80, 0xBF) ? 2 : 0;
        }
        if (lead >= 0xE0 && lead <= 0xEF) {
            const unsigned lo = lead == 0xE0 ? 0xA0 : 0x80;
            const unsigned hi = lead == 0xED ? 0x9F : 0xBF;
            return in(1, lo, hi) && in(2, 0x80, 0xBF) ? 3 : 0;
        }
        if (lead >= 0xF0 && lead <= 0xF4) {
            const unsigned lo = lead == 0xF0 ? 0x90 : 0x80;
            const unsigned hi = lead == 0xF4 ? 0x8F : 0xBF;
            return in(1, lo, hi) && in(2, 0x80, 0xBF) && in(3, 0x80, 0xBF) ? 4 : 0;
        }
        return 0;
    }

    // A string from its opening quote into text_.
    bool string() {
        ++p_;
        text_.clear();
        for (;;) {
            const char* run = p_;
            while (p_ != end_) {
                const auto c = static_cast<unsigned char>(*p_);
                if (c == '"' || c == '\\' || c < 0x20 || c >= 0x80) {
                    break;
                }
                ++p_;
            }
            text_.append(run, p_);
            if (p_ == end_) {
                return false;
            }
            const auto c = static_cast<unsigned char>(*p_);
            if (c == '"') {
                ++p_;
                return true;
            }
            if (c < 0x20) {
                return false;
            }
            if (c >= 0x80) {
                const std::size_t n = sequence();
                if (n == 0) {
                    return false;
                }
                text_.append(p_, n);
                p_ += n;
                continue;
            }
            if (!escape()) {
                return false;
            }
        }
    }

    // An escape from its backslash.
    bool escape() {
        ++p_;
        if (p_ == end_) {
            return false;
        }
        const char c = *p_++;
        switch (c) {
        case '"':
        case '\\':
        case '/':
            text_ += c;
            return true;
        case 'b':
            text_ += '\b';
            return true;
        case 'f':
            text_ += '\f';
            return true;
        case 'n':
            text_ += '\n';
            return true;
        case 'r':
            text_ += '\r';
            return true;
        case 't':
            text_ += '\t';
            return true;
        case 'u':
            break;
        default:
            return false;
        }
        const int first = unit();
        if (first < 0 || (first >= 0xDC00 && first <= 0xDFFF)) {
            return false; // a low surrogate needs a high one before it
        }
        if (first < 0xD800 || first > 0xDBFF) {
            append(static_cast<std::uint32_t>(first));
            return true;
        }
        if (end_ - p_ < 2 || p_[0] != '\\' || p_[1] != 'u') {
            return false;
        }
        p_ += 2;
        const int second = unit();
        if (second < 0xDC00 || second > 0xDFFF) {
            return false;
        }
        append(0x10000 + ((static_cast<std::uint32_t>(first) - 0xD800) << 10) +
               (static_cast<std::uint32_t>(second) - 0xDC00));
        return true;
    }

    const char* p_;
    const char* end_;
    Sax& sax_;
    std::string text_;   // the string or key just read; the handler may take it
    std::string number_; // the text of the number just read
};

} // namespace

bool scanJson(std::string_view text, nlohmann::json_sax<nlohmann::json>& sax) {
    return Scanner(text, sax).run();
}

} // namespace quillet
