#pragma once

#include "entry/Coordinator.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>
#include <string>

namespace quillet {

/// Offers the retyped phrase waiting in the coordinator as a desktop notification
/// (org.freedesktop.Notifications on the session bus) with two buttons, "Make a snippet" and
/// "Not now", whose answers go back to the coordinator. It follows the coordinator like the tray:
/// a new suggestion is notified once, and the notification is taken down once none waits. Where
/// no notification server answers, nothing is shown and the tray stays the way in.
class SuggestionNotifier final : public QObject {
    Q_OBJECT

public:
    /// Listens on the session bus for answers; log hears what went wrong there.
    SuggestionNotifier(Coordinator& coordinator, std::function<void(const std::string&)> log);
    /// Takes a notification still shown down: its buttons would no longer reach anyone.
    ~SuggestionNotifier() override;
    SuggestionNotifier(const SuggestionNotifier&) = delete;
    SuggestionNotifier& operator=(const SuggestionNotifier&) = delete;

    /// Notifies the waiting suggestion if it was not yet, or takes the notification down when
    /// none waits.
    void update();

private slots:
    /// The user pressed a button of notification id.
    void actionInvoked(uint id, const QString& action);
    /// Notification id went away, answered or not.
    void notificationClosed(uint id, uint reason);

private:
    /// The notification's title: "You've typed this 3 times".
    static QString summary(const Repeats::Suggestion& suggestion);
    /// The notification's text: the phrase, shortened, and its abbreviation; escaped for a server
    /// that reads markup.
    static QString body(const Repeats::Suggestion& suggestion, bool markup);
    /// Sends the suggestion, replacing the notification still up; asks the server's
    /// capabilities first, once.
    void notify(const Repeats::Suggestion& suggestion);
    /// Takes the notification down, if one is up.
    void close();

    Coordinator& coordinator_;
    std::function<void(const std::string&)> log_;
    std::optional<Repeats::Suggestion> shown_; // the last suggestion notified
    std::optional<QStringList> capabilities_;  // the server's, asked once
    uint id_ = 0;                              // the notification up, 0 for none
    bool busy_ = false;                        // a call is under way; update() again after it
    bool failed_ = false;                      // the failure was logged
};

} // namespace quillet
