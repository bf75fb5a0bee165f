// The VST 3 host against the test modules, loaded through their real entry
// points in their bundle (and, on Windows, flat) layouts.
#include "vst3/Srvst3host.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "frame/Wbexception.h"
#include "frame/Wbpersistence.h"
#include "platform/Library.h"
#include "platform/Vst3module.h"
#include "testplugins/vst3/Qvtestvst3.h"
#include "tests/vst3/Vst3testmodule.h"

using namespace Quorvel;
using namespace Quorvel::Vst3hostintf;
namespace T3 = Quorvel::Qvtestvst3;

namespace {

using TModuleProbe = Testing::TVst3ModuleProbe;
using TErrorLog = Testing::TVst3ErrorLog;

// The module paths each test runs over: the bundle, and on Windows the flat DLL.
std::vector<std::string> MainModules() {
  std::vector<std::string> Paths = {QV_TESTVST3_MAIN};
#ifdef QV_TESTVST3_MAIN_FLAT
  Paths.push_back(QV_TESTVST3_MAIN_FLAT);
#endif
  return Paths;
}

const std::string kEffectOpenOrder[] = {"Entry",
                                        "GetPluginFactory",
                                        "Factory.getFactoryInfo",
                                        "Factory.createInstance Effect IComponent",
                                        "Effect.initialize",
                                        "Effect.getName result=0 address",
                                        "Effect.getControllerClassId",
                                        "Factory.createInstance Controller IEditController",
                                        "Controller.initialize",
                                        "Controller.getName result=0 address",
                                        "Controller.setComponentHandler set",
                                        "Effect.connect",
                                        "Controller.notify QvHello 42",
                                        "Controller.connect",
                                        "Effect.notify QvHello 42",
                                        "Effect.getState wrote=8",
                                        "Controller.setComponentState read=0",
                                        "Effect.setupProcessing mode=0 size=0 block=256 rate=44100",
                                        "Effect.setActive 1",
                                        "Controller.createView editor"};

const std::string kEffectCloseOrder[] = {"Controller.view released",
                                         "Effect.disconnect",
                                         "Controller.disconnect",
                                         "Controller.setComponentHandler null",
                                         "Controller.terminate",
                                         "Effect.setActive 0",
                                         "Effect.terminate",
                                         "Exit"};

template <size_t N>
std::vector<std::string> Lines(const std::string (&A)[N]) {
  return std::vector<std::string>(A, A + N);
}

}  // namespace

