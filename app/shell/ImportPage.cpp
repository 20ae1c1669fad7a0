#include "shell/ImportPage.h"

#include "shell/Labels.h"

#include <QFileDialog>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QThread>
#include <QVBoxLayout>

namespace quillet {
namespace {

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

} // namespace

ImportPage::ImportPage(ImportExport& model, std::function<void()> onImported, Asks asks,
                       QWidget* parent)
    : QWidget(parent), model_(model), onImported_(std::move(onImported)), asks_(std::move(asks)) {
    setAccessibleName(QStringLiteral("Import and export"));
    auto* page = new QVBoxLayout(this);

    auto* importing = new QGroupBox(QStringLiteral("Import"), this);
    importing->setAccessibleName(importing->title());
    auto* importLayout = new QVBoxLayout(importing);
    import_ = new QPushButton(QStringLiteral("&Import a File\u2026"), importing);
    import_->setAccessibleName(QStringLiteral("Import a file"));
    connect(import_, &QPushButton::clicked, this, &ImportPage::importFile);
    importLayout->addWidget(import_, 0, Qt::AlignLeft);
    importLayout->addWidget(noteLabel("An exchange file, a JSON or CSV file, or a file or folder "
                                      "another expander wrote.",
                                      importing));

    auto* over = new QGroupBox(QStringLiteral("Bring snippets over"), importing);
    over->setAccessibleName(over->title());
    over->setFlat(true);
    sources_ = new QVBoxLayout(over);
    importLayout->addWidget(over);

    progress_ = new QProgressBar(importing);
    progress_->setRange(0, 0); // how long a reader takes cannot be told in advance
    progress_->setAccessibleName(QStringLiteral("Reading"));
    progress_->setTextVisible(false);
    progress_->hide();
    importLayout->addWidget(progress_);
    importProblem_ = problemLabel(importing);
    importLayout->addWidget(importProblem_);
    report_ = new QPlainTextEdit(importing);
    report_->setReadOnly(true);
    report_->setTabChangesFocus(true);
    report_->setAccessibleName(QStringLiteral("What the import did"));
    report_->hide();
    importLayout->addWidget(report_);
    page->addWidget(importing);

    auto* exporting = new QGroupBox(QStringLiteral("Export"), this);
    exporting->setAccessibleName(exporting->title());
    auto* exportLayout = new QVBoxLayout(exporting);
    auto* exportRow = new QHBoxLayout;
    export_ = new QPushButton(QStringLiteral("&Export\u2026"), exporting);
    export_->setAccessibleName(QStringLiteral("Export"));
    connect(export_, &QPushButton::clicked, this, &ImportPage::exportFile);
    exportRow->addWidget(export_);
    exportMessage_ = new QLabel(exporting);
    exportMessage_->setWordWrap(true);
    exportMessage_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    exportMessage_->setAccessibleName(QStringLiteral("Exported"));
    exportMessage_->hide();
    exportRow->addWidget(exportMessage_, 1);
    exportProblem_ = problemLabel(exporting);
    exportRow->addWidget(exportProblem_, 1);
    exportLayout->addLayout(exportRow);
    exportLayout->addWidget(noteLabel("Every snippet goes into one exchange file, which Quillet on "
                                      "another computer imports.",
                                      exporting));
    page->addWidget(exporting);
    page->addStretch();
    refresh();
}

ImportPage::~ImportPage() {
    if (worker_ != nullptr) {
        disconnect(worker_, nullptr, this, nullptr);
        worker_->wait();
        delete worker_;
    }
}

void ImportPage::refresh() {
    // Later, not now: the click that got here may come from one of the buttons.
    while (QLayoutItem* item = sources_->takeAt(0)) {
        item->widget()->hide();
        item->widget()->deleteLater();
        delete item;
    }
    bringButtons_.clear();
    const std::vector<std::string> names = model_.sources();
    for (const std::string& name : names) {
        auto* row = new QWidget(this);
        auto* rowLayout = new QHBoxLayout(row);
        rowLayout->setContentsMargins(0, 0, 0, 0);
        auto* label = new QLabel(qt(name), row);
        label->setAccessibleName(label->text());
        rowLayout->addWidget(label);
        auto* bring = new QPushButton(QStringLiteral("Bring &Over"), row);
        bring->setAccessibleName(qt("Bring over from " + name));
        bring->setEnabled(!busy());
        connect(bring, &QPushButton::clicked, this, [this, name] { bringOver(name); });
        rowLayout->addWidget(bring);
        rowLayout->addStretch();
        bringButtons_.push_back(bring);
        sources_->addWidget(row);
    }
    if (names.empty()) {
        sources_->addWidget(noteLabel(ImportExport::noneFound() + ".", this));
    }
}

void ImportPage::importFile() {
    const std::filesystem::path path =
        asks_.openFile ? asks_.openFile()
                       : std::filesystem::path(
                             QFileDialog::getOpenFileName(this, QStringLiteral("Import Snippets"))
                                 .toStdString());
    if (path.empty()) {
        return;
    }
    read([this, path] { return model_.readFile(path); });
}

void ImportPage::bringOver(const std::string& name) {
    read([this, name] { return model_.readSource(name); });
}

void ImportPage::read(std::function<ImportExport::Read()> reading) {
    if (busy()) {
        return;
    }
    showProblem(importProblem_, std::nullopt);
    report_->clear();
    report_->hide();
    // The thread fills the result; the page takes it once the thread has ended.
    auto result = std::make_shared<ImportExport::Read>();
    worker_ = QThread::create([result, reading = std::move(reading)] { *result = reading(); });
    connect(worker_, &QThread::finished, this, [this, result] {
        worker_->deleteLater();
        worker_ = nullptr;
        setBusy(false);
        finishReading(std::move(*result));
    });
    setBusy(true);
    worker_->start();
}

void ImportPage::finishReading(ImportExport::Read read) {
    if (!read.incoming) {
        showProblem(importProblem_, read.error);
        return;
    }
    if (std::optional<Transfer::Warning> warning = ImportExport::warning(*read.incoming)) {
        if (!confirm(*warning)) {
            return;
        }
    }
    const ImportExport::Outcome outcome = model_.merge(std::move(*read.incoming));
    if (outcome.failed) {
        showProblem(importProblem_, outcome.text);
    } else {
        report_->setPlainText(qt(outcome.text));
        report_->show();
        report_->setFocus(Qt::OtherFocusReason);
    }
    if (outcome.added > 0 && onImported_) {
        onImported_();
    }
}

bool ImportPage::confirm(const Transfer::Warning& warning) {
    if (asks_.confirm) {
        return asks_.confirm(warning);
    }
    QMessageBox box(QMessageBox::Warning, qt(warning.title), qt(warning.message),
                    QMessageBox::NoButton, this);
    QPushButton* add = box.addButton(QStringLiteral("Add Them"), QMessageBox::AcceptRole);
    QPushButton* cancel = box.addButton(QMessageBox::Cancel);
    // Adding what presses keys or runs scripts takes a deliberate choice.
    box.setDefaultButton(cancel);
    box.setEscapeButton(cancel);
    box.exec();
    return box.clickedButton() == add;
}

void ImportPage::exportFile() {
    const std::filesystem::path proposed = model_.exportPath();
    const std::filesystem::path path =
        asks_.saveFile ? asks_.saveFile(proposed)
                       : std::filesystem::path(
                             QFileDialog::getSaveFileName(this, QStringLiteral("Export Snippets"),
                                                          qt(proposed.string()),
                                                          QStringLiteral("Exchange files (*.json)"))
                                 .toStdString());
    if (path.empty()) {
        return;
    }
    const ImportExport::Outcome outcome = model_.exportTo(path);
    exportMessage_->setText(outcome.failed ? QString() : qt(outcome.text));
    exportMessage_->setVisible(!outcome.failed);
    showProblem(exportProblem_,
                outcome.failed ? std::optional<std::string>(outcome.text) : std::nullopt);
}

void ImportPage::setBusy(bool on) {
    progress_->setVisible(on);
    import_->setEnabled(!on);
    for (QPushButton* bring : bringButtons_) {
        bring->setEnabled(!on);
    }
}

} // namespace quillet
