// The objects through which a VST 3 plug-in calls its host back: the host
// context (host application, component handler, unit handler), messages and
// attribute lists, the event list and parameter changes of a block, and the
// streams over memory, files and sections of other streams.
//
// They are deliberately minimal: several methods accept a call and only
// answer. Every object is reference counted in the published manner (a new
// object holds one reference, release frees it at zero) and answers results
// in the module's values. They take no locks: the plug-in calls them on
// whatever thread it calls its host from [any thread]; the event list and
// parameter changes are filled and read on the processing thread only.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "frame/Wbstreams.h"
#include "vst3/Vst3hostintf.h"

namespace Quorvel {

class TSRVST3Host;

namespace Vst3hostobjects {

// The declarations these objects use, by name (the VST 2 declarations of
// the package have records of the same names).
using Vst3hostintf::char16;
using Vst3hostintf::IAttributeList;
using Vst3hostintf::IBStream;
using Vst3hostintf::IComponentHandler;
using Vst3hostintf::IEventList;
using Vst3hostintf::IFUnknown;
using Vst3hostintf::IHostApplication;
using Vst3hostintf::IID_IFUnknown;
using Vst3hostintf::IMessage;
using Vst3hostintf::IParameterChanges;
using Vst3hostintf::IParamValueQueue;
using Vst3hostintf::IUnitHandler;
using Vst3hostintf::TFIDString;
using Vst3hostintf::TParamID;
using Vst3hostintf::TParamValue;
using Vst3hostintf::TProgramListID;
using Vst3hostintf::TResult;
using Vst3hostintf::TUnitID;
using Vst3hostintf::TVstEvent;

// A result as the module expects it.
constexpr TResult ModuleResult(int32_t WindowsValue) { return Platform::Vst3ResultToModule(WindowsValue); }

// The reference counting and interface lookup shared by the host's objects:
// queryInterface answers the listed interfaces and IFUnknown (the first).
template <typename... TInterfaces>
class TVST3Object : public TInterfaces... {
 public:
  TResult queryInterface(const TGUID& IID, void** Obj) override {
    if (!Obj) return ModuleResult(Platform::kVst3InvalidArgument);
    void* Found = nullptr;
    if (IID == IID_IFUnknown) Found = static_cast<IFUnknown*>(static_cast<TFirst*>(this));
    ((Found = Found ? Found : (IID == TInterfaces::iid() ? static_cast<TInterfaces*>(this) : nullptr)), ...);
    *Obj = Found;
    if (!Found) return ModuleResult(Platform::kVst3NoInterface);
    addRef();
    return ModuleResult(Platform::kVst3ResultOk);
  }
  uint32_t addRef() override { return FRefCount.fetch_add(1, std::memory_order_relaxed) + 1; }
  uint32_t release() override {
    const uint32_t Left = FRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (Left == 0) delete this;
    return Left;
  }
  uint32_t GetRefCount() const { return FRefCount.load(); }

 protected:
  virtual ~TVST3Object() = default;

 private:
  template <typename T, typename...>
  struct TFirstOf {
    using Type = T;
  };
  using TFirst = typename TFirstOf<TInterfaces...>::Type;
  std::atomic<uint32_t> FRefCount{1};
};

// A counted reference: releases what it holds when cleared or destroyed.
template <typename T>
class TVST3Ref {
 public:
  TVST3Ref() = default;
  // Takes over one reference the caller holds (a new object, an out value).
  static TVST3Ref Adopt(T* P) {
    TVST3Ref R;
    R.FPtr = P;
    return R;
  }
  // Takes a reference of its own.
  static TVST3Ref Share(T* P) {
    if (P) P->addRef();
    return Adopt(P);
  }
  TVST3Ref(const TVST3Ref& O) : FPtr(O.FPtr) {
    if (FPtr) FPtr->addRef();
  }
  TVST3Ref(TVST3Ref&& O) noexcept : FPtr(O.FPtr) { O.FPtr = nullptr; }
  TVST3Ref& operator=(TVST3Ref O) noexcept {
    std::swap(FPtr, O.FPtr);
    return *this;
  }
  ~TVST3Ref() { Clear(); }
  void Clear() {
    T* P = FPtr;
    FPtr = nullptr;
    if (P) P->release();
  }
  T* Get() const { return FPtr; }
  T* operator->() const { return FPtr; }
  explicit operator bool() const { return FPtr != nullptr; }
  // The interface I of the object, or an empty reference.
  template <typename I>
  TVST3Ref<I> Query() const {
    void* Obj = nullptr;
    if (!FPtr || FPtr->queryInterface(I::iid(), &Obj) != ModuleResult(Platform::kVst3ResultOk) || !Obj) return {};
    return TVST3Ref<I>::Adopt(static_cast<I*>(Obj));
  }

