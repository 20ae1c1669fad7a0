#pragma once

#include <filesystem>
#include <string>

namespace quillet {

/// Starting Quillet with the desktop session: an entry in the XDG autostart folder
/// ($XDG_CONFIG_HOME/autostart, next to Quillet's own config folder) that runs the program.
class Autostart {
public:
    /// The entry for the config folder Quillet uses (…/quillet), starting program.
    Autostart(const std::filesystem::path& quilletConfig, std::filesystem::path program);

    /// Writes the entry (on) or removes it (off); false, with error set, when that failed.
    bool set(bool on, std::string& error) const;

    /// True while the entry exists.
    bool isOn() const;

    /// Where the entry is.
    const std::filesystem::path& file() const { return file_; }

    /// The entry's text for program: a desktop entry that starts it without a terminal.
    static std::string entry(const std::filesystem::path& program);

private:
    std::filesystem::path file_;
    std::filesystem::path program_;
};

} // namespace quillet
