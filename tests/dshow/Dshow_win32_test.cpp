// The DirectShow components over Wine's real filter graphs: the source with
// the test capture filter (testplugins/dshow, registered in the audio
// capture category) into a file and into a recorder, sample by sample; the
// sink into the system's sample grabber (checking every time stamp), into the
// default audio renderer on ALSA's null device and into the null renderer;
// and the failure of every build step reached by a selection or a variant.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "dshow/Dsgraph.h"
#include "frame/Srdemocomponents.h"
#include "media/Srdsfromsourcefilter.h"
#include "media/Srdstosinkfilter.h"
#include "platform/Audiofile.h"
#include "testplugins/dshow/Qvtestcapture.h"

// clang-format off
#include <windows.h>
#include <strmif.h>
#include <control.h>
#include <qedit.h>
// clang-format on

using namespace Quorvel;

namespace {

// Runs the thread's message loop until Done; the limit only guards against a hang.
bool PumpUntil(const std::function<bool()>& Done) {
  const ULONGLONG Limit = GetTickCount64() + 60000;
  while (!Done()) {
    if (GetTickCount64() > Limit) return false;
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 5, QS_ALLINPUT);
    MSG Message;
    while (PeekMessageW(&Message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&Message);
  }
  return true;
}

// Keeps what reaches its pin: operations, format, samples, buffer timing.
class TRecorder : public TWBComponent {
 public:
  TRecorder() : Input(*this, "Input") {}
  ~TRecorder() override { BeginDestroy(); }
  void SinkDispatch(TPWBasicPin*, TPWBasicPin*, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override {
    IDs.push_back(ID);
    if (ID == poidStartWave) Format = static_cast<TPWStartWaveOperation&>(Operation).GetFormat();
    if (ID == poidSuppliedBuffer)
      if (const ISRAudioBuffer* B = static_cast<TPWSuppliedBufferOperation&>(Operation).GetAudioBuffer()) {
        Sizes.push_back(B->GetSamples());
        Starts.push_back(B->GetStreamStart());
        Sequence.push_back(B->GetSequenceNumber());
        for (size_t I = 0; I < B->GetSamples(); ++I)
          for (unsigned C = 0; C < B->GetChannels(); ++C) Samples.push_back(B->GetSample(I, C));
      }
    States.Include(TPWNotifyState::pnsHandled);
  }
  TSRPWAudioSinkPin Input;
  std::vector<TPWOperationID> IDs;
  TSRWaveFormatExtensible Format{};
  std::vector<size_t> Sizes;
  std::vector<int64_t> Starts;
  std::vector<uint64_t> Sequence;
  std::vector<int32_t> Samples;
};

// Checks interleaved samples against the capture filter's signal.
void ExpectSignal(const std::vector<int32_t>& Samples, unsigned Channels, unsigned Bits, uint64_t Frames) {
  ASSERT_EQ(Samples.size(), Frames * Channels);
  size_t Wrong = 0;
  for (uint64_t N = 0; N < Frames; ++N)
    for (unsigned C = 0; C < Channels; ++C)
      if (Samples[N * Channels + C] != QvTestCaptureValue(N, C, Bits) && Wrong++ < 5)
        ADD_FAILURE() << "frame " << N << " channel " << C << ": " << Samples[N * Channels + C] << " instead of "
                      << QvTestCaptureValue(N, C, Bits);
  EXPECT_EQ(Wrong, 0u);
}

// Whether every object of the test capture filter is gone (none leaked).
bool CaptureObjectsGone() {
  HMODULE Module = GetModuleHandleW(L"Qvtestcapture.dll");
  if (!Module) return true;
  auto CanUnload = reinterpret_cast<HRESULT(WINAPI*)()>(
      reinterpret_cast<void*>(GetProcAddress(Module, "DllCanUnloadNow")));
  return CanUnload && CanUnload() == S_OK;
}

class DshowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
    Threading::SetMainThread();
  }
  void TearDown() override { CoUninitialize(); }
  // Collects the component's errors instead of raising them.
  void Collect(TWBComponent& C) {
    C.OnError = [this](TWBComponent*, const std::string& Message, int32_t Code, bool& Handled) {
      Errors.push_back(Message);
      Codes.push_back(Code);
      Handled = true;
    };
  }
  std::vector<std::string> Errors;
  std::vector<int32_t> Codes;
};

