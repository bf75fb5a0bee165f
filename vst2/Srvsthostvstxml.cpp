// Parameter structures: parsing the document, attaching it to the host's
// parameters, and finding it for a plug-in library.
#include "vst2/Srvsthostvstxml.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>
#include <system_error>

#include "platform/Filestream.h"
#include "platform/Xmlreader.h"

namespace Quorvel {
namespace {

std::string_view Trimmed(const std::string& Text) {
  std::string_view View(Text);
  const auto Space = [](char C) { return C == ' ' || C == '\t' || C == '\n' || C == '\r'; };
  while (!View.empty() && Space(View.front())) View.remove_prefix(1);
  while (!View.empty() && Space(View.back())) View.remove_suffix(1);
  if (View.size() > 1 && View.front() == '+' && View[1] != '-') View.remove_prefix(1);
  return View;
}

// The whole text (spaces around it aside) as a number, in any locale.
template <typename T>
bool Number(const std::string& Text, T& Out) {
  const std::string_view View = Trimmed(Text);
  T Value{};
  const auto [End, Error] = std::from_chars(View.data(), View.data() + View.size(), Value);
  if (View.empty() || Error != std::errc() || End != View.data() + View.size()) return false;
  if constexpr (std::is_floating_point_v<T>) {
    if (!std::isfinite(Value)) return false;
  }
  Out = Value;
  return true;
}

const std::string* Find(const Platform::TXmlAttributes& Attributes, const char* Name) {
  for (const auto& A : Attributes)
    if (A.first == Name) return &A.second;
  return nullptr;
}

std::string Attribute(const Platform::TXmlAttributes& Attributes, const char* Name) {
  const std::string* Value = Find(Attributes, Name);
  return Value ? *Value : std::string();
}

TSRVSTXMLParam MakeParam(const Platform::TXmlAttributes& A) {
  TSRVSTXMLParam P;
  P.Name = Attribute(A, "name");
  // An id that is no 32-bit number names no parameter.
  if (!Number(Attribute(A, "id"), P.Id)) P.Id = -1;
  P.Label = Attribute(A, "label");
  P.ShortName = Attribute(A, "shortName");
  P.Type = Attribute(A, "type");
  if (!Number(Attribute(A, "numberOfStates"), P.NumberOfStates)) P.NumberOfStates = 0;
  if (const std::string* Default = Find(A, "defaultValue")) {
    // Present, but not a number: a default of 0.0.
    P.HasDefaultValue = true;
    if (!Number(*Default, P.DefaultValue)) P.DefaultValue = 0.0f;
  }
  return P;
}

}  // namespace

// Builds the structure from the reader's elements. What each open element
// became is kept on a stack: the structure, a template or group (whose
// parameters and groups fill up), a value type (whose entries do), or
// something else, whose whole content is passed over.
class TSRVSTXMLDocumentReader : public Platform::IXmlElementHandler {
 public:
  explicit TSRVSTXMLDocumentReader(TSRVSTXMLParameterStructure& Out) : FOut(Out) {}

  void StartElement(const std::string& Name, const Platform::TXmlAttributes& Attributes) override {
    if (FOpen.empty()) {
      FIsStructure = Name == "VSTParametersStructure";
      FOpen.push_back(FIsStructure ? TOpen{okStructure, &FOut.FParams, &FOut.FGroups, nullptr}
                                   : TOpen{okOther, nullptr, nullptr, nullptr});
      return;
    }
    const TOpen Parent = FOpen.back();
    TOpen Child{okOther, nullptr, nullptr, nullptr};
    if (Parent.Kind == okValueType) {
      if (Name == "Entry") Parent.ValueType->Entries.push_back({Attribute(Attributes, "name"), Attribute(Attributes, "value")});
    } else if (Parent.Kind == okStructure || Parent.Kind == okContainer) {
      if (Name == "Param") {
        Parent.Params->push_back(MakeParam(Attributes));
      } else if (Name == "Group") {
        Parent.Groups->push_back({Attribute(Attributes, "name"), Attribute(Attributes, "template"),
                                  Attribute(Attributes, "values"), {}, {}});
        TSRVSTXMLGroup& G = Parent.Groups->back();
        Child = {okContainer, &G.Params, &G.Groups, nullptr};
      } else if (Parent.Kind == okStructure && Name == "Template") {
        FOut.FTemplates.push_back({Attribute(Attributes, "name"), {}, {}});
        TSRVSTXMLTemplate& T = FOut.FTemplates.back();
        Child = {okContainer, &T.Params, &T.Groups, nullptr};
      } else if (Parent.Kind == okStructure && Name == "ValueType") {
        FOut.FValueTypes.push_back({Attribute(Attributes, "name"), {}});
        Child = {okValueType, nullptr, nullptr, &FOut.FValueTypes.back()};
      }
    }
    // The vectors a child points into only grow while that child is open
    // below them, never their own element's siblings: the pointers hold.
    FOpen.push_back(Child);
  }

