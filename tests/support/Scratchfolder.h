// A test fixture with a folder of its own under the system's temporary
// folder, made before each test and removed with everything in it after.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>

namespace Quorvel::Testing {

class ScratchFolderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Dir = std::filesystem::temp_directory_path() / ("quorvel-test-" + std::to_string(std::random_device{}()));
    ASSERT_TRUE(std::filesystem::create_directories(Dir));
  }
  void TearDown() override {
    std::error_code Ignored;
    std::filesystem::remove_all(Dir, Ignored);
  }
  // A name in the folder, given and answered in UTF-8.
  std::string PathOf(const std::string& Utf8Name) const {
    return (Dir / std::filesystem::u8path(Utf8Name)).u8string();
  }
  std::filesystem::path Dir;
};

}  // namespace Quorvel::Testing
