// `quorvel ds`: DirectShow filters by category, audio captured from one of
// them into a WAV file (TSRDSFromSourceFilter), and a WAV file rendered into
// one of them (TSRDSToSinkFilter).
//   quorvel ds list [CATEGORY]
//   quorvel ds capture FILTER -o FILE.wav -s SECONDS [-r RATE] [-c CHANNELS] [-b BITS] [--buffer FRAMES] [-q]
//   quorvel ds render -i FILE.wav FILTER [--category CATEGORY] [-o FILE] [-q]
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "dshow/Dsgraph.h"
#include "frame/Threading.h"
#include "media/Srdsfromsourcefilter.h"
#include "media/Srdstosinkfilter.h"
#include "tools/Quorvelcli.h"
#include "tools/Quorvelmedia.h"

// clang-format off
#include <windows.h>
#include <objbase.h>
// clang-format on

namespace Quorvel::Cli {
namespace {

class TComApartment {
 public:
  TComApartment() : FOwn(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {}
  ~TComApartment() {
    if (FOwn) CoUninitialize();
  }

 private:
  bool FOwn;
};

constexpr TDSCategory Categories[] = {TDSCategory::dcAudioCapture, TDSCategory::dcAudioRenderer,
                                      TDSCategory::dcAudioCompressor, TDSCategory::dcFilters,
                                      TDSCategory::dcMidiRenderer};

std::string CategoryNames() {
  std::string Text;
  for (TDSCategory C : Categories) Text += std::string(Text.empty() ? "" : ", ") + DSCategoryName(C);
  return Text;
}

int List(const TArgs& Args) {
  TArgs Names;
  if (const int Rc = ParseOptions(Args, {}, Names, 1)) return Rc;
  TDSCategory Only = TDSCategory::dcFilters;
  if (!Names.empty() && !DSCategoryFromName(Names[0], Only))
    return Fail("unknown category \"" + Names[0] + "\" (" + CategoryNames() + ")");
  for (TDSCategory C : Categories) {
    if (!Names.empty() && C != Only) continue;
    const std::vector<TDSFilterInfo> Filters = TDSGraphFilter::List(C);
    if (Names.empty()) std::printf("%s:\n", DSCategoryName(C));
    if (Filters.empty()) std::printf("%s(none)\n", Names.empty() ? "  " : "");
    for (const TDSFilterInfo& F : Filters) std::printf("%s%s\n", Names.empty() ? "  " : "", F.FriendlyName.c_str());
  }
  return 0;
}

// Runs the program's message loop until Done answers true or Seconds pass.
void PumpUntil(double Seconds, const std::function<bool()>& Done) {
  LARGE_INTEGER Frequency, Start, Now;
  QueryPerformanceFrequency(&Frequency);
  QueryPerformanceCounter(&Start);
  while (!Done()) {
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT);
    MSG Message;
    while (PeekMessageW(&Message, nullptr, 0, 0, PM_REMOVE)) {
      TranslateMessage(&Message);
      DispatchMessageW(&Message);
    }
    Threading::ProcessMainThreadQueue();
    QueryPerformanceCounter(&Now);
    if (double(Now.QuadPart - Start.QuadPart) / double(Frequency.QuadPart) > Seconds) break;
  }
}

int Capture(const TArgs& Args) {
  std::string Output;
  double Seconds = 0;
  long Rate = 44100, Channels = 2, Bits = 16, Buffer = 1024;
  bool Quiet = false;
  TArgs Names;
  if (const int Rc = ParseOptions(
          Args,
          {{"-o", true, [&](const std::string& V) { return !(Output = V).empty(); }, "the output file"},
           {"-s", true, [&](const std::string& V) { return ParseDouble(V, Seconds) && Seconds > 0 && Seconds <= 3600; },
            "seconds, above 0 and at most 3600"},
           {"-r", true, [&](const std::string& V) { return ParseInt(V, Rate) && Rate >= 1000 && Rate <= 384000; },
            "a rate from 1000 to 384000"},
           {"-c", true, [&](const std::string& V) { return ParseInt(V, Channels) && Channels >= 1 && Channels <= 32; },
            "1 to 32 channels"},
           {"-b", true,
            [&](const std::string& V) { return ParseInt(V, Bits) && (Bits == 8 || Bits == 16 || Bits == 24 || Bits == 32); },
            "8, 16, 24 or 32"},
           {"--buffer", true, [&](const std::string& V) { return ParseInt(V, Buffer) && Buffer >= 1 && Buffer <= 1 << 20; },
            "frames per buffer, 1 to 1048576"},
           {"-q", false, [&](const std::string&) { return Quiet = true; }, ""}},
          Names, 1))
    return Rc;
  if (Names.size() != 1 || Output.empty() || Seconds <= 0) return Usage();
  TOutputFile File;
  if (!File.Prepare(Output, {})) return 1;
  TReports Reports;
  const uint64_t Frames = uint64_t(std::llround(Seconds * double(Rate)));
  TWaveSink Sink(File.GetWorkName(), Frames);
  TSRDSFromSourceFilter Source;
  Reports.Attach(Source);
  Source.GetSourceFilter().Select(Names[0]);
  Source.SetAudioFormat(MakeWaveFormat(uint32_t(Rate), uint16_t(Channels), uint16_t(Bits)));
  Source.SetBufferSize(uint32_t(Buffer));
  if (!Source.GetOutputPin().Connect(Sink.GetInputPin())) return Fail("cannot connect the chain");
  Source.Start();
  if (!Source.IsRunning()) return Fail(Reports.Empty() ? Names[0] + " does not run" : Reports.First());
  TProgressBar Bar(!Quiet);
  // Real devices deliver in real time; give them the time and a margin.
  PumpUntil(Seconds + 10, [&] {
    Bar.Show(std::min(Source.GetFramesSent(), Frames), Frames);
    return Source.GetFramesSent() >= Frames || !Source.IsRunning();
  });
  Bar.Finish();
  Source.Stop();
  const std::string SinkError = Sink.Close();
  if (!Reports.Empty()) return Fail(Reports.First());
  if (!SinkError.empty()) return Fail(SinkError);
  std::printf("%s: captured %llu frames (%.2f s), %s, peak %.1f dBFS\n", Names[0].c_str(),
              static_cast<unsigned long long>(Sink.GetFrames()), double(Sink.GetFrames()) / double(Rate),
              PcmText(Sink.GetInfo()).c_str(), Sink.GetPeakDecibels());
  if (Sink.GetFrames() < Frames) Warn("the filter delivered less than asked for");
  if (!File.Commit()) return 1;
  std::printf("written: %s\n", Output.c_str());
  return 0;
}

int Render(const TArgs& Args) {
  std::string Input, Output, CategoryName = DSCategoryName(TDSCategory::dcAudioRenderer);
  bool Quiet = false;
  TArgs Names;
  if (const int Rc = ParseOptions(
          Args,
          {{"-i", true, [&](const std::string& V) { return !(Input = V).empty(); }, "the input file"},
           {"-o", true, [&](const std::string& V) { return !(Output = V).empty(); }, "the file the filter writes"},
           {"--category", true, [&](const std::string& V) { return !(CategoryName = V).empty(); }, CategoryNames()},
           {"-q", false, [&](const std::string&) { return Quiet = true; }, ""}},
          Names, 1))
    return Rc;
  if (Names.size() != 1 || Input.empty()) return Usage();
  TDSCategory Category;
  if (!DSCategoryFromName(CategoryName, Category))
    return Fail("unknown category \"" + CategoryName + "\" (" + CategoryNames() + ")");
  if (const std::string Problem = CheckExistingFile("input file", Input); !Problem.empty()) return Fail(Problem);
  TWaveStreamSource Source;
  if (const std::string Why = Source.Open(Input); !Why.empty()) return Fail(Why);
  TReports Reports;
  TSRDSToSinkFilter Sink;
  Reports.Attach(Sink);
  Sink.GetSinkFilter().SetCategory(Category);
  Sink.GetSinkFilter().Select(Names[0]);
  int32_t WriterResult = 0;
  if (!Output.empty())
    Sink.GetSinkFilter().OnFilterCreated = [&](IBaseFilter* Filter) { WriterResult = DSAddFileWriter(Filter, Output); };
  if (!Source.GetOutputPin().Connect(Sink.GetInputPin())) return Fail("cannot connect the chain");
  TProgressBar Bar(!Quiet);
  std::string ReadError;
  const uint64_t Frames = Source.Run(
      4096, [&] { return Sink.IsGraphBuilt(); }, [&](uint64_t Done, uint64_t Total) { Bar.Show(Done, Total); },
      ReadError);
  Bar.Finish();
  if (!Reports.Empty()) return Fail(Reports.First());
  if (WriterResult < 0) return Fail("cannot put a file writer after " + Names[0]);
  if (!Sink.IsStreamEnded()) return Fail(Names[0] + " does not connect");
  if (!ReadError.empty()) return Fail(Input + ": " + ReadError);
  if (Sink.GetLastDeliveryResult() < 0) return Fail(Names[0] + " refused the audio");
  std::printf("rendered %llu frames (%.2f s) of %s into %s\n", static_cast<unsigned long long>(Frames),
              Source.GetInfo().SampleRate ? double(Frames) / Source.GetInfo().SampleRate : 0.0,
              PcmText(Source.GetInfo()).c_str(), Names[0].c_str());
  return 0;
}

}  // namespace

int Ds(const TArgs& Args) {
  if (Args.empty()) return Usage();
  TComApartment Com;
  Threading::SetMainThread();
  const TArgs Rest(Args.begin() + 1, Args.end());
  if (Args[0] == "list") return List(Rest);
  if (Args[0] == "capture") return Capture(Rest);
  if (Args[0] == "render") return Render(Rest);
  return Usage();
}

}  // namespace Quorvel::Cli
