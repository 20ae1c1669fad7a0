// End-to-end figures on a real X server (run under with-xvfb.sh with openbox): how long an
// expansion takes from the editor showing the abbreviation's last character to the final text,
// and where that time goes; how soon the user's clipboard is theirs again, how often one fails,
// and what the running engine costs while nothing is typed.
#include "support/DesktopHarness.h"

#include <X11/Xatom.h>
#include <X11/extensions/Xfixes.h>
#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <poll.h>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace quillet {
namespace {

using namespace std::chrono_literals;
using testing::QuilletProcess;
using testing::TextWindow;
using testing::Typist;

using testing::snippet;

double percentile(std::vector<double> values, double p) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const auto index = static_cast<std::size_t>(p * static_cast<double>(values.size() - 1) + 0.5);
    return values[std::min(index, values.size() - 1)];
}

// Resident memory in MiB and CPU seconds used so far by a process.
std::pair<double, double> usage(int pid) {
    double rss = 0;
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) {
            rss = std::stod(line.substr(6)) / 1024.0;
        }
    }
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string all((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    std::istringstream fields(all.substr(all.rfind(')') + 2));
    std::string field;
    double ticks = 0;
    for (int i = 3; fields >> field; ++i) {
        if (i == 14 || i == 15) {
            ticks += std::stod(field);
        }
    }
    return {rss, ticks / static_cast<double>(sysconf(_SC_CLK_TCK))};
}

// A library the size of a heavy user's many times over: short phrases under numbered
// abbreviations that share no prefix with ";hi".
std::vector<Snippet> large(std::size_t size) {
    static const char* const words[] = {"thanks", "for",  "your", "message", "see",
                                        "you",    "soon", "best", "regards", "the"};
    std::vector<Snippet> library{snippet(";hi", "Hello there")};
    library.reserve(size);
    for (std::size_t i = 1; i < size; ++i) {
        std::string content;
        for (std::size_t w = 0; w < 4 + i % 8; ++w) {
            content.append(w == 0 ? "" : " ").append(words[(i + w * 7) % 10]);
        }
        library.push_back(snippet(";x" + std::to_string(i), content + "."));
    }
    return library;
}

using Clock = std::chrono::steady_clock;

double ms(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double, std::milli>(to - from).count();
}

// The user's clipboard: text the bench copies, served from a thread of its own so that Quillet's
// snapshot is answered at once, and every change of the CLIPBOARD's owner noted as it is seen.
class UserClipboard {
public:
    UserClipboard() : display_(XOpenDisplay(nullptr)) {
        int error = 0;
        if (display_ == nullptr || !XFixesQueryExtension(display_, &fixesEvent_, &error) ||
            pipe(wake_) != 0) {
            return;
        }
        fixesEvent_ += XFixesSelectionNotify;
        clipboard_ = XInternAtom(display_, "CLIPBOARD", False);
        targets_ = XInternAtom(display_, "TARGETS", False);
        utf8_ = XInternAtom(display_, "UTF8_STRING", False);
        plain_ = XInternAtom(display_, "text/plain;charset=utf-8", False);
        property_ = XInternAtom(display_, "BENCH_PASTE", False);
        window_ =
            XCreateSimpleWindow(display_, XDefaultRootWindow(display_), -10, -10, 1, 1, 0, 0, 0);
        XFixesSelectSelectionInput(display_, window_, clipboard_,
                                   XFixesSetSelectionOwnerNotifyMask);
        XSync(display_, False);
        thread_ = std::thread([this] { loop(); });
    }

    ~UserClipboard() {
        if (thread_.joinable()) {
            post([this] { running_ = false; });
            thread_.join();
        }
        if (display_ != nullptr) {
            XCloseDisplay(display_);
        }
        for (int fd : wake_) {
            if (fd >= 0) {
                close(fd);
            }
        }
    }

    bool ready() const { return thread_.joinable(); }

    // Copies text as a user would: the bench owns the clipboard once this returns true.
    bool copy(std::string text) {
        std::unique_lock lock(mutex_);
        value_ = std::move(text);
        owned_ = false;
        lock.unlock();
        post([this] { XSetSelectionOwner(display_, clipboard_, window_, CurrentTime); });
        return waitUntil([this] { return owned_; });
    }

    // When the count-th change of owner to another client since the last copy was seen.
    std::optional<Clock::time_point> ownerChange(std::size_t count) {
        if (!waitUntil([this, count] { return others_.size() >= count; })) {
            return std::nullopt;
        }
        std::lock_guard lock(mutex_);
        return others_[count - 1];
    }

    // The clipboard's text as its owner serves it now.
    std::optional<std::string> paste() {
        std::unique_lock lock(mutex_);
        pasted_.reset();
        pasteAnswered_ = false;
        lock.unlock();
        post([this] {
            XConvertSelection(display_, clipboard_, utf8_, property_, window_, CurrentTime);
        });
        if (!waitUntil([this] { return pasteAnswered_; })) {
            return std::nullopt;
        }
        std::lock_guard relock(mutex_);
        return pasted_;
    }

private:
    template <typename Condition> bool waitUntil(Condition condition) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 2s, condition);
    }

    // Runs task on the clipboard's thread.
    void post(std::function<void()> task) {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
        const char byte = 0;
        (void)!write(wake_[1], &byte, 1);
    }

    void loop() {
        while (running_) {
            while (XPending(display_) > 0) {
                XEvent event;
                XNextEvent(display_, &event);
                handle(event, Clock::now());
            }
            pollfd ready[2] = {{XConnectionNumber(display_), POLLIN, 0}, {wake_[0], POLLIN, 0}};
            poll(ready, 2, -1);
            if ((ready[1].revents & POLLIN) != 0) {
                char bytes[64];
                (void)!read(wake_[0], bytes, sizeof bytes);
                std::unique_lock lock(mutex_);
                std::vector<std::function<void()>> tasks;
                tasks.swap(tasks_);
                lock.unlock();
                for (auto& task : tasks) {
                    task();
                }
                XFlush(display_);
            }
        }
    }

    void handle(const XEvent& event, Clock::time_point seen) {
        if (event.type == SelectionRequest) {
            answer(event.xselectionrequest);
        } else if (event.type == SelectionNotify && event.xselection.requestor == window_) {
            std::optional<std::string> text;
            if (event.xselection.property != None) {
                text = takeProperty();
            }
            std::lock_guard lock(mutex_);
            pasted_ = std::move(text);
            pasteAnswered_ = true;
            changed_.notify_all();
        } else if (event.type == fixesEvent_) {
            const auto& notice = reinterpret_cast<const XFixesSelectionNotifyEvent&>(event);
            std::lock_guard lock(mutex_);
            if (notice.owner == window_) {
                owned_ = true;
                others_.clear();
            } else if (owned_) {
                others_.push_back(seen);
            }
            changed_.notify_all();
        }
    }

    void answer(const XSelectionRequestEvent& request) {
        const Atom property = request.property != None ? request.property : request.target;
        XEvent reply{};
        reply.xselection.type = SelectionNotify;
        reply.xselection.requestor = request.requestor;
        reply.xselection.selection = request.selection;
        reply.xselection.target = request.target;
        reply.xselection.time = request.time;
        reply.xselection.property = property;
        if (request.target == targets_) {
            const long list[] = {static_cast<long>(targets_), static_cast<long>(utf8_),
                                 static_cast<long>(plain_)};
            XChangeProperty(display_, request.requestor, property, XA_ATOM, 32, PropModeReplace,
                            reinterpret_cast<const unsigned char*>(list), 3);
        } else if (request.target == utf8_ || request.target == plain_) {
            std::unique_lock lock(mutex_);
            const std::string value = value_;
            lock.unlock();
            XChangeProperty(display_, request.requestor, property, request.target, 8,
                            PropModeReplace, reinterpret_cast<const unsigned char*>(value.data()),
                            static_cast<int>(value.size()));
        } else {
            reply.xselection.property = None;
        }
        XSendEvent(display_, request.requestor, False, NoEventMask, &reply);
        XFlush(display_);
    }

    std::optional<std::string> takeProperty() {
        Atom type = None;
        int format = 0;
        unsigned long count = 0, after = 0;
        unsigned char* data = nullptr;
        if (XGetWindowProperty(display_, window_, property_, 0, 1 << 16, True, AnyPropertyType,
                               &type, &format, &count, &after, &data) != Success ||
            data == nullptr) {
            return std::nullopt;
        }
        std::string text(reinterpret_cast<const char*>(data), count);
        XFree(data);
        return text;
    }

    Display* display_;
    int fixesEvent_ = 0;
    int wake_[2] = {-1, -1};
    Window window_ = None;
    Atom clipboard_ = None, targets_ = None, utf8_ = None, plain_ = None, property_ = None;
    std::thread thread_;
    bool running_ = true; // the thread's own

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::function<void()>> tasks_;
    std::string value_;
    bool owned_ = false;                    // the server made the bench the owner since the copy
    std::vector<Clock::time_point> others_; // owners set by other clients since
    std::optional<std::string> pasted_;
    bool pasteAnswered_ = false;
};

