#include "frame/block_frame.h"

namespace zemo {

void CheckBlockStream(IStream* ioStream) {
  if (!ioStream) throw std::invalid_argument("null pointer ioStream");
}

BlockWriter::BlockWriter(IStream* ioStream) : m_stream(ioStream) {
  CheckBlockStream(ioStream);
  m_start = StreamPosition(ioStream);
  WriteValue(ioStream, uint64_t{0});
}

void BlockWriter::End() {
  uint64_t end = StreamPosition(m_stream);
  StreamSeekTo(m_stream, m_start);
  WriteValue(m_stream, end - m_start);
  StreamSeekTo(m_stream, end);
}

BlockReader::BlockReader(IStream* ioStream) : m_stream(ioStream) {
  CheckBlockStream(ioStream);
  m_start = StreamPosition(ioStream);
  m_length = ReadValue<uint64_t>(ioStream);
}

void BlockReader::End() {
  int64_t end = static_cast<int64_t>(m_start + m_length);
  if (end < 0) return;
  StreamSeekTo(m_stream, static_cast<uint64_t>(end));
}

void WriteSyncTag(IStream* ioStream, uint32_t nTag) {
  CheckBlockStream(ioStream);
  WriteValue(ioStream, nTag);
}

void ReadSyncTag(IStream* ioStream, uint32_t inSyncTag) {
  CheckBlockStream(ioStream);
  uint32_t nTag = ReadValue<uint32_t>(ioStream);
  if (!(inSyncTag == nTag)) throw std::runtime_error("!( inSyncTag == nTag )");
}

void ThrowBelowRange() { throw std::out_of_range("inVal < static_cast< T >( inMin )"); }
void ThrowAboveRange() { throw std::out_of_range("static_cast< T >( inMax ) < inVal"); }

}  // namespace zemo
