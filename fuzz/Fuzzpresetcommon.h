// What the preset and bank fuzz targets share: two hosts with the test
// plug-in loaded in-process, one keeping its programs as parameters and one
// in chunks, whose reports are collected instead of raised.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame/Wbstreams.h"
#include "vst2/Srvsthost.h"

namespace Quorvel::Fuzzing {

struct TFuzzHost {
  explicit TFuzzHost(const char* Path) {
    Host.OnError = [this](TWBComponent*, const std::string& Message, int32_t, bool& Handled) {
      Errors.push_back(Message);
      Handled = true;
    };
    if (!Host.Open(Path)) __builtin_trap();
  }
  TSRVSTHost Host;
  std::vector<std::string> Errors;
};

// Each input goes to both hosts; afterwards each host's own file must load
// back without a report, as it names the host's own plug-in.
template <typename Load, typename Save>
void LoadIntoBoth(const uint8_t* Data, size_t Size, Load LoadStream, Save SaveStream) {
  static TFuzzHost Parameters(QV_TESTVST2_MAIN);
  static TFuzzHost Chunks(QV_TESTVST2_CHUNKS);
  for (TFuzzHost* H : {&Parameters, &Chunks}) {
    // A memory stream no larger than the input: loading may never grow it.
    TWBMemoryStream In(Data, Size, static_cast<int64_t>(Size));
    LoadStream(H->Host, In);
    H->Errors.clear();
    TWBMemoryStream Own;
    SaveStream(H->Host, Own);
    Own.Seek(0, TWBSeekOrigin::soBeginning);
    LoadStream(H->Host, Own);
    if (!H->Errors.empty()) __builtin_trap();
  }
}

}  // namespace Quorvel::Fuzzing
