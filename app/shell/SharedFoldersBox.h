#pragma once

#include "entry/Settings.h"

#include <QGroupBox>
#include <functional>
#include <string>
#include <vector>

class QLabel;
class QVBoxLayout;

namespace quillet {

/// The shared folders: each with what it holds, read-only, and a way to stop using it, and a
/// button that adds one. Shown in the settings and, with each folder's snippets, in the
/// collections.
class SharedFoldersBox final : public QGroupBox {
public:
    /// chooseFolder asks for a folder (empty when cancelled); a dialog by default. listSnippets
    /// lists each folder's snippets under it.
    SharedFoldersBox(Settings& settings, std::function<std::string()> chooseFolder,
                     bool listSnippets, QWidget* parent = nullptr);

    /// Shows the folders as the settings and the library have them now.
    void refresh();

private:
    void addFolder();

    Settings& settings_;
    std::function<std::string()> chooseFolder_;
    bool listSnippets_;
    QVBoxLayout* folders_;
    QLabel* problem_;
    std::vector<std::string> shownFolders_;
    std::vector<std::vector<std::string>> shownLines_;
};

} // namespace quillet
