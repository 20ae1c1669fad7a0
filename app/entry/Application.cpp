#include "entry/Application.h"

#include "entry/Coordinator.h"
#include "library/JsonPreferences.h"
#include "library/RunLoop.h"
#include "platform/Desktop.h"
#include "platform/linux/InotifyWatcher.h"
#include "platform/linux/PamOwnerAuth.h"
#include "platform/linux/SecretServiceStore.h"
#include "platform/linux/SignalQuit.h"
#include "platform/linux/TerminalPrompt.h"

#include <iostream>

namespace quillet {

void logLine(const std::string& line) {
    std::cerr << "quillet: " << line << std::endl;
}

void logSignal(int signal) {
    logLine("stopping on signal " + std::to_string(signal));
}

int runApplication() {
    RunLoop loop;
    SignalQuit signals([&loop] { loop.quit(); }, logSignal);
    JsonFilePreferences preferences(Folders::current().settingsFile());
    InotifyWatcher watcher(loop);
    SecretServiceStore secrets;
    PamOwnerAuth auth{TerminalPrompt{}};
    Coordinator coordinator(
        {loop, preferences, watcher, secrets, auth,
         [&](std::string& why) { return Desktop::open(loop, preferences, logLine, why); }},
        {logLine, {}, {}, {}, {}, nullptr});
    coordinator.start();
    // Without a display there is nobody to type for; without a tray nobody to tell later.
    if (const auto state = coordinator.status().state;
        state == EngineStatus::State::noDisplay || state == EngineStatus::State::refused) {
        std::cerr << coordinator.status().headline << ": " << coordinator.status().detail << '\n';
        return 1;
    }
    loop.run();
    if (Expander* engine = coordinator.engine()) {
        engine->stop();
        // Expansions under way finish, so the user's clipboard is back before the desktop closes.
        loop.runUntil([engine] { return engine->idle(); }, std::chrono::seconds(2));
    }
    return 0;
}

} // namespace quillet
