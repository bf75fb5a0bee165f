// A VST 3 module as one stage of the command-line host's chains, whose
// components have one pin per channel: the channels join into the module's
// main input bus, and its main output bus splits into channels again.
#pragma once

#include <string>

#include "frame/Srchannelcomponents.h"
#include "tools/Quorvelcli.h"
#include "vst3/Srvst3host.h"

namespace Quorvel::Cli {

// Whether Path names a VST 3 module (a file or bundle folder ending in ".vst3").
bool IsVst3Path(std::string Path);

struct TVst3Stage {
  TSRChannelJoiner Joiner{nullptr, 1};
  TSRVST3Host Host;
  TSRChannelSplitter Splitter{nullptr, 1};
  size_t Inputs = 0, Outputs = 0;  // channels of the main buses
  std::string Name;                // the class chosen

  TSRPWQueuedAudioSinkPin* GetInputPin(size_t Index) { return Joiner.GetInputPin(Index); }
  TSRPWAudioSourcePin* GetOutputPin(size_t Index) { return Splitter.GetOutputPin(Index); }
  // "<class> (N in / M out)"
  std::string Describe() const;
};

// Opens the module File in Stage (its first audio-effect class) for a stream
// at Rate in blocks of Block frames with 32-bit or 64-bit samples, and wires
// joiner, host and splitter to its main buses. Reports go to Reports; prints
// why and answers false when the module cannot be used.
bool OpenVst3Stage(TVst3Stage& Stage, TReports& Reports, const std::string& File, double Rate, size_t Block,
                   TSRVST3SampleSize Size);

}  // namespace Quorvel::Cli
