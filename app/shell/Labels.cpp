#include "shell/Labels.h"

namespace quillet {

QLabel* noteLabel(const std::string& text, QWidget* parent) {
    auto* label = new QLabel(QString::fromStdString(text), parent);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    label->setAccessibleName(label->text());
    label->setContentsMargins(24, 0, 0, 4);
    return label;
}

QLabel* problemLabel(QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    label->setAccessibleName(QStringLiteral("Problem"));
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, QColor(0xc0, 0x1c, 0x28));
    label->setPalette(palette);
    label->hide();
    return label;
}

void showProblem(QLabel* label, const std::optional<std::string>& text) {
    label->setText(text ? QString::fromStdString(*text) : QString());
    label->setVisible(text.has_value());
}

} // namespace quillet