TEST(Srvst3host, OpensTheFirstClassWithItsControllerAndClosesInReverse) {
  for (const std::string& Path : MainModules()) {
    SCOPED_TRACE(Path);
    TModuleProbe Probe(Path);
    TErrorLog Log;
    {
      TSRVST3Host Host;
      Log.Attach(Host);
      int Loaded = 0;
      Host.OnLoaded = [&Loaded](TWBComponent*) { ++Loaded; };
      Host.SetFileName(Path);
      // Choosing the class opened the module without instantiating anything, then closed it.
      EXPECT_EQ(Probe.Count("Entry"), Probe.Count("Exit"));
      EXPECT_EQ(Probe.Count("Factory.createInstance Effect IComponent"), 0u);
      EXPECT_GE(Loaded, 1);
      EXPECT_EQ(Host.GetProcessor().GetID(), T3::kEffectCID);
      EXPECT_EQ(Host.GetProcessor().GetName(), T3::kEffectName);
      EXPECT_FALSE(Host.GetIntOpened());

      Probe.Reset();
      ASSERT_TRUE(Host.Open());
      EXPECT_EQ(Probe.Calls(), Lines(kEffectOpenOrder));
      EXPECT_TRUE(Host.GetIntOpened());
      EXPECT_TRUE(Host.GetConnected());
      EXPECT_TRUE(Host.GetActive());
      EXPECT_NE(Host.GetController(), nullptr);
      EXPECT_NE(Host.GetController2(), nullptr);
      EXPECT_NE(Host.GetAudioProcessor(), nullptr);
      ASSERT_NE(Host.GetView(), nullptr);
      TViewRect Size{};
      EXPECT_EQ(Host.GetView()->getSize(&Size), 0);
      EXPECT_EQ(Size.GetWidth(), 320);
      EXPECT_EQ(Host.GetInputEvents()->GetMaxSize(), 50);
      EXPECT_EQ(Host.GetInputParameterChanges()->getParameterCount(), 0);

      // The factory's information, flags mapped bit by bit (bit 4 dropped).
      EXPECT_EQ(Host.GetFactoryInfo().Vendor, T3::kVendor);
      EXPECT_EQ(Host.GetFactoryInfo().URL, T3::kURL);
      EXPECT_EQ(Host.GetFactoryInfo().EMail, T3::kEMail);
      EXPECT_EQ(Host.GetFactoryInfo().Flags,
                (TSRVST3FactoryFlags{TSRVST3FactoryFlag::vst3ffClassesDiscardable,
                                     TSRVST3FactoryFlag::vst3ffComponentNonDiscardable,
                                     TSRVST3FactoryFlag::vst3ffUnicode}));
      // Opening again only refreshes the factory information.
      Probe.Reset();
      EXPECT_TRUE(Host.Open());
      EXPECT_EQ(Probe.Calls(), std::vector<std::string>{"Factory.getFactoryInfo"});

      // Buses and the controller's parameters.
      EXPECT_EQ(Host.GetBusCount(kAudio, kInput), 1);
      TSRVST3BusInfo Bus;
      ASSERT_TRUE(Host.GetBusInfo(kAudio, kOutput, 0, Bus));
      EXPECT_EQ(Bus.Name, "Stereo Out");
      EXPECT_EQ(Bus.ChannelCount, 2);
      EXPECT_FALSE(Host.GetBusInfo(kAudio, kOutput, 1, Bus));
      ASSERT_EQ(Host.GetParameterCount(), 2);
      EXPECT_EQ(Host.GetParameterInfo(0).ID, T3::kGainID);
      EXPECT_EQ(Host.GetParameterInfo(0).Title, "Gain");
      EXPECT_EQ(Host.GetParameterInfo(0).Units, "dB");
      EXPECT_EQ(Host.GetParameterInfo(1).StepCount, 2);
      EXPECT_THROW(Host.GetParameterInfo(2), EWBException);
      EXPECT_EQ(Host.GetParameterDisplay(T3::kGainID, 1.0), "12.00 dB");
      Host.SetParameterValue(T3::kModeID, 0.5);
      EXPECT_EQ(Host.GetParameterValue(T3::kModeID), 0.5);
      EXPECT_EQ(Host.GetParameterDisplay(T3::kModeID, Host.GetParameterValue(T3::kModeID)), "Mode 1");

      Probe.Reset();
      Host.Close();
      EXPECT_EQ(Probe.Calls(), Lines(kEffectCloseOrder));
      // Opening and closing all happen on the calling thread.
      EXPECT_EQ(Probe.CallThreads(), std::vector<int32_t>(std::size(kEffectCloseOrder), 0));
      EXPECT_FALSE(Host.GetIntOpened());
      EXPECT_EQ(Host.GetParameterCount(), 0);
      EXPECT_EQ(Probe.LiveObjects(), 0);
      EXPECT_EQ(Probe.HostReferences(), 0);
      // The chosen class stays chosen, and the host opens again.
      ASSERT_TRUE(Host.Open());
      EXPECT_EQ(Probe.LiveObjects(), 2 + 1 + 1);  // component, controller, view, factory
    }
    // The destructor closes.
    EXPECT_EQ(Probe.LiveObjects(), 0);
    EXPECT_EQ(Probe.HostReferences(), 0);
    EXPECT_TRUE(Log.Errors.empty());
  }
}