 private:
  T* FPtr = nullptr;
};

// ---- messages and attributes ---------------------------------------------------

enum class THostAttributeType { kInteger, kFloat, kString, kBinary };

// One attribute value; strings and binary blocks are copies the attribute owns.
class THostAttribute {
 public:
  union TVariantValue {
    int64_t IntValue;
    double FloatValue;
    char16* StringValue;
    uint8_t* BinaryValue;
  };
  explicit THostAttribute(int64_t Value);
  explicit THostAttribute(double Value);
  explicit THostAttribute(const char16* Value);  // copied up to its terminating zero
  THostAttribute(const void* Data, uint32_t Size);
  THostAttribute(const THostAttribute&) = delete;
  THostAttribute& operator=(const THostAttribute&) = delete;
  ~THostAttribute();
  THostAttributeType GetType() const { return FType; }
  uint32_t GetSize() const { return FSize; }  // characters with the terminating zero, or bytes
  const TVariantValue& GetValue() const { return FVariantValue; }

 private:
  THostAttributeType FType;
  uint32_t FSize = 0;
  TVariantValue FVariantValue{};
};

using THostAttributeDictionary = std::map<std::string, std::unique_ptr<THostAttribute>>;

class TAttributeList final : public TVST3Object<IAttributeList> {
 public:
  TResult setInt(TAttrID ID, int64_t Value) override;
  TResult getInt(TAttrID ID, int64_t& Value) override;
  TResult setFloat(TAttrID ID, double Value) override;
  TResult getFloat(TAttrID ID, double& Value) override;
  TResult setString(TAttrID ID, const char16* String) override;
  TResult getString(TAttrID ID, char16* String, uint32_t SizeInBytes) override;
  TResult setBinary(TAttrID ID, const void* Data, uint32_t SizeInBytes) override;
  TResult getBinary(TAttrID ID, const void*& Data, uint32_t& SizeInBytes) override;

 private:
  // Identifiers are compared by content.
  const THostAttribute* Find(TAttrID ID, THostAttributeType Type) const;
  // Stores the attribute Make() gives under ID; no exception reaches the plug-in.
  template <typename TMake>
  TResult Store(TAttrID ID, TMake Make) noexcept;
  THostAttributeDictionary FList;
};

class TMessage final : public TVST3Object<IMessage> {
 public:
  TFIDString getMessageID() override { return FMessageId; }
  void setMessageID(TFIDString ID) override;
  IAttributeList* getAttributes() override;

 protected:
  ~TMessage() override;

 private:
  TFIDString FMessageId = nullptr;
  TAttributeList* FAttributeList = nullptr;  // owned, one reference
};

// ---- the host context ----------------------------------------------------------

class TVST3Notifications final : public TVST3Object<IHostApplication, IComponentHandler, IUnitHandler> {
 public:
  explicit TVST3Notifications(TSRVST3Host* Owner) : FOwner(Owner) {}
  // The owner lets go when it closes: a plug-in that keeps the context
  // longer gets answers without an owner (no name, no forwarding).
  void Detach() { FOwner.store(nullptr); }

  // IHostApplication
  TResult getName(char16* Name) override;
  TResult createInstance(TGUID* CID, TGUID* IID, void** Obj) override;
  // IComponentHandler
  TResult beginEdit(TParamID ID) override;
  TResult performEdit(TParamID ID, TParamValue ValueNormalized) override;
  TResult endEdit(TParamID ID) override;
  TResult restartComponent(int32_t Flags) override;
  // IUnitHandler
  TResult notifyUnitSelection(TUnitID UnitId) override;
  TResult notifyProgramListChange(TProgramListID ListId, int32_t ProgramIndex) override;

