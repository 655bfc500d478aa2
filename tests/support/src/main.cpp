// The main() of the test binaries: refuses to run tests unless DDS is held on loopback, and says which
// DDS domain this process uses.
#include <gtest/gtest.h>

#include <iostream>

#include "vantrel/test/Support.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    // Listing the tests (as test discovery does at build time) starts no DDS entity.
    if (!GTEST_FLAG_GET(list_tests)) {
        std::string why;
        if (!vantrel::test::detail::loopbackConfigured(why)) {
            std::cerr << "\n*** REFUSING TO RUN TESTS: " << why << ".\n"
                      << "*** Run them through ctest, or set CYCLONEDDS_URI=file://<source>/config/"
                         "cyclonedds-loopback.xml.\n\n";
            return 2;
        }
        std::cout << "[ support  ] DDS domain " << vantrel::test::domainId() << " (loopback)" << std::endl;
    }
    return RUN_ALL_TESTS();
}
