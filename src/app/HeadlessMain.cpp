// quillstow without the tray application (a build without Qt): the headless program alone.

#include <cstring>

#include "app/Headless.hpp"

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--autostart") == 0) continue;
        return quillstow::printUsage(std::strcmp(argv[i], "--help") == 0 ||
                                     std::strcmp(argv[i], "-h") == 0);
    }
    return quillstow::runHeadless();
}