// When Quillet, started with QUILLET_TRACE=1, next said a paste was fetched at or after since.
std::optional<Clock::time_point> fetchedTrace(QuilletProcess& quillet, std::size_t& read,
                                              Clock::time_point since) {
    static constexpr std::string_view marker = "trace: paste fetched ";
    while (quillet.waitForLog(std::string(marker), read)) {
        const std::size_t at = quillet.log().find(marker, read) + marker.size();
        const std::size_t end = quillet.log().find('\n', at);
        read = end;
        const Clock::time_point when(
            std::chrono::nanoseconds(std::stoll(quillet.log().substr(at, end - at))));
        if (when >= since) {
            return when;
        }
    }
    return std::nullopt;
}

struct Expansions {
    std::vector<double> latencies;
    // From the trigger key shown to the abbreviation erased, the paste fetched, the final text.
    std::vector<double> erased, fetched, shown;
    std::vector<double> clipboardBack; // from the final text to the user's text served again
    int failures = 0;
    int clipboardLost = 0; // the user's text was not served again
};

// Types ";hi" runs times, each into an emptied editor with the engine at rest and a text of the
// user's on the clipboard; figures for the first measured runs. The latency runs from the
// editor showing the abbreviation's last character to its showing the final text; the erase
// in between is part of it.
Expansions expand(TextWindow& editor, Typist& typist, UserClipboard& clipboard,
                  QuilletProcess& quillet, int runs, int measured) {
    Expansions out;
    std::size_t logRead = 0;
    for (int i = 0; i < runs; ++i) {
        const std::string copied = "copied " + std::to_string(i);
        clipboard.copy(copied);
        editor.clear();
        std::this_thread::sleep_for(40ms);
        typist.type(";hi");
        if (editor.waitFor("Hello there", 3s) != "Hello there") {
            ++out.failures;
            continue;
        }
        // Quillet owns the clipboard twice: to paste, then to serve the user's text again.
        const auto back = clipboard.ownerChange(2);
        if (!back || clipboard.paste() != copied) {
            ++out.clipboardLost;
        }
        const auto& changes = editor.changes();
        auto trigger = std::find_if(changes.begin(), changes.end(),
                                    [](const auto& c) { return c.second == ";hi"; });
        const auto fetched = fetchedTrace(quillet, logRead,
                                          trigger != changes.end() ? trigger->first : Clock::now());
        if (i >= measured) {
            continue;
        }
        const Clock::time_point shown = changes.back().first;
        if (trigger != changes.end()) {
            out.latencies.push_back(ms(trigger->first, shown));
        }
        if (back) {
            out.clipboardBack.push_back(ms(shown, *back));
        }
        auto erased =
            std::find_if(trigger, changes.end(), [](const auto& c) { return c.second.empty(); });
        if (erased != changes.end() && fetched) {
            out.erased.push_back(ms(trigger->first, erased->first));
            out.fetched.push_back(ms(trigger->first, *fetched));
            out.shown.push_back(ms(trigger->first, shown));
        }
    }
    return out;
}

