#pragma once

#include "render/Expansion.h"
#include "render/Form.h"
#include "render/Tokens.h"

#include <QWidget>
#include <functional>
#include <optional>
#include <vector>

namespace quillet {

/// The floating window that asks for a template's field values. It stays above other windows,
/// takes the keyboard when shown and draws a Form: every key and click goes to the Form, and the
/// panel only shows what the Form then holds.
class FormPanel : public QWidget {
public:
    /// Receives the values on Return, or nothing when the user cancels or closes the panel.
    using Done = std::function<void(std::optional<Expansion::Values>)>;

    /// Shows a panel for fields; done is called exactly once, after which the panel closes and
    /// deletes itself. The panel is returned for callers that want to watch it until then.
    static FormPanel* ask(const std::vector<Tokens::Field>& fields, Done done,
                          QWidget* parent = nullptr);

    /// A panel destroyed before it was answered counts as cancelled.
    ~FormPanel() override;

protected:
    /// Routes the keys the form answers to, and focus changes, from every control to the Form.
    bool eventFilter(QObject* watched, QEvent* event) override;

    /// Closing the window is cancelling.
    void closeEvent(QCloseEvent* event) override;

private:
    FormPanel(const std::vector<Tokens::Field>& fields, Done done, QWidget* parent);

    void build();
    void render();
    void press(Form::Key key);
    void finish(std::optional<Expansion::Values> values);

    Form form_;
    Done done_;
    std::vector<QWidget*> inputs_; // one control per row of the form
    bool rendering_ = false;       // set while render() moves focus and selections itself
    bool finished_ = false;
};

} // namespace quillet
