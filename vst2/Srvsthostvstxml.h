// Parameter structures (VSTXML): an XML description a VST 2 plug-in may
// ship of its parameters - display names, labels, state counts, defaults,
// value types with named entries, groups and templates. The host reads it
// when it builds its parameter list and attaches a copy of each described
// parameter to the parameter object whose index is the description's id.
//
// The document is a ".vstxml" file beside the plug-in library (its extension
// replaced) or, when there is no such file, the library's resource of type
// "VSTXML" with identifier 1. Resources exist in Windows libraries only:
// elsewhere the file is the one place looked at.
//
// Value types and templates count at the top of the document; groups and
// parameters at the top and inside groups and templates; any other element
// is passed over with all it contains.
//
// Groups and templates: a group's own parameters are attached with their
// ids as written. A group that names a template in "template" also attaches
// the template's parameters and groups, their ids moved by the group's
// "values" read as a whole number (0 when absent or not a number), so that
// one template describes several channels ("values" 0, 8, 16, ...). A
// template reached again while it is being applied is skipped, and so is
// one that would be the 17th applied inside one another. Every
// attached parameter names the innermost group it came through.
//
// Threads: [main thread], with the host's parameter list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/Library.h"
#include "vst2/Srvsthostparameters.h"

namespace Quorvel {

// A described parameter: what the host parameter carries once attached.
// Parsed ones have no Values or Group yet; attaching fills them in.
using TSRVSTXMLParam = TSRVSTParameterStructureEntry;

struct TSRVSTXMLEntry {
  std::string Name;
  std::string Value;
};

struct TSRVSTXMLValueType {
  std::string Name;
  std::vector<TSRVSTXMLEntry> Entries;  // in document order
};

struct TSRVSTXMLGroup {
  std::string Name;
  std::string Template;  // the name of a template, "" for none
  std::string Values;    // as written
  std::vector<TSRVSTXMLParam> Params;
  std::vector<TSRVSTXMLGroup> Groups;
};

struct TSRVSTXMLTemplate {
  std::string Name;
  std::vector<TSRVSTXMLParam> Params;
  std::vector<TSRVSTXMLGroup> Groups;
};

class TSRVSTXMLParameterStructure {
 public:
  // The largest document read; the most parameters and groups one attach
  // step visits, and the most templates applied one inside another
  // (templates inside templates could otherwise multiply without end).
  static constexpr size_t kMaxDocumentBytes = size_t(16) << 20;
  static constexpr size_t kMaxAttachVisits = size_t(1) << 18;
  static constexpr size_t kMaxTemplateDepth = 16;

  // Parses a document. False, with the structure empty and the reason in
  // ErrorText, when it is malformed, refused by the reader's limits, or its
  // document element is not "VSTParametersStructure".
  bool Parse(const void* Data, size_t Size, std::string& ErrorText);
  void Clear();
  bool Empty() const;

  const std::vector<TSRVSTXMLValueType>& GetValueTypes() const { return FValueTypes; }
  const std::vector<TSRVSTXMLTemplate>& GetTemplates() const { return FTemplates; }
  const std::vector<TSRVSTXMLGroup>& GetGroups() const { return FGroups; }
  const std::vector<TSRVSTXMLParam>& GetParams() const { return FParams; }
  // The first value type or template of that name (exact), or nullptr.
  const TSRVSTXMLValueType* FindValueType(const std::string& Name) const;
  const TSRVSTXMLTemplate* FindTemplate(const std::string& Name) const;

  // What each of Count parameter indices gets: a copy of the last described
  // parameter whose (moved) id is that index, with its value type's entries
  // and its group's name; nullptr where none is described. The structure's
  // own parameters come first, then each group's, depth first.
  std::vector<std::unique_ptr<TSRVSTXMLParam>> Resolve(int32_t Count) const;
  // Attaches the resolved entries to the host's parameter objects (the ones
  // without an entry keep theirs). Answers how many were attached.
  size_t Attach(TSRVSTParameters& Parameters) const;

 private:
  friend class TSRVSTXMLDocumentReader;
  std::vector<TSRVSTXMLValueType> FValueTypes;
  std::vector<TSRVSTXMLTemplate> FTemplates;
  std::vector<TSRVSTXMLGroup> FGroups;
  std::vector<TSRVSTXMLParam> FParams;
};

// The file looked for beside a plug-in library: its name with the extension
// (after the last dot of the last path element) replaced by ".vstxml", or
// ".vstxml" appended when it has none.
std::string ParameterStructureFileName(const std::string& LibraryFileName);

// Finds a loaded plug-in's document: the file beside LibraryFileName when it
// exists, else the "VSTXML" resource 1 of Module. False when neither is
// there or the one found cannot be read (or is larger than the limit).
bool FindParameterStructureDocument(const std::string& LibraryFileName, Platform::TModuleHandle Module,
                                    std::vector<uint8_t>& Document);

}  // namespace Quorvel
