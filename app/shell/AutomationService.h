#pragma once

#include "entry/Automation.h"

#include <QDBusContext>
#include <QObject>
#include <QString>
#include <QThreadPool>
#include <functional>
#include <string>

namespace quillet {

/// Automation on the session bus: the name com.quillet.app, the object /com/quillet/Snippets
/// with the interface com.quillet.Snippets (List, Search, Expand, Add), whose failures are the
/// error com.quillet.Snippets.Failed with the message. Every call reads the clipboard here, on
/// the main thread, and does the rest on a pool thread, so a script or another writer's lock
/// never stalls the application.
class AutomationService final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.quillet.Snippets")
    Q_CLASSINFO("D-Bus Introspection",
                "<interface name=\"com.quillet.Snippets\">"
                "<method name=\"List\">"
                "<arg name=\"snippets\" type=\"a(sss)\" direction=\"out\"/></method>"
                "<method name=\"Search\"><arg name=\"text\" type=\"s\" direction=\"in\"/>"
                "<arg name=\"snippets\" type=\"a(sss)\" direction=\"out\"/></method>"
                "<method name=\"Expand\"><arg name=\"id\" type=\"s\" direction=\"in\"/>"
                "<arg name=\"text\" type=\"s\" direction=\"out\"/></method>"
                "<method name=\"Add\"><arg name=\"abbreviation\" type=\"s\" direction=\"in\"/>"
                "<arg name=\"text\" type=\"s\" direction=\"in\"/>"
                "<arg name=\"message\" type=\"s\" direction=\"out\"/></method>"
                "</interface>")

public:
    /// Serves automation on the session bus; log hears when the bus or the name is not to be had,
    /// and the application goes on without it.
    AutomationService(Automation automation, std::function<void(const std::string&)> log);

public slots:
    /// The listed snippets as (id, abbreviation, subtitle).
    void List();
    /// The listed snippets whose abbreviation or subtitle holds text.
    void Search(const QString& text);
    /// The text the snippet with id expands to.
    void Expand(const QString& id);
    /// Adds a snippet; the answer says so.
    void Add(const QString& abbreviation, const QString& text);

private:
    /// Answers the call under way later with what work gives, worked out on a pool thread.
    void answer(std::function<QVariant()> work);

    Automation automation_;
    QThreadPool pool_; // last: waits for the calls under way before the rest goes
};

} // namespace quillet