TEST(Srvst3host, ClassListAndChoiceByIDNameAndClassInfo) {
  TModuleProbe Probe(QV_TESTVST3_MAIN);
  TSRVST3Host Host;
  Host.SetFileName(QV_TESTVST3_MAIN);
  TSRVST3ClassInfos& Classes = Host.GetClassInfos();
  ASSERT_EQ(Classes.GetCount(), 4);
  const char* Names[] = {T3::kEffectName, T3::kControllerName, T3::kSingleName, T3::kAloneName};
  for (int I = 0; I < 4; ++I) {
    TSRVST3ClassInfoRef Info = Classes.GetItem(I);
    ASSERT_TRUE(Info);
    EXPECT_EQ(Info->GetName(), Names[I]);
    EXPECT_EQ(Info->GetVendor(), T3::kVendor);
    EXPECT_EQ(Info->GetVersion(), T3::kClassVersion);
    EXPECT_EQ(Info->GetSdkVersion(), T3::kSdkVersion);
    EXPECT_EQ(Info->GetSubCategories(), T3::kSubCategories);
    EXPECT_TRUE(Info->GetFlags() == TSRVST3ClassFlags{TSRVST3ClassFlag::vst3cfDistributable});
    EXPECT_EQ(Info->GetCardinality(), kManyInstances);
    EXPECT_NE(dynamic_cast<const TSRVST3ProcessorInfo2*>(Info.get()), nullptr);
  }
  EXPECT_EQ(Classes.GetItem(1)->GetCategory(), kVstComponentControllerClass);
  // Entries are read once and kept.
  const size_t Reads = Probe.Count("Factory.getClassInfo2 2");
  EXPECT_EQ(Classes.GetItem(2), Classes.GetItem(2));
  EXPECT_EQ(Probe.Count("Factory.getClassInfo2 2"), Reads);
  EXPECT_THROW(Classes.GetItem(4), EWBException);
  EXPECT_THROW(Classes.GetItem(-1), EWBException);

  Host.GetProcessor().SetName(T3::kAloneName);
  EXPECT_EQ(Host.GetProcessor().GetID(), T3::kAloneCID);
  Host.GetProcessor().SetClassInfo(Host.GetClassInfos().GetItem(2));
  EXPECT_EQ(Host.GetProcessor().GetID(), T3::kSingleCID);
  Host.GetProcessor().SetID(T3::kEffectCID);
  EXPECT_EQ(Host.GetProcessor().GetName(), T3::kEffectName);
  EXPECT_TRUE(Host.GetProcessor().GetAvailable());
  // Choosing while open closes and opens again with the new class.
  ASSERT_TRUE(Host.Open());
  Probe.Reset();
  Host.GetProcessor().SetName(T3::kAloneName);
  EXPECT_TRUE(Host.GetIntOpened());
  EXPECT_EQ(Probe.Count("Effect.terminate"), 1u);
  EXPECT_EQ(Probe.Count("Factory.createInstance Alone IComponent"), 1u);
  // A name no class has leaves no class: the host then does not open, silently.
  Host.GetProcessor().SetName("No such class");
  EXPECT_FALSE(Host.GetProcessor().GetAvailable());
  EXPECT_FALSE(Host.GetIntOpened());
  EXPECT_FALSE(Host.Open());
  EXPECT_EQ(Probe.LiveObjects(), 0);

  // The first stage answers false once the second has made the host context.
  Probe.Reset();
  Host.GetProcessor().SetName(T3::kEffectName);
  EXPECT_TRUE(Host.IntOpenNoID());
  EXPECT_TRUE(Host.IntOpenID());
  EXPECT_TRUE(Host.GetComponentCreated());
  EXPECT_FALSE(Host.GetActive());
  EXPECT_FALSE(Host.IntOpenNoID());
  EXPECT_EQ(Probe.Count("Entry"), Probe.Count("Exit") + 1);  // one entry per load
  Host.Close();
  EXPECT_EQ(Probe.LiveObjects(), 0);
  EXPECT_EQ(Probe.HostReferences(), 0);
}

