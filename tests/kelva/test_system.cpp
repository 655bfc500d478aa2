// The toolkit's system utilities that differ per platform (also run as Windows binaries).
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "kelva/utils/System.h"

TEST(System, ThreadExitCleanupsRunWhenTheThreadEndsLatestFirst) {
    std::vector<std::string> ran, seenBeforeEnd;
    using Entry = std::pair<std::vector<std::string>*, std::string>;
    Entry first{&ran, "first"}, second{&ran, "second"};
    const auto record = [](void* entry) { static_cast<Entry*>(entry)->first->push_back(static_cast<Entry*>(entry)->second); };
    std::thread worker([&] {
        kelva::utils::system::atThreadExit(record, &first);
        kelva::utils::system::atThreadExit(record, &second);
        seenBeforeEnd = ran;
    });
    worker.join();
    EXPECT_TRUE(seenBeforeEnd.empty());
    EXPECT_EQ(ran, (std::vector<std::string>{"second", "first"}));
}