  void EndElement() override {
    if (!FOpen.empty()) FOpen.pop_back();
  }

  bool IsStructure() const { return FIsStructure; }

 private:
  enum TOpenKind { okStructure, okContainer, okValueType, okOther };
  struct TOpen {
    TOpenKind Kind;
    std::vector<TSRVSTXMLParam>* Params;
    std::vector<TSRVSTXMLGroup>* Groups;
    TSRVSTXMLValueType* ValueType;
  };

  TSRVSTXMLParameterStructure& FOut;
  std::vector<TOpen> FOpen;
  bool FIsStructure = false;
};

bool TSRVSTXMLParameterStructure::Parse(const void* Data, size_t Size, std::string& ErrorText) {
  Clear();
  TSRVSTXMLDocumentReader Reader(*this);
  Platform::TXmlLimits Limits;
  Limits.MaxBytes = kMaxDocumentBytes;
  if (!Platform::ReadXmlDocument(Data, Size, Reader, ErrorText, Limits)) {
    Clear();
    return false;
  }
  if (!Reader.IsStructure()) {
    ErrorText = "the document element is not VSTParametersStructure";
    Clear();
    return false;
  }
  return true;
}

void TSRVSTXMLParameterStructure::Clear() {
  FValueTypes.clear();
  FTemplates.clear();
  FGroups.clear();
  FParams.clear();
}

bool TSRVSTXMLParameterStructure::Empty() const {
  return FValueTypes.empty() && FTemplates.empty() && FGroups.empty() && FParams.empty();
}

const TSRVSTXMLValueType* TSRVSTXMLParameterStructure::FindValueType(const std::string& Name) const {
  for (const auto& V : FValueTypes)
    if (V.Name == Name) return &V;
  return nullptr;
}

const TSRVSTXMLTemplate* TSRVSTXMLParameterStructure::FindTemplate(const std::string& Name) const {
  for (const auto& T : FTemplates)
    if (T.Name == Name) return &T;
  return nullptr;
}

namespace {

// One attach step: walks parameters and groups, applying templates, and
// puts a copy of each parameter at its (moved) id.
class TResolver {
 public:
  TResolver(const TSRVSTXMLParameterStructure& Structure, int32_t Count)
      : FStructure(Structure), FOut(static_cast<size_t>(std::max(Count, 0))) {}

  void Params(const std::vector<TSRVSTXMLParam>& Params, int64_t Offset, const std::string& Group) {
    for (const auto& P : Params) {
      if (FVisits >= TSRVSTXMLParameterStructure::kMaxAttachVisits) return;
      ++FVisits;
      if (P.Id < 0) continue;
      const int64_t Index = int64_t(P.Id) + Offset;
      if (Index < 0 || Index >= int64_t(FOut.size())) continue;
      auto Entry = std::make_unique<TSRVSTXMLParam>(P);
      Entry->Id = static_cast<int32_t>(Index);
      Entry->Group = Group;
      Entry->Values.clear();
      if (const TSRVSTXMLValueType* Type = P.Type.empty() ? nullptr : FStructure.FindValueType(P.Type))
        for (const auto& E : Type->Entries) Entry->Values.emplace_back(E.Name, E.Value);
      FOut[static_cast<size_t>(Index)] = std::move(Entry);
    }
  }

