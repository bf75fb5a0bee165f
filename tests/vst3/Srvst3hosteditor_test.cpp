// The VST 3 host's editor view with real windows, looked at: the test
// module's view paints known colour blocks into the window the editor object
// gives it; the tests read the pixels back, have the view ask for a new size,
// and follow the calls the view receives. Natively on X11 (with an Xvfb of
// the test's own), on Windows under Wine.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "platform/Window.h"
#include "tests/vst3/Vst3testmodule.h"
#include "vst2/Srvsthosteditor.h"
#include "vst3/Srvst3host.h"

using namespace Quorvel;
using namespace Quorvel::Testing;
using Platform::TPixelImage;
using Platform::TPlatformWindow;
using Platform::TWindowBorder;
namespace T3 = Quorvel::Qvtestvst3;

namespace {

bool HaveWindows() {
  std::string Why;
  return Platform::WindowSystemAvailable(Why);
}

#ifdef _WIN32
const std::string kType = "HWND";
#else
const std::string kType = "X11EmbedWindowID";
#endif

// Events delivered, the view served through the editor's idle step, every
// request carried out.
void Settle(TSRVSTEditor& Editor) {
  for (int I = 0; I < 3; ++I) {
    Platform::RunWindowEvents(0);
    Editor.Idle();
    Platform::SyncWindowSystem();
  }
}

std::string Hex(uint32_t C) {
  char Text[16];
  std::snprintf(Text, sizeof Text, "%06X", C);
  return Text;
}

// The view's blocks across Width x Height at the top left of Window.
::testing::AssertionResult ShowsView(Platform::TNativeWindow Window, int32_t Width, int32_t Height) {
  TPixelImage Image;
  if (!Platform::CaptureNativeWindow(Window, Image)) return ::testing::AssertionFailure() << "no capture";
  if (Width > Image.Width || Height > Image.Height)
    return ::testing::AssertionFailure() << "image " << Image.Width << "x" << Image.Height << " too small";
  const int32_t Each = Width / T3::kViewBlocks;
  for (int32_t B = 0; B < T3::kViewBlocks; ++B)
    for (int32_t X : {B * Each + 2, B * Each + Each - 3})
      for (int32_t Y : {2, Height - 3})
        if (Image.At(X, Y) != T3::kViewColours[B])
          return ::testing::AssertionFailure() << "block " << B << " at " << X << "," << Y << ": "
                                               << Hex(Image.At(X, Y)) << ", expected " << Hex(T3::kViewColours[B]);
  return ::testing::AssertionSuccess();
}

// The calls the controller's view received, focus changes left out (they
// follow the window manager's activation).
std::vector<std::string> ViewCalls(const TVst3ModuleProbe& Probe) {
  std::vector<std::string> Out;
  for (const auto& C : Probe.CallsOf("Controller.view "))
    if (C.find("onFocus") == std::string::npos) Out.push_back(C.substr(16));
  return Out;
}

struct TViewFixture : ::testing::Test {
  void SetUp() override {
    if (!HaveWindows()) GTEST_SKIP() << "no window system here";
    Errors.Attach(Host);
    Host.SetFileName(QV_TESTVST3_MAIN);
    ASSERT_TRUE(Host.Open());
    Probe.Reset();
  }
  TVst3ModuleProbe Probe;
  TSRVST3Host Host;
  TVst3ErrorLog Errors;
};

}  // namespace

