#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace quillet {

/// Far more than any expander's library decompresses to, and little enough to hold in memory.
inline constexpr std::size_t lz4FrameLimit = std::size_t{256} << 20;

/// The content of the LZ4 frame at the start of bytes; nothing when it is damaged, cut short or
/// would decompress to more than limit bytes (by its own claim or in fact).
std::optional<std::string> decodeLz4Frame(std::string_view bytes,
                                          std::size_t limit = lz4FrameLimit);

} // namespace quillet
