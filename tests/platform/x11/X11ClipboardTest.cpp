// gtest first: Xlib defines None and Bool as macros, and gtest uses both names.
#include <gmock/gmock.h>

// Everything below may include Xlib.
#include "platform/x11/X11Clipboard.h"
#include "platform/x11/X11Connection.h"
#include "render/ClipboardHistory.h"
#include "render/Payload.h"
#include "support/X11Clients.h"

#include <random>

namespace quillet {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

constexpr auto patience = 20s;

// A bare Xlib client for checking what goes over the wire: a requestor that reads answers
// byte by byte and drives an incremental transfer itself, and an owner that comes and goes.
class Outside {
public:
    struct Property {
        Atom type = None;
        std::string data;                 // format 8
        std::vector<unsigned long> items; // format 32
    };

    explicit Outside(RunLoop& loop) : connection_(testing::openOwn(loop)) {
        d_ = connection_->display();
        window_ = XCreateSimpleWindow(d_, XDefaultRootWindow(d_), 0, 0, 1, 1, 0, 0, 0);
        XSelectInput(d_, window_, PropertyChangeMask);
        connection_->watch([this](Display* d) {
            for (XEvent event; XPending(d) > 0; events_.push_back(event)) {
                XNextEvent(d, &event);
            }
        });
    }

    Atom atom(const char* name) { return XInternAtom(d_, name, False); }

    void request(const char* target, Atom property) {
        XConvertSelection(d_, atom("CLIPBOARD"), atom(target), property, window_, CurrentTime);
        XFlush(d_);
        connection_->drainSoon();
    }

    /// The first event received that matches, taken out of the queue.
    std::optional<XEvent> take(const std::function<bool(const XEvent&)>& match) {
        auto it = std::find_if(events_.begin(), events_.end(), match);
        if (it == events_.end()) {
            return std::nullopt;
        }
        const XEvent event = *it;
        events_.erase(it);
        return event;
    }

    /// True, once, when a new value arrived in property.
    bool changed(Atom property) {
        return take([property](const XEvent& e) {
                   return e.type == PropertyNotify && e.xproperty.atom == property &&
                          e.xproperty.state == PropertyNewValue;
               })
            .has_value();
    }

    Property read(Atom property) {
        Property out;
        int format = 0;
        unsigned long count = 0, after = 0;
        unsigned char* raw = nullptr;
        XGetWindowProperty(d_, window_, property, 0, 0x1FFFFFFF, False, AnyPropertyType, &out.type,
                           &format, &count, &after, &raw);
        if (raw != nullptr && format == 32) {
            const auto* items = reinterpret_cast<const unsigned long*>(raw);
            out.items.assign(items, items + count);
        } else if (raw != nullptr) {
            out.data.assign(reinterpret_cast<const char*>(raw), count);
        }
        if (raw != nullptr) {
            XFree(raw);
        }
        connection_->drainSoon();
        return out;
    }

    void write(Atom property, Atom type, const std::vector<unsigned long>& items) {
        XChangeProperty(d_, window_, property, type, 32, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(items.data()),
                        static_cast<int>(items.size()));
        XFlush(d_);
    }

    void remove(Atom property) {
        XDeleteProperty(d_, window_, property);
        XFlush(d_);
    }

    Window owner() {
        const Window owner = XGetSelectionOwner(d_, atom("CLIPBOARD"));
        connection_->drainSoon();
        return owner;
    }

    void own() {
        XSetSelectionOwner(d_, atom("CLIPBOARD"), window_, CurrentTime);
        XFlush(d_);
    }

