// `quorvel acm`, `encode` and `decode`: the ACM codecs and their formats, and
// WAV files through TSRAudioCompressor and TSRAudioDecompressor.
//   quorvel acm list
//   quorvel encode -i IN.wav -o OUT.wav --format NAME [-q]
//   quorvel decode -i IN -o OUT.wav [--format NAME] [-r RATE -c CHANNELS] [-q]
// An encoded file is a WAV file whose format chunk is the codec's own record
// (WAVEFORMATEX with its extra bytes), with a fact chunk holding the frames
// it decodes to, as other programs read it. decode also takes headerless
// data (as `quorvel log --format` writes it) when told its format.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "frame/Wbstreams.h"
#include "media/Sraudiocompressor.h"
#include "media/Sraudiodecompressor.h"
#include "tools/Quorvelcli.h"
#include "tools/Quorvelmedia.h"

namespace Quorvel::Cli {
namespace {

constexpr uint16_t kTagPcm = 0x0001;
// Headerless input read at once is limited to this size.
constexpr int64_t kMaxRawInput = int64_t(1) << 30;

struct TNamedFormat {
  std::string Short;  // "ima-adpcm"
  std::string Exact;  // "IMA ADPCM, 8.000 kHz, 4 Bit, Mono"
  std::vector<uint8_t> Format;
};

uint16_t TagOf(const std::vector<uint8_t>& Format) {
  TWaveFormatEx F{};
  std::memcpy(&F, Format.data(), std::min(Format.size(), sizeof F));
  return F.wFormatTag;
}

std::string TagName(const std::vector<TSRAcmFormatTag>& Tags, uint16_t Tag) {
  for (const auto& T : Tags)
    if (T.Tag == Tag && !T.Name.empty()) return T.Name;
  return "Tag " + CodecName(Tag);
}

// Every compressed format the codecs offer, named as `acm list` prints them.
std::vector<TNamedFormat> ListFormats() {
  const std::vector<TSRAcmFormatTag> Tags = EnumerateAcmFormatTags();
  std::vector<TNamedFormat> Formats;
  for (const TSRAcmFormat& F : EnumerateAcmFormats(0)) {
    if (F.Format.size() < sizeof(TWaveFormatEx) || TagOf(F.Format) == kTagPcm) continue;
    const uint16_t Tag = TagOf(F.Format);
    Formats.push_back({CodecName(Tag), TagName(Tags, Tag) + ", " + (F.Name.empty() ? DescribeFormat(F.Format) : F.Name),
                       F.Format});
  }
  return Formats;
}

std::string Lower(std::string S) {
  for (char& C : S) C = char(std::tolower(static_cast<unsigned char>(C)));
  return S;
}

bool IsShortName(const std::string& Name) {
  return std::any_of(CodecNames().begin(), CodecNames().end(),
                     [&](const TCodecName& N) { return Lower(Name) == N.Name; });
}

// ---- components of the commands' chains -----------------------------------------------

// Keeps the compressed stream: its format record and its bytes. A start-wave
// instead of a start-audio-compression means nothing was compressed.
class TCompressedCollector : public TWBComponent {
 public:
  TCompressedCollector() : TWBComponent(nullptr), FInputPin(*this, "Input") {}
  ~TCompressedCollector() override { BeginDestroy(); }
  TSRPWAudioSinkPin& GetInputPin() { return FInputPin; }
  void SinkDispatch(TPWBasicPin*, TPWBasicPin*, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override {
    Threading::TLockGuard G(GetLock());
    States.Include(TPWNotifyState::pnsHandled);
    if (ID == TSRStartAudioCompressionOperation::ID) {
      const auto& Start = static_cast<TSRStartAudioCompressionOperation&>(Operation);
      Format.assign(Start.GetDestFormat(), Start.GetDestFormat() + Start.GetDestFormatSize());
      Data.clear();
    } else if (ID == poidSuppliedBuffer && !Format.empty()) {
      if (const IWBDataBuffer* B = static_cast<TPWSuppliedBufferOperation&>(Operation).GetBuffer())
        Data.insert(Data.end(), B->GetData(), B->GetData() + B->GetSize());
    }
  }
  std::vector<uint8_t> Format, Data;

 private:
  TSRPWAudioSinkPin FInputPin;
};

// Sends bytes of a compressed stream: start-sample-rate, blocks, stop.
class TBlockSource : public TWBComponent {
 public:
  TBlockSource() : TWBComponent(nullptr), FOutputPin(*this, "Output") {}
  ~TBlockSource() override { BeginDestroy(); }
  TSRPWAudioSourcePin& GetOutputPin() { return FOutputPin; }
  // Started runs after the start and may answer false to end there.
  void Run(double Rate, const std::vector<uint8_t>& Bytes, size_t Block, const std::function<bool()>& Started,
           const std::function<void(uint64_t, uint64_t)>& Progress) {
    Threading::TLockGuard G(GetLock());
    FOutputPin.SendStartSampleRate(Rate);
    if (Started()) {
      for (size_t At = 0; At < Bytes.size(); At += Block) {
        const size_t N = std::min(Block, Bytes.size() - At);
        auto B = TWBBlockBuffer::Create(N);
        std::memcpy(B->GetData(), Bytes.data() + At, N);
        FOutputPin.SubmitBuffer(B);
        Progress(At + N, Bytes.size());
      }
    }
    FOutputPin.SendStop();
  }

