#include "frame/text_export.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <vector>

#include "platform/exception.h"
#include "platform/strings.h"

namespace zemo {

std::u16string LowerExtension(std::u16string_view fileName) {
  size_t dot = fileName.find_last_of(u'.');
  size_t slash = fileName.find_last_of(u"/\\");
  if (dot == std::u16string_view::npos || (slash != std::u16string_view::npos && slash > dot)) return {};
  std::u16string ext(fileName.substr(dot));
  for (char16_t& c : ext)
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
  return ext;
}

ExportForm CheckExportExtension(LPCOLESTR fileName, unsigned allowed) {
  if (!fileName) AtlThrow(E_POINTER);
  std::u16string ext = LowerExtension(fileName);
  if ((allowed & kExportTxt) && ext == u".txt") return ExportForm::Txt;
  if ((allowed & kExportHash) && ext == u".hash") return ExportForm::Hash;
  AtlThrow(E_INVALIDARG);
}

TextWriter::TextWriter(int fd) : m_fd(fd), m_buffer(new char[kBufferSize]) {}

void TextWriter::Flush() noexcept {
  const char* p = m_buffer.get();
  size_t left = m_error ? 0 : m_used;
  while (left) {
    ssize_t n = ::write(m_fd, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      m_error = errno ? errno : EIO;
      break;
    }
    p += n;
    left -= static_cast<size_t>(n);
  }
  m_used = 0;
}

char* TextWriter::Reserve(size_t n) noexcept {
  if (m_error) return nullptr;
  if (kBufferSize - m_used < n) Flush();
  return m_error ? nullptr : m_buffer.get() + m_used;
}

void TextWriter::Text(std::string_view text) {
  while (!text.empty() && !m_error) {
    size_t room = kBufferSize - m_used;
    if (room == 0) {
      Flush();
      continue;
    }
    size_t n = std::min(room, text.size());
    std::memcpy(m_buffer.get() + m_used, text.data(), n);
    m_used += n;
    text.remove_prefix(n);
  }
}

void TextWriter::Char(char c) {
  if (char* p = Reserve(1)) {
    *p = c;
    ++m_used;
  }
}

void TextWriter::U64(uint64_t value) {
  if (char* p = Reserve(20)) m_used += static_cast<size_t>(std::to_chars(p, p + 20, value).ptr - p);
}

void TextWriter::Printf(const char* format, ...) {
  if (m_error) return;
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  size_t room = kBufferSize - m_used;
  int n = std::vsnprintf(m_buffer.get() + m_used, room, format, args);
  va_end(args);
  if (n < 0) {
    m_error = EINVAL;  // a format the C library refuses
  } else if (static_cast<size_t>(n) < room) {
    m_used += static_cast<size_t>(n);
  } else if (static_cast<size_t>(n) < kBufferSize) {  // didn't fit behind what is buffered
    Flush();
    if (!m_error) m_used = static_cast<size_t>(std::vsnprintf(m_buffer.get(), kBufferSize, format, again));
  } else {  // longer than the whole buffer
    std::vector<char> line(static_cast<size_t>(n) + 1);
    std::vsnprintf(line.data(), line.size(), format, again);
    Text(std::string_view(line.data(), static_cast<size_t>(n)));
  }
  va_end(again);
}

namespace {

void Discard(const std::string& path, bool regular) {
  if (regular) ::unlink(path.c_str());
}

HRESULT FailureOf(FileOpenStyle style, int err) {
  return style == FileOpenStyle::Runtime ? E_FAIL : HresultFromErrno(err);
}

}  // namespace

HRESULT WriteTextFileWith(LPCOLESTR fileName, FileOpenStyle style, const std::function<HRESULT(TextWriter&)>& body) {
  if (!fileName) return E_POINTER;
  std::string path = ToUtf8(std::u16string_view(fileName, WideLength(fileName)));
  // Truncation is part of a successful open only: a file that can't be
  // opened keeps what it had.
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return FailureOf(style, errno);
  struct stat st {};
  bool regular = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);

  HRESULT hr;
  int err;
  try {
    TextWriter out(fd);
    hr = body(out);
    out.Flush();
    err = out.m_error;
  } catch (...) {
    ::close(fd);
    Discard(path, regular);
    throw;
  }
  if (::close(fd) != 0 && !err) err = errno ? errno : EIO;
  if (SUCCEEDED(hr) && err) hr = FailureOf(style, err);
  if (FAILED(hr)) Discard(path, regular);
  return hr;
}

}  // namespace zemo
