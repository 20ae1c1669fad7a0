#include "shell/UnlockDialog.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QMessageBox>
#include <QPushButton>
#include <QStyle>
#include <QThread>
#include <QVBoxLayout>

namespace quillet {

UnlockDialog::UnlockDialog(const AuthQuestion& question, QWidget* parent) : QDialog(parent) {
    setWindowTitle("Unlock snippet");
    setWindowFlag(Qt::WindowStaysOnTopHint);
    auto* layout = new QVBoxLayout(this);
    reason_ = new QLabel(QString::fromStdString(
        "Quillet needs your password to " +
        (question.reason.empty() ? std::string("unlock") : question.reason) + "."));
    reason_->setWordWrap(true);
    reason_->setAccessibleName("Why Quillet asks");
    layout->addWidget(reason_);

    auto* form = new QFormLayout;
    QString text = QString::fromStdString(question.text).trimmed();
    if (text.endsWith(':')) {
        text.chop(1);
    }
    label_ = new QLabel(text.isEmpty() ? QString("Password") : text);
    field_ = new QLineEdit;
    field_->setEchoMode(question.kind == AuthQuestion::Kind::secret ? QLineEdit::Password
                                                                    : QLineEdit::Normal);
    field_->setAccessibleName(label_->text());
    field_->setMinimumWidth(260);
    label_->setBuddy(field_);
    form->addRow(label_, field_);
    layout->addLayout(form);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Ok)->setText("Unlock");
    buttons->button(QDialogButtonBox::Ok)->setAccessibleName("Unlock");
    buttons->button(QDialogButtonBox::Cancel)->setAccessibleName("Cancel");
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
    field_->setFocus();
}

std::optional<std::string> UnlockDialog::ask(const AuthQuestion& question) {
    if (question.kind == AuthQuestion::Kind::notice || question.kind == AuthQuestion::Kind::error) {
        QMessageBox box(question.kind == AuthQuestion::Kind::error ? QMessageBox::Warning
                                                                   : QMessageBox::Information,
                        "Unlock snippet", QString::fromStdString(question.text), QMessageBox::Ok);
        box.setWindowFlag(Qt::WindowStaysOnTopHint);
        return box.exec() == QMessageBox::Ok ? std::optional<std::string>("") : std::nullopt;
    }
    UnlockDialog dialog(question);
    dialog.show();
    dialog.raise();
    dialog.activateWindow();
    if (dialog.exec() != QDialog::Accepted) {
        return std::nullopt;
    }
    return dialog.answer();
}

AuthPrompt UnlockDialog::prompt() {
    return [](const AuthQuestion& question) -> std::optional<std::string> {
        if (QThread::currentThread() == qApp->thread()) {
            return ask(question);
        }
        std::optional<std::string> answer;
        QMetaObject::invokeMethod(
            qApp, [&] { answer = ask(question); }, Qt::BlockingQueuedConnection);
        return answer;
    };
}

} // namespace quillet