// ---- source ------------------------------------------------------------------

TEST_F(DshowTest, SourceCapturesTheSignalIntoAWaveFile) {
  char Dir[MAX_PATH], Name[MAX_PATH];
  GetTempPathA(MAX_PATH, Dir);
  GetTempFileNameA(Dir, "qds", 0, Name);
  {
    TSRDSFromSourceFilter Source;
    TSRWaveFileWriter Writer;
    Collect(Source);
    Writer.SetFileName(Name);
    ASSERT_TRUE(Source.GetOutputPin().Connect(Writer.GetInputPin()));
    ASSERT_TRUE(Source.GetSourceFilter().Select(QVTESTCAPTURE_NAME));
    Source.SetAudioFormat(MakeWaveFormat(44100, 2, 16));
    Source.SetBufferSize(256);
    // Enabling starts it.
    Source.SetEnabled(false);
    Source.SetEnabled(true);
    ASSERT_TRUE(Source.IsRunning()) << (Errors.empty() ? "" : Errors[0]);
    EXPECT_TRUE(Source.HasBufferNegotiation());
    ASSERT_TRUE(PumpUntil([&] { return Source.GetFramesSent() >= QVTESTCAPTURE_FRAMES; }));
    // The stop from another thread arrives through the component's window.
    std::thread([&] { Source.RequestStop(); }).join();
    ASSERT_TRUE(PumpUntil([&] { return !Source.IsRunning() && !Source.IsGraphBuilt(); }));
    EXPECT_FALSE(Writer.IsWriting());
    // Buffers of the negotiated size: 256 frames each, the rest in the last.
    EXPECT_EQ(Source.GetBuffersSent(), (QVTESTCAPTURE_FRAMES + 255) / 256);
    EXPECT_TRUE(Errors.empty());
  }
  EXPECT_TRUE(CaptureObjectsGone());
  std::string Why;
  auto Reader = Platform::OpenAudioFileForReading(Name, Why);
  ASSERT_TRUE(Reader) << Why;
  ASSERT_EQ(Reader->Info().Channels, 2u);
  ASSERT_EQ(Reader->Info().SampleRate, 44100u);
  ASSERT_EQ(Reader->Info().Frames, QVTESTCAPTURE_FRAMES);
  std::vector<int16_t> Data(QVTESTCAPTURE_FRAMES * 2);
  ASSERT_EQ(Reader->Read(Data.data(), QVTESTCAPTURE_FRAMES), int64_t(QVTESTCAPTURE_FRAMES));
  ExpectSignal(std::vector<int32_t>(Data.begin(), Data.end()), 2, 16, QVTESTCAPTURE_FRAMES);
  Reader.reset();
  DeleteFileA(Name);
}

