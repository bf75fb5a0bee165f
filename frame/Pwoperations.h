// Operations that travel along pins. A sender builds one (usually on its
// stack) and hands it to its pin; every connected pin sees the same object
// for the duration of the call. Receivers tell them apart by identifier.
#pragma once

#include <cstdint>

#include "frame/Sraudioformat.h"
#include "frame/Wbbuffers.h"

namespace Quorvel {

using TPWOperationID = uint32_t;

enum : TPWOperationID {
  poidStartWave = 1,
  poidStartSampleRate,
  poidSuppliedBuffer,
  poidPause,
  poidResume,
  poidStop,
  poidStartPump,
  poidMasterPump,
  poidPumpRequest,
  poidIntegerValue,
  poidRealValue,
  poidBoolValue,
  poidUser = 0x1000  // identifiers of operations that components define themselves
};

class TPWOperation {
 public:
  explicit TPWOperation(TPWOperationID ID) : FID(ID) {}
  virtual ~TPWOperation() = default;
  TPWOperationID GetID() const { return FID; }

 private:
  TPWOperationID FID;
};

// A stream starts with this format. RealTime tells receivers that the
// stream is paced by a clock (a device) rather than by its consumer.
class TPWStartWaveOperation final : public TPWOperation {
 public:
  TPWStartWaveOperation(const TSRWaveFormatExtensible& Format, bool RealTime = false)
      : TPWOperation(poidStartWave), FFormat(Format), FSampleRate(Format.Format.nSamplesPerSec), FRealTime(RealTime) {}
  // A classic header with an exact (possibly fractional) sample rate.
  TPWStartWaveOperation(double SampleRate, const TWaveFormatEx& Format, bool RealTime = false);
  const TSRWaveFormatExtensible& GetFormat() const { return FFormat; }
  double GetSampleRate() const { return FSampleRate; }
  bool GetRealTime() const { return FRealTime; }

 private:
  TSRWaveFormatExtensible FFormat;
  double FSampleRate;
  bool FRealTime;
};

inline TPWStartWaveOperation::TPWStartWaveOperation(double SampleRate, const TWaveFormatEx& Format, bool RealTime)
    : TPWOperation(poidStartWave),
      FFormat(MakeWaveFormat(Format.nSamplesPerSec, Format.nChannels, Format.wBitsPerSample)),
      FSampleRate(SampleRate),
      FRealTime(RealTime) {}

// A data stream (not audio) starts at this rate.
class TPWStartSampleRateOperation final : public TPWOperation {
 public:
  explicit TPWStartSampleRateOperation(double SampleRate) : TPWOperation(poidStartSampleRate), FSampleRate(SampleRate) {}
  double GetSampleRate() const { return FSampleRate; }

 private:
  double FSampleRate;
};

// A buffer is delivered. Receivers that keep it take their own reference.
class TPWSuppliedBufferOperation final : public TPWOperation {
 public:
  explicit TPWSuppliedBufferOperation(IWBDataBuffer* Buffer) : TPWOperation(poidSuppliedBuffer), FBuffer(Buffer) {}
  IWBDataBuffer* GetBuffer() const { return FBuffer; }
  ISRAudioBuffer* GetAudioBuffer() const { return FBuffer ? FBuffer->AsAudioBuffer() : nullptr; }

 private:
  IWBDataBuffer* FBuffer;
};

class TPWWBPauseOperation final : public TPWOperation {
 public:
  TPWWBPauseOperation() : TPWOperation(poidPause) {}
};

class TPWWBResumeOperation final : public TPWOperation {
 public:
  TPWWBResumeOperation() : TPWOperation(poidResume) {}
};

class TPWStopOperation final : public TPWOperation {
 public:
  TPWStopOperation() : TPWOperation(poidStop) {}
};

// Pull mode: a consumer starts the pump, drives it (master pump) or asks
// for the next buffer. These travel upstream, from sink pins to source pins.
class TPWStartPumpOperation final : public TPWOperation {
 public:
  TPWStartPumpOperation() : TPWOperation(poidStartPump) {}
};

class TPWMasterPumpOperation final : public TPWOperation {
 public:
  TPWMasterPumpOperation() : TPWOperation(poidMasterPump) {}
};

class TPWPumpRequestOperation final : public TPWOperation {
 public:
  TPWPumpRequestOperation() : TPWOperation(poidPumpRequest) {}
};

// Control values carried by the typed state and source pins.
template <typename T, TPWOperationID ID>
class TPWValueOperation final : public TPWOperation {
 public:
  explicit TPWValueOperation(T Value) : TPWOperation(ID), FValue(Value) {}
  T GetValue() const { return FValue; }

 private:
  T FValue;
};
using TPWIntegerValueOperation = TPWValueOperation<int64_t, poidIntegerValue>;
using TPWRealValueOperation = TPWValueOperation<double, poidRealValue>;
using TPWBoolValueOperation = TPWValueOperation<bool, poidBoolValue>;

}  // namespace Quorvel
