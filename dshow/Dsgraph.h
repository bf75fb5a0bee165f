// The filter graph helper and the filter selector of the DirectShow
// components (Windows only; the header compiles anywhere).
//
// TDSGraph owns a filter graph with its capture graph builder, media control
// and media events, registers the graph in the running object table (so
// graph viewers can look at it) and reports failed steps through the error
// procedure it was given. TDSGraphFilter keeps the user's choice of filter as
// a device moniker of a category, with an optional callback run right after
// the filter is created and added to a graph.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/Guid.h"

struct IBaseFilter;
struct IGraphBuilder;
struct ICaptureGraphBuilder2;
struct IMediaControl;
struct IMoniker;

namespace Quorvel {

// Filter categories of the system's device enumerator.
enum class TDSCategory {
  dcAudioCapture,    // audio capture sources
  dcAudioRenderer,   // audio renderers
  dcAudioCompressor,
  dcFilters,         // every registered DirectShow filter
  dcMidiRenderer
};
TGUID DSCategoryGuid(TDSCategory Category);
// "audio-capture", "audio-renderer", "audio-compressor", "filters", "midi-renderer".
const char* DSCategoryName(TDSCategory Category);
bool DSCategoryFromName(const std::string& Name, TDSCategory& Category);

struct TDSFilterInfo {
  std::string FriendlyName;
  std::string DisplayName;  // the moniker's display name, which finds it again
};

class TDSGraph {
 public:
  using TErrorProc = std::function<void(const std::string& Text, int32_t Code)>;
  using TNotifyProc = std::function<void()>;
  explicit TDSGraph(TErrorProc OnError);
  ~TDSGraph();
  TDSGraph(const TDSGraph&) = delete;
  TDSGraph& operator=(const TDSGraph&) = delete;

  // [owning thread] Creates the filter graph and the capture graph builder,
  // adds the additional filters and obtains the media control. Reports
  // nothing; false (and nothing kept) on any failure.
  bool Create();
  bool Exists() const;
  // Reports Text with the code when Result is a failure; answers success.
  bool Check(int32_t Result, const std::string& Text);
  // Filters added to every graph this helper creates (counted references).
  void AddAdditionalFilter(IBaseFilter* Filter, const std::wstring& Name);
  void ClearAdditionalFilters();

  IGraphBuilder* GetGraph() const;             // not counted; nullptr when none
  ICaptureGraphBuilder2* GetBuilder() const;
  IMediaControl* GetControl() const;

  // Media events are posted as Message to Window (an HWND); 0 turns them off.
  int32_t EnableEvents(void* Window, uint32_t Message);
  // Reads the next waiting media event; false when none waits.
  bool NextEvent(int32_t& Code, intptr_t& Param1, intptr_t& Param2);
  // Registration in the running object table; harmless when it fails.
  void Register();
  void Unregister();

  int32_t Run();
  int32_t Stop();
  // Stops, unregisters, removes every filter and releases the graph.
  void Destroy();

  // Signals the components listen to.
  void GraphChanged();
  void GraphBuilt();
  TNotifyProc OnGraphChanged;
  TNotifyProc OnGraphBuilt;

 private:
  struct TImpl;
  std::unique_ptr<TImpl> FImpl;
  TErrorProc FOnError;
};

// [owning thread] Makes Filter's output end in the file FileName: a filter
// that writes files itself gets the name; any other gets the system's file
// writer after its first free output pin (a multiplexer, say), in the graph
// Filter belongs to. Meant for a selector's creation callback. Answers the
// first failing result, 0 on success.
int32_t DSAddFileWriter(IBaseFilter* Filter, const std::string& FileName);

class TDSGraphFilter {
 public:
  using TCreatedProc = std::function<void(IBaseFilter* Filter)>;
  explicit TDSGraphFilter(TDSCategory Category);
  ~TDSGraphFilter();
  TDSGraphFilter(const TDSGraphFilter&) = delete;
  TDSGraphFilter& operator=(const TDSGraphFilter&) = delete;

  TDSCategory GetCategory() const { return FCategory; }
  void SetCategory(TDSCategory Value);  // [main thread] clears the choice

  // [main thread] The filters of a category in the enumerator's order.
  static std::vector<TDSFilterInfo> List(TDSCategory Category);
  // [main thread] Chooses the filter of the category whose friendly name or
  // moniker display name is Name. When none is, Name stays chosen without a
  // moniker (a graph build then fails) and the answer is false.
  bool Select(const std::string& Name);
  void Clear();
  bool HasMoniker() const;
  bool IsSelected() const { return !GetName().empty(); }
  std::string GetName() const;  // friendly name of the choice, "" when none
  // The chosen moniker, not counted; nullptr when none is chosen.
  IMoniker* GetMoniker() const;

  // Run with the new filter right after it was added to a graph.
  TCreatedProc OnFilterCreated;

 private:
  struct TImpl;
  std::unique_ptr<TImpl> FImpl;
  TDSCategory FCategory;
};

}  // namespace Quorvel