 private:
  TSRPWAudioSourcePin FOutputPin;
};

// ---- acm list -------------------------------------------------------------------

int List(const TArgs& Args) {
  TArgs None;
  if (const int Rc = ParseOptions(Args, {}, None, 0)) return Rc;
  const std::vector<TSRAcmFormatTag> Tags = EnumerateAcmFormatTags();
  if (Tags.empty()) return Fail("no ACM codecs are installed");
  std::printf("codecs:\n  %-7s %-12s %-20s %s\n", "tag", "short name", "name", "codec");
  for (const auto& T : Tags)
    std::printf("  0x%04X  %-12s %-20s %s\n", unsigned(T.Tag), CodecName(T.Tag).c_str(), T.Name.c_str(),
                T.Codec.c_str());
  std::printf("formats (--format takes a short name, or the exact name after it):\n");
  for (const TNamedFormat& F : ListFormats()) std::printf("  %-12s %s\n", F.Short.c_str(), F.Exact.c_str());
  return 0;
}

// ---- encode ---------------------------------------------------------------------------

int EncodeFile(const TArgs& Args) {
  std::string Input, Output, FormatName;
  bool Quiet = false;
  TArgs None;
  if (const int Rc = ParseOptions(
          Args,
          {{"-i", true, [&](const std::string& V) { return !(Input = V).empty(); }, "the input file"},
           {"-o", true, [&](const std::string& V) { return !(Output = V).empty(); }, "the output file"},
           {"--format", true, [&](const std::string& V) { return !(FormatName = V).empty(); }, "a format name"},
           {"-q", false, [&](const std::string&) { return Quiet = true; }, ""}},
          None, 0))
    return Rc;
  if (Input.empty() || Output.empty() || FormatName.empty()) return Usage();
  if (const std::string Problem = CheckExistingFile("input file", Input); !Problem.empty()) return Fail(Problem);
  TWaveStreamSource Source;
  if (const std::string Why = Source.Open(Input); !Why.empty()) return Fail(Why);
  const Platform::TAudioFileInfo Info = Source.GetInfo();
  std::vector<uint8_t> Format;
  if (const std::string Why = FindCodecFormat(FormatName, Info.SampleRate, Info.Channels, Format); !Why.empty())
    return Fail(Why);
  TOutputFile File;
  if (!File.Prepare(Output, {{"the input file", Input}})) return 1;

  TReports Reports;
  TSRAudioCompressor Compressor;
  TCompressedCollector Collector;
  Reports.Attach(Compressor);
  Compressor.GetAudioCompressions().Add()->SetFormat(Format);
  Source.GetOutputPin().Connect(Compressor.GetInputPin());
  Compressor.GetOutputPin().Connect(Collector.GetInputPin());
  TProgressBar Bar(!Quiet);
  std::string ReadError;
  bool Compressing = false;
  const uint64_t Frames = Source.Run(
      4096, [&] { return Compressing = Compressor.IsCompressing(); },
      [&](uint64_t Done, uint64_t Total) { Bar.Show(Done, Total); }, ReadError);
  Bar.Finish();
  if (!Reports.Empty()) return Fail(Reports.First());
  if (!Compressing) return Fail("the codecs refuse to compress " + PcmText(Info) + " to " + FormatName);
  if (!ReadError.empty()) return Fail(Input + ": " + ReadError);
  if (Frames > 0xFFFFFFFFu) return Fail(Input + " is too long for the fact chunk of a WAV file");

  Platform::TEncodedWave Wave;
  Wave.Format = Collector.Format;
  Wave.SampleFrames = uint32_t(Frames);
  Wave.Data = std::move(Collector.Data);
  std::string Why;
  if (!Platform::WriteEncodedWave(File.GetWorkName(), Wave, Why)) return Fail(Why);
  const uint64_t PcmBytes = Frames * Info.Channels * (Info.Bits / 8);
  std::printf("encoded %llu frames (%.2f s) of %s as %s (%s): %zu bytes, %.1f%% of the PCM\n",
              static_cast<unsigned long long>(Frames), Info.SampleRate ? double(Frames) / Info.SampleRate : 0.0,
              PcmText(Info).c_str(), CodecName(TagOf(Wave.Format)).c_str(), DescribeFormat(Wave.Format).c_str(),
              Wave.Data.size(), PcmBytes ? 100.0 * double(Wave.Data.size()) / double(PcmBytes) : 0.0);
  if (!File.Commit()) return 1;
  std::printf("written: %s\n", Output.c_str());
  return 0;
}

// ---- decode ---------------------------------------------------------------------------

bool IsWaveFile(const std::string& FileName) {
  TWBFileStream Stream(FileName, Platform::TFileOpenMode::fomRead, Platform::TFileShareMode::fsmShareAll);
  char Head[12] = {};
  return Stream.IsOpen() && Stream.ReadExact(Head, sizeof Head) && std::memcmp(Head, "RIFF", 4) == 0 &&
         std::memcmp(Head + 8, "WAVE", 4) == 0;
}

int DecodeFile(const TArgs& Args) {
  std::string Input, Output, FormatName;
  long Rate = 0, Channels = 0;
  bool Quiet = false;
  TArgs None;
  if (const int Rc = ParseOptions(
          Args,
          {{"-i", true, [&](const std::string& V) { return !(Input = V).empty(); }, "the input file"},
           {"-o", true, [&](const std::string& V) { return !(Output = V).empty(); }, "the output file"},
           {"--format", true, [&](const std::string& V) { return !(FormatName = V).empty(); }, "a format name"},
           {"-r", true, [&](const std::string& V) { return ParseInt(V, Rate) && Rate > 0 && Rate <= 1000000; },
            "a sample rate in Hz"},
           {"-c", true, [&](const std::string& V) { return ParseInt(V, Channels) && Channels > 0 && Channels <= 255; },
            "channels, 1 to 255"},
           {"-q", false, [&](const std::string&) { return Quiet = true; }, ""}},
          None, 0))
    return Rc;
  if (Input.empty() || Output.empty()) return Usage();
  if (const std::string Problem = CheckExistingFile("input file", Input); !Problem.empty()) return Fail(Problem);

  Platform::TEncodedWave Wave;
  std::string Why;
  if (IsWaveFile(Input)) {
    if (!Platform::ReadEncodedWave(Input, Wave, Why)) return Fail("cannot read " + Input + ": " + Why);
    const uint16_t Tag = TagOf(Wave.Format);
    if (Tag == kTagPcm || Tag == WAVE_FORMAT_EXTENSIBLE) return Fail(Input + " holds PCM already: there is nothing to decode");
    if (!FormatName.empty()) {
      // A name given for a WAV file must agree with the file's own format.
      std::vector<uint8_t> Named;
      const TWaveFormatEx* F = reinterpret_cast<const TWaveFormatEx*>(Wave.Format.data());
      if (const std::string Problem = FindCodecFormat(FormatName, 0, 0, Named); !Problem.empty()) return Fail(Problem);
      if (TagOf(Named) != Tag)
        return Fail(Input + " holds " + CodecName(Tag) + " (" + std::to_string(F->nSamplesPerSec) + " Hz), not " +
                    FormatName);
    }
  } else {
    if (FormatName.empty())
      return Fail(Input + " is no WAV file: say which format its bytes are in with --format");
    if (IsShortName(FormatName) && (!Rate || !Channels))
      return Fail("headerless data needs the exact format name (quorvel acm list), or " + FormatName +
                  " with -r RATE and -c CHANNELS");
    if (const std::string Problem = FindCodecFormat(FormatName, uint32_t(Rate), uint32_t(Channels), Wave.Format);
        !Problem.empty())
      return Fail(Problem);
    TWBFileStream Stream(Input, Platform::TFileOpenMode::fomRead, Platform::TFileShareMode::fsmShareAll);
    const int64_t Size = Stream.IsOpen() ? Stream.GetSize() : -1;
    if (Size < 0) return Fail("cannot read " + Input + ": " + Stream.GetOpenError());
    if (Size > kMaxRawInput) return Fail(Input + " is larger than 1 GiB");
    Wave.Data.resize(size_t(Size));
    if (!Stream.ReadExact(Wave.Data.data(), Size)) return Fail("cannot read " + Input);
  }
  const TWaveFormatEx& F = *reinterpret_cast<const TWaveFormatEx*>(Wave.Format.data());
  if (F.nChannels == 0 || F.nSamplesPerSec == 0) return Fail(Input + "'s format has no channels or no rate");

  TOutputFile File;
  if (!File.Prepare(Output, {{"the input file", Input}})) return 1;
  TReports Reports;
  TBlockSource Source;
  TSRAudioDecompressor Decompressor;
  // The fact chunk says how many frames the data stands for: the codec's
  // last block is padded, and the padding is not written.
  TWaveSink Sink(File.GetWorkName(), Wave.SampleFrames ? Wave.SampleFrames : UINT64_MAX);
  Reports.Attach(Decompressor);
  Decompressor.GetDecompressions().Add()->SetFormat(Wave.Format);
  Decompressor.GetAudioFormat().SetSampleRate(F.nSamplesPerSec);
  Decompressor.GetAudioFormat().SetCountChannels(F.nChannels);
  Decompressor.GetAudioFormat().SetBits(16);
  Source.GetOutputPin().Connect(Decompressor.GetInputPin());
  Decompressor.GetOutputPin().Connect(Sink.GetInputPin());
  TProgressBar Bar(!Quiet);
  bool Decompressing = false;
  const size_t Block = std::max<size_t>(F.nBlockAlign, 1) * std::max<size_t>(1, 16384 / std::max<size_t>(F.nBlockAlign, 1));
  Source.Run(
      F.nSamplesPerSec, Wave.Data, Block, [&] { return Decompressing = Decompressor.IsDecompressing(); },
      [&](uint64_t Done, uint64_t Total) { Bar.Show(Done, Total); });
  Bar.Finish();
  const std::string SinkError = Sink.Close();
  if (!Reports.Empty()) return Fail(Reports.First());
  if (!Decompressing)
    return Fail("the codecs refuse to decode " + CodecName(F.wFormatTag) + " (" + DescribeFormat(Wave.Format) +
                ") to 16-bit PCM");
  if (!SinkError.empty()) return Fail(SinkError);
  std::printf("decoded %zu bytes of %s (%s) into %llu frames (%.2f s) of %s, peak %.1f dBFS\n", Wave.Data.size(),
              CodecName(F.wFormatTag).c_str(), DescribeFormat(Wave.Format).c_str(),
              static_cast<unsigned long long>(Sink.GetFrames()), double(Sink.GetFrames()) / F.nSamplesPerSec,
              PcmText(Sink.GetInfo()).c_str(), Sink.GetPeakDecibels());
  if (Wave.SampleFrames && Sink.GetFrames() < Wave.SampleFrames)
    Warn(Input + " should decode to " + std::to_string(Wave.SampleFrames) + " frames; the codec gave " +
         std::to_string(Sink.GetFrames()));
  if (!File.Commit()) return 1;
  std::printf("written: %s\n", Output.c_str());
  return 0;
}

}  // namespace

std::string FindCodecFormat(const std::string& Name, uint32_t Rate, uint32_t Channels, std::vector<uint8_t>& Format) {
  const std::vector<TNamedFormat> Formats = ListFormats();
  for (const TNamedFormat& F : Formats)
    if (F.Exact == Name) {
      Format = F.Format;
      return std::string();
    }
  const std::string Short = Lower(Name);
  if (!IsShortName(Short))
    return "unknown format \"" + Name + "\" (short names: ima-adpcm, ms-adpcm, alaw, mulaw, gsm610, mpeg-layer3; "
           "quorvel acm list shows the exact names)";
  if (Short == "pcm") return "pcm is not a compressed format";
  bool Any = false;
  for (const TNamedFormat& F : Formats) {
    if (F.Short != Short) continue;
    Any = true;
    const auto* W = reinterpret_cast<const TWaveFormatEx*>(F.Format.data());
    if ((!Rate || W->nSamplesPerSec == Rate) && (!Channels || W->nChannels == Channels)) {
      Format = F.Format;
      return std::string();
    }
  }
  if (!Any) return "no installed codec offers " + Short;
  return Short + " offers no format for " + std::to_string(Rate) + " Hz with " + std::to_string(Channels) +
         (Channels == 1 ? " channel" : " channels") + " (quorvel acm list shows what it offers)";
}

int Acm(const TArgs& Args) {
  if (Args.empty()) return Usage();
  const TArgs Rest(Args.begin() + 1, Args.end());
  if (Args[0] == "list") return List(Rest);
  return Usage();
}

int Encode(const TArgs& Args) { return EncodeFile(Args); }
int Decode(const TArgs& Args) { return DecodeFile(Args); }

}  // namespace Quorvel::Cli