TEST_F(DshowTest, SourceDeliversEveryFormatInOrderWithStreamTimes) {
  struct TCase {
    const char* Filter;
    uint32_t Rate;
    uint16_t Channels, Bits;
    uint32_t BufferSize;     // asked
    size_t ExpectedFrames;   // per buffer
    bool Negotiates;
  };
  const TCase Cases[] = {
      {QVTESTCAPTURE_NAME, 22050, 1, 24, 1000, 1000, true},
      {QVTESTCAPTURE_NAME, 8000, 3, 8, 300, 300, true},
      {QVTESTCAPTURE_NAME, 96000, 2, 32, 4096, 4096, true},
      // Without negotiation the filter keeps its own 441 frames.
      {QVTESTCAPTURE_NAME " (no negotiation)", 48000, 2, 16, 1000, 441, false},
  };
  for (const TCase& K : Cases) {
    SCOPED_TRACE(std::string(K.Filter) + " " + std::to_string(K.Bits) + " bits");
    TSRDSFromSourceFilter Source;
    TRecorder Out;
    Collect(Source);
    ASSERT_TRUE(Source.GetOutputPin().Connect(Out.Input));
    ASSERT_TRUE(Source.GetSourceFilter().Select(K.Filter));
    Source.SetAudioFormat(MakeWaveFormat(K.Rate, K.Channels, K.Bits));
    Source.SetBufferSize(K.BufferSize);
    Source.Start();
    ASSERT_TRUE(Source.IsRunning()) << (Errors.empty() ? "" : Errors[0]);
    EXPECT_EQ(Source.HasBufferNegotiation(), K.Negotiates);
    ASSERT_TRUE(PumpUntil([&] { return Source.GetFramesSent() >= QVTESTCAPTURE_FRAMES; }));
    Source.Stop();
    EXPECT_FALSE(Source.IsGraphBuilt());
    ASSERT_GE(Out.IDs.size(), 3u);
    EXPECT_EQ(Out.IDs.front(), poidStartWave);
    EXPECT_EQ(Out.IDs.back(), poidStop);
    EXPECT_EQ(Out.Format.Format.nSamplesPerSec, K.Rate);
    EXPECT_EQ(Out.Format.Format.nChannels, K.Channels);
    EXPECT_EQ(Out.Format.Format.wBitsPerSample, K.Bits);
    ExpectSignal(Out.Samples, K.Channels, K.Bits, QVTESTCAPTURE_FRAMES);
    // Consecutive sequence numbers from 1, stream times where the frames lie.
    uint64_t Frames = 0;
    for (size_t I = 0; I < Out.Sizes.size(); ++I) {
      EXPECT_EQ(Out.Sequence[I], I + 1);
      EXPECT_EQ(Out.Starts[I], int64_t(Frames * 10000000 / K.Rate));
      if (I + 1 < Out.Sizes.size()) {
        EXPECT_EQ(Out.Sizes[I], K.ExpectedFrames);
      }
      Frames += Out.Sizes[I];
    }
    EXPECT_TRUE(Errors.empty());
  }
}

// Stopping while the filter's thread delivers (small buffers keep it busy):
// no deadlock between the graph's stop and a sample waiting for the
// component, the stop goes last, and what came is the signal's beginning.
TEST_F(DshowTest, SourceStopsWhileTheFilterDelivers) {
  for (int Round = 0; Round < 2; ++Round) {
    SCOPED_TRACE(Round);
    TSRDSFromSourceFilter Source;
    TRecorder Out;
    Collect(Source);
    ASSERT_TRUE(Source.GetOutputPin().Connect(Out.Input));
    ASSERT_TRUE(Source.GetSourceFilter().Select(QVTESTCAPTURE_NAME));
    Source.SetAudioFormat(MakeWaveFormat(44100, 1, 16));
    Source.SetBufferSize(16);
    Source.Start();
    ASSERT_TRUE(Source.IsRunning());
    ASSERT_TRUE(PumpUntil([&] { return Source.GetBuffersSent() > 0; }));
    Source.Stop();
    EXPECT_FALSE(Source.IsGraphBuilt());
    const uint64_t Frames = Out.Samples.size();
    ASSERT_GT(Frames, 0u);
    EXPECT_EQ(Out.IDs.back(), poidStop);
    EXPECT_EQ(Out.IDs.front(), poidStartWave);
    ExpectSignal(Out.Samples, 1, 16, Frames);
    // Started again, the stream begins anew.
    const size_t Before = Out.IDs.size();
    Source.SetBufferSize(4096);
    Source.Start();
    ASSERT_TRUE(PumpUntil([&] { return Source.GetFramesSent() >= QVTESTCAPTURE_FRAMES; }));
    Source.Stop();
    EXPECT_EQ(Out.IDs[Before], poidStartWave);
    EXPECT_TRUE(Errors.empty());
  }
  EXPECT_TRUE(CaptureObjectsGone());
}

