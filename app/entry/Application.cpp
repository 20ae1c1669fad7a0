#include "entry/Application.h"

#include "engine/Expander.h"
#include "library/FreeMemory.h"
#include "library/JsonPreferences.h"
#include "library/LibraryLocation.h"
#include "library/LockedSnippets.h"
#include "library/RunLoop.h"
#include "library/Store.h"
#include "library/Usage.h"
#include "platform/Desktop.h"
#include "platform/linux/InotifyWatcher.h"
#include "platform/linux/PamOwnerAuth.h"
#include "platform/linux/SecretServiceStore.h"
#include "platform/linux/TerminalPrompt.h"
#include "render/ClipboardHistory.h"

#include <csignal>
#include <iostream>
#include <pthread.h>
#include <thread>

namespace quillet {
namespace {

void log(const std::string& line) {
    std::cerr << "quillet: " << line << std::endl;
}

// Signals are taken by one thread with sigwait, so the run loop ends through quit() and
// everything is torn down on the main thread: the user's clipboard and the keyboard mapping
// are given back before the process ends.
class SignalQuit {
public:
    explicit SignalQuit(RunLoop& loop) {
        sigemptyset(&set_);
        for (int s : {SIGINT, SIGTERM, SIGHUP, SIGUSR1}) {
            sigaddset(&set_, s);
        }
        pthread_sigmask(SIG_BLOCK, &set_, nullptr);
        thread_ = std::thread([this, &loop] {
            int signal = 0;
            sigwait(&set_, &signal);
            if (signal != SIGUSR1) {
                log("stopping on signal " + std::to_string(signal));
            }
            loop.quit();
        });
    }
    ~SignalQuit() {
        pthread_kill(thread_.native_handle(), SIGUSR1);
        thread_.join();
    }
    SignalQuit(const SignalQuit&) = delete;
    SignalQuit& operator=(const SignalQuit&) = delete;

private:
    sigset_t set_;
    std::thread thread_;
};

// A settings file that does not parse is the user's to fix; it is never written over, so every
// setting the application would store waits until it parses again.
bool reportSettings(const JsonFilePreferences& preferences) {
    if (preferences.isDamaged()) {
        log(preferences.lastError() + " Quillet uses its defaults and leaves the file as it is.");
        return false;
    }
    return true;
}

} // namespace

int runApplication() {
    RunLoop loop;
    SignalQuit signals(loop); // before any other thread starts, so all of them block the signals
    JsonFilePreferences preferences(Folders::current().settingsFile());
    reportSettings(preferences);

    std::string why;
    std::unique_ptr<Desktop> desktop = Desktop::open(loop, preferences, log, why);
    if (!desktop) {
        std::cerr << "Quillet cannot expand abbreviations here: " << why << '\n';
        return 1;
    }

    InotifyWatcher watcher(loop);
    SnippetStore store(preferences, watcher, loop);
    if (!store.problem().empty()) {
        log(store.problem());
    }
    UsageFile usage(store.location().usageFile());
    SecretServiceStore secrets;
    PamOwnerAuth auth{TerminalPrompt{}};
    LockedSnippets locked(secrets, auth);
    ClipboardHistory history(desktop->pasteboard());
    desktop->setOnClipboardChange([&history] { history.poll(); });

    SecureInput& secure = desktop->secureInput();
    Expander engine({desktop->keys(), desktop->executor(), desktop->front(), loop, &secure},
                    {preferences, store.location(), &usage, &locked, &history});
    store.setOnChange([&engine](const SnippetList& snippets) {
        engine.update(snippets);
        returnFreeMemory(); // a large library leaves much behind while it is read and indexed
    });
    store.setOnSettingsChange([&engine, &preferences] {
        if (reportSettings(preferences)) {
            log("settings changed");
        }
        engine.preferencesChanged();
    });

    std::string error;
    if (!engine.start(error)) {
        std::cerr << "The X server refused the keyboard listener." << (error.empty() ? "" : " ")
                  << error << '\n';
        return 1;
    }
    secure.start([&engine] {
        if (!engine.paused()) {
            log("Expansion resumed");
            return;
        }
        const std::string holder = engine.pausedBy();
        log("Expansion is paused: " + (holder.empty() ? "An app" : holder) +
            " is holding the keyboard.");
    });
    log("listening; " + std::to_string(store.snippets().size()) + " snippets from " +
        store.location().libraryFile().string());
    loop.run();
    secure.stop();
    engine.stop();
    // Expansions under way finish, so the user's clipboard is back before the desktop closes.
    loop.runUntil([&engine] { return engine.idle(); }, std::chrono::seconds(2));
    return 0;
}

} // namespace quillet
