#include "frame/Wbpersistence.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "frame/Wbcomponent.h"

namespace Quorvel {

// ---- TWBValue ----------------------------------------------------------------

TWBValue TWBValue::Boolean(bool V) {
  TWBValue R;
  R.FKind = TKind::vkBoolean;
  R.FBoolean = V;
  return R;
}

TWBValue TWBValue::Integer(int64_t V) {
  TWBValue R;
  R.FKind = TKind::vkInteger;
  R.FInteger = V;
  return R;
}

TWBValue TWBValue::Float(double V) {
  TWBValue R;
  R.FKind = TKind::vkFloat;
  R.FFloat = V;
  return R;
}

TWBValue TWBValue::String(std::string V) {
  TWBValue R;
  R.FKind = TKind::vkString;
  R.FString = std::move(V);
  return R;
}

TWBValue TWBValue::Binary(std::vector<uint8_t> V) {
  TWBValue R;
  R.FKind = TKind::vkBinary;
  R.FBinary = std::move(V);
  return R;
}

TWBValue TWBValue::List(std::vector<TWBValue> Items) {
  TWBValue R;
  R.FKind = TKind::vkList;
  R.FItems = std::move(Items);
  return R;
}

TWBValue TWBValue::Object(TMembers Members) {
  TWBValue R;
  R.FKind = TKind::vkObject;
  R.FMembers = std::move(Members);
  return R;
}

bool TWBValue::AsBoolean(bool& V) const {
  if (FKind != TKind::vkBoolean) return false;
  V = FBoolean;
  return true;
}

bool TWBValue::AsInteger(int64_t& V) const {
  if (FKind == TKind::vkInteger) {
    V = FInteger;
    return true;
  }
  // A float of integral value within range, as documents may write them.
  if (FKind == TKind::vkFloat && std::floor(FFloat) == FFloat && FFloat >= -9.2e18 && FFloat <= 9.2e18) {
    V = static_cast<int64_t>(FFloat);
    return true;
  }
  return false;
}

bool TWBValue::AsFloat(double& V) const {
  if (FKind == TKind::vkFloat) {
    V = FFloat;
    return true;
  }
  if (FKind == TKind::vkInteger) {
    V = static_cast<double>(FInteger);
    return true;
  }
  return false;
}

bool TWBValue::AsString(std::string& V) const {
  if (FKind != TKind::vkString) return false;
  V = FString;
  return true;
}

bool TWBValue::AsBinary(std::vector<uint8_t>& V) const {
  if (FKind != TKind::vkBinary) return false;
  V = FBinary;
  return true;
}

const TWBValue* TWBValue::Find(const std::string& Name) const {
  for (const auto& M : FMembers)
    if (M.first == Name) return &M.second;
  return nullptr;
}

void TWBValue::Set(const std::string& Name, TWBValue Value) {
  FKind = TKind::vkObject;
  for (auto& M : FMembers)
    if (M.first == Name) {
      M.second = std::move(Value);
      return;
    }
  FMembers.emplace_back(Name, std::move(Value));
}

bool TWBValue::operator==(const TWBValue& O) const {
  if (FKind != O.FKind) return false;
  switch (FKind) {
    case TKind::vkNull: return true;
    case TKind::vkBoolean: return FBoolean == O.FBoolean;
    case TKind::vkInteger: return FInteger == O.FInteger;
    case TKind::vkFloat: return FFloat == O.FFloat || (FFloat != FFloat && O.FFloat != O.FFloat);
    case TKind::vkString: return FString == O.FString;
    case TKind::vkBinary: return FBinary == O.FBinary;
    case TKind::vkList: return FItems == O.FItems;
    case TKind::vkObject: return FMembers == O.FMembers;
  }
  return false;
}

std::string TWBValue::Describe() const {
  switch (FKind) {
    case TKind::vkNull: return "null";
    case TKind::vkBoolean: return FBoolean ? "true" : "false";
    case TKind::vkInteger: return "integer " + std::to_string(FInteger);
    case TKind::vkFloat: {
      char Text[40];
      std::snprintf(Text, sizeof Text, "number %.17g", FFloat);
      return Text;
    }
    case TKind::vkString: return "string \"" + (FString.size() > 40 ? FString.substr(0, 40) + "..." : FString) + "\"";
    case TKind::vkBinary: return "binary block of " + std::to_string(FBinary.size()) + " bytes";
    case TKind::vkList: return "list of " + std::to_string(FItems.size());
    case TKind::vkObject: return "object";
  }
  return "?";
}

// ---- reader and writer -----------------------------------------------------

TWBReader::TWBReader(const TWBValue& Value) {
  // A single value reads as a list of one; a list as its items.
  if (Value.Kind() == TWBValue::TKind::vkList)
    FRoot = Value.Items();
  else
    FRoot.push_back(Value);
  FLevels.push_back({&FRoot, 0});
}

const TWBValue* TWBReader::Next() {
  TLevel& L = FLevels.back();
  return L.Next < L.Items->size() ? &(*L.Items)[L.Next++] : nullptr;
}

bool TWBReader::ReadBoolean(bool& V) {
  const TWBValue* X = Next();
  return X && X->AsBoolean(V);
}

bool TWBReader::ReadInteger(int64_t& V) {
  const TWBValue* X = Next();
  return X && X->AsInteger(V);
}

bool TWBReader::ReadFloat(double& V) {
  const TWBValue* X = Next();
  return X && X->AsFloat(V);
}

bool TWBReader::ReadString(std::string& V) {
  const TWBValue* X = Next();
  return X && X->AsString(V);
}

bool TWBReader::ReadBinary(std::vector<uint8_t>& V) {
  const TWBValue* X = Next();
  return X && X->AsBinary(V);
}

bool TWBReader::ReadListBegin() {
  const TWBValue* X = Next();
  if (!X || X->Kind() != TWBValue::TKind::vkList) return false;
  FLevels.push_back({&X->Items(), 0});
  return true;
}

bool TWBReader::ReadListEnd() {
  if (FLevels.size() < 2 || !EndOfList()) return false;
  FLevels.pop_back();
  return true;
}

bool TWBReader::EndOfList() const { return FLevels.back().Next >= FLevels.back().Items->size(); }

void TWBWriter::Add(TWBValue V) { FLevels.back().push_back(std::move(V)); }
void TWBWriter::WriteBoolean(bool V) { Add(TWBValue::Boolean(V)); }
void TWBWriter::WriteInteger(int64_t V) { Add(TWBValue::Integer(V)); }
void TWBWriter::WriteFloat(double V) { Add(TWBValue::Float(V)); }
void TWBWriter::WriteString(const std::string& V) { Add(TWBValue::String(V)); }
void TWBWriter::WriteBinary(const std::vector<uint8_t>& V) { Add(TWBValue::Binary(V)); }
void TWBWriter::WriteListBegin() { FLevels.emplace_back(); }

void TWBWriter::WriteListEnd() {
  if (FLevels.size() < 2) return;
  TWBValue List = TWBValue::List(std::move(FLevels.back()));
  FLevels.pop_back();
  Add(std::move(List));
}

TWBValue TWBWriter::Result() const {
  const auto& Top = FLevels.front();
  return Top.size() == 1 ? Top.front() : TWBValue::List(Top);
}

void TWBFiler::DefineProperty(const std::string& Name, TWBReaderProc Reader, TWBWriterProc Writer, bool HasData) {
  FDefined.push_back({Name, std::move(Reader), std::move(Writer), HasData});
}

void TWBFiler::DefineBinaryProperty(const std::string& Name, std::function<void(const std::vector<uint8_t>&)> Reader,
                                    std::function<std::vector<uint8_t>()> Writer, bool HasData) {
  DefineProperty(
      Name,
      [Reader = std::move(Reader)](TWBReader& R) {
        std::vector<uint8_t> Bytes;
        if (R.ReadBinary(Bytes) && Reader) Reader(Bytes);
      },
      [Writer = std::move(Writer)](TWBWriter& W) { W.WriteBinary(Writer ? Writer() : std::vector<uint8_t>()); },
      HasData);
}

// ---- classes ---------------------------------------------------------------

std::vector<const TWBPropertyInfo*> TWBClassInfo::AllProperties() const {
  std::vector<const TWBPropertyInfo*> All = Parent ? Parent->AllProperties() : std::vector<const TWBPropertyInfo*>();
  for (const auto& P : Properties) {
    // A class may redeclare a parent's property (its own setter, another
    // default): the redeclaration takes the parent's place in the order.
    All.erase(std::remove_if(All.begin(), All.end(), [&](const TWBPropertyInfo* Known) { return Known->Name == P.Name; }),
              All.end());
    All.push_back(&P);
  }
  return All;
}

namespace {

std::function<void(void*, TWBFiler&)> FindDefineProperties(const TWBClassInfo& Class) {
  for (const TWBClassInfo* C = &Class; C; C = C->Parent)
    if (C->DefineProperties) return C->DefineProperties;
  return nullptr;
}

}  // namespace

TWBValue SaveProperties(void* Object, const TWBClassInfo& Class) {
  TWBValue Result = TWBValue::Object();
  for (const TWBPropertyInfo* P : Class.AllProperties()) {
    switch (P->Kind) {
      case TWBPropertyInfo::TKind::pkValue: {
        TWBValue V = P->Get(Object);
        if (P->Stored ? P->Stored(Object) : V != P->Default) Result.Set(P->Name, std::move(V));
        break;
      }
      case TWBPropertyInfo::TKind::pkGroup: {
        TWBValue V = SaveProperties(P->Group(Object), *P->ItemClass);
        if (!V.Members().empty()) Result.Set(P->Name, std::move(V));
        break;
      }
      case TWBPropertyInfo::TKind::pkCollection: {
        const size_t N = P->Count(Object);
        if (N == 0) break;
        std::vector<TWBValue> Items;
        for (size_t I = 0; I < N; ++I) Items.push_back(SaveProperties(P->Item(Object, I), *P->ItemClass));
        Result.Set(P->Name, TWBValue::List(std::move(Items)));
        break;
      }
    }
  }
  if (auto Define = FindDefineProperties(Class)) {
    TWBFiler Filer;
    Define(Object, Filer);
    for (const auto& D : Filer.Defined()) {
      if (!D.HasData || !D.Writer) continue;
      TWBWriter W;
      D.Writer(W);
      Result.Set(D.Name, W.Result());
    }
  }
  return Result;
}

void LoadProperties(void* Object, const TWBClassInfo& Class, const TWBValue& Properties,
                    std::vector<std::string>& Problems, const std::string& Path) {
  const std::string Prefix = Path.empty() ? std::string() : Path + ".";
  if (Properties.Kind() != TWBValue::TKind::vkObject) {
    Problems.push_back((Path.empty() ? Class.ClassName : Path) + ": properties must be an object, not " +
                       Properties.Describe());
    return;
  }
  const auto All = Class.AllProperties();
  TWBFiler Filer;
  if (auto Define = FindDefineProperties(Class)) Define(Object, Filer);
  for (const auto& [Name, Value] : Properties.Members()) {
    const TWBPropertyInfo* P = nullptr;
    for (const TWBPropertyInfo* Known : All)
      if (Known->Name == Name) P = Known;
    if (!P) {
      bool Extra = false;
      for (const auto& D : Filer.Defined())
        if (D.Name == Name) {
          Extra = true;
          if (D.Reader) {
            TWBReader R(Value);
            D.Reader(R);
          }
        }
      if (!Extra) Problems.push_back(Prefix + Name + ": " + Class.ClassName + " has no such property");
      continue;
    }
    std::string Why;
    switch (P->Kind) {
      case TWBPropertyInfo::TKind::pkValue:
        if (!P->Set(Object, Value, Why)) Problems.push_back(Prefix + Name + ": " + Why);
        break;
      case TWBPropertyInfo::TKind::pkGroup:
        LoadProperties(P->Group(Object), *P->ItemClass, Value, Problems, Prefix + Name);
        break;
      case TWBPropertyInfo::TKind::pkCollection: {
        if (Value.Kind() != TWBValue::TKind::vkList) {
          Problems.push_back(Prefix + Name + ": a list of items is expected, not " + Value.Describe());
          break;
        }
        if (!P->SetCount(Object, Value.Items().size(), Why)) {
          Problems.push_back(Prefix + Name + ": " + Why);
          break;
        }
        for (size_t I = 0; I < Value.Items().size() && I < P->Count(Object); ++I)
          LoadProperties(P->Item(Object, I), *P->ItemClass, Value.Items()[I], Problems,
                         Prefix + Name + "[" + std::to_string(I) + "]");
        break;
      }
    }
  }
}

TWBValue SaveComponent(TWBComponent& Component) { return SaveProperties(&Component, Component.GetClassInfo()); }

void LoadComponent(TWBComponent& Component, const TWBValue& Properties, std::vector<std::string>& Problems) {
  Component.BeginLoading();
  LoadProperties(&Component, Component.GetClassInfo(), Properties, Problems, Component.GetName());
  Component.EndLoading();
}

}  // namespace Quorvel