  void Groups(const std::vector<TSRVSTXMLGroup>& Groups, int64_t Offset) {
    for (const auto& G : Groups) {
      if (FVisits >= TSRVSTXMLParameterStructure::kMaxAttachVisits) return;
      ++FVisits;
      Params(G.Params, Offset, G.Name);
      this->Groups(G.Groups, Offset);
      const TSRVSTXMLTemplate* T = G.Template.empty() ? nullptr : FStructure.FindTemplate(G.Template);
      if (!T || IsApplying(T) || FApplying.size() >= TSRVSTXMLParameterStructure::kMaxTemplateDepth) continue;
      int32_t Move = 0;
      Number(G.Values, Move);  // 0 when absent or not a number
      FApplying.push_back(T);
      Params(T->Params, Offset + Move, G.Name);
      this->Groups(T->Groups, Offset + Move);
      FApplying.pop_back();
    }
  }

  std::vector<std::unique_ptr<TSRVSTXMLParam>> Take() { return std::move(FOut); }

 private:
  bool IsApplying(const TSRVSTXMLTemplate* T) const {
    for (const TSRVSTXMLTemplate* A : FApplying)
      if (A == T) return true;
    return false;
  }

  const TSRVSTXMLParameterStructure& FStructure;
  std::vector<std::unique_ptr<TSRVSTXMLParam>> FOut;
  std::vector<const TSRVSTXMLTemplate*> FApplying;
  size_t FVisits = 0;
};

}  // namespace

std::vector<std::unique_ptr<TSRVSTXMLParam>> TSRVSTXMLParameterStructure::Resolve(int32_t Count) const {
  TResolver Resolver(*this, Count);
  Resolver.Params(FParams, 0, std::string());
  Resolver.Groups(FGroups, 0);
  return Resolver.Take();
}

size_t TSRVSTXMLParameterStructure::Attach(TSRVSTParameters& Parameters) const {
  const size_t Count = Parameters.Count();
  auto Entries = Resolve(static_cast<int32_t>(std::min<size_t>(Count, INT32_MAX)));
  size_t Attached = 0;
  for (size_t I = 0; I < Entries.size(); ++I) {
    if (!Entries[I]) continue;
    Parameters[I].SetStructureEntry(std::move(Entries[I]));
    ++Attached;
  }
  return Attached;
}

// ---- finding the document -----------------------------------------------------------

std::string ParameterStructureFileName(const std::string& LibraryFileName) {
  const size_t Separator = LibraryFileName.find_last_of("/\\");
  const size_t Dot = LibraryFileName.rfind('.');
  const bool HasExtension = Dot != std::string::npos && (Separator == std::string::npos || Dot > Separator);
  return (HasExtension ? LibraryFileName.substr(0, Dot) : LibraryFileName) + ".vstxml";
}

bool FindParameterStructureDocument(const std::string& LibraryFileName, Platform::TModuleHandle Module,
                                    std::vector<uint8_t>& Document) {
  Document.clear();
  const size_t Limit = TSRVSTXMLParameterStructure::kMaxDocumentBytes;
  const std::string FileName = ParameterStructureFileName(LibraryFileName);
  if (!LibraryFileName.empty() && Platform::FileExists(FileName)) {
    // The file is the description even when it cannot be read: the
    // library's resource is looked at only when there is no file.
    std::string ErrorText;
    auto File = Platform::OpenFileHandle(FileName, Platform::TFileOpenMode::fomRead,
                                         Platform::TFileShareMode::fsmShareAll, ErrorText);
    if (!File) return false;
    const int64_t Size = File->Size();
    if (Size <= 0 || uint64_t(Size) > Limit) return false;
    Document.resize(static_cast<size_t>(Size));
    int64_t Done = 0;
    while (Done < Size) {
      const int64_t Read = File->Read(Document.data() + Done, Size - Done);
      if (Read <= 0) break;
      Done += Read;
    }
    Document.resize(static_cast<size_t>(Done));
    return Done > 0;
  }
  return Platform::ReadLibraryResource(Module, "VSTXML", 1, Limit, Document);
}

}  // namespace Quorvel