TEST(Srvst3host, ControllerFoundInTheComponentOrNowhere) {
  TModuleProbe Probe(QV_TESTVST3_MAIN);
  TErrorLog Log;
  TSRVST3Host Host;
  Log.Attach(Host);
  Host.SetFileName(QV_TESTVST3_MAIN);

  // A component that is its own controller: no second instance, no
  // controller class asked for; the one object is connected to itself.
  Host.GetProcessor().SetID(T3::kSingleCID);
  Probe.Reset();
  ASSERT_TRUE(Host.Open());
  EXPECT_EQ(Probe.Count("Factory.createInstance Single IComponent"), 1u);
  EXPECT_EQ(Probe.Count("Factory.createInstance Single IEditController"), 0u);
  EXPECT_EQ(Probe.Count("Single.initialize"), 1u);
  EXPECT_EQ(Probe.Count("Single.getControllerClassId"), 0u);
  EXPECT_EQ(Probe.Count("Single.setComponentHandler set"), 1u);
  EXPECT_EQ(Probe.Count("Single.setComponentState read=0"), 1u);
  EXPECT_NE(Host.GetController(), nullptr);
  EXPECT_EQ(Probe.LiveObjects(), 3);  // the object, its view and the factory
  Host.Close();
  EXPECT_EQ(Probe.Count("Single.terminate"), 2u);  // as controller, then as component
  EXPECT_EQ(Probe.LiveObjects(), 0);
  EXPECT_EQ(Probe.HostReferences(), 0);

  // A component that names the null controller: opened without controller.
  Host.GetProcessor().SetID(T3::kAloneCID);
  Probe.Reset();
  ASSERT_TRUE(Host.Open());
  EXPECT_EQ(Host.GetController(), nullptr);
  EXPECT_FALSE(Host.GetConnected());
  EXPECT_EQ(Probe.Count("Alone.getControllerClassId"), 1u);
  EXPECT_EQ(Probe.Count("Alone.getState wrote=8"), 0u);  // no controller to hand it to
  EXPECT_EQ(Host.GetParameterCount(), 0);
  Host.Close();
  EXPECT_EQ(Probe.LiveObjects(), 0);
  EXPECT_TRUE(Log.Errors.empty());
}

TEST(Srvst3host, FirstClassIsChosenWhateverItsCategory) {
  TModuleProbe Probe(QV_TESTVST3_CONTROLLERFIRST);
  TErrorLog Log;
  TSRVST3Host Host;
  Log.Attach(Host);
  Host.SetFileName(QV_TESTVST3_CONTROLLERFIRST);
  EXPECT_EQ(Host.GetProcessor().GetID(), T3::kControllerCID);
  // The controller is no component: creating it as one fails, reported.
  EXPECT_FALSE(Host.Open());
  ASSERT_EQ(Log.Errors.size(), 1u);
  EXPECT_EQ(Log.Errors[0].first, "Can't get processor. - No Interface");
  EXPECT_EQ(Log.Errors[0].second, Platform::kVst3NoInterface);
  Host.Close();
  EXPECT_EQ(Probe.LiveObjects(), 0);
}

TEST(Srvst3host, PlainFactoryGivesPlainClassInformation) {
  TModuleProbe Probe(QV_TESTVST3_NOFACTORY2);
  TSRVST3Host Host;
  Host.SetFileName(QV_TESTVST3_NOFACTORY2);
  ASSERT_EQ(Host.GetClassInfos().GetCount(), 4);
  TSRVST3ClassInfoRef Info = Host.GetClassInfos().GetItem(0);
  ASSERT_TRUE(Info);
  EXPECT_EQ(Info->GetName(), T3::kEffectName);
  EXPECT_EQ(Info->GetVendor(), "");
  EXPECT_EQ(Info->GetVersion(), "");
  EXPECT_EQ(Info->GetSdkVersion(), "");
  EXPECT_TRUE(Info->GetFlags().Empty());
  EXPECT_EQ(dynamic_cast<const TSRVST3ProcessorInfo2*>(Info.get()), nullptr);
  EXPECT_GE(Probe.Count("Factory.getClassInfo 0"), 1u);
  EXPECT_EQ(Probe.Count("Factory.getClassInfo2 0"), 0u);
  EXPECT_TRUE(Host.Open());
  Host.Close();
  EXPECT_EQ(Probe.LiveObjects(), 0);

  // The plain record's failure has its own text.
  TErrorLog Log;
  Log.Attach(Host);
  Probe.Options("fail=classInfo,result=0x80070057");
  EXPECT_EQ(Host.GetClassInfos().GetCount(), 4);
  EXPECT_FALSE(Host.GetClassInfos().GetItem(3));
  ASSERT_EQ(Log.Errors.size(), 1u);
  EXPECT_EQ(Log.Errors[0].first, "Can't get class information. - Invalid Argument");
  EXPECT_EQ(Log.Errors[0].second, Platform::kVst3InvalidArgument);
  Host.Close();
  Probe.Reset();
}

