#include "dshow/Dsgraph.h"

#include "dshow/Dscom.h"

#include <cstdio>
#include <cstring>

namespace Quorvel {

using namespace Dshow;

namespace {

const GUID& CategoryClsid(TDSCategory Category) {
  switch (Category) {
    case TDSCategory::dcAudioCapture: return CLSID_AudioInputDeviceCategory;
    case TDSCategory::dcAudioRenderer: return CLSID_AudioRendererCategory;
    case TDSCategory::dcAudioCompressor: return CLSID_AudioCompressorCategory;
    case TDSCategory::dcMidiRenderer: return CLSID_MidiRendererCategory;
    case TDSCategory::dcFilters: break;
  }
  return CLSID_LegacyAmFilterCategory;
}

constexpr TDSCategory AllCategories[] = {TDSCategory::dcAudioCapture, TDSCategory::dcAudioRenderer,
                                         TDSCategory::dcAudioCompressor, TDSCategory::dcFilters,
                                         TDSCategory::dcMidiRenderer};

// COM for the calling thread while a helper needs it; a thread that already
// has COM keeps its own apartment.
class TComScope {
 public:
  TComScope() : FOwn(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {}
  ~TComScope() {
    if (FOwn) CoUninitialize();
  }
  TComScope(const TComScope&) = delete;
  TComScope& operator=(const TComScope&) = delete;

 private:
  bool FOwn;
};

std::string FriendlyName(IMoniker* Moniker) {
  TComPtr<IPropertyBag> Bag;
  if (FAILED(Moniker->BindToStorage(nullptr, nullptr, IID_IPropertyBag, Bag.PutVoid())) || !Bag) return std::string();
  VARIANT V;
  VariantInit(&V);
  std::string Name;
  if (SUCCEEDED(Bag->Read(L"FriendlyName", &V, nullptr)) && V.vt == VT_BSTR) Name = Narrow(V.bstrVal);
  VariantClear(&V);
  return Name;
}

std::string DisplayName(IMoniker* Moniker) {
  LPOLESTR Text = nullptr;
  std::string Name;
  if (SUCCEEDED(Moniker->GetDisplayName(nullptr, nullptr, &Text)) && Text) {
    Name = Narrow(Text);
    CoTaskMemFree(Text);
  }
  return Name;
}

// Walks the monikers of a category; Visit answers false to stop.
template <typename F>
void EnumerateCategory(TDSCategory Category, F&& Visit) {
  TComPtr<ICreateDevEnum> DevEnum;
  if (FAILED(CoCreateInstance(CLSID_SystemDeviceEnum, nullptr, CLSCTX_INPROC_SERVER, IID_ICreateDevEnum,
                              DevEnum.PutVoid())))
    return;
  TComPtr<IEnumMoniker> Enum;
  // S_FALSE: the category is empty.
  if (DevEnum->CreateClassEnumerator(CategoryClsid(Category), Enum.Put(), 0) != S_OK || !Enum) return;
  for (int Guard = 0; Guard < 10000; ++Guard) {
    TComPtr<IMoniker> Moniker;
    ULONG Got = 0;
    if (Enum->Next(1, Moniker.Put(), &Got) != S_OK || Got != 1) break;
    if (!Visit(Moniker.Get())) break;
  }
}

}  // namespace

TGUID DSCategoryGuid(TDSCategory Category) {
  TGUID G;
  std::memcpy(&G, &CategoryClsid(Category), sizeof(G));
  return G;
}

const char* DSCategoryName(TDSCategory Category) {
  switch (Category) {
    case TDSCategory::dcAudioCapture: return "audio-capture";
    case TDSCategory::dcAudioRenderer: return "audio-renderer";
    case TDSCategory::dcAudioCompressor: return "audio-compressor";
    case TDSCategory::dcFilters: return "filters";
    case TDSCategory::dcMidiRenderer: return "midi-renderer";
  }
  return "";
}

bool DSCategoryFromName(const std::string& Name, TDSCategory& Category) {
  for (TDSCategory C : AllCategories) {
    if (Name == DSCategoryName(C)) {
      Category = C;
      return true;
    }
  }
  return false;
}

// ---- TDSGraph ------------------------------------------------------------------

struct TDSGraph::TImpl {
  bool ComOwned = false;
  DWORD ComThread = 0;  // the thread whose COM Create started
  TComPtr<IGraphBuilder> Graph;
  TComPtr<ICaptureGraphBuilder2> Builder;
  TComPtr<IMediaControl> Control;
  TComPtr<IMediaEventEx> Events;
  DWORD RotCookie = 0;
  struct TAdditional {
    TComPtr<IBaseFilter> Filter;
    std::wstring Name;
  };
  std::vector<TAdditional> Additional;
};

TDSGraph::TDSGraph(TErrorProc OnError) : FImpl(std::make_unique<TImpl>()), FOnError(std::move(OnError)) {}

TDSGraph::~TDSGraph() { Destroy(); }

bool TDSGraph::Create() {
  Destroy();
  auto& I = *FImpl;
  I.ComOwned = SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
  I.ComThread = GetCurrentThreadId();
  bool Ok = SUCCEEDED(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder,
                                       I.Graph.PutVoid())) &&
            SUCCEEDED(CoCreateInstance(CLSID_CaptureGraphBuilder2, nullptr, CLSCTX_INPROC_SERVER,
                                       IID_ICaptureGraphBuilder2, I.Builder.PutVoid())) &&
            SUCCEEDED(I.Builder->SetFiltergraph(I.Graph.Get()));
  for (auto& A : I.Additional) {
    if (!Ok) break;
    Ok = SUCCEEDED(I.Graph->AddFilter(A.Filter.Get(), A.Name.c_str()));
  }
  Ok = Ok && SUCCEEDED(I.Graph->QueryInterface(IID_IMediaControl, I.Control.PutVoid()));
  if (!Ok) Destroy();
  return Ok;
}

bool TDSGraph::Exists() const { return bool(FImpl->Graph); }

bool TDSGraph::Check(int32_t Result, const std::string& Text) {
  if (SUCCEEDED(HRESULT(Result))) return true;
  if (FOnError) FOnError(Text, Result);
  return false;
}

void TDSGraph::AddAdditionalFilter(IBaseFilter* Filter, const std::wstring& Name) {
  if (Filter) FImpl->Additional.push_back({TComPtr<IBaseFilter>(Filter), Name});
}

void TDSGraph::ClearAdditionalFilters() { FImpl->Additional.clear(); }

IGraphBuilder* TDSGraph::GetGraph() const { return FImpl->Graph.Get(); }
ICaptureGraphBuilder2* TDSGraph::GetBuilder() const { return FImpl->Builder.Get(); }
IMediaControl* TDSGraph::GetControl() const { return FImpl->Control.Get(); }

int32_t TDSGraph::EnableEvents(void* Window, uint32_t Message) {
  auto& I = *FImpl;
  if (!I.Graph) return E_POINTER;
  if (!I.Events) {
    const HRESULT R = I.Graph->QueryInterface(IID_IMediaEventEx, I.Events.PutVoid());
    if (FAILED(R)) return R;
  }
  return I.Events->SetNotifyWindow(reinterpret_cast<OAHWND>(Window), long(Message), 0);
}

bool TDSGraph::NextEvent(int32_t& Code, intptr_t& Param1, intptr_t& Param2) {
  auto& I = *FImpl;
  if (!I.Events) return false;
  long C = 0;
  LONG_PTR P1 = 0, P2 = 0;
  if (I.Events->GetEvent(&C, &P1, &P2, 0) != S_OK) return false;
  I.Events->FreeEventParams(C, P1, P2);
  Code = C;
  Param1 = P1;
  Param2 = P2;
  return true;
}

void TDSGraph::Register() {
  auto& I = *FImpl;
  if (!I.Graph || I.RotCookie) return;
  TComPtr<IRunningObjectTable> Table;
  if (FAILED(GetRunningObjectTable(0, Table.Put()))) return;
  wchar_t Name[96];
  swprintf(Name, 96, L"FilterGraph %08x pid %08x", unsigned(reinterpret_cast<uintptr_t>(I.Graph.Get())),
           unsigned(GetCurrentProcessId()));
  TComPtr<IMoniker> Moniker;
  if (FAILED(CreateItemMoniker(L"!", Name, Moniker.Put()))) return;
  DWORD Cookie = 0;
  if (SUCCEEDED(Table->Register(ROTFLAGS_REGISTRATIONKEEPSALIVE, I.Graph.Get(), Moniker.Get(), &Cookie)))
    I.RotCookie = Cookie;
}

void TDSGraph::Unregister() {
  auto& I = *FImpl;
  if (!I.RotCookie) return;
  TComPtr<IRunningObjectTable> Table;
  if (SUCCEEDED(GetRunningObjectTable(0, Table.Put()))) Table->Revoke(I.RotCookie);
  I.RotCookie = 0;
}

int32_t TDSGraph::Run() { return FImpl->Control ? FImpl->Control->Run() : E_POINTER; }
int32_t TDSGraph::Stop() { return FImpl->Control ? FImpl->Control->Stop() : E_POINTER; }

void TDSGraph::Destroy() {
  auto& I = *FImpl;
  if (I.Control) I.Control->Stop();
  Unregister();
  if (I.Events) I.Events->SetNotifyWindow(0, 0, 0);
  if (I.Graph) {
    // Removing the filters breaks their connections and their references
    // to the graph, whoever else still holds one of them.
    std::vector<TComPtr<IBaseFilter>> Filters;
    TComPtr<IEnumFilters> Enum;
    if (SUCCEEDED(I.Graph->EnumFilters(Enum.Put())) && Enum) {
      for (int Guard = 0; Guard < 1000; ++Guard) {
        TComPtr<IBaseFilter> F;
        ULONG Got = 0;
        if (Enum->Next(1, F.Put(), &Got) != S_OK || Got != 1) break;
        Filters.push_back(F);
      }
    }
    Enum.Reset();
    for (auto& F : Filters) I.Graph->RemoveFilter(F.Get());
  }
  I.Events.Reset();
  I.Control.Reset();
  I.Builder.Reset();
  I.Graph.Reset();
  // COM is left only on the thread that started it; destroyed elsewhere, that
  // thread keeps its apartment rather than another thread losing its own.
  if (I.ComOwned && I.ComThread == GetCurrentThreadId()) CoUninitialize();
  I.ComOwned = false;
}

void TDSGraph::GraphChanged() {
  if (OnGraphChanged) OnGraphChanged();
}

void TDSGraph::GraphBuilt() {
  if (OnGraphBuilt) OnGraphBuilt();
}

int32_t DSAddFileWriter(IBaseFilter* Filter, const std::string& FileName) {
  if (!Filter) return E_POINTER;
  // A writer itself only needs the name.
  TComPtr<IFileSinkFilter> Self;
  if (SUCCEEDED(Filter->QueryInterface(IID_IFileSinkFilter, Self.PutVoid())) && Self)
    return Self->SetFileName(Widen(FileName).c_str(), nullptr);
  FILTER_INFO Info{};
  HRESULT R = Filter->QueryFilterInfo(&Info);
  if (FAILED(R)) return R;
  TComPtr<IFilterGraph> Graph;
  Graph = TComPtr<IFilterGraph>(Info.pGraph);
  if (Info.pGraph) Info.pGraph->Release();
  if (!Graph) return VFW_E_NOT_IN_GRAPH;
  // The first output pin that is not connected yet.
  TComPtr<IPin> Out;
  TComPtr<IEnumPins> Pins;
  if (SUCCEEDED(Filter->EnumPins(Pins.Put())) && Pins) {
    for (int Guard = 0; Guard < 100 && !Out; ++Guard) {
      TComPtr<IPin> P;
      ULONG Got = 0;
      if (Pins->Next(1, P.Put(), &Got) != S_OK || Got != 1) break;
      PIN_DIRECTION D;
      TComPtr<IPin> Peer;
      if (SUCCEEDED(P->QueryDirection(&D)) && D == PINDIR_OUTPUT && P->ConnectedTo(Peer.Put()) == VFW_E_NOT_CONNECTED)
        Out = P;
    }
  }
  if (!Out) return VFW_E_NO_ACCEPTABLE_TYPES;
  TComPtr<IBaseFilter> Writer;
  R = CoCreateInstance(CLSID_FileWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter, Writer.PutVoid());
  TComPtr<IFileSinkFilter> Sink;
  if (SUCCEEDED(R)) R = Writer->QueryInterface(IID_IFileSinkFilter, Sink.PutVoid());
  if (SUCCEEDED(R)) R = Sink->SetFileName(Widen(FileName).c_str(), nullptr);
  if (SUCCEEDED(R)) R = Graph->AddFilter(Writer.Get(), L"File Writer");
  TComPtr<IPin> In;
  if (SUCCEEDED(R)) {
    TComPtr<IEnumPins> WriterPins;
    R = Writer->EnumPins(WriterPins.Put());
    ULONG Got = 0;
    if (SUCCEEDED(R) && (WriterPins->Next(1, In.Put(), &Got) != S_OK || Got != 1)) R = VFW_E_NOT_FOUND;
  }
  if (SUCCEEDED(R)) R = Graph->ConnectDirect(Out.Get(), In.Get(), nullptr);
  return R;
}

// ---- TDSGraphFilter ------------------------------------------------------------

struct TDSGraphFilter::TImpl {
  TComPtr<IMoniker> Moniker;
  std::string Name;
};

TDSGraphFilter::TDSGraphFilter(TDSCategory Category) : FImpl(std::make_unique<TImpl>()), FCategory(Category) {}

TDSGraphFilter::~TDSGraphFilter() = default;

void TDSGraphFilter::SetCategory(TDSCategory Value) {
  FCategory = Value;
  Clear();
}

std::vector<TDSFilterInfo> TDSGraphFilter::List(TDSCategory Category) {
  TComScope Com;
  std::vector<TDSFilterInfo> Result;
  EnumerateCategory(Category, [&](IMoniker* M) {
    Result.push_back({FriendlyName(M), DisplayName(M)});
    return true;
  });
  return Result;
}

bool TDSGraphFilter::Select(const std::string& Name) {
  Clear();
  TComScope Com;
  EnumerateCategory(FCategory, [&](IMoniker* M) {
    const std::string Friendly = FriendlyName(M);
    if (Friendly != Name && DisplayName(M) != Name) return true;
    FImpl->Moniker = TComPtr<IMoniker>(M);
    FImpl->Name = Friendly;
    return false;
  });
  // A name the category does not know stays chosen, without a moniker: the
  // graph build then reports that the filter cannot be created.
  if (!HasMoniker()) FImpl->Name = Name;
  return HasMoniker();
}

void TDSGraphFilter::Clear() {
  FImpl->Moniker.Reset();
  FImpl->Name.clear();
}

bool TDSGraphFilter::HasMoniker() const { return bool(FImpl->Moniker); }
std::string TDSGraphFilter::GetName() const { return FImpl->Name; }
IMoniker* TDSGraphFilter::GetMoniker() const { return FImpl->Moniker.Get(); }

}  // namespace Quorvel
