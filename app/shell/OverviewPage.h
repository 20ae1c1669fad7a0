#pragma once

#include "entry/Coordinator.h"
#include "entry/Overview.h"

#include <QWidget>
#include <functional>

class QLabel;
class QListWidget;
class QPushButton;
class QGroupBox;

namespace quillet {

/// The overview page: the time saved, the snippets used most and lately, those not used in six
/// months, and the retyped phrase waiting to become a snippet. Choosing a snippet in a list
/// opens it in the editor.
class OverviewPage final : public QWidget {
public:
    /// open shows a snippet in the editor; coordinator (may be null) has the waiting phrase.
    OverviewPage(Overview& overview, Coordinator* coordinator,
                 std::function<void(const Uuid&)> open, QWidget* parent = nullptr);

    /// Shows the figures and lists as they are now.
    void refresh();

    QLabel& saved() { return *saved_; }
    QListWidget& mostUsed() { return *lists_[0]; }
    QListWidget& recent() { return *lists_[1]; }
    QListWidget& stale() { return *lists_[2]; }
    QGroupBox& suggestion() { return *suggestion_; }

private:
    void accept(bool edit);

    Overview& overview_;
    Coordinator* coordinator_;
    std::function<void(const Uuid&)> open_;
    QLabel* saved_;
    QLabel* savedDetail_;
    QListWidget* lists_[3];
    QGroupBox* boxes_[3];
    QLabel* empty_[3];
    QGroupBox* suggestion_;
    QLabel* phrase_;
};

} // namespace quillet
