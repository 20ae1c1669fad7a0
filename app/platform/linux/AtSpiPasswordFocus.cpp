#include "platform/linux/AtSpiPasswordFocus.h"

#include <atomic>
#include <atspi/atspi.h>

namespace quillet {
namespace {

// The limit on each question to an application, in milliseconds: a hung application must not
// keep the answer for the next focus change waiting.
constexpr gint askLimit = 200;

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
struct AtSpiPasswordFocus::Listener {
    Scheduler& scheduler;
    std::weak_ptr<AtSpiPasswordFocus*> alive;
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    GSource* quit = nullptr;
    std::atomic<bool> stopping{false};
    AtspiAccessible* password = nullptr; // the focused password field, on the thread only

    ~Listener() { g_main_loop_unref(loop); }

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
        if (atspi_init() > 1) {
            atspi_exit(); // or the next init would take the missing bus for a working one
            postLog("No accessibility bus: password fields in other applications are not "
                    "recognised, only applications holding the keyboard.");
            return;
        }
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
        atspi_exit();
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
            if (source == password) {
                forget();
                post(false, {});
            }
            return;
        }
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

AtSpiPasswordFocus::AtSpiPasswordFocus(Scheduler& scheduler,
                                       std::function<void(const std::string&)> log)
    : scheduler_(scheduler), log_(std::move(log)),
      alive_(std::make_shared<AtSpiPasswordFocus*>(this)) {}

AtSpiPasswordFocus::~AtSpiPasswordFocus() {
    stop();
    alive_.reset();
}

void AtSpiPasswordFocus::start(std::function<void()> changed) {
    changed_ = std::move(changed);
    if (listener_) {
        return;
    }
    listener_.reset(new Listener{scheduler_, alive_});
    thread_ = std::thread([listener = listener_.get()] { listener->run(); });
}

void AtSpiPasswordFocus::stop() {
    changed_ = {};
    active_ = false;
    holder_.clear();
    if (!listener_) {
        return;
    }
    // The loop may not run yet: a source on its context quits it as soon as it does, and is
    // destroyed afterwards in case it never did.
    listener_->stopping = true;
    listener_->quit = g_idle_source_new();
    g_source_set_callback(
        listener_->quit,
        [](gpointer loop) {
            g_main_loop_quit(static_cast<GMainLoop*>(loop));
            return G_SOURCE_REMOVE;
        },
        listener_->loop, nullptr);
    g_source_attach(listener_->quit, nullptr);
    thread_.join();
    g_source_destroy(listener_->quit);
    g_source_unref(listener_->quit);
    listener_.reset();
}

void AtSpiPasswordFocus::report(bool active, std::string holder) {
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
