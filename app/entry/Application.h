#pragma once

#include <string>

namespace quillet {

/// Writes one line to the log (standard error), as "quillet: " + line.
void logLine(const std::string& line);
/// Logs that the process stops on signal.
void logSignal(int signal);

/// Runs Quillet in the background without windows (where no display can show any): the snippet
/// store, the clipboard history and the keyboard engine on the desktop's backend, until SIGINT,
/// SIGTERM or SIGHUP. Returns the exit status; when no backend can listen it says why on standard
/// error and returns 1.
int runApplication();

} // namespace quillet
