#pragma once

namespace quillet {

/// Runs Quillet in the background: the snippet store, the clipboard history and the keyboard
/// engine on the desktop's backend, until SIGINT, SIGTERM or SIGHUP. Returns the exit status;
/// when no backend can listen it says why on standard error and returns 1.
int runApplication();

} // namespace quillet
