// Persistence of components: each class declares its published properties
// once (name, how to read and write it, its default, whether it is stored),
// with nested property groups and collections of items; extra values a
// component keeps under names of its own go through DefineProperties and a
// filer. Saving gives a tree of values (TWBValue) that a document format
// writes out (frame/Wbdocument); loading applies such a tree between
// BeginLoading and EndLoading, so that Loaded runs once at the end.
//
// Threads: everything here runs on the main thread, with no stream running
// through the components being loaded.
#pragma once

#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Quorvel {

class TWBComponent;

// One streamed value: null, boolean, integer, float, string, binary block,
// list of values, or object (named values in order).
class TWBValue {
 public:
  enum class TKind { vkNull, vkBoolean, vkInteger, vkFloat, vkString, vkBinary, vkList, vkObject };
  using TMembers = std::vector<std::pair<std::string, TWBValue>>;

  TWBValue() = default;
  static TWBValue Boolean(bool V);
  static TWBValue Integer(int64_t V);
  static TWBValue Float(double V);
  static TWBValue String(std::string V);
  static TWBValue Binary(std::vector<uint8_t> V);
  static TWBValue List(std::vector<TWBValue> Items = {});
  static TWBValue Object(TMembers Members = {});

  TKind Kind() const { return FKind; }
  bool IsNull() const { return FKind == TKind::vkNull; }
  // Typed reads: false when the value is of another kind (an integer reads as
  // a float; a float with an integral value reads as an integer).
  bool AsBoolean(bool& V) const;
  bool AsInteger(int64_t& V) const;
  bool AsFloat(double& V) const;
  bool AsString(std::string& V) const;
  bool AsBinary(std::vector<uint8_t>& V) const;
  const std::vector<TWBValue>& Items() const { return FItems; }
  std::vector<TWBValue>& Items() { return FItems; }
  const TMembers& Members() const { return FMembers; }
  // Object members: the value of Name, or nullptr; Set replaces or appends.
  const TWBValue* Find(const std::string& Name) const;
  void Set(const std::string& Name, TWBValue Value);

  bool operator==(const TWBValue& Other) const;
  bool operator!=(const TWBValue& Other) const { return !(*this == Other); }
  // A short description for messages ("integer 5", "string \"x\"", "list").
  std::string Describe() const;

 private:
  TKind FKind = TKind::vkNull;
  bool FBoolean = false;
  int64_t FInteger = 0;
  double FFloat = 0;
  std::string FString;
  std::vector<uint8_t> FBinary;
  std::vector<TWBValue> FItems;
  TMembers FMembers;
};

// ---- the filer: extra properties under a component's own names -------------

// Reads the values a writer wrote, in order.
class TWBReader {
 public:
  explicit TWBReader(const TWBValue& Value);
  // Each read takes the next value; false when it is missing or of another kind.
  bool ReadBoolean(bool& V);
  bool ReadInteger(int64_t& V);
  bool ReadFloat(double& V);
  bool ReadString(std::string& V);
  bool ReadBinary(std::vector<uint8_t>& V);
  bool ReadListBegin();
  bool ReadListEnd();
  bool EndOfList() const;

 private:
  struct TLevel {
    const std::vector<TWBValue>* Items;
    size_t Next;
  };
  const TWBValue* Next();
  std::vector<TWBValue> FRoot;
  std::vector<TLevel> FLevels;
};

class TWBWriter {
 public:
  void WriteBoolean(bool V);
  void WriteInteger(int64_t V);
  void WriteFloat(double V);
  void WriteString(const std::string& V);
  void WriteBinary(const std::vector<uint8_t>& V);
  void WriteListBegin();
  void WriteListEnd();
  // What was written: one value, or a list when several were.
  TWBValue Result() const;

 private:
  void Add(TWBValue V);
  std::vector<std::vector<TWBValue>> FLevels{1};
};

using TWBReaderProc = std::function<void(TWBReader& Reader)>;
using TWBWriterProc = std::function<void(TWBWriter& Writer)>;

// Collects a component's extra properties: each a reader, a writer and
// whether there is anything to write.
class TWBFiler {
 public:
  void DefineProperty(const std::string& Name, TWBReaderProc Reader, TWBWriterProc Writer, bool HasData);
  // A binary block under Name.
  void DefineBinaryProperty(const std::string& Name, std::function<void(const std::vector<uint8_t>&)> Reader,
                            std::function<std::vector<uint8_t>()> Writer, bool HasData);

  struct TDefined {
    std::string Name;
    TWBReaderProc Reader;
    TWBWriterProc Writer;
    bool HasData;
  };
  const std::vector<TDefined>& Defined() const { return FDefined; }

