#include "media/Srrawlogger.h"

#include <cstring>

#include "frame/Wbpersistence.h"
#include "frame/Wbregistration.h"

namespace Quorvel {

using Threading::TLockGuard;

TSRRawLogger::TSRRawLogger(TWBComponent* Owner) : TSRCommonLogger(Owner), FAudioCompressions(this) {}

TSRRawLogger::~TSRRawLogger() {
  BeginDestroy();
  CloseLog();
  CloseFile();
}

void TSRRawLogger::SetAudioCompressions(const TSRAudioCompressionItems& Items) {
  TLockGuard G(GetLock());
  FAudioCompressions.Assign(Items);
}

std::string TSRRawLogger::GetCurrentFileName() const {
  TLockGuard G(GetLock());
  return FStream ? FCurrentFileName : std::string();
}

bool TSRRawLogger::IsCompressing() const {
  TLockGuard G(GetLock());
  return FStream && FCompressor.GetOpened();
}

void TSRRawLogger::BeginAudio(const TSRWaveFormatExtensible* Format) {
  TLockGuard G(GetLock());
  if (!HasTarget() || !Format) return;
  CloseFile();
  FCurrentFileName = GetFileName();
  FWriteFailed = false;
  {
    TWBFileStream Create(FCurrentFileName, Platform::TFileOpenMode::fomCreate, Platform::TFileShareMode::fsmShareAll);
    if (!Create.IsOpen()) {
      Error("Can't create file " + FCurrentFileName + ": " + Create.GetOpenError(), -1);
      return;
    }
  }
  auto Stream = std::make_unique<TWBFileStream>(FCurrentFileName, Platform::TFileOpenMode::fomReadWrite,
                                                Platform::TFileShareMode::fsmDenyWrite);
  if (!Stream->IsOpen()) {
    Error("Can't create file " + FCurrentFileName + ": " + Stream->GetOpenError(), -1);
    return;
  }
  FStream = std::move(Stream);
  if (const TSRAudioCompressionItem* Item = FAudioCompressions.FirstUsable()) {
    const TWaveFormatEx Source = CompressionSourceFormat(*Format);
    FCompressor.OpenCompressor(Source, Item->GetFormat().data(), Item->GetFormat().size());
  }
}

bool TSRRawLogger::RenderAudio(ISRAudioBuffer& Buffer) {
  TLockGuard G(GetLock());
  if (!FStream) return true;
  if (!FCompressor.GetOpened()) {
    SendData(Buffer.GetData(), Buffer.GetSize());
  } else if (IWBDataBufferRef Block = FCompressor.CompressBuffer(Buffer.GetData(), Buffer.GetSize())) {
    SendData(Block->GetData(), Block->GetSize());
  }
  return true;
}

void TSRRawLogger::SendData(const void* Data, size_t Size) {
  TLockGuard G(GetLock());
  if (!FStream || Size == 0) return;
  if (!FStream->WriteExact(Data, int64_t(Size)) && !FWriteFailed) {
    FWriteFailed = true;
    Error("Can't write file " + FCurrentFileName, -2);
  }
}

void TSRRawLogger::EndAudio() {
  TLockGuard G(GetLock());
  CloseFile();
}

void TSRRawLogger::CloseFile() {
  if (FCompressor.GetOpened()) {
    if (FStream)
      if (IWBDataBufferRef Rest = FCompressor.CompressBuffer(nullptr, 0, true)) SendData(Rest->GetData(), Rest->GetSize());
    FCompressor.CloseCompressor();
  }
  FStream.reset();
}

const TWBClassInfo& TSRRawLogger::ClassInfo() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRRawLogger", &TSRCommonLogger::ClassInfo(),
      {Collection<TSRRawLogger>(
          "AudioCompressions", TSRAudioCompressionItem::ClassInfo(),
          [](TSRRawLogger& L) { return L.GetAudioCompressions().Count(); },
          [](TSRRawLogger& L, size_t N, std::string&) {
            L.GetAudioCompressions().SetCount(N);
            return true;
          },
          [](TSRRawLogger& L, size_t I) -> void* { return L.GetAudioCompressions().Get(I); })},
      Factory<TSRRawLogger>());
  return Info;
}

namespace Srrawlogger {
void RegisterPkg() { Design::Components::RegisterComponents({&TSRRawLogger::ClassInfo()}); }
void UnregisterPkg() { Design::Components::UnregisterComponents({&TSRRawLogger::ClassInfo()}); }
}  // namespace Srrawlogger

}  // namespace Quorvel
