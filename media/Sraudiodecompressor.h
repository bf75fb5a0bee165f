// The ACM decompressor component: compressed data blocks at its input pin
// (after a start-audio-compression or start-sample-rate operation), PCM audio
// in the component's own AudioFormat out of its output pin. The first
// candidate of Decompressions that ACM accepts as the source is used; with
// none, blocks are sent on unchanged. Windows only.
#pragma once

#include <memory>
#include <vector>

#include "frame/Sraudioformat.h"
#include "frame/Wbcomponent.h"
#include "media/Sraudiocompression.h"

namespace Quorvel {

class TSRAudioDecompressor : public TWBComponent {
 public:
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  explicit TSRAudioDecompressor(TWBComponent* Owner = nullptr);
  ~TSRAudioDecompressor() override;

  TSRPWAudioSinkPin& GetInputPin() { return FInputPin; }
  TSRPWAudioSourcePin& GetOutputPin() { return FOutputPin; }
  TSRAudioCompressionItems& GetDecompressions() { return FDecompressions; }
  void SetDecompressions(const TSRAudioCompressionItems& Items);  // [main thread] copies the items
  bool GetDecompressionsStored() const { return FDecompressions.Count() != 0; }
  // The PCM format produced (default 44100 Hz, 2 channels, 16 bits); [main thread] set before a stream.
  TSRAudioFormatBasic& GetAudioFormat() { return FAudioFormat; }
  bool IsDecompressing() const;  // [any thread]

  // [stream thread, holding the lock]
  void SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override;

 protected:
  // Enabled: the candidates in order, excluded ones skipped, each opened as
  // the source of a non-real-time ACM stream to AudioFormat; the first wins.
  virtual void BeginAudio(double Rate);
  // One block: sized, prepared, converted (start and block-align flags on
  // the first block after a start), the PCM sent, unprepared. Bytes the
  // codec leaves (short of a whole block) go first into the next call.
  virtual void RenderAudio(IWBDataBuffer& Block, bool Last);
  void SendData(ISRAudioBuffer& Buffer);
  virtual void StreamStop();  // closes the stream, forwards the stop

 private:
  void CloseStream();
  struct TImpl;
  TSRPWAudioSinkPin FInputPin;
  TSRPWAudioSourcePin FOutputPin;
  TSRAudioCompressionItems FDecompressions;
  TSRAudioFormatBasic FAudioFormat;
  std::unique_ptr<TImpl> FImpl;
};

namespace Sraudiodecompressor {
void RegisterPkg();
void UnregisterPkg();
}  // namespace Sraudiodecompressor

}  // namespace Quorvel
