// The editor window with real windows, looked at: the test plug-in's editor
// paints colour blocks that follow its Gain parameter; the tests show it in a
// window of their own and in the host's form, read the pixels back and check
// them, and check the windows the plug-in asks for. Natively on X11 (the test
// runs with an Xvfb of its own), on Windows under Wine.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "frame/Threading.h"
#include "platform/Window.h"
#include "tests/vst2/Vst2testplugins.h"
#include "vst2/Srvsthosteditor.h"

using namespace Quorvel;
using namespace Quorvel::Testing;
using Platform::TPixelImage;
using Platform::TPlatformWindow;
using Platform::TWindowBorder;

namespace {

bool HaveWindows() {
  std::string Why;
  return Platform::WindowSystemAvailable(Why);
}

#define REQUIRE_WINDOWS() \
  if (!HaveWindows()) GTEST_SKIP() << "no window system here"

// Lets the window system and the editor catch up: events delivered, the
// editor idled (it paints what was exposed), every request carried out.
void Settle(TSRVSTHost& Host) {
  for (int I = 0; I < 3; ++I) {
    Platform::RunWindowEvents(0);
    Host.EditIdle();
    Platform::SyncWindowSystem();
  }
}

TPixelImage Capture(Platform::TNativeWindow Window) {
  TPixelImage Image;
  EXPECT_TRUE(Platform::CaptureNativeWindow(Window, Image));
  return Image;
}

std::string Hex(uint32_t C) {
  char Text[16];
  std::snprintf(Text, sizeof Text, "%06X", C);
  return Text;
}

// The blocks of an editor of Width x Height whose top left is at X, Y in Image.
::testing::AssertionResult ShowsPattern(const TPixelImage& Image, int32_t X, int32_t Y, int32_t Width,
                                        int32_t Height, float Gain) {
  if (X + Width > Image.Width || Y + Height > Image.Height)
    return ::testing::AssertionFailure() << "image " << Image.Width << "x" << Image.Height << " too small";
  const int32_t Each = Width / kQvTestEditorBlocks;
  for (int32_t B = 0; B < kQvTestEditorBlocks; ++B) {
    const uint32_t Want = QvTestEditorColour(B, Gain);
    // Two points inside each block, away from its edges.
    for (int32_t Px : {B * Each + 2, B * Each + Each - 3})
      for (int32_t Py : {2, Height - 3}) {
        const uint32_t Got = Image.At(X + Px, Y + Py);
        if (Got != Want)
          return ::testing::AssertionFailure()
                 << "block " << B << " at " << X + Px << "," << Y + Py << ": " << Hex(Got) << ", expected " << Hex(Want);
      }
  }
  return ::testing::AssertionSuccess();
}

// The editor opcodes among the dispatches, in order (idle calls collapsed).
std::vector<int32_t> EditorOpcodes(const TPlugInProbe& Probe) {
  std::vector<int32_t> Out;
  for (int32_t Op : Probe.Dispatches()) {
    const bool Editor = Op == effEditOpen || Op == effEditClose || Op == effEditGetRect || Op == effEditIdle ||
                        Op == effEditTop || Op == effEditSleep || Op == effSetViewPosition;
    if (Editor && !(Op == effEditIdle && !Out.empty() && Out.back() == effEditIdle)) Out.push_back(Op);
  }
  return Out;
}

struct TEditorFixture : ::testing::Test {
  void SetUp() override {
    if (!HaveWindows()) GTEST_SKIP() << "no window system here";
    Errors.Attach(Host);
    ASSERT_TRUE(Host.Open(Probe.Path));
    Probe.Clear();
  }
  TPlugInProbe Probe{"qvtestvst2_editor"};
  TSRVSTHost Host;
  TErrorLog Errors;
};

}  // namespace

