// The raw audio logger: writes the audio reaching its input pin to a file as
// bare sample bytes, with no header: the stream's own PCM, or, with a usable
// item in AudioCompressions (on Windows), what the ACM codec makes of it.
// A reader must know the format from elsewhere.
#pragma once

#include <memory>
#include <string>

#include "frame/Srcommonlogger.h"
#include "frame/Wbstreams.h"
#include "media/Sraudiocompression.h"

namespace Quorvel {

class TSRRawLogger : public TSRCommonLogger {
 public:
  // The class's published properties: those of the logger base and
  // AudioCompressions (stored only when not empty).
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  explicit TSRRawLogger(TWBComponent* Owner = nullptr);
  ~TSRRawLogger() override;

  TSRAudioCompressionItems& GetAudioCompressions() { return FAudioCompressions; }
  void SetAudioCompressions(const TSRAudioCompressionItems& Items);  // [main thread] copies the items
  bool GetAudioCompressionsStored() const { return FAudioCompressions.Count() != 0; }
  // [any thread] The name the running stream writes to ("" when idle).
  std::string GetCurrentFileName() const;
  // [any thread] Whether the running stream is written compressed.
  bool IsCompressing() const;

  // [stream thread, holding the lock] Appends Size bytes to the file.
  void SendData(const void* Data, size_t Size);

 protected:
  // Starting a stream:
  //  1. without a target (disabled, or no file name) nothing is written;
  //  2. what a previous stream left open is closed;
  //  3. the file is created (or emptied), that handle released at once, and
  //     the file opened again for writing, denying other writers while the
  //     stream runs ("Can't create file <name>: <reason>", code -1);
  //  4. the first usable compression item, if any, opens the compressor
  //     from the stream's PCM format; when it refuses, the bytes go to the
  //     file as they are.
  void BeginAudio(const TSRWaveFormatExtensible* Format) override;
  // Writes the buffer's bytes, or their compressed form ("Can't write file
  // <name>", code -2, once a stream). Always answers true.
  bool RenderAudio(ISRAudioBuffer& Buffer) override;
  // Writes what the codec still holds, closes the compressor and the file.
  void EndAudio() override;

 private:
  void CloseFile();
  TSRAudioCompressionItems FAudioCompressions;
  TSRAcmCompressor FCompressor;
  std::unique_ptr<TWBFileStream> FStream;
  std::string FCurrentFileName;
  bool FWriteFailed = false;
};

namespace Srrawlogger {
void RegisterPkg();
void UnregisterPkg();
}  // namespace Srrawlogger

}  // namespace Quorvel
