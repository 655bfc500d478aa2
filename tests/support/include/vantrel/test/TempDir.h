#pragma once
// A GoogleTest fixture with a folder of its own for the files one test writes, removed afterwards.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "kelva/utils/System.h"

namespace vantrel::test {

class TempDirTest : public ::testing::Test {
protected:
    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        m_dir = std::filesystem::temp_directory_path() / ("kelva-test-" + std::to_string(kelva::utils::system::processId()) +
                                                          "-" + info->test_suite_name() + "-" + info->name());
        std::filesystem::remove_all(m_dir);
        std::filesystem::create_directories(m_dir);
    }
    void TearDown() override {
        std::error_code ignored;
        std::filesystem::remove_all(m_dir, ignored);
    }

    std::string path(const std::string& name) const { return (m_dir / name).string(); }
    std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }
    static std::string read(const std::string& file) {
        std::ifstream in(file, std::ios::binary);
        return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }

    std::filesystem::path m_dir;
};

}  // namespace vantrel::test
