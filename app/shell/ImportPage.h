#pragma once

#include "entry/ImportExport.h"

#include <QWidget>
#include <filesystem>
#include <functional>
#include <vector>

class QGroupBox;
class QLabel;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QThread;
class QVBoxLayout;

namespace quillet {

/// The import and export page: a file or another expander's snippets brought into the library
/// after the user trusts any risky ones, and the library written to an exchange file. Files are
/// read off the interface thread, so a large one leaves the window responsive.
class ImportPage final : public QWidget {
public:
    /// The questions the page asks the user; dialogs by default, answers in tests.
    struct Asks {
        /// The file to import; empty when they cancelled.
        std::function<std::filesystem::path()> openFile;
        /// Where to export, given the proposed path; empty when they cancelled.
        std::function<std::filesystem::path(const std::filesystem::path& proposed)> saveFile;
        /// True when they add the risky snippets the warning names.
        std::function<bool(const Transfer::Warning&)> confirm;
    };

    /// onImported is called after a merge that added snippets.
    explicit ImportPage(ImportExport& model, std::function<void()> onImported = {}, Asks asks = {},
                        QWidget* parent = nullptr);
    /// Waits for a read still running: its result is dropped.
    ~ImportPage() override;

    /// Looks for other expanders again and lists them.
    void refresh();

    /// True while a file or an expander is being read.
    bool busy() const { return worker_ != nullptr; }

    QPushButton& importButton() { return *import_; }
    QPushButton& exportButton() { return *export_; }
    QProgressBar& progress() { return *progress_; }
    QPlainTextEdit& report() { return *report_; }
    QLabel& importProblem() { return *importProblem_; }
    QLabel& exportMessage() { return *exportMessage_; }
    QLabel& exportProblem() { return *exportProblem_; }

private:
    void importFile();
    void bringOver(const std::string& name);
    void read(std::function<ImportExport::Read()> reading);
    void finishReading(ImportExport::Read read);
    bool confirm(const Transfer::Warning& warning);
    void exportFile();
    void setBusy(bool on);

    ImportExport& model_;
    std::function<void()> onImported_;
    Asks asks_;
    QPushButton* import_;
    QVBoxLayout* sources_;
    std::vector<QPushButton*> bringButtons_;
    QProgressBar* progress_;
    QLabel* importProblem_;
    QPlainTextEdit* report_;
    QPushButton* export_;
    QLabel* exportMessage_;
    QLabel* exportProblem_;
    QThread* worker_ = nullptr;
};

} // namespace quillet