 private:
  std::vector<TDefined> FDefined;
};

// ---- declared properties ---------------------------------------------------

struct TWBClassInfo;

// One published property of a class, over an object of that class.
struct TWBPropertyInfo {
  enum class TKind { pkValue, pkGroup, pkCollection };
  std::string Name;
  TKind Kind = TKind::pkValue;
  // pkValue: read and write the value; Set answers false with the reason.
  std::function<TWBValue(void* Object)> Get;
  std::function<bool(void* Object, const TWBValue& Value, std::string& Why)> Set;
  // Whether the value is written: by default when it differs from Default.
  std::function<bool(void* Object)> Stored;
  TWBValue Default;
  // pkGroup: the sub-object and its class; pkCollection: the items' class,
  // how many there are, making Count of them, and item I.
  const TWBClassInfo* ItemClass = nullptr;
  std::function<void*(void* Object)> Group;
  std::function<size_t(void* Object)> Count;
  std::function<bool(void* Object, size_t Count, std::string& Why)> SetCount;
  std::function<void*(void* Object, size_t Index)> Item;
};

// A class's published face: its name, its parent's, its properties and, for
// components, how to make one and how to reach its filer.
struct TWBClassInfo {
  std::string ClassName;
  const TWBClassInfo* Parent = nullptr;
  std::vector<TWBPropertyInfo> Properties;
  // Components only: a new instance owned by Owner.
  std::function<TWBComponent*(TWBComponent* Owner)> Create;
  // The object's extra properties, if it has any.
  std::function<void(void* Object, TWBFiler& Filer)> DefineProperties;
  // All properties, the parent's first; a property the class redeclares is
  // where the class puts it (so a class decides what loads last).
  std::vector<const TWBPropertyInfo*> AllProperties() const;
};

// A class's description; Create is set for classes a document can make.
inline TWBClassInfo MakeClassInfo(std::string ClassName, const TWBClassInfo* Parent,
                                  std::vector<TWBPropertyInfo> Properties,
                                  std::function<TWBComponent*(TWBComponent*)> Create = nullptr) {
  TWBClassInfo Info;
  Info.ClassName = std::move(ClassName);
  Info.Parent = Parent;
  Info.Properties = std::move(Properties);
  Info.Create = std::move(Create);
  return Info;
}

// Makes components of class T, owned by the given owner.
template <typename T>
std::function<TWBComponent*(TWBComponent*)> Factory() {
  return [](TWBComponent* Owner) -> TWBComponent* { return new T(Owner); };
}

// ---- conversions between property types and streamed values ---------------

template <typename T, typename = void>
struct TWBValueTraits;

template <>
struct TWBValueTraits<bool> {
  static TWBValue To(bool V) { return TWBValue::Boolean(V); }
  static bool From(const TWBValue& V, bool& Out) { return V.AsBoolean(Out); }
};

template <typename T>
struct TWBValueTraits<T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>>> {
  static TWBValue To(T V) { return TWBValue::Integer(static_cast<int64_t>(V)); }
  static bool From(const TWBValue& V, T& Out) {
    int64_t I = 0;
    if (!V.AsInteger(I)) return false;
    if constexpr (std::is_unsigned_v<T>) {
      if (I < 0 || static_cast<uint64_t>(I) > static_cast<uint64_t>(std::numeric_limits<T>::max())) return false;
    } else {
      if (I < static_cast<int64_t>(std::numeric_limits<T>::min()) ||
          I > static_cast<int64_t>(std::numeric_limits<T>::max()))
        return false;
    }
    Out = static_cast<T>(I);
    return true;
  }
};

template <typename T>
struct TWBValueTraits<T, std::enable_if_t<std::is_floating_point_v<T>>> {
  static TWBValue To(T V) { return TWBValue::Float(static_cast<double>(V)); }
  static bool From(const TWBValue& V, T& Out) {
    double D = 0;
    if (!V.AsFloat(D) || !(D == D) || D > std::numeric_limits<T>::max() || D < -std::numeric_limits<T>::max())
      return false;
    Out = static_cast<T>(D);
    return true;
  }
};

template <>
struct TWBValueTraits<std::string> {
  static TWBValue To(const std::string& V) { return TWBValue::String(V); }
  static bool From(const TWBValue& V, std::string& Out) { return V.AsString(Out); }
};

// Enumerations stream by the name of their value, in declaration order.
template <typename E>
struct TWBEnumNames;  // specialise: static constexpr const char* const Names[] = {...};