    /// Destroys the window, and with it the ownership.
    void vanish() {
        XDestroyWindow(d_, window_);
        XFlush(d_);
    }

private:
    std::unique_ptr<X11Connection> connection_;
    Display* d_ = nullptr;
    Window window_ = None;
    std::vector<XEvent> events_;
};

class X11ClipboardTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(testing::xlibThreads);
        quillet = testing::openOwn<X11Clipboard>(loop);
        ASSERT_TRUE(other.opened());
    }

    bool waitFor(const std::function<bool()>& done) { return loop.runUntil(done, patience); }

    /// Runs what is already posted (a fetched callback, say) before looking.
    void flush() {
        bool reached = false;
        loop.post([&] { reached = true; });
        loop.runUntil([&] { return reached; }, patience);
    }

    /// What f(clipboard) gives in the other application, waited for while this thread keeps
    /// serving.
    template <class F> auto asOther(F f) {
        auto future = other.call(std::move(f));
        if (!waitFor([&] { return future.wait_for(0s) == std::future_status::ready; })) {
            ADD_FAILURE() << "the other application did not answer";
            return decltype(future.get()){};
        }
        return future.get();
    }

    void otherWrites(std::vector<ClipboardItem> items) {
        asOther([items](X11Clipboard& c) { return (c.write(items), true); });
    }

    std::optional<std::string> otherReads(const char* type) {
        return asOther([type](X11Clipboard& c) { return c.data(type); });
    }

    /// Waits for the answer to an outside request; None when refused.
    Atom answerOf(const char* target, Atom property) {
        outside.request(target, property);
        std::optional<XEvent> got;
        EXPECT_TRUE(waitFor([&] {
            return (got = outside.take([](const XEvent& e) { return e.type == SelectionNotify; }))
                .has_value();
        })) << target;
        return got ? got->xselection.property : None;
    }

    RunLoop loop;
    std::unique_ptr<X11Clipboard> quillet;
    testing::OtherApp other{loop};
    Outside outside{loop};
};

std::string noise(std::size_t size) {
    std::mt19937 random(7);
    std::string out(size, '\0');
    for (char& c : out) {
        c = static_cast<char>(random());
    }
    return out;
}

TEST_F(X11ClipboardTest, PlainTextIsServedUnderEveryTextTargetAndRefusedWhereItDoesNotFit) {
    const std::string text = "Grüße, café";
    const std::string latin1 = "Gr\xfc\xdf"
                               "e, caf\xe9";
    quillet->write({{"text/plain;charset=utf-8", text}, {"text/html", "<b>x</b>"}});

    for (const char* type : {"text/plain;charset=utf-8", "UTF8_STRING", "TEXT", "text/plain"}) {
        EXPECT_EQ(otherReads(type), text) << type;
    }
    EXPECT_EQ(otherReads("STRING"), latin1);
    EXPECT_EQ(asOther([](X11Clipboard& c) { return c.text(); }), text);
    const std::vector<std::string> types = asOther([](X11Clipboard& c) { return c.types(); });
    EXPECT_THAT(types, UnorderedElementsAre("text/plain;charset=utf-8", "text/html", "UTF8_STRING",
                                            "text/plain", "TEXT", "STRING"));

    // The owner answers itself from memory: asking the server would wait for its own answer.
    EXPECT_EQ(quillet->text(), text);
    EXPECT_EQ(quillet->types(), types);
    EXPECT_EQ(quillet->data("STRING"), latin1);
    EXPECT_EQ(quillet->snapshot()->items,
              (std::vector<ClipboardItem>{{"text/plain;charset=utf-8", text},
                                          {"text/html", "<b>x</b>"}}));

    // On the wire: each answer's type, an unknown target refused, MULTIPLE answered pair by pair.
    const Atom property = outside.atom("ANSWER");
    ASSERT_EQ(answerOf("TEXT", property), property);
    EXPECT_EQ(outside.read(property).type, outside.atom("UTF8_STRING"));
    ASSERT_EQ(answerOf("STRING", property), property);
    EXPECT_EQ(outside.read(property).type, outside.atom("STRING"));
    EXPECT_EQ(outside.read(property).data, latin1);
    EXPECT_EQ(answerOf("application/x-unknown", property), None);

    const Atom first = outside.atom("FIRST");
    const Atom second = outside.atom("SECOND");
    const Atom list = outside.atom("LIST");
    outside.write(
        list, outside.atom("ATOM_PAIR"),
        {outside.atom("UTF8_STRING"), first, outside.atom("application/x-unknown"), second});
    ASSERT_EQ(answerOf("MULTIPLE", list), list);
    EXPECT_EQ(outside.read(list).items,
              (std::vector<unsigned long>{outside.atom("UTF8_STRING"), first,
                                          outside.atom("application/x-unknown"), None}));
    EXPECT_EQ(outside.read(first).data, text);

    // Text beyond Latin-1 is not offered as STRING rather than mangled.
    const std::string wide = "naïve → ✓";
    quillet->write({{"text/plain;charset=utf-8", wide}});
    EXPECT_EQ(otherReads("STRING"), std::nullopt);
    EXPECT_EQ(otherReads("UTF8_STRING"), wide);
    EXPECT_THAT(asOther([](X11Clipboard& c) { return c.types(); }), Not(Contains("STRING")));
    EXPECT_EQ(answerOf("STRING", property), None);

    // An owner that offers Latin-1 only is read as UTF-8 text.
    otherWrites({{"STRING", "caf\xe9"}});
    EXPECT_EQ(quillet->text(), "café");
}

