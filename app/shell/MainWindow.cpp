#include "shell/MainWindow.h"

#include "shell/Present.h"

#include <QScrollArea>

namespace quillet {

MainWindow::MainWindow(Settings& settings) {
    setWindowTitle(QStringLiteral("Quillet Settings"));
    setAccessibleName(windowTitle());
    auto* scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    page_ = new SettingsPage(settings, {}, scroll);
    scroll->setWidget(page_);
    setCentralWidget(scroll);
    resize(560, 720);
}

void MainWindow::open() {
    refresh();
    if (isVisible()) { // where the user left it
        raise();
        activateWindow();
        return;
    }
    present(*this);
}

} // namespace quillet
