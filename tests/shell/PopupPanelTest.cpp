#include "shell/PopupPanel.h"

#include "platform/fake/FakeCaret.h"
#include "platform/fake/FakeMatchPopup.h"

#include <QGuiApplication>
#include <QScreen>
#include <QTreeWidget>
#include <gtest/gtest.h>

namespace quillet {
namespace {

// A caret whose answer comes when the test says, as the accessibility thread's does.
struct LateCaret final : Caret {
    void locate(Found found) override { waiting.push_back(std::move(found)); }
    std::vector<Found> waiting;
};

std::vector<Matcher::Match> candidates() {
    return {{";addr", "1 Main Street\nSpringfield", "", 3, std::nullopt},
            {";add", "Add", "", 3, std::nullopt}};
}

QTreeWidget* listOf(const PopupPanel& panel) {
    return panel.window()->findChild<QTreeWidget*>();
}

TEST(PopupPanel, ShowsEveryCandidateNextToTheCaretWithoutTakingTheFocus) {
    FakeCaret caret;
    PopupPanel panel([&caret] { return &caret; });
    const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
    caret.at = ScreenRect{screen.x() + 100, screen.y() + 300, 2, 16};
    std::vector<bool> shown;
    panel.show(candidates(), [&](bool visible) { shown.push_back(visible); });

    EXPECT_EQ(shown, std::vector<bool>{true});
    QWidget* window = panel.window();
    ASSERT_TRUE(window->isVisible());
    EXPECT_TRUE(window->testAttribute(Qt::WA_ShowWithoutActivating));
    EXPECT_TRUE(window->windowFlags() & Qt::WindowDoesNotAcceptFocus);
    EXPECT_EQ(window->pos(),
              QPoint(screen.x() + 100, screen.y() + 300 - PopupPanel::gap - window->height()));
    QTreeWidget* list = listOf(panel);
    ASSERT_EQ(list->topLevelItemCount(), 2);
    EXPECT_EQ(list->topLevelItem(0)->text(0), ";addr");
    EXPECT_EQ(list->topLevelItem(0)->text(1), "1 Main Street Springfield") << "one line";
    EXPECT_EQ(list->currentItem(), list->topLevelItem(0));
    panel.select(1);
    EXPECT_EQ(list->currentItem(), list->topLevelItem(1));
    panel.hide();
    EXPECT_FALSE(window->isVisible());

    // Near the top of the screen it goes below the caret line.
    caret.at = ScreenRect{screen.x() + 100, screen.y() + 2, 2, 16};
    panel.show(candidates(), {});
    EXPECT_EQ(window->y(), std::max(screen.y() + 18 + PopupPanel::gap, screen.y() + 8));
}

TEST(PopupPanel, NoCaretNoPanelAndALateAnswerForAnOlderListIsDropped) {
    FakeCaret none;
    PopupPanel blind([&none] { return &none; });
    std::vector<bool> shown;
    blind.show(candidates(), [&](bool visible) { shown.push_back(visible); });
    EXPECT_EQ(shown, std::vector<bool>{false});
    EXPECT_FALSE(blind.window()->isVisible());

    PopupPanel noDesktop([] { return nullptr; });
    noDesktop.show(candidates(), [&](bool visible) { shown.push_back(visible); });
    EXPECT_EQ(shown, (std::vector<bool>{false, false}));

    LateCaret late;
    PopupPanel panel([&late] { return &late; });
    shown.clear();
    panel.show(candidates(), [&](bool visible) { shown.push_back(visible); });
    panel.hide(); // typed on before the caret was found
    late.waiting.at(0)(ScreenRect{100, 300, 2, 16});
    EXPECT_TRUE(shown.empty());
    EXPECT_FALSE(panel.window()->isVisible());
}

} // namespace
} // namespace quillet
