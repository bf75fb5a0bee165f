// Parameter structures: the parser and attach step on documents written
// here (well-formed, grouped and hostile), and the host finding and
// attaching the descriptions of the test plug-ins (a file beside the
// library, a resource inside it on Windows).
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/Xmlreader.h"
#include "tests/support/Scratchfolder.h"
#include "tests/vst2/Vst2testplugins.h"
#include "vst2/Srvsthost.h"
#include "vst2/Srvsthostvstxml.h"

using namespace Quorvel;
using namespace Quorvel::Testing;
namespace fs = std::filesystem;

namespace {

bool Parse(TSRVSTXMLParameterStructure& S, const std::string& Document, std::string* Error = nullptr) {
  std::string Ignored;
  return S.Parse(Document.data(), Document.size(), Error ? *Error : Ignored);
}

std::string Structure(const std::string& Content) {
  return "<?xml version=\"1.0\"?>\n<VSTParametersStructure>" + Content + "</VSTParametersStructure>";
}

std::string Repeat(const std::string& Text, size_t Times) {
  std::string Out;
  Out.reserve(Text.size() * Times);
  for (size_t I = 0; I < Times; ++I) Out += Text;
  return Out;
}

using TNamedValues = std::vector<std::pair<std::string, std::string>>;

// Text in 16-bit or 32-bit units (UTF-16 or UCS-4 for the characters used
// here), without a byte-order mark.
std::string Wide(const std::u16string& Text, size_t Width, bool BigEndian) {
  std::string Out;
  for (char16_t C : Text)
    for (size_t Byte = 0; Byte < Width; ++Byte) {
      const size_t Shift = 8 * (BigEndian ? Width - 1 - Byte : Byte);
      Out += Shift < 16 ? char((C >> Shift) & 0xFF) : '\0';
    }
  return Out;
}

std::u16string Widened(const std::string& Ascii) { return std::u16string(Ascii.begin(), Ascii.end()); }

const char* const kGrouped = R"(
  <ValueType name="OnOff"><Entry name="Off" value="0"/><Entry name="On" value="1"/></ValueType>
  <ValueType name="Empty"/>
  <Template name="Channel">
    <Param name="Volume" id="0" label="dB" numberOfStates="0"/>
    <Group name="Sends"><Param name="Send" id="1" type="OnOff"/></Group>
  </Template>
  <!-- <Param name="Commented" id="5"/> -->
  Text <![CDATA[<Param name="Cdata" id="5"/>]]>
  <Param name="Master" id="6" label="dB" shortName="Mst" type="OnOff" numberOfStates="2" defaultValue="0.75"/>
  <Group name="Channels" values="ignored without a template">
    <Group name="Left" template="Channel" values="0"/>
    <Group name="Right" template="Channel" values="2">
      <Param name="Right Pan" id="4" NAME="upper case attribute"/>
    </Group>
  </Group>
  <param name="lower case element" id="5"/>
  <Unknown><Param name="Inside an unknown element" id="5"/></Unknown>
  <Param name="Master again" id="6" xmlns:q="urn:q" q:extra="1"/>
)";

}  // namespace

