#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace quillet {

/// A 128-bit identifier. Stored as upper-case text so that files written on any platform compare
/// equal byte for byte.
struct Uuid {
    std::array<std::uint8_t, 16> bytes{};

    /// A new version 4 identifier from the operating system's random source.
    static Uuid random();

    /// The identifier written as 8-4-4-4-12 hexadecimal digits (either case); nothing otherwise.
    static std::optional<Uuid> parse(std::string_view text);

    /// The canonical upper-case text with hyphens, e.g. "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
    std::string text() const;

    friend bool operator==(const Uuid&, const Uuid&) = default;
    friend std::strong_ordering operator<=>(const Uuid&, const Uuid&) = default;
};

} // namespace quillet

template <> struct std::hash<quillet::Uuid> {
    std::size_t operator()(const quillet::Uuid& id) const noexcept;
};
