# quorvel process and asio run with the VST 3 test module, alone and in
# chains with the VST 2 test plug-in. The module's gain comes from its knob
# variable. Included by CMakeLists.txt, whose quorvel_cli_test, drive, dir,
# plugins, suffix and asio_driver it uses.
set(vst3_module ${drive}${CMAKE_BINARY_DIR}/testplugins/vst3/QvTest3.vst3)

# At unity the demo's -8.0 dBFS tone comes back as it went; at half gain
# 6 dB lower, in 32 or 64 bits; bypassed it passes unchanged.
quorvel_cli_test(process_vst3 0
  "QvTest3\\.vst3: Quorvel Test Effect, 44100 Hz, 16 bits, 2 channels -> 2 in / 2 out.*processed 88320 frames \\(2\\.00 s\\) in blocks of 128\r?\n.*Stereo Out 1\\): peak -8\\.0 dBFS.*Stereo Out 2\\): peak -8\\.0 dBFS.*written"
  process ${vst3_module} -i ${dir}/cli-demo.wav -o ${dir}/cli-vst3.wav -b 128 -q)
quorvel_cli_test(process_vst3_half_64 0 "blocks of 256, 64-bit.*Stereo Out 1\\): peak -14\\.0 dBFS.*written"
  process ${vst3_module} -i ${dir}/cli-demo.wav -o ${dir}/cli-vst3-half.wav -p 64 -q)
quorvel_cli_test(process_vst3_bypass 0 "blocks of 256, bypassed.*Stereo Out 1\\): peak -8\\.0 dBFS.*written"
  process ${vst3_module} -i ${dir}/cli-demo.wav -o ${dir}/cli-vst3-bypass.wav --bypass -q)
quorvel_cli_test(process_vst3_settings 1 "programs, presets and parameters are not set in VST 3 modules"
  process ${vst3_module} -i ${dir}/cli-demo.wav -o ${dir}/x.wav -P 1)
quorvel_cli_test(process_vst3_missing 1 "plug-in .*NoSuch\\.vst3 does not exist"
  process ${drive}${CMAKE_BINARY_DIR}/testplugins/vst3/NoSuch.vst3 -i ${dir}/cli-demo.wav -o ${dir}/x.wav)
set_tests_properties(cli_process_vst3 cli_process_vst3_half_64 cli_process_vst3_bypass cli_process_vst3_settings
                     cli_process_vst3_missing PROPERTIES FIXTURES_REQUIRED cli_demo_wav)
set_tests_properties(cli_process_vst3_half_64 cli_process_vst3_bypass PROPERTIES ENVIRONMENT "QVTEST_VST3_OPTIONS=gain=0.5")

# VST 2 and VST 3 in one ASIO chain, in the order given.
quorvel_cli_test(asio_run_vst2_vst3 0
  "chain: 2 inputs -> Quorvel Test Plug-in \\(2 in / 2 out\\) -> Quorvel Test Effect \\(2 in / 2 out\\) -> 2 outputs.*Analog Out 1\\): peak -0\\.[0-9] dBFS.*Analog Out 2\\): peak -0\\.[0-9] dBFS"
  asio run ${asio_driver} -s 0.5 -q -p ${plugins}/qvtestvst2${suffix} -p ${vst3_module})
quorvel_cli_test(asio_run_vst3_vst2 0
  "chain: 2 inputs -> Quorvel Test Effect \\(2 in / 2 out\\) -> Quorvel Test Plug-in \\(2 in / 2 out\\) -> 2 outputs.*Analog Out 2\\): peak -0\\.[0-9] dBFS"
  asio run ${asio_driver} -s 0.5 -q -p ${vst3_module} -p ${plugins}/qvtestvst2${suffix})
if(WIN32)
  set_tests_properties(cli_asio_run_vst2_vst3 cli_asio_run_vst3_vst2 PROPERTIES FIXTURES_REQUIRED qvtestasio_registered)
endif()
