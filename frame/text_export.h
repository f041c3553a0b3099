// Text exports through IPersistFile::Save, the only files the system
// writes: the extension test, the open in either of two styles, a fast line
// writer, and the rule that a failed write leaves no file behind.
//
//   HRESULT SizeStats::Save(LPCOLESTR name, BOOL) {
//     return Locked([&] {
//       CheckExportExtension(name, kExportTxt);
//       return WriteTextFile(name, FileOpenStyle::System, [&](TextWriter& out) {
//         for (uint64_t n : m_buckets) out.Printf("%llu\n", static_cast<unsigned long long>(n));
//       });
//     });
//   }
#pragma once

#include <cstdarg>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/types.h"

namespace zemo {

// The forms a class offers, by extension.
enum ExportForms : unsigned { kExportTxt = 1, kExportHash = 2 };
enum class ExportForm { Txt, Hash };

// The extension of a file name: from its last dot on (in the last path
// component), lower-cased; empty if there is none.
std::u16string LowerExtension(std::u16string_view fileName);

// Which allowed form the name asks for: ".txt" or ".hash", compared after
// lower-casing. A null name is E_POINTER, any other extension E_INVALIDARG
// (raised).
ExportForm CheckExportExtension(LPCOLESTR fileName, unsigned allowed);

// How the file is opened, which decides the status of a failure:
// Runtime: the C runtime's fopen; a file that can't be opened (or written) is E_FAIL.
// System: the system's file functions; a failure gives the system error.
enum class FileOpenStyle { Runtime, System };

class TextWriter;
HRESULT WriteTextFileWith(LPCOLESTR fileName, FileOpenStyle style, const std::function<HRESULT(TextWriter&)>& body);

// Buffered single-byte output to the open file. After the first failed
// write everything further is dropped; the failure shows when the file is
// finished.
class TextWriter {
 public:
  TextWriter(const TextWriter&) = delete;
  TextWriter& operator=(const TextWriter&) = delete;

  void Printf(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void Text(std::string_view text);
  void Char(char c);
  // Decimal, the same as "%llu" and "%u", without the format parse.
  void U64(uint64_t value);
  void U32(uint32_t value) { U64(value); }

  bool Failed() const noexcept { return m_error != 0; }

 private:
  friend HRESULT WriteTextFileWith(LPCOLESTR, FileOpenStyle, const std::function<HRESULT(TextWriter&)>&);
  explicit TextWriter(int fd);
  // Writes out the buffer; keeps the first error.
  void Flush() noexcept;
  // Room for n more bytes, flushing first if needed; null after a failure.
  char* Reserve(size_t n) noexcept;

  static constexpr size_t kBufferSize = 64 * 1024;
  int m_fd;
  int m_error = 0;  // errno of the first failure
  size_t m_used = 0;
  std::unique_ptr<char[]> m_buffer;
};

// Creates or replaces the file, runs body(TextWriter&) to write it, and
// closes it. If writing failed, or body returned a failure, the file is
// closed, deleted and the status returned (body's status first). A file
// that can't be opened is left as it was. body may return HRESULT or
// nothing; an exception from body deletes the file and passes on. Only a
// regular file is ever deleted.

template <class F>
HRESULT WriteTextFile(LPCOLESTR fileName, FileOpenStyle style, F&& body) {
  return WriteTextFileWith(fileName, style, [&](TextWriter& out) -> HRESULT {
    if constexpr (std::is_void_v<std::invoke_result_t<F&, TextWriter&>>) {
      body(out);
      return S_OK;
    } else {
      return body(out);
    }
  });
}

}  // namespace zemo
