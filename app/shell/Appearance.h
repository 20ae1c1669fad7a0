#pragma once

#include <QApplication>
#include <QPalette>
#include <string>

namespace quillet {

/// The colours the user chose in "appearance": "system" leaves the desktop's style and palette
/// alone; "light" and "dark" use Qt's Fusion style with a light or dark palette.
class Appearance {
public:
    /// Remembers the desktop's own style and palette, for "system".
    explicit Appearance(QApplication& app);

    /// Applies setting ("system", "light", "dark"; anything else counts as "system").
    void apply(const std::string& setting);

    /// True when windows and panels are dark now, so the tray glyph must be light.
    bool dark() const;

private:
    QApplication& app_;
    QString systemStyle_;
    QPalette systemPalette_;
    std::string applied_;
};

} // namespace quillet
