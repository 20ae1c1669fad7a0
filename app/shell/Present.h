#pragma once

class QWidget;

namespace quillet {

/// Shows a window that asks something where the user is looking: on the screen under the
/// pointer, centred across it and a little above its middle, above other windows and with the
/// keyboard focus.
void present(QWidget& window);

} // namespace quillet
