#include "shell/Present.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

namespace quillet {

void present(QWidget& window) {
    window.adjustSize();
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (screen == nullptr) {
        screen = QGuiApplication::primaryScreen();
    }
    if (screen != nullptr) {
        const QRect area = screen->availableGeometry();
        window.move(area.center().x() - window.width() / 2,
                    area.top() + area.height() / 3 - window.height() / 2);
    }
    window.show();
    window.raise();
    window.activateWindow();
}

} // namespace quillet
