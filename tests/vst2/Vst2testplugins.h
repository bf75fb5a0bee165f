// The tests' hold on the VST 2 test plug-ins: their paths, their call
// records and knobs, and an error log for the host's reports.
#pragma once

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <utility>
#include <vector>

#include "platform/Library.h"
#include "testplugins/vst2/Qvtestplugin.h"
#include "vst2/Srvsthost.h"

namespace Quorvel::Testing {

inline std::string PlugInPath(const std::string& Name) { return std::string(QV_TESTVST2_DIR) + "/" + Name + QV_TESTVST2_SUFFIX; }

// The test's own hold on a plug-in file: its exported record functions.
class TPlugInProbe {
 public:
  explicit TPlugInProbe(const std::string& Name) : Path(PlugInPath(Name)) {
    std::string Text;
    unsigned Code = 0;
    FModule = Platform::LoadCodeLibrary(Path, Text, Code);
    EXPECT_NE(FModule, nullptr) << Path << ": " << Text;
    FGet = reinterpret_cast<TQvTestGetRecordsFunc>(Platform::GetLibrarySymbol(FModule, kQvTestGetRecordsName));
    FClear = reinterpret_cast<TQvTestClearRecordsFunc>(Platform::GetLibrarySymbol(FModule, kQvTestClearRecordsName));
    FOption = reinterpret_cast<TQvTestSetOptionFunc>(Platform::GetLibrarySymbol(FModule, kQvTestSetOptionName));
    FCall = reinterpret_cast<TQvTestCallHostFunc>(Platform::GetLibrarySymbol(FModule, kQvTestCallHostName));
    if (FOption) FOption("Reset", 0);
    if (FClear) FClear();
  }
  ~TPlugInProbe() { Platform::FreeCodeLibrary(FModule); }

  std::vector<TQvTestRecord> Records() const {
    const TQvTestRecord* R = nullptr;
    const int32_t N = FGet ? FGet(&R) : 0;
    return std::vector<TQvTestRecord>(R, R + N);
  }
  // Dispatcher opcodes in the order they arrived.
  std::vector<int32_t> Dispatches() const {
    std::vector<int32_t> Out;
    for (const auto& R : Records())
      if (R.Kind == qrDispatch) Out.push_back(R.Opcode);
    return Out;
  }
  std::vector<TQvTestRecord> Of(int32_t Kind, int32_t Opcode = -1) const {
    std::vector<TQvTestRecord> Out;
    for (const auto& R : Records())
      if (R.Kind == Kind && (Opcode < 0 || R.Opcode == Opcode)) Out.push_back(R);
    return Out;
  }
  // How many records of Kind (and Opcode, and Index, when given) there are.
  size_t Count(int32_t Kind, int32_t Opcode = -1, int32_t Index = INT32_MIN) const {
    const TQvTestRecord* R = nullptr;
    const int32_t N = FGet ? FGet(&R) : 0;
    size_t Found = 0;
    for (int32_t I = 0; I < N; ++I)
      Found += R[I].Kind == Kind && (Opcode < 0 || R[I].Opcode == Opcode) && (Index == INT32_MIN || R[I].Index == Index);
    return Found;
  }
  void Clear() { FClear(); }
  void Option(const char* Name, double Value) { ASSERT_EQ(FOption(Name, Value), 1) << Name; }
  intptr_t Call(PVSTEffect E, int32_t Opcode, int32_t Index = 0, intptr_t Value = 0, void* Ptr = nullptr,
                float Opt = 0.0f) {
    return FCall(E, Opcode, Index, Value, Ptr, Opt);
  }

  const std::string Path;

 private:
  Platform::TModuleHandle FModule = nullptr;
  TQvTestGetRecordsFunc FGet = nullptr;
  TQvTestClearRecordsFunc FClear = nullptr;
  TQvTestSetOptionFunc FOption = nullptr;
  TQvTestCallHostFunc FCall = nullptr;
};

// Reports go to a list instead of being raised.
struct TErrorLog {
  std::vector<std::pair<std::string, int32_t>> Errors;
  void Attach(TWBComponent& C) {
    C.OnError = [this](TWBComponent*, const std::string& Message, int32_t Code, bool& Handled) {
      Errors.emplace_back(Message, Code);
      Handled = true;
    };
  }
};

// Points Host at a plug-in file and opens it.
inline ::testing::AssertionResult Opened(TSRVSTHost& Host, const std::string& Path) {
  Host.SetFileName(Path);
  if (Host.Open()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << Path << " does not open";
}

}  // namespace Quorvel::Testing