TEST_F(TEditorFixture, ShownInAWindowOfTheApplicationFollowsTheParameterAfterAnIdle) {
  std::string Why;
  auto Parent = TPlatformWindow::CreateTopLevel("Parent", 400, 300, TWindowBorder::Sizeable, Why);
  ASSERT_TRUE(Parent) << Why;
  Parent->SetVisible(true);
  TSRVSTEditor& Editor = Host.GetEditor();
  ASSERT_TRUE(Editor.GetAvailable());
  TERect Rect{};
  ASSERT_TRUE(Editor.GetRectangle(Rect));
  EXPECT_EQ(Rect.Right - Rect.Left, kQvTestEditorWidth);
  EXPECT_EQ(Rect.Bottom - Rect.Top, kQvTestEditorHeight);

  // In the parent control: the editor's window is the parent's child at 0, 0.
  Editor.Show(*Parent);
  ASSERT_TRUE(Editor.GetShown());
  EXPECT_TRUE(Host.GetEditorOpen());
  EXPECT_EQ(Editor.GetEditorParent(), Parent->GetHandle());
  Settle(Host);
  EXPECT_TRUE(ShowsPattern(Capture(Parent->GetHandle()), 0, 0, kQvTestEditorWidth, kQvTestEditorHeight, 0.5f));

  // A resize request without a form of the host's own: nothing is sized and
  // the plug-in is not asked for its vendor.
  const Platform::TWindowBounds ParentBefore = Parent->GetBounds();
  const size_t VendorAsked = Probe.Count(qrDispatch, effGetVendorString);
  EXPECT_EQ(Probe.Call(Host.GetEffect(), audioMasterSizeWindow, 123, 45), 0);
  EXPECT_EQ(Probe.Count(qrDispatch, effGetVendorString), VendorAsked);
  EXPECT_EQ(Parent->GetBounds().Width, ParentBefore.Width);
  EXPECT_EQ(Parent->GetBounds().Height, ParentBefore.Height);

  // A new value shows once the editor has had its idle call, not before.
  Host.SetParameter(qpGain, 0.9f);
  Platform::SyncWindowSystem();
  EXPECT_TRUE(ShowsPattern(Capture(Parent->GetHandle()), 0, 0, kQvTestEditorWidth, kQvTestEditorHeight, 0.5f));
  Host.EditIdle();
  Platform::SyncWindowSystem();
  EXPECT_TRUE(ShowsPattern(Capture(Parent->GetHandle()), 0, 0, kQvTestEditorWidth, kQvTestEditorHeight, 0.9f));

  // A second Show while shown does nothing.
  Editor.Show(Parent->GetHandle());
  EXPECT_EQ(Probe.Count(qrDispatch, effEditOpen), 1u);

  // Hidden: the editor is closed, its window gone, idle calls no longer sent.
  Editor.Hide();
  EXPECT_FALSE(Editor.GetShown());
  EXPECT_FALSE(Host.GetEditorOpen());
  EXPECT_EQ(Probe.Count(qrDispatch, effEditClose), 1u);
  const size_t Idles = Probe.Count(qrDispatch, effEditIdle);
  Host.EditIdle();
  EXPECT_EQ(Probe.Count(qrDispatch, effEditIdle), Idles);
  Platform::SyncWindowSystem();
  EXPECT_FALSE(ShowsPattern(Capture(Parent->GetHandle()), 0, 0, kQvTestEditorWidth, kQvTestEditorHeight, 0.9f));

  // Shown again by handle at 50, 30: a child window there holds the editor.
  Host.SetParameter(qpGain, 0.2f);
  Editor.Show(Parent->GetHandle(), 50, 30);
  ASSERT_TRUE(Editor.GetShown());
  EXPECT_NE(Editor.GetEditorParent(), Parent->GetHandle());
  Platform::TWindowBounds Placed;
  ASSERT_TRUE(Platform::GetNativeWindowBounds(Editor.GetEditorParent(), Placed));
  EXPECT_EQ(Placed.X, 50);
  EXPECT_EQ(Placed.Y, 30);
  EXPECT_EQ(Placed.Width, kQvTestEditorWidth);
  EXPECT_EQ(Placed.Height, kQvTestEditorHeight);
  Settle(Host);
  EXPECT_TRUE(ShowsPattern(Capture(Parent->GetHandle()), 50, 30, kQvTestEditorWidth, kQvTestEditorHeight, 0.2f));

  // Moved: effSetViewPosition, and the plug-in's window moves inside the child.
  Editor.MoveTo(8, 6);
  Settle(Host);
  const TPixelImage Moved = Capture(Parent->GetHandle());
  EXPECT_EQ(Moved.At(50 + 8 + 2, 30 + 6 + 2), QvTestEditorColour(0, 0.2f));
  EXPECT_NE(Moved.At(50 + 2, 30 + 2), QvTestEditorColour(0, 0.2f));
  Editor.Hide();

  EXPECT_EQ(EditorOpcodes(Probe),
            (std::vector<int32_t>{effEditGetRect, effEditOpen, effEditIdle, effEditClose, effEditGetRect, effEditOpen,
                                  effEditGetRect, effEditIdle, effSetViewPosition, effEditIdle, effEditClose}));
  EXPECT_TRUE(Errors.Errors.empty());
}

