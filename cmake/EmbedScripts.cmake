# Writes a source file that holds every registration script as a wide
# literal, looked up by the script's file name without its extension.
string(REPLACE " " ";" SCRIPTS "${SCRIPTS}")
set(body "")
foreach(script IN LISTS SCRIPTS)
  get_filename_component(name ${script} NAME_WE)
  file(READ ${script} text)
  string(APPEND body "  if (name == u\"${name}\") return uR\"rgs(${text})rgs\";\n")
endforeach()
file(WRITE ${OUT}.tmp "// Generated from registration/*.rgs; do not edit.
#include <string_view>

namespace zemo {
const char16_t* RegistrationScript(std::u16string_view name) {
${body}  return nullptr;
}
}  // namespace zemo
")
file(COPY_FILE ${OUT}.tmp ${OUT} ONLY_IF_DIFFERENT)
