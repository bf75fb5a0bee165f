#include "vst3/Srvst3hostobjects.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <vector>

#include "vst3/Srvst3host.h"

using namespace Quorvel;
using namespace Quorvel::Vst3hostintf;
using namespace Quorvel::Vst3hostobjects;

namespace {

constexpr TResult kOk = ModuleResult(Platform::kVst3ResultOk);
constexpr TResult kFalse = ModuleResult(Platform::kVst3ResultFalse);
constexpr TResult kNoInterface = ModuleResult(Platform::kVst3NoInterface);
constexpr TResult kInvalidArgument = ModuleResult(Platform::kVst3InvalidArgument);
constexpr TResult kNotImplemented = ModuleResult(Platform::kVst3NotImplemented);

template <typename T>
TVST3Ref<T> Make(T* P) {
  return TVST3Ref<T>::Adopt(P);
}

// The application's receiver of unit notifications.
struct TUnitListener final : TVST3Object<IUnitHandler> {
  TResult notifyUnitSelection(TUnitID Unit) override {
    Selected = Unit;
    return 7;
  }
  TResult notifyProgramListChange(TProgramListID List, int32_t Program) override {
    ListId = List;
    ProgramIndex = Program;
    return 8;
  }
  TUnitID Selected = -1;
  TProgramListID ListId = -1;
  int32_t ProgramIndex = -1;
};

}  // namespace

TEST(Vst3hostobjects, ReferenceCountingAndInterfaces) {
  TSRVST3Host Host;
  auto Context = Make(new TVST3Notifications(&Host));
  EXPECT_EQ(Context->GetRefCount(), 1u);
  void* Obj = nullptr;
  ASSERT_EQ(Context->queryInterface(IID_IComponentHandler, &Obj), kOk);
  EXPECT_EQ(Obj, static_cast<IComponentHandler*>(Context.Get()));
  EXPECT_EQ(Context->GetRefCount(), 2u);
  static_cast<IComponentHandler*>(Obj)->release();
  for (const TGUID* IID : {&IID_IFUnknown, &IID_IHostApplication, &IID_IUnitHandler}) {
    ASSERT_EQ(Context->queryInterface(*IID, &Obj), kOk);
    static_cast<IFUnknown*>(Obj)->release();
  }
  Obj = &Host;
  EXPECT_EQ(Context->queryInterface(IID_IComponent, &Obj), kNoInterface);
  EXPECT_EQ(Obj, nullptr);
  EXPECT_EQ(Context->queryInterface(IID_IComponent, nullptr), kInvalidArgument);
  EXPECT_EQ(Context->GetRefCount(), 1u);
  // A reference taken by a query lives on after the first is gone.
  TVST3Ref<IUnitHandler> Unit = Context.Query<IUnitHandler>();
  Context.Clear();
  EXPECT_EQ(Unit->addRef(), 2u);
  EXPECT_EQ(Unit->release(), 1u);
}

