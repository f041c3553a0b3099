#include "cli/gzip_stream.h"

#include <zlib.h>

#include <cerrno>
#include <memory>

namespace zemo::cli {
namespace {

struct Reader {
  std::FILE* input;
  bool gzip = false;
  unsigned char start[2] = {};  // the bytes read to tell the form
  size_t startLength = 0, startAt = 0;
  z_stream z{};
  unsigned char buffer[1 << 16];

  ~Reader() {
    if (gzip) inflateEnd(&z);
    std::fclose(input);
  }

  ssize_t Plain(char* out, size_t size) {
    size_t n = 0;
    while (startAt < startLength && n < size) out[n++] = static_cast<char>(start[startAt++]);
    if (n < size) n += std::fread(out + n, 1, size - n, input);
    if (n == 0 && std::ferror(input)) return -1;
    return static_cast<ssize_t>(n);
  }

  ssize_t Inflated(char* out, size_t size) {
    z.next_out = reinterpret_cast<Bytef*>(out);
    z.avail_out = static_cast<uInt>(size < (1u << 30) ? size : (1u << 30));
    const uInt asked = z.avail_out;
    while (z.avail_out > 0) {
      if (z.avail_in == 0) {
        size_t got = std::fread(buffer, 1, sizeof buffer, input);
        if (got == 0) break;  // the end, or a cut: what came so far is the content
        z.next_in = buffer;
        z.avail_in = static_cast<uInt>(got);
      }
      int rc = inflate(&z, Z_NO_FLUSH);
      if (rc == Z_STREAM_END) {
        // Another member may follow, as in a file that was appended to.
        if (z.avail_in == 0) {
          int c = std::fgetc(input);
          if (c == EOF) break;
          std::ungetc(c, input);
        }
        inflateReset(&z);
        continue;
      }
      if (rc != Z_OK) {
        errno = EIO;
        return -1;
      }
    }
    if (z.avail_out == asked && std::ferror(input)) return -1;
    return static_cast<ssize_t>(asked - z.avail_out);
  }
};

ssize_t ReadCookie(void* cookie, char* out, size_t size) {
  auto* r = static_cast<Reader*>(cookie);
  return r->gzip ? r->Inflated(out, size) : r->Plain(out, size);
}

int CloseCookie(void* cookie) {
  delete static_cast<Reader*>(cookie);
  return 0;
}

}  // namespace

bool IsGzipStart(const unsigned char* bytes, size_t size) { return size >= 2 && bytes[0] == 0x1F && bytes[1] == 0x8B; }

GzipStream OpenGzipStream(std::FILE* input) {
  GzipStream out;
  auto reader = std::make_unique<Reader>();
  reader->input = input;
  reader->startLength = std::fread(reader->start, 1, 2, input);
  if (reader->startLength == 0 && !std::ferror(input)) {
    out.empty = true;
    return out;
  }
  if (IsGzipStart(reader->start, reader->startLength)) {
    // 16 + the window: a gzip header and trailer around the deflate data.
    if (inflateInit2(&reader->z, 16 + MAX_WBITS) != Z_OK) return out;
    reader->gzip = true;
    reader->z.next_in = reader->start;
    reader->z.avail_in = static_cast<uInt>(reader->startLength);
    out.compressed = true;
  }
  cookie_io_functions_t io{ReadCookie, nullptr, nullptr, CloseCookie};
  out.stream = fopencookie(reader.get(), "rb", io);
  if (out.stream) reader.release();
  return out;
}

}  // namespace zemo::cli
