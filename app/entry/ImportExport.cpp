#include "entry/ImportExport.h"

#include "transfer/Importers.h"

#include <iterator>

namespace quillet {
namespace {

ImportExport::Read readWith(std::optional<Transfer::Incoming> incoming, std::string error) {
    if (incoming) {
        return {std::move(incoming), {}};
    }
    return {std::nullopt, std::move(error)};
}

} // namespace

ImportExport::ImportExport(SnippetStore& store, Folders folders)
    : store_(store), folders_(std::move(folders)) {}

std::vector<std::string> ImportExport::sources() const {
    std::vector<std::string> names;
    for (const Importers::Source& source :
         Importers::detect(folders_.home, folders_.config.parent_path())) {
        names.push_back(source.name);
    }
    return names;
}

const std::string& ImportExport::noneFound() {
    return Importers::noneFound();
}

ImportExport::Read ImportExport::readFile(const std::filesystem::path& path) const {
    std::string error;
    std::optional<Transfer::Incoming> incoming = Importers::readImport(path, error);
    return readWith(std::move(incoming), std::move(error));
}

ImportExport::Read ImportExport::readSource(const std::string& name) const {
    // Found again rather than remembered: the expander may have gone since the page listed it.
    std::string error;
    std::optional<Transfer::Incoming> incoming = Importers::readSource(
        name, Importers::detect(folders_.home, folders_.config.parent_path()), error);
    return readWith(std::move(incoming), std::move(error));
}

std::optional<Transfer::Warning> ImportExport::warning(const Transfer::Incoming& incoming) {
    return Transfer::trustWarning(incoming.snippets);
}

ImportExport::Outcome ImportExport::merge(Transfer::Incoming incoming) {
    if (!store_.canSave()) {
        return {"Couldn't save: the library file can't be read, so Quillet leaves it alone. " +
                    store_.problem(),
                true};
    }
    Transfer::Report report = Transfer::merge(std::move(incoming), store_.snippets());
    const std::size_t added = report.added.size();
    if (added == 0) {
        return {report.text()};
    }
    std::vector<Snippet> list = store_.snippets();
    list.insert(list.end(), report.added.begin(), report.added.end());
    if (!store_.setSnippets(std::move(list))) {
        // The store keeps the list and writes it with the next change, so they are in it.
        return {"Couldn't save the library. The snippets are kept here and saved with the next "
                "change.",
                true, added};
    }
    return {report.text(), false, added};
}

const std::string& ImportExport::exportName() {
    return Transfer::exportName();
}

ImportExport::Outcome ImportExport::exportTo(const std::filesystem::path& path) const {
    std::string error;
    if (!Transfer::writeExport(path, store_.snippets(), error)) {
        return {"Couldn't save the file: " + error, true};
    }
    return {Transfer::exportMessage(store_.snippets())};
}

} // namespace quillet
