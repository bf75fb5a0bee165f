#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "frame/Kbloadlibrary.h"

using namespace Quorvel;

namespace {
#ifdef _WIN32
const char* const SystemLibrary = "kernel32.dll";
const char* const SystemSymbol = "GetTickCount";
#else
const char* const SystemLibrary = "libm.so.6";
const char* const SystemSymbol = "cos";
#endif
}  // namespace

TEST(KBLoadLibrary, LoadsRealLibrariesAndReportsFailuresThroughTheEvent) {
  TWBComponent Host;
  std::vector<std::string> Reports;
  TWBComponent* Sender = nullptr;
  TWBErrorEvent OnError = [&](TWBComponent* S, const std::string& M, int32_t Code, bool& Handled) {
    Sender = S;
    Reports.push_back(M);
  };

  TModuleHandle Module = KBLoadLibrary(&Host, SystemLibrary, OnError);
  ASSERT_NE(Module, nullptr);
  EXPECT_NE(KBGetProcAddress(Module, SystemSymbol), nullptr);
  EXPECT_EQ(KBGetProcAddress(Module, "NoSuchExportAnywhere"), nullptr);
  KBFreeLibrary(Module);
  EXPECT_TRUE(Reports.empty());

  const auto Missing = (std::filesystem::temp_directory_path() / "quorvel-no-such-plugin.bin").string();
  EXPECT_EQ(KBLoadLibrary(&Host, Missing, OnError), nullptr);
  ASSERT_EQ(Reports.size(), 1u);
  EXPECT_EQ(Sender, &Host);
  EXPECT_EQ(Reports[0].rfind("Can't load library " + Missing, 0), 0u) << Reports[0];

  // A file that exists but is no library: reported, never raised.
  const auto Text = std::filesystem::temp_directory_path() / "quorvel-not-a-library.dll";
  std::ofstream(Text) << "just text";
  EXPECT_EQ(KBLoadLibrary(&Host, Text.string(), OnError), nullptr);
  EXPECT_EQ(Reports.size(), 2u);
  // Without a handler nothing is reported and nothing raised.
  EXPECT_EQ(KBLoadLibrary(&Host, Text.string(), nullptr), nullptr);
  std::filesystem::remove(Text);
  KBFreeLibrary(nullptr);
}
