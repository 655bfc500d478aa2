// vantrel-with-domain COMMAND [ARGS...]: runs COMMAND with KELVA_TEST_DOMAIN set to a DDS domain id that
// no test process holds, held until COMMAND ends (scripts among the tests take their domain this way).
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "vantrel/test/Support.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: vantrel-with-domain COMMAND [ARGS...]\n");
        return 2;
    }
    try {
        const std::string domain = std::to_string(vantrel::test::detail::allocateDomainForCommand());
        ::setenv("KELVA_TEST_DOMAIN", domain.c_str(), 1);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vantrel-with-domain: %s\n", e.what());
        return 1;
    }
    ::execvp(argv[1], argv + 1);
    std::perror(argv[1]);
    return 127;
}
