// The import and export page over a real store in a temporary folder, under the offscreen
// platform, with the file dialogs and the warning answered by the test.
#include "shell/ImportPage.h"

#include "library/LibraryFile.h"
#include "shell/Named.h"
#include "shell/QtScheduler.h"
#include "support/CoordinatorHarness.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <gtest/gtest.h>

namespace quillet {
namespace {

using testing::named;
using testing::pairsOf;

struct PageHarness : testing::CoordinatorHarness<QtScheduler> {
    PageHarness() {
        coordinator->store().setSnippets({testing::snippet(";a", "x")});
        page.show();
    }
    testing::Pairs onDisk() {
        return pairsOf(readLibrary(coordinator->store().location().libraryFile()).snippets);
    }
    // Clicks the button and waits for the read it starts to end.
    void readWith(QPushButton& button) {
        button.click();
        EXPECT_TRUE(page.busy());
        EXPECT_FALSE(button.isEnabled());
        EXPECT_TRUE(page.progress().isVisible());
        EXPECT_TRUE(QTest::qWaitFor([&] { return !page.busy(); }));
        EXPECT_TRUE(button.isEnabled());
        EXPECT_FALSE(page.progress().isVisible());
    }

    std::filesystem::path chosen, proposed;
    bool trusted = false;
    std::vector<std::string> warnings;
    int imported = 0;
    ImportExport model{coordinator->store(), folders};
    ImportPage page{model,
                    [this] { ++imported; },
                    {[this] { return chosen; },
                     [this](const std::filesystem::path& offered) {
                         proposed = offered;
                         return chosen;
                     },
                     [this](const Transfer::Warning& warning) {
                         warnings.push_back(warning.title);
                         return trusted;
                     }}};
};

TEST(ImportPage, RiskySnippetsComeInOnlyOnceTrustedAndTheReportIsShown) {
    PageHarness h;
    h.chosen = h.temp / "risky.csv";
    testing::writeText(h.chosen, "k,a{key:tab}b\nn,plain\na,again\n");
    h.readWith(h.page.importButton());
    ASSERT_EQ(h.warnings.size(), 1u);
    EXPECT_EQ(h.onDisk(), (testing::Pairs{{";a", "x"}}));
    EXPECT_EQ(h.imported, 0);
    EXPECT_FALSE(h.page.report().isVisible());

    h.trusted = true;
    h.readWith(h.page.importButton());
    EXPECT_EQ(h.warnings.size(), 2u);
    EXPECT_EQ(h.onDisk(), (testing::Pairs{{";a", "x"}, {";k", "a{key:tab}b"}, {";n", "plain"}}));
    EXPECT_EQ(h.imported, 1);
    ASSERT_TRUE(h.page.report().isVisible());
    EXPECT_TRUE(h.page.report().toPlainText().startsWith(
        "Added 2 snippets. Left out:\n\u2022 ;a: you already have one."))
        << h.page.report().toPlainText().toStdString();

    // A file that cannot be read says why, and adds nothing.
    h.chosen = h.temp / "missing.csv";
    h.readWith(h.page.importButton());
    EXPECT_TRUE(h.page.importProblem().isVisible());
    EXPECT_TRUE(h.page.importProblem().text().startsWith("Couldn't read the file: "));
    EXPECT_FALSE(h.page.report().isVisible());
    EXPECT_EQ(h.imported, 1);
}

TEST(ImportPage, ExpandersFoundHereAreBroughtOverAndTheLibraryExported) {
    PageHarness h;
    EXPECT_NO_THROW(named<QLabel>(h.page, QString::fromStdString(ImportExport::noneFound() + ".")));
    testing::writeText(h.folders.home / ".config/espanso/match/base.yml",
                       "matches:\n  - trigger: \";b\"\n    replace: B\n");
    h.page.refresh();
    h.readWith(named<QPushButton>(h.page, QStringLiteral("Bring over from Espanso")));
    EXPECT_EQ(h.page.report().toPlainText(), QStringLiteral("Added 1 snippet."));
    EXPECT_EQ(h.imported, 1);

    h.chosen = h.temp / "out.json";
    h.page.exportButton().click();
    EXPECT_EQ(h.proposed, h.folders.home / ImportExport::exportName());
    EXPECT_EQ(h.page.exportMessage().text(),
              QStringLiteral("Exported 2 snippets. Images stay behind."));
    EXPECT_TRUE(h.page.exportProblem().isHidden());
    ImportExport::Read back = h.model.readFile(h.chosen);
    ASSERT_TRUE(back.incoming);
    EXPECT_EQ(pairsOf(back.incoming->snippets), h.onDisk());
    h.chosen = h.temp / "no/folder/out.json";
    h.page.exportButton().click();
    EXPECT_TRUE(h.page.exportMessage().isHidden());
    EXPECT_TRUE(h.page.exportProblem().text().startsWith("Couldn't save the file: "));

    // Every control the keyboard reaches has a name to announce.
    for (QWidget* control : h.page.findChildren<QWidget*>()) {
        if (control->focusPolicy() != Qt::NoFocus && control->isVisible()) {
            EXPECT_FALSE(control->accessibleName().isEmpty()) << control->metaObject()->className();
        }
    }
}

} // namespace
} // namespace quillet
