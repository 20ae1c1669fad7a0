#pragma once

#include <optional>
#include <string>
#include <string_view>

// Picture decoding behind a plain C++ interface, so that the core stays free of Qt. Needs no Qt
// application object: it decodes in memory, with the format plugins Qt finds on its own.
namespace quillet {

/// The picture in bytes (PNG, JPEG, GIF, BMP, and WebP or TIFF where Qt's plugins for them are
/// installed), turned upright as its metadata says and encoded as PNG; nothing when the bytes
/// are no such picture, are damaged or would decode to more pixels than Qt allows. The last
/// few results are kept, so a photograph pasted again costs no second decoding (a large one
/// takes most of a second). Safe from any thread.
std::optional<std::string> toPng(std::string_view bytes);

} // namespace quillet
