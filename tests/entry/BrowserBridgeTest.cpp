// The native-messaging host fed real frames through a pipe, the calling browser's id, the
// manifests written into a temporary home, and the real executable started as a browser starts
// it, heard on a private session bus.
#include "entry/BrowserBridge.h"

#include "platform/fake/FakeSiteSink.h"
#include "support/ChildProcess.h"
#include "support/TempFolder.h"

#include <atomic>
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

namespace quillet {
namespace {

namespace fs = std::filesystem;

std::string frame(const std::string& body, std::size_t length) {
    std::string f;
    for (int i = 0; i < 4; ++i) {
        f += static_cast<char>((length >> (8 * i)) & 0xFFU);
    }
    return f + body;
}

std::string frame(const std::string& body) {
    return frame(body, body.size());
}

// A message of exactly size bytes naming host.
std::string padded(const std::string& host, std::size_t size) {
    const std::string start = R"({"host":")" + host + R"(","pad":")";
    return start + std::string(size - start.size() - 2, 'x') + "\"}";
}

// What the host passes on when the browser writes chunks one after the other, each once the
// host has read everything before it, so that a chunk ending mid-frame is a short read.
std::vector<std::string> served(const std::vector<std::string>& chunks) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    FakeSiteSink sink;
    std::atomic<bool> done = false;
    std::thread host([&] {
        BrowserBridge::serve(ends[0], "Chromium", sink);
        done = true;
    });
    for (const std::string& chunk : chunks) {
        EXPECT_EQ(::write(ends[1], chunk.data(), chunk.size()), static_cast<ssize_t>(chunk.size()));
        int unread = 1;
        while (!done && ::ioctl(ends[0], FIONREAD, &unread) == 0 && unread > 0) {
            std::this_thread::yield();
        }
    }
    ::close(ends[1]);
    host.join();
    ::close(ends[0]);
    return sink.sent;
}

