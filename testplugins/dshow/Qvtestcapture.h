// The test capture filter (Windows only): Qvtestcapture.dll, a COM
// in-process server whose filters regsvr32 registers in the audio capture
// category. Each variant is a class of its own, registered under its name:
//
//   "Quorvel Test Capture"                  works: the signal below
//   "Quorvel Test Capture (no negotiation)" works, without IAMBufferNegotiation
//   "Quorvel Test Capture (no stream config)" its pin has no IAMStreamConfig
//   "Quorvel Test Capture (refuses format)" IAMStreamConfig::SetFormat fails
//   "Quorvel Test Capture (wrong type)"     SetFormat succeeds, yet the pin
//                                           offers only a format tag (0x2222)
//                                           that nothing converts
//   "Quorvel Test Capture (no clock)"       SetSyncSource fails
//   "Quorvel Test Capture (refuses graph)"  JoinFilterGraph fails
//   "Quorvel Test Capture (no class)"       registered, but the server makes no object
//
// The output pin (category PIN_CATEGORY_CAPTURE through IKsPropertySet)
// offers integer PCM of the format set through IAMStreamConfig (default
// 44100 Hz, 2 channels, 16 bits; 8, 16, 24 or 32 bits, 1 to 8 channels).
// While the graph runs, a thread of the filter delivers QVTESTCAPTURE_FRAMES
// frames as fast as the graph takes them, in buffers of the size suggested
// through IAMBufferNegotiation (default 441 frames), time-stamped from 0 at
// the sample rate, then end of stream.
#pragma once

#include <cstdint>

#define QVTESTCAPTURE_NAME "Quorvel Test Capture"
#define QVTESTCAPTURE_FRAMES 88200u

// The signal: the 16-bit value of frame N, channel C, and the value at a
// width of Bits (8-bit offset by 128 as in wave files, wider ones shifted up).
inline int32_t QvTestCaptureValue16(uint64_t N, unsigned C) {
  return int32_t((N * 331u + C * 7919u) % 65536u) - 32768;
}
inline int32_t QvTestCaptureValue(uint64_t N, unsigned C, unsigned Bits) {
  const int32_t V = QvTestCaptureValue16(N, C);
  if (Bits == 8) return V >> 8;  // stored offset by 128
  return Bits == 16 ? V : V * (int32_t(1) << (Bits - 16));
}