TEST_F(TEditorFixture, OwnFormTakesTheNameAndSizeResizesOnRequestAndClosesWithTheEditor) {
  TSRVSTEditor& Editor = Host.GetEditor();
  Editor.Show();
  ASSERT_TRUE(Editor.GetShown());
  TPlatformWindow* Form = Editor.GetForm();
  ASSERT_NE(Form, nullptr);
  EXPECT_EQ(Form->GetCaption(), kQvTestEffectName);
  EXPECT_TRUE(Form->GetVisible());
  EXPECT_EQ(Form->GetBorder(), TWindowBorder::Sizeable);
  Platform::TWindowBounds B = Form->GetBounds();
  EXPECT_EQ(B.Width, kQvTestEditorWidth);
  EXPECT_EQ(B.Height, kQvTestEditorHeight);
  Settle(Host);
  EXPECT_TRUE(ShowsPattern(Capture(Form->GetHandle()), 0, 0, kQvTestEditorWidth, kQvTestEditorHeight, 0.5f));

  // The editor asks for a new size: the form's client area follows.
  Probe.Option("EditorWidth", 320);
  Probe.Option("EditorHeight", 160);
  Settle(Host);
  B = Form->GetBounds();
  EXPECT_EQ(B.Width, 320);
  EXPECT_EQ(B.Height, 160);
  TPixelImage Image;
  ASSERT_TRUE(Form->Capture(Image));
  EXPECT_TRUE(ShowsPattern(Image, 0, 0, 320, 160, 0.5f));

  // Except from the two vendors whose editors size themselves.
  for (int32_t Vendor : {1, 2}) {
    Probe.Option("Vendor", Vendor);
    Probe.Option("EditorWidth", 200 + Vendor);
    Settle(Host);
    EXPECT_EQ(Form->GetBounds().Width, 320) << Vendor;
    EXPECT_EQ(Probe.Count(qrHostCallback, audioMasterSizeWindow), 1u + Vendor);
  }
  Probe.Option("Vendor", 0);

  Editor.Activate();
  Editor.Deactivate();
  Editor.MoveTo(0, 0);

  // Closing the form the way its close box does closes the editor and releases the form.
  Form->RequestClose();
  for (int I = 0; I < 20 && Editor.GetForm(); ++I) {
    Platform::RunWindowEvents(10);
    Threading::ProcessMainThreadQueue();
  }
  EXPECT_EQ(Editor.GetForm(), nullptr);
  EXPECT_FALSE(Editor.GetShown());
  EXPECT_FALSE(Host.GetEditorOpen());
  // Not shown: these send nothing.
  Editor.Activate();
  Editor.MoveTo(1, 1);

  const std::vector<int32_t> Ops = EditorOpcodes(Probe);
  ASSERT_GE(Ops.size(), 6u);
  EXPECT_EQ(std::vector<int32_t>(Ops.begin(), Ops.begin() + 3), (std::vector<int32_t>{effEditOpen, effEditGetRect, effEditIdle}));
  EXPECT_EQ(std::vector<int32_t>(Ops.end() - 4, Ops.end()),
            (std::vector<int32_t>{effEditTop, effEditSleep, effSetViewPosition, effEditClose}));
  EXPECT_EQ(Probe.Count(qrDispatch, effEditClose), 1u);

  // Shown again: a new form.
  Editor.Show();
  ASSERT_NE(Editor.GetForm(), nullptr);
  Settle(Host);
  EXPECT_TRUE(ShowsPattern(Capture(Editor.GetForm()->GetHandle()), 0, 0, 202, 160, 0.5f));
  // Closing the host closes the editor first.
  Host.Close();
  EXPECT_FALSE(Editor.GetShown());
  EXPECT_EQ(Editor.GetForm(), nullptr);
  EXPECT_TRUE(Errors.Errors.empty());
}

