#include "shell/SuggestionNotifier.h"

#include "library/Text.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

namespace quillet {
namespace {

const QString service = QStringLiteral("org.freedesktop.Notifications");
const QString path = QStringLiteral("/org/freedesktop/Notifications");

QDBusMessage methodCall(const QString& method) {
    return QDBusMessage::createMethodCall(service, path, service, method);
}

// Calls a method without blocking: a server being started or stuck must not hold up the tray
// and the keyboard engine, which share this thread.
template <typename Done> void callAsync(QObject* owner, const QDBusMessage& message, Done done) {
    auto* watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(message), owner);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, owner,
                     [watcher, done](QDBusPendingCallWatcher*) {
                         watcher->deleteLater();
                         done(*watcher);
                     });
}

} // namespace

SuggestionNotifier::SuggestionNotifier(Coordinator& coordinator,
                                       std::function<void(const std::string&)> log)
    : coordinator_(coordinator), log_(std::move(log)) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        log_("no session bus: suggestions show in the tray only");
        return;
    }
    bus.connect(service, path, service, "ActionInvoked", this, SLOT(actionInvoked(uint, QString)));
    bus.connect(service, path, service, "NotificationClosed", this,
                SLOT(notificationClosed(uint, uint)));
}

SuggestionNotifier::~SuggestionNotifier() {
    close();
}

QString SuggestionNotifier::summary(const Repeats::Suggestion& suggestion) {
    return QString("You've typed this %1 times").arg(suggestion.typed);
}

QString SuggestionNotifier::body(const Repeats::Suggestion& suggestion, bool markup) {
    const QString text = QString("\u201C%1\u201D as %2")
                             .arg(QString::fromStdString(text::clip(suggestion.expansion, 60)),
                                  QString::fromStdString(suggestion.abbreviation));
    // Servers with markup read a subset of HTML: "<" or "&" in a phrase would be taken for it.
    return markup ? text.toHtmlEscaped() : text;
}

void SuggestionNotifier::update() {
    if (busy_ || !QDBusConnection::sessionBus().isConnected()) {
        return;
    }
    const std::optional<Repeats::Suggestion>& waiting = coordinator_.suggestion();
    if (!waiting) {
        shown_.reset();
        close();
        return;
    }
    if (waiting == shown_) {
        return; // notified already; closing it leaves the suggestion to the tray
    }
    notify(*waiting);
}

void SuggestionNotifier::notify(const Repeats::Suggestion& suggestion) {
    busy_ = true;
    shown_ = suggestion;
    auto failed = [this](const QDBusPendingCall& call) {
        if (!failed_) {
            log_("no notification shown (" + call.error().message().toStdString() +
                 "): suggestions show in the tray only");
            failed_ = true;
        }
        id_ = 0;
        busy_ = false;
    };
    if (!capabilities_) {
        callAsync(this, methodCall("GetCapabilities"), [this, failed](QDBusPendingCall& call) {
            const QDBusPendingReply<QStringList> reply = call;
            if (reply.isError()) {
                // Not asked again for this suggestion; a server that starts later shows the next.
                failed(call);
                return;
            }
            capabilities_ = reply.value();
            busy_ = false;
            shown_.reset();
            update();
        });
        return;
    }
    QDBusMessage message = methodCall("Notify");
    message << QString("Quillet") << id_ << QString("quillet") << summary(suggestion)
            << body(suggestion, capabilities_->contains("body-markup"))
            << QStringList{"make", "Make a snippet", "dismiss", "Not now"}
            << QVariantMap{{"desktop-entry", QString("example.quillet.Quillet")}} << -1;
    callAsync(this, message, [this, failed](QDBusPendingCall& call) {
        const QDBusPendingReply<uint> reply = call;
        if (reply.isError()) {
            failed(call);
            return;
        }
        id_ = reply.value();
        failed_ = false;
        busy_ = false;
        update(); // the suggestion may have been answered or replaced meanwhile
    });
}

void SuggestionNotifier::close() {
    if (id_ != 0) {
        QDBusConnection::sessionBus().send(methodCall("CloseNotification") << id_);
        id_ = 0;
    }
}

void SuggestionNotifier::actionInvoked(uint id, const QString& action) {
    if (id == 0 || id != id_) {
        return; // another application's, or one already answered
    }
    id_ = 0; // the server takes it down after an action
    if (action == "make") {
        coordinator_.acceptSuggestion();
    } else if (action == "dismiss") {
        coordinator_.dismissSuggestion();
    }
}

void SuggestionNotifier::notificationClosed(uint id, uint) {
    // Expired or closed unanswered: the suggestion still waits in the tray.
    if (id != 0 && id == id_) {
        id_ = 0;
    }
}

} // namespace quillet
