#include "transfer/PropertyList.h"

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <plist/plist.h>
#include <vector>

namespace quillet {
namespace {

using nlohmann::json;

// A binary property list may refer to one object from many places; the parser copies it for
// each, so a few hundred bytes can stand for billions of values. Lists of macros stay far below.
constexpr std::uint64_t maxValues = 2'000'000;
constexpr int maxDepth = 200;

std::uint64_t bigEndian(std::string_view bytes, std::size_t at, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    }
    return value;
}

// How many values the binary list expands to when every reference is copied, at most
// maxValues + 1; nothing when its structure is damaged or refers back to itself.
std::optional<std::uint64_t> expandedSize(std::string_view bytes) {
    constexpr std::size_t trailer = 32;
    if (bytes.size() < 8 + trailer) {
        return std::nullopt;
    }
    const std::size_t end = bytes.size() - trailer;
    const std::size_t offsetSize = static_cast<unsigned char>(bytes[end + 6]);
    const std::size_t refSize = static_cast<unsigned char>(bytes[end + 7]);
    const std::uint64_t count = bigEndian(bytes, end + 8, 8);
    const std::uint64_t top = bigEndian(bytes, end + 16, 8);
    const std::uint64_t table = bigEndian(bytes, end + 24, 8);
    if (offsetSize < 1 || offsetSize > 8 || refSize < 1 || refSize > 8 || top >= count ||
        table > end || count > (end - table) / offsetSize) {
        return std::nullopt;
    }
    // The references an object holds: [first byte, count]; none for a value without children.
    auto children =
        [&](std::uint64_t object) -> std::optional<std::pair<std::size_t, std::size_t>> {
        const std::uint64_t at = bigEndian(bytes, table + object * offsetSize, offsetSize);
        if (at >= end) {
            return std::nullopt;
        }
        const auto marker = static_cast<unsigned char>(bytes[at]);
        const unsigned kind = marker >> 4;
        const bool text = kind == 0x5 || kind == 0x6;
        if (kind != 0xA && kind != 0xC && kind != 0xD && !text) {
            return std::pair<std::size_t, std::size_t>{0, 0};
        }
        std::uint64_t n = marker & 0xF;
        std::size_t first = at + 1;
        if (n == 0xF) {
            if (first >= end || (static_cast<unsigned char>(bytes[first]) >> 4) != 1) {
                return std::nullopt;
            }
            const std::size_t size = std::size_t{1} << (bytes[first] & 0x3);
            if (first + 1 + size > end) {
                return std::nullopt;
            }
            n = bigEndian(bytes, first + 1, size);
            first += 1 + size;
        }
        if (text) {
            // The parser aborts on a key holding a NUL (it checks the length against strlen),
            // so such a string refuses the whole list. ASCII counts bytes, UTF-16 two-byte units.
            const std::size_t unit = kind == 0x5 ? 1 : 2;
            if (n > (end - first) / unit) {
                return std::nullopt;
            }
            for (std::size_t i = 0; i < n; ++i) {
                const std::size_t pos = first + i * unit;
                if (bytes[pos] == '\0' && (unit == 1 || bytes[pos + 1] == '\0')) {
                    return std::nullopt;
                }
            }
            return std::pair<std::size_t, std::size_t>{0, 0};
        }
        if (kind == 0xD) {
            n = n > std::numeric_limits<std::uint64_t>::max() / 2 ? n : n * 2;
        }
        if (n > (end - first) / refSize) {
            return std::nullopt;
        }
        return std::pair<std::size_t, std::size_t>{first, static_cast<std::size_t>(n)};
    };

    // Depth-first without recursion: sizes are kept per object, so each is walked once.
    enum : std::uint8_t { unseen, open, done };
    std::vector<std::uint8_t> state(count, unseen);
    std::vector<std::uint64_t> size(count, 0);
    struct Frame {
        std::uint64_t object;
        std::size_t first, n, next;
    };
    std::vector<Frame> stack;
    // The parser recurses as deep as the lists nest, so deep nesting is refused here.
    auto enter = [&](std::uint64_t object) {
        auto refs = children(object);
        if (!refs || stack.size() >= maxDepth) {
            return false;
        }
        state[object] = open;
        size[object] = 1;
        stack.push_back({object, refs->first, refs->second, 0});
        return true;
    };
    if (!enter(top)) {
        return std::nullopt;
    }
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.next == frame.n) {
            state[frame.object] = done;
            const std::uint64_t total = size[frame.object];
            stack.pop_back();
            if (!stack.empty()) {
                std::uint64_t& parent = size[stack.back().object];
                parent = std::min(parent + total, maxValues + 1);
            }
            continue;
        }
        const std::uint64_t child = bigEndian(bytes, frame.first + frame.next * refSize, refSize);
        ++frame.next;
        if (child >= count || state[child] == open) {
            return std::nullopt;
        }
        if (state[child] == done) {
            std::uint64_t& own = size[frame.object];
            own = std::min(own + size[child], maxValues + 1);
        } else if (!enter(child)) {
            return std::nullopt;
        }
    }
    return size[top];
}

