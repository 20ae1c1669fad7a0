#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quillet {

/// The command-line tool `snippets`: list, expand, add, import and export snippets in the library
/// file, without a running application. Every error goes to standard error, with status 1.
struct CLI {
    /// The recognised first words; anything else starts the application.
    static const std::vector<std::string>& commands();

    /// The usage text, without a final line end.
    static const std::string& usage();

    /// Runs the tool for the process arguments (program path first). Nothing when the arguments
    /// name no command, so that the application starts instead.
    static std::optional<int> run(const std::vector<std::string>& arguments);
};

} // namespace quillet
