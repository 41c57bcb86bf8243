// Prints the SHA-256 digest of each file given, as the integrity check computes it, in the form
// of sha256sum: for the digest benchmark.

#include <cstdio>

#include "verify/IntegrityVerifier.hpp"

int main(int argc, char** argv) {
    int status = 0;
    for (int i = 1; i < argc; ++i) {
        const auto digest = quillstow::sha256OfFile(argv[i]);
        if (!digest) {
            std::fprintf(stderr, "quillstow-digest: can't read %s\n", argv[i]);
            status = 1;
            continue;
        }
        std::printf("%s  %s\n", digest->c_str(), argv[i]);
    }
    return status;
}