// The large item crosses incrementally, in both directions.
TEST_F(X11ClipboardTest, SnapshotAndRestoreKeepEveryFormatByteForByte) {
    std::string png = "\x89PNG\r\n\x1a\n";
    for (int byte = 0; byte < 256; ++byte) {
        png += static_cast<char>(byte);
    }
    const std::vector<ClipboardItem> copied = {
        {"text/html", "<p>café <b>bold</b></p>"},
        {"text/plain;charset=utf-8", "café bold"},
        {"image/png", png},
        {"application/x-editor-internal", std::string("\0\1\2", 3)},
        {"application/x-big", noise(5 << 20)}};
    otherWrites(copied);

    const std::optional<X11Clipboard::Snapshot> saved = quillet->snapshot();
    ASSERT_TRUE(saved);
    for (const ClipboardItem& item : copied) {
        EXPECT_EQ(std::count(saved->items.begin(), saved->items.end(), item), 1) << item.type;
    }
    EXPECT_TRUE(quillet->data("application/x-big") == copied.back().data);
    EXPECT_THAT(saved->items, Contains(ClipboardItem{"UTF8_STRING", "café bold"}));
    for (const ClipboardItem& item : saved->items) {
        EXPECT_THAT(item.type, Not(::testing::AnyOf("TARGETS", "TIMESTAMP", "MULTIPLE", "TEXT")));
    }

    // Quillet pastes something else, then puts the user's clipboard back as it was.
    quillet->write(Payload{"pasted", std::nullopt, std::nullopt}.items());
    EXPECT_EQ(asOther([](X11Clipboard& c) { return c.text(); }), "pasted");
    quillet->restore(*saved);
    const auto seen = asOther([](X11Clipboard& c) { return c.snapshot(); });
    EXPECT_TRUE(seen && seen->items == saved->items);

    // An empty snapshot gives the clipboard up, and a snapshot of nobody is empty.
    quillet->restore({});
    EXPECT_EQ(outside.owner(), None);
    EXPECT_EQ(quillet->snapshot(), X11Clipboard::Snapshot{});
    EXPECT_EQ(asOther([](X11Clipboard& c) { return c.types(); }), std::vector<std::string>{});

    // Giving up what is no longer Quillet's would throw away what the user copied since.
    otherWrites({{"text/plain;charset=utf-8", "newer"}});
    quillet->restore({});
    EXPECT_EQ(quillet->text(), "newer");
}

// What another owner copied is fetched when it is copied, so borrowing the clipboard for a paste
// asks nobody; secrets are never kept that way.
TEST_F(X11ClipboardTest, AnotherOwnersContentIsKeptAheadUnlessMarkedSecret) {
    int announced = 0;
    quillet->setOnChange([&] { ++announced; });
    std::promise<void> resume;
    std::shared_future<void> resumed = resume.get_future().share();
    auto busy = [&] {
        // The owner stops answering until resumed.
        auto started = std::make_shared<std::promise<void>>();
        auto running = started->get_future();
        (void)other.call([started, resumed](X11Clipboard&) {
            started->set_value();
            resumed.wait();
            return true;
        });
        running.wait();
    };

    const std::vector<ClipboardItem> copied = {{"text/plain;charset=utf-8", "kept"},
                                               {"text/html", "<i>kept</i>"}};
    otherWrites(copied);
    ASSERT_TRUE(waitFor([&] { return announced == 1; }));
    busy();
    // The stopped owner could not answer now: all of this comes from the copy kept ahead.
    const std::optional<X11Clipboard::Snapshot> borrowed = quillet->snapshot();
    ASSERT_TRUE(borrowed);
    for (const ClipboardItem& item : copied) {
        EXPECT_THAT(borrowed->items, Contains(item));
    }
    EXPECT_EQ(quillet->text(), "kept");
    EXPECT_EQ(quillet->data("text/html"), "<i>kept</i>");
    EXPECT_THAT(quillet->types(), Contains("text/html"));
    resume.set_value();

    std::promise<void> resumeAgain;
    resumed = resumeAgain.get_future().share();
    otherWrites({{"text/plain;charset=utf-8", "hunter2"}, {"x-kde-passwordManagerHint", "secret"}});
    ASSERT_TRUE(waitFor([&] { return announced == 2; }));
    busy();
    EXPECT_EQ(quillet->snapshot(), std::nullopt);
    resumeAgain.set_value();
}

