#include "script/JavaScript.h"

#include <QCoreApplication>
#include <QJSEngine>
#include <QJSValue>
#include <QString>
#include <QStringList>

namespace quillet {
namespace {

// QJSEngine refuses to exist without an application object (it aborts the process), yet the
// command-line tool and the tests have none and must not need Qt to run a snippet. So the first
// run in such a process makes one, on whatever thread it is on, and keeps it for the life of the
// process: it owns no event loop and no windows, and destroying it at exit, after other
// threads' engines, would buy nothing but ordering trouble. Qt then takes that thread for its
// main thread, which matters only to widgets and timers, neither of which such a process has.
// In the application proper the QApplication already exists and is used as it is.
void ensureApplication() {
    static std::once_flag once;
    std::call_once(once, [] {
        if (QCoreApplication::instance() != nullptr) {
            return;
        }
        static int argc = 1;
        static char name[] = "quillet";
        static char* argv[] = {name, nullptr};
        static QCoreApplication* application = new QCoreApplication(argc, argv);
        (void)application;
    });
}

// The interpreter's verdict on one evaluation. The stack trace, not the value, tells a thrown
// exception apart: a program may throw something that is not an Error (throw 5) or evaluate to an
// Error it never throws, while a syntax error still comes with a one-frame trace.
struct Evaluation {
    QJSValue value;
    bool threw = false;
};

Evaluation evaluate(QJSEngine& engine, const QString& program) {
    QStringList trace;
    Evaluation result;
    result.value = engine.evaluate(program, QString(), 1, &trace);
    result.threw = !trace.isEmpty();
    return result;
}

// Publishes the running engine to interrupt() for as long as it exists.
class StopHook {
public:
    StopHook(std::mutex& mutex, std::function<void()>& stop) : mutex_(mutex), stop_(stop) {}
    StopHook(const StopHook&) = delete;
    StopHook& operator=(const StopHook&) = delete;
    ~StopHook() {
        std::lock_guard lock(mutex_);
        stop_ = nullptr;
    }

private:
    std::mutex& mutex_;
    std::function<void()>& stop_;
};

} // namespace

void JavaScriptRun::interrupt() {
    std::lock_guard lock(mutex_);
    interrupted_ = true;
    if (stop_) {
        stop_();
    }
}

bool JavaScriptRun::interrupted() const {
    std::lock_guard lock(mutex_);
    return interrupted_;
}

std::optional<std::string> runJavaScript(std::string_view source, JavaScriptRun& run) {
    ensureApplication();
    QJSEngine engine;
    {
        std::lock_guard lock(run.mutex_);
        if (run.interrupted_) {
            return std::nullopt;
        }
        // setInterrupted is the one QJSEngine call that may come from another thread.
        run.stop_ = [&engine] { engine.setInterrupted(true); };
    }
    StopHook hook(run.mutex_, run.stop_);

    QString content = QString::fromUtf8(source.data(), static_cast<qsizetype>(source.size()));
    Evaluation result = evaluate(engine, content);
    if (result.threw && !run.interrupted()) {
        result = evaluate(engine,
                          QStringLiteral("(function () {\n") + content + QStringLiteral("\n})()"));
    }
    if (result.threw || result.value.isUndefined() || result.value.isNull()) {
        return std::nullopt;
    }
    // The conversion may run the program's own toString, which may loop too; and an interrupted
    // evaluation ends in an Error value of the interpreter's making, not the program's.
    std::string text = result.value.toString().toStdString();
    if (run.interrupted()) {
        return std::nullopt;
    }
    return text;
}

std::optional<std::string> runJavaScript(std::string_view source) {
    JavaScriptRun run;
    return runJavaScript(source, run);
}

} // namespace quillet
