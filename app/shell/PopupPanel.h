#pragma once

#include "engine/Caret.h"
#include "engine/Popup.h"

#include <QPointer>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <memory>

class QLabel;
class QTreeWidget;

namespace quillet {

/// The match popup as a small panel at the caret: an override-redirect tool window that never
/// takes the focus or a click, so the application typed in keeps both. It only draws what the
/// engine asks; the engine decides what is listed and answers the keys.
class PopupPanel final : public MatchPopup {
public:
    /// The caret to place the panel at; null while no desktop is open (nothing shows).
    using CaretSource = std::function<Caret*()>;

    /// The space between the caret line and the panel, in pixels.
    static constexpr int gap = 4;

    explicit PopupPanel(CaretSource caret);
    ~PopupPanel() override;
    PopupPanel(const PopupPanel&) = delete;
    PopupPanel& operator=(const PopupPanel&) = delete;

    void show(const std::vector<Matcher::Match>& candidates, Shown shown) override;
    void select(std::size_t index) override;
    void hide() override;

    /// The panel's window, for tests and screenshots.
    QWidget* window() const { return panel_.get(); }

    /// Fills the rows and sizes the panel without showing it.
    void fill(const std::vector<Matcher::Match>& candidates);
    /// Puts the panel at the caret on the screen holding it and shows it.
    void showAt(const ScreenRect& caret);

private:
    CaretSource caret_;
    std::unique_ptr<QWidget> panel_;
    QTreeWidget* list_ = nullptr;
    QLabel* hint_ = nullptr;
    std::uint64_t shows_ = 0; // a caret found for an older show is dropped
    std::shared_ptr<PopupPanel*> self_ = std::make_shared<PopupPanel*>(this);
};

} // namespace quillet
