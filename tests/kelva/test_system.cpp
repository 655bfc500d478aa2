// The toolkit's system utilities that differ per platform (also run as Windows binaries).
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "kelva/utils/System.h"

namespace {

void record(void* entry) {
    auto* e = static_cast<std::pair<std::vector<std::string>*, std::string>*>(entry);
    e->first->push_back(e->second);
}

}  // namespace

TEST(System, ThreadExitCleanupsRunWhenTheThreadEndsLatestFirst) {
    std::vector<std::string> ran;
    std::pair<std::vector<std::string>*, std::string> first{&ran, "first"}, second{&ran, "second"};
    std::vector<std::string> seenBeforeEnd;
    std::thread worker([&] {
        kelva::utils::system::atThreadExit(record, &first);
        kelva::utils::system::atThreadExit(record, &second);
        seenBeforeEnd = ran;
    });
    worker.join();
    EXPECT_TRUE(seenBeforeEnd.empty());
    EXPECT_EQ(ran, (std::vector<std::string>{"second", "first"}));
}
