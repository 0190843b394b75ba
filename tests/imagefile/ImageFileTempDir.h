// A folder of its own for each test, removed with everything in it when the test ends.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace tessaly::test {

class ImageFileTempDir : public ::testing::Test {
protected:
    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        dir_ = std::filesystem::path(::testing::TempDir()) /
               ("tessaly-imagefile-" + std::string(info->test_suite_name()) + "-" + info->name());
        std::filesystem::remove_all(dir_);
        std::filesystem::create_directories(dir_);
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    std::filesystem::path Path(const std::string& name) const { return dir_ / name; }
    // The files the folder holds, by name.
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(dir_)) names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::filesystem::path dir_;
};

}  // namespace tessaly::test
