#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

// The JavaScript interpreter behind a plain C++ interface: the only part of the core that sees
// Qt. Each run gets an interpreter of its own, so runs share nothing and may go on in parallel
// on any threads. The process needs no Qt object of its own for this: when it has no
// QCoreApplication (the command-line tool, tests), the first run creates one and keeps it.
namespace quillet {

/// One JavaScript run, which another thread may stop.
class JavaScriptRun {
public:
    JavaScriptRun() = default;
    JavaScriptRun(const JavaScriptRun&) = delete;
    JavaScriptRun& operator=(const JavaScriptRun&) = delete;

    /// Stops the run as soon as the interpreter next checks, even inside an endless loop; a run
    /// stopped before it starts does not start. Safe to call from any thread, any number of times.
    void interrupt();

    /// True once interrupt has been called.
    bool interrupted() const;

private:
    friend std::optional<std::string> runJavaScript(std::string_view source, JavaScriptRun& run);

    mutable std::mutex mutex_;
    bool interrupted_ = false;
    std::function<void()> stop_; // set while an interpreter is running this run
};

/// What source evaluates to in a fresh interpreter, as the interpreter's own text for it: the
/// program's completion value or, when that throws (as a top-level return does), the value the
/// program returns when run again as the body of a function. Nothing for an exception on the
/// second try, an undefined or null value, or a run that was interrupted.
std::optional<std::string> runJavaScript(std::string_view source, JavaScriptRun& run);

/// The same for a run that nobody needs to stop.
std::optional<std::string> runJavaScript(std::string_view source);

} // namespace quillet
