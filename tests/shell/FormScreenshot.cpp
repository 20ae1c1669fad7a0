// Saves a picture of the fill-in panel: FormScreenshot OUT.png [--dark]. Under the offscreen
// platform the picture is the panel's content, without the window manager's frame.
#include "shell/Appearance.h"
#include "shell/FormPanel.h"

#include <QApplication>
#include <QTimer>
#include <cstdio>

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s OUT.png [--dark]\n", argv[0]);
        return 2;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    // The colours the application itself uses for "light" and "dark".
    quillet::Appearance appearance(app);
    const bool dark = argc > 2 && QString::fromUtf8(argv[2]) == QStringLiteral("--dark");
    appearance.apply(dark ? "dark" : "light");
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