 private:
  std::atomic<TSRVST3Host*> FOwner;
};

// ---- a block's events and parameter changes ---------------------------------------

class TEventList final : public TVST3Object<IEventList> {
 public:
  // The capacity is fixed: the list never allocates after it is made.
  explicit TEventList(int32_t MaxSize);
  int32_t getEventCount() override { return static_cast<int32_t>(FEvents.size()); }
  TResult getEvent(int32_t Index, TVstEvent& Event) override;
  TResult addEvent(TVstEvent& Event) override;
  void Clear() { FEvents.clear(); }
  // The host's own accessor: an empty record for an index out of range.
  TVstEvent GetEventByIndex(int32_t Index) const;
  int32_t GetMaxSize() const { return FMaxSize; }

 private:
  int32_t FMaxSize;
  std::vector<TVstEvent> FEvents;
};

class TParameterChanges final : public TVST3Object<IParameterChanges> {
 public:
  int32_t getParameterCount() override;
  IParamValueQueue* getParameterData(int32_t Index) override;
  IParamValueQueue* addParameterData(const TParamID& ID, int32_t& Index) override;
};

// ---- streams -----------------------------------------------------------------

class TMemoryBStream final : public TVST3Object<IBStream> {
 public:
  // Empty and owning: it allocates, grows and frees its memory.
  TMemoryBStream() = default;
  // Over Size bytes of the caller's memory, all in use; it never grows.
  TMemoryBStream(void* Memory, int64_t Size);
  TResult read(void* Buffer, int32_t NumBytes, int32_t* NumBytesRead) override;
  TResult write(void* Buffer, int32_t NumBytes, int32_t* NumBytesWritten) override;
  TResult seek(int64_t Pos, int32_t Mode, int64_t* Result) override;
  TResult tell(int64_t* Pos) override;
  const uint8_t* GetData() const { return FMemory; }
  int64_t GetSize() const { return FSize; }

  // The most an owning stream grows to.
  static constexpr int64_t kMaxMemorySize = int64_t(1) << 30;

 protected:
  ~TMemoryBStream() override;

 private:
  bool Grow(int64_t Needed);
  uint8_t* FMemory = nullptr;
  int64_t FMemorySize = 0;
  int64_t FSize = 0;
  int64_t FCursor = 0;
  bool FOwnMemory = true;
  bool FAllocationError = false;
};

// IBStream over one of the frame's streams: a file it opens itself, or a
// stream of the caller's that must outlive it.
class TFileBStream final : public TVST3Object<IBStream> {
 public:
  TFileBStream() = default;
  explicit TFileBStream(TWBStream& Stream) : FStream(&Stream) {}
  // Opens FileName; false with the system's reason in ErrorText.
  bool Open(const std::string& FileName, Platform::TFileOpenMode Mode, std::string& ErrorText);
  TResult read(void* Buffer, int32_t NumBytes, int32_t* NumBytesRead) override;
  TResult write(void* Buffer, int32_t NumBytes, int32_t* NumBytesWritten) override;
  TResult seek(int64_t Pos, int32_t Mode, int64_t* Result) override;
  TResult tell(int64_t* Pos) override;

 private:
  std::unique_ptr<TWBFileStream> FFileStream;
  TWBStream* FStream = nullptr;
};

// A read-only view of SectionSize bytes of another stream from SourceOffset.
class TReadOnlyBStream final : public TVST3Object<IBStream> {
 public:
  TReadOnlyBStream(IBStream* SourceStream, int64_t SourceOffset, int64_t SectionSize);
  TResult read(void* Buffer, int32_t NumBytes, int32_t* NumBytesRead) override;
  TResult write(void* Buffer, int32_t NumBytes, int32_t* NumBytesWritten) override;
  TResult seek(int64_t Pos, int32_t Mode, int64_t* Result) override;
  TResult tell(int64_t* Pos) override;

 private:
  TVST3Ref<IBStream> FSourceStream;
  int64_t FSourceOffset;
  int64_t FSectionSize;
  int64_t FSeekPosition = 0;
};

}  // namespace Vst3hostobjects
}  // namespace Quorvel