TEST_F(TEditorFixture, WindowsThePlugInAsksForHaveItsTitlePlaceSizeAndBorder) {
  TSRVSTEditor& Editor = Host.GetEditor();
  Editor.Show();
  ASSERT_TRUE(Editor.GetShown());
  struct TCase {
    int32_t Style;
    TWindowBorder Border;
  };
  for (const TCase& C : {TCase{0, TWindowBorder::Borderless}, TCase{-1, TWindowBorder::SizeableToolWindow}}) {
    SCOPED_TRACE(C.Style);
    Probe.Option("OpenWindow", C.Style);
    Settle(Host);
    const auto Windows = Editor.GetPlugInWindows();
    ASSERT_EQ(Windows.size(), 1u);
    EXPECT_EQ(Windows[0]->GetCaption(), kQvTestWindowTitle);
    EXPECT_EQ(Windows[0]->GetBorder(), C.Border);
    EXPECT_TRUE(Windows[0]->GetVisible());
    const Platform::TWindowBounds B = Windows[0]->GetBounds();
    EXPECT_EQ(B.Width, kQvTestWindowWidth);
    EXPECT_EQ(B.Height, kQvTestWindowHeight);
    // A border moves the client area off the window's own corner.
    if (C.Border == TWindowBorder::Borderless) {
      EXPECT_EQ(B.X, kQvTestWindowX);
      EXPECT_EQ(B.Y, kQvTestWindowY);
    } else {
      EXPECT_GE(B.X, kQvTestWindowX);
      EXPECT_GE(B.Y, kQvTestWindowY);
    }
    Probe.Option("CloseWindow", 1);
    Settle(Host);
    EXPECT_TRUE(Editor.GetPlugInWindows().empty());
  }
  // A window left open goes when the host closes.
  Probe.Option("OpenWindow", 0);
  Settle(Host);
  EXPECT_EQ(Editor.GetPlugInWindows().size(), 1u);
  Host.Close();
  EXPECT_TRUE(Editor.GetPlugInWindows().empty());
  EXPECT_TRUE(Errors.Errors.empty());
}

TEST_F(TEditorFixture, TheTimerIdlesTheEditorWhileItIsShown) {
  Threading::SetMainThread();
  TSRVSTEditor& Editor = Host.GetEditor();
  Editor.SetIdleInterval(5);
  Editor.Show();
  ASSERT_TRUE(Editor.GetShown());
  Probe.Clear();
  // Ticks arrive through the main-thread queue.
  for (int I = 0; I < 1000 && Probe.Count(qrDispatch, effEditIdle) < 3; ++I)
    Threading::WaitAndProcessMainThreadQueue(20);
  EXPECT_GE(Probe.Count(qrDispatch, effEditIdle), 3u);
  Editor.Hide();
  Probe.Clear();
  Threading::ProcessMainThreadQueue();
  EXPECT_EQ(Probe.Count(qrDispatch, effEditIdle), 0u);

  // Modal: returns once the form is closed, here by work queued for the main thread.
  Threading::MainThreadPost(nullptr, [&] {
    ASSERT_NE(Editor.GetForm(), nullptr);
    Editor.GetForm()->RequestClose();
  });
  Editor.ShowModal();
  EXPECT_FALSE(Editor.GetShown());
  EXPECT_EQ(Editor.GetForm(), nullptr);
  EXPECT_EQ(Probe.Count(qrDispatch, effEditOpen), 1u);
  EXPECT_EQ(Probe.Count(qrDispatch, effEditClose), 1u);
}