TEST_F(DshowTest, SourceOnAnExternalClockOrPumpedSendsOnlyWhenAsked) {
  for (bool Pumped : {false, true}) {
    SCOPED_TRACE(Pumped ? "pumped" : "external clock");
    TSRDSFromSourceFilter Source;
    TRecorder Out;
    TWBComponent Ticker;
    TWBPWSourcePin Tick(Ticker, "Tick");
    Collect(Source);
    ASSERT_TRUE(Source.GetOutputPin().Connect(Out.Input));
    ASSERT_TRUE(Tick.Connect(Source.GetClockPin()));
    ASSERT_TRUE(Source.GetSourceFilter().Select(QVTESTCAPTURE_NAME));
    Source.SetAudioFormat(MakeWaveFormat(44100, 1, 16));
    // 20 buffers: all fit the queue.
    Source.SetBufferSize(QVTESTCAPTURE_FRAMES / 20);
    if (Pumped)
      Source.SetPumpType(TSRDSPumpType::ptPumped);
    else
      Source.SetClockSource(TSRDSClockSource::csExternal);
    Source.Start();
    ASSERT_TRUE(Source.IsRunning()) << (Errors.empty() ? "" : Errors[0]);
    ASSERT_TRUE(PumpUntil([&] { return Source.GetBuffersGrabbed() == 20; }));
    EXPECT_EQ(Source.GetFramesSent(), 0u);
    if (Pumped) {
      // One buffer per request.
      Out.Input.PumpRequest();
      EXPECT_EQ(Source.GetBuffersSent(), 1u);
      for (int I = 0; I < 25; ++I) Out.Input.PumpRequest();
    } else {
      TPWSuppliedBufferOperation Clock(nullptr);
      Tick.Notify(Clock);
    }
    EXPECT_EQ(Source.GetBuffersSent(), 20u);
    Source.Stop();
    ExpectSignal(Out.Samples, 1, 16, QVTESTCAPTURE_FRAMES);
    EXPECT_TRUE(Errors.empty());
  }
}

TEST_F(DshowTest, SourceBuildFailuresNameTheirStepAndDisable) {
  struct TCase {
    const char* Filter;  // nullptr: none selected
    const char* Message;
  };
  const TCase Cases[] = {
      {nullptr, "Can't create the DirectShow filter."},
      {"No Such Capture Device", "Can't create the DirectShow filter."},
      {QVTESTCAPTURE_NAME " (no class)", "Can't create the DirectShow filter."},
      {QVTESTCAPTURE_NAME " (refuses graph)", "Can't add the DirectShow filter."},
      {QVTESTCAPTURE_NAME " (no stream config)", "Can't set audio sample grabber format."},
      {QVTESTCAPTURE_NAME " (refuses format)", "Can't set desired audio format."},
      {QVTESTCAPTURE_NAME " (wrong type)", "Can't set audio sample grabber."},
  };
  for (const TCase& K : Cases) {
    SCOPED_TRACE(K.Filter ? K.Filter : "(none)");
    Errors.clear();
    Codes.clear();
    TSRDSFromSourceFilter Source;
    TRecorder Out;
    Collect(Source);
    ASSERT_TRUE(Source.GetOutputPin().Connect(Out.Input));
    if (K.Filter) Source.GetSourceFilter().Select(K.Filter);
    Source.Start();
    EXPECT_FALSE(Source.IsRunning());
    EXPECT_FALSE(Source.IsGraphBuilt());
    EXPECT_FALSE(Source.GetEnabled());  // the failed start turns Enabled back off
    ASSERT_EQ(Errors.size(), 1u);
    EXPECT_EQ(Errors[0], K.Message);
    EXPECT_LT(Codes[0], 0);
    EXPECT_TRUE(Out.IDs.empty());
  }
  EXPECT_TRUE(CaptureObjectsGone());
  // The clock step: an additional filter of the graph refuses our clock.
  Errors.clear();
  TSRDSFromSourceFilter Source;
  Collect(Source);
  ASSERT_TRUE(Source.GetSourceFilter().Select(QVTESTCAPTURE_NAME));
  const CLSID NoClock = {0x5E0C7A41, 0x2D4B, 0x4F0E, {0x9C, 0x61, 0x7B, 0x3A, 0x1D, 0x2E, 0x4F, 0x05}};
  IBaseFilter* Clockless = nullptr;
  ASSERT_TRUE(SUCCEEDED(CoCreateInstance(NoClock, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                         reinterpret_cast<void**>(&Clockless))));
  Source.GetGraph().AddAdditionalFilter(Clockless, L"Clockless");
  Clockless->Release();
  Source.SetClockSource(TSRDSClockSource::csInternal);
  EXPECT_TRUE(Source.Open());  // the source's own timing asks nothing of the filters
  Source.Close();
  Source.SetClockSource(TSRDSClockSource::csExternal);
  EXPECT_FALSE(Source.Open());
  ASSERT_EQ(Errors.size(), 1u);
  EXPECT_EQ(Errors[0], "Can't obtain set custom clock source.");
}

// ---- sink ------------------------------------------------------------------------

