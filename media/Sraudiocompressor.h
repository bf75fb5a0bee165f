// The ACM compressor component: PCM audio at its input pin, compressed data
// blocks out of its output pin, announced by a start-audio-compression
// operation. The first candidate of AudioCompressions that ACM accepts is
// used; with none (or disabled) the stream passes through unchanged.
// Windows only.
#pragma once

#include <cstdint>
#include <vector>

#include "frame/Wbcomponent.h"
#include "media/Sraudiocompression.h"

namespace Quorvel {

class TSRAudioCompressor : public TWBComponent {
 public:
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  explicit TSRAudioCompressor(TWBComponent* Owner = nullptr);
  ~TSRAudioCompressor() override;

  TSRPWAudioSinkPin& GetInputPin() { return FInputPin; }
  TSRPWAudioSourcePin& GetOutputPin() { return FOutputPin; }
  TSRAudioCompressionItems& GetAudioCompressions() { return FAudioCompressions; }
  void SetAudioCompressions(const TSRAudioCompressionItems& Items);  // [main thread] copies the items
  bool GetAudioCompressionsStored() const { return FAudioCompressions.Count() != 0; }
  // [any thread] Whether the running stream is compressed, to which rate and format.
  bool IsCompressing() const;
  double GetDestinationRate() const;
  std::vector<uint8_t> GetDestinationFormat() const;
  uint64_t GetBytesIn() const;  // [any thread] PCM bytes taken since the start

  // [stream thread, holding the lock]
  void SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override;

 protected:
  // Starting (under the lock):
  //  1. a running conversion is closed, the incoming format kept, the byte count cleared;
  //  2. when already started, nothing more;
  //  3. enabled: the candidates in order, excluded ones skipped, each asked
  //     to open from the incoming format (cbSize 0); the first success wins;
  //  4. success: the start-audio-compression operation goes out;
  //  5. otherwise the start-wave goes out unchanged (pass-through).
  virtual void BeginAudio(TPWStartWaveOperation& Operation);
  // Compressed when open, otherwise the buffer as it came.
  virtual void RenderAudio(ISRAudioBuffer& Buffer, bool Last);
  void SendData(IWBDataBuffer& Block);
  // Sends what the codec still holds, closes the conversion, forwards the stop.
  virtual void StreamStop();

 private:
  TSRPWAudioSinkPin FInputPin;
  TSRPWAudioSourcePin FOutputPin;
  TSRAudioCompressionItems FAudioCompressions;
  TSRAcmCompressor FCompressor;
  TSRWaveFormatExtensible FInFormat{};
  unsigned FBits = 0, FBlockAlign = 0;
  double FDestRate = 0;
  std::vector<uint8_t> FDestFormat;
  bool FStarted = false;
  uint64_t FBytes = 0;
};

namespace Sraudiocompressor {
void RegisterPkg();
void UnregisterPkg();
}  // namespace Sraudiocompressor

}  // namespace Quorvel
