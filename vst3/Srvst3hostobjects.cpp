#include "vst3/Srvst3hostobjects.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

#include "vst3/Srvst3host.h"

namespace Quorvel::Vst3hostobjects {

using namespace Vst3hostintf;

namespace {

constexpr TResult kOk = ModuleResult(Platform::kVst3ResultOk);
constexpr TResult kFalse = ModuleResult(Platform::kVst3ResultFalse);
constexpr TResult kInvalidArgument = ModuleResult(Platform::kVst3InvalidArgument);
constexpr TResult kNotImplemented = ModuleResult(Platform::kVst3NotImplemented);
constexpr TResult kOutOfMemory = ModuleResult(Platform::kVst3OutOfMemory);

// Positions add without overflowing: hostile seeks stay far out of range instead.
int64_t AddClamped(int64_t A, int64_t B) {
  if (B > 0 && A > INT64_MAX - B) return INT64_MAX;
  if (B < 0 && A < INT64_MIN - B) return INT64_MIN;
  return A + B;
}

size_t Length16(const char16* S) {
  size_t N = 0;
  while (S[N]) ++N;
  return N;
}

}  // namespace

// ---- THostAttribute ----------------------------------------------------------------

THostAttribute::THostAttribute(int64_t Value) : FType(THostAttributeType::kInteger) { FVariantValue.IntValue = Value; }

THostAttribute::THostAttribute(double Value) : FType(THostAttributeType::kFloat) { FVariantValue.FloatValue = Value; }

THostAttribute::THostAttribute(const char16* Value) : FType(THostAttributeType::kString) {
  const size_t N = Value ? Length16(Value) : 0;
  FSize = static_cast<uint32_t>(N + 1);
  FVariantValue.StringValue = new char16[N + 1];
  if (N) std::memcpy(FVariantValue.StringValue, Value, N * sizeof(char16));
  FVariantValue.StringValue[N] = 0;
}

THostAttribute::THostAttribute(const void* Data, uint32_t Size) : FType(THostAttributeType::kBinary), FSize(Size) {
  FVariantValue.BinaryValue = new uint8_t[Size ? Size : 1];
  if (Size && Data) std::memcpy(FVariantValue.BinaryValue, Data, Size);
}

THostAttribute::~THostAttribute() {
  if (FType == THostAttributeType::kString) delete[] FVariantValue.StringValue;
  if (FType == THostAttributeType::kBinary) delete[] FVariantValue.BinaryValue;
}

// ---- TAttributeList ------------------------------------------------------------------

const THostAttribute* TAttributeList::Find(TAttrID ID, THostAttributeType Type) const {
  if (!ID) return nullptr;
  const auto It = FList.find(ID);
  return It != FList.end() && It->second->GetType() == Type ? It->second.get() : nullptr;
}

template <typename TMake>
TResult TAttributeList::Store(TAttrID ID, TMake Make) noexcept {
  if (!ID) return kInvalidArgument;
  try {
    FList[ID] = Make();
  } catch (...) {
    return kOutOfMemory;
  }
  return kOk;
}

TResult TAttributeList::setInt(TAttrID ID, int64_t Value) {
  return Store(ID, [Value] { return std::make_unique<THostAttribute>(Value); });
}

TResult TAttributeList::getInt(TAttrID ID, int64_t& Value) {
  const THostAttribute* A = Find(ID, THostAttributeType::kInteger);
  if (!A) return kFalse;
  Value = A->GetValue().IntValue;
  return kOk;
}

TResult TAttributeList::setFloat(TAttrID ID, double Value) {
  return Store(ID, [Value] { return std::make_unique<THostAttribute>(Value); });
}

TResult TAttributeList::getFloat(TAttrID ID, double& Value) {
  const THostAttribute* A = Find(ID, THostAttributeType::kFloat);
  if (!A) return kFalse;
  Value = A->GetValue().FloatValue;
  return kOk;
}

TResult TAttributeList::setString(TAttrID ID, const char16* String) {
  return Store(ID, [String] { return std::make_unique<THostAttribute>(String); });
}

TResult TAttributeList::getString(TAttrID ID, char16* String, uint32_t SizeInBytes) {
  const THostAttribute* A = Find(ID, THostAttributeType::kString);
  if (!A) return kFalse;
  // As much as the caller's buffer holds, always terminated.
  const uint32_t Room = SizeInBytes / sizeof(char16);
  if (!String || Room == 0) return kOk;
  const uint32_t N = std::min(A->GetSize(), Room);
  std::memcpy(String, A->GetValue().StringValue, N * sizeof(char16));
  String[N - 1] = 0;
  return kOk;
}

TResult TAttributeList::setBinary(TAttrID ID, const void* Data, uint32_t SizeInBytes) {
  if (!Data && SizeInBytes) return kInvalidArgument;
  return Store(ID, [Data, SizeInBytes] { return std::make_unique<THostAttribute>(Data, SizeInBytes); });
}

TResult TAttributeList::getBinary(TAttrID ID, const void*& Data, uint32_t& SizeInBytes) {
  SizeInBytes = 0;
  const THostAttribute* A = Find(ID, THostAttributeType::kBinary);
  if (!A) return kFalse;
  // The stored bytes themselves, not a copy: valid while the attribute is.
  Data = A->GetValue().BinaryValue;
  SizeInBytes = A->GetSize();
  return kOk;
}

// ---- TMessage ----------------------------------------------------------------------

TMessage::~TMessage() {
  if (FAttributeList) FAttributeList->release();
}

// Deliberately the caller's pointer as it is, not a copy: kept so, the
// identifier must outlive the message.
void TMessage::setMessageID(TFIDString ID) { FMessageId = ID; }

IAttributeList* TMessage::getAttributes() {
  if (!FAttributeList) FAttributeList = new (std::nothrow) TAttributeList();  // nullptr when memory ran out
  return FAttributeList;
}

// ---- TVST3Notifications ---------------------------------------------------------------

TResult TVST3Notifications::getName(char16* Name) {
  if (!Name) return kInvalidArgument;
  // Deliberately the address of the host's name, not its characters: kept as
  // the component always answered; a plug-in reading text finds none there.
  TSRVST3Host* Owner = FOwner.load();
  const char16* Address = Owner ? Owner->GetHostNameAddress() : nullptr;
  std::memcpy(Name, &Address, sizeof(Address));
  return kOk;
}

TResult TVST3Notifications::createInstance(TGUID* CID, TGUID* IID, void** Obj) {
  if (!Obj) return kInvalidArgument;
  *Obj = nullptr;
  if (!CID || !IID) return kFalse;
  if (*CID == IID_IMessage && *IID == IID_IMessage)
    *Obj = static_cast<IMessage*>(new (std::nothrow) TMessage());
  else if (*CID == IID_IAttributeList && *IID == IID_IAttributeList)
    *Obj = static_cast<IAttributeList*>(new (std::nothrow) TAttributeList());
  return *Obj ? kOk : kFalse;
}

// Edits are acknowledged with kResultFalse and otherwise ignored: the host
// reads parameter values back from the controller.
TResult TVST3Notifications::beginEdit(TParamID) { return kFalse; }
TResult TVST3Notifications::performEdit(TParamID, TParamValue) { return kFalse; }
TResult TVST3Notifications::endEdit(TParamID) { return kFalse; }

TResult TVST3Notifications::restartComponent(int32_t Flags) { return (Flags & kIoChanged) ? kOk : kFalse; }

TResult TVST3Notifications::notifyUnitSelection(TUnitID UnitId) {
  TSRVST3Host* Owner = FOwner.load();
  IUnitHandler* Target = Owner ? Owner->GetUnitNotification() : nullptr;
  return Target ? Target->notifyUnitSelection(UnitId) : kFalse;
}

TResult TVST3Notifications::notifyProgramListChange(TProgramListID ListId, int32_t ProgramIndex) {
  TSRVST3Host* Owner = FOwner.load();
  IUnitHandler* Target = Owner ? Owner->GetUnitNotification() : nullptr;
  return Target ? Target->notifyProgramListChange(ListId, ProgramIndex) : kFalse;
}

// ---- TEventList and TParameterChanges --------------------------------------------------

TEventList::TEventList(int32_t MaxSize) : FMaxSize(std::max(MaxSize, 0)) { FEvents.reserve(size_t(FMaxSize)); }

TResult TEventList::getEvent(int32_t Index, TVstEvent& Event) {
  if (Index < 0 || Index >= getEventCount()) return kFalse;
  Event = FEvents[size_t(Index)];
  return kOk;
}

TResult TEventList::addEvent(TVstEvent& Event) {
  if (getEventCount() >= FMaxSize) return kFalse;
  FEvents.push_back(Event);  // within the capacity reserved at creation
  return kOk;
}

TVstEvent TEventList::GetEventByIndex(int32_t Index) const {
  if (Index < 0 || Index >= static_cast<int32_t>(FEvents.size())) return TVstEvent{};
  return FEvents[size_t(Index)];
}

// Deliberately always empty: the processor receives no parameter changes
// through it, and points a plug-in adds are not kept.
int32_t TParameterChanges::getParameterCount() { return 0; }
IParamValueQueue* TParameterChanges::getParameterData(int32_t) { return nullptr; }
IParamValueQueue* TParameterChanges::addParameterData(const TParamID&, int32_t&) { return nullptr; }

// ---- TMemoryBStream -----------------------------------------------------------------

TMemoryBStream::TMemoryBStream(void* Memory, int64_t Size)
    : FMemory(static_cast<uint8_t*>(Memory)), FMemorySize(Memory ? std::max<int64_t>(Size, 0) : 0),
      FSize(FMemorySize), FOwnMemory(false) {}

TMemoryBStream::~TMemoryBStream() {
  if (FOwnMemory) std::free(FMemory);
}

TResult TMemoryBStream::read(void* Buffer, int32_t NumBytes, int32_t* NumBytesRead) {
  int64_t Count = std::max<int32_t>(NumBytes, 0);
  // Deliberately the reverse of write's test: kept so, a stream holding a
  // memory block reads nothing, so a written stream reads back empty.
  if (!FMemory) {
    if (AddClamped(FCursor, Count) > FSize) {
      Count = FSize - FCursor;
      if (Count <= 0) {
        FCursor = FSize;
        Count = 0;
      }
    }
    if (FCursor < 0) Count = 0;  // nothing lies before the start
    if (Count > 0 && Buffer && FMemory) std::memcpy(Buffer, FMemory + FCursor, size_t(Count));
    FCursor = AddClamped(FCursor, Count);
  } else {
    if (FAllocationError) return kOutOfMemory;
    Count = 0;
  }
  if (NumBytesRead) *NumBytesRead = static_cast<int32_t>(Count);
  return kOk;
}

bool TMemoryBStream::Grow(int64_t Needed) {
  if (Needed > kMaxMemorySize) return false;
  int64_t NewSize = std::max<int64_t>(FMemorySize * 2, 4096);
  while (NewSize < Needed) NewSize *= 2;
  NewSize = std::min(NewSize, kMaxMemorySize);
  auto* Memory = static_cast<uint8_t*>(std::realloc(FMemory, size_t(NewSize)));
  if (!Memory) return false;
  std::memset(Memory + FMemorySize, 0, size_t(NewSize - FMemorySize));
  FMemory = Memory;
  FMemorySize = NewSize;
  return true;
}

TResult TMemoryBStream::write(void* Buffer, int32_t NumBytes, int32_t* NumBytesWritten) {
  if (FAllocationError) return kOutOfMemory;
  if (!Buffer) return kInvalidArgument;
  int64_t Count = std::max<int32_t>(NumBytes, 0);
  const int64_t End = AddClamped(FCursor, Count);
  if (FCursor < 0 || End > kMaxMemorySize) {
    Count = 0;  // a position before the start cannot be written
  } else if (End > FSize) {
    if (End <= FMemorySize) {
      FSize = End;
    } else if (FOwnMemory && Grow(End)) {
      FSize = End;
    } else {
      if (FOwnMemory) FAllocationError = true;
      Count = 0;
    }
  }
  if (Count > 0) {
    std::memcpy(FMemory + FCursor, Buffer, size_t(Count));
    FCursor += Count;
  }
  if (NumBytesWritten) *NumBytesWritten = static_cast<int32_t>(Count);
  return kOk;
}

TResult TMemoryBStream::seek(int64_t Pos, int32_t Mode, int64_t* Result) {
  switch (Mode) {
    case kIBSeekSet: FCursor = Pos; break;
    case kIBSeekCur: FCursor = AddClamped(FCursor, Pos); break;
    case kIBSeekEnd: FCursor = AddClamped(FSize, Pos); break;
    default: break;
  }
  if (!FOwnMemory) FCursor = std::clamp<int64_t>(FCursor, 0, FMemorySize);
  if (Result) *Result = FCursor;
  return kOk;
}

TResult TMemoryBStream::tell(int64_t* Pos) {
  if (!Pos) return kInvalidArgument;
  *Pos = FCursor;
  return kOk;
}

// ---- TFileBStream -------------------------------------------------------------------

bool TFileBStream::Open(const std::string& FileName, Platform::TFileOpenMode Mode, std::string& ErrorText) {
  auto File = std::make_unique<TWBFileStream>(FileName, Mode);
  if (!File->IsOpen()) {
    ErrorText = File->GetOpenError();
    return false;
  }
  FFileStream = std::move(File);
  FStream = FFileStream.get();
  return true;
}

TResult TFileBStream::read(void* Buffer, int32_t NumBytes, int32_t* NumBytesRead) {
  if (NumBytesRead) *NumBytesRead = 0;
  if (!FStream) return kNotImplemented;
  if (!Buffer || NumBytes < 0) return kInvalidArgument;
  int64_t N = -1;
  try {
    N = FStream->Read(Buffer, NumBytes);
  } catch (...) {
    return kOutOfMemory;
  }
  if (N < 0) return kFalse;
  if (NumBytesRead) *NumBytesRead = static_cast<int32_t>(N);
  return kOk;
}

TResult TFileBStream::write(void* Buffer, int32_t NumBytes, int32_t* NumBytesWritten) {
  if (NumBytesWritten) *NumBytesWritten = 0;
  if (!FStream) return kNotImplemented;
  if (!Buffer || NumBytes < 0) return kInvalidArgument;
  int64_t N = -1;
  try {
    N = FStream->Write(Buffer, NumBytes);  // a memory stream may fail to grow
  } catch (...) {
    return kOutOfMemory;
  }
  if (N < 0) return kFalse;
  if (NumBytesWritten) *NumBytesWritten = static_cast<int32_t>(N);
  return kOk;
}

TResult TFileBStream::seek(int64_t Pos, int32_t Mode, int64_t* Result) {
  if (!FStream) return kNotImplemented;
  TWBSeekOrigin Origin;
  switch (Mode) {
    case kIBSeekSet: Origin = TWBSeekOrigin::soBeginning; break;
    case kIBSeekCur: Origin = TWBSeekOrigin::soCurrent; break;
    case kIBSeekEnd: Origin = TWBSeekOrigin::soEnd; break;
    default: Origin = TWBSeekOrigin::soCurrent; Pos = 0; break;
  }
  const int64_t P = FStream->Seek(Pos, Origin);
  if (P < 0) return kInvalidArgument;
  if (Result) *Result = P;
  return kOk;
}

TResult TFileBStream::tell(int64_t* Pos) {
  if (!Pos) return kInvalidArgument;
  if (!FStream) return kNotImplemented;
  *Pos = FStream->GetPosition();
  return kOk;
}

// ---- TReadOnlyBStream -------------------------------------------------------------

TReadOnlyBStream::TReadOnlyBStream(IBStream* SourceStream, int64_t SourceOffset, int64_t SectionSize)
    : FSourceStream(TVST3Ref<IBStream>::Share(SourceStream)), FSourceOffset(std::max<int64_t>(SourceOffset, 0)),
      FSectionSize(std::max<int64_t>(SectionSize, 0)) {}

TResult TReadOnlyBStream::read(void* Buffer, int32_t NumBytes, int32_t* NumBytesRead) {
  if (NumBytesRead) *NumBytesRead = 0;
  if (!FSourceStream) return kNotImplemented;
  const int64_t Count = std::min<int64_t>(std::max<int32_t>(NumBytes, 0), FSectionSize - FSeekPosition);
  if (Count <= 0) return kOk;
  const TResult Seek = FSourceStream->seek(FSourceOffset + FSeekPosition, kIBSeekSet, nullptr);
  if (Seek != kOk) return Seek;
  int32_t Read = 0;
  const TResult R = FSourceStream->read(Buffer, static_cast<int32_t>(Count), &Read);
  if (R != kOk) return R;
  Read = std::clamp<int32_t>(Read, 0, static_cast<int32_t>(Count));
  FSeekPosition += Read;
  if (NumBytesRead) *NumBytesRead = Read;
  return kOk;
}

TResult TReadOnlyBStream::write(void*, int32_t, int32_t* NumBytesWritten) {
  if (NumBytesWritten) *NumBytesWritten = 0;
  return kNotImplemented;
}

TResult TReadOnlyBStream::seek(int64_t Pos, int32_t Mode, int64_t* Result) {
  switch (Mode) {
    case kIBSeekSet: FSeekPosition = Pos; break;
    case kIBSeekCur: FSeekPosition = AddClamped(FSeekPosition, Pos); break;
    case kIBSeekEnd: FSeekPosition = AddClamped(FSectionSize, Pos); break;
    default: break;
  }
  FSeekPosition = std::clamp<int64_t>(FSeekPosition, 0, FSectionSize);
  if (Result) *Result = FSeekPosition;
  return kOk;
}

TResult TReadOnlyBStream::tell(int64_t* Pos) {
  if (!Pos) return kInvalidArgument;
  *Pos = FSeekPosition;
  return kOk;
}

}  // namespace Quorvel::Vst3hostobjects
