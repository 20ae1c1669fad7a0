#pragma once

#include "library/OwnerAuth.h"

#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <optional>
#include <string>

namespace quillet {

/// Quillet's own window for the questions of an unlock (the system password through PAM, a
/// code, a notice): the reason on top, the service's words beside the field, the answer hidden
/// while typed when it is a secret. Return answers, Escape cancels.
class UnlockDialog final : public QDialog {
public:
    /// A dialog for question, not shown yet.
    explicit UnlockDialog(const AuthQuestion& question, QWidget* parent = nullptr);

    /// The answer typed so far.
    std::string answer() const { return field_->text().toStdString(); }

    /// Asks question in a dialog and waits for the answer; nothing when cancelled. Notices and
    /// errors are shown with a single button. Call on the GUI thread.
    static std::optional<std::string> ask(const AuthQuestion& question);

    /// A prompt for PamOwnerAuth that may be called from any thread: the dialog is shown on the
    /// GUI thread while the calling thread waits for the answer.
    static AuthPrompt prompt();

private:
    QLabel* reason_;
    QLabel* label_;
    QLineEdit* field_;
};

} // namespace quillet
