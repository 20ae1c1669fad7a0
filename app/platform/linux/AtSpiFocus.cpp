#include "platform/linux/AtSpiFocus.h"

#include "platform/Trace.h"

#include <atomic>
#include <atspi/atspi.h>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace quillet {
namespace {

// The limit on each question to an application, in milliseconds: a hung application must not
// keep the answer for the next focus change waiting.
constexpr gint askLimit = 200;

// How often and how long an application that came to the front is looked for on the bus: one
// just started joins it a moment after its first window shows.
constexpr guint lookAgainAfter = 150;
constexpr int lookTimes = 20;

// How much of an application's tree is searched for its focus when it cannot search itself.
constexpr int searchDepth = 40;
constexpr int searchBudget = 600;

void unref(gpointer object) {
    if (object != nullptr) {
        g_object_unref(object);
    }
}

bool hasState(AtspiAccessible* accessible, AtspiStateType state) {
    AtspiStateSet* states = atspi_accessible_get_state_set(accessible);
    const bool has = states != nullptr && atspi_state_set_contains(states, state);
    unref(states);
    return has;
}

// The running application with this process id, referenced; null when none is on the bus.
AtspiAccessible* applicationWith(int pid) {
    AtspiAccessible* desktop = atspi_get_desktop(0);
    if (desktop == nullptr) {
        return nullptr;
    }
    GError* error = nullptr;
    AtspiAccessible* found = nullptr;
    const gint count = atspi_accessible_get_child_count(desktop, &error);
    g_clear_error(&error);
    for (gint i = 0; i < count && found == nullptr; ++i) {
        AtspiAccessible* application = atspi_accessible_get_child_at_index(desktop, i, &error);
        g_clear_error(&error);
        if (application == nullptr) {
            continue;
        }
        if (static_cast<int>(atspi_accessible_get_process_id(application, &error)) == pid) {
            found = application;
        } else {
            g_object_unref(application);
        }
        g_clear_error(&error);
    }
    g_object_unref(desktop);
    return found;
}

// The focused object below root, referenced, asked of the application in one question where it
// can answer that (browsers, GTK) and searched for in its visible tree otherwise (Qt).
AtspiAccessible* focusedBelow(AtspiAccessible* root) {
    GError* error = nullptr;
    if (AtspiCollection* collection = atspi_accessible_get_collection_iface(root)) {
        AtspiStateSet* states = atspi_state_set_new(nullptr);
        atspi_state_set_add(states, ATSPI_STATE_FOCUSED);
        AtspiMatchRule* rule = atspi_match_rule_new(
            states, ATSPI_Collection_MATCH_ALL, nullptr, ATSPI_Collection_MATCH_NONE, nullptr,
            ATSPI_Collection_MATCH_NONE, nullptr, ATSPI_Collection_MATCH_NONE, FALSE);
        GArray* matches = atspi_collection_get_matches(
            collection, rule, ATSPI_Collection_SORT_ORDER_CANONICAL, 1, TRUE, &error);
        g_clear_error(&error);
        g_object_unref(rule);
        g_object_unref(states);
        g_object_unref(collection);
        if (matches != nullptr) {
            AtspiAccessible* found = nullptr;
            for (guint i = 0; i < matches->len; ++i) {
                AtspiAccessible* match = g_array_index(matches, AtspiAccessible*, i);
                if (found == nullptr) {
                    found = match;
                } else {
                    unref(match);
                }
            }
            g_array_free(matches, TRUE);
            if (found != nullptr) {
                return found;
            }
        }
    }
    int budget = searchBudget;
    auto search = [&](auto& self, AtspiAccessible* node, int depth) -> AtspiAccessible* {
        if (hasState(node, ATSPI_STATE_FOCUSED)) {
            return ATSPI_ACCESSIBLE(g_object_ref(node));
        }
        // Hidden parts hold no focus.
        if ((depth > 1 && !hasState(node, ATSPI_STATE_SHOWING)) || depth >= searchDepth ||
            --budget <= 0) {
            return nullptr;
        }
        const gint count = atspi_accessible_get_child_count(node, &error);
        g_clear_error(&error);
        for (gint i = 0; i < count; ++i) {
            AtspiAccessible* child = atspi_accessible_get_child_at_index(node, i, &error);
            g_clear_error(&error);
            if (child == nullptr) {
                continue;
            }
            AtspiAccessible* found = self(self, child, depth + 1);
            g_object_unref(child);
            if (found != nullptr) {
                return found;
            }
        }
        return nullptr;
    };
    return search(search, root, 0);
}

// The application an accessible belongs to, as libatspi keeps it (one object per application,
// so pointers compare); null when it cannot be told.
AtspiAccessible* applicationOf(AtspiAccessible* accessible) {
    GError* error = nullptr;
    AtspiAccessible* application = atspi_accessible_get_application(accessible, &error);
    g_clear_error(&error);
    if (application != nullptr) {
        g_object_unref(application); // libatspi keeps its own reference while it knows the app
    }
    return application;
}

} // namespace

