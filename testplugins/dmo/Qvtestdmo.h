// The test DMO: an audio effect registered with DMORegister in the
// audio-effect category, in three classes:
//   "Quorvel Test DMO"                 one input and one output stream; types
//                                      (stream 0, both sides): 44100 Hz stereo,
//                                      a type without a wave format, 48000 Hz
//                                      stereo, 48000 Hz mono, all 16-bit PCM;
//                                      multiplies each sample by parameter 0
//                                      ("Gain", default 0.5), maps channels
//                                      (a mono output takes the left channel),
//                                      and hands out at most 256 frames per
//                                      ProcessOutput call, so that longer input
//                                      needs several calls (incomplete flag)
//   "Quorvel Test DMO Two Streams"     the same with two input streams
//   "Quorvel Test DMO Failing Types"   refuses every type it is given
// It offers IMediaObject, IMediaObjectInPlace and IMediaParams. The control
// function below is exported for tests, which reach it through the loaded
// module.
#pragma once

#include <cstdint>

struct QvTestDmoState {
  uint32_t ProcessOutputCalls;  // since the last reset
  uint32_t IncompleteAnswers;   // ProcessOutput calls that answered "incomplete"
  uint32_t InPlaceCalls;        // IMediaObjectInPlace::Process calls
  uint32_t SetParamCalls;
  float LastParamValue;
  uint32_t TimeFormatCalls;
  uint8_t LastTimeFormat[16];   // GUID
  uint32_t LastTimeUnit;
  uint32_t Objects;             // live objects
};

extern "C" {
// Copies the state into State and, with Reset non-zero, clears the counters.
typedef void (*QvTestDmoGetStateProc)(QvTestDmoState* State, int32_t Reset);
}

#define QVTESTDMO_NAME "Quorvel Test DMO"
#define QVTESTDMO_TWO_STREAMS_NAME "Quorvel Test DMO Two Streams"
#define QVTESTDMO_FAILING_TYPES_NAME "Quorvel Test DMO Failing Types"