TEST(BrowserBridge, PassesOnEachFramedSiteUntilTheInputEndsOrOversteps) {
    const std::string mail = frame(R"({"host":"Mail.Example.com"})");
    const std::string org = frame(R"({"host":"https://example.org/page"})");
    const std::string full = padded("example.com", 4096);
    struct Case {
        const char* what;
        std::vector<std::string> chunks;
        std::vector<std::string> sent;
    };
    const std::vector<Case> cases = {
        {"one message", {mail}, {"Chromium mail.example.com"}},
        {"4096 bytes", {frame(full) + org}, {"Chromium example.com", "Chromium example.org"}},
        {"4097 bytes end it", {frame(full + " ") + org}, {}},
        {"a short header", {mail + std::string("\x05\x00", 2)}, {"Chromium mail.example.com"}},
        {"a short body", {frame("{\"host\":", 20)}, {}},
        {"no site",
         {frame("{not json"), frame("[1]"), frame(R"({"host":5})"), frame(R"({"host":null})"),
          frame("{}"), frame(R"({"host":"localhost"})")},
         std::vector<std::string>(6, "Chromium ")},
        {"split across reads",
         {mail.substr(0, 2), mail.substr(2, 9), mail.substr(11)},
         {"Chromium mail.example.com"}},
        {"two in one write", {mail + org}, {"Chromium mail.example.com", "Chromium example.org"}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(served(c.chunks), c.sent) << c.what;
    }
}

TEST(BrowserBridge, KnowsBrowsersByTheirExecutableAndTheHostByItsArguments) {
    const std::vector<std::pair<const char*, const char*>> browsers = {
        {"/opt/google/chrome/chrome", "Google-chrome"},
        {"/opt/google/chrome-beta/chrome", "Google-chrome-beta"},
        {"/usr/lib/chromium/chromium", "Chromium"},
        {"/snap/chromium/2941/usr/lib/chromium-browser/chrome", "Chromium"},
        {"/opt/brave.com/brave/brave", "Brave-browser"},
        {"/opt/microsoft/msedge/msedge", "Microsoft-edge"},
        {"/opt/vivaldi/vivaldi-bin", "Vivaldi-stable"},
        {"/usr/lib/firefox-esr/firefox-esr", "firefox-esr"},
        {"/usr/lib/firefox/firefox", "firefox"},
        {"/usr/bin/bash", ""},
    };
    for (const auto& [path, id] : browsers) {
        EXPECT_EQ(BrowserBridge::browserId(path), id) << path;
    }
    EXPECT_EQ(BrowserBridge::callingBrowser(), "") << "this test is no browser";

    const std::vector<std::pair<std::vector<std::string>, bool>> calls = {
        {{"chrome-extension://hbnpkcdalmgiefojhbnpkcdalmgiefoj/"}, true},
        {{"/home/a/.mozilla/native-messaging-hosts/com.quillet.site.json", "a@b"}, true},
        {{"/home/a/.mozilla/native-messaging-hosts/com.quillet.site.json"}, false},
        {{"list"}, false},
        {{}, false},
    };
    for (const auto& [args, host] : calls) {
        EXPECT_EQ(BrowserBridge::isHostCall(args), host) << (args.empty() ? "" : args[0]);
    }
}

class BridgeInstall : public ::testing::Test {
protected:
    testing::TempFolder temp;
    Folders folders = Folders::forHome(temp / "home", "", "");
    fs::path config = temp / "home/.config";
    const std::string then =
        ". Now add the Quillet extension: open the extensions page, turn on Developer mode, choose "
        "Load unpacked and pick the app/ChromeExtension folder in the Quillet source. Then a "
        "snippet set to \u201COnly in\u2026\u201D a website expands only there.";
};

TEST_F(BridgeInstall, WritesTheManifestForEachBrowserFoundAndSaysWhich) {
    BrowserBridge::Installed none = BrowserBridge::install(folders, "/usr/bin/quillet");
    EXPECT_TRUE(none.browsers.empty());
    EXPECT_EQ(none.message, "No Chrome, Brave, Edge, Vivaldi or Chromium found.");
    EXPECT_FALSE(BrowserBridge::isInstalled(folders));

    for (const char* folder : {".config/chromium", ".config/vivaldi", ".config/microsoft-edge",
                               ".mozilla", ".config/google-chrome/NativeMessagingHosts"}) {
        fs::create_directories(temp / "home" / folder);
    }
    // Chrome's folder for manifests is taken by a file: Chrome is left out, the others not.
    fs::remove(config / "google-chrome/NativeMessagingHosts");
    testing::writeText(config / "google-chrome/NativeMessagingHosts", "");
    BrowserBridge::Installed some = BrowserBridge::install(folders, "/usr/bin/quillet");
    EXPECT_EQ(some.browsers,
              (std::vector<std::string>{"Chromium", "Microsoft Edge", "Vivaldi", "Firefox"}));
    EXPECT_EQ(some.message, "Set up for Chromium, Microsoft Edge, Vivaldi, Firefox" + then);
    EXPECT_TRUE(BrowserBridge::isInstalled(folders));
    EXPECT_FALSE(fs::exists(config / "BraveSoftware"));
    auto manifest = [](const std::string& key, const std::string& allowed) {
        return "{\n  \"" + key + "\": [\n    \"" + allowed +
               "\"\n  ],\n  \"description\": \"Quillet\",\n  \"name\": \"com.quillet.site\",\n  "
               "\"path\": \"/usr/bin/quillet\",\n  \"type\": \"stdio\"\n}\n";
    };
    EXPECT_EQ(testing::contentsOf(config / "vivaldi/NativeMessagingHosts/com.quillet.site.json"),
              manifest("allowed_origins",
                       "chrome-extension://hbnpkcdalmgiefojhbnpkcdalmgiefoj/\",\n"
                       "    \"chrome-extension://pflhjiadgdngaiohagpgcnonoklmcmpf/"));
    EXPECT_EQ(
        testing::contentsOf(temp / "home/.mozilla/native-messaging-hosts/com.quillet.site.json"),
        manifest("allowed_extensions", "quillet-site@quillet.example"));

    // Chromium's browsers keep their folders where XDG_CONFIG_HOME says.
    Folders xdg = Folders::forHome(temp / "home", "", (temp / "xdg").string());
    EXPECT_FALSE(BrowserBridge::isInstalled(Folders::forHome(temp / "other", "", "")));
    fs::create_directories(temp / "xdg/BraveSoftware/Brave-Browser");
    EXPECT_EQ(BrowserBridge::install(xdg, "/q").browsers,
              (std::vector<std::string>{"Brave", "Firefox"}));
    EXPECT_TRUE(fs::exists(temp / "xdg/BraveSoftware/Brave-Browser/NativeMessagingHosts"));
}

// The executable started as Chrome and as Firefox start it, on the session bus of this test
// (dbus-run-session): each message is heard as a signal, nothing is written back, and the host
// ends when its input does.
TEST(BrowserBridgeHost, SignalsEachSiteOnTheSessionBusAndAnswersNothing) {
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    ASSERT_NE(bus, nullptr) << "run under dbus-run-session";
    std::vector<std::string> heard;
    g_dbus_connection_signal_subscribe(
        bus, nullptr, "com.quillet.Site", "Changed", "/com/quillet/Site", nullptr,
        G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
           GVariant* parameters, gpointer data) {
            const gchar* text = nullptr;
            g_variant_get(parameters, "(&s)", &text);
            static_cast<std::vector<std::string>*>(data)->emplace_back(text);
        },
        &heard, nullptr);
    // Once the bus answers, it has the subscription.
    GVariant* id = g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                               "org.freedesktop.DBus", "GetId", nullptr, nullptr,
                                               G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    ASSERT_NE(id, nullptr);
    g_variant_unref(id);

    testing::TempFolder temp;
    const std::map<std::string, std::string> env = {{"HOME", temp.path().string()},
                                                    {"DISPLAY", ""}};
    const std::vector<std::pair<std::vector<std::string>, std::string>> runs = {
        {{QUILLET_EXECUTABLE, "chrome-extension://hbnpkcdalmgiefojhbnpkcdalmgiefoj/"},
         frame(R"({"host":"Mail.Example.com"})") + frame(R"({"host":null})")},
        {{QUILLET_EXECUTABLE, (temp / "native-messaging-hosts/com.quillet.site.json").string(),
          "quillet-site@quillet.example"},
         frame(R"({"host":"example.org"})")},
    };
    for (const auto& [args, input] : runs) {
        testing::ProcessResult r = testing::runProcess(args, input, env);
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out, "");
    }
    // The test started the host, and it is no browser: no id before the blank.
    const std::vector<std::string> expected = {" mail.example.com", " ", " example.org"};
    // A lost signal fails here rather than at the test's time limit.
    bool late = false;
    const guint deadline = g_timeout_add_seconds(
        60,
        [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_REMOVE;
        },
        &late);
    while (heard.size() < expected.size() && !late) {
        g_main_context_iteration(nullptr, TRUE);
    }
    if (!late) {
        g_source_remove(deadline);
    }
    EXPECT_EQ(heard, expected);

    // Without a session bus the host still reads to the end, quietly.
    testing::ProcessResult alone = testing::runProcess(
        runs[0].first, runs[0].second,
        {{"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + (temp / "none").string()}, {"DISPLAY", ""}});
    EXPECT_EQ(alone.status, 0);
    EXPECT_EQ(alone.out, "");
    g_object_unref(bus);
}

} // namespace
} // namespace quillet
