// The DMO effect: audio at its input pin runs through one DirectX Media
// Object of the audio-effect category, chosen by name, and the result goes
// out of its output pin. Input and output media types are either fixed
// (an index into the DMO's type list) or chosen automatically against the
// incoming format. Windows only; the header compiles anywhere.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "frame/Srcommonfilter.h"
#include "frame/Wbpersistence.h"
#include "platform/Guid.h"

namespace Quorvel {

class TSRDMOEffect;
class TCBDMOFilter;

// The DMO's parameters as (index, value) pairs, applied in order when the
// DMO is created.
class TCBDMOParameters : public TWBPersistent {
 public:
  struct TValue {
    uint32_t Index;
    float Value;
  };
  using TWBPersistent::TWBPersistent;
  void SetValue(uint32_t Index, float Value);  // [main thread] replaces or adds
  bool GetValue(uint32_t Index, float& Value) const;
  const std::vector<TValue>& GetValues() const { return FValues; }
  void Clear() { FValues.clear(); }
  bool Assign(const TWBPersistent& Source) override;

 private:
  std::vector<TValue> FValues;
};

// The time format of the DMO's parameter envelopes: a format identifier
// and its unit. Applied only when set.
class TCBDMOEnvelopeTimeFormat : public TWBPersistent {
 public:
  using TWBPersistent::TWBPersistent;
  void SetFormat(const TGUID& Format, uint32_t Unit);  // [main thread]
  bool IsSet() const { return FSet; }
  const TGUID& GetFormat() const { return FFormat; }
  uint32_t GetUnit() const { return FUnit; }
  void Clear() { FSet = false; }
  bool Assign(const TWBPersistent& Source) override;

 private:
  TGUID FFormat{};
  uint32_t FUnit = 0;
  bool FSet = false;
};

// One side's media type: a fixed index into the DMO's type list of stream
// 0, or automatic selection, and the last selected format.
class TSRDMOMediaType : public TWBPersistent {
 public:
  enum class TSide { dsInput, dsOutput };
  static const TWBClassInfo& ClassInfo();
  TSRDMOMediaType(TSRDMOEffect& Owner, TSide Side);

  TSide GetSide() const { return FSide; }
  int32_t GetTypeIndex() const { return FTypeIndex; }
  bool GetAutoSelect() const { return FAutoSelect; }
  void SetAutoSelect(bool Value);  // [main thread]
  // The last selected format, when known.
  bool GetFormatKnown() const { return FKnown; }
  uint16_t GetChannels() const { return FChannels; }
  uint32_t GetSampleRate() const { return FSampleRate; }
  uint16_t GetBits() const { return FBits; }

  // [main thread] One text per type of the DMO's stream 0 (this side) that
  // has a wave format, in the DMO's order: "<n>. Channels : <c> Rate : <r>
  // Bits : <b>", n counting those types from 0. No DMO: none.
  std::vector<std::string> GetMediaTypes() const;
  void GetMediaTypes(std::vector<std::string>* List) const;  // a nil list is an assertion failure
  // [main thread] Asks the DMO for type Index; on success keeps the index
  // and the type's format. Otherwise nothing changes; answers which.
  bool SetTypeIndex(int32_t Index);
  // [main thread] A TypeIndex beyond the listed types becomes 0.
  void AdjustIndex();
  // [main thread] "Select Audio Format": "Auto Select", then the listed
  // types. True when confirmed.
  bool ShowDialog();
  bool Assign(const TWBPersistent& Source) override;

 private:
  friend class TSRDMOEffect;
  void Selected(uint16_t Channels, uint32_t Rate, uint16_t Bits);
  TSRDMOEffect& FEffect;
  TSide FSide;
  int32_t FTypeIndex = 0;
  bool FAutoSelect = true;
  bool FKnown = false;
  uint16_t FChannels = 0;
  uint32_t FSampleRate = 0;
  uint16_t FBits = 0;
};

class TSRDMOEffect : public TSRCommonFilter {
 public:
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  explicit TSRDMOEffect(TWBComponent* Owner = nullptr);
  ~TSRDMOEffect() override;

  // [main thread] The names of the audio-effect DMOs (keyed ones included),
  // in the system's order.
  static std::vector<std::string> GetDmoNames();
  static void GetDmoNames(std::vector<std::string>& List);
  // [main thread] A list dialog of those names; the chosen one becomes DmoName.
  bool ShowDmoSelectDialog();

  std::string GetDmoName() const;                 // [any thread]
  void SetDmoName(const std::string& Value);      // [main thread] takes effect at the next stream
  TCBDMOParameters& GetParameters();
  void SetParameters(const TCBDMOParameters& Value);
  TCBDMOEnvelopeTimeFormat& GetTimeFormatProp();
  void SetTimeFormatProp(const TCBDMOEnvelopeTimeFormat& Value);
  TSRDMOMediaType& GetInputMediaType() { return *FInputMediaType; }
  TSRDMOMediaType& GetOutputMediaType() { return *FOutputMediaType; }
  void SetInputMediaType(const TSRDMOMediaType& Value);   // [main thread] copies
  void SetOutputMediaType(const TSRDMOMediaType& Value);  // [main thread] copies
  // [any thread] Whether a DMO runs the current stream.
  bool IsProcessing() const;

 protected:
  // Starting a stream with the incoming format:
  //  1. the DMO is created (in-process, IMediaObject) and its in-place
  //     interface asked for;
  //  2. the stored parameters and time format are applied (AplyParams);
  //  3. it must have one input and one output stream;
  //  4. the input type: automatic (an exact match at once, else the best by
  //     the replacement rule) or the one at TypeIndex;
  //  5. the output type the same way, against the same incoming format.
  // Any failure releases the DMO's objects; the component then passes no
  // audio until the next start ("Can't start DMO <name>" warning).
  void AudioStreamStart(TPWStartWaveOperation& Operation) override;
  void StreamStop() override;
  // DoProcessBuffer: ProcessInput (sync point), then ProcessOutput until the
  // output is complete; the produced audio goes out as one buffer.
  void InternalOperation(ISRAudioBuffer& InBuffer, ISRAudioBufferRef& OutBuffer, bool Pumped,
                         bool& SendOutput) override;
  bool CanStart() override;
  TSRWaveFormatExtensible GetOutputFormat() override;

 private:
  friend class TSRDMOMediaType;
  std::unique_ptr<TCBDMOFilter> FFilter;
  std::unique_ptr<TSRDMOMediaType> FInputMediaType, FOutputMediaType;
  std::string FDmoName;
};

namespace Srdmoeffect {
void RegisterPkg();
void UnregisterPkg();
}  // namespace Srdmoeffect

}  // namespace Quorvel