void printPercentiles(const std::string& name, const std::vector<double>& values) {
    std::printf("%s.p50: %.2f ms\n", name.c_str(), percentile(values, 0.50));
    std::printf("%s.p95: %.2f ms\n", name.c_str(), percentile(values, 0.95));
}

int run(int latencyRuns, int reliabilityRuns, std::chrono::seconds idle, int largeRuns) {
    Typist typist;
    // Quillet says when the editor fetched each paste, for the breakdown.
    setenv("QUILLET_TRACE", "1", 1);
    auto quillet = std::make_unique<QuilletProcess>(
        std::vector<Snippet>{snippet(";hi", "Hello there"), snippet(";sig", "Best regards, Ann")});
    if (!quillet->listening()) {
        std::cerr << "Quillet did not start:\n" << quillet->log();
        return 1;
    }
    TextWindow editor;
    if (!editor.ready()) {
        std::cerr << "The test window did not start\n";
        return 1;
    }
    UserClipboard clipboard;
    if (!clipboard.ready()) {
        std::cerr << "The bench cannot own the clipboard\n";
        return 1;
    }

    // Idle first, before any expansion warmed anything up.
    const auto [rss0, cpu0] = usage(quillet->pid());
    std::this_thread::sleep_for(idle);
    const auto [rss1, cpu1] = usage(quillet->pid());
    (void)rss0;

    const int runs = std::max(latencyRuns, reliabilityRuns);
    const Expansions small = expand(editor, typist, clipboard, *quillet, runs, latencyRuns);
    printPercentiles("e2e.latency_ms", small.latencies);
    printPercentiles("e2e.clipboard_back_ms", small.clipboardBack);
    std::printf("e2e.breakdown_ms.p50: erase %.2f, paste fetched %.2f, final text %.2f\n",
                percentile(small.erased, 0.50), percentile(small.fetched, 0.50),
                percentile(small.shown, 0.50));
    std::printf("e2e.failures: %d of %d\n", small.failures, runs);
    std::printf("e2e.clipboard_lost: %d of %d\n", small.clipboardLost, runs);
    std::printf("idle.rss_mb: %.1f MB\n", rss1);
    std::printf("idle.cpu_pct: %.2f %%\n",
                100.0 * (cpu1 - cpu0) / static_cast<double>(idle.count()));
    quillet.reset();
    if (largeRuns <= 0) {
        return 0;
    }

    // The same expansion with 100,000 snippets: its cost, and memory, must not follow the
    // library's size. The idle figure includes the first save of the usage counts it seeds.
    quillet = std::make_unique<QuilletProcess>(large(100'000));
    if (!quillet->listening()) {
        std::cerr << "Quillet did not start with 100,000 snippets:\n" << quillet->log();
        return 1;
    }
    editor.focus();
    std::this_thread::sleep_for(std::min(idle, std::chrono::seconds(10)));
    const double rssIdle = usage(quillet->pid()).first;
    // Growth is counted after a few expansions: the first ones load what every expansion uses
    // (text segmentation, the clipboard's side), once.
    expand(editor, typist, clipboard, *quillet, 20, 0);
    std::this_thread::sleep_for(2s); // their usage save included
    const double rssWarm = usage(quillet->pid()).first;
    const Expansions many = expand(editor, typist, clipboard, *quillet, largeRuns, largeRuns);
    std::this_thread::sleep_for(2s);
    const double rssAfter = usage(quillet->pid()).first;
    std::printf("e2e.latency_ms.p50.100k: %.2f ms\n", percentile(many.latencies, 0.50));
    std::printf("e2e.failures.100k: %d of %d\n", many.failures, largeRuns);
    std::printf("idle.rss_mb.100k: %.1f MB\n", rssIdle);
    std::printf("rss_growth_mb.%d: %.1f MB\n", largeRuns, rssAfter - rssWarm);
    return 0;
}

} // namespace
} // namespace quillet

int main(int argc, char** argv) {
    // Arguments: latency runs, reliability runs, idle seconds, runs with 100,000 snippets
    // (200, 500, 30, 1000 by default).
    const int latency = argc > 1 ? std::atoi(argv[1]) : 200;
    const int reliability = argc > 2 ? std::atoi(argv[2]) : 500;
    const int idle = argc > 3 ? std::atoi(argv[3]) : 30;
    const int large = argc > 4 ? std::atoi(argv[4]) : 1000;
    return quillet::run(latency, reliability, std::chrono::seconds(idle), large);
}
