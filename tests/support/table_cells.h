// A result table read whole: its columns' names and types and every cell,
// so that a test compares plain values instead of walking the interfaces.
#pragma once

#include <string>
#include <vector>

#include "frame/engine_interfaces.h"
#include "frame/persist_interfaces.h"
#include "platform/variant.h"

namespace zemo::testing_support {

struct TableCells {
  std::vector<std::u16string> names;
  std::vector<VARTYPE> types;
  std::vector<std::vector<CVariant>> rows;

  // A cell in the text form the XML and the exports give it.
  std::u16string Text(size_t row, size_t column) const;
};

// Every call that reads the table is checked; nothing is read past a failure.
TableCells ReadTable(IDataTable* table);
// The result table of a selectable object.
TableCells ReadTable(ISelectableObject* object);

}  // namespace zemo::testing_support
