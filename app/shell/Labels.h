#pragma once

#include <QLabel>
#include <optional>
#include <string>

namespace quillet {

/// A note under a control, in the palette's quieter colour.
QLabel* noteLabel(const std::string& text, QWidget* parent);

/// A message next to a field that refused what was typed; hidden while there is none.
QLabel* problemLabel(QWidget* parent);

/// Shows text in a problem label, or hides it when there is none.
void showProblem(QLabel* label, const std::optional<std::string>& text);

} // namespace quillet