TEST(Vst3hostobjects, HostContextAnswers) {
  TSRVST3Host Host;
  auto Context = Make(new TVST3Notifications(&Host));
  // getName writes the address of the host's name, not its characters.
  char16 Name[128];
  std::memset(Name, 0xAB, sizeof Name);
  EXPECT_EQ(Context->getName(Name), kOk);
  const char16* Address = nullptr;
  std::memcpy(&Address, Name, sizeof Address);
  EXPECT_EQ(Address, Host.GetHostNameAddress());
  EXPECT_EQ(std::u16string(Address), u"Quorvel");
  EXPECT_EQ(Name[4], 0xABAB);  // nothing past the first eight bytes

  // createInstance: a message or an attribute list only when both identifiers agree.
  TGUID Message = IID_IMessage, List = IID_IAttributeList, Other = IID_IBStream;
  void* Obj = &Host;
  EXPECT_EQ(Context->createInstance(&Message, &List, &Obj), kFalse);
  EXPECT_EQ(Obj, nullptr);
  EXPECT_EQ(Context->createInstance(&List, &Message, &Obj), kFalse);
  EXPECT_EQ(Context->createInstance(&Other, &Other, &Obj), kFalse);
  EXPECT_EQ(Obj, nullptr);
  ASSERT_EQ(Context->createInstance(&Message, &Message, &Obj), kOk);
  auto M = TVST3Ref<IMessage>::Adopt(static_cast<IMessage*>(Obj));
  ASSERT_EQ(Context->createInstance(&List, &List, &Obj), kOk);
  auto L = TVST3Ref<IAttributeList>::Adopt(static_cast<IAttributeList*>(Obj));
  EXPECT_EQ(L->setInt("x", 1), kOk);

  // Edits are acknowledged with kResultFalse; restart answers 0 only for changed buses.
  EXPECT_EQ(Context->beginEdit(1), kFalse);
  EXPECT_EQ(Context->performEdit(1, 0.5), kFalse);
  EXPECT_EQ(Context->endEdit(1), kFalse);
  EXPECT_EQ(Context->restartComponent(1), kFalse);
  EXPECT_EQ(Context->restartComponent(2), kOk);
  EXPECT_EQ(Context->restartComponent(3), kOk);
  EXPECT_EQ(Context->restartComponent(4), kFalse);

  // Unit notifications reach the application's receiver when there is one.
  EXPECT_EQ(Context->notifyUnitSelection(5), kFalse);
  EXPECT_EQ(Context->notifyProgramListChange(6, 7), kFalse);
  auto Listener = Make(new TUnitListener());
  Host.SetUnitNotification(Listener.Get());
  EXPECT_EQ(Context->notifyUnitSelection(5), 7);
  EXPECT_EQ(Context->notifyProgramListChange(6, 9), 8);
  EXPECT_EQ(Listener->Selected, 5);
  EXPECT_EQ(Listener->ListId, 6);
  EXPECT_EQ(Listener->ProgramIndex, 9);
  // A context its host has let go of answers without it.
  Context->Detach();
  EXPECT_EQ(Context->notifyUnitSelection(5), kFalse);
  EXPECT_EQ(Context->getName(Name), kOk);
  std::memcpy(&Address, Name, sizeof Address);
  EXPECT_EQ(Address, nullptr);
  Host.SetUnitNotification(nullptr);
}

TEST(Vst3hostobjects, MessageAndAttributeList) {
  auto M = Make(new TMessage());
  EXPECT_EQ(M->getMessageID(), nullptr);
  static const char Id[] = "Hello";
  M->setMessageID(Id);
  EXPECT_EQ(M->getMessageID(), Id);  // the caller's pointer, not a copy
  IAttributeList* A = M->getAttributes();
  ASSERT_NE(A, nullptr);
  EXPECT_EQ(M->getAttributes(), A);

  int64_t I = 99;
  EXPECT_EQ(A->getInt("never", I), kFalse);
  EXPECT_EQ(I, 99);
  EXPECT_EQ(A->setInt("n", 5), kOk);
  EXPECT_EQ(A->setInt("n", 6), kOk);  // replaces
  EXPECT_EQ(A->getInt("n", I), kOk);
  EXPECT_EQ(I, 6);
  std::string Key = "n";  // identifiers compare by content
  EXPECT_EQ(A->getInt(Key.c_str(), I), kOk);
  double F = 0;
  EXPECT_EQ(A->getFloat("n", F), kFalse);
  EXPECT_EQ(A->setFloat("f", 2.5), kOk);
  EXPECT_EQ(A->getFloat("f", F), kOk);
  EXPECT_EQ(F, 2.5);

  EXPECT_EQ(A->setString("s", u"Quorvel"), kOk);
  char16 Text[16];
  EXPECT_EQ(A->getString("s", Text, sizeof Text), kOk);
  EXPECT_EQ(std::u16string(Text), u"Quorvel");
  char16 Short[4];
  EXPECT_EQ(A->getString("s", Short, sizeof Short), kOk);
  EXPECT_EQ(std::u16string(Short), u"Quo");
  EXPECT_EQ(A->getString("none", Text, sizeof Text), kFalse);

  const uint8_t Bytes[5] = {1, 2, 3, 4, 5};
  EXPECT_EQ(A->setBinary("b", Bytes, 5), kOk);
  const void* Data = nullptr;
  uint32_t Size = 77;
  EXPECT_EQ(A->getBinary("none", Data, Size), kFalse);
  EXPECT_EQ(Size, 0u);  // cleared first
  EXPECT_EQ(A->getBinary("b", Data, Size), kOk);
  ASSERT_EQ(Size, 5u);
  EXPECT_NE(Data, static_cast<const void*>(Bytes));
  EXPECT_EQ(std::memcmp(Data, Bytes, 5), 0);
  const void* Again = nullptr;
  A->getBinary("b", Again, Size);
  EXPECT_EQ(Again, Data);  // the stored bytes themselves
  EXPECT_EQ(A->setInt(nullptr, 1), kInvalidArgument);
}

