#include "shell/Tray.h"

#include "library/Text.h"

#include <QVBoxLayout>
#include <QWidgetAction>

// The macro must be called outside any namespace.
static void registerIconResources() {
    Q_INIT_RESOURCE(icons);
}

namespace quillet {

void Tray::registerIcons() {
    static const bool once = (registerIconResources(), true);
    (void)once;
}

QIcon Tray::iconFor(TrayLook::Badge badge, bool darkPanel) {
    QString name = darkPanel ? ":/icons/tray-dark" : ":/icons/tray-light";
    if (badge == TrayLook::Badge::suggestion) {
        name += "-dot";
    } else if (badge == TrayLook::Badge::warning) {
        name += "-warning";
    }
    return QIcon(name + ".svg");
}

Tray::Tray(Coordinator& coordinator, const Appearance& appearance, std::function<void()> quit,
           std::function<void()> search, std::function<void()> settings,
           std::function<void()> snippets)
    : coordinator_(coordinator), appearance_(appearance) {
    registerIcons();
    menu_.setObjectName("trayMenu");
    menu_.setAccessibleName("Quillet");
    // The status reads as text, not as greyed-out items: labels in the menu.
    auto label = [this](const QString& name) {
        auto* action = new QWidgetAction(&menu_);
        auto* text = new QLabel;
        text->setAccessibleName(name);
        text->setTextInteractionFlags(Qt::NoTextInteraction);
        text->setContentsMargins(12, 3, 12, 3);
        action->setDefaultWidget(text);
        menu_.addAction(action);
        return std::pair{action, text};
    };
    headline_ = label("Status").second;
    QFont bold = headline_->font();
    bold.setBold(true);
    headline_->setFont(bold);
    std::tie(detailAction_, detail_) = label("Status detail");
    detail_->setForegroundRole(QPalette::PlaceholderText);
    suggestionSeparator_ = menu_.addSeparator();
    make_ = menu_.addAction(QString());
    connect(make_, &QAction::triggered, this, [this] { coordinator_.acceptSuggestion(); });
    notNow_ = menu_.addAction("Not now");
    connect(notNow_, &QAction::triggered, this, [this] { coordinator_.dismissSuggestion(); });
    menu_.addSeparator();
    pause_ = menu_.addAction(QString());
    connect(pause_, &QAction::triggered, this,
            [this] { coordinator_.setPaused(!coordinator_.userPaused()); });
    if (search) {
        QAction* find = menu_.addAction("Search and Paste\u2026");
        connect(find, &QAction::triggered, this, [search = std::move(search)] { search(); });
    }
    if (snippets) {
        QAction* open = menu_.addAction("Snippets\u2026");
        connect(open, &QAction::triggered, this, [snippets = std::move(snippets)] { snippets(); });
    }
    if (settings) {
        QAction* open = menu_.addAction("Settings\u2026");
        open->setShortcut(QKeySequence::Preferences);
        connect(open, &QAction::triggered, this, [settings = std::move(settings)] { settings(); });
    }
    menu_.addSeparator();
    quit_ = menu_.addAction("Quit Quillet");
    quit_->setShortcut(QKeySequence::Quit);
    connect(quit_, &QAction::triggered, this, [quit = std::move(quit)] { quit(); });
    icon_.setContextMenu(&menu_);
    // A left click shows the same menu: there is no window to open yet.
    connect(&icon_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason r) {
        if (r == QSystemTrayIcon::Trigger) {
            menu_.popup(QCursor::pos());
        }
    });
    update();
    icon_.show();
}

void Tray::update() {
    const EngineStatus& status = coordinator_.status();
    const TrayLook look = coordinator_.trayLook();
    headline_->setText(QString::fromStdString(status.headline));
    detail_->setText(QString::fromStdString(status.detail));
    detailAction_->setVisible(!status.detail.empty());
    const auto& suggestion = coordinator_.suggestion();
    for (QAction* action : {suggestionSeparator_, make_, notNow_}) {
        action->setVisible(suggestion.has_value());
    }
    if (suggestion) {
        // "&" would mark a mnemonic in a menu item's text.
        const QString phrase = QString::fromStdString(text::clip(suggestion->expansion, 20));
        make_->setText(QString("Make \u201C%1\u201D from \u201C%2\u201D")
                           .arg(QString::fromStdString(suggestion->abbreviation), phrase)
                           .replace('&', "&&"));
    }
    pause_->setText(coordinator_.userPaused() ? "Resume expansion" : "Pause expansion");
    pause_->setEnabled(coordinator_.userPaused() || status.state == EngineStatus::State::running ||
                       status.state == EngineStatus::State::secureInput);
    icon_.setIcon(iconFor(look.badge, appearance_.dark()));
    icon_.setToolTip(QString::fromStdString(look.tooltip));
}

} // namespace quillet
