// The editors of Debian's packaged Linux VST 2 plug-ins, on the test's own
// Xvfb: each one that has an editor is shown in the host's form, idled for a
// while, looked at and closed. None may crash, hang or end the program with
// an X error.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "frame/Threading.h"
#include "platform/Window.h"
#include "tests/vst2/Debianplugins.h"
#include "vst2/Srvsthost.h"
#include "vst2/Srvsthosteditor.h"

using namespace Quorvel;
using namespace Quorvel::Testing;

namespace {

struct TFigures {
  size_t Libraries = 0, WithEditor = 0, Opened = 0, Painted = 0;
};

// The lsp package's editors take seconds each to build: by default one in
// kLspStride of them runs, with every other package's, each idled for a
// fifth of a second, so that the test stays short; QV_EDITORS=all runs all,
// each idled for a second. QV_EDITOR_SECONDS sets the time either way.
constexpr size_t kLspStride = 64;
bool AllEditors() {
  const char* Text = std::getenv("QV_EDITORS");
  return Text && std::string(Text) == "all";
}

double IdleSeconds() {
  const char* Text = std::getenv("QV_EDITOR_SECONDS");
  return Text ? std::atof(Text) : AllEditors() ? 1.0 : 0.2;
}

void RunEditor(const std::string& Path, TFigures& Figures) {
  TSRVSTHost Host;
  std::vector<std::string> Errors;
  Host.OnError = [&](TWBComponent*, const std::string& Message, int32_t, bool& Handled) {
    Errors.push_back(Message);
    Handled = true;
  };
  ++Figures.Libraries;
  Host.SetFileName(Path);
  if (!Host.Open()) return;
  TSRVSTEditor& Editor = Host.GetEditor();
  if (!Editor.GetAvailable()) return;
  ++Figures.WithEditor;
  if (std::getenv("QV_TRACE")) std::fprintf(stderr, "%s\n", Path.c_str());
  Editor.Show();
  EXPECT_TRUE(Editor.GetShown()) << Path;
  EXPECT_TRUE(Errors.empty()) << Path << ": " << (Errors.empty() ? "" : Errors[0]);
  if (!Host.GetEditorOpen()) return;
  ++Figures.Opened;
  const auto End = std::chrono::steady_clock::now() + std::chrono::duration<double>(IdleSeconds());
  while (Editor.GetShown() && std::chrono::steady_clock::now() < End) {
    Platform::RunWindowEvents(10);
    Threading::ProcessMainThreadQueue();
  }
  Host.EditIdle();
  Platform::SyncWindowSystem();
  // Painted: more than one colour in the form.
  Platform::TPixelImage Image;
  if (Editor.GetForm() && Editor.GetForm()->Capture(Image)) {
    std::set<uint32_t> Colours;
    for (size_t I = 0; I < Image.Pixels.size() && Colours.size() < 2; I += 7) Colours.insert(Image.Pixels[I]);
    Figures.Painted += Colours.size() > 1;
  }
  Editor.Hide();
  EXPECT_FALSE(Host.GetEditorOpen());
  Host.Close();
}

}  // namespace

TEST(DebianPlugInEditors, EveryEditorOpensIdlesAndCloses) {
  std::string Why;
  if (!Platform::WindowSystemAvailable(Why)) GTEST_SKIP() << Why;
  Threading::SetMainThread();
  TFigures Figures;
  for (const auto& Package : DebianPlugInPackages()) {
    const auto Files = InstalledLibraries(Package);
    const size_t Stride = Package == "lsp-plugins-vst" && !AllEditors() ? kLspStride : 1;
    for (size_t I = 0; I < Files.size(); I += Stride) RunEditor(Files[I], Figures);
  }
  std::printf("Debian VST 2 editors: %zu libraries, %zu with an editor, %zu opened, %zu painted, "
              "%llu X errors caught\n",
              Figures.Libraries, Figures.WithEditor, Figures.Opened, Figures.Painted,
              static_cast<unsigned long long>(Platform::GetWindowSystemErrorCount()));
  EXPECT_GT(Figures.WithEditor, 0u);
  EXPECT_EQ(Figures.Opened, Figures.WithEditor);
}