// Sends a start, buffers with chosen timing, and a stop.
class TTimedSource : public TWBComponent {
 public:
  TTimedSource() : Output(*this, "Output") {}
  ~TTimedSource() override { BeginDestroy(); }
  void Start(uint32_t Rate, uint16_t Channels) {
    FRate = Rate;
    FChannels = Channels;
    Output.SendStartWave(MakeWaveFormat(Rate, Channels, 16));
  }
  // Frames of the running ramp; StreamStart < 0: no stream time; Sequence 0: none.
  void Send(size_t Frames, int64_t StreamStart, uint64_t Sequence) {
    auto B = TSRAudioBuffer::Create(FChannels, Frames, 16, FRate);
    for (size_t I = 0; I < Frames; ++I)
      for (unsigned C = 0; C < FChannels; ++C) B->SetSample(I, C, int32_t((FAt + I) * 3 + C) % 30000);
    FAt += Frames;
    if (StreamStart >= 0) B->SetStreamTime(StreamStart, StreamStart + int64_t(Frames) * 10000000 / FRate);
    if (Sequence) B->SetSequenceNumber(Sequence);
    Output.SubmitBuffer(B);
  }
  void Stop() { Output.SendStop(); }
  TSRPWAudioSourcePin Output;

 private:
  uint32_t FRate = 0;
  uint16_t FChannels = 0;
  size_t FAt = 0;
};

