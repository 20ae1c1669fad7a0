#pragma once

#include <QLocalServer>
#include <QObject>
#include <functional>
#include <string>

namespace quillet {

/// Keeps Quillet to one running copy per user and library: a later launch asks the running one
/// to bring its window up, and ends. The meeting point is a local socket named after the
/// settings folder, so copies with different homes (tests, other users) never meet.
class SingleInstance final : public QObject {
public:
    /// key tells the libraries apart: the settings folder's path.
    explicit SingleInstance(const std::string& key);

    /// Asks a running copy to show its window; true when one answered (this copy should end).
    bool handOver();
    /// Answers later launches from now on: onOpen is called for each.
    bool listen(std::function<void()> onOpen);

private:
    QString name_;
    QLocalServer server_;
};

} // namespace quillet