TEST_F(TEditorFixture, HostOperationsOnAClosedHostAndAPlugInWithoutEditor) {
  // audioMasterIdle from the main thread idles the open editor at once.
  std::string Why;
  auto Parent = TPlatformWindow::CreateTopLevel("Parent", 300, 200, TWindowBorder::Sizeable, Why);
  ASSERT_TRUE(Parent);
  ASSERT_TRUE(Host.EditOpen(Parent->GetHandle()));
  Probe.Call(Host.GetEffect(), audioMasterIdle);
  EXPECT_EQ(Probe.Count(qrDispatch, effEditIdle), 1u);
  Host.EditClose();
  Probe.Call(Host.GetEffect(), audioMasterIdle);
  EXPECT_EQ(Probe.Count(qrDispatch, effEditIdle), 1u);

  Host.Close();
  TERect Rect{};
  EXPECT_FALSE(Host.EditOpen(Parent->GetHandle()));
  EXPECT_FALSE(Host.GetEditorRectangle(Rect));
  Host.EditIdle();
  Host.EditActivate();

  // The plain test plug-in has no editor: nothing is shown, nothing reported.
  TPlugInProbe Plain("qvtestvst2");
  TSRVSTHost Other;
  Errors.Attach(Other);
  ASSERT_TRUE(Other.Open(Plain.Path));
  EXPECT_FALSE(Other.GetEditor().GetAvailable());
  Other.GetEditor().Show();
  EXPECT_FALSE(Other.GetEditor().GetShown());
  EXPECT_EQ(Plain.Count(qrDispatch, effEditOpen), 0u);
  EXPECT_TRUE(Errors.Errors.empty());
}

TEST_F(TEditorFixture, AWindowSystemErrorOfThePlugInDoesNotEndTheProgram) {
  // A parent that does not exist: X11 raises an error on the plug-in's own
  // connection, which the host's handler takes; Windows refuses the window.
  const uint64_t Before = Platform::GetWindowSystemErrorCount();
  const bool Opened = Host.EditOpen(reinterpret_cast<void*>(static_cast<uintptr_t>(0x3FFFFFF0)));
  Host.EditIdle();
  Host.EditClose();
#ifdef _WIN32
  EXPECT_FALSE(Opened);
#else
  (void)Opened;
  EXPECT_GT(Platform::GetWindowSystemErrorCount(), Before);
  EXPECT_FALSE(Platform::GetLastWindowSystemError().empty());
#endif
  // The host goes on: a real editor still shows.
  Host.GetEditor().Show();
  Settle(Host);
  ASSERT_NE(Host.GetEditor().GetForm(), nullptr);
  EXPECT_TRUE(ShowsPattern(Capture(Host.GetEditor().GetForm()->GetHandle()), 0, 0, kQvTestEditorWidth, kQvTestEditorHeight, 0.5f));
  (void)Before;
}

TEST_F(TEditorFixture, TheFormsActivationReachesTheEditor) {
  TSRVSTEditor& Editor = Host.GetEditor();
  Editor.Show();
  ASSERT_NE(Editor.GetForm(), nullptr);
  std::string Why;
  auto Other = TPlatformWindow::CreateTopLevel("Other", 100, 100, TWindowBorder::Sizeable, Why);
  ASSERT_TRUE(Other);
  Other->SetVisible(true);
  auto Pump = [] {
    for (int I = 0; I < 5; ++I) {
      Platform::SyncWindowSystem();
      Platform::RunWindowEvents(10);
      Platform::DispatchWindowEvents();
    }
  };
  Editor.GetForm()->BringToFront();
  Pump();
  Probe.Clear();
  // Another window takes the focus, then the form again.
  Other->BringToFront();
  Pump();
  EXPECT_EQ(Probe.Count(qrDispatch, effEditSleep), 1u);
  Editor.GetForm()->BringToFront();
  Pump();
  EXPECT_EQ(Probe.Count(qrDispatch, effEditTop), 1u);
  // In that order (idle calls from the timer may come between).
  std::vector<int32_t> Ops = EditorOpcodes(Probe);
  Ops.erase(std::remove(Ops.begin(), Ops.end(), effEditIdle), Ops.end());
  EXPECT_EQ(Ops, (std::vector<int32_t>{effEditSleep, effEditTop}));
}
