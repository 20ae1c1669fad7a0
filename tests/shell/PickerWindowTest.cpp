#include "shell/PickerWindow.h"

#include "support/Snippets.h"

#include <QApplication>
#include <QLineEdit>
#include <QPointer>
#include <QTest>
#include <QTreeWidget>
#include <gtest/gtest.h>

namespace quillet {
namespace {

using testing::snippet;

// A picker over a small library, with every answer it gave.
struct Picking {
    SnippetList library = std::make_shared<const std::vector<Snippet>>(
        std::vector<Snippet>{snippet(";addr", "1 Main Street"), snippet(";sig", "Best regards"),
                             snippet(";mtg", "Meeting on Main Street")});
    std::vector<std::optional<Uuid>> answers;
    QPointer<PickerWindow> window;

    Picking() {
        Usage usage;
        usage.record((*library)[2].id, 4, Date::now());
        window = PickerWindow::pick(library, usage, [this](auto id) { answers.push_back(id); });
        EXPECT_TRUE(QTest::qWaitForWindowActive(window));
    }

    std::vector<QString> listed() const {
        std::vector<QString> out;
        for (int i = 0; i < window->list()->topLevelItemCount(); ++i) {
            out.push_back(window->list()->topLevelItem(i)->text(0));
        }
        return out;
    }

    const std::vector<std::optional<Uuid>>& final() {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        EXPECT_TRUE(window.isNull());
        return answers;
    }
};

TEST(PickerWindow, TypingNarrowsTheListAndReturnPicksTheSelectedOne) {
    Picking p;
    EXPECT_EQ(p.listed(), (std::vector<QString>{";mtg", ";addr", ";sig"})) << "most used first";
    EXPECT_TRUE(p.window->field()->hasFocus());
    QTest::keyClicks(p.window->field(), "main st");
    EXPECT_EQ(p.listed(), (std::vector<QString>{";mtg", ";addr"}));
    QTest::keyClick(p.window->field(), Qt::Key_Down);
    QTest::keyClick(p.window->field(), Qt::Key_Down);
    QTest::keyClick(p.window->field(), Qt::Key_Up); // wraps: the second again
    QTest::keyClick(p.window->field(), Qt::Key_Return);
    EXPECT_EQ(p.final(), (std::vector<std::optional<Uuid>>{(*p.library)[0].id}));
}

TEST(PickerWindow, EscapeClosingOrNothingFoundGiveNothing) {
    for (bool escape : {true, false}) {
        Picking p;
        escape ? QTest::keyClick(p.window->field(), Qt::Key_Escape) : void(p.window->close());
        EXPECT_EQ(p.final(), (std::vector<std::optional<Uuid>>{std::nullopt}));
    }
    Picking p;
    QTest::keyClicks(p.window->field(), "zzz");
    QTest::keyClick(p.window->field(), Qt::Key_Return); // nothing to pick: stays open
    EXPECT_TRUE(p.answers.empty());
    EXPECT_FALSE(p.window.isNull());
    delete p.window;
    EXPECT_EQ(p.answers, (std::vector<std::optional<Uuid>>{std::nullopt}));
}

} // namespace
} // namespace quillet
