#include "shell/Appearance.h"

#include <QPalette>
#include <QStyle>
#include <QStyleFactory>

namespace quillet {
namespace {

QPalette darkPalette() {
    QPalette p;
    const QColor window(0x2a, 0x2e, 0x32);
    const QColor base(0x1b, 0x1e, 0x20);
    const QColor text(0xfc, 0xfc, 0xfc);
    const QColor dim(0x90, 0x93, 0x96);
    const QColor accent(0x3d, 0xae, 0xe9);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window);
    p.setColor(QPalette::ToolTipBase, base);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::PlaceholderText, dim);
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, QColor(0x31, 0x36, 0x3b));
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, Qt::white);
    p.setColor(QPalette::Highlight, accent);
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, accent);
    p.setColor(QPalette::Mid, QColor(0x40, 0x45, 0x4a));
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
        p.setColor(QPalette::Disabled, role, dim);
    }
    return p;
}

} // namespace

Appearance::Appearance(QApplication& app)
    : app_(app), systemStyle_(app.style()->name()), systemPalette_(QApplication::palette()),
      applied_("system") {}

void Appearance::apply(const std::string& setting) {
    const std::string wanted = setting == "light" || setting == "dark" ? setting : "system";
    if (wanted == applied_) {
        return;
    }
    applied_ = wanted;
    if (wanted == "system") {
        QApplication::setStyle(QStyleFactory::create(systemStyle_));
        QApplication::setPalette(systemPalette_);
        return;
    }
    QApplication::setStyle(QStyleFactory::create("Fusion"));
    QApplication::setPalette(wanted == "dark" ? darkPalette()
                                              : QApplication::style()->standardPalette());
}

bool Appearance::dark() const {
    return QApplication::palette().color(QPalette::Window).lightness() < 128;
}

} // namespace quillet