TEST(Vst3hostobjects, EventListHoldsItsCapacityAndParameterChangesStayEmpty) {
  auto L = Make(new TEventList(TSRVST3Host::kInputEventCapacity));
  TVstEvent E{};
  for (int32_t I = 0; I < 50; ++I) {
    E.sampleOffset = I;
    ASSERT_EQ(L->addEvent(E), kOk) << I;
  }
  E.sampleOffset = 50;
  EXPECT_EQ(L->addEvent(E), kFalse);
  EXPECT_EQ(L->getEventCount(), 50);
  TVstEvent Out{};
  EXPECT_EQ(L->getEvent(49, Out), kOk);
  EXPECT_EQ(Out.sampleOffset, 49);
  EXPECT_EQ(L->getEvent(50, Out), kFalse);
  EXPECT_EQ(L->getEvent(-1, Out), kFalse);
  EXPECT_EQ(L->GetEventByIndex(7).sampleOffset, 7);
  EXPECT_EQ(L->GetEventByIndex(50).sampleOffset, 0);
  L->Clear();
  EXPECT_EQ(L->getEventCount(), 0);
  EXPECT_EQ(L->addEvent(E), kOk);

  auto P = Make(new TParameterChanges());
  int32_t Index = 123;
  EXPECT_EQ(P->addParameterData(5, Index), nullptr);
  EXPECT_EQ(P->getParameterCount(), 0);
  EXPECT_EQ(P->getParameterData(0), nullptr);
}

TEST(Vst3hostobjects, MemoryStreamWritesButReadsNothingBack) {
  auto S = Make(new TMemoryBStream());
  std::vector<uint8_t> Data(100);
  for (size_t I = 0; I < Data.size(); ++I) Data[I] = static_cast<uint8_t>(I);
  int32_t Done = -1;
  EXPECT_EQ(S->write(Data.data(), 100, &Done), kOk);
  EXPECT_EQ(Done, 100);
  EXPECT_EQ(S->GetSize(), 100);
  EXPECT_EQ(std::memcmp(S->GetData(), Data.data(), 100), 0);
  int64_t Pos = -1;
  EXPECT_EQ(S->tell(&Pos), kOk);
  EXPECT_EQ(Pos, 100);
  EXPECT_EQ(S->tell(nullptr), kInvalidArgument);

  // Written, sought to the start, read: nothing comes back, and that is no error.
  EXPECT_EQ(S->seek(0, kIBSeekSet, &Pos), kOk);
  std::vector<uint8_t> Back(100, 0xEE);
  EXPECT_EQ(S->read(Back.data(), 100, &Done), kOk);
  EXPECT_EQ(Done, 0);
  EXPECT_EQ(Back[0], 0xEE);

  EXPECT_EQ(S->seek(10, kIBSeekEnd, &Pos), kOk);
  EXPECT_EQ(Pos, 110);
  EXPECT_EQ(S->seek(-5, kIBSeekCur, &Pos), kOk);
  EXPECT_EQ(Pos, 105);
  EXPECT_EQ(S->seek(0, 9, &Pos), kOk);  // an unknown mode leaves the cursor
  EXPECT_EQ(Pos, 105);
  // A write past the end grows the stream, the gap zero.
  EXPECT_EQ(S->write(Data.data(), 5, &Done), kOk);
  EXPECT_EQ(Done, 5);
  EXPECT_EQ(S->GetSize(), 110);
  EXPECT_EQ(S->GetData()[102], 0);
  EXPECT_EQ(S->write(nullptr, 5, &Done), kInvalidArgument);

  // Hostile positions are neither written nor crash.
  EXPECT_EQ(S->seek(INT64_MAX, kIBSeekSet, nullptr), kOk);
  EXPECT_EQ(S->seek(INT64_MAX, kIBSeekCur, &Pos), kOk);
  EXPECT_EQ(S->write(Data.data(), 10, &Done), kOk);
  EXPECT_EQ(Done, 0);
  EXPECT_EQ(S->seek(-50, kIBSeekSet, nullptr), kOk);
  EXPECT_EQ(S->write(Data.data(), 10, &Done), kOk);
  EXPECT_EQ(Done, 0);

  // An empty stream reads nothing either, from before its start neither.
  auto Empty = Make(new TMemoryBStream());
  EXPECT_EQ(Empty->read(Back.data(), 10, &Done), kOk);
  EXPECT_EQ(Done, 0);
  EXPECT_EQ(Empty->seek(-10, kIBSeekSet, nullptr), kOk);
  Done = -1;
  EXPECT_EQ(Empty->read(Back.data(), 5, &Done), kOk);
  EXPECT_EQ(Done, 0);
  EXPECT_EQ(Empty->tell(&Pos), kOk);
  EXPECT_EQ(Pos, -10);
}

