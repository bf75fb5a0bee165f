// The package as a host application meets it: the shared library loaded
// through the system's loader, its units, its catalogue and components made
// by class name; and a VST 2 host saved and loaded through a document.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frame/Srdemocomponents.h"
#include "frame/Srfilecomponents.h"
#include "frame/Wbdocument.h"
#include "frame/Wbregistration.h"
#include "package/Quorvelpackage.h"
#include "platform/Library.h"
#include "vst2/Srvsthost.h"

using namespace Quorvel;

TEST(Package, SharedLibraryListsItsUnitsAndMakesComponentsByName) {
  std::string Error;
  unsigned Code = 0;
  Platform::TModuleHandle Module = Platform::LoadCodeLibrary(QUORVEL_PACKAGE_LIBRARY, Error, Code);
  ASSERT_NE(Module, nullptr) << Error;
  const auto Symbol = [&](const char* Name) {
    void* S = Platform::GetLibrarySymbol(Module, Name);
    EXPECT_NE(S, nullptr) << Name;
    return S;
  };
  auto Init = reinterpret_cast<void (*)()>(Symbol("Initialize"));
  auto Fini = reinterpret_cast<void (*)()>(Symbol("Finalize"));
  auto Units = reinterpret_cast<size_t (*)()>(Symbol("GetPackageInfoTable"));
  auto UnitName = reinterpret_cast<const char* (*)(size_t)>(Symbol("GetPackageUnitName"));
  auto UnitClass = reinterpret_cast<const char* (*)(size_t)>(Symbol("GetPackageUnitClass"));
  auto Count = reinterpret_cast<size_t (*)()>(Symbol("QuorvelComponentCount"));
  auto ClassAt = reinterpret_cast<const char* (*)(size_t)>(Symbol("QuorvelComponentClass"));
  auto Create = reinterpret_cast<void* (*)(const char*)>(Symbol("QuorvelCreateComponent"));
  auto ClassOf = reinterpret_cast<const char* (*)(void*)>(Symbol("QuorvelComponentClassOf"));
  auto Destroy = reinterpret_cast<void (*)(void*)>(Symbol("QuorvelDestroyComponent"));
  ASSERT_TRUE(Init && Fini && Units && UnitName && UnitClass && Count && ClassAt && Create && ClassOf && Destroy);

  EXPECT_EQ(Count(), 0u) << "nothing is registered before the package starts";
  Init();
  Init();  // a second start changes nothing
  // The catalogue is the component units' classes in unit order.
  std::vector<std::string> Expected, Listed;
  for (size_t I = 0; I < Units(); ++I)
    if (UnitClass(I)) Expected.push_back(UnitClass(I));
  for (size_t I = 0; I < Count(); ++I) Listed.push_back(ClassAt(I));
  EXPECT_EQ(Listed, Expected);
  EXPECT_NE(std::find(Listed.begin(), Listed.end(), "TSRVSTHost"), Listed.end());
  EXPECT_EQ(UnitName(Units()), nullptr);
  EXPECT_EQ(ClassAt(Count()), nullptr);

  for (const char* Name : {"TSRVSTHost", "TSRVST3Host", "TSRAudioFileSink", "TSRToneGenerator"}) {
    void* Component = Create(Name);
    ASSERT_NE(Component, nullptr) << Name;
    EXPECT_STREQ(ClassOf(Component), Name);
    Destroy(Component);
  }
  EXPECT_EQ(Create("TNoSuchComponent"), nullptr);
  EXPECT_EQ(Create(nullptr), nullptr);
  Fini();
  EXPECT_EQ(Count(), 0u) << "finalization unregisters in reverse";
  Platform::FreeCodeLibrary(Module);
}

TEST(Package, VstHostSavesAndLoadsItsSettingsThroughADocument) {
  Package::Initialize();
  TWBComponent Form;
  auto* Host = new TSRVSTHost(&Form);
  Host->SetName("Host");
  Host->SetSampleRate(48000);
  Host->SetBufferSize(128);
  Host->SetPrecision(TSRVSTPrecision::vstp64);
  Host->SetPanLawType(TSRVSTPanLawType::vstkEqualPowerPanLaw);
  Host->SetBypass(true);
  Host->SetHostVendorString("Someone");
  Host->SetHostTempo(96.5f);
  Host->SetEnabled(false);
  Host->SetFileName(QV_TESTVST2_MAIN);
  const std::string Text = WriteDocument(SaveDocument({Host}));

  TWBComponent Copy;
  std::vector<TWBComponent*> Made;
  TWBDocument Document;
  std::string Error;
  ASSERT_TRUE(ParseDocument(Text, Document, Error)) << Error;
  ASSERT_TRUE(LoadDocument(Document, Copy, Made, Error)) << Error;
  ASSERT_EQ(Made.size(), 1u);
  auto* Loaded = dynamic_cast<TSRVSTHost*>(Made[0]);
  ASSERT_NE(Loaded, nullptr);
  EXPECT_EQ(WriteDocument(SaveDocument(Made)), Text);
  EXPECT_EQ(Loaded->GetSampleRate(), 48000);
  EXPECT_EQ(Loaded->GetBlockSize(), 128);
  EXPECT_EQ(Loaded->GetPrecision(), TSRVSTPrecision::vstp64);
  EXPECT_EQ(Loaded->GetHostVendorString(), "Someone");
  EXPECT_FALSE(Loaded->GetEnabled());
  // The plug-in's pins were read when the file name was loaded.
  EXPECT_EQ(Loaded->GetInputPins().Count(), 2u);
  EXPECT_NE(Text.find("\"Precision\": \"vstp64\""), std::string::npos) << Text;

  // An unknown value of an enumeration names the property.
  const std::string Bad = R"({"components": [{"class": "TSRVSTHost", "name": "H",
                              "properties": {"Precision": "vstp128"}}]})";
  ASSERT_TRUE(ParseDocument(Bad, Document, Error));
  Made.clear();
  EXPECT_FALSE(LoadDocument(Document, Copy, Made, Error));
  EXPECT_NE(Error.find("H.Precision"), std::string::npos) << Error;
}
