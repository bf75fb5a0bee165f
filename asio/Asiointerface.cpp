// Registry-level driver services and the flat wrappers over IASIO.
#include "asio/Asiointerface.h"

#include <cstring>

#include "platform/Asiodrivers.h"

namespace Quorvel {
namespace {

// Looks the driver key up as the registry functions do: the key must exist,
// its "clsid" value must read, and the text must convert.
bool LookUpClsid(const std::string& Name, TGUID& Clsid) {
  Clsid = TGUID{};
  std::string Text;
  if (!Asiodrivers::DriverKeyExists(Name) || !Asiodrivers::ReadDriverClsid(Name, Text)) return false;
  return Asiodrivers::ClsidFromText(Text, Clsid);
}

// Text from a fixed 8-bit buffer: up to the first zero, at most Size bytes.
std::string FixedText(const char* Buffer, size_t Size) {
  const void* End = std::memchr(Buffer, 0, Size);
  return std::string(Buffer, End ? static_cast<const char*>(End) - Buffer : Size);
}

// Some drivers write past the published text sizes; the buffers leave room.
constexpr size_t DriverNameSize = 32;
constexpr size_t ErrorMessageSize = 124;
constexpr size_t TextSlack = 256;

}  // namespace

bool ASIOInitializeComForThisThread() { return Asiodrivers::InitializeComForThisThread(); }

bool ASIOGetDriverNames(std::vector<std::string>* List) {
  if (!List) return false;
  std::vector<std::string> Names;
  if (!Asiodrivers::EnumerateDriverKeys(Names)) return false;
  List->insert(List->end(), Names.begin(), Names.end());
  return true;
}

TGUID ASIOGetDriverIDByname(const std::string& Name) {
  TGUID Clsid;
  LookUpClsid(Name, Clsid);
  return Clsid;
}

IASIORef ASIOOpenDriverByname(const std::string& Name) {
  TGUID Clsid;
  if (!LookUpClsid(Name, Clsid)) return IASIORef();
  return ASIOOpenDriver(Clsid);
}

IASIORef ASIOOpenDriver(const TGUID& Clsid) {
  IASIO* Driver = static_cast<IASIO*>(Asiodrivers::CreateInprocInstance(Clsid, Clsid));
  IASIORef Result(Driver);  // takes a reference of its own ...
  if (Driver) Driver->Release();  // ... so give back the one activation handed over
  return Result;
}

bool ASIOIsNullID(const TGUID& Id) { return Id == TGUID{}; }

TASIOBool ASIOInit(IASIO* Driver, void* SysHandle) {
  IASIORef Hold(Driver);
  return Hold ? Hold->init(SysHandle) : ASIOFalse;
}

std::string ASIOGetDriverName(IASIO* Driver) {
  IASIORef Hold(Driver);
  if (!Hold) return std::string();
  char Buffer[DriverNameSize + TextSlack] = {};
  Hold->getDriverName(Buffer);
  return FixedText(Buffer, DriverNameSize);
}

int32_t ASIOGetDriverVersion(IASIO* Driver) {
  IASIORef Hold(Driver);
  return Hold ? Hold->getDriverVersion() : 0;
}

std::string ASIOGetErrorMessage(IASIO* Driver) {
  IASIORef Hold(Driver);
  if (!Hold) return std::string();
  char Buffer[ErrorMessageSize + TextSlack] = {};
  Hold->getErrorMessage(Buffer);
  return FixedText(Buffer, ErrorMessageSize);
}

TASIOError ASIOStart(IASIO* Driver) {
  IASIORef Hold(Driver);
  return Hold ? Hold->start() : ASE_NotPresent;
}

TASIOError ASIOStop(IASIO* Driver) {
  IASIORef Hold(Driver);
  return Hold ? Hold->stop() : ASE_NotPresent;
}

TASIOError ASIOGetChannels(IASIO* Driver, int32_t& NumInputChannels, int32_t& NumOutputChannels) {
  IASIORef Hold(Driver);
  return Hold ? Hold->getChannels(&NumInputChannels, &NumOutputChannels) : ASE_NotPresent;
}

TASIOError ASIOGetLatencies(IASIO* Driver, int32_t& InputLatency, int32_t& OutputLatency) {
  IASIORef Hold(Driver);
  return Hold ? Hold->getLatencies(&InputLatency, &OutputLatency) : ASE_NotPresent;
}

TASIOError ASIOGetBufferSize(IASIO* Driver, int32_t& MinSize, int32_t& MaxSize, int32_t& PreferredSize,
                             int32_t& Granularity) {
  IASIORef Hold(Driver);
  return Hold ? Hold->getBufferSize(&MinSize, &MaxSize, &PreferredSize, &Granularity) : ASE_NotPresent;
}

TASIOError ASIOCanSampleRate(IASIO* Driver, TASIOSampleRate SampleRate) {
  IASIORef Hold(Driver);
  return Hold ? Hold->canSampleRate(SampleRate) : ASE_NotPresent;
}

TASIOError ASIOGetSampleRate(IASIO* Driver, TASIOSampleRate& SampleRate) {
  IASIORef Hold(Driver);
  return Hold ? Hold->getSampleRate(&SampleRate) : ASE_NotPresent;
}

TASIOError ASIOSetSampleRate(IASIO* Driver, TASIOSampleRate SampleRate) {
  IASIORef Hold(Driver);
  return Hold ? Hold->setSampleRate(SampleRate) : ASE_NotPresent;
}

TASIOError ASIOGetClockSources(IASIO* Driver, TASIOClockSource* Clocks, int32_t& NumSources) {
  IASIORef Hold(Driver);
  return Hold ? Hold->getClockSources(Clocks, &NumSources) : ASE_NotPresent;
}

TASIOError ASIOSetClockSource(IASIO* Driver, int32_t Index) {
  IASIORef Hold(Driver);
  return Hold ? Hold->setClockSource(Index) : ASE_NotPresent;
}

TASIOError ASIOGetSamplePosition(IASIO* Driver, TASIOSamples& SamplePosition, TASIOTimeStamp& TimeStamp) {
  IASIORef Hold(Driver);
  return Hold ? Hold->getSamplePosition(&SamplePosition, &TimeStamp) : ASE_NotPresent;
}

TASIOError ASIOGetChannelInfo(IASIO* Driver, TASIOChannelInfo& Info) {
  IASIORef Hold(Driver);
  return Hold ? Hold->getChannelInfo(&Info) : ASE_NotPresent;
}

TASIOError ASIOCreateBuffers(IASIO* Driver, TASIOBufferInfo* BufferInfos, int32_t NumChannels, int32_t BufferSize,
                             TASIOCallbacks* Callbacks) {
  IASIORef Hold(Driver);
  return Hold ? Hold->createBuffers(BufferInfos, NumChannels, BufferSize, Callbacks) : ASE_NotPresent;
}

TASIOError ASIODisposeBuffers(IASIO* Driver) {
  IASIORef Hold(Driver);
  return Hold ? Hold->disposeBuffers() : ASE_NotPresent;
}

TASIOError ASIOControlPanel(IASIO* Driver) {
  IASIORef Hold(Driver);
  return Hold ? Hold->controlPanel() : ASE_NotPresent;
}

TASIOError ASIOFuture(IASIO* Driver, int32_t Selector, void* Parameter) {
  IASIORef Hold(Driver);
  return Hold ? Hold->future(Selector, Parameter) : ASE_NotPresent;
}

TASIOError ASIOOutputReady(IASIO* Driver) {
  IASIORef Hold(Driver);
  return Hold ? Hold->outputReady() : ASE_NotPresent;
}

}  // namespace Quorvel
