// libFuzzer target: VST 3 preset files. Any bytes are read as a preset file
// through the host's stream objects (a memory stream over the input, a
// memory stream the input was written into, a file stream over a memory
// stream no larger than the input, and a section of that whose bounds come
// from the input's first bytes) and loaded into a host with the test module
// open. Reading must never crash, hang, read beyond the input or allocate
// without bound; and as this host reads preset files, it never succeeds.
#include <cstdint>
#include <string>
#include <vector>

#include "frame/Wbstreams.h"
#include "testplugins/vst3/Qvtestvst3.h"
#include "vst3/Srvst3host.h"
#include "vst3/Vst3presetfile.h"

using namespace Quorvel;
using namespace Quorvel::Vst3hostobjects;
using Vst3presetfile::TVST3PresetFile;

namespace {

struct TFuzzHost {
  TFuzzHost() {
    Host.OnError = [this](TWBComponent*, const std::string& Message, int32_t, bool& Handled) {
      Errors.push_back(Message);
      Handled = true;
    };
    Host.SetFileName(QV_TESTVST3_MAIN);
    if (!Host.Open() || !Errors.empty()) __builtin_trap();
  }
  TSRVST3Host Host;
  std::vector<std::string> Errors;
};

void ReadFails(Vst3hostintf::IBStream* Stream) {
  TVST3PresetFile File(Stream);
  if (File.ReadChunkList() || File.GetEntryCount() != 0) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  static TFuzzHost Fuzz;
  std::vector<uint8_t> Copy(Data, Data + Size);  // the borrowing stream takes writable memory
  {
    auto Memory = TVST3Ref<TMemoryBStream>::Adopt(new TMemoryBStream(Copy.data(), int64_t(Copy.size())));
    ReadFails(Memory.Get());
    auto Written = TVST3Ref<TMemoryBStream>::Adopt(new TMemoryBStream());
    Written->write(Copy.data(), static_cast<int32_t>(Copy.size()), nullptr);
    ReadFails(Written.Get());
  }
  TWBMemoryStream Bytes(Data, Size, static_cast<int64_t>(Size));
  auto File = TVST3Ref<TFileBStream>::Adopt(new TFileBStream(Bytes));
  ReadFails(File.Get());
  if (Size >= 2) {
    const int64_t Offset = Data[0] % (int64_t(Size) + 1);
    const int64_t Length = int64_t(Data[1]) * 4;
    auto Section = TVST3Ref<TReadOnlyBStream>::Adopt(new TReadOnlyBStream(File.Get(), Offset, Length));
    ReadFails(Section.Get());
  }
  Bytes.Seek(0, TWBSeekOrigin::soBeginning);
  Fuzz.Errors.clear();
  Fuzz.Host.LoadPreset(Bytes);
  if (Fuzz.Errors.size() != 1 || Fuzz.Errors[0].rfind("Can't load VST3 preset file. - ", 0) != 0) __builtin_trap();
  return 0;
}