// The system's sample grabber as the sink's filter: what it receives, with times.
class TGrabbed final : public ISampleGrabberCB {
 public:
  struct TSample {
    REFERENCE_TIME Start, End;
    std::vector<uint8_t> Bytes;
  };
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID Iid, void** Out) override {
    if (Iid != IID_IUnknown && Iid != IID_ISampleGrabberCB) return E_NOINTERFACE;
    *Out = this;
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE SampleCB(double, IMediaSample* Sample) override {
    TSample S{};
    Sample->GetTime(&S.Start, &S.End);
    BYTE* P = nullptr;
    Sample->GetPointer(&P);
    S.Bytes.assign(P, P + Sample->GetActualDataLength());
    Samples.push_back(std::move(S));
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE BufferCB(double, BYTE*, long) override { return E_NOTIMPL; }
  std::vector<TSample> Samples;
};

TEST_F(DshowTest, SinkStampsTimesAndKeepsGapsAsTime) {
  TTimedSource Source;
  TSRDSToSinkFilter Sink;
  TGrabbed Grabbed;
  Collect(Sink);
  Sink.GetSinkFilter().SetCategory(TDSCategory::dcFilters);
  ASSERT_TRUE(Sink.GetSinkFilter().Select("SampleGrabber"));
  Sink.GetSinkFilter().OnFilterCreated = [&](IBaseFilter* Filter) {
    ISampleGrabber* G = nullptr;
    ASSERT_TRUE(SUCCEEDED(Filter->QueryInterface(IID_ISampleGrabber, reinterpret_cast<void**>(&G))));
    G->SetCallback(&Grabbed, 0);
    G->Release();
  };
  ASSERT_TRUE(Source.Output.Connect(Sink.GetInputPin()));
  const int64_t D100 = 100 * 10000000LL / 8000;  // 100 frames at 8000 Hz: 125000 units
  Source.Start(8000, 2);
  ASSERT_TRUE(Sink.IsGraphBuilt()) << (Errors.empty() ? "" : Errors[0]);
  ASSERT_TRUE(Sink.IsAudioBegun());
  // The first buffer starts at 0 whatever its stream time; its sequence
  // number is not kept, so the second is compared with 0 and adds no gap.
  Source.Send(100, 5000000, 1);
  Source.Send(100, 5000000 + D100 + 700, 2);
  // Consecutive, 1000 units later in the stream: a gap of 1000.
  Source.Send(100, 5000000 + 2 * D100 + 1700, 3);
  // The sequence number jumps (buffers lost): no gap, however late.
  Source.Send(100, 90000000, 7);
  // Not Send: no time moves, nothing is delivered.
  const int64_t Before = Sink.GetNextStartTime();
  {
    auto B = TSRAudioBuffer::Create(2, 100, 16, 8000);
    B->SetStreamTime(99000000, 99000000 + D100);
    Sink.RenderAudio(false, *B);
  }
  EXPECT_EQ(Sink.GetNextStartTime(), Before);
  // Without a sequence number the stream time alone decides: 500 units after
  // the last stream end seen (which the unsent buffer moved on).
  Source.Send(100, 99000000 + D100 + 500, 0);
  // No stream time: straight on.
  Source.Send(50, -1, 0);
  Source.Stop();
  EXPECT_TRUE(Sink.IsStreamEnded());
  EXPECT_FALSE(Sink.IsAudioBegun());
  EXPECT_FALSE(Sink.IsGraphBuilt());
  EXPECT_TRUE(Errors.empty()) << Errors[0];
  EXPECT_EQ(Sink.GetLastDeliveryResult(), 0);

  const int64_t D50 = 50 * 10000000LL / 8000;
  const std::vector<std::pair<int64_t, int64_t>> Expected = {
      {0, D100},
      {D100, 2 * D100},
      {2 * D100 + 1000, 3 * D100 + 1000},
      {3 * D100 + 1000, 4 * D100 + 1000},
      {4 * D100 + 1500, 5 * D100 + 1500},
      {5 * D100 + 1500, 5 * D100 + 1500 + D50},
  };
  ASSERT_EQ(Grabbed.Samples.size(), Expected.size());
  size_t Frame = 0;
  for (size_t I = 0; I < Expected.size(); ++I) {
    SCOPED_TRACE(I);
    EXPECT_EQ(Grabbed.Samples[I].Start, Expected[I].first);
    EXPECT_EQ(Grabbed.Samples[I].End, Expected[I].second);
    const auto& Bytes = Grabbed.Samples[I].Bytes;
    ASSERT_EQ(Bytes.size() % 4, 0u);
    for (size_t F = 0; F < Bytes.size() / 4; ++F, ++Frame)
      for (unsigned C = 0; C < 2; ++C) {
        int16_t V;
        std::memcpy(&V, &Bytes[F * 4 + C * 2], 2);
        ASSERT_EQ(V, int16_t(int32_t(Frame * 3 + C) % 30000)) << "frame " << Frame;
      }
  }
}

// Wine's DirectSound renderer on ALSA's null device now and then never
// finishes an end of stream; the sink's bounded wait lets such a stream end.
TEST_F(DshowTest, SinkRendersIntoTheSystemRenderersStreamAfterStream) {
  for (const char* Renderer : {"Default DirectSound Device", "Null Renderer"}) {
    SCOPED_TRACE(Renderer);
    TTimedSource Source;
    TSRDSToSinkFilter Sink;
    Collect(Sink);
    if (std::string(Renderer) == "Null Renderer") Sink.GetSinkFilter().SetCategory(TDSCategory::dcFilters);
    ASSERT_TRUE(Sink.GetSinkFilter().Select(Renderer));
    ASSERT_TRUE(Source.Output.Connect(Sink.GetInputPin()));
    // Two streams one after the other: each begins from time 0 again.
    for (int Stream = 0; Stream < 2; ++Stream) {
      Source.Start(48000, 2);
      ASSERT_TRUE(Sink.IsGraphBuilt()) << (Errors.empty() ? "" : Errors[0]);
      EXPECT_EQ(Sink.GetNextStartTime(), 0);
      for (int I = 0; I < 10; ++I) Source.Send(1200, -1, 0);
      EXPECT_EQ(Sink.GetNextStartTime(), 2500000);  // a quarter of a second
      Source.Stop();
      EXPECT_TRUE(Sink.IsStreamEnded());
      EXPECT_EQ(Sink.GetLastDeliveryResult(), 0);
    }
    EXPECT_TRUE(Errors.empty()) << Errors[0];
  }
}

TEST_F(DshowTest, SinkBuildFailuresNameTheirStep) {
  struct TCase {
    TDSCategory Category;
    const char* Filter;   // nullptr: none selected
    const char* Message;  // nullptr: nothing is built and nothing reported
  };
  const TCase Cases[] = {
      {TDSCategory::dcAudioRenderer, nullptr, nullptr},
      {TDSCategory::dcAudioRenderer, "No Such Renderer", "Can't set audio source filter."},
      {TDSCategory::dcAudioCapture, QVTESTCAPTURE_NAME " (no class)", "Can't set audio source filter."},
      {TDSCategory::dcAudioCapture, QVTESTCAPTURE_NAME " (refuses graph)", "Can't render audio output."},
      // A filter without an input pin cannot take the stream.
      {TDSCategory::dcAudioCapture, QVTESTCAPTURE_NAME, "Can't render audio output."},
  };
  for (const TCase& K : Cases) {
    SCOPED_TRACE(K.Filter ? K.Filter : "(none)");
    Errors.clear();
    TTimedSource Source;
    TSRDSToSinkFilter Sink;
    Collect(Sink);
    Sink.GetSinkFilter().SetCategory(K.Category);
    if (K.Filter) Sink.GetSinkFilter().Select(K.Filter);
    ASSERT_TRUE(Source.Output.Connect(Sink.GetInputPin()));
    Source.Start(44100, 2);
    EXPECT_FALSE(Sink.IsGraphBuilt());
    Source.Send(441, -1, 0);  // nothing to deliver to, nothing moves
    EXPECT_EQ(Sink.GetNextStartTime(), 0);
    Source.Stop();
    if (!K.Message) {
      EXPECT_TRUE(Errors.empty());
    } else {
      ASSERT_EQ(Errors.size(), 1u);
      EXPECT_EQ(Errors[0], K.Message);
    }
  }
}

// Nobody handles the error: it is raised, and neither component keeps a
// half-built graph holding the chosen filter (the capture filter's objects
// are all gone); a source started that way is switched off again.
TEST_F(DshowTest, UnhandledBuildErrorsRaiseAndLeaveNoGraph) {
  {
    TSRDSFromSourceFilter Source;
    Source.GetSourceFilter().Select("No Such Capture Device");
    try {
      Source.Open();
      ADD_FAILURE() << "no exception";
    } catch (const EWBException& E) {
      EXPECT_EQ(std::string(E.what()).rfind("Can't create the DirectShow filter. - ", 0), 0u) << E.what();
    }
    EXPECT_FALSE(Source.IsGraphBuilt());
    // A step after the filter joined the graph.
    ASSERT_TRUE(Source.GetSourceFilter().Select(QVTESTCAPTURE_NAME " (refuses format)"));
    try {
      Source.Start();
      ADD_FAILURE() << "no exception";
    } catch (const EWBException& E) {
      EXPECT_EQ(std::string(E.what()).rfind("Can't set desired audio format. - ", 0), 0u) << E.what();
    }
    EXPECT_FALSE(Source.GetEnabled());
    EXPECT_FALSE(Source.IsGraphBuilt());
    EXPECT_FALSE(Source.GetGraph().Exists());
    EXPECT_TRUE(CaptureObjectsGone());
  }
  {
    TTimedSource Source;
    TSRDSToSinkFilter Sink;
    Sink.GetSinkFilter().SetCategory(TDSCategory::dcAudioCapture);
    ASSERT_TRUE(Sink.GetSinkFilter().Select(QVTESTCAPTURE_NAME));  // no input pin
    ASSERT_TRUE(Source.Output.Connect(Sink.GetInputPin()));
    try {
      Source.Start(44100, 2);
      ADD_FAILURE() << "no exception";
    } catch (const EWBException& E) {
      EXPECT_EQ(std::string(E.what()).rfind("Can't render audio output. - ", 0), 0u) << E.what();
    }
    EXPECT_FALSE(Sink.IsGraphBuilt());
    EXPECT_TRUE(CaptureObjectsGone());
    Source.Stop();
    EXPECT_FALSE(Sink.IsAudioBegun());
  }
}

// Whether Graph is registered in the running object table.
bool InRunningObjectTable(IUnknown* Graph) {
  IUnknown* Wanted = nullptr;
  if (FAILED(Graph->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&Wanted)))) return false;
  Wanted->Release();
  IRunningObjectTable* Table = nullptr;
  if (FAILED(GetRunningObjectTable(0, &Table))) return false;
  IEnumMoniker* Enum = nullptr;
  bool Found = false;
  if (SUCCEEDED(Table->EnumRunning(&Enum)) && Enum) {
    IMoniker* M = nullptr;
    while (!Found && Enum->Next(1, &M, nullptr) == S_OK) {
      IUnknown* Object = nullptr;
      if (SUCCEEDED(Table->GetObject(M, &Object)) && Object) {
        IUnknown* Identity = nullptr;
        if (SUCCEEDED(Object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&Identity)))) {
          Found = Identity == Wanted;
          Identity->Release();
        }
        Object->Release();
      }
      M->Release();
    }
    Enum->Release();
  }
  Table->Release();
  return Found;
}

