// The plug-in's parameters and programs as objects of the VST 2 host:
// TSRVSTParameters holds one TSRVSTParameter per plug-in parameter index,
// TSRVSTProgram the program items and the selected program. Every value is
// read from and written to the plug-in when asked; a parameter caches only
// its properties record, which the plug-in is asked for once.
//
// Threads: [main thread], like the host's dispatch helpers.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vst2/Srvsteffectintf.h"

namespace Quorvel {

class TSRVSTHost;
class TWBReader;
class TWBWriter;

// The most parameters and programs the host makes objects for. A plug-in
// that declares more (or a negative count) is served up to this many.
constexpr int32_t kMaxPlugInParameters = 65536;
constexpr int32_t kMaxPlugInPrograms = 65536;

// What a parameter-structure description says about one parameter. Reading
// such descriptions attaches one of these to the parameter whose index is
// its Id (TSRVSTParameter::SetStructureEntry); until then there is none.
struct TSRVSTParameterStructureEntry {
  std::string Name;
  int32_t Id = 0;
  std::string Label;
  std::string ShortName;
  std::string Type;          // the name of a value type
  int32_t NumberOfStates = 0;
  float DefaultValue = 0.0f;
  bool HasDefaultValue = false;
  // The value type's named entries (name, value) in document order.
  std::vector<std::pair<std::string, std::string>> Values;
  // The name of the innermost group the parameter was attached through (""
  // for a parameter at the top of the structure).
  std::string Group;
};

// The optional property groups of a parameter: each tells whether the
// plug-in (or the parameter structure) gives it, and its values.
struct TSRVSTParameterCategory {
  bool Available() const { return FAvailable; }
  int32_t Category = 0;  // 1-based, as the plug-in numbers its categories
  int32_t ParametersInCategory = 0;
  std::string Label;
  bool FAvailable = false;
};
struct TSRVSTParameterIntegerMinMax {
  bool Available() const { return FAvailable; }
  int32_t Min = 0, Max = 0;
  bool FAvailable = false;
};
struct TSRVSTParameterDisplay {
  bool Available() const { return FAvailable; }
  int32_t Index = 0;  // the plug-in's display order
  std::string ShortLabel;
  bool FAvailable = false;
};
struct TSRVSTParameterFloatStep {
  bool Available() const { return FAvailable; }
  float Step = 0.0f, SmallStep = 0.0f, LargeStep = 0.0f;
  bool FAvailable = false;
};
struct TSRVSTParameterIntegerStep {
  bool Available() const { return FAvailable; }
  int32_t Step = 0, LargeStep = 0;
  bool FAvailable = false;
};
struct TSRVSTParameterDefaultValue {
  bool Available() const { return FAvailable; }
  float Value = 0.0f;
  bool FAvailable = false;
};
struct TSRVSTParameterValues {
  bool Available() const { return FAvailable; }
  std::vector<std::pair<std::string, std::string>> Entries;  // (name, value)
  bool FAvailable = false;
};

class TSRVSTParameter {
 public:
  TSRVSTParameter(TSRVSTHost& Host, int32_t Index) : FHost(Host), FIndex(Index) {}
  int32_t GetIndex() const { return FIndex; }

  // The plug-in's value; 0 when the host is closed.
  float GetValue();
  // Written only when the plug-in answers exactly 1 to effCanBeAutomated for
  // this index: a parameter it does not declare automatable is left alone.
  void SetValue(float Value);

  // Whether the plug-in gives properties for this parameter; the plug-in is
  // asked the first time only.
  bool CheckProperties();
  // The properties record (zeros when not available).
  const TVstParameterProperties& GetProperties();

  // The structure entry's name, else the properties' caption, else the
  // plug-in's parameter name.
  std::string GetName();
  std::string GetLabel();
  // The plug-in's display text, or the value as a number when it gives none.
  std::string GetAsString();
  // Hands Text to the plug-in to set the value from (effString2Parameter).
  void SetAsString(const std::string& Text);

