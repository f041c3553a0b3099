# Turns text files into a C++ source that holds them: each as pieces of raw
# string literals (no literal too long for a compiler), found by file name
# through PageAsset(). Run as a build step:
#   cmake -DOUT=assets.cpp -DFILES="a.html|b.js" -P embed_files.cmake
string(REPLACE "|" ";" files "${FILES}")
set(delimiter "zemo_embed")
set(piece 16000)
set(body "")
set(table "")
set(index 0)
foreach(path IN LISTS files)
  get_filename_component(name "${path}" NAME)
  file(READ "${path}" content)
  string(FIND "${content}" ")${delimiter}\"" clash)
  if(NOT clash EQUAL -1)
    message(FATAL_ERROR "${path} holds the raw string delimiter ${delimiter}")
  endif()
  string(LENGTH "${content}" length)
  string(APPEND body "const char* const kPieces${index}[] = {\n")
  set(count 0)
  set(at 0)
  while(at LESS length)
    string(SUBSTRING "${content}" ${at} ${piece} part)
    string(APPEND body "R\"${delimiter}(${part})${delimiter}\",\n")
    math(EXPR at "${at} + ${piece}")
    math(EXPR count "${count} + 1")
  endwhile()
  if(count EQUAL 0)
    string(APPEND body "\"\",\n")
    set(count 1)
  endif()
  string(APPEND body "};\n")
  string(APPEND table "    {\"${name}\", kPieces${index}, ${count}},\n")
  math(EXPR index "${index} + 1")
endforeach()
file(WRITE "${OUT}" "// Made by cmake/embed_files.cmake from the files it names; not edited.
#include <string>
#include <string_view>

namespace zemo::cli {
namespace {
${body}
struct Asset {
  std::string_view name;
  const char* const* pieces;
  unsigned count;
};
}  // namespace

std::string PageAsset(std::string_view name) {
  static const Asset kAssets[] = {
${table}  };
  std::string text;
  for (const Asset& a : kAssets)
    if (a.name == name)
      for (unsigned i = 0; i < a.count; ++i) text += a.pieces[i];
  return text;
}

}  // namespace zemo::cli
")
