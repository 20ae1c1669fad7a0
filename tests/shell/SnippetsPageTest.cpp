// The snippets page over a real store in a temporary folder, under the offscreen platform: what
// is typed and chosen reaches the library file, keys work as the page promises, an edit
// survives a change of the file underneath, and every control has a name to be announced.
#include "shell/SnippetsPage.h"

#include "library/LibraryFile.h"
#include "shell/Named.h"
#include "shell/QtScheduler.h"
#include "support/CoordinatorHarness.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QComboBox>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>
#include <QToolButton>
#include <gtest/gtest.h>

namespace quillet {
namespace {

using testing::named;

struct PageHarness : testing::CoordinatorHarness<QtScheduler> {
    PageHarness() {
        coordinator->store().setSnippets(
            {testing::snippet(";addr", "1 Main St"), testing::snippet(";sig", "Best, Ann")});
        page.show();
        page.activateWindow(); // shortcuts and focus need an active window
        EXPECT_TRUE(QTest::qWaitForWindowActive(&page));
    }
    std::vector<Snippet> onDisk() {
        return snippetsFromJsonText(testing::contentsOf(libraryFile())).snippets;
    }
    std::filesystem::path libraryFile() { return coordinator->store().location().libraryFile(); }
    // Waits until the file holds a snippet that passes check.
    bool written(const std::function<bool(const Snippet&)>& check) {
        return QTest::qWaitFor([&] {
            const auto all = onDisk();
            return std::any_of(all.begin(), all.end(), check);
        });
    }
    std::filesystem::path picture = temp / "photo.PNG";
    LibraryEditor editor{{coordinator->store(), preferences, coordinator->locked()}};
    SnippetsPage page{editor, [this] { return picture; }};
};

TEST(SnippetsPage, EveryFieldTypedOrChosenReachesTheFile) {
    PageHarness h;
    SnippetEditorPane& pane = h.page.editorPane();
    QTest::keyClick(&h.page.list(), Qt::Key_N, Qt::ControlModifier);
    ASSERT_TRUE(pane.abbreviation().hasFocus()) << "a new snippet starts at its abbreviation";
    QTest::keyClicks(&pane.abbreviation(), ";a");
    EXPECT_EQ(pane.warning().text(), "Typing ;addr will expand ;a first. Pick a different start.");
    QTest::keyClicks(&pane.abbreviation(), "ddress");
    EXPECT_TRUE(pane.warning().isHidden());
    QTest::keyClicks(&pane.content(), "At {date:tomorrow}{cursor}");
    ASSERT_TRUE(h.written([](const Snippet& s) {
        return s.abbreviation == ";address" && s.content == "At {date:tomorrow}{cursor}";
    })) << ::testing::PrintToString(testing::pairsOf(h.onDisk()));
    EXPECT_FALSE(pane.preview().text().contains("{")) << pane.preview().text().toStdString();

    pane.kind().setCurrentIndex(2); // shell
    EXPECT_EQ(named<QLabel>(pane, "Kind notice").text(), "Shell and AppleScript snippets are off.");
    pane.trigger().setCurrentIndex(3); // on Tab
    pane.scope().setCurrentIndex(2);   // except
    pane.markdown().setChecked(true);
    pane.apps().setText(" firefox ,gedit,");
    emit pane.apps().editingFinished();
    // The applications menu lists the windows open when it opens.
    pane.setRunningApplications([] { return std::vector<std::string>{"gedit", "kate"}; });
    QMenu* open = pane.addApplicationButton().menu();
    emit open->aboutToShow();
    ASSERT_EQ(open->actions().size(), 2);
    open->actions().back()->trigger();
    pane.sites().setText("Mail.Example.com/inbox, localhost");
    emit pane.sites().editingFinished();
    EXPECT_EQ(named<QLabel>(pane, "Websites problem").text(),
              "\u201Clocalhost\u201D isn't a web address, such as example.com.");
    EXPECT_EQ(pane.sites().text(), "Mail.Example.com/inbox, localhost") << "kept to be mended";
    pane.choosePictureButton().click();
    const Snippet stored = h.onDisk().back();
    EXPECT_EQ(stored.kind, Snippet::Kind::shell);
    EXPECT_EQ(stored.trigger, TriggerMode::tab);
    EXPECT_EQ(stored.scope, Snippet::Scope::except);
    EXPECT_TRUE(stored.markdown);
    EXPECT_EQ(stored.apps, (std::vector<std::string>{"firefox", "gedit", "kate"}));
    EXPECT_EQ(stored.sites, std::vector<std::string>{"mail.example.com"});
    EXPECT_EQ(stored.image, std::nullopt) << "the picture file does not exist";
    EXPECT_TRUE(pane.problem().text().startsWith("Couldn't copy the picture"));
    QImage photo(40, 20, QImage::Format_RGB32);
    photo.fill(Qt::red);
    ASSERT_TRUE(photo.save(QString::fromStdString(h.picture.string()), "PNG"));
    pane.choosePictureButton().click();
    EXPECT_EQ(pane.picture().pixmap().width(), 120) << "shown, scaled to fit";
    ASSERT_TRUE(h.onDisk().back().image);
    EXPECT_TRUE(h.onDisk().back().image->ends_with(".png"));
    EXPECT_TRUE(std::filesystem::exists(h.coordinator->store().location().imagesFolder() /
                                        *h.onDisk().back().image));

    pane.locked().setChecked(true);
    EXPECT_EQ(h.onDisk().back().content, "") << "the locked text left the file";
    EXPECT_TRUE(pane.content().isReadOnly());

    // Every control can be reached by name.
    for (QWidget* w : h.page.findChildren<QWidget*>()) {
        if (w->focusPolicy() != Qt::NoFocus && w->isVisible() &&
            (qobject_cast<QAbstractButton*>(w) || qobject_cast<QLineEdit*>(w) ||
             qobject_cast<QComboBox*>(w) || qobject_cast<QPlainTextEdit*>(w) ||
             qobject_cast<QListView*>(w))) {
            EXPECT_FALSE(w->accessibleName().isEmpty()) << w->metaObject()->className();
        }
    }
}

TEST(SnippetsPage, KeysSearchDeleteUndoAndAnEditSurvivesAChangeUnderneath) {
    PageHarness h;
    QListView& list = h.page.list();
    list.setFocus();
    QTest::keyClicks(&list, "main");
    EXPECT_EQ(h.page.search().text(), "main") << "typing in the list searches";
    EXPECT_EQ(list.model()->rowCount(), 1);
    h.page.search().clear();
    QTest::keyClick(&h.page.search(), Qt::Key_Down);
    EXPECT_EQ(h.page.editorPane().abbreviation().text(), ";sig");

    QTest::keyClick(&list, Qt::Key_Delete);
    EXPECT_EQ(testing::pairsOf(h.onDisk()), (testing::Pairs{{";addr", "1 Main St"}}));
    EXPECT_EQ(h.page.undoText().text(), "Deleted.");
    QTest::keyClick(&list, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(testing::pairsOf(h.onDisk()),
              (testing::Pairs{{";addr", "1 Main St"}, {";sig", "Best, Ann"}}));
    EXPECT_EQ(h.page.editorPane().abbreviation().text(), ";sig") << "chosen again";

    // Typed but not yet saved when the command-line tool adds a snippet.
    QPlainTextEdit& content = h.page.editorPane().content();
    content.moveCursor(QTextCursor::End);
    QTest::keyClicks(&content, " and Bo");
    std::vector<Snippet> theirs = h.onDisk();
    theirs.push_back(testing::snippet(";cli", "from the terminal"));
    testing::writeText(h.libraryFile(), encodeLibrary(theirs));
    h.coordinator->store().reload();
    h.page.refresh();
    EXPECT_EQ(content.toPlainText(), "Best, Ann and Bo");
    EXPECT_EQ(testing::pairsOf(h.onDisk()), (testing::Pairs{{";addr", "1 Main St"},
                                                            {";sig", "Best, Ann and Bo"},
                                                            {";cli", "from the terminal"}}));
    EXPECT_EQ(list.model()->rowCount(), 3);

    h.page.duplicate();
    EXPECT_EQ(h.page.editorPane().abbreviation().text(), ";sig2");
    h.page.toggleArchived();
    EXPECT_EQ(list.model()->rowCount(), 3) << "archived snippets are hidden";
    h.page.showArchived().setChecked(true);
    EXPECT_EQ(list.model()->rowCount(), 4);
}

} // namespace
} // namespace quillet
