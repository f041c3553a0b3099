// The stat map: default names of summary items by item id, for the items
// that the updater leaves without a label. It is read from an XML file whose
// root element, whatever its name, holds `stat` elements with the attributes
// `id` (the item id in braces) and `name`; anything else in the file is
// ignored, and a later `stat` of an id replaces the earlier name.
//
// The module reads "Statmap.xml" from the current directory; a host may
// read a map of its own from anywhere with the same reader.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "frame/hash_map.h"
#include "platform/guid.h"
#include "platform/xml_dom.h"

namespace zemo {

inline constexpr char16_t kStatMapFile[] = u"Statmap.xml";

class CStatMap {
 public:
  // Reads the file. On any failure the map is left empty and the status
  // given: E_FAIL for a file that does not load or a `stat` without `id`
  // or `name`. Raises nothing.
  HRESULT Load(std::u16string_view path);
  // The same from a document already loaded.
  HRESULT Load(IXMLDOMDocument* document);

  bool Empty() const noexcept { return m_names.IsEmpty(); }
  size_t Count() const noexcept { return m_order.size(); }
  void Clear();

  // The name of id. An id that is not in the map empties name and gives E_FAIL.
  HRESULT Lookup(REFGUID id, std::u16string& name) const;
  // Where the id stands in the file (its first `stat`), or -1.
  long Position(REFGUID id) const noexcept;
  // The ids in the order of the file, each once.
  const std::vector<GUID>& Ids() const noexcept { return m_order; }

 private:
  struct Entry {
    std::u16string name;
    long position;
  };
  CHashMap<GUID, Entry> m_names;
  std::vector<GUID> m_order;
};

}  // namespace zemo
