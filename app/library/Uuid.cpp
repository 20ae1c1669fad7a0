#include "library/Uuid.h"

#include "library/Text.h"

#include <cerrno>
#include <cstring>
#include <random>
#include <sys/random.h>

namespace quillet {
namespace {

constexpr char upperDigits[] = "0123456789ABCDEF";

// Where the hyphens sit in the canonical text.
constexpr bool isHyphenPosition(std::size_t i) {
    return i == 8 || i == 13 || i == 18 || i == 23;
}

// Fills buffer from the kernel's CSPRNG. Identifiers of synced libraries meet on other machines,
// so a seeded PRNG is not good enough.
void fillRandom(std::uint8_t* buffer, std::size_t size) {
    std::size_t filled = 0;
    while (filled < size) {
        ssize_t got = ::getrandom(buffer + filled, size - filled, 0);
        if (got > 0) {
            filled += static_cast<std::size_t>(got);
        } else if (got < 0 && errno != EINTR) {
            break;
        }
    }
    if (filled < size) {
        // Kernels without getrandom(2): random_device reads /dev/urandom on Linux.
        std::random_device device;
        for (; filled < size; ++filled) {
            buffer[filled] = static_cast<std::uint8_t>(device());
        }
    }
}

} // namespace

Uuid Uuid::random() {
    Uuid id;
    fillRandom(id.bytes.data(), id.bytes.size());
    id.bytes[6] = static_cast<std::uint8_t>((id.bytes[6] & 0x0F) | 0x40); // version 4
    id.bytes[8] = static_cast<std::uint8_t>((id.bytes[8] & 0x3F) | 0x80); // RFC 4122 variant
    return id;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) {
        return std::nullopt;
    }
    Uuid id;
    std::size_t byte = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (isHyphenPosition(i)) {
            if (text[i] != '-') {
                return std::nullopt;
            }
            ++i;
            continue;
        }
        int high = text::hexDigit(text[i]);
        int low = text::hexDigit(text[i + 1]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        id.bytes[byte++] = static_cast<std::uint8_t>(high * 16 + low);
        i += 2;
    }
    return id;
}

std::string Uuid::text() const {
    std::string out;
    out.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            out.push_back('-');
        }
        out.push_back(upperDigits[bytes[i] >> 4]);
        out.push_back(upperDigits[bytes[i] & 0x0F]);
    }
    return out;
}

} // namespace quillet

std::size_t std::hash<quillet::Uuid>::operator()(const quillet::Uuid& id) const noexcept {
    // Random identifiers are already uniformly spread; folding the two halves keeps all the bits.
    std::uint64_t high = 0;
    std::uint64_t low = 0;
    std::memcpy(&high, id.bytes.data(), 8);
    std::memcpy(&low, id.bytes.data() + 8, 8);
    return static_cast<std::size_t>(high ^ (low * 0x9E3779B97F4A7C15ULL));
}
