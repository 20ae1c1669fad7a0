#include "entry/Application.h"
#include "entry/Cli.h"

#include <string>
#include <vector>

int main(int argc, char** argv) {
    if (auto status = quillet::CLI::run(std::vector<std::string>(argv, argv + argc))) {
        return *status;
    }
    return quillet::runApplication();
}
