#include "image/PngImage.h"

#include <QBuffer>
#include <QByteArray>
#include <QImage>
#include <QImageReader>
#include <QImageWriter>
#include <algorithm>
#include <array>
#include <deque>
#include <mutex>
#include <utility>

namespace quillet {
namespace {

// Raster formats only: a vector format's plugin lays out text, which needs the font database of
// a QGuiApplication, and a system may hold plugins for formats nobody pastes.
constexpr std::array<std::string_view, 6> rasterFormats = {"png", "jpeg", "gif",
                                                           "bmp", "webp", "tiff"};

bool isRaster(const QByteArray& format) {
    const std::string_view name(format.constData(), static_cast<std::size_t>(format.size()));
    return std::find(rasterFormats.begin(), rasterFormats.end(), name) != rasterFormats.end();
}

std::optional<std::string> convert(std::string_view bytes) {
    // The reader works on the caller's bytes in place; nothing writes to them.
    QByteArray input = QByteArray::fromRawData(bytes.data(), static_cast<qsizetype>(bytes.size()));
    QBuffer source(&input);
    if (!source.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    QImageReader reader(&source);
    if (!isRaster(reader.format())) {
        return std::nullopt;
    }
    // A pasted photograph must look as it does in a viewer, which honours its orientation tag;
    // PNG has no such tag, so the pixels turn instead. Qt's allocation limit (128 MB by default)
    // stops a small file from decoding to an enormous picture.
    reader.setAutoTransform(true);
    QImage image;
    if (!reader.read(&image) || image.isNull()) {
        return std::nullopt;
    }

    QByteArray output;
    QBuffer target(&output);
    if (!target.open(QIODevice::WriteOnly)) {
        return std::nullopt;
    }
    QImageWriter writer(&target, "png");
    if (!writer.write(image)) {
        return std::nullopt;
    }
    return std::string(output.constData(), static_cast<std::size_t>(output.size()));
}

// The pictures converted last, by their whole bytes, so a hit is exact.
struct Converted {
    std::string source;
    std::optional<std::string> png;
};
constexpr std::size_t kept = 2;
std::mutex cacheMutex;
std::deque<Converted> cache;

} // namespace

std::optional<std::string> toPng(std::string_view bytes) {
    {
        std::lock_guard lock(cacheMutex);
        for (const Converted& entry : cache) {
            if (entry.source == bytes) {
                return entry.png;
            }
        }
    }
    std::optional<std::string> png = convert(bytes);
    std::lock_guard lock(cacheMutex);
    cache.push_front(Converted{std::string(bytes), png});
    if (cache.size() > kept) {
        cache.pop_back();
    }
    return png;
}

} // namespace quillet
