// The main window over a real store and settings, under the offscreen platform: its pages are
// reached by keys, a snippet chosen in the overview opens in the editor, a starter set added in
// the collections shows in the list, and every control of every page has a name.
#include "shell/MainWindow.h"

#include "shell/Named.h"
#include "shell/QtScheduler.h"
#include "support/CoordinatorHarness.h"

#include <QAbstractButton>
#include <QComboBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>
#include <gtest/gtest.h>

namespace quillet {
namespace {

TEST(MainWindow, PagesWorkTogetherAndEveryControlHasAName) {
    testing::CoordinatorHarness<QtScheduler> h;
    SnippetStore& store = h.coordinator->store();
    ASSERT_TRUE(store.setSnippets({testing::snippet(";addr", "1 Main St")}));
    Usage usage;
    usage.record(store.snippets()[0].id, 9, Date::now());
    Settings settings(h.preferences, store);
    LibraryEditor library({store, h.preferences, h.coordinator->locked()});
    Overview overview([&]() -> const std::vector<Snippet>& { return store.snippets(); },
                      [&] { return &usage; });
    ImportExport transfer(store, h.folders);
    MainWindow window({library, settings, overview, transfer, h.coordinator.get()});
    window.open(MainWindow::Page::settings);
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));

    QTest::keyClick(&window, Qt::Key_2, Qt::ControlModifier);
    EXPECT_EQ(window.pages().currentRow(), 1);
    QListWidget& mostUsed = window.overviewPage().mostUsed();
    ASSERT_EQ(mostUsed.count(), 1);
    EXPECT_TRUE(window.overviewPage().suggestion().isHidden());
    mostUsed.setCurrentRow(0);
    emit mostUsed.itemActivated(mostUsed.item(0));
    EXPECT_EQ(window.pages().currentRow(), 0);
    EXPECT_EQ(window.snippetsPage().editorPane().abbreviation().text(), ";addr");

    QTest::keyClick(&window, Qt::Key_3, Qt::ControlModifier);
    QPushButton& add = *window.collectionsPage().addButtons()[1]; // Sales
    add.click();
    EXPECT_EQ(window.collectionsPage().result().text(), "Added 4 snippets.");
    EXPECT_FALSE(add.isEnabled());
    EXPECT_EQ(window.snippetsPage().list().model()->rowCount(), 5);

    for (int page = 0; page < window.pages().count(); ++page) {
        window.pages().setCurrentRow(page);
        for (QWidget* w : window.findChildren<QWidget*>()) {
            if (w->isVisible() && w->focusPolicy() != Qt::NoFocus &&
                (qobject_cast<QAbstractButton*>(w) || qobject_cast<QLineEdit*>(w) ||
                 qobject_cast<QComboBox*>(w) || qobject_cast<QPlainTextEdit*>(w) ||
                 qobject_cast<QListView*>(w))) {
                EXPECT_FALSE(w->accessibleName().isEmpty())
                    << page << " " << w->metaObject()->className() << " "
                    << w->property("text").toString().toStdString();
            }
        }
    }
}

} // namespace
} // namespace quillet