TEST_F(TViewFixture, OwnFormShowsTheViewFollowsItsResizeRequestAndRemovesItOnHide) {
  TSRVSTEditor& Editor = Host.GetEditor();
  ASSERT_TRUE(Editor.GetAvailable());
  TERect Rect{};
  ASSERT_TRUE(Editor.GetRectangle(Rect));
  EXPECT_EQ(Rect.Right - Rect.Left, T3::kViewWidth);
  EXPECT_EQ(Rect.Bottom - Rect.Top, T3::kViewHeight);
  Probe.Reset();

  Editor.Show();
  ASSERT_TRUE(Editor.GetShown());
  EXPECT_TRUE(Host.GetViewAttached());
  TPlatformWindow* Form = Editor.GetForm();
  ASSERT_NE(Form, nullptr);
  EXPECT_EQ(Form->GetCaption(), T3::kEffectName);
  EXPECT_TRUE(Form->GetVisible());
  EXPECT_EQ(Form->GetBounds().Width, T3::kViewWidth);
  EXPECT_EQ(Form->GetBounds().Height, T3::kViewHeight);
  Settle(Editor);
  EXPECT_TRUE(ShowsView(Form->GetHandle(), T3::kViewWidth, T3::kViewHeight));

  // The view asks for a new size: the form follows, then the view is told.
  Host.SetParameterValue(T3::kModeID, 1.0);
  EXPECT_EQ(Form->GetBounds().Width, T3::kResizedViewWidth);
  EXPECT_EQ(Form->GetBounds().Height, T3::kResizedViewHeight);
  Settle(Editor);
  EXPECT_TRUE(ShowsView(Form->GetHandle(), T3::kResizedViewWidth, T3::kResizedViewHeight));

  // Sizes no window can take are refused, the form left as it is.
  for (const char* Rect : {"viewresize=0:0:100000:50", "viewresize=-2147483648:0:2147483647:50",
                           "viewresize=0:0:0:50"}) {
    Probe.Options(Rect);
    Host.SetParameterValue(T3::kModeID, 0.5);
    EXPECT_EQ(Form->GetBounds().Width, T3::kResizedViewWidth) << Rect;
    const std::vector<std::string> Asked = Probe.CallsOf("Controller.view resizeView");
    ASSERT_FALSE(Asked.empty());
    EXPECT_NE(Asked.back().find("refused"), std::string::npos) << Rect;
  }

  // A second Show while shown attaches nothing more.
  Editor.Show();
  Editor.Hide();
  EXPECT_FALSE(Editor.GetShown());
  EXPECT_FALSE(Host.GetViewAttached());
  EXPECT_EQ(Editor.GetForm(), nullptr);
  // Not attached: the view asks for nothing.
  Host.SetParameterValue(T3::kModeID, 0.0);

  const std::vector<std::string> Want = {"isPlatformTypeSupported " + kType,
                                         "setFrame set",
                                         "attached " + kType,
                                         "getSize",
                                         "onSize 400x240",
                                         "resizeView 400x240 ok",
                                         "resizeView 100000x50 refused",
                                         "resizeView 4294967295x50 refused",
                                         "resizeView 0x50 refused",
                                         "removed",
                                         "setFrame null"};
  EXPECT_EQ(ViewCalls(Probe), Want);

  // Shown again, then the host closes: the view is removed before it is released.
  Probe.Reset();
  Editor.Show();
  ASSERT_TRUE(Host.GetViewAttached());
  Settle(Editor);
  EXPECT_TRUE(ShowsView(Editor.GetForm()->GetHandle(), T3::kResizedViewWidth, T3::kResizedViewHeight));
  Host.Close();
  EXPECT_FALSE(Editor.GetShown());
  EXPECT_EQ(Editor.GetForm(), nullptr);
  const std::vector<std::string> Calls = ViewCalls(Probe);
  ASSERT_GE(Calls.size(), 3u);
  EXPECT_EQ(std::vector<std::string>(Calls.end() - 3, Calls.end()),
            (std::vector<std::string>{"removed", "setFrame null", "released"}));
  EXPECT_TRUE(Errors.Errors.empty());
}

TEST_F(TViewFixture, ShownInAWindowOfTheApplication) {
  std::string Why;
  auto Parent = TPlatformWindow::CreateTopLevel("Parent", 500, 300, TWindowBorder::Sizeable, Why);
  ASSERT_TRUE(Parent) << Why;
  Parent->SetVisible(true);
  TSRVSTEditor& Editor = Host.GetEditor();
  Editor.Show(*Parent);
  ASSERT_TRUE(Editor.GetShown());
  EXPECT_EQ(Editor.GetEditorParent(), Parent->GetHandle());
  EXPECT_EQ(Editor.GetForm(), nullptr);
  Settle(Editor);
  EXPECT_TRUE(ShowsView(Parent->GetHandle(), T3::kViewWidth, T3::kViewHeight));
  Editor.Hide();
  EXPECT_FALSE(Host.GetViewAttached());
  EXPECT_EQ(ViewCalls(Probe).back(), "setFrame null");
  EXPECT_TRUE(Errors.Errors.empty());
}

TEST_F(TViewFixture, AClassWithoutAViewReportsAnErrorWhenShown) {
  Host.GetProcessor().SetName(T3::kAloneName);
  ASSERT_TRUE(Host.Open());
  EXPECT_EQ(Host.GetView(), nullptr);
  TSRVSTEditor& Editor = Host.GetEditor();
  EXPECT_FALSE(Editor.GetAvailable());
  TERect Rect{};
  EXPECT_FALSE(Editor.GetRectangle(Rect));
  Editor.Show();
  EXPECT_FALSE(Editor.GetShown());
  EXPECT_EQ(Editor.GetForm(), nullptr);
  ASSERT_EQ(Errors.Errors.size(), 1u);
  EXPECT_EQ(Errors.Errors[0].first, "Can't show the editor: the plug-in has no editor view.");
}