TEST(Srvst3host, ModuleLevelFailures) {
  TErrorLog Log;
  TSRVST3Host Host;
  Log.Attach(Host);
  // No file name: false, nothing reported.
  EXPECT_FALSE(Host.Open());
  EXPECT_FALSE(Host.IntOpenNoID());
  EXPECT_TRUE(Log.Errors.empty());

  // A missing file, reported with code -1.
  const std::string Missing = std::string(QV_TESTVST3_DIR) + "/Missing.vst3";
  EXPECT_FALSE(Host.LoadPlugIn(Missing));
  ASSERT_EQ(Log.Errors.size(), 1u);
  EXPECT_EQ(Log.Errors[0].first, "File " + Missing + " does not exist.");
  EXPECT_EQ(Log.Errors[0].second, -1);
  // A bundle folder without this system's binary names the binary it lacks.
  Log.Errors.clear();
  const std::string Bundle = std::string(QV_TESTVST3_DIR) + "/QvTest3.vst3/Contents";
  EXPECT_FALSE(Host.LoadPlugIn(Bundle));
  ASSERT_EQ(Log.Errors.size(), 1u);
  EXPECT_NE(Log.Errors[0].first.find("does not exist."), std::string::npos);

  // An entry function that refuses.
  {
    TModuleProbe Probe(QV_TESTVST3_FAILENTRY);
    Log.Errors.clear();
    Host.SetFileName(QV_TESTVST3_FAILENTRY);
    // Listing the classes enters the module once; with no class chosen before,
    // choosing none again changes nothing and does not enter it a second time.
    ASSERT_EQ(Log.Errors.size(), 1u);
    EXPECT_EQ(Log.Errors[0].first, "Can't initialize plugin internally.");
    EXPECT_EQ(Log.Errors[0].second, -1);
    EXPECT_EQ(Probe.Count("Entry"), 1u);
    EXPECT_FALSE(Host.GetProcessor().GetAvailable());
    EXPECT_EQ(Host.GetProcessor().GetClassInfo(), nullptr);
    EXPECT_FALSE(Host.Open());
    Host.Close();
    EXPECT_EQ(Probe.Count("GetPluginFactory"), 0u);
  }
  // Unhandled, the report is raised with the code in decimal and hexadecimal.
  {
    TSRVST3Host Raising;
    try {
      Raising.SetFileName(QV_TESTVST3_FAILENTRY);
      ADD_FAILURE() << "no exception";
    } catch (const EWBException& E) {
      EXPECT_STREQ(E.what(), "Can't initialize plugin internally. - 4294967295 - FFFFFFFF");
    }
  }
  // Without an entry function the module opens all the same.
  {
    TModuleProbe Probe(QV_TESTVST3_NOENTRY);
    Log.Errors.clear();
    Host.SetFileName(QV_TESTVST3_NOENTRY);
    EXPECT_TRUE(Host.Open());
    EXPECT_EQ(Probe.Count("Entry"), 0u);
    Host.Close();
    EXPECT_EQ(Probe.LiveObjects(), 0);
    EXPECT_TRUE(Log.Errors.empty());
  }
  // Without GetPluginFactory: false, silently.
  {
    Log.Errors.clear();
    Host.SetFileName(QV_TESTVST3_NOFACTORY);
    EXPECT_FALSE(Host.IntOpenNoID());
    EXPECT_FALSE(Host.Open());
    EXPECT_EQ(Host.GetClassInfos().GetCount(), 0);
    EXPECT_THROW(Host.GetClassInfos().GetItem(0), EWBException);
    EXPECT_TRUE(Log.Errors.empty());
    Host.Close();
  }
}

namespace {

struct TFailureCase {
  const char* Knob;
  std::string Message;
};

}  // namespace

