#include "shell/AutomationService.h"

#include <QClipboard>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QGuiApplication>
#include <QVariant>
#include <optional>

namespace quillet {
namespace {

const QString failedError = QStringLiteral("com.quillet.Snippets.Failed");

// A snippet as the bus carries it: (sss).
struct BusEntry {
    QString id, abbreviation, subtitle;
};

QDBusArgument& operator<<(QDBusArgument& argument, const BusEntry& entry) {
    argument.beginStructure();
    argument << entry.id << entry.abbreviation << entry.subtitle;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, BusEntry& entry) {
    argument.beginStructure();
    argument >> entry.id >> entry.abbreviation >> entry.subtitle;
    argument.endStructure();
    return argument;
}

QVariant entries(const std::vector<Automation::Entry>& list) {
    QList<BusEntry> out;
    for (const Automation::Entry& e : list) {
        out.push_back({QString::fromStdString(e.id), QString::fromStdString(e.abbreviation),
                       QString::fromStdString(e.subtitle)});
    }
    return QVariant::fromValue(out);
}

// A failure travels as the error reply; the text as a plain string.
struct Failure {
    QString message;
};

QVariant outcome(const Automation::Result& result) {
    return result.failed ? QVariant::fromValue(Failure{QString::fromStdString(result.text)})
                         : QVariant(QString::fromStdString(result.text));
}

} // namespace
} // namespace quillet

Q_DECLARE_METATYPE(quillet::BusEntry)
Q_DECLARE_METATYPE(quillet::Failure)

namespace quillet {

AutomationService::AutomationService(Automation automation,
                                     std::function<void(const std::string&)> log)
    : automation_(std::move(automation)) {
    qDBusRegisterMetaType<BusEntry>();
    qDBusRegisterMetaType<QList<BusEntry>>();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        log("no session bus: automation is off");
        return;
    }
    if (!bus.registerObject(QStringLiteral("/com/quillet/Snippets"), this,
                            QDBusConnection::ExportAllSlots)) {
        log("automation's object could not be registered on the session bus");
        return;
    }
    if (!bus.registerService(QStringLiteral("com.quillet.app"))) {
        log("the session bus name com.quillet.app is taken: automation is served elsewhere");
        return;
    }
    log("automation on the session bus as com.quillet.app");
}

void AutomationService::List() {
    answer([automation = automation_] { return entries(automation.list()); });
}

void AutomationService::Search(const QString& text) {
    answer([automation = automation_, text = text.toStdString()] {
        return entries(automation.search(text));
    });
}

void AutomationService::Expand(const QString& id) {
    // The clipboard belongs to the main thread; an empty one is no clipboard at all.
    const QString text = QGuiApplication::clipboard()->text();
    std::optional<std::string> clipboard;
    if (!text.isEmpty()) {
        clipboard = text.toStdString();
    }
    answer([automation = automation_, id = id.toStdString(), clipboard] {
        return outcome(automation.expand(id, clipboard));
    });
}

void AutomationService::Add(const QString& abbreviation, const QString& text) {
    answer([automation = automation_, abbreviation = abbreviation.toStdString(),
            text = text.toStdString()] { return outcome(automation.add(abbreviation, text)); });
}

void AutomationService::answer(std::function<QVariant()> work) {
    setDelayedReply(true);
    QDBusMessage call = message();
    pool_.start([this, call, work = std::move(work)] {
        QVariant value = work();
        // Replies leave from the main thread; the pool ends with the service, before it.
        QMetaObject::invokeMethod(
            this,
            [call, value] {
                const QDBusMessage reply =
                    value.metaType() == QMetaType::fromType<Failure>()
                        ? call.createErrorReply(failedError, value.value<Failure>().message)
                        : call.createReply(value);
                QDBusConnection::sessionBus().send(reply);
            },
            Qt::QueuedConnection);
    });
}

} // namespace quillet