template <typename E>
struct TWBValueTraits<E, std::enable_if_t<std::is_enum_v<E>>> {
  static TWBValue To(E V) {
    const size_t I = static_cast<size_t>(V);
    const auto& Names = TWBEnumNames<E>::Names;
    return I < std::size(Names) ? TWBValue::String(Names[I]) : TWBValue::Integer(static_cast<int64_t>(I));
  }
  static bool From(const TWBValue& V, E& Out) {
    std::string S;
    if (!V.AsString(S)) return false;
    const auto& Names = TWBEnumNames<E>::Names;
    for (size_t I = 0; I < std::size(Names); ++I)
      if (S == Names[I]) {
        Out = static_cast<E>(I);
        return true;
      }
    return false;
  }
};

// A value property from a getter and a setter of C.
template <typename C, typename R, typename A>
TWBPropertyInfo Property(const std::string& Name, R (C::*Getter)() const, void (C::*Setter)(A),
                         std::decay_t<R> Default) {
  using T = std::decay_t<R>;
  TWBPropertyInfo P;
  P.Name = Name;
  P.Default = TWBValueTraits<T>::To(Default);
  P.Get = [Getter](void* O) { return TWBValueTraits<T>::To((static_cast<C*>(O)->*Getter)()); };
  P.Set = [Setter, Name](void* O, const TWBValue& V, std::string& Why) {
    T Value{};
    if (!TWBValueTraits<T>::From(V, Value)) {
      Why = "property " + Name + ": " + V.Describe() + " is not a valid value";
      return false;
    }
    (static_cast<C*>(O)->*Setter)(Value);
    return true;
  };
  return P;
}

// A value property through functions of C (for values that no single getter
// and setter pair carries).
template <typename C, typename T>
TWBPropertyInfo PropertyOf(const std::string& Name, std::function<T(C&)> Getter, std::function<void(C&, T)> Setter,
                           T Default) {
  TWBPropertyInfo P;
  P.Name = Name;
  P.Default = TWBValueTraits<T>::To(Default);
  P.Get = [Getter](void* O) { return TWBValueTraits<T>::To(Getter(*static_cast<C*>(O))); };
  P.Set = [Setter, Name](void* O, const TWBValue& V, std::string& Why) {
    T Value{};
    if (!TWBValueTraits<T>::From(V, Value)) {
      Why = "property " + Name + ": " + V.Describe() + " is not a valid value";
      return false;
    }
    Setter(*static_cast<C*>(O), Value);
    return true;
  };
  return P;
}

// A property group: the sub-object G of C and G's own class.
template <typename C, typename G>
TWBPropertyInfo Group(const std::string& Name, G& (C::*Accessor)(), const TWBClassInfo& GroupClass) {
  TWBPropertyInfo P;
  P.Name = Name;
  P.Kind = TWBPropertyInfo::TKind::pkGroup;
  P.ItemClass = &GroupClass;
  P.Group = [Accessor](void* O) -> void* { return &(static_cast<C*>(O)->*Accessor)(); };
  return P;
}

// A collection of items of ItemClass: how many there are, making Count of
// them (false with the reason when it cannot), and item Index.
template <typename C>
TWBPropertyInfo Collection(const std::string& Name, const TWBClassInfo& ItemClass, std::function<size_t(C&)> Count,
                           std::function<bool(C&, size_t, std::string&)> SetCount,
                           std::function<void*(C&, size_t)> Item) {
  TWBPropertyInfo P;
  P.Name = Name;
  P.Kind = TWBPropertyInfo::TKind::pkCollection;
  P.ItemClass = &ItemClass;
  P.Count = [Count](void* O) { return Count(*static_cast<C*>(O)); };
  P.SetCount = [SetCount](void* O, size_t N, std::string& Why) { return SetCount(*static_cast<C*>(O), N, Why); };
  P.Item = [Item](void* O, size_t I) { return Item(*static_cast<C*>(O), I); };
  return P;
}

// ---- saving and loading ----------------------------------------------------

// A component's class, its own properties and, between BeginLoading and
// EndLoading (so that Loaded runs once at the end), loading them.
TWBValue SaveComponent(TWBComponent& Component);
void LoadComponent(TWBComponent& Component, const TWBValue& Properties, std::vector<std::string>& Problems);

// The object's stored properties (groups and collections nested, extra
// properties last) as an object value.
TWBValue SaveProperties(void* Object, const TWBClassInfo& Class);
// Applies Properties to Object. Unknown names and bad values are collected in
// Problems ("<path>: <why>"); what can be applied is applied.
void LoadProperties(void* Object, const TWBClassInfo& Class, const TWBValue& Properties,
                    std::vector<std::string>& Problems, const std::string& Path = std::string());

}  // namespace Quorvel