TEST(VSTXMLParse, EveryObjectOfAGroupedDocumentIsRecorded) {
  TSRVSTXMLParameterStructure S;
  ASSERT_TRUE(Parse(S, Structure(kGrouped)));

  ASSERT_EQ(S.GetValueTypes().size(), 2u);
  EXPECT_EQ(S.GetValueTypes()[0].Name, "OnOff");
  ASSERT_EQ(S.GetValueTypes()[0].Entries.size(), 2u);
  EXPECT_EQ(S.GetValueTypes()[0].Entries[1].Name, "On");
  EXPECT_EQ(S.GetValueTypes()[0].Entries[1].Value, "1");
  EXPECT_TRUE(S.GetValueTypes()[1].Entries.empty());

  ASSERT_EQ(S.GetTemplates().size(), 1u);
  const TSRVSTXMLTemplate& T = S.GetTemplates()[0];
  EXPECT_EQ(T.Name, "Channel");
  ASSERT_EQ(T.Params.size(), 1u);
  ASSERT_EQ(T.Groups.size(), 1u);
  EXPECT_EQ(T.Groups[0].Params.at(0).Name, "Send");
  EXPECT_EQ(S.FindTemplate("Channel"), &T);
  EXPECT_EQ(S.FindTemplate("channel"), nullptr);

  // Element names are exact: "param" and the content of unknown elements,
  // comments and CDATA sections are not parameters.
  ASSERT_EQ(S.GetParams().size(), 2u);
  const TSRVSTXMLParam& Master = S.GetParams()[0];
  EXPECT_EQ(Master.Name, "Master");
  EXPECT_EQ(Master.Id, 6);
  EXPECT_EQ(Master.Label, "dB");
  EXPECT_EQ(Master.ShortName, "Mst");
  EXPECT_EQ(Master.Type, "OnOff");
  EXPECT_EQ(Master.NumberOfStates, 2);
  EXPECT_TRUE(Master.HasDefaultValue);
  EXPECT_EQ(Master.DefaultValue, 0.75f);
  EXPECT_FALSE(S.GetParams()[1].HasDefaultValue);

  ASSERT_EQ(S.GetGroups().size(), 1u);
  const TSRVSTXMLGroup& Channels = S.GetGroups()[0];
  EXPECT_EQ(Channels.Values, "ignored without a template");
  ASSERT_EQ(Channels.Groups.size(), 2u);
  const TSRVSTXMLGroup& Right = Channels.Groups[1];
  EXPECT_EQ(Right.Name, "Right");
  EXPECT_EQ(Right.Template, "Channel");
  EXPECT_EQ(Right.Values, "2");
  ASSERT_EQ(Right.Params.size(), 1u);
  EXPECT_EQ(Right.Params[0].Name, "Right Pan") << "attribute names are exact too";
}

