#include "entry/Application.h"
#include "entry/Cli.h"
#include "shell/Shell.h"

#include <cstdlib>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    if (auto status = quillet::CLI::run(std::vector<std::string>(argv, argv + argc))) {
        return *status;
    }
    // With a display Quillet is a desktop application; without one it can only say why not.
    const char* display = std::getenv("DISPLAY");
    if (display != nullptr && *display != '\0' && std::getenv("QUILLET_TERMINAL") == nullptr) {
        return quillet::runShell(argc, argv);
    }
    return quillet::runApplication();
}
