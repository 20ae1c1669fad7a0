#pragma once

namespace quillet {

/// Runs Quillet as a desktop application: the coordinator on Qt's event loop, the tray icon and
/// the windows, until the user quits or SIGINT, SIGTERM or SIGHUP arrives. Needs a display;
/// returns the exit status.
int runShell(int argc, char** argv);

} // namespace quillet
