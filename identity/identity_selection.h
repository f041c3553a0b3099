// The selection name the identity tables share the writing of: both are
// leaves of a path, with a fixed name and no table of their own.
#pragma once

#include <string_view>

#include "frame/persist_interfaces.h"
#include "platform/object.h"

namespace zemo::identity {

inline void SelectNameOut(BSTR* name, std::u16string_view text) {
  CheckOut(name);
  *name = AllocBstr(text);
}

}  // namespace zemo::identity
