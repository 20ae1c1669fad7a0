#include "shell/FormPanel.h"

#include <QApplication>
#include <QListWidget>
#include <QPointer>
#include <QTest>
#include <gtest/gtest.h>

namespace quillet {
namespace {

const std::vector<Tokens::Field> fields{
    {"Name", {}},
    {"Day", {"Monday", "Tuesday"}},
    {"Time", {"#Morning", "9:00", "10:00", "#Afternoon", "14:00"}},
};

// A panel that is shown and active, and every answer it gives.
struct Asked {
    std::vector<std::optional<Expansion::Values>> answers;
    QPointer<FormPanel> panel;

    Asked() {
        panel = FormPanel::ask(fields, [this](auto values) { answers.push_back(values); });
        EXPECT_TRUE(QTest::qWaitForWindowActive(panel));
    }

    void keys(std::initializer_list<Qt::Key> keys) {
        for (Qt::Key key : keys) {
            QTest::keyClick(QApplication::focusWidget(), key);
        }
    }

    // The answers once the panel has had the chance to delete itself, which it must have.
    const std::vector<std::optional<Expansion::Values>>& final() {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        EXPECT_TRUE(panel.isNull());
        return answers;
    }
};

TEST(FormPanel, KeysFillTheFieldsAndReturnAnswersOnce) {
    Asked asked;
    QTest::keyClicks(QApplication::focusWidget(), "Ann");
    asked.keys({Qt::Key_Tab, Qt::Key_Down, Qt::Key_Down, Qt::Key_Tab, Qt::Key_Down, Qt::Key_Down,
                Qt::Key_1, Qt::Key_Return});
    EXPECT_EQ(asked.final(), (std::vector<std::optional<Expansion::Values>>{Expansion::Values{
                                 {"Name", "Ann"}, {"Day", "Tuesday"}, {"Time", "14:00"}}}));
}

TEST(FormPanel, ClickPicksAnOptionButNeverAHeading) {
    Asked asked;
    auto* time = asked.panel->findChildren<QListWidget*>().at(1);
    for (int line : {3, 2, 0}) {
        QTest::mouseClick(time->viewport(), Qt::LeftButton, {},
                          time->visualItemRect(time->item(line)).center());
    }
    asked.keys({Qt::Key_Return});
    EXPECT_EQ(asked.final().at(0)->at("Time"), "10:00");
}

TEST(FormPanel, EscapeOrClosingCancelsOnce) {
    for (bool escape : {true, false}) {
        Asked asked;
        QTest::keyClicks(QApplication::focusWidget(), "Ann");
        escape ? asked.keys({Qt::Key_Escape}) : void(asked.panel->close());
        EXPECT_EQ(asked.final(), (std::vector<std::optional<Expansion::Values>>{std::nullopt}));
    }
}

} // namespace
} // namespace quillet
