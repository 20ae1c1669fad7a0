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

MainWindow::MainWindow(Parts parts) {
    setWindowTitle(QStringLiteral("Quillet"));
    setAccessibleName(windowTitle());
    auto* central = new QWidget(this);
    auto* layout = new QHBoxLayout(central);
    pages_ = new QListWidget(central);
    pages_->setAccessibleName(QStringLiteral("Pages"));
    for (const char* name :
         {"Snippets", "Overview", "Collections", "Import and Export", "Settings"}) {
        pages_->addItem(QString::fromUtf8(name));
    }
    pages_->setFixedWidth(pages_->sizeHintForColumn(0) + 4 * pages_->frameWidth() + 24);
    stack_ = new QStackedWidget(central);
    snippets_ = new SnippetsPage(parts.library, {}, stack_);
    snippets_->editorPane().setRunningApplications(parts.runningApplications);
    auto scrolled = [this](QWidget* page) {
        auto* scroll = new QScrollArea(stack_);
        scroll->setWidgetResizable(true);
        scroll->setFrameShape(QFrame::NoFrame);
        scroll->setWidget(page);
        stack_->addWidget(scroll);
    };
    stack_->addWidget(snippets_);
    overview_ = new OverviewPage(parts.overview, parts.coordinator, [this](const Uuid& id) {
        pages_->setCurrentRow(static_cast<int>(Page::snippets));
        snippets_->select(id);
        snippets_->editorPane().focusAbbreviation();
    });
    scrolled(overview_);
    collections_ =
        new CollectionsPage(parts.library, parts.settings, {}, [this] { snippets_->refresh(); });
    scrolled(collections_);
    import_ = new ImportPage(parts.transfer, [this] { snippets_->refresh(); });
    scrolled(import_);
    settings_ = new SettingsPage(parts.settings, {});
    scrolled(settings_);
    layout->addWidget(pages_);
    layout->addWidget(stack_, 1);
    setCentralWidget(central);
    connect(pages_, &QListWidget::currentRowChanged, this, [this](int row) {
        stack_->setCurrentIndex(row);
        refresh(); // figures and lists as of now
    });
    // Ctrl+1 to Ctrl+5 go to the pages, as tabs do in a browser.
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
    pages_->setCurrentRow(static_cast<int>(page));
    refresh();
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
    switch (static_cast<Page>(pages_->currentRow())) {
    case Page::snippets:
        snippets_->refresh();
        break;
    case Page::overview:
        overview_->refresh();
        break;
    case Page::collections:
        collections_->refresh();
        break;
    case Page::transfer:
        import_->refresh();
        break;
    case Page::settings:
        settings_->refresh();
        break;
    }
}

void MainWindow::closeEvent(QCloseEvent* event) {
    snippets_->editorPane().flush();
    rememberedWindow().setValue("geometry", saveGeometry());
    QMainWindow::closeEvent(event);
}

} // namespace quillet
