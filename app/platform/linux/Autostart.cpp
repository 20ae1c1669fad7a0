#include "platform/linux/Autostart.h"

#include "library/AtomicFile.h"

#include <system_error>

namespace quillet {
namespace {

// Desktop entries quote arguments with double quotes and escape these four inside them.
std::string quoted(const std::string& path) {
    std::string out = "\"";
    for (char c : path) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    return out + "\"";
}

} // namespace

Autostart::Autostart(const std::filesystem::path& quilletConfig, std::filesystem::path program)
    : file_(quilletConfig.parent_path() / "autostart" / "quillet.desktop"),
      program_(std::move(program)) {}

std::string Autostart::entry(const std::filesystem::path& program) {
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Quillet\n"
           "Comment=Expands your abbreviations as you type\n"
           "Exec=" +
           quoted(program.string()) +
           "\n"
           "Icon=quillet\n"
           "Terminal=false\n"
           "NoDisplay=true\n"
           "X-GNOME-Autostart-enabled=true\n";
}

bool Autostart::set(bool on, std::string& error) const {
    if (!on) {
        std::error_code problem;
        std::filesystem::remove(file_, problem);
        if (problem) {
            error = "Couldn't remove " + file_.string() + ": " + problem.message();
            return false;
        }
        return true;
    }
    return createFolders(file_.parent_path(), 0700, error) &&
           writeFileAtomically(file_, entry(program_), 0644, error);
}

bool Autostart::isOn() const {
    std::error_code ignored;
    return std::filesystem::exists(file_, ignored);
}

} // namespace quillet
