# quorvel preset save|load on the VST 3 test module. A saved file is checked
# byte by byte where its layout is fixed; loading any file ends with the
# host's load message and status 1. Included by CMakeLists.txt after
# Vst3info.cmake, whose vst3, nl and wine it uses.
set(meta ${CMAKE_CURRENT_BINARY_DIR}/cli-meta.xml)
file(WRITE ${meta} "<MetaInfo/>")
quorvel_cli_test(preset_vst3_save 0
  "^saved the state of Quorvel Test Effect as a VST 3 preset \\(chunks Comp Cont, 124 bytes\\)${nl}written: [^\r\n]*cli-effect\\.vstpreset${nl}${wine}$"
  preset save ${vst3}/QvTest3.vst3 ${dir}/cli-effect.vstpreset)
set_tests_properties(cli_preset_vst3_save PROPERTIES FIXTURES_SETUP cli_vst3_preset)
# Header, list position at byte 41 and the list: 49 + 8 + 16 bytes before it.
add_test(NAME cli_preset_vst3_layout
  COMMAND ${CMAKE_COMMAND} -DFILE=${CMAKE_CURRENT_BINARY_DIR}/cli-effect.vstpreset -DLIST=73 -DCHUNKS=Comp,Cont
          -P ${CMAKE_CURRENT_SOURCE_DIR}/Vst3presetlayout.cmake)
set_tests_properties(cli_preset_vst3_layout PROPERTIES LABELS cli FIXTURES_REQUIRED cli_vst3_preset)
quorvel_cli_test(preset_vst3_load 1 "^${wine}quorvel: Can't load VST3 preset file\\. - An unknown error has occured\\.${nl}${wine}$"
  preset load ${vst3}/QvTest3.vst3 ${dir}/cli-effect.vstpreset)
set_tests_properties(cli_preset_vst3_load PROPERTIES FIXTURES_REQUIRED cli_vst3_preset)
# No controller, XML given: "Comp" and "Info"; 49 + 8 + 11 bytes before the list.
quorvel_cli_test(preset_vst3_save_info 0
  "^saved the state of Quorvel Test Alone as a VST 3 preset \\(chunks Comp Info, 119 bytes\\)${nl}written: "
  preset save ${vst3}/QvTest3.vst3 ${dir}/cli-alone.vstpreset -c "Quorvel Test Alone" --info ${drive}${meta})
set_tests_properties(cli_preset_vst3_save_info PROPERTIES FIXTURES_SETUP cli_vst3_preset_info)
add_test(NAME cli_preset_vst3_layout_info
  COMMAND ${CMAKE_COMMAND} -DFILE=${CMAKE_CURRENT_BINARY_DIR}/cli-alone.vstpreset -DLIST=68 -DCHUNKS=Comp,Info
          -P ${CMAKE_CURRENT_SOURCE_DIR}/Vst3presetlayout.cmake)
set_tests_properties(cli_preset_vst3_layout_info PROPERTIES LABELS cli FIXTURES_REQUIRED cli_vst3_preset_info)
# Failures: one line and status 1.
quorvel_cli_test(preset_vst3_save_failing 1 "^${wine}quorvel: Can't save VST3 preset file\\. - An unknown error has occured\\.${nl}${wine}$"
  preset save ${vst3}/QvTest3.vst3 ${dir}/cli-failed.vstpreset)
set_tests_properties(cli_preset_vst3_save_failing PROPERTIES ENVIRONMENT "QVTEST_VST3_OPTIONS=fail=getState")
quorvel_cli_test(preset_vst3_load_missing 1 "^${wine}quorvel: preset [^\r\n]*cli-missing\\.vstpreset does not exist${nl}${wine}$"
  preset load ${vst3}/QvTest3.vst3 ${dir}/cli-missing.vstpreset)
