// quorvel components: the catalogue. quorvel run CHAIN.json: a chain document
// made into components, run from its sources to its sinks, with what each
// sink received. File sinks write through a temporary file each, put in
// place only when the whole chain ran without an error.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "asio/Srasioaudiodevice.h"
#include "frame/Srdemocomponents.h"
#include "frame/Srfilecomponents.h"
#include "frame/Wbdocument.h"
#include "frame/Wbregistration.h"
#include "platform/Files.h"
#include "tools/Quorvelcli.h"
#include "vst2/Srvsthost.h"

namespace Quorvel::Cli {
namespace {

// A document is a few kilobytes; anything far larger is not one.
constexpr std::streamoff kMaxDocumentBytes = 16 << 20;

template <typename T>
T* As(TWBComponent* C) {
  return dynamic_cast<T*>(C);
}

double Decibels(double Peak, unsigned Bits) {
  const double Full = std::ldexp(1.0, static_cast<int>(Bits ? Bits : 16) - 1);
  return Peak > 0 ? 20.0 * std::log10(Peak / Full) : -INFINITY;
}

}  // namespace

int ListComponents(const TArgs& Args) {
  if (!Args.empty()) return Usage();
  std::printf("package components (in unit order):\n");
  for (const TWBClassInfo* C : Design::Components::GetRegisteredComponents()) std::printf("  %s\n", C->ClassName.c_str());
  std::printf("frame components:\n");
  for (const TWBClassInfo* C : Design::Components::GetFrameComponents()) std::printf("  %s\n", C->ClassName.c_str());
  return 0;
}

int RunDocument(const TArgs& Args) {
  double Seconds = -1;
  TArgs Files;
  const std::vector<TOption> Options = {
      {"-s", true, [&](const std::string& V) { return ParseDouble(V, Seconds) && Seconds > 0 && Seconds <= 86400; },
       "seconds, above 0 and at most 86400"}};
  if (const int Rc = ParseOptions(Args, Options, Files, 1)) return Rc;
  if (Files.size() != 1) return Usage();
  if (const std::string Problem = CheckExistingFile("chain document", Files[0]); !Problem.empty()) return Fail(Problem);

  std::ifstream In(Files[0], std::ios::binary);
  In.seekg(0, std::ios::end);
  if (!In || In.tellg() > kMaxDocumentBytes) return Fail(Files[0] + ": not a chain document (too large)");
  In.seekg(0);
  std::stringstream Text;
  Text << In.rdbuf();
  TWBDocument Document;
  std::string Error;
  if (!ParseDocument(Text.str(), Document, Error)) return Fail(Files[0] + ": " + Error);

  // ASIO devices in the document live in this thread's COM apartment and find
  // their drivers where the package's ASIO drivers are listed.
  ASIOInitializeComForThisThread();
  RegisterBundledAsioDrivers();
  TReports Reports;  // outlives the components
  TWBComponent Form;
  std::vector<TWBComponent*> Made;
  if (!LoadDocument(Document, Form, Made, Error)) return Fail(Files[0] + ": " + Error);
  for (TWBComponent* C : Made) Reports.Attach(*C);

  // Inputs that the chain reads, and file sinks that write beside them.
  std::vector<TOutputFile::TInput> Inputs;
  for (TWBComponent* C : Made) {
    if (auto* S = As<TSRAudioFileSource>(C)) Inputs.push_back({"the input of " + C->GetName(), S->GetFileName()});
    if (auto* H = As<TSRVSTHost>(C)) Inputs.push_back({"the plug-in of " + C->GetName(), H->GetFileName()});
  }
  std::vector<std::unique_ptr<TOutputFile>> Outputs;
  std::vector<std::string> OutputNames;
  for (TWBComponent* C : Made) {
    std::string Name;
    if (auto* S = As<TSRAudioFileSink>(C)) Name = S->GetFileName();
    if (auto* W = As<TSRWaveFileWriter>(C)) Name = W->GetFileName();
    if (Name.empty()) continue;
    for (const std::string& Earlier : OutputNames)
      if (Earlier == Name || Platform::IsSameFile(Earlier, Name))
        return Fail(Files[0] + ": " + C->GetName() + " writes " + Name + ", which another sink writes too");
    OutputNames.push_back(Name);
    Outputs.push_back(std::make_unique<TOutputFile>());
    if (!Outputs.back()->Prepare(Name, Inputs)) return 1;
    if (auto* S = As<TSRAudioFileSink>(C)) S->SetFileName(Outputs.back()->GetWorkName());
    if (auto* W = As<TSRWaveFileWriter>(C)) W->SetFileName(Outputs.back()->GetWorkName());
  }

  // Devices start first (a device loaded enabled started before its pins
  // were connected: it starts again), then the other sources run in document
  // order: files to their end, tones for -s seconds (2 by default); devices
  // run until -s seconds have passed since they started.
  using TClock = std::chrono::steady_clock;
  const double For = Seconds > 0 ? Seconds : 2.0;
  std::vector<TSRASIOAudioDevice*> Devices;
  for (TWBComponent* C : Made)
    if (auto* D = As<TSRASIOAudioDevice>(C)) {
      if (D->GetRunning()) D->Stop();
      D->Start();
      if (!D->GetRunning())
        return Fail(C->GetName() + ": the device did not start" + (Reports.Empty() ? "" : ": " + Reports.First()));
      std::printf("%s: %s, %.0f Hz, buffers of %d frames\n", C->GetName().c_str(), D->GetDriverName().c_str(),
                  D->GetRunningSampleRate(), static_cast<int>(D->GetBufferSize().GetRunningSize()));
      Devices.push_back(D);
    }
  const auto Begin = TClock::now();
  bool AnySource = !Devices.empty();
  for (TWBComponent* C : Made) {
    if (auto* S = As<TSRAudioFileSource>(C)) {
      AnySource = true;
      const uint64_t Frames = S->Run();
      std::printf("%s: sent %llu frames of %s\n", C->GetName().c_str(), static_cast<unsigned long long>(Frames),
                  S->GetFileName().c_str());
    } else if (auto* T = As<TSRToneGenerator>(C)) {
      AnySource = true;
      T->Start();
      T->Generate(static_cast<size_t>(std::ceil(For * T->GetSampleRate() / static_cast<double>(T->GetBlockSize()))));
      T->Stop();
      std::printf("%s: sent %llu frames of a %.1f Hz tone\n", C->GetName().c_str(),
                  static_cast<unsigned long long>(T->GetFramesSent()), T->GetFrequency());
    }
  }
  if (!AnySource) return Fail(Files[0] + ": the chain has no source to run (a file source, a tone or a device)");
  if (!Devices.empty()) {
    // The drivers call back on threads of their own; this thread serves the
    // main-thread queue, where a driver's reset request stops its device.
    const auto End = Begin + std::chrono::duration_cast<TClock::duration>(std::chrono::duration<double>(For));
    for (auto Now = TClock::now(); Now < End; Now = TClock::now()) {
      bool AnyRunning = false;
      for (auto* D : Devices) AnyRunning = AnyRunning || D->GetRunning();
      if (!AnyRunning) break;
      const auto Left = std::chrono::duration_cast<std::chrono::milliseconds>(End - Now).count();
      Threading::WaitAndProcessMainThreadQueue(static_cast<int>(std::min<int64_t>(Left + 1, 50)));
    }
    for (auto* D : Devices) {
      const bool Stopped = !D->GetRunning();
      D->Stop();
      Threading::ProcessMainThreadQueue();
      const TSRASIOAudioDeviceStats St = D->GetStats();
      std::printf("%s: switches %llu, input buffers %llu, output buffers %llu, lost buffers %llu%s\n",
                  D->GetName().c_str(), static_cast<unsigned long long>(St.Switches),
                  static_cast<unsigned long long>(St.InputBuffers), static_cast<unsigned long long>(St.OutputBuffers),
                  static_cast<unsigned long long>(St.LostBuffers), Stopped ? " (the driver stopped it)" : "");
    }
  }
  if (!Reports.Empty()) return Fail(Reports.First());

  for (TWBComponent* C : Made) {
    if (auto* S = As<TSRAudioFileSink>(C)) {
      std::printf("%s: received %llu frames", C->GetName().c_str(),
                  static_cast<unsigned long long>(S->GetFramesWritten()));
      const auto Peaks = S->GetPeaks();
      for (size_t I = 0; I < Peaks.size(); ++I)
        std::printf("%s %.1f", I ? "," : "; peaks (dBFS)", Decibels(Peaks[I], S->GetFormat().GetBits()));
      std::printf("\n");
    } else if (auto* W = As<TSRWaveFileWriter>(C)) {
      std::printf("%s: received %llu frames, peak %d\n", C->GetName().c_str(),
                  static_cast<unsigned long long>(W->GetFramesWritten()), W->GetPeak());
    }
  }
  for (size_t I = 0; I < Outputs.size(); ++I) {
    if (!Outputs[I]->Commit()) return 1;
    std::printf("written: %s\n", OutputNames[I].c_str());
  }
  return 0;
}

}  // namespace Quorvel::Cli