// The names of the filters in a graph.
std::vector<std::wstring> FilterNames(IGraphBuilder* Graph) {
  std::vector<std::wstring> Names;
  IEnumFilters* Enum = nullptr;
  if (FAILED(Graph->EnumFilters(&Enum)) || !Enum) return Names;
  IBaseFilter* F = nullptr;
  while (Enum->Next(1, &F, nullptr) == S_OK) {
    FILTER_INFO Info{};
    if (SUCCEEDED(F->QueryFilterInfo(&Info))) {
      Names.push_back(Info.achName);
      if (Info.pGraph) Info.pGraph->Release();
    }
    F->Release();
  }
  Enum->Release();
  return Names;
}

// The order of the builds' steps as the callbacks see it. The source's
// creation callback finds its filter in the graph before the grabber; the
// graph is in the running object table when "changed" is signalled and
// flagged built only at "built". The sink signals "built" before the graph
// runs, and "changed" once it runs and is registered.
TEST_F(DshowTest, BuildsSignalInTheirOrder) {
  std::vector<std::string> Seen;
  {
    TSRDSFromSourceFilter Source;
    Collect(Source);
    TDSGraph& Graph = Source.GetGraph();
    ASSERT_TRUE(Source.GetSourceFilter().Select(QVTESTCAPTURE_NAME));
    Source.GetSourceFilter().OnFilterCreated = [&](IBaseFilter* Filter) {
      FILTER_INFO Info{};
      ASSERT_TRUE(SUCCEEDED(Filter->QueryFilterInfo(&Info)));
      EXPECT_TRUE(Info.pGraph != nullptr);
      if (Info.pGraph) Info.pGraph->Release();
      EXPECT_EQ(FilterNames(Graph.GetGraph()), std::vector<std::wstring>{L"Source Filter"});
      Seen.push_back("created");
    };
    Graph.OnGraphChanged = [&] {
      EXPECT_TRUE(InRunningObjectTable(Graph.GetGraph()));
      EXPECT_FALSE(Source.IsGraphBuilt());
      Seen.push_back("changed");
    };
    Graph.OnGraphBuilt = [&] {
      EXPECT_TRUE(Source.IsGraphBuilt());
      Seen.push_back("built");
    };
    ASSERT_TRUE(Source.Open()) << (Errors.empty() ? "" : Errors[0]);
    EXPECT_EQ(Seen, (std::vector<std::string>{"created", "changed", "built"}));
    IGraphBuilder* Built = Graph.GetGraph();
    Built->AddRef();
    Source.Close();
    EXPECT_FALSE(InRunningObjectTable(Built));  // revoked with the graph
    Built->Release();
  }
  Seen.clear();
  {
    TTimedSource Source;
    TSRDSToSinkFilter Sink;
    Collect(Sink);
    TDSGraph& Graph = Sink.GetGraph();  // nothing chosen yet: nothing built
    EXPECT_FALSE(Graph.Exists());
    auto State = [&] {
      OAFilterState S = -1;
      Graph.GetControl()->GetState(0, &S);
      return S;
    };
    Graph.OnGraphBuilt = [&] {
      EXPECT_TRUE(Sink.IsGraphBuilt());
      EXPECT_EQ(State(), State_Stopped);
      EXPECT_FALSE(InRunningObjectTable(Graph.GetGraph()));
      Seen.push_back("built");
    };
    Graph.OnGraphChanged = [&] {
      EXPECT_EQ(State(), State_Running);
      EXPECT_TRUE(InRunningObjectTable(Graph.GetGraph()));
      Seen.push_back("changed");
    };
    Sink.GetSinkFilter().SetCategory(TDSCategory::dcFilters);
    ASSERT_TRUE(Sink.GetSinkFilter().Select("Null Renderer"));
    ASSERT_TRUE(Source.Output.Connect(Sink.GetInputPin()));
    Source.Start(44100, 2);
    EXPECT_EQ(Seen, (std::vector<std::string>{"built", "changed"}));
    Source.Stop();
  }
  EXPECT_TRUE(Errors.empty()) << Errors[0];
}

}  // namespace