TEST_F(X11ClipboardTest, OfferReportsTheFetchOnlyOnceTheReaderIsDone) {
    std::optional<bool> fetched;
    const auto done = [&](bool f) { fetched = f; };
    quillet->offer(Payload{"hello", std::nullopt, std::nullopt}.items(), done, 10s);
    const Atom property = outside.atom("ANSWER");

    // The targets list and a clipboard manager's look at the markers are no paste.
    ASSERT_EQ(answerOf("TARGETS", property), property);
    ASSERT_EQ(answerOf("x-kde-passwordManagerHint", property), property);
    EXPECT_EQ(outside.read(property).data, "secret");
    outside.remove(property);
    // The text is out but not yet read.
    ASSERT_EQ(answerOf("UTF8_STRING", property), property);
    flush();
    EXPECT_EQ(fetched, std::nullopt);
    EXPECT_EQ(outside.read(property).data, "hello");
    outside.remove(property);
    EXPECT_TRUE(waitFor([&] { return fetched.has_value(); }));
    EXPECT_EQ(fetched, true);

    // Nobody fetches.
    fetched.reset();
    quillet->offer(Payload{"unread", std::nullopt, std::nullopt}.items(), done, 200ms);
    EXPECT_TRUE(waitFor([&] { return fetched.has_value(); }));
    EXPECT_EQ(fetched, false);

    // An incremental transfer is done only when the last chunk has been taken.
    fetched.reset();
    const std::string big = noise(5 << 20);
    quillet->offer(Payload{big, std::nullopt, std::nullopt}.items(), done, 60s);
    ASSERT_EQ(answerOf("UTF8_STRING", property), property);
    const Outside::Property marker = outside.read(property);
    ASSERT_EQ(marker.type, outside.atom("INCR"));
    EXPECT_EQ(marker.items, std::vector<unsigned long>{big.size()});
    while (outside.changed(property)) {
        // notices of the earlier answers and of the marker itself
    }
    outside.remove(property);
    std::string received;
    int chunks = 0;
    for (;;) {
        ASSERT_TRUE(waitFor([&] { return outside.changed(property); }));
        const Outside::Property chunk = outside.read(property);
        if (chunk.data.empty()) {
            break;
        }
        flush();
        EXPECT_EQ(fetched, std::nullopt) << "after chunk " << chunks;
        received += chunk.data;
        ++chunks;
        outside.remove(property);
    }
    EXPECT_GE(chunks, 2);
    EXPECT_TRUE(received == big);
    EXPECT_TRUE(waitFor([&] { return fetched.has_value(); }));
    EXPECT_EQ(fetched, true);
    outside.remove(property);
}

TEST_F(X11ClipboardTest, ChangesByOtherClientsAreCountedAnnouncedAndFeedTheHistory) {
    int announced = 0;
    quillet->setOnChange([&] { ++announced; });
    EXPECT_EQ(quillet->changeCount(), 0);
    ClipboardHistory history(*quillet);

    otherWrites({{"text/plain;charset=utf-8", "copied"}});
    EXPECT_TRUE(waitFor([&] { return announced == 1; }));
    EXPECT_EQ(quillet->changeCount(), 1);
    history.poll();
    EXPECT_EQ(history.entries(), std::vector<std::string>{"copied"});

    // Quillet's own content counts without being announced, and the history leaves it out.
    quillet->write(Payload{"pasted", std::nullopt, std::nullopt}.items());
    quillet->write(Payload{"pasted again", std::nullopt, std::nullopt}.items());
    EXPECT_EQ(quillet->changeCount(), 3);
    history.poll();
    EXPECT_EQ(history.entries(), std::vector<std::string>{"copied"});

    // A password manager's copy is counted but not remembered.
    otherWrites({{"text/plain;charset=utf-8", "hunter2"}, {"x-kde-passwordManagerHint", "secret"}});
    EXPECT_TRUE(waitFor([&] { return announced == 2; }));
    history.poll();
    EXPECT_EQ(history.entries(), std::vector<std::string>{"copied"});

    // Owners that go away: a destroyed window, a closed connection.
    outside.own();
    EXPECT_TRUE(waitFor([&] { return announced == 3; }));
    outside.vanish();
    EXPECT_TRUE(waitFor([&] { return announced == 4; }));
    std::make_unique<Outside>(loop)->own(); // a connection that closes at once
    EXPECT_TRUE(waitFor([&] { return announced == 6; }));
    flush();
    EXPECT_EQ(announced, 6);
    EXPECT_EQ(quillet->changeCount(), 8);
}

} // namespace
} // namespace quillet