TEST(Srvst3host, EveryFailingStepIsReportedAndUndone) {
  char ControllerText[160];
  std::snprintf(ControllerText, sizeof ControllerText, "Can't create VST3 edit controller.\r\nEditor class ID: %s",
                VST3UIDToString(T3::kControllerCID).c_str());
  const TFailureCase Cases[] = {
      {"fail=factoryInfo", "Can't get VST3 factory information."},
      {"fail=createInstance", "Can't get processor."},
      {"fail=initialize", "Can't create VST3 processor component."},
      {"fail=controllerInitialize", ControllerText},
      {"fail=audioProcessor", "Can't get VST3 audio processor (effect)."},
      {"fail=setupProcessing", "Can't setup processing."},
      {"fail=setActive", "Can't activate VST3 audio processor (effect)."},
  };
  TModuleProbe Probe(QV_TESTVST3_MAIN);
  for (const auto& Case : Cases) {
    SCOPED_TRACE(Case.Knob);
    Probe.Reset();
    TErrorLog Log;
    TSRVST3Host Host;
    Host.SetFileName(QV_TESTVST3_MAIN);
    Log.Attach(Host);
    Probe.Options(Case.Knob);
    EXPECT_FALSE(Host.Open());
    ASSERT_EQ(Log.Errors.size(), 1u);
    // A missing audio processor is the query's failure; the rest answer the knob's result.
    const bool NoProcessor = std::string(Case.Knob) == "fail=audioProcessor";
    EXPECT_EQ(Log.Errors[0].first, Case.Message + (NoProcessor ? " - No Interface" : " - Internal Error"));
    EXPECT_EQ(Log.Errors[0].second, NoProcessor ? Platform::kVst3NoInterface : Platform::kVst3InternalError);
    EXPECT_FALSE(Host.GetIntOpened());
    Host.Close();
    // A component created but never activated is released without terminate.
    EXPECT_EQ(Probe.Count("Effect.terminate"), 0u);
    EXPECT_EQ(Probe.Count("Effect.setActive 0"), 0u);
    EXPECT_EQ(Probe.Count("Entry"), Probe.Count("Exit"));
    EXPECT_EQ(Probe.LiveObjects(), 0);
    EXPECT_EQ(Probe.HostReferences(), 0);
  }
  Probe.Reset();
}

TEST(Srvst3host, CheckNamesEachResult) {
  const std::pair<const char*, std::string> Results[] = {
      {"0x80004002", "No Interface"},    {"0x80070057", "Invalid Argument"},
      {"0x80004001", "Not Implemented"}, {"0x80004005", "Internal Error"},
      {"0x8000FFFF", "Not Initialized"}, {"0x8007000E", "Out Of Memory"},
      {"0x1", "An unknown error has occured."}, {"0x12345", "An unknown error has occured."}};
  TModuleProbe Probe(QV_TESTVST3_MAIN);
  for (const auto& [Code, Name] : Results) {
    SCOPED_TRACE(Code);
    const auto Value = static_cast<int32_t>(std::stoul(Code, nullptr, 16));
    {
      TErrorLog Log;
      TSRVST3Host Host;
      Host.SetFileName(QV_TESTVST3_MAIN);
      Log.Attach(Host);
      Probe.Reset();
      Probe.Options(std::string("fail=setupProcessing,result=") + Code);
      EXPECT_FALSE(Host.Open());
      ASSERT_EQ(Log.Errors.size(), 1u);
      EXPECT_EQ(Log.Errors[0].first, "Can't setup processing. - " + Name);
      EXPECT_EQ(Log.Errors[0].second, Value);
    }
    {
      TSRVST3Host Host;
      Host.SetFileName(QV_TESTVST3_MAIN);
      Probe.Reset();
      Probe.Options(std::string("fail=setupProcessing,result=") + Code);
      char Expected[200];
      std::snprintf(Expected, sizeof Expected, "Can't setup processing. - %s - %u - %X", Name.c_str(),
                    static_cast<unsigned>(Value), static_cast<unsigned>(Value));
      try {
        Host.Open();
        ADD_FAILURE() << "no exception";
      } catch (const EWBException& E) {
        EXPECT_STREQ(E.what(), Expected);
      }
    }
    EXPECT_EQ(Probe.LiveObjects(), 0);
  }
  // Designing: reported, never raised.
  TSRVST3Host Host;
  Host.SetDesigning(true);
  EXPECT_FALSE(Host.Check(Platform::Vst3ResultToModule(Platform::kVst3OutOfMemory), "Text"));
  EXPECT_TRUE(Host.Check(0, "Text"));
  Probe.Reset();
}

TEST(Srvst3host, ClassListFailuresLeaveTheSlotEmpty) {
  TModuleProbe Probe(QV_TESTVST3_MAIN);
  TErrorLog Log;
  TSRVST3Host Host;
  Log.Attach(Host);
  Probe.Options("fail=classInfo");
  Host.SetFileName(QV_TESTVST3_MAIN);
  ASSERT_FALSE(Log.Errors.empty());
  EXPECT_EQ(Log.Errors[0].first, "Can't get extended class information. - Internal Error");
  EXPECT_FALSE(Host.GetProcessor().GetAvailable());
  Probe.Reset();
  // Once the factory answers, the same list fills the slot.
  EXPECT_EQ(Host.GetClassInfos().GetCount(), 4);
  EXPECT_TRUE(Host.GetClassInfos().GetItem(0));
  Host.Close();
  EXPECT_EQ(Probe.LiveObjects(), 0);
}

