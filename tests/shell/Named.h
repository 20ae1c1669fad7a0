#pragma once

#include <QString>
#include <QWidget>
#include <stdexcept>

namespace quillet::testing {

/// The control of type W inside parent that screen readers call name.
template <typename W> W& named(QWidget& parent, const QString& name) {
    for (W* widget : parent.findChildren<W*>()) {
        if (widget->accessibleName() == name) {
            return *widget;
        }
    }
    throw std::runtime_error("no control named " + name.toStdString());
}

} // namespace quillet::testing
