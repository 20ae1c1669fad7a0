#include "shell/PopupPanel.h"

#include "shell/QtText.h"

#include <QFrame>
#include <QGuiApplication>
#include <QLabel>
#include <QScreen>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>

namespace quillet {
namespace {

// A preview long enough to tell snippets apart, short enough to keep the panel small.
constexpr int previewLength = 48;

// The snippet on one line, shortened, as a hint of what it inserts.
QString preview(const std::string& expansion) {
    return oneLine(expansion, previewLength);
}

ScreenRect rectOf(const QRect& r) {
    return {r.x(), r.y(), r.width(), r.height()};
}

} // namespace

PopupPanel::PopupPanel(CaretSource caret) : caret_(std::move(caret)) {
    // A tool tip window is override-redirect on X11: the window manager neither places nor
    // activates it, and it stays above the window typed in.
    auto frame = std::make_unique<QFrame>(nullptr, Qt::ToolTip | Qt::FramelessWindowHint |
                                                       Qt::WindowDoesNotAcceptFocus |
                                                       Qt::WindowStaysOnTopHint);
    frame->setFrameShape(QFrame::Box);
    frame->setForegroundRole(QPalette::Mid); // the border's colour
    panel_ = std::move(frame);
    panel_->setAttribute(Qt::WA_ShowWithoutActivating);
    panel_->setAttribute(Qt::WA_X11DoNotAcceptFocus);
    panel_->setAttribute(Qt::WA_TransparentForMouseEvents);
    panel_->setFocusPolicy(Qt::NoFocus);
    panel_->setWindowTitle(QStringLiteral("Matching snippets"));
    panel_->setAccessibleName(panel_->windowTitle());
    panel_->setBackgroundRole(QPalette::Base);
    panel_->setAutoFillBackground(true);

    auto* layout = new QVBoxLayout(panel_.get());
    layout->setContentsMargins(4, 4, 4, 4);
    layout->setSpacing(2);
    list_ = new QTreeWidget(panel_.get());
    list_->setColumnCount(2);
    list_->setHeaderHidden(true);
    list_->setRootIsDecorated(false);
    list_->setIndentation(0);
    list_->setFocusPolicy(Qt::NoFocus);
    list_->setFrameShape(QFrame::NoFrame);
    list_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    list_->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    list_->setSelectionMode(QAbstractItemView::SingleSelection);
    list_->setAccessibleName(QStringLiteral("Snippets"));
    layout->addWidget(list_);
    hint_ = new QLabel(QStringLiteral("Tab or Return inserts \u00b7 Esc closes"), panel_.get());
    hint_->setAccessibleName(hint_->text());
    hint_->setForegroundRole(QPalette::PlaceholderText);
    QFont small = hint_->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    hint_->setFont(small);
    layout->addWidget(hint_);
}

PopupPanel::~PopupPanel() = default;

void PopupPanel::fill(const std::vector<Matcher::Match>& candidates) {
    list_->clear();
    QFont bold = list_->font();
    bold.setBold(true);
    for (const Matcher::Match& candidate : candidates) {
        const QString abbreviation = fromUtf8(candidate.abbreviation);
        const QString text = preview(candidate.expansion);
        auto* item = new QTreeWidgetItem(list_, {abbreviation, text});
        item->setFont(0, bold);
        item->setData(0, Qt::AccessibleTextRole, abbreviation + QStringLiteral(": ") + text);
    }
    if (!candidates.empty()) {
        list_->setCurrentItem(list_->topLevelItem(0));
    }
    // Every row shows and nothing scrolls: the list is short by design.
    int width = 0;
    for (int column = 0; column < 2; ++column) {
        list_->resizeColumnToContents(column);
        // Room between the abbreviation and its text.
        list_->setColumnWidth(column, list_->columnWidth(column) + (column == 0 ? 12 : 0));
        width += list_->columnWidth(column);
    }
    const int rows = static_cast<int>(candidates.size());
    const int rowHeight = rows > 0 ? list_->sizeHintForRow(0) : 0;
    list_->setFixedSize(std::max(width + 4, hint_->sizeHint().width()), rowHeight * rows + 2);
    panel_->adjustSize();
}

void PopupPanel::showAt(const ScreenRect& caret) {
    // Accessibility answers in device pixels; Qt places windows in its own pixels.
    const qreal ratio = qApp->devicePixelRatio();
    const ScreenRect at{int(caret.x / ratio), int(caret.y / ratio), int(caret.width / ratio),
                        int(caret.height / ratio)};
    std::vector<ScreenArea> screens;
    std::size_t primary = 0;
    const QList<QScreen*> all = QGuiApplication::screens();
    for (QScreen* screen : all) {
        if (screen == QGuiApplication::primaryScreen()) {
            primary = screens.size();
        }
        screens.push_back({rectOf(screen->geometry()), rectOf(screen->availableGeometry())});
    }
    panel_->resize(panel_->sizeHint());
    const QSize size = panel_->size();
    const auto [x, y] = popupOrigin(at, size.width(), size.height(), gap, screens, primary);
    panel_->move(x, y);
    panel_->show();
    panel_->raise();
}

void PopupPanel::show(const std::vector<Matcher::Match>& candidates, Shown shown) {
    const std::uint64_t show = ++shows_;
    Caret* caret = caret_ ? caret_() : nullptr;
    if (caret == nullptr || candidates.empty()) {
        panel_->hide();
        if (shown) {
            shown(false);
        }
        return;
    }
    fill(candidates);
    caret->locate([alive = std::weak_ptr<PopupPanel*>(self_), this, show,
                   shown = std::move(shown)](std::optional<ScreenRect> at) {
        if (alive.expired() || show != shows_) {
            return; // gone, or the typing moved on
        }
        // The engine grabs the panel's keys when told, before the panel can be seen.
        if (shown) {
            shown(at.has_value());
        }
        if (!at) {
            panel_->hide();
        } else if (show == shows_) {
            showAt(*at);
        }
    });
}

void PopupPanel::select(std::size_t index) {
    list_->setCurrentItem(list_->topLevelItem(static_cast<int>(index)));
}

void PopupPanel::hide() {
    ++shows_;
    panel_->hide();
}

} // namespace quillet
