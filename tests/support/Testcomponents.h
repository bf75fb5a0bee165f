// Components for tests: a source that sends exactly what the test gives it,
// and a sink that records every operation and sample that reaches it.
#pragma once

#include <string>
#include <vector>

#include "frame/Wbcomponent.h"

namespace Quorvel::Testing {

class TTestSource : public TWBComponent {
 public:
  explicit TTestSource(TWBComponent* Owner = nullptr, unsigned Channels = 1, unsigned Bits = 16, double Rate = 48000)
      : TWBComponent(Owner), Output(*this, "Output"), FChannels(Channels), FBits(Bits), FRate(Rate) {}
  ~TTestSource() override { BeginDestroy(); }

  void Start() {
    Threading::TLockGuard G(GetLock());
    Output.SendStartWave(
        MakeWaveFormat(static_cast<uint32_t>(FRate), static_cast<uint16_t>(FChannels), static_cast<uint16_t>(FBits)));
  }
  // Sends Count frames whose channel c sample is First + i + c * 1000.
  void SendRamp(int32_t First, size_t Count) {
    Threading::TLockGuard G(GetLock());
    auto B = TSRAudioBuffer::Create(FChannels, Count, FBits, FRate);
    for (size_t I = 0; I < Count; ++I)
      for (unsigned C = 0; C < FChannels; ++C) B->SetSample(I, C, First + static_cast<int32_t>(I + C * 1000));
    Output.SubmitBuffer(B);
  }
  void Stop() {
    Threading::TLockGuard G(GetLock());
    Output.SendStop();
  }
  void SourceDispatch(TPWBasicPin*, TPWBasicPin*, TPWOperationID ID, TPWOperation&, TPWNotifyStates&) override {
    UpstreamIDs.push_back(ID);
  }

  TSRPWAudioSourcePin Output;
  std::vector<TPWOperationID> UpstreamIDs;

 private:
  unsigned FChannels, FBits;
  double FRate;
};

class TRecordingSink : public TWBComponent {
 public:
  explicit TRecordingSink(TWBComponent* Owner = nullptr, size_t Pins = 1) : TWBComponent(Owner) {
    for (size_t I = 0; I < Pins; ++I)
      Inputs.push_back(std::make_unique<TSRPWAudioSinkPin>(*this, "In" + std::to_string(I)));
    Samples.resize(Pins);
    Channels.resize(Pins);
  }
  ~TRecordingSink() override { BeginDestroy(); }

  struct TEvent {
    size_t Pin;
    TPWOperationID ID;
  };

  void SinkDispatch(TPWBasicPin*, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override {
    size_t Pin = 0;
    while (Pin < Inputs.size() && Inputs[Pin].get() != SinkPin) ++Pin;
    Events.push_back({Pin, ID});
    if (ID == poidStartWave) Formats.push_back(static_cast<TPWStartWaveOperation&>(Operation).GetFormat());
    if (ID == poidSuppliedBuffer) {
      if (const ISRAudioBuffer* B = static_cast<TPWSuppliedBufferOperation&>(Operation).GetAudioBuffer()) {
        BlockSizes.push_back(B->GetSamples());
        for (size_t I = 0; I < B->GetSamples(); ++I) Samples[Pin].push_back(B->GetSample(I, 0));
        if (Channels[Pin].size() < B->GetChannels()) Channels[Pin].resize(B->GetChannels());
        for (unsigned C = 0; C < B->GetChannels(); ++C)
          for (size_t I = 0; I < B->GetSamples(); ++I) Channels[Pin][C].push_back(B->GetSample(I, C));
      }
    }
    States.Include(TPWNotifyState::pnsHandled);
  }

  size_t Count(TPWOperationID ID) const {
    size_t N = 0;
    for (const auto& E : Events) N += E.ID == ID;
    return N;
  }

  std::vector<std::unique_ptr<TSRPWAudioSinkPin>> Inputs;
  std::vector<TEvent> Events;
  std::vector<TSRWaveFormatExtensible> Formats;
  std::vector<size_t> BlockSizes;
  std::vector<std::vector<int32_t>> Samples;  // channel 0 of each pin
  std::vector<std::vector<std::vector<int32_t>>> Channels;  // every channel of each pin
};

}  // namespace Quorvel::Testing
