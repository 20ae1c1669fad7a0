// Saves a picture of the fill-in panel: FormScreenshot OUT.png [--dark]. Under the offscreen
// platform the picture is the panel's content, without the window manager's frame.
#include "shell/FormPanel.h"

#include <QApplication>
#include <QPalette>
#include <QStyleFactory>
#include <QTimer>
#include <cstdio>

namespace {

// A dark palette in the shape of the ones desktops ship, since Qt 6.4 offers no way to ask the
// platform for its dark scheme.
QPalette darkPalette() {
    QPalette palette;
    const QColor window(0x2b, 0x2b, 0x2e), base(0x1e, 0x1e, 0x20), text(0xe6, 0xe6, 0xe6);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, window);
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::ToolTipBase, base);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, QColor(0x9a, 0x9a, 0xa0));
    palette.setColor(QPalette::Highlight, QColor(0x35, 0x84, 0xe4));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Light, QColor(0x3c, 0x3c, 0x40));
    palette.setColor(QPalette::Midlight, QColor(0x34, 0x34, 0x38));
    palette.setColor(QPalette::Mid, QColor(0x24, 0x24, 0x26));
    palette.setColor(QPalette::Dark, QColor(0x18, 0x18, 0x1a));
    palette.setColor(QPalette::Shadow, Qt::black);
    palette.setColor(QPalette::Inactive, QPalette::Highlight, QColor(0x2e, 0x4a, 0x6e));
    return palette;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s OUT.png [--dark]\n", argv[0]);
        return 2;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    if (argc > 2 && QString::fromUtf8(argv[2]) == QStringLiteral("--dark")) {
        QApplication::setPalette(darkPalette());
    }
    const std::vector<quillet::Tokens::Field> fields{
        {"Client", {}},
        {"Meeting slot", {"#Morning", "9:00", "10:30", "#Afternoon", "14:00", "16:30"}},
        {"Signed", {"Ann Baker"}},
    };
    auto* panel = quillet::FormPanel::ask(fields, [](auto) {});
    const QString out = QString::fromUtf8(argv[1]);
    int status = 1;
    QTimer::singleShot(100, [&] {
        status = panel->grab().save(out) ? 0 : 1;
        panel->close();
        QApplication::quit();
    });
    QApplication::exec();
    return status;
}
