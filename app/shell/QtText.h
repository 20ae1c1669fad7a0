#pragma once

#include <QString>
#include <string_view>

namespace quillet {

/// The core's UTF-8 text as Qt's.
inline QString fromUtf8(std::string_view s) {
    return QString::fromUtf8(s.data(), qsizetype(s.size()));
}

/// text on one line (runs of white space and line ends become one space), cut to at most length
/// characters with an ellipsis: a preview of a snippet in a list.
inline QString oneLine(std::string_view text, int length) {
    QString line = fromUtf8(text).simplified();
    if (line.size() > length) {
        line = line.left(length - 1) + QChar(0x2026);
    }
    return line;
}

} // namespace quillet
