#include "shell/MainWindow.h"

#include "shell/Present.h"

#include <QAction>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QListWidget>
#include <QScrollArea>
#include <QSettings>
#include <QStackedWidget>

namespace quillet {
namespace {

// Where the window's size and place are kept: Qt's own settings file for the application,
// apart from the user's settings.json, which holds only what the user chose.
QSettings& rememberedWindow() {
    static QSettings settings(QSettings::IniFormat, QSettings::UserScope, QStringLiteral("quillet"),
                              QStringLiteral("window"));
    return settings;
}

} // namespace

MainWindow::MainWindow(LibraryEditor& library, Settings& settings) {
    setWindowTitle(QStringLiteral("Quillet"));
    setAccessibleName(windowTitle());
    auto* central = new QWidget(this);
    auto* layout = new QHBoxLayout(central);
    pages_ = new QListWidget(central);
    pages_->setAccessibleName(QStringLiteral("Pages"));
    pages_->addItem(QStringLiteral("Snippets"));
    pages_->addItem(QStringLiteral("Settings"));
    pages_->setFixedWidth(pages_->sizeHintForColumn(0) + 4 * pages_->frameWidth() + 24);
    stack_ = new QStackedWidget(central);
    snippets_ = new SnippetsPage(library, {}, stack_);
    auto* scroll = new QScrollArea(stack_);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    settings_ = new SettingsPage(settings, {}, scroll);
    scroll->setWidget(settings_);
    stack_->addWidget(snippets_);
    stack_->addWidget(scroll);
    layout->addWidget(pages_);
    layout->addWidget(stack_, 1);
    setCentralWidget(central);
    connect(pages_, &QListWidget::currentRowChanged, stack_, &QStackedWidget::setCurrentIndex);
    // Ctrl+1 and Ctrl+2 go to the pages, as tabs do in a browser.
    for (int i = 0; i < pages_->count(); ++i) {
        auto* go = new QAction(this);
        go->setShortcut(QKeySequence(Qt::CTRL | Qt::Key(Qt::Key_1 + i)));
        connect(go, &QAction::triggered, this, [this, i] { pages_->setCurrentRow(i); });
        addAction(go);
    }
    pages_->setCurrentRow(0);
    resize(960, 680);
    restoreGeometry(rememberedWindow().value("geometry").toByteArray());
}

void MainWindow::open(Page page) {
    refresh();
    pages_->setCurrentRow(static_cast<int>(page));
    if (page == Page::snippets) { // ready to search, or Ctrl+N for a new one
        snippets_->search().setFocus(Qt::OtherFocusReason);
    }
    if (isVisible()) { // where the user left it
        raise();
        activateWindow();
        return;
    }
    present(*this);
}

void MainWindow::refresh() {
    snippets_->refresh();
    settings_->refresh();
}

void MainWindow::closeEvent(QCloseEvent* event) {
    snippets_->editorPane().flush();
    rememberedWindow().setValue("geometry", saveGeometry());
    QMainWindow::closeEvent(event);
}

} // namespace quillet
