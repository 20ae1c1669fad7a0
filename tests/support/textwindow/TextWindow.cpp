// A text window for end-to-end tests and the demo: an editor that reports what it holds, as a
// user would see it. Commands arrive on standard input, one per line; every answer and every
// change of the text is one line on standard output:
//   ready <window id>           once the window is shown and has the focus
//   changed <ns> <json text>    after each change, with the steady clock's time in nanoseconds
//   html <json>                 answer to "html"
//   ok                          answer to "clear" and "focus"
//   ok | failed                 answer to "grab <file>", which saves the window as it is on
//                               screen, the window manager's frame included, as PNG
// Options: --class NAME sets the window's WM_CLASS class; --terminal makes it behave as a
// terminal: Control+Shift+V pastes plain text and Control+V types the marker "<ctrl+v>";
// --password makes it a password field (a one-line field that shows dots).
#include <QApplication>
#include <QBuffer>
#include <QClipboard>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMimeData>
#include <QPixmap>
#include <QScreen>
#include <QSocketNotifier>
#include <QTextEdit>
#include <QTimer>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <string>
#include <unistd.h>

namespace {

void say(const std::string& line) {
    std::cout << line << '\n' << std::flush;
}

std::string json(const QString& text) {
    const QByteArray doc = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return doc.mid(1, doc.size() - 2).toStdString(); // the array's single element
}

class Editor final : public QTextEdit {
public:
    explicit Editor(bool terminal) : terminal_(terminal) {}

protected:
    void keyPressEvent(QKeyEvent* event) override {
        const bool control = (event->modifiers() & Qt::ControlModifier) != 0;
        const bool shift = (event->modifiers() & Qt::ShiftModifier) != 0;
        if (terminal_ && control && event->key() == Qt::Key_V) {
            if (shift) {
                insertPlainText(QApplication::clipboard()->text());
            } else {
                insertPlainText("<ctrl+v>");
            }
            return;
        }
        QTextEdit::keyPressEvent(event);
    }

    bool canInsertFromMimeData(const QMimeData* source) const override {
        return source->hasImage() || QTextEdit::canInsertFromMimeData(source);
    }

    void insertFromMimeData(const QMimeData* source) override {
        if (source->hasImage()) {
            const QImage image = qvariant_cast<QImage>(source->imageData());
            insertPlainText(QString("[image %1x%2]").arg(image.width()).arg(image.height()));
            return;
        }
        QTextEdit::insertFromMimeData(source);
    }

private:
    bool terminal_;
};

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QString windowClass = "QuilletTextWindow";
    bool terminal = false;
    bool password = false;
    const QStringList args = app.arguments();
    for (int i = 1; i < args.size(); ++i) {
        if (args[i] == "--class" && i + 1 < args.size()) {
            windowClass = args[++i];
        } else if (args[i] == "--terminal") {
            terminal = true;
        } else if (args[i] == "--password") {
            password = true;
        }
    }

    Editor text(terminal);
    QLineEdit field;
    field.setEchoMode(QLineEdit::Password);
    QWidget& editor = password ? static_cast<QWidget&>(field) : text;
    auto plain = [&] { return password ? field.text() : text.toPlainText(); };
    editor.setWindowTitle("Quillet test window");
    editor.resize(600, password ? 40 : 400);
    const WId id = editor.winId();
    if (auto* x11 = app.nativeInterface<QNativeInterface::QX11Application>()) {
        const QByteArray name = windowClass.toLower().toUtf8();
        const QByteArray klass = windowClass.toUtf8();
        XClassHint hint{const_cast<char*>(name.constData()), const_cast<char*>(klass.constData())};
        XSetClassHint(x11->display(), static_cast<Window>(id), &hint);
        XFlush(x11->display());
    }
    auto changed = [&plain] {
        const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(
                            std::chrono::steady_clock::now().time_since_epoch())
                            .count();
        say("changed " + std::to_string(ns) + " " + json(plain()));
    };
    QObject::connect(&text, &QTextEdit::textChanged, changed);
    QObject::connect(&field, &QLineEdit::textChanged, changed);

    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    std::string pending;
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char buffer[4096];
        const ssize_t n = read(STDIN_FILENO, buffer, sizeof buffer);
        if (n <= 0) {
            app.quit();
            return;
        }
        pending.append(buffer, static_cast<std::size_t>(n));
        for (std::size_t end; (end = pending.find('\n')) != std::string::npos;) {
            const std::string command = pending.substr(0, end);
            pending.erase(0, end + 1);
            if (command == "html") {
                say("html " + json(text.toHtml()));
            } else if (command == "clear") {
                text.clear();
                field.clear();
                say("ok");
            } else if (command == "focus") {
                editor.activateWindow();
                editor.raise();
                editor.setFocus();
                // Answer once the window manager has really made it the active window.
                auto* wait = new QTimer(&editor);
                QObject::connect(wait, &QTimer::timeout, [&editor, wait] {
                    if (editor.isActiveWindow() && editor.hasFocus()) {
                        wait->deleteLater();
                        wait->stop();
                        say("ok");
                    }
                });
                wait->start(10);
            } else if (command.starts_with("grab ")) {
                const QRect frame = editor.frameGeometry();
                const QPixmap shot = editor.screen()->grabWindow(0, frame.x(), frame.y(),
                                                                 frame.width(), frame.height());
                say(shot.save(QString::fromStdString(command.substr(5)), "PNG") ? "ok" : "failed");
            } else if (command == "quit") {
                app.quit();
            }
        }
    });

    editor.show();
    editor.activateWindow();
    editor.setFocus();
    // Ready once the window really has the keyboard focus, so no key typed after is lost.
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (editor.hasFocus() && editor.isActiveWindow()) {
            poll.stop();
            say("ready " + std::to_string(id));
        } else {
            editor.activateWindow();
        }
    });
    poll.start(20);
    return app.exec();
}