TEST(Vst3hostobjects, MemoryStreamOverTheCallersMemoryNeverGrows) {
  uint8_t Memory[16] = {};
  auto S = Make(new TMemoryBStream(Memory, sizeof Memory));
  const uint8_t Data[20] = {9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9};
  int32_t Done = -1;
  EXPECT_EQ(S->write(const_cast<uint8_t*>(Data), 20, &Done), kOk);
  EXPECT_EQ(Done, 0);
  EXPECT_EQ(Memory[0], 0);
  EXPECT_EQ(S->write(const_cast<uint8_t*>(Data), 8, &Done), kOk);
  EXPECT_EQ(Done, 8);
  EXPECT_EQ(Memory[7], 9);
  int64_t Pos = 0;
  EXPECT_EQ(S->seek(100, kIBSeekSet, &Pos), kOk);
  EXPECT_EQ(Pos, 16);  // clamped to the memory
  EXPECT_EQ(S->seek(-100, kIBSeekCur, &Pos), kOk);
  EXPECT_EQ(Pos, 0);
  uint8_t Back[16];
  EXPECT_EQ(S->read(Back, 16, &Done), kOk);
  EXPECT_EQ(Done, 0);
}

TEST(Vst3hostobjects, FileStreamAndReadOnlySection) {
  TWBMemoryStream Backing;
  auto File = Make(new TFileBStream(Backing));
  char Text[] = "0123456789ABCDEF";
  int32_t Done = -1;
  EXPECT_EQ(File->write(Text, 16, &Done), kOk);
  EXPECT_EQ(Done, 16);
  int64_t Pos = -1;
  EXPECT_EQ(File->tell(&Pos), kOk);
  EXPECT_EQ(Pos, 16);
  EXPECT_EQ(File->seek(-4, kIBSeekEnd, &Pos), kOk);
  EXPECT_EQ(Pos, 12);
  char Back[8] = {};
  EXPECT_EQ(File->read(Back, 8, &Done), kOk);
  EXPECT_EQ(Done, 4);
  EXPECT_EQ(std::string(Back, 4), "CDEF");
  EXPECT_EQ(File->seek(-1, kIBSeekSet, &Pos), kInvalidArgument);

  // A section of 6 bytes from offset 4.
  auto Section = Make(new TReadOnlyBStream(File.Get(), 4, 6));
  char Part[16] = {};
  EXPECT_EQ(Section->read(Part, 16, &Done), kOk);
  EXPECT_EQ(Done, 6);
  EXPECT_EQ(std::string(Part, 6), "456789");
  EXPECT_EQ(Section->read(Part, 16, &Done), kOk);
  EXPECT_EQ(Done, 0);
  EXPECT_EQ(Section->seek(2, kIBSeekSet, &Pos), kOk);
  EXPECT_EQ(Section->read(Part, 2, &Done), kOk);
  EXPECT_EQ(std::string(Part, 2), "67");
  EXPECT_EQ(Section->tell(&Pos), kOk);
  EXPECT_EQ(Pos, 4);
  EXPECT_EQ(Section->seek(100, kIBSeekCur, &Pos), kOk);
  EXPECT_EQ(Pos, 6);
  Done = -1;
  EXPECT_EQ(Section->write(Text, 4, &Done), kNotImplemented);
  EXPECT_EQ(Done, 0);
  EXPECT_EQ(Backing.GetSize(), 16);

  // A file stream that is not open answers nothing.
  auto Closed = Make(new TFileBStream());
  std::string Why;
  EXPECT_FALSE(Closed->Open("/nonexistent-folder/x.vstpreset", Platform::TFileOpenMode::fomRead, Why));
  EXPECT_FALSE(Why.empty());
  EXPECT_EQ(Closed->read(Back, 8, &Done), kNotImplemented);
  EXPECT_EQ(Done, 0);
}
