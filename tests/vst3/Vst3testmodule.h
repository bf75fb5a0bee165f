// The test's own hold on a VST 3 test module: its record of calls and of
// process calls, its knobs and its object counts. The module is loaded a
// second time with the platform loader so the record outlives the host.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "frame/Wbcomponent.h"
#include "platform/Library.h"
#include "platform/Vst3module.h"
#include "testplugins/vst3/Qvtestvst3.h"

namespace Quorvel::Testing {

class TVst3ModuleProbe {
 public:
  explicit TVst3ModuleProbe(const std::string& Path = QV_TESTVST3_MAIN) {
    std::string Text;
    unsigned Code = 0;
    FModule = Platform::LoadCodeLibrary(Platform::Vst3ModuleLibrary(Path), Text, Code);
    EXPECT_NE(FModule, nullptr) << Path << ": " << Text;
    FReset = Get<Qvtestvst3::TResetFunc>(Qvtestvst3::kResetName);
    FOptions = Get<Qvtestvst3::TSetOptionsFunc>(Qvtestvst3::kSetOptionsName);
    FCalls = Get<Qvtestvst3::TGetCallsFunc>(Qvtestvst3::kGetCallsName);
    FProcess = Get<Qvtestvst3::TGetProcessCallsFunc>(Qvtestvst3::kGetProcessCallsName);
    FThreads = Get<Qvtestvst3::TGetCallThreadsFunc>(Qvtestvst3::kGetCallThreadsName);
    FLive = Get<Qvtestvst3::TCountFunc>(Qvtestvst3::kLiveObjectsName);
    FHostRefs = Get<Qvtestvst3::TCountFunc>(Qvtestvst3::kHostReferencesName);
    Reset();
  }
  ~TVst3ModuleProbe() {
    Reset();
    Platform::FreeCodeLibrary(FModule);
  }
  TVst3ModuleProbe(const TVst3ModuleProbe&) = delete;
  TVst3ModuleProbe& operator=(const TVst3ModuleProbe&) = delete;

  // Clears the record and every knob.
  void Reset() {
    if (FReset) FReset();
  }
  void Options(const std::string& Text) {
    if (FOptions) FOptions(Text.c_str());
  }
  std::vector<std::string> Calls() const {
    if (!FCalls) return {};
    std::string All(size_t(FCalls(nullptr, 0)) + 1, '\0');
    FCalls(&All[0], static_cast<int32_t>(All.size()));
    std::vector<std::string> Lines;
    std::istringstream In(All.c_str());
    for (std::string Line; std::getline(In, Line);) Lines.push_back(Line);
    return Lines;
  }
  // The recorded calls that start with Prefix, in order.
  std::vector<std::string> CallsOf(const std::string& Prefix) const {
    std::vector<std::string> Out;
    for (auto& C : Calls())
      if (C.rfind(Prefix, 0) == 0) Out.push_back(C);
    return Out;
  }
  // How often exactly Call was recorded.
  size_t Count(const std::string& Call) const {
    size_t N = 0;
    for (const auto& C : Calls()) N += C == Call;
    return N;
  }
  // The thread of each recorded call, numbered in order of appearance.
  std::vector<int32_t> CallThreads() const {
    if (!FThreads) return {};
    std::vector<int32_t> T(size_t(FThreads(nullptr, 0)));
    FThreads(T.data(), static_cast<int32_t>(T.size()));
    return T;
  }
  int32_t LiveObjects() const { return FLive ? FLive() : -1; }
  int32_t HostReferences() const { return FHostRefs ? FHostRefs() : -1; }
  std::vector<Qvtestvst3::TProcessRecord> ProcessCalls() const {
    if (!FProcess) return {};
    std::vector<Qvtestvst3::TProcessRecord> R(size_t(FProcess(nullptr, 0)));
    FProcess(R.data(), static_cast<int32_t>(R.size()));
    return R;
  }

 private:
  template <typename F>
  F Get(const char* Name) {
    auto P = reinterpret_cast<F>(Platform::GetLibrarySymbol(FModule, Name));
    EXPECT_NE(P, nullptr) << Name;
    return P;
  }
  Platform::TModuleHandle FModule = nullptr;
  Qvtestvst3::TResetFunc FReset = nullptr;
  Qvtestvst3::TSetOptionsFunc FOptions = nullptr;
  Qvtestvst3::TGetCallsFunc FCalls = nullptr;
  Qvtestvst3::TGetProcessCallsFunc FProcess = nullptr;
  Qvtestvst3::TGetCallThreadsFunc FThreads = nullptr;
  Qvtestvst3::TCountFunc FLive = nullptr;
  Qvtestvst3::TCountFunc FHostRefs = nullptr;
};

// Errors a component reported, handled.
struct TVst3ErrorLog {
  std::vector<std::pair<std::string, int32_t>> Errors;
  void Attach(TWBComponent& C) {
    C.OnError = [this](TWBComponent*, const std::string& Message, int32_t Code, bool& Handled) {
      Errors.emplace_back(Message, Code);
      Handled = true;
    };
  }
};

}  // namespace Quorvel::Testing
