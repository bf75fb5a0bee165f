// The test plug-in's editor window on the platform's window system: a child
// of the host's window painted as colour blocks. [the host's main thread]
#pragma once

#include <cstdint>

namespace Quorvel::Qvtestplugin {

struct TEditorView;

// A visible child window of Parent (an HWND or an X window id); nullptr when
// the window system refuses.
TEditorView* OpenEditorView(void* Parent, int32_t Width, int32_t Height);
void CloseEditorView(TEditorView* View);
// Paints the blocks (0x00RRGGBB each) across the window's width.
void PaintEditorView(TEditorView* View, const uint32_t* Colours, int32_t Count);
// Handles the view's pending window-system events; true when its window was
// exposed and needs painting. (On Windows the host's message loop delivers
// the window's messages, and it paints itself.)
bool ProcessEditorViewEvents(TEditorView* View);
void ResizeEditorView(TEditorView* View, int32_t Width, int32_t Height);
void MoveEditorView(TEditorView* View, int32_t X, int32_t Y);
// The descriptor of the view's own window-system connection (X11), or -1.
int EditorViewDescriptor(TEditorView* View);

}  // namespace Quorvel::Qvtestplugin
