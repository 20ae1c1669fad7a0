#include "transfer/Lz4Frame.h"

#include <algorithm>
#include <lz4frame.h>
#include <memory>

namespace quillet {

std::optional<std::string> decodeLz4Frame(std::string_view bytes, std::size_t limit) {
    LZ4F_dctx* raw = nullptr;
    if (LZ4F_isError(LZ4F_createDecompressionContext(&raw, LZ4F_VERSION))) {
        return std::nullopt;
    }
    std::unique_ptr<LZ4F_dctx, decltype(&LZ4F_freeDecompressionContext)> context(
        raw, &LZ4F_freeDecompressionContext);

    const char* in = bytes.data();
    std::size_t left = bytes.size();
    // A frame that says it holds more than the limit is refused before anything is allocated.
    LZ4F_frameInfo_t info{};
    std::size_t used = left;
    std::size_t hint = LZ4F_getFrameInfo(context.get(), &info, in, &used);
    if (LZ4F_isError(hint) || info.contentSize > limit) {
        return std::nullopt;
    }
    in += used;
    left -= used;

    std::string out;
    // The claim is trusted only as far as the input could back it: LZ4 expands at most about
    // 255 times.
    if (info.contentSize != 0) {
        out.reserve(std::min(static_cast<std::size_t>(info.contentSize), left * 256));
    }
    char chunk[64 * 1024];
    while (hint != 0) {
        std::size_t produced = sizeof chunk;
        std::size_t consumed = left;
        hint = LZ4F_decompress(context.get(), chunk, &produced, in, &consumed, nullptr);
        if (LZ4F_isError(hint) || produced > limit - out.size()) {
            return std::nullopt;
        }
        out.append(chunk, produced);
        in += consumed;
        left -= consumed;
        // Without input the context can only flush what it holds; nothing more means cut short.
        if (hint != 0 && consumed == 0 && produced == 0) {
            return std::nullopt;
        }
    }
    return out;
}

} // namespace quillet
