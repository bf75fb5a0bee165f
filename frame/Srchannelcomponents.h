// Joining mono streams into one stream of several channels, and splitting
// one stream into mono streams: the bridge between components with a pin per
// channel (files, devices, the VST 2 host) and those with a pin per bus of
// several channels (the VST 3 host).
//
//   file/device pins 1..N -> TSRChannelJoiner -> VST 3 bus -> TSRChannelSplitter -> pins 1..N
//
// Both are multi-input components: blocks of BufferSize frames, built at
// stream start, nothing allocated per block.
#pragma once

#include "frame/Srbasicmultiinput.h"

namespace Quorvel {

// Input pin i ("Channel i+1") becomes channel i of the output ("Output");
// an input without a stream gives silence in its channel.
class TSRChannelJoiner : public TSRBasicMultiInput {
 public:
  // The class's published properties (frame/Wbpersistence.h): Channels.
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  explicit TSRChannelJoiner(TWBComponent* Owner = nullptr, size_t Channels = 2);
  ~TSRChannelJoiner() override;
  // [main thread, stream stopped] The number of inputs, at least 1.
  void SetChannels(size_t Value);
  size_t GetChannels() { return GetInputPins().Count(); }

 protected:
  void StreamStarted() override;
  void CalculateSendOutput() override;
  void IntStop() override;
  TPWBasicPin* CreateInputPin(size_t Index) override;

 private:
  ISRAudioBufferRef FChannel;  // one input's block
};

// Channel i of the input ("Input") goes out of output pin i ("Channel i+1")
// as a mono stream; outputs beyond the input's channels send silence.
class TSRChannelSplitter : public TSRBasicMultiInput {
 public:
  // The class's published properties (frame/Wbpersistence.h): Channels.
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  explicit TSRChannelSplitter(TWBComponent* Owner = nullptr, size_t Channels = 2);
  ~TSRChannelSplitter() override;
  // [main thread, stream stopped] The number of outputs, at least 1.
  void SetChannels(size_t Value);
  size_t GetChannels() { return GetOutputPins().Count(); }

 protected:
  void StreamStarted() override;
  void CalculateSendOutput() override;
  void IntStop() override;
  TSRWaveFormatExtensible GetOutputFormat(size_t Index) override;
  TPWBasicPin* CreateOutputPin(size_t Index) override;

 private:
  ISRAudioBufferRef FChannel;  // one output's block
};

}  // namespace Quorvel