// What the AT-SPI thread owns. Created and destroyed on the main thread, used by the thread in
// between.
struct AtSpiFocus::Listener {
    Listener(Scheduler& s, std::weak_ptr<AtSpiFocus*> a) : scheduler(s), alive(std::move(a)) {}

    Scheduler& scheduler;
    std::weak_ptr<AtSpiFocus*> alive;
    // A context of its own: the application's main thread may iterate GLib's default one (Qt
    // does), and libatspi must only ever be called from this thread.
    GMainContext* context = g_main_context_new();
    GMainLoop* loop = g_main_loop_new(context, FALSE);
    GSource* quit = nullptr;
    std::atomic<bool> stopping{false};
    AtspiAccessible* password = nullptr; // the focused password field, on the thread only
    AtspiAccessible* current = nullptr;  // the focused object, whatever it is
    std::atomic<unsigned> generation{0}; // the latest front window's; older looks give up
    bool looking = false;                // a look is under way (libatspi may re-enter the loop)
    std::mutex mutex;
    std::vector<GSource*> sources; // every job attached, for stop() to remove those left

    ~Listener() {
        g_main_loop_unref(loop);
        g_main_context_unref(context);
    }

    // Runs job on the thread's loop after delay milliseconds; nothing once stopping.
    void schedule(guint delay, std::function<void()> job) {
        GSource* source = delay == 0 ? g_idle_source_new() : g_timeout_source_new(delay);
        g_source_set_callback(
            source,
            [](gpointer data) {
                (*static_cast<std::function<void()>*>(data))();
                return G_SOURCE_REMOVE;
            },
            new std::function<void()>(std::move(job)),
            [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
        const std::lock_guard lock(mutex);
        std::erase_if(sources, [](GSource* done) {
            const bool gone = g_source_is_destroyed(done);
            if (gone) {
                g_source_unref(done);
            }
            return gone;
        });
        if (stopping) {
            g_source_unref(source);
            return;
        }
        g_source_attach(source, context);
        sources.push_back(source);
    }

    void removeJobs() {
        const std::lock_guard lock(mutex);
        for (GSource* source : sources) {
            g_source_destroy(source);
            g_source_unref(source);
        }
        sources.clear();
    }

    // Asks the application with pid, in front since generation began, for its focus.
    void look(int pid, unsigned lookFor, int times) {
        if (lookFor != generation || stopping) {
            return;
        }
        if (looking) {
            schedule(20, [this, pid, lookFor, times] { look(pid, lookFor, times); });
            return;
        }
        looking = true;
        AtspiAccessible* application = pid > 0 ? applicationWith(pid) : nullptr;
        AtspiAccessible* focus = nullptr;
        if (application != nullptr) {
            // What libatspi keeps of the application came from the events it sent, which are
            // what may be missing.
            atspi_accessible_clear_cache(application);
            focus = focusedBelow(application);
        }
        looking = false;
        if (lookFor != generation) {
            unref(focus);
            unref(application);
            return;
        }
        if (focus != nullptr) {
            focusChanged(focus, true);
        } else {
            forget();
            post(false, {});
            if (pid > 0 && times + 1 < lookTimes) {
                schedule(lookAgainAfter,
                         [this, pid, lookFor, times] { look(pid, lookFor, times + 1); });
            }
        }
        unref(focus);
        unref(application);
    }

    void post(bool active, std::string holder) {
        scheduler.post([alive = alive, active, holder = std::move(holder)]() mutable {
            if (auto self = alive.lock()) {
                (*self)->report(active, std::move(holder));
            }
        });
    }

    void postLog(std::string line) {
        scheduler.post([alive = alive, line = std::move(line)] {
            if (auto self = alive.lock(); self && !(*self)->logged_) {
                (*self)->logged_ = true;
                if ((*self)->log_) {
                    (*self)->log_(line);
                }
            }
        });
    }

    void run() {
        g_main_context_push_thread_default(context);
        listen();
        g_main_context_pop_thread_default(context);
    }

    void listen() {
        if (atspi_init() > 1) {
            atspi_exit(); // or the next init would take the missing bus for a working one
            postLog("No accessibility bus: password fields in other applications are not "
                    "recognised, only applications holding the keyboard.");
            return;
        }
        atspi_set_main_context(context);
        atspi_set_timeout(askLimit, -1);
        AtspiEventListener* focus = atspi_event_listener_new(&Listener::focused, this, nullptr);
        AtspiEventListener* deactivate =
            atspi_event_listener_new(&Listener::deactivated, this, nullptr);
        GError* error = nullptr;
        if (atspi_event_listener_register(focus, "object:state-changed:focused", &error) &&
            atspi_event_listener_register(deactivate, "window:deactivate", &error)) {
            postLog("Password fields: following the focus on the accessibility bus");
            if (!stopping) {
                g_main_loop_run(loop);
            }
        } else {
            postLog(std::string("The accessibility bus refused to report focus changes: ") +
                    (error != nullptr ? error->message : "no reason given"));
        }
        g_clear_error(&error);
        atspi_event_listener_deregister(focus, "object:state-changed:focused", nullptr);
        atspi_event_listener_deregister(deactivate, "window:deactivate", nullptr);
        g_object_unref(focus);
        g_object_unref(deactivate);
        forget();
        unref(current);
        current = nullptr;
        atspi_exit();
    }

    // The focused text's caret, asked now; nothing without one.
    std::optional<ScreenRect> caret() {
        if (current == nullptr) {
            return std::nullopt;
        }
        AtspiText* text = atspi_accessible_get_text_iface(current);
        if (text == nullptr) {
            return std::nullopt;
        }
        GError* error = nullptr;
        const gint offset = atspi_text_get_caret_offset(text, &error);
        std::optional<ScreenRect> found;
        const auto extents = [&](gint at) -> std::optional<ScreenRect> {
            g_clear_error(&error);
            AtspiRect* rect =
                atspi_text_get_character_extents(text, at, ATSPI_COORD_TYPE_SCREEN, &error);
            std::optional<ScreenRect> out;
            if (rect != nullptr && error == nullptr && rect->height > 0) {
                out = ScreenRect{rect->x, rect->y, rect->width, rect->height};
            }
            g_free(rect);
            return out;
        };
        if (error == nullptr && offset >= 0) {
            found = extents(offset);
            if (!found && offset > 0) {
                // At the end of the text: the caret stands after the last character.
                if (auto before = extents(offset - 1)) {
                    found = ScreenRect{before->right(), before->y, 0, before->height};
                }
            }
        }
        g_clear_error(&error);
        g_object_unref(text);
        return found;
    }

    void forget() {
        if (password != nullptr) {
            g_object_unref(password);
            password = nullptr;
        }
    }

    static void focused(AtspiEvent* event, void* data) {
        static_cast<Listener*>(data)->focusChanged(event->source, event->detail1 != 0);
        g_boxed_free(ATSPI_TYPE_EVENT, event);
    }

    static void deactivated(AtspiEvent* event, void* data) {
        auto* self = static_cast<Listener*>(data);
        // Only the field's own application leaving the front ends it; another one's window may
        // announce that after the field's focus, as applications do not speak in order.
        AtspiAccessible* field =
            self->password != nullptr ? applicationOf(self->password) : nullptr;
        if (field != nullptr && event->source != nullptr && applicationOf(event->source) == field) {
            self->forget();
            self->post(false, {});
        }
        g_boxed_free(ATSPI_TYPE_EVENT, event);
    }

    void focusChanged(AtspiAccessible* source, bool gained) {
        if (source == nullptr) {
            return;
        }
        if (!gained) {
            if (source == current) {
                unref(current);
                current = nullptr;
            }
            if (source == password) {
                forget();
                post(false, {});
            }
            return;
        }
        if (source != current) {
            unref(current);
            current = ATSPI_ACCESSIBLE(g_object_ref(source));
        }
        trace("accessible focus known");
        GError* error = nullptr;
        const AtspiRole role = atspi_accessible_get_role(source, &error);
        g_clear_error(&error);
        forget();
        if (role != ATSPI_ROLE_PASSWORD_TEXT) {
            post(false, {});
            return;
        }
        password = ATSPI_ACCESSIBLE(g_object_ref(source));
        std::string name;
        if (AtspiAccessible* application = applicationOf(source)) {
            if (gchar* text = atspi_accessible_get_name(application, &error)) {
                name = text;
                g_free(text);
            }
            g_clear_error(&error);
        }
        post(true, std::move(name));
    }
};

AtSpiFocus::AtSpiFocus(Scheduler& scheduler, std::function<void(const std::string&)> log)
    : scheduler_(scheduler), log_(std::move(log)), alive_(std::make_shared<AtSpiFocus*>(this)) {}

AtSpiFocus::~AtSpiFocus() {
    stop();
    alive_.reset();
}

void AtSpiFocus::frontMoved(int pid) {
    if (!listener_) {
        return;
    }
    Listener* listener = listener_.get();
    const unsigned lookFor = ++listener->generation;
    listener->schedule(0, [listener, pid, lookFor] { listener->look(pid, lookFor, 0); });
}

void AtSpiFocus::locate(Found found) {
    if (!listener_) {
        found(std::nullopt);
        return;
    }
    Listener* listener = listener_.get();
    listener->schedule(0, [listener, found = std::move(found)]() mutable {
        std::optional<ScreenRect> caret = listener->caret();
        listener->scheduler.post([alive = listener->alive, found = std::move(found), caret] {
            if (alive.lock()) {
                found(caret);
            }
        });
    });
}

void AtSpiFocus::start(std::function<void()> changed) {
    changed_ = std::move(changed);
    if (listener_) {
        return;
    }
    listener_ = std::make_unique<Listener>(scheduler_, alive_);
    thread_ = std::thread([listener = listener_.get()] { listener->run(); });
    if (front_) {
        frontMoved(front_());
    }
}

void AtSpiFocus::stop() {
    changed_ = {};
    active_ = false;
    holder_.clear();
    if (!listener_) {
        return;
    }
    // The loop may not run yet: a source on its context quits it as soon as it does, and is
    // destroyed afterwards in case it never did.
    {
        const std::lock_guard lock(listener_->mutex);
        listener_->stopping = true;
    }
    listener_->quit = g_idle_source_new();
    g_source_set_callback(
        listener_->quit,
        [](gpointer loop) {
            g_main_loop_quit(static_cast<GMainLoop*>(loop));
            return G_SOURCE_REMOVE;
        },
        listener_->loop, nullptr);
    g_source_attach(listener_->quit, listener_->context);
    thread_.join();
    listener_->removeJobs();
    g_source_destroy(listener_->quit);
    g_source_unref(listener_->quit);
    listener_.reset();
}

void AtSpiFocus::report(bool active, std::string holder) {
    if (!listener_ || (active == active_ && holder == holder_)) {
        return;
    }
    active_ = active;
    holder_ = std::move(holder);
    if (changed_) {
        auto changed = changed_; // the handler may replace itself
        changed();
    }
}

} // namespace quillet
