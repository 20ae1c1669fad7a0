// Saves a picture of a panel or window: PanelScreenshot
// form|popup|picker|snippets|editor|overview|collections|import|settings OUT.png
// [--dark].
// Under the offscreen platform the picture is the panel's content, without a window frame.
#include "library/JsonPreferences.h"
#include "platform/fake/FakeCaret.h"
#include "platform/fake/FakeFileWatcher.h"
#include "platform/fake/FakeMatchPopup.h"
#include "platform/fake/FakeOwnerAuth.h"
#include "platform/fake/FakeSecretStore.h"
#include "shell/Appearance.h"
#include "shell/FormPanel.h"
#include "shell/MainWindow.h"
#include "shell/PickerWindow.h"
#include "shell/PopupPanel.h"
#include "shell/QtScheduler.h"
#include "transfer/SharedFolder.h"

#include <QApplication>
#include <QColor>
#include <QFont>
#include <QImage>
#include <QLineEdit>
#include <QPainter>
#include <QTemporaryDir>
#include <QTimer>
#include <cstdio>
#include <fstream>
#include <map>

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(
            stderr,
            "usage: %s form|popup|picker|snippets|editor|overview|collections|import|settings "
            "OUT.png [--dark]\n",
            argv[0]);
        return 2;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    // The colours the application itself uses for "light" and "dark".
    quillet::Appearance appearance(app);
    const bool dark = argc > 3 && QString::fromUtf8(argv[3]) == QStringLiteral("--dark");
    appearance.apply(dark ? "dark" : "light");
    const QString what = QString::fromUtf8(argv[1]);
    const QString out = QString::fromUtf8(argv[2]);

    QWidget* shown = nullptr;
    quillet::FakeCaret caret;
    caret.at = quillet::ScreenRect{200, 300, 2, 16};
    quillet::PopupPanel popup([&caret] { return &caret; });
    if (what == QStringLiteral("popup")) {
        popup.show(
            {{";addr", "1 Main Street, Springfield", "", 3, std::nullopt},
             {";add", "Please find the address below.", "", 3, std::nullopt},
             {";adv", "Advance notice: the office is closed on Friday.", "", 3, std::nullopt}},
            {});
        popup.select(1);
        shown = popup.window();
    } else if (what == QStringLiteral("picker")) {
        std::vector<quillet::Snippet> library;
        for (auto [abbreviation, content] : std::vector<std::pair<const char*, const char*>>{
                 {";addr", "1 Main Street, Springfield"},
                 {";sig", "Best regards,\nAnn Baker"},
                 {";mtg", "Meeting notes for {date}: attendees, decisions, next steps"},
                 {"", "Kind regards, Ann"},
                 {";tfyqr", "Thanks for your quick reply!"}}) {
            quillet::Snippet s = quillet::Snippet::make();
            s.abbreviation = abbreviation;
            s.content = content;
            library.push_back(std::move(s));
        }
        auto* picker = quillet::PickerWindow::pick(
            std::make_shared<const std::vector<quillet::Snippet>>(std::move(library)), {},
            [](auto) {});
        picker->field()->setText(QStringLiteral("re"));
        shown = picker;
    }
    // The main window, over the library and settings of a temporary home with a team folder;
    // all of it lives until the picture is taken.
    QTemporaryDir home;
    std::unique_ptr<quillet::JsonFilePreferences> preferences;
    quillet::QtScheduler scheduler;
    quillet::FakeFileWatcher watcher;
    quillet::FakeSecretStore secrets;
    quillet::FakeOwnerAuth auth;
    quillet::LockedSnippets locked(secrets, auth);
    std::unique_ptr<quillet::SnippetStore> store;
    std::unique_ptr<quillet::Settings> settings;
    std::unique_ptr<quillet::LibraryEditor> library;
    quillet::Usage usage;
    std::unique_ptr<quillet::Overview> overview;
    std::unique_ptr<quillet::ImportExport> transfer;
    std::unique_ptr<quillet::MainWindow> window;
    const std::map<QString, quillet::MainWindow::Page> pages = {
        {QStringLiteral("snippets"), quillet::MainWindow::Page::snippets},
        {QStringLiteral("editor"), quillet::MainWindow::Page::snippets},
        {QStringLiteral("overview"), quillet::MainWindow::Page::overview},
        {QStringLiteral("collections"), quillet::MainWindow::Page::collections},
        {QStringLiteral("import"), quillet::MainWindow::Page::transfer},
        {QStringLiteral("settings"), quillet::MainWindow::Page::settings}};
    if (pages.contains(what)) {
        const std::filesystem::path root = home.path().toStdString();
        std::filesystem::create_directories(root / "team");
        std::ofstream(root / "team" / "team.csv") << ";team,Team text\n;keys,{key:enter}\n";
        std::ofstream(root / "settings.json")
            << R"({"typo.common": true, "typo.symbols": true, "suggestions": true, )"
            << R"("sharedFolders": [")" << (root / "team").string() << R"("]})";
        preferences = std::make_unique<quillet::JsonFilePreferences>(root / "settings.json");
        store = std::make_unique<quillet::SnippetStore>(*preferences, watcher, scheduler,
                                                        quillet::Folders::forHome(root, "", ""),
                                                        &quillet::SharedFolder::load);
        std::vector<quillet::Snippet> list;
        auto add = [&list](const char* abbreviation, const char* content,
                           const std::function<void(quillet::Snippet&)>& change = {}) {
            quillet::Snippet s = quillet::Snippet::make();
            s.abbreviation = abbreviation;
            s.content = content;
            if (change) {
                change(s);
            }
            list.push_back(std::move(s));
        };
        add(";addr", "1 Main Street, Springfield");
        add(";sig", "Best regards,\nAnn Baker");
        add(";mtg",
            "Meeting notes for {date}\n\nWith {field:Client}, about {choice:Topic="
            "Budget|Hiring|Roadmap}.\n{cursor}",
            [](quillet::Snippet& s) {
                s.scope = quillet::Snippet::Scope::only;
                s.apps = {"thunderbird", "gedit"};
                s.trigger = quillet::TriggerMode::delimiter;
            });
        add(";pin", "", [](quillet::Snippet& s) { s.locked = true; });
        add(";week", "return 'Week ' + 48;",
            [](quillet::Snippet& s) { s.kind = quillet::Snippet::Kind::javascript; });
        add(";old", "Our old address", [](quillet::Snippet& s) { s.archived = true; });
        add(";sale",
            "**Spring sale:** _20% off_ until {date+14d}, see [our shop](https://example.com)",
            [](quillet::Snippet& s) {
                s.markdown = true;
                s.image = "sale.png";
            });
        store->setSnippets(std::move(list));
        {
            QImage picture(240, 160, QImage::Format_RGB32);
            picture.fill(QColor(0x2e, 0x7d, 0x32));
            QPainter paint(&picture);
            paint.setPen(Qt::white);
            paint.setFont(QFont(QStringLiteral("Sans"), 28, QFont::Bold));
            paint.drawText(picture.rect(), Qt::AlignCenter, QStringLiteral("SALE"));
            std::filesystem::create_directories(store->location().imagesFolder());
            picture.save(
                QString::fromStdString((store->location().imagesFolder() / "sale.png").string()));
        }
        // A few weeks of use: the overview's figures and lists.
        const quillet::Date now = quillet::Date::now();
        for (std::size_t i = 0; i < 3; ++i) {
            for (std::size_t n = 40 / (i + 1); n > 0; --n) { // the latest last
                usage.record(store->snippets()[i].id, 25,
                             quillet::Date{now.seconds - double(n + i) * 3600 * 9});
            }
        }
        usage.seed({store->snippets()[4].id}, quillet::Date{now.seconds - 200 * 86400.0});
        settings = std::make_unique<quillet::Settings>(*preferences, *store);
        library = std::make_unique<quillet::LibraryEditor>(
            quillet::LibraryEditor::Parts{*store, *preferences, locked});
        transfer = std::make_unique<quillet::ImportExport>(*store,
                                                           quillet::Folders::forHome(root, "", ""));
        overview = std::make_unique<quillet::Overview>(
            [&store]() -> const std::vector<quillet::Snippet>& { return store->snippets(); },
            [&usage] { return &usage; });
        window = std::make_unique<quillet::MainWindow>(
            quillet::MainWindow::Parts{*library, *settings, *overview, *transfer, nullptr});
        if (what == QStringLiteral("snippets")) {
            window->snippetsPage().select(store->snippets()[2].id);
        } else if (what == QStringLiteral("editor")) {
            window->snippetsPage().select(store->snippets().back().id);
        }
        window->open(pages.at(what));
        window->resize(1000, 700);
        if (what == QStringLiteral("settings")) {
            window->resize(860, window->settingsPage().sizeHint().height() + 8); // unscrolled
        }
        shown = window.get();
    } else if (what == QStringLiteral("form")) {
        const std::vector<quillet::Tokens::Field> fields{
            {"Client", {}},
            {"Meeting slot", {"#Morning", "9:00", "10:30", "#Afternoon", "14:00", "16:30"}},
            {"Signed", {"Ann Baker"}},
        };
        shown = quillet::FormPanel::ask(fields, [](auto) {});
    } else if (shown == nullptr) {
        std::fprintf(stderr, "no panel called %s\n", argv[1]);
        return 2;
    }
    int status = 1;
    QTimer::singleShot(100, [&] {
        status = shown->grab().save(out) ? 0 : 1;
        QApplication::quit();
    });
    QApplication::exec();
    return status;
}
