// The notifier on a private session bus (ctest runs it under dbus-run-session, with a bus that
// starts no service on demand), against a notification server the test registers itself.
#include "shell/SuggestionNotifier.h"

#include "shell/QtScheduler.h"
#include "support/CoordinatorHarness.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QTest>
#include <gtest/gtest.h>

namespace quillet {
namespace {

const QString service = "org.freedesktop.Notifications";
const QString path = "/org/freedesktop/Notifications";

std::string text(const QVariant& value) {
    return value.toString().toStdString();
}

// The server's side of the calls the notifier makes, on a connection of its own. Every call is
// recorded and answered on the main thread; Notify gives ids from 1, or keeps the one replaced.
class NotificationServer final : public QDBusVirtualObject {
public:
    explicit NotificationServer(QStringList capabilities)
        : bus_(QDBusConnection::connectToBus(QDBusConnection::SessionBus, "server")),
          capabilities_(std::move(capabilities)) {
        EXPECT_TRUE(bus_.registerVirtualObject(path, this));
        EXPECT_TRUE(bus_.registerService(service));
    }
    ~NotificationServer() override {
        bus_.unregisterService(service);
        bus_.unregisterObject(path);
        QDBusConnection::disconnectFromBus("server");
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        QMetaObject::invokeMethod(this, [this, message, connection] {
            calls.push_back(message);
            QDBusMessage reply = message.createReply();
            if (message.member() == "GetCapabilities") {
                reply << capabilities_;
            } else if (message.member() == "Notify") {
                const uint replaces = message.arguments().at(1).toUInt();
                reply << (replaces != 0 ? replaces : ++last);
            }
            connection.send(reply);
        });
        return true;
    }
    QString introspect(const QString&) const override { return {}; }

    /// The calls of that method so far, oldest first.
    std::vector<QList<QVariant>> received(const QString& method) const {
        std::vector<QList<QVariant>> out;
        for (const QDBusMessage& call : calls) {
            if (call.member() == method) {
                out.push_back(call.arguments());
            }
        }
        return out;
    }
    /// Waits for the calls of that method to number count.
    bool waitFor(const QString& method, std::size_t count) const {
        return QTest::qWaitFor([&] { return received(method).size() == count; }, 10000);
    }
    /// The user clicks a button of notification id.
    void invoke(uint id, const QString& action) {
        bus_.send(QDBusMessage::createSignal(path, service, "ActionInvoked") << id << action);
    }

    std::vector<QDBusMessage> calls;
    uint last = 0; // the last id given

private:
    QDBusConnection bus_;
    QStringList capabilities_;
};

// The coordinator and the notifier as the shell joins them.
struct Harness : testing::CoordinatorHarness<QtScheduler> {
    Harness() {
        notifier = std::make_unique<SuggestionNotifier>(
            *coordinator, [this](const std::string& line) { log.push_back(line); });
        onStatus = [this] { notifier->update(); };
        runWithSuggestions();
    }
    ~Harness() { onStatus = {}; }

    std::unique_ptr<SuggestionNotifier> notifier;
};

TEST(SuggestionNotifier, OffersThePhraseAndMakesTheSnippetWhenAsked) {
    NotificationServer server({"actions", "body"});
    Harness h;
    h.retype("fish & chips for <b>tea</b>");
    ASSERT_TRUE(server.waitFor("Notify", 1));
    const auto notify = server.received("Notify").front();
    ASSERT_EQ(notify.size(), 8);
    EXPECT_EQ(text(notify[0]), "Quillet");
    EXPECT_EQ(notify[1].toUInt(), 0u);
    EXPECT_EQ(text(notify[2]), "quillet");
    EXPECT_EQ(text(notify[3]), "You've typed this 3 times");
    EXPECT_EQ(text(notify[4]), "\u201C"
                               "fish & chips for <b>tea</b>\u201D as ;fcfb")
        << "no markup to escape for a server that reads none";
    EXPECT_EQ(notify[5].toStringList(),
              (QStringList{"make", "Make a snippet", "dismiss", "Not now"}));
    EXPECT_EQ(notify[7].toInt(), -1);

    server.invoke(1, "make");
    ASSERT_TRUE(QTest::qWaitFor([&] { return !h.coordinator->suggestion(); }, 10000));
    EXPECT_EQ(h.coordinator->store().snippets().back().abbreviation, ";fcfb");
    EXPECT_EQ(h.coordinator->store().snippets().back().content, "fish & chips for <b>tea</b>");
}

TEST(SuggestionNotifier, NotNowTurnsItDownAndAnswersInTheTrayTakeItDown) {
    NotificationServer server({"actions", "body", "body-markup"});
    Harness h;
    const std::size_t count = h.coordinator->store().snippets().size();
    h.retype("fish & chips for <b>tea</b>");
    ASSERT_TRUE(server.waitFor("Notify", 1));
    EXPECT_EQ(text(server.received("Notify")[0][4]),
              "\u201C"
              "fish &amp; chips for &lt;b&gt;tea&lt;/b&gt;\u201D as ;fcfb");
    server.invoke(1, "dismiss");
    ASSERT_TRUE(QTest::qWaitFor([&] { return !h.coordinator->suggestion(); }, 10000));
    EXPECT_EQ(h.coordinator->store().snippets().size(), count);

    // A newer suggestion replaces the one shown; answered in the tray, it is taken down.
    h.retype("see you very soon then");
    ASSERT_TRUE(server.waitFor("Notify", 2));
    h.retype("thanks for your quick reply");
    ASSERT_TRUE(server.waitFor("Notify", 3));
    EXPECT_EQ(server.received("Notify")[1][1].toUInt(), 0u) << "the first was answered";
    EXPECT_EQ(server.received("Notify")[2][1].toUInt(), 2u);
    EXPECT_EQ(text(server.received("Notify")[2][4]), "\u201C"
                                                     "thanks for your quick reply\u201D as ;tfyqr");
    h.coordinator->dismissSuggestion();
    ASSERT_TRUE(server.waitFor("CloseNotification", 1));
    EXPECT_EQ(server.received("CloseNotification")[0][0].toUInt(), 2u);
}

TEST(SuggestionNotifier, WithoutAServerTheSuggestionWaitsInTheTray) {
    Harness h;
    h.retype("see you very soon then");
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return h.log.back().starts_with("no notification shown"); }, 10000));
    EXPECT_EQ(h.coordinator->trayLook().badge, TrayLook::Badge::suggestion);
    EXPECT_EQ(h.coordinator->acceptSuggestion(), ";syvst");
}

} // namespace
} // namespace quillet
