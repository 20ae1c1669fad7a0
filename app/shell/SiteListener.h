#pragma once

#include <QObject>
#include <QString>
#include <functional>
#include <string>

namespace quillet {

/// Hears the browser bridge: the com.quillet.Site "Changed" signal on the session bus, sent by
/// the native-messaging host each time the browser's extension reports the active tab's site.
class SiteListener final : public QObject {
    Q_OBJECT

public:
    /// Subscribes on the session bus; heard receives each notice, "<browser id> <site>". Where
    /// no session bus answers, log hears why and no site ever arrives.
    SiteListener(std::function<void(const std::string&)> heard,
                 const std::function<void(const std::string&)>& log);

private slots:
    /// One notice from a host.
    void changed(const QString& notice);

private:
    std::function<void(const std::string&)> heard_;
};

} // namespace quillet
