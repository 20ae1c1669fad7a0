// The unlock dialog as PAM's prompt, on a real PAM stack (pam_wrapper with pam_matrix, set up by
// ctest): the authentication runs on a thread of its own, as the engine runs it, and the dialog
// on the GUI thread, where the test answers it with real key presses. Offscreen.
#include "shell/UnlockDialog.h"

#include "platform/linux/PamOwnerAuth.h"
#include "support/TempFolder.h"

#include <QApplication>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QTest>
#include <QTimer>
#include <future>
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

namespace quillet {
namespace {

TEST(UnlockDialog, ThePasswordTypedInItUnlocksAndCancellingRefuses) {
    ASSERT_TRUE(std::getenv("PAM_WRAPPER") && std::getenv("PAM_WRAPPER_SERVICE_DIR"))
        << "pam_wrapper is not loaded; run this test through ctest";
    testing::TempFolder temp;
    testing::writeText(temp / "passdb",
                       std::string(::getpwuid(::getuid())->pw_name) + ":s3cret:quillet\n");
    ::setenv("PAM_MATRIX_PASSWD", (temp / "passdb").c_str(), 1);
    PamOwnerAuth::Options options;
    options.serviceFolders = {std::getenv("PAM_WRAPPER_SERVICE_DIR")};

    const struct {
        const char* typed; // nullptr: Escape
        AuthResult::Outcome outcome;
    } cases[] = {
        {"s3cret", AuthResult::Outcome::ok},
        {"wrong", AuthResult::Outcome::refused},
        {nullptr, AuthResult::Outcome::refused},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.typed ? c.typed : "Escape");
        // The dialog runs its own loop on this thread: it is answered from a timer inside it.
        QString reason;
        QLineEdit::EchoMode echo = QLineEdit::Normal;
        QTimer answer;
        QObject::connect(&answer, &QTimer::timeout, [&] {
            QWidget* dialog = nullptr;
            for (QWidget* window : QApplication::topLevelWidgets()) {
                if (qobject_cast<QDialog*>(window) != nullptr && window->isVisible()) {
                    dialog = window;
                }
            }
            if (dialog == nullptr) {
                return;
            }
            answer.stop();
            reason = dialog->findChildren<QLabel*>().first()->text();
            auto* field = dialog->findChild<QLineEdit*>();
            echo = field->echoMode();
            if (c.typed != nullptr) {
                QTest::keyClicks(field, c.typed);
                if (const char* folder = std::getenv("QUILLET_SCREENSHOTS");
                    folder && c.outcome == AuthResult::Outcome::ok) {
                    dialog->grab().save(QString(folder) + "/unlock.png");
                }
                QTest::keyClick(field, Qt::Key_Return);
            } else {
                QTest::keyClick(field, Qt::Key_Escape);
            }
        });
        answer.start(10);
        auto result = std::async(std::launch::async, [&] {
            return PamOwnerAuth(UnlockDialog::prompt(), options)
                .authenticate("paste \u201c;bank\u201d");
        });
        // The answer travels back to the authenticating thread while this one runs the loop.
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready; },
            10000));
        EXPECT_EQ(result.get().outcome, c.outcome);
        EXPECT_EQ(reason, "Quillet needs your password to paste \u201c;bank\u201d.");
        EXPECT_EQ(echo, QLineEdit::Password);
    }
}

} // namespace
} // namespace quillet