TEST(VSTXMLParse, NumbersAreWholeNumbersInAnyLocaleAndDefaultsKeepTheirPresence) {
  struct TCase {
    const char* Attributes;
    int32_t Id, States;
    bool HasDefault;
    float Default;
  };
  const TCase Cases[] = {
      {R"(id=" 3 " numberOfStates="+4" defaultValue=" -0.5 ")", 3, 4, true, -0.5f},
      {R"(id="3x" numberOfStates="2.5" defaultValue="off")", -1, 0, true, 0.0f},
      {R"(id="99999999999" numberOfStates="99999999999" defaultValue="1e999")", -1, 0, true, 0.0f},
      {R"(id="-7" numberOfStates="-2" defaultValue="nan")", -7, -2, true, 0.0f},
      {R"(id="" numberOfStates="" defaultValue="")", -1, 0, true, 0.0f},
      {R"(id="0x10" defaultValue="1,5")", -1, 0, true, 0.0f},
      {R"(id="+-1" defaultValue="2E-1")", -1, 0, true, 0.2f},
      {R"(name="no numbers at all")", -1, 0, false, 0.0f},
  };
  for (const TCase& C : Cases) {
    TSRVSTXMLParameterStructure S;
    ASSERT_TRUE(Parse(S, Structure(std::string("<Param ") + C.Attributes + "/>"))) << C.Attributes;
    const TSRVSTXMLParam& P = S.GetParams().at(0);
    EXPECT_EQ(P.Id, C.Id) << C.Attributes;
    EXPECT_EQ(P.NumberOfStates, C.States) << C.Attributes;
    EXPECT_EQ(P.HasDefaultValue, C.HasDefault) << C.Attributes;
    EXPECT_EQ(P.DefaultValue, C.Default) << C.Attributes;
  }
  // References in attribute values are replaced.
  TSRVSTXMLParameterStructure S;
  ASSERT_TRUE(Parse(S, Structure(R"(<Param name="L&amp;R &#x41;&#66; &lt;&gt;" id="1"/>)")));
  EXPECT_EQ(S.GetParams().at(0).Name, "L&R AB <>");
}

TEST(VSTXMLAttach, ParametersLandAtTheirIdsThroughGroupsAndTemplates) {
  TSRVSTXMLParameterStructure S;
  ASSERT_TRUE(Parse(S, Structure(kGrouped)));
  const auto Entries = S.Resolve(8);
  ASSERT_EQ(Entries.size(), 8u);
  const auto NameAt = [&](size_t I) { return Entries[I] ? Entries[I]->Name : std::string("-"); };
  const auto GroupAt = [&](size_t I) { return Entries[I] ? Entries[I]->Group : std::string("-"); };

  // The template at values 0 and 2; the group's own parameter as written;
  // nothing at 5 (not a parameter) nor 7; the later "Master again" wins at 6.
  EXPECT_EQ(NameAt(0), "Volume");
  EXPECT_EQ(GroupAt(0), "Left");
  EXPECT_EQ(NameAt(1), "Send");
  EXPECT_EQ(GroupAt(1), "Sends");
  EXPECT_EQ(NameAt(2), "Volume");
  EXPECT_EQ(GroupAt(2), "Right");
  EXPECT_EQ(Entries[2]->Id, 2) << "the attached copy carries the index it landed at";
  EXPECT_EQ(NameAt(3), "Send");
  EXPECT_EQ(NameAt(4), "Right Pan");
  EXPECT_EQ(GroupAt(4), "Right");
  EXPECT_EQ(NameAt(5), "-");
  EXPECT_EQ(NameAt(6), "Master again");
  EXPECT_EQ(GroupAt(6), "");
  EXPECT_EQ(NameAt(7), "-");
  // Value types become the parameter's named values.
  EXPECT_EQ(Entries[1]->Values, (TNamedValues{{"Off", "0"}, {"On", "1"}}));
  EXPECT_TRUE(Entries[0]->Values.empty());

  // Fewer parameters than described: the rest are ignored; none at all or a
  // negative count attach nothing.
  EXPECT_EQ(S.Resolve(2).size(), 2u);
  EXPECT_TRUE(S.Resolve(0).empty());
  EXPECT_TRUE(S.Resolve(-5).empty());
}

TEST(VSTXMLAttach, TemplatesThatReachThemselvesOrMultiplyEndBounded) {
  // A template applying itself, and two applying each other with offsets.
  TSRVSTXMLParameterStructure Cycle;
  ASSERT_TRUE(Parse(Cycle, Structure(R"(
    <Template name="A"><Param name="a" id="0"/><Group name="again" template="A" values="1"/>
                       <Group name="b" template="B" values="1"/></Template>
    <Template name="B"><Param name="b" id="0"/><Group name="back" template="A" values="1"/></Template>
    <Group name="top" template="A" values="0"/>)")));
  const auto Entries = Cycle.Resolve(4);
  ASSERT_TRUE(Entries[0] && Entries[1]);
  EXPECT_EQ(Entries[0]->Name, "a");
  EXPECT_EQ(Entries[1]->Name, "b");
  EXPECT_FALSE(Entries[2]) << "A inside B inside A is skipped";

  // Forty templates, each applying the one before it twice: 2^40 visits
  // unless the walk is bounded; offsets reach 2^40 and must not overflow.
  std::string Chain = R"(<Template name="T0"><Param name="leaf" id="0"/></Template>)";
  for (int I = 1; I <= 40; ++I)
    Chain += "<Template name=\"T" + std::to_string(I) + "\"><Group name=\"x\" template=\"T" + std::to_string(I - 1) +
             "\" values=\"0\"/><Group name=\"y\" template=\"T" + std::to_string(I - 1) + "\" values=\"2147483647\"/></Template>";
  Chain += R"(<Group name="top" template="T40"/>)";
  TSRVSTXMLParameterStructure Multiplying;
  ASSERT_TRUE(Parse(Multiplying, Structure(Chain)));
  const auto Bounded = Multiplying.Resolve(1);
  EXPECT_FALSE(Bounded[0]) << "T0 is the 41st template deep, beyond the limit";
}

TEST(VSTXMLParse, HostileAndMalformedDocumentsGiveNoStructure) {
  const std::string Deep64 = Structure(Repeat("<Group>", 62) + "<Param id=\"0\"/>" + Repeat("</Group>", 62));
  const std::string Deep65 = Structure(Repeat("<Group>", 64) + Repeat("</Group>", 64));
  const std::string Laughs =
      "<?xml version=\"1.0\"?><!DOCTYPE VSTParametersStructure [<!ENTITY a \"aaaaaaaaaa\">"
      "<!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\"><!ENTITY c \"&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;\">]>"
      "<VSTParametersStructure><Param name=\"&c;\" id=\"0\"/></VSTParametersStructure>";
  const std::string External =
      "<!DOCTYPE VSTParametersStructure SYSTEM \"http://127.0.0.1:9/x.dtd\"><VSTParametersStructure>"
      "<Param name=\"x\" id=\"0\"/></VSTParametersStructure>";
  // A document type hidden from a byte search by its encoding.
  std::string Utf16 = "\xFF\xFE";
  for (char C : std::string("<!DOCTYPE VSTParametersStructure [<!ENTITY e \"E\">]><VSTParametersStructure>"
                            "<Param name=\"&e;\" id=\"0\"/></VSTParametersStructure>"))
    Utf16 += C, Utf16 += '\0';
  std::string ManyAttributes = "<Param id=\"0\"";
  for (int I = 0; I < 2000; ++I) ManyAttributes += " a" + std::to_string(I) + "=\"\"";
  ManyAttributes += "/>";
  // The same tag with its attributes hidden from a count that follows
  // quotes: an apostrophe in a comment before it; in UTF-16 and UCS-4, an
  // attribute named by a character whose code unit holds an apostrophe byte
  // (U+0127); in UTF-7, '=' written as "+AD0-".
  const std::string ApostropheInComment = Structure("<!-- it's -->" + ManyAttributes);
  const std::u16string ApostropheByte =
      u"<VSTParametersStructure><Param \u0127=\"\"" + Widened(ManyAttributes.substr(6)) + u"</VSTParametersStructure>";
  std::string EqualsInUtf7 = "<?xml version=\"1.0\" encoding=\"UTF-7\"?><VSTParametersStructure><Param";
  for (int I = 0; I < 2000; ++I) EqualsInUtf7 += " a" + std::to_string(I) + "+AD0-\"\"";
  EqualsInUtf7 += "/></VSTParametersStructure>";

  const std::vector<std::pair<const char*, std::string>> Documents = {
      {"wrong document element", "<VSTParameterStructure><Param name=\"x\" id=\"0\"/></VSTParameterStructure>"},
      {"document element in another case", "<vstparametersstructure><Param id=\"0\"/></vstparametersstructure>"},
      {"unclosed", "<VSTParametersStructure><Param name=\"x\" id=\"0\"/>"},
      {"fault after the parameters", Structure("<Param name=\"x\" id=\"0\"/><Group></Param>")},
      {"content after the document", Structure("<Param id=\"0\"/>") + "<VSTParametersStructure/>"},
      {"undeclared entity", Structure("<Param name=\"&undeclared;\" id=\"0\"/>")},
      {"entity expansion", Laughs},
      {"external document type", External},
      {"document type in UTF-16", Utf16},
      {"nesting beyond the limit", Deep65},
      {"a tag with thousands of attributes", Structure(ManyAttributes)},
      {"thousands of attributes after an apostrophe in a comment", ApostropheInComment},
      {"thousands of attributes after an apostrophe byte in UTF-16", "\xFF\xFE" + Wide(ApostropheByte, 2, false)},
      {"thousands of attributes after an apostrophe byte in UCS-4", Wide(ApostropheByte, 4, true)},
      {"thousands of attributes in UTF-7", EqualsInUtf7},
      {"too many elements", Structure(Repeat("<Param id=\"0\"/>", (size_t(1) << 18) + 1))},
      {"binary", std::string("\0\x01\xFF<\x80", 5)},
      {"empty", ""},
  };
  for (const auto& [What, Document] : Documents) {
    TSRVSTXMLParameterStructure S;
    std::string Error;
    EXPECT_FALSE(Parse(S, Document, &Error)) << What;
    EXPECT_TRUE(S.Empty()) << What;
    EXPECT_FALSE(Error.empty()) << What;
  }

  TSRVSTXMLParameterStructure S;
  std::string Error;
  EXPECT_TRUE(Parse(S, Deep64, &Error)) << "64 levels, the document element included, are allowed: " << Error;

  // Documents in the encodings the checks read through are parsed (those
  // both system readers know: Wine's XmlLite has no ISO-8859-1 and takes
  // UTF-16 only little-endian).
  const std::string Tag = "<Param name=\"x\" id=\"0\" label=\"L\"/>";
  const std::vector<std::pair<const char*, std::string>> Readable = {
      {"UTF-16 with a mark",
       "\xFF\xFE" + Wide(u"<?xml version=\"1.0\" encoding=\"UTF-16\"?>" + Widened(Structure(Tag).substr(22)), 2, false)},
      {"UTF-8 declared in lower case", "<?xml version='1.0' encoding='utf-8'?><VSTParametersStructure>" + Tag +
                                           "</VSTParametersStructure>"},
      {"UTF-8 with a mark", "\xEF\xBB\xBF" + Structure(Tag)},
  };
  for (const auto& [What, Document] : Readable) {
    EXPECT_TRUE(Parse(S, Document, &Error)) << What << ": " << Error;
    EXPECT_EQ(S.GetParams().size(), 1u) << What;
  }

  // Beyond the size limit, refused before any parsing.
  std::string Huge = Structure(std::string(TSRVSTXMLParameterStructure::kMaxDocumentBytes, ' '));
  EXPECT_FALSE(Parse(S, Huge, &Error));
  EXPECT_NE(Error.find("bytes"), std::string::npos) << Error;
}

TEST(VSTXMLFile, TheFileBesideTheLibraryHasItsExtensionReplaced) {
  EXPECT_EQ(ParameterStructureFileName("/p/Reverb.so"), "/p/Reverb.vstxml");
  EXPECT_EQ(ParameterStructureFileName("C:\\VST\\Delay.1.dll"), "C:\\VST\\Delay.1.vstxml");
  EXPECT_EQ(ParameterStructureFileName("/p.d/NoExtension"), "/p.d/NoExtension.vstxml");
  EXPECT_EQ(ParameterStructureFileName("Z:/a.b\\Plain"), "Z:/a.b\\Plain.vstxml");
}

// ---- through the host and the test plug-ins ------------------------------------------

TEST(VSTXMLHost, TheDescribedPlugInOffersNamesLabelsStatesDefaultsAndNamedValues) {
  TSRVSTHost Host;
  ASSERT_TRUE(Opened(Host, PlugInPath("qvtestvst2_described")));
  TSRVSTParameters& P = Host.GetParameters();
  ASSERT_EQ(P.Count(), size_t(qpCount));

  // Gain: described at the top with a default; the plug-in's properties
  // still give its steps.
  EXPECT_EQ(P[qpGain].GetName(), "Level");
  EXPECT_EQ(P[qpGain].GetLabel(), "factor");
  EXPECT_EQ(P[qpGain].GetStructureGroup(), "");
  ASSERT_TRUE(P[qpGain].GetDefaultValue().Available());
  EXPECT_EQ(P[qpGain].GetDefaultValue().Value, 0.5f);
  EXPECT_EQ(P[qpGain].GetNumStates(), 0);
  EXPECT_FALSE(P[qpGain].GetValues().Available());
  EXPECT_TRUE(P[qpGain].GetFloatStep().Available());
  ASSERT_NE(P[qpGain].GetStructureEntry(), nullptr);
  EXPECT_EQ(P[qpGain].GetStructureEntry()->ShortName, "Lvl");

  // Channel Map: in a group; its states and named values from the
  // description (the plug-in gives no properties); "off" as default is 0.0;
  // no label described, so the plug-in's.
  EXPECT_EQ(P[qpChannelMap].GetName(), "Routing Map");
  EXPECT_EQ(P[qpChannelMap].GetLabel(), "");
  EXPECT_EQ(P[qpChannelMap].GetStructureGroup(), "Routing");
  EXPECT_EQ(P[qpChannelMap].GetNumStates(), 2);
  ASSERT_TRUE(P[qpChannelMap].GetDefaultValue().Available());
  EXPECT_EQ(P[qpChannelMap].GetDefaultValue().Value, 0.0f);
  EXPECT_EQ(P[qpChannelMap].GetValues().Entries, (TNamedValues{{"Straight", "0"}, {"Swapped", "1"}}));

  // Frozen: through a nested group's template, moved by its values; no
  // default; "many" states reads 0, so the switch's 2 stand.
  EXPECT_EQ(P[qpFrozen].GetName(), "Freeze");
  EXPECT_EQ(P[qpFrozen].GetStructureGroup(), "Hold");
  EXPECT_FALSE(P[qpFrozen].GetDefaultValue().Available());
  EXPECT_EQ(P[qpFrozen].GetNumStates(), 2);
  EXPECT_EQ(P[qpFrozen].GetValues().Entries, (TNamedValues{{"Off", "0"}, {"On", "1"}}));

  // Opened again, the description is read afresh.
  Host.Close();
  ASSERT_TRUE(Host.Open());
  EXPECT_EQ(Host.GetParameters()[qpFrozen].GetName(), "Freeze");
}

TEST(VSTXMLHost, AFileBesideTheLibraryWinsOverItsResource) {
  // "described" carries a different description as its resource: the file
  // is the one used. "describedresource" has only the resource, which
  // Windows libraries carry and other systems' libraries cannot.
  TSRVSTHost Described, ResourceOnly;
  ASSERT_TRUE(Opened(Described, PlugInPath("qvtestvst2_described")));
  ASSERT_TRUE(Opened(ResourceOnly, PlugInPath("qvtestvst2_describedresource")));
  EXPECT_EQ(Described.GetParameters()[qpGain].GetName(), "Level");
#ifdef _WIN32
  EXPECT_EQ(ResourceOnly.GetParameters()[qpGain].GetName(), "Resource Gain");
  EXPECT_EQ(ResourceOnly.GetParameters()[qpGain].GetLabel(), "dB");
#else
  EXPECT_EQ(ResourceOnly.GetParameters()[qpGain].GetStructureEntry(), nullptr);
  EXPECT_EQ(ResourceOnly.GetParameters()[qpGain].GetName(), "Gain");
#endif
  EXPECT_EQ(ResourceOnly.GetParameters()[qpChannelMap].GetStructureEntry(), nullptr);
}

class VSTXMLCopiedPlugIn : public ScratchFolderTest {};

TEST_F(VSTXMLCopiedPlugIn, ABrokenFileBesideTheLibraryMeansNoStructureAndNoError) {
  // A copy of the library that also carries a resource (on Windows): a file
  // beside it is used even when it cannot be parsed, and then nothing is.
  const fs::path Library = fs::u8path(PlugInPath("qvtestvst2_described"));
  const std::string Copy = PathOf("Copied" + Library.extension().u8string());
  fs::copy_file(Library, fs::u8path(Copy));
  const std::vector<std::pair<const char*, std::string>> Files = {
      {"malformed", "<VSTParametersStructure><Param name=\"Broken\" id=\"0\">"},
      {"wrong document element", "<Parameters><Param name=\"Wrong\" id=\"0\"/></Parameters>"},
      {"empty", ""},
      {"valid", Structure("<Param name=\"Copied Gain\" id=\"0\"/><Param name=\"Far\" id=\"2147483647\"/>")},
  };
  for (const auto& [What, Content] : Files) {
    std::ofstream(fs::u8path(PathOf("Copied.vstxml")), std::ios::binary) << Content;
    TSRVSTHost Host;
    TErrorLog Log;
    Log.Attach(Host);
    ASSERT_TRUE(Opened(Host, Copy)) << What;
    const bool Valid = std::string(What) == "valid";
    EXPECT_EQ(Host.GetParameters()[qpGain].GetName(), Valid ? "Copied Gain" : "Gain") << What;
    EXPECT_EQ(Host.GetParameters()[qpGain].GetStructureEntry() != nullptr, Valid) << What;
    EXPECT_TRUE(Log.Errors.empty()) << What;
  }
}