  bool GetCanBeAutomated();
  bool GetCanRamp();
  bool GetIsSwitch();
  // The structure's state count, else 2 for a switch, else the size of the
  // integer range, else 0 (continuous).
  int32_t GetNumStates();
  // The plug-in's category number, -1 without one.
  int32_t GetGroup();

  TSRVSTParameterCategory GetCategory();
  TSRVSTParameterIntegerMinMax GetIntegerMinMax();
  TSRVSTParameterDisplay GetDisplay();
  TSRVSTParameterFloatStep GetFloatStep();
  TSRVSTParameterIntegerStep GetIntegerStep();
  TSRVSTParameterDefaultValue GetDefaultValue();
  TSRVSTParameterValues GetValues();

  // What a parameter-structure description attached to this parameter
  // (nullptr: nothing), and the name of its group there ("" without one).
  const TSRVSTParameterStructureEntry* GetStructureEntry() const { return FStructure.get(); }
  std::string GetStructureGroup() const { return FStructure ? FStructure->Group : std::string(); }
  void SetStructureEntry(std::unique_ptr<TSRVSTParameterStructureEntry> Entry) { FStructure = std::move(Entry); }

 private:
  bool HasFlag(TVstParameterPropertiesFlag Flag);

  TSRVSTHost& FHost;
  int32_t FIndex;
  std::unique_ptr<TSRVSTParameterStructureEntry> FStructure;
  TVstParameterProperties FProperties{};
  bool FPropertiesAsked = false;
  bool FPropertiesAvailable = false;
};

class TSRVSTParameters {
 public:
  explicit TSRVSTParameters(TSRVSTHost& Host) : FHost(Host) {}
  size_t Count() const { return FItems.size(); }
  TSRVSTParameter* Get(size_t Index) const { return Index < FItems.size() ? FItems[Index].get() : nullptr; }
  TSRVSTParameter& operator[](size_t Index) const { return *FItems.at(Index); }
  // Makes Count fresh parameter objects (properties not yet asked).
  void Rebuild(int32_t Count);
  void Clear() { FItems.clear(); }

  // Persistence of the values with the component: a list of floats. Values
  // read while the plug-in is closed wait until it opens (TryApplyValues).
  void WriteData(TWBWriter& Writer);
  void ReadData(TWBReader& Reader);
  bool HasData();
  // Applies values read by ReadData when the plug-in is open (through
  // SetValue, so only automatable parameters take them); they are applied once.
  void TryApplyValues();

 private:
  TSRVSTHost& FHost;
  std::vector<std::unique_ptr<TSRVSTParameter>> FItems;
  std::vector<float> FPendingValues;
  bool FHasPendingValues = false;
};

class TSRVSTProgram;

class TSRVSTProgramItem {
 public:
  TSRVSTProgramItem(TSRVSTHost& Host, int32_t Index) : FHost(Host), FIndex(Index) {}
  int32_t GetIndex() const { return FIndex; }
  // The program's name as the plug-in tells it (TSRVSTHost::GetProgramNameByIndex).
  std::string GetName();

 private:
  TSRVSTHost& FHost;
  int32_t FIndex;
};

class TSRVSTProgram {
 public:
  explicit TSRVSTProgram(TSRVSTHost& Host) : FHost(Host) {}
  size_t Count() const { return FItems.size(); }
  TSRVSTProgramItem* Get(size_t Index) const { return Index < FItems.size() ? FItems[Index].get() : nullptr; }
  void Rebuild(int32_t Count);

  // The program index the component keeps (-1: none), under the component lock.
  int32_t GetProgramIndex() const;
  void SetProgramIndex(int32_t Index);  // values below -1 are taken as -1
  // The name of the program at the kept index ("" for none).
  std::string GetSelected();
  // Selects the first item named exactly Name (the plug-in switches to it);
  // without one the index becomes -1 and the plug-in stays where it is.
  void SetSelected(const std::string& Name);

 private:
  TSRVSTHost& FHost;
  std::vector<std::unique_ptr<TSRVSTProgramItem>> FItems;
  int32_t FProgramIndex = -1;
};

}  // namespace Quorvel
