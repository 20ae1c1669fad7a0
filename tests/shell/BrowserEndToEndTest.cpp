// The browser bridge as a user sets it up: `quillet bridge install` writes the host manifest,
// a real Chromium loads the extension from app/ChromeExtension and starts the host, and the host
// tells the running Quillet the site over the session bus; the user then types into the page, from
// both key sources, and the site's snippets expand there. Runs under a window manager, on a
// private session bus.
#include <gtest/gtest.h>

// After gtest, whose headers use a name Xlib defines as a macro (None).
#include "support/DesktopHarness.h"

#include <arpa/inet.h>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace quillet {
namespace {

using namespace std::chrono_literals;
using testing::QuilletProcess;
using testing::snippet;
using testing::Typist;

// Serves a page with a text area to whoever asks, on a port of its own on the loopback
// interface, and keeps what the page reports the text area holds after each change.
class PageServer {
public:
    PageServer() {
        listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        if (bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
            listen(listener_, 16) != 0 ||
            getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            return;
        }
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { serve(); });
    }
    ~PageServer() {
        shutdown(listener_, SHUT_RDWR);
        close(listener_);
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    int port() const { return port_; }
    /// Every text the page reported, in brackets, for a failure's message.
    std::string history() {
        std::lock_guard lock(mutex_);
        return history_;
    }

    /// Waits until the text area holds text, for at most timeout; what it holds then.
    std::string waitForText(const std::string& text, std::chrono::milliseconds timeout = 5s) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, timeout, [&] { return text_ == text; });
        return text_;
    }

private:
    void serve() {
        while (true) {
            const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (client < 0) {
                return;
            }
            std::string request;
            char buffer[4096];
            ssize_t got = 0;
            std::size_t end = std::string::npos;
            while ((end = request.find("\r\n\r\n")) == std::string::npos &&
                   (got = read(client, buffer, sizeof buffer)) > 0) {
                request.append(buffer, static_cast<std::size_t>(got));
            }
            if (request.starts_with("POST")) {
                // The body: a change's number, a line break, the text. Requests may arrive out
                // of order; the latest change wins.
                const std::size_t length = lengthOf(request);
                while (end != std::string::npos && request.size() < end + 4 + length &&
                       (got = read(client, buffer, sizeof buffer)) > 0) {
                    request.append(buffer, static_cast<std::size_t>(got));
                }
                const std::string body = request.substr(end + 4);
                const std::size_t newline = body.find('\n');
                const long number = std::atol(body.substr(0, newline).c_str());
                std::lock_guard lock(mutex_);
                if (newline != std::string::npos && number > latest_) {
                    latest_ = number;
                    text_ = body.substr(newline + 1);
                    history_ += "[" + text_ + "] ";
                    changed_.notify_all();
                }
            }
            const std::string body =
                request.starts_with("POST")
                    ? std::string()
                    : "<!doctype html><title>Page</title><textarea autofocus></textarea><script>"
                      "let n = 0; const area = document.querySelector('textarea');"
                      "area.oninput = () => fetch('/text', {method: 'POST', body: ++n + "
                      "'\\n' + area.value});</script>";
            const std::string reply = "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n"
                                      "Content-Length: " +
                                      std::to_string(body.size()) +
                                      "\r\nConnection: close\r\n\r\n" + body;
            [[maybe_unused]] const ssize_t sent = write(client, reply.data(), reply.size());
            close(client);
        }
    }

    static std::size_t lengthOf(const std::string& request) {
        const std::string field = "Content-Length: ";
        const std::size_t at = request.find(field);
        return at == std::string::npos
                   ? 0
                   : std::strtoul(request.c_str() + at + field.size(), nullptr, 10);
    }

    int listener_ = -1;
    int port_ = 0;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable changed_;
    long latest_ = 0;
    std::string text_;
    std::string history_;
};

bool waitForLog(QuilletProcess& quillet, const std::string& text, int tries) {
    for (int i = 0; i < tries; ++i) {
        if (quillet.waitForLog(text, 0)) {
            return true;
        }
    }
    return false;
}

TEST(BrowserEndToEnd, ChromiumReportsTheSiteAndItsSnippetsExpandThereFromEveryKeySource) {
    setenv("QUILLET_TRACE", "1", 1);
    QuilletProcess quillet({snippet(";site", "On the site", testing::scoped({}, {"example.test"})),
                            snippet(";away", "Elsewhere", testing::scoped({}, {"other.test"})),
                            snippet(";pl", "Plain")});
    ASSERT_TRUE(quillet.listening()) << quillet.log();
    const auto profile = quillet.home() / "config" / "chromium";
    std::filesystem::create_directories(profile);
    const testing::ProcessResult installed = quillet.launchAgain({"bridge", "install"});
    ASSERT_EQ(installed.status, 0) << installed.err;
    EXPECT_NE(installed.out.find("Set up for Chromium"), std::string::npos) << installed.out;

    PageServer page;
    ASSERT_NE(page.port(), 0);
    // Chromium's output goes to a file: left in a pipe nobody reads, it would stall the browser.
    const std::string chromium =
        "exec /usr/bin/chromium --no-sandbox --no-first-run --no-default-browser-check "
        "--disable-gpu --password-store=basic --user-data-dir='" +
        profile.string() +
        "' --disable-features=DisableLoadExtensionCommandLineSwitch --load-extension='" +
        std::string(QUILLET_SOURCE_DIR) +
        "/app/ChromeExtension' --host-resolver-rules='MAP example.test 127.0.0.1' "
        "http://example.test:" +
        std::to_string(page.port()) + "/ >'" + (quillet.home() / "chromium.log").string() +
        "' 2>&1";
    testing::LiveProcess browser({"/bin/sh", "-c", chromium}, quillet.environment());

    // The extension reports the tab's host once the page is in front; the engine takes it in
    // with the window in front being that browser's.
    ASSERT_TRUE(waitForLog(quillet, "trace: site Chromium example.test", 12))
        << quillet.log() << testing::contentsOf(quillet.home() / "chromium.log");
    EXPECT_TRUE(waitForLog(quillet, "trace: front Chromium", 6)) << quillet.log();
    // Nothing but the host's name reaches Quillet: not the port or the rest of the address.
    EXPECT_EQ(quillet.log().find("example.test:"), std::string::npos);

    // A freshly started Chromium drops keys that come in the moment its page has the focus,
    // with or without Quillet: the page is ready once a key typed there shows.
    {
        Typist user(Typist::Source::xtest);
        for (int tries = 0; tries < 20 && page.waitForText("x", 500ms) != "x"; ++tries) {
            user.type("x");
        }
        user.chord({XK_Control_L, XK_a});
        user.tap(XK_BackSpace);
        ASSERT_EQ(page.waitForText(""), "") << page.history();
    }

    // The user's typing reaches the page while Quillet runs, and the site's snippet expands
    // there; another site's does not.
    std::string shown;
    for (const auto source : {Typist::Source::xtest, Typist::Source::keyboard}) {
        SCOPED_TRACE(source == Typist::Source::xtest ? "XTEST" : "keyboard");
        Typist user(source);
        user.type("a;pl");
        shown += "aPlain";
        ASSERT_EQ(page.waitForText(shown), shown) << page.history() << quillet.log();
        user.type("a;site");
        shown += "aOn the site";
        ASSERT_EQ(page.waitForText(shown), shown) << quillet.log();
        user.type(" ;away");
        shown += " ;away";
        ASSERT_EQ(page.waitForText(shown), shown) << quillet.log();
    }
    browser.stop(SIGTERM, 10s);
}

} // namespace
} // namespace quillet
