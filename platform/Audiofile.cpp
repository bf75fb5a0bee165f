#include "platform/Audiofile.h"

namespace Quorvel::Platform {

bool CheckWriterInfo(const TAudioFileInfo& Info, std::string& ErrorText) {
  if (Info.Bits != 8 && Info.Bits != 16 && Info.Bits != 24 && Info.Bits != 32) {
    ErrorText = "unsupported bit depth " + std::to_string(Info.Bits) + " (8, 16, 24 or 32 expected)";
    return false;
  }
  if (Info.Channels == 0) {
    ErrorText = "an audio file needs at least one channel";
    return false;
  }
  if (Info.Channels > 65535) {
    ErrorText = std::to_string(Info.Channels) + " channels: a WAV file holds at most 65535";
    return false;
  }
  if (Info.Float && Info.Bits != 32) {
    ErrorText = "floating-point files are written from 32-bit float samples";
    return false;
  }
  if (Info.SampleRate == 0 || Info.SampleRate > 0x7FFFFFFFu) {
    ErrorText = "invalid sample rate " + std::to_string(Info.SampleRate);
    return false;
  }
  return true;
}

}  // namespace Quorvel::Platform
