#include "shell/SiteListener.h"

#include "platform/Trace.h"

#include <QDBusConnection>

namespace quillet {

SiteListener::SiteListener(std::function<void(const std::string&)> heard,
                           const std::function<void(const std::string&)>& log)
    : heard_(std::move(heard)) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    // Any sender: each browser starts a host of its own, with a bus name of its own.
    if (!bus.isConnected() ||
        !bus.connect(QString(), QStringLiteral("/com/quillet/Site"),
                     QStringLiteral("com.quillet.Site"), QStringLiteral("Changed"), this,
                     SLOT(changed(QString)))) {
        log("the browser bridge can't be heard: no session bus");
    }
}

void SiteListener::changed(const QString& notice) {
    heard_(notice.toStdString());
    trace("site " + notice.toStdString()); // once the engine has it, for tests to wait on
}

} // namespace quillet
