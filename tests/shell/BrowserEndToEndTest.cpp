// The browser bridge as a user sets it up: `quillet bridge install` writes the host manifest,
// a real Chromium loads the extension from app/ChromeExtension and starts the host, and the host
// tells the running Quillet the site over the session bus. Runs under a window manager, on a
// private session bus.
#include <gtest/gtest.h>

// After gtest, whose headers use a name Xlib defines as a macro (None).
#include "support/DesktopHarness.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace quillet {
namespace {

using namespace std::chrono_literals;
using testing::QuilletProcess;

// Serves one page to whoever asks, on a port of its own on the loopback interface.
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
            while (request.find("\r\n\r\n") == std::string::npos &&
                   (got = read(client, buffer, sizeof buffer)) > 0) {
                request.append(buffer, static_cast<std::size_t>(got));
            }
            const std::string body = "<!doctype html><title>Page</title><textarea autofocus>";
            const std::string reply = "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n"
                                      "Content-Length: " +
                                      std::to_string(body.size()) +
                                      "\r\nConnection: close\r\n\r\n" + body;
            [[maybe_unused]] const ssize_t sent = write(client, reply.data(), reply.size());
            close(client);
        }
    }

    int listener_ = -1;
    int port_ = 0;
    std::thread thread_;
};

bool waitForLog(QuilletProcess& quillet, const std::string& text, int tries) {
    for (int i = 0; i < tries; ++i) {
        if (quillet.waitForLog(text, 0)) {
            return true;
        }
    }
    return false;
}

TEST(BrowserEndToEnd, TheExtensionInChromiumReportsTheSiteThroughTheHost) {
    setenv("QUILLET_TRACE", "1", 1);
    QuilletProcess quillet({});
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
    browser.stop(SIGTERM, 10s);
}

} // namespace
} // namespace quillet
