// quorvel edit: a plug-in's editor in a window of its own, idled for a while
// or until it is closed, and optionally a screenshot of it.
#include <cctype>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "frame/Threading.h"
#include "platform/Window.h"
#include "tools/Quorvelcli.h"
#include "vst2/Srvsthost.h"
#include "vst2/Srvsthosteditor.h"
#include "vst3/Srvst3host.h"

#if QUORVEL_HAVE_PNG
#include <png.h>
#endif

namespace Quorvel::Cli {
namespace {

bool EndsWith(const std::string& Text, const char* End) {
  const std::string E(End);
  if (Text.size() < E.size()) return false;
  for (size_t I = 0; I < E.size(); ++I)
    if (std::tolower(static_cast<unsigned char>(Text[Text.size() - E.size() + I])) != E[I]) return false;
  return true;
}

// A 24-bit bottom-up BMP.
bool WriteBmp(const std::string& Name, const Platform::TPixelImage& Image) {
  std::unique_ptr<FILE, int (*)(FILE*)> F(std::fopen(Name.c_str(), "wb"), std::fclose);
  if (!F) return false;
  const uint32_t Row = (static_cast<uint32_t>(Image.Width) * 3 + 3) & ~3u;
  const uint32_t Data = Row * static_cast<uint32_t>(Image.Height);
  uint8_t Header[54] = {'B', 'M'};
  auto Put32 = [&](size_t At, uint32_t V) {
    for (int I = 0; I < 4; ++I) Header[At + I] = static_cast<uint8_t>(V >> (8 * I));
  };
  Put32(2, 54 + Data);
  Put32(10, 54);
  Put32(14, 40);
  Put32(18, static_cast<uint32_t>(Image.Width));
  Put32(22, static_cast<uint32_t>(Image.Height));
  Header[26] = 1;
  Header[28] = 24;
  Put32(34, Data);
  if (std::fwrite(Header, 1, sizeof Header, F.get()) != sizeof Header) return false;
  std::string Line(Row, '\0');
  for (int32_t Y = Image.Height - 1; Y >= 0; --Y) {
    for (int32_t X = 0; X < Image.Width; ++X) {
      const uint32_t P = Image.At(X, Y);
      Line[3 * X] = static_cast<char>(P & 0xFF);
      Line[3 * X + 1] = static_cast<char>(P >> 8 & 0xFF);
      Line[3 * X + 2] = static_cast<char>(P >> 16 & 0xFF);
    }
    if (std::fwrite(Line.data(), 1, Line.size(), F.get()) != Line.size()) return false;
  }
  return std::fflush(F.get()) == 0;
}

#if QUORVEL_HAVE_PNG
bool WritePng(const std::string& Name, const Platform::TPixelImage& Image) {
  std::unique_ptr<FILE, int (*)(FILE*)> F(std::fopen(Name.c_str(), "wb"), std::fclose);
  if (!F) return false;
  png_structp Png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop Info = Png ? png_create_info_struct(Png) : nullptr;
  if (!Info) {
    png_destroy_write_struct(&Png, nullptr);
    return false;
  }
  std::string Line(static_cast<size_t>(Image.Width) * 3, '\0');
  if (setjmp(png_jmpbuf(Png))) {
    png_destroy_write_struct(&Png, &Info);
    return false;
  }
  png_init_io(Png, F.get());
  png_set_IHDR(Png, Info, static_cast<png_uint_32>(Image.Width), static_cast<png_uint_32>(Image.Height), 8,
               PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(Png, Info);
  for (int32_t Y = 0; Y < Image.Height; ++Y) {
    for (int32_t X = 0; X < Image.Width; ++X) {
      const uint32_t P = Image.At(X, Y);
      Line[3 * X] = static_cast<char>(P >> 16 & 0xFF);
      Line[3 * X + 1] = static_cast<char>(P >> 8 & 0xFF);
      Line[3 * X + 2] = static_cast<char>(P & 0xFF);
    }
    png_write_row(Png, reinterpret_cast<png_const_bytep>(Line.data()));
  }
  png_write_end(Png, nullptr);
  png_destroy_write_struct(&Png, &Info);
  return std::fflush(F.get()) == 0;
}
#endif

// Shows Editor in its own form, idles it and takes the screenshot; Close
// closes the host.
int ShowEditor(TSRVSTEditor& Editor, TReports& Reports, const std::string& File, double Seconds,
               const std::string& Shot, bool Png, const std::function<bool()>& EditorOpen,
               const std::function<void()>& Close) {
  if (!Editor.GetAvailable()) return Fail(File + " has no editor");
  std::string Why;
  if (!Platform::WindowSystemAvailable(Why)) return Fail("cannot show the editor: " + Why);

  TOutputFile Output;
  if (!Shot.empty() && !Output.Prepare(Shot, {{"the plug-in", File}})) return 1;
  Threading::SetMainThread();
  Editor.Show();
  if (!Editor.GetShown() || !EditorOpen()) {
    Close();
    return Fail(Reports.Empty() ? "the plug-in did not open its editor" : Reports.Last());
  }
  // Without -s: until the window is closed, or a second before a screenshot.
  const bool UntilClosed = Seconds < 0 && Shot.empty();
  if (Seconds < 0) Seconds = 1.0;
  const auto End = std::chrono::steady_clock::now() + std::chrono::duration<double>(Seconds);
  while (Editor.GetShown() && (UntilClosed || std::chrono::steady_clock::now() < End)) {
    Platform::RunWindowEvents(20);
    Threading::ProcessMainThreadQueue();
  }
  int Status = 0;
  if (!Shot.empty()) {
    Platform::TPixelImage Image;
    Platform::SyncWindowSystem();
    if (!Editor.GetForm()) {
      Status = Fail("the editor was closed before the screenshot");
    } else if (!Editor.GetForm()->Capture(Image)) {
      Status = Fail("cannot read the editor window's pixels");
    } else {
#if QUORVEL_HAVE_PNG
      const bool Written = Png ? WritePng(Output.GetWorkName(), Image) : WriteBmp(Output.GetWorkName(), Image);
#else
      const bool Written = WriteBmp(Output.GetWorkName(), Image);
#endif
      if (!Written)
        Status = Fail("cannot write " + Shot);
      else if (!Output.Commit())
        Status = 1;
      else
        std::printf("%s: %d x %d\n", Shot.c_str(), Image.Width, Image.Height);
    }
  }
  if (Editor.GetForm()) {
    const Platform::TWindowBounds B = Editor.GetForm()->GetBounds();
    std::printf("editor of %s: %d x %d\n", File.c_str(), B.Width, B.Height);
  }
  (void)Png;
  Close();
  const uint64_t XErrors = Platform::GetWindowSystemErrorCount();
  if (XErrors > 0) Warn(std::to_string(XErrors) + " window system errors (" + Platform::GetLastWindowSystemError() + ")");
  return Status;
}

}  // namespace

int Edit(const TArgs& Args) {
  double Seconds = -1.0;
  std::string Shot;
  TArgs Positional;
  const std::vector<TOption> Options{
      {"-s", true, [&](const std::string& V) { return ParseDouble(V, Seconds) && Seconds >= 0 && Seconds <= 86400; },
       "seconds from 0 to 86400"},
      {"--screenshot", true, [&](const std::string& V) { Shot = V; return !V.empty(); }, "a file name"}};
  if (int Status = ParseOptions(Args, Options, Positional, 1)) return Status;
  if (Positional.size() != 1) return Usage();
  const std::string& File = Positional[0];
#if QUORVEL_HAVE_PNG
  const bool Png = EndsWith(Shot, ".png");
  if (!Shot.empty() && !Png && !EndsWith(Shot, ".bmp")) return Fail("the screenshot is a .png or .bmp file");
#else
  const bool Png = false;
  if (!Shot.empty() && !EndsWith(Shot, ".bmp")) return Fail("the screenshot is a .bmp file here");
#endif

  TReports Reports;
  // A VST 3 module: its first class's editor view, through the same editor object.
  if (EndsWith(File, ".vst3")) {
    TSRVST3Host Host3;
    Reports.Attach(Host3);
    Host3.SetFileName(File);
    if (!Reports.Empty() || !Host3.Open()) return Fail(Reports.Empty() ? File + " did not open" : Reports.First());
    return ShowEditor(Host3.GetEditor(), Reports, File, Seconds, Shot, Png, [&] { return Host3.GetViewAttached(); },
                      [&] { Host3.Close(); });
  }
  TSRVSTHost Host;
  Reports.Attach(Host);
  if (!OpenPlugIn(Host, Reports, File)) return 1;
  return ShowEditor(Host.GetEditor(), Reports, File, Seconds, Shot, Png, [&] { return Host.GetEditorOpen(); },
                    [&] { Host.Close(); });
}

}  // namespace Quorvel::Cli
