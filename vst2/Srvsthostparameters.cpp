// The host's parameter and program objects, and the program operations of
// TSRVSTHost they build on.
#include "vst2/Srvsthostparameters.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "frame/Wbpersistence.h"
#include "vst2/Srvstfilebytes.h"
#include "vst2/Srvsthost.h"

namespace Quorvel {

using Threading::TLockGuard;
using namespace Srvstfilebytes;

namespace {

// A text from a plug-in's fixed field, up to its first zero.
template <size_t N>
std::string FieldText(const char (&Field)[N]) {
  return std::string(Field, std::find(Field, Field + N, '\0'));
}

// Asks the plug-in for a text into a zeroed buffer well beyond the sizes
// the interface promises, as plug-ins overrun them.
std::string AskText(TSRVSTHost& Host, TDispatcherOpcode Opcode, int32_t Index, int32_t Value = 0) {
  char Text[257] = {};
  Host.VstDispatch(Opcode, Index, Value, Text, 0.0f);
  Text[sizeof Text - 1] = '\0';
  return std::string(Text);
}

// Declared counts taken as 0..Max.
int32_t Bounded(int32_t Count, int32_t Max) { return std::clamp(Count, 0, Max); }

}  // namespace

// ---- one parameter --------------------------------------------------------------

float TSRVSTParameter::GetValue() {
  if (!FHost.Open()) return 0.0f;
  return FHost.GetParameter(FIndex);
}

void TSRVSTParameter::SetValue(float Value) {
  // Kept as the component always did: only a parameter the plug-in declares
  // automatable is written, whoever asks (files included).
  if (!FHost.Open() || FHost.VstDispatch(effCanBeAutomated, FIndex) != 1) return;
  FHost.SetParameter(FIndex, Value);
}

bool TSRVSTParameter::CheckProperties() {
  if (!FPropertiesAsked && FHost.GetOpened()) {
    FPropertiesAsked = true;
    TVstParameterProperties Answer{};
    FPropertiesAvailable = FHost.VstDispatch(effGetParameterProperties, FIndex, 0, &Answer, 0.0f) == 1;
    if (FPropertiesAvailable) {
      Answer.Caption[sizeof Answer.Caption - 1] = '\0';
      Answer.ShortLabel[sizeof Answer.ShortLabel - 1] = '\0';
      Answer.CategoryLabel[sizeof Answer.CategoryLabel - 1] = '\0';
      FProperties = Answer;
    }
  }
  return FPropertiesAvailable;
}

const TVstParameterProperties& TSRVSTParameter::GetProperties() {
  CheckProperties();
  return FProperties;
}

bool TSRVSTParameter::HasFlag(TVstParameterPropertiesFlag Flag) {
  return CheckProperties() && FProperties.Flags.Contains(Flag);
}

std::string TSRVSTParameter::GetName() {
  if (FStructure && !FStructure->Name.empty()) return FStructure->Name;
  if (CheckProperties() && FProperties.Caption[0]) return FieldText(FProperties.Caption);
  return AskText(FHost, effGetParamName, FIndex);
}

std::string TSRVSTParameter::GetLabel() {
  if (FStructure && !FStructure->Label.empty()) return FStructure->Label;
  return AskText(FHost, effGetParamLabel, FIndex);
}

std::string TSRVSTParameter::GetAsString() {
  std::string Text = AskText(FHost, effGetParamDisplay, FIndex);
  if (!Text.empty()) return Text;
  char Number[32];
  std::snprintf(Number, sizeof Number, "%g", static_cast<double>(GetValue()));
  return Number;
}

void TSRVSTParameter::SetAsString(const std::string& Text) {
  std::vector<char> Copy(Text.begin(), Text.end());
  Copy.push_back('\0');
  FHost.VstDispatch(effString2Parameter, FIndex, 0, Copy.data(), 0.0f);
}

bool TSRVSTParameter::GetCanBeAutomated() { return FHost.VstDispatch(effCanBeAutomated, FIndex) == 1; }
bool TSRVSTParameter::GetCanRamp() { return HasFlag(TVstParameterPropertiesFlag::kVstParameterCanRamp); }
bool TSRVSTParameter::GetIsSwitch() { return HasFlag(TVstParameterPropertiesFlag::kVstParameterIsSwitch); }

int32_t TSRVSTParameter::GetNumStates() {
  if (FStructure && FStructure->NumberOfStates > 0) return FStructure->NumberOfStates;
  if (GetIsSwitch()) return 2;
  const TSRVSTParameterIntegerMinMax Range = GetIntegerMinMax();
  if (Range.Available() && Range.Max >= Range.Min) {
    const int64_t States = int64_t(Range.Max) - Range.Min + 1;
    return States > INT32_MAX ? INT32_MAX : static_cast<int32_t>(States);
  }
  return 0;
}

int32_t TSRVSTParameter::GetGroup() {
  const TSRVSTParameterCategory Category = GetCategory();
  return Category.Available() ? Category.Category : -1;
}

TSRVSTParameterCategory TSRVSTParameter::GetCategory() {
  TSRVSTParameterCategory Out;
  if (!HasFlag(TVstParameterPropertiesFlag::kVstParameterSupportsDisplayCategory)) return Out;
  Out.FAvailable = true;
  Out.Category = FProperties.Category;
  Out.ParametersInCategory = FProperties.numParametersInCategory;
  Out.Label = FieldText(FProperties.CategoryLabel);
  return Out;
}

TSRVSTParameterIntegerMinMax TSRVSTParameter::GetIntegerMinMax() {
  TSRVSTParameterIntegerMinMax Out;
  if (!HasFlag(TVstParameterPropertiesFlag::kVstParameterUsesIntegerMinMax)) return Out;
  Out.FAvailable = true;
  Out.Min = FProperties.MinInteger;
  Out.Max = FProperties.MaxInteger;
  return Out;
}

TSRVSTParameterDisplay TSRVSTParameter::GetDisplay() {
  TSRVSTParameterDisplay Out;
  if (!HasFlag(TVstParameterPropertiesFlag::kVstParameterSupportsDisplayIndex)) return Out;
  Out.FAvailable = true;
  Out.Index = FProperties.DisplayIndex;
  Out.ShortLabel = FieldText(FProperties.ShortLabel);
  return Out;
}

TSRVSTParameterFloatStep TSRVSTParameter::GetFloatStep() {
  TSRVSTParameterFloatStep Out;
  if (!HasFlag(TVstParameterPropertiesFlag::kVstParameterUsesFloatStep)) return Out;
  Out.FAvailable = true;
  Out.Step = FProperties.StepFloat;
  Out.SmallStep = FProperties.SmallStepFloat;
  Out.LargeStep = FProperties.LargeStepFloat;
  return Out;
}

TSRVSTParameterIntegerStep TSRVSTParameter::GetIntegerStep() {
  TSRVSTParameterIntegerStep Out;
  if (!HasFlag(TVstParameterPropertiesFlag::kVstParameterUsesIntStep)) return Out;
  Out.FAvailable = true;
  Out.Step = FProperties.StepInteger;
  Out.LargeStep = FProperties.LargeStepInteger;
  return Out;
}

TSRVSTParameterDefaultValue TSRVSTParameter::GetDefaultValue() {
  TSRVSTParameterDefaultValue Out;
  if (!FStructure || !FStructure->HasDefaultValue) return Out;
  Out.FAvailable = true;
  Out.Value = FStructure->DefaultValue;
  return Out;
}

TSRVSTParameterValues TSRVSTParameter::GetValues() {
  TSRVSTParameterValues Out;
  if (!FStructure || FStructure->Values.empty()) return Out;
  Out.FAvailable = true;
  Out.Entries = FStructure->Values;
  return Out;
}

// ---- the parameter list ---------------------------------------------------------

void TSRVSTParameters::Rebuild(int32_t Count) {
  FItems.clear();
  const int32_t N = Bounded(Count, kMaxPlugInParameters);
  FItems.reserve(static_cast<size_t>(N));
  for (int32_t I = 0; I < N; ++I) FItems.push_back(std::make_unique<TSRVSTParameter>(FHost, I));
}

bool TSRVSTParameters::HasData() { return FHost.GetOpened() ? !FItems.empty() : FHasPendingValues; }

void TSRVSTParameters::WriteData(TWBWriter& Writer) {
  Writer.WriteListBegin();
  if (FHost.GetOpened()) {
    // A document holds numbers only: a value that is not finite is stored as 0.
    for (const auto& P : FItems) {
      const float V = FHost.GetParameter(P->GetIndex());
      Writer.WriteFloat(std::isfinite(V) ? V : 0.0);
    }
  } else {
    for (float V : FPendingValues) Writer.WriteFloat(V);
  }
  Writer.WriteListEnd();
}

void TSRVSTParameters::ReadData(TWBReader& Reader) {
  FPendingValues.clear();
  double V = 0.0;
  // Not more values than the host would ever have parameters for.
  while (!Reader.EndOfList() && FPendingValues.size() < size_t(kMaxPlugInParameters) && Reader.ReadFloat(V))
    FPendingValues.push_back(static_cast<float>(std::clamp(V, -3.4e38, 3.4e38)));
  FHasPendingValues = true;
  TryApplyValues();
}

void TSRVSTParameters::TryApplyValues() {
  if (!FHasPendingValues || !FHost.GetOpened()) return;
  FHasPendingValues = false;
  const std::vector<float> Values = std::move(FPendingValues);
  FPendingValues.clear();
  for (size_t I = 0; I < Values.size() && I < FItems.size(); ++I) FItems[I]->SetValue(Values[I]);
}

// ---- programs -------------------------------------------------------------------

std::string TSRVSTProgramItem::GetName() { return FHost.GetProgramNameByIndex(FIndex); }

void TSRVSTProgram::Rebuild(int32_t Count) {
  FItems.clear();
  const int32_t N = Bounded(Count, kMaxPlugInPrograms);
  FItems.reserve(static_cast<size_t>(N));
  for (int32_t I = 0; I < N; ++I) FItems.push_back(std::make_unique<TSRVSTProgramItem>(FHost, I));
}

int32_t TSRVSTProgram::GetProgramIndex() const {
  TLockGuard G(FHost.GetLock());
  return FProgramIndex;
}

void TSRVSTProgram::SetProgramIndex(int32_t Index) {
  TLockGuard G(FHost.GetLock());
  FProgramIndex = std::max(Index, -1);
}

std::string TSRVSTProgram::GetSelected() {
  const int32_t Index = GetProgramIndex();
  TSRVSTProgramItem* Item = Index >= 0 ? Get(static_cast<size_t>(Index)) : nullptr;
  return Item ? Item->GetName() : std::string();
}

void TSRVSTProgram::SetSelected(const std::string& Name) {
  for (const auto& Item : FItems) {
    if (Item->GetName() != Name) continue;
    SetProgramIndex(Item->GetIndex());
    FHost.SetCurrentProgramNumber(Item->GetIndex());
    return;
  }
  SetProgramIndex(-1);
}

// ---- the host's program operations ------------------------------------------------

int32_t TSRVSTHost::GetCurrentProgramNumber() { return VstDispatch(effGetProgram); }

void TSRVSTHost::SetCurrentProgramNumber(int32_t Value) { SetProgram(Value); }

std::string TSRVSTHost::GetCurrentProgramName() { return AskText(*this, effGetProgramName, 0); }

void TSRVSTHost::SetCurrentProgramName(const std::string& Value) {
  std::vector<char> Copy(Value.begin(), Value.end());
  Copy.push_back('\0');
  VstDispatch(effSetProgramName, 0, 0, Copy.data(), 0.0f);
}

std::string TSRVSTHost::GetProgramNameByIndex(int32_t Index) {
  if (!GetOpened() || Index < 0 || Index >= GetNumPrograms()) return {};
  char Text[257] = {};
  if (VstDispatch(effGetProgramNameIndexed, Index, -1, Text, 0.0f) != 0) {
    Text[sizeof Text - 1] = '\0';
    return Text;
  }
  // Kept as the component always did: a plug-in that cannot name a program
  // by index is switched to it for its name and back.
  const int32_t Current = GetCurrentProgramNumber();
  VstDispatch(effSetProgram, 0, Index);
  std::string Name = GetCurrentProgramName();
  VstDispatch(effSetProgram, 0, Current);
  return Name;
}

TSRVSTPresetRecord TSRVSTHost::GetPreset(int32_t Program) {
  TSRVSTPresetRecord Record;
  SetCurrentProgramNumber(Program);
  const int32_t N = Bounded(GetNumParams(), kMaxPlugInParameters);
  TFXPreset& H = Record.Header;
  PutBigEndian(H.chunkMagic, FourCharToLong('C', 'c', 'n', 'K'));
  // The rest of the program as the writers write it: 44 bytes of header
  // fields, the 4 filler bytes and the values.
  PutBigEndian(H.ByteSize, 52 + 4 * N);
  PutBigEndian(H.fxMagic, FourCharToLong('F', 'x', 'C', 'k'));
  PutBigEndian(H.version, 1);
  PutBigEndian(H.fxID, GetUniqueID());
  PutBigEndian(H.fxVersion, GetVersion());
  PutBigEndian(H.numParams, N);
  PutProgramName(H.prgName, GetCurrentProgramName());
  Record.Params.resize(4 * static_cast<size_t>(N));
  for (int32_t I = 0; I < N; ++I) {
    TSRVSTParameter* P = FParameters.Get(static_cast<size_t>(I));
    PutBigEndianFloat(Record.Params.data() + 4 * I, P ? P->GetValue() : GetParameter(I));
  }
  return Record;
}

}  // namespace Quorvel
