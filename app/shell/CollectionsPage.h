#pragma once

#include "entry/LibraryEditor.h"
#include "entry/Settings.h"

#include <QWidget>
#include <functional>
#include <string>
#include <vector>

class QLabel;
class QPushButton;

namespace quillet {

class SharedFoldersBox;

/// The collections page: the starter sets, each added with one click, and the shared folders
/// with the snippets they bring, read-only.
class CollectionsPage final : public QWidget {
public:
    /// onAdded is called after a set was added, so the snippet list can show it.
    CollectionsPage(LibraryEditor& library, Settings& settings,
                    std::function<std::string()> chooseFolder = {},
                    std::function<void()> onAdded = {}, QWidget* parent = nullptr);

    /// Shows which sets are in the library and the shared folders as they are now.
    void refresh();

    /// The Add button of each starter set, in their order.
    const std::vector<QPushButton*>& addButtons() const { return add_; }
    QLabel& result() { return *result_; }

private:
    LibraryEditor& library_;
    std::function<void()> onAdded_;
    std::vector<QPushButton*> add_;
    QLabel* result_;
    SharedFoldersBox* folders_;
};

} // namespace quillet
