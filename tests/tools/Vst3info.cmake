# quorvel info on the VST 3 test modules: the bundle everywhere, and on
# Windows the flat DLL too. Listings are checked on their stable parts; every
# failure must be one line and status 1. Included by CMakeLists.txt, whose
# quorvel_cli_test, drive and dir it uses.
set(vst3 ${drive}${CMAKE_BINARY_DIR}/testplugins/vst3)
set(nl "\r?\n")
# The first Windows program run in a new build tree may add the Wine
# wrapper's lines about making its prefix (stderr, after stdout).
set(wine "(wine-run: [^\r\n]*${nl})*")
set(effect_line "  0  Quorvel Test Effect  {51764533-4546-4601-8A11-C0DE00000001}${nl}")
set(controller_id "{51764533-4354-4C02-8A11-C0DE00000002}")
set(vst3_listing
  "vendor: +Quorvel${nl}url: +https://quorvel.invalid/test${nl}e-mail: +test@quorvel.invalid${nl}flags: +ClassesDiscardable ComponentNonDiscardable Unicode${nl}classes: +4${nl}"
  "${effect_line} +category: +Audio Module Class \\(Fx\\|Test\\)${nl} +cardinality: +many instances${nl} +flags: +Distributable${nl} +vendor: +Quorvel${nl} +version: +1\\.2\\.3${nl} +SDK version: +VST 3\\.7\\.0${nl}"
  "  1  Quorvel Test Controller  ${controller_id}${nl} +category: +Component Controller Class.*  2  Quorvel Test Single .*  3  Quorvel Test Alone .*"
  "chosen: +0  Quorvel Test Effect  {51764533-4546-4601-8A11-C0DE00000001}${nl}controller: +a separate object, class 1  Quorvel Test Controller  ${controller_id}, connected${nl}"
  "buses: +audio in 1, audio out 1, event in 0, event out 0${nl} +audio in +0  Stereo In +2 channels  main default-active${nl} +audio out +0  Stereo Out +2 channels  main default-active${nl}"
  "parameters: +2${nl} +id +title +short +units +steps +default +value +display +flags${nl}"
  " +100 +Gain +Gn +dB +continuous +0\\.5000 +0\\.5000 +0\\.00 dB +automatable${nl} +101 +Mode +Md +- +2 steps +0\\.0000 +0\\.0000 +Mode 0 +automatable${nl}${wine}$")
string(JOIN "" vst3_listing ${vst3_listing})

quorvel_cli_test(info_vst3 0
  "^file: +[^\r\n]*QvTest3\\.vst3${nl}library: +[^\r\n]*QvTest3\\.vst3.Contents.x86_64-(linux|win).QvTest3\\.(so|vst3)${nl}${vst3_listing}"
  info ${vst3}/QvTest3.vst3)
if(WIN32)
  quorvel_cli_test(info_vst3_flat 0 "^file: +[^\r\n]*QvTest3Flat\\.vst3${nl}library: +[^\r\n]*QvTest3Flat\\.vst3${nl}${vst3_listing}"
    info ${vst3}/QvTest3Flat.vst3)
endif()
# A factory without extended class records: vendor and versions are unknown.
quorvel_cli_test(info_vst3_plain 0
  "${effect_line} +category: +Audio Module Class${nl} +cardinality: +many instances${nl} +flags: +\\(none\\)${nl} +vendor: +-${nl} +version: +-${nl} +SDK version: +-${nl}"
  info ${vst3}/QvTest3NoFactory2.vst3)
# The host takes the first class whatever its category: a module listing its
# controller first fails to open it, and -c chooses the effect (by name, or
# by identifier in any case).
quorvel_cli_test(info_vst3_controller_first 1 "^${wine}quorvel: Can't get processor\\. - No Interface${nl}${wine}$"
  info ${vst3}/QvTest3ControllerFirst.vst3)
quorvel_cli_test(info_vst3_choose_name 0
  "chosen: +1  Quorvel Test Effect .*controller: +a separate object, class 0  Quorvel Test Controller .*parameters: +2"
  info ${vst3}/QvTest3ControllerFirst.vst3 -c "Quorvel Test Effect")
quorvel_cli_test(info_vst3_choose_id 0
  "chosen: +2  Quorvel Test Single .*controller: +the component itself${nl}.*parameters: +2${nl}"
  info -c {51764533-5347-4c03-8a11-c0de00000003} ${vst3}/QvTest3.vst3)
quorvel_cli_test(info_vst3_unknown_class 1 "^${wine}quorvel: [^\r\n]*QvTest3\\.vst3 has no class named Nothing [^\r\n]*${nl}${wine}$"
  info ${vst3}/QvTest3.vst3 -c Nothing)

# Failures: the host's message (or, where the host is silent, the command's), one line.
file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/Empty.vst3)
quorvel_cli_test(info_vst3_not_a_module 1
  "^${wine}quorvel: File [^\r\n]*Empty\\.vst3.Contents.x86_64-(linux|win).Empty\\.(so|vst3) does not exist\\.${nl}${wine}$"
  info ${dir}/Empty.vst3)
quorvel_cli_test(info_vst3_no_factory 1 "^${wine}quorvel: [^\r\n]*QvTest3NoFactory\\.vst3 is not a VST 3 module [^\r\n]*${nl}${wine}$"
  info ${vst3}/QvTest3NoFactory.vst3)
quorvel_cli_test(info_vst3_failing_entry 1 "^${wine}quorvel: Can't initialize plugin internally\\.${nl}${wine}$"
  info ${vst3}/QvTest3FailEntry.vst3)
quorvel_cli_test(info_vst3_failing_setup 1 "^${wine}quorvel: Can't setup processing\\. - Internal Error${nl}${wine}$"
  info ${vst3}/QvTest3.vst3)
# The controller's message breaks its line; the command joins it.
quorvel_cli_test(info_vst3_failing_controller 1
  "^${wine}quorvel: Can't create VST3 edit controller\\. Editor class ID: ${controller_id} - Not Implemented${nl}${wine}$"
  info ${vst3}/QvTest3.vst3)
set_tests_properties(cli_info_vst3_failing_setup PROPERTIES ENVIRONMENT "QVTEST_VST3_OPTIONS=fail=setupProcessing")
set_tests_properties(cli_info_vst3_failing_controller PROPERTIES
  ENVIRONMENT "QVTEST_VST3_OPTIONS=fail=controllerInitialize,result=80004001")