std::optional<json> toJson(plist_t node, int depth) {
    if (depth > maxDepth) {
        return std::nullopt;
    }
    switch (plist_get_node_type(node)) {
    case PLIST_DICT: {
        json object = json::object();
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(node, &it);
        for (;;) {
            char* key = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(node, it, &key, &value);
            if (key == nullptr) {
                break;
            }
            std::unique_ptr<char, decltype(&std::free)> owned(key, &std::free);
            std::optional<json> converted = toJson(value, depth + 1);
            if (!converted) {
                std::free(it);
                return std::nullopt;
            }
            object[key] = std::move(*converted);
        }
        std::free(it);
        return object;
    }
    case PLIST_ARRAY: {
        json list = json::array();
        const std::uint32_t n = plist_array_get_size(node);
        for (std::uint32_t i = 0; i < n; ++i) {
            std::optional<json> converted = toJson(plist_array_get_item(node, i), depth + 1);
            if (!converted) {
                return std::nullopt;
            }
            list.push_back(std::move(*converted));
        }
        return list;
    }
    case PLIST_STRING:
    case PLIST_KEY: {
        std::uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        return text == nullptr ? json(nullptr) : json(std::string(text, length));
    }
    case PLIST_BOOLEAN: {
        std::uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return json(value != 0);
    }
    case PLIST_UINT: {
        std::uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return json(value);
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return json(value);
    }
    case PLIST_DATE: {
        std::int32_t seconds = 0;
        std::int32_t micro = 0;
        plist_get_date_val(node, &seconds, &micro);
        return json(seconds);
    }
    default:
        return json(nullptr);
    }
}

} // namespace

bool looksLikePropertyList(std::string_view bytes) {
    if (bytes.starts_with("bplist00")) {
        return true;
    }
    const std::string_view head = bytes.substr(0, 512);
    return (head.starts_with("<?xml") || head.starts_with("<!DOCTYPE") ||
            head.starts_with("<plist")) &&
           head.find("<plist") != std::string_view::npos;
}

std::optional<json> readPropertyList(std::string_view bytes) {
    if (bytes.size() > std::numeric_limits<std::uint32_t>::max()) {
        return std::nullopt;
    }
    const auto length = static_cast<std::uint32_t>(bytes.size());
    if (plist_is_binary(bytes.data(), length) != 0) {
        std::optional<std::uint64_t> values = expandedSize(bytes);
        if (!values || *values > maxValues) {
            return std::nullopt;
        }
    } else if (!looksLikePropertyList(bytes)) {
        return std::nullopt;
    }
    plist_t root = nullptr;
    plist_from_memory(bytes.data(), length, &root);
    if (root == nullptr) {
        return std::nullopt;
    }
    std::unique_ptr<void, decltype(&plist_free)> owned(root, &plist_free);
    return toJson(root, 0);
}

} // namespace quillet
