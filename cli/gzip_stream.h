// A stdio stream that reads another one through gzip when it is compressed,
// and as it is when it is not, for capture files that tshark and capinfos
// read either way.
#pragma once

#include <cstdio>

namespace zemo::cli {

struct GzipStream {
  std::FILE* stream = nullptr;  // reads the content; closing it closes the input too
  bool compressed = false;
  bool empty = false;           // the input held no byte: no stream is made
};

// Takes ownership of input whatever happens. A stream of a gzip file ends
// with a read error where the compressed data is damaged or cut short.
GzipStream OpenGzipStream(std::FILE* input);

// Whether the bytes begin as a gzip file does.
bool IsGzipStart(const unsigned char* bytes, size_t size);

}  // namespace zemo::cli
