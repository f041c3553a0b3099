// Arbitrary bytes as a pcap or pcapng file, gzip-compressed or not, read through the capture host's
// reader, every frame decoded by the decoder of the file's link type.
// libpcap must reject what it cannot read, and the reader must end.
#include <cstdio>
#include <cstdlib>

#include "cli/capture_source.h"
#include "engine/frame_decoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  std::FILE* stream = fmemopen(const_cast<uint8_t*>(data), size, "rb");
  if (!stream) return 0;
  std::string error;
  auto source = zemo::cli::CaptureSource::OpenStream(stream, "fuzz input", &error);
  if (!source) {
    if (error.empty()) std::abort();
    return 0;
  }
  static auto packet = zemo::Packet::Create();
  zemo::FrameDecoder decoder(static_cast<uint32_t>(source->LinkType()));
  zemo::cli::CaptureFrame frame{};
  // Each frame takes at least a record header of the input: a bound on the loop.
  for (size_t frames = 0; frames <= size; ++frames) {
    zemo::cli::ReadResult r = source->Next(&frame);
    if (r != zemo::cli::ReadResult::kFrame) {
      if (r == zemo::cli::ReadResult::kError && source->Error().empty()) std::abort();
      return 0;
    }
    decoder.Decode(*packet, frame.data, frame.captureLength, frame.wireLength, frame.time);
  }
  std::abort();
}