TEST(Srvst3host, ChosenClassIsStoredWithTheComponent) {
  TModuleProbe Probe(QV_TESTVST3_MAIN);
  TSRVST3Host Host;
  Host.SetFileName(QV_TESTVST3_MAIN);
  Host.GetProcessor().SetID(T3::kSingleCID);
  TWBFiler Filer;
  ASSERT_TRUE(Host.GetClassInfo().DefineProperties);
  Host.GetClassInfo().DefineProperties(&Host, Filer);
  ASSERT_EQ(Filer.Defined().size(), 1u);
  EXPECT_EQ(Filer.Defined()[0].Name, "Processor");
  EXPECT_TRUE(Filer.Defined()[0].HasData);
  TWBWriter W;
  Filer.Defined()[0].Writer(W);
  const TWBValue Stored = W.Result();

  TSRVST3Host Other;
  Other.SetFileName(QV_TESTVST3_MAIN);
  EXPECT_EQ(Other.GetProcessor().GetID(), T3::kEffectCID);
  TWBFiler OtherFiler;
  Other.GetClassInfo().DefineProperties(&Other, OtherFiler);
  TWBReader R(Stored);
  OtherFiler.Defined()[0].Reader(R);
  EXPECT_EQ(Other.GetProcessor().GetID(), T3::kSingleCID);
  EXPECT_EQ(Other.GetProcessor().GetName(), T3::kSingleName);
}

TEST(Srvst3host, ProcessSetupFollowsTheComponentsSettings) {
  TModuleProbe Probe(QV_TESTVST3_MAIN);
  TSRVST3Host Host;
  Host.SetSampleSize(TSRVST3SampleSize::vst3ss64);
  Host.SetBufferSize(512);
  Host.SetSampleRate(48000.75);  // handed over as a whole number of samples per second
  Host.SetFileName(QV_TESTVST3_MAIN);
  Probe.Reset();
  ASSERT_TRUE(Host.Open());
  EXPECT_EQ(Probe.Count("Effect.setupProcessing mode=0 size=1 block=512 rate=48000"), 1u);
  EXPECT_TRUE(Host.GetDoublePrecision());
  Host.Close();
  Host.SetSampleSize(TSRVST3SampleSize::vst3ss32);
  ASSERT_TRUE(Host.Open());
  EXPECT_FALSE(Host.GetDoublePrecision());
  EXPECT_EQ(Probe.Count("Effect.setupProcessing mode=0 size=0 block=512 rate=48000"), 1u);
}

TEST(Srvst3host, HostileFactoryAnswersFailSilently) {
  TModuleProbe Probe(QV_TESTVST3_MAIN);
  TErrorLog Log;
  TSRVST3Host Host;
  Log.Attach(Host);
  Host.SetFileName(QV_TESTVST3_MAIN);
  // A negative class count is an empty list.
  Probe.Options("fail=countClasses");
  Host.Close();
  EXPECT_EQ(Host.GetClassInfos().GetCount(), 0);
  EXPECT_THROW(Host.GetClassInfos().GetItem(0), EWBException);
  Host.Close();
  Probe.Reset();
  // A factory that answers success and no object.
  Probe.Options("fail=nullInstance");
  EXPECT_FALSE(Host.Open());
  EXPECT_FALSE(Host.GetComponentCreated());
  Host.Close();
  Probe.Reset();
  // A component that cannot name its controller opens without one.
  Probe.Options("fail=getControllerClassId");
  ASSERT_TRUE(Host.Open());
  EXPECT_EQ(Host.GetController(), nullptr);
  EXPECT_EQ(Probe.Count("Factory.createInstance Controller IEditController"), 0u);
  Host.Close();
  EXPECT_TRUE(Log.Errors.empty());
  EXPECT_EQ(Probe.LiveObjects(), 0);
  EXPECT_EQ(Probe.HostReferences(), 0);
  Probe.Reset();
}
